// Post-processing peer for the scikit-rf interop test. Reads cases from
// stdin, complex numbers as "re im", matrices row-major:
//   RENORM <n>: n old and n new port impedances, S           -> S at the new ones
//   MIXED <n> <pairs> p0 n0 ...: n single-ended and n mixed-mode
//     references, single-ended S                              -> mixed-mode S
//   SINGLE <n> <pairs> p0 n0 ...: n mixed-mode and n single-ended
//     references, mixed-mode S                                -> single-ended S
//   DEEMBED <n> <lossless 0|1>: n propagation constants, n distances (reals), S
// and prints one line per case, "S" and the matrix, or "FAIL <status>".
// RENORM goes through a modal data point, the one renormalisation there is.
#include <cstdio>
#include <cstring>
#include <memory>

#include "sparamlib/data/NetworkModalData.h"
#include "sparamlib/data/NetworkTransforms.h"
#include "support/FixedPorts.h"

namespace {

bool ReadComplex(AComplex<double>& z) {
  return std::scanf("%lf %lf", &z.re, &z.im) == 2;
}

bool ReadVector(TNT::CVector& v, int n) {
  v = TNT::CVector(n);
  for (auto& x : v)
    if (!ReadComplex(x)) return false;
  return true;
}

bool ReadMatrix(TNT::CMatrix& m, int n) {
  m = TNT::CMatrix(n, n);
  for (int k = 0; k < n * n; ++k)
    if (!ReadComplex(m.data()[k])) return false;
  return true;
}

bool ReadPairs(nd::PortPairs& pairs) {
  int count = 0;
  if (std::scanf("%d", &count) != 1 || count < 0) return false;
  pairs.assign(static_cast<size_t>(count), {0, 0});
  for (auto& [p, q] : pairs)
    if (std::scanf("%d %d", &p, &q) != 2) return false;
  return true;
}

void Print(int status, const TNT::CMatrix& m) {
  if (status != 0) {
    std::printf("FAIL %d\n", status);
    return;
  }
  std::printf("S");
  for (int k = 0; k < m.size(); ++k) std::printf(" %.17g %.17g", m.data()[k].re, m.data()[k].im);
  std::printf("\n");
}

}  // namespace

int main() {
  char kind[16];
  int n = 0;
  while (std::scanf("%15s %d", kind, &n) == 2) {
    TNT::CVector z1, z2;
    TNT::CMatrix s, out;
    nd::PortPairs pairs;
    if (std::strcmp(kind, "RENORM") == 0) {
      if (!ReadVector(z1, n) || !ReadVector(z2, n) || !ReadMatrix(s, n)) return 2;
      testing_support::FixedPorts ports(n);
      CNetworkModalData point(&ports);
      point.SetSMatrix(std::make_unique<TNT::CMatrix>(s));
      point.SetPortImpedance(std::make_unique<TNT::CVector>(z1));
      const bool done = point.Renormalize(z2);
      Print(done ? 0 : 1, done ? *point.GetSMatrix(false) : s);
    } else if (std::strcmp(kind, "MIXED") == 0 || std::strcmp(kind, "SINGLE") == 0) {
      if (!ReadPairs(pairs) || !ReadVector(z1, n) || !ReadVector(z2, n) || !ReadMatrix(s, n))
        return 2;
      const int status = kind[0] == 'M' ? nd::SingleEndedToMixedMode(s, z1, pairs, z2, out)
                                        : nd::MixedModeToSingleEnded(s, z1, pairs, z2, out);
      Print(status, out);
    } else if (std::strcmp(kind, "DEEMBED") == 0) {
      int lossless = 0;
      if (std::scanf("%d", &lossless) != 1 || !ReadVector(z1, n)) return 2;
      std::vector<double> distances(static_cast<size_t>(n));
      for (double& d : distances)
        if (std::scanf("%lf", &d) != 1) return 2;
      if (!ReadMatrix(s, n)) return 2;
      Print(nd::DeembedS(s, z1, distances, lossless != 0, out), out);
    } else {
      return 2;
    }
  }
  return 0;
}
