// Writes a name so that its translation gives it back unchanged.
//
// Knows which characters the translation of names acts on, and nothing of files.
#include "skgfr/client.h"

namespace {

// "}" acts only behind a "$" that nothing protects, so it needs no protection itself.
bool acts(text c) { return c == '@' || c == '?' || c == '$' || c == '\\'; }

}  // namespace

size_t skgfr_protect_name(const text *name, size_t namel, text *out, size_t outsize) {
  size_t length = namel;
  for (size_t i = 0; i < namel; ++i) length += acts(name[i]);
  if (length == 0 || length >= outsize) return 0;

  for (size_t i = 0; i < namel; ++i) {
    if (acts(name[i])) *out++ = '\\';
    *out++ = name[i];
  }
  *out = 0;
  return length;
}
