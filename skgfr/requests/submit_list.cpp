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
  int error;  // 0 when the kernel took the whole list
  bool timed;
  ub4 start;
};

/// Where a request stands after the call, as an error number.
int state_of(skgfrctx *ctx, aiocb64 *block, int list_error) {
  if (list_error == 0) return EINPROGRESS;
  return list_error == ENOSYS ? ENOSYS : skgfr_error64(ctx, block);
}

bool count_pending(skgfrsisb *block, const Submission &submission) {
  if (submission.timed) block->start_skgfrsisb = submission.start;
  ++block->iov_skgfrsisb->aiopend_skgfrsiov;
  return true;
}

/// A request that is answered here must not be delivered as well: one that the kernel took and that
/// is back already comes off the done queue.
void withdraw(skgfrctx *ctx, skgfrsisb *block) {
  if (!(block->qstatus_skgfrsisb & (delivered | completion_due))) return;
  block->qstatus_skgfrsisb &= ~(delivered | completion_due);
  take_off_done_queue(ctx, block);
}

bool settle(skgfrctx *ctx, skgfrrq *request, aiocb64 *control, const Submission &submission) {
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
      return false;
    default:
      withdraw(ctx, block);
      fail(status->slerc_skgfriosb, sites::list_submission_refused, state);
      status->status_skgfriosb = skgfriIOERROR;
      return false;
  }
}

}  // namespace

bool skgfr::submit_list(skgfrctx *ctx, skgfrrq **requests, aiocb64 **blocks, ub4 count) {
  const int entries = static_cast<int>(count);
  const aiocb64 **const list = const_cast<const aiocb64 **>(blocks);
  Submission submission{0, requests[0]->iosb_skgfrrq->time_skgfriosb != nullptr, 0};
  slerc ignored;
  if (submission.timed) submission.start = slgcs(&ignored);

  bool all = true;
  if (skgfr_lio_listio64(ctx, LIO_NOWAIT, list, entries, nullptr) != 0) {
    submission.error = errno;
    all = false;
    skgfr_suspend64(ctx, submission.error == EAGAIN ? nullptr : list, entries, &short_wait);
  }
  for (ub4 i = 0; i < count; ++i) {
    if (!settle(ctx, requests[i], blocks[i], submission)) all = false;
  }
  return all;
}
