// Extrapolation of S to DC from a few samples at the low end of a solved
// band. A field solver cannot solve at 0 Hz, yet time-domain responses and
// circuit models need the DC point; it is estimated from a least-squares
// polynomial in f through samples just above the lowest solved frequency.
//
// The samples and the polynomial order come from three environment
// variables, read by ReadDcExtrapolationSettings:
//   DC_EXTRAP_POLYNOMIAL_ORDER  integer 1..9, default 1
//   DC_EXTRAP_NUM_SAMPLES       integer 1..39, default 6
//   DC_EXTRAP_SAMPLE_DELTA      sample spacing in Hz, a real number above
//                               1e-3 and below 1e10; default chosen from the
//                               band (DcSampleFrequencies)
// Integers are read as base-10 numbers ("08" is 8), the spacing as a decimal
// real ("250", "2.5e2"); surrounding blanks are allowed, anything else (an
// empty value, trailing characters, hexadecimal, nan, inf) is an error.
//
// What the result promises. Let g be one entry of S as a function of f,
// d = min(order, samples - 1) the degree fitted, and p(0) the fitted
// polynomial at DC. The least-squares fit reproduces polynomials of degree d
// exactly, so by the Peano kernel theorem (its L1 bound: |L f| <=
// ||K||_1 ||f^(d+1)||_inf for a functional L that annihilates polynomials of
// degree d; see e.g. the Wikipedia article "Peano kernel theorem")
//   |p(0) - g(0)| <= C * max over [0, f_last] of |g^(d+1)|  +  G * delta,
// where C is the integral of |K| over [0, f_last] for the kernel
// K(t) = sum_k w_k (f_k - t)_+^d / d! of the fit's weights w (p(0) =
// sum_k w_k g(f_k)), G = sum_k |w_k| and delta the largest error of a
// sample. DcExtrapolationErrorBound gives C and G for a set of samples.
// For samples far above DC, C is close to f_0^(d+1) / (d+1)!.
// The DC matrix is then made real, symmetric when the input is, and passive;
// for a network whose true DC matrix is real (always), symmetric when the
// samples are, and passive, each step keeps every entry's error within the
// bound above, except that scaling down to passivity can at most double the
// error in the 2-norm: the largest entry error of the returned matrix is at
// most the bound when no scaling took place and 2 n times it (n ports) when
// it did.
#pragma once

#include <string>
#include <vector>

#include "math/matrix/MatrixOps.h"

namespace nd {

struct DcExtrapolationSettings {
  int order = 1;         // polynomial degree asked for
  int samples = 6;       // number of sample frequencies
  double spacing = 0.0;  // Hz between samples; 0 when the band chooses it
};

// Reads the three environment variables; an unset variable keeps the
// default. False with *why naming the variable and its value when one is
// malformed or out of range (settings then unchanged).
bool ReadDcExtrapolationSettings(DcExtrapolationSettings& settings, std::string* why);

// Sample frequencies lowest + k * spacing, k = 0 .. samples - 1, for a band
// solved from `lowest` to `highest`. Without a spacing in `settings` it is
// 100 Hz or half the lowest frequency, whichever is smaller. When
// lowest + samples * spacing would pass `highest`, the spacing (given or
// chosen) is reduced to (highest - lowest) / samples, so every sample lies
// inside the solved band and none needs extrapolating itself. False with
// *why when lowest is not positive, highest is below lowest, or the band has
// no width for more than one sample.
bool DcSampleFrequencies(double lowest, double highest, const DcExtrapolationSettings& settings,
                         std::vector<double>& f, std::string* why);

// The constants of the error bound above for samples `f` (increasing,
// positive) and polynomial order `order` (1..9).
struct DcExtrapolationBound {
  int degree = 0;          // min(order, samples - 1)
  double kernel = 0.0;     // C, in Hz^(degree + 1)
  double noiseGain = 0.0;  // G = sum of |w_k|
};
bool DcExtrapolationErrorBound(const std::vector<double>& f, int order, DcExtrapolationBound& bound,
                               std::string* why);

// The DC matrix from S at the sample frequencies `f` (strictly increasing,
// positive; one square matrix of one size per frequency). Per entry a
// least-squares polynomial of degree min(order, samples - 1) in f, evaluated
// at 0; then
//   - the imaginary parts are set to zero (S of a physical network is real
//     at DC),
//   - when every sample is symmetric (|S_ij - S_ji| <= 1e-9 max(1, |S|max)),
//     the result is replaced by (S + S^T) / 2, so a reciprocal network stays
//     reciprocal exactly,
//   - when the largest singular value sigma exceeds 1, the matrix is divided
//     by sigma: the nearest passive matrix along its own direction, keeping
//     realness, symmetry and the ratios between entries; sigma of the result
//     is 1 to rounding.
// False with *why (dc untouched) for inconsistent input, an order outside
// 1..9 or non-finite values.
bool ExtrapolateToDC(const std::vector<double>& f, const std::vector<TNT::CMatrix>& s, int order,
                     TNT::CMatrix& dc, std::string* why);

}  // namespace nd
