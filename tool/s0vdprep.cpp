// Process entry of vdprep: what concerns the process and not the flow, which programs may call too.
#include <csignal>
#include <initializer_list>

#include "tool/vdprep.h"

int main(int argc, char **argv) {
  // Output that nobody takes must not end the program behind a stamp: its status tells about the file.
  for (const int signo : {SIGPIPE, SIGXFSZ}) std::signal(signo, SIG_IGN);
  return vdprep_main(argc, reinterpret_cast<text **>(argv));
}
