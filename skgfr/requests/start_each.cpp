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

bool start(skgfrctx *ctx, const Target &target, skgfrrq *request, boolean write) {
  skgfriosb *const status = request->iosb_skgfrrq;
  skgfrsisb *const block = extension(status);
  const skgfrbd &buffer = request->bufspec_skgfrrq.buffer_skgfrrq;
  begin_code_only(status->slerc_skgfriosb);
  if (status->time_skgfriosb) block->start_skgfrsisb = slgcs(status->slerc_skgfriosb);

  const int result =
      skgfr_aiorw64(ctx, target.handle->fd_skgfrsiov, static_cast<char *>(buffer.bp_skgfrbd),
                    static_cast<int>(buffer.blen_skgfrbd),
                    target.byte_offset(request->blockno_skgfrrq), block, write);
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

bool start_read(skgfrctx *ctx, const Target &target, skgfrrq *request) {
  return start(ctx, target, request, FALSE);
}
bool start_write(skgfrctx *ctx, const Target &target, skgfrrq *request) {
  return start(ctx, target, request, TRUE);
}

}  // namespace

namespace skgfr {

constinit const Way start_reads{start_read, one_by_one};
constinit const Way start_writes{start_write, one_by_one};

}  // namespace skgfr
