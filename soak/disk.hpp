// A large file or device: the handles and requests on it, and what its blocks hold.
//
// Every slot has blocks and a buffer of its own, so that the order of completions decides nothing.
#pragma once

#include <fcntl.h>

#include <deque>
#include <numeric>

#include "soak/run.hpp"
#include "tests/support/requests.hpp"

namespace soak {

constexpr ub4 longest = 0xFFFFFFFF, block_words = 128, disk_blocks = 0x908000;  // over 4 GiB
constexpr ub4 window = 1 << 15;                           // blocks in use at either end
constexpr ub4 starts[] = {17, disk_blocks + 1 - window};  // a page away from block 0

struct Slot;
struct Handle {
  support::Fib fib;
  support::Iov iov;
  ub4 from_zero = 0, busy = 0;  // where blocks are counted from 0; requests outstanding
  bool open = false, synchronous = false;
  Slot *last = nullptr;  // where the last vector ended, so many blocks behind its first
  ub4 end = 0;
};

/// A request, the blocks that are its own, and a buffer for them.
struct Slot : support::Request {
  Slot(ub4 at, ub4 blocks, ub4 *bytes, ub4 *on_disk)
      : Request(nullptr, at, {{bytes, 0}}), first(at), most(blocks), words(bytes), model(on_disk) {}
  size_t bytes() const { return bufspec_skgfrrq.buffer_skgfrrq.blen_skgfrbd; }
  /// What a write writes: every word tells its place and the moment.
  void fill(ub4 *to, size_t size) const {
    std::iota(to, to + size / 4, stamp + first * block_words);
  }
  /// A transfer that took place, seen from either side.
  void moved() const {
    if (!reads) fill(model, bytes());
    expect(std::memcmp(words, model, bytes()) == 0, "data of block", first);
  }
  ub4 first, most, *words, *model, stamp = 0;
  Handle *handle = nullptr;
  bool reads = false, outstanding = false;
};

class Disk {
 public:
  /// An existing file, and the one that shows its contents: for a device, the one behind it.
  Disk(const std::string &name, const std::string &shown);
  void submit();
  void transfer_vectors();
  void collect();
  void claim();
  void lock();
  void upgrade();
  void open_or_close();
  /// Every counter, list and handle against the model; a busy handle does not close.
  void check();
  /// Collects and closes everything, and compares all contents.
  void rest();

 private:
  std::vector<Slot *> take_idle(size_t count);
  void address(Slot &slot, Handle &handle, ub4 at);
  bool judge(Slot &slot, bool asynchronous, bool room);
  void take(skgfriosb *iosb);
  void transfer_vector(Slot &slot, Handle &handle, ub4 at);
  void change(Handle &handle, bool opens);
  bool holds(ub4 block, const void *bytes, size_t size);
  Handle *any_open();
  ub4 outstanding() const { return handles_[0].busy + handles_[1].busy + handles_[2].busy; }

  int shown_, lockable_;
  ub4 stamp_ = 0;
  Handle handles_[3];  // the second counts from 0, the third does no asynchronous I/O
  std::string block0_;
  std::deque<Slot> slots_;
  std::vector<Slot *> idle_;
  std::vector<ub4> model_ = std::vector<ub4>(2 * window * block_words), seen_ = model_;
  std::unique_ptr<void, void (*)(void *)> buffers_{std::aligned_alloc(512, model_.size() * 4),
                                                   std::free};
  alignas(512) ub4 scratch_[16 * 4 * block_words];  // 16 buffers with gaps
};

}  // namespace soak
