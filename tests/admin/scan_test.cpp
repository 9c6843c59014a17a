// What a scan counts: how long requests took, and what could not be read.
#include <gtest/gtest.h>

#include "admin/scan/pace.hpp"
#include "admin/scan/scan.hpp"

namespace {

using namespace vdadm::scan;

TEST(Scan, PercentilesAreAnEighthTooLargeAtMost) {
  Histogram latency;
  EXPECT_EQ(latency.percentile(0.5), 0u);
  for (uint64_t value = 1'000; value <= 100'000'000; value += 1'000) latency.add(value);
  EXPECT_EQ(latency.count(), 100'000u);
  EXPECT_EQ(latency.mean(), 50'000'500u);
  for (const double share : {0.1, 0.5, 0.99, 0.999}) {
    const auto exact = static_cast<double>(100'000'000) * share;
    EXPECT_GE(static_cast<double>(latency.percentile(share)), exact) << share;
    EXPECT_LE(static_cast<double>(latency.percentile(share)), exact * 1.125) << share;
  }
  EXPECT_EQ(latency.percentile(1), 100'000'000u);
  latency.add(UINT64_MAX / 4);
  EXPECT_EQ(latency.percentile(1), UINT64_MAX / 4);
  uint64_t sum = 0;
  for (unsigned power = 0; power < Histogram::powers; ++power) sum += latency.in_power(power);
  EXPECT_EQ(sum, latency.count());
  EXPECT_EQ(latency.in_power(1), 2u);  // 3000 and 4000 of 2048 up to 4096
}

TEST(Scan, BadRangesThatTouchAreOneWhenTheReasonIsOne) {
  BadRanges bad;
  for (const BadRange &range : {BadRange{{512, 1024}, 5}, BadRange{{1024, 1536}, 5},
                                BadRange{{1536, 2048}, 61}, BadRange{{4096, 4608}, 61}}) {
    bad.add(range);
  }
  ASSERT_EQ(bad.all().size(), 3u);
  EXPECT_EQ(bad.all()[0].where.end, 1536u);
  EXPECT_EQ(bad.bytes(), 2048u);
}

TEST(Scan, ARateIsKeptWhateverWasMissed) {
  constexpr int64_t second = 1'000'000'000;
  Pace pace(1 << 20);
  EXPECT_LE(pace.wait(7 * second), 0);
  pace.took(1 << 20, 7 * second);
  EXPECT_EQ(pace.wait(7 * second), second);
  pace.took(1 << 20, 60 * second);
  EXPECT_EQ(pace.wait(60 * second), second - second / 10);
  EXPECT_EQ(pace.piece(16384, 1 << 20), 98304u);
  EXPECT_EQ(Pace(0).wait(0), 0);
  EXPECT_EQ(Pace(1).piece(16384, 1 << 20), 16384u);
}

}  // namespace
