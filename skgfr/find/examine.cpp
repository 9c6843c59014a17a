// Examines one discovered path: may it be used, is it a device or an acceptable file, how large.
//
// Knows nothing of patterns and lists.
#include <fcntl.h>
#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "skgfr/base/descriptor.hpp"
#include "skgfr/base/error_sites.hpp"
#include "skgfr/base/file_facts.hpp"
#include "skgfr/skgfr.h"
#include "sysl/text.hpp"

namespace {

using namespace skgfr;

constexpr ub2 examined = 12;
constexpr ub4 block_size = 512;
constexpr ub8 mebibyte = ub8{1} << 20;
constexpr ub8 unknown_size = ~ub8{0};

/// A size in MiB; all ones when it does not fit the record.
ub4 in_mebibytes(ub8 size) {
  const ub8 whole = size / mebibyte;
  return whole < skgfrUNKNOWN ? static_cast<ub4>(whole) : skgfrUNKNOWN;
}

const char *path_of(const skgfrstat *dstat) { return sysl::chars(dstat->path_skgfrstat); }

bool refuse(slerc *se, const Site &site, int error) {
  fail(se, site, error);
  return false;
}

bool read_status(slerc *se, const char *path, struct stat64 &status) {
  if (access(path, R_OK | W_OK) != 0) return refuse(se, sites::examine_access, errno);
  if (stat64(path, &status) != 0) return refuse(se, sites::examine_stat, errno);
  return true;
}

/// Whether a path that is no device is a file to accept: any regular one, or one on NFS alone.
bool accept_file(slerc *se, const char *path, mode_t mode, bool nfs_only) {
  bool acceptable = S_ISREG(mode);
  if (acceptable && nfs_only) {
    struct statfs64 system;
    if (statfs64(path, &system) != 0) return refuse(se, sites::examine_stat, errno);
    acceptable = static_cast<ub4>(system.f_type) == NFS_SUPER_MAGIC;
  }
  return acceptable || refuse(se, sites::examine_kind, static_cast<int>(mode & S_IFMT));
}

/// All ones, with the failure in se, when the size cannot be found.
ub8 size_of_device(slerc *se, skgfrctx *ctx, const skgfrstat *dstat) {
  Descriptor device = open_file(path_of(dstat), O_RDONLY);
  if (!device) {
    fail(se, sites::examine_open, errno);
    return unknown_size;
  }
  const off64_t size = skgfgrs(device.get());
  device.close();
  if (size != 0) return static_cast<ub8>(size);
  return skgfgfsz(se, ctx, dstat->path_skgfrstat, std::strlen(path_of(dstat)));
}

void fill(skgfrstat *dstat, ub8 size) {
  dstat->flags_skgfrstat = examined;
  std::memset(dstat->udid_skgfrstat, 0, sizeof dstat->udid_skgfrstat);
  dstat->lbl_skgfrstat[0] = 0;
  dstat->blksz_skgfrstat = block_size;
  dstat->disksz_skgfrstat = in_mebibytes(size);
}

}  // namespace

boolean skgfrdevstat(slerc *se, skgfrctx *ctx, skgfrstat *dstat, boolean rawonly) {
  begin(se);
  struct stat64 status;
  if (!read_status(se, path_of(dstat), status)) return FALSE;
  const bool device = is_device(status.st_mode);
  if (!device && !accept_file(se, path_of(dstat), status.st_mode, rawonly != FALSE)) return FALSE;
  const ub8 size = device ? size_of_device(se, ctx, dstat) : static_cast<ub8>(status.st_size);
  if (size == unknown_size) return FALSE;
  fill(dstat, size);
  return TRUE;
}
