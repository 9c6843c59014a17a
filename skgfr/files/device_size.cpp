// The size of a device, from an open descriptor: by asking it, through its raw binding, or by
// reading.
//
// Uses no error record: a size that cannot be found is 0, with errno telling why.
#include "skgfr/files/device_size.hpp"

#include <linux/fs.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <limits>

#include "skgfr/base/aligned_buffer.hpp"
#include "skgfr/skgfr.h"

namespace {

using namespace skgfr;

constexpr off64_t sector = sector_size;
constexpr off64_t first_probe = off64_t{1} << 34;
constexpr off64_t last_offset = std::numeric_limits<off64_t>::max();
constexpr int most_probes = 100;

off64_t give_up() {
  errno = EIO;
  return 0;
}

bool lies_past_the_end(int error) { return error == EIO || error == ENXIO; }

int size_by_probing(int fd, off64_t *res) {
  *res = skgfgrsbs(fd);
  return 0;
}

/// The methods in the order of what they cost; the first that answers wins.
using SizeMethod = int (*)(int fd, off64_t *res);
constexpr SizeMethod methods[] = {skgfgrsbdev, skgfgrsraw, size_by_probing};

}  // namespace

namespace skgfr {

off64_t search_by_probing(ReadAt read_at, int fd) {
  alignas(sector_size) ub1 buffer[sector_size];
  off64_t readable = 0;         // the highest offset known to be readable
  off64_t limit = first_probe;  // the lowest known not to be, or the doubling target
  off64_t candidate = first_probe;
  bool any_readable = false;

  for (int probes = 0; probes < most_probes; ++probes) {
    if (limit - readable <= sector) {
      if (any_readable) return readable + sector;
      const ssize_t got = read_at(fd, buffer, sector_size, 0);
      if (got == sector) return sector;
      if (got >= 0) errno = 0;  // an older one would mislead
      return 0;
    }
    const ssize_t got = read_at(fd, buffer, sector_size, candidate);
    if (got < 0) {
      if (!lies_past_the_end(errno)) return 0;
      limit = candidate;
      candidate = (limit + readable) >> 1;
      continue;
    }
    if (got < sector) return candidate + got;

    any_readable = true;
    readable = candidate;
    if (limit != candidate) {
      candidate = (limit + readable) >> 1;
    } else if (readable > last_offset / 2) {
      return give_up();
    } else {
      candidate = limit = 2 * readable;
    }
  }
  return give_up();
}

bool reaches(int fd, ub4 blocks, size_t block_size, void *buffer) {
  const off64_t offset = (off64_t{blocks} - 1) * static_cast<off64_t>(block_size);
  if (lseek64(fd, offset, SEEK_SET) != offset) return false;
  return read(fd, buffer, block_size) == static_cast<ssize_t>(block_size);
}

}  // namespace skgfr

off64_t skgfgrs(sword fd) {
  off64_t size = 0;
  skgfgrswpc(fd, &size);
  return size;
}

int skgfgrswpc(sword fd, off64_t *res) {
  *res = 0;
  for (const SizeMethod method : methods) {
    errno = 0;
    if (method(fd, res) == 0) break;
  }
  return 0;
}

int skgfgrsbdev(int fd, off64_t *res) {
  unsigned long sectors = 0;
  if (ioctl(fd, BLKGETSIZE, &sectors) == 0) {
    *res = static_cast<off64_t>(ub8{sectors} * sector_size);
    return 0;
  }
  // From 2 TiB on the sectors do not fit a word of 32 bits.
  ub8 bytes = 0;
  if (errno != EFBIG || ioctl(fd, BLKGETSIZE64, &bytes) != 0) return -1;
  *res = static_cast<off64_t>(bytes);
  return 0;
}

off64_t skgfgrsbs(sword fd) { return search_by_probing(pread64, fd); }
