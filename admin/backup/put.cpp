// Writes bytes to a disk in what the disk takes: its sectors, past the page cache, onto stable storage.
#include <fcntl.h>
#include <fmt/format.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

#include "admin/backup/backup.hpp"
#include "admin/status.hpp"

namespace vdadm::backup {

namespace {

/// What a write may have to be made of; the first that is taken is used. A file system without direct I/O
/// takes single bytes.
struct Manner {
  uint64_t unit;
  int flags;
};
constexpr Manner manners[] = {{512, O_DIRECT}, {4096, O_DIRECT}, {1, 0}};
constexpr size_t alignment = 4096;

class Target {
 public:
  Target(const std::string &name, int fd) : name_(name), fd_(fd) {
    struct stat64 status {};
    if (fstat64(fd, &status) != 0) fail();
    size_ = inspect::size_of(fd, status).value_or(0);
  }

  /// False when the disk takes no such writes.
  bool put(const Region &region, const Manner &manner) {
    const std::string self = fmt::format("/proc/self/fd/{}", fd_);
    const inspect::Descriptor file(
        open64(self.c_str(), O_WRONLY | O_CLOEXEC | O_DSYNC | manner.flags));
    if (!file) return is_refusal();
    const uint64_t end = region.offset + region.bytes.size();
    const uint64_t from = region.offset / manner.unit * manner.unit;
    const uint64_t to = std::min((end + manner.unit - 1) / manner.unit * manner.unit, size_);
    if (to < end) throw Failure(name_ + " is too small for what it should hold again.");
    return write(file.get(), from, around(region, from, to - from));
  }

 private:
  using Buffer = std::unique_ptr<unsigned char, decltype(&std::free)>;
  struct Piece {
    Buffer bytes;
    size_t length;
  };

  /// The bytes with what stands around them now.
  Piece around(const Region &region, uint64_t from, size_t length) {
    const size_t room = (length + alignment - 1) / alignment * alignment;
    Buffer memory(static_cast<unsigned char *>(std::aligned_alloc(alignment, room)), std::free);
    if (!memory) throw std::bad_alloc();
    if (length != region.bytes.size()) {
      const auto old = inspect::read_at(fd_, from, length);
      if (!old) fail();
      if (old->size() != length) throw Failure(name_ + " ended while it was read.");
      std::copy(old->begin(), old->end(), memory.get());
    }
    std::copy(region.bytes.begin(), region.bytes.end(), memory.get() + (region.offset - from));
    return {std::move(memory), length};
  }

  bool write(int file, uint64_t from, const Piece &piece) {
    const ssize_t written =
        pwrite64(file, piece.bytes.get(), piece.length, static_cast<off64_t>(from));
    if (written == static_cast<ssize_t>(piece.length)) return true;
    if (written >= 0) throw Failure(name_ + " took only a part of what was written.");
    return is_refusal();
  }

  bool is_refusal() const {
    if (errno != EINVAL) fail();
    return false;
  }
  [[noreturn]] void fail() const { throw Failure(inspect::system_sentence(name_, errno)); }

  const std::string &name_;
  int fd_;
  uint64_t size_ = 0;
};

}  // namespace

void put(const std::string &name, int fd, const Region &region) {
  Target target(name, fd);
  for (const Manner &manner : manners) {
    if (target.put(region, manner)) return;
  }
  throw Failure(inspect::system_sentence(name, EINVAL));
}

}  // namespace vdadm::backup
