// A child process that may be left behind: one that waits for a dead disk cannot be ended by anybody.
#pragma once

#include <sys/types.h>

#include <functional>

namespace vdadm::inspect {

/// Starts a child that does `work` with nothing of ours open but the descriptor `kept`, and that does not
/// outlive us. Its process id; -1 with errno. An exception ends it without a word.
pid_t start_child(int kept, const std::function<void()> &work);

}  // namespace vdadm::inspect
