// The millisecond clock with its centisecond view, and the local date and time.
//
// The clock counts kernel ticks in a 31-bit counter, so that it means the same on both word sizes;
// a reading below the last one is a wrap of that counter.
#include <sys/time.h>
#include <sys/times.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <ctime>

#include "sysl/error_sites.hpp"
#include "sysl/sysl.h"

namespace {

using namespace sysl;

constexpr ub4 counter_mask = 0x7FFFFFFF;
constexpr ub8 counter_span = ub8{1} << 31;
constexpr long usual_tick_rate = 100;

std::atomic<long> tick_rate{0};  // ticks a second; read from the system once

/// What the tick counter has shown so far, behind a one-word spin lock.
struct TickHistory {
  std::atomic<ub4> lock{0};
  ub4 last = 0;
  ub8 wraps = 0;
} history;

class SpinGuard {
 public:
  explicit SpinGuard(std::atomic<ub4> &word) : word_(word) {
    ub4 free_word = 0;
    while (!word_.compare_exchange_weak(free_word, 1, std::memory_order_acquire)) free_word = 0;
  }
  ~SpinGuard() { word_.store(0, std::memory_order_release); }
  SpinGuard(const SpinGuard &) = delete;
  SpinGuard &operator=(const SpinGuard &) = delete;

 private:
  std::atomic<ub4> &word_;
};

ub8 ticks_per_second() {
  long rate = tick_rate.load(std::memory_order_relaxed);
  if (rate == 0) {
    rate = sysconf(_SC_CLK_TCK);
    if (rate <= 0) rate = usual_tick_rate;
    tick_rate.store(rate, std::memory_order_relaxed);
  }
  return static_cast<ub8>(rate);
}

/// Ticks since the counter's start, wraps included.
ub8 ticks_so_far() {
  const SpinGuard guard(history.lock);
  const clock_t reading = times(nullptr);
  // -1 is the error value, and for one tick in 2^32 a true reading: the clock stands still for it.
  const ub4 now =
      reading == static_cast<clock_t>(-1) ? history.last : static_cast<ub4>(reading) & counter_mask;
  if (now < history.last) ++history.wraps;
  history.last = now;
  return now + history.wraps * counter_span;
}

}  // namespace

ub8 sltrgatime64(void) {
  const ub8 rate = ticks_per_second();
  return ticks_so_far() * 1000 / rate;
}

ub4 slgcs(slerc *se) {
  begin_code_only(se);
  return static_cast<ub4>(sltrgatime64() / 10);
}

slgtd_t *slgtd(slerc *se, slgtd_t *dt) {
  begin_code_only(se);
  timeval now;
  if (gettimeofday(&now, nullptr) != 0) {
    se->slercerrno = errno;
    fail_code_only(se, sites::time_of_day_unreadable);
    return dt;
  }
  tm local{};
  localtime_r(&now.tv_sec, &local);
  const auto narrow = [](long value) { return static_cast<sb2>(value); };
  *dt = slgtd_t{narrow(local.tm_year + 1900), narrow(local.tm_mon + 1),
                narrow(local.tm_mday),        narrow(local.tm_hour),
                narrow(local.tm_min),         narrow(local.tm_sec),
                narrow(now.tv_usec / 1000),   0};
  return dt;
}
