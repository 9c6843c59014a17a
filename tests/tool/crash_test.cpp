// The program killed behind each of its system calls: what is left, and what a second run makes of it.
#include <fcntl.h>
#include <sys/ptrace.h>
#include <sys/wait.h>

#include <csignal>
#include <fstream>

#include "tests/tool/program.hpp"

#ifndef __SANITIZE_ADDRESS__  // the sanitizers make calls of their own

using namespace support;

namespace {

/// Runs the program until it has left so many system calls, and kills it there; false when it ended
/// before, which is then its status.
bool kill_behind_call(int calls, const char *type, const std::string &name, int &status) {
  const pid_t child = fork();
  if (child == 0) {
    const int nowhere = open("/dev/null", O_WRONLY);
    for (const int output : {STDOUT_FILENO, STDERR_FILENO}) dup2(nowhere, output);
    ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
    execl(VDPREP_PROGRAM, "vdprep", type, name.c_str(), nullptr);
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

/// A file of so many bytes or a device, the header and size that a run leaves, and those that a second
/// run leaves when the first was killed behind its resize.
struct CrashCase {
  const char *name, *type;
  bool on_device;
  size_t size;
  std::string header, later = header;
};
void PrintTo(const CrashCase &row, std::ostream *out) { *out << row.name; }
const CrashCase cases[] = {{"voting_file", "vtg", false, 16384, "512/31"},
                           {"registry_file", "kvs", false, 16384, "4096/3"},
                           {"extended_file", "kvs", false, 10240, "4096/1 +12288", "4096/2 +12288"},
                           {"voting_device", "vtg", true, 16384, "512/31"},
                           {"registry_device", "kvs", true, 16384, "4096/3"}};

class Crash : public FlowTest, public testing::WithParamInterface<CrashCase> {};

TEST_P(Crash, AtEverySystemCallLeavesBlock0OldOrNew) {
  const auto &[title, type, on_device, size, header, later] = GetParam();
  const TempDir dir(place_for_files());
  const LoopDevice loop(on_device ? dir.file("disk", size) : "", 512);
  const std::string name = on_device ? loop.path() : dir.path("f"), old(size, 'x');
  if (name.empty()) GTEST_SKIP() << "losetup is refused";
  int kills = 0, left_old = 0, status = 0;
  for (;; ++kills) {
    SCOPED_TRACE(testing::Message() << "killed behind call " << kills);
    std::ofstream(name) << old;
    if (!kill_behind_call(kills, type, name, status)) break;
    const std::string left = bytes_of(name);
    const bool grown = left.size() != size, stamped = left.compare(0, 512, old, 0, 512) != 0;
    left_old += !stamped;
    expect("silent " + (stamped ? header : grown ? "+12288" : ""), name, {0, ""}, old, name);
    if (left == old && kills > 0) continue;  // a second run is then a first one
    const std::string again = std::string("$P ") + type + " " + name;
    expect("ok " + (grown ? later : header), name, run(again), left, name);
  }
  EXPECT_EQ(status, 0) << "it ended by itself";
  EXPECT_GT(left_old, 30);
  EXPECT_LT(left_old, kills);
  std::printf("%s: killed %d times, block 0 old %d times\n", title, kills, left_old);
}
INSTANTIATE_TEST_SUITE_P(Every, Crash, testing::ValuesIn(cases),
                         [](const auto &row) { return std::string(row.param.name); });

}  // namespace

#endif
