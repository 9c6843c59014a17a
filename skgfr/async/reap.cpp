// Collecting completion events from the kernel, as clients of the engine reach it.
#include "skgfr/async/steps.hpp"
#include "skgfr/skgfr.h"

namespace {

using namespace skgfr;

/// Lists the control blocks of the requests that came onto the done queue last, in the order of their
/// completion, as far as there is room.
void list_reaped(const skgfrctx *ctx, unsigned int count, aiocb64 **list, unsigned int room) {
  kgglk *link = ctx->qdone_skgfrctx.kgglknxt;
  for (; count > 0; link = link->kgglknxt) {
    if (--count < room) list[count] = &owner_of(link)->aio64req_skgfrsisb;
  }
}

/// Whether a block of the list is done.
bool any_completed(const aiocb64 **list, int count) {
  for (int i = 0; list && i < count; ++i) {
    if (list[i] && list[i]->__aio_key == completed) return true;
  }
  return false;
}

}  // namespace

long skgfr_reap64(skgfrctx *ctx, const struct timespec *timeout, unsigned int waitfor,
                  aiocb64 **out_list, int listsize, unsigned int *completed_count,
                  boolean suspend) {
  const unsigned int room = static_cast<unsigned int>(listsize);
  const int last = suspend
                       ? reap<Completion::at_delivery>(ctx, timeout, waitfor, room, completed_count)
                       : reap<Completion::at_once>(ctx, timeout, waitfor, room, completed_count);
  if (out_list) list_reaped(ctx, *completed_count, out_list, room);
  return last;
}

int skgfr_suspend64(skgfrctx *ctx, const aiocb64 **list, int nent, const struct timespec *timeout) {
  int total = 0;
  while (total < nent) {
    unsigned int reaped = 0;
    const int result = reap<Completion::at_delivery>(ctx, timeout, 1, most_events, &reaped);
    total += static_cast<int>(reaped);
    if (result == -1 || any_completed(list, nent)) break;
  }
  return total;
}
