// Ends a context: what it holds of the system goes back once nothing uses it any more.
//
// Stands apart from its initialisation in base/context, because only the engine knows of probes that the
// kernel still holds.
#include <cerrno>
#include <cstring>

#include "skgfr/async/steps.hpp"
#include "skgfr/base/error_sites.hpp"
#include "skgfr/client.h"

namespace {

using namespace skgfr;

/// Takes what the kernel has finished of the probes that were given up. Whatever else completes here
/// was counted by nobody, so nobody waits for it.
void collect_late_probes(skgfrctx *ctx) {
  while (awaits_late_probes(ctx)) {
    timespec at_once{};
    io_event event;
    if (kernel_aio::entry_points().getevents(ctx->ioctx_skgfrctx, 1, 1, &event, &at_once) != 1)
      return;
    is_late_probe(ctx, event.data);
  }
}

/// Destroying waits for what the kernel still works on, which may be for ever with a late probe. An
/// error number, 0 when the context is gone.
int release(skgfrctx *ctx) {
  if (!ctx->ioctx_skgfrctx) return 0;
  collect_late_probes(ctx);
  if (awaits_late_probes(ctx)) return EBUSY;
  return -kernel_aio::entry_points().queue_release(ctx->ioctx_skgfrctx);
}

}  // namespace

void skgfr_end_context(slerc *se, skgfrctx *ctx) {
  begin(se);
  const uword requests = ctx->aiopend_skgfrctx + ctx->aiodone_skgfrctx;
  if (requests != 0 || ctx->curopen_skgfrctx != 0) {
    return fail(se, sites::end_outstanding, 0, requests, ctx->curopen_skgfrctx);
  }
  if (const int error = release(ctx)) return fail(se, sites::end_refused, error);
  std::memset(ctx, 0, sizeof *ctx);
}
