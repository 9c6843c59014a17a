// A large file or device: the handles on it, their counters, and what its blocks hold.
//
// Every slot has blocks and a buffer of its own, so that the order of completions decides nothing.
// Block 0 is the business of files.hpp.
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <deque>
#include <numeric>

#include "soak/run.hpp"
#include "tests/async/support.hpp"

namespace soak {

constexpr ub4 words_in_block = 128, window = 1 << 15;  // blocks in use at either end of the disk
constexpr ub4 disk_blocks = 0x908000;                  // behind block 0; more than 4 GiB
constexpr ub4 starts[] = {17, disk_blocks + 1 - window};  // a page away from block 0

struct Handle {
  support::Fib fib;
  support::Iov iov;
  ub4 busy = 0;  // requests outstanding
  bool open = false, synchronous = false;
};

/// Blocks of the disk, a buffer for them, and the request that may be on its way for them.
struct Slot : support::Request {
  Slot(ub4 at, ub4 blocks, ub4 *bytes, ub4 *on_disk)
      : Request(nullptr, at, bytes, 0), first(at), most(blocks), words(bytes), model(on_disk) {}
  size_t bytes() const { return rq.bufspec_skgfrrq.buffer_skgfrrq.blen_skgfrbd; }
  /// What a write writes: every word tells its place and the moment.
  void fill(ub4 *to, size_t size) const {
    std::iota(to, to + size / 4, stamp + first * words_in_block);
  }
  ub4 first, most, *words, *model;
  Handle *handle = nullptr;
  ub4 stamp = 0;  // of what it writes; 0: it reads
  bool outstanding = false;
};

class Disk {
 public:
  /// An existing file, and the one that shows its contents: for a device, the one behind it.
  Disk(Run &with_run, const std::string &name, const std::string &shown)
      : run(with_run),
        shown_(open(shown.c_str(), O_RDONLY)),
        lockable_(open(name.c_str(), O_RDONLY)),
        buffers_(std::aligned_alloc(512, model_.size() * 4), std::free),
        seen_(2048 * words_in_block) {
    for (Handle &handle : handles) {
      handle.fib->lblksiz_skgfrfib = 512;
      handle.fib->ftype_skgfrfib = &handle == &handles[1] ? skgfrfKDV : skgfrfDATA;
      skgfifi(&run.se, run.ctx, handle.fib, support::txt(name), name.size());
      run.came_to(0, {});
    }
    for (ub4 i = 0; i < 2; ++i) {
      for (ub4 at = i * window, most = 0; at + 2048 <= (i + 1) * window; at += most) {
        most = run.below(128) ? 8 : 2048;
        const size_t place = at * words_in_block;
        slots.emplace_back(starts[i] + at - i * window, most,
                           static_cast<ub4 *>(buffers_.get()) + place, model_.data() + place);
        free.push_back(&slots.back());
      }
    }
  }
  ~Disk() { close(shown_), close(lockable_); }
  Disk(const Disk &) = delete;

  std::vector<Slot *> take_free(size_t count) {
    std::shuffle(free.begin(), free.end(), run.dice);
    const auto from = free.end() - static_cast<ptrdiff_t>(std::min(free.size(), count));
    const std::vector<Slot *> taken(from, free.end());
    free.erase(from, free.end());
    return taken;
  }
  /// The number of a block on a handle; the second handle counts from 0.
  ub4 block(const Handle &handle, ub4 at) const { return &handle == &handles[1] ? at - 1 : at; }
  ub4 outstanding() const { return handles[0].busy + handles[1].busy + handles[2].busy; }
  Handle *any_open() {
    Handle &handle = handles[run.below(3)];
    return handle.open ? &handle : nullptr;
  }
  bool holds(ub4 at, const ub4 *words, size_t bytes) {
    const ssize_t got = pread64(shown_, seen_.data(), bytes, off64_t{at} * 512);
    return got == static_cast<ssize_t>(bytes) && std::memcmp(seen_.data(), words, bytes) == 0;
  }
  /// A transfer that took place, seen from either side.
  void moved(Slot &slot) {
    if (slot.stamp) slot.fill(slot.model, slot.bytes());
    run.expect(std::memcmp(slot.words, slot.model, slot.bytes()) == 0, "data of block", slot.first);
  }

  void open_or_close() {
    Handle &handle = handles[run.below(3)];
    change(handle, !handle.open || run.below(4) == 0);
  }
  /// Opens a handle, also one that is open, or closes it. The third does no asynchronous I/O. After
  /// a failed close it is begun anew: whether the descriptor is gone the layer does not guess.
  void change(Handle &handle, bool opens) {
    const ub4 options = run.ctx->flags_skgfrctx, busy = handle.busy;
    const uword most = &handle == &handles[2] ? 0 : 1024;
    const ub4 flags = skgfofiWRITE | (run.below(4) ? 0 : skgfofiDSYNC);
    if (most == 0) run.ctx->flags_skgfrctx &= ~ub4{skgfrcASYNC};
    run.call([&] {
      if (!opens) return skgfcfi(&run.se, run.ctx, handle.iov);
      skgfofi(&run.se, run.ctx, handle.fib, handle.iov, 1024, flags);
    });
    run.ctx->flags_skgfrctx = options;
    run.came_to(busy ? 2707300 + (busy < 100 ? busy : 0) : 0, {2704103, 2704503, 2705201, 2706000});
    const eword code = run.se.slercoer;
    handle.open = code == 27073 || (opens && code == 0);
    if (code == 27045) handle.iov = support::Iov(), --run.ctx->curopen_skgfrctx;
    if (code != 0 || !opens) return;
    const uword found = handle.iov->maxaio_skgfriov;
    handle.synchronous = found == 0;
    run.expect(found == most || (found == 0 && run.faulted), "requests at once", found, most);
  }

  void lock() {
    Handle *const handle = any_open();
    if (!handle) return;
    const bool share = run.below(2);
    run.call([&] { skgfglk(&run.se, run.ctx, handle->iov, share); });
    const bool locked = run.came_to(0, {2708609, 2708610, 2708810}) == Left::everything;
    run.expect(lock_met() == (!locked ? F_UNLCK : share ? F_RDLCK : F_WRLCK), "lock");
    run.call([&] { skgfrlk(&run.se, run.ctx, handle->iov); });
    const bool gone = run.came_to(0, {2708911}) == Left::everything;
    run.expect(gone || !locked || lock_met() != F_UNLCK, "lock after a refused release");
    if (!gone) skgfrlk(&run.se, run.ctx, handle->iov);
    run.expect(lock_met() == F_UNLCK, "lock after its release");
  }
  /// The lock that another owner would meet.
  int lock_met() const {
    struct flock met {};
    met.l_type = F_WRLCK;
    return fcntl(lockable_, F_OFD_GETLK, &met) == 0 ? met.l_type : -1;
  }

  /// Every counter, list and handle against the model; a busy handle does not close.
  void check() {
    skgfrctx *const ctx = run.ctx;
    const uword done = ctx->aiodone_skgfrctx, all = ctx->aiopend_skgfrctx + done;
    const size_t in_kernel = ctx->aiopend_skgfrctx - support::length(ctx->conv_skgfrctx);
    run.expect(in_kernel <= 1024, "in the kernel", in_kernel, 1024);
    run.expect(done == support::length(ctx->qdone_skgfrctx), "done queue", done);
    run.expect(all == outstanding(), "counted requests", all, outstanding());
    ub4 open_handles = 0;
    for (Handle &handle : handles) {
      const ub4 busy = support::priv(handle.iov)->aiopend_skgfrsiov;
      open_handles += handle.open;
      run.expect(busy == handle.busy, "requests of a handle", busy, handle.busy);
      if (busy) skgfcfi(&run.se, ctx, handle.iov);
      run.expect(!busy || support::is(run.se, {27073, 0, {busy}}), "close of a busy handle");
    }
    run.expect(ctx->curopen_skgfrctx == open_handles, "open", ctx->curopen_skgfrctx, open_handles);
  }

  /// Closes everything and compares all contents. Opening once more also takes back the probes for
  /// asynchronous I/O that were given up.
  void rest() {
    change(handles[0], true);
    for (Handle &handle : handles) {
      if (handle.open) change(handle, false);
    }
    for (const Slot &slot : slots) {
      run.expect(holds(slot.first, slot.model, slot.most * 512), "contents of block", slot.first);
    }
  }

  Run &run;
  Handle handles[3];
  std::deque<Slot> slots;
  std::vector<Slot *> free;

 private:
  const int shown_, lockable_;
  std::vector<ub4> model_ = std::vector<ub4>(2 * window * words_in_block);
  std::unique_ptr<void, void (*)(void *)> buffers_;
  std::vector<ub4> seen_;
};

}  // namespace soak
