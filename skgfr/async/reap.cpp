// Collects completion events from the kernel and hands each to the completion handler.
#include <cerrno>

#include "skgfr/async/async.hpp"
#include "skgfr/base/extensions.hpp"
#include "skgfr/base/kernel_aio.hpp"
#include "skgfr/base/list.hpp"
#include "skgfr/skgfr.h"

namespace {

using namespace skgfr;

constexpr int most_events = 1024;

/// Waits for events; -1 with errno when there are none, which a time-out turns into EAGAIN.
int wait_for_events(const skgfrctx *ctx, const timespec *timeout, io_event *events) {
  timespec limit = timeout ? *timeout : timespec{};
  errno = 0;
  const int count = kernel_aio::entry_points().getevents(ctx->ioctx_skgfrctx, 1, most_events,
                                                         events, timeout ? &limit : nullptr);
  if (count > 0) return count;
  if (count != -1 && errno == 0) errno = -count;
  if (count == 0 || errno == ETIMEDOUT) errno = EAGAIN;
  return -1;
}

/// Whether a block of the list is done.
bool any_completed(const aiocb64 **list, int count) {
  for (int i = 0; list && i < count; ++i) {
    if (list[i] && list[i]->__aio_key == completed) return true;
  }
  return false;
}

}  // namespace

long skgfr_reap64(skgfrctx *ctx, const struct timespec *timeout, unsigned int waitfor,
                  aiocb64 **out_list, int listsize, unsigned int *completed_count,
                  boolean suspend) {
  const ub1 phases = suspend ? queue_phase : queue_phase | complete_phase;
  io_event events[most_events];
  unsigned int done = *completed_count = 0;
  long last = 0;
  while (pending_in_kernel(ctx) != 0) {
    const int count = wait_for_events(ctx, timeout, events);
    if (count < 0) return -1;
    last = 0;
    const bool look_for_probes = awaits_late_probes();
    for (int i = 0; i < count; ++i) {
      if (look_for_probes && is_late_probe(events[i].data)) continue;
      aiocb64 *const block = static_cast<aiocb64 *>(events[i].data);
      reaped(ctx, block, static_cast<long>(events[i].res), phases);
      const unsigned int at = done + static_cast<unsigned int>(last);
      if (out_list && at < static_cast<unsigned int>(listsize)) out_list[at] = block;
      ++last;
    }
    ctx->aiopend_skgfrctx -= static_cast<uword>(last);
    *completed_count = done += static_cast<unsigned int>(last);
    if (done >= waitfor || done >= static_cast<unsigned int>(listsize)) break;
  }
  if (done >= waitfor) return last;
  errno = pending_in_kernel(ctx) == 0 ? E2BIG : EAGAIN;
  return -1;
}

int skgfr_suspend64(skgfrctx *ctx, const aiocb64 **list, int nent, const struct timespec *timeout) {
  int total = 0;
  while (total < nent) {
    unsigned int reaped = 0;
    const long result = skgfr_reap64(ctx, timeout, 1, nullptr, most_events, &reaped, TRUE);
    total += static_cast<int>(reaped);
    if (result == -1 || any_completed(list, nent)) break;
  }
  return total;
}
