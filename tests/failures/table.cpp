// Reads the failure tables; knows how a line looks, not what it means.
#include "tests/failures/table.hpp"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <set>
#include <sstream>

#include "tests/support/layer.hpp"

namespace support {

namespace {

struct Line {
  std::string place;
  bool heads;
  Words words;
};

[[noreturn]] void refuse(const std::string &place) {
  std::fprintf(stderr, "%s: not a line of a failure table\n", place.c_str());
  std::exit(2);
}

/// The lines of a file that say something; those that go on with the line above are part of it.
std::vector<Line> lines_of(const std::string &name) {
  std::vector<Line> lines;
  int number = 0;
  std::ifstream file(SOURCES "/tests/failures/" + name);
  for (std::string text; std::getline(file, text);) {
    const std::string place = name + ":" + std::to_string(++number);
    std::istringstream in(text[0] == '#' ? "" : text.substr(0, text.find(" #")));
    Words words(std::istream_iterator<std::string>(in), {});
    if (words.empty()) continue;
    if (text.rfind("    ", 0) != 0) {
      lines.push_back({place, text[0] != ' ', words});
      continue;
    }
    if (lines.empty()) refuse(place);
    lines.back().words.emplace_back("but");
    std::copy(words.begin(), words.end(), std::back_inserter(lines.back().words));
  }
  if (lines.empty()) refuse(name);
  return lines;
}

int error_named(const std::string &name) {
  if (name == "kept") return dirty().slercerrno;
  for (int error = 1; error < 134; ++error) {
    const char *const known = strerrorname_np(error);
    if (known && name == known) return error;
  }
  return 0;
}

/// A row for each call that a line begins with.
std::vector<Row> rows_of(const Line &line) {
  const auto is_outcome = [](const std::string &word) { return word == "-" || isdigit(word[0]); };
  const auto outcome = std::find_if(line.words.begin(), line.words.end(), is_outcome);
  if (outcome == line.words.begin() || outcome == line.words.end()) refuse(line.place);
  std::vector<Row> rows;
  for (auto call = line.words.begin(); call < outcome; ++call) rows.push_back({line.place, *call});
  for (auto from = outcome; from < line.words.end();) {
    const auto to = std::find(from, line.words.end(), "but");
    for (Row &row : rows) {
      (from == outcome ? row.usual : row.by_error[*from]) = Outcome({from + (from != outcome), to});
    }
    from = to == line.words.end() ? to : to + 1;
  }
  return rows;
}

/// One line of a section. Words behind the first mean there what the section says of them.
void add(Section &section, const Line &line) {
  Words words = {line.words[0]};
  for (size_t i = 1; i < line.words.size(); ++i) {
    const auto meant = section.facts.find(line.words[i]);
    const bool means = meant != section.facts.end() && isupper(line.words[i][0]);
    const Words one = means ? meant->second : Words{line.words[i]};
    words.insert(words.end(), one.begin(), one.end());
  }
  const std::set<std::string> facts = {"done", "failed", "gives", "opens", "order", "record"};
  if (facts.contains(words[0]) || isupper(words[0][0])) {
    for (auto from = words.begin(); from < words.end();) {
      const auto to = std::find(from + 1, words.end(), "failed");
      section.facts[*from] = {from + 1, to};
      from = to;
    }
    return;
  }
  const bool refuses = words[0] == "when";
  std::vector<Row> &all = refuses ? section.refusals : section.calls;
  for (const Row &row : rows_of({line.place, false, {words.begin() + refuses, words.end()}})) {
    all.push_back(row);
  }
}

Table read_all() {
  Table table;
  std::map<std::string, std::vector<Line>> groups;
  for (const char *name : {"calls.table", "scenes.table", "system.table", "files.table",
                           "handles.table", "requests.table", "find.table", "tool.table"}) {
    std::vector<Line> *group = nullptr;
    for (const Line &line : lines_of(name)) {
      const Words &words = line.words;
      if (line.heads && words.size() == 2 && words[0] == "rows") {
        group = &groups[words[1]];
      } else if (line.heads && words.size() == 3 && words[1] == "is") {
        table.scenes[words[0]] = words[2];
      } else if (line.heads && words.size() == 3 && words[1] == "on") {
        table.sections.push_back({words[0], words[2]});
        group = nullptr;
      } else if (line.heads) {
        refuse(line.place);
      } else if (group) {
        group->push_back(line);
      } else if (words[0] == "rows") {
        for (const Line &row : groups.at(words[1])) add(table.sections.back(), row);
      } else {
        add(table.sections.back(), line);
      }
    }
  }
  for (const auto &[place, heads, words] : groups.at("errors")) {
    table.errors[words[0]] = {words.begin() + 1, words.end()};
  }
  return table;
}

}  // namespace

std::string text_of(const Words &words) {
  std::string all;
  for (const std::string &word : words) all += (all.empty() ? "" : " ") + word;
  return all;
}

Outcome::Outcome(const Words &words) {
  const auto equals = std::find(words.begin(), words.end(), "=");
  if (equals != words.end()) what = text_of({equals + 1, words.end()});
  for (auto word = words.begin(); word < equals; ++word) {
    if (*word == "-") {
      goes_on = true;
    } else if (word->rfind("errno:", 0) == 0) {
      const std::string name = word->substr(std::strlen("errno:"));
      error = std::max(error_named(name), std::atoi(name.c_str()));
    } else {
      record.push_back(*word);
    }
  }
}

Injection injection_of(const std::string &word) {
  const size_t colon = word.find(':');
  const int error = error_named(word.substr(0, colon));
  if (error && colon == word.npos) return {error, FAULT_FAILS};
  const std::string result = word.substr(error ? colon + 1 : 0);
  if (result.find_first_not_of("0123456789") != result.npos) refuse(word);
  return {error, std::atol(result.c_str())};
}

const Table &tables() {
  static const Table all = read_all();
  return all;
}

}  // namespace support
