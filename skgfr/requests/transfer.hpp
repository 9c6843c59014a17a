// Performs accepted requests synchronously. Private to this room.
#pragma once

#include "skgfr/base/error_sites.hpp"
#include "skgfr/requests/batch.hpp"

namespace skgfr {

/// Performs requests in order; their status blocks tell the outcomes. True when all completed.
bool read_positioned(skgfrctx *ctx, const Batch &batch);
bool write_positioned(skgfrctx *ctx, const Batch &batch);
bool read_vectored(skgfrctx *ctx, const Batch &batch);
bool write_vectored(skgfrctx *ctx, const Batch &batch);

/// Carries out an asynchronous request on a file that does none: it stays pending, to be reported
/// complete by the next poll. False when the transfer failed.
bool convert(skgfrctx *ctx, skgfrrq *request, bool read);

}  // namespace skgfr
