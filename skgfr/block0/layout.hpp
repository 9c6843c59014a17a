// The bytes of block 0, in both layouts. Readers and writers hold no offsets of their own.
//
//   current layout                          layout from before version 10
//    0  1  type_kcbh                         0  1  spare
//    1  1  frmt_kcbh   size code + 0x02      1  1  frmt      0x02
//    4  4  rdba_kcbh   0xFFC00000            4  4  lblksiz   at most 16384, so it tells the layouts
//    8  4  bas_kcbh                          8  4  fsize     apart from rdba
//   12  2  wrp_kcbh                         12  4  magic     0x5A5B5C5D
//   16  2  chkval_kcbh                      16  4  type
//   20  4  lblksiz                          20  2  chkval
//   24  4  fsize
//   28  4  magic       0x7A7B7C7D
//   32  4  type
//
// All other bytes of the block are 0. Fields are in the byte order of the machine that wrote them.
#pragma once

#include <cstddef>
#include <cstring>

#include "skgfr/client.h"

namespace skgfr::layout {

inline constexpr ub4 current_magic = 0x7A7B7C7D;
inline constexpr ub4 old_magic = 0x5A5B5C5D;
inline constexpr ub4 block_address = 0xFFC00000;
inline constexpr ub1 uncoded_format = 0x02;

static_assert(sizeof(kcbh) == 20 && sizeof(skgfrhblk) == 44 && sizeof(skgfrhblkv9) == 24);
static_assert(offsetof(kcbh, frmt_kcbh) == 1 && offsetof(kcbh, rdba_kcbh) == 4);
static_assert(offsetof(kcbh, bas_kcbh) == 8 && offsetof(kcbh, wrp_kcbh) == 12);
static_assert(offsetof(kcbh, seq_kcbh) == 14 && offsetof(kcbh, flg_kcbh) == 15);
static_assert(offsetof(kcbh, chkval_kcbh) == 16 && offsetof(kcbh, spare3_kcbh) == 18);
static_assert(offsetof(skgfrhblk, kcbh_skgfrhblk) == 0);
static_assert(offsetof(skgfrhblk, lblksiz_skgfrhblk) == 20);
static_assert(offsetof(skgfrhblk, fsize_skgfrhblk) == 24);
static_assert(offsetof(skgfrhblk, magic_skgfrhblk) == 28);
static_assert(offsetof(skgfrhblk, type_skgfrhblk) == 32);
static_assert(offsetof(skgfrhblkv9, frmt_skgfrhblkv9) == 1);
static_assert(offsetof(skgfrhblkv9, lblksiz_skgfrhblkv9) == offsetof(kcbh, rdba_kcbh));
static_assert(offsetof(skgfrhblkv9, fsize_skgfrhblkv9) == 8);
static_assert(offsetof(skgfrhblkv9, magic_skgfrhblkv9) == 12);
static_assert(offsetof(skgfrhblkv9, type_skgfrhblkv9) == 16);
static_assert(offsetof(skgfrhblkv9, chkval_skgfrhblkv9) == 20);

/// Where a field of more than one byte stands: what a change of byte order reverses.
struct Field {
  size_t offset;
  size_t width;
};

inline constexpr Field current_fields[] = {
    {offsetof(kcbh, rdba_kcbh), 4},
    {offsetof(kcbh, bas_kcbh), 4},
    {offsetof(kcbh, wrp_kcbh), 2},
    {offsetof(kcbh, chkval_kcbh), 2},
    {offsetof(skgfrhblk, lblksiz_skgfrhblk), 4},
    {offsetof(skgfrhblk, fsize_skgfrhblk), 4},
    {offsetof(skgfrhblk, magic_skgfrhblk), 4},
    {offsetof(skgfrhblk, type_skgfrhblk), 4},
};

inline constexpr Field old_fields[] = {
    {offsetof(skgfrhblkv9, lblksiz_skgfrhblkv9), 4}, {offsetof(skgfrhblkv9, fsize_skgfrhblkv9), 4},
    {offsetof(skgfrhblkv9, magic_skgfrhblkv9), 4},   {offsetof(skgfrhblkv9, type_skgfrhblkv9), 4},
    {offsetof(skgfrhblkv9, chkval_skgfrhblkv9), 2},
};

/// Copies a header out of a block, and back: a client's block may stand at any address.
template <class Header>
Header load(const void *block) {
  Header header;
  std::memcpy(&header, block, sizeof header);
  return header;
}
template <class Header>
void store(void *block, const Header &header) {
  std::memcpy(block, &header, sizeof header);
}

inline bool is_magic(ub4 magic) { return magic == current_magic || magic == old_magic; }

inline bool is_old_layout(const void *block) {
  return load<skgfrhblk>(block).kcbh_skgfrhblk.rdba_kcbh <= skgfr_largest_block;
}

/// The block size is coded in the top three bits: 512 is 1, 32768 is 7, any other size is 0.
inline ub1 format_byte(size_t block_size) {
  for (unsigned code = 1; code <= 7; ++code) {
    if (block_size == size_t{256} << code) return static_cast<ub1>(uncoded_format + code * 32);
  }
  return uncoded_format;
}

}  // namespace skgfr::layout
