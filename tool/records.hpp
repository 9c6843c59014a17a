// The records that one run of the tool owns: allocated zeroed, freed once, in order.
#pragma once

#include <cstdlib>
#include <cstring>
#include <memory>

#include "skgfr/skgfr.h"

namespace vdprep {

/// The block-0 area is aligned to this many bytes.
inline constexpr size_t area_alignment = 16384;

class Records {
 public:
  Records() = default;
  Records(const Records &) = delete;
  Records &operator=(const Records &) = delete;
  ~Records() {
    std::free(block0buf);
    std::free(context);
    std::free(iov);
    std::free(fib);
    std::free(waitcx);
    std::free(iostat);
  }

  /// Where block 0 is built in its area.
  void *block0() const {
    void *block = block0buf;
    size_t room = 2 * area_alignment;  // what lies behind the alignment does not matter
    return std::align(area_alignment, 1, block, room);
  }

  skgfrctx *context = nullptr;
  skgfrwcx *waitcx = nullptr;
  skgfriov *iov = nullptr;
  skgfrfib *fib = nullptr;
  skgfriosb *iostat = nullptr;
  void *block0buf = nullptr;
};

/// Allocates size zeroed bytes for a record; false when there is no memory.
template <class Record>
bool allocate(Record *&record, size_t size) {
  void *const memory = std::malloc(size);
  if (memory) std::memset(memory, 0, size);
  record = static_cast<Record *>(memory);
  return memory != nullptr;
}

}  // namespace vdprep
