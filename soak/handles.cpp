// Opens, closes and locks the large file, and rewrites its block 0; the counters that everything on it
// keeps.
#include <unistd.h>

#include "soak/disk.hpp"
#include "tests/support/header.hpp"

namespace soak {

namespace {

size_t length(const kgglk &head) {
  size_t count = 0;
  for (const kgglk *link = head.kgglknxt; link != &head; link = link->kgglknxt) ++count;
  return count;
}

}  // namespace

Handle *Disk::any_open() {
  Handle &handle = handles_[below(3)];
  return handle.open ? &handle : nullptr;
}

void Disk::open_or_close() {
  Handle &handle = handles_[below(3)];
  change(handle, !handle.open || below(4) == 0);
}

/// Opens a handle, also one that is open, or closes it. After a failed close it is open still.
void Disk::change(Handle &handle, bool opens) {
  const ub4 options = ctx->flags_skgfrctx, flags = skgfofiWRITE | (below(4) ? 0 : skgfofiDSYNC);
  const uword most = &handle == &handles_[2] ? 0 : 1024;
  if (most == 0) ctx->flags_skgfrctx &= ~ub4{skgfrcASYNC};
  attempt([&] {
    if (!opens) return skgfcfi(&se, ctx, handle.iov);
    skgfofi(&se, ctx, handle.fib, handle.iov, 1024, flags);
  });
  ctx->flags_skgfrctx = options;
  const long busy = handle.busy ? 2707300 + (handle.busy < 100 ? handle.busy : 0) : 0;
  const bool good = succeeded(busy, {2704103, 2704503, 2705201, 2706000});
  handle.open = good ? opens : busy || se.slercoer == 27045;
  if (se.slercoer != 0 || !opens) return;
  const uword found = handle.iov->maxaio_skgfriov;
  handle.synchronous = found == 0;
  expect(found == most || (found == 0 && faulted), "requests at once", found, most);
}

void Disk::lock() {
  Handle *const handle = any_open();
  if (!handle) return;
  const boolean share = below(2) ? TRUE : FALSE;
  attempt([&] { skgfglk(&se, ctx, handle->iov, share); });
  const bool locked = succeeded(0, {2708609, 2708610, 2708810});
  const int taken = !locked ? F_UNLCK : share ? F_RDLCK : F_WRLCK;
  expect(support::lock_met(lockable_) == taken, "lock", support::lock_met(lockable_), taken);
  attempt([&] { skgfrlk(&se, ctx, handle->iov); });
  const bool gone = succeeded(0, {2708911});
  expect(support::lock_met(lockable_) == (gone ? F_UNLCK : taken), "lock after its release",
         support::lock_met(lockable_));
  skgfrlk(&se, ctx, handle->iov);
}

/// Block 0 of another number of blocks.
void Disk::upgrade() {
  Handle *const handle = any_open();
  if (!handle) return;
  const ub4 blocks = std::exchange(handle->fib->filsiz_skgfrfib, below(disk_blocks));
  const support::Header after{.blocks = handle->fib->filsiz_skgfrfib,
                              .mode = support::priv(handle->fib)->ftyp_skgfrsfib};
  attempt([&] { skgfrupd_blk0_v10(&se, ctx, handle->iov); });
  handle->fib->filsiz_skgfrfib = blocks;
  if (succeeded(0, {2704306, 2704409, 2704410})) block0_ = after.bytes();
  expect(holds(0, block0_.data(), 512), "block 0");
}

void Disk::check() {
  const uword done = ctx->aiodone_skgfrctx, all = ctx->aiopend_skgfrctx + done;
  const size_t in_kernel = ctx->aiopend_skgfrctx - length(ctx->conv_skgfrctx);
  expect(in_kernel <= 1024, "in the kernel", static_cast<long>(in_kernel), 1024);
  expect(done == length(ctx->qdone_skgfrctx), "done queue", done);
  expect(all == outstanding(), "counted requests", all, outstanding());
  ub4 open_handles = 0;
  for (Handle &handle : handles_) {
    const ub4 busy = support::priv(handle.iov)->aiopend_skgfrsiov;
    open_handles += handle.open;
    expect(busy == handle.busy, "requests of a handle", busy, handle.busy);
    if (busy) skgfcfi(&se, ctx, handle.iov);
    expect(!busy || support::is(se, {27073, 0, {busy}}), "close of a busy handle", se.slercoer);
  }
  expect(ctx->curopen_skgfrctx == open_handles, "open", ctx->curopen_skgfrctx, open_handles);
}

void Disk::rest() {
  skgfriosb *iosb = nullptr;
  while (skgfrwat(&se, ctx, 1, &iosb, nullptr, longest) == skgfrrOK) take(iosb);
  expect(outstanding() == 0, "outstanding", outstanding());
  change(handles_[0], true);  // which also takes back the probes that were given up
  for (Handle &handle : handles_) {
    if (handle.open) change(handle, false);
  }
  expect(holds(0, block0_.data(), 512), "block 0");
  for (const Slot &slot : slots_) {
    expect(holds(slot.first, slot.model, slot.most * 512), "contents of block", slot.first);
  }
}

}  // namespace soak
