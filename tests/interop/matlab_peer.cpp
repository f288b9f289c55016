// MATLAB peer for the Octave interop test. Writes m-files from seeded random
// modal solutions (1 to 6 ports, precisions 10 and 15) into the directory
// given as the only argument, and prints what each file must define:
//   case <path> <precision>
//   <name> <re> <im> ...    every element of f, S, Y, Z, Zo, Gamma, row-major
// with every number as %.17g.
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <random>
#include <string>

#include "sparamlib/formats/MatlabExportVisitor.h"
#include "support/SampleProject.h"

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: matlab_peer <output directory>\n");
    return 2;
  }
  std::mt19937_64 rng(20261121);
  const char* names[] = {"S", "Y", "Z", "Zo", "Gamma"};
  const int kinds[] = {nd::kSMatrix, nd::kYMatrix, nd::kZMatrix, nd::kPortImpedances,
                       nd::kPropagationConstants};
  TNT::CMatrix* (CNetworkData::*matrices[])(bool) = {
      &CNetworkData::GetSMatrix, &CNetworkData::GetYMatrix, &CNetworkData::GetZMatrix};
  for (int index = 1; index <= 12; ++index) {
    const int ports = (index + 1) / 2, precision = index % 2 ? 10 : 15;
    auto solution = testing_support::RandomSolution("Sweep", ports, 3 + ports, rng);
    // Odd cases let the writer take every solved frequency; even ones ask
    // for an extra unsolved one in the middle, which the solution interpolates.
    std::vector<double> written;
    for (const auto& entry : solution->GetFrequencyMap()) written.push_back(entry.first);
    if (index % 2 == 0) written.insert(written.begin() + 1, 0.5 * (written[0] + written[1]));
    // The kinds in a different order per case; the writer keeps list order.
    std::vector<int> order(std::begin(kinds), std::end(kinds));
    std::shuffle(order.begin(), order.end(), rng);

    const std::filesystem::path path =
        std::filesystem::path(argv[1]) / ("export_" + std::to_string(index) + ".m");
    io::CToken_ostream out(path);
    CMatlabExportVisitor(out, index % 2 ? std::vector<double>{} : written, order, precision,
                         nullptr, "interop case")
        .Visit(*solution);
    if (!out.Close()) return 1;

    std::printf("case %s %d\nf", path.c_str(), precision);
    for (const double f : written) std::printf(" %.17g 0", f);
    for (int k = 0; k < 5; ++k) {
      std::printf("\n%s", names[k]);
      for (const double f : written) {
        CNetworkData* point = solution->GetNetworkData(f, 0.0, true);
        const TNT::CMatrix* m = point && k < 3 ? (point->*matrices[k])(true) : nullptr;
        const TNT::CVector* v = point && k >= 3 ? point->GetPortVector(kinds[k]) : nullptr;
        const AComplex<double>* values = m ? m->data() : v ? v->begin() : nullptr;
        for (int i = 0; i < (k < 3 ? ports * ports : ports); ++i)
          std::printf(" %.17g %.17g", values ? values[i].re : 0.0, values ? values[i].im : 0.0);
        solution->ReleaseNetworkData(f);
      }
    }
    std::printf("\n");
  }
  return 0;
}
