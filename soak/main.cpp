// Mixes all operations at random, for so many minutes or steps, and prints what came of it.
#include <chrono>
#include <cstdlib>

#include "soak/files.hpp"
#include "soak/requests.hpp"
#include "tests/support/places.hpp"

namespace {

using namespace soak;

struct World {
  World(Run &with_run, const std::string &name, const std::string &shown, const std::string &tree)
      : run(with_run),
        disk(with_run, name, shown),
        requests(disk),
        files(with_run, tree, name, shown) {}
  Run &run;
  Disk disk;
  Requests requests;
  Files files;
  int descriptors = 0;  // at the first rest, and what came to stay until the last
  long allocations = 0;
  long gained[2] = {};
};

struct Kind {
  const char *name;
  size_t weight;
  void (*step)(World &);
  long done = 0;
} kinds[] = {{"requests", 8, [](World &w) { w.requests.submit(); }},
             {"vectors", 3, [](World &w) { w.requests.transfer_vectors(); }},
             {"collect", 6, [](World &w) { w.requests.collect(); }},
             {"claim", 12, [](World &w) { w.requests.claim(); }},
             {"open or close", 3, [](World &w) { w.disk.open_or_close(); }},
             {"lock", 1, [](World &w) { w.disk.lock(); }},
             {"upgrade", 1, [](World &w) { w.files.upgrade(w.disk.any_open()); }},
             {"create", 6, [](World &w) { w.files.create(); }},
             {"identify, resize", 6, [](World &w) { w.files.identify(); }},
             {"sizes", 2, [](World &w) { w.files.ask_sizes(); }},
             {"remove", 3, [](World &w) { w.files.remove(); }},
             {"search", 1, [](World &w) { w.files.search(); }},
             {"discover", 1, [](World &w) { w.files.discover(); }}};

void step(World &world) {
  size_t all = 0;
  for (const Kind &kind : kinds) all += kind.weight;
  size_t drawn = world.run.below(all);
  Kind *kind = kinds;
  while (drawn >= kind->weight) drawn -= kind++->weight;
  world.run.kind = kind->name;
  kind->step(world);
  world.disk.check();
  ++kind->done;
  ++world.run.step;
}

/// Nothing is outstanding and nothing open: all contents, descriptors and allocations count.
void rest(World &world) {
  world.run.kind = "rest";
  world.run.calm = true;
  world.requests.collect_all();
  world.disk.rest();
  world.files.rest();
  world.run.calm = false;
  const int descriptors = support::open_descriptors();
  if (world.descriptors == 0) world.descriptors = descriptors, world.allocations = fault_live_allocations();
  world.gained[0] = descriptors - world.descriptors;
  world.gained[1] = fault_live_allocations() - world.allocations;
}

struct Arguments {
  double minutes = 1e9;
  long steps = 1L << 30;
  unsigned long seed = std::random_device()();
  std::string place = "file";
};

int skip(const char *reason) {
  std::printf("skipped: %s\n", reason);
  return 77;
}

int report(const World &world) {
  const Run &run = world.run;
  std::printf("%-30s %12ld\n", "operations", run.step);
  for (const Kind &kind : kinds) std::printf("  %-28s %12ld\n", kind.name, kind.done);
  std::printf("%-30s %12ld\n", "faults injected", fault_count());
  std::printf("%-30s %12ld\n", "mismatches", run.mismatches);
  std::printf("%-30s %12ld\n", "descriptors gained", world.gained[0]);
  std::printf("%-30s %12ld\n", "memory gained in allocations", world.gained[1]);
  std::printf("%-30s %12lu\n", "seed", run.seed);
  return run.mismatches || world.gained[0] || world.gained[1] ? 1 : 0;
}

int soak_on(const Arguments &arguments) {
  const bool direct = arguments.place == "direct", on_device = arguments.place == "device";
  support::client().io_options = direct ? "setall" : "asynch";
  Run run(arguments.seed);
  if (run.ctx->maxaio_skgfrctx == 0) return skip("the kernel gives no asynchronous context now");
  const bool in_memory = !direct && access("/dev/shm", W_OK) == 0;  // or waits for a disk prevail
  const support::TempDir dir(in_memory ? "/dev/shm" : support::place_for_files());
  const std::string shown = dir.file("data", 0);
  std::filesystem::resize_file(shown, (ub8{disk_blocks} + 1) * 512);
  const support::LoopDevice device(on_device ? shown : "", 512);
  const std::string name = on_device ? device.path() : shown;
  if (name.empty()) return skip("the system gives no loop device");
  if (!on_device) std::filesystem::remove(shown);
  skgfrcre(&run.se, run.ctx, txt(name), name.size(), skgfrfDATA, 512, disk_blocks, 0);
  if (direct && run.se.slercerrno == EINVAL) return skip("no direct I/O here");
  if (!run.expect(run.se.slercoer == 0, "creation")) return 1;

  const auto world = std::make_unique<World>(run, name, shown, dir.path("tree"));
  const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(arguments.minutes * 60);
  rest(*world);
  while (run.step < arguments.steps && run.mismatches == 0) {
    step(*world);
    if (run.step % 4096 == 0) rest(*world);
    if (run.step % 64 == 0 && std::chrono::steady_clock::now() > end) break;
  }
  rest(*world);
  return report(*world);
}

}  // namespace

int main(int count, char **words) {
  umask(022);
  Arguments arguments;
  for (int i = 1; i + 1 < count; i += 2) {
    const std::string name = words[i], value = words[i + 1];
    if (name == "--minutes") arguments.minutes = std::stod(value);
    if (name == "--steps") arguments.steps = std::stol(value);
    if (name == "--seed") arguments.seed = std::stoul(value);
    if (name == "--on") arguments.place = value;
  }
  fault_reset();
  fault_redirect("libaio.so.1", SOAK_AIO);
  return soak_on(arguments);
}
