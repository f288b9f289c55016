// Writers of terminal solutions: MATLAB's Zo and Gamma as n x n matrices
// per frequency, and the Touchstone port lines with terminal names.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>

#include "sparamlib/formats/MatlabExportVisitor.h"
#include "sparamlib/formats/NetworkDataUtilities.h"
#include "sparamlib/solution/NetworkTerminalSolution.h"

namespace {

using C = AComplex<double>;
using TNT::CMatrix;

// Two terminals at 1 and 2 GHz; the 2 GHz point has no propagation
// matrix; the second entry has a terminal name only.
std::unique_ptr<CNetworkTerminalSolution> TwoTerminals() {
  auto s = std::make_unique<CNetworkTerminalSolution>("Terminal");
  s->AddMatrixEntry(CMatrixEntry("Pair", 1, 0)).SetTerminalEntryName("Pair_plus");
  s->AddMatrixEntry(CMatrixEntry("Pair", 2, 1)).SetTerminalName("N");
  for (int g : {1, 2}) {
    auto p = std::make_unique<CNetworkTerminalData>(s.get(), g * 1e9);
    p->SetSMatrix(std::make_unique<CMatrix>(2, 2, C(0.25 * g, -0.5)));
    p->SetTerminalImpedance(std::make_unique<TNT::CVector>(2, C(50.0)));
    auto z0 = std::make_unique<CMatrix>(2, 2, C(5.0, -1.0));
    (*z0)[0][0] = (*z0)[1][1] = C(55.0 + g, 0.0);
    p->SetCharacteristicImpedance(std::move(z0));
    if (g == 1) p->SetGammaMatrix(std::make_unique<CMatrix>(2, 2, C(0.5, 20.0)));
    s->AddNetworkData(std::move(p));
  }
  return s;
}

std::string Written(const std::function<void(const std::filesystem::path&)>& write) {
  const auto path =
      std::filesystem::temp_directory_path() / ("sparamlib_terminal_" + std::to_string(::getpid()));
  write(path);
  std::ifstream in(path);
  std::string file(std::istreambuf_iterator<char>(in), {});
  std::filesystem::remove(path);
  return file;
}

}  // namespace

// Declared from the first point like modal vectors; one line of rows per
// frequency; a point without the matrix gets no assignment.
TEST(TerminalWriters, MatlabWritesLineMatricesPerFrequency) {
  auto s = TwoTerminals();
  std::string file = Written([&](const std::filesystem::path& path) {
    io::CToken_ostream out(path);
    CMatlabExportVisitor(out, {}, {nd::kPortImpedances, nd::kPropagationConstants}, 2, nullptr, "T")
        .Visit(*s);
    EXPECT_TRUE(out.Close());
  });
  file.erase(0, file.find("\n\n") + 2);  // the fixed header
  for (size_t at; (at = file.find("  ")) != std::string::npos;) file.erase(at, 1);  // padding
  EXPECT_EQ(file,
            "f = zeros(2,1);\nZo = zeros(2,2,2);\nGamma = zeros(2,2,2);\n"
            "f = [1000000000 2000000000 ];\n"
            "Zo(1,:,:) = [ 5.60E+01 + 0.00E+00i, 5.00E+00 - 1.00E+00i; 5.00E+00 - 1.00E+00i,"
            " 5.60E+01 + 0.00E+00i ];\n"
            "Zo(2,:,:) = [ 5.70E+01 + 0.00E+00i, 5.00E+00 - 1.00E+00i; 5.00E+00 - 1.00E+00i,"
            " 5.70E+01 + 0.00E+00i ];\n"
            "Gamma(1,:,:) = [ 5.00E-01 + 2.00E+01i, 5.00E-01 + 2.00E+01i; 5.00E-01 + 2.00E+01i,"
            " 5.00E-01 + 2.00E+01i ];\n");
}

TEST(TerminalWriters, TouchstonePortLinesNameTheTerminals) {
  auto s = TwoTerminals();
  const std::string file = Written([&](const std::filesystem::path& path) {
    nd::WriteTouchstoneFile(path.string(), *s, {1e9}, "Lines", false, 50.0, nd::kRealImaginary,
                            nd::kSMatrix, 3, false, true, nullptr);
  });
  EXPECT_NE(file.find("# GHZ S RI R 50.000000\n! Terminal data exported\n"
                      "! Port[1] = Pair_plus\n! Port[2] = Pair:N\n1 "),
            std::string::npos)
      << file;
}
