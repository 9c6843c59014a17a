// The failure tables as text: how an operation's calls fail and what that comes to.
//
//   skgfifi on file               an operation in a scene
//     record code                 it promises no more of the record than the code
//     order any                   the system decides in which order the calls come
//     done    OK sealed           what it comes to when nothing fails; and "gives 27086 10", if
//                                 that is a failure of its own
//     failed  ERROR open          what it comes to otherwise, unless a row says more
//     open64    27041 2           one row for each call, in order: the failure, by code and words
//       EMFILE  27041 9 = OTHER   and for one of its errors alone; "= what" it comes to then, "*"
//                                 where that is chance
//     statfs64  -                 a failure that is not one: the operation goes on as if done
//     when climbing 27036 7345 2  a scene that is different refuses without a failing call
//
// A number in place of an error is a call that comes up short with that result. "errno:EIO" behind
// the words is the error in the record when it is not the one injected; the word "errno" is that
// one, "handler" the address of a signal handler. Two headings stand alone: "errors" tells those that
// matter for each call, "elsewhere" the tests of failures, by code and number, that no row reaches.
#pragma once

#include <map>
#include <string>
#include <vector>

namespace support {

/// What a run is to come to.
struct Outcome {
  bool goes_on = false;
  int code = 0;
  int error = -1;                  // -1: the one that was injected
  std::vector<std::string> words;  // "errno": the one that was injected
  std::string what{};              // empty: the section's
};
struct Row {
  std::string place;  // of its line
  std::string call;   // or, of a scene that is different, the change
  Outcome usual;
  std::map<std::string, Outcome> by_error{};
};
struct Section {
  std::string operation, scene, done, failed;
  bool code_only = false, any_order = false;
  Outcome unharmed{true, 0, 0, {}};
  std::vector<Row> calls{}, refusals{};
};
using Errors = std::map<std::string, std::vector<std::string>>;
struct Table {
  Errors errors;
  std::vector<Section> sections;
  std::map<std::string, std::string> elsewhere;  // "code number", and the file of the test
};

/// The number of an error by its name, or of a short result; -1 for any other word.
struct Injection {
  int error;
  long result;
};
bool parse_injection(const std::string &word, Injection &injection);

/// All tables together.
const Table &tables();

}  // namespace support
