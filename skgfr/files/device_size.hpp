// Finding a size by reading, for devices that tell it in no other way. Private to this room and its
// tests.
#pragma once

#include <sys/types.h>

#include "sysl/types.h"

namespace skgfr {

/// Reads size bytes at an offset, as pread64 does.
using ReadAt = ssize_t (*)(int fd, void *buffer, size_t size, off64_t offset);

/// Searches for the end of a device. 0 means unknown, with errno as the reader or the search left
/// it.
off64_t search_by_probing(ReadAt read_at, int fd);

}  // namespace skgfr
