// The one entry point for reading and writing blocks: validates requests in batches and has each batch
// carried out in list order.
#include "skgfr/base/list.hpp"
#include "skgfr/requests/start.hpp"
#include "skgfr/requests/transfer.hpp"
#include "skgfr/requests/validate.hpp"
#include "skgfr/skgfr.h"

namespace {

using namespace skgfr;

/// How requests are carried out: the first row whose flags agree, those of the context included.
struct Dispatch {
  ub4 mask;
  ub4 flags;
  ub4 context_flags;
  const Way *way;
};
constexpr ub4 kind = skgfqioVECTOR | skgfqioREAD;
constexpr Dispatch dispatches[] = {
    {skgfqioASYNC, skgfqioASYNC, skgfrcLISTIO, &start_list},
    {skgfqioASYNC | skgfqioREAD, skgfqioASYNC | skgfqioREAD, 0, &start_reads},
    {skgfqioASYNC, skgfqioASYNC, 0, &start_writes},
    {kind, skgfqioREAD, 0, &read_positioned},
    {kind, 0, 0, &write_positioned},
    {kind, skgfqioVECTOR | skgfqioREAD, 0, &read_vectored},
    {kind, skgfqioVECTOR, 0, &write_vectored},
};

constexpr ub4 all_flags = skgfqioASYNC | skgfqioVECTOR | skgfqioREAD;

constexpr const Way *first_row(ub4 flags, ub4 context_flags) {
  for (const Dispatch &row : dispatches) {
    const bool context_agrees = (context_flags & row.context_flags) == row.context_flags;
    if ((flags & row.mask) == row.flags && context_agrees) return row.way;
  }
  return nullptr;  // not reached: the rows cover every combination
}

/// The rows resolved for every combination of flags: a list of one request should not search them.
struct Choices {
  constexpr Choices() {
    for (ub4 flags = 0; flags <= all_flags; ++flags) {
      way[0][flags] = first_row(flags, 0);
      way[1][flags] = first_row(flags, skgfrcLISTIO);
    }
  }
  const Way *way[2][all_flags + 1]{};
};
constexpr Choices choices;

const Way &choose(const skgfrctx *ctx, ub4 flags) {
  return *choices.way[ctx->flags_skgfrctx & skgfrcLISTIO ? 1 : 0][flags & all_flags];
}

/// Carries out a list batch by batch: 0, or 1 when not every request succeeded.
uword carry_out_all(skgfrctx *ctx, const kgglk *list, skgfrrq *first, ub4 flags, const Way &way) {
  Batch batch;
  aiocb64 **const prepared = flags & (skgfqioASYNC | skgfqioPREPARE) ? batch.blocks : nullptr;
  Examination it{list, flags, batch_size, batch.requests, prepared, first};
  bool all = true;
  while (it.next) {
    examine(ctx, it);
    batch.count = it.count;
    batch.on_one_handle = it.runs == 1;
    if (batch.count > 0) all = way.batch(ctx, way, batch) && all;
  }
  return all && !it.refused ? 0 : 1;
}

}  // namespace

uword skgfqio(skgfrctx *ctx, kgglk *reqhdr, ub4 flags) {
  if (is_empty(*reqhdr)) return 0;
  const Way &way = choose(ctx, flags);
  skgfrrq *const first = request_of(reqhdr->kgglknxt);
  const bool alone = first->link_skgfrrq.kgglknxt == reqhdr;
  return alone ? carry_out_alone(ctx, first, flags, way)
               : carry_out_all(ctx, reqhdr, first, flags, way);
}
