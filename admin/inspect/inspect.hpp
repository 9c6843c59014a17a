// What is on a disk, and what the disk is: facts, no policy.
//
// Reads and asks, never writes. A disk that does not answer holds up whoever asks: workers.hpp runs
// the questions where that does no harm.
#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "admin/inspect/descriptor.hpp"
#include "admin/inspect/header.hpp"
#include "admin/report/report.hpp"

namespace vdadm::inspect {

/// Something else that is recorded on a disk.
struct Signature {
  std::string type;
  std::string label;  // may be empty
  uint64_t offset;    // of its magic bytes
  uint64_t length;    // of these
};

/// Who has a disk or a file.
struct Holder {
  std::string kind;    // mount, swap, device, loop, process, lock
  std::string name;    // mount point, device or program
  std::string device;  // the device that it has: a partition, say; empty for files
  uint64_t process = 0;
  bool writes = false;
};

enum class Depth {
  header,      // status, size, block 0
  signatures,  // what else is recorded, too
  contents,    // and who holds it
  processes    // also which processes have it open, which takes a look at all of them
};

/// What was found out about one name. What could not be is empty, with the reason in `trouble`.
struct Facts {
  std::string name;      // as it was given
  std::string resolved;  // absolute, without links; empty when it is not there
  struct stat64 status {};
  bool exists = false;
  bool answered = true;
  std::string trouble;  // a sentence: why it could not be read
  int error = 0;        // the system's number for it
  std::optional<uint64_t> size;
  std::optional<uint64_t> sector_size;
  std::vector<std::string> stable_names;
  std::vector<unsigned char> start;  // its first bytes, up to longest_block
  std::optional<Header> header;
  std::vector<Signature> signatures;
  std::vector<Holder> holders;

  bool is_file() const { return exists && S_ISREG(status.st_mode); }
  bool is_block_device() const { return exists && S_ISBLK(status.st_mode); }
  bool is_character_device() const { return exists && S_ISCHR(status.st_mode); }
};

/// Everything about one name, as the shell would take it. Does not throw for what a name is like.
Facts look_at(const std::string &name, Depth depth);

/// The facts of a name that gave no answer in time.
Facts silent(const std::string &name, double seconds);

/// "file", "block", "character", another word for what is no disk; null when it is not there.
const char *kind_of(const Facts &facts);

/// The facts as the fields that show, verify, check and discover have in common.
report::Object describe(const Facts &facts);

// The pieces, for whoever needs one alone; each in a file of its name.

/// The size in bytes of an open file or device, by the layer's own methods.
std::optional<uint64_t> size_of(int fd, const struct stat64 &status);

/// A resolved name for the layer, which translates some characters of the names that it is given.
std::string literal(const std::string &resolved);

/// What direct I/O on a name must be a multiple of, as the layer finds it; none: it cannot tell.
std::optional<uint64_t> sector_size_of(const std::string &resolved);

/// Up to `length` bytes from `offset`, past the page cache where that is possible. Shorter at the
/// end of the file, or before what cannot be read; none when that is the first byte, with errno.
std::optional<std::vector<unsigned char>> read_at(int fd, uint64_t offset, size_t length);

/// All signatures that libblkid knows of, in the order of their offsets.
std::vector<Signature> signatures_of(int fd);

/// The links in /dev/disk that lead to a block device.
std::vector<std::string> stable_names_of(dev_t device);

std::vector<Holder> holders_of(const struct stat64 &status, bool processes);

/// The folder in /sys of a block device; empty when there is none.
std::string sysfs_folder(dev_t device);

/// The first line of a small file, such as those in /sys; empty when there is none.
std::string first_line(const std::string &path);

/// A sentence for a system error: "NAME: Permission denied."
std::string system_sentence(const std::string &what, int error);

}  // namespace vdadm::inspect
