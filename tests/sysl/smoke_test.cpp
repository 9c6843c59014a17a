#include "tests/support/layer.hpp"
using namespace support;
TEST(Smoke, ErrorText) {
  slerc se{};
  se.slercose[1] = 5;
  text b[64];
  EXPECT_EQ(slcgems(&se, b, 64), 25u);
}
