// The search for a device by its numbers, with the input as the start of the kernel's list. The list
// ends in a line that fits. Two harmless devices are really opened, nothing else.
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include "fuzz/fuzz.hpp"
#include "skgfr/skgfr.h"

static std::string list, opened;
int open64(const char *path, int flags, ...) {
  if (path == std::string("/proc/partitions")) {
    const int fd = memfd_create("list", 0);
    require(pwrite(fd, list.data(), list.size(), 0) >= 0, "the list is written");
    return fd;
  }
  opened = path;
  require(opened.rfind("/dev/", 0) == 0, "only what is in /dev is opened");
  require((opened + "/").find("/../") == opened.npos, "no name leaves /dev");
  return opened == "/dev/null" || opened == "/dev/zero" ? open(path, flags) : -1;
}

int LLVMFuzzerTestOneInput(const ub1 *data, size_t size) {
  Input in(data, size);
  std::string others(in.take<ub1>(), '\n');
  for (size_t at = others.size(); at-- > 0;) others.insert(at, " 259        0 1000204632 nvme0n1");
  list = in + "\n" + others + "   1        3          0 null\n";
  opened.clear();
  const int fd = skgfgrsobid(1, 3);
  const bool plain = in.find('\0') == in.npos && in.find("..") == in.npos && in.size() < 8000;
  require(!plain || !opened.empty(), "no line is lost");
  require((fd >= 0) == (opened == "/dev/null"), "the device asked for is opened, no other");
  struct stat64 status {};
  require(fd < 0 || (fstat64(fd, &status) == 0 && status.st_rdev == makedev(1, 3)), "it is open");
  require(fd < 0 || close(fd) == 0, "its descriptor is the caller's");
  return 0;
}
