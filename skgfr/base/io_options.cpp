// How files are opened: the client's option word, and the direct-I/O choice for each file.
//
// Decides; opens nothing.
#include <fcntl.h>
#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/vfs.h>

#include <cstring>

#include "skgfr/base/io_options.hpp"
#include "skgfr/skgfr.h"

namespace {

using namespace skgfr;

constexpr ub4 cluster_file_system = 0xA156F7EB;

/// The first letter of an option word, in either case, and what it turns on; any other turns on
/// nothing.
struct OptionLetter {
  text letter;
  ub4 flags;
};
constexpr OptionLetter option_letters[] = {
    {'a', skgfrcASYNC}, {'d', skgfrcDIRECT}, {'s', skgfrcASYNC | skgfrcDIRECT}, {'n', 0}};

bool has(const skgfrctx *ctx, ub4 flag) { return ctx && (ctx->flags_skgfrctx & flag); }

// The magic number is a signed word on some machines; its 32 bits are what counts.
ub4 magic(const struct statfs64 &system) { return static_cast<ub4>(system.f_type); }

}  // namespace

void skgfr::set_io_options(skgfrctx *ctx, const text *word) {
  ctx->flags_skgfrctx &= ~ub4{skgfrcASYNC | skgfrcDIRECT};
  if (!word) return;
  constexpr text case_bit = 0x20;  // in which the two cases of an ASCII letter differ
  for (const OptionLetter &option : option_letters) {
    if ((word[0] | case_bit) == option.letter) ctx->flags_skgfrctx |= option.flags;
  }
}

bool skgfr::is_on_nfs(int fd) {
  struct statfs64 system;
  return fstatfs64(fd, &system) == 0 && magic(system) == NFS_SUPER_MAGIC;
}

void skgfrsetioparam(slerc *se, skgfrctx *ctx, text *iotype, ub4) {
  begin(se);
  set_io_options(ctx, iotype);
}

uword skgfrioparamcb(lrmctx *, void **retval, uword *len, void *, skgfrallocmem allocmem,
                     void *memctx) {
  constexpr char word[6] = "none";
  void *const copy = allocmem(memctx, sizeof word);
  if (!copy) return 1;
  std::memcpy(copy, word, sizeof word);
  *retval = copy;
  *len = 4;
  return 0;
}

int skgfr_cfsdirectio(skgfrctx *ctx, const char *fname, mode_t mode, ub1 flags) {
  if (!S_ISCHR(mode) && has(ctx, skgfrcDIRECT)) return O_DIRECT;
  if (S_ISBLK(mode)) return O_DIRECT;

  struct statfs64 system;
  if (statfs64(fname, &system) != 0) return 0;
  const bool nfs_counts = !(flags & skgfrbNONFS) && has(ctx, skgfrcCLUSTER);
  const bool direct =
      magic(system) == cluster_file_system || (nfs_counts && magic(system) == NFS_SUPER_MAGIC);
  return direct ? O_DIRECT : 0;
}

boolean skgfr_cfsdirectiofd(skgfrctx *ctx, int fd, mode_t mode) {
  if (S_ISCHR(mode)) return FALSE;
  if (has(ctx, skgfrcDIRECT)) return TRUE;

  struct statfs64 system;
  if (fstatfs64(fd, &system) == 0 && magic(system) == cluster_file_system) return TRUE;
  return S_ISBLK(mode) ? TRUE : FALSE;
}
