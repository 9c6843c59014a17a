// How long a request took, by the centisecond clock.
#pragma once

#include "skgfr/records.h"

namespace skgfr {

/// Hundredths of a second from start (0: not taken) to now; now alone when the clock began again.
inline ub4 elapsed(ub4 start, ub4 now) {
  if (now < start) return now;
  return start == 0 ? 0 : now - start;
}

/// Reads the clock when a request asks to be timed.
class Stopwatch {
 public:
  explicit Stopwatch(const skgfriosb *status) {
    if (status->time_skgfriosb) start_ = now();
  }
  void store(const skgfriosb *status) const {
    if (status->time_skgfriosb) *status->time_skgfriosb = elapsed(start_, now());
  }

 private:
  static ub4 now() {
    slerc ignored;
    return slgcs(&ignored);
  }

  ub4 start_ = 0;
};

}  // namespace skgfr
