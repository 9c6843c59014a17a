// Identification: turns a name into a filled and sealed information block.
//
// The file is open only while the call runs. Mount options are mount_check's, device sizes are
// device_size's, and reading block 0 is block0's business.
#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>

#include "skgfr/base/descriptor.hpp"
#include "skgfr/base/extensions.hpp"
#include "skgfr/base/file_facts.hpp"
#include "skgfr/base/file_name.hpp"
#include "skgfr/base/io_options.hpp"
#include "skgfr/block0/block0.hpp"
#include "skgfr/client.h"
#include "skgfr/files/mount_check.hpp"

namespace {

using namespace skgfr;

constexpr HeaderReadSites read_sites{sites::identify_seek, sites::identify_read,
                                     sites::identify_invalid};

bool name_and_status(slerc *se, skgfrfib *fib, const text *name, size_t length,
                     struct stat64 &status) {
  if (!normalise(se, name, length, fib->fnm_skgfrfib, &fib->fnl_skgfrfib, sites::identify_name)) {
    return false;
  }
  if (stat64(name_of(fib), &status) != 0) {
    fail(se, sites::identify_stat, errno);
    return false;
  }
  if (S_ISFIFO(status.st_mode) || S_ISDIR(status.st_mode)) {
    fail(se, sites::identify_kind);
    return false;
  }
  return true;
}

void fill_constants(skgfrfib *fib, const struct stat64 &status) {
  fib->pblksiz_skgfrfib = sector_size;
  fib->maxvec_skgfrfib = skgfr_longest_vector;
  fib->serr_skgfrfib = 0;
  char *const device = extension(fib)->device_skgfrsfib;
  std::snprintf(device, sizeof extension(fib)->device_skgfrsfib, "%lu",
                static_cast<unsigned long>(static_cast<ub4>(status.st_dev)));
}

void set_size(skgfrfib *fib, ub4 blocks, ub4 last_block) {
  fib->filsiz_skgfrfib = blocks;
  extension(fib)->lastblk_skgfrsfib = last_block;
}

/// Learns the block size from block 0; the number of blocks stays open.
bool size_from_header(slerc *se, skgfrctx *ctx, skgfrfib *fib, int fd) {
  const HeaderRead header = read_header(ctx, fd, fib->ftype_skgfrfib);
  if (!accept(se, header, read_sites)) return false;
  extension(fib)->blk1offset_skgfrsfib = header.block_size;
  set_size(fib, 0, 2);
  return true;
}

void size_with_header(skgfrfib *fib, const struct stat64 &status, ub8 device_size) {
  extension(fib)->blk1offset_skgfrsfib = fib->lblksiz_skgfrfib;
  const bool device = is_device(status.st_mode);
  const ub8 bytes = device ? device_size : static_cast<ub8>(status.st_size);
  const ub4 blocks = static_cast<ub4>(bytes / fib->lblksiz_skgfrfib);
  // A regular file of block 0 alone may still grow.
  const bool unbounded = device ? bytes == 0 : blocks == 1;
  if (unbounded) return set_size(fib, skgfrUNKNOWN, skgfrUNKNOWN);
  set_size(fib, blocks - 1, blocks);
}

void size_without_header(skgfrfib *fib, const struct stat64 &status) {
  extension(fib)->blk1offset_skgfrsfib = 0;
  if (is_device(status.st_mode) || fib->lblksiz_skgfrfib == 0) {
    return set_size(fib, 1, skgfrUNKNOWN);
  }
  const ub8 blocks = static_cast<ub8>(status.st_size) / fib->lblksiz_skgfrfib;
  set_size(fib, static_cast<ub4>(blocks), static_cast<ub4>(blocks));
}

bool find_sizes(slerc *se, skgfrctx *ctx, skgfrfib *fib, const struct stat64 &status, int fd) {
  if (header_blocks(fib) == 0) {
    size_without_header(fib, status);
    return true;
  }
  const off64_t device_size = is_device(status.st_mode) ? skgfgrs(fd) : 0;
  if (fib->lblksiz_skgfrfib == 0) return size_from_header(se, ctx, fib, fd);
  size_with_header(fib, status, static_cast<ub8>(device_size));
  return true;
}

bool needs_mount_check(const skgfrfib *fib, const struct stat64 &status, int fd) {
  return S_ISREG(status.st_mode) && !(fib->flags_skgfrfib & skgfrbNONFS) && is_on_nfs(fd);
}

/// Everything that needs the file open; it is closed again on every path.
bool examine(slerc *se, skgfrctx *ctx, skgfrfib *fib, const struct stat64 &status) {
  const char *const name = name_of(fib);
  const int direct = skgfr_cfsdirectio(ctx, name, status.st_mode, fib->flags_skgfrfib);
  Descriptor file = open_file(name, O_RDONLY | direct);
  if (!file) {
    fail(se, sites::identify_open, errno);
    return false;
  }
  if (needs_mount_check(fib, status, file.get()) && !has_safe_mount(se, ctx, name, status.st_dev)) {
    return false;
  }
  if (!find_sizes(se, ctx, fib, status, file.get())) return false;
  if (file.close()) return true;
  fail(se, sites::identify_close, errno);
  return false;
}

skgfrr missing_or_error(const slerc *se) {
  const bool missing = se->slercoer == sites::identify_stat.code && se->slercerrno == ENOENT;
  return missing ? skgfrrNOTFOUND : skgfrrERROR;
}

}  // namespace

skgfrr skgfifi(slerc *se, skgfrctx *ctx, skgfrfib *fib, text *fnamep, size_t fnamel) {
  begin(se);
  skgfrsfib *const file = extension(fib);
  *file = skgfrsfib{};
  const size_t block_size = fib->lblksiz_skgfrfib;
  if (block_size != 0 && !is_block_size(block_size)) {
    fail(se, sites::identify_block_size, 0, static_cast<ub4>(block_size));
    return skgfrrERROR;
  }
  struct stat64 status;
  if (!name_and_status(se, fib, fnamep, fnamel, status)) return missing_or_error(se);

  const bool uneven = ends_inside_block(fib, status);
  if (uneven) fail(se, sites::identify_size);
  fill_constants(fib, status);
  if (!examine(se, ctx, fib, status)) return skgfrrERROR;

  file->ftyp_skgfrsfib = status.st_mode;
  file->seal_skgfrsfib = skgfrSEAL;
  return uneven ? skgfrrSZERR : skgfrrOK;
}
