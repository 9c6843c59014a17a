// File search: walks a folder and those below it, and hands every file, or every empty folder,
// whose path begins with a name to the client.
//
// Costs matter here, trees are large: names are compared before the system is asked anything, its
// questions are asked relative to the open folder, one path buffer serves the whole walk, and the
// frames of the recursion are small. Walks one path of folders at a time and remembers nothing of
// those it has left.
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>

#include "skgfr/base/descriptor.hpp"
#include "skgfr/base/errno_guard.hpp"
#include "skgfr/base/file_name.hpp"
#include "skgfr/skgfr.h"
#include "sysl/text.hpp"

namespace {

using namespace skgfr;

constexpr size_t longest_path = name_room - 1;

struct CloseFolder {
  void operator()(DIR *folder) const {
    const ErrnoGuard guard;
    closedir(folder);
  }
};

using Folder = std::unique_ptr<DIR, CloseFolder>;

/// A folder that is being read, and the one from which it was entered.
struct Level {
  const Level *above;
  size_t path_length;
  size_t names_at;  // where in the path the names of its entries go
  Folder folder;
  dev_t device = 0;
  ino64_t number = 0;

  int fd() const { return dirfd(folder.get()); }
  bool open(const char *path);
  bool is_open_above() const;
};

bool Level::open(const char *path) {
  folder = open_stream<Folder>([path] { return opendir(path); }, dirfd);
  struct stat64 status;
  if (!folder || fstat64(fd(), &status) != 0) return false;
  device = status.st_dev;
  number = status.st_ino;
  return true;
}

/// Whether links led back to a folder that is being read already.
bool Level::is_open_above() const {
  for (const Level *level = above; level; level = level->above) {
    if (level->device == device && level->number == number) return true;
  }
  return false;
}

enum class Kind { ignored, file, folder, unsettled };

/// By the type that a directory entry gives, or that a status is turned into.
Kind kind_of(unsigned type) {
  switch (type) {
    case DT_REG:
    case DT_CHR:
    case DT_BLK: return Kind::file;
    case DT_DIR: return Kind::folder;
    case DT_LNK:
    case DT_UNKNOWN: return Kind::unsettled;
    default: return Kind::ignored;
  }
}

bool is_self_or_parent(const char *name) {
  return name[0] == '.' && (!name[1] || (name[1] == '.' && !name[2]));
}

class Walk {
 public:
  Walk(const text *prefix, size_t prefix_length, boolean empty_folders, skgfrprfcb tell,
       void *context)
      : prefix_(sysl::chars(prefix)),
        prefix_length_(prefix_length),
        empty_folders_(empty_folders),
        tell_(tell),
        context_(context) {}

  // These are false when the client stopped the walk.
  bool start(const text *path, size_t length);

 private:
  bool enter(size_t length, const Level *above);
  bool read(const Level &level, bool &empty);
  bool visit(const Level &level, const dirent64 &entry, size_t name_length);
  bool report(size_t length);

  bool is_wanted(const Level &level, const char *name, size_t name_length) const;
  Kind settle(int folder, const char *name) const;
  bool leads_back(int folder, const char *name) const;
  bool path_agrees(size_t length) const {
    return std::memcmp(path_, prefix_, std::min(length, prefix_length_)) == 0;
  }

  const char *const prefix_;
  const size_t prefix_length_;
  const bool empty_folders_;
  const skgfrprfcb tell_;
  void *const context_;
  char path_[name_room];
};

bool Walk::start(const text *path, size_t length) {
  if (length > longest_path) return true;
  std::memcpy(path_, path, length);
  path_[length] = 0;
  if (access(path_, R_OK) != 0) return true;
  switch (settle(AT_FDCWD, path_)) {
    case Kind::file: return empty_folders_ || report(length);
    case Kind::folder: return enter(length, nullptr);
    default: return true;
  }
}

/// Reads the folder that the path names; a path that cannot hold another name is left alone.
bool Walk::enter(size_t length, const Level *above) {
  if (length == longest_path) return true;
  size_t names_at = length;
  if (path_[length - 1] != '/') path_[names_at++] = '/';
  path_[names_at] = 0;
  if (!path_agrees(names_at)) return true;

  bool empty = true;
  {
    Level level{above, length, names_at, nullptr};
    if (!level.open(path_) || level.is_open_above()) return true;
    if (!read(level, empty)) return false;
  }
  path_[length] = 0;
  return !empty_folders_ || !empty || report(length);
}

/// Visits every entry that is wanted. A folder whose end cannot be read does not count as empty.
bool Walk::read(const Level &level, bool &empty) {
  for (;;) {
    errno = 0;
    const dirent64 *const entry = readdir64(level.folder.get());
    if (!entry) {
      if (errno != 0) empty = false;
      return true;
    }
    if (is_self_or_parent(entry->d_name)) continue;
    empty = false;
    const size_t name_length = std::strlen(entry->d_name);
    if (!is_wanted(level, entry->d_name, name_length)) continue;
    if (!visit(level, *entry, name_length)) return false;
  }
}

/// Whether the entry's path fits and begins with the prefix; the folder's part of it is known to.
bool Walk::is_wanted(const Level &level, const char *name, size_t name_length) const {
  if (level.path_length + 1 + name_length > longest_path) return false;
  if (level.names_at >= prefix_length_) return true;
  const size_t rest = prefix_length_ - level.names_at;
  return name_length >= rest && std::memcmp(name, prefix_ + level.names_at, rest) == 0;
}

bool Walk::visit(const Level &level, const dirent64 &entry, size_t name_length) {
  Kind kind = kind_of(entry.d_type);
  if (kind == Kind::ignored || (kind == Kind::file && empty_folders_)) return true;
  if (faccessat(level.fd(), entry.d_name, R_OK, 0) != 0) return true;
  if (kind == Kind::unsettled) kind = settle(level.fd(), entry.d_name);

  std::memcpy(path_ + level.names_at, entry.d_name, name_length + 1);
  const size_t length = level.names_at + name_length;
  switch (kind) {
    case Kind::file: return empty_folders_ || report(length);
    case Kind::folder: return enter(length, &level);
    default: return true;
  }
}

/// What a name leads to, as seen from a folder; a link back into the search is ignored.
// Not inlined: its buffers would grow every frame of the recursion.
[[gnu::noinline]] Kind Walk::settle(int folder, const char *name) const {
  struct stat64 status;
  if (fstatat64(folder, name, &status, 0) != 0) return Kind::ignored;
  const Kind kind = kind_of(IFTODT(status.st_mode));
  return kind == Kind::folder && leads_back(folder, name) ? Kind::ignored : kind;
}

/// Whether a name is a link to ".", to ".." or to a path that the search passes through or reaches.
bool Walk::leads_back(int folder, const char *name) const {
  char target[longest_path];
  const ssize_t got = readlinkat(folder, name, target, sizeof target);
  if (got < 0) return false;
  const auto length = static_cast<size_t>(got);
  if (length <= 2 && std::memcmp(target, "..", length) == 0) return true;
  return std::memcmp(target, prefix_, std::min(length, prefix_length_)) == 0;
}

bool Walk::report(size_t length) {
  if (length < prefix_length_ || !path_agrees(length)) return true;
  return tell_(context_, sysl::texts(path_), length) != FALSE;
}

}  // namespace

void skgfrsfe(slerc *se, const text *fnp, size_t fnpl, boolean lkempty, void *cbctx,
              skgfrprfcb procfcb) {
  begin(se);
  text name[name_room];
  size_t length;
  if (!normalise(se, fnp, fnpl, name, &length, sites::search_name)) return;
  if (length == 0) return recode(se, sites::search_name);
  const text *const second = name + 1;
  const auto *const slash = static_cast<const text *>(memrchr(second, '/', length - 1));
  if (!slash) return;
  skgfrsftw(se, name, static_cast<size_t>(slash + 1 - name), name, length, lkempty, cbctx, procfcb);
}

boolean skgfrsftw(slerc *, const text *obj, size_t objl, const text *fnp, size_t fnpl,
                  boolean lkempty, void *cbctx, skgfrprfcb procfcb) {
  Walk walk(fnp, fnpl, lkempty != FALSE, procfcb, cbctx);
  return walk.start(obj, objl) ? TRUE : FALSE;
}
