// Buckets of equal width within each power of two.
#include "admin/scan/histogram.hpp"

#include <algorithm>
#include <bit>
#include <cmath>

namespace vdadm::scan {

size_t Histogram::bucket_of(uint64_t value) {
  const auto bits = static_cast<unsigned>(std::bit_width(value));  // 2^(bits - 1) <= value
  if (bits <= first) return 0;
  const unsigned power = bits - 1 - first;
  const uint64_t step = (value >> (bits - 1 - std::bit_width(steps - 1))) & (steps - 1);
  return std::min(size_t{power} * steps + step, buckets - 1);
}

uint64_t Histogram::end_of(size_t bucket) {
  if (bucket == buckets - 1) return UINT64_MAX;  // takes all that is larger, too
  const uint64_t begin = uint64_t{1} << (first + bucket / steps);
  return begin + begin / steps * (bucket % steps + 1);
}

void Histogram::add(uint64_t value) {
  ++counts_[bucket_of(value)];
  ++count_;
  sum_ += value;
  largest_ = std::max(largest_, value);
}

uint64_t Histogram::percentile(double share) const {
  const auto wanted = static_cast<uint64_t>(std::ceil(static_cast<double>(count_) * share));
  uint64_t seen = 0;
  for (size_t bucket = 0; bucket < buckets; ++bucket) {
    seen += counts_[bucket];
    if (seen >= wanted && seen > 0) return std::min(end_of(bucket), largest_);
  }
  return largest_;
}

uint64_t Histogram::in_power(unsigned power) const {
  uint64_t sum = 0;
  for (unsigned step = 0; step < steps; ++step) sum += counts_[size_t{power} * steps + step];
  return sum;
}

}  // namespace vdadm::scan
