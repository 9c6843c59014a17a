// Formatted output: to standard output and into a buffer. Knows no format of its own.
#include <cstdarg>
#include <cstdio>

#include "sysl/sysl.h"
#include "sysl/text.hpp"

int slzprintf(const char *fmt, ...) {
  va_list arguments;
  va_start(arguments, fmt);
  const int written = std::vprintf(fmt, arguments);
  va_end(arguments);
  return written;
}

int lstprintf(text *dst, const char *fmt, ...) {
  va_list arguments;
  va_start(arguments, fmt);
  const int written = std::vsprintf(sysl::chars(dst), fmt, arguments);
  va_end(arguments);
  return written;
}
