// Questions that a disk may never answer, each in a process of its own.
//
// A process that waits for a dead disk cannot be ended by anybody; it is left behind, with nothing
// of ours in its hands, and everything else goes on.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "admin/report/report.hpp"

namespace vdadm::inspect {

using Question = std::function<report::Outcome()>;

/// The outcomes of all questions, in their order; none where there was no answer in time. A few are
/// asked at once. A question that throws a Failure throws it here, for the first one that does.
std::vector<std::optional<report::Outcome>> ask_all(const std::vector<Question> &questions,
                                                    double seconds);

/// The same for one.
std::optional<report::Outcome> ask(const Question &question, double seconds);

}  // namespace vdadm::inspect
