// Finding or proving a size by reading, for devices that tell it in no other way. Private to this room and its
// tests.
#pragma once

#include <sys/types.h>

#include "sysl/types.h"

namespace skgfr {

/// Reads size bytes at an offset, as pread64 does.
using ReadAt = ssize_t (*)(int fd, void *buffer, size_t size, off64_t offset);

/// Searches for the end of a device. 0 means unknown, with errno of the read that ended the search,
/// 0 when that only came up short, or EIO when the search gave up.
off64_t search_by_probing(ReadAt read_at, int fd);

/// Whether the last of so many blocks can be read. The buffer takes that block.
bool reaches(int fd, ub4 blocks, size_t block_size, void *buffer);

}  // namespace skgfr
