// Parses sizes; units are powers of 1024.
#include "admin/commands/size.hpp"

#include <charconv>

namespace vdadm {

std::optional<uint64_t> parse_size(std::string_view word) {
  uint64_t number = 0;
  const auto [rest, error] = std::from_chars(word.data(), word.data() + word.size(), number);
  if (error != std::errc()) return {};
  std::string_view unit(rest, static_cast<size_t>(word.data() + word.size() - rest));
  if (unit.size() == 3 && unit.ends_with("iB")) unit.remove_suffix(2);
  if (unit.empty()) return number;
  const size_t power = std::string_view("KMGT").find(unit.front());
  if (unit.size() != 1 || power == std::string_view::npos) return {};
  const unsigned shift = 10 * (static_cast<unsigned>(power) + 1);
  if (number > (uint64_t{INT64_MAX} >> shift)) return {};
  return number << shift;
}

void declare_size(Options &options, uint64_t &size) {
  const auto take = [&size](const std::string &word) -> std::string {
    const auto parsed = parse_size(word);
    if (!parsed) return word + " is no size: give bytes, or a number with K, M, G or T.";
    size = *parsed;
    return "";
  };
  options.taken({"--size", "Bytes, or a number with K, M, G or T", "SIZE", true}, take);
}

}  // namespace vdadm
