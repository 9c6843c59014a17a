// Where block 1 of a named file begins, as its block 0 tells.
#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>

#include "skgfr/base/descriptor.hpp"
#include "skgfr/base/file_name.hpp"
#include "skgfr/block0/block0.hpp"
#include "skgfr/skgfr.h"

namespace {

using namespace skgfr;

constexpr size_t unknown_offset = ~size_t{0};
constexpr HeaderReadSites read_sites{sites::block1_seek, sites::block1_read, sites::block1_invalid};

Descriptor open_for_reading(slerc *se, const char *name) {
  struct stat64 status;
  if (stat64(name, &status) != 0) {
    fail(se, sites::block1_stat, errno);
    return Descriptor();
  }
  const int direct = skgfr_cfsdirectio(nullptr, name, status.st_mode, skgfrbNONFS);
  Descriptor file(open64(name, O_RDONLY | direct));
  if (!file) fail(se, sites::block1_open, errno);
  return file;
}

}  // namespace

size_t skgfgb1off(slerc *se, text *fnamep, size_t fnamel) {
  begin(se);
  FileName name;
  if (!name.normalise(se, fnamep, fnamel, sites::block1_name)) return unknown_offset;
  Descriptor file = open_for_reading(se, name.chars());
  if (!file) return unknown_offset;

  const HeaderRead header = read_header(nullptr, file.get(), skgfrfOSFILE);
  if (!accept(se, header, read_sites)) return unknown_offset;
  if (!file.close()) {
    fail(se, sites::block1_close, errno);
    return unknown_offset;
  }
  return header.block_size;
}
