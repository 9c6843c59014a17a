// The size of a raw device: that of the block device to which it is bound, found by its numbers in
// the partition list.
//
// Systems without raw devices have no control node, and the search ends there.
#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "skgfr/base/descriptor.hpp"
#include "skgfr/skgfr.h"
#include "sysl/text.hpp"

namespace {

using namespace skgfr;

constexpr char control_node[] = "/dev/rawctl";
constexpr char partition_list[] = "/proc/partitions";
constexpr size_t list_room = 8192;  // of text; a terminator follows
constexpr size_t longest_partition_name = 100;

// The kernel's raw-device interface; <linux/raw.h> is gone from current systems.
struct raw_config_request {
  int raw_minor;
  ub8 block_major;
  ub8 block_minor;
};
constexpr unsigned long raw_getbind = _IO(0xAC, 1);

struct DeviceNumber {
  int major_number;
  int minor_number;

  bool operator==(const DeviceNumber &other) const {
    return major_number == other.major_number && minor_number == other.minor_number;
  }
};

DeviceNumber number_of(const struct stat64 &status) {
  return {static_cast<int>(major(status.st_rdev)), static_cast<int>(minor(status.st_rdev))};
}

struct PartitionName {
  char chars[longest_partition_name + 1];
};

/// Whether a line of the list names the device; headings and empty lines do not parse.
bool matches(const char *line, const DeviceNumber &wanted, PartitionName &name) {
  DeviceNumber found{};
  const int fields =  // NOLINTNEXTLINE(cert-err34-c): the kernel writes the numbers
      std::sscanf(line, "%d %d %*u %100s", &found.major_number, &found.minor_number, name.chars);
  return fields == 3 && found == wanted;
}

/// Looks the device up in the list, read piece by piece; an unfinished line is carried over.
bool find_partition(const DeviceNumber &wanted, PartitionName &name) {
  const Descriptor list = open_file(partition_list, O_RDONLY);
  if (!list) return false;

  char buffer[list_room + 1];
  size_t carried = 0;
  for (;;) {
    // A line that fills the buffer leaves no room, reads nothing and so ends the search.
    const ssize_t got = read(list.get(), buffer + carried, list_room - carried);
    if (got <= 0) return false;
    buffer[carried + static_cast<size_t>(got)] = 0;

    char *line = buffer;
    while (char *const end = std::strchr(line, '\n')) {
      *end = 0;
      if (matches(line, wanted, name)) return true;
      line = end + 1;
    }
    carried = std::strlen(line);
    std::memmove(buffer, line, carried);
  }
}

/// The block device behind a raw device; false when the descriptor is no bound raw device.
bool raw_binding(int fd, DeviceNumber &bound) {
  const Descriptor control = open_file(control_node, O_RDONLY);
  if (!control) return false;

  struct stat64 device, node;
  if (fstat64(fd, &device) != 0 || fstat64(control.get(), &node) != 0) return false;
  if (major(device.st_rdev) != major(node.st_rdev)) return false;

  raw_config_request request{};
  request.raw_minor = number_of(device).minor_number;
  if (ioctl(control.get(), raw_getbind, &request) != 0) return false;
  bound = {static_cast<int>(request.block_major), static_cast<int>(request.block_minor)};
  return true;
}

}  // namespace

int skgfgrsraw(int fd, off64_t *res) {
  DeviceNumber bound{};
  if (!raw_binding(fd, bound)) return -1;
  return skgfgrsbid(bound.major_number, bound.minor_number, res);
}

int skgfgrsbid(int major, int minor, off64_t *res) {
  const Descriptor device(skgfgrsobid(major, minor));
  return device ? skgfgrsbdev(device.get(), res) : -1;
}

int skgfgrsobid(int major, int minor) {
  const DeviceNumber wanted{major, minor};
  PartitionName name;
  if (!find_partition(wanted, name)) return -1;
  if (slnpd(sysl::texts(name.chars))) return -1;  // it would lead out of /dev

  char path[sizeof "/dev/" + longest_partition_name];
  std::snprintf(path, sizeof path, "/dev/%s", name.chars);
  Descriptor device = open_file(path, O_RDONLY);
  struct stat64 status;
  if (!device || fstat64(device.get(), &status) != 0) return -1;
  if (!(number_of(status) == wanted)) return -1;
  return device.release();
}
