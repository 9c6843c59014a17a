// Mixes all operations at random, for so many minutes or steps, and prints what came of it:
//   skgfr_soak [--minutes N] [--steps N] [--seed N] [--on file|direct|device]
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>

#include "soak/disk.hpp"
#include "soak/files.hpp"
#include "tests/support/places.hpp"

namespace {

using namespace soak;

struct World {
  Disk disk;
  Files files;
};

struct Kind {
  const char *name;
  ub4 weight;
  void (*step)(World &);
  long done = 0;
} kinds[] = {{"requests", 8, [](World &w) { w.disk.submit(); }},
             {"vectors", 3, [](World &w) { w.disk.transfer_vectors(); }},
             {"collect", 6, [](World &w) { w.disk.collect(); }},
             {"claim", 12, [](World &w) { w.disk.claim(); }},
             {"open, close", 3, [](World &w) { w.disk.open_or_close(); }},
             {"lock", 1, [](World &w) { w.disk.lock(); }},
             {"upgrade", 1,
              [](World &w) {
                if (Handle *const handle = w.disk.any_open()) w.files.upgrade(handle->iov);
              }},
             {"create", 6, [](World &w) { w.files.create(); }},
             {"identify, resize", 6, [](World &w) { w.files.identify(); }},
             {"sizes", 2, [](World &w) { w.files.ask_sizes(); }},
             {"remove", 3, [](World &w) { w.files.remove(); }},
             {"search", 1, [](World &w) { w.files.search(); }},
             {"discover", 1, [](World &w) { w.files.discover(); }}};

void step(World &world) {
  ub4 all = 0;
  for (const Kind &each : kinds) all += each.weight;
  ub4 drawn = below(all);
  Kind *drawn_kind = kinds;
  while (drawn >= drawn_kind->weight) drawn -= drawn_kind++->weight;
  kind = drawn_kind->name;
  drawn_kind->step(world);
  world.disk.check();
  ++drawn_kind->done;
  ++step_number;
}

/// What is kept while nothing is outstanding or open.
struct Kept {
  long descriptors = support::open_descriptors(), allocations = fault_live_allocations();
};

/// Comes to rest, where all contents are compared.
Kept rest(World &world) {
  kind = "rest";
  calm = true;
  world.disk.rest();
  world.files.rest();
  calm = false;
  return {};
}

int report(const Kept &first, const Kept &last) {
  std::printf("%-30s %12ld\n", "operations", step_number);
  for (const Kind &each : kinds) std::printf("  %-28s %12ld\n", each.name, each.done);
  const long descriptors = last.descriptors - first.descriptors;
  const long allocations = last.allocations - first.allocations;
  const std::pair<const char *, long> rows[] = {{"faults injected", fault_count()},
                                                {"mismatches", mismatches},
                                                {"descriptors gained", descriptors},
                                                {"memory gained in allocations", allocations}};
  for (const auto &[name, value] : rows) std::printf("%-30s %12ld\n", name, value);
  std::printf("%-30s %12lu\n", "seed", seed);
  return mismatches || descriptors || allocations ? 1 : 0;
}

int skip(const char *reason) {
  std::printf("skipped: %s\n", reason);
  return 77;
}

int soak_on(const std::string &place, double minutes, long steps) {
  const bool direct = place == "direct", on_device = place == "device";
  support::client().io_options = direct ? "setall" : "asynch";
  support::Context context;
  ctx = context;
  if (ctx->maxaio_skgfrctx == 0) return skip("the kernel gives no asynchronous context now");
  const bool in_memory = !direct && access("/dev/shm", W_OK) == 0;  // or waits for a disk prevail
  const support::TempDir dir(in_memory ? "/dev/shm" : support::place_for_files());
  const std::string shown = dir.path("data");
  if (on_device) std::filesystem::resize_file(dir.file("data", 0), (disk_blocks + ub8{1}) * 512);
  const support::LoopDevice device(on_device ? shown : "", 512);
  const std::string name = on_device ? device.path() : shown;
  if (name.empty()) return skip("the system gives no loop device");
  skgfrcre(&se, ctx, support::txt(name), name.size(), skgfrfDATA, 512, disk_blocks, 0);
  if (direct && se.slercerrno == EINVAL) return skip("no direct I/O here");
  if (!succeeded(0, {})) return 1;

  const auto world = std::unique_ptr<World>(
      new World{{name, shown}, {dir.path("tree"), name, shown, disk_blocks}});
  using Clock = std::chrono::steady_clock;
  const auto end = Clock::now() + std::chrono::duration<double>(minutes * 60);
  const Kept first = rest(*world);
  Kept last = first;
  while (step_number < steps && Clock::now() < end && mismatches == 0) {
    step(*world);
    if (step_number % 4096 == 0) last = rest(*world);
  }
  if (mismatches == 0) last = rest(*world);
  return report(first, last);
}

}  // namespace

int main(int count, char **words) {
  double minutes = 1e6;
  long steps = 1L << 30;
  std::string place = "file";
  seed = std::random_device()();
  for (int i = 1; i + 1 < count; i += 2) {
    const std::string name = words[i];
    if (name == "--minutes") minutes = std::stod(words[i + 1]);
    if (name == "--steps") steps = std::stol(words[i + 1]);
    if (name == "--seed") seed = std::stoul(words[i + 1]);
    if (name == "--on") place = words[i + 1];
  }
  dice.seed(static_cast<unsigned>(seed));
  umask(022);
  fault_reset();
  fault_redirect("libaio.so.1", SOAK_AIO);
  return soak_on(place, minutes, steps);
}
