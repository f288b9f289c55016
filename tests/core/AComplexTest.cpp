// AComplex: arithmetic, the saturating division by an exact zero, and the
// magnitude helpers.
#include "core/AComplex.h"

#include <gtest/gtest.h>

#include <limits>

namespace {

using Z = AComplex<double>;

TEST(AComplex, DivisionByExactZeroSaturatesBothParts) {
  const double big = 1.7976931348623157e+308;
  for (const Z num : {Z(1, 2), Z(-3, 0), Z(0, 0)}) {
    for (const Z zero : {Z(0, 0), Z(-0.0, 0.0), Z(0.0, -0.0)}) {
      const Z q = num / zero;
      EXPECT_EQ(q.re, big);
      EXPECT_EQ(q.im, big);
    }
  }
  Z z(5, 6);
  z /= Z();
  EXPECT_EQ(z.re, big);
  EXPECT_EQ(z.im, big);
}

TEST(AComplex, DivisionByTinyOrHugeDivisorsStaysExact) {
  // |b|^2 under- or overflows here; the quotient itself is ordinary.
  const Z tiny = Z(1, 0) / Z(1e-200, 0);
  EXPECT_DOUBLE_EQ(tiny.re, 1e200);
  EXPECT_EQ(tiny.im, 0.0);
  const Z one = Z(1e200, 1e200) / Z(1e200, 1e200);
  EXPECT_DOUBLE_EQ(one.re, 1.0);
  EXPECT_DOUBLE_EQ(one.im, 0.0);
  const Z rotated = Z(0, 3e-170) / Z(0, 1e-170);
  EXPECT_DOUBLE_EQ(rotated.re, 3.0);
}

TEST(AComplex, Arithmetic) {
  const Z a(1, 2), b(3, -4);
  EXPECT_TRUE(a + b == Z(4, -2));
  EXPECT_TRUE(a - b == Z(-2, 6));
  EXPECT_TRUE(a * b == Z(11, 2));
  EXPECT_TRUE(-a == Z(-1, -2));
  EXPECT_TRUE(a * 2.0 == Z(2, 4));
  EXPECT_TRUE(2.0 * a == Z(2, 4));
  const Z q = a / b;  // (1+2i)/(3-4i) = (-5+10i)/25
  EXPECT_DOUBLE_EQ(q.re, -0.2);
  EXPECT_DOUBLE_EQ(q.im, 0.4);
  // In-place forms return the object itself and agree with the binary ones.
  Z c = a;
  (c *= b) += Z(1, 1);
  EXPECT_TRUE(c == Z(12, 3));
  // The imaginary part of a product uses the original real part.
  Z d(2, 3);
  d *= d;
  EXPECT_TRUE(d == Z(-5, 12));
  Z e(2, 3);
  e /= e;
  EXPECT_DOUBLE_EQ(e.re, 1.0);
  EXPECT_DOUBLE_EQ(e.im, 0.0);
}

TEST(AComplex, MagnitudeAndConjugate) {
  EXPECT_EQ(abs(Z(3, -4)), 5.0);
  EXPECT_EQ(norm(Z(3, -4)), 25.0);
  EXPECT_TRUE(conj(Z(3, -4)) == Z(3, 4));
  // No overflow in the intermediate square.
  EXPECT_DOUBLE_EQ(abs(Z(3e300, 4e300)), 5e300);
  EXPECT_EQ(Z(7).im, 0.0);
  static_assert(conj(Z(1, 2)).im == -2.0);
  static_assert(norm(Z(1, 2)) == 5.0);
}

}  // namespace
