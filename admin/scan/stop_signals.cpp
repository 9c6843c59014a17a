// The signals become something to read, so that whoever waits for a disk waits for them, too.
#include <sys/signalfd.h>
#include <unistd.h>

#include "admin/scan/scan.hpp"

namespace vdadm::scan {

StopSignals::StopSignals() {
  sigset_t stopping;
  sigemptyset(&stopping);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&stopping, signal);
  descriptor_ = signalfd(-1, &stopping, SFD_CLOEXEC | SFD_NONBLOCK);
  sigprocmask(SIG_SETMASK, nullptr, &before_);
  if (descriptor_ >= 0) sigprocmask(SIG_BLOCK, &stopping, nullptr);
}

StopSignals::~StopSignals() {
  if (descriptor_ < 0) return;
  // One that nobody has looked at would end the program now, before its results are told.
  signalfd_siginfo unseen;
  while (read(descriptor_, &unseen, sizeof unseen) > 0) {
  }
  close(descriptor_);
  sigprocmask(SIG_SETMASK, &before_, nullptr);
}

}  // namespace vdadm::scan
