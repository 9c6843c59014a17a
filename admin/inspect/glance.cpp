// One opening, one read past the page cache, no memory that is asked for anew.
#include "admin/inspect/glance.hpp"

#include <fcntl.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <span>

namespace vdadm::inspect {

namespace {

/// That of the file before is most often that of this one, too: files of a folder lie on one device.
std::optional<uint64_t> sector_size_on(dev_t device, const std::string &resolved) {
  static dev_t known_device;
  static std::optional<uint64_t> known;
  if (!known || known_device != device) {
    known = sector_size_of(resolved);
    known_device = device;
  }
  return known;
}

/// A sound header at the begin of a regular file; anything else is for a longer look.
std::optional<Header> sound_header(const std::string &name) {
  alignas(4096) static unsigned char bytes[longest_block];
  const Descriptor file(open64(name.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_DIRECT));
  if (!file) return {};
  const ssize_t got = pread64(file.get(), bytes, sizeof bytes, 0);
  if (got <= 0) return {};
  auto header = decode_header({bytes, static_cast<size_t>(got)});
  if (!header || !header->findings.empty()) return {};
  return header;
}

}  // namespace

std::set<std::string> files_in_use() {
  std::set<std::string> names;
  std::error_code missing;
  for (const auto &entry : std::filesystem::directory_iterator("/sys/block", missing)) {
    const std::string backing = first_line(entry.path() / "loop/backing_file");
    if (!backing.empty()) names.insert(backing);
  }
  std::ifstream swaps("/proc/swaps");
  for (std::string line; std::getline(swaps, line);) names.insert(line.substr(0, line.find(' ')));
  return names;
}

Facts glance_at(const std::string &name, const std::set<std::string> &in_use) {
  Facts facts;
  facts.name = name;
  if (stat64(name.c_str(), &facts.status) != 0 || !S_ISREG(facts.status.st_mode)) {
    return look_at(name, Depth::processes);
  }
  facts.exists = true;
  facts.header = sound_header(name);
  const std::unique_ptr<char, decltype(&std::free)> path(realpath(name.c_str(), nullptr),
                                                         std::free);
  if (path) facts.resolved = path.get();
  const bool used = in_use.contains(facts.resolved);
  if (!facts.header || !path) return look_at(name, used ? Depth::contents : Depth::signatures);
  facts.size = static_cast<uint64_t>(facts.status.st_size);
  facts.sector_size = sector_size_on(facts.status.st_dev, facts.resolved);
  if (used) facts.holders = holders_of(facts.status, false);
  return facts;
}

}  // namespace vdadm::inspect
