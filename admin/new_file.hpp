// A file that is there whole or not at all, whenever we are ended.
#pragma once

#include <string>

#include "admin/inspect/descriptor.hpp"

namespace vdadm {

/// A new file without its name yet. It is gone again unless it was published.
class NewFile {
 public:
  /// Throws a Failure that says why nothing can be made there.
  explicit NewFile(const std::string &path, unsigned mode);
  NewFile(const NewFile &) = delete;
  NewFile &operator=(const NewFile &) = delete;
  ~NewFile();

  int fd() const { return file_.get(); }

  /// Flushes it and gives it its name, unless something has that name by now: a Failure. The folder is
  /// flushed, too.
  void publish();

 private:
  std::string path_, folder_;
  std::string temporary_;  // its name until then, where a file needs one
  inspect::Descriptor file_;
};

}  // namespace vdadm
