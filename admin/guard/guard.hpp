// Whether a disk may be written: every objection, each by its name.
//
// Policy only: facts come from inspect. Each objection is a row of one table, which check, stamp,
// restore, resize and upgrade share.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "admin/backup/backup.hpp"
#include "admin/guard/hold.hpp"
#include "admin/guard/rehearsal.hpp"

namespace vdadm::guard {

enum class Operation : unsigned { stamp = 1, restore = 2, resize = 4, upgrade = 8 };

/// What is to be done, and all that is known about where.
struct Case {
  Operation operation;
  const inspect::Facts &facts;
  const Hold &hold;
  const Rehearsal *rehearsal = nullptr;    // of a stamp
  const FileType *type = nullptr;          // of a stamp
  const backup::Backup *backup = nullptr;  // of a restoration
  uint64_t new_size = 0;                   // of a resize
};

struct Objection {
  std::string name;
  std::string message;
  bool overrulable = false;
};

/// All of them, in the order of the table.
std::vector<Objection> objections_to(const Case &situation);

/// The one objection to a disk that gave no answer.
Objection no_answer(const inspect::Facts &facts);

/// Those that were not overruled.
std::vector<Objection> standing(const std::vector<Objection> &objections,
                                const std::vector<std::string> &overruled);

/// The names that --overrule takes.
std::vector<std::string> overrulable_names();

report::List describe(const std::vector<Objection> &objections);

}  // namespace vdadm::guard
