// What the tests of the layer and the tool share: clients, records of the exact size, error checks,
// temporary folders, loop devices.
#pragma once

#include <gtest/gtest.h>

#include <bit>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "skgfr/client.h"
#include "tests/support/faults.h"

namespace support {

/// A record with its private extension, in exactly the bytes that the layer asks for.
template <class Public, skgfrs kind>
class Record {
 public:
  Record() : record_(static_cast<Public *>(std::calloc(1, skgfrgsz(kind))), std::free) {}
  Public *operator->() const { return record_.get(); }
  operator Public *() const { return record_.get(); }  // NOLINT: stands for the pointer

 private:
  std::unique_ptr<Public, void (*)(void *)> record_;
};
using Fib = Record<skgfrfib, skgfrsFIB>;
using Iov = Record<skgfriov, skgfrsIOV>;
using Iosb = Record<skgfriosb, skgfrsISB>;

/// The extensions, found by the layout rule and not by the layer's own helper.
inline skgfrsfib *priv(skgfrfib *fib) { return reinterpret_cast<skgfrsfib *>(fib + 1); }
inline skgfrsiov *priv(skgfriov *iov) { return reinterpret_cast<skgfrsiov *>(iov + 1); }
inline skgfrsisb *priv(skgfriosb *iosb) { return reinterpret_cast<skgfrsisb *>(iosb + 1); }

inline text *txt(const std::string &name) {
  return reinterpret_cast<text *>(const_cast<char *>(name.c_str()));
}

/// A client whose answers a test chooses and whose alerts and traces it can read.
struct Client {
  std::vector<std::pair<std::string, uword>> numbers;  // parameters it knows
  std::string io_options;                              // "filesystemio_options"; empty: not known
  bool old_layout = false;
  bool listens = true;             // to alerts and traces
  std::vector<std::string> lines;  // alerts and traces as they came
};

/// The client that the callbacks answer for; one test at a time.
Client &client();
extern const skgcb client_table;

/// A context for the client above, initialised unless that is to come; its kernel context goes with
/// it.
class Context {
 public:
  explicit Context(const skgcb *table = &client_table, bool initialise = true);
  ~Context();
  Context(Context &&) = delete;
  skgfrctx *operator->() { return &ctx_; }
  operator skgfrctx *() { return &ctx_; }  // NOLINT: stands for the pointer
  slerc se{};                              // of the initialisation

 private:
  skgfrctx ctx_;
};

/// Whether the system has room for one more kernel asynchronous-I/O context; other processes may have
/// taken it all.
bool kernel_has_room();

/// Every field of an error record but the parameters, as a failed operation must leave it.
struct Expected {
  eword code;
  int error = 0;
  ub4 words[3] = {0, 0, 0};
};
testing::AssertionResult is(const slerc &se, const Expected &expected);

/// A record full of leftovers, to prove that operations clear it.
inline slerc dirty() {
  slerc se;
  std::memset(&se, 0x5A, sizeof se);
  return se;
}

/// Of two texts, such as a header's bytes, the one of this machine's byte order.
constexpr const char *here(const char *little_endian, const char *big_endian) {
  return std::endian::native == std::endian::little ? little_endian : big_endian;
}

int open_descriptors();

/// The type of the lock that another owner than the descriptor's meets when it is to write far behind the
/// file's end, where that may yet grow; F_UNLCK for none.
int lock_met(int fd);

/// A folder that goes with everything in it.
class TempDir {
 public:
  explicit TempDir(const std::string &parent = "/tmp");
  ~TempDir();
  TempDir(TempDir &&) = delete;
  std::string path(const std::string &name) const { return path_ + "/" + name; }
  /// A file of so many bytes that all hold `fill`.
  std::string file(const std::string &name, size_t size, char fill = 'x') const;

 private:
  std::string path_;
};

std::string contents(const std::string &path, size_t size = ~size_t{0}, off64_t offset = 0);

/// A loop device over a file; empty where the system refuses one.
class LoopDevice {
 public:
  LoopDevice(const std::string &file, int sector_size, const std::string &options = "");
  ~LoopDevice();
  LoopDevice(LoopDevice &&) = delete;
  const std::string &path() const { return path_; }

 private:
  std::string path_;
};

/// The test of one row starts from nothing armed, and no environment variable decides about names.
class LayerTest : public testing::Test {
 protected:
  LayerTest();
  ~LayerTest() override;
};

}  // namespace support
