// Who has a disk or a file: mounts, swap, devices on top of it, loop devices, processes, locks.
//
// A disk's partitions count as the disk.
#include <dirent.h>
#include <libmount.h>
#include <sys/sysmacros.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <memory>
#include <set>
#include <sstream>

#include "admin/inspect/inspect.hpp"

namespace vdadm::inspect {

namespace fs = std::filesystem;

namespace {

std::optional<dev_t> device_number(const std::string &text) {
  std::istringstream words(text);
  unsigned major = 0, minor = 0;
  char colon = 0;
  if (!(words >> major >> colon >> minor)) return {};
  return makedev(major, minor);
}

std::vector<fs::path> entries_of(const fs::path &folder) {
  std::error_code missing;
  std::vector<fs::path> entries;
  for (fs::directory_iterator entry(folder, missing), end; entry != end; entry.increment(missing)) {
    entries.push_back(entry->path());
  }
  std::sort(entries.begin(), entries.end());
  return entries;
}

/// What is looked for: a device with its partitions, or a file.
class Target {
 public:
  explicit Target(const struct stat64 &status) : status_(status) {
    if (!is_block()) return;
    devices_.insert(status.st_rdev);
    for (const fs::path &entry : entries_of(sysfs_folder(status.st_rdev))) {
      if (!fs::exists(entry / "partition")) continue;
      if (const auto number = device_number(first_line(entry / "dev"))) devices_.insert(*number);
    }
  }

  bool is_block() const { return S_ISBLK(status_.st_mode); }
  const std::set<dev_t> &devices() const { return devices_; }
  const struct stat64 &status() const { return status_; }
  bool has(dev_t device) const { return devices_.count(device) != 0; }

  bool is(const struct stat64 &other) const {
    if (S_ISBLK(other.st_mode)) return has(other.st_rdev);
    if (S_ISCHR(status_.st_mode) || S_ISCHR(other.st_mode)) {
      return S_ISCHR(status_.st_mode) && S_ISCHR(other.st_mode) && status_.st_rdev == other.st_rdev;
    }
    return !is_block() && other.st_dev == status_.st_dev && other.st_ino == status_.st_ino;
  }
  bool is(const std::string &path) const {
    struct stat64 status {};
    return stat64(path.c_str(), &status) == 0 && is(status);
  }

  /// The name of a device when it is not the one that was asked for.
  std::string name_of(dev_t device) const {
    const std::string folder = sysfs_folder(device);
    return folder.empty() ? "" : "/dev/" + fs::path(folder).filename().string();
  }

 private:
  struct stat64 status_;
  std::set<dev_t> devices_;
};

using Table = std::unique_ptr<libmnt_table, decltype(&mnt_unref_table)>;
using Iterator = std::unique_ptr<libmnt_iter, decltype(&mnt_free_iter)>;

/// Calls `use` for each row of a table of libmount's.
template <class Use>
void each_row(libmnt_table *rows, Use use) {
  const Table table(rows, mnt_unref_table);
  const Iterator at(mnt_new_iter(MNT_ITER_FORWARD), mnt_free_iter);
  libmnt_fs *row = nullptr;
  while (table && at && mnt_table_next_fs(table.get(), at.get(), &row) == 0) use(row);
}

std::string or_empty(const char *text) { return text ? text : ""; }

/// Some file systems show a number of their own in the table, and the device only by its name. The
/// source is looked at only where it is a device of this machine: a stat elsewhere may wait.
void find_mounts(const Target &target, std::vector<Holder> &holders) {
  if (!target.is_block()) return;
  each_row(mnt_new_table_from_file("/proc/self/mountinfo"), [&](libmnt_fs *row) {
    const std::string source = or_empty(mnt_fs_get_source(row));
    const bool named = source.starts_with("/dev/") && target.is(source);
    if (!named && !target.has(mnt_fs_get_devno(row))) return;
    holders.push_back({"mount", or_empty(mnt_fs_get_target(row)), source, 0, true});
  });
}

void find_swap(const Target &target, std::vector<Holder> &holders) {
  libmnt_table *const rows = mnt_new_table();
  if (rows) mnt_table_parse_swaps(rows, nullptr);
  each_row(rows, [&](libmnt_fs *row) {
    const std::string source = or_empty(mnt_fs_get_source(row));
    if (target.is(source)) holders.push_back({"swap", source, source, 0, true});
  });
}

void find_stacks(const Target &target, std::vector<Holder> &holders) {
  for (const dev_t device : target.devices()) {
    for (const fs::path &entry : entries_of(sysfs_folder(device) + "/holders")) {
      const std::string name = "/dev/" + entry.filename().string();
      holders.push_back({"device", name, target.name_of(device), 0, true});
    }
  }
}

void find_loops(const Target &target, std::vector<Holder> &holders) {
  for (const fs::path &entry : entries_of("/sys/block")) {
    const std::string backing = first_line(entry / "loop/backing_file");
    if (backing.empty() || !target.is(backing)) continue;
    holders.push_back({"loop", "/dev/" + entry.filename().string(), "", 0, true});
  }
}

/// Whether a descriptor of a process is open for writing.
bool is_for_writing(const fs::path &process, const std::string &descriptor) {
  std::ifstream info(process / "fdinfo" / descriptor);
  for (std::string key, value; info >> key >> value;) {
    if (key == "flags:") return (std::stoul(value, nullptr, 8) & O_ACCMODE) != O_RDONLY;
  }
  return false;
}

void find_processes(const Target &target, std::vector<Holder> &holders) {
  for (const fs::path &process : entries_of("/proc")) {
    const std::string number = process.filename();
    if (number.find_first_not_of("0123456789") != std::string::npos) continue;
    const uint64_t id = std::stoull(number);
    if (id == static_cast<uint64_t>(getpid()) || id == static_cast<uint64_t>(getppid())) continue;
    bool holds = false, writes = false;
    for (const fs::path &descriptor : entries_of(process / "fd")) {
      struct stat64 status {};
      // A descriptor's own status, which is there already: nothing waits for the disk.
      if (stat64(descriptor.c_str(), &status) != 0 || !target.is(status)) continue;
      holds = true;
      writes = writes || is_for_writing(process, descriptor.filename());
    }
    if (holds) holders.push_back({"process", first_line(process / "comm"), "", id, writes});
  }
}

/// Lines of /proc/locks: "1: POSIX  ADVISORY  WRITE 123 08:01:5678 0 EOF".
void find_locks(const Target &target, std::vector<Holder> &holders) {
  std::ifstream locks("/proc/locks");
  for (std::string line; std::getline(locks, line);) {
    std::istringstream words(line);
    std::string number, kind, manner, access, process, place;
    if (!(words >> number >> kind >> manner >> access >> process >> place)) continue;
    std::istringstream numbers(place);
    unsigned major = 0, minor = 0;
    uint64_t inode = 0;
    char colon = 0;
    if (!(numbers >> std::hex >> major >> colon >> minor >> colon >> std::dec >> inode)) continue;
    const struct stat64 &status = target.status();
    if (makedev(major, minor) != status.st_dev || inode != status.st_ino) continue;
    const uint64_t id = std::strtoull(process.c_str(), nullptr, 10);
    if (id == static_cast<uint64_t>(getpid())) continue;
    holders.push_back(
        {"lock", first_line("/proc/" + process + "/comm"), "", id, access == "WRITE"});
  }
}

using Search = void (*)(const Target &target, std::vector<Holder> &holders);
constexpr Search searches[] = {find_mounts, find_swap, find_stacks, find_loops, find_locks};

}  // namespace

std::vector<Holder> holders_of(const struct stat64 &status, bool processes) {
  const Target target(status);
  std::vector<Holder> holders;
  for (const Search search : searches) search(target, holders);
  if (processes) find_processes(target, holders);
  return holders;
}

}  // namespace vdadm::inspect
