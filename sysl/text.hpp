// The two kinds of character, made each other's: names are `text` at every interface of ours, and char
// at every call of the system. The one place where that is done.
#pragma once

#include "sysl/types.h"

namespace sysl {

inline const char *chars(const text *name) { return reinterpret_cast<const char *>(name); }
inline char *chars(text *name) { return reinterpret_cast<char *>(name); }

inline const text *texts(const char *name) { return reinterpret_cast<const text *>(name); }
inline text *texts(char *name) { return reinterpret_cast<text *>(name); }

}  // namespace sysl
