// File search against a bare walk and, for information, the command that finds the same files; discovery
// against the bare calls.
//
// Each row makes its tree once; the two sides then take turns, round by round and in changing
// order. Counters are processor seconds a round, of this thread or of the finished command, and
// the ratio of their sums.
#include <benchmark/benchmark.h>
#include <dirent.h>
#include <fcntl.h>
#include <glob.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "skgfr/skgfr.h"

namespace {

constexpr size_t folders = 200;      // of the search's tree
constexpr size_t kinds = 20;         // the first letters of their names; a prefix keeps one of them
constexpr size_t files = 1000;       // in each
constexpr size_t discovered = 5000;  // files in the folder of the discovery

/// A temporary folder that goes with everything in it.
class Tree {
 public:
  Tree() {
    if (!mkdtemp(path_.data())) throw std::runtime_error("no temporary folder");
  }
  ~Tree() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  Tree(const Tree &) = delete;
  Tree &operator=(const Tree &) = delete;

  std::string path(const std::string &name) const { return path_ + "/" + name; }
  void fill(const std::string &folder, size_t count) const {
    std::filesystem::create_directories(path(folder));
    for (size_t i = 0; i < count; ++i) std::ofstream(path(folder + "/f" + std::to_string(i)));
  }

 private:
  std::string path_ = std::filesystem::temp_directory_path() / "skgfr-bench-XXXXXX";
};

double seconds(const timeval &time) {
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
}

double processor_time() {
  timespec now;
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

void expect(size_t found, size_t expected) {
  if (found != expected) throw std::runtime_error("found " + std::to_string(found));
}

text *txt(const std::string &name) {
  return reinterpret_cast<text *>(const_cast<char *>(name.c_str()));
}

boolean count_path(void *count, const text *, size_t) {
  ++*static_cast<size_t *>(count);
  return TRUE;
}

double search(const std::string &prefix, size_t expected) {
  const double start = processor_time();
  size_t found = 0;
  slerc se;
  skgfrsfe(&se, txt(prefix), prefix.size(), FALSE, &found, count_path);
  const double spent = processor_time() - start;
  expect(found, expected);
  return spent;
}

/// The processor time of a finished find, its output thrown away.
double find(const std::string &folder, const std::string &prefix) {
  const std::string pattern = prefix + "*";
  const pid_t child = fork();
  if (child == 0) {
    const int sink = open("/dev/null", O_WRONLY);
    if (dup2(sink, STDOUT_FILENO) < 0) _exit(EXIT_FAILURE);
    execlp("find", "find", folder.c_str(), "-path", pattern.c_str(), "-type", "f", nullptr);
    _exit(EXIT_FAILURE);
  }
  int status = EXIT_FAILURE;
  rusage used{};
  if (wait4(child, &status, 0, &used) != child || status != 0) throw std::runtime_error("find");
  return seconds(used.ru_utime) + seconds(used.ru_stime);
}

/// The client's memory: one piece for all that a discovery asks for, used anew by the next.
struct Arena {
  std::vector<char> memory = std::vector<char>(discovered * 1024);
  size_t used = 0;
};

void *take(void *context, size_t size, const char *) {
  Arena &arena = *static_cast<Arena *>(context);
  char *const piece = arena.memory.data() + arena.used;
  arena.used += (size + 15) / 16 * 16;
  return arena.used <= arena.memory.size() ? piece : nullptr;
}

double discover(const std::string &pattern, Arena &arena) {
  const double start = processor_time();
  arena.used = 0;
  slerc se;
  const skgfrdsc *const found =
      skgfrdscdevs(&se, nullptr, txt(pattern), &arena, take, nullptr, FALSE);
  const double spent = processor_time() - start;
  if (!found || se.slercoer != 0) throw std::runtime_error("discovery");
  size_t usable = 0;
  for (const kgglk *at = found->dev_skgfrdsc.kgglknxt; at != &found->dev_skgfrdsc;
       at = at->kgglknxt) {
    usable += reinterpret_cast<const skgfrstat *>(at)->flags_skgfrstat != 0;
  }
  expect(usable, discovered);
  return spent;
}

double ask_the_system(const std::string &pattern) {
  const double start = processor_time();
  glob64_t paths{};
  size_t usable = 0;
  if (glob64(pattern.c_str(), GLOB_NOSORT, nullptr, &paths) != 0) throw std::runtime_error("glob");
  for (size_t i = 0; i < paths.gl_pathc; ++i) {
    struct stat64 status;
    usable +=
        access(paths.gl_pathv[i], R_OK | W_OK) == 0 && stat64(paths.gl_pathv[i], &status) == 0;
  }
  globfree64(&paths);
  const double spent = processor_time() - start;
  expect(usable, discovered);
  return spent;
}

/// A walk with the one question that each file needs, and nothing else.
size_t walk(const std::string &folder, const std::string &prefix) {
  const std::unique_ptr<DIR, int (*)(DIR *)> entries(opendir(folder.c_str()), closedir);
  if (!entries) throw std::runtime_error(folder);
  size_t found = 0;
  while (const dirent64 *const entry = readdir64(entries.get())) {
    if (std::strcmp(entry->d_name, ".") == 0 || std::strcmp(entry->d_name, "..") == 0) continue;
    if (std::strncmp(entry->d_name, prefix.c_str(), prefix.size()) != 0) continue;
    if (entry->d_type == DT_DIR) found += walk(folder + "/" + entry->d_name, "");
    if (entry->d_type != DT_REG) continue;
    found += faccessat(dirfd(entries.get()), entry->d_name, R_OK, 0) == 0;
  }
  return found;
}

double walk_alone(const std::string &folder, const std::string &prefix, size_t expected) {
  const double start = processor_time();
  const size_t found = walk(folder, prefix);
  const double spent = processor_time() - start;
  expect(found, expected);
  return spent;
}

/// Lets the two sides take turns; each answers the processor time that it spent.
template <class Layer, class Raw>
void compare(benchmark::State &state, const Layer &layer, const Raw &raw) {
  double ours = 0, bare = 0;
  layer();
  raw();
  bool layer_first = false;
  for ([[maybe_unused]] auto iteration : state) {
    layer_first = !layer_first;
    if (!layer_first) bare += raw();
    const double spent = layer();
    if (layer_first) bare += raw();
    ours += spent;
    state.SetIterationTime(spent);
  }
  state.counters["layer_cpu"] = benchmark::Counter(ours, benchmark::Counter::kAvgIterations);
  state.counters["raw_cpu"] = benchmark::Counter(bare, benchmark::Counter::kAvgIterations);
  state.counters["cpu_over_raw"] = ours / bare;
}

void search_tree(benchmark::State &state, size_t kinds_kept) try {
  static const auto tree = [] {
    auto made = std::make_unique<Tree>();
    for (size_t i = 0; i < folders; ++i) {
      const char kind = static_cast<char>('a' + static_cast<int>(i % kinds));
      made->fill(std::string("arch-") + kind + std::to_string(i), files);
    }
    return made;
  }();
  const std::string name = kinds_kept == kinds ? "arch-" : "arch-c", prefix = tree->path(name);
  const size_t expected = kinds_kept * folders / kinds * files;
  const std::string folder = tree->path("");
  compare(
      state, [&] { return search(prefix, expected); },
      [&] { return walk_alone(folder, name, expected); });
  state.counters["cpu_over_find"] = search(prefix, expected) / find(folder, prefix);
} catch (const std::exception &reason) {
  state.SkipWithError(reason.what());
}

void discover_folder(benchmark::State &state) try {
  const Tree tree;
  tree.fill("disks", discovered);
  const std::string pattern = tree.path("disks/f*");
  Arena arena;
  compare(
      state, [&] { return discover(pattern, arena); }, [&] { return ask_the_system(pattern); });
} catch (const std::exception &reason) {
  state.SkipWithError(reason.what());
}

BENCHMARK_CAPTURE(search_tree, all, kinds)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(search_tree, one_in_20, 1)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(discover_folder)->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace
