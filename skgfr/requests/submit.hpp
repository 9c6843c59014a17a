// Submits one accepted asynchronous request. Private to this room.
#pragma once

#include "skgfr/records.h"

namespace skgfr {

/// Refuses the request: this layer has no asynchronous engine to submit it to.
bool refuse_submission(skgfrrq *request);

}  // namespace skgfr
