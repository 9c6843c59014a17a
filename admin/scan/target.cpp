// Opening and measuring. Anything here may wait for the disk.
#include "admin/scan/target.hpp"

#include <fcntl.h>
#include <fmt/format.h>
#include <skgfr/client.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>

#include "admin/inspect/inspect.hpp"

namespace vdadm::scan {

namespace {

/// What can be read from end to end. Opening a pipe would wait for its other side.
bool is_readable_kind(mode_t mode) { return S_ISREG(mode) || S_ISBLK(mode) || S_ISCHR(mode); }

/// In whole sectors, within the file.
Extent widen(const Extent &wish, uint64_t sector, uint64_t size) {
  const uint64_t begin = wish.begin / sector * sector;
  if (wish.end >= size || begin >= size) return {std::min(begin, size), size};
  return {begin, std::min(size, (wish.end + sector - 1) / sector * sector)};
}

}  // namespace

std::string Target::open_name() const { return fmt::format("/proc/self/fd/{}", file_.get()); }

bool Target::open(const Order &order, std::string &sentence) {
  struct stat64 status;
  if (stat64(order.name.c_str(), &status) != 0) {
    sentence = inspect::system_sentence(order.name, errno);
    return false;
  }
  if (!is_readable_kind(status.st_mode)) {
    sentence = fmt::format("{} is no disk and no file: name one of these.", order.name);
    return false;
  }
  file_ = inspect::Descriptor(open64(order.name.c_str(), O_RDONLY | O_CLOEXEC));
  if (!file_ || fstat64(file_.get(), &status) != 0) {
    sentence = inspect::system_sentence(order.name, errno);
    return false;
  }
  facts_.is_device = S_ISBLK(status.st_mode);
  facts_.device = status.st_rdev;
  facts_.inode = status.st_ino;
  return learn_facts(order, sentence);
}

bool Target::learn_facts(const Order &order, std::string &sentence) {
  slerc se;
  skgfrctx context{};  // sizes need none of what an initialised one holds
  std::string name = open_name();
  auto *const chars = reinterpret_cast<text *>(name.data());
  facts_.sector_size = skgfr_sector_size(&se, &context, chars, name.size());
  if (se.slercoer == 0) facts_.size = skgfgfsz(&se, &context, chars, name.size());
  if (se.slercoer != 0) {
    sentence = fmt::format("The size of {} cannot be found out.", order.name);
    return false;
  }
  if (order.range.begin >= facts_.size && order.range.begin > 0) {
    sentence =
        fmt::format("{} has {} bytes and ends before the range begins.", order.name, facts_.size);
    return false;
  }
  facts_.range = widen(order.range, facts_.sector_size, facts_.size);

  // The page cache would answer for the disk; where a file system has no other way, it has to.
  inspect::Descriptor direct(open64(name.c_str(), O_RDONLY | O_CLOEXEC | O_DIRECT));
  facts_.direct = bool(direct);
  if (direct) file_ = std::move(direct);
  return true;
}

ssize_t Target::read(void *buffer, size_t bytes, uint64_t offset) const {
  ssize_t done;
  do {
    done = pread64(file_.get(), buffer, bytes, static_cast<off64_t>(offset));
  } while (done < 0 && errno == EINTR);
  return done;
}

}  // namespace vdadm::scan
