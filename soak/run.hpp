// One run: its dice, the faults that it draws, and what it found wrong.
//
// Knows nothing of what is called. Faults are armed while a call runs and at no other time.
#pragma once

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <random>

#include "tests/support/layer.hpp"

namespace soak {

/// What calls fail with. Not the size request of a device: what takes its place finds other sizes.
constexpr struct {
  int errors[3];
  const char *calls[8];
  bool null = false;  // is what they return
} failing[] = {
    {{EACCES, EIO, ENOMEM}, {"access", "faccessat", "fstatat64", "glob64", "readlink",
                             "readlinkat", "stat64"}},
    {{EIO, EINTR, ENOMEM}, {"fstat64", "fstatfs64", "pread64", "read", "readv",
                            "statfs64", "times"}},
    {{EIO, ENOSPC, EDQUOT}, {"close", "fsync", "ftruncate64", "pwrite64", "write", "writev"}},
    {{EACCES, ENOSPC, EROFS}, {"mkdir", "open64", "rmdir", "unlink"}},
    {{EINVAL, EOVERFLOW, ESPIPE}, {"lseek64"}},
    {{EAGAIN, EBADF, ENOLCK}, {"fcntl"}},
    {{EACCES, EIO, ENOMEM}, {"opendir", "readdir64"}, true},
    {{ENOMEM, ENOMEM, ENOMEM}, {"malloc"}},
    {{EAGAIN, EIO, ENOMEM}, {"half of a list", "io_submit"}},
    {{EINTR, EIO, ETIME}, {"io_getevents"}},
    {{EINTR, EIO, ENODATA}, {"completion"}}};

/// What a call left on disk.
enum class Left { old, header_alone, everything };

/// Failures that leave more than there was.
constexpr std::pair<long, Left> late_failures[] = {{2704501, Left::everything},
    {2704504, Left::everything}, {2704505, Left::everything}, {2704506, Left::everything},
    {2705902, Left::header_alone}};

/// A code with the site behind it: 27041 (3) is 2704103.
inline long outcome(const slerc &se) {
  return se.slercoer ? se.slercoer * 100L + (se.slercose[0] < 100 ? se.slercose[0] : 0) : 0;
}

struct Run {
  explicit Run(unsigned long with_seed) : seed(with_seed), dice(static_cast<unsigned>(seed)) {
    the_run = this;
  }
  ub4 below(size_t limit) { return static_cast<ub4>(dice() % limit); }

  /// Calls the product, where what it calls may fail.
  template <class Call>
  void call(Call product) {
    constexpr unsigned rates[] = {0, 4, 40};
    before = fault_count();
    fault_at_random(calm ? 0 : rates[below(3)], static_cast<unsigned>(dice()), choose);
    product();
    fault_at_random(0, 0, nullptr);
    faulted = fault_count() != before;
  }

  template <class Found = int, class Expected = int>
  bool expect(bool agreed, const char *what, Found found = 0, Expected expected = 0) {
    if (agreed) return true;
    ++mismatches;
    std::fprintf(stderr, "seed %lu, step %ld, %s: %s: found %ld, expected %ld%s\n", seed, step,
                 kind, what, static_cast<long>(found), static_cast<long>(expected),
                 faulted ? " or a documented failure" : "");
    return false;
  }

  /// What the call left: it came to the outcome expected or, with a fault, to a documented one.
  Left came_to(long expected, std::initializer_list<long> documented) {
    const long found = outcome(se);
    const bool known = std::find(documented.begin(), documented.end(), found) != documented.end();
    expect(found == expected || (faulted && known), "outcome", found, expected);
    for (const auto &[failure, left] : late_failures) {
      if (found == failure) return left;
    }
    return found ? Left::old : Left::everything;
  }

  /// An error for the call, or 0. What would undo the damage is not hit by a second fault.
  static int choose(const char *call) {
    if (std::strcmp(call, "unlink") == 0 && fault_count() != the_run->before) return 0;
    for (const auto &[errors, calls, null] : failing) {
      for (const char *known : calls) {
        if (!known || std::strcmp(known, call) != 0) continue;
        the_run->failed_completions += std::strcmp(call, "completion") == 0;
        const int error = errors[the_run->below(3)];
        if (null) fault_arm(call, 0, 1, error, FAULT_NULL);
        return null ? 0 : error;
      }
    }
    return 0;
  }

  inline static Run *the_run = nullptr;
  const unsigned long seed;
  std::mt19937 dice;
  support::Context ctx;
  slerc se{};
  bool calm = false, faulted = false;  // nothing fails; something failed in the last call
  const char *kind = "start";          // of the step
  long step = 0, mismatches = 0, before = 0, failed_completions = 0;
};

}  // namespace soak
