// MATLAB peer for the Octave interop test. Writes m-files from seeded random
// modal solutions (1 to 6 ports, precisions 10 and 15) into the directory
// given as the only argument, and prints what each file holds:
//   case <path> <precision> <frequencies> <ports>
//   f <frequency>...                       the frequencies written, in order
//   <name> <k> <re> <im> ...               one line per assigned slice
// with every number as %.17g; slices not listed stay zero.
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <random>
#include <string>

#include "sparamlib/MatlabExportVisitor.h"
#include "support/SampleProject.h"

namespace {

const char* Name(int kind) {
  switch (kind) {
    case nd::kYMatrix:
      return "Y";
    case nd::kZMatrix:
      return "Z";
    case nd::kPortImpedances:
      return "Zo";
    case nd::kPropagationConstants:
      return "Gamma";
    default:
      return "S";
  }
}

void PrintValues(const char* name, int k, const AComplex<double>* values, int count) {
  std::printf("%s %d", name, k);
  for (int i = 0; i < count; ++i) std::printf(" %.17g %.17g", values[i].re, values[i].im);
  std::printf("\n");
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: matlab_peer <output directory>\n");
    return 2;
  }
  const std::filesystem::path dir = argv[1];
  std::mt19937_64 rng(20261121);
  int index = 0;
  for (int ports = 1; ports <= 6; ++ports) {
    for (const int precision : {10, 15}) {
      ++index;
      const int points = 3 + ports;
      auto solution = testing_support::RandomSolution("Sweep", ports, points, rng);
      // Odd cases let the writer take every solved frequency; even ones ask
      // for an extra unsolved one in the middle, which stays zero in the file.
      std::vector<double> requested;
      if (index % 2 == 0) {
        for (const auto& entry : solution->GetFrequencyMap()) requested.push_back(entry.first);
        requested.insert(requested.begin() + 1, 0.5 * (requested[0] + requested[1]));
      }
      // The kinds in a different order per case; the writer keeps list order.
      std::vector<int> kinds = {nd::kSMatrix, nd::kYMatrix, nd::kZMatrix, nd::kPortImpedances,
                                nd::kPropagationConstants};
      std::shuffle(kinds.begin(), kinds.end(), rng);

      const std::filesystem::path path = dir / ("export_" + std::to_string(index) + ".m");
      {
        io::CToken_ostream out(path);
        CMatlabExportVisitor(out, requested, kinds, precision, nullptr, "interop case")
            .Visit(*solution);
        if (!out.Close()) {
          std::fprintf(stderr, "cannot write %s\n", path.c_str());
          return 1;
        }
      }

      std::vector<double> written = requested;
      if (written.empty())
        for (const auto& entry : solution->GetFrequencyMap()) written.push_back(entry.first);
      std::printf("case %s %d %zu %d\nf", path.c_str(), precision, written.size(), ports);
      for (const double f : written) std::printf(" %.17g", f);
      std::printf("\n");
      for (const int kind : kinds) {
        for (size_t k = 0; k < written.size(); ++k) {
          CNetworkData* point = solution->GetNetworkData(written[k], 0.0, false);
          if (!point) continue;
          auto* modal = static_cast<CNetworkModalData*>(point);
          const int slice = static_cast<int>(k) + 1;
          const TNT::CMatrix* m = kind == nd::kSMatrix   ? point->GetSMatrix(true)
                                  : kind == nd::kYMatrix ? point->GetYMatrix(true)
                                  : kind == nd::kZMatrix ? point->GetZMatrix(true)
                                                         : nullptr;
          const TNT::CVector* v = kind == nd::kPortImpedances         ? modal->GetPortImpedance()
                                  : kind == nd::kPropagationConstants ? modal->GetGamma()
                                                                      : nullptr;
          if (m) PrintValues(Name(kind), slice, m->data(), m->size());
          if (v) PrintValues(Name(kind), slice, v->data(), v->size());
        }
      }
    }
  }
  return 0;
}
