// backup: what stands around block 0, and every signature, as text in a file.
#include <fmt/format.h>

#include <memory>

#include "admin/backup/backup.hpp"
#include "admin/commands/each_name.hpp"
#include "admin/inspect/workers.hpp"

namespace vdadm {

namespace {

struct Arguments {
  std::string name, file;
  bool dry_run = false;
};

report::Outcome do_it(const Arguments &arguments) {
  const inspect::Facts facts = inspect::look_at(arguments.name, inspect::Depth::contents);
  if (!facts.trouble.empty()) throw Failure(facts.trouble, facts.error == ENOENT ? no : unknown);
  if (!facts.is_file() && !facts.is_block_device()) {
    throw Failure(arguments.name + " is a character device: only files and disks have a backup.");
  }
  const backup::Backup backup = backup::take(facts);
  const std::string path = arguments.file.empty() && !arguments.dry_run
                               ? backup::default_path(facts.resolved)
                               : arguments.file;
  if (!arguments.dry_run) backup::save(backup, path);
  report::List regions, identity;
  for (const backup::Region &region : backup.regions) {
    regions.emplace_back(
        report::Object{{"offset", region.offset}, {"length", region.bytes.size()}});
  }
  for (const auto &[key, value] : backup.identity)
    identity.emplace_back(fmt::format("{} {}", key, value));
  return {yes,
          {{"name", arguments.name},
           {"backup", path.empty() ? report::Value() : report::Value(path)},
           {"dry_run", arguments.dry_run},
           {"identity", std::move(identity)},
           {"regions", std::move(regions)}},
          {fmt::format("{} {} kept in {}.", arguments.name, arguments.dry_run ? "would be" : "is",
                       path.empty() ? "the state folder" : path)}};
}

}  // namespace

Work declare_backup(Options &options) {
  const auto arguments = std::make_shared<Arguments>();
  declare_name(options, arguments->name);
  options.value({"file", "The new file for it; below the state folder if not given", "FILE"},
                arguments->file);
  options.flag({"--dry-run", "Write nothing; say what would be kept"}, arguments->dry_run);
  return [arguments](const Session &session) {
    const auto outcome = inspect::ask([&] { return do_it(*arguments); }, session.timeout);
    if (!outcome) throw Failure(inspect::silent(arguments->name, session.timeout).trouble);
    report::print(*outcome, session.format);
    return outcome->status;
  };
}

}  // namespace vdadm
