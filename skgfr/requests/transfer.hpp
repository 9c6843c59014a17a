// Performs accepted requests synchronously. Private to this room.
#pragma once

#include "skgfr/requests/batch.hpp"

namespace skgfr {

/// Requests are performed in order; their status blocks tell the outcomes.
extern const Way read_positioned, write_positioned, read_vectored, write_vectored;

/// Carries out an asynchronous request on a file that does none: it stays pending, to be reported
/// complete by the next poll. False when the transfer failed.
bool convert(skgfrctx *ctx, skgfrrq *request, bool read);

}  // namespace skgfr
