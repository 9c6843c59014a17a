// The requests that validation accepted together, on their way to a transfer or to the kernel.
#pragma once

#include "skgfr/requests/target.hpp"

namespace skgfr {

inline constexpr ub4 batch_size = 512;

struct Batch {
  ub4 count;
  bool on_one_handle;  // all of them, as is usual
  skgfrrq *requests[batch_size];
  aiocb64 *blocks[batch_size];  // their control blocks, where these are prepared
};

/// Carries out one accepted request; true when it completed, or was taken by the kernel.
using CarryOutOne = bool (*)(skgfrctx *ctx, const Target &target, skgfrrq *request);

struct Way;

/// The same for a batch; true when this holds for every request of it.
using CarryOutBatch = bool (*)(skgfrctx *ctx, const Way &way, const Batch &batch);

/// A way to carry out requests, alone and in batches.
struct Way {
  CarryOutOne one;
  CarryOutBatch batch;
};

/// Carries out every request of a batch by itself, in order.
inline bool for_each_request(skgfrctx *ctx, CarryOutOne carry_out, const Batch &batch) {
  bool all = true;
  for (ub4 i = 0; i < batch.count;) {
    const Target target(batch.requests[i]->iov_skgfrrq);
    do {
      all = carry_out(ctx, target, batch.requests[i]) && all;
    } while (++i < batch.count && target.is_of(batch.requests[i]));
  }
  return all;
}

/// One request after the other.
inline bool one_by_one(skgfrctx *ctx, const Way &way, const Batch &batch) {
  return for_each_request(ctx, way.one, batch);
}

/// The same in place, for the ways that are worth their own loop.
template <CarryOutOne carry_out>
bool one_by_one_in_place(skgfrctx *ctx, const Way &, const Batch &batch) {
  return for_each_request(ctx, carry_out, batch);
}

inline slerc *error_of(const skgfrrq *request) { return request->iosb_skgfrrq->slerc_skgfriosb; }

inline aiocb64 *control_block(const skgfrrq *request) {
  return &extension(request->iosb_skgfrrq)->aio64req_skgfrsisb;
}

/// Gives a request its final status, or that of one on its way; true for success.
inline bool end(const skgfrrq *request, skgfri status) {
  request->iosb_skgfrrq->status_skgfriosb = status;
  return status == skgfriDONE || status == skgfriPEND;
}

}  // namespace skgfr
