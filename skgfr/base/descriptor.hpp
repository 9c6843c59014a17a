// The one owner of a file descriptor, and how the layer opens anything: above standard input, output
// and error. Where a client has closed one of these the system gives out its number next, and what the
// client then prints or reads would go to the file; besides, a handle takes 0 for none.
//
// Knows nothing of files or records.
#pragma once

#include <fcntl.h>
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

  /// Takes a number above the standard files. False, with errno set and the descriptor as it was.
  bool rise_above_standard_files() {
    if (fd_ > STDERR_FILENO) return true;
    Descriptor higher(fcntl(fd_, F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
    if (!higher) return false;
    *this = std::move(higher);
    return true;
  }

 private:
  void reset() {
    if (fd_ < 0) return;
    const ErrnoGuard guard;
    close();
  }

  int fd_ = -1;
};

/// Opens what exists, above the standard files; empty, with errno set, when that fails.
inline Descriptor open_file(const char *name, int flags) {
  Descriptor file(open64(name, flags));
  return file && file.rise_above_standard_files() ? std::move(file) : Descriptor();
}

/// The same for a stream of the C library, which cannot be moved: one with the number of a standard
/// file holds it while the next is opened.
template <class Owner, class Open, class NumberOf>
Owner open_stream(Open open, NumberOf number_of) {
  Owner stream(open());
  const int number = stream ? number_of(stream.get()) : -1;
  if (number < 0 || number > STDERR_FILENO) return stream;  // below 0: it has none
  return open_stream<Owner>(open, number_of);
}

}  // namespace skgfr
