// Sizes as people write them.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "admin/options.hpp"

namespace vdadm {

/// A number of bytes, or with K, M, G or T behind it.
std::optional<uint64_t> parse_size(std::string_view word);

/// Adds --size SIZE: a number of bytes, or with K, M, G or T behind it (KiB and so on mean the same).
void declare_size(Options &options, uint64_t &size);

}  // namespace vdadm
