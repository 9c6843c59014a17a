// Block 0: built, judged, converted, rewritten in place, and asked where block 1 is. Every expected
// header is written out by hand, its check value with it.
#include <fstream>
#include <numeric>

#include "tests/support/layer.hpp"

namespace {
using namespace support;
using std::string, std::tuple;
class Block0Test : public LayerTest {};

/// So many bytes: those in hexadecimal, then zeros.
string block(const char *hex, size_t size = 512) {
  string bytes;
  unsigned byte;
  for (int used; std::sscanf(hex, "%2x%n", &byte, &used) == 1; hex += used) {
    bytes += static_cast<char>(byte);
  }
  return bytes.append(size - bytes.size(), '\0');
}

string patched(string header, size_t at, ub4 value, size_t width = 4) {
  return header.replace(at, width, reinterpret_cast<const char *>(&value), width);
}

// 9 blocks of 512 bytes in both layouts and both byte orders, and 0x01020304 blocks of 4096.
const string current =
    block("00220000 0000C0FF 00000000 00000000 CFD90000 00020000 09000000 7D7C7B7A");
const string swapped =
    block("00220000 FFC00000 00000000 00000000 D9CF0000 00000200 00000009 7A7B7C7D");
const string old = block("00020000 00020000 09000000 5D5C5B5A 00000000 0F06");
const string old_swapped = block("00020000 00000200 00000009 5A5B5C5D 00000000 060F");
const string large =
    block("00820000 0000C0FF 00000000 00000000 C0690000 00100000 04030201 7D7C7B7A", 4096);

TEST_F(Block0Test, Builds) {
  skgcb no_sums = client_table;
  no_sums.bhxor_skgcb = nullptr;
  const string old_without = patched(old, 20, 0, 2);
  const tuple<const skgcb *, boolean, uword, ub4, string> rows[] = {
      {&client_table, FALSE, 23, 9, current},    {&client_table, FALSE, 24, 0x01020304, large},
      {&client_table, FALSE, 19, 9, swapped},    {&client_table, TRUE, 23, 9, old},
      {&client_table, TRUE, 19, 9, old_swapped}, {&no_sums, FALSE, 1, 9, patched(current, 16, 0)},
      {&no_sums, TRUE, 1, 9, old_without},       {nullptr, FALSE, 1, 9, old_without}};
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
  ctx.cbk_skgfrctx = &client_table, client().old_layout = true;
  string bytes = block("");
  fault_arm("malloc", 0, 1, ENOMEM, FAULT_NULL);
  skgfrfhblk(&se, &ctx, bytes.data(), 9, 512, skgfrfDCVT);
  EXPECT_TRUE(is(se, {27044, ENOMEM, {8}}));
  EXPECT_EQ(bytes, patched(patched(current, 0, 0x0200), 16, 0xF9CF));  // the current layout is left

  client().old_layout = false;
  const std::pair<size_t, int> formats[] = {
      {512, 0x22},   {1024, 0x42},  {2048, 0x62}, {4096, 0x82}, {8192, 0xA2},
      {16384, 0xC2}, {32768, 0xE2}, {256, 2},     {3072, 2},    {65536, 2}};
  for (const auto &[size, format] : formats) {
    std::vector<ub2> words(size / 2);
    skgfrfhblk(&se, &ctx, words.data(), 77, size, skgfrfVTG);
    EXPECT_EQ(words[0] >> 8, format) << size;
    EXPECT_EQ(std::accumulate(words.begin(), words.end(), 0, std::bit_xor()), 0) << size;
  }
}

TEST_F(Block0Test, AcceptsAndRefuses) {
  const tuple<const string *, size_t, ub4, size_t> rows[] = {
      {&current, 20, 512, 512},  {&current, 20, 16384, 16384}, {&current, 20, 0, 0},
      {&current, 20, 1000, 0},   {&current, 20, 16896, 0},     {&current, 28, 0x5A5B5C5D, 512},
      {&current, 28, 0x7B7A, 0}, {&current, 4, 16385, 512},    {&current, 4, 16384, 0},
      {&old, 4, 2048, 2048},     {&old, 4, 16384, 16384},      {&old, 4, 0, 0},
      {&old, 4, 1000, 0},        {&old, 4, 16896, 0},          {&old, 12, 0x7A7B7C7D, 512},
      {&old, 12, 0, 0},          {&old, 12, 0x5A5B5C5E, 0}};
  Context ctx;
  for (const auto &[base, at, value, size] : rows) {
    string header = patched(*base, at, value);
    EXPECT_EQ(skgfrchkhdr0(nullptr, header.data(), 44), size ? TRUE : FALSE) << at << " " << value;
    EXPECT_EQ(skgfrchkhdr0(nullptr, header.data(), 43), FALSE);
    slerc se = dirty();
    EXPECT_EQ(skgfrgbsz(&se, ctx, skgfrfVTG, header.data()), size) << at << " " << value;
    EXPECT_TRUE(is(se, size ? Expected{0} : Expected{27047, 0, {7}}));
    EXPECT_TRUE(at != 12 || size || header == patched(*base, at, value)) << "a stranger converted";
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
  string modern = block(
      "07620000 0000C0FF 00000000 00000000 DFA90000 00080000 10000000 7D7C7B7A"
      "A4810000 00000000 00000000 AABB",
      2048);
  const string ancient = block("07020000 00080000 10000000 5D5C5B5A A4810000 B58D", 2048);
  string bytes = ancient;
  bytes.replace(24, 22, string(20, 'x') + "\xAA\xBB");
  skgfrhblk_cvtpre10(ctx, reinterpret_cast<skgfrhblk *>(bytes.data()));
  EXPECT_EQ(bytes, modern);
  bytes = string(24, '\0') + string(2024, 'x') + "guard";
  skgfrhblk_writepre10(ctx, reinterpret_cast<skgfrhblk *>(modern.data()),
                       reinterpret_cast<skgfrhblkv9 *>(bytes.data()));
  EXPECT_EQ(bytes, ancient + "guard");

  const std::pair<uword, string> rows[] = {{0, "01237654ba98dcefhgijnmlkrqpovutszyxwABCDEFGH"},
                                           {1, "01237654ba98fedcjihglkmnopqrstuvwxyzABCDEFGH"}};
  for (const auto &[old_layout, expected] : rows) {
    client().numbers = {{"_xtts_allow_pre10", old_layout}};
    string fields = "0123456789abcdefghijklmnopqrstuvwxyzABCDEFGH";
    skgfrbcvt(ctx, fields.data());
    EXPECT_EQ(fields, expected);
  }
}

TEST_F(Block0Test, IsRewrittenInPlace) {
  TempDir dir;
  Context ctx;
  const string name = dir.file("f", 2048), rest(1536, 'x');
  chmod(name.c_str(), 0600);
  Fib fib;
  Iov iov;
  slerc se;
  fib->lblksiz_skgfrfib = 512;
  ASSERT_EQ(skgfifi(&se, ctx, fib, txt(name), name.size()), skgfrrOK);
  skgfofi(&se, ctx, fib, iov, 0, skgfofiWRITE);
  const int before = open_descriptors();
  const tuple<const char *, int, long, Expected> rows[] = {
      {"malloc", ENOMEM, FAULT_NULL, {27044, ENOMEM, {9}}},
      {"lseek64", EIO, FAULT_FAILS, {27043, EIO, {6}}},
      {"lseek64", 0, 512, {27043, 0, {6}}},
      {"write", EIO, FAULT_FAILS, {27044, EIO, {10}}},
      {"write", E2BIG, 100, {27044, 0, {10}}},
      {"none", 0, 0, {0}}};
  for (const auto &[call, error, result, expected] : rows) {
    EXPECT_EQ(contents(name), string(2048, 'x')) << "before " << call;
    priv(iov)->offset_skgfrsiov = 4;
    fault_arm(call, 0, 1, error, result);
    skgfrupd_blk0_v10(&(se = dirty()), ctx, iov);
    EXPECT_TRUE(is(se, expected)) << call;
    EXPECT_EQ(priv(iov)->offset_skgfrsiov, call == string("malloc") ? 4 : 0xFFFFFFFF);
  }
  EXPECT_EQ(open_descriptors(), before);
  EXPECT_EQ(contents(name), block("00220000 0000C0FF 00000000 00000000 45580000 00020000 03000000"
                                  "7D7C7B7A 80810000") +
                                rest);
  fib->lblksiz_skgfrfib = 0;
  skgfrupd_blk0_v10(&se, ctx, iov);
  EXPECT_TRUE(is(se, {27044, EINVAL, {9}}));
  skgfcfi(&se, ctx, iov);
  skgfrupd_blk0_v10(&(se = dirty()), ctx, iov);
  EXPECT_TRUE(is(se, {27050, 0, {2, 0}}));
}

TEST_F(Block0Test, TellsWhereBlock1Is) {
  TempDir dir;
  const auto file = [&](const char *name, const string &bytes) {
    std::ofstream(dir.path(name)) << bytes;
    return dir.path(name);
  };
  const string good = file("good", large);
  const size_t unknown = ~size_t{0};
  const tuple<string, const char *, int, long, Expected, size_t, int> rows[] = {
      {good, "", 0, 0, {0}, 4096, 1},
      {file("old", patched(old, 4, 2048)), "", 0, 0, {0}, 2048, 1},
      {file("bad", patched(current, 20, 1000)), "", 0, 0, {27047, 0, {6}}, unknown, 1},
      {file("short", current.substr(0, 511)), "", 0, 0, {27047, 0, {5}}, unknown, 1},
      {dir.path("missing"), "", 0, 0, {27037, ENOENT, {14}}, unknown, 0},
      {"/tmp/../etc", "", 0, 0, {27036, 0, {7345, 7}}, unknown, 0},
      {good, "stat64", EACCES, -1, {27037, EACCES, {14}}, unknown, 0},
      {good, "open64", EMFILE, -1, {27041, EMFILE, {8}}, unknown, 0},
      {good, "lseek64", EINVAL, -1, {27043, EINVAL, {3}}, unknown, 1},
      {good, "read", EIO, -1, {27047, EIO, {5}}, unknown, 1},
      {good, "close", EIO, -1, {27045, EIO, {7}}, unknown, 1}};
  for (const auto &[name, call, error, result, expected, offset, closes] : rows) {
    fault_reset();
    const int before = open_descriptors(), closed = fault_calls("close");
    fault_arm(call, 0, 1, error, result);
    slerc se = dirty();
    EXPECT_EQ(skgfgb1off(&se, txt(name), name.size()), offset) << name << call;
    EXPECT_TRUE(is(se, expected)) << name << call;
    EXPECT_EQ(fault_calls("close") - closed, closes) << name << call;
    EXPECT_EQ(open_descriptors(), before + (call == string("close"))) << name << call;
  }
}

}  // namespace
