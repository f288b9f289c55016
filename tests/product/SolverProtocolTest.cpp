// The solver protocol with real Python solvers (python3 + numpy): the example
// of docs/solver-protocol.md and tests/interop/protocol_devices.py must
// answer exactly what the built-in devices answer.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "product/Devices.h"
#include "product/ExternalSolver.h"

namespace {

namespace fs = std::filesystem;

std::string Slurp(const fs::path& path) {
  std::ifstream in(path);
  std::stringstream ss;
  ss << in.rdbuf();
  return ss.str();
}

double MaxDiff(const TNT::Complex* a, const TNT::Complex* b, int count) {
  double worst = 0.0;
  for (int k = 0; k < count; ++k) worst = std::max(worst, abs(a[k] - b[k]));
  return worst;
}

// Solves `frequencies` through `command` and through the device, and
// compares S, port impedances and propagation constants entry by entry.
void ExpectSameAnswers(const std::string& command, const char* deviceName,
                       const std::vector<double>& frequencies) {
  const sparam::CDevice* device = sparam::FindDevice(deviceName);
  ASSERT_NE(device, nullptr);
  sparam::DeviceSolver builtIn(*device);
  sparam::ExternalSolver external(command, 60.0);
  for (double f : frequencies) {
    SCOPED_TRACE(std::string(deviceName) + " at " + std::to_string(f));
    SolvedPoint want, got;
    std::string why;
    ASSERT_TRUE(builtIn.Solve(f, 0.0, want, &why)) << why;
    ASSERT_TRUE(external.Solve(f, 0.0, got, &why)) << why;
    EXPECT_EQ(got.frequency, f);
    ASSERT_EQ(got.s.num_rows(), device->GetNumPorts());
    // Passive: every entry is at most 1 in magnitude, so this bound is relative.
    EXPECT_LT(MaxDiff(got.s.data(), want.s.data(), want.s.size()), 1e-12);
    ASSERT_EQ(got.portImpedance.has_value(), want.portImpedance.has_value());
    if (want.portImpedance) {
      EXPECT_LT(MaxDiff(got.portImpedance->data(), want.portImpedance->data(), want.portImpedance->size()),
                1e-12 * abs((*want.portImpedance)[0]));
    }
    ASSERT_EQ(got.gamma.has_value(), want.gamma.has_value());
    if (want.gamma) {
      EXPECT_LT(MaxDiff(got.gamma->data(), want.gamma->data(), want.gamma->size()),
                1e-12 * abs((*want.gamma)[0]));
    }
  }
  EXPECT_EQ(external.GetNumPorts(), device->GetNumPorts());
}

TEST(SolverProtocol, DevicesThroughThePythonPeerEqualTheBuiltInOnes) {
  const std::string peer = std::string(SPARAMLIB_PYTHON) + " '" + SPARAMLIB_SOURCE_DIR +
                           "/tests/interop/protocol_devices.py' ";
  // Passband edges, ripple and skirts; each resonance; the waveguide band.
  ExpectSameAnswers(peer + "bandpass", "bandpass", {9e9, 9.9e9, 9.93e9, 10e9, 10.0712345e9, 10.1e9, 11e9});
  ExpectSameAnswers(peer + "resonator", "resonator", {1e9, 1.5e9, 1.5037e9, 2.3e9, 3.4e9, 4.4e9, 5.5e9, 6e9});
  ExpectSameAnswers(peer + "waveguide", "waveguide", {6.6e9, 8.2e9, 10e9, 12.4e9});

  // Below the waveguide's cutoff both refuse; the peer through an "error" answer.
  sparam::ExternalSolver external(peer + "waveguide", 60.0);
  SolvedPoint p;
  std::string why;
  EXPECT_FALSE(external.Solve(5e9, 0.0, p, &why));
  EXPECT_EQ(why, "solver could not solve 5 GHz: 5000000000 Hz is at or below the TE10 cutoff");
}

// The example solver of the protocol page, taken from the page itself.
TEST(SolverProtocol, DocumentedExampleSolverEqualsTheLineDevice) {
  const std::string page = Slurp(fs::path(SPARAMLIB_SOURCE_DIR) / "docs" / "solver-protocol.md");
  const std::string open = "```python\n";
  const size_t start = page.find(open);
  ASSERT_NE(start, std::string::npos);
  const size_t end = page.find("```", start + open.size());
  ASSERT_NE(end, std::string::npos);
  const fs::path script = fs::temp_directory_path() / ("sparam_mysolver." + std::to_string(::getpid()) + ".py");
  std::ofstream(script) << page.substr(start + open.size(), end - start - open.size());
  ExpectSameAnswers(std::string(SPARAMLIB_PYTHON) + " '" + script.string() + "'", "line",
                    {0.1e9, 1e9, 1.234e9, 3e9, 6e9});
  fs::remove(script);
}

}  // namespace
