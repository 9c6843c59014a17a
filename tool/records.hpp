// The records that one run of the tool owns: allocated zeroed, freed once, in order.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <cstring>

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
    std::free(skgfr);
    std::free(iov);
    std::free(fib);
    std::free(waitcx);
    std::free(iostat);
  }

  /// Where block 0 is built in its area.
  void *block0() const {
    const uintptr_t address = reinterpret_cast<uintptr_t>(block0buf);
    return reinterpret_cast<void *>((address + area_alignment - 1) &
                                    ~uintptr_t{area_alignment - 1});
  }

  skgfrctx *skgfr = nullptr;
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
