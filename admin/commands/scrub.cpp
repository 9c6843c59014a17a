// scrub: reads everything, and says what cannot be read and how long reading took.
#include <fmt/format.h>

#include <algorithm>
#include <memory>
#include <optional>

#include "admin/commands/each_name.hpp"
#include "admin/commands/scrub_report.hpp"
#include "admin/commands/size.hpp"
#include "admin/scan/progress.hpp"
#include "admin/scan/restart.hpp"

namespace vdadm {

namespace {

using scan::Saved;
using scan::State;

constexpr double seconds_between_saves = 30, seconds_between_lines = 1;

struct Arguments {
  std::vector<std::string> names;
  std::string range, rate, restart;
  bool lines = false;
};

uint64_t size_of(const std::string &word) {
  if (const auto size = parse_size(word)) return *size;
  throw Failure(fmt::format("{} is no size: give bytes, or a number with K, M, G or T.", word),
                usage);
}

/// "FROM-TO", each of which may be left out.
scan::Extent parse_range(const std::string &text) {
  scan::Extent range{0, scan::whole};
  if (text.empty()) return range;
  const size_t dash = text.find('-');
  if (dash == std::string::npos) {
    throw Failure(fmt::format("{} is no range: write it like 1G-2G, 1G- or -2G.", text), usage);
  }
  if (dash > 0) range.begin = size_of(text.substr(0, dash));
  if (dash + 1 < text.size()) range.end = size_of(text.substr(dash + 1));
  if (range.begin < range.end) return range;
  throw Failure(fmt::format("The range {} ends before it begins.", text), usage);
}

/// Together with what an earlier run has found out.
State together(const std::optional<Saved> &before, State state) {
  if (!before || !state.opened) return state;
  const State &earlier = before->state;
  scan::BadRanges bad = earlier.bad;
  for (const scan::BadRange &range : state.bad.all()) bad.add(range);
  state.bad = std::move(bad);
  state.recovered += earlier.recovered;
  state.facts.range.begin = earlier.facts.range.begin;
  return state;
}

/// Whether a disk is the one that was read before. Its names may change from boot to boot.
bool is_the_same(const Saved &before, const Saved &saved) {
  const scan::Facts &then = before.state.facts, &now = saved.state.facts;
  if (then.size != now.size || then.sector_size != now.sector_size) return false;
  if (!now.is_device) return then.inode == now.inode;
  const auto &names = saved.stable_names;
  return before.stable_names.empty() ||
         std::find_first_of(names.begin(), names.end(), before.stable_names.begin(),
                            before.stable_names.end()) != names.end();
}

class Scrub : public scan::Observer {
 public:
  Scrub(const Session &session, const Arguments &arguments)
      : session_(session),
        arguments_(arguments),
        range_(parse_range(arguments.range)),
        rate_(arguments.rate.empty() ? 0 : size_of(arguments.rate)) {
    if (!arguments.restart.empty()) restart_.emplace(arguments.restart);
  }

  int run();

 private:
  report::Outcome read(const std::string &name);
  scan::Order order() const;
  void progress(const State &now) override;
  void recognise(const State &state);
  void save(const State &state, bool finished);
  void print_lines(const State &state, bool last);

  const Session &session_;
  const Arguments &arguments_;
  scan::Extent range_;
  uint64_t rate_;
  scan::StopSignals signals_;
  scan::ProgressLine line_;
  std::optional<scan::RestartFile> restart_;
  bool interrupted_ = false;

  // Of the disk that is being read.
  struct Current {
    std::string name;
    std::optional<Saved> before;  // what an earlier run knew
    Saved saved;
    bool recognised = false;
    double last_save = 0, last_line = 0;
    size_t bad_told = 0;
  };
  Current current_;
};

scan::Order Scrub::order() const {
  const auto patience = std::chrono::duration<double>(session_.timeout);
  scan::Order order{current_.name, range_, rate_,
                    std::chrono::duration_cast<std::chrono::milliseconds>(patience)};
  if (!current_.before) return order;
  const State &earlier = current_.before->state;
  order.range = {earlier.position, earlier.facts.range.end};
  return order;
}

report::Outcome Scrub::read(const std::string &name) {
  current_ = {};
  current_.name = name;
  current_.saved.name = report::printable(name);
  current_.saved.range = arguments_.range;
  if (restart_) current_.before = restart_->find(current_.saved.name);
  const auto &before = current_.before;
  if (before && before->range != arguments_.range) {
    throw Failure(fmt::format("{} tells of another --range of {}: name another restart file.",
                              arguments_.restart, name),
                  refused);
  }
  if (interrupted_) return tell_scrub(name, {State{}, scan::Ending::interrupted, {}, {}});
  if (before && before->finished) {
    return tell_scrub(name, {before->state, scan::Ending::finished, {}, {}});
  }
  scan::Outcome scrub = scan::run(order(), *this, signals_.descriptor());
  scrub.state = together(before, std::move(scrub.state));
  const bool finished = scrub.ending == scan::Ending::finished;
  line_.clear();
  if (restart_ && scrub.state.opened) save(scrub.state, finished);
  if (arguments_.lines) print_lines(scrub.state, true);
  interrupted_ = scrub.ending == scan::Ending::interrupted;
  return tell_scrub(name, scrub);
}

void Scrub::progress(const State &now) {
  if (!now.opened) return;
  if (!current_.recognised) recognise(now);
  const State state = together(current_.before, now);
  line_.show(current_.name, state);
  if (restart_ && state.seconds >= current_.last_save + seconds_between_saves) {
    save(state, false);
    current_.last_save = state.seconds;
  }
  if (arguments_.lines && state.seconds >= current_.last_line + seconds_between_lines) {
    print_lines(state, false);
    current_.last_line = state.seconds;
  }
}

/// Before anything of an earlier run is relied on or replaced.
void Scrub::recognise(const State &state) {
  current_.recognised = true;
  if (!restart_) return;
  current_.saved.state = state;
  if (state.facts.is_device) {
    current_.saved.stable_names = inspect::stable_names_of(state.facts.device);
  }
  if (current_.before && !is_the_same(*current_.before, current_.saved)) {
    throw Failure(
        fmt::format("{} is not the disk that {} tells of: name another restart file, or remove "
                    "this one to begin anew.",
                    current_.name, arguments_.restart),
        refused);
  }
  save(together(current_.before, state), false);
}

void Scrub::save(const State &state, bool finished) {
  current_.saved.state = state;
  current_.saved.finished = finished;
  restart_->keep(current_.saved);
}

/// A bad range may still grow while it is the last one.
void Scrub::print_lines(const State &state, bool last) {
  const auto &bad = state.bad.all();
  while (current_.bad_told + (last ? 0 : 1) < bad.size()) {
    report::print_line(tell_bad_range(current_.name, bad[current_.bad_told++]));
  }
  if (!last) report::print_line(tell_progress(current_.name, state));
  if (std::fflush(stdout) != 0)
    throw Failure("Nobody takes what is printed: reading was given up.");
}

int Scrub::run() {
  std::vector<report::Outcome> outcomes;
  int status = yes;
  for (const std::string &name : arguments_.names) {
    outcomes.push_back(read(name));
    status = std::max(status, outcomes.back().status);
    if (!arguments_.lines) continue;
    report::Object &object = outcomes.back().object;
    object.insert(object.begin(), {"event", "result"});
    report::print_line(object);
  }
  if (status < unknown && restart_) restart_->remove_when_finished();
  if (!arguments_.lines) report::print(outcomes, session_.format);
  if (interrupted_ && !session_.format.json && !arguments_.lines) {
    complain(restart_
                 ? fmt::format("The same command goes on from there, by {}.", arguments_.restart)
                 : "With --restart FILE the next run could have gone on from there.");
  }
  return status;
}

}  // namespace

Work declare_scrub(Options &options) {
  const auto arguments = std::make_shared<Arguments>();
  declare_names(options, arguments->names);
  options.value({"--range", "Read these bytes alone: FROM-TO, FROM- or -TO", "RANGE"},
                arguments->range);
  options.value({"--rate", "Bytes in a second at most, such as 50M", "SIZE"}, arguments->rate);
  options.value(
      {"--restart", "Go on from where this file says, and keep it up to date until all is read",
       "FILE"},
      arguments->restart);
  options.flag({"--json-lines", "Print JSON line by line: progress, bad ranges, results"},
               arguments->lines);
  return [arguments](const Session &session) { return Scrub(session, *arguments).run(); };
}

}  // namespace vdadm
