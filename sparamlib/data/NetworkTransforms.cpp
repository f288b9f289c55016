// De-embedding, mixed-mode waves and the impedance multiplier.
#include "sparamlib/data/NetworkTransforms.h"

#include <cmath>

#include "sparamlib/data/NetworkConversions.h"
#include "sparamlib/data/NetworkModalData.h"

namespace nd {
namespace {

using TNT::CMatrix;
using TNT::Complex;
using TNT::CVector;

constexpr int kShapeError = 2;

// exp(z) for a complex z.
Complex Exp(const Complex& z) {
  const double m = std::exp(z.re);
  return Complex(m * std::cos(z.im), m * std::sin(z.im));
}

CMatrix Transposed(const CMatrix& a) {
  CMatrix t(a.num_cols(), a.num_rows());
  for (int i = 0; i < a.num_rows(); ++i)
    for (int j = 0; j < a.num_cols(); ++j) t[j][i] = a[i][j];
  return t;
}

// One row of a sparse mode transform: new_i = sum of coef * old_col. Every
// row of the pair transforms has at most two terms.
struct SparseRow {
  int count = 0;
  int col[2] = {0, 0};
  double coef[2] = {0.0, 0.0};
  void Add(int c, double v) {
    col[count] = c;
    coef[count] = v;
    ++count;
  }
};

SparseRow Two(int c0, double v0, int c1, double v1) {
  SparseRow row;
  row.Add(c0, v0);
  row.Add(c1, v1);
  return row;
}

struct ModeTransform {
  std::vector<SparseRow> v;  // V' = Tv V
  std::vector<SparseRow> i;  // I' = Ti I
};

ModeTransform Identity(int n) {
  ModeTransform t{std::vector<SparseRow>(static_cast<size_t>(n)),
                  std::vector<SparseRow>(static_cast<size_t>(n))};
  for (int k = 0; k < n; ++k) {
    t.v[static_cast<size_t>(k)].Add(k, 1.0);
    t.i[static_cast<size_t>(k)].Add(k, 1.0);
  }
  return t;
}

// Single-ended (V, I) to mixed-mode (V', I'); the differential mode of
// pair (p, q) sits at p, the common mode at q.
ModeTransform ToMixed(int n, const PortPairs& pairs) {
  ModeTransform t = Identity(n);
  for (const auto& [p, q] : pairs) {
    SparseRow& vd = t.v[static_cast<size_t>(p)];
    SparseRow& vc = t.v[static_cast<size_t>(q)];
    SparseRow& id = t.i[static_cast<size_t>(p)];
    SparseRow& ic = t.i[static_cast<size_t>(q)];
    vd = Two(p, 1.0, q, -1.0);  // Vd = Vp - Vn
    vc = Two(p, 0.5, q, 0.5);   // Vc = (Vp + Vn) / 2
    id = Two(p, 0.5, q, -0.5);  // Id = (Ip - In) / 2
    ic = Two(p, 1.0, q, 1.0);   // Ic = Ip + In
  }
  return t;
}

// The inverse of ToMixed: mixed-mode (V', I') back to single-ended (V, I).
ModeTransform ToSingle(int n, const PortPairs& pairs) {
  ModeTransform t = Identity(n);
  for (const auto& [p, q] : pairs) {
    SparseRow& vp = t.v[static_cast<size_t>(p)];
    SparseRow& vn = t.v[static_cast<size_t>(q)];
    SparseRow& ip = t.i[static_cast<size_t>(p)];
    SparseRow& in = t.i[static_cast<size_t>(q)];
    vp = Two(q, 1.0, p, 0.5);   // Vp = Vc + Vd / 2
    vn = Two(q, 1.0, p, -0.5);  // Vn = Vc - Vd / 2
    ip = Two(p, 1.0, q, 0.5);   // Ip = Id + Ic / 2
    in = Two(p, -1.0, q, 0.5);  // In = Ic / 2 - Id
  }
  return t;
}

// S of the same network after the port voltages and currents are mapped by
// `t` and the new waves referred to zNew. With V = R (I + S) a and
// I = R^-1 (I - S) a for the incident waves a,
//   A = Tv R (I + S),  B = Z' Ti R^-1 (I - S),
//   a' = R'^-1 (A + B) a / 2,  b' = R'^-1 (A - B) a / 2,
// so S' = R'^-1 (A - B) (A + B)^-1 R'. No Z or Y of the network is formed.
int TransformWaves(const CMatrix& s, const CVector& z, const ModeTransform& t, const CVector& zNew,
                   CMatrix& out) {
  const int n = s.num_rows();
  const CVector r = SqrtImpedances(z);
  const CVector rNew = SqrtImpedances(zNew);
  CMatrix difference(n, n), sum(n, n);
  for (int i = 0; i < n; ++i) {
    const SparseRow& tv = t.v[static_cast<size_t>(i)];
    const SparseRow& ti = t.i[static_cast<size_t>(i)];
    for (int j = 0; j < n; ++j) {
      Complex a, b;
      for (int k = 0; k < tv.count; ++k) {
        const int c = tv.col[k];
        const Complex plus = (c == j ? Complex(1.0) : Complex()) + s[c][j];
        a += plus * r[c] * tv.coef[k];
      }
      for (int k = 0; k < ti.count; ++k) {
        const int c = ti.col[k];
        const Complex minus = (c == j ? Complex(1.0) : Complex()) - s[c][j];
        b += minus / r[c] * ti.coef[k];
      }
      b *= zNew[i];
      difference[i][j] = a - b;
      sum[i][j] = a + b;
    }
  }
  // X (A + B) = A - B, solved as (A + B)^T X^T = (A - B)^T.
  CMatrix xt;
  const int status = TNT::SolveLinear(Transposed(sum), Transposed(difference), xt);
  if (status != 0) {
    out = CMatrix(n, n);
    return status;
  }
  out = CMatrix(n, n);
  for (int i = 0; i < n; ++i)
    for (int j = 0; j < n; ++j) out[i][j] = xt[j][i] * rNew[j] / rNew[i];
  return 0;
}

bool ValidModeArguments(const CMatrix& s, const CVector& z1, const PortPairs& pairs,
                        const CVector& z2) {
  const int n = s.num_rows();
  return n > 0 && s.num_cols() == n && z1.size() >= n && z2.size() >= n && ValidPortPairs(pairs, n);
}

}  // namespace

int DeembedS(const CMatrix& s, const CVector& gamma, const std::vector<double>& distances,
             bool lossless, CMatrix& out) {
  const int n = s.num_rows();
  bool valid = s.num_cols() == n && gamma.size() >= n && static_cast<int>(distances.size()) >= n;
  for (int k = 0; valid && k < n; ++k) valid = std::isfinite(distances[static_cast<size_t>(k)]);
  ASSERT(valid);
  if (!valid) {
    out = CMatrix(s.num_cols(), s.num_cols());
    return kShapeError;
  }
  // Per-port factor exp(gamma_k d_k): the reference plane moves by d_k.
  CVector factor(n);
  for (int k = 0; k < n; ++k) {
    const Complex g = lossless ? Complex(0.0, gamma[k].im) : gamma[k];
    factor[k] = Exp(g * distances[static_cast<size_t>(k)]);
  }
  out = CMatrix(n, n);
  for (int i = 0; i < n; ++i)
    for (int j = 0; j < n; ++j) out[i][j] = s[i][j] * (factor[i] * factor[j]);
  return 0;
}

bool ValidPortPairs(const PortPairs& pairs, int ports) {
  std::vector<bool> used(static_cast<size_t>(ports > 0 ? ports : 0), false);
  for (const auto& [p, q] : pairs) {
    if (p < 0 || q < 0 || p >= ports || q >= ports || p == q) return false;
    if (used[static_cast<size_t>(p)] || used[static_cast<size_t>(q)]) return false;
    used[static_cast<size_t>(p)] = used[static_cast<size_t>(q)] = true;
  }
  return true;
}

int SingleEndedToMixedMode(const CMatrix& s, const CVector& z, const PortPairs& pairs,
                           const CVector& zMixed, CMatrix& out) {
  const bool valid = ValidModeArguments(s, z, pairs, zMixed);
  ASSERT(valid);
  if (!valid) {
    out = CMatrix(s.num_cols(), s.num_cols());
    return kShapeError;
  }
  return TransformWaves(s, z, ToMixed(s.num_rows(), pairs), zMixed, out);
}

int MixedModeToSingleEnded(const CMatrix& smm, const CVector& zMixed, const PortPairs& pairs,
                           const CVector& z, CMatrix& out) {
  const bool valid = ValidModeArguments(smm, zMixed, pairs, z);
  ASSERT(valid);
  if (!valid) {
    out = CMatrix(smm.num_cols(), smm.num_cols());
    return kShapeError;
  }
  return TransformWaves(smm, zMixed, ToSingle(smm.num_rows(), pairs), z, out);
}

CVector MatchedMixedModeImpedances(const CVector& z, const PortPairs& pairs) {
  if (!ValidPortPairs(pairs, z.size())) return CVector();
  CVector matched(z);
  for (const auto& [p, q] : pairs) {
    const Complex mean = (z[p] + z[q]) * 0.5;
    matched[p] = mean * 2.0;  // the two port lines in series
    matched[q] = mean * 0.5;  // the two port lines in parallel
  }
  return matched;
}

void ScaleImpedance(double m, CVector* portImpedances, CMatrix* z, CMatrix* y) {
  const bool valid = std::isfinite(m) && m > 0.0;
  ASSERT(valid);
  if (!valid) return;
  if (portImpedances)
    for (Complex& v : *portImpedances) v *= m;
  if (z)
    for (int k = 0; k < z->size(); ++k) z->data()[k] *= m;
  if (y)
    for (int k = 0; k < y->size(); ++k) {
      y->data()[k].re /= m;
      y->data()[k].im /= m;
    }
}

void ScaleImpedance(double m, CNetworkModalData& point) {
  const bool valid = std::isfinite(m) && m > 0.0;
  ASSERT(valid);
  if (!valid) return;
  // Only matrices the point stores are scaled; derived ones are dropped and
  // follow from the stored ones and the scaled references when asked for.
  CMatrix* z = point.IsZDerived() ? nullptr : point.GetZMatrix(false);
  CMatrix* y = point.IsYDerived() ? nullptr : point.GetYMatrix(false);
  ScaleImpedance(m, nullptr, z, y);
  if (const CVector* ports = point.GetPortImpedance()) {
    auto scaled = std::make_unique<CVector>(*ports);
    ScaleImpedance(m, scaled.get(), nullptr, nullptr);
    point.SetPortImpedance(std::move(scaled));  // drops the derived matrices
  } else {
    point.DropDerivedMatrices();
  }
}

}  // namespace nd
