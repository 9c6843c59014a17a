// Whole blocks go through the queue; what stands before and behind them, and what a request could not read, is
// read plainly in small pieces.
#include "admin/scan/reader.hpp"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>

namespace vdadm::scan {

namespace {

constexpr uint64_t fine_piece = 4096;          // what disks keep as one, whatever sectors they show
constexpr int64_t longest_wait = 100'000'000;  // until a wish to stop is looked at
constexpr int ended = -1;

uint64_t up(uint64_t value, uint64_t unit) { return (value + unit - 1) / unit * unit; }
uint64_t down(uint64_t value, uint64_t unit) { return value / unit * unit; }

uint32_t centiseconds(int64_t nanoseconds) {
  return static_cast<uint32_t>(nanoseconds / 10'000'000 + 1);
}

}  // namespace

Reader::Reader(const Order &order, Board &board, int events)
    : order_(order), board_(board), events_(events), pace_(order.rate) {}

void Reader::tell(Event::Kind kind, const Extent &where, int error) const {
  const Event event{kind, error, where};
  // A watcher that is gone needs no news; the kernel ends this process with it.
  if (::write(events_, &event, sizeof event) != sizeof event) _exit(1);
}

void Reader::fail(const std::string &sentence) {
  const size_t length = std::min(sentence.size(), sizeof board_.sentence - 1);
  std::memcpy(board_.sentence, sentence.data(), length);
  board_.sentence[length] = '\0';
  tell(Event::failed);
}

void Reader::run() {
  if (!open()) return;
  switch (read_all()) {
    case Next::go_on: return tell(Event::ended);
    case Next::stop: return tell(Event::stopped);
    case Next::file_ended: return fail(order_.name + " became shorter while it was read.");
  }
}

bool Reader::open() {
  const Question question(board_);
  std::string sentence;
  bool readable = target_.open(order_, sentence);
  if (readable) readable = queue_.open(target_.open_name(), order_.name, target_.facts(), sentence);
  if (readable && queue_.reach().end < down(target_.facts().size, Queue::block)) {
    readable = false;
    sentence =
        order_.name + " has more than the 64 TiB that requests can reach: it cannot be read.";
  }
  if (!readable) {
    fail(sentence);
    return false;
  }
  board_.facts = target_.facts();
  board_.position = target_.facts().range.begin;
  const uint64_t unit = std::max(fine_piece, target_.facts().sector_size);
  memory_.resize(2 * unit);
  tell(Event::opened);
  return true;
}

Reader::Next Reader::read_all() {
  const Extent &range = target_.facts().range;
  const Extent middle{up(range.begin, Queue::block), down(range.end, Queue::block)};
  if (middle.begin >= middle.end) return read_plainly(range);

  Next next = read_plainly({range.begin, middle.begin});
  if (next == Next::go_on) next = read_queued(middle);
  if (next == Next::go_on) next = read_plainly({middle.end, range.end});
  return next;
}

Reader::Next Reader::read_queued(const Extent &middle) {
  const uint64_t piece = pace_.piece(Queue::block, Queue::longest);
  uint64_t next = middle.begin;
  while (next < middle.end || !queue_.is_empty() || !failed_.empty()) {
    if (stopping() && queue_.is_empty()) return Next::stop;
    if (queue_.is_empty() && !failed_.empty()) {
      if (const Next result = narrow_failed(); result != Next::go_on) return result;
    }
    if (!stopping() && failed_.empty()) fill(next, middle.end, piece);
    board_.waiting_since = queue_.oldest();
    queue_.send();
    take_answers();
    const uint64_t reached = queue_.least(next);
    board_.position = failed_.empty() ? reached : std::min(reached, failed_.front().begin);
    board_.waiting_since = queue_.oldest();
  }
  return Next::go_on;
}

/// Asks for what comes next, as far as there is room and the rate allows; waits for the rate when nothing else is
/// to be waited for.
void Reader::fill(uint64_t &next, uint64_t end, uint64_t piece) {
  while (next < end && queue_.has_room()) {
    const int64_t wait = pace_.wait(now());
    if (wait > 0) {
      if (queue_.is_empty())
        usleep(static_cast<useconds_t>(std::min(wait, longest_wait) / 1000 + 1));
      return;
    }
    const Extent where{next, std::min(end, next + piece)};
    queue_.ask(where);
    pace_.took(where.bytes(), now());
    next = where.end;
  }
}

void Reader::take_answers() {
  const int64_t wait = std::clamp(pace_.wait(now()), int64_t{0}, longest_wait);
  const std::vector<Answer> &answers = queue_.collect(centiseconds(wait > 0 ? wait : longest_wait));
  if (answers.empty()) return;
  const int64_t time = now();
  uint64_t bytes = 0;
  for (const Answer &answer : answers) {
    board_.latency.add(static_cast<uint64_t>(time - answer.since));
    if (answer.error == 0) {
      bytes += answer.where.bytes();
    } else {
      failed_.push_back(answer.where);
    }
  }
  board_.bytes.fetch_add(bytes, std::memory_order_relaxed);
  std::sort(failed_.begin(), failed_.end(),
            [](const Extent &a, const Extent &b) { return a.begin < b.begin; });
}

/// Nothing else is on its way, so that the disk's answers are to these questions alone.
Reader::Next Reader::narrow_failed() {
  while (!failed_.empty()) {
    const uint64_t bad_before = board_.bad_bytes;
    if (const Next result = read_plainly(failed_.front()); result != Next::go_on) return result;
    if (board_.bad_bytes == bad_before) board_.recovered.fetch_add(1, std::memory_order_relaxed);
    failed_.erase(failed_.begin());
  }
  return Next::go_on;
}

Reader::Next Reader::read_plainly(const Extent &range) {
  const uint64_t unit = memory_.size() / 2;
  for (uint64_t begin = range.begin; begin < range.end;) {
    if (stopping()) return Next::stop;
    const Extent piece{begin, std::min(range.end, down(begin, unit) + unit)};
    const int error = read_fully(piece);
    if (error == ended) return Next::file_ended;
    if (error != 0) {
      if (const Next result = read_by_sector(piece); result != Next::go_on) return result;
    }
    done_with(piece);
    begin = piece.end;
  }
  return Next::go_on;
}

Reader::Next Reader::read_by_sector(const Extent &piece) {
  const uint64_t unit = target_.facts().sector_size;
  for (uint64_t begin = piece.begin; begin < piece.end; begin += unit) {
    const Extent sector{begin, std::min(piece.end, begin + unit)};
    const int error = read_fully(sector);
    if (error == ended) return Next::file_ended;
    if (error == 0) continue;
    board_.bad_bytes.fetch_add(sector.bytes(), std::memory_order_relaxed);
    tell(Event::bad, sector, error);
  }
  return Next::go_on;
}

void Reader::done_with(const Extent &range) {
  board_.bytes.fetch_add(range.bytes(), std::memory_order_relaxed);
  board_.position = range.end;
}

/// 0, errno, or `ended`. A read may stop in front of a bad sector; only going on from there shows it.
int Reader::read_fully(const Extent &range) {
  const uint64_t sector = target_.facts().sector_size;
  const uint64_t unit = memory_.size() / 2;
  void *begin = memory_.data();
  size_t room = memory_.size();
  void *const buffer = std::align(unit, unit, begin, room);
  for (uint64_t at = range.begin; at < range.end;) {
    const Question question(board_);
    const ssize_t bytes = target_.read(buffer, up(range.end - at, sector), at);
    if (bytes < 0) return errno;
    if (bytes == 0) return ended;
    at = std::min(range.end, at + static_cast<uint64_t>(bytes));
    // Direct reading goes on at whole sectors only; less than one is the end of a file.
    if (at < range.end && at % sector != 0) return ended;
  }
  return 0;
}

}  // namespace vdadm::scan
