// The two looks, the question between them, the backup before the change.
#include "admin/commands/change.hpp"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include "admin/backup/backup.hpp"
#include "admin/commands/ask.hpp"
#include "admin/inspect/workers.hpp"

namespace vdadm {

namespace {

using inspect::Depth;
using inspect::Facts;
using report::Object;
using report::Outcome;

struct Job {
  const ChangeArguments &arguments;
  const std::string &done;
  const Plan &plan;
};

Object describe(const Job &job, const Facts &facts, const Change &change) {
  Object object = inspect::describe(facts);
  object.push_back({"objections", guard::describe(change.objections)});
  report::List writes;
  for (const auto &[offset, length] : change.writes) {
    writes.emplace_back(Object{{"offset", offset}, {"length", length}});
  }
  object.push_back({"would_write", std::move(writes)});
  const auto &overruled = job.arguments.overruled;
  object.push_back({"overruled", report::List(overruled.begin(), overruled.end())});
  return object;
}

Outcome look_and_do(const Job &job, bool really) {
  const std::string &name = job.arguments.name;
  const guard::Hold hold(inspect::look_at(name, Depth::header));
  const Facts facts = inspect::look_at(name, Depth::processes);
  const Change change = job.plan(facts, hold);
  const auto left = guard::standing(change.objections, job.arguments.overruled);
  Outcome outcome{left.empty() ? yes : refused, describe(job, facts, change),
                  guard::sentences(name, left)};
  if (!left.empty()) return outcome;
  if (!really) {
    uint64_t bytes = 0;
    for (const auto &write : change.writes) bytes += write.length;
    outcome.sentences = change.sentences;
    outcome.sentences.insert(
        outcome.sentences.begin(),
        fmt::format("{} would be {}: {} bytes would be written.", name, job.done, bytes));
    return outcome;
  }
  if (!hold.is(facts)) {
    throw Failure(name + " became another file meanwhile: nothing was written.", refused);
  }
  const std::string path =
      job.arguments.backup.empty() ? backup::default_path(facts.resolved) : job.arguments.backup;
  backup::save(backup::take(facts), path);
  change.apply(hold.fd());
  outcome.object = inspect::describe(inspect::look_at(name, Depth::contents));
  outcome.object.push_back({"objections", report::List()});
  outcome.object.push_back({"backup", path});
  outcome.sentences = {fmt::format("{} is {}.", name, job.done),
                       fmt::format("What it held before is in {}.", path)};
  return outcome;
}

}  // namespace

void declare_change(Options &options, ChangeArguments &arguments) {
  declare_name(options, arguments.name);
  guard::declare_overruling(options, arguments.overruled);
  options.flag({"--yes", "Do not ask"}, arguments.yes);
  options.flag({"--dry-run", "Write nothing; say what would be written"}, arguments.dry_run);
  options.value({"--backup", "Where what is there now is kept", "FILE"}, arguments.backup);
}

int carry_out(const Session &session, const ChangeArguments &arguments, const std::string &done,
              const Plan &plan) {
  const Job job{arguments, done, plan};
  const auto first = inspect::ask([&] { return look_and_do(job, false); }, session.timeout);
  if (!first) {
    const Facts facts = inspect::silent(arguments.name, session.timeout);
    Change change;
    change.objections = {guard::no_answer(facts)};
    return print_or_complain({unknown, describe(job, facts, change), {facts.trouble}},
                             session.format);
  }
  if (first->status != yes || arguments.dry_run) return print_or_complain(*first, session.format);
  ask_or_refuse(first->sentences.front(), arguments.yes);
  const auto second = inspect::ask([&] { return look_and_do(job, true); }, session.timeout);
  if (second) return print_or_complain(*second, session.format);
  throw Failure(inspect::silent(arguments.name, session.timeout).trouble +
                " See with vdadm verify what is there.");
}

void cut(const std::string &name, int fd, uint64_t size) {
  const std::string self = fmt::format("/proc/self/fd/{}", fd);
  const inspect::Descriptor file(open64(self.c_str(), O_WRONLY | O_CLOEXEC));
  if (!file || ftruncate64(file.get(), static_cast<off64_t>(size)) != 0 || fsync(file.get()) != 0) {
    throw Failure(inspect::system_sentence(name, errno));
  }
}

}  // namespace vdadm
