// Backups from disks into files, and from files back to disks.
#include <fcntl.h>
#include <fmt/chrono.h>
#include <fmt/format.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <filesystem>

#include "admin/backup/backup.hpp"
#include "admin/new_file.hpp"
#include "admin/status.hpp"

namespace vdadm::backup {

namespace {

using inspect::Descriptor;
using inspect::Facts;

constexpr uint64_t sector = 512, largest_written = 4096;
constexpr off64_t largest_file = 64 << 20;
constexpr char state_folder[] = "/var/lib/vdadm";

std::string time_now(const char *format) {
  const std::time_t now = std::time(nullptr);
  return fmt::format(fmt::runtime(format), fmt::gmtime(now));
}

/// Whole sectors around a signature's magic bytes.
Region around(const inspect::Signature &signature, uint64_t size) {
  const uint64_t from = signature.offset / sector * sector;
  const uint64_t to = (signature.offset + signature.length + sector - 1) / sector * sector;
  return {from, std::vector<unsigned char>(std::min(to, size) - from)};
}

std::vector<unsigned char> read_or_fail(const Facts &facts, int fd, uint64_t offset,
                                        size_t length) {
  auto bytes = inspect::read_at(fd, offset, length);
  if (!bytes) throw Failure(inspect::system_sentence(facts.name, errno));
  // A disk that ends inside a sector gives less, and only block 0 is written there.
  if (bytes->size() < std::min<size_t>(length, largest_written)) {
    throw Failure(facts.name + " cannot be read as far as it would be written.");
  }
  return std::move(*bytes);
}

bool covers(const Region &region, uint64_t offset, uint64_t length) {
  return offset >= region.offset && offset + length <= region.offset + region.bytes.size();
}

/// The bytes of a range that some region covers; empty when none does.
std::vector<unsigned char> bytes_of(const Backup &backup, uint64_t offset, uint64_t length) {
  for (const Region &region : backup.regions) {
    if (!covers(region, offset, length)) continue;
    const auto from = region.bytes.begin() + static_cast<std::ptrdiff_t>(offset - region.offset);
    return {from, from + static_cast<std::ptrdiff_t>(length)};
  }
  return {};
}

uint64_t length_of_block_0(const std::optional<inspect::Header> &header) {
  return header && header->block_size <= inspect::longest_block ? header->block_size : sector;
}

}  // namespace

Backup take(const Facts &facts) {
  Backup backup{report::printable(facts.resolved),
                inspect::kind_of(facts),
                facts.size.value_or(0),
                time_now("{:%Y-%m-%dT%H:%M:%SZ}"),
                identity_of(facts),
                facts.signatures,
                {}};
  const Descriptor file(open64(facts.resolved.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  if (!file) throw Failure(inspect::system_sentence(facts.name, errno));
  const uint64_t first = std::min<uint64_t>(backup.size, inspect::longest_block);
  backup.regions.push_back({0, read_or_fail(facts, file.get(), 0, first)});
  for (const inspect::Signature &signature : facts.signatures) {
    Region region = around(signature, backup.size);
    if (covers(backup.regions.front(), region.offset, region.bytes.size())) continue;
    region.bytes = read_or_fail(facts, file.get(), region.offset, region.bytes.size());
    backup.regions.push_back(std::move(region));
  }
  return backup;
}

void save(const Backup &backup, const std::string &path) {
  const std::string text = to_text(backup);
  NewFile file(path, 0600);
  for (size_t done = 0; done < text.size();) {
    const ssize_t written = write(file.fd(), text.data() + done, text.size() - done);
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) throw Failure(inspect::system_sentence(path, errno));
    done += static_cast<size_t>(written);
  }
  file.publish();
}

Backup load(const std::string &path) {
  const Descriptor file(open64(path.c_str(), O_RDONLY | O_CLOEXEC));
  struct stat64 status {};
  if (!file || fstat64(file.get(), &status) != 0) {
    throw Failure(inspect::system_sentence(path, errno));
  }
  if (!S_ISREG(status.st_mode) || status.st_size > largest_file) {
    throw Failure(path + " is no backup: it is no file, or far too long.", refused);
  }
  std::string text(static_cast<size_t>(status.st_size), '\0');
  const ssize_t got = pread64(file.get(), text.data(), text.size(), 0);
  if (got < 0) throw Failure(inspect::system_sentence(path, errno));
  text.resize(static_cast<size_t>(got));
  return from_text(text, path);
}

std::string default_path(const std::string &resolved) {
  const char *const chosen = std::getenv("VDADM_STATE");
  const std::filesystem::path folder = chosen && *chosen ? chosen : state_folder;
  std::error_code refusal;
  std::filesystem::create_directories(folder, refusal);
  if (refusal) throw Failure(inspect::system_sentence(folder, refusal.value()));
  std::string name = std::filesystem::path(resolved).filename();
  if (name.size() > 128) name.resize(128);
  const std::string stem = folder / (name + "-" + time_now("{:%Y%m%dT%H%M%SZ}"));
  std::string path = stem + ".backup";
  for (int again = 2; std::filesystem::exists(path); ++again) {
    path = fmt::format("{}-{}.backup", stem, again);
  }
  return path;
}

std::vector<Region> to_restore(const Backup &backup, const Facts &now, bool everything) {
  if (everything) return {backup.regions.rbegin(), backup.regions.rend()};
  std::vector<Region> regions;
  const uint64_t block_0 =
      std::max(length_of_block_0(now.header),
               length_of_block_0(inspect::decode_header(backup.regions.front().bytes)));
  const uint64_t length = std::min<uint64_t>(block_0, backup.regions.front().bytes.size());
  for (const inspect::Signature &signature : backup.signatures) {
    if (signature.offset + signature.length <= length) continue;
    auto bytes = bytes_of(backup, signature.offset, signature.length);
    if (!bytes.empty()) regions.push_back({signature.offset, std::move(bytes)});
  }
  // Block 0 comes last: with it, the disk is the old one again.
  regions.push_back({0, bytes_of(backup, 0, length)});
  return regions;
}

bool is_blank(const Facts &facts, uint64_t from) {
  const Descriptor file(open64(facts.resolved.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  if (!file) return false;
  off64_t at = lseek64(file.get(), static_cast<off64_t>(from), SEEK_DATA);
  while (at >= 0 && static_cast<uint64_t>(at) < facts.size.value_or(0)) {
    unsigned char bytes[65536];
    const ssize_t got = pread64(file.get(), bytes, sizeof bytes, at);
    if (got <= 0) return got == 0;
    if (std::any_of(bytes, bytes + got, [](unsigned char byte) { return byte != 0; })) return false;
    at = lseek64(file.get(), at + got, SEEK_DATA);
  }
  return at >= 0 || errno == ENXIO;  // no data from there on
}

}  // namespace vdadm::backup
