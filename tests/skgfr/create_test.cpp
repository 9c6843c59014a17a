// Creation, resize and recomputation: what is on disk and in the record afterwards.
#include <sys/stat.h>

#include <filesystem>

#include "tests/support/header.hpp"
#include "tests/support/world.hpp"

using namespace support;

namespace {

/// Permissions of what is made are those that the code asks for.
class Create : public LayerTest {
 protected:
  ~Create() override { umask(mask_); }

 private:
  const mode_t mask_ = umask(0);
};

/// What remains to be seen: the file, the last block on record, the failures to come.
ub8 create(World &w) {
  skgfrcre(&w.se, w.ctx, txt(w.name), w.name.size(), w.type, w.fib->lblksiz_skgfrfib, w.blocks,
           w.flags);
  return std::filesystem::exists(w.name);
}
ub8 last_block(const World &w) { return priv(w.fib)->lastblk_skgfrsfib; }
ub8 resize(World &w) { return skgfrsz(&w.se, w.ctx, w.fib, w.blocks), last_block(w); }
ub8 recompute(World &w) { return skgfrfb(&w.se, w.ctx, w.fib), last_block(w); }

int permissions(const World &w, const char *name) {
  return static_cast<int>(std::filesystem::status(w.dir.path(name)).permissions());
}

TEST_F(Create, StampsBlock0AndSetsTheLength) {
  const mode_t mode = S_IFREG | 0660;
  const struct {
    const char *name;
    size_t length;
    std::optional<Header> header;
    size_t block_size = 512;
    ub4 blocks = 10;
  } rows[] = {
      {"plain", 5632, Header{.blocks = 10, .mode = mode}},
      {"of 4096", 12288, Header{.blocks = 2, .size = 4096, .mode = mode, .format = 0x82}, 4096, 2},
      {"of no size", 512, Header{.blocks = unknown, .mode = mode}, 512, unknown},
      {"swapped", 5632, Header{.blocks = 10, .mode = mode, .swapped = true}},
      {"old", 5632, Header{.blocks = 10, .mode = mode, .format = 2, .old_layout = true}},
      {"headerless", 5120, {}},
      {"headerless of no size", 0, {}, 512, unknown}};
  for (const bool direct_io : {false, true}) {
    for (const auto &[name, length, header, block_size, blocks] : rows) {
      SCOPED_TRACE(std::string(name) + (direct_io ? ", direct" : ""));
      World w;
      if (direct_io && !takes_direct_io(w.dir.path("."))) GTEST_SKIP() << "no direct I/O here";
      w.ctx->flags_skgfrctx |= direct_io ? skgfrcDIRECT : 0;
      w.name = w.dir.path("a/b/file");
      w.flags = header ? skgfrcreMKDIRS : skgfrcreMKDIRS | skgfrcreNOHEADER;
      w.type = header && header->swapped ? skgfrfDCVT : skgfrfVTG;
      client().old_layout = header && header->old_layout;
      w.fib->lblksiz_skgfrfib = block_size;
      w.blocks = blocks;
      w.ctx->limfsiz_skgfrctx = std::max(length, block_size);
      EXPECT_TRUE(gives(w, create, true));
      w.blocks = 5;  // nothing happens to an existing file
      EXPECT_TRUE(gives(w, create, true, {27038, 0, {1}}));
      EXPECT_EQ(contents(w.name), header ? header->bytes(length) : std::string(length, '\0'));
      EXPECT_EQ(permissions(w, "a") | permissions(w, "a/b"), 0700);
      EXPECT_EQ(permissions(w, "a/b/file"), 0660);
    }
  }
}

/// While block 0 is built, another file takes the new one's name.
std::string taken;
boolean take_name() {
  const int watching = fault_watch(0);
  std::filesystem::rename(taken, taken + " away");
  put(taken, "stranger");
  fault_watch(watching);
  return FALSE;
}

TEST_F(Create, LeavesAStrangerUnderItsNameAlone) {
  skgcb table = client_table;
  table.pre10compat_skgcb = take_name;
  for (const bool fails : {false, true}) {
    World w;
    w.ctx->cbk_skgfrctx = &table;
    taken = w.name;
    if (fails) fault_arm("write", 0, 1, ENOSPC, FAULT_FAILS);
    EXPECT_TRUE(gives(w, create, true, fails ? Expected{27044, ENOSPC, {3}} : Expected{0}));
    EXPECT_EQ(contents(w.name), "stranger");
    EXPECT_EQ(contents(w.name + " away").size(), fails ? 0U : 1024U);
  }
}

TEST_F(Create, ResizesFiles) {
  const std::tuple<ub4, ub1, size_t, ub4> rows[] = {
      {20, 0, 10752, 21},          {4, 0, 2560, 5},
      {unknown, 0, 5120, unknown}, {0, 0, 512, 1},  // from no whole number of blocks
      {20, 1, 10240, 20},          {4, 1, 2048, 4}};
  for (const auto &[blocks, flags, length, last_block] : rows) {
    SCOPED_TRACE(testing::Message() << blocks << " blocks, flags " << int{flags});
    World w;
    const size_t before = blocks ? 5120 : 1000;
    w.dir.file("file", before);
    w.fib->flags_skgfrfib = flags;
    identify(w);
    w.blocks = blocks;
    w.ctx->limfsiz_skgfrctx = length;
    const size_t data = flags ? 0 : 512, kept = std::min(length, before);
    priv(w.fib)->blk1offset_skgfrsfib += data;
    EXPECT_TRUE(gives(w, resize, last_block));
    EXPECT_EQ(facts(w), Facts(blocks, last_block, data));
    const std::string bytes = contents(w.name);
    EXPECT_EQ(data ? std::memcmp(&bytes[24], &blocks, 4) : 0, 0);
    EXPECT_EQ(bytes.substr(data), std::string(kept - data, 'x') + std::string(length - kept, '\0'));
    w.fib->filsiz_skgfrfib = 77;
    EXPECT_TRUE(gives(w, recompute, length / 512));
    EXPECT_EQ(w.fib->filsiz_skgfrfib, (length - data) / 512);
  }
}

/// A device that is measured as so many blocks, its header included.
void expect_resize(const std::string &name, ub4 blocks, ub4 last, ub4 whole) {
  World w;
  w.name = name;
  w.blocks = blocks;
  w.ctx->limfsiz_skgfrctx = 1;  // no limit for devices
  const Facts measured(whole == unknown ? unknown : whole - 1, whole, 512);
  identify(w);
  EXPECT_EQ(facts(w), measured);
  EXPECT_TRUE(gives(w, resize, last));
  EXPECT_EQ(facts(w), Facts(blocks, last, 512));
  EXPECT_TRUE(gives(w, recompute, whole));
  EXPECT_EQ(facts(w), measured);
}

TEST_F(Create, TreatsDevicesAsTheyAre) {
  expect_resize("/dev/zero", 0, 1, unknown);
  expect_resize("/dev/zero", unknown, unknown, unknown);
  expect_resize("/dev/null", 100, 101, 1 << 25);
  World w;
  w.name = "/dev/zero";
  w.blocks = unknown;
  EXPECT_TRUE(gives(w, create, true));  // no size, so no proof of it
  w.name = "/dev/null";
  w.fib->flags_skgfrfib = skgfrbNOHEADER;
  identify(w);
  w.blocks = 100;
  EXPECT_TRUE(gives(w, resize, 100));
  EXPECT_EQ(facts(w), Facts(99, 100, 0));
}

TEST_F(Create, TakesOverDisks) {
  for (const ub8 size : {ub8{65536}, (ub8{1} << 32) + 65536}) {  // the end of a wrapped size, too
    World w;
    const std::string file = w.dir.file("disk", 65536, 'd');
    std::filesystem::resize_file(file, size);
    const LoopDevice loop(file, 512);
    if (loop.path().empty()) GTEST_SKIP() << "the system refuses loop devices";
    const ub4 whole = static_cast<ub4>(size / 512);
    w.name = loop.path();
    w.blocks = whole;
    w.ctx->limfsiz_skgfrctx = 1;
    EXPECT_TRUE(gives(w, create, true, {27042, 0, {1}}));
    EXPECT_EQ(contents(w.name, 65536), std::string(65536, 'd'));
    w.blocks = whole - 1;
    EXPECT_TRUE(gives(w, create, true));
    identify(w);
    EXPECT_TRUE(gives(w, resize, whole));
    w.blocks = whole;
    EXPECT_TRUE(gives(w, resize, 0, {27042, 0, {3}}));
    for (const ub4 blocks : {whole - 1, ub4{99}}) {
      expect_resize(w.name, blocks, blocks + 1, whole);
      const Header header{.blocks = blocks, .mode = priv(w.fib)->ftyp_skgfrsfib};
      EXPECT_EQ(contents(w.name, 65536), header.bytes() + std::string(65024, 'd'));
    }
  }
}

}  // namespace
