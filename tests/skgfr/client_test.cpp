// What clients have beside the operations: literal names, reach, sector sizes, the end of a context.
#include "skgfr/client.h"

#include <sys/utsname.h>

#include <filesystem>
#include <regex>

#include "tests/support/own_process.hpp"
#include "tests/support/requests.hpp"
#include "tests/support/world.hpp"

using namespace support;

namespace {

using Clients = LayerTest;

/// That translation gives each name back is for the fuzz target of names to show.
TEST_F(Clients, ProtectsWhatWouldBeTranslated) {
  const std::pair<std::string, std::string> rows[] = {
      {"/plain/name", "/plain/name"}, {"/a@b?c", R"(/a\@b\?c)"}, {"/$a/${a}", R"(/\$a/\${a})"},
      {R"(/back\)", R"(/back\\)"},    {R"(/\@)", R"(/\\\@)"},    {"/%s \xC3\xA9", "/%s \xC3\xA9"}};
  for (const auto &[name, expected] : rows) {
    const size_t least = expected.size() + 1;
    Guarded out(least), small(least);
    EXPECT_EQ(skgfr_protect_name(txt(name), name.size(), out.data(), least), expected.size());
    EXPECT_EQ(str(out.data()), expected);
    EXPECT_TRUE(out.intact());
    EXPECT_EQ(skgfr_protect_name(txt(name), name.size(), small.data(), least - 1), 0u);
    EXPECT_EQ(skgfr_protect_name(txt(name), 0, small.data(), least), 0u);
    EXPECT_TRUE(small.intact(0)) << name;
  }
}

bool is_readable(World &w, ub4 block) {
  alignas(512) static char buffer[16384];
  Request one(w.iov, block, {{buffer, w.fib->lblksiz_skgfrfib}});
  return skgfqio(w.ctx, RequestList(Requests{&one}), skgfqioREAD) == 0;
}

skgfr_reach find_reach(World &w) {
  w.se = dirty();
  skgfr_reach reach;
  std::memset(&reach, 0xA5, sizeof reach);
  skgfr_find_reach(&w.se, w.ctx, w.fib, &reach);
  EXPECT_TRUE(is(w.se, {0}));
  EXPECT_EQ(w.fib->maxvec_skgfrfib, skgfr_longest_vector);
  return reach;
}

using Reach = std::tuple<ub8, ub8, ub4, ub4>;
constexpr ub8 device = ub8{1} << 34;
const struct {
  const char *name;
  skgfrf type;
  ub1 flags;
  size_t block_size, size, later;  // sizes of the file when identified and when asked
  Reach reach;                     // offset and bytes, first block and blocks
} reaches[] = {
    {"plain", skgfrfVTG, 0, 512, 4096, 4096, {512, 3584, 1, 7}},
    {"of 4096", skgfrfKVS, 0, 4096, 16384, 16384, {4096, 12288, 1, 3}},
    {"grown, not identified again", skgfrfVTG, 0, 512, 4096, 8192, {512, 3584, 1, 7}},
    {"shrunk", skgfrfVTG, 0, 512, 4096, 1000, {512, 0, 1, 0}},
    {"emptied", skgfrfVTG, 0, 512, 4096, 0, {512, 0, 1, 0}},
    {"header alone", skgfrfVTG, 0, 512, 512, 512, {512, 0, 1, 0}},
    {"header alone, which has no bounds", skgfrfVTG, 0, 512, 512, 2560, {512, 2048, 1, 4}},
    {"too short for its header", skgfrfVTG, 0, 512, 100, 2560, {512, 0, 1, 0}},
    {"uneven", skgfrfVTG, 0, 512, 1000, 1000, {512, 0, 1, 0}},
    {"headerless", skgfrfOSFILE, 1, 512, 4096, 4096, {0, 4096, 1, 8}},
    {"headerless from 0", skgfrfKDV, 1, 512, 4096, 4096, {0, 4096, 0, 8}},
    {"from 0", skgfrfKDV, 0, 512, 4096, 4096, {512, 3584, 0, 7}},
    {"device", skgfrfVTG, 0, 8192, 0, 0, {8192, device - 8192, 1, (1 << 21) - 1}},
    {"headerless device", skgfrfOSFILE, 1, 512, 0, 0, {0, device, 1, 1 << 25}}};

TEST_F(Clients, ReachIsWhatRequestsReach) {
  for (const auto &row : reaches) {
    SCOPED_TRACE(row.name);
    World w;
    w.name = row.size ? w.dir.file("a$b", row.size) : "/dev/null";
    const std::string name = std::regex_replace(w.name, std::regex("\\$"), R"(\$)");
    w.fib->ftype_skgfrfib = row.type;
    w.fib->flags_skgfrfib = row.flags;
    w.fib->lblksiz_skgfrfib = row.block_size;
    skgfifi(&w.se, w.ctx, w.fib, txt(name), name.size());
    if (row.size) std::filesystem::resize_file(w.name, row.later);
    const skgfr_reach reach = find_reach(w);
    EXPECT_EQ(Reach(reach.offset, reach.bytes, reach.first, reach.blocks), row.reach);
    if (row.size == 0) continue;
    skgfofi(&w.se, w.ctx, w.fib, w.iov, 0, 0);
    EXPECT_FALSE(is_readable(w, reach.first + reach.blocks));
    EXPECT_TRUE(reach.blocks == 0 || is_readable(w, reach.first + reach.blocks - 1));
  }
}

/// Whether a command of the shell succeeds; what it says is nobody's business.
bool run(const std::string &command) {
  return std::system(("{ " + command + "\n} >/dev/null 2>&1").c_str()) == 0;
}

size_t sector_size(const std::string &name) {
  slerc se = dirty();
  const size_t size = skgfr_sector_size(&se, nullptr, txt(name), name.size());
  EXPECT_TRUE(is(se, {0})) << name;
  return size;
}

/// Opens a file for direct, asynchronous I/O; the probe has to come up with what its disk takes.
void works_asynchronously(const std::string &file) {
  client().io_options = "setall";
  World w;
  w.name = file;
  w.fib->flags_skgfrfib = skgfrbNOHEADER;
  w.fib->lblksiz_skgfrfib = 4096;
  skgfifi(&w.se, w.ctx, w.fib, txt(w.name), w.name.size());
  skgfofi(&w.se, w.ctx, w.fib, w.iov, 4, 0);
  EXPECT_TRUE(is(w.se, {0}));
  EXPECT_EQ(w.iov->maxaio_skgfriov, w.ctx->maxaio_skgfrctx ? 4u : 0u);
  skgfcfi(&w.se, w.ctx, w.iov);
}

TEST_F(Clients, SectorSizeOfDevicesAndOfWhatLiesOnThem) {
  EXPECT_EQ(sector_size("/dev/null"), 512u);
  EXPECT_EQ(sector_size("/proc/self/maps"), 512u);
  const TempDir dir(place_for_files());
  for (const int size : {512, 4096}) {
    const LoopDevice disk(dir.file("disk" + std::to_string(size), 1 << 22), size);
    if (disk.path().empty()) GTEST_SKIP() << "losetup is refused";
    EXPECT_EQ(sector_size(disk.path()), static_cast<size_t>(size));

    const std::string folder = dir.path("mount" + std::to_string(size)), file = folder + "/file";
    std::filesystem::create_directory(folder);
    if (!run("mkfs.ext4 -q " + disk.path() + " && mount " + disk.path() + " " + folder)) {
      GTEST_SKIP() << "mount is refused";
    }
    put(file, std::string(8192, 's'));
    works_asynchronously(file);
    fault_redirect("/proc/partitions", "/dev/null");
    const size_t told = sector_size(file);
    fault_reset();
    fault_arm("statx", 0, 1, ENOSYS, FAULT_FAILS);
    const size_t of_disk = sector_size(file);
    fault_reset();
    EXPECT_TRUE(run("umount " + folder));
    EXPECT_EQ(of_disk, static_cast<size_t>(size));
    utsname kernel;
    ASSERT_EQ(uname(&kernel), 0);
    EXPECT_TRUE(told == of_disk || VDPREP_EMULATED || std::atof(kernel.release) < 6.1) << told;
  }
}

/// The kernel's contexts of this process; each has its ring mapped.
size_t kernel_contexts() {
  const std::string maps = contents("/proc/self/maps");
  size_t count = 0;
  for (size_t at = 0; (at = maps.find("/[aio]", at)) != maps.npos; ++at) ++count;
  return count;
}

TEST_F(Clients, AnEndedContextGivesBackTheKernels) {
  if (!kernel_has_room()) GTEST_SKIP() << "no room for another kernel context";
  const size_t before = kernel_contexts();
  skgfrctx ctx;
  skgfrwcx wait;
  for (int times = 0; times < 2; ++times) {  // once, and again
    slerc se = dirty();
    skgfrpini(&se, &ctx, &wait, &client_table, nullptr);
    EXPECT_EQ(kernel_contexts(), before + 1);
    skgfr_end_context(&se, &ctx);
    skgfr_end_context(&se, &ctx);  // of one that holds nothing
    EXPECT_TRUE(is(se, {0}));
    EXPECT_EQ(kernel_contexts(), before);
  }
  struct sigaction action {};
  EXPECT_EQ(sigaction(SIGWINCH, nullptr, &action), 0);
  EXPECT_EQ(action.sa_sigaction, sslsshandler) << "other contexts may wait";
}

}  // namespace
