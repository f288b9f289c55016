// Number output for the export writers that prints exactly what printf's
// %G/%g and %E/%e conversions print, without going through printf: the
// correctly rounded digits (std::to_chars, or a shorter way that provably
// gives the same) laid out by the C rules.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace nd {

// Largest precision the fast paths lay out themselves; larger ones (rare,
// and their output can run to hundreds of digits) go through snprintf.
constexpr int kMaxFastPrecision = 40;

// Appends printf("%*.*G", width, precision, value) to `out` ("%-*.*G" with
// `leftJustify`, %g with lower-case letters when `upperCase` is false).
void AppendGeneral(std::string& out, double value, int precision, int width = 0,
                   bool leftJustify = false, bool upperCase = true);

// Appends printf("%*.*E", width, precision, value) to `out`, likewise.
void AppendExponent(std::string& out, double value, int precision, int width = 0,
                    bool leftJustify = false, bool upperCase = true);

// A printf format with exactly one floating conversion and fixed text around
// it ("%-16.8G ", "%-.6EGHZ "), parsed once and applied to many values.
// %G, %g, %E and %e with the '-' flag, a width, a precision and an optional
// 'l' take the fast path; any other floating conversion (%f, the '+', ' ',
// '#' and '0' flags) is handed to snprintf with the format as given.
class CNumberFormat {
 public:
  // A format without exactly one floating conversion (or with '*' widths)
  // is a programming error: it is reported, and Append and Write then write
  // nothing.
  explicit CNumberFormat(std::string_view format);

  void Append(std::string& out, double value) const;
  // The most bytes one value takes; Write needs one more (snprintf's zero).
  size_t MaxSize() const;
  // Writes one value at `out` (MaxSize() + 1 bytes of room) and returns
  // the end: for lines built in a plain buffer.
  char* Write(char* out, double value) const;

  bool IsValid() const { return m_Valid; }
  bool IsFast() const { return m_Fast; }

 private:
  std::string m_Format;  // as given, for snprintf
  std::string m_Prefix;  // fixed text with "%%" reduced to "%"
  std::string m_Suffix;
  int m_Width = 0;
  int m_Precision = 6;
  bool m_Left = false;
  bool m_Exponent = false;  // E/e rather than G/g
  bool m_Upper = true;
  bool m_Valid = false;
  bool m_Fast = false;
};

}  // namespace nd
