// Mirrors and device lists: fixed answers, what they clear, and the device of an identified file.
#include "tests/support/own_process.hpp"
#include "tests/support/world.hpp"

using namespace support;

namespace {

using Mirror = LayerTest;

ub8 count_sides(World &w) { return skgfrmms(&w.se, nullptr, w.iov); }
ub8 end_resilvering(World &w) { return skgfrersr(&w.se, nullptr, w.iov) ? 1 : 0; }
ub8 describe(World &w) {
  skgfrfms(&w.se, nullptr, nullptr, w.iov, nullptr, 1);
  return 0;
}
ub8 count_names(World &w) { return skgfrnms(&w.se, nullptr, nullptr, nullptr); }
ub8 name_side(World &w) {
  size_t length = 77;
  return (skgfgmsn(&w.se, nullptr, nullptr, &length) ? 1 : 0) + length - 77;
}

TEST_F(Mirror, AnswersAreFixed) {
  World w;
  identified(w);
  w.iov->fib_skgfriov = w.fib;
  for (const ub4 flags : {0xFFFFFFFFU, 0xFFFFFFFEU}) {
    priv(w.fib)->flags_skgfrsfib = flags;
    EXPECT_TRUE(gives(w, count_sides, flags & 1, only(0)));
    EXPECT_TRUE(gives(w, end_resilvering, FALSE, only(dirty().slercoer)));
    EXPECT_EQ(priv(w.fib)->flags_skgfrsfib, 0xFFFFFFFE);
  }
  for (const Operation each : {describe, count_names, name_side}) {
    EXPECT_TRUE(gives(w, each, 0, only(0)));
  }
}

TEST_F(Mirror, DeviceListsNameTheDevice) {
  World w;
  identified(w);
  std::string number = std::to_string(static_cast<ub4>(device_of(w.name))), none(36, 'f');
  number.resize(20);  // padded with NULs
  const std::tuple<ub4, uword, Expected> rows[] = {
      {skgfrSEAL, 1, {0}}, {5, 0, {27050, 0, {9, 5}}}, {skgfrSEAL, 0, {0}}};
  for (const auto &[seal, listed, expected] : rows) {
    priv(w.fib)->seal_skgfrsfib = seal;
    uword devices = 77;
    std::string found = none;
    auto *const device = reinterpret_cast<skgfrdev *>(found.data());  // and a node
    slerc counted = dirty(), named = dirty();
    EXPECT_EQ(skgfdlndv(&counted, nullptr, w.fib, &devices), listed);
    EXPECT_EQ(skgfdli(&named, nullptr, w.fib, device, reinterpret_cast<skgfrnod *>(device + 1)),
              listed);
    EXPECT_TRUE(is(counted, expected));
    EXPECT_TRUE(is(named, expected));
    EXPECT_EQ(found, listed ? number + none.substr(20) : none);
    EXPECT_EQ(devices, listed ? 1U : 77U);
    if (expected.code != 0) priv(w.fib)->device_skgfrsfib[0] = 0;
  }
}

}  // namespace
