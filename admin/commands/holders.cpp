// holders: who has a disk or a file.
#include <fmt/format.h>

#include <memory>

#include "admin/commands/each_name.hpp"
#include "admin/inspect/workers.hpp"

namespace vdadm {

namespace {

report::Outcome tell(const inspect::Facts &facts) {
  const bool absent = facts.answered && !facts.exists && facts.error == ENOENT;
  report::Outcome outcome{
      absent                                  ? no
      : facts.trouble.empty() || facts.exists ? yes
                                              : unknown,
      {{"name", facts.name},
       {"holders", report::value_of(inspect::describe(facts), "holders")},
       {"trouble", facts.trouble.empty() ? report::Value() : report::Value(facts.trouble)}},
      {}};
  for (const inspect::Holder &holder : facts.holders) {
    const std::string process = holder.process ? fmt::format(" {}", holder.process) : "";
    outcome.sentences.push_back(fmt::format(
        "{}: {}{} {}{}{}", facts.name, holder.kind, process, holder.name,
        holder.device.empty() ? "" : " on " + holder.device, holder.writes ? ", for writing" : ""));
  }
  if (!facts.trouble.empty()) outcome.sentences.push_back(facts.trouble);
  if (outcome.sentences.empty()) outcome.sentences.push_back(facts.name + ": nobody has it.");
  return outcome;
}

}  // namespace

Work declare_holders(Options &options) {
  const auto name = std::make_shared<std::string>();
  declare_name(options, *name);
  return [name](const Session &session) {
    const auto answer = inspect::ask(
        [&] { return tell(inspect::look_at(*name, inspect::Depth::processes)); }, session.timeout);
    const auto outcome = answer ? *answer : tell(inspect::silent(*name, session.timeout));
    report::print(outcome, session.format);
    return outcome.status;
  };
}

}  // namespace vdadm
