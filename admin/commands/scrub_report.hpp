// What scrub tells of one disk: the object for scripts, the sentences for people.
#pragma once

#include "admin/report/report.hpp"
#include "admin/scan/scan.hpp"

namespace vdadm {

/// The whole of it. A disk that was read in an earlier run alone has no latencies.
report::Outcome tell_scrub(const std::string &name, const scan::Outcome &scrub);

/// How far it has come, for output that comes piece by piece.
report::Object tell_progress(const std::string &name, const scan::State &state);
report::Object tell_bad_range(const std::string &name, const scan::BadRange &range);

}  // namespace vdadm
