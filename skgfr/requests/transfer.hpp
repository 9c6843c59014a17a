// Performs one accepted request. Private to this room.
#pragma once

#include "skgfr/records.h"

namespace skgfr {

/// Performs a request of one buffer, or of a vector; its status block tells the outcome. True when
/// it completed.
using Transfer = bool (*)(skgfrrq *request);

bool read_positioned(skgfrrq *request);
bool write_positioned(skgfrrq *request);
bool read_vectored(skgfrrq *request);
bool write_vectored(skgfrrq *request);

}  // namespace skgfr
