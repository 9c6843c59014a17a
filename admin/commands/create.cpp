// create: a new file, allocated in full and stamped. It gets its name when it is complete.
#include <fcntl.h>
#include <fmt/format.h>

#include <memory>

#include "admin/commands/each_name.hpp"
#include "admin/commands/flow.hpp"
#include "admin/commands/size.hpp"
#include "admin/new_file.hpp"

namespace vdadm {

namespace {

constexpr unsigned file_mode = 0640;

struct Arguments {
  std::string type, name;
  uint64_t size = 0;
  bool dry_run = false;
};

int run(const Session &session, const Arguments &arguments) {
  const guard::FileType &type = guard::file_type(arguments.type);
  if (arguments.size == 0 || arguments.size % type.block_size != 0) {
    throw Failure(fmt::format("{} bytes are no whole number of blocks of {}: ask for {} bytes.",
                              arguments.size, type.block_size,
                              (arguments.size / type.block_size + 1) * type.block_size),
                  refused);
  }
  if (!arguments.dry_run) {
    NewFile file(arguments.name, file_mode);
    if (const int error = posix_fallocate64(file.fd(), 0, static_cast<off64_t>(arguments.size))) {
      throw Failure(inspect::system_sentence(arguments.name, error));
    }
    stamp_and_compare(type, file.fd(), arguments.size, arguments.name);
    file.publish();
  } else if (inspect::look_at(arguments.name, inspect::Depth::header).exists) {
    throw Failure(arguments.name + " is there already: vdadm stamp takes it.", refused);
  }
  report::Outcome outcome{
      yes, inspect::describe(inspect::look_at(arguments.name, inspect::Depth::header)), {}};
  outcome.object.push_back({"type", type.name});
  outcome.object.push_back({"dry_run", arguments.dry_run});
  outcome.sentences.push_back(fmt::format("{} {} with {} bytes, stamped as {}.", arguments.name,
                                          arguments.dry_run ? "would be made" : "is made",
                                          arguments.size, type.name));
  report::print(outcome, session.format);
  return yes;
}

}  // namespace

Work declare_create(Options &options) {
  const auto arguments = std::make_shared<Arguments>();
  declare_type(options, arguments->type);
  declare_name(options, arguments->name);
  declare_size(options, arguments->size);
  options.flag({"--dry-run", "Make nothing; say what would be made"}, arguments->dry_run);
  return [arguments](const Session &session) { return run(session, *arguments); };
}

}  // namespace vdadm
