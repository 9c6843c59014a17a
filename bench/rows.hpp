// The work that the layer is measured by, and what each kind of it may cost beyond the bare system calls.
#pragma once

#include <cstddef>
#include <span>

namespace bench {

enum class Kind { positioned, vectored, asynchronous };
enum class Medium { cached_file, direct_file, loop_device };

inline constexpr unsigned vector_length = 16;
inline constexpr int no_goal = -1;

struct Row {
  const char *name;
  Kind kind;
  Medium medium;
  size_t bytes;      // of each buffer: one a request, vector_length in a vectored one
  unsigned list;     // requests on one list; for asynchronous ones all are in flight together
  unsigned lists;    // in one round
  double ratio;      // most elapsed and processor time, in those of the bare calls
  int instructions;  // most user instructions a request beyond the bare calls; or no_goal
  int calls;         // most system calls beyond the bare ones

  constexpr unsigned requests() const { return list * lists; }
  constexpr size_t request_bytes() const {
    return kind == Kind::vectored ? bytes * vector_length : bytes;
  }
};

std::span<const Row> rows();

}  // namespace bench
