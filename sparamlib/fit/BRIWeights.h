// Barycentric weights for a solved set, so that any solution can be
// interpolated by CBRIInterpolateVisitor. A rational fit of all matrix
// entries with one denominator (AAA: greedy support points, a least-squares
// Loewner step per point) gives them: when it reproduces every solved point
// within its tolerance its own weights are used (0 away from the support
// points); otherwise they are spread over every solved frequency with
// Floater-Hormann blending, so the interpolant passes through every solved
// point. docs/interpolation.md explains the choice.
#pragma once

#include <memory>
#include <vector>

#include "core/AString.h"
#include "math/matrix/MatrixOps.h"

class InterpolateBRI;

namespace nd {

struct BRIFitOptions {
  // Largest relative residual (to the largest |S_ij|) at which the fit stops
  // adding support points.
  double tolerance = 1e-13;
  // Upper bound on support points; 0 chooses half the solved points.
  int maxSupport = 0;
  // Upper bound on the blending degree: higher degrees reproduce rational
  // data of higher degree, but amplify the fit's residual by about 2^degree.
  int maxDegree = 15;
};

struct BarycentricFit {
  std::vector<AComplex<double>> weights;  // one per solved frequency, largest |w| = 1
  std::vector<int> support;               // indices of the support points, in order of choice
  std::vector<double> errors;             // relative residual after each support point
};

// Weights for the matrices `values` (all n x n) at the ascending
// frequencies `x`. Entries that mirror others at every point (reciprocal
// networks) are fitted once.
BarycentricFit FitBarycentricWeights(const std::vector<double>& x,
                                     const std::vector<const TNT::CMatrix*>& values,
                                     const BRIFitOptions& options = {});

// The same for data already laid out entry by entry: F[e * N + k] is entry
// e at frequency x[k], for `entries` entries. The fit's tolerance is relative
// to the largest |F|.
BarycentricFit FitBarycentricData(const std::vector<double>& x,
                                  const std::vector<AComplex<double>>& F, size_t entries,
                                  const BRIFitOptions& options = {});

}  // namespace nd
