// Runs of the program as its own process, and plans of what a run prints and leaves.
//
// A plan is a line of words: keys of `messages`; "eN" the system's error; a number a detail word;
// "<A >B" the sizes of a failed resize; "size/blocks" the new header; "+N" the file's new size.
#pragma once

#include <cstring>
#include <map>
#include <sstream>

#include "tests/support/header.hpp"
#include "tests/support/layer.hpp"
#include "tests/support/places.hpp"

namespace support {

struct Outcome {
  int status;  // of exit, or 128 and the signal
  std::string output;
};

/// The program opens every file for direct I/O.
class FlowTest : public LayerTest {
  void SetUp() override {
    if (!takes_direct_io(place_for_files())) GTEST_SKIP() << "no direct I/O here";
  }
};

/// Runs a shell command that finds the program in $P.
inline Outcome run(const std::string &command) {
  FILE *const pipe = popen(("P=" VDPREP_PROGRAM "; " + command).c_str(), "r");
  std::string output;
  for (int c; (c = std::fgetc(pipe)) != EOF;) output += static_cast<char>(c);
  return {WEXITSTATUS(pclose(pipe)), output};
}

/// "block size/blocks behind it" of a header that is right in every byte, else what is wrong.
inline std::string decode(const std::string &bytes) {
  Header header;
  if (bytes.size() < 512) return "no header";
  std::memcpy(&header.size, &bytes[20], 4);
  std::memcpy(&header.blocks, &bytes[24], 4);
  if (header.size != 512 && header.size != 4096) return "no block size";
  header.format = header.size == 512 ? 0x22 : 0x82;
  if (bytes.substr(0, header.size) != header.bytes(header.size)) return "wrong bytes";
  return std::to_string(header.size) + "/" + std::to_string(header.blocks);
}

struct Message {
  int status;
  const char *text;
};
const std::map<std::string, Message> messages = {
    {"ok", {0, "vdprep: successfully initialized file {}\n"}},
    {"gone", {1, "vdprep: File {} not found\n"}},
    {"usage", {2, "Usage: vdprep <filetype> <filename>\n"}},
    {"unknown", {2, "vdprep: unknown file type {}\n"}},
    {"early4", {4, "vdprep:Recvd unexpected error 4 from skgfifi\nskgfifi: "}},
    {"early5", {4, "vdprep:Recvd unexpected error 5 from skgfifi\nskgfifi: "}},
    {"ident4", {4, "vdprep: Received unexpected error 4 from skgfifi\nskgfifi: "}},
    {"ident5", {4, "vdprep: Received unexpected error 5 from skgfifi\nskgfifi: "}},
    {"open", {4, "vdprep: failure at open\nskgfofi: "}},
    {"write", {4, "vdprep: Unexpected error queueing IO\nskgfqio: "}},
    {"resize", {0, "vdprep: Failure trying to resize KVS file from "}},
    {"silent", {0, ""}},
    {"mute", {4, ""}}};

/// The bytes of a file or a block device, as far as a test fills them; of anything else none.
inline std::string bytes_of(const std::string &name) {
  namespace fs = std::filesystem;
  return fs::is_regular_file(name) || fs::is_block_file(name) ? contents(name, 1 << 20) : "";
}

/// Holds a run with `argument` against its plan; `data` held the bytes `before` until then.
inline void expect(const std::string &plan, const std::string &argument, const Outcome &got,
                   std::string before, const std::string &data) {
  SCOPED_TRACE(argument + ": " + plan);
  const std::string after = bytes_of(data);
  Outcome wanted{0, ""};
  size_t header = 0;
  std::istringstream words(plan);
  for (std::string word; words >> word;) {
    const std::string value = word.substr(1);
    const auto message = messages.find(word);
    if (message != messages.end()) {
      wanted = {message->second.status, wanted.output + message->second.text};
    } else if (word.find('/') != word.npos) {
      header = std::stoul(word);
      EXPECT_EQ(decode(after), word);
    } else if (word[0] == '+') {
      before.resize(std::stoul(value), '\0');
    } else if (word[0] == 'e') {
      wanted.output += "Linux Error: " + value + ": " + std::strerror(std::stoi(value)) + "\n";
    } else if (word[0] == '<' || word[0] == '>') {
      wanted.output += value + (word[0] == '<' ? " bytes to " : " bytes\n");
    } else {
      wanted.output += "Additional information: " + word + "\n";
    }
  }
  const size_t at = wanted.output.find("{}");
  if (at != std::string::npos) wanted.output.replace(at, 2, argument);
  EXPECT_EQ(got.status, wanted.status);
  EXPECT_EQ(got.output, wanted.output);
  ASSERT_EQ(after.size(), before.size());
  EXPECT_EQ(after.compare(header, after.npos, before, header), 0) << "other bytes changed";
}

}  // namespace support
