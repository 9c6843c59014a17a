// The question before something is written.
#pragma once

#include <string>

namespace vdadm {

/// Asks on a terminal; the answer is no where there is none, and the message then names the switch --yes.
/// Throws a Failure, refused, unless the answer is yes.
void ask_or_refuse(const std::string &what, bool answered_yes);

}  // namespace vdadm
