// Starts accepted requests asynchronously. Private to this room; async/ hands them to the kernel.
#pragma once

#include "skgfr/requests/batch.hpp"

namespace skgfr {

/// One at a time: each is pending, later, or failed.
extern const Way start_reads, start_writes;

/// A batch, whose control blocks are prepared, as one list.
extern const Way start_list;

}  // namespace skgfr
