// restore: brings back what a backup holds, to the disk that it is of.
#include <fmt/format.h>

#include <algorithm>
#include <memory>

#include "admin/backup/backup.hpp"
#include "admin/commands/change.hpp"

namespace vdadm {

namespace {

struct Arguments : ChangeArguments {
  std::string file;
  bool everything = false;
};

/// What is right already needs no write.
std::vector<backup::Region> differing(std::vector<backup::Region> regions,
                                      const guard::Hold &hold) {
  const auto holds_it = [&](const backup::Region &region) {
    const auto now = inspect::read_at(hold.fd(), region.offset, region.bytes.size());
    return now && *now == region.bytes;
  };
  regions.erase(std::remove_if(regions.begin(), regions.end(), holds_it), regions.end());
  return regions;
}

Change plan(const Arguments &arguments, const inspect::Facts &facts, const guard::Hold &hold) {
  const auto kept = std::make_shared<backup::Backup>(backup::load(arguments.file));
  Change change;
  change.objections = guard::objections_to(
      {guard::Operation::restore, facts, hold, nullptr, nullptr, kept.get(), 0});
  if (!guard::standing(change.objections, arguments.overruled).empty()) return change;
  const auto regions = differing(backup::to_restore(*kept, facts, arguments.everything), hold);
  const uint64_t size = facts.size.value_or(0);
  for (const backup::Region &region : regions) {
    change.writes.push_back({region.offset, region.bytes.size()});
  }
  if (size != kept->size) {
    change.sentences.push_back(fmt::format("It would be cut back to {} bytes.", kept->size));
  }
  change.apply = [regions, kept, size, name = arguments.name](int fd) {
    for (const backup::Region &region : regions) backup::put(name, fd, region);
    if (size != kept->size) cut(name, fd, kept->size);
    for (const backup::Region &region : regions) {
      const auto now = inspect::read_at(fd, region.offset, region.bytes.size());
      if (!now || *now != region.bytes) {
        throw Failure(fmt::format("{} does not hold at byte {} what was written there.", name,
                                  region.offset));
      }
    }
  };
  return change;
}

}  // namespace

Work declare_restore(Options &options) {
  const auto arguments = std::make_shared<Arguments>();
  options.value({"file", "The backup", "FILE", true}, arguments->file);
  declare_change(options, *arguments);
  options.flag({"--all", "Write all that the backup holds, also what stands behind block 0"},
               arguments->everything);
  return [arguments](const Session &session) {
    return carry_out(session, *arguments, "restored from " + arguments->file,
                     [&](const inspect::Facts &facts, const guard::Hold &hold) {
                       return plan(*arguments, facts, hold);
                     });
  };
}

}  // namespace vdadm
