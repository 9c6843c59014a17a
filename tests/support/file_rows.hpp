// What tables about files name: operations on a world of their own, changes to it, and the driver
// of failure tables.
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

inline void nothing(World &) {}
inline void climbing(World &w) { w.name = "/tmp/../tmp/file"; }
inline void missing(World &w) { w.name += "2"; }
inline void identified(World &w) { w.dir.file("file", 1024), identify(w); }
template <size_t size>
void block_size_of(World &w) {
  w.fib->lblksiz_skgfrfib = size;
}

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

/// A call that fails once, after `skip` calls that pass, with the error that the record is to hold.
struct Fault {
  const char *call = "";
  int skip = 0;
  long result = FAULT_FAILS;
};
struct FailureRow {
  eword code;
  int error = 0;
  ub4 words[3] = {0, 0, 0};
  Fault fault{};
  Change change = nothing;      // what is different for this row; no name: it cannot be had here
  std::optional<ub8> result{};  // of the operation, when it is not the usual one
};
struct Failures {
  Operation operation;
  ub8 usual_result;
  std::vector<FailureRow> rows;
};

/// Runs each row in a world that `before` prepared. Nothing may stay open.
inline void expect_failures(Change before, const std::vector<Failures> &operations) {
  for (const auto &[operation, usual_result, rows] : operations) {
    for (const auto &[code, error, words, fault, change, result] : rows) {
      SCOPED_TRACE(testing::Message() << code << " (" << words[0] << ")");
      World w;
      const int open = open_descriptors();
      before(w);
      change(w);
      if (w.name.empty()) continue;
      fault_arm(fault.call, fault.skip, 1, error, fault.result);
      const Expected expected{code, error, {words[0], words[1], words[2]}};
      EXPECT_TRUE(gives(w, operation, result.value_or(usual_result), expected));
      fault_reset();

      const bool held = priv(w.iov)->seal_skgfrsiov == skgfrSEAL;
      priv(w.iov)->aiopend_skgfrsiov = 0;
      if (held) skgfcfi(&w.se, w.ctx, w.iov);
      const bool unclosed = held && fault.call == std::string("close");  // the system closed it
      EXPECT_EQ(w.ctx->curopen_skgfrctx, unclosed);
      EXPECT_EQ(open_descriptors(), open);
    }
  }
}

}  // namespace support
