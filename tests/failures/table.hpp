// The failure tables as text: how an operation's calls fail and what that comes to.
//
//   skgfifi on file               an operation in a scene
//     record code                 it promises no more of the record than the code
//     order any                   the system decides in which order the calls come
//     opens   write dsync         how files are opened other than for reading, in order
//     done OK sealed  failed ERROR open
//                                 what it comes to when nothing fails, and otherwise unless a row
//                                 says more; "gives 27086 10", if even the first is a failure
//     open64  27041 2  but EMFILE 27041 9 = OTHER
//                                 each call, in order, and its failure, by code and words; several
//                                 calls in a row may have the same;
//                                 behind "but", or in a line of its own below, that of one error
//                                 alone; "= what" it comes to then, "*" where that is chance
//     statfs64  -                 a failure that is not one: the operation goes on as if done
//     when climbing 27036 7345 2  a scene that is different refuses without a failing call
//     rows NAME                   the rows that stand under the heading "rows NAME"
//     WORD other words            what a word in capitals means from here on
//
// A number in place of an error is a call that comes up short with that result, and "EIO:512" one that
// leaves an errno besides. "errno:EIO" behind the words is the error in the record when it is not the
// one injected; the word "errno" is that one, "result" what the call answered, "handler" the address
// of a signal handler.
#pragma once

#include <map>
#include <string>
#include <vector>

namespace support {

using Words = std::vector<std::string>;

std::string text_of(const Words &words);

/// What a run is to come to.
struct Outcome {
  Outcome() = default;
  explicit Outcome(const Words &words);
  bool goes_on = false;
  int error = -1;      // -1: the one that was injected
  Words record{};      // the code and the detail words; empty: no failure
  std::string what{};  // empty: the section's
};
struct Row {
  std::string place;  // of its line
  std::string call;   // or, of a scene that is different, the change
  Outcome usual{};
  std::map<std::string, Outcome> by_error{};
};
struct Section {
  std::string operation, scene;
  std::map<std::string, Words> facts{};  // by the word that begins their line
  std::vector<Row> calls{}, refusals{};

  std::string fact(const char *name) const {
    return facts.contains(name) ? text_of(facts.at(name)) : "";
  }
};
struct Table {
  std::map<std::string, Words> errors;        // that matter for each call
  std::map<std::string, std::string> scenes;  // that others make up, and their steps
  std::vector<Section> sections;
};

/// The number of an error by its name, or of a short result.
struct Injection {
  int error;
  long result;
};
Injection injection_of(const std::string &word);

/// All tables together; a line that is none ends the process with a message.
const Table &tables();

}  // namespace support
