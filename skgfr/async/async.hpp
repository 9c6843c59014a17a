// What the other rooms use of asynchronous I/O: the control block of a request.
#pragma once

#include "skgfr/records.h"

namespace skgfr {

/// States of a control block.
enum ControlBlockState : long { not_submitted = 0, completed = 1, in_progress = 2 };

/// Readies a control block for one transfer; its completion event will lead back to it.
void prepare(aiocb64 &block, int fd, const skgfrbd &buffer, off64_t offset, bool read);

}  // namespace skgfr
