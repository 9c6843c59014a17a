// Waiting for completions: polls with a time-out, the client's wait, and the wake-up of another
// process.
#include <sys/types.h>

#include <cerrno>
#include <csignal>

#include "skgfr/async/async.hpp"
#include "skgfr/base/error_sites.hpp"
#include "skgfr/base/extensions.hpp"
#include "skgfr/base/list.hpp"
#include "skgfr/skgfr.h"

namespace {

using namespace skgfr;

constexpr ub4 longest_timeout = 0xFFFFFFFF;
constexpr time_t longest_wait_seconds = 600;
constexpr long nanoseconds_per_centisecond = 10000000;
constexpr int most_reaped = 1024;
constexpr ub4 interruptible = 0x1;
constexpr ub4 effectless_poll_flag = 0x4;  // polls have always been given it

timespec wait_time(ub4 centiseconds) {
  if (centiseconds == longest_timeout) return {longest_wait_seconds, 0};
  return {static_cast<time_t>(centiseconds / 100),
          static_cast<long>(centiseconds % 100) * nanoseconds_per_centisecond};
}

/// What a failed wait means for the poll.
enum class AfterFailure { go_on, stop, interrupted };

AfterFailure judge(slerc *se, int error, bool intr, ub4 timeout) {
  switch (error) {
    case EINTR: return intr ? AfterFailure::interrupted : AfterFailure::go_on;
    case ETIME: return timeout == longest_timeout ? AfterFailure::go_on : AfterFailure::stop;
    case ENOMEM:
    case EAGAIN: return AfterFailure::stop;
    default: break;
  }
  fail(se, sites::collection_failed, error);
  return AfterFailure::stop;
}

ub4 smallest(ub4 a, ub4 b, ub4 c) {
  const ub4 least = a < b ? a : b;
  return least < c ? least : c;
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
  const timespec timeout = wait_time(tout);
  ub4 reaped = 0;
  while (const uword left = reaped < count ? pending_in_kernel(ctx) : 0) {
    const ub4 wanted = smallest(count - reaped, most_reaped, left);
    unsigned int done = 0;
    const long result = skgfr_reap64(ctx, &timeout, wanted, nullptr, most_reaped, &done, FALSE);
    const int error = errno;
    reaped += done;
    if (result != -1) continue;
    switch (judge(se, error, intr, tout)) {
      case AfterFailure::go_on: continue;
      case AfterFailure::stop: return FALSE;
      case AfterFailure::interrupted: return TRUE;
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
  skgfriosb *const request = skgfgiod(ctx);
  if (!request) return skgfrrNOTFOUND;
  *ppiosb = request;
  return skgfrrOK;
}

void skgfrpst(slerc *se, skgfrctx *, skgfrwcx *cid, ub4) {
  const pid_t process = cid->pid_skgfrwcx;
  begin_code_only(se);
  if (process != 0) kill(process, SIGWINCH);
}
