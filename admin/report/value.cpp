// Values: look-up by key, sizes and names as people read them.
#include <fmt/format.h>

#include <array>

#include "admin/report/report.hpp"

namespace vdadm::report {

namespace {

/// The bytes of the character that begins here: 0 when it is none that can be printed.
size_t printable_length(std::string_view rest) {
  const auto byte = [&](size_t at) { return static_cast<unsigned char>(rest[at]); };
  const unsigned char first = byte(0);
  if (first < 0x80) return first >= 0x20 && first != 0x7F ? 1 : 0;
  const size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
  if (first < 0xC2 || first > 0xF4 || rest.size() < length) return 0;
  for (size_t at = 1; at < length; ++at) {
    if ((byte(at) & 0xC0) != 0x80) return 0;
  }
  const unsigned char second = byte(1);
  const bool overlong = (first == 0xE0 && second < 0xA0) || (first == 0xF0 && second < 0x90);
  const bool outside = (first == 0xED && second > 0x9F) || (first == 0xF4 && second > 0x8F);
  const bool control = first == 0xC2 && second < 0xA0;
  return overlong || outside || control ? 0 : length;
}

bool needs_escapes(std::string_view raw) {
  for (size_t at = 0; at < raw.size();) {
    const size_t length = printable_length(raw.substr(at));
    if (length == 0) return true;
    at += length;
  }
  return false;
}

}  // namespace

const Value &value_of(const Object &object, std::string_view key) {
  static const Value none;
  for (const Field &field : object) {
    if (field.key == key) return field.value;
  }
  return none;
}

std::string readable(Size size) {
  static constexpr std::array units{"bytes", "KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
  double amount = static_cast<double>(size.bytes);
  size_t unit = 0;
  for (; amount >= 1024 && unit + 1 < units.size(); ++unit) amount /= 1024;
  if (unit == 0) return fmt::format("{} bytes", size.bytes);
  return fmt::format("{:.4g} {} ({} bytes)", amount, units[unit], size.bytes);
}

Value bytes_if_escaped(std::string_view raw) {
  if (!needs_escapes(raw)) return {};
  std::string bytes;
  for (const char byte : raw) bytes += fmt::format("{:02x}", static_cast<unsigned char>(byte));
  return bytes;
}

std::string printable(std::string_view raw) {
  if (!needs_escapes(raw)) return std::string(raw);
  std::string result;
  for (size_t at = 0; at < raw.size();) {
    const size_t length = raw[at] == '\\' ? 0 : printable_length(raw.substr(at));
    if (length == 0) {
      result += fmt::format("\\x{:02x}", static_cast<unsigned char>(raw[at++]));
    } else {
      result += raw.substr(at, length);
      at += length;
    }
  }
  return result;
}

}  // namespace vdadm::report
