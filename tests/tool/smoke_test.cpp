#include "tests/support/layer.hpp"
#include "tool/vdprep.h"
TEST(Smoke, Usage) { EXPECT_EQ(vdprep_main(1, nullptr), 2); }
