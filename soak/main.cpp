// Mixes all operations at random, for so many minutes or steps, and prints what came of it:
//   skgfr_soak [--minutes N] [--steps N] [--seed N] [--on file|direct|device]
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <map>

#include "soak/disk.hpp"
#include "tests/support/places.hpp"

namespace {

using namespace soak;

struct Kind {
  const char *name;
  void (Disk::*step)();
  long done = 0;
} kinds[] = {{"requests", &Disk::submit},
             {"vectors", &Disk::transfer_vectors},
             {"collect", &Disk::collect},
             {"claim", &Disk::claim},
             {"lock", &Disk::lock},
             {"upgrade", &Disk::upgrade},
             {"open, close", &Disk::open_or_close}};
std::discrete_distribution<size_t> draw({8, 3, 6, 12, 1, 1, 3});  // how often each in 34 steps

void step(Disk &disk) {
  Kind &drawn = kinds[draw(dice)];
  kind = drawn.name;
  (disk.*drawn.step)();
  disk.check();
  ++drawn.done;
  ++step_number;
}

/// What is kept while nothing is outstanding or open.
struct Kept {
  long descriptors = support::open_descriptors(), allocations = fault_live_allocations();
  bool operator==(const Kept &) const = default;
};

/// Comes to rest, where all contents are compared.
Kept rest(Disk &disk) {
  kind = "rest";
  calm = true;
  disk.rest();
  calm = false;
  return {};
}

void print(const std::string &what, long long value) {
  std::printf("%-30s %12lld\n", what.c_str(), value);
}

int report(const Kept &first, const Kept &last) {
  print("operations", step_number);
  for (const Kind &each : kinds) print(std::string("  ") + each.name, each.done);
  print("faults injected", fault_count());
  print("mismatches", mismatches);
  print("descriptors gained", last.descriptors - first.descriptors);
  print("memory gained in allocations", last.allocations - first.allocations);
  print("seed", static_cast<long long>(seed));
  return mismatches == 0 && last == first ? 0 : 1;
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

  const auto disk = std::make_unique<Disk>(name, shown);
  using Clock = std::chrono::steady_clock;
  const auto end = Clock::now() + std::chrono::duration<double>(minutes * 60);
  const Kept first = rest(*disk);
  Kept last = first;
  while (step_number < steps && Clock::now() < end && mismatches == 0) {
    step(*disk);
    if (step_number % 4096 == 0) last = rest(*disk);
  }
  if (mismatches == 0) last = rest(*disk);
  return report(first, last);
}

}  // namespace

int main(int count, char **words) {
  std::map<std::string, std::string> options = {{"--minutes", "1e6"}, {"--steps", "1073741824"}};
  options["--seed"] = std::to_string(std::random_device()());
  options["--on"] = "file";
  for (int i = 1; i + 1 < count; i += 2) options[words[i]] = words[i + 1];
  seed = std::stoul(options["--seed"]);
  dice.seed(static_cast<unsigned>(seed));
  umask(022);
  fault_reset();
  fault_redirect("libaio.so.1", SOAK_AIO);
  return soak_on(options["--on"], std::stod(options["--minutes"]), std::stol(options["--steps"]));
}
