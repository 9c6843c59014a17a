// Makes every call of every operation fail, one at a time, and holds the outcome against the tables.
//
// An operation runs once with nothing failing, when its calls must be those of its table, and then once
// for each error of each call, each time in a process of its own that is as new as the first. Last it runs
// without standard input and without standard error, when nothing may be opened in their place.
#include <dlfcn.h>
#include <fcntl.h>

#include <regex>
#include <set>
#include <sstream>

#include "tests/failures/scene.hpp"
#include "tests/failures/table.hpp"
#include "tests/support/own_process.hpp"

using namespace support;

namespace {

/// One run: what differs from the usual scene, the call that fails, and what that comes to.
struct Trial {
  const Outcome &wanted;
  std::string change{};
  std::string call{};
  int skip = 0;
  Injection injection{0, 0};
  int closed = -1;  // standard file

  bool is_clean() const { return change.empty() && call.empty() && closed < 0; }
};

/// A standard file that is closed, and the calls that were made while something else had its number.
struct {
  int number;
  std::string calls;
} closed_file;

/// What is opened in its place may only move on, or be held until its successor is open. Looks before a
/// call and lets it pass.
int look_for_misuse(const char *call) {
  const int watching = fault_watch(0);
  const std::set<std::string> moves = {"fcntl", "close", "opendir", "setmntent"};
  const bool taken = fcntl(closed_file.number, F_GETFD) >= 0;
  if (taken && !moves.contains(call)) closed_file.calls += call + std::string(" ");
  fault_watch(watching);
  return 0;
}

class Failures : public LayerTest, public testing::WithParamInterface<const Section *> {
 protected:
  /// So that no run has to load the library; the layer of each finds it for the first time.
  static void SetUpTestSuite() { dlopen("libaio.so.1", RTLD_NOW); }

  /// False when the scene cannot be had here.
  bool run(const Trial &trial) const {
    return in_own_process([&] { return make(trial); });
  }
  bool make(const Trial &trial) const;
  void judge(const Trial &trial, const Outcome &wanted, const slerc &se,
             const std::string &what) const;
  void judge_calls() const;
  Outcome outcome_unharmed() const {
    const auto own = section.facts.find("gives");
    Outcome outcome(own == section.facts.end() ? Words{} : own->second);
    outcome.goes_on = true;
    return outcome;
  }

  const Section &section = *GetParam();
  const Outcome unharmed = outcome_unharmed();
};

/// Takes steps towards a scene, or those that stand for one in the tables.
void prepare(Scene &scene, const std::string &steps) {
  std::istringstream in(steps);
  for (std::string step; std::getline(in, step, '+');) {
    const auto others = tables().scenes.find(step);
    if (others != tables().scenes.end()) {
      prepare(scene, others->second);
      continue;
    }
    const size_t equals = step.find('=');
    if (equals != step.npos) scene.number = static_cast<ub4>(std::stoul(step.substr(equals + 1)));
    scenes().at(step.substr(0, equals))(scene);
  }
}

std::string gained(const char *what, long count) {
  if (count == 0) return "";
  return what + std::string(count > 0 ? "+" : "") + std::to_string(count);
}

bool Failures::make(const Trial &trial) const {
  const auto &[wanted, change, call, skip, injection, closed] = trial;
  Scene scene(section.scene.rfind("new_process", 0) != 0);
  scene.injected = injection.error;
  prepare(scene, section.scene + (change.empty() ? "" : "+" + change));
  if (scene.absent) return false;

  if (!call.empty()) fault_arm(call.c_str(), skip, 1, injection.error, injection.result);
  scene.se = dirty();
  const NamedOperation &operation = operation_named(section.operation);
  if (operation.before) operation.before(scene);
  if (closed >= 0) {
    close(closed);
    closed_file.number = closed;
    fault_at_random(1, 1, look_for_misuse);
  }
  const int open_before = open_descriptors();
  const long injected = fault_count(), allocated = fault_live_allocations();
  fault_watch(1);
  const ub8 result = operation.call(scene);
  fault_watch(0);
  if (closed >= 0) look_for_misuse("the end");
  EXPECT_EQ(closed_file.calls, "") << "in place of a standard file";
  scene.allocated = fault_live_allocations() - allocated;
  const std::string descriptors = gained(" fd", open_descriptors() - open_before);
  EXPECT_TRUE(call.empty() || fault_count() > injected) << "the failure was never met";
  const std::string what = operation.told(scene, result);
  judge(trial, wanted, scene.se, what + descriptors + gained(" mem", scene.allocated));
  if (trial.is_clean()) judge_calls();
  fault_reset();
  return true;
}

void Failures::judge(const Trial &trial, const Outcome &wanted, const slerc &se,
                     const std::string &what) const {
  if (wanted.goes_on && &wanted != &unharmed && !unharmed.record.empty()) {
    return judge(trial, unharmed, se, what);
  }
  const std::string fallback = section.fact(wanted.goes_on ? "done" : "failed");
  if (wanted.what == "*") {
    EXPECT_FALSE(std::regex_search(what, std::regex(" (fd|mem)"))) << what;
  } else {
    EXPECT_EQ(what, wanted.what.empty() ? fallback : wanted.what);
  }
  const std::map<std::string, long> meanings = {{"errno", trial.injection.error},
                                                {"result", trial.injection.result},
                                                {"handler", reinterpret_cast<long>(count_signal)}};
  ub4 record[4] = {};
  for (size_t i = 0; i < wanted.record.size(); ++i) {
    const auto meant = meanings.find(wanted.record[i]);
    record[i] = static_cast<ub4>(meant == meanings.end() ? std::atoll(wanted.record[i].c_str())
                                                         : meant->second);
  }
  EXPECT_EQ(se.slercoer, static_cast<eword>(record[0]));
  if (record[0] == 0 || section.facts.contains("record")) return;
  const int error = wanted.error < 0 ? trial.injection.error : wanted.error;
  EXPECT_TRUE(is(se, {se.slercoer, error, {record[1], record[2], record[3]}}));
}

/// How a file is opened other than for reading, in words.
std::string way_of(long flags) {
  const std::pair<const char *, int> bits[] = {
      {"write", O_RDWR},    {"create", O_CREAT},     {"new", O_EXCL},        {"dsync", O_DSYNC},
      {"direct", O_DIRECT}, {"folder", O_DIRECTORY}, {"at_once", O_NONBLOCK}};
  std::string way;
  for (const auto &[word, bit] : bits) {
    if ((flags & bit) == bit) way += (way.empty() ? "" : "+") + std::string(word);
  }
  return way;
}

void Failures::judge_calls() const {
  std::vector<std::string> made, listed;
  std::string opens;
  for (int i = 0; fault_trace(i); ++i) {
    made.emplace_back(fault_trace(i));
    const std::string way = made.back() == "open64" ? way_of(fault_detail(i)) : "";
    if (!way.empty()) opens += (opens.empty() ? "" : " ") + way;
  }
  for (const Row &row : section.calls) listed.push_back(row.call);
  if (section.facts.contains("order")) {
    std::sort(made.begin(), made.end());
    std::sort(listed.begin(), listed.end());
  }
  EXPECT_EQ(made, listed);
  EXPECT_EQ(opens, section.fact("opens"));
}

TEST_P(Failures, AreAsTheTableSays) {
  if (!run({unharmed})) GTEST_SKIP() << "the scene cannot be had here";
  ASSERT_FALSE(HasFailure()) << "with nothing failing";
  std::map<std::string, int> seen;
  for (const Row &row : section.calls) {
    const int skip = seen[row.call]++;
    const Words &usual = tables().errors.at(row.call);
    std::set<std::string> errors(usual.begin(), usual.end());
    for (const auto &[error, outcome] : row.by_error) errors.insert(error);
    for (const std::string &error : errors) {
      SCOPED_TRACE(testing::Message() << row.place << ": " << row.call << " " << error);
      const auto own = row.by_error.find(error);
      const Outcome &wanted = own == row.by_error.end() ? row.usual : own->second;
      run({wanted, "", row.call, skip, injection_of(error)});
    }
  }
  for (const Row &row : section.refusals) {
    SCOPED_TRACE(testing::Message() << row.place << ": when " << row.call);
    run({row.usual, row.call});
  }
  for (const int closed : {STDIN_FILENO, STDERR_FILENO}) {
    SCOPED_TRACE(testing::Message() << "without descriptor " << closed);
    run({.wanted = unharmed, .closed = closed});
  }
}

std::vector<const Section *> all_sections() {
  std::vector<const Section *> all;
  for (const Section &section : tables().sections) all.push_back(&section);
  return all;
}
INSTANTIATE_TEST_SUITE_P(Every, Failures, testing::ValuesIn(all_sections()), [](const auto &row) {
  return std::regex_replace(row.param->operation + "_on_" + row.param->scene, std::regex("\\W"),
                            "_");
});

}  // namespace
