// The two ways in which a row's requests are made: through the layer, and by bare system calls.
//
// Both read the same blocks of the same storage into the same buffers, and look at every result.
#pragma once

#include <memory>

#include "bench/storage.hpp"

namespace bench {

class Side {
 public:
  virtual ~Side() = default;
  /// Makes every request of the row once. Throws std::runtime_error when one fails.
  virtual void round() = 0;
};

std::unique_ptr<Side> make_layer(const Row &row, const Storage &storage);
std::unique_ptr<Side> make_raw(const Row &row, const Storage &storage);

}  // namespace bench
