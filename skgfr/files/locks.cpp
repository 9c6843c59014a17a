// The whole-file record lock of a handle; never waits.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "skgfr/base/extensions.hpp"
#include "skgfr/skgfr.h"

namespace {

using namespace skgfr;

/// A lock over the whole file, however it grows.
struct flock64 whole_file(short type) {
  struct flock64 lock {};
  lock.l_type = type;
  lock.l_whence = SEEK_SET;
  return lock;
}

/// Finds out who holds the lock that was refused.
void report_holder(slerc *se, int fd, short type, int refusal) {
  struct flock64 holder = whole_file(type);
  if (fcntl(fd, F_GETLK64, &holder) != 0) {
    return fail(se, sites::lock_query, refusal, static_cast<ub4>(errno));
  }
  if (holder.l_type == F_UNLCK) return fail(se, sites::lock_no_holder, refusal);
  fail(se, sites::lock_held, refusal, static_cast<ub4>(holder.l_pid));
}

}  // namespace

void skgfglk(slerc *se, skgfrctx *, skgfriov *iov, boolean share) {
  begin(se);
  const skgfrsiov *const handle = sealed(se, iov, sites::lock_seal);
  if (!handle) return;
  const int fd = handle->fd_skgfrsiov;
  const int status = fcntl(fd, F_GETFL);
  if (status == -1) return fail(se, sites::lock_mode, errno);
  const int access = status & O_ACCMODE;
  if (share && access == O_WRONLY) return fail(se, sites::lock_write_only);

  // The system grants no exclusive lock to a reader; a shared one keeps writers out all the same.
  const short type = share || access == O_RDONLY ? F_RDLCK : F_WRLCK;
  const struct flock64 lock = whole_file(type);
  if (fcntl(fd, F_SETLK64, &lock) != 0) report_holder(se, fd, type, errno);
}

void skgfrlk(slerc *se, skgfrctx *, skgfriov *iov) {
  begin(se);
  const skgfrsiov *const handle = sealed(se, iov, sites::unlock_seal);
  if (!handle) return;
  const struct flock64 lock = whole_file(F_UNLCK);
  if (fcntl(handle->fd_skgfrsiov, F_SETLK64, &lock) != 0) fail(se, sites::unlock_refused, errno);
}
