// printf-identical %G/%E output without printf: std::to_chars gives the
// correctly rounded digits (the same digits glibc prints, ties to even on the
// exact binary value), and the C rules for %G and %E are applied here. Up to
// 15 digits most values take a shorter way to the same digits.
#include "sparamlib/formats/NumberFormat.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cfloat>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <vector>

#include "core/Assert.h"

namespace nd {
namespace {

// Longest body of a fast conversion: sign, kMaxFastPrecision + 1 digits,
// point, "0.000" before small fixed values, "E-308".
constexpr int kBodySize = kMaxFastPrecision + 16;

// The `count` correctly rounded significant digits of the finite a >= 0 go
// to `digits`; returns the decimal exponent of the first one (after
// rounding, so 9.99...5 rounded up reports the next power of ten).
int ExactDigits(double a, int count, char* digits) {
  char buf[kBodySize];
  const auto result =
      std::to_chars(buf, buf + sizeof buf, a, std::chars_format::scientific, count - 1);
  const char* p = buf;
  const char* const end = result.ptr;
  int k = 0;
  digits[k++] = *p++;
  if (*p == '.') {
    ++p;
    while (*p != 'e') digits[k++] = *p++;
  }
  ++p;  // 'e'
  const bool negative = *p++ == '-';
  int exponent = 0;
  while (p < end) exponent = exponent * 10 + (*p++ - '0');
  return negative ? -exponent : exponent;
}

// ---- The short way to the digits --------------------------------------
// a = m * 2^q is scaled by a 64-bit approximation of 10^j so that count
// digits stand before the binary point of m * M_j (128 bits). M_j is off by
// at most 2^-64 relative, so the product is off by less than its top 64
// bits plus one: wherever the fraction is further than that from one half,
// the rounding of the exact value goes the same way. Elsewhere (exact ties
// among them) to_chars decides. Up to 15 digits the scaled value stays below
// 2^50, so the doubt is under 2^-14 of the last digit and few values fall
// back; subnormals always do.

__extension__ typedef unsigned __int128 UInt128;

constexpr int kFastDigits = 15;
constexpr int kPow10Range = 340;

struct Pow10 {
  uint64_t mantissa;  // 2^63 <= mantissa < 2^64
  int exponent;       // 10^j ~ mantissa * 2^exponent
};

// A big number (little-endian 32-bit words) times 2^scale, rounded to 64
// significant bits, ties to even; `inexact` says bits were lost before.
Pow10 Round64(const std::vector<uint32_t>& big, bool inexact, int scale) {
  int top = static_cast<int>(big.size()) - 1;
  while (big[static_cast<size_t>(top)] == 0) --top;
  const int length = top * 32 + std::bit_width(big[static_cast<size_t>(top)]);
  auto bit = [&](int i) -> uint64_t {
    return i < 0 ? 0 : (big[static_cast<size_t>(i / 32)] >> (i % 32)) & 1u;
  };
  uint64_t m = 0;
  for (int i = length - 1; i >= length - 64; --i) m = (m << 1) | bit(i);
  bool sticky = inexact;
  for (int i = 0; i < length - 65 && !sticky; ++i) sticky = bit(i) != 0;
  int exponent = length - 64 + scale;
  if (bit(length - 65) && (sticky || (m & 1))) {
    if (++m == 0) {
      m = uint64_t{1} << 63;
      ++exponent;
    }
  }
  return {m, exponent};
}

// 10^j for |j| <= kPow10Range, built once from exact integer arithmetic.
const Pow10* Pow10Table() {
  static const auto table = [] {
    std::array<Pow10, 2 * kPow10Range + 1> t{};
    std::vector<uint32_t> big{1};
    for (int j = 0; j <= kPow10Range; ++j) {
      t[static_cast<size_t>(kPow10Range + j)] = Round64(big, false, 0);
      uint64_t carry = 0;
      for (uint32_t& w : big) {
        const uint64_t v = uint64_t{w} * 10 + carry;
        w = static_cast<uint32_t>(v);
        carry = v >> 32;
      }
      if (carry) big.push_back(static_cast<uint32_t>(carry));
    }
    // 10^-j = floor(2^K / 10^j) * 2^-K (never exact: 2^K has no factor 5),
    // K leaving well over 64 bits in the quotient at j = kPow10Range.
    constexpr int K = 1280;
    std::vector<uint32_t> q(K / 32 + 1, 0);
    q.back() = 1;
    for (int j = 1; j <= kPow10Range; ++j) {
      uint64_t rem = 0;
      for (size_t i = q.size(); i-- > 0;) {
        const uint64_t cur = (rem << 32) | q[i];
        q[i] = static_cast<uint32_t>(cur / 10);
        rem = cur % 10;
      }
      t[static_cast<size_t>(kPow10Range - j)] = Round64(q, true, -K);
    }
    return t;
  }();
  return table.data() + kPow10Range;
}

constexpr uint64_t kPowersOf10[] = {1,
                                    10,
                                    100,
                                    1000,
                                    10000,
                                    100000,
                                    1000000,
                                    10000000,
                                    100000000,
                                    1000000000,
                                    10000000000,
                                    100000000000,
                                    1000000000000,
                                    10000000000000,
                                    100000000000000,
                                    1000000000000000};

constexpr char kDigitPairs[] =
    "00010203040506070809101112131415161718192021222324252627282930313233343536373839"
    "40414243444546474849505152535455565758596061626364656667686970717273747576777879"
    "8081828384858687888990919293949596979899";

// The count low digits of v, written to end - count .. end.
void PutDigits(char* end, uint32_t v, int count) {
  for (; count >= 2; count -= 2, v /= 100) {
    end -= 2;
    std::memcpy(end, kDigitPairs + 2 * (v % 100), 2);
  }
  if (count == 1) end[-1] = static_cast<char>('0' + v % 10);
}

bool FastDigits(double a, int count, char* digits, int& exponent) {
  if (!(a >= DBL_MIN) || !(a <= DBL_MAX) || count > kFastDigits) return false;
  uint64_t bits = 0;
  std::memcpy(&bits, &a, sizeof bits);
  const int biased = static_cast<int>(bits >> 52);
  const uint64_t m = (bits & ((uint64_t{1} << 52) - 1)) | (uint64_t{1} << 52);
  const int q = biased - 1075;  // a = m * 2^q
  const uint64_t low = kPowersOf10[count - 1], high = kPowersOf10[count];
  // floor(log10 a) within one, then corrected until count digits stand
  // before the point.
  int x = ((biased - 1023) * 78913) >> 18;
  UInt128 product = 0;
  int shift = 0;
  uint64_t whole = 0;
  for (int tries = 0;; ++tries) {
    const int j = count - 1 - x;
    if (tries == 3 || j < -kPow10Range || j > kPow10Range) return false;
    const Pow10& p = Pow10Table()[j];
    shift = -(q + p.exponent);
    if (shift < 1 || shift > 127) return false;
    product = UInt128{m} * p.mantissa;
    const UInt128 w = product >> shift;
    if (w >= high) {
      ++x;
    } else if (w < low) {
      --x;
    } else {
      whole = static_cast<uint64_t>(w);
      break;
    }
  }
  const UInt128 half = UInt128{1} << (shift - 1);
  const UInt128 fraction = product & ((half << 1) - 1);
  const UInt128 distance = fraction > half ? fraction - half : half - fraction;
  if (distance <= (product >> 64) + 1) return false;
  uint64_t n = whole + (fraction > half ? 1 : 0);
  if (n == high) {
    n = low;
    ++x;
  }
  if (count > 8) {
    PutDigits(digits + count, static_cast<uint32_t>(n % 100000000), 8);
    PutDigits(digits + count - 8, static_cast<uint32_t>(n / 100000000), count - 8);
  } else {
    PutDigits(digits + count, static_cast<uint32_t>(n), count);
  }
  exponent = x;
  return true;
}

int SignificantDigits(double a, int count, char* digits) {
  int exponent = 0;
  if (FastDigits(a, count, digits, exponent)) return exponent;
  return ExactDigits(a, count, digits);
}

// "E+05", "e-123": at least two exponent digits, as printf.
char* PutExponent(char* o, int exponent, bool upperCase) {
  *o++ = upperCase ? 'E' : 'e';
  *o++ = exponent < 0 ? '-' : '+';
  const int x = exponent < 0 ? -exponent : exponent;
  if (x >= 100) *o++ = static_cast<char>('0' + x / 100);
  *o++ = static_cast<char>('0' + x / 10 % 10);
  *o++ = static_cast<char>('0' + x % 10);
  return o;
}

// "INF", "-NAN", ... as glibc prints them; null for finite values.
const char* NonFinite(double value, bool upperCase) {
  if (std::isfinite(value)) return nullptr;
  const bool negative = std::signbit(value);
  if (std::isnan(value)) {
    if (upperCase) return negative ? "-NAN" : "NAN";
    return negative ? "-nan" : "nan";
  }
  if (upperCase) return negative ? "-INF" : "INF";
  return negative ? "-inf" : "inf";
}

// Room a conversion needs beyond its width: a fast body, or what snprintf
// prints at that precision (%f of DBL_MAX has 309 digits before the point).
size_t FieldRoom(int precision, int width, bool fast = true) {
  const size_t body = fast && precision <= kMaxFastPrecision
                          ? kBodySize
                          : static_cast<size_t>(std::max(precision, 6)) + 330;
  return std::max(body, static_cast<size_t>(std::max(width, 0)));
}

// The body of printf's %G for finite values, p in 1..kMaxFastPrecision.
char* GeneralBody(char* o, double value, int p, bool upperCase) {
  char digits[kBodySize];
  const int x = SignificantDigits(std::fabs(value), p, digits);
  if (std::signbit(value)) *o++ = '-';
  // Without '#' trailing zeros of the fraction go, and the point with them.
  int last = p - 1;
  if (x < -4 || x >= p) {
    // Style E with p - 1 digits after the point.
    while (last > 0 && digits[last] == '0') --last;
    *o++ = digits[0];
    if (last > 0) {
      *o++ = '.';
      std::memcpy(o, digits + 1, static_cast<size_t>(last));
      o += last;
    }
    return PutExponent(o, x, upperCase);
  }
  if (x >= 0) {
    // Style f with p - 1 - x digits after the point: the same p digits.
    while (last > x && digits[last] == '0') --last;
    std::memcpy(o, digits, static_cast<size_t>(x + 1));
    o += x + 1;
    if (last > x) {
      *o++ = '.';
      std::memcpy(o, digits + x + 1, static_cast<size_t>(last - x));
      o += last - x;
    }
    return o;
  }
  // 0.000ddd: -x - 1 zeros after the point, then the digits.
  while (last > 0 && digits[last] == '0') --last;
  *o++ = '0';
  *o++ = '.';
  for (int k = 0; k < -x - 1; ++k) *o++ = '0';
  std::memcpy(o, digits, static_cast<size_t>(last + 1));
  return o + last + 1;
}

// The body of printf's %E for finite values, p in 0..kMaxFastPrecision.
char* ExponentBody(char* o, double value, int p, bool upperCase) {
  char digits[kBodySize];
  const int x = SignificantDigits(std::fabs(value), p + 1, digits);
  if (std::signbit(value)) *o++ = '-';
  *o++ = digits[0];
  if (p > 0) {
    *o++ = '.';
    std::memcpy(o, digits + 1, static_cast<size_t>(p));
    o += p;
  }
  return PutExponent(o, x, upperCase);
}

// Writes value as printf's %[-]<width>.<precision>G (or E) at o, which has
// FieldRoom(precision, width) + 1 bytes; returns the end.
char* WriteField(char* o, double value, int precision, int width, bool left, bool upperCase,
                 bool exponent) {
  char* end = o;
  if (const char* text = NonFinite(value, upperCase)) {
    while (*text) *end++ = *text++;
  } else {
    // printf: a negative precision is the default 6; %G counts 0 as 1.
    int p = precision < 0 ? 6 : precision;
    if (!exponent && p == 0) p = 1;
    if (p > kMaxFastPrecision) {
      char format[8];
      std::snprintf(format, sizeof format, "%%%s*.*%c", left ? "-" : "",
                    exponent ? (upperCase ? 'E' : 'e') : (upperCase ? 'G' : 'g'));
      const int n = std::snprintf(o, FieldRoom(p, width) + 1, format, width, p, value);
      return n > 0 ? o + n : o;
    }
    end = exponent ? ExponentBody(o, value, p, upperCase) : GeneralBody(o, value, p, upperCase);
  }
  const long length = end - o;
  if (width <= length) return end;
  const size_t pad = static_cast<size_t>(width - length);
  if (left) {
    std::memset(end, ' ', pad);
  } else {
    std::memmove(o + pad, o, static_cast<size_t>(length));
    std::memset(o, ' ', pad);
  }
  return end + pad;
}

// Appends up to `room` bytes that `write` puts at a pointer and ends.
template <class Writer>
void AppendWritten(std::string& out, size_t room, Writer write) {
  char small[160];
  if (room + 1 <= sizeof small) {
    out.append(small, static_cast<size_t>(write(small) - small));
    return;
  }
  const size_t at = out.size();
  out.resize(at + room + 1);  // snprintf's terminating zero
  out.resize(static_cast<size_t>(write(out.data() + at) - out.data()));
}

}  // namespace

void AppendGeneral(std::string& out, double value, int precision, int width, bool leftJustify,
                   bool upperCase) {
  AppendWritten(out, FieldRoom(precision, width), [&](char* o) {
    return WriteField(o, value, precision, width, leftJustify, upperCase, false);
  });
}

void AppendExponent(std::string& out, double value, int precision, int width, bool leftJustify,
                    bool upperCase) {
  AppendWritten(out, FieldRoom(precision, width), [&](char* o) {
    return WriteField(o, value, precision, width, leftJustify, upperCase, true);
  });
}

CNumberFormat::CNumberFormat(std::string_view format) : m_Format(format) {
  // Fixed text, reducing "%%"; false at a '%' that starts a conversion.
  auto text = [&](size_t& i, std::string& into) {
    while (i < format.size()) {
      if (format[i] != '%') {
        into += format[i++];
      } else if (i + 1 < format.size() && format[i + 1] == '%') {
        into += '%';
        i += 2;
      } else {
        return false;
      }
    }
    return true;
  };
  auto number = [&](size_t& i) {
    int v = 0;
    while (i < format.size() && format[i] >= '0' && format[i] <= '9' && v < 100000)
      v = v * 10 + (format[i++] - '0');
    return v;
  };

  size_t i = 0;
  const bool noConversion = text(i, m_Prefix);
  bool onlyMinus = true;
  bool valid = !noConversion;
  if (valid) {
    ++i;  // '%'
    while (i < format.size() &&
           std::string_view("-+ #0").find(format[i]) != std::string_view::npos) {
      if (format[i] == '-') {
        m_Left = true;
      } else {
        onlyMinus = false;
      }
      ++i;
    }
    m_Width = number(i);
    if (i < format.size() && format[i] == '.') {
      ++i;
      m_Precision = number(i);
    }
    if (i < format.size() && format[i] == 'l') ++i;
    const char c = i < format.size() ? format[i++] : '\0';
    valid = std::string_view("aAeEfFgG").find(c) != std::string_view::npos && c != '\0';
    m_Exponent = c == 'E' || c == 'e';
    m_Upper = c == 'E' || c == 'G';
    m_Fast = valid && onlyMinus && std::string_view("eEgG").find(c) != std::string_view::npos &&
             m_Precision <= kMaxFastPrecision;
    // Only fixed text may follow the one conversion.
    valid = valid && text(i, m_Suffix);
  }
  m_Valid = valid;
  if (!m_Valid) m_Fast = false;
  ASSERT(m_Valid);
}

size_t CNumberFormat::MaxSize() const {
  if (!m_Valid) return 0;
  return m_Prefix.size() + m_Suffix.size() + FieldRoom(m_Precision, m_Width, m_Fast);
}

char* CNumberFormat::Write(char* out, double value) const {
  if (!m_Valid) return out;
  if (!m_Fast) {
    const int n = std::snprintf(out, MaxSize() + 1, m_Format.c_str(), value);
    return n > 0 ? out + n : out;
  }
  std::memcpy(out, m_Prefix.data(), m_Prefix.size());
  out = WriteField(out + m_Prefix.size(), value, m_Precision, m_Width, m_Left, m_Upper, m_Exponent);
  std::memcpy(out, m_Suffix.data(), m_Suffix.size());
  return out + m_Suffix.size();
}

void CNumberFormat::Append(std::string& out, double value) const {
  AppendWritten(out, MaxSize(), [&](char* o) { return Write(o, value); });
}

}  // namespace nd
