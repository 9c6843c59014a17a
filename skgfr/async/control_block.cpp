// Control blocks of asynchronous requests: prepared for one transfer, and asked for their state.
#include <cerrno>

#include "skgfr/async/async.hpp"
#include "skgfr/skgfr.h"

namespace skgfr {

void prepare(aiocb64 &block, int fd, const skgfrbd &buffer, off64_t offset, bool read) {
  if (read) {
    io_prep_pread(&block.__iocb, fd, buffer.bp_skgfrbd, buffer.blen_skgfrbd, offset);
  } else {
    io_prep_pwrite(&block.__iocb, fd, buffer.bp_skgfrbd, buffer.blen_skgfrbd, offset);
  }
  block.__iocb.data = &block;
  block.__error_code = 0;
  block.__aio_key = in_progress;
}

}  // namespace skgfr

using namespace skgfr;

int skgfr_error64(skgfrctx *, aiocb64 *aiocbp) {
  switch (aiocbp ? aiocbp->__aio_key : -1) {
    case not_submitted: return EAGAIN;
    case completed: return aiocbp->__error_code < 0 ? static_cast<int>(-aiocbp->__error_code) : 0;
    case in_progress: return EINPROGRESS;
    default: errno = EINVAL; return -1;
  }
}

int skgfr_return64(skgfrctx *, aiocb64 *aiocbp) {
  switch (aiocbp ? aiocbp->__aio_key : -1) {
    case completed:
      if (aiocbp->__error_code >= 0) return static_cast<int>(aiocbp->__error_code);
      errno = static_cast<int>(-aiocbp->__error_code);
      return -1;
    case in_progress: return -EINPROGRESS;
    default: errno = EINVAL; return -1;
  }
}
