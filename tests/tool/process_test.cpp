// What the process depends on, its system calls, and what is left when it is killed at any of them.
#include <fcntl.h>
#include <sys/ptrace.h>
#include <sys/wait.h>

#include <csignal>
#include <fstream>
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

/// The system calls of the flow. Left out are process start, loading of libaio, memory and output.
size_t flow_calls(const std::string &trace) {
  const std::regex call("\\d+ +(\\w+)\\((1,)?.*"),
      other("brk|mmap2?|munmap|mprotect|getrandom|exit_group");
  size_t calls = 0;
  bool flowing = false;
  std::ifstream lines(trace);
  for (std::string line; std::getline(lines, line);) {
    std::smatch parts;
    if (!std::regex_match(line, parts, call)) continue;
    const std::string name = parts[1];
    // The first calls of the layer and of libaio.
    if (name == "getpid" || name == "io_setup") flowing = true;
    if (line.find("ld.so.cache") != line.npos) flowing = false;
    calls += flowing && !parts[2].matched && !std::regex_match(name, other);
  }
  return calls;
}

/// Runs the program until it has left so many system calls, and kills it there; false when it ended
/// before, which is then its status.
bool kill_behind_call(int calls, const std::string &type, const std::string &name, int &status) {
  const pid_t child = fork();
  if (child == 0) {
    const int nowhere = open("/dev/null", O_WRONLY);
    dup2(nowhere, STDOUT_FILENO), dup2(nowhere, STDERR_FILENO);
    ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
    execl(VDPREP_PROGRAM, "vdprep", type.c_str(), name.c_str(), nullptr);
    _exit(127);
  }
  waitpid(child, &status, 0);
  for (int stops = 2 * calls; stops > 0 && WIFSTOPPED(status); --stops) {  // entered, left
    ptrace(PTRACE_SYSCALL, child, nullptr, nullptr);
    waitpid(child, &status, 0);
  }
  if (!WIFSTOPPED(status)) return false;
  kill(child, SIGKILL);
  waitpid(child, &status, 0);
  return true;
}

/// A file or a device of so many bytes, the header and size that a run leaves, and the header of a
/// second run when the first was killed behind its resize; the calls of the flow.
struct CrashCase {
  std::string type, name;
  size_t size;
  std::string header, later;
  size_t calls;
};

class Crash : public Process {
 protected:
  std::vector<CrashCase> cases() {
    if (!loop_.path().empty()) {
      return {{"vtg", dir_.path("f"), 16384, "512/31", "512/31", 22},
              {"kvs", dir_.path("f"), 16384, "4096/3", "4096/3", 22},
              {"kvs", dir_.path("f"), 10240, "4096/1 +12288", "4096/2 +12288", 33},
              {"vtg", loop_.path(), 16384, "512/31", "512/31", 24},
              {"kvs", loop_.path(), 16384, "4096/3", "4096/3", 24}};
    }
    return {};
  }
  TempDir dir_{place_for_files()};
  LoopDevice loop_{dir_.file("disk", 16384), 512};
};

TEST_F(Crash, SystemCallsAreCounted) {
  const std::string trace = dir_.path("trace"), strace = "strace -f -o " + trace + " $P ";
  if (run(strace).status != 2) GTEST_SKIP() << "strace does not work here";
  if (cases().empty()) GTEST_SKIP() << "losetup is refused";
  for (const auto &[type, name, size, header, later, calls] : cases()) {
    const std::string old(size, 'x');
    std::ofstream(name) << old;
    expect("ok " + header, name, run(strace + type + " " + name), old, name);
    EXPECT_EQ(flow_calls(trace), calls);
  }
}

TEST_F(Crash, AtEverySystemCallLeavesBlock0OldOrNew) {
  if (cases().empty()) GTEST_SKIP() << "losetup is refused";
  for (const auto &[type, name, size, header, later, calls] : cases()) {
    const std::string old(size, 'x');
    int kills = 0, left_old = 0, status = 0;
    for (;; ++kills) {
      SCOPED_TRACE(testing::Message() << type << " killed behind call " << kills);
      std::ofstream(name) << old;
      if (!kill_behind_call(kills, type, name, status)) break;
      const std::string left = bytes_of(name);
      const bool grown = left.size() != size, stamped = left.compare(0, 512, old, 0, 512) != 0;
      left_old += !stamped;
      expect("silent " + (stamped ? header : grown ? "+12288" : ""), name, {0, ""}, old, name);
      if (left == old && kills > 0) continue;  // a second run is then a first one
      expect("ok " + (grown ? later : header), name, run("$P " + type + " " + name), left, name);
    }
    EXPECT_EQ(status, 0) << "it ended by itself";
    EXPECT_TRUE(left_old > 30 && left_old < kills) << "both were seen";
    std::printf("%s: killed %d times, block 0 old %d times\n", type.c_str(), kills, left_old);
  }
}

#endif

}  // namespace
