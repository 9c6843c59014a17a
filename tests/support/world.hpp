// What tests of files share: a world of its own for each case, and an operation held against what it
// is to come to.
#pragma once

#include <cstring>
#include <fstream>
#include <optional>
#include <tuple>

#include "tests/support/layer.hpp"
#include "tests/support/places.hpp"

namespace support {

constexpr ub4 unknown = 0xFFFFFFFF;

/// What an operation works on. Nothing is armed and nobody was told anything when it begins.
struct World {
  TempDir dir{place_for_files()};
  std::optional<TempDir> elsewhere;
  std::string name = dir.path("file");
  skgfrf type = skgfrfVTG;
  ub4 blocks = 1;
  ub1 flags = 0;
  Context ctx;
  Fib fib;
  Iov iov;
  slerc se{};
  explicit World(bool initialised = true) : ctx(&client_table, initialised) {
    fib->lblksiz_skgfrfib = 512, client() = Client{}, fault_reset();
  }
};

/// Its result is what it returns or, where it returns nothing, something that it leaves behind.
using Operation = ub8 (*)(World &);
using Change = void (*)(World &);

inline ub8 identify(World &w) {
  const skgfrr result = skgfifi(&w.se, w.ctx, w.fib, txt(w.name), w.name.size());
  const bool identified = result == skgfrrOK || result == skgfrrSZERR;
  EXPECT_EQ(priv(w.fib)->seal_skgfrsfib, identified ? skgfrSEAL : 0);
  return result;
}

inline void put(const std::string &path, const std::string &bytes) {
  std::ofstream(path, std::ios::binary) << bytes;
}
/// So many bytes: those in hexadecimal, then zeros.
inline std::string block(const char *hex, size_t size = 512) {
  std::string bytes;
  unsigned byte;
  for (int used; std::sscanf(hex, "%2x%n", &byte, &used) == 1; hex += used) {
    bytes += static_cast<char>(byte);
  }
  bytes.resize(size);
  return bytes;
}

inline void identified(World &w) { w.dir.file("file", 1024), identify(w); }

/// Size in blocks, last block and offset of block 1, as the record has them.
using Facts = std::tuple<ub4, ub4, size_t>;
inline Facts facts(const World &w) {
  const skgfrsfib *const file = priv(w.fib);
  return {w.fib->filsiz_skgfrfib, file->lastblk_skgfrsfib, file->blk1offset_skgfrsfib};
}

/// Whether the operation comes to this result and leaves exactly this error record.
inline testing::AssertionResult gives(World &w, Operation operation, ub8 result,
                                      const Expected &expected = {0}) {
  w.se = dirty();
  const ub8 found = operation(w);
  const testing::AssertionResult recorded = is(w.se, expected);
  if (found == result || !recorded) return recorded;
  return testing::AssertionFailure() << "result " << found << " instead of " << result;
}

}  // namespace support
