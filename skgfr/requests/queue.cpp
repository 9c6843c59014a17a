// The one entry point for reading and writing blocks: validates requests in batches and has each batch
// carried out in list order.
#include "skgfr/base/list.hpp"
#include "skgfr/requests/submit.hpp"
#include "skgfr/requests/transfer.hpp"
#include "skgfr/skgfr.h"

namespace {

using namespace skgfr;

/// Carries out a batch; true when every request of it completed, or was taken by the kernel.
using CarryOut = bool (*)(skgfrctx *ctx, const Batch &batch);

/// How requests are carried out: the first row whose flags agree, those of the context included.
struct Dispatch {
  ub4 mask;
  ub4 flags;
  ub4 context_flags;
  CarryOut carry_out;
};
constexpr ub4 kind = skgfqioVECTOR | skgfqioREAD;
constexpr Dispatch dispatches[] = {
    {skgfqioASYNC, skgfqioASYNC, skgfrcLISTIO, submit_list},
    {skgfqioASYNC | skgfqioREAD, skgfqioASYNC | skgfqioREAD, 0, submit_reads},
    {skgfqioASYNC, skgfqioASYNC, 0, submit_writes},
    {kind, skgfqioREAD, 0, read_positioned},
    {kind, 0, 0, write_positioned},
    {kind, skgfqioVECTOR | skgfqioREAD, 0, read_vectored},
    {kind, skgfqioVECTOR, 0, write_vectored},
};

constexpr ub4 all_flags = skgfqioASYNC | skgfqioVECTOR | skgfqioREAD;

constexpr CarryOut first_row(ub4 flags, ub4 context_flags) {
  for (const Dispatch &row : dispatches) {
    const bool context_agrees = (context_flags & row.context_flags) == row.context_flags;
    if ((flags & row.mask) == row.flags && context_agrees) return row.carry_out;
  }
  return nullptr;  // not reached: the rows cover every combination
}

/// The rows resolved for every combination of flags: a list of one request should not search them.
struct Choices {
  constexpr Choices() {
    for (ub4 flags = 0; flags <= all_flags; ++flags) {
      carry_out[0][flags] = first_row(flags, 0);
      carry_out[1][flags] = first_row(flags, skgfrcLISTIO);
    }
  }
  CarryOut carry_out[2][all_flags + 1]{};
};
constexpr Choices choices;

CarryOut choose(const skgfrctx *ctx, ub4 flags) {
  return choices.carry_out[ctx->flags_skgfrctx & skgfrcLISTIO ? 1 : 0][flags & all_flags];
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
