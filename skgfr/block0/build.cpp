// Builds block 0 in memory, in either layout and either byte order.
//
// Knows nothing of files: write.cpp puts the block on disk.
#include "skgfr/block0/build.hpp"

#include "skgfr/base/client.hpp"
#include "skgfr/block0/layout.hpp"
#include "skgfr/skgfr.h"

namespace skgfr {

void build_current(skgfrctx *ctx, void *block, const HeaderFields &fields, bool old_layout) {
  skgfrhblk header = layout::load<skgfrhblk>(block);
  header.kcbh_skgfrhblk.frmt_kcbh =
      old_layout ? layout::uncoded_format : layout::format_byte(fields.block_size);
  header.kcbh_skgfrhblk.rdba_kcbh = layout::block_address;
  header.kcbh_skgfrhblk.chkval_kcbh = 0;
  header.lblksiz_skgfrhblk = static_cast<ub4>(fields.block_size);
  header.fsize_skgfrhblk = fields.blocks;
  header.magic_skgfrhblk = layout::current_magic;
  header.type_skgfrhblk = fields.mode;
  layout::store(block, header);

  // The client sums the block as it will be written, the check value's own field being 0.
  header.kcbh_skgfrhblk.chkval_kcbh = client::checksum(ctx, block, fields.block_size);
  layout::store(block, header);
}

void swap_fields(void *block, bool old_layout) {
  const auto reverse = [block](const layout::Field &field) {
    ub1 *first = static_cast<ub1 *>(block) + field.offset;
    for (ub1 *last = first + field.width - 1; first < last; ++first, --last) {
      const ub1 byte = *first;
      *first = *last;
      *last = byte;
    }
  };
  if (old_layout) {
    for (const layout::Field &field : layout::old_fields) reverse(field);
  } else {
    for (const layout::Field &field : layout::current_fields) reverse(field);
  }
}

bool finish_layout(slerc *se, skgfrctx *ctx, void *block, size_t block_size, bool old_layout,
                   uword type, const Site &no_memory) {
  if (old_layout) {
    const AlignedBuffer old_block(block_size);
    if (!old_block) {
      fail(se, no_memory, errno);
      return false;
    }
    skgfrhblk_writepre10(ctx, static_cast<skgfrhblk *>(block),
                         static_cast<skgfrhblkv9 *>(old_block.data()));
    std::memcpy(block, old_block.data(), block_size);
  }
  if (type == skgfrfDCVT) skgfrbcvt(ctx, block);
  return true;
}

}  // namespace skgfr

using namespace skgfr;

void skgfrfhblk(slerc *se, skgfrctx *ctx, void *bp, ub4 fsiz, size_t blksiz, uword ftyp) {
  begin(se);
  const bool old_layout = client::wants_old_layout(ctx);
  build_current(ctx, bp, HeaderFields{blksiz, fsiz, 0}, old_layout);
  finish_layout(se, ctx, bp, blksiz, old_layout, ftyp, sites::header_old_layout_memory);
}

void skgfrhblk_writepre10(skgfrctx *ctx, skgfrhblk *hbp, skgfrhblkv9 *p10bp) {
  const skgfrhblk header = layout::load<skgfrhblk>(hbp);
  const size_t block_size = header.lblksiz_skgfrhblk;

  skgfrhblkv9 old = layout::load<skgfrhblkv9>(p10bp);
  old.spare_skgfrhblkv9 = header.kcbh_skgfrhblk.type_kcbh;
  old.frmt_skgfrhblkv9 = layout::uncoded_format;
  old.lblksiz_skgfrhblkv9 = header.lblksiz_skgfrhblk;
  old.fsize_skgfrhblkv9 = header.fsize_skgfrhblk;
  old.magic_skgfrhblkv9 = layout::old_magic;
  old.type_skgfrhblkv9 = header.type_skgfrhblk;
  layout::store(p10bp, old);
  if (block_size > sizeof old) {
    std::memset(reinterpret_cast<char *>(p10bp) + sizeof old, 0, block_size - sizeof old);
  }

  old.chkval_skgfrhblkv9 = client::checksum(ctx, p10bp, block_size);
  layout::store(p10bp, old);
}

void skgfrhblk_cvtpre10(skgfrctx *ctx, skgfrhblk *hbp) {
  const skgfrhblkv9 old = layout::load<skgfrhblkv9>(hbp);

  skgfrhblk header{};
  header.kcbh_skgfrhblk.type_kcbh = old.spare_skgfrhblkv9;
  header.kcbh_skgfrhblk.frmt_kcbh = layout::format_byte(old.lblksiz_skgfrhblkv9);
  header.kcbh_skgfrhblk.rdba_kcbh = layout::block_address;
  header.lblksiz_skgfrhblk = old.lblksiz_skgfrhblkv9;
  header.fsize_skgfrhblk = old.fsize_skgfrhblkv9;
  header.magic_skgfrhblk = layout::current_magic;
  header.type_skgfrhblk = old.type_skgfrhblkv9;
  layout::store(hbp, header);

  // What is converted is the first sector of a block, whatever the block's size.
  header.kcbh_skgfrhblk.chkval_kcbh = client::checksum(ctx, hbp, sector_size);
  layout::store(hbp, header);
}

void skgfrbcvt(skgfrctx *ctx, void *bp) {
  uword old_layout = 0;
  client::ask_number(ctx, "_xtts_allow_pre10", old_layout);
  swap_fields(bp, old_layout != 0);
}
