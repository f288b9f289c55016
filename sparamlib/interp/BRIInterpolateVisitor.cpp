// Barycentric evaluation of S from stored weights.
#include "sparamlib/interp/BRIInterpolateVisitor.h"

#include <algorithm>
#include <cfloat>
#include <iterator>
#include <vector>

#include "sparamlib/data/FxemModalData.h"
#include "sparamlib/fit/InterpolateBRI.h"
#include "sparamlib/interp/FxemModalSolution.h"
#include "sparamlib/interp/NevilleInterpolateVisitor.h"
#include "sparamlib/solution/NetworkTerminalSolution.h"

namespace {

using Complex = AComplex<double>;

// Solved frequencies this close to the request (in the unit of the keys) are
// served by the solved data itself.
constexpr double kExactBand = 1.0;

// Slope between the solved points around f, of the matrix entry (i, j);
// the largest finite double for two points at one frequency.
Complex Slope(CNetworkData& lower, CNetworkData& upper, int i, int j) {
  const double df = upper.GetFrequency() - lower.GetFrequency();
  if (df == 0.0) return Complex(DBL_MAX, DBL_MAX);
  const Complex d = upper.GetValue(nd::kSMatrix, i, j) - lower.GetValue(nd::kSMatrix, i, j);
  return Complex(d.re / df, d.im / df);
}

// Num_ij / Den_ij with Num_ij = sum_k u_ijk S_k(i, j), Den_ij = sum_k u_ijk,
// u_ijk = w_ijk / (f - f_k). Points whose weights are all zero add nothing
// and are skipped; when every entry has the same weights, Den is one
// number and Num a sum of scaled matrices.
std::unique_ptr<TNT::CMatrix> Evaluate(const CNetworkDataSolution::PointMap& map,
                                       const InterpolateBRI::Layout& layout, double f, int n) {
  const size_t entries = static_cast<size_t>(n) * static_cast<size_t>(n);
  auto result = std::make_unique<TNT::CMatrix>(n, n);
  Complex* num = result->data();
  if (layout.shared) {
    // One denominator: S = sum_k (u_k / Den) S_k.
    std::vector<const Complex*> x;
    std::vector<Complex> a;
    Complex den;
    int k = 0;
    for (auto it = map.begin(); it != map.end(); ++it, ++k) {
      if (!layout.active[static_cast<size_t>(k)]) continue;
      const Complex w = layout.byFrequency[k][0];
      const double r = 1.0 / (f - it->first);
      a.emplace_back(w.re * r, w.im * r);
      den += a.back();
      x.push_back(it->second->GetSMatrix(true)->data());
    }
    for (Complex& c : a) c = c / den;
    TNT::LinearCombination(num, x.data(), a.data(), a.size(), entries);
    return result;
  }
  std::vector<Complex> den(entries);
  int k = 0;
  for (auto it = map.begin(); it != map.end(); ++it, ++k) {
    if (!layout.active[static_cast<size_t>(k)]) continue;
    const double r = 1.0 / (f - it->first);
    const Complex* w = layout.byFrequency[k];
    const Complex* sk = it->second->GetSMatrix(true)->data();
    for (size_t e = 0; e < entries; ++e) {
      const Complex u(w[e].re * r, w[e].im * r);
      den[e] += u;
      num[e] += u * sk[e];
    }
  }
  for (size_t e = 0; e < entries; ++e) num[e] = num[e] / den[e];
  return result;
}

}  // namespace

bool CBRIInterpolateVisitor::Visit(CNetworkDataSolution& solution, CNetworkData& target) {
  const InterpolateBRI* weights = solution.GetBRIWeights();
  const auto& map = solution.GetFrequencyMap();
  const int N = static_cast<int>(map.size());
  const int n = target.GetNumPorts();
  if (!weights || map.empty()) return false;
  const TNT::CVector* first = weights->GetWeights(0, 0);
  if (!first || first->size() != N || !map.begin()->second->GetSMatrix(true)) return false;
  // Every entry needs its weights at the same length, for this port count.
  const InterpolateBRI::Layout* layout = weights->GetLayout();
  if (!layout || weights->GetNumPorts() != n) return false;

  if (N == 1) {
    target.SetSMatrix(std::make_unique<TNT::CMatrix>(*map.begin()->second->GetSMatrix(true)));
    target.SetValue(1.0);
    return true;
  }
  const double f = target.GetFrequency();
  const auto near = map.lower_bound(f - kExactBand);
  if (near != map.end() && near->first <= f + kExactBand) return true;
  // Below the solved band there is no lower neighbour to estimate the error
  // from; such requests are not interpolated.
  if (map.begin()->first >= f) return false;

  auto lower = map.begin();
  for (auto it = map.begin(); it != map.end(); ++it) {
    const TNT::CMatrix* s = it->second->GetSMatrix(true);
    if (!s || s->num_rows() != n || s->num_cols() != n) return false;
    if (it->first < f) lower = it;
  }
  std::unique_ptr<TNT::CMatrix> result = Evaluate(map, *layout, f, n);

  // The error value is the slope, between the solved points around f, of
  // the last entry (every entry's slope overwrites the one before), so only
  // that entry is evaluated. Above the solved band it stays 0.
  Complex slope;
  const auto upper = std::next(lower);
  if (upper != map.end()) slope = Slope(*lower->second, *upper->second, n - 1, n - 1);

  if (auto* modal = dynamic_cast<CNetworkModalData*>(&target)) {
    auto z = std::make_unique<TNT::CVector>(n);
    for (int p = 0; p < n; ++p) (*z)[p] = Complex(nd::kDefaultReferenceOhms);
    modal->SetPortImpedance(std::move(z));
  }
  target.SetSMatrix(std::move(result));
  target.SetYMatrix(nullptr);
  target.SetZMatrix(nullptr);
  target.SetValue(abs(slope));
  return true;
}

bool CBRIInterpolateVisitor::Visit(CFxemModalSolution& solution, CFxemModalData& target) {
  return Visit(static_cast<CNetworkDataSolution&>(solution), static_cast<CNetworkData&>(target));
}

bool CBRIInterpolateVisitor::Visit(CNetworkModalSolution& solution, CNetworkModalData& target) {
  // S from the weights, then the port vectors of the solved points replace
  // the generic reference impedances: S was solved in those.
  CNetworkModalData candidate(target);
  const TNT::CMatrix* before = candidate.GetSMatrix(false);
  if (!Visit(static_cast<CNetworkDataSolution&>(solution), static_cast<CNetworkData&>(candidate)))
    return false;
  if (candidate.GetSMatrix(false) == before) return true;  // served by the solved data
  if (!nd::InterpolatePortVectors(solution, candidate)) return false;
  target = std::move(candidate);
  return true;
}

bool CBRIInterpolateVisitor::Visit(CNetworkTerminalSolution& solution,
                                   CNetworkTerminalData& target) {
  // S from the weights, then the references and line matrices of the
  // solved points: S was solved at those references.
  CNetworkTerminalData candidate(target);
  const TNT::CMatrix* before = candidate.GetSMatrix(false);
  if (!Visit(static_cast<CNetworkDataSolution&>(solution), static_cast<CNetworkData&>(candidate)))
    return false;
  if (candidate.GetSMatrix(false) == before) return true;  // served by the solved data
  if (!nd::InterpolateTerminalVectors(solution, candidate)) return false;
  target = std::move(candidate);
  return true;
}

namespace nd {

std::unique_ptr<InterpolateBRI> ComputeBRIWeights(CNetworkDataSolution& solution,
                                                  const RationalFitOptions& options, AString* why) {
  const int n = solution.GetNumPorts();
  std::vector<double> x;
  std::vector<const TNT::CMatrix*> values;
  for (const auto& [f, point] : solution.GetFrequencyMap()) {
    const TNT::CMatrix* s = point->GetSMatrix(true);
    if (!s || s->num_rows() != n || s->num_cols() != n || n < 1) {
      if (why) *why = AString::Format("the point at %.17g Hz has no %d x %d S matrix", f, n, n);
      return nullptr;
    }
    x.push_back(f);
    values.push_back(s);
  }
  if (x.empty()) {
    if (why) *why = "the solution has no solved points";
    return nullptr;
  }
  const RationalFit fit = FitBarycentricWeights(x, values, options);
  auto set = std::make_unique<InterpolateBRI>(n, static_cast<int>(x.size()));
  for (int i = 0; i < n; ++i)
    for (int j = 0; j < n; ++j) {
      TNT::CVector* w = set->GetWeights(i, j);
      for (int k = 0; k < w->size(); ++k) (*w)[k] = fit.weights[static_cast<size_t>(k)];
    }
  set->GetFrequencies() = x;
  for (int k : fit.support) set->GetSupportFrequencies().push_back(x[static_cast<size_t>(k)]);
  std::sort(set->GetSupportFrequencies().begin(), set->GetSupportFrequencies().end());
  set->GetFitErrors() = fit.errors;
  return set;
}

}  // namespace nd
