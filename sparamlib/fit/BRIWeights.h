// Barycentric weights of a set of solved matrices, so that any solution can
// be interpolated by CBRIInterpolateVisitor: one rational fit of all
// distinct matrix entries with a shared denominator (RationalFit), its
// weights spread over every solved frequency (0 away from the support
// points, or Floater-Hormann weights where no clean rational model exists).
// docs/interpolation.md explains the choice.
#pragma once

#include <vector>

#include "math/matrix/MatrixOps.h"
#include "sparamlib/fit/RationalFit.h"

namespace nd {

// Weights for the matrices `values` (all n x n) at the ascending
// frequencies `x`. Entries that mirror others (reciprocal networks, to
// within scatter) are fitted once, as the mean of the pair, so that a
// reciprocal network's copies never count as new data.
RationalFit FitBarycentricWeights(const std::vector<double>& x,
                                  const std::vector<const TNT::CMatrix*>& values,
                                  const RationalFitOptions& options = {});

}  // namespace nd
