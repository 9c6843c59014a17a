// A rate that is not exceeded. What was missed is made up for, but for a moment only.
#pragma once

#include <algorithm>
#include <cstdint>

namespace vdadm::scan {

class Pace {
 public:
  explicit Pace(uint64_t rate) : rate_(rate) {}

  /// Nanoseconds to wait before more is asked for; 0 or less: none.
  int64_t wait(int64_t now) const { return rate_ ? next_ - now : 0; }

  void took(uint64_t bytes, int64_t now) {
    if (next_ == 0) next_ = now;
    if (rate_ == 0) return;
    const double seconds = static_cast<double>(bytes) / static_cast<double>(rate_);
    next_ = std::max(next_, now - moment) + static_cast<int64_t>(seconds * 1e9);
  }

  /// The size of a request with which a slow rate does not become a burst now and then: a tenth of a second's
  /// worth, between least and most, in whole multiples of least.
  uint64_t piece(uint64_t least, uint64_t most) const {
    return rate_ ? std::clamp(rate_ / 10 / least * least, least, most) : most;
  }

 private:
  static constexpr int64_t moment = 100'000'000;

  uint64_t rate_;
  int64_t next_ = 0;
};

}  // namespace vdadm::scan
