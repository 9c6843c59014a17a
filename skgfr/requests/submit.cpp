// Submits requests to the kernel one at a time.
#include "skgfr/requests/submit.hpp"

#include <cerrno>

#include "skgfr/base/elapsed.hpp"
#include "skgfr/requests/block_address.hpp"
#include "skgfr/skgfr.h"

namespace {

using namespace skgfr;

/// Whether collecting completions makes room for the request.
bool may_come_later(const skgfrctx *ctx, int error) {
  return error == EAGAIN || (error == ENOMEM && ctx->aiopend_skgfrctx != 0);
}

template <bool read>
bool submit_one(skgfrctx *ctx, const skgfrrq *request) {
  skgfriosb *const status = request->iosb_skgfrrq;
  skgfrsisb *const block = extension(status);
  const RequestTarget target(request);
  const skgfrbd &buffer = request->bufspec_skgfrrq.buffer_skgfrrq;
  begin_code_only(status->slerc_skgfriosb);
  if (status->time_skgfriosb) block->start_skgfrsisb = slgcs(status->slerc_skgfriosb);

  const int result =
      skgfr_aiorw64(ctx, target.handle->fd_skgfrsiov, static_cast<char *>(buffer.bp_skgfrbd),
                    static_cast<int>(buffer.blen_skgfrbd),
                    byte_offset(target, request->blockno_skgfrrq), block, read ? FALSE : TRUE);
  if (result == 0) {
    block->aiosize_skgfrsisb = buffer.blen_skgfrbd;
    status->status_skgfriosb = skgfriPEND;
    ++target.handle->aiopend_skgfrsiov;
    return true;
  }
  const int error = errno;
  if (may_come_later(ctx, error)) {
    status->status_skgfriosb = skgfriLATER;
    return false;
  }
  fail(status->slerc_skgfriosb, sites::submission_refused, error, request->blockno_skgfrrq);
  status->status_skgfriosb = skgfriIOERROR;
  return false;
}

}  // namespace

namespace skgfr {

bool submit_reads(skgfrctx *ctx, const Batch &batch) {
  return for_each_request<submit_one<true>>(ctx, batch);
}
bool submit_writes(skgfrctx *ctx, const Batch &batch) {
  return for_each_request<submit_one<false>>(ctx, batch);
}

}  // namespace skgfr
