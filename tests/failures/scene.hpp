// What the failure tables name: scenes that operations work in, the operations, and what may be
// different about a scene. Knows nothing of the tables.
#pragma once

#include <functional>
#include <map>

#include "tests/support/world.hpp"

namespace support {

/// A world with what single operations need on top; nothing is counted or fails while it is made.
struct Scene : World {
  explicit Scene(bool initialised) : World(initialised) {
    fault_reset(), fault_watch(0);
    client().listens = false;
    fault_arm("sleep", 0, 99, 0, 0);
  }
  /// Makes the calls of a product operation, counted and failing as armed.
  template <class Call>
  auto during(Call call) {
    const int open_before = open_descriptors();
    const long allocated_before = fault_live_allocations();
    fault_watch(1);
    const auto result = call();
    fault_watch(0);
    allocated = fault_live_allocations() - allocated_before;
    opened = open_descriptors() - open_before;
    return result;
  }

  bool absent = false;  // it cannot be had here
  std::optional<LoopDevice> device;
  Iosb iosb;
  slerc other_se{};  // of a second record that an operation fills
  ub4 time = 0;
  ub4 request_flags = 0;
  int injected = 0;    // error of the call that fails
  int opened = 0;      // descriptors gained
  long allocated = 0;  // allocations gained
};

/// Queues one request of two blocks, in the way of the scene's flags, in its own error record.
uword queue_request(Scene &scene);

/// The handler that is registered.
void count_signal(sword signo, void *context);

/// Runs an operation and tells what it came to and what it left.
using Run = std::string (*)(Scene &);
using Prepare = void (*)(Scene &);

extern const std::map<std::string, Run> operations;
extern const std::map<std::string, Prepare> preparations;
inline const std::string new_process = "new_process";  // begins scenes without a context

}  // namespace support
