#include "bench/storage.hpp"

#include <fcntl.h>
#include <linux/loop.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <vector>

namespace bench {
namespace {

constexpr size_t alignment = 4096;

std::string template_path() {
  const char *const folder = std::getenv("TMPDIR");
  return std::string(folder ? folder : "/tmp") + "/skgfr-bench-XXXXXX";
}

size_t file_bytes(const Row &row) { return row.requests() * row.request_bytes(); }

size_t buffer_bytes(const Row &row) {
  return row.kind == Kind::vectored ? row.request_bytes() : file_bytes(row);
}

}  // namespace

void give_up(const std::string &what) {
  throw std::runtime_error(what + ": " + std::strerror(errno));
}

Storage::Storage(const Row &row)
    : row_(row),
      file_path_(template_path()),
      file_(mkstemp(file_path_.data())),
      buffers_(static_cast<char *>(std::aligned_alloc(
                   alignment, (buffer_bytes(row) + alignment - 1) / alignment * alignment)),
               std::free) {
  if (!file_) give_up("temporary file");
  if (!buffers_) give_up("buffers");
  std::memset(buffers_.get(), 0, buffer_bytes(row));
  const std::vector<char> data(file_bytes(row), 'x');
  const bool written =
      write(file_.get(), data.data(), data.size()) == static_cast<ssize_t>(data.size()) &&
      fsync(file_.get()) == 0;
  if (!written) give_up(file_path_);
  if (row.medium == Medium::loop) attach_loop_device();
}

Storage::~Storage() { unlink(file_path_.c_str()); }

/// The device detaches itself with its last descriptor, however the process ends.
void Storage::attach_loop_device() {
  const skgfr::Descriptor control(open("/dev/loop-control", O_RDWR | O_CLOEXEC));
  loop_config config{};
  config.fd = static_cast<__u32>(file_.get());
  config.info.lo_flags = LO_FLAGS_AUTOCLEAR;
  for (int attempt = 0; attempt < 16; ++attempt) {
    const int number = control ? ioctl(control.get(), LOOP_CTL_GET_FREE) : -1;
    if (number < 0) break;
    const std::string path = "/dev/loop" + std::to_string(number);
    skgfr::Descriptor device(open(path.c_str(), O_RDWR | O_CLOEXEC));
    if (device && ioctl(device.get(), LOOP_CONFIGURE, &config) == 0) {
      device_ = std::move(device);
      device_path_ = path;
      return;
    }
    if (errno != EBUSY) break;
  }
  const int error = errno;
  unlink(file_path_.c_str());
  errno = error;
  give_up("loop device");
}

char *Storage::buffer(unsigned request) const {
  return buffers_.get() + (row_.kind == Kind::vectored ? 0 : request * row_.bytes);
}

off_t Storage::offset(unsigned request) const {
  return static_cast<off_t>(request * row_.request_bytes());
}

}  // namespace bench
