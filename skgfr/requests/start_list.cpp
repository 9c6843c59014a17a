// Starts a batch of requests as one list, and sorts out what became of each when the kernel did not
// take them all.
#include <cerrno>
#include <ctime>

#include "skgfr/async/async.hpp"
#include "skgfr/requests/start.hpp"
#include "skgfr/skgfr.h"

namespace {

using namespace skgfr;

constexpr timespec short_wait{0, 1000000};

/// When a list was started: the clock is read once, when its first request asks for it.
struct Start {
  explicit Start(const skgfrrq *first) : timed(first->iosb_skgfrrq->time_skgfriosb != nullptr) {
    slerc ignored;
    if (timed) time = slgcs(&ignored);
  }
  void keep(aiocb64 *const *blocks, ub4 count) const {
    for (ub4 i = 0; timed && i < count; ++i) owner_of(blocks[i])->start_skgfrsisb = time;
  }

  const bool timed;
  ub4 time = 0;
};

/// Hands control blocks to the kernel: 0, or the error number when it did not take them all.
int hand_over(skgfrctx *ctx, aiocb64 *const *blocks, ub4 count) {
  auto const list = const_cast<const aiocb64 **>(const_cast<aiocb64 **>(blocks));
  return skgfr_lio_listio64(ctx, LIO_NOWAIT, list, static_cast<int>(count), nullptr) ? errno : 0;
}

void count_pending(const Batch &batch) {
  if (batch.on_one_handle) {
    owner_of(batch.blocks[0])->iov_skgfrsisb->aiopend_skgfrsiov += batch.count;
    return;
  }
  for (ub4 i = 0; i < batch.count; ++i) {
    ++owner_of(batch.blocks[i])->iov_skgfrsisb->aiopend_skgfrsiov;
  }
}

bool fail_submission(skgfrctx *ctx, const skgfrrq *request, int error) {
  withdraw(ctx, extension(request->iosb_skgfrrq));
  fail(error_of(request), sites::list_submission_refused, error);
  return end(request, skgfriIOERROR);
}

bool put_off(skgfrctx *ctx, const skgfrrq *request) {
  withdraw(ctx, extension(request->iosb_skgfrrq));
  return end(request, skgfriLATER);
}

/// Tells a request by the state of its control block.
bool settle(skgfrctx *ctx, const skgfrrq *request, aiocb64 *control, int error) {
  skgfrsisb *const block = owner_of(control);
  switch (const int state = error == ENOSYS ? ENOSYS : skgfr_error64(ctx, control)) {
    case 0: block->qstatus_skgfrsisb |= completion_due; [[fallthrough]];
    case EINPROGRESS: ++block->iov_skgfrsisb->aiopend_skgfrsiov; return true;
    case -1:
    case EINTR:
    case EAGAIN: return put_off(ctx, request);
    default: return fail_submission(ctx, request, state);
  }
}

/// Whether the kernel began with none of a list for a reason that waiting does not change: then the first
/// request is at fault, and would be put off for ever.
bool is_refused_for_good(skgfrctx *ctx, aiocb64 *first, int error) {
  switch (error) {
    case EAGAIN:
    case EINTR:
    case ENOMEM:
    case ENOSYS: return false;
    default: return skgfr_error64(ctx, first) == EAGAIN;  // it was not submitted
  }
}

/// What was taken may be back already, so completions are looked at first.
[[gnu::cold]] bool settle_all(skgfrctx *ctx, skgfrrq *const *requests, aiocb64 *const *blocks,
                              ub4 count, int error) {
  auto const list = const_cast<const aiocb64 **>(const_cast<aiocb64 **>(blocks));
  skgfr_suspend64(ctx, error == EAGAIN ? nullptr : list, static_cast<int>(count), &short_wait);
  ub4 settled = 0;
  if (is_refused_for_good(ctx, blocks[0], error)) {
    fail_submission(ctx, requests[settled++], error);
  }
  for (; settled < count; ++settled) settle(ctx, requests[settled], blocks[settled], error);
  return false;
}

bool start_one(skgfrctx *ctx, const Target &target, skgfrrq *request) {
  aiocb64 *const block = control_block(request);
  const Start start(request);
  const int error = hand_over(ctx, &block, 1);
  start.keep(&block, 1);
  if (error != 0) return settle_all(ctx, &request, &block, 1, error);
  ++target.handle->aiopend_skgfrsiov;
  return true;
}

bool start_batch(skgfrctx *ctx, const Way &, const Batch &batch) {
  const Start start(batch.requests[0]);
  const int error = hand_over(ctx, batch.blocks, batch.count);
  start.keep(batch.blocks, batch.count);
  if (error != 0) return settle_all(ctx, batch.requests, batch.blocks, batch.count, error);
  count_pending(batch);
  return true;
}

}  // namespace

constinit const skgfr::Way skgfr::start_list{start_one, start_batch};
