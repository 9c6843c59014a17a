// Block 0 as a reader of its own sees it: both layouts, both byte orders, every bit.
//
// Takes bytes, not files. Decodes over the public records and does not ask the layer, which accepts
// more than it writes.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace vdadm::inspect {

/// What is wrong, by name, and a sentence with what is stored and what should be.
struct Finding {
  std::string name;
  std::string message;
};

struct Header {
  bool old_layout = false;
  bool big_endian = false;
  uint64_t block_size = 0;  // bytes
  uint32_t blocks = 0;      // behind block 0; all ones: not fixed
  uint16_t check_stored = 0;
  uint16_t check_computed = 0;
  uint32_t mode = 0;              // of the file that it was written for; 0: not recorded
  std::vector<Finding> findings;  // about block 0 alone; empty: every bit is right
};

/// No block 0 is longer.
inline constexpr size_t longest_block = 16384;

/// The header that these first bytes of a file hold. None when they hold nothing like one: a header
/// with a few wrong bits is still one, with findings.
std::optional<Header> decode_header(std::span<const unsigned char> bytes);

/// Block 0 as this machine writes it in the current layout, without mode bits.
std::vector<unsigned char> build_header(uint64_t block_size, uint32_t blocks);

/// The file type that takes blocks of this size: "vtg", "kvs", or null.
const char *type_of_block_size(uint64_t block_size);

/// Whether the recorded number of blocks agrees with a size in bytes.
std::optional<Finding> compare_sizes(const Header &header, uint64_t size, bool regular_file);

}  // namespace vdadm::inspect
