// The one owner of an I/O buffer on the heap, aligned for direct I/O.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "skgfr/base/errno_guard.hpp"

namespace skgfr {

/// What direct I/O asks of addresses, lengths and offsets, in bytes.
inline constexpr size_t sector_size = 512;

/// The first address from memory on that is a multiple of alignment, a power of two.
inline void *align_up(void *memory, size_t alignment) {
  const size_t past = reinterpret_cast<uintptr_t>(memory) & (alignment - 1);
  return static_cast<char *>(memory) + (past ? alignment - past : 0);
}

/// A zeroed buffer at a multiple of 512. Empty, with errno set, when there is no memory.
class AlignedBuffer {
 public:
  explicit AlignedBuffer(size_t size) : memory_(std::malloc(size + sector_size - 1)) {
    if (memory_) std::memset(data(), 0, size);
  }
  AlignedBuffer(const AlignedBuffer &) = delete;
  AlignedBuffer &operator=(const AlignedBuffer &) = delete;
  ~AlignedBuffer() {
    const ErrnoGuard guard;
    std::free(memory_);
  }

  explicit operator bool() const { return memory_ != nullptr; }

  void *data() const { return align_up(memory_, sector_size); }

 private:
  void *memory_;
};

}  // namespace skgfr
