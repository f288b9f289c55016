// Sine and cosine of angles in degrees, several at a time in vector
// registers: how the Touchstone reader turns MA and DB pairs into complex
// values. Declared in TouchstoneReader.h, where its callers have found it.
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <numbers>

#include "sparamlib/formats/TouchstoneReader.h"

namespace nd {
namespace {

// MA and DB pairs need both for every value: a libm sincos costs some 20 ns,
// as much as all the rest of reading a value. Here the angle is reduced in
// degrees, where it is exact (x - 90 k for a whole k), so 90, 180 or -270
// degrees give exact zeros and ones, and only the remainder, at most 45
// degrees, goes to radians; sine and cosine of it are the minimax
// polynomials of fdlibm's __kernel_sin and __kernel_cos (Sun Microsystems'
// freely distributed libm; below 1 ulp on [-pi/4, pi/4]). Several angles at
// a time in vector registers: two, or four where the processor has AVX;
// every lane does the same operations in the same order (no fused
// multiply-add), so the bits never depend on the path taken.
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

}  // namespace nd
