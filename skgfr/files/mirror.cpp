// Mirrored volumes and device lists: files are never treated as mirrored on this platform and lie
// on one device, so every answer is fixed but for that device, which identification recorded.
#include <cstring>

#include "skgfr/base/extensions.hpp"
#include "skgfr/skgfr.h"

namespace {

using namespace skgfr;

constexpr ub4 mirrored = 1;  // a bit of flags_skgfrsfib; nothing sets it

skgfrsfib *file_of(const skgfriov *iov) { return extension(iov->fib_skgfriov); }

/// The device of an identified file; null when it is not known, or with the failure in se.
const char *device_of(slerc *se, skgfrfib *fib) {
  begin(se);
  const skgfrsfib *const file = sealed(se, fib, sites::device_list_seal);
  return file && file->device_skgfrsfib[0] ? file->device_skgfrsfib : nullptr;
}

}  // namespace

boolean skgfrersr(slerc *, skgfrctx *, skgfriov *iov) {
  file_of(iov)->flags_skgfrsfib &= ~mirrored;
  return FALSE;
}

uword skgfrmms(slerc *se, skgfrctx *, skgfriov *iov) {
  begin_code_only(se);
  return file_of(iov)->flags_skgfrsfib & mirrored;
}

void skgfrfms(slerc *se, skgfrctx *, skgfrmss *, skgfriov *, void *, ub4) { begin_code_only(se); }

uword skgfrnms(slerc *se, skgfrctx *, skgfrmss *, void *) {
  begin_code_only(se);
  return 0;
}

text *skgfgmsn(slerc *se, skgfrctx *, skgfrmss *, size_t *) {
  begin_code_only(se);
  return nullptr;
}

uword skgfdlndv(slerc *se, skgfrctx *, skgfrfib *fib, uword *ndevs) {
  if (!device_of(se, fib)) return 0;
  *ndevs = 1;
  return 1;
}

uword skgfdli(slerc *se, skgfrctx *, skgfrfib *fib, skgfrdev *devp, skgfrnod *) {
  const char *const device = device_of(se, fib);
  if (!device) return 0;
  static_assert(sizeof devp->name_skgfrdev == sizeof(skgfrsfib::device_skgfrsfib));
  std::memcpy(devp->name_skgfrdev, device, sizeof devp->name_skgfrdev);
  return 1;
}
