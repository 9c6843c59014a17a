// Subcommands that change what is there, guarded: restore, resize, upgrade.
//
// Look, objections, question; then once more while the disk is held, a backup, the change, and a look at
// what came of it.
#pragma once

#include <functional>

#include "admin/commands/each_name.hpp"
#include "admin/guard/judge.hpp"

namespace vdadm {

struct ChangeArguments {
  std::string name, backup;
  std::vector<std::string> overruled;
  bool yes = false, dry_run = false;
};

/// What would be done.
struct Change {
  struct Write {
    uint64_t offset, length;
  };
  std::vector<guard::Objection> objections;
  std::vector<Write> writes;
  std::vector<std::string> sentences;  // what else
  std::function<void(int fd)> apply;   // does it, and compares; throws a Failure
};

/// Makes the plan; called with the disk held, once for the question and once for the deed.
using Plan = std::function<Change(const inspect::Facts &facts, const guard::Hold &hold)>;

void declare_change(Options &options, ChangeArguments &arguments);

/// `done`: how a person is told of it, as "restored".
int carry_out(const Session &session, const ChangeArguments &arguments, const std::string &done,
              const Plan &plan);

/// Sets a file's size, and waits until it is on stable storage.
void cut(const std::string &name, int fd, uint64_t size);

}  // namespace vdadm
