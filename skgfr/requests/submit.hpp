// Submits accepted requests to the kernel. Private to this room.
#pragma once

#include "skgfr/requests/batch.hpp"

namespace skgfr {

/// Submits requests one at a time: each is pending, later, or failed. True when the kernel took them all.
bool submit_reads(skgfrctx *ctx, const Batch &batch);
bool submit_writes(skgfrctx *ctx, const Batch &batch);

/// Submits a batch, whose control blocks are prepared, in one call. True when the kernel took all of it.
bool submit_list(skgfrctx *ctx, const Batch &batch);

}  // namespace skgfr
