// Forks, and lets go of everything.
#include "admin/inspect/child.hpp"

#include <fcntl.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <csignal>

namespace vdadm::inspect {

namespace {

/// Whoever waits for the end of what we have open must not wait for a child that hangs.
void let_go_of_everything_but(int kept) {
  const int nowhere = open("/dev/null", O_RDWR | O_CLOEXEC);
  for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) dup2(nowhere, fd);
  const unsigned first = STDERR_FILENO + 1, middle = static_cast<unsigned>(kept);
  if (middle > first) close_range(first, middle - 1, 0);
  close_range(middle + 1, ~0U, 0);
}

}  // namespace

pid_t start_child(int kept, const std::function<void()> &work) {
  const pid_t parent = getpid();
  const pid_t child = fork();
  if (child != 0) return child;
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (getppid() != parent) _exit(1);
  let_go_of_everything_but(kept);
  try {
    work();
  } catch (...) {
    _exit(1);
  }
  _exit(0);
}

}  // namespace vdadm::inspect
