// AString: the string type used throughout the library. A thin layer over
// std::string that adds printf-style construction for messages and file lines.
#pragma once

#include <cstdarg>
#include <string>
#include <string_view>

class AString : public std::string {
 public:
  using std::string::string;
  AString() = default;
  AString(const std::string& s) : std::string(s) {}
  AString(std::string&& s) noexcept : std::string(std::move(s)) {}
  AString(std::string_view s) : std::string(s) {}

  // printf-style formatting into a new string.
  static AString Format(const char* format, ...) __attribute__((format(printf, 1, 2)));
  static AString FormatV(const char* format, va_list args);
};
