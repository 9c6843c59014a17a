// Mirrors and device lists: fixed answers, what they clear, and the device of an identified file.
#include <sys/stat.h>

#include <cstring>

#include "tests/support/layer.hpp"

using namespace support;

TEST(Mirror, MirrorAnswersAreFixedAndDeviceListsNameTheDevice) {
  const TempDir folder;
  const std::string name = folder.file("data", 1024), none(36, 'f');
  Fib fib;
  Iov iov;
  iov->fib_skgfriov = fib;
  fib->lblksiz_skgfrfib = 512;
  slerc se, full = dirty(), cleared = dirty();
  cleared.slercoer = 0;
  const auto left = [&se](const slerc &as) { return std::memcmp(&se, &as, sizeof se) == 0; };
  ASSERT_EQ(skgfifi(&se, nullptr, fib, txt(name), name.size()), skgfrrOK);
  for (const ub4 flags : {0xFFFFFFFFU, 0xFFFFFFFEU}) {
    priv(fib)->flags_skgfrsfib = flags;
    EXPECT_TRUE(skgfrmms(&(se = full), nullptr, iov) == (flags & 1) && left(cleared));
    EXPECT_TRUE(skgfrersr(&(se = full), nullptr, iov) == FALSE && left(full));
    EXPECT_EQ(priv(fib)->flags_skgfrsfib, 0xFFFFFFFE);
  }
  size_t length = 77;
  skgfrfms(&(se = full), nullptr, nullptr, iov, nullptr, 1);
  EXPECT_TRUE(left(cleared));
  EXPECT_TRUE(skgfrnms(&(se = full), nullptr, nullptr, nullptr) == 0 && left(cleared));
  EXPECT_TRUE(!skgfgmsn(&(se = full), nullptr, nullptr, &length) && left(cleared) && length == 77);

  struct stat64 status;
  ASSERT_EQ(stat64(name.c_str(), &status), 0);
  std::string number = std::to_string(static_cast<ub4>(status.st_dev)), found;
  number.resize(20);  // padded with NULs
  const Expected good{0}, bad_seal{27050, 0, {9, 5}};
  for (const auto &[seal, listed, failure] :
       {std::tuple(skgfrSEAL, 1U, good), {5, 0, bad_seal}, {skgfrSEAL, 0, good}}) {
    priv(fib)->seal_skgfrsfib = seal;
    uword devices = 77;
    auto *const device = reinterpret_cast<skgfrdev *>((found = none).data());  // and a node
    auto *const node = reinterpret_cast<skgfrnod *>(device + 1);
    EXPECT_TRUE(skgfdlndv(&(se = full), nullptr, fib, &devices) == listed && is(se, failure));
    EXPECT_TRUE(skgfdli(&(se = full), nullptr, fib, device, node) == listed && is(se, failure));
    EXPECT_EQ(found, listed ? number + none.substr(20) : none);
    EXPECT_EQ(devices, listed ? 1U : 77U);
    if (failure.code != 0) priv(fib)->device_skgfrsfib[0] = 0;
  }
}
