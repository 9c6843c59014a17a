// Makes every call of every operation fail, one at a time, and holds the outcome against the tables.
//
// An operation runs once to learn its calls, which must be those of its table, and then once for
// each error of each call, each time in a process of its own that is as new as the first.
#include <dlfcn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <regex>
#include <sstream>

#include "tests/failures/scene.hpp"
#include "tests/failures/table.hpp"

using namespace support;

namespace {

/// One run: what differs from the usual scene, and the call that fails.
struct Trial {
  std::string change{};
  std::string call{};
  int skip = 0;
  Injection injection{0, 0};
};

/// What a run reports about itself.
struct Report {
  eword code = -1;
  int error = 0;
  ub4 words[3]{};
  std::vector<std::string> calls{};
  std::string what{};
};

bool gives_null(const std::string &call) {
  for (const char *one : {"malloc", "strdup", "dlopen", "opendir", "readdir64", "strerror",
                          "canonicalize_file_name", "setmntent", "getmntent_r"}) {
    if (call == one) return true;
  }
  return false;
}

std::string gained(const char *what, long count) {
  if (count == 0) return "";
  return what + std::string(count > 0 ? "+" : "") + std::to_string(count);
}

/// Makes the run: its record, its calls and what came of it; empty when the scene cannot be had here.
std::string made(const Section &section, const Trial &trial) {
  const auto &[change, call, skip, injection] = trial;
  Scene scene(section.scene.rfind(new_process, 0) != 0);
  scene.injected = injection.error;
  std::string steps = section.scene + "+" + change;
  std::replace(steps.begin(), steps.end(), '+', ' ');
  std::istringstream in(steps);
  for (std::string step; in >> step;) preparations.at(step)(scene);
  if (scene.absent) return "";

  const bool null = injection.result < 0 && gives_null(call);
  const long result = null ? FAULT_NULL : injection.result;
  if (!call.empty()) fault_arm(call.c_str(), skip, 1, injection.error, result);
  scene.se = dirty();
  const long injected = fault_count();
  const std::string what = operations.at(section.operation)(scene);
  EXPECT_TRUE(call.empty() || fault_count() > injected) << "the failure was never met";
  std::ostringstream out;
  out << scene.se.slercoer << ' ' << scene.se.slercerrno;
  for (const ub4 word : scene.se.slercose) out << ' ' << word;
  for (int i = 0; fault_trace(i); ++i) out << ' ' << fault_trace(i);
  out << " end\n" << what << gained(" fd", scene.opened) << gained(" mem", scene.allocated);
  fault_reset();
  return out.str();
}

/// False when the scene cannot be had here.
bool run(const Section &section, const Trial &trial, Report &found) {
  int ends[2];
  if (pipe(ends) != 0) std::abort();
  std::fflush(stdout);
  const bool failed_before = testing::Test::HasFailure();
  const pid_t child = fork();
  if (child == 0) {
    const std::string all = made(section, trial);
    const bool told = write(ends[1], all.data(), all.size()) == static_cast<ssize_t>(all.size());
    std::fflush(stdout);
    _exit(told && testing::Test::HasFailure() == failed_before ? 0 : 8);
  }
  close(ends[1]);
  std::string all;
  char piece[512];
  for (ssize_t got; (got = read(ends[0], piece, sizeof piece)) > 0;) {
    all.append(piece, static_cast<size_t>(got));
  }
  close(ends[0]);
  int status = -1;
  waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
  if (all.empty()) return false;
  std::istringstream in(all);
  in >> found.code >> found.error >> found.words[0] >> found.words[1] >> found.words[2];
  for (std::string call; in >> call && call != "end";) found.calls.push_back(call);
  std::getline(in >> std::ws, found.what, '\0');
  return true;
}

ub4 number_of(const std::string &word, int injected) {
  if (word == "errno") return static_cast<ub4>(injected);
  if (word == "handler") return static_cast<ub4>(reinterpret_cast<uintptr_t>(count_signal));
  return static_cast<ub4>(std::atoll(word.c_str()));
}

/// Holds a report against the outcome of its row.
void expect(const Section &section, const Outcome &wanted, int injected, const Report &found) {
  if (wanted.goes_on && &wanted != &section.unharmed && section.unharmed.code) {
    return expect(section, section.unharmed, injected, found);
  }
  const std::string &fallback = wanted.goes_on ? section.done : section.failed;
  const bool by_chance = wanted.what == "*" && found.what.find(" fd") == std::string::npos &&
                         found.what.find(" mem") == std::string::npos;
  if (!by_chance) {
    EXPECT_EQ(found.what, wanted.what.empty() ? fallback : wanted.what);
  }
  EXPECT_EQ(found.code, wanted.code);
  if (wanted.code == 0 || section.code_only) return;
  EXPECT_EQ(found.error, wanted.error < 0 ? injected : wanted.error) << "errno";
  for (size_t i = 0; i < 3; ++i) {
    const std::string word = i < wanted.words.size() ? wanted.words[i] : "0";
    EXPECT_EQ(found.words[i], number_of(word, injected)) << "word " << i;
  }
}

class Failures : public LayerTest, public testing::WithParamInterface<const Section *> {
 protected:
  /// So that no run has to load the library; the layer of each finds it for the first time.
  static void SetUpTestSuite() { dlopen("libaio.so.1", RTLD_NOW); }
};

std::vector<std::string> in_order(const Section &section, std::vector<std::string> calls) {
  if (section.any_order) std::sort(calls.begin(), calls.end());
  return calls;
}

TEST_P(Failures, AreAsTheTableSays) {
  const Section *const section = GetParam();
  Report clean;
  if (!run(*section, {}, clean)) GTEST_SKIP() << "the scene cannot be had here";
  std::vector<std::string> listed;
  for (const Row &row : section->calls) listed.push_back(row.call);
  ASSERT_EQ(in_order(*section, clean.calls), in_order(*section, listed)) << clean.what;
  expect(*section, section->unharmed, 0, clean);

  std::map<std::string, int> seen;
  int runs = 1;
  for (const Row &row : section->calls) {
    const int skip = seen[row.call]++;
    std::vector<std::string> errors = tables().errors.at(row.call);
    for (const auto &[error, outcome] : row.by_error) {
      if (std::find(errors.begin(), errors.end(), error) == errors.end()) errors.push_back(error);
    }
    for (const std::string &error : errors) {
      SCOPED_TRACE(testing::Message() << row.place << ": " << row.call << " " << error);
      Injection injection;
      ASSERT_TRUE(parse_injection(error, injection));
      const auto own = row.by_error.find(error);
      Report found;
      run(*section, {"", row.call, skip, injection}, found);
      expect(*section, own == row.by_error.end() ? row.usual : own->second, injection.error, found);
      ++runs;
    }
  }
  for (const Row &row : section->refusals) {
    SCOPED_TRACE(testing::Message() << row.place << ": when " << row.call);
    Report found;
    if (!run(*section, {row.call}, found)) continue;
    expect(*section, row.usual, 0, found);
    ++runs;
  }
  std::printf("%zu calls, %d runs\n", section->calls.size(), runs);
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
