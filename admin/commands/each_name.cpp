// Asks about each name in a process of its own and prints the outcomes in the order of the names.
#include "admin/commands/each_name.hpp"

#include <algorithm>

#include "admin/inspect/workers.hpp"

namespace vdadm {

void declare_names(Options &options, std::vector<std::string> &names) {
  options.values({"name", "Disks or files", "NAME", true}, names);
}

void declare_name(Options &options, std::string &name) {
  options.value({"name", "Disk or file", "NAME", true}, name);
}

void declare_type(Options &options, std::string &type) {
  options.value({"type", "vtg: voting file; kvs: registry file", "TYPE", true, types}, type);
}

void declare_columns(Options &options, std::string &columns) {
  options.value({"-o,--output", "Print a table of these keys, joined by commas", "KEYS"}, columns);
}

int tell_each(const Session &session, const std::vector<std::string> &names,
              const std::string &columns, const Look &look, const Silent &silent) {
  std::vector<inspect::Question> questions;
  questions.reserve(names.size());
  for (const std::string &name : names) {
    questions.emplace_back([&look, &name] { return look(name); });
  }
  const auto answers = inspect::ask_all(questions, session.timeout);
  std::vector<report::Outcome> outcomes;
  int status = yes;
  for (size_t at = 0; at < names.size(); ++at) {
    outcomes.push_back(answers[at] ? *answers[at]
                                   : silent(inspect::silent(names[at], session.timeout)));
    status = std::max(status, outcomes.back().status);
  }
  report::Format format = session.format;
  format.columns = columns;
  report::print(outcomes, format);
  return status;
}

int print_or_complain(const report::Outcome &outcome, const report::Format &format) {
  if (outcome.status == yes || format.json) {
    report::print(outcome, format);
  } else {
    for (const std::string &sentence : outcome.sentences) complain(sentence);
  }
  return outcome.status;
}

void add_findings(report::Object &object, const std::vector<inspect::Finding> &findings) {
  report::List list;
  for (const auto &[name, message] : findings) {
    list.emplace_back(report::Object{{"name", name}, {"message", message}});
  }
  object.push_back({"findings", std::move(list)});
}

}  // namespace vdadm
