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
  slerc ignored;
  *status->time_skgfriosb = elapsed(request->start_skgfrsisb, slgcs(&ignored));
}

void fail_completion(skgfrsisb *request, aiocb64 *block, int error) {
  skgfriosb *const status = public_record(request);
  const Site &site = error != 0 ? sites::completion_error : sites::completion_short;
  fail(status->slerc_skgfriosb, site, error, static_cast<ub4>(skgfr_return64(nullptr, block)),
       static_cast<ub4>(request->aiosize_skgfrsisb));
  status->status_skgfriosb = skgfriIOERROR;
}

bool moved_everything(const skgfrsisb *request, const aiocb64 *block) {
  const size_t moved = static_cast<size_t>(block->__error_code);
  return block->__aio_key == completed && moved == request->aiosize_skgfrsisb;
}

/// Fills the status block and the error record from the control block.
inline void complete(skgfrsisb *request, aiocb64 *block, int error) {
  request->qstatus_skgfrsisb &= ~(delivered | completion_due);
  if (error != 0 || !moved_everything(request, block)) {
    return fail_completion(request, block, error);
  }
  skgfriosb *const status = public_record(request);
  begin(status->slerc_skgfriosb);
  if (status->time_skgfriosb) store_elapsed(status, request);
  status->status_skgfriosb = skgfriDONE;
}

inline void handle(skgfrctx *ctx, skgfrsisb *request, aiocb64 *block, int error, ub1 phases) {
  if (phases & queue_phase) {
    put_on_done_queue(ctx, request);
    if (!(phases & complete_phase)) request->qstatus_skgfrsisb |= delivered | completion_due;
  }
  if (phases & complete_phase) complete(request, block, error);
}

void complete_late(skgfrctx *ctx, skgfrsisb *request) {
  aiocb64 *const block = &request->aio64req_skgfrsisb;
  complete(request, block, skgfr_error64(ctx, block));
}

/// Gives a request on the done queue to the client, completed first when that is still due.
inline skgfriosb *deliver(skgfrctx *ctx, skgfrsisb *request) {
  if (has(request, delivered | completion_due)) complete_late(ctx, request);
  take_off_done_queue(ctx, request);
  request->qstatus_skgfrsisb |= delivered;
  --request->iov_skgfrsisb->aiopend_skgfrsiov;
  return public_record(request);
}

inline skgfriosb *deliver_next(skgfrctx *ctx) {
  if (is_empty(ctx->qdone_skgfrctx)) return nullptr;
  return deliver(ctx, owner_of(ctx->qdone_skgfrctx.kgglknxt));
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

void reaped(skgfrctx *ctx, aiocb64 *block, long result, ub1 phases) {
  block->__error_code = result;
  block->__aio_key = completed;
  handle(ctx, owner_of(block), block, result < 0 ? static_cast<int>(-result) : 0, phases);
}

}  // namespace skgfr

void skgfrciohdlr(skgfrctx *ctx, skgfrsisb *siosb_ptr, aiocb64 *aiocb_ptr, int aio_err, ub1 phase) {
  handle(ctx, siosb_ptr, aiocb_ptr, aio_err, phase);
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
  deliver(ctx, request);
}
