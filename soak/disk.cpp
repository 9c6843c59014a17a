// Requests of every kind on the large file, each judged by what may have become of it.
#include "soak/disk.hpp"

#include <unistd.h>

namespace soak {

Disk::Disk(const std::string &name, const std::string &shown)
    : shown_(open64(shown.c_str(), O_RDONLY)), lockable_(open64(name.c_str(), O_RDONLY)) {
  handles_[1].fib->ftype_skgfrfib = skgfrfKDV;
  handles_[1].from_zero = 1;
  for (Handle &handle : handles_) {
    handle.fib->lblksiz_skgfrfib = 512;
    skgfifi(&se, ctx, handle.fib, support::txt(name), name.size());
    succeeded(0, {});
  }
  for (ub4 at = 0, most = 0; at < 2 * window; at += most) {
    most = std::min<ub4>(below(128) ? 8 : 2048, window - at % window);
    const size_t place = at * size_t{block_words};
    slots_.emplace_back(starts[at / window] + at % window, most,
                        static_cast<ub4 *>(buffers_.get()) + place, model_.data() + place);
    idle_.push_back(&slots_.back());
  }
  block0_ = support::contents(shown, 512);
}

std::vector<Slot *> Disk::take_idle(size_t count) {
  std::shuffle(idle_.begin(), idle_.end(), dice);
  const auto from = idle_.end() - static_cast<ptrdiff_t>(std::min(idle_.size(), count));
  const std::vector<Slot *> taken(from, idle_.end());
  idle_.erase(from, idle_.end());
  return taken;
}

/// Has the next request of the slot begin so many blocks behind its first.
void Disk::address(Slot &slot, Handle &handle, ub4 at) {
  slot.handle = &handle;
  slot.time = skgfrUNKNOWN;
  slot.iov_skgfrrq = handle.iov;
  slot.blockno_skgfrrq = slot.first + at - handle.from_zero;
}

void Disk::submit() {
  constexpr ub4 kinds[] = {skgfqioASYNC, skgfqioASYNC, skgfqioPREPARE, 0};
  const bool all_open = std::all_of(handles_, handles_ + 3, [](auto &each) { return each.open; });
  const bool checking = !all_open || below(2), reading = below(2);  // unchecked, fd 0 is written
  const ub4 flags = kinds[below(4)] | (reading ? skgfqioREAD : 0);
  ctx->flags_skgfrctx &= ~ub4{skgfrcVALIDATE | skgfrcLISTIO};
  ctx->flags_skgfrctx |= (checking ? skgfrcVALIDATE : 0) | (below(2) ? skgfrcLISTIO : 0);
  stamp_ += 0x1000001;
  const auto batch = take_idle(1 + below(below(10) ? 24 : 900));
  for (Slot *slot : batch) {
    const size_t bytes = 512 * (1 + below(slot->most));
    slot->stamp = stamp_;
    slot->reads = reading;
    slot->fill(slot->words, bytes);
    slot->bufspec_skgfrrq.buffer_skgfrrq = {slot->words, bytes};
    address(*slot, handles_[below(3)], 0);
  }
  const bool room = ctx->aiopend_skgfrctx + batch.size() <= 1024;
  const support::RequestList list(support::Requests(batch.begin(), batch.end()));
  uword result = 0, refused = 0;
  attempt([&] { result = skgfqio(ctx, list, flags); });
  for (Slot *slot : batch) refused |= judge(*slot, flags & skgfqioASYNC, room) ? 0 : 1;
  expect(result == refused, "result of a list", result, refused);
}

/// Takes over how a request ended; true when it is done or pending. The kernel may have written what
/// the submission of a list gave back.
bool Disk::judge(Slot &slot, bool asynchronous, bool room) {
  const bool checking = ctx->flags_skgfrctx & skgfrcVALIDATE;
  const bool list = ctx->flags_skgfrctx & skgfrcLISTIO;
  const bool in_kernel = asynchronous && slot.handle->open && !slot.handle->synchronous;
  const bool refused = !slot.handle->open || (asynchronous && !in_kernel && checking);
  const char expected = refused ? 'B' : asynchronous ? 'P' : 'D', found = slot.letter();
  const bool waits = found == 'L' && in_kernel && (faulted || !room);
  const bool fails = found == 'E' && !refused && faulted;
  expect(found == expected || waits || fails, "state of a request", found, expected);
  const long unmoved = in_kernel ? (list ? 2707002 : 2707001) : asynchronous ? 2707205 : 2707204;
  const long code = refused ? (slot.handle->open ? 2706400 : 2705010) : found == 'E' ? unmoved : 0;
  expect(outcome(slot.se) == code, "error of a request", outcome(slot.se), code);
  slot.outstanding = found == 'P';
  if (slot.outstanding) return ++slot.handle->busy;

  idle_.push_back(&slot);
  const bool unsure = found != 'D' && in_kernel && !slot.reads;
  const bool written = unsure && !holds(slot.first, slot.model, slot.bytes());
  expect(!written || holds(slot.first, slot.words, slot.bytes()), "partly written", slot.first);
  if (found == 'D' || written) slot.moved();
  return found == 'D';
}

bool Disk::holds(ub4 block, const void *bytes, size_t size) {
  const ssize_t got = pread64(shown_, seen_.data(), size, off64_t{block} * 512);
  return got == static_cast<ssize_t>(size) && std::memcmp(seen_.data(), bytes, size) == 0;
}

/// A request that was delivered. One whose completion failed was carried out all the same.
void Disk::take(skgfriosb *iosb) {
  Slot &slot = static_cast<Slot &>(*static_cast<support::Request *>(iosb->ctx_skgfriosb));
  if (!expect(slot.outstanding, "delivered without being outstanding", slot.first)) return;
  slot.outstanding = false;
  --slot.handle->busy;
  idle_.push_back(&slot);
  const bool good = slot.se.slercoer == 0;
  expect(slot.letter() == (good ? 'D' : 'E'), "state at delivery", slot.letter());
  expect((slot.time != skgfrUNKNOWN) == good, "elapsed time", slot.time);
  if (good || !slot.reads) slot.moved();
  if (good) return;
  const ub4 asked = static_cast<ub4>(slot.bytes());
  const int error = slot.se.slercerrno == EIO ? EIO : EINTR;
  const bool told = support::is(slot.se, {27061, error, {longest, asked}}) ||
                    support::is(slot.se, {27085, 0, {asked / 2, asked}});
  expect(--failed_completions >= 0 && told, "failed completion", slot.se.slercoer);
}

void Disk::collect() {
  constexpr ub4 timeouts[] = {0, 1, 100, longest};
  for (size_t times = below(40); times > 0; --times) {
    skgfriosb *iosb = nullptr;
    skgfrwcx self{0}, *const wait = below(2) ? &self : nullptr;
    const ub4 done = ctx->aiodone_skgfrctx, before = outstanding(), way = below(4);
    const ub4 count = below(below(8) ? 8 : 500), timeout = timeouts[below(4)];
    uword result = 0;
    se = {};
    attempt([&] {
      if (way == 0) result = skgfrwat(&se, ctx, count, &iosb, wait, timeout);
      if (way == 1) result = skgfnxtio(&se, ctx, &iosb);
      if (way == 2) iosb = skgfgiod(ctx);
      if (way == 3) result = skgfospo(&se, ctx, count, 0, wait ? 1 : 0, timeout) ? 1 : 0;
    });
    succeeded(0, {2708300});
    const uword none = se.slercoer ? skgfrrERROR : skgfrrNOTFOUND, ok = skgfrrOK;
    const uword expected[] = {iosb ? ok : none, before ? ok : none, 0, FALSE};
    const uword interrupted[] = {skgfrrINTERRUPT, ok, 0, TRUE};
    const bool ends_early = faulted && wait && !iosb && result == interrupted[way];
    expect(result == expected[way] || ends_early, "result", result, expected[way]);
    const bool due = done > 0 || (way == 0 && before && count && timeout == longest);
    expect(iosb || !due || way == 3 || (way == 0 && faulted), "nothing delivered", way);
    expect(!iosb || done || way == 0, "delivered unasked", way);
    if (iosb) take(iosb);
  }
}

/// Any request: only one that is completed, and was not delivered, is claimed.
void Disk::claim() {
  Slot &slot = slots_[below(slots_.size())];
  const bool done = slot.outstanding && slot.letter() != 'P';
  const uword left = ctx->aiodone_skgfrctx - done;
  attempt([&] { skgfrchk(ctx, slot.iosb); });
  expect(ctx->aiodone_skgfrctx == left, "done requests", ctx->aiodone_skgfrctx, left);
  if (done) take(slot.iosb);
}

/// Vectors where the last one ended, which is the cached position, or elsewhere.
void Disk::transfer_vectors() {
  Handle *const handle = any_open();
  for (size_t times = handle ? 1 + below(4) : 0; times > 0; --times) {
    const bool goes_on = handle->last && handle->end < handle->last->most && below(4);
    Slot &slot = goes_on ? *handle->last : slots_[below(slots_.size())];
    if (!slot.outstanding) transfer_vector(slot, *handle, goes_on ? handle->end : below(slot.most));
  }
}

/// One vector, so many blocks behind the slot's first.
void Disk::transfer_vector(Slot &slot, Handle &handle, ub4 at) {
  const bool reading = below(2);
  slot.stamp = stamp_ += 0x1000001;
  slot.fill(scratch_, sizeof scratch_);
  std::vector<ub4> expected(scratch_, std::end(scratch_));
  std::vector<ub4> model(slot.model, slot.model + slot.most * block_words);
  std::vector<skgfrbd> parts;
  ub4 end = at;
  for (size_t most = 1 + below(16); end < slot.most && parts.size() < most;) {
    const ub4 blocks = std::min(slot.most - end, 1 + below(2)), words = blocks * block_words;
    const size_t place = parts.size() * 4 * block_words;
    ub4 *const part = scratch_ + place, *const on_disk = model.data() + end * block_words;
    reading ? std::copy_n(on_disk, words, expected.data() + place)
            : std::copy_n(part, words, on_disk);
    parts.push_back({part, words * 4});
    end += blocks;
  }
  slot.bufspec_skgfrrq.bufvec_skgfrrq = {parts.data(), static_cast<uword>(parts.size())};
  address(slot, handle, at);
  const support::RequestList list(support::Requests{&slot});
  uword result = 0;
  attempt([&] { result = skgfqio(ctx, list, skgfqioVECTOR | (reading ? skgfqioREAD : 0)); });
  se = slot.se;
  if (se.slercoer == 27071) se.slercose[0] = 0;  // it is the block, where others have the site
  const bool done = succeeded(0, {2707100, 2707203});
  expect(result == !done && slot.letter() == (done ? 'D' : 'E'), "state of a vector");
  if (!done) return;
  expect(std::equal(expected.begin(), expected.end(), scratch_), "data of a vector", slot.first);
  std::copy(model.begin(), model.end(), slot.model);
  handle.last = &slot;
  handle.end = end;
}

}  // namespace soak
