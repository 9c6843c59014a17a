// Reads block 0 in either layout and byte order and holds each of its bytes against its rule.
#include "admin/inspect/header.hpp"

#include <fmt/format.h>
#include <sys/stat.h>

#include <array>
#include <bit>
#include <cstddef>
#include <cstring>

#include "skgfr/records.h"

namespace vdadm::inspect {

namespace {

using Bytes = std::span<const unsigned char>;

/// A header may have this many wrong bits in its magic number and still be told from other data.
constexpr int wrong_magic_bits = 3;
constexpr uint64_t sector = 512;
constexpr uint32_t block_0_address = 0xFFC00000;
constexpr uint32_t not_fixed = 0xFFFFFFFF;

/// Where a layout keeps what; offsets are in bytes.
struct Layout {
  bool old;
  size_t size_at, blocks_at, magic_at, mode_at, check_at;
  uint32_t magic;
};
constexpr std::array layouts{
    Layout{false, offsetof(skgfrhblk, lblksiz_skgfrhblk), offsetof(skgfrhblk, fsize_skgfrhblk),
           offsetof(skgfrhblk, magic_skgfrhblk), offsetof(skgfrhblk, type_skgfrhblk),
           offsetof(kcbh, chkval_kcbh), 0x7A7B7C7D},
    Layout{true, offsetof(skgfrhblkv9, lblksiz_skgfrhblkv9),
           offsetof(skgfrhblkv9, fsize_skgfrhblkv9), offsetof(skgfrhblkv9, magic_skgfrhblkv9),
           offsetof(skgfrhblkv9, type_skgfrhblkv9), offsetof(skgfrhblkv9, chkval_skgfrhblkv9),
           0x5A5B5C5D}};
constexpr size_t format_at = offsetof(kcbh, frmt_kcbh);
constexpr size_t address_at = offsetof(kcbh, rdba_kcbh);

/// Numbers in the byte order of whoever wrote the header.
struct Reader {
  Bytes bytes;
  bool big;
  uint64_t number(size_t at, size_t length) const {
    uint64_t value = 0;
    for (size_t byte = 0; byte < length; ++byte) {
      value = value << 8 | bytes[at + (big ? byte : length - 1 - byte)];
    }
    return value;
  }
  uint32_t word(size_t at) const { return static_cast<uint32_t>(number(at, 4)); }
};

bool is_block_size(uint64_t size) {
  return size != 0 && size % sector == 0 && size <= longest_block;
}

unsigned format_of(uint64_t block_size) {
  constexpr unsigned plain = 0x02, step = 0x20;
  for (unsigned code = 1; code < 8; ++code) {
    if (block_size == 256u << code) return plain + code * step;
  }
  return plain;
}

bool looks_like(const Reader &read, const Layout &layout) {
  const uint32_t size = read.word(layout.size_at);
  const int wrong = std::popcount(read.word(layout.magic_at) ^ layout.magic);
  if (wrong == 0) return true;
  if (wrong <= wrong_magic_bits && is_block_size(size)) return true;
  // The magic number is gone: the rest must be right in each bit.
  return !layout.old && is_block_size(size) && read.word(address_at) == block_0_address &&
         read.bytes[format_at] == format_of(size);
}

/// The block size that the format byte tells, when the field itself is broken.
uint64_t size_from_format(unsigned format) {
  for (uint64_t size = sector; size <= longest_block; size *= 2) {
    if (format == format_of(size)) return size;
  }
  return sector;
}

class Examiner {
 public:
  Examiner(Reader read, const Layout &layout) : read_(read), layout_(layout) {}

  Header examine() {
    header_.old_layout = layout_.old;
    header_.big_endian = read_.big;
    header_.block_size = read_.word(layout_.size_at);
    header_.blocks = read_.word(layout_.blocks_at);
    header_.mode = read_.word(layout_.mode_at);
    length_ = is_block_size(header_.block_size) ? header_.block_size
                                                : size_from_format(read_.bytes[format_at]);
    if (read_.bytes.size() < length_) {
      find("cut_short", fmt::format("Block 0 has {} bytes, but only {} are there.", length_,
                                    read_.bytes.size()));
      length_ = read_.bytes.size() & ~size_t{1};
    }
    known_values();
    zero_bytes();
    check_value();
    return header_;
  }

 private:
  void find(const char *name, std::string message) {
    header_.findings.push_back({name, std::move(message)});
  }

  void expect(const char *name, const char *what, uint64_t stored, uint64_t wanted) {
    if (stored == wanted) return;
    find(name, fmt::format("{} is {:#x} and should be {:#x}.", what, stored, wanted));
  }

  void known_values() {
    expect("wrong_magic", "The magic number", read_.word(layout_.magic_at), layout_.magic);
    if (!is_block_size(header_.block_size)) {
      find("wrong_value", fmt::format("The block size is {}, which is no multiple of 512 up to "
                                      "16384.",
                                      header_.block_size));
    }
    const unsigned format = layout_.old ? 0x02 : format_of(header_.block_size);
    expect("wrong_value", "The format byte", read_.bytes[format_at], format);
    if (!layout_.old) {
      expect("wrong_value", "The block address", read_.word(address_at), block_0_address);
    }
    const uint32_t kind = header_.mode & S_IFMT;
    const bool known = kind == S_IFREG || kind == S_IFBLK || kind == S_IFCHR;
    if (header_.mode != 0 && (header_.mode > 0xFFFF || !known)) {
      find("wrong_value",
           fmt::format("The mode bits are {:#o}, which no file or device has.", header_.mode));
    }
  }

  /// Everything that no field occupies is zero, to the end of the block.
  void zero_bytes() {
    const auto is_field = [this](size_t at) {
      const auto within = [at](size_t from, size_t length) {
        return at >= from && at < from + length;
      };
      return at == format_at || within(layout_.size_at, 4) || within(layout_.blocks_at, 4) ||
             within(layout_.magic_at, 4) || within(layout_.mode_at, 4) ||
             within(layout_.check_at, 2) || (!layout_.old && within(address_at, 4));
    };
    size_t wrong = 0, first = 0;
    for (size_t at = 0; at < length_; ++at) {
      if (read_.bytes[at] == 0 || is_field(at)) continue;
      if (wrong++ == 0) first = at;
    }
    if (wrong == 0) return;
    find("not_zero",
         fmt::format("{} {} of block 0 must be zero and {} not, the first at offset {}: {:#04x}.",
                     wrong, wrong == 1 ? "byte" : "bytes", wrong == 1 ? "is" : "are", first,
                     read_.bytes[first]));
  }

  /// A machine that writes a header in the other order sums it up in its own first: there the first two
  /// bytes, which no reversal moves, change places.
  void check_value() {
    header_.check_stored = static_cast<uint16_t>(read_.number(layout_.check_at, 2));
    unsigned sum = header_.check_stored;
    for (size_t at = 0; at + 1 < length_; at += 2) sum ^= unsigned(read_.number(at, 2));
    const unsigned first = unsigned(read_.number(0, 2));
    const unsigned converted = sum ^ first ^ (first >> 8 | (first & 0xFF) << 8);
    const bool foreign = read_.big == (std::endian::native == std::endian::little);
    if (foreign && header_.check_stored == converted) sum = converted;
    header_.check_computed = static_cast<uint16_t>(sum);
    expect("bad_check_value", "The check value", header_.check_stored, header_.check_computed);
  }

  Reader read_;
  const Layout &layout_;
  size_t length_ = 0;
  Header header_;
};

}  // namespace

std::optional<Header> decode_header(Bytes bytes) {
  std::optional<Header> best;
  if (bytes.size() < sector) return best;
  for (const Layout &layout : layouts) {
    for (const bool big : {false, true}) {
      const Reader read{bytes, big};
      if (!looks_like(read, layout)) continue;
      Header header = Examiner(read, layout).examine();
      if (!best || header.findings.size() < best->findings.size()) best = std::move(header);
    }
  }
  return best;
}

std::vector<unsigned char> build_header(uint64_t block_size, uint32_t blocks) {
  skgfrhblk header{};
  header.kcbh_skgfrhblk.frmt_kcbh = static_cast<ub1>(format_of(block_size));
  header.kcbh_skgfrhblk.rdba_kcbh = block_0_address;
  header.lblksiz_skgfrhblk = static_cast<ub4>(block_size);
  header.fsize_skgfrhblk = blocks;
  header.magic_skgfrhblk = layouts.front().magic;
  std::vector<unsigned char> block(block_size);
  std::memcpy(block.data(), &header, sizeof header);
  uint16_t sum = 0;
  for (size_t at = 0; at < sizeof header; at += 2) {
    uint16_t word = 0;
    std::memcpy(&word, &block[at], sizeof word);
    sum ^= word;
  }
  std::memcpy(&block[layouts.front().check_at], &sum, sizeof sum);
  return block;
}

const char *type_of_block_size(uint64_t block_size) {
  return block_size == 512 ? "vtg" : block_size == 4096 ? "kvs" : nullptr;
}

std::optional<Finding> compare_sizes(const Header &header, uint64_t size, bool regular_file) {
  if (header.blocks == not_fixed || !is_block_size(header.block_size)) return {};
  const uint64_t whole = size / header.block_size;
  const uint64_t behind = whole == 0 ? 0 : whole - 1;
  if (header.blocks == static_cast<uint32_t>(behind)) return {};
  // A registry file counts the whole blocks that it had before it was extended to the next.
  const bool extended = regular_file && header.block_size == 4096 && size % 4096 == 0;
  if (extended && behind > 0 && header.blocks == static_cast<uint32_t>(behind - 1)) return {};
  return Finding{"size_mismatch",
                 fmt::format("The header counts {} blocks of {} bytes behind block 0, but {} {} "
                             "there.",
                             header.blocks, header.block_size, behind, behind == 1 ? "is" : "are")};
}

}  // namespace vdadm::inspect
