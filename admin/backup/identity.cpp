// Which disk a backup is of. The place where a disk is plugged in is no part of that, and neither is what
// is recorded on it.
#include <fcntl.h>
#include <fmt/format.h>
#include <sys/statfs.h>
#include <sys/sysmacros.h>

#include <algorithm>
#include <filesystem>

#include "admin/backup/backup.hpp"

namespace vdadm::backup {

namespace {

namespace fs = std::filesystem;
using inspect::Facts;
using inspect::first_line;

void add(Identity &identity, const char *key, const std::string &value) {
  const size_t from = value.find_first_not_of(' '), to = value.find_last_not_of(' ');
  if (from != std::string::npos) identity.emplace_back(key, value.substr(from, to - from + 1));
}

/// A number may be used again when a file is deleted; its time of birth is not.
void add_file(Identity &identity, const std::string &path, const char *prefix) {
  struct statx status {};
  if (statx(AT_FDCWD, path.c_str(), 0, STATX_BTIME | STATX_INO, &status) != 0) return;
  add(identity, fmt::format("{}inode", prefix).c_str(), std::to_string(status.stx_ino));
  if (status.stx_mask & STATX_BTIME) {
    add(identity, fmt::format("{}born", prefix).c_str(),
        fmt::format("{}.{:09}", status.stx_btime.tv_sec, status.stx_btime.tv_nsec));
  }
}

/// A partition is its disk's, with a number and a beginning.
void add_device(Identity &identity, const Facts &facts) {
  fs::path folder = inspect::sysfs_folder(facts.status.st_rdev);
  if (folder.empty()) return;
  if (fs::exists(folder / "partition")) {
    add(identity, "partition", first_line(folder / "partition"));
    add(identity, "start", first_line(folder / "start"));
    folder = folder.parent_path();
  }
  for (const char *const file :
       {"serial", "wwid", "device/serial", "device/wwid", "dm/uuid", "md/uuid"}) {
    add(identity, file, first_line(folder / file));
  }
  const std::string backing = first_line(folder / "loop/backing_file");
  if (!backing.empty()) add_file(identity, backing, "backing_");
  for (const std::string &name : facts.stable_names) {
    if (name.starts_with("/dev/disk/by-id/")) add(identity, "by_id", name);
  }
}

std::vector<std::string> values_of(const Identity &identity, const std::string &key) {
  std::vector<std::string> values;
  for (const auto &[name, value] : identity) {
    if (name == key) values.push_back(report::printable(value));
  }
  return values;
}

/// A disk may have got another name beside its old ones: one in common will do.
bool have_common(const std::vector<std::string> &a, const std::vector<std::string> &b) {
  return std::any_of(a.begin(), a.end(), [&](const std::string &value) {
    return std::find(b.begin(), b.end(), value) != b.end();
  });
}

std::string joined(const std::vector<std::string> &values) {
  return values.empty() ? "not known" : fmt::format("{}", fmt::join(values, ", "));
}

}  // namespace

Identity identity_of(const Facts &facts) {
  Identity identity;
  if (facts.is_block_device()) add_device(identity, facts);
  if (facts.is_file()) add_file(identity, facts.resolved, "");
  return identity;
}

std::optional<std::string> tell_apart(const Backup &backup, const Facts &facts) {
  const char *const kind = inspect::kind_of(facts);
  if (!kind || backup.kind != kind) {
    return fmt::format("The backup is of a {} and {} is a {}.", backup.kind, facts.name,
                       kind ? kind : "name without a file");
  }
  const Identity now = identity_of(facts);
  for (const auto &[key, value] : backup.identity) {
    const auto recorded = values_of(backup.identity, key), found = values_of(now, key);
    if (have_common(recorded, found)) continue;
    return fmt::format("The backup is of another one: its {} was {}, and that of {} is {}.", key,
                       joined(recorded), facts.name, joined(found));
  }
  if (backup.identity.empty() && backup.name != report::printable(facts.resolved)) {
    return fmt::format("The disk of the backup had no number of its own and was called {}, not {}.",
                       backup.name, facts.resolved);
  }
  return {};
}

}  // namespace vdadm::backup
