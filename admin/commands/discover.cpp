// discover: every disk or file that matches, what is on it, and whether it could be stamped.
#include <fmt/format.h>
#include <glob.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <memory>

#include "admin/commands/each_name.hpp"
#include "admin/guard/guard.hpp"
#include "admin/inspect/crew.hpp"
#include "admin/inspect/glance.hpp"

namespace vdadm {

namespace {

using inspect::Facts;
using report::Outcome;

struct Arguments {
  std::vector<std::string> patterns;
  std::string columns, type = "vtg";
};

/// All block devices that hold something, as no pattern tells which are meant.
std::vector<std::string> all_disks() {
  std::vector<std::string> names;
  std::error_code missing;
  for (const auto &entry : std::filesystem::directory_iterator("/sys/class/block", missing)) {
    std::string name = entry.path().filename();
    if (inspect::first_line(entry.path() / "size") == "0") continue;
    std::replace(name.begin(), name.end(), '!', '/');
    names.push_back("/dev/" + name);
  }
  std::sort(names.begin(), names.end());
  return names;
}

/// What a pattern matches; a name without wildcards stands for itself, there or not.
void expand(const std::string &pattern, std::vector<std::string> &names) {
  glob64_t found{};
  const int result = glob64(pattern.c_str(), GLOB_NOMAGIC, nullptr, &found);
  const std::unique_ptr<glob64_t, decltype(&globfree64)> owner(&found, globfree64);
  if (result == GLOB_NOSPACE) throw std::bad_alloc();
  names.insert(names.end(), found.gl_pathv, found.gl_pathv + found.gl_pathc);
}

std::string content_of(const Facts &facts) {
  std::string content;
  if (facts.header) {
    const char *const type = inspect::type_of_block_size(facts.header->block_size);
    content = fmt::format("a {}header{}{}", facts.header->findings.empty() ? "" : "damaged ",
                          type ? " of type " : "", type ? type : "");
  }
  for (const inspect::Signature &signature : facts.signatures) {
    content += (content.empty() ? "" : ", ") + signature.type;
  }
  return content.empty() ? "nothing known" : content;
}

Outcome tell(const Facts &facts, const guard::FileType &type,
             const std::vector<guard::Objection> &objections) {
  std::string names;
  for (const guard::Objection &objection : objections) {
    names += (names.empty() ? "" : ", ") + objection.name;
  }
  Outcome outcome{yes, inspect::describe(facts), {}};
  if (!facts.trouble.empty()) {
    outcome.status = facts.answered && facts.error == ENOENT ? no : unknown;
    outcome.sentences.push_back(facts.trouble);
  } else {
    outcome.sentences.push_back(
        fmt::format("{}: {}, {}: {}", facts.name, report::readable({facts.size.value_or(0)}),
                    content_of(facts), names.empty() ? "can be stamped" : "not without " + names));
  }
  outcome.object.push_back({"type", type.name});
  outcome.object.push_back({"usable", objections.empty()});
  outcome.object.push_back({"objections", guard::describe(objections)});
  return outcome;
}

/// What opening it for writing would end with, without doing so: a disk that was open for writing is looked
/// at anew by everything that watches disks.
int error_of_writing(const Facts &facts) {
  if (access(facts.name.c_str(), W_OK) != 0) return errno;
  if (!facts.is_block_device()) return 0;
  const bool read_only =
      inspect::first_line(inspect::sysfs_folder(facts.status.st_rdev) + "/ro") == "1";
  return read_only ? EROFS : 0;
}

guard::Rehearsal foresee(const guard::FileType &type, const Facts &facts) {
  if (facts.is_file() && !facts.header) return guard::rehearse(type, facts);
  guard::Rehearsal rehearsal;
  rehearsal.status = 0;
  rehearsal.error = facts.exists ? error_of_writing(facts) : 0;
  if (rehearsal.error != 0) rehearsal.failed = guard::Step::open;
  return rehearsal;
}

/// Nothing is held meanwhile: whoever looks at all disks must not get into anybody's way.
Outcome look_and_tell(const std::string &name, const guard::FileType &type,
                      const std::set<std::string> &in_use) {
  const Facts facts = inspect::glance_at(name, in_use);
  const guard::Hold none;
  const guard::Rehearsal rehearsal = foresee(type, facts);
  return tell(facts, type,
              guard::objections_to({guard::Operation::stamp, facts, none, &rehearsal, &type}));
}

/// Folders may be on a disk that does not answer, too.
std::vector<std::string> expand_all(const Session &session, const Arguments &arguments) {
  const auto joined = inspect::ask_crew(
      1,
      [&](size_t) {
        std::vector<std::string> found;
        for (const std::string &pattern : arguments.patterns) expand(pattern, found);
        std::string all;
        for (const std::string &name : found) all += name + '\0';
        return all;
      },
      session.timeout);
  if (!joined[0]) throw Failure("A folder gave no answer in time: name disks or files in others.");
  std::vector<std::string> names;
  for (size_t at = 0; at < joined[0]->size();) {
    names.emplace_back(joined[0]->c_str() + at);
    at += names.back().size() + 1;
  }
  return names;
}

/// What of the outcome is wanted, made ready where the disk was looked at: the status, then the rest.
std::string ready(const Outcome &outcome, const report::Format &format) {
  std::string bytes(1, static_cast<char>(outcome.status));
  if (format.json) return bytes + report::json_line(outcome.object);
  if (!format.columns.empty()) return bytes + report::pack(outcome);
  return bytes + report::printable(outcome.sentences.front());
}

void print_all(const std::vector<std::string> &ready, const report::Format &format) {
  if (format.json) return report::print_array(ready);
  if (format.columns.empty()) {
    for (const std::string &line : ready) std::puts(line.c_str());
    return;
  }
  std::vector<Outcome> outcomes;
  outcomes.reserve(ready.size());
  for (const std::string &bytes : ready) outcomes.push_back(report::unpack(bytes));
  report::print(outcomes, format);
}

int discover(const Session &session, const Arguments &arguments) {
  const auto names = arguments.patterns.empty() ? all_disks() : expand_all(session, arguments);
  report::Format format = session.format;
  format.columns = arguments.columns;
  const guard::FileType &type = guard::file_type(arguments.type);
  const auto in_use = inspect::files_in_use();
  const auto look = [&](size_t number) {
    return ready(look_and_tell(names[number], type, in_use), format);
  };
  const auto tell_silent = [&](const std::string &name) {
    const Facts facts = inspect::silent(name, session.timeout);
    return tell(facts, type, {guard::no_answer(facts)});
  };
  auto answers = inspect::ask_crew(names.size(), look, session.timeout);
  std::vector<std::string> all;
  all.reserve(names.size());
  int status = names.empty() ? no : yes;
  for (size_t at = 0; at < names.size(); ++at) {
    if (!answers[at]) answers[at] = ready(tell_silent(names[at]), format);
    status = std::max(status, int{(*answers[at])[0]});
    all.push_back(std::move(answers[at]->erase(0, 1)));
  }
  print_all(all, format);
  return status;
}

}  // namespace

Work declare_discover(Options &options) {
  const auto arguments = std::make_shared<Arguments>();
  options.values(
      {"pattern", "Names, with the shell's wildcards in quotation marks; none: all disks",
       "PATTERN"},
      arguments->patterns);
  options.value({"--type", "What it could be stamped as: vtg (if none is given) or kvs", "TYPE",
                 false, types},
                arguments->type);
  declare_columns(options, arguments->columns);
  return [arguments](const Session &session) { return discover(session, *arguments); };
}

}  // namespace vdadm
