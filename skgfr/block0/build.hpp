// Steps of building block 0, shared by the operations that make one.
#pragma once

#include "skgfr/block0/block0.hpp"

namespace skgfr {

/// Fills a zeroed block with a header in the current layout, its check value included. The format
/// byte is that of the old layout when the header is to be converted to it.
void build_current(skgfrctx *ctx, void *block, const HeaderFields &fields, bool old_layout);

/// Reverses the bytes of each field of a header in this layout.
void swap_fields(void *block, bool old_layout);

/// Turns a built block into what is written: the old layout when wanted, the other byte order for
/// skgfrfDCVT. False, with the failure in se and the block as it was, when there is no memory.
bool finish_layout(slerc *se, skgfrctx *ctx, void *block, size_t block_size, bool old_layout,
                   uword type, const Site &no_memory);

}  // namespace skgfr
