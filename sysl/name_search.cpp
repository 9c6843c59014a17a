// Looks a relative name up along a list of directories, and composes names from their pieces.
//
// Knows nothing of translation. The search list of the process is read once and kept for good.
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "sysl/error_sites.hpp"
#include "sysl/sysl.h"
#include "sysl/text.hpp"

namespace {

using namespace sysl;

constexpr size_t path_room = 512;  // 511 characters and a NUL

/// The search list of the process; null until the first search filled it.
const char *search_list = nullptr;

/// Fills the search list from the environment variable unless an earlier call did.
bool fill_search_list(slerc *se, const text *variable) {
  if (search_list) return true;
  const char *const value = std::getenv(chars(variable));
  if (!value || !*value) {
    search_list = "";
    return true;
  }
  errno = 0;
  char *const copy = strdup(value);
  // Compilers take allocations to leave errno alone, and would read the 0 of above.
  std::atomic_signal_fence(std::memory_order_seq_cst);
  if (!copy) {
    fail(se, sites::search_list_no_memory, errno);
    return false;
  }
  search_list = copy;
  return true;
}

/// Composes one list element with the name into path; false once the record holds a failure.
bool compose(slerc *se, const char *element, size_t length, const text *name, text *path) {
  if (length >= path_room) {
    fail(se, sites::search_element_too_long, 0, path_room, static_cast<ub4>(length));
    return false;
  }
  text directory[path_room];
  std::memcpy(directory, element, length);
  directory[length] = 0;
  slgfn(se, directory, name, texts(""), nullptr, path, path_room);
  return !failed(se);
}

/// Takes the file found in place of the name, or refuses it when it does not fit.
void take(slerc *se, const text *path, text *name, size_t room, size_t *namel) {
  const size_t length = std::strlen(chars(path));
  *namel = 0;
  if (length >= room) {
    fail(se, sites::search_element_too_long, 0, static_cast<ub4>(room), static_cast<ub4>(length));
    return;
  }
  std::memcpy(name, path, length + 1);
  *namel = length;
}

}  // namespace

void slgfn(slerc *se, const text *dir, const text *name, const text *ext, const text *, text *out,
           size_t outsize) {
  begin(se);
  const size_t dir_length = std::strlen(chars(dir));
  const size_t name_length = std::strlen(chars(name));
  const size_t ext_length = std::strlen(chars(ext));
  const bool slash = dir_length > 0 && dir[dir_length - 1] != '/';
  const bool dot = ext_length > 0;
  if (outsize <= dir_length + slash + name_length + dot + ext_length) {
    fail(se, sites::composed_name_too_long);
    return;
  }
  lstprintf(out, "%s%s%s%s%s", chars(dir), slash ? "/" : "", chars(name), dot ? "." : "",
            chars(ext));
}

void sslpath(slerc *se, const text *var, text *name, size_t namesize, size_t *namel) {
  if (!fill_search_list(se, var)) {
    *namel = 0;
    return;
  }
  sslpathi(se, texts(search_list), name, namesize, namel);
}

void sslpathi(slerc *se, const text *list, text *name, size_t namesize, size_t *namel) {
  begin_code_only(se);
  if (name[0] == '/') return;

  for (const char *element = chars(list); *element;) {
    const size_t length = std::strcspn(element, ":");
    text path[path_room];
    if (!compose(se, element, length, name, path)) {
      *namel = 0;
      return;
    }
    if (access(chars(path), F_OK) == 0) {
      take(se, path, name, namesize, namel);
      return;
    }
    element += length;
    if (*element == ':') ++element;
  }
}

void sslpath2(slerc *se, const text *var, text *name, size_t namesize, size_t *namel) {
  const char *const value = std::getenv(chars(var));
  sslpathi(se, value ? texts(value) : var, name, namesize, namel);
}
