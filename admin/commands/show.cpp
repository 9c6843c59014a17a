// show: what is on a disk or in a file, and who has it.
#include <memory>

#include "admin/commands/each_name.hpp"

namespace vdadm {

namespace {

struct Arguments {
  std::vector<std::string> names;
  std::string columns;
};

/// What is not there is a no; what cannot be read cannot be told.
report::Outcome tell(const inspect::Facts &facts) {
  report::Outcome outcome{yes, inspect::describe(facts), {}};
  if (!facts.trouble.empty()) {
    const bool absent = facts.answered && !facts.exists && facts.error == ENOENT;
    outcome.status = absent ? no : unknown;
  }
  return outcome;
}

}  // namespace

Work declare_show(Options &options) {
  const auto arguments = std::make_shared<Arguments>();
  declare_names(options, arguments->names);
  declare_columns(options, arguments->columns);
  return [arguments](const Session &session) {
    const auto look = [](const std::string &name) {
      return tell(inspect::look_at(name, inspect::Depth::contents));
    };
    return tell_each(session, arguments->names, arguments->columns, look, tell);
  };
}

}  // namespace vdadm
