// The facts of an open file by which its requests are judged and placed, read once for each run of
// neighbours on the same handle. Reads records; judges nothing.
#pragma once

#include <bit>
#include <limits>

#include "skgfr/base/extensions.hpp"
#include "skgfr/base/file_facts.hpp"

namespace skgfr {

/// A number of bytes in whole blocks, and the bytes past them.
struct InBlocks {
  size_t whole;
  size_t rest;
};

struct Target {
  explicit Target(skgfriov *open)
      : iov(open),
        handle(extension(open)),
        fib(open->fib_skgfriov),
        block_size(fib->lblksiz_skgfrfib),
        mask(is_power_of_two(block_size) ? block_size - 1 : 0),
        shift(std::countr_zero(block_size)),
        first_block(fib->ftype_skgfrfib == skgfrfKDV ? 0 : 1),
        origin(
            static_cast<off64_t>(extension(fib)->blk1offset_skgfrsfib - first_block * block_size)),
        end(end_of(extension(fib)->lastblk_skgfrsfib)) {}

  /// Whether a request is on the same handle.
  bool is_of(const skgfrrq *request) const { return request->iov_skgfrrq == iov; }

  off64_t byte_offset(ub4 block) const {
    return static_cast<off64_t>(static_cast<ub8>(origin) + ub8{block} * block_size);
  }
  bool holds(ub4 block, size_t count) const {
    return block >= first_block && reaches(block, count);
  }
  bool reaches(ub4 block, size_t count) const {
    return int64_t{block} + static_cast<int64_t>(count) <= end;
  }

  /// Block sizes are powers of two but for oddities, and a division costs as much as a request's other
  /// checks together. Of an unknown size every length is one block.
  InBlocks in_blocks(size_t bytes) const {
    if (mask != 0) [[likely]]
      return {bytes >> shift, bytes & mask};
    return block_size != 0 ? InBlocks{bytes / block_size, bytes % block_size} : InBlocks{1, 0};
  }

  skgfriov *const iov;
  skgfrsiov *const handle;
  skgfrfib *const fib;
  const size_t block_size;  // in bytes; 0: unknown
  const size_t mask;        // block_size - 1 where that is a power of two, else 0
  const int shift;
  const ub8 first_block;
  const off64_t origin;  // byte offset of block 0, where the numbers begin
  const int64_t end;     // the number behind that of the last block

 private:
  /// Not by counting bits, which some machines have no instruction for.
  static bool is_power_of_two(size_t size) { return (size ^ (size - 1)) > size - 1; }

  /// In 64 bits, so that no sum of 32-bit numbers wraps. A file's count includes its header.
  int64_t end_of(ub4 blocks) const {
    if (blocks == skgfrUNKNOWN) return std::numeric_limits<int64_t>::max();
    return int64_t{blocks} + static_cast<int64_t>(first_block) - int64_t{header_blocks(fib)};
  }
};

}  // namespace skgfr
