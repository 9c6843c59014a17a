// Kernel asynchronous I/O, reached through libaio when the process can load it.
//
// The library is looked for at run time, so that neither the program nor its users depend on it;
// without it every entry point is null and the layer works synchronously.
#pragma once

#include <libaio.h>

namespace skgfr::kernel_aio {

struct EntryPoints {
  decltype(&io_queue_init) queue_init;
  decltype(&io_queue_release) queue_release;
  decltype(&io_submit) submit;
  decltype(&io_getevents) getevents;
};

/// The entry points, all null before load() found the library; only load() writes them.
extern EntryPoints loaded [[gnu::visibility("hidden")]];
inline const EntryPoints &entry_points() { return loaded; }

/// Loads the library unless an earlier call did. True when all entry points are present.
bool load();

}  // namespace skgfr::kernel_aio
