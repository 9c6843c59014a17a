// The text of a backup: lines that a person can read, under one digest.
#include <fmt/format.h>
#include <gcrypt.h>

#include <algorithm>
#include <iterator>
#include <sstream>

#include "admin/backup/backup.hpp"
#include "admin/status.hpp"

namespace vdadm::backup {

namespace {

constexpr char first_line[] = "vdadm backup 1\n";
constexpr char digest_key[] = "sha256 ";
constexpr size_t per_line = 16;
constexpr uint64_t largest_region = 1 << 20;

bool is_zero(const unsigned char *bytes, size_t length) {
  return std::all_of(bytes, bytes + length, [](unsigned char byte) { return byte == 0; });
}

/// An offset, the bytes, and the same as characters; lines of zeros are left out.
void add_region(std::string &text, const Region &region) {
  text += fmt::format("region {} {}\n", region.offset, region.bytes.size());
  for (size_t at = 0; at < region.bytes.size(); at += per_line) {
    const size_t length = std::min(per_line, region.bytes.size() - at);
    const unsigned char *const bytes = &region.bytes[at];
    if (is_zero(bytes, length)) continue;
    text += fmt::format("{:012x} ", region.offset + at);
    for (size_t byte = 0; byte < length; ++byte) text += fmt::format(" {:02x}", bytes[byte]);
    text += "  |";
    for (size_t byte = 0; byte < length; ++byte) {
      const bool plain = bytes[byte] >= 0x20 && bytes[byte] < 0x7F;
      text += plain ? static_cast<char>(bytes[byte]) : '.';
    }
    text += "|\n";
  }
}

[[noreturn]] void refuse(const std::string &path) {
  throw Failure(path +
                    " is no backup, or was changed since it was written: it is not used. Look for "
                    "another copy of it.",
                refused);
}

/// Takes the lines one by one; what is not understood refuses the whole.
class Parser {
 public:
  Parser(const std::string &text, const std::string &path) : lines_(text), path_(path) {}

  Backup parse() {
    std::string line;
    std::getline(lines_, line);  // the title, which was compared
    while (std::getline(lines_, line)) take(line);
    if (backup_.regions.empty()) refuse(path_);
    return std::move(backup_);
  }

 private:
  void take(const std::string &line) {
    const size_t blank = line.find(' ');
    if (blank == std::string::npos) refuse(path_);
    const std::string key = line.substr(0, blank), value = line.substr(blank + 1);
    if (key == "name") {
      backup_.name = value;
    } else if (key == "kind") {
      backup_.kind = value;
    } else if (key == "size") {
      backup_.size = number(value);
    } else if (key == "taken") {
      backup_.taken = value;
    } else if (key == "identity") {
      backup_.identity.emplace_back(value.substr(0, value.find(' ')),
                                    value.substr(value.find(' ') + 1));
    } else if (key == "signature") {
      inspect::Signature signature;
      read(value, signature.offset, signature.length, signature.type);
      backup_.signatures.push_back(signature);
    } else if (key == "region") {
      uint64_t offset = 0, length = 0;
      read(value, offset, length);
      if (length > largest_region) refuse(path_);
      backup_.regions.push_back({offset, std::vector<unsigned char>(length)});
    } else {
      take_bytes(key, value);
    }
  }

  void take_bytes(const std::string &offset, const std::string &value) {
    if (backup_.regions.empty()) refuse(path_);
    Region &region = backup_.regions.back();
    uint64_t at = std::stoull(offset, nullptr, 16) - region.offset;
    std::istringstream bytes(value.substr(0, value.find('|')));
    for (unsigned byte = 0; bytes >> std::hex >> byte;) {
      if (at >= region.bytes.size()) refuse(path_);
      region.bytes[at++] = static_cast<unsigned char>(byte);
    }
  }

  template <class... Values>
  void read(const std::string &text, Values &...values) {
    std::istringstream words(text);
    if (!(words >> ... >> values)) refuse(path_);
  }
  uint64_t number(const std::string &text) {
    uint64_t value = 0;
    read(text, value);
    return value;
  }

  std::istringstream lines_;
  const std::string &path_;
  Backup backup_;
};

}  // namespace

std::string digest_of(const std::string &text) {
  static const bool started = [] {
    gcry_check_version(nullptr);
    gcry_control(GCRYCTL_DISABLE_SECMEM, 0);
    return gcry_control(GCRYCTL_INITIALIZATION_FINISHED, 0) == 0;
  }();
  if (!started) throw Failure("The digest library does not start.");
  unsigned char digest[32];
  gcry_md_hash_buffer(GCRY_MD_SHA256, digest, text.data(), text.size());
  std::string hexadecimal;
  for (const unsigned char byte : digest) hexadecimal += fmt::format("{:02x}", byte);
  return hexadecimal;
}

std::string to_text(const Backup &backup) {
  std::string text = first_line;
  text += fmt::format("name {}\nkind {}\nsize {}\ntaken {}\n", backup.name, backup.kind,
                      backup.size, backup.taken);
  for (const auto &[key, value] : backup.identity) {
    text += fmt::format("identity {} {}\n", key, report::printable(value));
  }
  for (const inspect::Signature &signature : backup.signatures) {
    text += fmt::format("signature {} {} {}\n", signature.offset, signature.length, signature.type);
  }
  for (const Region &region : backup.regions) add_region(text, region);
  return text + digest_key + digest_of(text) + "\n";
}

Backup from_text(const std::string &text, const std::string &path) {
  const size_t end = text.rfind(digest_key);
  if (!text.starts_with(first_line) || end == std::string::npos) refuse(path);
  const std::string covered = text.substr(0, end);
  if (text.substr(end) != digest_key + digest_of(covered) + "\n") refuse(path);
  try {
    return Parser(covered, path).parse();
  } catch (const std::logic_error &) {  // a number that is none
    refuse(path);
  }
}

}  // namespace vdadm::backup
