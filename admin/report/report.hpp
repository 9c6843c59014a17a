// What a subcommand has found out: named, typed values, printed as text, as a table or as JSON.
//
// The one model of all subcommands. Knows nothing of disks.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace vdadm::report {

/// A number of bytes: a person also reads it in units.
struct Size {
  uint64_t bytes;
};

/// A number that people read in hexadecimal.
struct Hex {
  uint64_t value;
};

class Value;
struct Field;
using List = std::vector<Value>;
using Object = std::vector<Field>;

/// One value; without any, it is unknown or not there (null).
class Value {
 public:
  using Held = std::variant<std::monostate, bool, int64_t, uint64_t, double, std::string, Size, Hex,
                            List, Object>;
  Value();
  Value(const Value &);
  Value(Value &&) noexcept;
  Value &operator=(const Value &);
  Value &operator=(Value &&) noexcept;
  ~Value();
  template <class Type>
  requires(!std::is_same_v<Type, Value> && std::is_constructible_v<Held, Type>) Value(Type held)
      : held_(std::move(held)) {}
  Value(const char *chars);
  Value(int number);
  Value(unsigned number);

  const Held &held() const { return held_; }
  template <class Type>
  const Type *as() const {
    return std::get_if<Type>(&held_);
  }

 private:
  Held held_;
};

/// Keys are in lower case with underscores, and stay.
struct Field {
  std::string key;
  Value value;
};

// Down here, where a Field is complete.
inline Value::Value() = default;
inline Value::Value(const Value &) = default;
inline Value::Value(Value &&) noexcept = default;
inline Value &Value::operator=(const Value &) = default;
inline Value &Value::operator=(Value &&) noexcept = default;
inline Value::~Value() = default;
inline Value::Value(const char *chars) : held_(std::string(chars)) {}
inline Value::Value(int number) : held_(static_cast<int64_t>(number)) {}
inline Value::Value(unsigned number) : held_(static_cast<uint64_t>(number)) {}

/// The value of a key, null where there is none.
const Value &value_of(const Object &object, std::string_view key);

/// What one piece of work came to: its part of the exit status, its object, and what a person is
/// told instead of the object, where that says it better.
struct Outcome {
  int status = 0;
  Object object;
  std::vector<std::string> sentences;
};

/// How results are printed.
struct Format {
  bool json = false;
  std::string columns;  // of a table, joined by commas; empty: text
};

/// Prints one object; sentences instead, when there are any and people read it.
void print(const Outcome &outcome, const Format &format);

/// Prints a list: an array in JSON, also when it is empty.
void print(const std::vector<Outcome> &outcomes, const Format &format);

/// A JSON document on one line, for output that comes piece by piece.
void print_line(const Object &object);
std::string json_line(const Object &object);

/// Prints documents that are made already as an array.
void print_array(const std::vector<std::string> &documents);

/// A size in units and in bytes.
std::string readable(Size size);

/// Printable everywhere: control characters and bytes that are not UTF-8 become \xNN. With any such
/// byte, a backslash that was there becomes \x5c, so that the original can be told.
std::string printable(std::string_view raw);

/// The bytes of a name in hexadecimal when printable() would change it; else null.
Value bytes_if_escaped(std::string_view raw);

/// The outcome as bytes and back, for results that come from another process.
std::string pack(const Outcome &outcome);
Outcome unpack(const std::string &bytes);

}  // namespace vdadm::report
