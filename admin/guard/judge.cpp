// Holds a disk, looks at it, rehearses the stamp, and asks the table.
#include "admin/guard/judge.hpp"

#include <fmt/format.h>

namespace vdadm::guard {

using inspect::Depth;
using inspect::Facts;

Judgement judge_stamp(const FileType &type, const std::string &name) {
  Hold hold(inspect::look_at(name, Depth::header));
  Facts facts = inspect::look_at(name, Depth::processes);
  Rehearsal rehearsal = rehearse(type, facts);
  auto objections = objections_to({Operation::stamp, facts, hold, &rehearsal, &type});
  return {std::move(facts), std::move(hold), std::move(rehearsal), std::move(objections)};
}

report::Object describe(const Facts &facts, const std::vector<Objection> &objections,
                        const Rehearsal &rehearsal, const FileType &type,
                        const std::vector<inspect::Signature> &wiped) {
  report::Object object = inspect::describe(facts);
  object.push_back({"type", type.name});
  object.push_back(
      {"vdprep_status", rehearsal.status ? report::Value(*rehearsal.status) : report::Value()});
  object.push_back({"vdprep_reason",
                    rehearsal.reason.empty() ? report::Value() : report::Value(rehearsal.reason)});
  object.push_back({"objections", describe(objections)});
  report::List writes;
  if (rehearsal.status == 0) {
    writes.emplace_back(report::Object{{"offset", 0U}, {"length", type.block_size}});
    if (facts.is_file() && rehearsal.new_size > facts.size.value_or(0)) {
      writes.emplace_back(
          report::Object{{"offset", *facts.size}, {"length", rehearsal.new_size - *facts.size}});
    }
  }
  for (const inspect::Signature &signature : wiped) {
    writes.emplace_back(report::Object{{"offset", signature.offset}, {"length", signature.length}});
  }
  object.push_back({"would_write", std::move(writes)});
  return object;
}

std::vector<std::string> sentences(const std::string &name,
                                   const std::vector<Objection> &objections) {
  std::vector<std::string> lines;
  lines.reserve(objections.size());
  for (const Objection &objection : objections) {
    lines.push_back(fmt::format(
        "{}: {}: {}{}", name, objection.name, objection.message,
        objection.overrulable ? fmt::format(" To do it all the same: --overrule {}", objection.name)
                              : ""));
  }
  return lines;
}

void declare_overruling(Options &options, std::vector<std::string> &overruled) {
  const auto known = overrulable_names();
  const std::string all = fmt::format("{}", fmt::join(known, ", "));
  const auto take = [&overruled, known, all](const std::string &name) -> std::string {
    if (std::find(known.begin(), known.end(), name) == known.end()) {
      return fmt::format("{} is no objection that can be overruled; these can: {}.", name, all);
    }
    overruled.push_back(name);
    return "";
  };
  const auto help = fmt::format("Go on in spite of this objection ({}); repeatable", all);
  options.repeated({"--overrule", help, "NAME"}, take);
}

}  // namespace vdadm::guard
