// Writers of terminal solutions: MATLAB's Zo and Gamma as n x n matrices
// per frequency, and the Touchstone port lines with terminal names.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "sparamlib/formats/MatlabExportVisitor.h"
#include "sparamlib/formats/NetworkDataUtilities.h"
#include "sparamlib/solution/NetworkTerminalSolution.h"

namespace {

using C = AComplex<double>;
using TNT::CMatrix;
using TNT::CVector;

// Two terminals at 1 and 2 GHz with simple numbers; the 2 GHz point has no
// propagation matrix. The second entry has terminal names only.
std::unique_ptr<CNetworkTerminalSolution> TwoTerminals() {
  auto s = std::make_unique<CNetworkTerminalSolution>("Terminal");
  CMatrixEntry first("Pair", 1, 0);
  first.SetTerminalName("P");
  first.SetTerminalEntryName("Pair_plus");
  s->AddMatrixEntry(first);
  CMatrixEntry second("Pair", 2, 1);
  second.SetTerminalName("N");
  s->AddMatrixEntry(second);
  for (int g : {1, 2}) {
    auto p = std::make_unique<CNetworkTerminalData>(s.get(), g * 1e9);
    p->SetSMatrix(std::make_unique<CMatrix>(2, 2, C(0.25 * g, -0.5)));
    p->SetTerminalImpedance(std::make_unique<CVector>(2, C(50.0)));
    auto z0 = std::make_unique<CMatrix>(2, 2);
    (*z0)[0][0] = (*z0)[1][1] = C(55.0 + g, 0.0);
    (*z0)[0][1] = (*z0)[1][0] = C(5.0, -1.0);
    p->SetCharacteristicImpedance(std::move(z0));
    if (g == 1) p->SetGammaMatrix(std::make_unique<CMatrix>(2, 2, C(0.5, 20.0)));
    s->AddNetworkData(std::move(p));
  }
  return s;
}

std::string Matlab(CNetworkDataSolution& solution, std::vector<int> kinds) {
  const auto path = std::filesystem::temp_directory_path() /
                    ("sparamlib_terminal_" + std::to_string(::getpid()) + ".m");
  {
    io::CToken_ostream out(path);
    CMatlabExportVisitor(out, {}, kinds, 2, nullptr, "T").Visit(solution);
    EXPECT_TRUE(out.Close());
  }
  std::ifstream in(path);
  std::string file(std::istreambuf_iterator<char>(in), {});
  std::filesystem::remove(path);
  file.erase(0, file.find("\n\n") + 2);  // the fixed header
  // Width 16 is a minimum; squeeze the padding so the text stays readable.
  for (size_t at; (at = file.find("  ")) != std::string::npos;) file.erase(at, 1);
  return file;
}

}  // namespace

// Declared from the first point like modal vectors, written as one row of
// rows per frequency; a point without the matrix gets no assignment.
TEST(TerminalWriters, MatlabWritesLineMatricesPerFrequency) {
  auto s = TwoTerminals();
  EXPECT_EQ(Matlab(*s, {nd::kPortImpedances, nd::kPropagationConstants}),
            "f = zeros(2,1);\nZo = zeros(2,2,2);\nGamma = zeros(2,2,2);\n"
            "f = [1000000000 2000000000 ];\n"
            "Zo(1,:,:) = [ 5.60E+01 + 0.00E+00i, 5.00E+00 - 1.00E+00i; 5.00E+00 - 1.00E+00i,"
            " 5.60E+01 + 0.00E+00i ];\n"
            "Zo(2,:,:) = [ 5.70E+01 + 0.00E+00i, 5.00E+00 - 1.00E+00i; 5.00E+00 - 1.00E+00i,"
            " 5.70E+01 + 0.00E+00i ];\n"
            "Gamma(1,:,:) = [ 5.00E-01 + 2.00E+01i, 5.00E-01 + 2.00E+01i; 5.00E-01 + 2.00E+01i,"
            " 5.00E-01 + 2.00E+01i ];\n");
  // Without a propagation matrix at the first point Gamma is not declared.
  auto later = TwoTerminals();
  static_cast<CNetworkTerminalData*>(later->GetNetworkData(1e9, 0.0, false))->SetGammaMatrix(nullptr);
  const std::string file = Matlab(*later, {nd::kSMatrix, nd::kPropagationConstants});
  EXPECT_EQ(file.find("Gamma = zeros"), std::string::npos) << file;
  EXPECT_NE(file.find("S = zeros(2,2,2);"), std::string::npos) << file;
}

TEST(TerminalWriters, TouchstonePortLinesNameTheTerminals) {
  auto s = TwoTerminals();
  std::ostringstream text;
  {
    const auto path = std::filesystem::temp_directory_path() /
                      ("sparamlib_terminal_" + std::to_string(::getpid()) + ".s2p");
    nd::WriteTouchstoneFile(path.string(), *s, {1e9}, "Lines", false, 50.0, nd::kRealImaginary,
                            nd::kSMatrix, 3, false, true, nullptr);
    std::ifstream in(path);
    text << in.rdbuf();
    std::filesystem::remove(path);
  }
  EXPECT_NE(text.str().find("# GHZ S RI R 50.000000\n! Terminal data exported\n"
                            "! Port[1] = Pair_plus\n! Port[2] = Pair:N\n1 "),
            std::string::npos)
      << text.str();
}
