// How vdprep would end: its own steps through the layer, all but those that write.
#pragma once

#include <optional>
#include <string>

#include "admin/inspect/inspect.hpp"

namespace vdadm::guard {

struct FileType {
  const char *name;
  uint64_t block_size;
};

/// "vtg" or "kvs".
const FileType &file_type(const std::string &name);

/// The step that would fail.
enum class Step { none, name, identify, size, open, write };

struct Rehearsal {
  std::optional<int> status;  // of vdprep; none: its end depends on a driver that nobody knows
  Step failed = Step::none;
  int error = 0;       // the system's number, when the step failed by one
  std::string reason;  // empty when it would end well
  bool unsafe_mount = false;
  uint64_t new_size = 0;  // of the file, afterwards
};

/// Opens the file as vdprep would, for writing too, and writes nothing.
Rehearsal rehearse(const FileType &type, const inspect::Facts &facts);

}  // namespace vdadm::guard
