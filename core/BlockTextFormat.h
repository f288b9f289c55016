// Shared by the reader and the writer of the text form of block trees: the
// character classes of names and bare tokens, the bits of special reals,
// and the writer's pieces the reader's messages reuse. Internal to core/.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

#include "core/Block.h"

namespace io::blocktext {

// ---- Character classes ----------------------------------------------------

enum : std::uint8_t {
  kIdentStart = 1,  // [A-Za-z_]
  kIdentChar = 2,   // [A-Za-z0-9_]
  kWordChar = 4,    // what continues a bare token: identifier characters and . + -
  kDigit = 8,
};

constexpr std::array<std::uint8_t, 256> MakeClasses() {
  std::array<std::uint8_t, 256> t{};
  for (int c = 0; c < 256; ++c) {
    const bool alpha = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_';
    const bool digit = c >= '0' && c <= '9';
    std::uint8_t f = 0;
    if (alpha) f |= kIdentStart;
    if (alpha || digit) f |= kIdentChar | kWordChar;
    if (digit) f |= kDigit;
    if (c == '.' || c == '+' || c == '-') f |= kWordChar;
    t[static_cast<size_t>(c)] = f;
  }
  return t;
}
constexpr std::array<std::uint8_t, 256> kClass = MakeClasses();

inline bool Is(char c, std::uint8_t cls) { return (kClass[static_cast<unsigned char>(c)] & cls) != 0; }

constexpr std::uint64_t kSignBit = 0x8000000000000000ull;
constexpr std::uint64_t kQuietNaN = 0x7ff8000000000000ull;
constexpr std::uint64_t kInfinity = 0x7ff0000000000000ull;

inline bool IsKeyword(std::string_view s) {
  return s == "true" || s == "false" || s == "inf" || s == "nan";
}

inline bool IsIdentifier(std::string_view s) {
  if (s.empty() || !Is(s[0], kIdentStart)) return false;
  for (char c : s)
    if (!Is(c, kIdentChar)) return false;
  return true;
}

// Writer pieces (BlockTextWriter.cpp).
void AppendQuoted(std::string& out, std::string_view s);
void AppendItemName(std::string& out, std::string_view name);
void AppendInteger(std::string& out, std::int64_t v);
void AppendReal(std::string& out, double v);
void AppendValue(std::string& out, const CItemView& item, size_t k);

// What a line past the limit is told, by the file reader and the parser
// alike (BlockText.cpp).
std::string LineLimitExpected();

}  // namespace io::blocktext
