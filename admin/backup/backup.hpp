// What a disk held before it was changed, as text that a person can read and check.
//
// A backup knows its disk, and a digest over all of its text tells when any bit of it changed.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "admin/inspect/inspect.hpp"

namespace vdadm::backup {

struct Region {
  uint64_t offset = 0;
  std::vector<unsigned char> bytes;
};

/// What tells a disk or file from others, as pairs such as "serial" and its value.
using Identity = std::vector<std::pair<std::string, std::string>>;

struct Backup {
  std::string name;  // the resolved one, printable
  std::string kind;
  uint64_t size = 0;
  std::string taken;  // the time, in UTC
  Identity identity;
  std::vector<inspect::Signature> signatures;
  std::vector<Region> regions;  // the first begins at 0; the others hold the signatures behind it
};

/// Reads what has to be kept of a disk that was looked at: its first 16 KiB and each signature.
/// Throws a Failure when something cannot be read.
Backup take(const inspect::Facts &facts);

/// Writes it to a new file, whole or not at all.
void save(const Backup &backup, const std::string &path);

/// Reads one back. Throws a Failure, refused, when a bit of it is not as it was written.
Backup load(const std::string &path);

/// A name for a new one below the state folder, which is made when it is missing.
std::string default_path(const std::string &resolved);

/// Why a backup is not that of this disk; none when it is.
std::optional<std::string> tell_apart(const Backup &backup, const inspect::Facts &facts);

/// The part of block 0, and of the signatures, that a restoration writes: all of it when asked for.
std::vector<Region> to_restore(const Backup &backup, const inspect::Facts &now, bool everything);

/// Writes bytes past the page cache where that is possible, onto stable storage. Throws a Failure.
void put(const std::string &name, int fd, const Region &region);

/// The text of a backup, and back.
std::string to_text(const Backup &backup);
Backup from_text(const std::string &text, const std::string &path);

/// SHA-256 in hexadecimal.
std::string digest_of(const std::string &text);

/// Whether a file holds only zeros from an offset on.
bool is_blank(const inspect::Facts &facts, uint64_t from);

Identity identity_of(const inspect::Facts &facts);

}  // namespace vdadm::backup
