// Requests of every kind on the disk, each judged by what may have become of it.
#pragma once

#include "soak/disk.hpp"

namespace soak {

constexpr ub4 longest = 0xFFFFFFFF;

class Requests {
 public:
  explicit Requests(Disk &with_disk) : disk(with_disk), run(with_disk.run) {}

  void submit() {
    bool safe = true;  // on a handle that is not open only checks keep requests from fd 0
    for (const Handle &handle : disk.handles) safe = safe && handle.open;
    const bool checking = !safe || run.below(2), list = run.below(2), reading = run.below(2);
    constexpr ub4 kinds[] = {skgfqioASYNC, skgfqioASYNC, skgfqioPREPARE, 0};
    const ub4 flags = kinds[run.below(4)] | (reading ? skgfqioREAD : 0);
    ub4 &options = run.ctx->flags_skgfrctx;
    options &= ~ub4{skgfrcVALIDATE | skgfrcLISTIO};
    options |= (checking ? skgfrcVALIDATE : 0) | (list ? skgfrcLISTIO : 0);
    stamp += 0x1000001;
    kgglk head{&head, &head};
    const auto batch = disk.take_free(1 + run.below(run.below(10) ? 24 : 900));
    for (Slot *slot : batch) begin(*slot, disk.handles[run.below(3)], reading, head);

    const bool room = run.ctx->aiopend_skgfrctx + batch.size() <= 1024;
    uword result = 0, refused = 0;
    run.call([&] { result = skgfqio(run.ctx, &head, flags); });
    for (Slot *slot : batch) {
      if (!judge(*slot, flags & skgfqioASYNC, room)) refused = 1;
    }
    run.expect(result == refused, "result of a list", result, refused);
  }

  /// Vectors one behind the other, or elsewhere in the same blocks, at the cached position.
  void transfer_vectors() {
    Handle *const handle = disk.any_open();
    const auto taken = disk.take_free(handle ? 1 : 0);
    for (Slot *slot : taken) {
      slot->handle = handle;
      ub4 at = 0;
      for (size_t times = 1 + run.below(4); times > 0; --times) {
        if (at >= slot->most || run.below(3) == 0) at = run.below(slot->most);
        at = transfer_vector(*slot, at);
      }
      disk.free.push_back(slot);
    }
  }

  void collect() {
    for (size_t times = run.below(40); times > 0; --times) collect_one();
  }

  /// Any request: only one that is completed, and was not delivered, is claimed.
  void claim() {
    Slot &slot = disk.slots[run.below(disk.slots.size())];
    const bool done = slot.outstanding && slot.letter() != 'P';
    const uword left = run.ctx->aiodone_skgfrctx - done;
    run.call([&] { skgfrchk(run.ctx, slot.iosb); });
    run.expect(run.ctx->aiodone_skgfrctx == left, "done", run.ctx->aiodone_skgfrctx, left);
    if (done) take(slot.iosb);
  }

  void collect_all() {
    skgfriosb *iosb = nullptr;
    while (skgfrwat(&run.se, run.ctx, 1, &iosb, nullptr, longest) == skgfrrOK) take(iosb);
    run.expect(disk.outstanding() == 0, "outstanding", disk.outstanding());
  }

 private:
  void begin(Slot &slot, Handle &handle, bool reading, kgglk &head) {
    const size_t bytes = 512 * (1 + run.below(slot.most));
    slot.handle = &handle;
    slot.stamp = stamp;
    slot.fill(slot.words, bytes);
    if (reading) slot.stamp = 0;
    slot.time = skgfrUNKNOWN;
    slot.rq.bufspec_skgfrrq.buffer_skgfrrq = {slot.words, bytes};
    append(slot, slot.first, head);
  }
  void append(Slot &slot, ub4 at, kgglk &head) const {
    slot.rq.iov_skgfrrq = slot.handle->iov;
    slot.rq.blockno_skgfrrq = disk.block(*slot.handle, at);
    slot.rq.link_skgfrrq = {&head, head.kgglkprv};
    head.kgglkprv = head.kgglkprv->kgglknxt = &slot.rq.link_skgfrrq;
  }

  /// How a request ends when nothing fails.
  char expected_state(const Slot &slot, bool asynchronous) const {
    if (!slot.handle->open) return 'B';
    if (!asynchronous) return 'D';
    const bool checking = run.ctx->flags_skgfrctx & skgfrcVALIDATE;
    return slot.handle->synchronous && checking ? 'B' : 'P';
  }

  /// Takes over how a request ended; true when it is done or pending. The kernel may have written
  /// what the submission of a list gave back.
  bool judge(Slot &slot, bool asynchronous, bool room) {
    const char expected = expected_state(slot, asynchronous), found = slot.letter();
    const bool in_kernel = expected == 'P' && !slot.handle->synchronous;
    const bool failed = found == 'E' && expected != 'B' && run.faulted;
    const bool waits = found == 'L' && in_kernel && (run.faulted || !room);
    const bool known = found == expected || failed || waits;
    run.expect(known, "state", found, expected);
    const ub4 single = run.ctx->flags_skgfrctx & skgfrcLISTIO ? 0 : 1;
    const long refused = slot.handle->open ? 2706400 : 2705010;
    const long unmoved = in_kernel ? 2707002 - single : asynchronous ? 2707205 : 2707204;
    const long code = found == 'B' ? refused : found == 'E' ? unmoved : 0;
    run.expect(outcome(slot.se) == code, "error", outcome(slot.se),
               code);
    if (found == 'P') return ++slot.handle->busy, slot.outstanding = true;

    disk.free.push_back(&slot);
    const bool unsure = found != 'D' && in_kernel && slot.stamp;
    const bool moved = unsure && !disk.holds(slot.first, slot.model, slot.bytes());
    if (moved) run.expect(disk.holds(slot.first, slot.words, slot.bytes()), "half written");
    if (found == 'D' || moved) disk.moved(slot);
    return found == 'D';
  }

  /// A request that was delivered. One whose completion failed was carried out all the same.
  void take(skgfriosb *iosb) {
    Slot &slot = static_cast<Slot &>(*static_cast<support::Request *>(iosb->ctx_skgfriosb));
    if (!run.expect(slot.outstanding, "delivered without being outstanding", slot.first)) return;
    slot.outstanding = false;
    --slot.handle->busy;
    disk.free.push_back(&slot);
    const bool good = slot.se.slercoer == 0;
    run.expect(slot.letter() == (good ? 'D' : 'E'), "state at delivery", slot.iosb->status_skgfriosb);
    run.expect((slot.time != skgfrUNKNOWN) == good, "elapsed time", slot.time);
    if (good || slot.stamp) disk.moved(slot);
    if (good) return;
    const ub4 asked = static_cast<ub4>(slot.bytes());
    const int error = slot.se.slercerrno == EIO ? EIO : EINTR;
    run.expect(--run.failed_completions >= 0, "a completion that nobody made to fail");
    run.expect(support::is(slot.se, {27061, error, {longest, asked}}) ||
                   support::is(slot.se, {27085, 0, {asked / 2, asked}}),
               "error at delivery", slot.se.slercoer);
  }

  void collect_one() {
    constexpr ub4 timeouts[] = {0, 1, 100, longest};
    skgfriosb *iosb = nullptr;
    skgfrwcx self{0};
    const ub4 done = run.ctx->aiodone_skgfrctx, before = disk.outstanding(), way = run.below(4);
    const ub4 count = run.below(run.below(8) ? 8 : 500);
    const ub4 timeout = timeouts[run.below(4)], interruptible = run.below(2);
    uword result = 0;
    run.se = {};
    run.call([&] {
      skgfrwcx *const wait = interruptible ? &self : nullptr;
      if (way == 0) result = skgfrwat(&run.se, run.ctx, count, &iosb, wait, timeout);
      if (way == 1) result = skgfnxtio(&run.se, run.ctx, &iosb);
      if (way == 2) iosb = skgfgiod(run.ctx);
      if (way == 3) result = skgfospo(&run.se, run.ctx, count, 0, interruptible, timeout);
    });
    run.came_to(0, {2708300});
    const bool may_end = run.faulted && interruptible && !iosb;
    const bool waits = way == 0 && before && count && timeout == longest;
    const uword none = run.se.slercoer ? skgfrrERROR : skgfrrNOTFOUND;
    const uword there = skgfrrOK, expected[] = {iosb ? there : none, before ? there : none, 0, 0};
    const uword interrupted[] = {skgfrrINTERRUPT, there, 0, TRUE};
    run.expect(result == expected[way] || (may_end && result == interrupted[way]), "result", result,
               expected[way]);
    run.expect(way == 3 || (iosb != nullptr) == (done > 0) || way == 0, "something done", way);
    run.expect(iosb || !(waits || (done && way == 0)) || run.faulted, "nothing delivered", way);
    if (iosb) take(iosb);
  }

  /// One vector, so many blocks behind the slot's first; where it ended. Its buffers have gaps.
  ub4 transfer_vector(Slot &slot, ub4 at) {
    constexpr size_t apart = 4 * words_in_block;
    const bool reading = run.below(2);
    slot.stamp = stamp += 0x1000001;
    slot.fill(scratch, sizeof scratch);
    std::vector<ub4> expected(scratch, std::end(scratch)), model(slot.model + at * words_in_block,
                             slot.model + slot.most * words_in_block);
    std::vector<skgfrbd> parts;
    ub4 end = at;
    for (size_t most = 1 + run.below(16); end < slot.most && parts.size() < most;) {
      const ub4 blocks = std::min(slot.most - end, 1 + run.below(2));
      ub4 *const part = scratch + parts.size() * apart;
      const auto on_disk = model.begin() + (end - at) * words_in_block;
      const auto words = static_cast<ptrdiff_t>(blocks * words_in_block);
      if (reading) std::copy(on_disk, on_disk + words, expected.begin() + (part - scratch));
      if (!reading) std::copy(part, part + words, on_disk);
      parts.push_back({part, blocks * size_t{512}});
      end += blocks;
    }
    slot.rq.bufspec_skgfrrq.bufvec_skgfrrq = {parts.data(), static_cast<uword>(parts.size())};
    kgglk head{&head, &head};
    append(slot, slot.first + at, head);
    uword result = 0;
    run.call([&] { result = skgfqio(run.ctx, &head, skgfqioVECTOR | (reading ? skgfqioREAD : 0)); });

    const bool sought = slot.se.slercoer == 27071;
    run.se = slot.se;
    if (sought) run.se.slercose[0] = longest;  // it is the block, where others have the site
    const bool done = run.came_to(0, {2707100, 2707203}) == Left::everything;
    run.expect(result == !done && slot.letter() == (done ? 'D' : 'E'), "state of a vector");
    if (!done) return at;
    run.expect(std::equal(expected.begin(), expected.end(), scratch), "data of a vector", slot.first);
    if (!reading) std::copy(model.begin(), model.end(), slot.model + at * words_in_block);
    return end;
  }

  Disk &disk;
  Run &run;
  ub4 stamp = 0;
  alignas(512) ub4 scratch[16 * 4 * words_in_block];
};

}  // namespace soak
