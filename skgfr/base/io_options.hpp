// The I/O options of a context, for its initialisation, and the file-system question of the mount
// check.
#pragma once

#include "skgfr/base/error_sites.hpp"
#include "skgfr/records.h"

namespace skgfr {

/// Sets asynchronous and direct I/O by the first letter of an option word; null chooses neither.
void set_io_options(skgfrctx *ctx, const text *word);

bool is_on_nfs(int fd);

}  // namespace skgfr
