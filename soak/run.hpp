// One run: its dice, the faults that they draw, and what was found wrong.
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

/// What calls fail with, and whether they return a pointer. Not the size request of a device: what
/// takes its place finds other sizes.
constexpr struct {
  int errors[3];
  bool pointer;
  const char *calls[7];
} failing[] = {
    // clang-format off
    {{EACCES, EIO, ENOMEM}, false, {"access", "faccessat", "fstatat64", "glob64", "readlink", "readlinkat", "stat64"}},
    {{EIO, EINTR, ENOMEM}, false, {"fstat64", "fstatfs64", "pread64", "read", "readv", "statfs64", "times"}},
    {{EIO, ENOSPC, EDQUOT}, false, {"close", "fsync", "ftruncate64", "pwrite64", "write", "writev"}},
    {{EACCES, ENOSPC, EROFS}, false, {"mkdir", "open64", "rmdir", "unlink"}},
    {{EAGAIN, EIO, ENOMEM}, false, {"half of a list", "io_submit"}},
    {{EAGAIN, EBADF, ENOLCK}, false, {"fcntl"}}, {{EINVAL, EOVERFLOW, ESPIPE}, false, {"lseek64"}},
    {{EINTR, EIO, ENODATA}, false, {"completion"}}, {{EINTR, EIO, ETIME}, false, {"io_getevents"}},
    {{EACCES, EIO, ENOMEM}, true, {"opendir", "readdir64"}}, {{ENOMEM, ENOMEM, ENOMEM}, true, {"malloc"}}};
// clang-format on

inline unsigned long seed;
inline std::mt19937 dice;
inline skgfrctx *ctx;
inline slerc se;                    // of the call last judged
inline bool calm, faulted;          // nothing fails; something failed during the last call
inline const char *kind = "start";  // of the step
inline long step_number, mismatches;
inline long faults_before, failed_completions;

inline ub4 below(size_t limit) { return static_cast<ub4>(dice() % limit); }

inline bool expect(bool agreed, const char *what, long long found = 0, long long expected = 0) {
  if (agreed) return true;
  if (++mismatches > 10) return false;  // the rest follows from these
  const char *const or_failure = faulted ? " or a documented failure" : "";
  std::fprintf(stderr, "seed %lu, step %ld, %s: %s: found %lld, expected %lld%s\n", seed,
               step_number, kind, what, found, expected, or_failure);
  return false;
}

/// An error for the call, or 0. What would undo the damage is not hit by a second fault.
inline int choose(const char *call) {
  if (std::strcmp(call, "unlink") == 0 && fault_count() != faults_before) return 0;
  for (const auto &[errors, pointer, calls] : failing) {
    for (const char *known : calls) {
      if (!known || std::strcmp(known, call) != 0) continue;
      failed_completions += std::strcmp(call, "completion") == 0;
      const int error = errors[below(3)];
      if (pointer) fault_arm(call, 0, 1, error, FAULT_NULL);
      return pointer ? 0 : error;
    }
  }
  return 0;
}

/// Calls the product, where what it calls may fail.
template <class Call>
void attempt(Call product) {
  constexpr unsigned rates[] = {0, 4, 40};
  faults_before = fault_count();
  fault_at_random(calm ? 0 : rates[below(3)], below(1 << 30), choose);
  product();
  fault_at_random(0, 0, nullptr);
  faulted = fault_count() != faults_before;
}

/// A code with the site behind it: 27041 (3) is 2704103.
inline long outcome(const slerc &record) {
  const ub4 site = record.slercose[0];
  return record.slercoer ? record.slercoer * 100L + (site < 100 ? site : 0) : 0;
}

/// Whether `se` tells of success: it must be as expected or, with a fault, as documented.
inline bool succeeded(long expected, std::initializer_list<long> documented) {
  const long found = outcome(se);
  const bool known = std::find(documented.begin(), documented.end(), found) != documented.end();
  expect(found == expected || (faulted && known), "outcome", found, expected);
  return found == 0;
}

template <class Call>
bool succeeds(Call product, long expected, std::initializer_list<long> documented) {
  attempt(product);
  return succeeded(expected, documented);
}

}  // namespace soak
