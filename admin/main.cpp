// Process entry of vdadm: the command line, the one handler of what goes wrong, standard output's end.
#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>
#include <CLI/CLI.hpp>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <new>
#include <vector>

#include "admin/session.hpp"

namespace vdadm {

void complain(const std::string &sentence) {
  std::fprintf(stderr, "vdadm: %s\n", report::printable(sentence).c_str());
}

namespace {

/// A file that is opened later must not become standard output: descriptors that are closed are taken
/// by one that can only fail.
void occupy_standard_files() {
  int fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
  while (fd >= 0 && fd <= STDERR_FILENO) fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
  if (fd >= 0) close(fd);
}

/// Results that did not arrive were not told, whatever they were.
int close_output(int status) {
  const bool failed_before = std::ferror(stdout) != 0;
  errno = 0;
  if (std::fflush(stdout) == 0 && !failed_before) return status;
  complain(
      fmt::format("The result could not be written to standard output{}{}. What was asked for "
                  "may have been done all the same.",
                  errno ? ": " : "", errno ? std::strerror(errno) : ""));
  return unknown;
}

void declare_session(CLI::App &parser, Session &session) {
  parser.add_flag("--json", session.format.json, "Print JSON");
  parser.add_option("--timeout", session.timeout, "Seconds that a disk has for an answer (30)")
      ->check(CLI::Range(0.001, 86400.0));
}

/// Behind "--" everything is a name, also what begins like a switch. The parser keeps to that only for
/// the first of several names, so they get another beginning.
std::vector<std::string> arguments_of(int argc, char **argv) {
  std::vector<std::string> arguments(argv + 1, argv + argc);
  const auto mark = std::find(arguments.begin(), arguments.end(), "--");
  for (auto name = mark; name != arguments.end(); ++name) {
    if (name != mark && name->starts_with('-')) *name = "./" + *name;
  }
  if (mark != arguments.end()) arguments.erase(mark);
  // The parser would take the brackets off, as those of a list.
  for (std::string &name : arguments) {
    if (name.starts_with('[') && name.ends_with(']')) name.insert(0, "./");
  }
  std::reverse(arguments.begin(), arguments.end());  // the order that the parser takes them in
  return arguments;
}

int parse_and_run(int argc, char **argv) {
  CLI::App app("Know a disk before it is stamped, and get it back afterwards.", "vdadm");
  app.set_version_flag("--version", "vdadm " VDADM_VERSION);
  app.require_subcommand(1);
  app.get_formatter()->column_width(28);
  Session session;
  std::vector<std::pair<CLI::App *, Work>> declared;
  for (const auto &[name, summary, declare] : commands()) {
    CLI::App *const parser = app.add_subcommand(name, summary);
    Options options(*parser);
    declared.emplace_back(parser, declare(options));
    declare_session(*parser, session);
  }
  try {
    app.parse(arguments_of(argc, argv));
  } catch (const CLI::Success &asked) {
    return close_output(app.exit(asked));
  } catch (const CLI::ParseError &error) {
    const std::string what = error.what();
    complain(fmt::format("{}{} Try 'vdadm --help'.", what, what.ends_with('.') ? "" : "."));
    return usage;
  }
  for (const auto &[parser, work] : declared) {
    if (parser->parsed()) return close_output(work(session));
  }
  return usage;
}

}  // namespace

}  // namespace vdadm

int main(int argc, char **argv) {
  using namespace vdadm;
  try {
    occupy_standard_files();
    // A reader that has gone is an error like any other, with a sentence and a status.
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
    return parse_and_run(argc, argv);
  } catch (const Failure &failure) {
    complain(failure.what());
    std::fflush(stdout);
    return failure.status();
  } catch (const std::bad_alloc &) {
    std::fputs("vdadm: There is not enough memory.\n", stderr);
  } catch (const std::exception &error) {
    std::fprintf(stderr, "vdadm: %s\n", error.what());
  }
  return unknown;
}
