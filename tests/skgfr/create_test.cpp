// Creation, resize and recomputation: what is on disk and in the record afterwards.
#include <filesystem>

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

void make_folders(World &w) { w.name = w.dir.path("a/b/file"), w.flags = skgfrcreMKDIRS; }
void direct(World &w) { w.ctx->flags_skgfrctx |= skgfrcDIRECT; }
template <bool known>
void identified_device(World &w) {
  w.name = known ? "/dev/null" : "/dev/zero", w.blocks = 1 << 25;
  identify(w);
}

int permissions(const World &w, const char *name) {
  return static_cast<int>(std::filesystem::status(w.dir.path(name)).permissions());
}

TEST_F(Create, StampsBlock0AndSetsTheLength) {
  enum Kind { plain, swapped, old, headerless };
  const std::tuple<Kind, size_t, ub4, size_t, const char *> rows[] = {
      {plain, 512, 10, 5632,
       here("002200000000C0FF00000000000000007C580000000200000A0000007D7C7B7AB081",
            "00220000FFC0000000000000000000007A5E0000000002000000000A7A7B7C7D000081B0")},
      {plain, 4096, 2, 12288,
       here("008200000000C0FF000000000000000074EA000000100000020000007D7C7B7AB081",
            "00820000FFC00000000000000000000068F6000000001000000000027A7B7C7D000081B0")},
      {plain, 512, unknown, 512,
       here("002200000000C0FF00000000000000007658000000020000FFFFFFFF7D7C7B7AB081",
            "00220000FFC0000000000000000000007A54000000000200FFFFFFFF7A7B7C7D000081B0")},
      {swapped, 512, 10, 5632,
       here("00220000FFC000000000000000000000587C0000000002000000000A7A7B7C7D000081B0",
            "002200000000C0FF00000000000000005E7A0000000200000A0000007D7C7B7AB081")},
      {old, 512, 10, 5632,
       here("00020000000200000A0000005D5C5B5AB0810000BC87",
            "00020000000002000000000A5A5B5C5D000081B085BE")},
      {headerless, 512, 10, 5120, ""},
      {headerless, 512, unknown, 0, ""}};
  for (const bool direct_io : {false, true}) {
    for (const auto &[kind, size, blocks, length, header] : rows) {
      SCOPED_TRACE(testing::Message() << length << " " << header << " " << direct_io);
      World w;
      if (direct_io && !takes_direct_io(w.dir.path("."))) GTEST_SKIP() << "no direct I/O here";
      w.type = kind == swapped ? skgfrfDCVT : skgfrfVTG, w.blocks = blocks;
      make_folders(w);
      w.flags |= kind == headerless ? skgfrcreNOHEADER : 0;
      w.fib->lblksiz_skgfrfib = size;
      client().old_layout = kind == old;
      if (direct_io) direct(w);
      w.ctx->limfsiz_skgfrctx = std::max(length, size);
      EXPECT_TRUE(gives(w, create, true));
      w.blocks = 5;  // nothing happens to an existing file
      EXPECT_TRUE(gives(w, create, true, {27038, 0, {1}}));
      EXPECT_EQ(contents(w.name), block(header, length));
      EXPECT_EQ(permissions(w, "a") | permissions(w, "a/b"), 0700);
      EXPECT_EQ(permissions(w, "a/b/file"), 0660);
    }
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
    w.blocks = blocks, w.ctx->limfsiz_skgfrctx = length;
    const size_t data = flags ? 0 : 512, kept = std::min(length, before);
    priv(w.fib)->blk1offset_skgfrsfib += data;
    EXPECT_TRUE(gives(w, resize, last_block));
    EXPECT_EQ(facts(w), Facts(blocks, last_block, data));
    const std::string bytes = contents(w.name);
    EXPECT_EQ(data && std::memcmp(&bytes[24], &blocks, 4), 0);
    EXPECT_EQ(bytes.substr(data), std::string(kept - data, 'x') + std::string(length - kept, '\0'));
    w.fib->filsiz_skgfrfib = 77;
    EXPECT_TRUE(gives(w, recompute, length / 512));
    EXPECT_EQ(w.fib->filsiz_skgfrfib, (length - data) / 512);
  }
}

void expect_resize(const std::string &name, ub4 blocks, ub4 last, ub4 whole) {
  World w;
  w.name = name, w.blocks = blocks, w.ctx->limfsiz_skgfrctx = 1;  // no limit for devices
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
  w.name = "/dev/zero", w.blocks = unknown;
  EXPECT_TRUE(gives(w, create, true));  // no size, so no proof of it

  const LoopDevice loop(w.dir.file("disk", 65536, 'd'), 512);
  if (loop.path().empty()) GTEST_SKIP() << "the system refuses loop devices";
  w.name = loop.path(), w.blocks = 128, w.ctx->limfsiz_skgfrctx = 1;
  EXPECT_TRUE(gives(w, create, true, {27042, 0, {1}}));
  EXPECT_EQ(contents(w.name), std::string(65536, 'd'));
  w.blocks = 127;
  EXPECT_TRUE(gives(w, create, true));
  identify(w);
  for (const char *const fields : {here("000200007F0000007D7C7B7A", "000002000000007F7A7B7C7D"),
                                   here("00020000630000007D7C7B7A", "00000200000000637A7B7C7D")}) {
    const std::string bytes = contents(w.name);
    EXPECT_EQ(bytes.substr(20, 12), block(fields, 12));
    EXPECT_EQ(std::memcmp(&bytes[32], &priv(w.fib)->ftyp_skgfrsfib, 4), 0);
    EXPECT_EQ(bytes.substr(36), std::string(476, '\0') + std::string(65536 - 512, 'd'));
    expect_resize(w.name, 127, 128, 128);
    expect_resize(w.name, 99, 100, 128);
  }
}

}  // namespace
