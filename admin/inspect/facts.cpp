// Puts the facts of one name together, and names them for reports.
#include <fcntl.h>
#include <fmt/format.h>

#include <climits>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "admin/inspect/inspect.hpp"

namespace vdadm::inspect {

namespace {

using report::List;
using report::Object;
using report::Value;

bool is_readable_kind(const Facts &facts) {
  return facts.is_file() || facts.is_block_device() || facts.is_character_device();
}

/// The first reason stands.
void note_trouble(Facts &facts, int error) {
  if (!facts.trouble.empty()) return;
  facts.error = error;
  facts.trouble = system_sentence(facts.name, error);
}

void resolve(Facts &facts) {
  const std::unique_ptr<char, decltype(&std::free)> path(realpath(facts.name.c_str(), nullptr),
                                                         std::free);
  if (path) facts.resolved = path.get();
}

/// Only disks and files are opened: what else has a name may wait, or take an open for a command.
void look_inside(Facts &facts, Depth depth) {
  const Descriptor file(open64(facts.name.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  if (!file) return note_trouble(facts, errno);
  facts.size = size_of(file.get(), facts.status);
  facts.sector_size = sector_size_of(facts.resolved);
  if (auto bytes = read_at(file.get(), 0, longest_block)) {
    facts.start = std::move(*bytes);
    facts.header = decode_header(facts.start);
  } else {
    return note_trouble(facts, errno);
  }
  if (depth != Depth::header) facts.signatures = signatures_of(file.get());
}

Object describe_header(const Header &header) {
  return {
      {"layout", header.old_layout ? "old" : "current"},
      {"byte_order", header.big_endian ? "big" : "little"},
      {"block_size", report::Size{header.block_size}},
      {"blocks", header.blocks},
      {"type", type_of_block_size(header.block_size) ? Value(type_of_block_size(header.block_size))
                                                     : Value()},
      {"mode", header.mode},
      {"check_stored", report::Hex{header.check_stored}},
      {"check_computed", report::Hex{header.check_computed}},
      {"valid", header.findings.empty()}};
}

Value size_or_null(const std::optional<uint64_t> &size) {
  return size ? Value(report::Size{*size}) : Value();
}

Object describe_holder(const Holder &holder) {
  return {{"type", holder.kind},
          {"name", holder.name},
          {"device", holder.device.empty() ? Value() : Value(holder.device)},
          {"process", holder.process ? Value(holder.process) : Value()},
          {"writes", holder.writes}};
}

}  // namespace

std::string system_sentence(const std::string &what, int error) {
  struct Advice {
    int error;
    const char *text;
  };
  static constexpr Advice table[] = {
      {ENOENT, "There is no such file or device: check the name."},
      {ENOTDIR, "A part of the name is no folder: check the name."},
      {ENAMETOOLONG, "The system takes no name so long: make a shorter link to it."},
      {ELOOP, "The links lead in a circle: check where they point."},
      {EACCES, "Permission denied: run vdadm as root, or as a user who may do it."},
      {EPERM, "The system does not permit it: run vdadm as root."},
      {ENXIO, "There is no device behind this name: is the disk attached?"},
      {EIO, "The disk answers with an error: look at the kernel's messages for it."},
      {EROFS, "The file system is mounted read-only: mount it for writing first."}};
  for (const auto &[number, text] : table) {
    if (number == error) return fmt::format("{}: {}", what, text);
  }
  return fmt::format("{}: {}.", what, std::strerror(error));
}

Facts look_at(const std::string &name, Depth depth) {
  Facts facts;
  facts.name = name;
  if (stat64(name.c_str(), &facts.status) != 0) {
    note_trouble(facts, errno);
    return facts;
  }
  facts.exists = true;
  resolve(facts);
  if (facts.is_block_device()) facts.stable_names = stable_names_of(facts.status.st_rdev);
  if (!is_readable_kind(facts)) {
    facts.trouble = fmt::format("{} is a {}, no disk and no file.", name, kind_of(facts));
    return facts;
  }
  if (!facts.is_character_device()) look_inside(facts, depth);
  if (depth >= Depth::contents) {
    facts.holders = holders_of(facts.status, depth == Depth::processes);
  }
  return facts;
}

Facts silent(const std::string &name, double seconds) {
  Facts facts;
  facts.name = name;
  facts.answered = false;
  facts.trouble = fmt::format(
      "{} gave no answer within {:g} seconds. Look at the kernel's messages for it; a longer time "
      "is given by --timeout.",
      name, seconds);
  return facts;
}

const char *kind_of(const Facts &facts) {
  if (!facts.exists) return nullptr;
  switch (facts.status.st_mode & S_IFMT) {
    case S_IFREG: return "file";
    case S_IFBLK: return "block";
    case S_IFCHR: return "character";
    case S_IFDIR: return "directory";
    case S_IFIFO: return "pipe";
    case S_IFSOCK: return "socket";
    default: return "object of an unknown kind";
  }
}

Object describe(const Facts &facts) {
  List names, signatures, holders;
  for (const std::string &name : facts.stable_names) names.emplace_back(name);
  for (const Signature &signature : facts.signatures) {
    signatures.emplace_back(
        Object{{"type", signature.type},
               {"offset", signature.offset},
               {"label", signature.label.empty() ? Value() : Value(signature.label)}});
  }
  for (const Holder &holder : facts.holders) holders.emplace_back(describe_holder(holder));
  const char *const kind = kind_of(facts);
  return {{"name", facts.name},
          {"name_bytes", report::bytes_if_escaped(facts.name)},
          {"kind", kind ? Value(kind) : Value()},
          {"size", size_or_null(facts.size)},
          {"sector_size", size_or_null(facts.sector_size)},
          {"stable_names", std::move(names)},
          {"header", facts.header ? Value(describe_header(*facts.header)) : Value()},
          {"signatures", std::move(signatures)},
          {"holders", std::move(holders)},
          {"trouble", facts.trouble.empty() ? Value() : Value(facts.trouble)}};
}

}  // namespace vdadm::inspect
