// The requests that validation accepted together, on their way to a transfer or to the kernel.
#pragma once

#include "skgfr/records.h"

namespace skgfr {

inline constexpr ub4 batch_size = 512;

struct Batch {
  ub4 count;
  skgfrrq *requests[batch_size];
  aiocb64 *blocks[batch_size];  // their control blocks, where these are prepared
};

/// Carries out every request of a batch by itself, in order; true when all succeeded.
template <auto carry_out>
bool for_each_request(skgfrctx *ctx, const Batch &batch) {
  bool all = true;
  for (ub4 i = 0; i < batch.count; ++i) all = carry_out(ctx, batch.requests[i]) && all;
  return all;
}

}  // namespace skgfr
