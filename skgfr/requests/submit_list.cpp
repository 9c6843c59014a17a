// Submits a batch of requests in one kernel call, and sorts out what became of each when the kernel did
// not take them all.
#include <cerrno>
#include <ctime>

#include "skgfr/async/async.hpp"
#include "skgfr/base/extensions.hpp"
#include "skgfr/requests/submit.hpp"
#include "skgfr/skgfr.h"

namespace {

using namespace skgfr;

constexpr timespec short_wait{0, 1000000};

/// What the list call came to, for the requests of its batch.
struct Submission {
  int error;  // 0 while the kernel took the whole list
  bool timed;
  ub4 start;
};

/// Where a request stands after a call that failed, as an error number.
int state_of(skgfrctx *ctx, aiocb64 *block, int list_error) {
  return list_error == ENOSYS ? ENOSYS : skgfr_error64(ctx, block);
}

void count_pending(skgfrsisb *block, const Submission &submission) {
  if (submission.timed) block->start_skgfrsisb = submission.start;
  ++block->iov_skgfrsisb->aiopend_skgfrsiov;
}

/// A request that is answered here must not be delivered as well: one that the kernel took and that
/// is back already comes off the done queue.
void withdraw(skgfrctx *ctx, skgfrsisb *block) {
  if (!(block->qstatus_skgfrsisb & (delivered | completion_due))) return;
  block->qstatus_skgfrsisb &= ~(delivered | completion_due);
  take_off_done_queue(ctx, block);
}

void settle(skgfrctx *ctx, const skgfrrq *request, aiocb64 *control, const Submission &submission) {
  skgfriosb *const status = request->iosb_skgfrrq;
  skgfrsisb *const block = extension(status);
  const int state = state_of(ctx, control, submission.error);
  switch (state) {
    case 0: block->qstatus_skgfrsisb |= completion_due; [[fallthrough]];
    case EINPROGRESS: return count_pending(block, submission);
    case -1:
    case EINTR:
    case EAGAIN:
      withdraw(ctx, block);
      status->status_skgfriosb = skgfriLATER;
      return;
    default:
      withdraw(ctx, block);
      fail(status->slerc_skgfriosb, sites::list_submission_refused, state);
      status->status_skgfriosb = skgfriIOERROR;
  }
}

}  // namespace

bool skgfr::submit_list(skgfrctx *ctx, const Batch &batch) {
  const int entries = static_cast<int>(batch.count);
  auto const list = const_cast<const aiocb64 **>(batch.blocks);
  Submission submission{0, batch.requests[0]->iosb_skgfrrq->time_skgfriosb != nullptr, 0};
  slerc ignored;
  if (submission.timed) submission.start = slgcs(&ignored);

  if (skgfr_lio_listio64(ctx, LIO_NOWAIT, list, entries, nullptr) == 0) {
    for (ub4 i = 0; i < batch.count; ++i) count_pending(owner_of(batch.blocks[i]), submission);
    return true;
  }
  submission.error = errno;
  skgfr_suspend64(ctx, submission.error == EAGAIN ? nullptr : list, entries, &short_wait);
  for (ub4 i = 0; i < batch.count; ++i) {
    settle(ctx, batch.requests[i], batch.blocks[i], submission);
  }
  return false;
}
