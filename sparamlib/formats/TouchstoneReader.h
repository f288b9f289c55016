// Touchstone reader: versions 1.0, 1.1 (per-port R), 2.0 and 2.1 (.sNp, .ts)
// into a modal solution, with the noise block and the "! Gamma" / "! Port
// Impedance" lines of our own writer read back into the points.
#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "sparamlib/data/NetworkDataTypes.h"
#include "sparamlib/solution/NetworkModalSolution.h"

namespace nd {

// What a file says about its data besides the points themselves.
struct TouchstoneHeader {
  enum MatrixFormat { kFull, kLower, kUpper };

  double version = 1.0;  // [Version]; 1.0 without it (1.1 files read as 1.0)
  int ports = 0;
  char parameter = 'S';  // S, Y, Z, H or G, as the option line says
  DisplayFormatType format = kMagnitudeAngle;
  double hertzPerUnit = 1e9;      // the option line's frequency unit
  std::vector<double> reference;  // ohms per port: [Reference], R, or 50
  MatrixFormat matrixFormat = kFull;
  std::string twoPortDataOrder;   // "12_21" or "21_12" (version 2 two-ports)
  std::string mixedModeOrder;     // as written; empty when absent
  std::string information;        // lines between [Begin Information] and [End Information]
  bool portImpedanceLines = false;  // points took their impedances from "! Port Impedance"
};

// Port count named by a Touchstone extension (".s4p" -> 4, any case); -1 for
// other names (.ts included).
int TouchstonePortsFromName(const std::string& path);

// Reads a Touchstone file. The port count comes from [Number of Ports] or
// the .sNp extension. Null on failure, with one line "file:line:column: what
// was expected, what was found" in `error`; nothing is half-built.
std::unique_ptr<CNetworkModalSolution> ReadTouchstoneFile(const std::filesystem::path& path,
                                                          std::string* error,
                                                          TouchstoneHeader* header = nullptr);

// The same for text in memory; `name` stands for the file in messages and
// names the port count by its extension.
std::unique_ptr<CNetworkModalSolution> ReadTouchstoneText(std::string_view text,
                                                          const std::string& name,
                                                          std::string* error,
                                                          TouchstoneHeader* header = nullptr);

// Sine and cosine of n angles in degrees, as the reader turns MA and DB
// pairs into complex values: within 2 ulp of the exact values, exact at
// multiples of 90 degrees. `cosine` may be `degrees` itself.
void SinCosDegrees(const double* degrees, size_t n, double* sine, double* cosine);

}  // namespace nd
