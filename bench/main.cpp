// The layer against the bare system calls.
//
//   skgfr_bench [options of the benchmark library]      measures
//   skgfr_bench --goals                                 lists rows and goals, tab-separated
//   skgfr_bench --count ROW layer|raw ROUNDS            makes that many rounds and prints their requests,
//                                                       for a tool that counts instructions or calls
//
// Layer and bare calls alternate, round by round and in changing order, within one process and on the
// same buffers; a row's figure is the median of the ratios of neighbouring rounds. Two processes differ
// by more than what there is to find.
#include <benchmark/benchmark.h>
#include <time.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <vector>

#include "bench/sides.hpp"

namespace {

using namespace bench;

double seconds(clockid_t clock) {
  timespec now;
  clock_gettime(clock, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

struct Spent {
  double elapsed;
  double processor;
};

Spent spend(Side &side) {
  const double processor = seconds(CLOCK_THREAD_CPUTIME_ID);
  const double elapsed = seconds(CLOCK_MONOTONIC);
  side.round();
  return {seconds(CLOCK_MONOTONIC) - elapsed, seconds(CLOCK_THREAD_CPUTIME_ID) - processor};
}

double median(std::vector<double> &values) {
  if (values.empty()) return 0;
  const auto middle = values.begin() + static_cast<ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

void compare(benchmark::State &state, const Row &row) {
  const Storage storage(row);
  const auto layer = make_layer(row, storage);
  const auto raw = make_raw(row, storage);
  layer->round();
  raw->round();

  std::vector<double> elapsed, processor;
  bool layer_first = false;
  for ([[maybe_unused]] auto iteration : state) {
    layer_first = !layer_first;
    Spent ours{};
    if (layer_first) ours = spend(*layer);
    const Spent bare = spend(*raw);
    if (!layer_first) ours = spend(*layer);
    elapsed.push_back(ours.elapsed / bare.elapsed);
    processor.push_back(ours.processor / bare.processor);
    state.SetIterationTime(ours.elapsed);
  }
  state.counters["time_over_raw"] = median(elapsed);
  state.counters["cpu_over_raw"] = median(processor);
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * row.requests());
}

void register_rows() {
  for (const Row &row : rows()) {
    const auto measure = [&row](benchmark::State &state) {
      try {
        compare(state, row);
      } catch (const std::exception &reason) {
        state.SkipWithError(reason.what());
      }
    };
    benchmark::RegisterBenchmark(row.name, measure)->UseManualTime()->Unit(benchmark::kMicrosecond);
  }
}

int list_goals() {
  for (const Row &row : rows()) {
    std::printf("%s\t%.2f\t%d\n", row.name, row.goals.ratio, row.goals.instructions);
  }
  return EXIT_SUCCESS;
}

int count(const char *name, const char *side, int rounds) {
  for (const Row &row : rows()) {
    if (std::strcmp(row.name, name) != 0) continue;
    const Storage storage(row);
    const auto chosen =
        std::strcmp(side, "layer") == 0 ? make_layer(row, storage) : make_raw(row, storage);
    for (int i = 0; i < rounds; ++i) chosen->round();
    std::printf("%u\n", static_cast<unsigned>(rounds) * row.requests());
    return EXIT_SUCCESS;
  }
  std::fprintf(stderr, "no such row: %s\n", name);
  return EXIT_FAILURE;
}

}  // namespace

int main(int argc, char **argv) try {
  if (argc == 2 && std::strcmp(argv[1], "--goals") == 0) return list_goals();
  if (argc == 5 && std::strcmp(argv[1], "--count") == 0) {
    return count(argv[2], argv[3], static_cast<int>(std::strtol(argv[4], nullptr, 10)));
  }
  register_rows();
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return EXIT_FAILURE;
  benchmark::RunSpecifiedBenchmarks();
  return EXIT_SUCCESS;
} catch (const std::exception &reason) {
  std::fprintf(stderr, "%s\n", reason.what());
  return EXIT_FAILURE;
}
