// The one entry point for reading and writing blocks: validates requests in batches and has each batch
// carried out in list order.
#include "skgfr/base/list.hpp"
#include "skgfr/requests/submit.hpp"
#include "skgfr/requests/transfer.hpp"
#include "skgfr/skgfr.h"

namespace {

using namespace skgfr;

constexpr ub4 batch_size = 512;

/// The requests that validation accepted together.
struct Batch {
  skgfrrq *requests[batch_size];
  aiocb64 *blocks[batch_size];
  ub4 count;
};

/// Carries out a batch; true when every request of it completed, or was taken by the kernel.
using CarryOut = bool (*)(skgfrctx *ctx, Batch &batch);

template <bool (*transfer)(skgfrrq *)>
bool perform_each(skgfrctx *, Batch &batch) {
  bool all = true;
  for (ub4 i = 0; i < batch.count; ++i) all = transfer(batch.requests[i]) && all;
  return all;
}

template <bool read>
bool submit_each(skgfrctx *ctx, Batch &batch) {
  bool all = true;
  for (ub4 i = 0; i < batch.count; ++i) all = submit_one(ctx, batch.requests[i], read) && all;
  return all;
}

bool submit_together(skgfrctx *ctx, Batch &batch) {
  return submit_list(ctx, batch.requests, batch.blocks, batch.count);
}

/// How requests are carried out: the first row whose flags agree, those of the context included.
struct Dispatch {
  ub4 mask;
  ub4 flags;
  ub4 context_flags;
  CarryOut carry_out;
};
constexpr ub4 kind = skgfqioVECTOR | skgfqioREAD;
constexpr Dispatch dispatches[] = {
    {skgfqioASYNC, skgfqioASYNC, skgfrcLISTIO, submit_together},
    {skgfqioASYNC | skgfqioREAD, skgfqioASYNC | skgfqioREAD, 0, submit_each<true>},
    {skgfqioASYNC, skgfqioASYNC, 0, submit_each<false>},
    {kind, skgfqioREAD, 0, perform_each<read_positioned>},
    {kind, 0, 0, perform_each<write_positioned>},
    {kind, skgfqioVECTOR | skgfqioREAD, 0, perform_each<read_vectored>},
    {kind, skgfqioVECTOR, 0, perform_each<write_vectored>},
};

CarryOut choose(const skgfrctx *ctx, ub4 flags) {
  for (const Dispatch &row : dispatches) {
    const bool context_agrees = (ctx->flags_skgfrctx & row.context_flags) == row.context_flags;
    if ((flags & row.mask) == row.flags && context_agrees) return row.carry_out;
  }
  return nullptr;  // not reached: the rows cover every combination
}

}  // namespace

uword skgfqio(skgfrctx *ctx, kgglk *reqhdr, ub4 flags) {
  if (is_empty(*reqhdr)) return 0;
  Batch batch;
  aiocb64 **const prepared = flags & (skgfqioASYNC | skgfqioPREPARE) ? batch.blocks : nullptr;
  const CarryOut carry_out = choose(ctx, flags);

  uword result = 0;
  skgfrrq *next = reinterpret_cast<skgfrrq *>(reqhdr->kgglknxt);
  while (next) {
    const boolean refused =
        skgfrvldtrq(reqhdr, flags, ctx, batch_size, &next, batch.requests, prepared, &batch.count);
    if (refused) result = 1;
    if (batch.count > 0 && !carry_out(ctx, batch)) result = 1;
  }
  return result;
}
