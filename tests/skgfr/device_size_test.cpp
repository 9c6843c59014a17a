// The size of a device that does not tell it, by searching for its end.

#include <cerrno>
#include <limits>

#include "skgfr/files/device_size.hpp"
#include "tests/support/layer.hpp"

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
  if (error) errno = error;
  return error && offset >= end ? -1 : static_cast<ssize_t>(std::max(end - offset, off64_t{0}));
}

TEST_F(DeviceSize, ProbesForTheEnd) {
  // clang-format off
  const std::tuple<off64_t, int, int, off64_t> rows[] = {  // readable, error behind, probes, size
      {10 * gib, EIO, 26, 10 * gib},           {40 * gib, ENXIO, 29, 40 * gib},
      {16 * gib + 100, 0, 1, 16 * gib + 100},  {std::numeric_limits<off64_t>::max(), EIO, 29, 0},
      {0, EIO, 27, 0},  {512, EIO, 27, 512},   {0, EACCES, 1, 0},   {100, EIO, 27, 0}};
  // clang-format on
  for (const auto &[readable, behind, count, size] : rows) {
    end = readable;
    error = behind;
    probes = errno = 0;
    EXPECT_EQ(skgfr::search_by_probing(read_script, -1), size);
    const int told = readable == 100 ? 0 : behind;  // a sector in parts is no failure
    EXPECT_EQ(std::pair(errno, probes), std::pair(told, count)) << readable;
  }
}

}  // namespace
