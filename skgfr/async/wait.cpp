// Waiting for completions: polls with a time-out, the client's wait, and the wake-up of another
// process.
#include <sys/types.h>

#include <algorithm>
#include <csignal>
#include <ctime>

#include "skgfr/async/steps.hpp"
#include "skgfr/base/error_sites.hpp"
#include "skgfr/skgfr.h"

namespace {

using namespace skgfr;

constexpr ub4 longest_timeout = 0xFFFFFFFF;
constexpr time_t longest_wait_seconds = 600;
constexpr long nanoseconds_per_centisecond = 10000000;
constexpr long nanoseconds_per_second = 1000000000;
constexpr ub4 interruptible = 0x1;
constexpr ub4 effectless_poll_flag = 0x4;  // polls have always been given it

timespec wait_time(ub4 centiseconds) {
  if (centiseconds == longest_timeout) return {longest_wait_seconds, 0};
  return {static_cast<time_t>(centiseconds / 100),
          static_cast<long>(centiseconds % 100) * nanoseconds_per_centisecond};
}

/// How long the next wait may take: a whole time-out, or what an interruption left of one.
class WaitTime {
 public:
  explicit WaitTime(ub4 timeout) : timeout_(timeout) { restart(); }

  const timespec *get() const { return &rest_; }
  void restart() {
    rest_ = wait_time(timeout_);
    clock_gettime(clock, &started_);
  }
  /// After an interruption; false when the time is over.
  bool shorten() {
    timespec now;
    clock_gettime(clock, &now);
    timespec &wait = rest_ = wait_time(timeout_);
    wait.tv_sec -= now.tv_sec - started_.tv_sec;
    wait.tv_nsec -= now.tv_nsec - started_.tv_nsec;
    if (wait.tv_nsec < 0) wait = {wait.tv_sec - 1, wait.tv_nsec + nanoseconds_per_second};
    if (wait.tv_nsec >= nanoseconds_per_second) {
      wait = {wait.tv_sec + 1, wait.tv_nsec - nanoseconds_per_second};
    }
    return wait.tv_sec > 0 || (wait.tv_sec == 0 && wait.tv_nsec > 0);
  }

 private:
  // Costs a tenth of the fine one, and time-outs are no finer.
  static constexpr clockid_t clock = CLOCK_MONOTONIC_COARSE;

  const ub4 timeout_;
  timespec rest_;
  timespec started_;
};

/// What a failed wait means for the poll.
enum class AfterFailure { go_on, resume, stop, interrupted };

[[gnu::cold]] AfterFailure judge(slerc *se, int error, bool intr, ub4 timeout) {
  switch (error) {
    case EINTR: return intr ? AfterFailure::interrupted : AfterFailure::resume;
    case ETIME: return timeout == longest_timeout ? AfterFailure::go_on : AfterFailure::stop;
    case ENOMEM:
    case EAGAIN: return AfterFailure::stop;
    default: break;
  }
  fail(se, sites::collection_failed, error);
  return AfterFailure::stop;
}

/// Reports a converted request as done.
void report_converted(skgfrctx *ctx, skgfrsisb *request) {
  public_record(request)->status_skgfriosb = skgfriDONE;
  unlink(request->link_skgfrsisb);
  --ctx->aiopend_skgfrctx;
  DoneQueue(ctx).push(request);
}

/// Reports converted requests as done, up to count; how many.
ub4 report_all_converted(skgfrctx *ctx, ub4 count) {
  ub4 reported = 0;
  while (reported < count && !is_empty(ctx->conv_skgfrctx)) {
    report_converted(ctx, owner_of(ctx->conv_skgfrctx.kgglknxt));
    ++reported;
  }
  return reported;
}

/// Waits in the kernel for completions, up to count; TRUE when interrupted.
inline boolean poll_kernel(slerc *se, skgfrctx *ctx, ub4 count, boolean intr, ub4 tout) {
  if (count == 0) return TRUE;
  WaitTime time(tout);
  while (const uword left = pending_in_kernel(ctx)) {
    const ub4 wanted = std::min({count, ub4{most_events}, left});
    unsigned int done = 0;
    const int result = reap<Completion::at_once>(ctx, time.get(), wanted, most_events, &done);
    AfterFailure next = AfterFailure::go_on;
    if (result == -1) next = judge(se, errno, intr, tout);
    if (next == AfterFailure::interrupted) return TRUE;
    if (next == AfterFailure::stop || done >= count) return FALSE;
    count -= done;
    if (done != 0) {
      time.restart();
    } else if (next == AfterFailure::resume && !time.shorten()) {
      return FALSE;
    }
  }
  return FALSE;
}

/// The same with converted requests first, which are complete.
inline boolean poll(slerc *se, skgfrctx *ctx, ub4 count, ub4 flags, ub4 tout) {
  begin_code_only(se);
  if (ctx->aiopend_skgfrctx == 0) return FALSE;
  const ub4 reported = report_all_converted(ctx, count);
  if (reported >= count) return FALSE;
  return poll_kernel(se, ctx, count - reported, flags & interruptible ? TRUE : FALSE, tout);
}

}  // namespace

boolean skgfrliopo(slerc *se, skgfrctx *ctx, ub4 count, uword, boolean intr, ub4 tout) {
  return poll_kernel(se, ctx, count, intr, tout);
}

boolean skgfospo(slerc *se, skgfrctx *ctx, ub4 count, uword, ub4 flags, ub4 tout) {
  return poll(se, ctx, count, flags, tout);
}

skgfrr skgfrwat(slerc *se, skgfrctx *ctx, ub4 count, skgfriosb **ppiosb, skgfrwcx *wcx,
                ub4 timeout) {
  begin(se);
  if (ctx->aiodone_skgfrctx < count && ctx->aiopend_skgfrctx != 0) {
    const ub4 flags = effectless_poll_flag | (wcx ? interruptible : 0);
    if (poll(se, ctx, count, flags, timeout)) return skgfrrINTERRUPT;
    if (failed(se)) return skgfrrERROR;
  }
  skgfriosb *const request = deliver_next(ctx);
  if (!request) return skgfrrNOTFOUND;
  *ppiosb = request;
  return skgfrrOK;
}

void skgfrpst(slerc *se, skgfrctx *, skgfrwcx *cid, ub4) {
  const pid_t process = cid->pid_skgfrwcx;
  begin_code_only(se);
  if (process != 0) kill(process, SIGWINCH);
}
