// Identification and the queries by name: sizes of every kind of file, headers, mount options.
#include <sys/resource.h>

#include "tests/support/header.hpp"
#include "tests/support/own_process.hpp"
#include "tests/support/world.hpp"

using namespace support;

namespace {

class Identify : public LayerTest {};

ub8 file_size(World &w) { return skgfgfsz(&w.se, w.ctx, txt(w.name), w.name.size()); }
ub8 block_size(World &w) { return skgfglbsz(&w.se, w.ctx, txt(w.name), w.name.size(), w.type); }
ub8 raise_limit(World &w) { return skgfrofl(&w.se, w.ctx, 100); }

const std::string header_of_8192 = Header{.size = 8192}.bytes();

void nfs_mount(World &w) {
  fault_file_system(0x6969);
  w.name.clear();
  if (own_mount().empty()) GTEST_SKIP() << "no folder for files is a mount of its own";
  w.name = w.elsewhere.emplace(own_mount()).file("file", 512);
}

/// What an identified record holds of any file.
void expect_constants(const World &w, const std::string &name, size_t block_size) {
  struct stat64 status {};
  stat64(name.c_str(), &status);
  const skgfrsfib *const record = priv(w.fib);
  std::string device = std::to_string(static_cast<ub4>(status.st_dev));
  device.resize(sizeof record->device_skgfrsfib);
  EXPECT_EQ(std::string(record->device_skgfrsfib, device.size()), device);
  EXPECT_EQ(std::pair(record->ftyp_skgfrsfib, record->flags_skgfrsfib),
            std::pair(status.st_mode, 0U));
  EXPECT_EQ(std::pair(str(w.fib->fnm_skgfrfib), w.fib->fnl_skgfrfib), std::pair(name, name.size()));
  EXPECT_EQ(std::tuple(w.fib->lblksiz_skgfrfib, w.fib->pblksiz_skgfrfib, w.fib->maxvec_skgfrfib,
                       w.fib->serr_skgfrfib),
            std::tuple(block_size, 512U, 16U, 0U));
}

TEST_F(Identify, SizesEveryKindOfFile) {
  const std::string swapped = Header{.size = 8192, .swapped = true}.bytes();
  const std::string old_header = Header{.size = 4096, .old_layout = true}.bytes();
  const auto filled = [](size_t size) { return std::string(size, 'x'); };
  const std::string null = "/dev/null", zero = "/dev/zero";
  // clang-format off
  const std::tuple<std::string, size_t, ub1, Facts> rows[] = {  // a device's name, or contents
      {filled(1024), 512, 0, {1, 2, 512}},             {filled(49152), 16384, 0, {2, 3, 16384}},
      {filled(512), 512, 0, {unknown, unknown, 512}},  {"", 512, 0, {unknown, 0, 512}},
      {filled(1000), 512, 0, {unknown, unknown, 512}}, {filled(4096), 512, 1, {8, 8, 0}},
      {filled(4096), 0, 1, {1, unknown, 0}},           {null, 8192, 0, {2097151, 2097152, 8192}},
      {zero, 512, 0, {unknown, unknown, 512}},         {zero, 512, 1, {1, unknown, 0}},
      {header_of_8192, 0, 0, {0, 2, 8192}},            {old_header, 0, 0, {0, 2, 4096}},
      {swapped, 0, 0, {0, 2, 8192}}};
  // clang-format on
  for (const auto &[bytes, size, flags, expected] : rows) {
    SCOPED_TRACE(testing::Message() << bytes.size() << "/" << size << " " << int{flags});
    World w;
    const bool device = bytes == null || bytes == zero;
    if (!device) put(w.name, bytes);
    const std::string plain = device ? bytes : w.name;
    w.name = "/" + plain;
    w.type = w.fib->ftype_skgfrfib = bytes == swapped ? skgfrfDCVT : skgfrfVTG;
    w.fib->lblksiz_skgfrfib = size;
    w.fib->flags_skgfrfib = flags;
    w.fib->serr_skgfrfib = 7;
    std::memset(priv(w.fib), 0xA5, sizeof(skgfrsfib));
    const bool uneven = bytes.size() == 1000;
    EXPECT_TRUE(
        gives(w, identify, uneven ? skgfrrSZERR : skgfrrOK, {uneven ? 27046 : 0, 0, {uneven}}));
    EXPECT_EQ(facts(w), expected);
    const ub8 device_size = bytes == null ? ub8{1} << 34 : ~ub8{0};
    EXPECT_EQ(file_size(w), device ? device_size : bytes.size());
    if (size == 0 && flags == 0) {
      EXPECT_EQ(block_size(w), std::get<2>(expected));
    }
    expect_constants(w, plain, size);
  }
}

/// 3 TiB, whose sectors do not fit 32 bits, under either size of sector.
TEST_F(Identify, ReadsBlock0OfLargeDisks) {
  for (const int sector : {512, 4096}) {
    World w;
    put(w.name, header_of_8192);
    ASSERT_EQ(truncate64(w.name.c_str(), off64_t{3} << 40), 0);
    const LoopDevice loop(w.name, sector);
    if (loop.path().empty()) GTEST_SKIP() << "the system refuses loop devices";
    w.name = loop.path();
    EXPECT_EQ(file_size(w), ub8{3} << 40);
    EXPECT_TRUE(gives(w, block_size, 8192));
    EXPECT_EQ(skgfgb1off(&w.se, txt(w.name), w.name.size()), 8192U);
    w.fib->lblksiz_skgfrfib = 0;
    EXPECT_TRUE(gives(w, identify, skgfrrOK));
    EXPECT_EQ(facts(w), Facts(0, 2, 8192));
    w.fib->lblksiz_skgfrfib = 4096;
    w.blocks = (ub4{3} << 28) - 1;
    EXPECT_TRUE(gives(w, identify, skgfrrOK));
    fault_arm("ioctl", 0, 1, EIO, FAULT_FAILS);  // it tells no size, so its last block is read
    skgfrsz(&w.se, w.ctx, w.fib, w.blocks);
    EXPECT_TRUE(is(w.se, {0}));
  }
}

TEST_F(Identify, AsksForSafeMountOptionsOnNfs) {
  const std::string place = own_mount(), parent = place.substr(0, place.rfind('/') + 1);
  if (place.empty()) GTEST_SKIP() << "no folder for files is a mount of its own";
  const std::pair<std::string, int> rows[] = {// 1: enough alone, 2: in a cluster too
                                              {"rsize=16384,wsize=16384,hard", 1},
                                              {"rsize=32768,wsize=32768,hard,noacl", 2},
                                              {"rsize=32768,wsize=32768,hard,actimeo=0", 2},
                                              {"rsize=32768,wsize=32768,hard,actimeo=3", 1},
                                              {"rsize=32768,wsize=32768,soft,noac", 0},
                                              {"rsize=8192,wsize=32768,hard,noac", 0},
                                              {"rsize=32768,hard,noac,wsize", 0}};
  for (const auto &[options, enough] : rows) {
    for (const bool cluster : {false, true}) {
      SCOPED_TRACE(options + (cluster ? " in a cluster" : ""));
      World w;
      nfs_mount(w);
      const std::string table = w.dir.path("mtab");
      put(table, "a:/ " + parent + " nfs soft 0 0\nb:/ " + place + " nfs " + options + " 0 0\n");
      fault_redirect("/etc/mtab", table.c_str());
      fault_arm("statfs64", 0, 2, ENOSYS, FAULT_FAILS);  // no direct I/O: not every system has it
      w.ctx->flags_skgfrctx |= cluster ? skgfrcCLUSTER : 0;
      const bool passes = enough > cluster;
      const skgfrr result = passes ? skgfrrOK : skgfrrERROR;
      const Expected expected = passes ? Expected{0} : Expected{27054, 0, {3}};
      std::vector<std::string> alerts = {
          "WARNING:NFS file system " + place + " mounted with incorrect options\n",
          std::string("WARNING:Expected NFS mount options: rsize>=16384,wsize>=16384,hard") +
              (cluster ? ",noac/actimeo=0\n" : "\n")};
      if (passes) alerts.clear();
      EXPECT_TRUE(gives(w, identify, result, expected));
      w.ctx->cbk_skgfrctx = nullptr;  // nobody hears of it again
      EXPECT_TRUE(gives(w, identify, result, expected));
      EXPECT_EQ(client().lines, alerts);
      w.fib->flags_skgfrfib = skgfrbNONFS;
      EXPECT_TRUE(gives(w, identify, skgfrrOK));
    }
  }
}

TEST_F(Identify, KeepsDescriptorsInReserve) {
  const std::tuple<rlim64_t, ub4, ub2> rows[] = {{1024, 992, 409}, {33, 1, 13}, {32, 0, 0}};
  each_in_own_process(rows, [](const auto &row) {  // a lowered hard limit stays
    const auto &[hard, ceiling, low_water] = row;
    World w;
    w.ctx->lwm_skgfrctx = 0;
    w.ctx->maxopen_skgfrctx = 0;
    rlimit64 limit{16, hard};
    EXPECT_EQ(setrlimit64(RLIMIT_NOFILE, &limit), 0);
    EXPECT_TRUE(gives(w, raise_limit, ceiling, {ceiling ? 0 : 27075}));
    getrlimit64(RLIMIT_NOFILE, &limit);
    EXPECT_EQ(limit.rlim_cur, ceiling ? hard : 16);
    EXPECT_EQ(std::pair(w.ctx->maxopen_skgfrctx, w.ctx->lwm_skgfrctx),
              std::pair(ceiling, low_water));
  });
}

}  // namespace
