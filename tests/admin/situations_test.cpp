// Tables of situations, run through the built program.
//
// A situation is a paragraph: its title, then lines that begin with
//   !  a command that sets it up; it must work
//   ?  the same, where machines differ: without it the situation is skipped
//   $  a command, followed by its exit status and, behind a blank, what it must print: JSON that standard
//      output has to hold (objects may hold more; "*" is anything), or a part of its text
// All run in one empty folder, with world.sh at hand. Lines that begin with # are comments.
#include <sys/wait.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include "tests/support/layer.hpp"
#include "tests/support/places.hpp"

namespace {

namespace fs = std::filesystem;
using nlohmann::json;

struct Step {
  char kind;
  std::string command, wanted;
};
struct Situation {
  std::string title, table;
  std::vector<Step> steps;
};
void PrintTo(const Situation &shown, std::ostream *out) {
  *out << shown.table << ": " << shown.title;
}

std::vector<Situation> situations() {
  std::vector<Situation> all;
  for (const auto &entry : fs::directory_iterator(TABLES)) {
    if (entry.path().extension() != ".table") continue;
    std::ifstream file(entry.path());
    bool inside = false;
    for (std::string line; std::getline(file, line);) {
      if (line[0] == '#') continue;
      if (line.empty()) {
        inside = false;
      } else if (!inside) {
        inside = true;
        all.push_back({line, entry.path().stem(), {}});
      } else if (line[0] == '!' || line[0] == '?' || line[0] == '$') {
        all.back().steps.push_back({line[0], line.substr(2), ""});
      } else {
        std::string &wanted = all.back().steps.back().wanted;
        wanted += (wanted.empty() ? "" : "\n") + line;
      }
    }
  }
  return all;
}

/// The path of the first value that is not as wanted; empty when all are.
std::string difference(const json &wanted, const json &got, const std::string &path) {
  if (wanted == "*" || wanted == got) return "";
  if (wanted.is_object() && got.is_object()) {
    for (const auto &[key, value] : wanted.items()) {
      if (!got.contains(key)) return path + "/" + key + " is missing";
      if (const auto found = difference(value, got[key], path + "/" + key); !found.empty())
        return found;
    }
    return "";
  }
  if (!wanted.is_array() || !got.is_array() || wanted.size() != got.size()) {
    return path + ": " + got.dump() + " instead of " + wanted.dump();
  }
  for (size_t at = 0; at < wanted.size(); ++at) {
    const auto found = difference(wanted[at], got[at], path + "/" + std::to_string(at));
    if (!found.empty()) return found;
  }
  return "";
}

class Admin : public testing::TestWithParam<Situation> {
 protected:
  struct Outcome {
    int status;
    std::string output, errors;
  };
  Outcome run(const std::string &command) {
    const std::string errors = dir_.path("stderr"), script = dir_.path("script");
    std::ofstream(script) << "cd " + dir_.path("here") + "; source " TABLES "/world.sh\n" +
                                 command + "\n";
    FILE *const pipe = popen(("bash " + script + " 2>" + errors).c_str(), "r");
    std::string output;
    for (int c; (c = std::fgetc(pipe)) != EOF;) output += static_cast<char>(c);
    const int ended = pclose(pipe);
    return {WIFEXITED(ended) ? WEXITSTATUS(ended) : 128 + WTERMSIG(ended), output,
            support::contents(errors, 1 << 20)};
  }
  void SetUp() override { fs::create_directory(dir_.path("here")); }
  void TearDown() override { EXPECT_EQ(run("clean_up").status, 0); }
  support::TempDir dir_{support::place_for_files()};
};

TEST_P(Admin, EndsAsPlanned) {
  for (const auto &[kind, command, wanted] : GetParam().steps) {
    SCOPED_TRACE(command);
    const Outcome got = run(command);
    const std::string said = got.output + got.errors;
    if (kind == '?' && got.status != 0)
      GTEST_SKIP() << "not to be had here: " << command << "\n" << said;
    if (kind != '$') {
      ASSERT_EQ(got.status, 0) << said;
      continue;
    }
    const size_t blank = wanted.find(' ');
    EXPECT_EQ(std::to_string(got.status), wanted.substr(0, blank)) << said;
    const std::string text = blank == wanted.npos ? "" : wanted.substr(blank + 1);
    if (text[0] != '[' && text[0] != '{') {
      EXPECT_NE(said.find(text), said.npos) << text << "\n" << said;
      continue;
    }
    const json plan = json::parse(text, nullptr, false),
               result = json::parse(got.output, nullptr, false);
    ASSERT_FALSE(plan.is_discarded()) << text;
    ASSERT_FALSE(result.is_discarded()) << said;
    EXPECT_EQ(difference(plan, result, ""), "") << result.dump(1) << got.errors;
  }
}

std::string name_of(const testing::TestParamInfo<Situation> &info) {
  std::string name = info.param.table + "_" + info.param.title;
  for (char &letter : name)
    letter = std::isalnum(static_cast<unsigned char>(letter)) ? letter : '_';
  return name;
}
INSTANTIATE_TEST_SUITE_P(Table, Admin, testing::ValuesIn(situations()), name_of);

}  // namespace
