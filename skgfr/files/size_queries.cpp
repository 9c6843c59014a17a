// Sizes by name, without a file record: of the file, and what its block 0 tells; and the open-files
// limit of the process.
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

/// The sites of a question that block 0 answers.
struct HeaderSites {
  Site name, stat, open;
  HeaderReadSites read;
  Site close;
};
constexpr HeaderSites block_size_sites{
    sites::block_size_name,
    sites::block_size_stat,
    sites::block_size_open,
    {sites::block_size_seek, sites::block_size_read, sites::block_size_invalid},
    sites::block_size_close};
constexpr HeaderSites block1_sites{sites::block1_name,
                                   sites::block1_stat,
                                   sites::block1_open,
                                   {sites::block1_seek, sites::block1_read, sites::block1_invalid},
                                   sites::block1_close};

/// Opens for reading, with the direct-I/O choice of a file exempt from the NFS rules. A FIFO has no
/// block 0, and nobody is to wait for its writer to learn that.
Descriptor open_for_reading(skgfrctx *ctx, const char *name, mode_t mode) {
  const int direct = skgfr_cfsdirectio(ctx, name, mode, skgfrbNONFS);
  const int at_once = S_ISFIFO(mode) ? O_NONBLOCK : 0;
  return open_file(name, O_RDONLY | direct | at_once);
}

/// The block size that block 0 records, known also when only the close failed.
size_t ask_header(slerc *se, skgfrctx *ctx, text *fnamep, size_t fnamel, skgfrf type,
                  const HeaderSites &sites) {
  begin(se);
  FileName name;
  if (!name.normalise(se, fnamep, fnamel, sites.name)) return unknown_block_size;
  struct stat64 status;
  if (stat64(name.chars(), &status) != 0) {
    fail(se, sites.stat, errno);
    return unknown_block_size;
  }
  Descriptor file = open_for_reading(ctx, name.chars(), status.st_mode);
  if (!file) {
    fail(se, sites.open, errno);
    return unknown_block_size;
  }
  const HeaderRead header = read_header(ctx, file.get(), type);
  if (!accept(se, header, sites.read)) return unknown_block_size;
  if (!file.close()) fail(se, sites.close, errno);
  return header.block_size;
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
  return ask_header(se, ctx, fnamep, fnamel, ftype, block_size_sites);
}

size_t skgfgb1off(slerc *se, text *fnamep, size_t fnamel) {
  const size_t offset = ask_header(se, nullptr, fnamep, fnamel, skgfrfOSFILE, block1_sites);
  return failed(se) ? unknown_block_size : offset;
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
