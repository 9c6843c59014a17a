// Completion and delivery as clients reach them, and the requests that were carried out at once.
#include "skgfr/async/steps.hpp"
#include "skgfr/skgfr.h"

namespace {

using namespace skgfr;

/// Phases of skgfrciohdlr.
enum CompletionPhase : ub1 { queue_phase = 0x1, complete_phase = 0x2 };

void fail_with(skgfrsisb *request, aiocb64 *block, int error) {
  skgfriosb *const status = public_record(request);
  const Site &site = error != 0 ? sites::completion_error : sites::completion_short;
  fail(status->slerc_skgfriosb, site, error, static_cast<ub4>(skgfr_return64(nullptr, block)),
       static_cast<ub4>(request->aiosize_skgfrsisb));
  status->status_skgfriosb = skgfriIOERROR;
}

/// A converted request that no poll has moved yet stands on a list that is not the done queue.
bool is_on_done_queue(skgfrsisb *request) {
  const kgglk &link = request->link_skgfrsisb;
  if (!link.kgglknxt || is_empty(link)) return false;
  return has(request, completion_due) || public_record(request)->status_skgfriosb != skgfriPEND;
}

}  // namespace

namespace skgfr {

void fail_completion(skgfrsisb *request, aiocb64 *block) {
  const long result = block->__error_code;
  fail_with(request, block, result < 0 ? static_cast<int>(-result) : 0);
}

void complete_late(skgfrsisb *request) { complete(request, &request->aio64req_skgfrsisb); }

void convert_pending(skgfrctx *ctx, skgfrsisb *request) {
  ++ctx->aiopend_skgfrctx;
  ++request->iov_skgfrsisb->aiopend_skgfrsiov;
  push_front(ctx->conv_skgfrctx, request->link_skgfrsisb);
}

void withdraw(skgfrctx *ctx, skgfrsisb *request) {
  if (!has(request, delivered | completion_due)) return;
  request->qstatus_skgfrsisb = 0;
  unlink(request->link_skgfrsisb);
  --ctx->aiodone_skgfrctx;
}

}  // namespace skgfr

void skgfrciohdlr(skgfrctx *ctx, skgfrsisb *siosb_ptr, aiocb64 *aiocb_ptr, int aio_err, ub1 phase) {
  if (phase & queue_phase) {
    DoneQueue(ctx).push(siosb_ptr);
    if (!(phase & complete_phase)) siosb_ptr->qstatus_skgfrsisb = delivered | completion_due;
  }
  if (!(phase & complete_phase)) return;
  if (aio_err == 0 && aiocb_ptr->__aio_key == completed) return complete(siosb_ptr, aiocb_ptr);
  siosb_ptr->qstatus_skgfrsisb = 0;
  fail_with(siosb_ptr, aiocb_ptr, aio_err);
}

skgfriosb *skgfgiod(skgfrctx *ctx) { return deliver_next(ctx); }

skgfrr skgfnxtio(slerc *se, skgfrctx *ctx, skgfriosb **ppiosb) {
  begin_code_only(se);
  skgfriosb *const request = deliver_next(ctx);
  if (!request && ctx->aiopend_skgfrctx == 0) return skgfrrNOTFOUND;
  *ppiosb = request;
  return skgfrrOK;
}

void skgfrchk(skgfrctx *ctx, skgfriosb *iosb) {
  skgfrsisb *const request = extension(iosb);
  if (has(request, delivered) || !is_on_done_queue(request)) return;
  unlink(request->link_skgfrsisb);
  deliver(ctx, request);
}
