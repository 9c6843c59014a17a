// Sizes as people write them.
#pragma once

#include <CLI/CLI.hpp>
#include <cstdint>
#include <optional>
#include <string_view>

namespace vdadm {

/// A number of bytes, or with K, M, G or T behind it.
std::optional<uint64_t> parse_size(std::string_view word);

/// Adds --size SIZE: a number of bytes, or with K, M, G or T behind it (KiB and so on mean the same).
void declare_size(CLI::App &parser, uint64_t &size);

}  // namespace vdadm
