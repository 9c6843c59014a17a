// Sizes of devices: by request, by raw binding, by probing.
#include <linux/fs.h>
#include <sys/sysmacros.h>

#include "skgfr/files/device_size.hpp"
#include "tests/support/world.hpp"

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

// The raw device 1:5 is bound to 1:3, which is a disk of more than 4 GiB, as 1:9 is.
int answer(int fd, unsigned long request, void *argument, int *result) {
  struct stat64 status;
  struct Binding {
    int raw_minor;
    ub8 block_major, block_minor;
  } *const binding = static_cast<Binding *>(argument);
  *result = fstat64(fd, &status);
  const bool known = status.st_rdev == makedev(1, 3) || status.st_rdev == makedev(1, 9);
  const bool disk = request == BLKGETSIZE && known;
  if (disk) *static_cast<unsigned long *>(argument) = 20'000'000;
  const bool bound = request == 0xAC01 && binding->raw_minor == 5;
  if (bound) binding->block_major = 1, binding->block_minor = 3;
  return disk || bound;
}

TEST_F(DeviceSize, ProbesForTheEnd) {
  // clang-format off
  const std::tuple<off64_t, int, int, off64_t> rows[] = {  // readable, error behind, probes, size
      {10 * gib, EIO, 26, 10 * gib},           {40 * gib, ENXIO, 29, 40 * gib},
      {16 * gib + 100, 0, 1, 16 * gib + 100},  {std::numeric_limits<off64_t>::max(), EIO, 29, 0},
      {0, EIO, 27, 0},  {512, EIO, 27, 512},   {0, EACCES, 1, 0}};
  // clang-format on
  for (const auto &[readable, behind, count, size] : rows) {
    end = readable, error = behind, probes = 0, errno = 0;
    EXPECT_EQ(skgfr::search_by_probing(read_script, -1), size);
    EXPECT_EQ(std::pair(errno, probes), std::pair(behind, count)) << readable;
  }
}

TEST_F(DeviceSize, TriesOneMethodAfterTheOther) {
  const std::string good = "1 3 0 null\n", other = "   8        0   1000 sda\n", zero = "/dev/zero";
  const std::string endless = std::string(9000, ' ') + "\n";  // fills the buffer
  std::string cut = "major minor  #blocks  name\n\n 1 3\nodd\n";
  while (cut.size() < 8185) cut += other;  // a line lies across the end of a piece
  // clang-format off
  const struct {
    std::string device, control, list;
    off64_t size;
    int opened;
  } rows[] = {
      {"/dev/null", zero, good, 10'240'000'000, 0},  {zero, zero, good, 10'240'000'000, 3},
      {zero, zero, cut + good, 10'240'000'000, 3},   {zero, zero, other, 0, 2},
      {zero, zero, "1 3 0 urandom\n", 0, 3},         {zero, zero, "1 3 0 missing\n", 0, 3},
      {zero, zero, "1 3 0 null", 0, 2},              {zero, zero, endless + good, 0, 2},
      {"/dev/full", zero, good, 0, 1},               {zero, "/dev/missing", good, 0, 1},
      {zero, ".", good, 0, 1}};
  // clang-format on
  for (const auto &row : rows) {
    SCOPED_TRACE(&row - rows);
    World w;
    put(w.name, row.list);
    const int fd = open(row.device.c_str(), O_RDONLY), before = open_descriptors();
    fault_redirect("/dev/rawctl", row.control.c_str());
    fault_redirect("/proc/partitions", w.name.c_str());
    fault_answer_ioctl(answer);
    EXPECT_EQ(skgfgrs(fd), row.size);
    EXPECT_EQ(std::pair(fault_calls("open64"), fault_calls("pread64")),
              std::pair(row.opened, row.size ? 0 : 29));
    EXPECT_TRUE(row.size || errno == EIO);
    EXPECT_EQ(open_descriptors(), before);
    close(fd);
  }
}

}  // namespace
