// Creates a regular file, or takes over a device, and stamps block 0.
//
// Only block 0 is ever written; the rest of a new file is sparse. A new file is opened once: by its name
// another one could be met. It goes again when a later step fails, unless its name has come to mean
// another file. On return it is on stable storage with its length and its name.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "skgfr/base/descriptor.hpp"
#include "skgfr/base/file_facts.hpp"
#include "skgfr/base/file_name.hpp"
#include "skgfr/block0/block0.hpp"
#include "skgfr/files/device_size.hpp"
#include "skgfr/skgfr.h"

namespace {

using namespace skgfr;

constexpr mode_t file_permissions = 0660;
constexpr mode_t directory_permissions = 0700;
constexpr HeaderWriteSites write_sites{sites::create_seek, sites::create_old_layout_memory,
                                       sites::create_write};

/// What the client asked for.
struct Request {
  skgfrf type;
  size_t block_size;
  ub4 blocks;
  ub1 flags;

  bool has_header() const { return !(flags & skgfrcreNOHEADER); }
  bool has_size() const { return blocks != skgfrUNKNOWN; }
  ub4 total_blocks() const { return blocks + (has_header() ? 1 : 0); }
};

/// Whether the name stands for the open file itself, not for a link to it.
bool is_name_of(const char *name, const Descriptor &file) {
  struct stat64 open, named;
  return fstat64(file.get(), &open) == 0 &&
         fstatat64(AT_FDCWD, name, &named, AT_SYMLINK_NOFOLLOW) == 0 &&
         open.st_dev == named.st_dev && open.st_ino == named.st_ino;
}

/// Removes a new file, which is open still, unless the call that made it succeeds.
class RemoveUnlessKept {
 public:
  void made(const char *name, const Descriptor &file) {
    name_ = name;
    file_ = &file;
  }
  void keep() { name_ = nullptr; }
  RemoveUnlessKept() = default;
  RemoveUnlessKept(const RemoveUnlessKept &) = delete;
  RemoveUnlessKept &operator=(const RemoveUnlessKept &) = delete;
  ~RemoveUnlessKept() {
    if (!name_) return;
    const ErrnoGuard guard;
    if (is_name_of(name_, *file_)) unlink(name_);
  }

 private:
  const char *name_ = nullptr;
  const Descriptor *file_ = nullptr;
};

/// The file under construction.
struct Target {
  FileName name;
  bool is_new = false;
  const char *first_folder_made = nullptr;  // where its name ends in the file's
  mode_t mode = 0;
  Descriptor file;
  RemoveUnlessKept remove;  // goes first
};

/// A name is free, or a device's; an existing file is never overwritten.
bool look_up(slerc *se, Target &target) {
  struct stat64 status;
  if (stat64(target.name.chars(), &status) != 0) {
    target.is_new = errno == ENOENT;
    if (!target.is_new) fail(se, sites::create_stat, errno);
    return target.is_new;
  }
  target.mode = status.st_mode;
  if (!is_device(status.st_mode)) fail(se, sites::create_exists);
  return is_device(status.st_mode);
}

bool within_limit(slerc *se, const skgfrctx *ctx, const Request &request) {
  const ub4 limit = size_limit_in_blocks(ctx, request.block_size);
  const bool fits = limit != 0 && (!request.has_size() || !exceeds(request.total_blocks(), limit));
  if (!fits) fail(se, sites::create_limit);
  return fits;
}

/// Makes every directory that the name goes through.
bool make_directories(slerc *se, Target &target) {
  char *const name = target.name.chars();
  for (char *slash = std::strchr(name + 1, '/'); slash; slash = std::strchr(slash + 1, '/')) {
    *slash = 0;
    const bool made = mkdir(name, directory_permissions) == 0;
    *slash = '/';
    if (made && !target.first_folder_made) target.first_folder_made = slash;
    if (made || errno == EEXIST) continue;
    fail(se, sites::create_directory, errno);
    return false;
  }
  return true;
}

Descriptor create_exclusively(const char *name) {
  return Descriptor(open64(name, O_RDWR | O_CREAT | O_EXCL | O_DSYNC, file_permissions));
}

bool create_file(slerc *se, Target &target, const Request &request) {
  target.file = create_exclusively(target.name.chars());
  if (!target.file && errno == ENOENT && (request.flags & skgfrcreMKDIRS)) {
    if (!make_directories(se, target)) return false;
    target.file = create_exclusively(target.name.chars());
  }
  if (!target.file) {
    fail(se, errno == EEXIST ? sites::create_raced : sites::create_refused, errno);
    return false;
  }
  target.remove.made(target.name.chars(), target.file);
  if (target.file.rise_above_standard_files()) return true;
  fail(se, sites::create_refused, errno);
  return false;
}

/// Turns to direct I/O when the new file's system wants that.
bool prepare_new_file(slerc *se, skgfrctx *ctx, Target &target) {
  struct stat64 status;
  if (fstat64(target.file.get(), &status) != 0) {
    fail(se, sites::create_new_stat, errno);
    return false;
  }
  target.mode = status.st_mode;
  if (!skgfr_cfsdirectiofd(ctx, target.file.get(), status.st_mode)) return true;
  if (fcntl(target.file.get(), F_SETFL, O_DIRECT) == 0) return true;
  fail(se, sites::create_refused, errno);
  return false;
}

bool open_device(slerc *se, Target &target, const Request &request, void *block) {
  target.file = open_file(target.name.chars(), O_RDWR | O_DSYNC);
  if (!target.file) {
    fail(se, sites::create_device_open, errno);
    return false;
  }
  if (!request.has_size()) return true;
  if (!reaches(target.file.get(), request.total_blocks(), request.block_size, block)) {
    fail(se, sites::create_device_small);
    return false;
  }
  std::memset(block, 0, request.block_size);  // another block's data has no place in block 0
  return true;
}

bool set_length(slerc *se, const Target &target, const Request &request) {
  if (!target.is_new || !request.has_size()) return true;
  const off64_t length = static_cast<off64_t>(ub8{request.total_blocks()} * request.block_size);
  if (ftruncate64(target.file.get(), length) == 0) return true;
  fail(se, sites::create_length, errno);
  return false;
}

/// Puts the entries of a folder on stable storage. A file system that flushes no folders says EINVAL.
bool flush_folder(const char *name) {
  const Descriptor folder = open_file(name, O_RDONLY | O_DIRECTORY);
  return folder && (fsync(folder.get()) == 0 || errno == EINVAL);
}

/// Flushes each folder that got an entry: the file's own, and those above every folder made.
bool flush_folders(Target &target) {
  char *const name = target.name.chars();
  const char *const last = target.first_folder_made ? target.first_folder_made : name + name_room;
  char *end = name + std::strlen(name);
  do {
    end = static_cast<char *>(memrchr(name, '/', static_cast<size_t>(end - name)));
    if (!end || end == name) return flush_folder(end ? "/" : ".");
    *end = 0;
    const bool flushed = flush_folder(name);
    *end = '/';
    if (!flushed) return false;
  } while (end >= last);
  return true;
}

bool flush(slerc *se, Target &target) {
  if (!target.is_new) return true;
  if (fsync(target.file.get()) == 0 && flush_folders(target)) return true;
  fail(se, sites::create_length, errno);
  return false;
}

bool open_target(slerc *se, skgfrctx *ctx, Target &target, const Request &request, void *block) {
  if (!target.is_new) return open_device(se, target, request, block);
  return within_limit(se, ctx, request) && create_file(se, target, request) &&
         prepare_new_file(se, ctx, target);
}

bool stamp(slerc *se, skgfrctx *ctx, const Target &target, const Request &request, void *block) {
  if (!request.has_header()) return true;
  const HeaderFields fields{request.block_size, request.blocks, target.mode};
  return write_header(se, ctx, target.file.get(), fields, request.type, block, write_sites);
}

}  // namespace

void skgfrcre(slerc *se, skgfrctx *ctx, text *fnamep, size_t fnamel, skgfrf type, size_t lblksiz,
              ub4 nblocks, ub1 flags) {
  begin(se);
  if (!is_block_size(lblksiz)) {
    return fail(se, sites::create_block_size, 0, static_cast<ub4>(lblksiz));
  }
  const Request request{type, lblksiz, nblocks, flags};
  Target target;
  if (!target.name.normalise(se, fnamep, fnamel, sites::create_name)) return;
  if (!look_up(se, target)) return;
  const AlignedBuffer block(lblksiz);
  if (!block) return fail(se, sites::create_memory, errno);

  if (!open_target(se, ctx, target, request, block.data())) return;
  if (!stamp(se, ctx, target, request, block.data())) return;
  if (!set_length(se, target, request) || !flush(se, target)) return;
  target.remove.keep();
  if (!target.file.close()) fail(se, sites::create_close, errno);
}
