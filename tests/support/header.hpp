// Block 0 as it is to be on disk, worked out from its fields: an independent writer.
#pragma once

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "sysl/types.h"

namespace support {

struct Header {
  ub4 blocks = 0, size = 512, mode = 0;
  ub1 format = 0x22, type = 0;
  bool old_layout = false, swapped = false;  // from before version 10; in the other byte order

  /// The first so many bytes.
  std::string bytes(size_t length = 512) const {
    struct Field {
      size_t at;
      ub4 value;
    };
    const std::vector<Field> old = {{4, size}, {8, blocks}, {12, 0x5A5B5C5D}, {16, mode}};
    const std::vector<Field> current = {
        {4, 0xFFC00000}, {20, size}, {24, blocks}, {28, 0x7A7B7C7D}, {32, mode}};
    const std::vector<Field> &fields = old_layout ? old : current;
    std::string block = {static_cast<char>(type), static_cast<char>(format)};
    block.resize(length);
    for (const Field &field : fields) std::memcpy(&block[field.at], &field.value, 4);
    char sum[2] = {0, 0};  // the exclusive or of all words, that of the check value included, is 0
    for (size_t at = 0; at < length; ++at) sum[at % 2] = static_cast<char>(sum[at % 2] ^ block[at]);
    if (swapped) std::swap(sum[0], sum[1]);
    block.replace(old_layout ? 20 : 16, 2, sum, 2);
    for (const Field &field : fields) {
      if (swapped) std::reverse(&block[field.at], &block[field.at] + 4);
    }
    return block;
  }
};

}  // namespace support
