// Examines queued requests: refuses what must not reach the file, accepts the rest into a batch and
// prepares their control blocks.
//
// Performs no transfer but that of asynchronous requests on files that do none. Rules apply only when
// the context asks for them.
#include "skgfr/requests/validate.hpp"

#include "skgfr/async/async.hpp"
#include "skgfr/requests/rules.hpp"
#include "skgfr/requests/transfer.hpp"
#include "skgfr/skgfr.h"

namespace {

using namespace skgfr;

/// The next request behind one; null at the end of the list.
skgfrrq *next_on(const kgglk *list, const skgfrrq *request) {
  kgglk *const next = request->link_skgfrrq.kgglknxt;
  return next == list ? nullptr : request_of(next);
}

/// What has become of a request.
enum class Verdict { refused, accepted, carried_out };

/// Examines one request, whose handle passed; prepares its control block when that is asked.
template <bool asynchronous>
inline Verdict examine_one(skgfrctx *ctx, const Target &target, skgfrrq *request, ub4 flags,
                           bool checking, bool prepared) {
  const bool vector = flags & skgfqioVECTOR;
  skgfriosb *const status = request->iosb_skgfrrq;
  skgfrsisb *const block = extension(status);
  if (asynchronous) begin_request(block, target.handle);
  if (checking) {
    // Asynchronous vectors are refused with their handle.
    const bool good =
        !asynchronous && vector ? check_vector(target, request) : check_buffer(target, request);
    if (!good) return Verdict::refused;
  }
  begin_code_only(status->slerc_skgfriosb);
  if (prepared) {
    // A vector has no single buffer: its control block, which nothing submits, carries none.
    const skgfrbd buffer = vector ? skgfrbd{} : request->bufspec_skgfrrq.buffer_skgfrrq;
    prepare(*block, target.handle->fd_skgfrsiov, buffer,
            target.byte_offset(request->blockno_skgfrrq), flags & skgfqioREAD);
    status->status_skgfriosb = skgfriPEND;
  }
  const bool at_once = asynchronous && (target.handle->flags_skgfrsiov & skgfrvSYNCHRONOUS);
  if (!at_once) return Verdict::accepted;
  const bool moved = convert(ctx, request, flags & skgfqioREAD);
  return moved ? Verdict::carried_out : Verdict::refused;
}

/// Examines the requests from the next one on that are on its handle.
template <bool asynchronous, bool checking>
inline void examine_run(skgfrctx *ctx, Examination &it) {
  const kgglk *const list = it.list;
  const ub4 flags = it.flags;
  skgfrrq *request = it.next;
  if (checking && !check_handle<asynchronous>(request, flags)) {
    it.refused = TRUE;
    it.next = next_on(list, request);
    return;
  }
  const Target target(request->iov_skgfrrq);
  skgfrrq **const accepted = it.accepted;
  aiocb64 **const blocks = it.blocks;
  ub4 count = it.count;
  do {
    switch (examine_one<asynchronous>(ctx, target, request, flags, checking, blocks)) {
      [[likely]] case Verdict::accepted : if (blocks) blocks[count] = control_block(request);
      accepted[count++] = request;
      break;
      case Verdict::refused: it.refused = TRUE; break;
      case Verdict::carried_out: break;
    }
    request = next_on(list, request);
  } while (request && target.is_of(request) && count < it.most);
  it.next = request;
  it.count = count;
  ++it.runs;
}

template <bool asynchronous, bool checking>
void examine_all(skgfrctx *ctx, Examination &result) {
  Examination it = result;  // a copy that nothing else can reach stays in registers
  it.count = it.runs = 0;
  while (it.next && it.count < it.most) examine_run<asynchronous, checking>(ctx, it);
  result = it;
}

template <bool asynchronous>
inline uword carry_out_one(skgfrctx *ctx, skgfrrq *request, ub4 flags, const Way &way) {
  const bool checking = is_checking(ctx);
  if (checking && !check_handle<asynchronous>(request, flags)) return 1;
  const Target target(request->iov_skgfrrq);
  const bool prepared = asynchronous || (flags & skgfqioPREPARE);
  switch (examine_one<asynchronous>(ctx, target, request, flags, checking, prepared)) {
    case Verdict::accepted: return way.one(ctx, target, request) ? 0 : 1;
    case Verdict::carried_out: return 0;
    case Verdict::refused: break;
  }
  return 1;
}

}  // namespace

namespace skgfr {

void examine(skgfrctx *ctx, Examination &it) {
  if (it.flags & skgfqioASYNC) {
    is_checking(ctx) ? examine_all<true, true>(ctx, it) : examine_all<true, false>(ctx, it);
  } else {
    is_checking(ctx) ? examine_all<false, true>(ctx, it) : examine_all<false, false>(ctx, it);
  }
}

uword carry_out_alone(skgfrctx *ctx, skgfrrq *request, ub4 flags, const Way &way) {
  return flags & skgfqioASYNC ? carry_out_one<true>(ctx, request, flags, way)
                              : carry_out_one<false>(ctx, request, flags, way);
}

}  // namespace skgfr

boolean skgfrvldtrq(kgglk *reqhdr, ub4 flags, skgfrctx *ctx, ub4 req_num, skgfrrq **req,
                    skgfrrq **valid, aiocb64 **aio_array, ub4 *nval) {
  Examination it{reqhdr, flags, req_num, valid, aio_array, *req};
  examine(ctx, it);
  *req = it.next;
  *nval = it.count;
  return it.refused;
}
