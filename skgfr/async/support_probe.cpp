// Finds out whether kernel asynchronous I/O works on a descriptor, by one read of its first sector.
//
// Some file systems accept a submission and complete it late or never, so the wait is bounded. A
// probe that was given up stays allocated, as the kernel may still write to it, until its late
// completion turns up.
#include <cstdlib>
#include <ctime>
#include <memory>

#include "skgfr/async/async.hpp"
#include "skgfr/base/aligned_buffer.hpp"
#include "skgfr/base/kernel_aio.hpp"
#include "skgfr/skgfr.h"

namespace {

using namespace skgfr;

constexpr timespec longest_wait{10, 0};
constexpr int most_quiet_waits = 3;
constexpr int failed_wait = -1;
constexpr int most_drained = 1024;

/// One probing read.
struct alignas(sector_size) Probe {
  ub1 sector[sector_size];
  aiocb64 block;
  Probe *next_given_up;
};

struct FreeProbe {
  void operator()(Probe *probe) const { std::free(probe); }
};
using ProbeOwner = std::unique_ptr<Probe, FreeProbe>;

/// Probes that the kernel still holds.
Probe *given_up = nullptr;

void give_up(ProbeOwner probe) {
  probe->next_given_up = given_up;
  given_up = probe.release();
}

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
  prepare(probe.block, fd, skgfrbd{probe.sector, sizeof probe.sector}, 0, true);
  iocb *list[] = {&probe.block.__iocb};
  return kernel_aio::entry_points().submit(ctx->ioctx_skgfrctx, 1, list) == 1;
}

/// Waits for one completion that is not a late one; false after too many waits without.
bool wait_for_completion(const skgfrctx *ctx, io_event &event) {
  for (int quiet = 0; quiet < most_quiet_waits;) {
    timespec wait = longest_wait;
    const int events =
        kernel_aio::entry_points().getevents(ctx->ioctx_skgfrctx, 1, 1, &event, &wait);
    if (events == failed_wait) return false;
    if (events == 1 && !is_late_probe(event.data)) return true;
    quiet = events == 1 ? 0 : quiet + 1;
  }
  return false;
}

}  // namespace

bool skgfr::awaits_late_probes() { return given_up != nullptr; }

bool skgfr::is_late_probe(const void *data) {
  for (Probe **link = &given_up; *link; link = &(*link)->next_given_up) {
    if (&(*link)->block != data) continue;
    const ProbeOwner late(*link);
    *link = late->next_given_up;
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
  if (ours) return event.res == sector_size ? TRUE : FALSE;
  give_up(std::move(probe));
  return FALSE;
}
