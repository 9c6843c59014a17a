// The examination of queued requests, for the queue. Private to this room.
#pragma once

#include "skgfr/requests/batch.hpp"

namespace skgfr {

/// One pass over a list: what is asked, and how far it came.
struct Examination {
  const kgglk *list;
  ub4 flags;
  ub4 most;            // to accept
  skgfrrq **accepted;  // room for so many
  aiocb64 **blocks;    // the same for their control blocks; null: these are not prepared
  skgfrrq *next;       // the next request to examine, null at the end

  ub4 count = 0;            // accepted
  ub4 runs = 0;             // of neighbours on one handle
  boolean refused = FALSE;  // whether any was refused, now or before
};

/// Examines requests from the next one on, until so many are accepted or the list ends.
void examine(skgfrctx *ctx, Examination &it);

/// Examines the only request of a list and has it carried out: 0, or 1 when it did not succeed.
uword carry_out_alone(skgfrctx *ctx, skgfrrq *request, ub4 flags, const Way &way);

}  // namespace skgfr
