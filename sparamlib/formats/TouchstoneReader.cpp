// Touchstone reading: one pass over the lines, a record's numbers gathered
// into one reused buffer and turned into a point's matrix when the record is
// complete. Plain data lines, the bulk of a big file, are parsed in place
// in the read buffer (token bounds from byte masks, short decimals by their
// own exact scanner); every other line goes through Line() one by one.
#include "sparamlib/formats/TouchstoneReader.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <numbers>
#include <optional>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "sparamlib/data/NetworkModalData.h"
#include "sparamlib/formats/LineReader.h"

namespace nd {
namespace {

using Complex = AComplex<double>;
using TNT::CMatrix;
using TNT::CVector;

// ---- Sine and cosine of angles in degrees ------------------------------
// MA and DB pairs need both for every value: a libm sincos costs some 20 ns,
// as much as all the rest of reading a value. Here the angle is reduced in
// degrees, where it is exact (x - 90 k for a whole k), so 90, 180 or -270
// degrees give exact zeros and ones, and only the remainder, at most 45
// degrees, goes to radians; sine and cosine of it are the minimax
// polynomials of the classic freely distributed kernels (below 1 ulp on
// [-pi/4, pi/4]). Several angles at a time in vector registers: two, or
// four where the processor has AVX; every lane does the same operations in
// the same order (no fused multiply-add), so the bits never depend on the
// path taken.
constexpr double kRound = 0x1.8p52;  // added and taken away: rounds to a whole number
constexpr double kDegree = std::numbers::pi / 180.0;
constexpr double kS1 = -1.66666666666666324348e-01, kS2 = 8.33333333332248946124e-03,
                 kS3 = -1.98412698298579493134e-04, kS4 = 2.75573137070700676789e-06,
                 kS5 = -2.50507602534068634195e-08, kS6 = 1.58969099521155010221e-10;
constexpr double kC1 = 4.16666666666666019037e-02, kC2 = -1.38888888888741095749e-03,
                 kC3 = 2.48015872894767294178e-05, kC4 = -2.75573143513906633035e-07,
                 kC5 = 2.08757232129817482790e-09, kC6 = -1.13596475577881948265e-11;
// Below this the reduction is exact and the quadrant a small whole number.
constexpr double kReducible = 0x1p50;

using Two = double __attribute__((vector_size(16)));
using TwoBits = std::int64_t __attribute__((vector_size(16)));
using Four = double __attribute__((vector_size(32)));
using FourBits = std::int64_t __attribute__((vector_size(32)));

// Sine and cosine of `degrees` (every lane below kReducible in magnitude).
template <class V, class Bits>
inline __attribute__((always_inline)) void SinCosLanes(const V& degrees, V& sine, V& cosine) {
  const Bits signs = Bits{} + std::numeric_limits<std::int64_t>::min();
  const V k = (degrees * (1.0 / 90.0) + kRound) - kRound;
  const V t = (degrees - k * 90.0) * kDegree;  // the remainder is exact; |t| <= pi/4
  const V z = t * t, w = z * z;
  const V s = t + z * t * (kS1 + z * (kS2 + z * (kS3 + z * kS4) + z * w * (kS5 + z * kS6)));
  const V r = z * (kC1 + z * (kC2 + z * kC3)) + w * w * (kC4 + z * (kC5 + z * kC6));
  const V half = 0.5 * z, a = 1.0 - half;
  const V c = a + (((1.0 - a) - half) + z * r);
  // Quadrant q = k mod 4 as -2..2 (2 and -2 alike): the sine is s, c, -s or
  // -c, the cosine c, -s, -c or s. The factors are 0 or +-1, so exact.
  const V quarter = k * 0.25;
  const V q = (quarter - ((quarter + kRound) - kRound)) * 4.0;
  const V absolute = reinterpret_cast<V>(reinterpret_cast<Bits>(q) & ~signs);
  const V along = 1.0 - absolute, across = q * (2.0 - absolute);
  // A zero sine takes the sign of the angle (as sin(-0) is -0); a zero
  // cosine is +0.
  const V sv = s * along + c * across;
  const Bits zero = sv == 0.0;
  sine = reinterpret_cast<V>((reinterpret_cast<Bits>(sv) & ~zero) | (reinterpret_cast<Bits>(degrees) & signs & zero));
  cosine = (c * along - s * across) + 0.0;
}

double SinCosOne(double degrees, double& cosine) {
  if (!std::isfinite(degrees)) {
    cosine = degrees - degrees;  // NaN, as sin and cos give
    return cosine;
  }
  if (!(std::fabs(degrees) < kReducible)) degrees = std::fmod(degrees, 360.0);  // exact
  Two s, c;
  SinCosLanes<Two, TwoBits>(Two{degrees, degrees}, s, c);
  cosine = c[0];
  return s[0];
}

// n angles, `Lanes` at a time, the rest one by one.
template <class V, class Bits>
inline __attribute__((always_inline)) void SinCosMany(const double* degrees, size_t n, double* sine,
                                                      double* cosine) {
  constexpr size_t kLanes = sizeof(V) / sizeof(double);
  size_t k = 0;
  for (; k + kLanes <= n; k += kLanes) {
    V x, s, c;
    std::memcpy(&x, degrees + k, sizeof x);
    SinCosLanes<V, Bits>(x, s, c);
    std::memcpy(sine + k, &s, sizeof s);
    std::memcpy(cosine + k, &c, sizeof c);
    // Angles beyond the reduction (never met in data) once more, alone.
    bool reducible = true;
    for (size_t j = 0; j < kLanes; ++j) reducible &= std::fabs(x[j]) < kReducible;
    if (!reducible)
      for (size_t j = 0; j < kLanes; ++j) sine[k + j] = SinCosOne(x[j], cosine[k + j]);
  }
  for (; k < n; ++k) sine[k] = SinCosOne(degrees[k], cosine[k]);
}

#if defined(__x86_64__) || defined(__i386__)
__attribute__((target("avx"))) void SinCosAvx(const double* degrees, size_t n, double* sine, double* cosine) {
  SinCosMany<Four, FourBits>(degrees, n, sine, cosine);
}
#endif

}  // namespace

void SinCosDegrees(const double* degrees, size_t n, double* sine, double* cosine) {
#if defined(__x86_64__) || defined(__i386__)
  static const bool avx = (__builtin_cpu_init(), __builtin_cpu_supports("avx"));
  if (avx) {
    SinCosAvx(degrees, n, sine, cosine);
    return;
  }
#endif
  SinCosMany<Two, TwoBits>(degrees, n, sine, cosine);
}

namespace {

// ---- Numbers of known length -------------------------------------------
// Bytes that ShortDecimal may read from a token's start: the token (at most
// 16 bytes) and the eight-byte words after its decimal point.
constexpr std::ptrdiff_t kTokenReach = 40;

constexpr double kExactPowers[] = {1e0, 1e1, 1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                   1e8, 1e9, 1e10, 1e11, 1e12, 1e13, 1e14, 1e15, 1e16};
constexpr std::uint64_t kTens[] = {1, 10, 100, 1000, 10000, 100000, 1000000, 10000000, 100000000};

#if defined(__SSE2__)
// The first n (0 to 8) bytes at p moved to the top of a word, zeros before
// them.
std::uint64_t DigitWord(const char* p, int n) {
  std::uint64_t w;
  std::memcpy(&w, p, 8);
  const int shift = 4 * (8 - n);  // twice, since a shift by 64 is undefined
  return (w << shift) << shift;
}

// Two words of eight digit characters (most significant first) as two
// numbers: pairs, fours and eights combined, both words at once.
void EightDigits(std::uint64_t a, std::uint64_t b, std::uint64_t& first, std::uint64_t& second) {
  __m128i d = _mm_and_si128(_mm_set_epi64x(static_cast<long long>(b), static_cast<long long>(a)), _mm_set1_epi8(0x0F));
  d = _mm_add_epi16(_mm_mullo_epi16(_mm_and_si128(d, _mm_set1_epi16(0xFF)), _mm_set1_epi16(10)), _mm_srli_epi16(d, 8));
  d = _mm_madd_epi16(d, _mm_set1_epi32(0x00010064));  // 100 x the first pair + the second
  d = _mm_add_epi64(_mm_mul_epu32(d, _mm_set1_epi64x(10000)), _mm_srli_epi64(d, 32));
  first = static_cast<std::uint64_t>(_mm_cvtsi128_si64(d));
  second = static_cast<std::uint64_t>(_mm_cvtsi128_si64(_mm_unpackhi_epi64(d, d)));
}
#endif

// The token [p, p + length) when it is an optional sign, digits and at most
// one decimal point, up to 16 bytes, with no more than 8 digits before the
// point: the form nearly every number of a data file takes. kTokenReach
// bytes from p must be readable. Where the digits make a whole number below
// 2^53, it and the power of ten are exact doubles and one division rounds
// correctly (Clinger's fast path): the very double std::from_chars gives.
// False when the token is anything else, which decides nothing. The sign,
// the point and the digit counts come from bit masks of the token's bytes,
// not from a loop that ends at a different digit for every number.
bool ShortDecimal(const char* p, int length, double& value) {
#if defined(__SSE2__)
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

// A frequency as the file writes it, for messages.
std::string FrequencyText(double value) { return AString::Format("%.10g", value); }

std::string Pairs(size_t count) { return std::to_string(count) + (count == 1 ? " pair" : " pairs"); }

class CTouchstoneParser : public CLineParser {
 public:
  CTouchstoneParser(std::string name, TouchstoneHeader& header) : CLineParser(std::move(name)), m_Header(header) {
    m_NamedPorts = TouchstonePortsFromName(m_Name);
    std::filesystem::path stem = std::filesystem::path(m_Name).stem();
    m_Solution = std::make_unique<CNetworkModalSolution>(stem.string());
    m_Solution->SetSolutionType(CNetworkDataSolution::DiscreteSweep);
  }

  // Returns the solution, or null with the first error in `error`.
  std::unique_ptr<CNetworkModalSolution> Run(CLineReader& lines, std::string* error) {
    if (RunLines(lines)) Finish();
    if (m_Failed) {
      if (error) *error = m_Error;
      return nullptr;
    }
    return std::move(m_Solution);
  }

 private:
  enum Stage { kHeader, kReference, kInformation, kNetwork, kNoise };

  static std::string Quoted(std::string_view text) {
    if (text.size() > 40) return "\"" + std::string(text.substr(0, 40)) + "...\"";
    return "\"" + std::string(text) + "\"";
  }

  // ---- Lines -------------------------------------------------------------
  void Line(std::string_view line) override {
    const size_t bang = line.find('!');
    const std::string_view content = line.substr(0, bang);
    if (m_Stage == kInformation) {
      const std::string_view trimmed = Trim(content);
      if (trimmed.size() >= 17 && Lower(trimmed.substr(0, 17)) == "[end information]") {
        m_Stage = m_StageBeforeInformation;
      } else {
        m_Header.information.append(line).push_back('\n');
      }
      return;
    }
    if (bang != std::string_view::npos) {
      Comment(line.substr(bang + 1), bang + 1, Trim(content).empty());
      if (m_Failed) return;
    }
    const size_t start = content.find_first_not_of(" \t\r");
    if (start == std::string_view::npos) return;
    if (m_VectorPending) {
      VectorIncomplete();
      return;
    }
    if (m_Stage == kReference && content[start] != '[') {
      ReferenceValues(content);
      return;
    }
    if (content[start] == '[') {
      Keyword(content, start);
    } else if (content[start] == '#') {
      OptionLine(content, start);
    } else {
      DataLine(content, start);
    }
  }

  // Comments carry the first line of our own files, port names before the
  // data, and the gamma and port-impedance lines behind each record.
  void Comment(std::string_view text, size_t column, bool wholeLine) {
    if (m_Line == 1 && Trim(text).starts_with("Touchstone file from project")) m_OwnWriter = true;
    if (!wholeLine) return;
    const std::string_view t = Trim(text);
    if (m_VectorPending) {
      VectorValues(t, column + static_cast<size_t>(t.data() - text.data()));
      return;
    }
    if (m_Pending && m_Stage == kNetwork) {
      const std::string lower = Lower(t.substr(0, std::min<size_t>(t.size(), 16)));
      if (lower.starts_with("gamma") && (t.size() == 5 || t[5] == ' ' || t[5] == '\t')) {
        StartVector(false, t.substr(5), column + static_cast<size_t>(t.data() - text.data()) + 5);
      } else if (lower.starts_with("port impedance") &&
                 (t.size() == 14 || t[14] == ' ' || t[14] == '\t')) {
        StartVector(true, t.substr(14), column + static_cast<size_t>(t.data() - text.data()) + 14);
      }
      return;
    }
    if (m_Records == 0 && !m_Pending) PortName(t);
  }

  // "Port[3] = name"
  void PortName(std::string_view t) {
    if (t.size() < 6 || Lower(t.substr(0, 5)) != "port[") return;
    const size_t close = t.find(']');
    const size_t equals = t.find('=');
    if (close == std::string_view::npos || equals == std::string_view::npos || equals < close) return;
    int index = 0;
    for (size_t i = 5; i < close; ++i) {
      if (t[i] < '0' || t[i] > '9' || index > 100000) return;
      index = index * 10 + (t[i] - '0');
    }
    if (index < 1) return;
    if (m_PortNames.size() < static_cast<size_t>(index)) m_PortNames.resize(static_cast<size_t>(index));
    m_PortNames[static_cast<size_t>(index) - 1] = std::string(Trim(t.substr(equals + 1)));
  }

  // ---- Gamma and port impedance lines ------------------------------------
  void StartVector(bool impedance, std::string_view rest, size_t column) {
    m_VectorIsImpedance = impedance;
    m_VectorLine = m_Line;
    m_Vector.clear();
    m_VectorPending = true;
    VectorValues(rest, column);
  }

  void VectorValues(std::string_view text, size_t column) {
    const size_t wanted = 2 * static_cast<size_t>(m_Header.ports);
    ForEachToken(text, [&](const Token& token) {
      double v = 0.0;
      if (!ParseNumber(token.text, v)) {
        Fail(column + token.column, std::string("expected a number of the ") + VectorTitle() +
                                        " line, found " + Quoted(token.text));
        return false;
      }
      if (m_Vector.size() == wanted) {
        Fail(column + token.column, std::string("expected ") + std::to_string(wanted / 2) +
                                        " complex values on the " + VectorTitle() +
                                        " line, found more");
        return false;
      }
      m_Vector.push_back(v);
      return true;
    });
    if (m_Failed || m_Vector.size() < wanted) return;
    m_VectorPending = false;
    auto v = std::make_unique<CVector>(m_Header.ports);
    for (int k = 0; k < m_Header.ports; ++k)
      (*v)[k] = Complex(m_Vector[2 * static_cast<size_t>(k)], m_Vector[2 * static_cast<size_t>(k) + 1]);
    if (m_VectorIsImpedance) {
      m_Pending->SetPortImpedance(std::move(v));
      m_Header.portImpedanceLines = true;
    } else {
      m_Pending->SetGamma(std::move(v));
    }
  }

  const char* VectorTitle() const { return m_VectorIsImpedance ? "! Port Impedance" : "! Gamma"; }

  void VectorIncomplete() {
    Fail(0, std::string("expected ") + std::to_string(m_Header.ports) + " complex values on the " +
                VectorTitle() + " line at line " + std::to_string(m_VectorLine) + ", found " +
                std::to_string(m_Vector.size()) + " numbers");
  }

  // ---- Option line -------------------------------------------------------
  void OptionLine(std::string_view content, size_t start) {
    if (m_HaveOptions) return;  // later option lines are ignored, as Touchstone has it
    m_HaveOptions = true;
    m_SeenContent = true;
    bool unit = false, parameter = false, format = false, resistance = false, inR = false;
    std::vector<double> r;
    ForEachToken(content.substr(start + 1), [&](const Token& token) {
      const size_t column = start + 1 + token.column;
      double v = 0.0;
      if (inR && ParseNumber(token.text, v)) {
        if (!(v > 0.0) || !std::isfinite(v)) {
          Fail(column, "expected a reference resistance above 0 ohms, found " + Quoted(token.text));
          return false;
        }
        r.push_back(v);
        return true;
      }
      if (inR && r.empty()) {
        Fail(column, "expected a resistance in ohms after R, found " + Quoted(token.text));
        return false;
      }
      inR = false;
      const std::string t = Lower(token.text);
      bool* seen = nullptr;
      if (t == "hz" || t == "khz" || t == "mhz" || t == "ghz") {
        seen = &unit;
        m_Header.hertzPerUnit = t == "hz" ? 1.0 : t == "khz" ? 1e3 : t == "mhz" ? 1e6 : 1e9;
      } else if (t == "s" || t == "y" || t == "z" || t == "h" || t == "g") {
        seen = &parameter;
        m_Header.parameter = static_cast<char>(t[0] - 'a' + 'A');
      } else if (t == "ma" || t == "db" || t == "ri") {
        seen = &format;
        m_Header.format = t == "ma" ? kMagnitudeAngle : t == "db" ? kDbAngle : kRealImaginary;
      } else if (t == "r") {
        seen = &resistance;
        inR = true;
      } else {
        Fail(column, "expected a frequency unit (Hz, kHz, MHz, GHz), a parameter (S, Y, Z, H, G), "
                     "a format (MA, DB, RI) or R and a resistance on the option line, found " +
                         Quoted(token.text));
        return false;
      }
      if (*seen) {
        Fail(column, "the option line names this kind of option twice: " + Quoted(token.text));
        return false;
      }
      *seen = true;
      return true;
    });
    if (m_Failed) return;
    if (inR && r.empty()) {
      Fail(content.size(), "expected a resistance in ohms after R, found the end of the line");
      return;
    }
    m_OptionResistance = r;
  }

  // ---- Keywords ----------------------------------------------------------
  void Keyword(std::string_view content, size_t start) {
    const size_t close = content.find(']', start);
    if (close == std::string_view::npos) {
      Fail(start, "expected a keyword in brackets, found " + Quoted(Trim(content.substr(start))));
      return;
    }
    const std::string name = Lower(content.substr(start, close + 1 - start));
    const std::string_view argument = Trim(content.substr(close + 1));
    const size_t argColumn = argument.empty() ? close + 1 : static_cast<size_t>(argument.data() - content.data());
    if (name == "[version]") {
      if (m_SeenContent) {
        Fail(start, "expected [Version] as the first line that is not a comment");
        return;
      }
      double v = 0.0;
      if (!ParseNumber(argument, v) || (v != 2.0 && v != 2.1)) {
        Fail(argColumn, "expected [Version] 2.0 or 2.1, found " + Quoted(argument));
        return;
      }
      m_Header.version = v;
      m_SeenContent = true;
      return;
    }
    m_SeenContent = true;
    if (m_Stage == kReference) {
      Fail(start, "expected " + std::to_string(m_Header.ports) + " reference impedances after [Reference] at line " +
                      std::to_string(m_ReferenceLine) + ", found " + std::to_string(m_Header.reference.size()));
      return;
    }
    if (m_Header.version < 2.0) {
      Fail(start, "found the keyword " + Quoted(content.substr(start, close + 1 - start)) +
                      " in a file without [Version] 2.0 in its first line");
      return;
    }
    if (name == "[end]") {
      if (m_Stage == kNetwork || m_Stage == kNoise) EndOfData();
      m_Ended = true;
      Stop();
      return;
    }
    if (m_Stage == kNetwork || m_Stage == kNoise) {
      EndOfData();
      if (m_Failed) return;
    }
    if (name == "[begin information]") {
      m_StageBeforeInformation = m_Stage;
      m_InformationLine = m_Line;
      m_Stage = kInformation;
      return;
    }
    if (name == "[end information]") {
      Fail(start, "found [End Information] without [Begin Information]");
      return;
    }
    if (name == "[network data]") {
      NetworkDataKeyword(start);
      return;
    }
    if (name == "[noise data]") {
      NoiseDataKeyword(start);
      return;
    }
    if (m_Stage != kHeader) {
      Fail(start, "expected the keyword " + Quoted(content.substr(start, close + 1 - start)) +
                      " before [Network Data]");
      return;
    }
    if (name == "[number of ports]") {
      const std::optional<int> n = Count(argument, argColumn, "[Number of Ports]", 1);
      if (!n) return;
      if (m_NamedPorts >= 0 && *n != m_NamedPorts) {
        Fail(argColumn, "[Number of Ports] says " + std::to_string(*n) + " but the file name says " +
                            std::to_string(m_NamedPorts) + " ports");
        return;
      }
      m_Header.ports = *n;
    } else if (name == "[two-port data order]") {
      const std::string order = Lower(argument);
      if (order != "12_21" && order != "21_12") {
        Fail(argColumn, "expected [Two-Port Data Order] 12_21 or 21_12, found " + Quoted(argument));
        return;
      }
      m_Header.twoPortDataOrder = order;
    } else if (name == "[number of frequencies]") {
      if (const auto n = Count(argument, argColumn, "[Number of Frequencies]", 1)) m_DeclaredFrequencies = *n;
    } else if (name == "[number of noise frequencies]") {
      if (const auto n = Count(argument, argColumn, "[Number of Noise Frequencies]", 1))
        m_DeclaredNoise = *n;
    } else if (name == "[reference]") {
      if (m_Header.ports < 1) {
        Fail(start, "expected [Number of Ports] before [Reference]");
        return;
      }
      m_Header.reference.clear();
      m_Stage = kReference;
      m_ReferenceLine = m_Line;
      if (!argument.empty()) ReferenceValues(content.substr(close + 1), close + 1);
    } else if (name == "[matrix format]") {
      const std::string f = Lower(argument);
      if (f == "full") {
        m_Header.matrixFormat = TouchstoneHeader::kFull;
      } else if (f == "lower") {
        m_Header.matrixFormat = TouchstoneHeader::kLower;
      } else if (f == "upper") {
        m_Header.matrixFormat = TouchstoneHeader::kUpper;
      } else {
        Fail(argColumn, "expected [Matrix Format] Full, Lower or Upper, found " + Quoted(argument));
      }
    } else if (name == "[mixed-mode order]") {
      m_Header.mixedModeOrder = std::string(argument);
    } else {
      Fail(start, "expected a Touchstone keyword, found " + Quoted(content.substr(start, close + 1 - start)));
    }
  }

  std::optional<int> Count(std::string_view text, size_t column, const char* keyword, int least) {
    double v = 0.0;
    if (!ParseNumber(text, v) || v != std::floor(v) || v < least || v > 1e8) {
      Fail(column, std::string("expected a whole number of at least ") + std::to_string(least) +
                       " after " + keyword + ", found " + Quoted(text));
      return std::nullopt;
    }
    return static_cast<int>(v);
  }

  void ReferenceValues(std::string_view text, size_t offset = 0) {
    ForEachToken(text, [&](const Token& token) {
      double v = 0.0;
      if (!ParseNumber(token.text, v) || !(v > 0.0) || !std::isfinite(v)) {
        Fail(offset + token.column, "expected " + std::to_string(m_Header.ports) +
                                        " reference impedances above 0 ohms after [Reference], found " +
                                        Quoted(token.text));
        return false;
      }
      if (m_Header.reference.size() == static_cast<size_t>(m_Header.ports)) {
        Fail(offset + token.column, "expected " + std::to_string(m_Header.ports) +
                                        " reference impedances after [Reference], found more");
        return false;
      }
      m_Header.reference.push_back(v);
      return true;
    });
    if (m_Header.reference.size() == static_cast<size_t>(m_Header.ports)) m_Stage = kHeader;
  }

  void NetworkDataKeyword(size_t column) {
    if (m_Stage != kHeader || m_Records > 0) {
      Fail(column, "found a second [Network Data]");
      return;
    }
    if (!m_HaveOptions) {
      Fail(column, "expected the option line (such as \"# GHz S MA R 50\") before [Network Data]");
      return;
    }
    if (m_Header.ports < 1) {
      Fail(column, "expected [Number of Ports] before [Network Data]");
      return;
    }
    if (m_DeclaredFrequencies < 0) {
      Fail(column, "expected [Number of Frequencies] before [Network Data]");
      return;
    }
    if (m_Header.ports == 2 && m_Header.twoPortDataOrder.empty()) {
      Fail(column, "expected [Two-Port Data Order] (12_21 or 21_12) before the data of a 2-port");
      return;
    }
    if (!Prepare(column)) return;
    m_Stage = kNetwork;
  }

  void NoiseDataKeyword(size_t column) {
    if (m_Records == 0) {
      Fail(column, "expected [Network Data] and its data before [Noise Data]");
      return;
    }
    if (m_Header.ports != 2) {
      Fail(column, "found [Noise Data] in a " + std::to_string(m_Header.ports) +
                       "-port file: noise parameters exist for 2-ports only");
      return;
    }
    if (m_DeclaredNoise < 0) {
      Fail(column, "expected [Number of Noise Frequencies] before [Noise Data]");
      return;
    }
    m_Stage = kNoise;
  }

  // ---- Data --------------------------------------------------------------
  // Fixes the record layout once the port count, the matrix format and the
  // references are known.
  bool Prepare(size_t column) {
    const int n = m_Header.ports;
    if ((m_Header.parameter == 'H' || m_Header.parameter == 'G') && n != 2) {
      Fail(column, std::string(1, m_Header.parameter) + "-parameters exist for 2-ports only; this file has " +
                       std::to_string(n) + " ports");
      return false;
    }
    if (m_Header.reference.empty()) {
      if (m_OptionResistance.size() > 1 && m_OptionResistance.size() != static_cast<size_t>(n)) {
        Fail(column, "expected 1 or " + std::to_string(n) + " resistances after R on the option line, found " +
                         std::to_string(m_OptionResistance.size()));
        return false;
      }
      m_Header.reference = m_OptionResistance.size() == static_cast<size_t>(n)
                               ? m_OptionResistance
                               : std::vector<double>(static_cast<size_t>(n),
                                                     m_OptionResistance.empty() ? kDefaultReferenceOhms
                                                                                : m_OptionResistance[0]);
    }
    // Where each pair of a record goes (and its mirror for a triangle).
    const bool byColumn = n == 2 && (m_Header.version < 2.0 || m_Header.twoPortDataOrder == "21_12");
    m_Target.clear();
    m_Mirror.clear();
    m_RowPairs.clear();
    for (int i = 0; i < n; ++i) {
      const int from = m_Header.matrixFormat == TouchstoneHeader::kUpper ? i : 0;
      const int to = m_Header.matrixFormat == TouchstoneHeader::kLower ? i + 1 : n;
      for (int j = from; j < to; ++j) {
        m_Target.push_back(byColumn ? j * n + i : i * n + j);
        m_Mirror.push_back(j * n + i);
      }
      m_RowPairs.push_back(to - from);
    }
    // One- and two-ports hold a record on one line; larger matrices begin
    // every row on a new line.
    if (n <= 2) m_RowPairs.assign(1, static_cast<int>(m_Target.size()));
    m_Values.assign(2 * m_Target.size(), 0.0);
    m_Cos.resize(m_Target.size());
    m_Sin.resize(m_Target.size());
    const size_t most = 2 * static_cast<size_t>(*std::max_element(m_RowPairs.begin(), m_RowPairs.end())) + 1;
    m_Firsts.resize(most + 64);
    m_Lasts.resize(most + 64);
    m_Count = 0;
    m_Prepared = true;
    return true;
  }

  void DataLine(std::string_view content, size_t start) {
    m_SeenContent = true;
    if (m_Stage == kHeader && m_Header.version >= 2.0) {
      Fail(start, "expected [Network Data] before the data");
      return;
    }
    if (!m_HaveOptions) {
      Fail(start, "expected the option line (such as \"# GHz S MA R 50\") before the data");
      return;
    }
    if (!m_Prepared) {
      if (m_NamedPorts < 1) {
        Fail(start, "cannot tell the port count: name the file .sNp or give [Number of Ports] in a "
                    "version 2 file");
        return;
      }
      m_Header.ports = m_NamedPorts;
      if (!Prepare(start)) return;
      m_Stage = kNetwork;
    }
    if (m_Stage == kNoise) {
      NoiseLine(content);
      return;
    }
    size_t onLine = 0;
    ForEachToken(content, [&](const Token& token) {
      ++onLine;
      double v = 0.0;
      if (!ParseNumber(token.text, v)) {
        Fail(token.column, "expected a number, found " + Quoted(token.text));
        return false;
      }
      if (!m_InRecord) return StartRecord(v, token, content);
      if (m_RowDone) {
        RowTooLong(token);
        return false;
      }
      m_Values[m_Count++] = v;
      if (++m_InRow == m_RowPairs[m_Row] * 2) {
        m_InRow = 0;
        ++m_Row;
        m_RowDone = true;
        if (static_cast<size_t>(m_Row) == m_RowPairs.size()) m_RecordDone = true;
      }
      return true;
    });
    if (m_Failed || m_Stage == kNoise) return;
    if (m_RecordDone) {
      EndRecord();
      return;
    }
    m_RowDone = false;
    if (m_InRecord && m_Header.ports <= 2) {
      const size_t found = onLine;
      Fail(content.size(), "expected " + std::to_string(1 + 2 * m_Target.size()) +
                               " values on the line of a " + std::to_string(m_Header.ports) +
                               "-port record (the frequency and " + Pairs(m_Target.size()) + "), found " +
                               std::to_string(found));
    }
  }

  // The first number of a record: its frequency. For a version 1 two-port
  // a frequency that does not increase starts the noise block.
  bool StartRecord(double v, const Token& token, std::string_view content) {
    FinishPending();
    if (m_Records > 0 && !(v > m_LastFrequency)) {
      if (m_Header.version < 2.0 && m_Header.ports == 2) {
        m_Stage = kNoise;
        NoiseLine(content);
        return false;
      }
      Fail(token.column, "expected frequencies in increasing order, found " + Quoted(token.text) +
                             " after " + FrequencyText(m_LastFrequency));
      return false;
    }
    if (!std::isfinite(v) || v < 0.0) {
      Fail(token.column, "expected a frequency of 0 or more, found " + Quoted(token.text));
      return false;
    }
    BeginRecord(v);
    return true;
  }

  void BeginRecord(double frequency) {
    m_InRecord = true;
    m_RecordDone = false;
    m_RowDone = false;
    m_Row = 0;
    m_InRow = 0;
    m_RecordLine = m_Line;
    m_Frequency = frequency;
    m_Count = 0;
  }

  // ---- Data in bulk -------------------------------------------------------
  // The data lines of a big file come here straight from the reader's
  // buffer: one pass over their bytes, each number written where the record
  // keeps it, no line or token objects. A line is taken only when it holds
  // nothing but numbers that fit the record's layout, which is checked
  // before any state changes. The first line that needs more (a comment, a
  // keyword, a frequency that does not increase, a token that is no number,
  // a count that breaks the layout) is left untouched to Line(), which reads
  // it as it reads any line, with the same messages.
  size_t Lines(std::string_view text, long firstLine, long& lines) override {
    lines = 0;
    if (m_Stage != kNetwork || m_VectorPending) return 0;
    const char* const begin = text.data();
    const char* const end = begin + text.size();
    const char* p = begin;
    while (p != end && TakeLine(p, end, firstLine + lines)) ++lines;
    return static_cast<size_t>(p - begin);
  }

  // Bit i of `blanks` set where p[i] is a blank, tab or carriage return,
  // of `ends` where it is '\n', over the 64 bytes from p.
  static void Masks(const char* p, std::uint64_t& blanks, std::uint64_t& ends) {
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

  // One line from p (line number `line`); on success p moves past its '\n'.
  // First the bounds of its tokens, from bit masks of 64 bytes at a time
  // (no loop that stops at a different byte for every token), then their
  // numbers: each parsed knowing where it ends, so the numbers of a line
  // are independent work the processor overlaps, not a chain where each
  // waits for the end of the last.
  bool TakeLine(const char*& p, const char* end, long line) {
    const bool starts = !m_InRecord;
    const size_t rowValues = 2 * static_cast<size_t>(m_RowPairs[starts ? 0 : m_Row]);
    const size_t room = starts ? rowValues + 1 : rowValues - static_cast<size_t>(m_InRow);
    const char** const firsts = m_Firsts.data();
    const char** const lasts = m_Lasts.data();
    size_t tokens = 0, ended = 0;
    std::uint64_t before = 1;  // whether the byte before the chunk is a blank
    const char* lineEnd = nullptr;
    for (const char* base = p; !lineEnd; base += 64) {
      std::uint64_t blanks, ends;
      if (end - base >= 64) {
        Masks(base, blanks, ends);
      } else {
        char tail[64];
        std::memset(tail, '\n', sizeof tail);
        std::memcpy(tail, base, static_cast<size_t>(end - base));
        Masks(tail, blanks, ends);
      }
      if (ends) {
        const int at = std::countr_zero(ends);
        lineEnd = base + at;
        blanks |= ~std::uint64_t{0} << at;  // the line end and what follows end the last token
      }
      const std::uint64_t startBits = ~blanks & ((blanks << 1) | before);
      const std::uint64_t endBits = blanks & ~((blanks << 1) | before);
      // Room for 64 more bounds than a line may hold: a chunk's bounds are
      // stored before the count is checked.
      for (std::uint64_t bits = startBits; bits; bits &= bits - 1) firsts[tokens++] = base + std::countr_zero(bits);
      for (std::uint64_t bits = endBits; bits; bits &= bits - 1) lasts[ended++] = base + std::countr_zero(bits);
      if (tokens > room) return false;
      before = blanks >> 63;
    }
    if (tokens == 0) {  // a blank line
      p = lineEnd + 1;
      return true;
    }
    if (m_Header.ports <= 2 && tokens != room) return false;  // such a record is one line
    const size_t skip = starts ? 1 : 0;
    double* const out = m_Values.data() + (starts ? 0 : m_Count);
    double frequency = 0.0;
    for (size_t k = 0; k < tokens; ++k) {
      const char* const first = firsts[k];
      const auto length = static_cast<size_t>(lasts[k] - first);
      double v;
      if (!(end - first >= kTokenReach && ShortDecimal(first, static_cast<int>(length), v)) &&
          !ParseNumber(std::string_view(first, length), v))
        return false;
      if (starts && k == 0) {
        frequency = v;
      } else {
        out[k - skip] = v;
      }
    }
    if (starts) {
      if ((m_Records > 0 && !(frequency > m_LastFrequency)) || !std::isfinite(frequency) || frequency < 0.0)
        return false;
      m_Line = line;
      FinishPending();
      BeginRecord(frequency);
    }
    const size_t count = tokens - skip;
    m_Count += count;
    m_InRow += static_cast<int>(count);
    if (static_cast<size_t>(m_InRow) == rowValues) {
      m_InRow = 0;
      if (++m_Row == m_RowPairs.size()) {
        m_Line = line;
        EndRecord();
      }
    }
    p = lineEnd + 1;
    return true;
  }

  void RowTooLong(const Token& token) {
    const int n = m_Header.ports;
    if (n <= 2) {
      std::string hint;
      if (m_Records == 0 && m_NamedPorts >= 0 && m_DeclaredFrequencies < 0) hint = "; is the extension right?";
      Fail(token.column, "expected " + std::to_string(1 + 2 * m_Target.size()) + " values on the line of a " +
                             std::to_string(n) + "-port record (the frequency and " + Pairs(m_Target.size()) +
                             "), found more" + hint);
      return;
    }
    Fail(token.column, "expected row " + std::to_string(m_Row) + " of the record for frequency " +
                           FrequencyText(m_Frequency) + " (line " + std::to_string(m_RecordLine) +
                           ") to end its line after " + Pairs(static_cast<size_t>(m_RowPairs[m_Row - 1])) +
                           ", found more values");
  }

  // Turns the gathered numbers into the point's matrix.
  void EndRecord() {
    const int n = m_Header.ports;
    auto point = std::make_unique<CNetworkModalData>(m_Solution.get(), m_Frequency * m_Header.hertzPerUnit,
                                                     CNetworkData::ExactPoint);
    auto m = std::make_unique<CMatrix>(n, n);
    Complex* data = m->data();
    const double* v = m_Values.data();
    if (m_Header.format == kRealImaginary) {
      Convert(data, [v](size_t k) { return Complex(v[2 * k], v[2 * k + 1]); });
    } else {
      Angles();
      const double* c = m_Cos.data();
      const double* s = m_Sin.data();
      Convert(data, [v, c, s](size_t k) { return Complex(v[2 * k] * c[k], v[2 * k] * s[k]); });
    }
    Store(*point, std::move(m));
    m_Pending = std::move(point);
    m_LastFrequency = m_Frequency;
    ++m_Records;
    m_InRecord = false;
    m_RecordDone = false;
  }

  // Cosine and sine of every angle of the record, and dB turned into
  // magnitudes in place.
  void Angles() {
    double* v = m_Values.data();
    const size_t pairs = m_Target.size();
    for (size_t k = 0; k < pairs; ++k) m_Cos[k] = v[2 * k + 1];
    SinCosDegrees(m_Cos.data(), pairs, m_Sin.data(), m_Cos.data());
    if (m_Header.format == kDbAngle)
      for (size_t k = 0; k < pairs; ++k) v[2 * k] = std::pow(10.0, v[2 * k] / 20.0);
  }

  // The record's pairs into the matrix: pair(k) is the k-th complex value.
  template <class F>
  void Convert(Complex* data, F&& pair) const {
    const size_t pairs = m_Target.size();
    const int* target = m_Target.data();
    if (m_Header.matrixFormat == TouchstoneHeader::kFull) {
      for (size_t k = 0; k < pairs; ++k) data[target[k]] = pair(k);
      return;
    }
    for (size_t k = 0; k < pairs; ++k) data[target[k]] = data[m_Mirror[k]] = pair(k);
  }

  // Stores the matrix as the kind the file holds. Version 1 files hold Y,
  // Z, H and G normalised to the reference; version 2 files and our own
  // writer's files hold them in ohms and siemens.
  void Store(CNetworkModalData& point, std::unique_ptr<CMatrix> m) {
    const char p = m_Header.parameter;
    if (p == 'S') {
      point.SetSMatrix(std::move(m));
      return;
    }
    const int n = m_Header.ports;
    CMatrix& a = *m;
    if (m_Header.version < 2.0 && !m_OwnWriter) {
      // Normalised quantities: v = V / sqrt(R), i = I sqrt(R) per port.
      const auto& r = m_Header.reference;
      for (int i = 0; i < n; ++i) {
        for (int j = 0; j < n; ++j) {
          const double rij = std::sqrt(r[static_cast<size_t>(i)] * r[static_cast<size_t>(j)]);
          const double ratio = std::sqrt(r[0] / r[static_cast<size_t>(n - 1)]);
          double scale = 1.0;
          if (p == 'Z') scale = rij;
          if (p == 'Y') scale = 1.0 / rij;
          if (p == 'H') scale = i == j ? (i == 0 ? r[0] : 1.0 / r[1]) : ratio;
          if (p == 'G') scale = i == j ? (i == 0 ? 1.0 / r[0] : r[1]) : 1.0 / ratio;
          a[i][j] = a[i][j] * scale;
        }
      }
    }
    if (p == 'Z') {
      point.SetZMatrix(std::move(m));
    } else if (p == 'Y') {
      point.SetYMatrix(std::move(m));
    } else {
      // Hybrid parameters of a two-port as Z (from H) or Y (from G):
      // x11 = det / p22, x12 = p12 / p22, x21 = -p21 / p22, x22 = 1 / p22.
      const Complex det = a[0][0] * a[1][1] - a[0][1] * a[1][0];
      const Complex d = a[1][1];
      auto x = std::make_unique<CMatrix>(2, 2);
      (*x)[0][0] = det / d;
      (*x)[0][1] = a[0][1] / d;
      (*x)[1][0] = -a[1][0] / d;
      (*x)[1][1] = Complex(1.0) / d;
      if (p == 'H') {
        point.SetZMatrix(std::move(x));
      } else {
        point.SetYMatrix(std::move(x));
      }
    }
  }

  // Hands the last point to the solution with its impedances.
  void FinishPending() {
    if (!m_Pending) return;
    if (!m_Pending->GetPortImpedance()) {
      auto z = std::make_unique<CVector>(m_Header.ports);
      for (int k = 0; k < m_Header.ports; ++k) (*z)[k] = Complex(m_Header.reference[static_cast<size_t>(k)]);
      m_Pending->SetPortImpedance(std::move(z));
    }
    m_Solution->AddNetworkData(std::move(m_Pending));
  }

  void NoiseLine(std::string_view content) {
    double values[5];
    size_t count = 0;
    ForEachToken(content, [&](const Token& token) {
      double v = 0.0;
      if (!ParseNumber(token.text, v)) {
        Fail(token.column, "expected a number, found " + Quoted(token.text));
        return false;
      }
      if (count == 5) {
        Fail(token.column, "expected 5 values on a noise line (frequency, minimum noise figure, "
                           "magnitude and angle of the optimum source reflection, noise resistance), "
                           "found more");
        return false;
      }
      if (count == 0 && m_NoiseCount > 0 && !(v > m_LastNoiseFrequency)) {
        Fail(token.column, "expected noise frequencies in increasing order, found " +
                               Quoted(token.text) + " after " + FrequencyText(m_LastNoiseFrequency));
        return false;
      }
      values[count++] = v;
      return true;
    });
    if (m_Failed) return;
    if (count < 5) {
      Fail(content.size(), "expected 5 values on a noise line (frequency, minimum noise figure, "
                           "magnitude and angle of the optimum source reflection, noise resistance), "
                           "found " + std::to_string(count));
      return;
    }
    // Kept as version 1 files state it: the noise resistance normalised to
    // the reference; version 2 files give it in ohms.
    const double rn = m_Header.version >= 2.0 ? values[4] / m_Header.reference[0] : values[4];
    m_Solution->GetOrCreateNoiseSolution().SetNoiseParameters(values[0] * m_Header.hertzPerUnit, values[1],
                                                              values[2], values[3], rn);
    m_LastNoiseFrequency = values[0];
    ++m_NoiseCount;
  }

  // A keyword or the end of the file ends the data: a record must be whole.
  void EndOfData() {
    if (m_InRecord) {
      const size_t pairs = m_Count / 2;
      Fail(0, "the record for frequency " + FrequencyText(m_Frequency) + " that begins at line " +
                  std::to_string(m_RecordLine) + " ends early: expected " + Pairs(m_Target.size()) + ", found " +
                  std::to_string(pairs) + (m_Count % 2 ? " and a half" : ""));
      return;
    }
    FinishPending();
  }

  void Finish() {
    if (m_Stage == kInformation) {
      Fail(0, "[Begin Information] at line " + std::to_string(m_InformationLine) + " has no [End Information]");
      return;
    }
    if (m_Stage == kReference) {
      Fail(0, "expected " + std::to_string(m_Header.ports) + " reference impedances after [Reference] at line " +
                  std::to_string(m_ReferenceLine) + ", found " + std::to_string(m_Header.reference.size()));
      return;
    }
    if (m_VectorPending) {
      VectorIncomplete();
      return;
    }
    if (!m_Ended) EndOfData();
    if (m_Failed) return;
    if (!m_HaveOptions) {
      Fail(0, "expected the option line (such as \"# GHz S MA R 50\"), found none");
      return;
    }
    if (m_Records == 0) {
      Fail(0, "expected network data, found none");
      return;
    }
    if (m_Header.version >= 2.0 && !m_Ended) {
      Fail(0, "expected [End] at the end of a version 2 file");
      return;
    }
    if (m_DeclaredFrequencies >= 0 && m_Records != m_DeclaredFrequencies) {
      Fail(0, "[Number of Frequencies] says " + std::to_string(m_DeclaredFrequencies) + " but the file holds " +
                  std::to_string(m_Records));
      return;
    }
    if (m_DeclaredNoise >= 0 && m_NoiseCount != m_DeclaredNoise) {
      Fail(0, "[Number of Noise Frequencies] says " + std::to_string(m_DeclaredNoise) + " but the file holds " +
                  std::to_string(m_NoiseCount));
      return;
    }
    NameEntries();
  }

  // Entries named by the file's "! Port[k] = name" lines, else by its
  // [Mixed-Mode Order], else Port1, Port2, ...
  void NameEntries() {
    std::vector<std::string> mixed;
    ForEachToken(m_Header.mixedModeOrder, [&](const Token& t) {
      mixed.emplace_back(t.text);
      return true;
    });
    const size_t n = static_cast<size_t>(m_Header.ports);
    for (size_t k = 0; k < n; ++k) {
      std::string name = "Port" + std::to_string(k + 1);
      if (k < m_PortNames.size() && !m_PortNames[k].empty()) {
        name = m_PortNames[k];
      } else if (mixed.size() == n) {
        name = mixed[k];
      }
      CMatrixEntry entry(name, 1, static_cast<int>(k));
      entry.SetModalEntryName(name);
      m_Solution->AddMatrixEntry(entry);
    }
  }

  TouchstoneHeader& m_Header;
  std::unique_ptr<CNetworkModalSolution> m_Solution;
  int m_NamedPorts = -1;
  bool m_Ended = false;

  Stage m_Stage = kHeader;
  Stage m_StageBeforeInformation = kHeader;
  long m_InformationLine = 0;
  long m_ReferenceLine = 0;
  bool m_SeenContent = false;
  bool m_HaveOptions = false;
  bool m_OwnWriter = false;
  std::vector<double> m_OptionResistance;
  int m_DeclaredFrequencies = -1;
  int m_DeclaredNoise = -1;
  std::vector<std::string> m_PortNames;

  // Record layout.
  bool m_Prepared = false;
  std::vector<int> m_Target;   // matrix element of each pair
  std::vector<int> m_Mirror;   // its transpose, for Lower and Upper
  std::vector<int> m_RowPairs; // pairs per line-starting row
  // The record being read.
  bool m_InRecord = false;
  bool m_RecordDone = false;
  bool m_RowDone = false;
  size_t m_Row = 0;
  int m_InRow = 0;
  long m_RecordLine = 0;
  double m_Frequency = 0.0;
  double m_LastFrequency = 0.0;
  std::vector<double> m_Values;  // the record's numbers after its frequency
  size_t m_Count = 0;            // how many of them are read
  std::vector<double> m_Cos, m_Sin;  // of the record's angles
  std::vector<const char*> m_Firsts, m_Lasts;  // bounds of a line's tokens, in bulk
  int m_Records = 0;
  std::unique_ptr<CNetworkModalData> m_Pending;  // last point, until its comment lines are read
  // "! Gamma" / "! Port Impedance" values being gathered.
  bool m_VectorPending = false;
  bool m_VectorIsImpedance = false;
  long m_VectorLine = 0;
  std::vector<double> m_Vector;
  // Noise.
  int m_NoiseCount = 0;
  double m_LastNoiseFrequency = 0.0;
};

}  // namespace

int TouchstonePortsFromName(const std::string& path) {
  const std::string extension = Lower(std::filesystem::path(path).extension().string());
  if (extension.size() < 4 || extension[1] != 's' || extension.back() != 'p') return -1;
  int ports = 0;
  for (size_t i = 2; i + 1 < extension.size(); ++i) {
    if (extension[i] < '0' || extension[i] > '9') return -1;
    ports = ports * 10 + (extension[i] - '0');
    if (ports > 100000) return -1;
  }
  return ports;
}

std::unique_ptr<CNetworkModalSolution> ReadTouchstoneFile(const std::filesystem::path& path,
                                                          std::string* error,
                                                          TouchstoneHeader* header) {
  CLineReader lines(path);
  if (!lines.error().empty()) {
    if (error) *error = path.string() + ": cannot open the file: " + lines.error();
    return nullptr;
  }
  TouchstoneHeader local;
  TouchstoneHeader& h = header ? *header : local;
  h = TouchstoneHeader();
  return CTouchstoneParser(path.string(), h).Run(lines, error);
}

std::unique_ptr<CNetworkModalSolution> ReadTouchstoneText(std::string_view text,
                                                          const std::string& name,
                                                          std::string* error,
                                                          TouchstoneHeader* header) {
  CLineReader lines(text);
  TouchstoneHeader local;
  TouchstoneHeader& h = header ? *header : local;
  h = TouchstoneHeader();
  return CTouchstoneParser(name, h).Run(lines, error);
}

}  // namespace nd
