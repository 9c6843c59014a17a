// The one owner of a file descriptor. Knows nothing of files or records.
#pragma once

#include <unistd.h>

#include <utility>

#include "skgfr/base/errno_guard.hpp"

namespace skgfr {

/// Closes its descriptor when it goes, with errno kept; move-only.
class Descriptor {
 public:
  Descriptor() = default;
  explicit Descriptor(int fd) : fd_(fd) {}
  Descriptor(Descriptor &&other) noexcept : fd_(other.release()) {}
  Descriptor &operator=(Descriptor &&other) noexcept {
    if (this == &other) return *this;
    reset();
    fd_ = other.release();
    return *this;
  }
  ~Descriptor() { reset(); }

  explicit operator bool() const { return fd_ >= 0; }
  int get() const { return fd_; }
  int release() { return std::exchange(fd_, -1); }

  /// Closes where a failure matters: false, with errno set. The descriptor is gone either way.
  bool close() { return ::close(release()) == 0; }

 private:
  void reset() {
    if (fd_ < 0) return;
    const ErrnoGuard guard;
    close();
  }

  int fd_ = -1;
};

}  // namespace skgfr
