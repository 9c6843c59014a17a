// The message of an error record, and the system's text, cut to every size of buffer.
#include "fuzz/fuzz.hpp"
#include "sysl/sysl.h"

int LLVMFuzzerTestOneInput(const ub1 *data, size_t size) {
  slerc se = Input(data, size).take<slerc>();
  const std::string error = strerror(se.slercerrno), number = std::to_string(se.slercerrno);
  const bool known = error.rfind("Unknown error", 0) != 0;
  const std::string words = error == "Success" ? "Error 0" : known ? error : "Unknown system error";
  std::string message = se.slercerrno > 0 ? "\nLinux Error: " + number + ": " + words : "";
  for (const ub4 word : se.slercose) {
    if (word) message += "\nAdditional information: " + std::to_string(static_cast<sb4>(word));
  }
  message.erase(0, 1);
  for (size_t room = 1; room < message.size() + words.size() + 3; ++room) {
    std::vector<char> out(room, 'x'), described(room, 'x');
    const size_t length = slcgems(&se, reinterpret_cast<text *>(out.data()), room);
    require(length == std::min(message.size(), room - 1), "the length is the text's");
    require(out.data() == message.substr(0, length), "a message is the start of the whole");
    const bool told = slzerrstr(se.slercerrno, reinterpret_cast<text *>(described.data()), room);
    require(told == known, "known numbers have a text");
    require(!told || described.data() == words.substr(0, room - 1), "it is the start of the whole");
  }
  return 0;
}
