// Declares arguments to the library that parses them; main.cpp has it parse.
#include "admin/options.hpp"

#include <CLI/CLI.hpp>

namespace vdadm {

namespace {

using Words = std::vector<std::string>;

void describe(CLI::Option &declared, const Option &option) {
  declared.required(option.required)->type_name(option.value);
  if (!option.choices.empty()) declared.check(CLI::IsMember(option.choices));
}

CLI::Option &declare_taken(CLI::App &parser, const Option &option, const Take &take) {
  const auto take_all = [name = std::string(option.name), take](const Words &words) {
    for (const std::string &word : words) {
      const std::string wrong = take(word);
      if (!wrong.empty()) throw CLI::ValidationError(name, wrong);
    }
  };
  CLI::Option &declared = *parser.add_option_function<Words>(option.name, take_all, option.help);
  describe(declared, option);
  return *declared.expected(1)->allow_extra_args(false);
}

}  // namespace

void Options::flag(const Option &option, bool &given) {
  parser_.add_flag(option.name, given, option.help)->required(option.required);
}

void Options::value(const Option &option, std::string &value) {
  describe(*parser_.add_option(option.name, value, option.help), option);
}

void Options::values(const Option &option, std::vector<std::string> &values) {
  describe(*parser_.add_option(option.name, values, option.help), option);
}

void Options::taken(const Option &option, const Take &take) {
  declare_taken(parser_, option, take);
}

void Options::repeated(const Option &option, const Take &take) {
  declare_taken(parser_, option, take).multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
}

}  // namespace vdadm
