// Realising a vector fit as a real state-space model, and evaluating it
// through its tridiagonal A in O(states) per input.
#include "sparamlib/fit/StateSpaceModel.h"

#include <cmath>

namespace nd {
namespace {

using Complex = AComplex<double>;

bool Fail(std::string* why, std::string text) {
  if (why) *why = std::move(text);
  return false;
}

}  // namespace

bool RealiseStateSpace(const VectorFitResult& fit, int ports, StateSpaceModel& model,
                       std::string* why) {
  if (!fit.ok) return Fail(why, "the fit failed: " + fit.message);
  const size_t n = static_cast<size_t>(ports);
  if (ports < 1 || fit.residues.size() != n * n || fit.d.size() != n * n || fit.e.size() != n * n)
    return Fail(why, "the fit has " + std::to_string(fit.residues.size()) + " entries, expected " +
                         std::to_string(n * n) + " for " + std::to_string(ports) + " ports");
  const std::vector<Complex>& poles = fit.poles;
  // Real poles first, then pairs (a, conj a) with Im a > 0.
  size_t real = 0;
  while (real < poles.size() && poles[real].im == 0.0) ++real;
  for (size_t m = real; m < poles.size(); m += 2) {
    if (m + 1 >= poles.size() || !(poles[m].im > 0.0) || poles[m + 1].re != poles[m].re ||
        poles[m + 1].im != -poles[m].im)
      return Fail(why, "the fit's poles are not real poles followed by conjugate pairs");
  }
  const size_t perPort = poles.size();
  const size_t states = perPort * n;
  model = StateSpaceModel{};
  model.ports = ports;
  model.states = static_cast<int>(states);
  model.lower.assign(states, 0.0);
  model.diagonal.assign(states, 0.0);
  model.upper.assign(states, 0.0);
  model.b.assign(states * n, 0.0);
  model.c.assign(n * states, 0.0);
  model.d = fit.d;
  model.e = fit.e;
  for (size_t j = 0; j < n; ++j) {
    const size_t first = j * perPort;
    for (size_t m = 0; m < perPort; ++m) {
      const size_t k = first + m;
      const Complex a = poles[m];
      const bool pairFirst = m >= real && (m - real) % 2 == 0;
      const bool pairSecond = m >= real && (m - real) % 2 == 1;
      model.diagonal[k] = a.re;
      if (pairFirst) model.upper[k] = std::fabs(a.im);
      if (pairSecond) model.lower[k] = -std::fabs(poles[m - 1].im);
      model.b[k * n + j] = m < real ? 1.0 : pairFirst ? 2.0 : 0.0;
      for (size_t i = 0; i < n; ++i) {
        const Complex r = fit.residues[i * n + j][m];
        // Real pole: its residue; a pair: (Re r, Im r) of the pole with Im > 0.
        double value = r.re;
        if (pairSecond) value = fit.residues[i * n + j][m - 1].im;
        model.c[i * states + k] = value;
      }
    }
  }
  return true;
}

TNT::CMatrix EvaluateStateSpace(const StateSpaceModel& model, Complex s) {
  const int n = model.ports;
  const int states = model.states;
  TNT::CMatrix h(n, n);
  // (sI - A) x = B(:, j) by the Thomas algorithm: the diagonal s - A(k, k)
  // never vanishes on the frequency axis for stable poles.
  std::vector<Complex> cPrime(static_cast<size_t>(states)), x(static_cast<size_t>(states));
  for (int j = 0; j < n; ++j) {
    for (int k = 0; k < states; ++k) {
      const Complex diag = s - Complex(model.diagonal[k], 0.0);
      const Complex sub(-model.lower[k], 0.0), super(-model.upper[k], 0.0);
      const Complex rhs(model.b[static_cast<size_t>(k) * n + j], 0.0);
      if (k == 0) {
        cPrime[0] = super / diag;
        x[0] = rhs / diag;
      } else {
        const Complex denominator = diag - sub * cPrime[k - 1];
        cPrime[k] = super / denominator;
        x[k] = (rhs - sub * x[k - 1]) / denominator;
      }
    }
    for (int k = states - 2; k >= 0; --k) x[k] = x[k] - cPrime[k] * x[k + 1];
    for (int i = 0; i < n; ++i) {
      Complex sum(model.d[static_cast<size_t>(i) * n + j] + 0.0, 0.0);
      sum = sum + s * Complex(model.e[static_cast<size_t>(i) * n + j], 0.0);
      for (int k = 0; k < states; ++k) sum = sum + Complex(model.c[static_cast<size_t>(i) * states + k], 0.0) * x[k];
      h[i][j] = sum;
    }
  }
  return h;
}

}  // namespace nd
