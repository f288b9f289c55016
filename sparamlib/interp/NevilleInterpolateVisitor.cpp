// Entry-wise rational interpolation of S and Lagrange interpolation of port
// vectors.
#include "sparamlib/interp/NevilleInterpolateVisitor.h"

#include <algorithm>
#include <cmath>
#include <iterator>

#include "sparamlib/data/FxemModalData.h"
#include "sparamlib/data/NetworkModalData.h"
#include "sparamlib/interp/FxemModalSolution.h"
#include "sparamlib/solution/NetworkTerminalSolution.h"

namespace nd {
namespace {

using Complex = AComplex<double>;

// Below this distance (in the solution's frequency unit) the target is a
// solved frequency and that point's value is taken as it is.
constexpr double kExactHit = 1e-6;
// Keeps the first denominators of the tableau away from zero.
constexpr double kOffset = 1e-12;

// One entry: y[1..N] at x[1..N] (1-based work vectors c and d of N + 1).
void Tableau(double target, const std::vector<double>& x, const Complex* y, int N,
             std::vector<Complex>& c, std::vector<Complex>& d, Complex& value, Complex& error) {
  int ns = 1;
  double hh = std::fabs(target - x[0]);
  for (int p = 1; p <= N; ++p) {
    const double h = std::fabs(target - x[static_cast<size_t>(p - 1)]);
    if (h > kExactHit) {
      if (h < hh) {
        ns = p;
        hh = h;
      }
    } else {
      value = y[p - 1];
      error = Complex();
      return;
    }
    c[static_cast<size_t>(p)] = y[p - 1];
    d[static_cast<size_t>(p)] = y[p - 1] + Complex(kOffset);
  }
  Complex result = y[ns - 1];
  Complex dy;
  --ns;
  for (int m = 1; m < N; ++m) {
    for (int p = 1; p <= N - m; ++p) {
      const Complex w = c[static_cast<size_t>(p + 1)] - d[static_cast<size_t>(p)];
      const double h = x[static_cast<size_t>(p + m - 1)] - target;
      const Complex t = d[static_cast<size_t>(p)] * ((x[static_cast<size_t>(p - 1)] - target) / h);
      Complex dd = t - c[static_cast<size_t>(p + 1)];
      if (dd.re == 0.0 && dd.im == 0.0) {
        // A pole of the rational function at the target: keep the best
        // value reached.
        value = result;
        error = dy;
        return;
      }
      dd = w / dd;
      d[static_cast<size_t>(p)] = c[static_cast<size_t>(p + 1)] * dd;
      c[static_cast<size_t>(p)] = t * dd;
    }
    if (2 * ns < N - m) {
      dy = c[static_cast<size_t>(ns + 1)];
    } else {
      dy = d[static_cast<size_t>(ns)];
      --ns;
    }
    result += dy;
  }
  value = result;
  error = dy;
}

}  // namespace

void NevilleInterpolate(double target, const std::vector<double>& x,
                        const std::vector<const TNT::CMatrix*>& values, TNT::CMatrix& Y,
                        TNT::CMatrix& E) {
  const int N = static_cast<int>(x.size());
  const int rows = values.front()->num_rows(), cols = values.front()->num_cols();
  Y = TNT::CMatrix(rows, cols);
  E = TNT::CMatrix(rows, cols);
  // Two work vectors reused for every entry; the entry's values gathered once.
  std::vector<Complex> c(static_cast<size_t>(N) + 1), d(static_cast<size_t>(N) + 1);
  std::vector<Complex> y(static_cast<size_t>(N));
  for (int k = 0; k < rows * cols; ++k) {
    for (int p = 0; p < N; ++p) y[static_cast<size_t>(p)] = values[static_cast<size_t>(p)]->data()[k];
    Tableau(target, x, y.data(), N, c, d, Y.data()[k], E.data()[k]);
  }
}

double InterpolationError(const TNT::CMatrix& Y, const TNT::CMatrix& E) {
  double change = 0.0, power = 0.0;
  for (int k = 0; k < Y.size(); ++k) {
    const Complex& e = E.data()[k];
    const Complex& y = Y.data()[k];
    change += std::fabs(2.0 * (e * conj(y)).re) + norm(e);
    power += norm(y);
  }
  return change / power;
}

}  // namespace nd

namespace {

// The S matrices and frequencies of every solved point, or false when a
// point cannot give an n x n S.
bool Gather(CNetworkDataSolution& solution, int n, std::vector<double>& x,
            std::vector<const TNT::CMatrix*>& values) {
  for (const auto& [f, point] : solution.GetFrequencyMap()) {
    const TNT::CMatrix* s = point->GetSMatrix(true);
    if (!s || s->num_rows() != n || s->num_cols() != n) return false;
    x.push_back(f);
    values.push_back(s);
  }
  return !x.empty();
}

// The three-point Lagrange rule around the solved frequency nearest to f
// (of two equally near, the lower), moved inwards at the ends of the band.
bool InterpolatePortVector(CNetworkModalSolution& solution, double f, int kind,
                           CNetworkModalData& target) {
  const auto& map = solution.GetFrequencyMap();
  if (map.size() < 3 || !map.begin()->second->GetPortVector(kind)) return false;
  auto mid = map.lower_bound(f);
  if (mid == map.end() || (mid != map.begin() && f - std::prev(mid)->first <= mid->first - f)) --mid;
  if (mid == map.begin()) ++mid;
  if (std::next(mid) == map.end()) --mid;
  const auto below = std::prev(mid), above = std::next(mid);
  const double a = below->first, b = mid->first, e = above->first;
  const double La = (f - e) * (f - b) / ((a - e) * (a - b));
  const double Lb = (f - e) * (f - a) / ((b - e) * (b - a));
  const double Le = (f - b) * (f - a) / ((b - e) * (a - e));
  const TNT::CVector* va = below->second->GetPortVector(kind);
  const TNT::CVector* vb = mid->second->GetPortVector(kind);
  const TNT::CVector* ve = above->second->GetPortVector(kind);
  const int n = target.GetNumPorts();
  if (!va || !vb || !ve || va->size() < n || vb->size() < n || ve->size() < n) return false;
  auto out = std::make_unique<TNT::CVector>(n);
  for (int k = 0; k < n; ++k) (*out)[k] = (*va)[k] * La + (*vb)[k] * Lb + (*ve)[k] * Le;
  if (kind == nd::kPortImpedances) {
    target.SetPortImpedance(std::move(out));
  } else {
    target.SetGamma(std::move(out));
  }
  return true;
}

// ---- Terminal points -------------------------------------------------------

// The three solved points of the Lagrange rule around f (as above) and
// their weights.
struct Stencil {
  CNetworkTerminalData* point[3];
  double weight[3];
};

bool TerminalStencil(CNetworkTerminalSolution& solution, double f, Stencil& out) {
  const auto& map = solution.GetFrequencyMap();
  if (map.size() < 3) return false;
  auto mid = map.lower_bound(f);
  if (mid == map.end() || (mid != map.begin() && f - std::prev(mid)->first <= mid->first - f))
    --mid;
  if (mid == map.begin()) ++mid;
  if (std::next(mid) == map.end()) --mid;
  const auto below = std::prev(mid), above = std::next(mid);
  const double a = below->first, b = mid->first, e = above->first;
  out.weight[0] = (f - e) * (f - b) / ((a - e) * (a - b));
  out.weight[1] = (f - e) * (f - a) / ((b - e) * (b - a));
  out.weight[2] = (f - b) * (f - a) / ((b - e) * (a - e));
  int k = 0;
  for (const auto& it : {below, mid, above}) {
    out.point[k] = dynamic_cast<CNetworkTerminalData*>(it->second.get());
    if (!out.point[k++]) return false;
  }
  return true;
}

// out[k] = sum of the weighted values, or the value itself where the three
// agree exactly.
void Combine(const Stencil& s, const AComplex<double>* const (&v)[3], int count,
             AComplex<double>* out) {
  for (int k = 0; k < count; ++k) {
    if (v[0][k] == v[1][k] && v[1][k] == v[2][k]) {
      out[k] = v[0][k];
    } else {
      out[k] = v[0][k] * s.weight[0] + v[1][k] * s.weight[1] + v[2][k] * s.weight[2];
    }
  }
}

// The matrix `get` returns at the three points, combined; null when one of
// them lacks it or has another size.
template <class Get>
std::unique_ptr<TNT::CMatrix> CombineMatrices(const Stencil& s, int n, Get get) {
  const AComplex<double>* v[3];
  for (int k = 0; k < 3; ++k) {
    const TNT::CMatrix* m = get(*s.point[k]);
    if (!m || m->num_rows() != n || m->num_cols() != n) return nullptr;
    v[k] = m->data();
  }
  auto out = std::make_unique<TNT::CMatrix>(n, n);
  Combine(s, v, n * n, out->data());
  return out;
}

}  // namespace

namespace nd {

bool InterpolateTerminalVectors(CNetworkTerminalSolution& solution, CNetworkTerminalData& target) {
  Stencil s;
  if (!TerminalStencil(solution, target.GetFrequency(), s)) return false;
  const int n = target.GetNumPorts();
  const AComplex<double>* z[3];
  for (int k = 0; k < 3; ++k) {
    const TNT::CVector* v = s.point[k]->GetTerminalImpedance();
    if (!v || v->size() < n) return false;
    z[k] = v->data();
  }
  auto references = std::make_unique<TNT::CVector>(n);
  Combine(s, z, n, references->data());
  target.SetTerminalImpedance(std::move(references));
  target.SetCharacteristicImpedance(CombineMatrices(
      s, n, [](const CNetworkTerminalData& p) { return p.GetCharacteristicImpedance(); }));
  target.SetGammaMatrix(
      CombineMatrices(s, n, [](const CNetworkTerminalData& p) { return p.GetGammaMatrix(); }));
  return true;
}

bool InterpolatePortVectors(CNetworkModalSolution& solution, CNetworkModalData& target) {
  const double f = target.GetFrequency();
  if (!InterpolatePortVector(solution, f, nd::kPortImpedances, target)) return false;
  InterpolatePortVector(solution, f, nd::kPropagationConstants, target);
  return true;
}

}  // namespace nd

bool CNevilleInterpolateVisitor::Visit(CNetworkDataSolution& solution, CNetworkData& target) {
  std::vector<double> x;
  std::vector<const TNT::CMatrix*> values;
  if (!Gather(solution, target.GetNumPorts(), x, values)) return false;
  if (x.size() == 1) {
    target.SetSMatrix(std::make_unique<TNT::CMatrix>(*values.front()));
    target.SetValue(1.0);
    return true;
  }
  auto y = std::make_unique<TNT::CMatrix>();
  TNT::CMatrix e;
  nd::NevilleInterpolate(target.GetFrequency(), x, values, *y, e);
  target.SetValue(nd::InterpolationError(*y, e));
  target.SetSMatrix(std::move(y));
  return true;
}

bool CNevilleInterpolateVisitor::Visit(CFxemModalSolution& solution, CFxemModalData& target) {
  return Visit(static_cast<CNetworkDataSolution&>(solution), static_cast<CNetworkData&>(target));
}

bool CNevilleInterpolateVisitor::Visit(CNetworkModalSolution& solution, CNetworkModalData& target) {
  // A modal point needs its port impedances to mean anything: both vectors
  // first (which leave the target alone on failure), then S.
  CNetworkModalData candidate(target);
  if (!nd::InterpolatePortVectors(solution, candidate)) return false;
  if (!Visit(static_cast<CNetworkDataSolution&>(solution), static_cast<CNetworkData&>(candidate)))
    return false;
  target = std::move(candidate);
  return true;
}

bool CNevilleInterpolateVisitor::Visit(CNetworkTerminalSolution& solution,
                                       CNetworkTerminalData& target) {
  // As for modal points: the references first (the target is left alone
  // when they cannot be had), then S entry by entry.
  CNetworkTerminalData candidate(target);
  if (!nd::InterpolateTerminalVectors(solution, candidate)) return false;
  if (!Visit(static_cast<CNetworkDataSolution&>(solution), static_cast<CNetworkData&>(candidate)))
    return false;
  target = std::move(candidate);
  return true;
}
