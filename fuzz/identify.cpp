// Identification of a file in memory that holds the input, against a header reader written here.
#include <byteswap.h>
#include <sys/mman.h>
#include <unistd.h>

#include "fuzz/fuzz.hpp"
#include "skgfr/skgfr.h"

/// The block size that a file's first bytes record, or 0.
static size_t decode(std::string bytes, bool swapped) {
  if (bytes.size() < 512) return 0;
  if (swapped) std::swap(bytes[12], bytes[13]);
  ub4 words[8];
  std::memcpy(words, bytes.data(), sizeof words);
  for (ub4 *word : {&words[1], &words[5], &words[7]}) *word = swapped ? bswap_32(*word) : *word;
  const bool old = words[1] <= 16384;
  const ub4 magic = words[old ? 3 : 7], size = words[old ? 1 : 5];
  if (magic != 0x7A7B7C7D && magic != 0x5A5B5C5D) return 0;
  return size <= 16384 && size % 512 == 0 ? size : 0;
}

int LLVMFuzzerTestOneInput(const ub1 *data, size_t length) {
  static const int fd = memfd_create("file", 0);
  static std::string path = "/proc/self/fd/" + std::to_string(fd);
  text *const name = reinterpret_cast<text *>(path.data());
  Input in(data, length);
  const skgfrf type = std::vector{skgfrfVTG, skgfrfDCVT, skgfrfKDV}[in.take<ub1>() % 3];
  const ub1 headless = in.take<ub1>() & skgfrbNOHEADER;
  require(ftruncate(fd, 0) == 0 && pwrite(fd, in.data(), in.size(), 0) >= 0, "it is written");
  const size_t size = decode(in, type == skgfrfDCVT), plain = decode(in, false);
  const ub4 failure = in.size() < 512 ? 0 : 1;  // too short, or no header

  skgfrctx ctx{};
  slerc se;
  const auto require_answer = [&](size_t answer, size_t expected, ub4 place) {
    require(answer == (expected ? expected : ~size_t{0}), "the answer fits the header");
    require(se.slercoer == (expected ? 0 : 27047), "the code fits the header");
    require(se.slercose[0] == (expected ? 0 : place + failure), "the place fits the failure");
  };
  std::pair<skgfrfib, skgfrsfib> it{};  // the extension lies right behind its record
  it.first.ftype_skgfrfib = type, it.first.flags_skgfrfib = headless;
  const bool good = skgfifi(&se, &ctx, &it.first, name, path.size()) == skgfrrOK;
  require_answer(good ? 1 : ~size_t{0}, headless || size, 1);
  require(it.second.seal_skgfrsfib == (good ? skgfrSEAL : 0), "the seal fits the result");
  require(it.second.blk1offset_skgfrsfib == (headless ? 0 : size), "block 1 lies behind block 0");
  require_answer(skgfglbsz(&se, &ctx, name, path.size(), type), size, 3);
  require_answer(skgfgb1off(&se, name, path.size()), plain, 5);
  return 0;
}
