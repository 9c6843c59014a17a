// A quick look at one of many: what look_at tells, but for what takes long and is seldom wanted.
#pragma once

#include <set>
#include <string>

#include "admin/inspect/inspect.hpp"

namespace vdadm::inspect {

/// Regular files that swap or loop devices lie on, by their resolved names, as the kernel tells them: none
/// of them is touched.
std::set<std::string> files_in_use();

/// The facts of a name. Behind a sound header of a regular file no signatures are looked for, and holders only of files
/// in use; nor, of any regular file, processes.
Facts glance_at(const std::string &name, const std::set<std::string> &in_use);

}  // namespace vdadm::inspect
