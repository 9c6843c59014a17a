// Derives the context's low-water mark from the open-files limit.
#pragma once

#include "skgfr/records.h"

namespace skgfr {

/// 40 % of the limit, of which the context keeps 16 bits.
inline ub2 low_water_mark(ub8 limit) {
  const ub8 mark = static_cast<ub8>(static_cast<double>(limit) * 0.4);
  return static_cast<ub2>(mark & 0xFFFF);
}

}  // namespace skgfr
