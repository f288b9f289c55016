// The distinct entries of a set of matrices, fitted with one denominator.
#include "sparamlib/fit/BRIWeights.h"

#include <algorithm>
#include <cmath>

namespace nd {
namespace {

using Complex = AComplex<double>;

// S_ji counts as a copy of S_ij when they differ by no more than this,
// relative to the largest entry: far above solver scatter and rounding, far
// below any real non-reciprocity worth modelling on its own.
constexpr double kMirrorTolerance = 1e-3;

bool Symmetric(const std::vector<const TNT::CMatrix*>& values, int n, double scale) {
  for (const TNT::CMatrix* m : values)
    for (int i = 0; i < n; ++i)
      for (int j = i + 1; j < n; ++j)
        if (abs((*m)[i][j] - (*m)[j][i]) > kMirrorTolerance * scale) return false;
  return true;
}

}  // namespace

RationalFit FitBarycentricWeights(const std::vector<double>& x,
                                  const std::vector<const TNT::CMatrix*>& values,
                                  const RationalFitOptions& options) {
  const size_t N = x.size();
  if (N == 0) return {};
  const int n = values.front()->num_rows();
  double scale = 0.0;
  for (const TNT::CMatrix* m : values)
    for (int e = 0; e < m->size(); ++e) scale = std::max(scale, norm(m->data()[e]));
  scale = scale > 0.0 ? std::sqrt(scale) : 1.0;
  const bool symmetric = Symmetric(values, n, scale);
  std::vector<Complex> F;
  size_t entries = 0;
  for (int i = 0; i < n; ++i)
    for (int j = symmetric ? i : 0; j < n; ++j, ++entries)
      for (size_t k = 0; k < N; ++k) {
        const TNT::CMatrix& m = *values[k];
        F.push_back(symmetric && i != j ? (m[i][j] + m[j][i]) * 0.5 : m[i][j]);
      }
  return FitRational(x, F, entries, options);
}

}  // namespace nd
