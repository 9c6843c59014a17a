// Block 0: built, judged, converted, rewritten in place, and asked where block 1 is. Each layout and
// byte order is written out by hand once, the check value with it.
#include <sys/stat.h>

#include <numeric>

#include "tests/support/header.hpp"
#include "tests/support/world.hpp"

namespace {
using namespace support;
using std::string, std::tuple;
using Block0Test = LayerTest;

string patched(string header, size_t at, ub4 value, size_t width = 4) {
  return header.replace(at, width, reinterpret_cast<const char *>(&value), width);
}

// 9 blocks of 512 bytes in both layouts and both byte orders.
const string current =
    block(here("00220000 0000C0FF 00000000 00000000 CFD90000 00020000 09000000 7D7C7B7A",
               "00220000 FFC00000 00000000 00000000 FBED0000 00000200 00000009 7A7B7C7D"));
const string swapped =
    block(here("00220000 FFC00000 00000000 00000000 D9CF0000 00000200 00000009 7A7B7C7D",
               "00220000 0000C0FF 00000000 00000000 EDFB0000 00020000 09000000 7D7C7B7A"));
const string old = block(here("00020000 00020000 09000000 5D5C5B5A 00000000 0F06",
                              "00020000 00000200 00000009 5A5B5C5D 00000000 040D"));
const string old_swapped = block(here("00020000 00000200 00000009 5A5B5C5D 00000000 060F",
                                      "00020000 00020000 09000000 5D5C5B5A 00000000 0D04"));
const string large = Header{.blocks = 0x01020304, .size = 4096, .format = 0x82}.bytes(4096);
const string unfinished =
    Header{.blocks = 9, .format = 2}.bytes();  // before it gets the old layout

TEST_F(Block0Test, Builds) {
  const skgcb *const sums = &client_table;
  skgcb no_sums = client_table;
  no_sums.bhxor_skgcb = nullptr;
  const string old_without = patched(old, 20, 0, 2);
  const tuple<const skgcb *, boolean, uword, ub4, string> rows[] = {
      {sums, FALSE, 23, 9, current},       {sums, FALSE, 24, 0x01020304, large},
      {sums, FALSE, 19, 9, swapped},       {sums, TRUE, 23, 9, old},
      {sums, TRUE, 19, 9, old_swapped},    {&no_sums, FALSE, 1, 9, patched(current, 16, 0)},
      {&no_sums, TRUE, 1, 9, old_without}, {nullptr, FALSE, 1, 9, old_without}};
  const std::pair<size_t, int> formats[] = {
      {512, 0x22},   {1024, 0x42},  {2048, 0x62}, {4096, 0x82}, {8192, 0xA2},
      {16384, 0xC2}, {32768, 0xE2}, {256, 2},     {3072, 2},    {65536, 2}};
  skgfrctx ctx{};
  slerc se = dirty();
  for (const auto &[table, old_layout, type, blocks, expected] : rows) {
    client().old_layout = old_layout;
    client().numbers = {{"_xtts_allow_pre10", old_layout}};
    ctx.cbk_skgfrctx = table;
    string bytes = "####" + string(expected.size(), '\0') + "####";
    skgfrfhblk(&se, &ctx, bytes.data() + 4, blocks, expected.size(), type);
    EXPECT_TRUE(is(se, {0}));
    EXPECT_EQ(bytes, "####" + expected + "####") << type << blocks;
  }
  ctx.cbk_skgfrctx = sums;
  client().old_layout = true;
  string bytes = block("");
  fault_arm("malloc", 0, 1, ENOMEM, FAULT_NULL);
  skgfrfhblk(&se, &ctx, bytes.data(), 9, 512, skgfrfDCVT);
  EXPECT_TRUE(is(se, {27044, ENOMEM, {8}}));
  EXPECT_EQ(bytes, unfinished);

  client().old_layout = false;
  for (const auto &[size, format] : formats) {
    std::vector<ub2> words(size / 2);
    skgfrfhblk(&se, &ctx, words.data(), 77, size, skgfrfVTG);
    EXPECT_EQ(reinterpret_cast<const ub1 *>(words.data())[1], format) << size;
    EXPECT_EQ(std::accumulate(words.begin(), words.end(), 0, std::bit_xor()), 0) << size;
  }
}

TEST_F(Block0Test, AcceptsAndRefuses) {
  const tuple<const string *, size_t, ub4, size_t> rows[] = {
      {&current, 20, 512, 512},  {&current, 20, 16384, 16384}, {&current, 20, 0, 0},
      {&current, 20, 1000, 0},   {&current, 20, 16896, 0},     {&current, 28, 0x5A5B5C5D, 512},
      {&current, 28, 0x7B7A, 0}, {&current, 4, 16385, 512},    {&current, 4, 16384, 0},
      {&old, 4, 2048, 2048},     {&old, 4, 16384, 16384},      {&old, 4, 1000, 0},
      {&old, 4, 16896, 0},       {&old, 12, 0x7A7B7C7D, 512},  {&old, 12, 0x5A5B5C5E, 0}};
  Context ctx;
  for (const auto &[base, at, value, size] : rows) {
    string header = patched(*base, at, value);
    EXPECT_EQ(skgfrchkhdr0(nullptr, header.data(), 44), size ? TRUE : FALSE) << at << " " << value;
    EXPECT_EQ(skgfrchkhdr0(nullptr, header.data(), 43), FALSE);
    slerc se = dirty();
    EXPECT_EQ(skgfrgbsz(&se, ctx, skgfrfVTG, header.data()), size) << at << " " << value;
    EXPECT_TRUE(is(se, size ? Expected{0} : Expected{27047, 0, {7}}));
    if (at == 12 && !size) {
      EXPECT_EQ(header, patched(*base, at, value)) << "a stranger converted";
    }
  }
}

TEST_F(Block0Test, Converts) {
  Context ctx;
  slerc se;
  for (string header : {swapped, old_swapped}) {
    client().numbers = {{"_xtts_allow_pre10", header == old_swapped}};
    EXPECT_EQ(skgfrgbsz(&se, ctx, skgfrfDCVT, header.data()), 512u);
    EXPECT_EQ(header, current);
  }
  Header shape{.blocks = 16, .size = 2048, .mode = 0x81A4, .format = 0x62, .type = 7};
  string modern = shape.bytes();
  modern.replace(44, 2, "\xAA\xBB").resize(2048);
  modern[16] ^= '\xAA';
  modern[17] ^= '\xBB';
  modern[600] = 'y';  // outside what the check value covers
  shape.format = 2;
  shape.old_layout = true;
  const string ancient = shape.bytes(2048);
  string bytes = ancient;
  bytes.replace(24, 22, string(20, 'x') + "\xAA\xBB")[600] = 'y';
  skgfrhblk_cvtpre10(ctx, reinterpret_cast<skgfrhblk *>(bytes.data()));
  EXPECT_EQ(bytes, modern);
  bytes = string(24, '\0') + string(2024, 'x') + "guard";
  skgfrhblk_writepre10(ctx, reinterpret_cast<skgfrhblk *>(modern.data()),
                       reinterpret_cast<skgfrhblkv9 *>(bytes.data()));
  EXPECT_EQ(bytes, ancient + "guard");

  string fields[] = {"0123456789abcdefghijklmnopqrstuvwxyzABCDEFGH", ""};
  fields[1] = fields[0];
  for (const uword old_layout : {0U, 1U}) {
    client().numbers = {{"_xtts_allow_pre10", old_layout}};
    skgfrbcvt(ctx, fields[old_layout].data());
  }
  EXPECT_EQ(fields[0], "01237654ba98dcefhgijnmlkrqpovutszyxwABCDEFGH");
  EXPECT_EQ(fields[1], "01237654ba98fedcjihglkmnopqrstuvwxyzABCDEFGH");
}

ub8 upgrade(World &w) {
  if (priv(w.iov)->seal_skgfrsiov) priv(w.iov)->offset_skgfrsiov = 4;
  skgfrupd_blk0_v10(&w.se, w.ctx, w.iov);
  return priv(w.iov)->offset_skgfrsiov;
}
ub8 block1(World &w) { return skgfgb1off(&w.se, txt(w.name), w.name.size()); }

void open_2048(World &w) {
  w.name = w.dir.file("file", 2048);
  chmod(w.name.c_str(), 0600);
  identify(w);
  skgfofi(&w.se, w.ctx, w.fib, w.iov, 0, skgfofiWRITE);
}

TEST_F(Block0Test, IsRewrittenInPlaceAndTellsWhereBlock1Is) {
  World w;
  open_2048(w);
  client().numbers = {{"_xtts_allow_pre10", 1}};  // of no account: the layout is the current one
  for (const skgfrf type : {skgfrfDCVT, skgfrfVTG}) {
    w.fib->ftype_skgfrfib = type;
    EXPECT_TRUE(gives(w, upgrade, 0xFFFFFFFF));
    const Header rewritten{.blocks = 3, .mode = 0x8180, .swapped = type == skgfrfDCVT};
    EXPECT_EQ(contents(w.name), rewritten.bytes() + string(1536, 'x'));
  }
  skgfcfi(&w.se, w.ctx, w.iov);
  EXPECT_TRUE(gives(w, block1, 512));
  put(w.name, large);
  EXPECT_TRUE(gives(w, block1, 4096));
  put(w.name, patched(old, 4, 2048));
  EXPECT_TRUE(gives(w, block1, 2048));
}

}  // namespace
