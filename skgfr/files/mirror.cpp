// Mirrored volumes: files are never treated as mirrored on this platform, so the answer is fixed.
#include "skgfr/base/extensions.hpp"
#include "skgfr/skgfr.h"

boolean skgfrersr(slerc *, skgfrctx *, skgfriov *iov) {
  skgfr::extension(iov->fib_skgfriov)->flags_skgfrsfib &= ~ub4{1};
  return FALSE;
}
