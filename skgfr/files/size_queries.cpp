// Sizes by name, without a file record, and the open-files limit of the process.
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <cerrno>

#include "skgfr/base/descriptor.hpp"
#include "skgfr/base/file_facts.hpp"
#include "skgfr/base/file_name.hpp"
#include "skgfr/base/open_limit.hpp"
#include "skgfr/block0/block0.hpp"
#include "skgfr/skgfr.h"

namespace {

using namespace skgfr;

constexpr ub8 unknown_size = ~ub8{0};
constexpr size_t unknown_block_size = ~size_t{0};
constexpr rlim64_t reserved_descriptors = 32;  // for the rest of the process
constexpr HeaderReadSites read_sites{sites::block_size_seek, sites::block_size_read,
                                     sites::block_size_invalid};

/// Opens for reading, with the direct-I/O choice of a file exempt from the NFS rules.
Descriptor open_for_reading(skgfrctx *ctx, const char *name, mode_t mode) {
  const int direct = skgfr_cfsdirectio(ctx, name, mode, skgfrbNONFS);
  return Descriptor(open64(name, O_RDONLY | direct));
}

ub8 size_of_device(slerc *se, skgfrctx *ctx, const char *name, mode_t mode) {
  const Descriptor device = open_for_reading(ctx, name, mode);
  if (!device) {
    fail(se, sites::file_size_open, errno);
    return unknown_size;
  }
  const off64_t size = skgfgrs(device.get());
  if (size == 0) {
    fail(se, sites::file_size_unknown, errno);
    return unknown_size;
  }
  return static_cast<ub8>(size);
}

}  // namespace

ub8 skgfgfsz(slerc *se, skgfrctx *ctx, text *fnamep, size_t fnamel) {
  begin(se);
  FileName name;
  if (!name.normalise(se, fnamep, fnamel, sites::file_size_name)) return unknown_size;
  struct stat64 status;
  if (stat64(name.chars(), &status) != 0) {
    fail(se, sites::file_size_stat, errno);
    return unknown_size;
  }
  if (S_ISFIFO(status.st_mode) || S_ISDIR(status.st_mode)) {
    fail(se, sites::file_size_kind);
    return unknown_size;
  }
  if (is_device(status.st_mode)) return size_of_device(se, ctx, name.chars(), status.st_mode);
  return static_cast<ub8>(status.st_size);
}

size_t skgfglbsz(slerc *se, skgfrctx *ctx, text *fnamep, size_t fnamel, skgfrf ftype) {
  begin(se);
  FileName name;
  if (!name.normalise(se, fnamep, fnamel, sites::block_size_name)) return unknown_block_size;
  struct stat64 status;
  if (stat64(name.chars(), &status) != 0) {
    fail(se, sites::block_size_stat, errno);
    return unknown_block_size;
  }
  Descriptor file = open_for_reading(ctx, name.chars(), status.st_mode);
  if (!file) {
    fail(se, sites::block_size_open, errno);
    return unknown_block_size;
  }
  const HeaderRead header = read_header(ctx, file.get(), ftype);
  if (!accept(se, header, read_sites)) return unknown_block_size;
  if (!file.close()) fail(se, sites::block_size_close, errno);
  return header.block_size;
}

ub4 skgfrofl(slerc *se, skgfrctx *ctx, ub4) {
  begin(se);
  rlimit64 limit;
  if (getrlimit64(RLIMIT_NOFILE, &limit) != 0) {
    fail(se, sites::open_limit_unread, errno);
    return 0;
  }
  if (limit.rlim_max <= reserved_descriptors) {
    fail(se, sites::open_limit_low);
    return 0;
  }
  limit.rlim_cur = limit.rlim_max;
  if (setrlimit64(RLIMIT_NOFILE, &limit) != 0) {
    fail(se, sites::open_limit_unchanged, errno);
    return 0;
  }
  ctx->maxopen_skgfrctx = static_cast<ub4>(limit.rlim_max - reserved_descriptors);
  ctx->lwm_skgfrctx = low_water_mark(limit.rlim_cur);
  return ctx->maxopen_skgfrctx;
}
