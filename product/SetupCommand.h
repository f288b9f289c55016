// `sparam setup`: the post-processing choices of a project's variation
// (renormalisation, de-embedding, differential pairs, extrapolation to DC,
// impedance multiplier), written into its setup and saved atomically; and
// their description for `sparam info`.
#pragma once

#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

#include "sparamlib/solution/NetworkPostprocSetup.h"

namespace sparam {

struct SetupOptions {
  std::string project;
  size_t variation = 1;                // 1-based
  std::string renorm;                  // "50" or "1=75,2=50+10j"
  std::string deembed;                 // "1=2mm,2=3.5mm"
  bool lossless = false;
  std::vector<std::string> pairs;      // "NAME=P,N"
  bool matched = false;
  bool dc = false;
  std::optional<double> multiplier;
  std::string impedance;               // "Zpv" or "1=Zpv,2=Zvi"
  bool terminal = false;               // export the terminal view
  bool modal = false;                  // export the modal view (the default)
  bool clear = false;
};

int RunSetup(const SetupOptions& options, std::ostream& out, std::ostream& err);

// One line per choice the setup makes, in words ("renormalise port 1 to
// 75 ohms"); empty when it asks for nothing.
std::vector<std::string> DescribeSetup(const CNetworkPostprocSetup& setup);

// "75", "50+10j", "50-2.5j", "-3j": a complex impedance in ohms.
std::optional<AComplex<double>> ParseImpedance(const std::string& text);
// "2mm", "0.5 in", "1e-3", "10mil": a length in metres (a plain number is
// metres).
std::optional<double> ParseLength(const std::string& text);

}  // namespace sparam
