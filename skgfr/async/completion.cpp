// Moves requests from completion to delivery, and takes them out of every counter on the way.
//
// The done queue is a stack: what was reaped last is delivered first.
#include "skgfr/async/async.hpp"
#include "skgfr/base/elapsed.hpp"
#include "skgfr/base/extensions.hpp"
#include "skgfr/base/list.hpp"
#include "skgfr/skgfr.h"

namespace {

using namespace skgfr;

bool has(const skgfrsisb *request, sword bits) { return request->qstatus_skgfrsisb & bits; }

void put_on_done_queue(skgfrctx *ctx, skgfrsisb *request) {
  push_front(ctx->qdone_skgfrctx, request->link_skgfrsisb);
  ++ctx->aiodone_skgfrctx;
}

void store_elapsed(const skgfriosb *status, const skgfrsisb *request) {
  if (!status->time_skgfriosb) return;
  slerc ignored;
  *status->time_skgfriosb = elapsed(request->start_skgfrsisb, slgcs(&ignored));
}

skgfri fail_completion(slerc *se, const Site &site, int error, int moved, size_t asked) {
  fail(se, site, error, static_cast<ub4>(moved), static_cast<ub4>(asked));
  return skgfriIOERROR;
}

/// Fills the status block and the error record from the completed control block.
void complete(skgfrctx *ctx, skgfrsisb *request, aiocb64 *block, int error) {
  skgfriosb *const status = public_record(request);
  slerc *const se = status->slerc_skgfriosb;
  const size_t asked = request->aiosize_skgfrsisb;
  const int moved = skgfr_return64(ctx, block);
  if (error != 0) {
    status->status_skgfriosb = fail_completion(se, sites::completion_error, error, moved, asked);
  } else if (static_cast<size_t>(moved) != asked) {
    status->status_skgfriosb = fail_completion(se, sites::completion_short, 0, moved, asked);
  } else {
    begin(se);
    store_elapsed(status, request);
    status->status_skgfriosb = skgfriDONE;
  }
  request->qstatus_skgfrsisb &= ~(delivered | completion_due);
}

/// Gives a request on the done queue to the client, completed first when that is still due.
skgfriosb *deliver(skgfrctx *ctx, skgfrsisb *request) {
  if (has(request, delivered | completion_due)) {
    aiocb64 *const block = &request->aio64req_skgfrsisb;
    skgfrciohdlr(ctx, request, block, skgfr_error64(ctx, block), complete_phase);
  }
  take_off_done_queue(ctx, request);
  request->qstatus_skgfrsisb |= delivered;
  --request->iov_skgfrsisb->aiopend_skgfrsiov;
  return public_record(request);
}

/// A converted request that no poll has moved yet stands on a list that is not the done queue.
bool is_on_done_queue(const skgfrsisb *request) {
  const kgglk &link = request->link_skgfrsisb;
  if (!link.kgglknxt || is_empty(link)) return false;
  return has(request, completion_due) ||
         public_record(const_cast<skgfrsisb *>(request))->status_skgfriosb != skgfriPEND;
}

}  // namespace

namespace skgfr {

void convert_pending(skgfrctx *ctx, skgfrsisb *request) {
  ++ctx->aiopend_skgfrctx;
  ++request->iov_skgfrsisb->aiopend_skgfrsiov;
  push_front(ctx->conv_skgfrctx, request->link_skgfrsisb);
}

void report_converted(skgfrctx *ctx, skgfrsisb *request) {
  public_record(request)->status_skgfriosb = skgfriDONE;
  unlink(request->link_skgfrsisb);
  --ctx->aiopend_skgfrctx;
  put_on_done_queue(ctx, request);
}

void take_off_done_queue(skgfrctx *ctx, skgfrsisb *request) {
  unlink(request->link_skgfrsisb);
  --ctx->aiodone_skgfrctx;
}

}  // namespace skgfr

void skgfrciohdlr(skgfrctx *ctx, skgfrsisb *siosb_ptr, aiocb64 *aiocb_ptr, int aio_err, ub1 phase) {
  if (phase & queue_phase) {
    put_on_done_queue(ctx, siosb_ptr);
    if (!(phase & complete_phase)) siosb_ptr->qstatus_skgfrsisb |= delivered | completion_due;
  }
  if (phase & complete_phase) complete(ctx, siosb_ptr, aiocb_ptr, aio_err);
}

skgfriosb *skgfgiod(skgfrctx *ctx) {
  if (is_empty(ctx->qdone_skgfrctx)) return nullptr;
  return deliver(ctx, owner_of(ctx->qdone_skgfrctx.kgglknxt));
}

void skgfrchk(skgfrctx *ctx, skgfriosb *iosb) {
  skgfrsisb *const request = extension(iosb);
  if (has(request, delivered) || !is_on_done_queue(request)) return;
  deliver(ctx, request);
}
