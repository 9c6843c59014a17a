// What the failure tables name: scenes that operations work in, what may be different about one, and
// the operations. Knows nothing of the tables.
#pragma once

#include <ctime>
#include <map>

#include "tests/support/requests.hpp"
#include "tests/support/world.hpp"

namespace support {

/// A world with what single operations need on top; nothing is counted or fails while it is made.
struct Scene : World {
  explicit Scene(bool initialised) : World(initialised) {
    fault_reset();
    fault_watch(0);
    fault_arm("sleep", 0, 99, 0, 0);
    client().listens = false;
    tzset();
  }

  ub4 number = 0;       // behind the "=" of a step that has one
  bool absent = false;  // it cannot be had here
  std::optional<LoopDevice> device;
  std::optional<Request> request;
  skgfrstat match{};
  slerc other_se{};  // of a second record that an operation fills
  ub4 request_flags = 0;
  int injected = 0;    // error of the call that fails
  long allocated = 0;  // allocations gained by the operation
};

/// Takes one step towards a scene.
using Prepare = void (*)(Scene &);
std::map<std::string, Prepare> &scenes();

/// Defines a step and its name in the tables.
#define SCENE(name)                                                                   \
  void name(Scene &s);                                                                \
  [[maybe_unused]] const bool name##_is_known = scenes().emplace(#name, name).second; \
  void name([[maybe_unused]] Scene &s)

/// An operation, and how what it came to and what it left is told in a few words.
struct NamedOperation {
  const char *name;
  ub8 (*call)(Scene &);
  std::string (*told)(Scene &, ub8 result);
  Prepare before = nullptr;
};
const NamedOperation &operation_named(const std::string &name);

/// Queues the scene's request in the way of its flags.
uword queue_request(Scene &scene);

/// The handler that is registered.
void count_signal(sword signo, void *context);

}  // namespace support
