// Names at every size of output: translated, normalised, composed and searched for.
#include <unistd.h>

#include "fuzz/fuzz.hpp"
#include "skgfr/client.h"

using std::string;
static const text *texts(const string &s) { return reinterpret_cast<const text *>(s.c_str()); }

/// Runs operation(se, out, room, length) in every room: once it succeeds it does so for good, with
/// one result. That result; empty when there is none.
template <class Operation>
static string at_every_size(size_t least, Operation operation) {
  const std::vector<eword> codes = {7202, 7204, 7217, 7345, 7346, 7411, 7416};
  string result;
  bool good = false;
  for (size_t room = least; room <= 600; room += good ? 37 : 1) {
    std::vector<text> out(room, 0xA5);
    slerc se{};
    size_t length = 99;
    operation(&se, out.data(), room, &length);
    if (!good && se.slercoer) {
      const bool known = std::count(codes.begin(), codes.end(), se.slercoer) == 1;
      require(known && length == 0, "a failure has a known code and no length");
      continue;
    }
    require(!se.slercoer, "what fits a room fits a larger one");
    require(length < room && out[length] == 0, "a result ends in a NUL inside its room");
    const string now(out.data(), &out[length]);
    require(!good || now == result, "the room changes no result");
    good = true;
    result = now;
  }
  return result;
}

int LLVMFuzzerTestOneInput(const ub1 *data, size_t size) {
  static const int unset = setenv("TARVEX_HOME", "/h", 1) | setenv("TARVEX_SID", "inst", 1) |
                           setenv("TARVEX_PATH", "/nowhere:/dev", 1) | setenv("V", "val", 1) |
                           setenv("UP", "/..", 1) | setenv("LONG", string(300, 'v').c_str(), 1);
  require(unset == 0, "the environment is set");
  const std::vector<text> input(data, data + size);
  at_every_size(0, [&](auto se, auto... out) { sltln(se, input.data(), size, out...); });
  const string normal =
      at_every_size(0, [&](auto se, auto... out) { slnrm(se, input.data(), size, out...); });
  require(normal.empty() || normal[0] == '/' || normal[0] == '+', "a normalised name has a place");
  require(normal.find("//") == normal.npos, "a normalised name has no doubled slash");
  require((normal + "/").find("/../") == normal.npos, "a normalised name does not climb");
  string list(data, data + size);
  list.erase(std::min(size, list.find('\0')));
  const string name = list.substr(0, list.find('\n'));
  list.erase(0, name.size() + 1);
  require(("/" + name + "/").find("/../") == name.npos || slnpd(texts(name)), "a step up is seen");
  const string found =
      at_every_size(name.size() + 1, [&](auto se, auto out, auto room, auto length) {
        std::copy_n(texts(name), (*length = name.size()) + 1, out);
        sslpathi(se, texts(list), out, room, length);
      });
  require(found.empty() || found == name || access(found.c_str(), F_OK) == 0, "found, so there");
  const string whole = list + (list.empty() || list.back() == '/' ? "" : "/") + name + ".x";
  const string composed = at_every_size(0, [&](auto se, auto out, auto room, auto length) {
    slgfn(se, texts(list), texts(name), texts("x"), nullptr, out, room);
    *length = se->slercoer ? 0 : whole.size();
  });
  require(composed == (whole.size() < 600 ? whole : ""), "pieces are joined");

  const string literal = "/" + name;
  std::vector<text> kept(2 * literal.size() + 1);
  const size_t length =
      skgfr_protect_name(texts(literal), literal.size(), kept.data(), kept.size());
  const string taken =
      at_every_size(0, [&](auto se, auto... out) { sltln(se, kept.data(), length, out...); });
  require(taken == (literal.size() < 600 ? literal : ""), "a protected name is taken literally");
  return 0;
}
