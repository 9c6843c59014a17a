// Small services of an open handle: the explicit flush, and how vectored requests are best
// presented.
#include <unistd.h>

#include <cerrno>

#include "skgfr/base/extensions.hpp"
#include "skgfr/base/file_facts.hpp"
#include "skgfr/skgfr.h"

using namespace skgfr;

void skgfsync(slerc *se, skgfrctx *, skgfriov *iov) {
  begin(se);
  const skgfrsiov *const handle = sealed(se, iov, sites::flush_seal);
  if (!handle || is_never_flushed(handle)) return;
  if (fsync(handle->fd_skgfrsiov) != 0) fail(se, sites::flush_refused, errno);
}

skgfrn skgfask(slerc *se, skgfrctx *, skgfriov *iov, skgfrq question) {
  begin(se);
  if (!sealed(se, iov, sites::question_seal)) return skgfrnMEMCPY;
  switch (question) {
    case skgfrqREADV:
    case skgfrqWRITEV:
      return is_device(extension(iov->fib_skgfriov)->ftyp_skgfrsfib) ? skgfrnMEMCPY : skgfrnVECBUF;
    case skgfrqAREADV:
    case skgfrqAWRITEV:
      if (iov->maxaio_skgfriov == 0) fail(se, sites::question_synchronous);
      return skgfrnMEMCPY;
  }
  fail(se, sites::question_unknown);
  return skgfrnMEMCPY;
}
