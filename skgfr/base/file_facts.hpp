// Facts about a file that several rooms derive from its records: its kind, its header, its limits.
#pragma once

#include <sys/stat.h>

#include "skgfr/records.h"
#include "skgfr/skgfr.h"

namespace skgfr {

inline bool is_device(mode_t mode) { return S_ISCHR(mode) || S_ISBLK(mode); }

/// 1 when the file begins with block 0, else 0: what every count of its blocks starts from.
inline ub4 header_blocks(const skgfrfib *fib) {
  return fib->flags_skgfrfib & skgfrbNOHEADER ? 0 : 1;
}

/// Whether a file that is no device ends inside a block of its information block's size.
inline bool ends_inside_block(const skgfrfib *fib, const struct stat64 &status) {
  if (is_device(status.st_mode) || fib->lblksiz_skgfrfib == 0) return false;
  return static_cast<ub8>(status.st_size) % fib->lblksiz_skgfrfib != 0;
}

/// The process's file-size limit in blocks of this size; all ones when there is none.
inline ub4 size_limit_in_blocks(const skgfrctx *ctx, size_t block_size) {
  const ub8 limit = ctx->limfsiz_skgfrctx;
  if (limit == ~ub8{0}) return skgfrUNKNOWN;
  const ub8 blocks = limit / block_size;
  return blocks < skgfrUNKNOWN ? static_cast<ub4>(blocks) : skgfrUNKNOWN;
}

inline bool exceeds(ub4 blocks, ub4 limit) { return limit != skgfrUNKNOWN && limit < blocks; }

/// The bits of open flags that ask for synchronous writes. A handle keeps them in fsync_skgfrsiov,
/// where either means that it is never flushed; so does a handle of a device.
inline constexpr uword synchronous_writes = skgfofiDSYNC | skgfofiDSYNC2;

inline bool is_never_flushed(const skgfrsiov *handle) {
  return (handle->fsync_skgfrsiov & synchronous_writes) != 0;
}

}  // namespace skgfr
