// Starts accepted requests asynchronously, one at a time; what the kernel says of each is told in its
// status.
#include <cerrno>

#include "skgfr/base/elapsed.hpp"
#include "skgfr/requests/start.hpp"
#include "skgfr/skgfr.h"

namespace {

using namespace skgfr;

/// Whether collecting completions makes room for the request.
bool may_come_later(const skgfrctx *ctx, int error) {
  return error == EAGAIN || (error == ENOMEM && ctx->aiopend_skgfrctx != 0);
}

template <bool read>
bool start_one(skgfrctx *ctx, const Target &target, skgfrrq *request) {
  skgfriosb *const status = request->iosb_skgfrrq;
  skgfrsisb *const block = extension(status);
  const skgfrbd &buffer = request->bufspec_skgfrrq.buffer_skgfrrq;
  begin_code_only(status->slerc_skgfriosb);
  if (status->time_skgfriosb) block->start_skgfrsisb = slgcs(status->slerc_skgfriosb);

  const int result =
      skgfr_aiorw64(ctx, target.handle->fd_skgfrsiov, static_cast<char *>(buffer.bp_skgfrbd),
                    static_cast<int>(buffer.blen_skgfrbd),
                    target.byte_offset(request->blockno_skgfrrq), block, read ? FALSE : TRUE);
  if (result == 0) {
    block->aiosize_skgfrsisb = buffer.blen_skgfrbd;
    ++target.handle->aiopend_skgfrsiov;
    return end(request, skgfriPEND);
  }
  const int error = errno;
  if (may_come_later(ctx, error)) return end(request, skgfriLATER);
  fail(error_of(request), sites::submission_refused, error, request->blockno_skgfrrq);
  return end(request, skgfriIOERROR);
}

}  // namespace

namespace skgfr {

constinit const Way start_reads = one_by_one<start_one<true>>;
constinit const Way start_writes = one_by_one<start_one<false>>;

}  // namespace skgfr
