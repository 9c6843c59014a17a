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

/// What calls fail with.
constexpr struct {
  int errors[3];
  const char *calls[6];
} failing[] = {{{EIO, EINTR, ENOMEM}, {"fstatfs64", "pread64", "readv", "statfs64"}},
               {{EIO, ENOSPC, EDQUOT}, {"close", "fsync", "pwrite64", "write", "writev"}},
               {{EACCES, ENOSPC, EROFS}, {"open64"}},
               {{EAGAIN, EIO, ENOMEM}, {"half of a list", "io_submit"}},
               {{EAGAIN, EBADF, ENOLCK}, {"fcntl"}},
               {{EINVAL, EOVERFLOW, ESPIPE}, {"lseek64"}},
               {{EINTR, EIO, ENODATA}, {"completion"}},
               {{EINTR, EIO, ETIME}, {"io_getevents"}},
               {{ENOMEM, ENOMEM, ENOMEM}, {"malloc"}}};

inline unsigned long seed;
inline std::mt19937 dice;
inline skgfrctx *ctx;
inline slerc se;                    // of the call last judged
inline bool calm, faulted;          // nothing fails; something failed during the last call
inline const char *kind = "start";  // of the step
inline long step_number, mismatches, failed_completions;

inline ub4 below(size_t limit) { return static_cast<ub4>(dice() % limit); }

inline bool expect(bool agreed, const char *what, long long found = 0, long long expected = 0) {
  if (agreed) return true;
  if (++mismatches > 10) return false;  // the rest follows from these
  const char *const or_failure = faulted ? " or a documented failure" : "";
  std::fprintf(stderr, "seed %lu, step %ld, %s: %s: found %lld, expected %lld%s\n", seed,
               step_number, kind, what, found, expected, or_failure);
  return false;
}

/// An error for the call, or 0.
inline int choose(const char *call) {
  for (const auto &[errors, calls] : failing) {
    for (const char *known : calls) {
      if (!known || std::strcmp(known, call) != 0) continue;
      failed_completions += std::strcmp(call, "completion") == 0;
      if (std::strcmp(call, "malloc") != 0) return errors[below(3)];
      fault_arm(call, 0, 1, errors[0], FAULT_NULL);
    }
  }
  return 0;
}

/// Calls the product, where what it calls may fail.
template <class Call>
void attempt(Call product) {
  constexpr unsigned rates[] = {0, 4, 40};
  const long before = fault_count();
  fault_at_random(calm ? 0 : rates[below(3)], below(1 << 30), choose);
  product();
  fault_at_random(0, 0, nullptr);
  faulted = fault_count() != before;
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

}  // namespace soak
