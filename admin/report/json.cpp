// Reports as JSON, and packed for the way from one process to another.
#include <cstdio>
#include <nlohmann/json.hpp>

#include "admin/report/report.hpp"

namespace vdadm::report {

namespace {

using Json = nlohmann::ordered_json;

Json to_json(const Object &object);

/// The document that scripts read.
struct Document {
  Json operator()(std::monostate) const { return nullptr; }
  Json operator()(bool truth) const { return truth; }
  Json operator()(int64_t number) const { return number; }
  Json operator()(uint64_t number) const { return number; }
  Json operator()(double number) const { return number; }
  Json operator()(const std::string &text) const { return printable(text); }
  Json operator()(Size size) const { return size.bytes; }
  Json operator()(Hex number) const { return number.value; }
  Json operator()(const List &list) const {
    Json array = Json::array();
    for (const Value &value : list) array.push_back(std::visit(*this, value.held()));
    return array;
  }
  Json operator()(const Object &object) const { return to_json(object); }
};

Json to_json(const Object &object) {
  Json result = Json::object();
  for (const Field &field : object) result[field.key] = std::visit(Document{}, field.value.held());
  return result;
}

/// The same on one line, written as it comes: of thousands of results, the document would cost more than
/// what they tell of.
struct Writer {
  std::string &line;

  void operator()(std::monostate) const { line += "null"; }
  void operator()(bool truth) const { line += truth ? "true" : "false"; }
  void operator()(int64_t number) const { line += std::to_string(number); }
  void operator()(uint64_t number) const { line += std::to_string(number); }
  void operator()(double number) const { line += Json(number).dump(); }
  void operator()(Size size) const { (*this)(size.bytes); }
  void operator()(Hex number) const { (*this)(number.value); }
  void operator()(const std::string &text) const {
    line += '"';
    for (const char c : printable(text)) {
      if (c == '"' || c == '\\') line += '\\';
      line += c;
    }
    line += '"';
  }
  void operator()(const List &list) const {
    line += '[';
    for (const Value &value : list) {
      if (&value != list.data()) line += ',';
      std::visit(*this, value.held());
    }
    line += ']';
  }
  void operator()(const Object &object) const {
    line += '{';
    for (const Field &field : object) {
      if (&field != object.data()) line += ',';
      line += '"' + field.key + "\":";
      std::visit(*this, field.value.held());
    }
    line += '}';
  }
};

/// [kind of value, value]: nothing is lost.
Json packed(const Value &value) {
  Json content;
  if (const List *const list = value.as<List>()) {
    content = Json::array();
    for (const Value &element : *list) content.push_back(packed(element));
  } else if (const Object *const object = value.as<Object>()) {
    content = Json::array();
    for (const Field &field : *object) {
      content.push_back(Json::array({field.key, packed(field.value)}));
    }
  } else if (const std::string *const text = value.as<std::string>()) {
    content = *text;
  } else {
    content = std::visit(Document{}, value.held());
  }
  return Json::array({value.held().index(), content});
}

template <size_t Index>
Value scalar(const Json &content) {
  return std::variant_alternative_t<Index, Value::Held>(
      content.get<std::variant_alternative_t<Index, Value::Held>>());
}

Value unpacked(const Json &pair) {
  const Json &content = pair.at(1);
  switch (pair.at(0).get<size_t>()) {
    case 1: return scalar<1>(content);
    case 2: return scalar<2>(content);
    case 3: return scalar<3>(content);
    case 4: return scalar<4>(content);
    case 5: return scalar<5>(content);
    case 6: return Size{content.get<uint64_t>()};
    case 7: return Hex{content.get<uint64_t>()};
    case 8: {
      List list;
      for (const Json &element : content) list.push_back(unpacked(element));
      return list;
    }
    case 9: {
      Object object;
      for (const Json &field : content) {
        object.push_back({field.at(0).get<std::string>(), unpacked(field.at(1))});
      }
      return object;
    }
    default: return {};
  }
}

}  // namespace

void print_json(const Object &object) { std::puts(to_json(object).dump(2).c_str()); }

void print_json(const std::vector<Outcome> &outcomes) {
  Json array = Json::array();
  for (const Outcome &outcome : outcomes) array.push_back(to_json(outcome.object));
  std::puts(array.dump(2).c_str());
}

std::string json_line(const Object &object) {
  std::string line;
  Writer{line}(object);
  return line;
}

void print_line(const Object &object) { std::puts(json_line(object).c_str()); }

void print_array(const std::vector<std::string> &documents) {
  std::fputs("[", stdout);
  for (const std::string &document : documents) {
    std::fputs(&document == documents.data() ? "\n" : ",\n", stdout);
    std::fputs(document.c_str(), stdout);
  }
  std::puts(documents.empty() ? "]" : "\n]");
}

std::string pack(const Outcome &outcome) {
  const Json all = Json::array({outcome.status, packed(outcome.object), outcome.sentences});
  std::string bytes;
  Json::to_cbor(all, bytes);
  return bytes;
}

Outcome unpack(const std::string &bytes) {
  const Json all = Json::from_cbor(bytes);
  return {all.at(0).get<int>(), *unpacked(all.at(1)).as<Object>(),
          all.at(2).get<std::vector<std::string>>()};
}

}  // namespace vdadm::report
