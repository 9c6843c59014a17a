// stamp: the guarded stamp. Objections, a backup of what will be lost, the flow, block 0 read back.
#include <fmt/format.h>

#include <memory>

#include "admin/backup/backup.hpp"
#include "admin/commands/ask.hpp"
#include "admin/commands/each_name.hpp"
#include "admin/commands/flow.hpp"
#include "admin/guard/judge.hpp"
#include "admin/inspect/workers.hpp"

namespace vdadm {

namespace {

using guard::Judgement;
using report::Object;
using report::Outcome;

struct Arguments {
  std::string type, name, backup;
  std::vector<std::string> overruled;
  bool yes = false, dry_run = false, wipe = false;
};

/// The other signatures, as far as --wipe asks for them.
std::vector<inspect::Signature> to_wipe(const Arguments &arguments, const inspect::Facts &facts) {
  return arguments.wipe ? facts.signatures : std::vector<inspect::Signature>();
}

Object describe(const Arguments &arguments, const Judgement &judged, const guard::FileType &type) {
  Object object = guard::describe(judged.facts, judged.objections, judged.rehearsal, type,
                                  to_wipe(arguments, judged.facts));
  object.push_back(
      {"overruled", report::List(arguments.overruled.begin(), arguments.overruled.end())});
  return object;
}

/// The first look: nothing is written. Its status tells whether the stamp may go on.
Outcome look(const Arguments &arguments) {
  const guard::FileType &type = guard::file_type(arguments.type);
  const Judgement judged = guard::judge_stamp(type, arguments.name);
  const auto left = guard::standing(judged.objections, arguments.overruled);
  Outcome outcome{left.empty() ? yes : refused, describe(arguments, judged, type),
                  guard::sentences(arguments.name, left)};
  if (left.empty()) {
    outcome.sentences.push_back(fmt::format(
        "{} ({}) would be stamped as {}: {} bytes at its beginning would be written{}.",
        arguments.name, report::readable({judged.facts.size.value_or(0)}), type.name,
        type.block_size,
        judged.rehearsal.new_size > judged.facts.size.value_or(0)
            ? fmt::format(", and it would be extended to {} bytes", judged.rehearsal.new_size)
            : ""));
    for (const auto &signature : to_wipe(arguments, judged.facts)) {
      outcome.sentences.push_back(fmt::format("{}: {} at byte {} would be wiped ({} bytes).",
                                              arguments.name, signature.type, signature.offset,
                                              signature.length));
    }
  }
  return outcome;
}

/// Only what the backup holds goes; the stamp itself has taken some of it already.
report::List wipe(const Arguments &arguments, const Judgement &judged) {
  report::List wiped;
  for (const inspect::Signature &signature : to_wipe(arguments, judged.facts)) {
    const uint64_t from = std::max(signature.offset, guard::file_type(arguments.type).block_size);
    const uint64_t to = signature.offset + signature.length;
    if (from < to) {
      backup::put(arguments.name, judged.hold.fd(), {from, std::vector<unsigned char>(to - from)});
    }
    wiped.emplace_back(Object{{"type", signature.type}, {"offset", signature.offset}});
  }
  return wiped;
}

/// The second look is made while the disk is held, and what it objects to was seen by nobody before.
Outcome do_it(const Arguments &arguments) {
  const guard::FileType &type = guard::file_type(arguments.type);
  const Judgement judged = guard::judge_stamp(type, arguments.name);
  const auto left = guard::standing(judged.objections, arguments.overruled);
  if (!left.empty()) {
    return {refused, describe(arguments, judged, type), guard::sentences(arguments.name, left)};
  }
  if (!judged.hold.is(judged.facts)) {
    throw Failure(arguments.name + " became another file meanwhile: nothing was written.", refused);
  }
  const std::string path =
      arguments.backup.empty() ? backup::default_path(judged.facts.resolved) : arguments.backup;
  backup::save(backup::take(judged.facts), path);
  stamp_and_compare(type, judged.hold.fd(), judged.facts.size.value_or(~uint64_t{0}),
                    arguments.name);
  report::List wiped = wipe(arguments, judged);

  const inspect::Facts now = inspect::look_at(arguments.name, inspect::Depth::contents);
  Outcome outcome{yes, inspect::describe(now), {}};
  outcome.object.push_back({"type", type.name});
  outcome.object.push_back({"vdprep_status", 0});
  outcome.object.push_back({"objections", report::List()});
  outcome.object.push_back({"backup", path});
  outcome.object.push_back({"wiped", std::move(wiped)});
  outcome.sentences = {
      fmt::format("{} is stamped as {}, and block 0 was read back.", arguments.name, type.name),
      fmt::format("What it held before is in {}: vdadm restore brings it back.", path)};
  return outcome;
}

Outcome silent(const Arguments &arguments, double seconds) {
  const auto facts = inspect::silent(arguments.name, seconds);
  return {unknown,
          guard::describe(facts, {guard::no_answer(facts)}, {}, guard::file_type(arguments.type)),
          {facts.trouble + " Nothing was written."}};
}

int run(const Session &session, const Arguments &arguments) {
  auto first = inspect::ask([&] { return look(arguments); }, session.timeout);
  if (!first) first = silent(arguments, session.timeout);
  if (first->status != yes || arguments.dry_run) return print_or_complain(*first, session.format);
  ask_or_refuse(first->sentences.front(), arguments.yes);
  const auto second = inspect::ask([&] { return do_it(arguments); }, session.timeout);
  if (second) return print_or_complain(*second, session.format);
  throw Failure(
      fmt::format("{} gave no answer within {:g} seconds while it was stamped: see with vdadm "
                  "verify what is there.",
                  arguments.name, session.timeout));
}

}  // namespace

Work declare_stamp(Options &options) {
  const auto arguments = std::make_shared<Arguments>();
  declare_type(options, arguments->type);
  declare_name(options, arguments->name);
  guard::declare_overruling(options, arguments->overruled);
  options.flag({"--yes", "Do not ask"}, arguments->yes);
  options.flag({"--dry-run", "Write nothing; say what would be written"}, arguments->dry_run);
  options.flag({"--wipe", "Remove the other signatures, too"}, arguments->wipe);
  options.value({"--backup", "Where what is lost is kept", "FILE"}, arguments->backup);
  return [arguments](const Session &session) { return run(session, *arguments); };
}

}  // namespace vdadm
