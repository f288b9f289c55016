// Formatting helpers of AString.
#include "core/AString.h"

#include <cstdio>

AString AString::Format(const char* format, ...) {
  va_list args;
  va_start(args, format);
  AString result = FormatV(format, args);
  va_end(args);
  return result;
}

AString AString::FormatV(const char* format, va_list args) {
  char small[256];
  va_list copy;
  va_copy(copy, args);
  const int needed = std::vsnprintf(small, sizeof small, format, copy);
  va_end(copy);
  if (needed < 0) return AString();
  if (static_cast<size_t>(needed) < sizeof small) return AString(small, static_cast<size_t>(needed));
  AString result(static_cast<size_t>(needed), '\0');
  std::vsnprintf(result.data(), result.size() + 1, format, args);
  return result;
}
