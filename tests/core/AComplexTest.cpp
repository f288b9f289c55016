// AComplex: the saturating division by an exact zero, division scaled for
// tiny or huge divisors, in-place arithmetic on itself and the magnitude.
#include "core/AComplex.h"

#include <gtest/gtest.h>

namespace {

using Z = AComplex<double>;

TEST(AComplex, DivisionByExactZeroSaturatesBothParts) {
  const Z big(1.7976931348623157e+308, 1.7976931348623157e+308);
  for (const Z num : {Z(1, 2), Z(-3, 0), Z(0, 0)}) {
    for (const Z zero : {Z(0, 0), Z(-0.0, 0.0), Z(0.0, -0.0)}) {
      Z q = num;
      q /= zero;
      EXPECT_TRUE(num / zero == big && q == big) << num.re << " / " << zero.re << ", " << zero.im;
    }
  }
}

TEST(AComplex, DivisionByTinyOrHugeDivisorsStaysExact) {
  // |b|^2 under- or overflows here; the quotient itself is ordinary.
  const Z tiny = Z(1, 0) / Z(1e-200, 0), one = Z(1e200, 1e200) / Z(1e200, 1e200);
  EXPECT_DOUBLE_EQ(tiny.re, 1e200);
  EXPECT_EQ(tiny.im, 0.0);
  EXPECT_DOUBLE_EQ(one.re, 1.0);
  EXPECT_DOUBLE_EQ(one.im, 0.0);
  EXPECT_DOUBLE_EQ((Z(0, 3e-170) / Z(0, 1e-170)).re, 3.0);
  const Z q = Z(1, 2) / Z(3, -4);  // (-5+10i)/25
  EXPECT_DOUBLE_EQ(q.re, -0.2);
  EXPECT_DOUBLE_EQ(q.im, 0.4);
}

TEST(AComplex, InPlaceArithmeticOnItself) {
  Z c(1, 2);
  (c *= Z(3, -4)) += Z(1, 1);  // in-place forms return the object itself
  EXPECT_TRUE(c == Z(12, 3));
  Z d(2, 3), e(2, 3);
  d *= d;  // the imaginary part must use the original real part
  e /= e;
  EXPECT_TRUE(d == Z(-5, 12));
  EXPECT_DOUBLE_EQ(e.re, 1.0);
  EXPECT_DOUBLE_EQ(e.im, 0.0);
}

TEST(AComplex, MagnitudeDoesNotOverflow) {
  EXPECT_EQ(abs(Z(3, -4)), 5.0);
  EXPECT_DOUBLE_EQ(abs(Z(3e300, 4e300)), 5e300);
  static_assert(conj(Z(1, 2)) == Z(1, -2) && norm(Z(1, 2)) == 5.0);
}

}  // namespace
