// Many small questions, each of which a disk may never answer: a process takes one after the other, so
// that a question costs no process of its own. One that waits is left behind, and another takes the
// rest.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace vdadm::inspect {

/// The answer to the question of this number, as bytes. Runs in another process.
using Answer = std::function<std::string(size_t number)>;

/// The answers to `count` questions, in their order; none where there was none within so many seconds.
/// Whatever hangs, this takes little longer than that beyond what the others need.
std::vector<std::optional<std::string>> ask_crew(size_t count, const Answer &answer,
                                                 double seconds);

}  // namespace vdadm::inspect
