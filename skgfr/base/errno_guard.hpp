// Keeps errno as it was, around clean-up calls.
#pragma once

#include <cerrno>

namespace skgfr {

class ErrnoGuard {
 public:
  ErrnoGuard() : saved_(errno) {}
  ~ErrnoGuard() { errno = saved_; }
  ErrnoGuard(const ErrnoGuard &) = delete;
  ErrnoGuard &operator=(const ErrnoGuard &) = delete;

 private:
  int saved_;
};

}  // namespace skgfr
