// What every subcommand is given, and how it is declared: one file in commands/, one row in the table.
#pragma once

#include <functional>
#include <span>
#include <string>

#include "admin/options.hpp"
#include "admin/report/report.hpp"
#include "admin/status.hpp"

namespace vdadm {

/// The switches that all subcommands have.
struct Session {
  report::Format format;
  double timeout = 30;  // seconds that a disk has for an answer
};

/// Does the work; returns the exit status. May throw a Failure.
using Work = std::function<int(const Session &session)>;

/// Declares a subcommand's own arguments, and returns its work.
using Declare = Work (*)(Options &options);

struct Command {
  const char *name;
  const char *summary;
  Declare declare;
};

/// The command table.
std::span<const Command> commands();

/// Prints "vdadm: SENTENCE" on standard error.
void complain(const std::string &sentence);

}  // namespace vdadm
