// Performs accepted requests synchronously. Private to this room.
#pragma once

#include "skgfr/base/error_sites.hpp"
#include "skgfr/records.h"

namespace skgfr {

/// Performs a request; its status block tells the outcome. True when it completed.
bool read_positioned(skgfrrq *request);
bool write_positioned(skgfrrq *request);
bool read_vectored(skgfrrq *request);
bool write_vectored(skgfrrq *request);

/// Carries out an asynchronous request on a file that does none: it stays pending, to be reported
/// complete by the next poll. False when the transfer failed.
bool convert(skgfrctx *ctx, skgfrrq *request, bool read);

}  // namespace skgfr
