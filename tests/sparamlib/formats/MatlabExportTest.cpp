// MATLAB export: exact file layouts on small solutions, missing points and
// vectors, the filled frequency list, and a solution left as it was found.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <span>

#include <unistd.h>

#include "sparamlib/data/NetworkModalData.h"
#include "sparamlib/formats/MatlabExportVisitor.h"
#include "sparamlib/solution/InterpolateVisitor.h"
#include "sparamlib/solution/NetworkModalSolution.h"

namespace {

using C = AComplex<double>;

struct Variation : IDesignVariation {
  const AString& GetProductName() const override { return name; }
  const AString& GetProductVersion() const override { return version; }
  const std::vector<Variable>& GetDesignVariables() const override { return variables; }
  AString name = "sparamlib", version = "2.1";
  std::vector<Variable> variables;
};

struct PointData {
  double f;
  std::vector<C> s;                      // row-major n*n
  std::optional<C> zo = {}, gamma = {};  // one-port modal points only
};

void Fill(CNetworkDataSolution& solution, int n, const std::vector<PointData>& points) {
  for (int k = 0; k < n; ++k)
    solution.AddMatrixEntry(CMatrixEntry("P" + std::to_string(k + 1), 1, k));
  for (const PointData& d : points) {
    auto p = solution.CreateNetworkData();
    p->SetFrequency(d.f);
    p->SetSMatrix(std::make_unique<TNT::CMatrix>(n, n, std::span<const C>(d.s)));
    auto* modal = dynamic_cast<CNetworkModalData*>(p.get());
    if (d.zo) modal->SetPortImpedance(std::make_unique<TNT::CVector>(1, *d.zo));
    if (d.gamma) modal->SetGamma(std::make_unique<TNT::CVector>(1, *d.gamma));
    ASSERT_TRUE(solution.AddNetworkData(std::move(p)));
  }
}

// The file written, without its four fixed header lines unless `whole`.
std::string Export(CNetworkDataSolution& solution, std::vector<double> frequencies,
                   std::vector<int> kinds, int precision, bool whole = false,
                   const IDesignVariation* variation = nullptr) {
  const auto path = std::filesystem::temp_directory_path() /
                    ("sparamlib_matlab_" + std::to_string(::getpid()) + ".m");
  {
    io::CToken_ostream out(path);
    CMatlabExportVisitor(out, frequencies, kinds, precision, variation, "Filter").Visit(solution);
    EXPECT_TRUE(out.Close());
  }
  std::ifstream in(path);
  std::string file(std::istreambuf_iterator<char>(in), {});
  std::filesystem::remove(path);
  for (int k = 0; k < 4 && !whole; ++k) file.erase(0, file.find('\n') + 1);
  return file;
}

// Interpolates by copying the nearest solved point below, so that export of
// unsolved frequencies produces kept points the writer must release.
struct CopyBelow : CInterpolateVisitor {
  bool Visit(CNetworkModalSolution& s, CNetworkModalData& target) override {
    auto it = s.GetFrequencyMap().upper_bound(target.GetFrequency());
    if (it == s.GetFrequencyMap().begin()) return false;
    const double f = target.GetFrequency();
    target = static_cast<const CNetworkModalData&>(*std::prev(it)->second);
    target.SetFrequency(f);
    target.SetDataType(CNetworkData::Interpolated);
    return true;
  }
};

struct InterpolatingSolution : CNetworkModalSolution {
  std::unique_ptr<CInterpolateVisitor> MakeInterpolateVisitor() const override {
    return std::make_unique<CopyBelow>();
  }
};

}  // namespace

TEST(MatlabExport, TwoPortSWholeFile) {
  CNetworkDataSolution s;
  // -0.0 imaginary parts count as non-negative: " + " and an unsigned zero.
  Fill(s, 2, {{2.4e9, {C(0.5, -0.25), C(-1.0, -0.0), C(1e-12, 3e5), C(0.0, -1.0)}}});
  const Variation variation;
  EXPECT_EQ(
      Export(s, {2.4e9}, {nd::kSMatrix}, 6, true, &variation),
      "% Matlab m-File exported from sparamlib2.1 Filter\n"
      "% Note: In three-dimensional arrays, like S(i,j,k), the first index corresponds to the "
      "frequency.\n%       So, S(N,j,k) is an S(j,k) matrix for frequency N.\n\n"
      "f = zeros(1,1);\nS = zeros(1,2,2);\nf = [2400000000 ];\n"
      "S(1,:,:) = [     5.000000E-01 -     2.500000E-01i,    -1.000000E+00 +     0.000000E+00i;"
      "    1.000000E-12 +     3.000000E+05i,     0.000000E+00 -     1.000000E+00i];\n");
}

// Vectors are two-dimensional and declared from the first point, here an
// interpolated one that has no Zo: Zo is not declared, and assigned only
// where a point carries it (an opened bracket with nothing behind it would
// stop Octave). Interpolated points are written, then released.
TEST(MatlabExport, ModalVectorsAndInterpolatedPoints) {
  InterpolatingSolution s;
  Fill(s, 1, {{1e9, {C(0.5)}, {}, {C(0.5, 20.0)}}, {2e9, {C(0.5)}, {C(50.0)}, {C(0.25, -30.0)}}});
  EXPECT_EQ(Export(s, {1.5e9, 2.5e9, 2e9}, {nd::kPropagationConstants, nd::kPortImpedances}, 3),
            "f = zeros(3,1);\nGamma = zeros(3,1);\nf = [1500000000 2500000000 2000000000 ];\n"
            "Gamma(1,:) = [ \n       5.000E-01 +        2.000E+01i ];\n"
            "Gamma(2,:) = [ \n       2.500E-01 -        3.000E+01i ];\n"
            "Gamma(3,:) = [ \n       2.500E-01 -        3.000E+01i ];\n"
            "Zo(2,:) = [ \n       5.000E+01 +        0.000E+00i ];\n"
            "Zo(3,:) = [ \n       5.000E+01 +        0.000E+00i ];\n");
  EXPECT_TRUE(s.GetInterpolatedMap().empty());
  EXPECT_EQ(s.GetFrequencyMap().size(), 2u);
}

// A plain solution: no variation names our product; vector kinds get no
// declaration and no assignment; an unknown code (32) is written as S; a
// matrix the point cannot give (Y) is declared but never assigned.
TEST(MatlabExport, FrequencyListAndPlainSolutions) {
  auto body = [](std::vector<double> requested) {
    CNetworkDataSolution s;
    Fill(s, 1, {{3000000000.5, {C(3.0)}}, {1e9, {C(1.0)}}, {2e9, {C(2.0)}}});
    std::string file = Export(s, requested, {nd::kPortImpedances, 32, nd::kYMatrix}, 0, true);
    EXPECT_EQ(file.substr(0, file.find('\n')), "% Matlab m-File exported from Corvan Filter");
    file.erase(0, file.find("\n\n") + 2);
    // Width 16 is a minimum; squeeze the padding so the table stays readable.
    for (size_t at; (at = file.find("  ")) != std::string::npos;) file.erase(at, 1);
    return file;
  };
  // Empty: every solved frequency, ascending, counted before the header.
  EXPECT_EQ(body({}),
            "f = zeros(3,1);\nS = zeros(3,1,1);\nY = zeros(3,1,1);\n"
            "f = [1000000000 2000000000 3000000000.5 ];\n"
            "S(1,:,:) = [ 1E+00 + 0E+00i];\nS(2,:,:) = [ 2E+00 + 0E+00i];\n"
            "S(3,:,:) = [ 3E+00 + 0E+00i];\n");
  // A frequency without a point is declared but never assigned; the data
  // pass asks for exact keys only.
  EXPECT_EQ(body({2e9, 2.5e9, 3000000000.5 + 1e-3}),
            "f = zeros(3,1);\nS = zeros(3,1,1);\nY = zeros(3,1,1);\n"
            "f = [2000000000 2500000000 3000000000.501 ];\n"
            "S(1,:,:) = [ 2E+00 + 0E+00i];\n");
}
