// Finds out whether kernel asynchronous I/O works on a descriptor, by one read of its first bytes.
//
// Some file systems accept a submission and complete it late or never, so the wait is bounded. A
// probe that was given up stays allocated, as the kernel may still write to it, until its late
// completion turns up.
#include <cstdlib>
#include <ctime>
#include <memory>

#include "skgfr/async/steps.hpp"
#include "skgfr/base/aligned_buffer.hpp"
#include "skgfr/skgfr.h"

namespace {

using namespace skgfr;

constexpr timespec longest_wait{10, 0};
constexpr int most_quiet_waits = 3;
constexpr int failed_wait = -1;
constexpr int most_drained = 1024;
constexpr long least_read = sector_size;

/// One probing read. A disk with large sectors takes no smaller one, while a file may be as short as one
/// sector of the usual size.
struct alignas(largest_sector) Probe {
  kgglk
      link;  // on the context's list of what the kernel still holds; first, so that the link leads here
  aiocb64 block;
  alignas(largest_sector) ub1 bytes[largest_sector];
};

struct FreeProbe {
  void operator()(Probe *probe) const { std::free(probe); }
};
using ProbeOwner = std::unique_ptr<Probe, FreeProbe>;

/// Collects what is in the kernel, so that the next completion is the probe's; false after too many
/// waits that brought nothing.
bool drain(skgfrctx *ctx) {
  for (int quiet = 0; pending_in_kernel(ctx) > 0;) {
    quiet = skgfr_suspend64(ctx, nullptr, most_drained, &longest_wait) > 0 ? 0 : quiet + 1;
    if (quiet == most_quiet_waits) return false;
  }
  return true;
}

bool submit(const skgfrctx *ctx, Probe &probe, int fd) {
  prepare(probe.block, fd, skgfrbd{probe.bytes, sizeof probe.bytes}, 0, true);
  iocb *list[] = {&probe.block.__iocb};
  return kernel_aio::entry_points().submit(ctx->ioctx_skgfrctx, 1, list) == 1;
}

/// Waits for one completion that is not a late one; false after too many waits without.
bool wait_for_completion(skgfrctx *ctx, io_event &event) {
  for (int quiet = 0; quiet < most_quiet_waits;) {
    timespec wait = longest_wait;
    const int events =
        kernel_aio::entry_points().getevents(ctx->ioctx_skgfrctx, 1, 1, &event, &wait);
    if (events == failed_wait) return false;
    if (events == 1 && !is_late_probe(ctx, event.data)) return true;
    quiet = events == 1 ? 0 : quiet + 1;
  }
  return false;
}

}  // namespace

bool skgfr::is_late_probe(skgfrctx *ctx, const void *data) {
  kgglk *const head = &ctx->qsubmit_skgfrctx;
  for (kgglk **link = &head->kgglknxt; *link != head; link = &(*link)->kgglknxt) {
    Probe *const held = reinterpret_cast<Probe *>(*link);
    if (&held->block != data) continue;
    *link = held->link.kgglknxt;
    (*link)->kgglkprv = held->link.kgglkprv;
    const ProbeOwner late(held);
    return true;
  }
  return false;
}

boolean skgfr_aiosupported(skgfrctx *ctx, int fd) {
  if (ctx->maxaio_skgfrctx == 0 || !drain(ctx)) return FALSE;
  ProbeOwner probe(static_cast<Probe *>(std::aligned_alloc(alignof(Probe), sizeof(Probe))));
  if (!probe || !submit(ctx, *probe, fd)) return FALSE;

  io_event event;
  const bool ours = wait_for_completion(ctx, event) && event.data == &probe->block;
  if (ours) return static_cast<long>(event.res) >= least_read ? TRUE : FALSE;
  push_back(ctx->qsubmit_skgfrctx, probe.release()->link);
  return FALSE;
}
