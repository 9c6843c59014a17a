// Translates a client's name: "?", "@", "$name", "${name}" and the backslash.
//
// Works character by character from the input to the output; knows nothing of directories. The
// search along the path list, which ends every translation, is name_search's.
#include <algorithm>
#include <cstring>

#include "sysl/error_sites.hpp"
#include "sysl/sysl.h"

namespace {

using namespace sysl;

const text home_variable[] = "TARVEX_HOME";
const text instance_variable[] = "TARVEX_SID";
const text search_list_variable[] = "TARVEX_PATH";

bool is_name_character(text c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
}

/// A "$" whose name has not ended yet: where it stands in the input and in the output.
struct Reference {
  bool open = false;
  size_t from = 0;
  size_t to = 0;
};

/// One translation. Steps answer false once the record holds a failure.
class Translation {
 public:
  Translation(slerc *se, const text *in, size_t length, text *out, size_t room)
      : se_(se), in_(in), length_(length), out_(out), room_(room) {}

  bool run() {
    while (from_ < length_) {
      if (!step()) return false;
    }
    if (plain_.open && !end_plain_reference()) return false;
    if (to_ >= room_) return too_long();
    out_[to_] = 0;
    return true;
  }

  size_t output_length() const { return to_; }

 private:
  bool step() {
    if (to_ >= room_) return too_long();
    const text c = in_[from_];
    if (c == 0 && from_ + 1 < length_) return refuse_null();
    if (plain_.open && !is_name_character(c) && c != '}') {
      // The value may have filled the room, so this character may not fit behind it.
      if (!end_plain_reference()) return false;
      if (to_ >= room_) return too_long();
    }
    switch (c) {
      case '@': return substitute(instance_variable, sizeof instance_variable - 1);
      case '?': return substitute(home_variable, sizeof home_variable - 1);
      case '\\': return take_next_literally();
      case '$': return open_reference();
      case '}': return braced_.open ? end_braced_reference() : copy(c);
      default: return copy(c);
    }
  }

  bool copy(text c) {
    out_[to_++] = c;
    ++from_;
    return true;
  }

  /// A backslash that ends the input has nothing to protect and stands for itself.
  bool take_next_literally() {
    if (from_ + 1 == length_) return copy('\\');
    ++from_;
    if (in_[from_] == 0 && from_ + 1 < length_) return refuse_null();
    return copy(in_[from_]);
  }

  /// The reference's text is copied like any other until its end is known.
  bool open_reference() {
    const bool braced = from_ + 1 < length_ && in_[from_ + 1] == '{';
    (braced ? braced_ : plain_) = Reference{true, from_, to_};
    return copy('$');
  }

  bool substitute(const text *variable, size_t length) {
    if (!put_value(variable, length, Reference{true, from_, to_})) return false;
    ++from_;
    return true;
  }

  bool end_plain_reference() {
    plain_.open = false;
    const size_t name = plain_.from + 1;
    return put_value(in_ + name, from_ - name, plain_);
  }

  /// A plain reference that opened inside the braces is part of their name and ends with them.
  bool end_braced_reference() {
    braced_.open = plain_.open = false;
    const size_t name = braced_.from + 2;
    if (!put_value(in_ + name, from_ - name, braced_)) return false;
    ++from_;
    return true;
  }

  /// Writes the variable's value over everything from the reference's place in the output on.
  bool put_value(const text *variable, size_t length, const Reference &reference) {
    const size_t room = room_ - reference.to;
    const sword copied = slzgetevar(se_, variable, length, out_ + reference.to, room, 0);
    if (copied <= 0) return unreadable(reference);
    to_ = reference.to + static_cast<size_t>(copied);
    return true;
  }

  /// Leaves the rest of the input, untranslated, so that the caller can show where it went wrong.
  bool unreadable(const Reference &reference) {
    const size_t rest = std::min(length_ - reference.from, room_ - reference.to - 1);
    std::memmove(out_ + reference.to, in_ + reference.from, rest);
    out_[reference.to + rest] = 0;
    fail(se_, sites::name_variable_unreadable);
    return false;
  }

  bool too_long() {
    out_[room_ - 1] = 0;
    fail(se_, sites::name_too_long, 0, static_cast<ub4>(room_));
    return false;
  }

  bool refuse_null() {
    fail(se_, sites::name_bad_argument);
    return false;
  }

  slerc *se_;
  const text *in_;
  size_t length_;
  text *out_;
  size_t room_;
  size_t from_ = 0;  // next input character
  size_t to_ = 0;    // next output position
  Reference plain_;
  Reference braced_;
};

}  // namespace

void sltln(slerc *se, const text *name, size_t namel, text *out, size_t outsize, size_t *outl) {
  begin(se);
  *outl = 0;
  if (!name || namel == 0 || !out || outsize == 0) {
    fail(se, sites::name_bad_argument);
    return;
  }
  Translation translation(se, name, namel, out, outsize);
  if (!translation.run()) return;
  *outl = translation.output_length();
  sslpath(se, search_list_variable, out, outsize, outl);
}
