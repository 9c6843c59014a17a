// vdprep's flow as a part of another command: in a process of its own, its lines captured.
#pragma once

#include <string>

#include "admin/guard/rehearsal.hpp"
#include "admin/inspect/inspect.hpp"

namespace vdadm {

struct FlowOutcome {
  int status;          // as vdprep's exit status; 128 and the signal when it was killed
  std::string output;  // its lines
};

/// Stamps the file that a descriptor has open: no name can lead elsewhere meanwhile.
FlowOutcome run_flow(const guard::FileType &type, int fd);

/// Stamps and reads back what arrived, past the page cache. Throws a Failure that says what is there now,
/// as `name`, when that is not the header for a file of so many bytes.
void stamp_and_compare(const guard::FileType &type, int fd, uint64_t size, const std::string &name);

}  // namespace vdadm
