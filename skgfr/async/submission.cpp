// Hands control blocks to the kernel, one or a list in one call, as far as the context has room.
#include <cerrno>

#include "skgfr/async/async.hpp"
#include "skgfr/base/kernel_aio.hpp"
#include "skgfr/skgfr.h"

namespace {

using namespace skgfr;

constexpr int longest_list = 1024;

/// What the kernel took of a list: a count, or a negated error number.
int submit(skgfrctx *ctx, const aiocb64 **blocks, int count) {
  if (count <= 0) return 0;
  iocb *list[longest_list];
  for (int i = 0; i < count; ++i) list[i] = const_cast<iocb *>(&blocks[i]->__iocb);
  const int taken = kernel_aio::entry_points().submit(ctx->ioctx_skgfrctx, count, list);
  if (taken > 0) ctx->aiopend_skgfrctx += static_cast<uword>(taken);
  return taken;
}

/// Converted requests count as pending without a limit, so the room may be negative.
int room(const skgfrctx *ctx) {
  return static_cast<int>(ctx->maxaio_skgfrctx) - static_cast<int>(ctx->aiopend_skgfrctx);
}

}  // namespace

int skgfr_aiorw64(skgfrctx *ctx, int filedes, char *bufp, int bufs, off64_t offset,
                  skgfrsisb *siosb, boolean type) {
  if (ctx->aiopend_skgfrctx >= ctx->maxaio_skgfrctx) {
    errno = EAGAIN;
    return -1;
  }
  aiocb64 *const block = &siosb->aio64req_skgfrsisb;
  prepare(*block, filedes, skgfrbd{bufp, static_cast<size_t>(bufs)}, offset, type == FALSE);
  iocb *list[] = {&block->__iocb};
  const int taken = kernel_aio::entry_points().submit(ctx->ioctx_skgfrctx, 1, list);
  if (taken == 1) {
    ++ctx->aiopend_skgfrctx;
    return 0;
  }
  errno = taken < 0 ? -taken : EAGAIN;
  return -1;
}

int skgfr_lio_listio64(skgfrctx *ctx, int mode, const aiocb64 **aiocbs, int nent,
                       struct sigevent *) {
  if (mode != LIO_NOWAIT) {
    errno = mode == LIO_WAIT ? ENOSYS : EINVAL;
    return -1;
  }
  const int wanted = room(ctx) < nent ? room(ctx) : nent;
  const int result = submit(ctx, aiocbs, wanted);
  const int taken = result > 0 ? result : 0;
  for (int i = taken; i < nent; ++i) const_cast<aiocb64 *>(aiocbs[i])->__aio_key = not_submitted;
  if (taken >= nent) return 0;
  errno = result < 0 ? -result : EAGAIN;
  return -1;
}
