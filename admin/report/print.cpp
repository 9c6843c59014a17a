// Reports for people: text, and tables with chosen columns. JSON is json.cpp's.
#include <fmt/format.h>
#include <libsmartcols.h>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <new>
#include <sstream>
#include <stdexcept>

#include "admin/report/report.hpp"
#include "admin/status.hpp"

namespace vdadm::report {

void print_json(const Object &object);
void print_json(const std::vector<Outcome> &outcomes);

namespace {

constexpr size_t key_width = 16;

/// A value on one line.
struct Line {
  std::string operator()(std::monostate) const { return "-"; }
  std::string operator()(bool truth) const { return truth ? "yes" : "no"; }
  std::string operator()(int64_t number) const { return fmt::format("{}", number); }
  std::string operator()(uint64_t number) const { return fmt::format("{}", number); }
  std::string operator()(double number) const { return fmt::format("{:.2f}", number); }
  std::string operator()(const std::string &text) const { return printable(text); }
  std::string operator()(Size size) const { return readable(size); }
  std::string operator()(Hex number) const { return fmt::format("{:#06x}", number.value); }
  std::string operator()(const List &list) const {
    std::string joined;
    for (const Value &value : list) {
      joined += (joined.empty() ? "" : ", ") + std::visit(*this, value.held());
    }
    return joined.empty() ? "none" : joined;
  }
  std::string operator()(const Object &object) const {
    std::string joined;
    for (const auto &[key, value] : object) {
      if (value.as<std::monostate>()) continue;
      joined += (joined.empty() ? "" : " ") + key + "=" + std::visit(*this, value.held());
    }
    return joined;
  }
};

std::string on_a_line(const Value &value) { return std::visit(Line{}, value.held()); }

void print_fields(const Object &object, size_t indent);

/// A list of objects takes a line each; an object its own lines. What is not known is left out.
void print_field(const Field &field, size_t indent) {
  std::string key = field.key;
  for (char &letter : key) letter = letter == '_' ? ' ' : letter;
  const std::string head(indent, ' ');
  if (const Object *const inner = field.value.as<Object>()) {
    fmt::print("{}{}\n", head, key);
    return print_fields(*inner, indent + 2);
  }
  const List *const list = field.value.as<List>();
  if (!list || list->empty()) {
    return fmt::print("{}{:<{}}{}\n", head, key, key_width, on_a_line(field.value));
  }
  for (const Value &value : *list) {
    fmt::print("{}{:<{}}{}\n", head, &value == list->data() ? key : "", key_width,
               on_a_line(value));
  }
}

void print_fields(const Object &object, size_t indent) {
  for (const Field &field : object) {
    if (!field.value.as<std::monostate>()) print_field(field, indent);
  }
}

/// The first field is the heading.
void print_text(const Outcome &outcome) {
  if (!outcome.sentences.empty()) {
    for (const std::string &sentence : outcome.sentences) fmt::print("{}\n", printable(sentence));
    return;
  }
  if (outcome.object.empty()) return;
  fmt::print("{}\n", on_a_line(outcome.object.front().value));
  print_fields({outcome.object.begin() + 1, outcome.object.end()}, 2);
}

/// The value of "key" or "object.key".
const Value &cell(const Object &object, const std::string &column) {
  const size_t dot = column.find('.');
  const Value &value = value_of(object, column.substr(0, dot));
  const Object *const inner = value.as<Object>();
  return dot == std::string::npos || !inner ? value : value_of(*inner, column.substr(dot + 1));
}

bool has_key(const Object &object, const std::string &key) {
  return std::any_of(object.begin(), object.end(),
                     [&](const Field &field) { return field.key == key; });
}

void check(int refused) {
  if (refused != 0) throw std::bad_alloc();
}

void print_table(const std::vector<Outcome> &outcomes, const std::string &columns) {
  const std::unique_ptr<libscols_table, decltype(&scols_unref_table)> table(scols_new_table(),
                                                                            scols_unref_table);
  if (!table) throw std::bad_alloc();
  std::vector<std::string> keys;
  std::istringstream words(columns);
  for (std::string key; std::getline(words, key, ',');) {
    if (!outcomes.empty() && !has_key(outcomes.front().object, key.substr(0, key.find('.')))) {
      throw Failure(fmt::format("There is no key {} for a column.", key), usage);
    }
    keys.push_back(key);
    std::string heading = key;
    for (char &letter : heading) letter = static_cast<char>(std::toupper(letter));
    if (!scols_table_new_column(table.get(), heading.c_str(), 0, 0)) throw std::bad_alloc();
  }
  for (const Outcome &outcome : outcomes) {
    libscols_line *const line = scols_table_new_line(table.get(), nullptr);
    if (!line) throw std::bad_alloc();
    for (size_t at = 0; at < keys.size(); ++at) {
      check(scols_line_set_data(line, at, on_a_line(cell(outcome.object, keys[at])).c_str()));
    }
  }
  if (scols_print_table(table.get()) != 0) throw std::runtime_error("The table cannot be printed.");
}

}  // namespace

void print(const Outcome &outcome, const Format &format) {
  if (format.json) return print_json(outcome.object);
  if (!format.columns.empty()) return print_table({outcome}, format.columns);
  print_text(outcome);
}

void print(const std::vector<Outcome> &outcomes, const Format &format) {
  if (format.json) return print_json(outcomes);
  if (!format.columns.empty()) return print_table(outcomes, format.columns);
  for (const Outcome &outcome : outcomes) print_text(outcome);
}

}  // namespace vdadm::report
