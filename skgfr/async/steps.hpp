// The steps from the kernel to the client: reaping, completion, delivery. Inline, as every asynchronous
// request takes all of them. Private to this room.
//
// The done queue is a stack: what was reaped last is delivered first.
#pragma once

#include <cerrno>

#include "skgfr/async/async.hpp"
#include "skgfr/base/elapsed.hpp"
#include "skgfr/base/extensions.hpp"
#include "skgfr/base/kernel_aio.hpp"

namespace skgfr {

inline constexpr int most_events = 1024;

/// Whether the kernel still holds support probes of the context that were given up.
inline bool awaits_late_probes(const skgfrctx *ctx) { return !is_empty(ctx->qsubmit_skgfrctx); }

/// Whether a completion belongs to one of them; if so, that probe is released.
bool is_late_probe(skgfrctx *ctx, const void *data);

/// Requests in the kernel: pending ones that were not converted.
inline uword pending_in_kernel(const skgfrctx *ctx) {
  uword converted = 0;
  const kgglk *const head = &ctx->conv_skgfrctx;
  for (const kgglk *link = head->kgglknxt; link != head; link = link->kgglknxt) ++converted;
  return ctx->aiopend_skgfrctx - converted;
}

inline bool has(const skgfrsisb *request, sword bits) { return request->qstatus_skgfrsisb & bits; }

/// Tells that a request failed in the kernel, or moved another number of bytes.
[[gnu::cold]] void fail_completion(skgfrsisb *request, aiocb64 *block);

inline void store_elapsed(const skgfriosb *status, const skgfrsisb *request) {
  slerc ignored;
  *status->time_skgfriosb = elapsed(request->start_skgfrsisb, slgcs(&ignored));
}

/// Fills the status block and the error record of a request whose control block is completed.
inline void complete(skgfrsisb *request, aiocb64 *block) {
  request->qstatus_skgfrsisb = 0;
  const size_t moved = static_cast<size_t>(block->__error_code);
  if (moved != request->aiosize_skgfrsisb) return fail_completion(request, block);
  skgfriosb *const status = public_record(request);
  begin(status->slerc_skgfriosb);
  if (status->time_skgfriosb) store_elapsed(status, request);
  status->status_skgfriosb = skgfriDONE;
}

/// Puts requests on the done queue, one behind the other; the queue itself is written once, at the end.
class DoneQueue {
 public:
  explicit DoneQueue(skgfrctx *ctx) : ctx_(ctx), top_(ctx->qdone_skgfrctx.kgglknxt) {}
  DoneQueue(const DoneQueue &) = delete;
  DoneQueue &operator=(const DoneQueue &) = delete;
  ~DoneQueue() {
    ctx_->qdone_skgfrctx.kgglknxt = top_;
    top_->kgglkprv = &ctx_->qdone_skgfrctx;
    ctx_->aiodone_skgfrctx += count_;
  }
  void push(skgfrsisb *request) {
    kgglk *const link = &request->link_skgfrsisb;
    link->kgglknxt = top_;
    top_->kgglkprv = link;
    top_ = link;
    ++count_;
  }
  uword count() const { return count_; }

 private:
  skgfrctx *const ctx_;
  kgglk *top_;
  uword count_ = 0;
};

/// What is done with a completed request when it is reaped: completed at once, or at its delivery only.
enum class Completion { at_once, at_delivery };

/// Takes over a completion from the kernel.
template <Completion completion>
inline void take_over(DoneQueue &done, aiocb64 *block, long result) {
  skgfrsisb *const request = owner_of(block);
  block->__error_code = result;
  block->__aio_key = completed;
  done.push(request);
  if (completion == Completion::at_once) {
    complete(request, block);
  } else {
    request->qstatus_skgfrsisb = delivered | completion_due;
  }
}

/// Waits for events; -1 with errno when there are none, which a time-out turns into EAGAIN.
inline int wait_for_events(const skgfrctx *ctx, const timespec *timeout, io_event *events) {
  errno = 0;
  const int count = kernel_aio::entry_points().getevents(
      ctx->ioctx_skgfrctx, 1, most_events, events, const_cast<timespec *>(timeout));  // only read
  if (count > 0) return count;
  if (count != -1 && errno == 0) errno = -count;
  if (count == 0 || errno == ETIMEDOUT) errno = EAGAIN;
  return -1;
}

/// Takes over what one wait brings, late probes dropped. How many requests these were, or -1 as above.
template <Completion completion>
inline int reap_once(skgfrctx *ctx, const timespec *timeout) {
  io_event events[most_events];
  const int count = wait_for_events(ctx, timeout, events);
  if (count < 0) return -1;
  const bool look_for_probes = awaits_late_probes(ctx);
  DoneQueue done(ctx);
  for (const io_event *event = events; event != events + count; ++event) {
    if (look_for_probes && is_late_probe(ctx, event->data)) continue;
    take_over<completion>(done, static_cast<aiocb64 *>(event->data), static_cast<long>(event->res));
  }
  ctx->aiopend_skgfrctx -= done.count();
  return static_cast<int>(done.count());
}

/// Reaps until waitfor requests or more are done, or room of them, or nothing is left; done receives their
/// number. That of the last wait, or -1 with errno.
template <Completion completion>
inline int reap(skgfrctx *ctx, const timespec *timeout, unsigned int waitfor, unsigned int room,
                unsigned int *done) {
  int last = 0;
  *done = 0;
  while (pending_in_kernel(ctx) != 0) {
    last = reap_once<completion>(ctx, timeout);
    if (last < 0) return -1;
    *done += static_cast<unsigned int>(last);
    if (*done >= waitfor || *done >= room) break;
  }
  if (*done >= waitfor) return last;
  errno = pending_in_kernel(ctx) == 0 ? E2BIG : EAGAIN;
  return -1;
}

/// Completes a request at its delivery, which was reaped while suspending.
[[gnu::cold]] void complete_late(skgfrsisb *request);

/// Gives a request that was taken off the done queue to the client, completed first when that is due.
inline skgfriosb *deliver(skgfrctx *ctx, skgfrsisb *request) {
  if (has(request, delivered | completion_due)) complete_late(request);
  request->qstatus_skgfrsisb = delivered;
  --request->iov_skgfrsisb->aiopend_skgfrsiov;
  --ctx->aiodone_skgfrctx;
  return public_record(request);
}

inline skgfriosb *deliver_next(skgfrctx *ctx) {
  if (is_empty(ctx->qdone_skgfrctx)) return nullptr;
  return deliver(ctx, owner_of(pop_front(ctx->qdone_skgfrctx)));
}

}  // namespace skgfr
