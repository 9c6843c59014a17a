#include "tests/support/layer.hpp"
using namespace support;
class Smoke : public LayerTest {};
TEST_F(Smoke, IdentifyFaults) {
  TempDir dir;
  Context ctx;
  ASSERT_EQ(ctx.se.slercoer, 0);
  const std::string name = dir.file("f", 1024);
  Fib fib;
  fib->lblksiz_skgfrfib = 512;
  slerc se = dirty();
  EXPECT_EQ(skgfifi(&se, ctx, fib, txt(name), name.size()), skgfrrOK);
  EXPECT_TRUE(is(se, {0}));
  const int before = open_descriptors();
  fault_arm("close", 0, 1, EIO, FAULT_FAILS);
  EXPECT_EQ(skgfifi(&se, ctx, fib, txt(name), name.size()), skgfrrERROR);
  EXPECT_TRUE(is(se, {27045, EIO, {2}}));
  EXPECT_EQ(open_descriptors(), before + 1);
  LoopDevice loop(dir.file("l", 1 << 20), 4096);
  EXPECT_NE(loop.path(), "");
}
