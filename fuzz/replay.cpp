// Feeds a target every file of a folder, where no fuzzer drives it. A folder without any fails.
#include <filesystem>
#include <fstream>

#include "fuzz/fuzz.hpp"

int main(int, char **argv) {
  int inputs = 0;
  for (const auto &entry : std::filesystem::directory_iterator(argv[1])) {
    std::fprintf(stderr, "%s\n", entry.path().c_str());
    std::ifstream file(entry.path(), std::ios::binary);
    const std::vector<unsigned char> bytes(std::istreambuf_iterator<char>(file), {});
    LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
    ++inputs;
  }
  return inputs > 0 ? 0 : 1;
}
