// Conversion peer for the scikit-rf interop test. Reads cases from stdin:
//   <kind S|Y|Z> <n>, then n port impedances and n*n matrix elements, each
//   as "re im", row-major
// and writes, per case, the converted matrices through modal data points:
//   from S: "Y" and "Z";  from Y or Z: "S".
#include <cstdio>
#include <memory>

#include "sparamlib/data/NetworkModalData.h"
#include "support/FixedPorts.h"

namespace {

bool ReadComplex(AComplex<double>& z) { return std::scanf("%lf %lf", &z.re, &z.im) == 2; }

void Print(const char* name, const TNT::CMatrix* m) {
  std::printf("%s", name);
  if (m)
    for (int k = 0; k < m->size(); ++k) std::printf(" %.17g %.17g", m->data()[k].re, m->data()[k].im);
  std::printf("\n");
}

}  // namespace

int main() {
  char kind[8];
  int n = 0;
  while (std::scanf("%7s %d", kind, &n) == 2) {
    testing_support::FixedPorts ports(n);
    auto z = std::make_unique<TNT::CVector>(n);
    auto m = std::make_unique<TNT::CMatrix>(n, n);
    for (auto& v : *z)
      if (!ReadComplex(v)) return 2;
    for (int k = 0; k < n * n; ++k)
      if (!ReadComplex(m->data()[k])) return 2;
    CNetworkModalData point(&ports);
    point.SetPortImpedance(std::move(z));
    if (kind[0] == 'S') {
      point.SetSMatrix(std::move(m));
      Print("Y", point.GetYMatrix(true));
      Print("Z", point.GetZMatrix(true));
    } else {
      if (kind[0] == 'Y') point.SetYMatrix(std::move(m));
      else point.SetZMatrix(std::move(m));
      Print("S", point.GetSMatrix(true));
    }
  }
  return 0;
}
