// The mount options that a file on NFS needs. Private to this room.
#pragma once

#include <sys/types.h>

#include "skgfr/records.h"

namespace skgfr {

/// Whether the file system that holds the file is mounted with options that keep writes safe.
/// False, with the failure in se and the client alerted about wrong options.
bool has_safe_mount(slerc *se, const skgfrctx *ctx, const char *name, dev_t device);

}  // namespace skgfr
