// verify: whether block 0 is right in every bit, and agrees with the disk.
#include <fmt/format.h>

#include <algorithm>
#include <memory>

#include "admin/backup/backup.hpp"
#include "admin/commands/each_name.hpp"

namespace vdadm {

namespace {

using inspect::Facts;
using inspect::Finding;
using Findings = std::vector<Finding>;

struct Arguments {
  std::vector<std::string> names;
  std::string columns, type;
  std::optional<backup::Backup> against;
};

void find_unreadable(const Facts &facts, const Arguments &, Findings &findings) {
  if (facts.trouble.empty() && !facts.is_character_device()) return;
  const char *const name = !facts.answered                          ? "no_answer"
                           : !facts.exists && facts.error == ENOENT ? "absent"
                                                                    : "unreadable";
  findings.push_back({name, facts.trouble.empty()
                                ? facts.name + " is a character device: block 0 is not read there."
                                : facts.trouble});
}

void find_no_header(const Facts &facts, const Arguments &, Findings &findings) {
  if (!findings.empty() || facts.header) return;
  const bool blank = std::all_of(facts.start.begin(), facts.start.end(),
                                 [](unsigned char byte) { return byte == 0; });
  findings.push_back({"no_header", fmt::format("{} has no header: it {}.", facts.name,
                                               facts.start.empty() ? "is empty"
                                               : blank             ? "begins with zeros"
                                                       : "begins with something else")});
}

void find_wrong_bits(const Facts &facts, const Arguments &, Findings &findings) {
  if (!facts.header) return;
  const Findings &wrong = facts.header->findings;
  findings.insert(findings.end(), wrong.begin(), wrong.end());
}

void find_wrong_size(const Facts &facts, const Arguments &, Findings &findings) {
  if (!facts.header || !facts.size) return;
  if (auto wrong = inspect::compare_sizes(*facts.header, *facts.size, facts.is_file())) {
    findings.push_back(std::move(*wrong));
  }
}

void find_other_kind(const Facts &facts, const Arguments &, Findings &findings) {
  if (!facts.header || facts.header->mode == 0) return;
  if ((facts.header->mode & S_IFMT) == (facts.status.st_mode & S_IFMT)) return;
  findings.push_back(
      {"wrong_value", fmt::format("The mode bits are {:#o}, and the file's are {:#o}.",
                                  facts.header->mode, facts.status.st_mode)});
}

void find_other_type(const Facts &facts, const Arguments &arguments, Findings &findings) {
  if (!facts.header || arguments.type.empty()) return;
  const char *const type = inspect::type_of_block_size(facts.header->block_size);
  if (type && arguments.type == type) return;
  findings.push_back(
      {"other_type",
       fmt::format("Its blocks have {} bytes, which is {}, not {}.", facts.header->block_size,
                   type ? type : "neither vtg nor kvs", arguments.type)});
}

/// The backup has a digest: what no rule finds, it does.
void find_difference(const Facts &facts, const Arguments &arguments, Findings &findings) {
  if (!arguments.against || facts.start.empty()) return;
  if (auto apart = backup::tell_apart(*arguments.against, facts)) {
    findings.push_back({"other_disk", *apart});
    return;
  }
  const auto &old = arguments.against->regions.front().bytes;
  const auto kept = inspect::decode_header(old);
  const uint64_t wanted = kept ? kept->block_size : 512;
  const size_t length = std::min<size_t>(old.size(), wanted);
  const auto differing =
      std::mismatch(old.begin(), old.begin() + static_cast<std::ptrdiff_t>(length),
                    facts.start.begin(), facts.start.end());
  if (differing.first == old.begin() + static_cast<std::ptrdiff_t>(length)) return;
  findings.push_back(
      {"differs_from_backup", fmt::format("Block 0 is not that of the backup, from byte {} on.",
                                          differing.first - old.begin())});
}

/// Each question in the order in which its answer is told.
using Question = void (*)(const Facts &facts, const Arguments &arguments, Findings &findings);
constexpr Question questions[] = {find_unreadable, find_no_header,  find_wrong_bits,
                                  find_wrong_size, find_other_kind, find_other_type,
                                  find_difference};

int status_of(const Findings &findings) {
  if (findings.empty()) return yes;
  const std::string &first = findings.front().name;
  return first == "no_answer" || first == "unreadable" ? unknown : no;
}

report::Outcome tell(const Facts &facts, const Arguments &arguments) {
  Findings findings;
  for (const Question question : questions) question(facts, arguments, findings);
  report::Outcome outcome{status_of(findings), inspect::describe(facts), {}};
  add_findings(outcome.object, findings);
  for (const auto &[name, message] : findings) {
    outcome.sentences.push_back(fmt::format("{}: {}: {}", facts.name, name, message));
  }
  if (findings.empty()) {
    outcome.sentences.push_back(fmt::format("{}: sound: {} blocks of {} bytes behind block 0.",
                                            facts.name, facts.header->blocks,
                                            facts.header->block_size));
  }
  return outcome;
}

}  // namespace

Work declare_verify(Options &options) {
  const auto arguments = std::make_shared<Arguments>();
  declare_names(options, arguments->names);
  declare_columns(options, arguments->columns);
  options.value({"--type", "The type that it should have: vtg or kvs", "TYPE", false, types},
                arguments->type);
  const auto take = [arguments](const std::string &file) {
    arguments->against = backup::load(file);
    return "";
  };
  options.taken({"--against", "A backup that block 0 should equal", "BACKUP"}, take);
  return [arguments](const Session &session) {
    const auto silent = [&](const Facts &facts) { return tell(facts, *arguments); };
    const auto look = [&](const std::string &name) {
      return silent(inspect::look_at(name, inspect::Depth::header));
    };
    return tell_each(session, arguments->names, arguments->columns, look, silent);
  };
}

}  // namespace vdadm
