// One slot stands for each buffer, and goes from idle through asked and on its way back to idle.
#include "admin/scan/queue.hpp"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "admin/inspect/inspect.hpp"
#include "admin/scan/board.hpp"

namespace vdadm::scan {

namespace {

constexpr unsigned depth_wanted = 16;
constexpr size_t huge_page = size_t{2} << 20;
constexpr ub4 no_time = 0;

template <class Record>
Record *make_record(skgfrs type) {
  return static_cast<Record *>(std::calloc(1, skgfrgsz(type)));
}

}  // namespace

Queue::~Queue() {
  slerc se;
  if (handle_) skgfcfi(&se, &context_, handle_.get());
  if (context_.cbk_skgfrctx || context_.maxaio_skgfrctx) skgfr_end_context(&se, &context_);
}

bool Queue::open_with(const char *options, const std::string &name, slerc *se) {
  std::string word = options, path = name;
  skgfrsetioparam(se, &context_, reinterpret_cast<text *>(word.data()),
                  static_cast<ub4>(word.size()));
  file_->ftype_skgfrfib = skgfrfOSFILE;
  file_->lblksiz_skgfrfib = block;
  file_->flags_skgfrfib = skgfrbNOHEADER;
  const skgfrr found =
      skgfifi(se, &context_, file_.get(), reinterpret_cast<text *>(path.data()), path.size());
  if (found != skgfrrOK && found != skgfrrSZERR) return false;
  skgfofi(se, &context_, file_.get(), handle_.get(), depth_wanted, 0);
  return se->slercoer == 0;
}

bool Queue::open(const std::string &name, const std::string &what, Facts &facts,
                 std::string &sentence) {
  slerc se;
  skgfrpini(&se, &context_, &wait_, nullptr, nullptr);
  file_.reset(make_record<skgfrfib>(skgfrsFIB));
  handle_.reset(make_record<skgfriov>(skgfrsIOV));
  skgfr_make_list(&asked_);
  const char *const options = facts.direct ? "setall" : "asynch";
  if (se.slercoer != 0 || !file_ || !handle_ || !open_with(options, name, &se)) {
    sentence = inspect::system_sentence(what, se.slercerrno ? se.slercerrno : ENOMEM);
    return false;
  }
  skgfr_reach reach;
  skgfr_find_reach(&se, &context_, file_.get(), &reach);
  if (se.slercoer != 0) {
    sentence = inspect::system_sentence(what, se.slercerrno);
    return false;
  }
  reach_ = {reach.offset, reach.offset + reach.bytes};
  first_block_ = reach.first;

  const bool asynchronous = handle_->maxaio_skgfriov > 0;
  flags_ = skgfqioREAD;
  if (asynchronous) flags_ |= skgfqioASYNC;
  facts.depth = asynchronous ? std::min(depth_wanted, unsigned{handle_->maxaio_skgfriov}) : 1;
  if (prepare_slots(facts.depth)) return true;
  sentence = inspect::system_sentence(what, ENOMEM);
  return false;
}

/// A buffer for each: some file systems verify what was read in the reader's own memory, so two requests that
/// share one would be found corrupt.
bool Queue::prepare_slots(unsigned depth) {
  const size_t bytes = (depth * longest + huge_page - 1) / huge_page * huge_page;
  buffers_.reset(std::aligned_alloc(huge_page, bytes));
  if (!buffers_) return false;
  madvise(buffers_.get(), bytes, MADV_HUGEPAGE);  // fewer pages to pin for each request
  std::memset(buffers_.get(), 0, bytes);
  slots_ = std::vector<Slot>(depth);
  for (unsigned i = 0; i < depth; ++i) {
    Slot &slot = slots_[i];
    slot.status.reset(make_record<skgfriosb>(skgfrsISB));
    if (!slot.status) return false;
    slot.status->slerc_skgfriosb = &slot.se;
    slot.status->ctx_skgfriosb = &slot;
    slot.request.iov_skgfrrq = handle_.get();
    slot.request.iosb_skgfrrq = slot.status.get();
    slot.request.bufspec_skgfrrq.buffer_skgfrrq.bp_skgfrbd =
        static_cast<char *>(buffers_.get()) + i * longest;
    idle_.push_back(&slot);
  }
  return true;
}

void Queue::ask(const Extent &where) {
  Slot &slot = *idle_.back();
  idle_.pop_back();
  slot.where = where;
  slot.since = now();
  slot.request.blockno_skgfrrq =
      first_block_ + static_cast<ub4>((where.begin - reach_.begin) / block);
  slot.request.bufspec_skgfrrq.buffer_skgfrrq.blen_skgfrbd = where.bytes();
  skgfr_append(&asked_, &slot.request);
}

void Queue::send() {
  if (asked_.kgglknxt == &asked_) return;
  skgfqio(&context_, &asked_, flags_);
  kgglk *link = asked_.kgglknxt;
  skgfr_make_list(&asked_);
  for (kgglk *next; link != &asked_; link = next) {
    next = link->kgglknxt;
    auto *const request = reinterpret_cast<skgfrrq *>(link);
    Slot &slot = *static_cast<Slot *>(request->iosb_skgfrrq->ctx_skgfriosb);
    switch (slot.status->status_skgfriosb) {
      case skgfriPEND: ++in_kernel_; break;
      case skgfriLATER: skgfr_append(&asked_, request); break;
      default: settle(slot);
    }
  }
}

void Queue::settle(Slot &slot) {
  const bool done = slot.status->status_skgfriosb == skgfriDONE;
  // Too few bytes come without an error of the system: there the file has ended meanwhile, or the disk is at fault.
  const int error = done ? 0 : slot.se.slercerrno ? slot.se.slercerrno : EIO;
  answers_.push_back({slot.where, error, slot.since});
  slot.since = 0;
  idle_.push_back(&slot);
}

const std::vector<Answer> &Queue::collect(uint32_t centiseconds) {
  handed_out_.clear();
  if (in_kernel_ > 0) {
    slerc se;
    skgfriosb *done = nullptr;
    skgfrr result =
        skgfrwat(&se, &context_, 1, &done, nullptr, answers_.empty() ? centiseconds : no_time);
    while (result == skgfrrOK && done) {
      --in_kernel_;
      settle(*static_cast<Slot *>(done->ctx_skgfriosb));
      result = skgfnxtio(&se, &context_, &done);
    }
  } else if (answers_.empty() && !is_empty()) {
    usleep(1000);  // the kernel had no room for any, and nothing of ours will make some
  }
  handed_out_.swap(answers_);
  return handed_out_;
}

int64_t Queue::oldest() const {
  int64_t oldest = 0;
  for (const Slot &slot : slots_) {
    if (slot.since && (!oldest || slot.since < oldest)) oldest = slot.since;
  }
  return oldest;
}

uint64_t Queue::least(uint64_t otherwise) const {
  for (const Slot &slot : slots_) {
    if (slot.since) otherwise = std::min(otherwise, slot.where.begin);
  }
  return otherwise;
}

}  // namespace vdadm::scan
