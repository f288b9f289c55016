// Writes S-parameter Touchstone files of seeded random modal solutions for
// test_touchstone_skrf.py, and prints per file one JSON line with the exact
// numbers behind it: the S matrix written, the two numbers written for each
// entry, and for renormalised files the solver's S and port impedances.
// Usage: touchstone_peer <output directory>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <random>
#include <string>

#include "sparamlib/NetworkDataUtilities.h"
#include "sparamlib/NetworkModalData.h"
#include "support/SampleProject.h"

namespace {

using C = AComplex<double>;

std::string Number(double v) {
  char buf[40];
  std::snprintf(buf, sizeof buf, "%.17g", v);
  return buf;
}

// [[re, im], ...] of a matrix, row by row.
std::string Complexes(const C* z, int count) {
  std::string out = "[";
  for (int k = 0; k < count; ++k)
    out += (k ? ",[" : "[") + Number(z[k].re) + "," + Number(z[k].im) + "]";
  return out + "]";
}

// The two numbers the writer prints for z: computed here as the file's
// definition states them, not by the writer's code.
std::string Pairs(const TNT::CMatrix& s, nd::DisplayFormatType format) {
  std::string out = "[";
  for (int k = 0; k < s.size(); ++k) {
    const C z = s.data()[k];
    const double mag = std::hypot(z.re, z.im);
    const double ang = std::atan2(z.im, z.re) * 180.0 / M_PI;
    double a = z.re, b = z.im;
    if (format == nd::kMagnitudeAngle) a = mag, b = ang;
    if (format == nd::kDbAngle) a = 20.0 * std::log10(mag), b = ang;
    out += (k ? ",[" : "[") + Number(a) + "," + Number(b) + "]";
  }
  return out + "]";
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: touchstone_peer <output directory>\n");
    return 2;
  }
  const std::filesystem::path dir = argv[1];
  std::mt19937_64 rng(20261122);
  const char* formatNames[] = {"MA", "RI", "DB"};
  int index = 0;
  for (int ports = 1; ports <= 10; ++ports) {
    for (nd::DisplayFormatType format : {nd::kMagnitudeAngle, nd::kDbAngle, nd::kRealImaginary}) {
      for (int precision : {8, 12}) {
        for (bool renormalise : {false, true}) {
          auto solution = testing_support::RandomSolution("Sweep", ports, 5, rng);
          std::vector<double> frequencies;
          for (const auto& [f, point] : solution->GetFrequencyMap()) {
            frequencies.push_back(f);
            // Without renormalisation the file states no reference: give the
            // ports the 50 ohms a reader then assumes.
            if (!renormalise)
              static_cast<CNetworkModalData*>(point.get())
                  ->SetPortImpedance(std::make_unique<TNT::CVector>(ports, C(50.0)));
          }
          const auto before = solution->Clone();
          const std::string name =
              "case" + std::to_string(index++) + ".s" + std::to_string(ports) + "p";
          nd::WriteTouchstoneFile((dir / name).string(), *solution, frequencies, "Interop",
                                  renormalise, 50.0, format, nd::kSMatrix, precision, renormalise,
                                  false, nullptr);

          std::string line =
              "{\"file\":\"" + name + "\",\"ports\":" + std::to_string(ports) + ",\"format\":\"" +
              formatNames[format] + "\",\"precision\":" + std::to_string(precision) +
              ",\"renormalised\":" + (renormalise ? "true" : "false") + ",\"points\":[";
          bool first = true;
          for (const auto& [f, stored] : before->GetFrequencyMap()) {
            auto point = stored->Clone();
            auto* modal = static_cast<CNetworkModalData*>(point.get());
            line += std::string(first ? "" : ",") + "{\"f\":" + Number(f);
            first = false;
            if (renormalise) {
              line += ",\"s_solver\":" + Complexes(modal->GetSMatrix()->data(), ports * ports) +
                      ",\"z_solver\":" + Complexes(modal->GetPortImpedance()->data(), ports);
              modal->Renormalize(TNT::CVector(ports, C(50.0)));
            }
            const TNT::CMatrix& s = *modal->GetSMatrix();
            line += ",\"s\":" + Complexes(s.data(), ports * ports) +
                    ",\"pairs\":" + Pairs(s, format) + "}";
          }
          std::printf("%s]}\n", line.c_str());
        }
      }
    }
  }
  return 0;
}
