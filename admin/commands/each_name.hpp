// Subcommands that tell the same of one name after the other: show, verify, check.
#pragma once

#include <functional>

#include "admin/inspect/inspect.hpp"
#include "admin/session.hpp"

namespace vdadm {

/// What files can be stamped as.
inline const std::vector<std::string> types = {"vtg", "kvs"};

/// The arguments that several subcommands have.
void declare_names(Options &options, std::vector<std::string> &names);
void declare_name(Options &options, std::string &name);
void declare_type(Options &options, std::string &type);
void declare_columns(Options &options, std::string &columns);

/// Looks at one name; this may take for ever.
using Look = std::function<report::Outcome(const std::string &name)>;

/// What is told of a disk that gave no answer.
using Silent = std::function<report::Outcome(const inspect::Facts &facts)>;

/// Looks at each name, in bounded time, and prints the outcomes in the order of the names. Returns the
/// highest status of all.
int tell_each(const Session &session, const std::vector<std::string> &names,
              const std::string &columns, const Look &look, const Silent &silent);

/// Prints an outcome; what it refuses goes where errors go, unless it is a document. Returns its status.
int print_or_complain(const report::Outcome &outcome, const report::Format &format);

/// Puts findings into an object, as the array that verify has.
void add_findings(report::Object &object, const std::vector<inspect::Finding> &findings);

}  // namespace vdadm
