// probe: what a udev rule imports, so that other tools see that a stamped disk is taken.
//
// Quiet about disks without a header: udev asks of each disk.
#include <cstdio>
#include <memory>

#include "admin/commands/each_name.hpp"
#include "admin/inspect/workers.hpp"

namespace vdadm {

namespace {

struct Arguments {
  std::string name;
  bool for_udev = false;
};

report::Outcome tell(const inspect::Facts &facts) {
  report::Outcome outcome{facts.trouble.empty() ? no : unknown, {{"name", facts.name}}, {}};
  const bool sound = facts.header && facts.header->findings.empty();
  const char *const type = sound ? inspect::type_of_block_size(facts.header->block_size) : nullptr;
  for (const auto &[key, value] :
       {std::pair("ID_FS_TYPE", type ? std::string("vdprep_") + type : std::string()),
        std::pair("ID_FS_USAGE", std::string("other")),
        std::pair("ID_FS_VERSION",
                  std::string(sound && facts.header->old_layout ? "old" : "current"))}) {
    outcome.object.push_back({key, type ? report::Value(value) : report::Value()});
    if (type) outcome.sentences.push_back(std::string(key) + "=" + value);
  }
  if (type) outcome.status = yes;
  return outcome;
}

}  // namespace

Work declare_probe(Options &options) {
  const auto arguments = std::make_shared<Arguments>();
  declare_name(options, arguments->name);
  options.flag({"--export", "Print KEY=VALUE lines for udev", "", true}, arguments->for_udev);
  return [arguments](const Session &session) {
    const auto answer = inspect::ask(
        [&] { return tell(inspect::look_at(arguments->name, inspect::Depth::header)); },
        session.timeout);
    const auto outcome = answer ? *answer : tell(inspect::silent(arguments->name, session.timeout));
    if (session.format.json || outcome.status == yes) report::print(outcome, session.format);
    return outcome.status;
  };
}

}  // namespace vdadm
