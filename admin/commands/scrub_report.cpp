// Findings first, then how fast it was.
#include "admin/commands/scrub_report.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstring>

#include "admin/scan/progress.hpp"
#include "admin/status.hpp"

namespace vdadm {

namespace {

using report::List;
using report::Object;
using report::Size;
using report::Value;
using scan::Ending;
using scan::Histogram;
using scan::State;

constexpr size_t widest_bar = 40;

struct Percentile {
  const char *key, *words;
  double share;
};
constexpr Percentile percentiles[] = {{"p50", "half within", 0.5},
                                      {"p90", "90 % within", 0.9},
                                      {"p99", "99 % within", 0.99},
                                      {"p99_9", "99.9 % within", 0.999}};

const char *word_of(Ending ending) {
  switch (ending) {
    case Ending::finished: return "finished";
    case Ending::interrupted: return "interrupted";
    case Ending::no_answer: return "no_answer";
    case Ending::failed: break;
  }
  return "failed";
}

double milliseconds(uint64_t nanoseconds) { return static_cast<double>(nanoseconds) * 1e-6; }

double microseconds(uint64_t nanoseconds) {
  return std::round(static_cast<double>(nanoseconds) / 100) / 10;
}

Object describe_bad(const scan::BadRange &range) {
  return {{"offset", Size{range.where.begin}},
          {"length", Size{range.where.bytes()}},
          {"error", range.error},
          {"message", std::strerror(range.error)}};
}

List describe_bad(const State &state) {
  List list;
  for (const scan::BadRange &range : state.bad.all()) list.emplace_back(describe_bad(range));
  return list;
}

Value describe_latency(const Histogram &latency) {
  if (latency.count() == 0) return {};
  Object object{{"requests", latency.count()}, {"mean_us", microseconds(latency.mean())}};
  for (const auto &[key, words, share] : percentiles) {
    object.push_back({std::string(key) + "_us", microseconds(latency.percentile(share))});
  }
  object.push_back({"longest_us", microseconds(latency.largest())});
  List histogram;
  for (unsigned power = 0; power < Histogram::powers; ++power) {
    if (latency.in_power(power) == 0) continue;
    histogram.emplace_back(Object{{"from_us", microseconds(Histogram::from(power))},
                                  {"to_us", microseconds(Histogram::from(power + 1))},
                                  {"requests", latency.in_power(power)}});
  }
  object.push_back({"histogram", std::move(histogram)});
  return object;
}

double bytes_per_second(const State &state) {
  return state.seconds > 0 ? static_cast<double>(state.bytes) / state.seconds : 0;
}

Object describe(const std::string &name, const scan::Outcome &scrub) {
  const State &state = scrub.state;
  const uint32_t depth = state.facts.depth;  // 0: nothing was read in this run
  const auto known = [&](Value value) { return state.opened ? std::move(value) : Value(); };
  return {{"name", name},
          {"name_bytes", report::bytes_if_escaped(name)},
          {"ending", word_of(scrub.ending)},
          {"trouble", scrub.sentence.empty() ? Value() : Value(scrub.sentence)},
          {"size", known(Size{state.facts.size})},
          {"sector_size", known(Size{state.facts.sector_size})},
          {"begin", known(Size{state.facts.range.begin})},
          {"end", known(Size{state.facts.range.end})},
          {"position", known(Size{state.position})},
          {"bytes", Size{state.bytes}},
          {"seconds", state.seconds},
          {"bytes_per_second", bytes_per_second(state)},
          {"depth", depth ? Value(depth) : Value()},
          {"direct", depth ? Value(state.facts.direct) : Value()},
          {"bad_ranges", describe_bad(state)},
          {"bad_bytes", Size{state.bad.bytes()}},
          {"recovered", state.recovered},
          {"latency", describe_latency(scrub.latency)}};
}

int status_of(const scan::Outcome &scrub) {
  if (scrub.ending != Ending::finished) return unknown;
  return scrub.state.bad.all().empty() ? yes : no;
}

std::string first_sentence(const std::string &name, const scan::Outcome &scrub) {
  const State &state = scrub.state;
  if (scrub.ending == Ending::interrupted) {
    return fmt::format("{}: interrupted: read up to byte {}, {:.1f} % of what was asked for.", name,
                       state.position, state.opened ? scan::share_done(state) * 100 : 0);
  }
  if (scrub.ending != Ending::finished) return scrub.sentence;
  const std::string all = report::readable({state.facts.range.bytes()});
  const size_t ranges = state.bad.all().size();
  if (ranges == 0) return fmt::format("{}: sound: all of {} could be read.", name, all);
  return fmt::format("{}: bad: {} range{} with {} bytes of {} cannot be read.", name, ranges,
                     ranges == 1 ? "" : "s", state.bad.bytes(), all);
}

void add_latency(const Histogram &latency, std::vector<std::string> &sentences) {
  if (latency.count() == 0) return;
  std::string line = fmt::format("  {} requests:", latency.count());
  for (const auto &[key, words, share] : percentiles) {
    line += fmt::format(" {} {:.1f} ms,", words, milliseconds(latency.percentile(share)));
  }
  sentences.push_back(line +
                      fmt::format(" the longest {:.1f} ms", milliseconds(latency.largest())));
  uint64_t most = 0;
  for (unsigned power = 0; power < Histogram::powers; ++power) {
    most = std::max(most, latency.in_power(power));
  }
  for (unsigned power = 0; power < Histogram::powers; ++power) {
    const uint64_t count = latency.in_power(power);
    if (count == 0) continue;
    const auto bar = static_cast<size_t>((count * widest_bar + most - 1) / most);
    sentences.push_back(fmt::format("  {:>9.1f} ms {:>9} {}",
                                    milliseconds(Histogram::from(power + 1)), count,
                                    std::string(bar, '#')));
  }
}

}  // namespace

report::Outcome tell_scrub(const std::string &name, const scan::Outcome &scrub) {
  const State &state = scrub.state;
  std::vector<std::string> sentences{first_sentence(name, scrub)};
  for (const auto &[where, error] : state.bad.all()) {
    sentences.push_back(
        fmt::format("  bytes {} to {} ({} sectors): {}", where.begin, where.end - 1,
                    (where.bytes() + state.facts.sector_size - 1) / state.facts.sector_size,
                    std::strerror(error)));
  }
  if (state.recovered > 0) {
    sentences.push_back(fmt::format(
        "  {} requests failed at first and could be read in small pieces", state.recovered));
  }
  if (state.bytes > 0) {
    sentences.push_back(fmt::format(
        "  {} in {}, {:.1f} MiB/s, {} requests at once{}", report::readable({state.bytes}),
        scan::readable_time(state.seconds), bytes_per_second(state) / (1 << 20), state.facts.depth,
        state.facts.direct ? "" : ", through the page cache"));
  }
  add_latency(scrub.latency, sentences);
  return {status_of(scrub), describe(name, scrub), std::move(sentences)};
}

Object tell_progress(const std::string &name, const State &state) {
  return {{"event", "progress"},
          {"name", name},
          {"position", Size{state.position}},
          {"end", Size{state.facts.range.end}},
          {"bytes", Size{state.bytes}},
          {"seconds", state.seconds},
          {"bad_bytes", Size{state.bad.bytes()}}};
}

Object tell_bad_range(const std::string &name, const scan::BadRange &range) {
  Object object{{"event", "bad_range"}, {"name", name}};
  for (report::Field &field : describe_bad(range)) object.push_back(std::move(field));
  return object;
}

}  // namespace vdadm
