// Scanning a read buffer in place, 16 or 64 bytes at a time: where the blanks
// and line ends are, and the value of a short decimal token between them.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace nd {

// These are the inner loop of reading a big data file, called for every
// token or every 64 bytes: forced inline, since a call each time costs
// measurably and an inline function of external linkage is not always
// compiled in by itself.

// Bytes that ShortDecimal may read from a token's start: the token (at most
// 16 bytes) and the eight-byte words after its decimal point.
inline constexpr std::ptrdiff_t kTokenReach = 40;

namespace block_scan {

inline constexpr double kExactPowers[] = {1e0, 1e1, 1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                          1e8, 1e9, 1e10, 1e11, 1e12, 1e13, 1e14, 1e15, 1e16};
inline constexpr std::uint64_t kTens[] = {1, 10, 100, 1000, 10000, 100000, 1000000, 10000000, 100000000};

#if defined(__SSE2__)
// The first n (0 to 8) bytes at p moved to the top of a word, zeros before
// them.
[[gnu::always_inline]] inline std::uint64_t DigitWord(const char* p, int n) {
  std::uint64_t w;
  std::memcpy(&w, p, 8);
  const int shift = 4 * (8 - n);  // twice, since a shift by 64 is undefined
  return (w << shift) << shift;
}

// Two words of eight digit characters (most significant first) as two
// numbers: pairs, fours and eights combined, both words at once.
[[gnu::always_inline]] inline void EightDigits(std::uint64_t a, std::uint64_t b, std::uint64_t& first, std::uint64_t& second) {
  __m128i d = _mm_and_si128(_mm_set_epi64x(static_cast<long long>(b), static_cast<long long>(a)), _mm_set1_epi8(0x0F));
  d = _mm_add_epi16(_mm_mullo_epi16(_mm_and_si128(d, _mm_set1_epi16(0xFF)), _mm_set1_epi16(10)), _mm_srli_epi16(d, 8));
  d = _mm_madd_epi16(d, _mm_set1_epi32(0x00010064));  // 100 x the first pair + the second
  d = _mm_add_epi64(_mm_mul_epu32(d, _mm_set1_epi64x(10000)), _mm_srli_epi64(d, 32));
  first = static_cast<std::uint64_t>(_mm_cvtsi128_si64(d));
  second = static_cast<std::uint64_t>(_mm_cvtsi128_si64(_mm_unpackhi_epi64(d, d)));
}
#endif

}  // namespace block_scan

// The token [p, p + length) when it is an optional sign, digits and at most
// one decimal point, up to 16 bytes, with no more than 8 digits before the
// point: the form nearly every number of a data file takes. kTokenReach
// bytes from p must be readable. Where the digits make a whole number below
// 2^53, it and the power of ten are exact doubles and one division rounds
// correctly (Clinger's fast path): the very double std::from_chars gives.
// False when the token is anything else, which decides nothing. The sign,
// the point and the digit counts come from bit masks of the token's bytes,
// not from a loop that ends at a different digit for every number.
[[gnu::always_inline]] inline bool ShortDecimal(const char* p, int length, double& value) {
#if defined(__SSE2__)
  using namespace block_scan;
  if (length > 16) return false;
  const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
  const __m128i values = _mm_sub_epi8(bytes, _mm_set1_epi8('0'));
  const auto digits = static_cast<unsigned>(
      _mm_movemask_epi8(_mm_cmpeq_epi8(_mm_min_epu8(values, _mm_set1_epi8(9)), values)));
  const unsigned token = (1u << length) - 1;
  const unsigned points = static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(bytes, _mm_set1_epi8('.')))) & token;
  const unsigned minus = static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(bytes, _mm_set1_epi8('-')))) & 1;
  const unsigned plus = static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(bytes, _mm_set1_epi8('+')))) & 1;
  const unsigned sign = minus | plus;
  if (((digits | points | sign) & token) != token || (points & (points - 1)) != 0) return false;
  const int first = static_cast<int>(sign);
  const int point = points ? std::countr_zero(points) : length;
  const int whole = point - first;
  const int fraction = points ? length - point - 1 : 0;
  if (whole > 8 || whole + fraction == 0) return false;
  const int high = fraction < 8 ? fraction : 8;
  std::uint64_t integer, decimals;
  EightDigits(DigitWord(p + first, whole), DigitWord(p + point + 1, high), integer, decimals);
  std::uint64_t mantissa = integer * kTens[high] + decimals;
  if (fraction > 8) {
    std::uint64_t more, unused;
    EightDigits(DigitWord(p + point + 9, fraction - 8), 0, more, unused);
    mantissa = mantissa * kTens[fraction - 8] + more;
    if (mantissa > (std::uint64_t{1} << 53)) return false;
  }
  // The sign as its bit, not a branch: the angles' signs follow no pattern.
  value = std::bit_cast<double>(std::bit_cast<std::uint64_t>(static_cast<double>(mantissa) / kExactPowers[fraction]) |
                                std::uint64_t{minus} << 63);
  return true;
#else
  (void)p;
  (void)length;
  (void)value;
  return false;
#endif
}

// Bit i of `blanks` set where p[i] is a blank, tab or carriage return,
// of `ends` where it is '\n', over the 64 bytes from p.
[[gnu::always_inline]] inline void BlankAndEndMasks(const char* p, std::uint64_t& blanks, std::uint64_t& ends) {
  blanks = ends = 0;
#if defined(__SSE2__)
  for (int k = 0; k < 4; ++k) {
    const __m128i x = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + 16 * k));
    const __m128i blank = _mm_or_si128(_mm_or_si128(_mm_cmpeq_epi8(x, _mm_set1_epi8(' ')),
                                                    _mm_cmpeq_epi8(x, _mm_set1_epi8('\t'))),
                                       _mm_cmpeq_epi8(x, _mm_set1_epi8('\r')));
    blanks |= std::uint64_t{static_cast<std::uint16_t>(_mm_movemask_epi8(blank))} << (16 * k);
    ends |= std::uint64_t{static_cast<std::uint16_t>(_mm_movemask_epi8(_mm_cmpeq_epi8(x, _mm_set1_epi8('\n'))))}
            << (16 * k);
  }
#else
  for (int i = 0; i < 64; ++i) {
    blanks |= std::uint64_t{p[i] == ' ' || p[i] == '\t' || p[i] == '\r'} << i;
    ends |= std::uint64_t{p[i] == '\n'} << i;
  }
#endif
}

}  // namespace nd
