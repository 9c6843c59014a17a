// Makes a client's name the one that is used: translated, absolute, without "..", "//" and "/./".
//
// Knows nothing of the file system; only the translation below it looks for files.
#include <cstring>

#include "sysl/error_sites.hpp"
#include "sysl/sysl.h"
#include "sysl/text.hpp"

namespace {

using namespace sysl;

constexpr size_t longest_absolute = 512;
const text default_directory[] = "?/dbs";

size_t length_of(const text *name) { return std::strlen(chars(name)); }

bool is_placed(const text *name) { return name[0] == '/' || name[0] == '+'; }

/// Puts the home directory's "dbs" and a "/" in front of the name.
bool place_under_home(slerc *se, text *name, size_t room) {
  text directory[longest_absolute + 1];
  size_t directory_length = 0;
  sltln(se, default_directory, sizeof default_directory - 1, directory, sizeof directory,
        &directory_length);
  if (failed(se)) return false;

  const size_t name_length = length_of(name);
  const size_t joined = directory_length + 1 + name_length;
  if (joined + 1 > room || joined > longest_absolute) {
    fail(se, sites::name_absolute_too_long, 0, static_cast<ub4>(joined + 1), static_cast<ub4>(room),
         longest_absolute);
    return false;
  }
  std::memmove(name + directory_length + 1, name, name_length + 1);
  std::memcpy(name, directory, directory_length);
  name[directory_length] = '/';
  return true;
}

void remove_doubled_slashes(text *name) {
  text *to = name;
  for (const text *from = name; *from; ++from) {
    if (*from == '/' && to > name && to[-1] == '/') continue;
    *to++ = *from;
  }
  *to = 0;
}

void remove_current_directory_steps(text *name) {
  text *to = name;
  for (const text *from = name; *from;) {
    if (to > name && to[-1] == '/' && from[0] == '.' && from[1] == '/') {
      from += 2;
      continue;
    }
    *to++ = *from++;
  }
  *to = 0;
}

}  // namespace

int slnpd(const text *name) {
  const char *const start = sysl::chars(name);
  const char *const climb = std::strstr(start, "..");
  if (!climb) return 0;
  const char *const slash = std::strrchr(start, '/');
  return climb <= (slash ? slash + 1 : start) ? 1 : 0;
}

void slnrm(slerc *se, const text *name, size_t namel, text *out, size_t outsize, size_t *outl) {
  sltln(se, name, namel, out, outsize, outl);
  if (failed(se)) return;
  *outl = 0;
  if (slnpd(out)) {
    fail(se, sites::name_climbs);
    return;
  }
  if (!is_placed(out) && !place_under_home(se, out, outsize)) return;
  remove_doubled_slashes(out);
  remove_current_directory_steps(out);
  *outl = length_of(out);
}
