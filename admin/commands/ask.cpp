// Asks on standard error, reads from standard input.
#include "admin/commands/ask.hpp"

#include <unistd.h>

#include <cstdio>

#include "admin/report/report.hpp"
#include "admin/status.hpp"

namespace vdadm {

void ask_or_refuse(const std::string &what, bool answered_yes) {
  if (answered_yes) return;
  if (!isatty(STDIN_FILENO) || !isatty(STDERR_FILENO)) {
    throw Failure(what + " Nothing was written, as there is no terminal to ask on: say --yes.",
                  refused);
  }
  std::fprintf(stderr, "%s Go on? [y/N] ", report::printable(what).c_str());
  const int answer = std::getchar();
  for (int rest = answer; rest != '\n' && rest != EOF;) rest = std::getchar();
  if (answer != 'y' && answer != 'Y') throw Failure("Nothing was written.", refused);
}

}  // namespace vdadm
