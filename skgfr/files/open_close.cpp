// Opens an identified file into a handle, and closes it.
//
// The context's count of open files is taken and returned here and nowhere else.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "skgfr/base/client.hpp"
#include "skgfr/base/descriptor.hpp"
#include "skgfr/base/extensions.hpp"
#include "skgfr/base/file_facts.hpp"
#include "skgfr/base/file_name.hpp"
#include "skgfr/skgfr.h"

namespace {

using namespace skgfr;

constexpr int most_retries = 5;
constexpr uword usual_limit = 1024;  // asynchronous requests, where the context sets none

bool consume_forced_failure(slerc *se, skgfrfib *fib) {
  if (!fib->serr_skgfrfib) return false;
  if (fib->serr_skgfrfib != 0xFFFF) --fib->serr_skgfrfib;
  fail(se, sites::open_forced_failure);
  return true;
}

bool within_limit(slerc *se, const skgfrctx *ctx, const skgfrfib *fib, mode_t mode) {
  const bool bounded = fib->lblksiz_skgfrfib != 0 && fib->filsiz_skgfrfib != skgfrUNKNOWN;
  if (!bounded || is_device(mode)) return true;
  const ub4 limit = size_limit_in_blocks(ctx, fib->lblksiz_skgfrfib);
  const ub4 needed = header_blocks(fib) + fib->filsiz_skgfrfib;
  if (!exceeds(needed, limit)) return true;
  fail(se, sites::open_limit, 0, limit, needed);
  return false;
}

/// Everything that can refuse before the handle changes.
bool admit(slerc *se, const skgfrctx *ctx, skgfrfib *fib) {
  const skgfrsfib *const file = sealed(se, fib, sites::open_seal);
  if (!file || consume_forced_failure(se, fib)) return false;
  if (ctx->curopen_skgfrctx == ctx->maxopen_skgfrctx) {
    fail(se, sites::open_ceiling);
    return false;
  }
  return within_limit(se, ctx, fib, file->ftyp_skgfrsfib);
}

/// Only what keeps the old file open keeps the handle from being used again.
bool close_previous(slerc *se, skgfrctx *ctx, skgfriov *iov) {
  const skgfrsiov *const handle = extension(iov);
  if (handle->fd_skgfrsiov == 0) return true;
  if (handle->seal_skgfrsiov == skgfrSEAL && handle->aiopend_skgfrsiov != 0) {
    fail(se, sites::close_outstanding, 0, handle->aiopend_skgfrsiov);
    return false;
  }
  skgfcfi(se, ctx, iov);
  if (se->slercoer == sites::close_refused.code) return false;
  begin(se);
  return true;
}

/// Opens the file, again after a second when the device answers EIO, and tells the client about it.
Descriptor open_with_retries(slerc *se, skgfrctx *ctx, const char *name, int flags) {
  ctx->spare1_skgfrctx = 0;
  Descriptor file = open_file(name, flags);
  while (!file) {
    if (errno != EIO || ctx->spare1_skgfrctx == most_retries) {
      fail(se, sites::open_refused, errno);
      return file;
    }
    ++ctx->spare1_skgfrctx;
    ctx->spare2_skgfrctx = static_cast<ub4>(errno);
    sleep(1);
    file = open_file(name, flags);
  }
  if (ctx->spare1_skgfrctx == 0) return file;
  client::trace(ctx, "skgfr Open: errno = %d, attempts = %ld \n",
                static_cast<int>(ctx->spare2_skgfrctx), static_cast<long>(ctx->spare1_skgfrctx));
  ctx->spare1_skgfrctx = 0;
  ctx->spare2_skgfrctx = 0;
  return file;
}

/// Whether asynchronous requests on the file are carried out synchronously.
bool is_synchronous_only(skgfrctx *ctx, int fd, mode_t mode) {
  if (!S_ISCHR(mode) && !(ctx->flags_skgfrctx & skgfrcASYNC)) return true;
  if (ctx->maxaio_skgfrctx == 0) return true;
  return !is_device(mode) && !skgfr_aiosupported(ctx, fd);
}

int open_mode(ub4 flags) {
  int mode = flags & skgfofiWRITE ? O_RDWR : O_RDONLY;
  if (flags & synchronous_writes) mode |= O_DSYNC;
  return mode;
}

void fill_handle(skgfrctx *ctx, skgfriov *iov, uword wanted, ub4 flags, mode_t mode, int fd) {
  skgfrsiov *const handle = extension(iov);
  handle->fd_skgfrsiov = fd;
  const uword limit = ctx->maxaio_skgfrctx ? ctx->maxaio_skgfrctx : usual_limit;
  iov->maxaio_skgfriov = wanted < limit ? wanted : limit;
  const bool never_flushed = (flags & synchronous_writes) || is_device(mode);
  handle->fsync_skgfrsiov = never_flushed ? skgfofiDSYNC : 0;
  handle->offset_skgfrsiov = skgfrUNKNOWN;
  if (flags & skgfofiWRITE) handle->flags_skgfrsiov |= skgfrvWRITABLE;
  if (flags & skgfofiNOMIRROR) skgfrersr(nullptr, ctx, iov);
  if (is_synchronous_only(ctx, fd, mode)) {
    handle->flags_skgfrsiov |= skgfrvSYNCHRONOUS;
    iov->maxaio_skgfriov = 0;
  }
}

/// Brings out what a close has to report while there is something to keep: the system takes the number
/// back even when closing fails, so a duplicate goes first. False, with errno set, when it failed.
bool close_duplicate(const skgfrsiov *handle) {
  if (!(handle->flags_skgfrsiov & skgfrvWRITABLE)) return true;
  Descriptor duplicate(fcntl(handle->fd_skgfrsiov, F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
  return !duplicate || duplicate.close();  // a process without a free number can close all the same
}

}  // namespace

void skgfofi(slerc *se, skgfrctx *ctx, skgfrfib *fib, skgfriov *iov, uword inmaxaio, ub4 flags) {
  begin(se);
  if (!admit(se, ctx, fib)) return;
  if (!close_previous(se, ctx, iov)) return;
  skgfrsiov *const handle = extension(iov);
  *handle = skgfrsiov{};

  const mode_t mode = extension(fib)->ftyp_skgfrsfib;
  const int direct = skgfr_cfsdirectio(ctx, name_of(fib), mode, fib->flags_skgfrfib);
  Descriptor file = open_with_retries(se, ctx, name_of(fib), open_mode(flags) | direct);
  if (!file) return;
  handle->fd_skgfrsiov = file.get();
  if (fcntl(file.get(), F_SETFD, FD_CLOEXEC) != 0)
    return fail(se, sites::open_close_on_exec, errno);

  ++ctx->curopen_skgfrctx;
  iov->fib_skgfriov = fib;
  fill_handle(ctx, iov, inmaxaio, flags, mode, file.release());
  handle->seal_skgfrsiov = skgfrSEAL;
}

void skgfcfi(slerc *se, skgfrctx *ctx, skgfriov *iov) {
  begin(se);
  skgfrsiov *const handle = sealed(se, iov, sites::close_seal);
  if (!handle) return;
  if (handle->aiopend_skgfrsiov != 0) {
    iov->flags_skgfriov |= skgfrvPENDING;
    return fail(se, sites::close_outstanding, 0, handle->aiopend_skgfrsiov);
  }
  const bool flushed = is_never_flushed(handle) || fsync(handle->fd_skgfrsiov) == 0;
  if (!flushed) fail(se, sites::close_flush, errno);
  if (!close_duplicate(handle)) return fail(se, sites::close_refused, errno);
  if (close(handle->fd_skgfrsiov) != 0) fail(se, sites::close_flush, errno);

  --ctx->curopen_skgfrctx;
  handle->fd_skgfrsiov = 0;
  handle->seal_skgfrsiov = 0;
}
