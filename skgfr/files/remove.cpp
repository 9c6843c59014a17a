// Deletes files by name, and destination directories or the links to them.
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "skgfr/base/file_facts.hpp"
#include "skgfr/base/file_name.hpp"
#include "skgfr/skgfr.h"

namespace {

using namespace skgfr;

skgfrr refuse(slerc *se, const Site &site) {
  const int error = errno;
  fail(se, site, error);
  return error == ENOENT ? skgfrrNOTFOUND : skgfrrERROR;
}

}  // namespace

skgfrr skgfrdel(slerc *se, skgfrctx *, text *fnamep, size_t fnamel, skgfrf) {
  begin(se);
  FileName name;
  if (!name.normalise(se, fnamep, fnamel, sites::delete_name)) return skgfrrERROR;
  struct stat64 status;
  if (stat64(name.chars(), &status) != 0) return refuse(se, sites::delete_stat);
  if (is_device(status.st_mode)) return skgfrrOK;
  return unlink(name.chars()) == 0 ? skgfrrOK : refuse(se, sites::delete_refused);
}

skgfrr skgfrddel(slerc *se, text *dest, size_t destl) {
  begin(se);
  FileName name;
  if (!name.normalise(se, dest, destl, sites::directory_name)) return skgfrrERROR;
  struct stat64 status;
  if (stat64(name.chars(), &status) != 0) return refuse(se, sites::directory_stat);
  if (!S_ISDIR(status.st_mode)) {
    fail(se, sites::directory_kind);
    return skgfrrERROR;
  }

  char target[name_room];
  const bool is_link = readlink(name.chars(), target, sizeof target) >= 0 || errno != EINVAL;
  const int result = is_link ? unlink(name.chars()) : rmdir(name.chars());
  if (result == 0) return skgfrrOK;
  fail(se, is_link ? sites::directory_link_refused : sites::directory_refused, errno);
  return skgfrrERROR;
}
