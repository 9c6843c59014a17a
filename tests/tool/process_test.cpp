// What the process depends on, its system calls, and what is left when it is killed at any of them.
#include <fstream>
#include <map>
#include <regex>

#include "tests/tool/program.hpp"

using namespace support;

namespace {

class Process : public FlowTest {};

#ifndef __SANITIZE_ADDRESS__  // the sanitizers bring libraries and make calls of their own

TEST_F(Process, NeedsOnlyTheCLibrary) {
  const Outcome got = run("readelf -d $P | sed -n 's/.*NEEDED.*\\[\\(.*\\)\\..*/\\1/p'");
  if (got.output.empty()) GTEST_SKIP() << "readelf does not work here";
  EXPECT_EQ(got.output, "libc.so\n");
}

/// The system calls of the flow as "name:when=N", the Nth of that name in the process. Left out are
/// process start, loading of libaio, memory and output.
std::vector<std::string> flow_calls(const std::string &trace) {
  const std::regex call("\\d+ +(\\w+)\\((1,)?.*"),
      other("brk|mmap2?|munmap|mprotect|getrandom|exit_group");
  std::map<std::string, int> seen;
  std::vector<std::string> calls;
  bool flowing = false;
  std::ifstream lines(trace);
  for (std::string line; std::getline(lines, line);) {
    std::smatch parts;
    if (!std::regex_match(line, parts, call)) continue;
    const std::string name = parts[1], when = std::to_string(++seen[name]);
    if (name == "getpid" || name == "io_setup")
      flowing = true;  // the first calls of the layer and of libaio
    if (line.find("ld.so.cache") != line.npos) flowing = false;
    if (flowing && !parts[2].matched && !std::regex_match(name, other))
      calls.push_back(name + ":when=" + when);
  }
  return calls;
}

TEST_F(Process, SystemCallsCountedAndKilledOneByOne) {
  const TempDir dir(place_for_files());
  const LoopDevice loop(dir.file("disk", 16384), 512);
  const std::string trace = dir.path("trace"), strace = "strace -f -o " + trace + " ";
  if (run(strace + "$P").status != 2) GTEST_SKIP() << "strace does not work here";
  if (loop.path().empty()) GTEST_SKIP() << "losetup is refused";
  const struct {
    std::string type, name;
    size_t size, calls;
    std::string header, later;  // later: after a run that was killed behind the resize
  } cases[] = {{"vtg", dir.path("f"), 16384, 22, "512/31", ""},
               {"kvs", dir.path("f"), 16384, 22, "4096/3", ""},
               {"kvs", dir.path("f"), 10240, 33, "4096/1 +12288", "4096/2 +12288"},
               {"vtg", loop.path(), 16384, 24, "512/31", ""}};
  for (const auto &[type, name, size, count, header, later] : cases) {
    const std::string command = "$P " + type + " " + name, old(size, 'x');
    std::ofstream(name) << old;
    expect("ok " + header, name, run(strace + command), old, name);
    const std::vector<std::string> calls = flow_calls(trace);
    EXPECT_EQ(calls.size(), count);
    for (const std::string &call : calls) {
      SCOPED_TRACE(call);
      std::ofstream(name) << old;
      const Outcome killed =
          run("exec 2>/dev/null; " + strace + "--inject=" + call + ":signal=KILL " + command);
      const std::string left = bytes_of(name);
      const bool grown = left.size() != size, stamped = left.compare(0, 512, old, 0, 512) != 0;
      expect("killed " + (stamped ? header : grown ? "+12288" : ""), name, killed, old, name);
      expect("ok " + (grown ? later : header), name, run(command), left, name);
    }
  }
}

#endif

}  // namespace
