// The sector size of a file or device: what direct I/O on it is a multiple of.
//
// Asks the system; tries nothing out. Contexts do not matter to the answer.
#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <cerrno>

#include "skgfr/base/aligned_buffer.hpp"
#include "skgfr/base/descriptor.hpp"
#include "skgfr/base/file_facts.hpp"
#include "skgfr/base/file_name.hpp"
#include "skgfr/client.h"

namespace {

using namespace skgfr;

/// By the device itself; 0 when it has no sectors.
size_t sector_size_of(const Descriptor &device) {
  int size = 0;
  if (!device || ioctl(device.get(), BLKSSZGET, &size) != 0 || size < 0) return 0;
  return static_cast<size_t>(size);
}

/// By the file system; 0 when it does not tell, or knows no direct I/O on this file.
size_t tell_alignment(const char *name) {
#ifdef STATX_DIOALIGN
  struct statx status;
  if (statx(AT_FDCWD, name, 0, STATX_DIOALIGN, &status) != 0) return 0;
  return status.stx_mask & STATX_DIOALIGN ? status.stx_dio_offset_align : 0;
#else
  static_cast<void>(name);
  return 0;
#endif
}

/// By the disk below a file; 0 where there is none, or it may not be opened.
size_t sector_size_below(const struct stat64 &status) {
  const int major_number = static_cast<int>(major(status.st_dev));
  const int minor_number = static_cast<int>(minor(status.st_dev));
  return sector_size_of(Descriptor(skgfgrsobid(major_number, minor_number)));
}

}  // namespace

size_t skgfr_sector_size(slerc *se, skgfrctx *, text *fnamep, size_t fnamel) {
  begin(se);
  FileName name;
  if (!name.normalise(se, fnamep, fnamel, sites::sector_size_name)) return 0;
  struct stat64 status;
  if (stat64(name.chars(), &status) != 0) {
    fail(se, sites::sector_size_stat, errno);
    return 0;
  }
  size_t found = 0;
  if (is_device(status.st_mode)) {
    const Descriptor device = open_file(name.chars(), O_RDONLY);
    if (!device) {
      fail(se, sites::sector_size_open, errno);
      return 0;
    }
    found = sector_size_of(device);
  } else {
    found = tell_alignment(name.chars());
    if (found == 0) found = sector_size_below(status);
  }
  return found ? found : sector_size;
}
