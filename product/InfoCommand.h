// `sparam info`: what a project, Touchstone or Citifile file holds, as text
// or JSON.
#pragma once

#include <iosfwd>
#include <string>

namespace sparam {

struct InfoOptions {
  std::string path;
  bool json = false;
};

// Writes the summary to `out`; on failure a one-line message to `err`.
// Returns the process exit code.
int RunInfo(const InfoOptions& options, std::ostream& out, std::ostream& err);

// "1.5 GHz", "250 kHz", "0 Hz": frequencies as engineers read them.
std::string FormatFrequency(double hertz);

}  // namespace sparam
