// resize and upgrade: another size for a registry file, the current layout for an old header.
#include <fcntl.h>
#include <fmt/format.h>

#include <memory>

#include "admin/commands/change.hpp"
#include "admin/commands/registry.hpp"
#include "admin/commands/size.hpp"

namespace vdadm {

namespace {

struct Arguments : ChangeArguments {
  uint64_t size = 0;
};

/// Reads block 0 past the page cache: it must be sound and say what was asked for.
void compare(const std::string &name, int fd, uint64_t block_size, uint64_t size) {
  const auto bytes = inspect::read_at(fd, 0, block_size);
  const auto header = bytes ? inspect::decode_header(*bytes) : std::nullopt;
  const bool right = header && header->findings.empty() && !header->old_layout &&
                     header->block_size == block_size &&
                     !inspect::compare_sizes(*header, size, true);
  if (!right) throw Failure(name + " does not hold the header that was written: see vdadm verify.");
}

void flush(const std::string &name, int fd) {
  if (fsync(fd) != 0) throw Failure(inspect::system_sentence(name, errno));
}

Change plan_resize(const Arguments &arguments, const inspect::Facts &facts,
                   const guard::Hold &hold) {
  Change change;
  change.objections = guard::objections_to(
      {guard::Operation::resize, facts, hold, nullptr, nullptr, nullptr, arguments.size});
  if (!facts.header) return change;
  const uint64_t block_size = facts.header->block_size;
  change.writes.push_back({0, block_size});
  change.apply = [size = arguments.size, block_size, name = arguments.name](int fd) {
    Registry(fd, block_size, name).resize(static_cast<uint32_t>(size / block_size - 1));
    flush(name, fd);
    compare(name, fd, block_size, size);
  };
  return change;
}

Change plan_upgrade(const Arguments &arguments, const inspect::Facts &facts,
                    const guard::Hold &hold) {
  Change change;
  change.objections = guard::objections_to({guard::Operation::upgrade, facts, hold});
  if (!facts.header) return change;
  const uint64_t block_size = facts.header->block_size;
  change.writes.push_back({0, block_size});
  change.apply = [size = facts.size.value_or(0), block_size, name = arguments.name](int fd) {
    Registry(fd, block_size, name).rewrite_header();
    flush(name, fd);
    compare(name, fd, block_size, size);
  };
  return change;
}

}  // namespace

Work declare_resize(Options &options) {
  const auto arguments = std::make_shared<Arguments>();
  declare_change(options, *arguments);
  declare_size(options, arguments->size);
  return [arguments](const Session &session) {
    return carry_out(session, *arguments, fmt::format("resized to {} bytes", arguments->size),
                     [&](const inspect::Facts &facts, const guard::Hold &hold) {
                       return plan_resize(*arguments, facts, hold);
                     });
  };
}

Work declare_upgrade(Options &options) {
  const auto arguments = std::make_shared<Arguments>();
  declare_change(options, *arguments);
  return [arguments](const Session &session) {
    return carry_out(session, *arguments, "upgraded to the current layout",
                     [&](const inspect::Facts &facts, const guard::Hold &hold) {
                       return plan_upgrade(*arguments, facts, hold);
                     });
  };
}

}  // namespace vdadm
