// Control blocks of asynchronous requests, asked for their state and result.
#include <cerrno>

#include "skgfr/async/async.hpp"
#include "skgfr/skgfr.h"

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
