// What every buffer of a request has to be, alone or in a vector.
#pragma once

#include "skgfr/base/aligned_buffer.hpp"
#include "skgfr/requests/block_address.hpp"

namespace skgfr {

inline constexpr size_t longest_transfer = 1048576;

/// A request's length in blocks; of an unknown size every length is one block.
inline InBlocks length_in_blocks(size_t length, size_t block_size) {
  return block_size ? in_blocks(length, block_size) : InBlocks{1, 0};
}

inline bool is_length_allowed(size_t length, const InBlocks &blocks) {
  return length != 0 && length <= longest_transfer && blocks.rest == 0;
}

inline bool is_aligned(const void *address) {
  return reinterpret_cast<uintptr_t>(address) % sector_size == 0;
}

/// A detail word holds 32 bits; of a wider length or address it takes the low ones.
inline ub4 low_word(size_t value) { return static_cast<ub4>(value); }
inline ub4 low_word(const void *address) {
  return static_cast<ub4>(reinterpret_cast<uintptr_t>(address));
}

}  // namespace skgfr
