// The arguments of a subcommand: how it says what it can be given. Hides the library that parses them.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace vdadm {

/// What is said of an argument. Names without dashes are those of arguments that are told by their place.
struct Option {
  const char *name;
  std::string help;
  const char *value = "TEXT";  // stands in the help for what is given
  bool required = false;
  std::vector<std::string> choices{};  // none: anything
};

/// Takes over a value, and returns what is wrong with it, as a sentence; nothing when it is good.
using Take = std::function<std::string(const std::string &value)>;

class Options {
 public:
  explicit Options(CLI::App &parser) : parser_(parser) {}

  void flag(const Option &option, bool &given);
  void value(const Option &option, std::string &value);
  void values(const Option &option, std::vector<std::string> &values);

  /// One value, or one each time that it is given.
  void taken(const Option &option, const Take &take);
  void repeated(const Option &option, const Take &take);

 private:
  CLI::App &parser_;
};

}  // namespace vdadm
