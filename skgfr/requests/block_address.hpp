// Where a request's blocks lie in its file, and how many they are. Reads records; checks nothing.
#pragma once

#include <bit>

#include "skgfr/base/extensions.hpp"

namespace skgfr {

/// The records behind a request; a handle that was never opened has no file behind it.
struct RequestTarget {
  explicit RequestTarget(const skgfrrq *request)
      : handle(extension(request->iov_skgfrrq)), fib(request->iov_skgfrrq->fib_skgfriov) {}

  skgfrsfib *file() const { return extension(fib); }

  skgfrsiov *handle;
  skgfrfib *fib;
};

inline bool counts_from_zero(const skgfrfib *fib) { return fib->ftype_skgfrfib == skgfrfKDV; }

/// Byte offset of a block. Block 1 lies behind the header; files that count from 0 have no header.
inline off64_t byte_offset(const RequestTarget &target, ub4 block) {
  const ub8 index = counts_from_zero(target.fib) ? ub8{block} : ub8{block} - 1;
  return static_cast<off64_t>(index * target.fib->lblksiz_skgfrfib +
                              target.file()->blk1offset_skgfrsfib);
}

/// A number of bytes in whole blocks, and the bytes past them.
struct InBlocks {
  size_t whole;
  size_t rest;
};

/// Block sizes are powers of two but for oddities, and a division costs as much as a request's other
/// checks together.
inline InBlocks in_blocks(size_t bytes, size_t block_size) {
  const size_t mask = block_size - 1;
  if (block_size & mask) return {bytes / block_size, bytes % block_size};
  return {bytes >> std::countr_zero(block_size), bytes & mask};
}

/// Whole blocks in so many bytes; 0 when the block size is not known.
inline ub4 block_count(const skgfrfib *fib, size_t bytes) {
  const size_t size = fib->lblksiz_skgfrfib;
  return size ? static_cast<ub4>(in_blocks(bytes, size).whole) : 0;
}

}  // namespace skgfr
