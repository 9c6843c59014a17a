// Reads the failure tables; knows how a line looks, not what it means.
#include "tests/failures/table.hpp"

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>

#include "tests/support/layer.hpp"

namespace support {

namespace {

using Words = std::vector<std::string>;

[[noreturn]] void refuse(const std::string &place) {
  std::fprintf(stderr, "%s: not a line of a failure table\n", place.c_str());
  std::exit(2);
}

Words split(const std::string &line) {
  std::istringstream in(line.substr(0, line.find(" #")));
  Words words;
  for (std::string word; in >> word;) words.push_back(word);
  return words;
}

std::string join(const Words &words, size_t from) {
  std::string all;
  for (size_t i = from; i < words.size(); ++i) all += (i > from ? " " : "") + words[i];
  return all;
}

int error_named(const std::string &name) {
  for (int error = 1; error < 134; ++error) {
    const char *const known = strerrorname_np(error);
    if (known && name == known) return error;
  }
  return 0;
}

/// Of an error by name; "kept" is what dirty() leaves in a record.
int number_of(const std::string &word) {
  const int known = word == "kept" ? dirty().slercerrno : error_named(word);
  return known ? known : std::atoi(word.c_str());
}

/// "-", or code, words, "errno:NAME" and "= what", from a place on.
Outcome outcome_of(const Words &words, size_t at) {
  Outcome outcome;
  outcome.goes_on = at < words.size() && words[at] == "-";
  if (!outcome.goes_on && at < words.size()) outcome.code = std::atoi(words[at].c_str());
  while (++at < words.size() && words[at] != "=") {
    const bool named = words[at].rfind("errno:", 0) == 0;
    if (named) outcome.error = number_of(words[at].substr(6));
    if (!named) outcome.words.push_back(words[at]);
  }
  outcome.what = at < words.size() ? join(words, at + 1) : "";
  return outcome;
}

/// One line of a section; false when it is none.
bool add(Section &section, const Words &words, size_t indent, const std::string &place) {
  const std::string &key = words[0];
  Injection injection;
  if (indent == 4) {
    if (section.calls.empty() || !parse_injection(key, injection)) return false;
    section.calls.back().by_error[key] = outcome_of(words, 1);
  } else if (key == "done" || key == "failed") {
    (key == "done" ? section.done : section.failed) = join(words, 1);
  } else if (key == "record" || key == "order") {
    (key == "record" ? section.code_only : section.any_order) = true;
  } else if (key == "gives") {
    section.unharmed = outcome_of(words, 1);
    section.unharmed.goes_on = true;
  } else if (words.size() < 2) {
    return false;
  } else if (key == "when") {
    section.refusals.push_back({place, words[1], outcome_of(words, 2)});
  } else {
    section.calls.push_back({place, key, outcome_of(words, 1)});
  }
  return true;
}

/// Adds a file's sections; a line that is none ends the process with a message.
void read_table(const std::string &folder, const std::string &name, Table &table) {
  std::string heading;
  int number = 0;
  std::ifstream file(folder + "/" + name + ".table");
  for (std::string line; std::getline(file, line);) {
    const std::string place = name + ".table:" + std::to_string(++number);
    const Words words = line[0] == '#' ? Words{} : split(line);
    if (words.empty()) continue;
    const size_t indent = line.find_first_not_of(' ');
    if (indent == 0) {
      heading = words[0];
      if (words.size() == 3) table.sections.push_back({words[0], words[2], "", ""});
    } else if (heading == "errors") {
      table.errors[words[0]] = Words(words.begin() + 1, words.end());
    } else if (heading == "elsewhere") {
      table.elsewhere[words[0] + " " + words[1]] = words[2];
    } else if (table.sections.empty() || !add(table.sections.back(), words, indent, place)) {
      refuse(place);
    }
  }
  if (number == 0) refuse(name);
}

}  // namespace

bool parse_injection(const std::string &word, Injection &injection) {
  injection = {error_named(word), -1};
  if (injection.error) return true;
  injection.result = std::atol(word.c_str());
  return std::isdigit(static_cast<unsigned char>(word[0])) != 0;
}

const Table &tables() {
  static const Table all = [] {
    Table read;
    for (const char *name : {"calls", "system", "files", "handles", "requests", "find", "tool"}) {
      read_table(SOURCES "/tests/failures", name, read);
    }
    return read;
  }();
  return all;
}

}  // namespace support
