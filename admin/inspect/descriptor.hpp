// One owner per file descriptor. Knows nothing of what is open.
#pragma once

#include <unistd.h>

#include <cerrno>
#include <utility>

namespace vdadm::inspect {

class Descriptor {
 public:
  Descriptor() = default;
  explicit Descriptor(int fd) : fd_(fd) {}
  Descriptor(Descriptor &&other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  Descriptor &operator=(Descriptor &&other) noexcept {
    std::swap(fd_, other.fd_);
    return *this;
  }
  ~Descriptor() { reset(); }

  explicit operator bool() const { return fd_ >= 0; }
  int get() const { return fd_; }

  /// Closes it; errno stays as it was.
  void reset() {
    if (fd_ < 0) return;
    const int kept = errno;
    ::close(std::exchange(fd_, -1));
    errno = kept;
  }

  /// Closes it where a failure matters: false, with errno.
  bool close() { return ::close(std::exchange(fd_, -1)) == 0; }

 private:
  int fd_ = -1;
};

}  // namespace vdadm::inspect
