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

  void *data() const {
    const uintptr_t address = reinterpret_cast<uintptr_t>(memory_);
    return reinterpret_cast<void *>((address + sector_size - 1) & ~uintptr_t{sector_size - 1});
  }

 private:
  void *memory_;
};

}  // namespace skgfr
