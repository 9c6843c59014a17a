// check: how vdprep would end, what it would destroy, and every objection to that.
#include <fmt/format.h>

#include <algorithm>
#include <memory>

#include "admin/commands/each_name.hpp"
#include "admin/guard/judge.hpp"

namespace vdadm {

namespace {

struct Arguments {
  std::string type;
  std::vector<std::string> names;
  std::string columns;
};

std::string foretell(const std::string &name, const guard::FileType &type,
                     const guard::Rehearsal &rehearsal) {
  if (!rehearsal.status) return fmt::format("{}: nobody can foretell: {}", name, rehearsal.reason);
  return fmt::format("{}: vdprep {} would end with status {}{}", name, type.name, *rehearsal.status,
                     rehearsal.reason.empty() ? "." : ": " + rehearsal.reason);
}

report::Outcome tell(const inspect::Facts &facts, const guard::FileType &type,
                     const guard::Rehearsal &rehearsal,
                     const std::vector<guard::Objection> &objections) {
  const bool unread = !facts.answered || facts.error == EACCES || facts.error == EPERM;
  report::Outcome outcome{unread               ? unknown
                          : objections.empty() ? yes
                                               : no,
                          guard::describe(facts, objections, rehearsal, type),
                          guard::sentences(facts.name, objections)};
  if (facts.answered) outcome.sentences.push_back(foretell(facts.name, type, rehearsal));
  if (objections.empty()) {
    outcome.sentences.push_back(facts.name + ": nothing speaks against stamping it.");
  }
  return outcome;
}

}  // namespace

Work declare_check(Options &options) {
  const auto arguments = std::make_shared<Arguments>();
  declare_type(options, arguments->type);
  declare_names(options, arguments->names);
  declare_columns(options, arguments->columns);
  return [arguments](const Session &session) {
    const guard::FileType &type = guard::file_type(arguments->type);
    const auto look = [&](const std::string &name) {
      const auto judged = guard::judge_stamp(type, name);
      return tell(judged.facts, type, judged.rehearsal, judged.objections);
    };
    const auto silent = [&](const inspect::Facts &facts) {
      return tell(facts, type, {}, {guard::no_answer(facts)});
    };
    return tell_each(session, arguments->names, arguments->columns, look, silent);
  };
}

}  // namespace vdadm
