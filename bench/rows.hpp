// The work that the layer is measured by, and what each kind of it may cost beyond the bare system calls.
#pragma once

#include <cstddef>
#include <span>

#include "skgfr/client.h"

namespace bench {

enum class Kind { positioned, vectored, asynchronous };
enum class Medium { cached, direct, loop };

inline constexpr unsigned vector_length = skgfr_longest_vector;
inline constexpr int no_goal = -1;

/// How a round's requests are queued. Of asynchronous ones a list is in flight together.
struct Lists {
  unsigned length;
  unsigned count;
};

struct Goals {
  double ratio;                // most elapsed and processor time, in those of the bare calls
  int instructions = no_goal;  // most instructions a request inside the layer
};

struct Variant {
  unsigned handles = 1;  // that the requests of a list are on in turn
  bool checked = true;   // whether the layer examines requests
};

struct Row {
  const char *name;
  Kind kind;
  Medium medium;
  size_t bytes;  // of each buffer: one a request, vector_length in a vectored one
  Lists lists;
  Goals goals;
  Variant variant = {};

  constexpr unsigned requests() const { return lists.length * lists.count; }
  constexpr size_t request_bytes() const {
    return kind == Kind::vectored ? bytes * vector_length : bytes;
  }
};

std::span<const Row> rows();

}  // namespace bench
