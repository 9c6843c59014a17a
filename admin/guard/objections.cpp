// The table of objections.
//
// What can be overruled is what would be destroyed, or is in use: that is for people to decide. What makes
// the write fail, or leaves nothing of use, cannot.
#include <fmt/format.h>
#include <sys/sysmacros.h>

#include <algorithm>

#include "admin/guard/guard.hpp"
#include "skgfr/client.h"

namespace vdadm::guard {

namespace {

using Answer = std::optional<std::string>;
using inspect::Facts;

constexpr uint64_t sector = 512, registry_block = 4096;

bool failed_at(const Case &situation, Step step) {
  return situation.rehearsal && situation.rehearsal->failed == step;
}

bool failed_by(const Case &situation, std::initializer_list<int> errors) {
  const int error = situation.rehearsal ? situation.rehearsal->error : situation.facts.error;
  return std::find(errors.begin(), errors.end(), error) != errors.end();
}

Answer not_found(const Case &situation) {
  const Facts &facts = situation.facts;
  if (facts.exists || facts.error == EACCES || facts.error == EPERM) return {};
  return facts.trouble;
}

Answer not_permitted(const Case &situation) {
  const Facts &facts = situation.facts;
  if (facts.error == EACCES || facts.error == EPERM) return facts.trouble;
  if (!failed_by(situation, {EACCES, EPERM})) return {};
  return facts.name +
         " may not be opened for writing: run vdadm as root, or as a user who may do it.";
}

Answer unreadable(const Case &situation) {
  const Facts &facts = situation.facts;
  const bool readable_kind = facts.is_file() || facts.is_block_device();
  if (!readable_kind || facts.trouble.empty() || facts.error == EACCES || facts.error == EPERM) {
    return {};
  }
  return facts.trouble;
}

Answer read_only(const Case &situation) {
  if (!failed_by(situation, {EROFS})) return {};
  return situation.facts.name +
         " can only be read: look for a write protection (blockdev --getro), or at "
         "how its file system is mounted.";
}

constexpr unsigned raw_major = 162;

Answer wrong_kind(const Case &situation) {
  const Facts &facts = situation.facts;
  const bool raw = facts.is_character_device() && major(facts.status.st_rdev) == raw_major;
  const bool device = facts.is_block_device() || raw;
  const bool files_alone = situation.operation == Operation::resize;
  if (!facts.exists || facts.is_file() || (device && !files_alone)) return {};
  return fmt::format(
      "{} is a {}{}: give {}.", facts.name, inspect::kind_of(facts),
      device || facts.is_character_device() ? " device" : "",
      files_alone ? "a regular file, as devices keep their size" : "a regular file or a disk");
}

Answer too_small(const Case &situation) {
  const Facts &facts = situation.facts;
  if (!facts.size) return {};
  if (situation.operation == Operation::resize) {
    if (situation.new_size >= registry_block) return {};
    return fmt::format("A registry file needs one block of {} bytes at least.", registry_block);
  }
  const uint64_t needed =
      situation.type && facts.is_block_device() ? situation.type->block_size : 1;
  if (*facts.size >= needed) return {};
  return fmt::format("{} has {} bytes, and block 0 alone takes {}: make it larger first.",
                     facts.name, *facts.size, situation.type ? situation.type->block_size : sector);
}

Answer odd_size(const Case &situation) {
  const Facts &facts = situation.facts;
  if (situation.operation == Operation::resize) {
    if (situation.new_size % registry_block == 0) return {};
    return fmt::format("{} bytes are no whole number of blocks of {}: ask for {} bytes.",
                       situation.new_size, registry_block,
                       (situation.new_size / registry_block + 1) * registry_block);
  }
  if (!failed_at(situation, Step::size) || !facts.is_file() || facts.size == 0U) return {};
  if (failed_by(situation, {EFBIG}) && *facts.size / sector < skgfrUNKNOWN) return {};
  return fmt::format(
      "{} has {} bytes. {} Set another size with truncate(1), in whole blocks of {}.", facts.name,
      *facts.size, situation.rehearsal->reason, situation.type->block_size);
}

Answer sector_size(const Case &situation) {
  if (!situation.type || !situation.facts.exists) return {};
  const uint64_t size = situation.facts.sector_size.value_or(0);
  if (size <= situation.type->block_size) return {};
  return fmt::format(
      "The sectors of {} have {} bytes, and a {} file is written in blocks of {}: use a "
      "disk with sectors of {}.",
      situation.facts.name, size, situation.type->name, situation.type->block_size,
      situation.type->block_size);
}

Answer no_direct_io(const Case &situation) {
  if (!failed_at(situation, Step::identify) && !failed_at(situation, Step::open)) return {};
  if (!failed_by(situation, {EINVAL}) || !situation.facts.is_file()) return {};
  return situation.facts.name + " lies on a file system without direct I/O: use another one.";
}

Answer nfs_options(const Case &situation) {
  if (!situation.rehearsal || !situation.rehearsal->unsafe_mount) return {};
  return "Its NFS file system is mounted with unsafe options. " + situation.rehearsal->reason;
}

Answer file_size_limit(const Case &situation) {
  if (!failed_at(situation, Step::size) || !failed_by(situation, {EFBIG})) return {};
  if (situation.facts.size.value_or(0) / sector >= skgfrUNKNOWN) return {};
  return situation.facts.name +
         " is larger, or would be, than files of this process may be: raise the "
         "limit (ulimit -f).";
}

Answer long_name(const Case &situation) {
  if (!failed_at(situation, Step::name)) return {};
  return fmt::format(
      "The name has {} characters when its links are followed, and {} are the most: make "
      "a folder on the way shorter.",
      situation.facts.resolved.size(), int{skgfr_longest_name});
}

std::string holder_text(const inspect::Holder &holder) {
  const std::string which = holder.process ? fmt::format(" {}", holder.process) : "";
  return fmt::format("{}{} {}", holder.kind, which, holder.name);
}

/// Mounts and swap have objections of their own; who only reads is not harmed.
Answer in_use(const Case &situation) {
  std::string who = situation.hold.busy();
  for (const inspect::Holder &holder : situation.facts.holders) {
    if (holder.kind == "mount" || holder.kind == "swap" || !holder.writes) continue;
    who += fmt::format("{}It is held by {}.", who.empty() ? "" : " ", holder_text(holder));
  }
  if (who.empty()) return {};
  return fmt::format("{} is in use. {} End that first.", situation.facts.name, who);
}

Answer held_as(const Case &situation, const char *kind, const char *advice) {
  for (const inspect::Holder &holder : situation.facts.holders) {
    if (holder.kind != kind) continue;
    return fmt::format("{}: {} {}.", holder.device, advice, holder.name);
  }
  return {};
}

Answer mounted(const Case &situation) {
  return held_as(situation, "mount", "it is mounted, and all files there would be lost: umount");
}

Answer swap(const Case &situation) {
  return held_as(situation, "swap", "the system swaps to it, and would crash: swapoff");
}

Answer signature(const Case &situation) {
  std::string list;
  for (const inspect::Signature &found : situation.facts.signatures) {
    list += fmt::format("{}{} at byte {}", list.empty() ? "" : ", ", found.type, found.offset);
  }
  if (list.empty()) return {};
  return fmt::format("{} holds other data: {}. It would be damaged.", situation.facts.name, list);
}

Answer own_header(const Case &situation) {
  const auto &header = situation.facts.header;
  if (!header) return {};
  return fmt::format(
      "{} has a header already, of {} blocks of {} bytes behind block 0: it may be in use "
      "by a cluster.",
      situation.facts.name, header->blocks, header->block_size);
}

/// A disk with damaged block 0 is what a backup is for; what must not be lost is a sound header that is
/// not the backup's.
Answer other_header(const Case &situation) {
  const auto &header = situation.facts.header;
  if (!header || !header->findings.empty() || !situation.backup) return {};
  const auto &old = situation.backup->regions.front().bytes;
  const size_t length = std::min<size_t>(header->block_size, old.size());
  if (std::equal(old.begin(), old.begin() + static_cast<std::ptrdiff_t>(length),
                 situation.facts.start.begin())) {
    return {};
  }
  return own_header(situation);
}

Answer no_header(const Case &situation) {
  const Facts &facts = situation.facts;
  if (!facts.exists || !facts.trouble.empty()) return {};
  const auto &header = facts.header;
  if (header && header->findings.empty()) return {};
  return fmt::format("{} has no sound header: vdadm verify tells what is wrong with it.",
                     facts.name);
}

Answer other_type(const Case &situation) {
  const auto &header = situation.facts.header;
  if (!header) return {};
  if (situation.operation == Operation::resize) {
    if (header->block_size == registry_block && !header->old_layout) return {};
    return fmt::format("{} is no registry file in the current layout: only these are resized.",
                       situation.facts.name);
  }
  if (header->old_layout) return {};
  return situation.facts.name + " has a header in the current layout already.";
}

Answer foreign_order(const Case &situation) {
  const auto &header = situation.facts.header;
  const bool native = std::endian::native == std::endian::big;
  if (!header || header->big_endian == native) return {};
  return situation.facts.name + " has the byte order of another kind of machine: change it there.";
}

Answer other_disk(const Case &situation) {
  if (!situation.backup || !situation.facts.exists) return {};
  return backup::tell_apart(*situation.backup, situation.facts);
}

/// A registry file may have been extended since; what was written behind its old end must not be lost.
Answer other_size(const Case &situation) {
  const Facts &facts = situation.facts;
  if (!situation.backup || !facts.size || *facts.size == situation.backup->size) return {};
  const bool grown = facts.is_file() && *facts.size > situation.backup->size;
  if (grown && backup::is_blank(facts, situation.backup->size)) return {};
  return fmt::format("{} has {} bytes, and had {} when the backup was made{}.", facts.name,
                     *facts.size, situation.backup->size,
                     grown ? "; there is data behind that end" : "");
}

Answer cut_data(const Case &situation) {
  const Facts &facts = situation.facts;
  if (!facts.is_file() || facts.size.value_or(0) <= situation.new_size) return {};
  if (backup::is_blank(facts, situation.new_size)) return {};
  return fmt::format("{} has data behind byte {}, which would be cut off.", facts.name,
                     situation.new_size);
}

constexpr unsigned stamping = unsigned(Operation::stamp), restoring = unsigned(Operation::restore),
                   resizing = unsigned(Operation::resize), upgrading = unsigned(Operation::upgrade),
                   changing = resizing | upgrading, all = stamping | restoring | changing;

struct Row {
  const char *name;
  Answer (*question)(const Case &situation);
  bool overrulable;
  unsigned operations;
};
constexpr Row table[] = {{"not_found", not_found, false, all},
                         {"not_permitted", not_permitted, false, all},
                         {"unreadable", unreadable, false, all},
                         {"wrong_kind", wrong_kind, false, all},
                         {"read_only", read_only, false, all},
                         {"too_small", too_small, false, stamping | resizing},
                         {"odd_size", odd_size, false, stamping | resizing},
                         {"sector_size", sector_size, false, stamping},
                         {"no_direct_io", no_direct_io, false, stamping},
                         {"nfs_options", nfs_options, false, stamping},
                         {"file_size_limit", file_size_limit, false, stamping},
                         {"long_name", long_name, false, stamping},
                         {"in_use", in_use, true, all},
                         {"mounted", mounted, true, all},
                         {"swap", swap, true, all},
                         {"signature", signature, true, stamping},
                         {"own_header", own_header, true, stamping},
                         {"own_header", other_header, true, restoring},
                         {"no_header", no_header, false, changing},
                         {"other_type", other_type, false, changing},
                         {"byte_order", foreign_order, false, changing},
                         {"other_disk", other_disk, false, restoring},
                         {"other_size", other_size, false, restoring},
                         {"data_cut", cut_data, true, resizing}};

}  // namespace

std::vector<Objection> objections_to(const Case &situation) {
  std::vector<Objection> objections;
  bool explained = false;
  for (const auto &[name, question, overrulable, operations] : table) {
    if (!(operations & unsigned(situation.operation))) continue;
    if (auto message = question(situation)) {
      explained = explained || !overrulable;
      objections.push_back({name, std::move(*message), overrulable});
    }
  }
  const Rehearsal *const rehearsal = situation.rehearsal;
  if (!explained && rehearsal && rehearsal->status != 0) {
    objections.push_back(
        {"would_fail",
         fmt::format("vdprep would fail on {}: {}", situation.facts.name, rehearsal->reason),
         false});
  }
  return objections;
}

Objection no_answer(const Facts &facts) { return {"no_answer", facts.trouble, false}; }

std::vector<Objection> standing(const std::vector<Objection> &objections,
                                const std::vector<std::string> &overruled) {
  std::vector<Objection> left;
  for (const Objection &objection : objections) {
    const bool named =
        std::find(overruled.begin(), overruled.end(), objection.name) != overruled.end();
    if (!objection.overrulable || !named) left.push_back(objection);
  }
  return left;
}

std::vector<std::string> overrulable_names() {
  std::vector<std::string> names;
  for (const Row &row : table) {
    const bool known = std::find(names.begin(), names.end(), row.name) != names.end();
    if (row.overrulable && !known) names.emplace_back(row.name);
  }
  return names;
}

report::List describe(const std::vector<Objection> &objections) {
  report::List list;
  for (const auto &[name, message, overrulable] : objections) {
    list.emplace_back(
        report::Object{{"name", name}, {"message", message}, {"overrulable", overrulable}});
  }
  return list;
}

}  // namespace vdadm::guard
