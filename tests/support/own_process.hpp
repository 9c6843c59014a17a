// Tests in processes of their own, guarded buffers, and records that keep their leftovers.
#pragma once

#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <tuple>

#include "tests/support/layer.hpp"

namespace support {

/// Runs the body in a child, for what a process does only once: fill a list, install a handler.
/// What fails in the child is printed there and fails the test. False when the body answered that it
/// cannot be had here.
template <class Body>
bool in_own_process(Body body) {
  constexpr int not_here = 77;
  const bool failed_before = testing::Test::HasFailure();
  std::fflush(stdout);
  const pid_t child = fork();
  // What is thrown ends the child, which would run the other tests otherwise.
  const auto run = [&]() noexcept {
    if constexpr (std::is_same_v<decltype(body()), bool>) {
      return body();
    } else {
      body();
      return true;
    }
  };
  if (child == 0) {
    const bool here = run();
    std::fflush(stdout);
    _exit(testing::Test::HasFailure() != failed_before ? 1 : here ? 0 : not_here);
  }
  int status = -1;
  waitpid(child, &status, 0);
  const bool absent = WIFEXITED(status) && WEXITSTATUS(status) == not_here;
  EXPECT_TRUE(absent || status == 0) << "in a process of its own";
  return !absent;
}

template <class Rows, class Body>
void each_in_own_process(const Rows &rows, Body body) {
  for (const auto &row : rows) in_own_process([&] { body(row); });
}

/// Runs checks in a process that begins anew, in which nothing was registered or loaded before; where an
/// emulator starts none it is a copy of this one, and then nothing may have gone before them.
template <class Checks>
void in_new_process(Checks checks) {
  GTEST_FLAG_SET(death_test_style, VDPREP_EMULATED ? "fast" : "threadsafe");
  EXPECT_EXIT((checks(), _exit(testing::Test::HasFailure())), testing::ExitedWithCode(0), "");
}

/// A buffer whose end is watched.
class Guarded {
 public:
  explicit Guarded(size_t room) : room_(room), bytes_(room + 16, '\xA5') {}
  text *data() { return txt(bytes_); }
  std::string start(size_t size) const { return bytes_.substr(0, size); }
  bool intact() const { return intact(room_); }
  bool intact(size_t from) const { return bytes_.find_first_not_of('\xA5', from) == bytes_.npos; }

 private:
  size_t room_;
  std::string bytes_;
};

inline std::string str(const text *name) { return reinterpret_cast<const char *>(name); }

/// A record that was dirty and of which only the code was set.
inline Expected only(eword code) {
  const ub4 left = 0x5A5A5A5A;
  return {code, 0x5A5A5A5A, {left, left, left}};
}

}  // namespace support
