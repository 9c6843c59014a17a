// Submits accepted requests to the kernel. Private to this room.
#pragma once

#include "skgfr/records.h"

namespace skgfr {

/// Submits one request: pending, later, or failed. True when the kernel took it.
bool submit_one(skgfrctx *ctx, skgfrrq *request, bool read);

/// Submits a batch, whose control blocks are prepared, in one call. True when the kernel took all of it.
bool submit_list(skgfrctx *ctx, skgfrrq **requests, aiocb64 **blocks, ub4 count);

}  // namespace skgfr
