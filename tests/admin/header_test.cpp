// Every bit of block 0 counts: each one turned over is found, and so are two that the check value lets pass.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <string>

#include "admin/inspect/header.hpp"

using namespace vdadm::inspect;

namespace {

/// A voting file's header of 2047 blocks, with the mode bits of a regular file, as each machine and each
/// layout has it; check values worked out by hand.
struct Sample {
  const char *title;
  std::array<unsigned char, 48> start;
};
constexpr Sample samples[] = {
    {"current, little",
     {0, 0x22, 0, 0,    0, 0, 0xC0, 0xFF, 0, 0, 0,    0,    0,    0,    0,    0,    0x9D, 0x5F,
      0, 0,    0, 0x02, 0, 0, 0xFF, 0x07, 0, 0, 0x7D, 0x7C, 0x7B, 0x7A, 0xA4, 0x81, 0,    0}},
    {"current, big",
     {0, 0x22, 0, 0, 0xFF, 0xC0, 0, 0, 0,    0,    0,    0,    0,    0,    0, 0, 0x5F, 0x9D,
      0, 0,    0, 0, 0x02, 0,    0, 0, 0x07, 0xFF, 0x7A, 0x7B, 0x7C, 0x7D, 0, 0, 0x81, 0xA4}},
    {"old, little", {0,    0x02, 0,    0,    0,    0x02, 0, 0, 0xFF, 0x07, 0, 0,
                     0x5D, 0x5C, 0x5B, 0x5A, 0xA4, 0x81, 0, 0, 0x5D, 0x80, 0, 0}},
    {"old, big", {0,    0x02, 0,    0,    0, 0, 0x02, 0,    0,    0,    0x07, 0xFF,
                  0x5A, 0x5B, 0x5C, 0x5D, 0, 0, 0x81, 0xA4, 0x80, 0x5D, 0,    0}}};

using Block = std::array<unsigned char, 512>;
constexpr uint64_t size = 2048 * 512;

Block block_of(const Sample &sample) {
  Block block{};
  std::copy(sample.start.begin(), sample.start.end(), block.begin());
  return block;
}

bool is_sound(const Block &block) {
  const auto header = decode_header(block);
  return header && header->findings.empty() && !compare_sizes(*header, size, true);
}

TEST(Header, EachBitTurnedOverIsFound) {
  for (const Sample &sample : samples) {
    Block block = block_of(sample);
    const auto header = decode_header(block);
    ASSERT_TRUE(header && is_sound(block)) << sample.title << header->check_computed;
    for (size_t bit = 0; bit < 8 * block.size(); ++bit) {
      block[bit / 8] ^= static_cast<unsigned char>(1 << bit % 8);
      const auto damaged = decode_header(block);
      EXPECT_TRUE(damaged && !damaged->findings.empty()) << sample.title << " bit " << bit;
      block[bit / 8] ^= static_cast<unsigned char>(1 << bit % 8);
    }
  }
}

/// Two bits of one column cancel out in the check value. Only the permissions in the mode bits have no
/// other rule, with one bit in them and its partner in the check value.
TEST(Header, TwoBitsThatCancelOutAreFound) {
  for (const Sample &sample : samples) {
    Block block = block_of(sample);
    std::string passed;
    const auto turn = [&](size_t bit) {
      block[bit / 8] ^= static_cast<unsigned char>(1 << bit % 8);
    };
    for (size_t one = 0; one < 8 * 48; ++one) {
      for (size_t other = one + 16; other < 8 * 512; other += 16) {
        turn(one), turn(other);
        if (is_sound(block)) passed += " " + std::to_string(one) + "+" + std::to_string(other);
        turn(one), turn(other);
      }
    }
    EXPECT_LE(std::count(passed.begin(), passed.end(), '+'), 13) << sample.title << passed;
  }
}

}  // namespace
