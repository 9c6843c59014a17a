// Loads libaio. It is never unloaded: contexts keep its entry points until the process ends.
#include "skgfr/base/kernel_aio.hpp"

#include <dlfcn.h>

namespace {

// The second name is that of systems which changed the library's binary interface for 64-bit time.
constexpr const char *library_names[] = {"libaio.so.1", "libaio.so.1t64"};

void *open_library() {
  for (const char *const name : library_names) {
    if (void *const library = dlopen(name, RTLD_NOW | RTLD_LOCAL)) return library;
  }
  return nullptr;
}

template <class Function>
bool find(void *library, const char *name, Function &entry) {
  entry = reinterpret_cast<Function>(dlsym(library, name));
  return entry != nullptr;
}

}  // namespace

namespace skgfr::kernel_aio {

EntryPoints loaded{};

bool load() {
  if (loaded.queue_init) return true;
  void *const library = open_library();
  if (!library) return false;

  EntryPoints found{};
  const bool complete = find(library, "io_queue_init", found.queue_init) &&
                        find(library, "io_queue_release", found.queue_release) &&
                        find(library, "io_submit", found.submit) &&
                        find(library, "io_getevents", found.getevents);
  if (!complete) {
    dlclose(library);
    return false;
  }
  loaded = found;
  return true;
}

}  // namespace skgfr::kernel_aio
