// Checks the mount options of a file on NFS: large transfers, hard mounts and, in a cluster, no
// attribute caching.
//
// Options are found by substring, so "noacl" satisfies "noac": administrators rely on what passed
// before. Knows nothing of file records.
#include "skgfr/files/mount_check.hpp"

#include <mntent.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "skgfr/base/client.hpp"
#include "skgfr/base/descriptor.hpp"
#include "skgfr/base/errno_guard.hpp"
#include "skgfr/base/file_name.hpp"

namespace {

using namespace skgfr;

constexpr char mount_table_name[] = "/etc/mtab";
constexpr int smallest_transfer = 16384;
constexpr size_t entry_room = 4096;

/// A name that the C library allocated.
struct FreeName {
  void operator()(char *name) const { std::free(name); }
};

/// An open mount table.
struct EndMountTable {
  void operator()(FILE *table) const {
    const ErrnoGuard guard;
    endmntent(table);
  }
};

/// A path that fits a name buffer.
struct Path {
  char chars[name_room];
};

/// The file's absolute name with every link resolved.
bool canonical_name(slerc *se, const char *name, Path &path) {
  const std::unique_ptr<char, FreeName> canonical(canonicalize_file_name(name));
  if (!canonical) {
    fail(se, sites::mount_canonical_name, errno);
    return false;
  }
  const size_t length = std::strlen(canonical.get());
  if (length >= sizeof path.chars) {
    fail(se, sites::mount_canonical_name, ENAMETOOLONG);
    return false;
  }
  std::memcpy(path.chars, canonical.get(), length + 1);
  return true;
}

/// The nearest directory above the path that lies on another device.
bool directory_on_other_device(slerc *se, const Path &path, dev_t device, Path &ancestor) {
  ancestor = path;
  for (;;) {
    char *const slash = std::strrchr(ancestor.chars, '/');
    slash[slash == ancestor.chars ? 1 : 0] = 0;
    struct stat64 status;
    if (stat64(ancestor.chars, &status) != 0) {
      fail(se, sites::mount_stat, errno);
      return false;
    }
    if (status.st_dev != device) return true;
    if (std::strcmp(ancestor.chars, "/") == 0) {
      fail(se, sites::mount_directory);
      return false;
    }
  }
}

/// Cuts the path to the directory where its file system is mounted: one step below the ancestor, or
/// the whole path when the file itself is the mount point.
bool mount_directory(slerc *se, Path &path, dev_t device) {
  Path ancestor;
  if (!directory_on_other_device(se, path, device, ancestor)) return false;
  const size_t length = std::strlen(path.chars);
  const size_t first = std::strlen(ancestor.chars) + 1;
  if (first >= length) return true;
  if (char *const end = std::strchr(path.chars + first, '/')) *end = 0;
  return true;
}

/// The first number anywhere behind the keyword; -1 when either is missing.
long value_of(const char *options, const char *keyword) {
  const char *const found = std::strstr(options, keyword);
  const char *const digits =
      found ? std::strpbrk(found + std::strlen(keyword), "0123456789") : nullptr;
  return digits ? std::strtol(digits, nullptr, 10) : -1;
}

bool options_are_safe(const char *options, bool cluster) {
  if (value_of(options, "wsize") < smallest_transfer) return false;
  if (value_of(options, "rsize") < smallest_transfer) return false;
  if (!std::strstr(options, "hard")) return false;
  return !cluster || std::strstr(options, "noac") || value_of(options, "actimeo") == 0;
}

void warn(const skgfrctx *ctx, const char *directory, bool cluster) {
  client::alert(ctx, "WARNING:NFS file system %s mounted with incorrect options\n", directory);
  client::alert(ctx,
                cluster ? "WARNING:Expected NFS mount options: "
                          "rsize>=%d,wsize>=%d,hard,noac/actimeo=0\n"
                        : "WARNING:Expected NFS mount options: rsize>=%d,wsize>=%d,hard\n",
                smallest_transfer, smallest_transfer);
}

}  // namespace

bool skgfr::has_safe_mount(slerc *se, const skgfrctx *ctx, const char *name, dev_t device) {
  Path directory;
  if (!canonical_name(se, name, directory)) return false;
  if (!mount_directory(se, directory, device)) return false;

  const auto open_table = [] { return setmntent(mount_table_name, "r"); };
  const auto table = open_stream<std::unique_ptr<FILE, EndMountTable>>(open_table, fileno);
  if (!table) {
    fail(se, sites::mount_table, errno);
    return false;
  }
  const bool cluster = ctx && (ctx->flags_skgfrctx & skgfrcCLUSTER);
  mntent entry;
  char strings[entry_room];
  while (getmntent_r(table.get(), &entry, strings, sizeof strings)) {
    if (std::strcmp(entry.mnt_dir, directory.chars) != 0) continue;
    if (options_are_safe(entry.mnt_opts, cluster)) return true;
    warn(ctx, directory.chars, cluster);
    fail(se, sites::mount_options);
    return false;
  }
  return true;  // the table does not tell
}
