// Normalised names: every name that a client hands in passes here before the file system sees it.
#pragma once

#include "skgfr/base/error_sites.hpp"
#include "skgfr/client.h"
#include "sysl/text.hpp"

namespace skgfr {

inline constexpr size_t name_room = sizeof(skgfrfib::fnm_skgfrfib);  // 512 characters and a NUL
static_assert(name_room == skgfr_longest_name + 1);

/// Normalises into out, of name_room bytes; false, with the recoded failure in se.
inline bool normalise(slerc *se, const text *name, size_t length, text *out, size_t *out_length,
                      const Site &site) {
  slnrm(se, name, length, out, name_room, out_length);
  if (!failed(se)) return true;
  recode(se, site);
  return false;
}

/// A name that lives for one operation.
class FileName {
 public:
  bool normalise(slerc *se, const text *name, size_t length, const Site &site) {
    return skgfr::normalise(se, name, length, name_, &length_, site);
  }
  const char *chars() const { return sysl::chars(name_); }
  char *chars() { return sysl::chars(name_); }

 private:
  text name_[name_room];
  size_t length_ = 0;
};

/// The name that identification left in a record.
inline const char *name_of(const skgfrfib *fib) { return sysl::chars(fib->fnm_skgfrfib); }

}  // namespace skgfr
