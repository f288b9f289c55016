// AComplex<T>: the complex number of the network data. Laid out as exactly two
// T (real, then imaginary), so an array of AComplex<double> can be handed to
// LAPACK as its double complex type.
#pragma once

#include <cmath>
#include <limits>
#include <type_traits>

template <class T>
struct AComplex {
  T re{};
  T im{};

  constexpr AComplex() = default;
  constexpr AComplex(T real, T imag = T()) : re(real), im(imag) {}

  constexpr T real() const { return re; }
  constexpr T imag() const { return im; }

  constexpr AComplex& operator+=(const AComplex& b) {
    re += b.re;
    im += b.im;
    return *this;
  }
  constexpr AComplex& operator-=(const AComplex& b) {
    re -= b.re;
    im -= b.im;
    return *this;
  }
  constexpr AComplex& operator*=(const AComplex& b) {
    const T r = re * b.re - im * b.im;
    im = re * b.im + im * b.re;
    re = r;
    return *this;
  }
  constexpr AComplex& operator*=(T s) {
    re *= s;
    im *= s;
    return *this;
  }
  // Division by an exact zero saturates both parts to the largest finite
  // double instead of producing infinities or NaN: downstream conversions keep
  // finite numbers and no floating-point exception is raised. Any other
  // divisor takes Smith's scaled quotient, so neither a tiny nor a huge
  // divisor overflows or underflows in |b|^2.
  constexpr AComplex& operator/=(const AComplex& b) {
    if (b.re == T(0) && b.im == T(0)) {
      re = im = static_cast<T>(std::numeric_limits<double>::max());
      return *this;
    }
    if (std::fabs(b.re) >= std::fabs(b.im)) {
      const T ratio = b.im / b.re;
      const T den = b.re + b.im * ratio;
      const T r = (re + im * ratio) / den;
      im = (im - re * ratio) / den;
      re = r;
    } else {
      const T ratio = b.re / b.im;
      const T den = b.re * ratio + b.im;
      const T r = (re * ratio + im) / den;
      im = (im * ratio - re) / den;
      re = r;
    }
    return *this;
  }

  constexpr AComplex operator-() const { return AComplex(-re, -im); }
  friend constexpr AComplex operator+(AComplex a, const AComplex& b) { return a += b; }
  friend constexpr AComplex operator-(AComplex a, const AComplex& b) { return a -= b; }
  friend constexpr AComplex operator*(AComplex a, const AComplex& b) { return a *= b; }
  friend constexpr AComplex operator*(AComplex a, T s) { return a *= s; }
  friend constexpr AComplex operator*(T s, AComplex a) { return a *= s; }
  friend constexpr AComplex operator/(AComplex a, const AComplex& b) { return a /= b; }
  friend constexpr bool operator==(const AComplex& a, const AComplex& b) {
    return a.re == b.re && a.im == b.im;
  }
};

// Magnitude (hypotenuse, without intermediate overflow).
template <class T>
inline T abs(const AComplex<T>& z) {
  return std::hypot(z.re, z.im);
}

// Squared magnitude, for divisions and power sums where the root is not needed.
template <class T>
constexpr T norm(const AComplex<T>& z) {
  return z.re * z.re + z.im * z.im;
}

template <class T>
constexpr AComplex<T> conj(const AComplex<T>& z) {
  return AComplex<T>(z.re, -z.im);
}

static_assert(sizeof(AComplex<double>) == 2 * sizeof(double));
static_assert(std::is_standard_layout_v<AComplex<double>>);
static_assert(std::is_trivially_copyable_v<AComplex<double>>);
