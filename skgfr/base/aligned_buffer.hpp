// The one owner of an I/O buffer on the heap, aligned for direct I/O.
#pragma once

#include <cstdlib>
#include <cstring>

#include "skgfr/base/errno_guard.hpp"
#include "skgfr/client.h"

namespace skgfr {

/// What direct I/O asks of addresses, lengths and offsets, in bytes: of clients, as most disks do, and
/// the most that a disk asks. Our own buffers suit every disk.
inline constexpr size_t sector_size = skgfr_alignment;
inline constexpr size_t largest_sector = 4096;

/// A zeroed buffer for direct I/O. Empty, with errno set, when there is no memory.
class AlignedBuffer {
 public:
  explicit AlignedBuffer(size_t size) {
    const size_t whole_sectors = (size + largest_sector - 1) / largest_sector * largest_sector;
    memory_ = std::aligned_alloc(largest_sector, whole_sectors);
    if (memory_) std::memset(memory_, 0, whole_sectors);
  }
  AlignedBuffer(const AlignedBuffer &) = delete;
  AlignedBuffer &operator=(const AlignedBuffer &) = delete;
  ~AlignedBuffer() {
    const ErrnoGuard guard;
    std::free(memory_);
  }

  explicit operator bool() const { return memory_ != nullptr; }

  void *data() const { return memory_; }

 private:
  void *memory_;
};

}  // namespace skgfr
