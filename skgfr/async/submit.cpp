// Submission: hands control blocks to the kernel, one or a list in one call, as far as the context has
// room.
#include <algorithm>
#include <cerrno>
#include <cstddef>

#include "skgfr/async/async.hpp"
#include "skgfr/base/kernel_aio.hpp"
#include "skgfr/skgfr.h"

namespace {

using namespace skgfr;

/// The kernel's block begins ours, so a list of ours is one of the kernel's.
static_assert(offsetof(aiocb64, __iocb) == 0);

iocb **as_kernel_list(const aiocb64 **blocks) {
  return reinterpret_cast<iocb **>(const_cast<aiocb64 **>(blocks));
}

/// What the kernel took of a list: a count, or a negated error number.
int submit(skgfrctx *ctx, iocb **list, int count) {
  if (count <= 0) return 0;
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
  if (room(ctx) <= 0) {
    errno = EAGAIN;
    return -1;
  }
  aiocb64 *const block = &siosb->aio64req_skgfrsisb;
  prepare(*block, filedes, skgfrbd{bufp, static_cast<size_t>(bufs)}, offset, type == FALSE);
  iocb *list[] = {&block->__iocb};
  const int taken = submit(ctx, list, 1);
  if (taken == 1) return 0;
  errno = taken < 0 ? -taken : EAGAIN;
  return -1;
}

int skgfr_lio_listio64(skgfrctx *ctx, int mode, const aiocb64 **aiocbs, int nent,
                       struct sigevent *) {
  if (mode != LIO_NOWAIT) {
    errno = mode == LIO_WAIT ? ENOSYS : EINVAL;
    return -1;
  }
  const int wanted = std::min(room(ctx), nent);
  const int result = submit(ctx, as_kernel_list(aiocbs), wanted);
  const int taken = std::max(result, 0);
  if (taken >= nent) return 0;
  for (int i = taken; i < nent; ++i) const_cast<aiocb64 *>(aiocbs[i])->__aio_key = not_submitted;
  // What found no room comes later, whatever the kernel said of the rest.
  errno = result < 0 && wanted == nent ? -result : EAGAIN;
  return -1;
}
