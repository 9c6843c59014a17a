// Sizes of devices: by request, by raw binding, by probing.
#include <fcntl.h>
#include <linux/fs.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include "skgfr/files/device_size.hpp"
#include "tests/support/file_rows.hpp"

using namespace support;

namespace {

class DeviceSize : public LayerTest {};

constexpr off64_t gib = 1 << 30;

// A device that can be read up to `end`; behind it, `error` or else the end of the file.
off64_t end;
int error, probes;
ssize_t read_script(int, void *, size_t, off64_t offset) {
  ++probes;
  if (offset + 512 <= end) return 512;
  errno = error;
  return error ? -1 : static_cast<ssize_t>(std::max(end - offset, off64_t{0}));
}

// The raw device 1:5 is bound to 1:3, which answers as a disk of more than 4 GiB.
int answer(int fd, unsigned long request, void *argument, int *result) {
  struct stat64 status;
  struct Binding {
    int raw_minor;
    ub8 block_major, block_minor;
  } *const binding = static_cast<Binding *>(argument);
  *result = fstat64(fd, &status);
  const bool disk = request == BLKGETSIZE && status.st_rdev == makedev(1, 3);
  if (disk) *static_cast<unsigned long *>(argument) = 20'000'000;
  const bool bound = request == 0xAC01 && binding->raw_minor == 5;
  if (bound) binding->block_major = 1, binding->block_minor = 3;
  return disk || bound;
}

TEST_F(DeviceSize, ProbesForTheEnd) {
  const std::tuple<off64_t, int, off64_t, int, int> rows[] = {
      {10 * gib, EIO, 10 * gib, EIO, 26},      // halved from the first probe on
      {40 * gib, ENXIO, 40 * gib, ENXIO, 29},  // doubled twice before
      {16 * gib, 0, 16 * gib, 0, 1},
      {16 * gib + 100, 0, 16 * gib + 100, 0, 1},
      {0, EIO, 0, EIO, 27},
      {512, EIO, 512, EIO, 27},
      {1024, EIO, 1024, EIO, 26},
      {0, EACCES, 0, EACCES, 1},
      {std::numeric_limits<off64_t>::max(), EIO, 0, EIO, 29},
  };
  for (const auto &[readable, behind, size, left, count] : rows) {
    SCOPED_TRACE(readable);
    end = readable, error = behind, probes = 0, errno = 0;
    EXPECT_EQ(skgfr::search_by_probing(read_script, -1), size);
    EXPECT_EQ(std::pair(errno, probes), std::pair(left, count));
  }
}

TEST_F(DeviceSize, FindsDevicesInThePartitionList) {
  const std::string other = "   8        0   1000 sda\n";
  std::string long_list = "major minor  #blocks  name\n\n";
  while (long_list.size() < 8185) long_list += other;  // a line lies across the end of a piece
  const std::tuple<std::string, bool> rows[] = {
      {"major minor  #blocks  name\n\n 1 5\nodd\n   1        5          0 zero\n", true},
      {long_list + "   1        5          0 zero\n", true},
      {other, false},
      {"   1        5          0 null\n", false},  // a device with another number
      {"   1        5          0 missing\n", false},
      {"   1        5          0 zero", false},  // no complete line
      {std::string(9000, ' ') + "\n 1 5 0 zero\n", false},
  };
  for (const auto &[list, found] : rows) {
    SCOPED_TRACE(list.substr(list.size() - 20));
    World w;
    put(w.name, list);
    fault_redirect("/proc/partitions", w.name.c_str());
    const int open = open_descriptors(), fd = skgfgrsobid(1, 5);
    struct stat64 status {};
    EXPECT_EQ(fstat64(fd, &status) == 0 && status.st_rdev == makedev(1, 5), found);
    if (found) close(fd);
    EXPECT_EQ(open_descriptors(), open);
  }
}

TEST_F(DeviceSize, TriesOneMethodAfterTheOther) {
  const std::tuple<std::string, std::string, std::string, off64_t, int> rows[] = {
      {"/dev/null", "/dev/zero", "1 3 0 null\n", 10'240'000'000, 0},  // answers itself
      {"/dev/zero", "/dev/zero", "1 3 0 null\n", 10'240'000'000, 3},
      {"/dev/zero", "/dev/zero", "1 4 0 null\n", 0, 2},    // bound to what is not listed
      {"/dev/full", "/dev/zero", "1 3 0 null\n", 0, 1},    // not bound
      {"/dev/zero", "/etc/passwd", "1 3 0 null\n", 0, 1},  // no raw device
      {"/dev/zero", "/dev/missing", "1 3 0 null\n", 0, 1},
  };
  for (const auto &[device, control, list, size, opened] : rows) {
    SCOPED_TRACE(&size - &std::get<3>(rows[0]));
    World w;
    put(w.name, list);
    const int fd = open(device.c_str(), O_RDONLY), before = open_descriptors();
    fault_redirect("/dev/rawctl", control.c_str());
    fault_redirect("/proc/partitions", w.name.c_str());
    fault_answer_ioctl(answer);
    EXPECT_EQ(skgfgrs(fd), size);
    EXPECT_EQ(std::pair(fault_calls("open64"), fault_calls("pread64")),
              std::pair(opened, size ? 0 : 29));
    EXPECT_TRUE(size || errno == EIO);
    EXPECT_EQ(open_descriptors(), before);
    close(fd);
  }
}

}  // namespace
