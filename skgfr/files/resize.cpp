// Changes and recomputes the size of an identified file, and arms its forced failures.
//
// Opens the file itself: it need not be open through the layer.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "skgfr/base/descriptor.hpp"
#include "skgfr/base/extensions.hpp"
#include "skgfr/base/file_facts.hpp"
#include "skgfr/base/file_name.hpp"
#include "skgfr/block0/block0.hpp"
#include "skgfr/files/device_size.hpp"
#include "skgfr/skgfr.h"

namespace {

using namespace skgfr;

constexpr HeaderWriteSites write_sites{sites::resize_seek, sites::resize_old_layout_memory,
                                       sites::resize_write};

/// The sites of the checks that resize and recomputation begin with.
struct EntrySites {
  Site seal, block_size, stat;
};
constexpr EntrySites resize_entry{sites::resize_seal, sites::resize_block_size, sites::resize_stat};
constexpr EntrySites recompute_entry{sites::recompute_seal, sites::recompute_block_size,
                                     sites::recompute_stat};

skgfrsfib *enter(slerc *se, skgfrfib *fib, struct stat64 &status, const EntrySites &entry) {
  begin(se);
  skgfrsfib *const file = sealed(se, fib, entry.seal);
  if (!file) return nullptr;
  if (fib->lblksiz_skgfrfib == 0) {
    fail(se, entry.block_size, 0, 0);
    return nullptr;
  }
  if (stat64(name_of(fib), &status) != 0) {
    fail(se, entry.stat, errno);
    return nullptr;
  }
  return file;
}

bool within_limit(slerc *se, const skgfrctx *ctx, const skgfrfib *fib, ub4 total_blocks) {
  const ub4 limit = size_limit_in_blocks(ctx, fib->lblksiz_skgfrfib);
  const bool fits = limit != 0 && !exceeds(total_blocks, limit);
  if (!fits) fail(se, sites::resize_limit);
  return fits;
}

Descriptor open_named(skgfrctx *ctx, const skgfrfib *fib, mode_t mode, int access) {
  const int direct = skgfr_cfsdirectio(ctx, name_of(fib), mode, fib->flags_skgfrfib);
  return open_file(name_of(fib), access | direct);
}

bool stamp(slerc *se, skgfrctx *ctx, skgfrfib *fib, int fd, ub4 blocks, mode_t mode, void *block) {
  if (header_blocks(fib) == 0) return true;
  extension(fib)->blk1offset_skgfrsfib = fib->lblksiz_skgfrfib;
  const HeaderFields fields{fib->lblksiz_skgfrfib, blocks, mode};
  return write_header(se, ctx, fd, fields, fib->ftype_skgfrfib, block, write_sites);
}

bool resize_file(slerc *se, skgfrfib *fib, int fd, ub4 blocks) {
  const ub4 total = header_blocks(fib) + blocks;
  if (blocks != skgfrUNKNOWN) {
    const off64_t length = static_cast<off64_t>(ub8{total} * fib->lblksiz_skgfrfib);
    if (ftruncate64(fd, length) != 0) {
      fail(se, sites::resize_length, errno);
      return false;
    }
  }
  extension(fib)->lastblk_skgfrsfib = blocks == skgfrUNKNOWN ? skgfrUNKNOWN : total;
  fib->filsiz_skgfrfib = blocks;
  return true;
}

/// A device cannot grow; it can be made to look smaller than it is.
bool resize_device(slerc *se, skgfrfib *fib, int fd, ub4 blocks, void *buffer) {
  skgfrsfib *const file = extension(fib);
  const size_t block_size = fib->lblksiz_skgfrfib;
  const ub4 total = header_blocks(fib) + blocks;
  const ub8 size = static_cast<ub8>(skgfgrs(fd));
  if (size == 0 && blocks == skgfrUNKNOWN) {
    file->lastblk_skgfrsfib = fib->filsiz_skgfrfib = skgfrUNKNOWN;
    return true;
  }
  const bool fits = size == 0 ? reaches(fd, total, block_size, buffer)
                              : static_cast<ub4>(size / block_size) >= total;
  if (!fits) {
    file->lastblk_skgfrsfib = 0;
    fail(se, size == 0 ? sites::resize_device_unreachable : sites::resize_device_small);
    return false;
  }
  file->lastblk_skgfrsfib = total;
  fib->filsiz_skgfrfib = total - 1;
  return true;
}

}  // namespace

void skgfrsz(slerc *se, skgfrctx *ctx, skgfrfib *fib, ub4 nblocks) {
  struct stat64 status;
  if (!enter(se, fib, status, resize_entry)) return;
  const mode_t mode = status.st_mode;
  if (nblocks != 0 && ends_inside_block(fib, status)) return fail(se, sites::resize_uneven);
  if (!is_device(mode) && !within_limit(se, ctx, fib, header_blocks(fib) + nblocks)) return;

  Descriptor file = open_named(ctx, fib, mode, O_RDWR);
  if (!file) return fail(se, sites::resize_open, errno);
  const AlignedBuffer block(fib->lblksiz_skgfrfib);
  if (!block) return fail(se, sites::resize_memory, errno);

  if (!stamp(se, ctx, fib, file.get(), nblocks, mode, block.data())) return;
  const bool resized = is_device(mode) ? resize_device(se, fib, file.get(), nblocks, block.data())
                                       : resize_file(se, fib, file.get(), nblocks);
  if (resized && !file.close()) fail(se, sites::resize_close, errno);
}

void skgfrfb(slerc *se, skgfrctx *ctx, skgfrfib *fib) {
  struct stat64 status;
  skgfrsfib *const record = enter(se, fib, status, recompute_entry);
  if (!record) return;
  const bool device = is_device(status.st_mode);
  const ub8 file_bytes = static_cast<ub8>(status.st_size);
  if (ends_inside_block(fib, status)) return fail(se, sites::recompute_uneven);
  if (header_blocks(fib) == 0) {
    if (!device) fib->filsiz_skgfrfib = static_cast<ub4>(file_bytes / fib->lblksiz_skgfrfib);
    return;
  }

  Descriptor file = open_named(ctx, fib, status.st_mode, O_RDONLY);
  if (!file) return fail(se, sites::recompute_open, errno);
  const ub8 bytes = device ? static_cast<ub8>(skgfgrs(file.get())) : file_bytes;
  const bool unknown = device && bytes == 0;
  record->lastblk_skgfrsfib =
      unknown ? skgfrUNKNOWN : static_cast<ub4>(bytes / fib->lblksiz_skgfrfib);
  fib->filsiz_skgfrfib = unknown ? skgfrUNKNOWN : record->lastblk_skgfrsfib - 1;
  if (!file.close()) fail(se, sites::recompute_close, errno);
}

void skgfrser(slerc *se, skgfrctx *, skgfrfib *fib, ub2 count) {
  begin(se);
  if (!sealed(se, fib, sites::forced_failures_seal)) return;
  fib->serr_skgfrfib = count;
}
