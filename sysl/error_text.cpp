// Turns error numbers and error records into text for a person.
//
// Knows the record's fields but not what any code means: the message texts of codes are not ours.
#include <cstring>

#include "sysl/sysl.h"
#include "sysl/text.hpp"

namespace {

constexpr char unknown_number[] = "Unknown error";  // how the C library words a number it lacks
constexpr size_t error_text_room = 256;
constexpr size_t line_room = 64;  // both headings with a signed 32-bit number fit

/// Appends pieces to a bounded buffer; what does not fit is dropped.
class Message {
 public:
  Message(text *out, size_t room) : out_(out), room_(room) {}

  void append(const char *piece, size_t length) {
    if (length > room_ - used_) length = room_ - used_;
    std::memcpy(out_ + used_, piece, length);
    used_ += length;
  }

  void append(const text *piece) { append(sysl::chars(piece), std::strlen(sysl::chars(piece))); }

  /// Puts the NUL over the last character, normally the newline that ends the last line.
  size_t finish() {
    if (used_ > 0) --used_;
    out_[used_] = 0;
    return used_;
  }

 private:
  text *out_;
  size_t room_;
  size_t used_ = 0;
};

void append_system_error(Message &message, int error) {
  text line[line_room];
  lstprintf(line, "%s Error: %d: ", "Linux", error);
  message.append(line);

  text description[error_text_room];
  if (slzerrstr(error, description, sizeof description)) {
    message.append(description);
  } else {
    message.append("Unknown system error", sizeof "Unknown system error" - 1);
  }
  message.append("\n", 1);
}

}  // namespace

text *slzerrstr(int errnum, text *buf, size_t bufsize) {
  const char *description = strerror(errnum);
  if (!description) return nullptr;
  if (std::strncmp(description, unknown_number, sizeof unknown_number - 1) == 0) return nullptr;
  if (std::strcmp(description, "Success") == 0) description = "Error 0";

  const size_t length = strnlen(description, bufsize - 1);
  std::memcpy(buf, description, length);
  buf[length] = 0;
  return buf;
}

size_t slcgems(slerc *se, text *buf, size_t bufsize) {
  if (!se) return 0;

  Message message(buf, bufsize);
  if (se->slercerrno > 0) append_system_error(message, se->slercerrno);
  for (const ub4 word : se->slercose) {
    if (word == 0) continue;
    text line[line_room];
    lstprintf(line, "Additional information: %d\n", static_cast<sb4>(word));
    message.append(line);
  }
  return message.finish();
}
