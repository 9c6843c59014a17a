// Reads and judges headers: in a client's buffer, and behind a descriptor.
#include <unistd.h>

#include <cerrno>

#include "skgfr/block0/block0.hpp"
#include "skgfr/block0/layout.hpp"
#include "skgfr/skgfr.h"

namespace {

using namespace skgfr;

/// Brings the header into this machine's byte order and the current layout, in place. Its block
/// size, or 0 when it is no valid header. An old layout has to show its own magic before it is
/// touched: conversion would give it a valid one.
size_t settle(skgfrctx *ctx, void *block, skgfrf type) {
  if (type == skgfrfDCVT) skgfrbcvt(ctx, block);
  if (layout::is_old_layout(block)) {
    if (!layout::is_magic(layout::load<skgfrhblkv9>(block).magic_skgfrhblkv9)) return 0;
    skgfrhblk_cvtpre10(ctx, static_cast<skgfrhblk *>(block));
  }
  const skgfrhblk header = layout::load<skgfrhblk>(block);
  if (!layout::is_magic(header.magic_skgfrhblk)) return 0;
  return is_block_size(header.lblksiz_skgfrhblk) ? header.lblksiz_skgfrhblk : 0;
}

}  // namespace

namespace skgfr {

bool is_block_size(size_t size) {
  return size != 0 && size % sector_size == 0 && size <= skgfr_largest_block;
}

HeaderRead read_header(skgfrctx *ctx, int fd, skgfrf type) {
  alignas(largest_sector) ub1 block[largest_sector];  // a file may be shorter than that
  if (lseek64(fd, 0, SEEK_SET) != 0) return {HeaderOutcome::seek_failed, errno, 0};

  const ssize_t got = read(fd, block, sizeof block);
  if (got < 0) return {HeaderOutcome::short_read, errno, 0};
  if (got < static_cast<ssize_t>(sector_size)) return {HeaderOutcome::short_read, 0, 0};

  const size_t block_size = settle(ctx, block, type);
  return {block_size ? HeaderOutcome::valid : HeaderOutcome::invalid, 0, block_size};
}

bool accept(slerc *se, const HeaderRead &read, const HeaderReadSites &sites) {
  switch (read.outcome) {
    case HeaderOutcome::valid: return true;
    case HeaderOutcome::seek_failed: fail(se, sites.seek, read.error); return false;
    case HeaderOutcome::short_read: fail(se, sites.read, read.error); return false;
    case HeaderOutcome::invalid: fail(se, sites.invalid); return false;
  }
  return false;
}

}  // namespace skgfr

boolean skgfrchkhdr0(skgfrctx *, void *bp, size_t blen) {
  if (blen < sizeof(skgfrhblk)) return FALSE;
  if (layout::is_old_layout(bp)) {
    const skgfrhblkv9 old = layout::load<skgfrhblkv9>(bp);
    return layout::is_magic(old.magic_skgfrhblkv9) && is_block_size(old.lblksiz_skgfrhblkv9);
  }
  const skgfrhblk header = layout::load<skgfrhblk>(bp);
  return layout::is_magic(header.magic_skgfrhblk) && is_block_size(header.lblksiz_skgfrhblk);
}

dsize_t skgfrgbsz(slerc *se, skgfrctx *ctx, skgfrf ftype, void *bp) {
  begin(se);
  const size_t block_size = settle(ctx, bp, ftype);
  if (block_size == 0) fail(se, sites::header_invalid);
  return block_size;
}
