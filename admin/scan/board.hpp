// What the reading process shows to the one that watches it: memory of both, written by the reader alone but for
// the wish to stop.
#pragma once

#include <sys/mman.h>

#include <atomic>
#include <cstdint>
#include <ctime>
#include <new>

#include "admin/scan/scan.hpp"

namespace vdadm::scan {

inline int64_t now() {
  timespec time;
  clock_gettime(CLOCK_MONOTONIC, &time);
  return int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

struct Board {
  std::atomic<int64_t> waiting_since =
      0;  // when the oldest unanswered question was asked; 0: none is
  std::atomic<uint64_t> position = 0, bytes = 0, bad_bytes = 0, recovered = 0;
  std::atomic<bool> stop = false;  // written by the watcher
  // Complete before the event that tells of them.
  Facts facts;
  char sentence[512] = {};
  Histogram latency;
};

/// The memory of a board, the same in processes forked later.
class SharedBoard {
 public:
  SharedBoard() {
    void *const memory =
        mmap(nullptr, sizeof(Board), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory != MAP_FAILED) board_ = new (memory) Board;
  }
  ~SharedBoard() {
    if (board_) munmap(board_, sizeof(Board));
  }
  SharedBoard(const SharedBoard &) = delete;
  SharedBoard &operator=(const SharedBoard &) = delete;

  explicit operator bool() const { return board_ != nullptr; }
  Board *operator->() const { return board_; }
  Board &operator*() const { return *board_; }

 private:
  Board *board_ = nullptr;
};

/// While it lives the reader waits for an answer of the disk.
class Question {
 public:
  explicit Question(Board &board) : board_(board) {
    board_.waiting_since.store(now(), std::memory_order_relaxed);
  }
  ~Question() { board_.waiting_since.store(0, std::memory_order_relaxed); }
  Question(const Question &) = delete;
  Question &operator=(const Question &) = delete;

 private:
  Board &board_;
};

/// One line from the reader to the watcher; fits a pipe's atomic write.
struct Event {
  enum Kind : uint32_t { opened, bad, ended, stopped, failed } kind;
  int32_t error;
  Extent where;
};

}  // namespace vdadm::scan
