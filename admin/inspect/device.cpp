// A device or file as the system knows it: size, sector size, other names, bytes.
#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/sysmacros.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <new>

#include "admin/inspect/inspect.hpp"
#include "skgfr/client.h"

namespace vdadm::inspect {

namespace fs = std::filesystem;

namespace {

constexpr size_t alignment = 4096;

/// Reads until `length` bytes are there, the file ends, or an error comes; what came before it counts.
std::optional<size_t> read_whole(int fd, unsigned char *to, size_t length, uint64_t offset) {
  size_t done = 0;
  while (done < length) {
    const ssize_t got = pread64(fd, to + done, length - done, static_cast<off64_t>(offset + done));
    if (got < 0 && errno == EINTR) continue;
    if (got < 0 && done == 0) return {};
    if (got < 0) break;
    if (got == 0) break;
    done += static_cast<size_t>(got);
    if (static_cast<size_t>(got) % 512 != 0) break;  // the end of a file, inside a sector
  }
  return done;
}

/// Another descriptor of the same file, for direct I/O: what the page cache holds may be old where
/// other machines write the disk.
Descriptor reopen_direct(int fd) {
  const std::string self = "/proc/self/fd/" + std::to_string(fd);
  return Descriptor(open64(self.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_DIRECT));
}

}  // namespace

std::optional<uint64_t> size_of(int fd, const struct stat64 &status) {
  if (S_ISREG(status.st_mode)) return static_cast<uint64_t>(status.st_size);
  off64_t size = 0;
  if (S_ISBLK(status.st_mode) && skgfgrsbdev(fd, &size) == 0) return static_cast<uint64_t>(size);
  return {};
}

std::string literal(const std::string &resolved) {
  std::string out(2 * resolved.size() + 1, '\0');
  const auto *const from = reinterpret_cast<const text *>(resolved.data());
  out.resize(
      skgfr_protect_name(from, resolved.size(), reinterpret_cast<text *>(out.data()), out.size()));
  return out;
}

std::optional<uint64_t> sector_size_of(const std::string &resolved) {
  std::string name = literal(resolved);
  slerc se{};
  skgfrctx context{};
  const size_t size =
      skgfr_sector_size(&se, &context, reinterpret_cast<text *>(name.data()), name.size());
  if (se.slercoer != 0) return {};
  return size;
}

std::optional<std::vector<unsigned char>> read_at(int fd, uint64_t offset, size_t length) {
  const size_t room = (length + alignment - 1) / alignment * alignment;
  const std::unique_ptr<void, decltype(&std::free)> memory(std::aligned_alloc(alignment, room),
                                                           std::free);
  if (!memory) throw std::bad_alloc();
  unsigned char *const bytes = static_cast<unsigned char *>(memory.get());
  std::optional<size_t> got;
  const Descriptor direct = reopen_direct(fd);
  if (direct && offset % alignment == 0) got = read_whole(direct.get(), bytes, room, offset);
  if (!got && (!direct || offset % alignment != 0 || errno == EINVAL)) {
    got = read_whole(fd, bytes, length, offset);
  }
  if (!got) return {};
  return std::vector<unsigned char>(bytes, bytes + std::min(*got, length));
}

std::string sysfs_folder(dev_t device) {
  std::error_code missing;
  const fs::path link =
      "/sys/dev/block/" + std::to_string(major(device)) + ":" + std::to_string(minor(device));
  const fs::path folder = fs::canonical(link, missing);
  return missing ? "" : folder.string();
}

std::string first_line(const std::string &path) {
  std::ifstream file(path);
  std::string line;
  std::getline(file, line);
  return line;
}

std::vector<std::string> stable_names_of(dev_t device) {
  std::vector<std::string> names;
  std::error_code ignored;
  for (fs::recursive_directory_iterator entry("/dev/disk", ignored), end; entry != end;
       entry.increment(ignored)) {
    struct stat64 status {};
    if (!entry->is_symlink(ignored) || stat64(entry->path().c_str(), &status) != 0) continue;
    if (S_ISBLK(status.st_mode) && status.st_rdev == device) names.push_back(entry->path());
  }
  std::sort(names.begin(), names.end());
  return names;
}

}  // namespace vdadm::inspect
