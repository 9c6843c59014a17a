// Puts block 0 on disk: for creation and resize, and in place on an open file.
#include <unistd.h>

#include <cerrno>

#include "skgfr/base/client.hpp"
#include "skgfr/base/extensions.hpp"
#include "skgfr/base/file_facts.hpp"
#include "skgfr/block0/build.hpp"
#include "skgfr/skgfr.h"

namespace {

using namespace skgfr;

bool seek_to_start(slerc *se, int fd, const Site &refused) {
  if (lseek64(fd, 0, SEEK_SET) == 0) return true;
  fail(se, refused, errno);
  return false;
}

bool write_whole(slerc *se, int fd, const void *block, size_t size, const Site &refused) {
  const ssize_t written = write(fd, block, size);
  if (written == static_cast<ssize_t>(size)) return true;
  fail(se, refused, written < 0 ? errno : 0);
  return false;
}

}  // namespace

namespace skgfr {

bool write_header(slerc *se, skgfrctx *ctx, int fd, const HeaderFields &fields, skgfrf type,
                  void *zeroed_block, const HeaderWriteSites &sites) {
  const bool old_layout = client::wants_old_layout(ctx);
  build_current(ctx, zeroed_block, fields, old_layout);
  if (!seek_to_start(se, fd, sites.seek)) return false;
  if (!finish_layout(se, ctx, zeroed_block, fields.block_size, old_layout, type,
                     sites.old_layout_memory)) {
    return false;
  }
  return write_whole(se, fd, zeroed_block, fields.block_size, sites.write);
}

}  // namespace skgfr

void skgfrupd_blk0_v10(slerc *se, skgfrctx *ctx, skgfriov *iov) {
  begin(se);
  skgfrsiov *const handle = sealed(se, iov, sites::upgrade_seal);
  if (!handle) return;
  skgfrfib *const fib = iov->fib_skgfriov;
  const size_t block_size = fib->lblksiz_skgfrfib;
  // Without a header block 0 is data; without a block size there is no known number of blocks either.
  if (block_size == 0 || header_blocks(fib) == 0) return fail(se, sites::upgrade_memory, EINVAL);
  const AlignedBuffer block(block_size);
  if (!block) return fail(se, sites::upgrade_memory, errno);

  handle->offset_skgfrsiov = skgfrUNKNOWN;  // the position moves from here on
  if (!seek_to_start(se, handle->fd_skgfrsiov, sites::upgrade_seek)) return;
  const HeaderFields fields{block_size, fib->filsiz_skgfrfib, extension(fib)->ftyp_skgfrsfib};
  build_current(ctx, block.data(), fields, false);
  if (fib->ftype_skgfrfib == skgfrfDCVT) swap_fields(block.data(), false);
  write_whole(se, handle->fd_skgfrsiov, block.data(), block_size, sites::upgrade_write);
}
