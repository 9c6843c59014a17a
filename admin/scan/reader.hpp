// The reading process: goes through the range once, in order, and narrows down what cannot be read.
#pragma once

#include <string>
#include <vector>

#include "admin/scan/board.hpp"
#include "admin/scan/pace.hpp"
#include "admin/scan/queue.hpp"
#include "admin/scan/target.hpp"

namespace vdadm::scan {

class Reader {
 public:
  /// events: the pipe to the watcher.
  Reader(const Order &order, Board &board, int events);

  /// Reads; the last event tells how it ended.
  void run();

 private:
  enum class Next { go_on, stop, file_ended };

  bool open();
  Next read_all();
  Next read_queued(const Extent &middle);
  Next read_plainly(const Extent &range);
  Next read_by_sector(const Extent &piece);
  Next narrow_failed();

  void fill(uint64_t &next, uint64_t end, uint64_t piece);
  void take_answers();
  int read_fully(const Extent &range);
  void done_with(const Extent &range);
  bool stopping() const { return board_.stop.load(std::memory_order_relaxed); }
  void tell(Event::Kind kind, const Extent &where = {}, int error = 0) const;
  void fail(const std::string &sentence);

  const Order &order_;
  Board &board_;
  int events_;
  Target target_;
  Queue queue_;
  Pace pace_;
  std::vector<char> memory_;
  std::vector<Extent> failed_;  // requests whose bad sectors are still to be found
};

}  // namespace vdadm::scan
