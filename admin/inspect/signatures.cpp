// What else is recorded on a disk: file systems, partition tables, volumes, swap. libblkid knows.
#include <blkid/blkid.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <new>

#include "admin/inspect/inspect.hpp"

namespace vdadm::inspect {

namespace {

using Probe = std::unique_ptr<std::remove_pointer_t<blkid_probe>, decltype(&blkid_free_probe)>;

/// A disk that is made to look full of signatures ends the search.
constexpr int most_signatures = 64;

std::string text_of(blkid_probe probe, const char *key) {
  const char *text = nullptr;
  if (blkid_probe_lookup_value(probe, key, &text, nullptr) != 0 || !text) return "";
  return text;
}

/// What the last step found: a superblock or a partition table with its magic bytes.
std::optional<Signature> found(blkid_probe probe) {
  struct Keys {
    const char *type, *offset, *magic;
  };
  for (const auto &[type, offset, magic] :
       {Keys{"TYPE", "SBMAGIC_OFFSET", "SBMAGIC"}, Keys{"PTTYPE", "PTMAGIC_OFFSET", "PTMAGIC"}}) {
    size_t length = 0;
    const std::string at = text_of(probe, offset), name = text_of(probe, type);
    if (at.empty() || blkid_probe_lookup_value(probe, magic, nullptr, &length) != 0) continue;
    return Signature{name, text_of(probe, "LABEL"), std::strtoull(at.c_str(), nullptr, 10), length};
  }
  return {};
}

}  // namespace

std::vector<Signature> signatures_of(int fd) {
  const Probe probe(blkid_new_probe(), blkid_free_probe);
  if (!probe) throw std::bad_alloc();
  std::vector<Signature> signatures;
  if (blkid_probe_set_device(probe.get(), fd, 0, 0) != 0) return signatures;
  blkid_probe_enable_superblocks(probe.get(), 1);
  blkid_probe_set_superblocks_flags(probe.get(), BLKID_SUBLKS_MAGIC | BLKID_SUBLKS_TYPE |
                                                     BLKID_SUBLKS_LABEL | BLKID_SUBLKS_BADCSUM);
  blkid_probe_enable_partitions(probe.get(), 1);
  blkid_probe_set_partitions_flags(probe.get(), BLKID_PARTS_MAGIC | BLKID_PARTS_FORCE_GPT);
  // What was found is hidden, so that the next step finds what lies beside or under it.
  for (int left = most_signatures; left > 0 && blkid_do_probe(probe.get()) == 0; --left) {
    std::optional<Signature> next = found(probe.get());
    if (!next || next->length == 0) continue;
    blkid_probe_hide_range(probe.get(), next->offset, next->length);
    blkid_probe_step_back(probe.get());
    signatures.push_back(std::move(*next));
  }
  std::stable_sort(signatures.begin(), signatures.end(),
                   [](const Signature &a, const Signature &b) { return a.offset < b.offset; });
  return signatures;
}

}  // namespace vdadm::inspect
