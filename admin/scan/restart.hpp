// The restart file: how far each of several disks has been read, so that a later run goes on from
// there.
//
// Text in JSON. It is whole at any moment, whatever happens while it is replaced.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "admin/scan/scan.hpp"

namespace vdadm::scan {

/// What is kept of one disk.
struct Saved {
  std::string name;                       // as report::printable shows it
  std::vector<std::string> stable_names;  // of a device, as they were
  std::string range;                      // as it was asked for
  bool finished = false;
  State state;
};

class RestartFile {
 public:
  /// Reads the file when there is one; throws a Failure when that is no restart file.
  explicit RestartFile(std::string path);

  /// What is known of a name.
  std::optional<Saved> find(const std::string &name) const;

  /// Keeps what is known of a disk now, in place of what was. Throws a Failure when it cannot be written.
  void keep(const Saved &saved);

  /// Removes the file when no disk in it is left to go on with.
  void remove_when_finished() const;

 private:
  void write() const;

  std::string path_;
  std::vector<Saved> disks_;
};

}  // namespace vdadm::scan
