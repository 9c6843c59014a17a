// What the exit status means, in every subcommand, and how work ends early.
#pragma once

#include <stdexcept>
#include <string>

namespace vdadm {

enum Status : int {
  yes = 0,      // yes, or done
  no = 1,       // a finding
  usage = 2,    // the command line makes no sense
  unknown = 3,  // it cannot be told: unreadable, no answer, no permission, no memory
  refused = 4   // a check says that it must not be done
};

/// Ends the subcommand: its message is a sentence for people.
class Failure : public std::runtime_error {
 public:
  explicit Failure(const std::string &sentence, int status = unknown)
      : std::runtime_error(sentence), status_(status) {}
  int status() const { return status_; }

 private:
  int status_;
};

}  // namespace vdadm
