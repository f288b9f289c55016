// Reads Touchstone files with our reader for test_touchstone_read_skrf.py and
// prints one JSON line per file: frequencies, S (row-major, [re, im]) and the
// port impedances of the first point, at full precision; or the error.
// Usage: touchstone_read_peer FILE...
#include <cstdio>
#include <string>

#include "sparamlib/data/NetworkModalData.h"
#include "sparamlib/formats/TouchstoneReader.h"

int main(int argc, char** argv) {
  for (int a = 1; a < argc; ++a) {
    std::string error;
    auto solution = nd::ReadTouchstoneFile(argv[a], &error);
    if (!solution) {
      std::printf("{\"file\":\"%s\",\"error\":\"%s\"}\n", argv[a], error.c_str());
      continue;
    }
    std::printf("{\"file\":\"%s\",\"f\":[", argv[a]);
    const char* sep = "";
    for (const auto& [f, p] : solution->GetFrequencyMap()) {
      std::printf("%s%.17g", sep, f);
      sep = ",";
    }
    std::printf("],\"s\":[");
    sep = "";
    for (const auto& [f, p] : solution->GetFrequencyMap()) {
      const TNT::CMatrix& s = *p->GetSMatrix(true);
      for (int k = 0; k < s.size(); ++k) {
        std::printf("%s[%.17g,%.17g]", sep, s.data()[k].re, s.data()[k].im);
        sep = ",";
      }
    }
    std::printf("],\"z0\":[");
    const auto& first = static_cast<const CNetworkModalData&>(*solution->GetFrequencyMap().begin()->second);
    for (int k = 0; k < first.GetPortImpedance()->dim(); ++k)
      std::printf("%s[%.17g,%.17g]", k ? "," : "", (*first.GetPortImpedance())[k].re, (*first.GetPortImpedance())[k].im);
    std::printf("],\"names\":[");
    for (int k = 0; k < solution->GetNumMatrixEntries(); ++k)
      std::printf("%s\"%s\"", k ? "," : "", solution->GetMatrixEntry(k)->GetModalEntryName().c_str());
    std::printf("]}\n");
  }
  return 0;
}
