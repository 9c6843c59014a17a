// Bad ranges stay few when neighbours become one.
#include <algorithm>

#include "admin/scan/scan.hpp"

namespace vdadm::scan {

void BadRanges::add(const BadRange &range) {
  const bool touches = !ranges_.empty() && ranges_.back().where.end >= range.where.begin;
  if (!touches || ranges_.back().error != range.error) return ranges_.push_back(range);
  uint64_t &end = ranges_.back().where.end;
  end = std::max(end, range.where.end);
}

uint64_t BadRanges::bytes() const {
  uint64_t sum = 0;
  for (const BadRange &range : ranges_) sum += range.where.bytes();
  return sum;
}

}  // namespace vdadm::scan
