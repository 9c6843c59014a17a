// How long requests took: counts in buckets that grow with the value, in memory that does not depend on how many
// there were.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace vdadm::scan {

/// Values in nanoseconds. Each power of two from 1024 on has eight buckets, so a percentile is at most an eighth
/// too large. One writer; a reader in another process may look at any time and sees some recent state.
class Histogram {
 public:
  static constexpr unsigned steps = 8;    // buckets of one power of two
  static constexpr unsigned first = 10;   // power of two of the first one: about a microsecond
  static constexpr unsigned powers = 32;  // up to 73 minutes
  static constexpr size_t buckets = size_t{steps} * powers;

  void add(uint64_t value);

  uint64_t count() const { return count_; }
  uint64_t largest() const { return largest_; }
  uint64_t mean() const { return count_ ? sum_ / count_ : 0; }

  /// The value that so much of all (0.5: half) does not exceed; 0 when there is none.
  uint64_t percentile(double share) const;

  /// Sums of whole powers of two: how many values lie from `from(power)` up to from(power + 1).
  uint64_t in_power(unsigned power) const;
  static uint64_t from(unsigned power) { return power == 0 ? 0 : uint64_t{1} << (first + power); }

 private:
  static size_t bucket_of(uint64_t value);
  static uint64_t end_of(size_t bucket);

  std::array<uint64_t, buckets> counts_{};
  uint64_t count_ = 0, sum_ = 0, largest_ = 0;
};

}  // namespace vdadm::scan
