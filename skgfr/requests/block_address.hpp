// Where a request's blocks lie in its file, and how many they are. Reads records; checks nothing.
#pragma once

#include "skgfr/base/extensions.hpp"

namespace skgfr {

/// The records behind a request; a handle that was never opened has no file behind it.
struct RequestTarget {
  explicit RequestTarget(const skgfrrq *request)
      : handle(extension(request->iov_skgfrrq)),
        fib(request->iov_skgfrrq->fib_skgfriov),
        file(fib ? extension(fib) : nullptr) {}

  skgfrsiov *handle;
  skgfrfib *fib;
  skgfrsfib *file;
};

inline bool counts_from_zero(const skgfrfib *fib) { return fib->ftype_skgfrfib == skgfrfKDV; }

/// Byte offset of a block. Block 1 lies behind the header; files that count from 0 have no header.
inline off64_t byte_offset(const RequestTarget &target, ub4 block) {
  const ub8 index = counts_from_zero(target.fib) ? ub8{block} : ub8{block} - 1;
  return static_cast<off64_t>(index * target.fib->lblksiz_skgfrfib +
                              target.file->blk1offset_skgfrsfib);
}

/// Whole blocks in so many bytes; 0 when the block size is not known.
inline ub4 block_count(const skgfrfib *fib, size_t bytes) {
  return fib->lblksiz_skgfrfib ? static_cast<ub4>(bytes / fib->lblksiz_skgfrfib) : 0;
}

}  // namespace skgfr
