// The one entry point for reading and writing blocks: validates requests in batches and has each
// batch carried out in list order.
#include "skgfr/base/list.hpp"
#include "skgfr/requests/submit.hpp"
#include "skgfr/requests/transfer.hpp"
#include "skgfr/skgfr.h"

namespace {

using namespace skgfr;

constexpr ub4 batch_size = 512;

/// How requests with these flags are carried out: the first row whose flags agree.
struct Dispatch {
  ub4 mask;
  ub4 flags;
  Transfer transfer;
};
constexpr ub4 kind = skgfqioVECTOR | skgfqioREAD;
constexpr Dispatch dispatches[] = {
    {skgfqioASYNC, skgfqioASYNC, refuse_submission},
    {kind, skgfqioREAD, read_positioned},
    {kind, 0, write_positioned},
    {kind, skgfqioVECTOR | skgfqioREAD, read_vectored},
    {kind, skgfqioVECTOR, write_vectored},
};

Transfer choose(ub4 flags) {
  for (const Dispatch &dispatch : dispatches) {
    if ((flags & dispatch.mask) == dispatch.flags) return dispatch.transfer;
  }
  return nullptr;  // not reached: the rows cover every combination
}

}  // namespace

uword skgfqio(skgfrctx *ctx, kgglk *reqhdr, ub4 flags) {
  if (is_empty(*reqhdr)) return 0;
  skgfrrq *accepted[batch_size];
  aiocb64 *blocks[batch_size];
  aiocb64 **const prepared = flags & (skgfqioASYNC | skgfqioPREPARE) ? blocks : nullptr;
  const Transfer transfer = choose(flags);

  uword result = 0;
  skgfrrq *next = reinterpret_cast<skgfrrq *>(reqhdr->kgglknxt);
  while (next) {
    ub4 count = 0;
    if (skgfrvldtrq(reqhdr, flags, ctx, batch_size, &next, accepted, prepared, &count)) result = 1;
    for (ub4 i = 0; i < count; ++i) {
      if (!transfer(accepted[i])) result = 1;
    }
  }
  return result;
}
