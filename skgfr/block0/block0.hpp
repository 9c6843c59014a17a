// What the other rooms use of block 0: sizes that are allowed, reading the block size from a file,
// and writing a new block 0.
#pragma once

#include "skgfr/base/aligned_buffer.hpp"
#include "skgfr/base/error_sites.hpp"
#include "skgfr/records.h"

namespace skgfr {

/// Not 0, a multiple of 512 and at most 16384.
bool is_block_size(size_t size);

/// What reading block 0 came to, in the order in which it can fail.
enum class HeaderOutcome { valid, seek_failed, short_read, invalid };

struct HeaderRead {
  HeaderOutcome outcome;
  int error;          // errno of the call that failed, else 0
  size_t block_size;  // in bytes, when valid
};

/// Reads the logical block size from block 0 behind a descriptor, which may be open for direct I/O.
/// skgfrfDCVT headers are in the other byte order.
HeaderRead read_header(skgfrctx *ctx, int fd, skgfrf type);

/// The sites of one reader, one for each way to fail.
struct HeaderReadSites {
  Site seek, read, invalid;
};

/// Turns an outcome into the reader's failure; true when the header is valid.
bool accept(slerc *se, const HeaderRead &read, const HeaderReadSites &sites);

/// What a new block 0 records.
struct HeaderFields {
  size_t block_size;  // in bytes
  ub4 blocks;         // behind block 0
  ub4 mode;           // st_mode of the file, or 0
};

/// The sites of one writer.
struct HeaderWriteSites {
  Site seek, old_layout_memory, write;
};

/// Builds block 0 in a zeroed block, in the layout that the client wants, and writes it at byte 0.
/// False, with the failure in se.
bool write_header(slerc *se, skgfrctx *ctx, int fd, const HeaderFields &fields, skgfrf type,
                  void *zeroed_block, const HeaderWriteSites &sites);

}  // namespace skgfr
