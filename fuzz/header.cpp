// Block 0 in memory: readers agree, conversions lose nothing, and none leaves the bytes it was given.
#include "fuzz/fuzz.hpp"
#include "skgfr/skgfr.h"

using Block = std::vector<ub1>;
/// No client, which means the old layout and no check values; or one of either layout.
static enum { nobody, of_current_layout, of_old_layout } client;

static ub2 sum_of_words(void *block, size_t size) {
  ub2 sum = 0;
  for (size_t at = 0; client && at < size / 2; ++at) sum ^= static_cast<ub2 *>(block)[at];
  return sum;
}

static size_t read_size(skgfrctx *ctx, skgfrf type, Block &block) {
  slerc se{};
  const size_t size = skgfrgbsz(&se, ctx, type, block.data());
  require(size % 512 == 0 && size <= 16384, "a block size is a multiple of 512 up to 16384");
  require(se.slercoer == (size ? 0 : 27047), "size and code agree");
  return size;
}

static void check_conversions(skgfrctx *ctx, Block &block, size_t size) {
  Block other(size);
  void *const from = block.data(), *const to = other.data();
  skgfrhblk_writepre10(ctx, static_cast<skgfrhblk *>(from), static_cast<skgfrhblkv9 *>(to));
  require(skgfrchkhdr0(ctx, to, size) && sum_of_words(to, size) == 0, "an old header is valid");
  skgfrhblk_cvtpre10(ctx, static_cast<skgfrhblk *>(to));
  require(sum_of_words(to, 512) == 0, "a converted header's check value covers 512 bytes");
  for (const size_t at : {20u, 24u, 32u}) require(other[at] == block[at], "fields are kept");
}

int LLVMFuzzerTestOneInput(const ub1 *bytes, size_t length) {
  Input in(bytes, length);
  client = std::vector{nobody, of_current_layout, of_old_layout}[in.take<ub1>() % 3];
  skgcb table{};
  table.bhxor_skgcb = sum_of_words;
  table.pre10compat_skgcb = []() -> boolean { return client == of_old_layout; };
  table.getparam_skgcb = [](auto, auto, auto, void *value, auto, auto, auto) -> boolean {
    *static_cast<uword *>(value) = client == of_old_layout;
    return TRUE;
  };
  skgfrctx ctx{};
  ctx.cbk_skgfrctx = client ? &table : nullptr;
  Block built(512 * (size_t{in.take<ub1>()} % 32 + 1));
  const skgfrf type = in.take<ub1>() % 2 ? skgfrfDCVT : skgfrfVTG;
  slerc se;
  skgfrfhblk(&se, &ctx, built.data(), in.take<ub4>(), built.size(), type);
  require(type == skgfrfDCVT || sum_of_words(built.data(), built.size()) == 0, "the sum is 0");
  require(read_size(&ctx, type, built) == built.size(), "a built header tells its block size");

  Block block(in.begin(), in.end());
  const bool valid = skgfrchkhdr0(&ctx, block.data(), block.size());
  if (block.size() < (client ? 512 : 44)) return 0;
  Block swapped = block, twice = block;
  for (Block *each : {&swapped, &twice, &twice}) skgfrbcvt(&ctx, each->data());
  const size_t size = read_size(&ctx, skgfrfVTG, block);
  require(valid == (size != 0), "the readers agree");
  require(twice == Block(in.begin(), in.end()), "swapping twice is the identity");
  require(read_size(&ctx, skgfrfDCVT, swapped) == size && swapped == block, "readers swap back");
  if (valid) check_conversions(&ctx, block, size);
  return 0;
}
