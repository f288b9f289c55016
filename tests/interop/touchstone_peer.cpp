// Writes S-parameter Touchstone files of seeded random modal solutions for
// test_touchstone_skrf.py, and prints per file one JSON line with the exact
// numbers behind it: per point the solver's S and port impedances and the S
// the file holds.
// Usage: touchstone_peer <output directory>
#include <cstdio>
#include <filesystem>
#include <random>
#include <string>

#include "sparamlib/data/NetworkModalData.h"
#include "sparamlib/formats/NetworkDataUtilities.h"
#include "support/SampleProject.h"

namespace {

using C = AComplex<double>;

// ,"<key>":[[re, im], ...] at full precision.
void Print(const char* key, const C* z, int count) {
  std::printf(",\"%s\":[", key);
  for (int k = 0; k < count; ++k) std::printf("%s[%.17g,%.17g]", k ? "," : "", z[k].re, z[k].im);
  std::printf("]");
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: touchstone_peer <output directory>\n");
    return 2;
  }
  std::mt19937_64 rng(20261122);
  const char* formatNames[] = {"MA", "RI", "DB"};  // by nd::DisplayFormatType
  // Every port count from 1 to 10 with every format, 8 and 12 digits, and
  // data kept at 50-ohm ports or renormalised to 50 ohms.
  for (int c = 0; c < 120; ++c) {
    const int ports = 1 + c / 12, precision = c % 2 ? 12 : 8;
    const auto format = static_cast<nd::DisplayFormatType>(c / 2 % 3);
    const bool renormalise = c / 6 % 2;
    auto solution = testing_support::RandomSolution("Sweep", ports, 5, rng);
    const TNT::CVector reference(ports, C(50.0));
    const std::string name = "case" + std::to_string(c) + ".s" + std::to_string(ports) + "p";
    std::printf(
        "{\"file\":\"%s\",\"ports\":%d,\"format\":\"%s\",\"precision\":%d,\"renormalised\":%s,"
        "\"points\":[",
        name.c_str(), ports, formatNames[format], precision, renormalise ? "true" : "false");
    std::vector<double> frequencies;
    for (const auto& [f, point] : solution->GetFrequencyMap()) {
      auto& modal = static_cast<CNetworkModalData&>(*point);
      // Without renormalisation the file states no reference: give the
      // ports the 50 ohms a reader then assumes.
      if (!renormalise) modal.SetPortImpedance(std::make_unique<TNT::CVector>(reference));
      auto written = modal.Clone();
      if (renormalise) static_cast<CNetworkModalData&>(*written).Renormalize(reference);
      std::printf("%s{\"f\":%.17g", frequencies.empty() ? "" : ",", f);
      Print("s_solver", modal.GetSMatrix()->data(), ports * ports);
      Print("z_solver", modal.GetPortImpedance()->begin(), ports);
      Print("s", written->GetSMatrix()->data(), ports * ports);
      std::printf("}");
      frequencies.push_back(f);
    }
    std::printf("]}\n");
    nd::WriteTouchstoneFile((std::filesystem::path(argv[1]) / name).string(), *solution,
                            frequencies, "Interop", renormalise, 50.0, format, nd::kSMatrix,
                            precision, renormalise, false, nullptr);
  }
  return 0;
}
