// Overwrites one line of standard error, without colours or any other sequence that a terminal may
// not know.
#include "admin/scan/progress.hpp"

#include <fmt/format.h>
#include <unistd.h>

#include <cstdlib>
#include <string_view>

#include "admin/report/report.hpp"

namespace vdadm::scan {

ProgressLine::ProgressLine() {
  const char *const terminal = std::getenv("TERM");
  possible_ = isatty(STDERR_FILENO) && terminal && std::string_view(terminal) != "dumb";
}

void ProgressLine::show(const std::string &name, const State &state) {
  if (!possible_ || !state.opened || state.seconds <= 0) return;
  const double done = share_done(state);
  const double rate = static_cast<double>(state.bytes) / state.seconds;
  const auto left = static_cast<double>(state.facts.range.end - state.position);
  std::string line = fmt::format("{}: {:.1f} %, {:.0f} MiB/s", report::printable(name), done * 100,
                                 rate / (1 << 20));
  if (!state.bad.all().empty()) line += fmt::format(", {} bad ranges", state.bad.all().size());
  if (rate > 0) line += fmt::format(", {} left", readable_time(left / rate));
  const size_t length = line.size();
  if (length < length_) line.append(length_ - length, ' ');
  std::fprintf(stderr, "\r%s", line.c_str());
  std::fflush(stderr);
  length_ = length;
}

void ProgressLine::clear() {
  if (length_ == 0) return;
  std::fprintf(stderr, "\r%*s\r", static_cast<int>(length_), "");
  std::fflush(stderr);
  length_ = 0;
}

std::string readable_time(double seconds) {
  if (seconds < 10) return fmt::format("{:.1f} s", seconds);
  const auto full = static_cast<uint64_t>(seconds);
  if (full < 60) return fmt::format("{} s", full);
  if (full < 3600) return fmt::format("{} min {} s", full / 60, full % 60);
  return fmt::format("{} h {} min", full / 3600, full / 60 % 60);
}

double share_done(const State &state) {
  const Extent &range = state.facts.range;
  if (range.bytes() == 0) return 1;
  return static_cast<double>(state.position - range.begin) / static_cast<double>(range.bytes());
}

}  // namespace vdadm::scan
