// Runs vdprep's flow in a child and compares what it wrote with a header of our own making.
#include "admin/commands/flow.hpp"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/prctl.h>
#include <sys/wait.h>

#include <csignal>
#include <cstdio>

#include "admin/status.hpp"
#include "tool/vdprep.h"

namespace vdadm {

namespace {

std::string read_to_end(int fd) {
  std::string all;
  char piece[4096];
  for (;;) {
    const ssize_t got = read(fd, piece, sizeof piece);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) return all;
    all.append(piece, static_cast<size_t>(got));
  }
}

/// Whoever is told that we were ended must find nothing still writing.
[[noreturn]] void be_vdprep(const guard::FileType &type, int fd, int output, pid_t parent) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (getppid() != parent) _exit(unknown);
  dup2(output, STDOUT_FILENO);
  std::string program = "vdprep", keyword = type.name, name = fmt::format("/proc/self/fd/{}", fd);
  text *arguments[] = {reinterpret_cast<text *>(program.data()),
                       reinterpret_cast<text *>(keyword.data()),
                       reinterpret_cast<text *>(name.data()), nullptr};
  const int status = vdprep_main(3, arguments);
  std::fflush(stdout);
  _exit(status);
}

}  // namespace

FlowOutcome run_flow(const guard::FileType &type, int fd) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) throw Failure(inspect::system_sentence("A pipe", errno));
  const inspect::Descriptor output(ends[0]);
  inspect::Descriptor input(ends[1]);
  std::fflush(nullptr);
  const pid_t parent = getpid(), child = fork();
  if (child < 0) throw Failure("No child process can be started.");
  if (child == 0) be_vdprep(type, fd, input.get(), parent);
  input.reset();
  FlowOutcome outcome{0, read_to_end(output.get())};
  int status = 0;
  waitpid(child, &status, 0);
  outcome.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return outcome;
}

void stamp_and_compare(const guard::FileType &type, int fd, uint64_t size,
                       const std::string &name) {
  const FlowOutcome flow = run_flow(type, fd);
  if (flow.status != 0) {
    throw Failure(fmt::format("{} was not stamped: vdprep ended with status {} and said: {}", name,
                              flow.status, flow.output));
  }
  const uint64_t blocks = size / type.block_size;
  const auto wanted =
      inspect::build_header(type.block_size, static_cast<uint32_t>(blocks ? blocks - 1 : 0));
  const auto got = inspect::read_at(fd, 0, wanted.size());
  if (!got) throw Failure(inspect::system_sentence(name, errno));
  if (*got == wanted) return;
  throw Failure(
      fmt::format("{} was stamped, but what is read back from it is not what was written. Do "
                  "not use it; the disk, or who else writes to it, needs a look.",
                  name));
}

}  // namespace vdadm
