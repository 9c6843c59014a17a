// Keeps others away from a disk between the look at it and the write to it.
#pragma once

#include <string>

#include "admin/inspect/inspect.hpp"

namespace vdadm::guard {

/// A block device is opened exclusively, which mounting, swap and device stacks honour; an advisory lock
/// on the whole disk's node, or on the file, is what device managers and cluster software honour.
class Hold {
 public:
  /// Of nothing: for a look alone.
  Hold() = default;

  /// Does not wait. What could not be had is told by busy().
  explicit Hold(const inspect::Facts &facts);

  /// The disk or file as it was found: through it, no name can lead elsewhere meanwhile. -1 when it
  /// could not be opened.
  int fd() const { return file_.get(); }

  /// A sentence: who or what has it; empty when it is ours alone.
  const std::string &busy() const { return busy_; }

  /// Whether it still is the file that was looked at.
  bool is(const inspect::Facts &facts) const;

 private:
  void lock_whole_disk(const inspect::Facts &facts);
  inspect::Descriptor file_, exclusive_, whole_;
  std::string busy_;
};

}  // namespace vdadm::guard
