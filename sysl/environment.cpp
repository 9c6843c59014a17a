// Reads and sets environment variables, by names that need no NUL.
//
// Touches slercoer only: callers that care for the other fields set them themselves.
#include <cstdlib>
#include <cstring>

#include "sysl/error_sites.hpp"
#include "sysl/sysl.h"

namespace {

using namespace sysl;

constexpr size_t name_room = 32;  // 31 characters and a NUL
constexpr size_t longest_value = 4096;
constexpr int longest_chain = 256;

/// No value, with the result -1, or a call that cannot be served, with -2.
sword refuse(slerc *se, const Site &site) {
  fail_code_only(se, site);
  return site.code == sites::environment_no_value.code ? -1 : -2;
}

/// Follows values as names until one is not set; null when the chain does not end.
const char *follow_chain(const char *value) {
  for (int found = 1; found < longest_chain; ++found) {
    const char *const next = std::getenv(value);
    if (!next) return value;
    value = next;
  }
  return nullptr;
}

}  // namespace

sword slzgetevar(slerc *se, const text *name, size_t namel, text *dst, size_t dstsize,
                 uword flags) {
  if (!se) return -2;
  if (!name || namel == 0 || !dst || dstsize == 0) {
    return refuse(se, sites::environment_bad_call);
  }
  begin_code_only(se);
  if (name[0] == 0) return refuse(se, sites::environment_bad_call);
  if (namel >= name_room) return refuse(se, sites::environment_too_long);

  char key[name_room];
  std::memcpy(key, name, namel);
  key[namel] = 0;
  const char *value = std::getenv(key);
  if (!value) return refuse(se, sites::environment_no_value);
  if (flags & 1u) value = follow_chain(value);
  if (!value) return refuse(se, sites::environment_bad_call);

  const size_t length = std::strlen(value);
  if (length == 0) return refuse(se, sites::environment_no_value);
  std::memcpy(dst, value, length < dstsize ? length : dstsize);
  if (length > dstsize || length > longest_value) return refuse(se, sites::environment_too_long);
  return static_cast<sword>(length);
}

sword slzsetevar(slerc *se, const text *name, size_t namel, const text *value, size_t valuel) {
  begin_code_only(se);
  if (!name || namel == 0) {
    fail_code_only(se, sites::environment_bad_call);
    return 0;
  }
  char *const entry = static_cast<char *>(std::malloc(namel + valuel + 2));
  if (!entry) {
    fail_code_only(se, sites::environment_no_memory);
    return 0;
  }
  std::memcpy(entry, name, namel);
  entry[namel] = '=';
  if (valuel > 0) std::memcpy(entry + namel + 1, value, valuel);
  entry[namel + 1 + valuel] = 0;

  if (putenv(entry) != 0) {
    std::free(entry);
    fail_code_only(se, sites::environment_bad_call);
    return 0;
  }
  return 1;  // the entry belongs to the environment now; NOLINT(clang-analyzer-unix.Malloc)
}
