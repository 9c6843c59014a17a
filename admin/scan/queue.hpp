// Requests of the file layer, several on their way at once. Knows nothing of what their data or failures mean.
#pragma once

#include <skgfr/client.h>

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "admin/scan/scan.hpp"

namespace vdadm::scan {

/// What became of one request.
struct Answer {
  Extent where;
  int error;      // errno; 0: all of it was read
  int64_t since;  // when it was asked for
};

class Queue {
 public:
  static constexpr uint64_t block =
      skgfr_largest_block;  // reaches as far as 32-bit block numbers can
  static constexpr uint64_t longest = skgfr_longest_transfer;

  Queue() = default;
  ~Queue();
  Queue(const Queue &) = delete;
  Queue &operator=(const Queue &) = delete;

  /// Opens the named file, called `what` for people. False with a sentence; facts receives the depth.
  bool open(const std::string &name, const std::string &what, Facts &facts, std::string &sentence);

  /// What requests can reach, in whole blocks.
  const Extent &reach() const { return reach_; }

  bool has_room() const { return !idle_.empty(); }
  bool is_empty() const { return idle_.size() == slots_.size(); }

  /// Puts a request on the list that `send` hands over: whole blocks within reach, `longest` at most.
  void ask(const Extent &where);

  /// Hands everything asked for to the kernel. Answers that come at once are kept for `collect`.
  void send();

  /// Waits for answers, so many hundredths of a second at most; all that are there, in any order. They hold until
  /// the next call.
  const std::vector<Answer> &collect(uint32_t centiseconds);

  /// When the oldest request on its way was asked for; 0: none is.
  int64_t oldest() const;
  /// The least offset of those on their way; `otherwise` when none is.
  uint64_t least(uint64_t otherwise) const;

 private:
  struct Free {
    void operator()(void *memory) const { std::free(memory); }
  };
  struct Slot {
    skgfrrq request{};
    std::unique_ptr<skgfriosb, Free> status;
    slerc se{};
    Extent where;
    int64_t since = 0;  // 0: idle
  };

  bool open_with(const char *options, const std::string &name, slerc *se);
  bool prepare_slots(unsigned depth);
  void settle(Slot &slot);

  skgfrctx context_{};
  skgfrwcx wait_{};
  std::unique_ptr<skgfrfib, Free> file_;
  std::unique_ptr<skgfriov, Free> handle_;
  std::unique_ptr<void, Free> buffers_;
  std::vector<Slot> slots_;
  std::vector<Slot *> idle_;
  std::vector<Answer> answers_;  // found since the last `collect`
  std::vector<Answer> handed_out_;
  kgglk asked_{};
  uint32_t flags_ = 0;
  unsigned in_kernel_ = 0;
  Extent reach_;
  uint32_t first_block_ = 1;
};

}  // namespace vdadm::scan
