// MATLAB export: exact file layouts on small solutions, missing points and
// vectors, the filled frequency list, and a solution left as it was found.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "sparamlib/InterpolateVisitor.h"
#include "sparamlib/MatlabExportVisitor.h"
#include "sparamlib/NetworkModalData.h"
#include "sparamlib/NetworkModalSolution.h"

using C = AComplex<double>;

namespace {

class Variation : public IDesignVariation {
 public:
  const AString& GetProductName() const override { return name_; }
  const AString& GetProductVersion() const override { return version_; }
  const std::vector<Variable>& GetDesignVariables() const override { return variables_; }

 private:
  AString name_ = "sparamlib", version_ = "2.1";
  std::vector<Variable> variables_;
};

struct PointData {
  double f;
  std::vector<C> s;                    // row-major n*n
  std::vector<C> zo = {}, gamma = {};  // empty: the point has none (modal points only)
};

std::unique_ptr<TNT::CVector> Vector(const std::vector<C>& values) {
  auto v = std::make_unique<TNT::CVector>(static_cast<int>(values.size()));
  std::copy(values.begin(), values.end(), v->data());
  return v;
}

void Fill(CNetworkDataSolution& solution, int n, const std::vector<PointData>& points) {
  for (int k = 0; k < n; ++k)
    solution.AddMatrixEntry(CMatrixEntry("P" + std::to_string(k + 1), 1, k));
  for (const PointData& d : points) {
    auto p = solution.CreateNetworkData();
    p->SetFrequency(d.f);
    auto m = std::make_unique<TNT::CMatrix>(n, n);
    std::copy(d.s.begin(), d.s.end(), m->data());
    p->SetSMatrix(std::move(m));
    if (auto* modal = dynamic_cast<CNetworkModalData*>(p.get())) {
      if (!d.zo.empty()) modal->SetPortImpedance(Vector(d.zo));
      if (!d.gamma.empty()) modal->SetGamma(Vector(d.gamma));
    }
    ASSERT_TRUE(solution.AddNetworkData(std::move(p)));
  }
}

std::string Export(CNetworkDataSolution& solution, std::vector<double> frequencies,
                   std::vector<int> kinds, int precision,
                   const IDesignVariation* variation = nullptr) {
  const auto path = std::filesystem::path(testing::TempDir()) / "matlab_export_test.m";
  {
    io::CToken_ostream out(path);
    CMatlabExportVisitor(out, std::move(frequencies), std::move(kinds), precision, variation,
                         "Filter")
        .Visit(solution);
    EXPECT_TRUE(out.Close());
  }
  std::stringstream text;
  text << std::ifstream(path).rdbuf();
  return text.str();
}

// The lines behind the four fixed header lines.
std::string Body(const std::string& file) {
  size_t at = 0;
  for (int k = 0; k < 4; ++k) at = file.find('\n', at) + 1;
  return file.substr(at);
}

}  // namespace

TEST(MatlabExport, TwoPortSWholeFile) {
  CNetworkDataSolution s;
  // -0.0 imaginary parts count as non-negative: " + " and an unsigned zero.
  Fill(s, 2,
       {{2.4e9, {C(0.5, -0.25), C(-1.0, 0.0), C(0.125, 0.75), C(-0.0625, -0.0)}},
        {2.45e9, {C(1e-12, 3e5), C(0.0, -1.0), C(-2.5, 0.0), C(0.1, -0.1)}}});
  const Variation variation;
  EXPECT_EQ(
      Export(s, {2.4e9, 2.45e9}, {nd::kSMatrix}, 6, &variation),
      "% Matlab m-File exported from sparamlib2.1 Filter\n"
      "% Note: In three-dimensional arrays, like S(i,j,k), the first index corresponds to the "
      "frequency.\n"
      "%       So, S(N,j,k) is an S(j,k) matrix for frequency N.\n"
      "\n"
      "f = zeros(2,1);\n"
      "S = zeros(2,2,2);\n"
      "f = [2400000000 2450000000 ];\n"
      "S(1,:,:) = [     5.000000E-01 -     2.500000E-01i,    -1.000000E+00 +     0.000000E+00i;"
      "    1.250000E-01 +     7.500000E-01i,    -6.250000E-02 +     0.000000E+00i];\n"
      "S(2,:,:) = [     1.000000E-12 +     3.000000E+05i,     0.000000E+00 -     1.000000E+00i;"
      "   -2.500000E+00 +     0.000000E+00i,     1.000000E-01 -     1.000000E-01i];\n");
}

TEST(MatlabExport, ModalVectorsAreTwoDimensionalAndDeclaredFromTheFirstPoint) {
  CNetworkModalSolution s;
  const std::vector<C> s1 = {C(0.1, 0.0)};
  // Zo is missing at the first frequency: no declaration, but later
  // frequencies that carry it are still assigned.
  Fill(s, 1, {{1e9, s1, {}, {C(0.5, 20.0)}}, {2e9, s1, {C(50.0, -1.0)}, {C(0.25, -30.0)}}});
  EXPECT_EQ(Body(Export(s, {}, {nd::kPropagationConstants, nd::kPortImpedances}, 3)),
            "f = zeros(2,1);\n"
            "Gamma = zeros(2,1);\n"
            "f = [1000000000 2000000000 ];\n"
            "Gamma(1,:) = [ \n       5.000E-01 +        2.000E+01i ];\n"
            "Gamma(2,:) = [ \n       2.500E-01 -        3.000E+01i ];\n"
            "Zo(1,:) = [ \n"
            "Zo(2,:) = [ \n       5.000E+01 -        1.000E+00i ];\n");
}

TEST(MatlabExport, DeclarationsAndOpenersPerKind) {
  // Without a variation the product is "Corvan". A plain solution: vector
  // kinds get no declaration and the 3-D opener; an unknown code is written
  // as S; a matrix the point lacks leaves an empty assignment.
  CNetworkDataSolution plain;
  Fill(plain, 1, {{1e9, {C(0.5, 0.5)}}});
  EXPECT_EQ(Export(plain, {}, {nd::kPortImpedances, 32, nd::kYMatrix}, 1),
            "% Matlab m-File exported from Corvan Filter\n"
            "% Note: In three-dimensional arrays, like S(i,j,k), the first index corresponds to "
            "the frequency.\n"
            "%       So, S(N,j,k) is an S(j,k) matrix for frequency N.\n\n"
            "f = zeros(1,1);\nS = zeros(1,1,1);\nY = zeros(1,1,1);\nf = [1000000000 ];\n"
            "Zo(1,:,:) = [ \nS(1,:,:) = [          5.0E-01 +          5.0E-01i];\nY(1,:,:) = [ \n");
}

TEST(MatlabExport, FrequencyList) {
  struct Case {
    std::vector<double> requested;
    std::string body;
  };
  const std::vector<Case> cases = {
      // Empty: every solved frequency, ascending, counted before the header.
      {{},
       "f = zeros(3,1);\nS = zeros(3,1,1);\nf = [1000000000 2000000000 3000000000.5 ];\n"
       "S(1,:,:) = [ 1E+00 + 0E+00i];\nS(2,:,:) = [ 2E+00 + 0E+00i];\n"
       "S(3,:,:) = [ 3E+00 + 0E+00i];\n"},
      // A frequency without a point is declared but never assigned; the data
      // pass asks for exact keys only.
      {{2e9, 2.5e9, 3000000000.5 + 1e-3},
       "f = zeros(3,1);\nS = zeros(3,1,1);\nf = [2000000000 2500000000 3000000000.501 ];\n"
       "S(1,:,:) = [ 2E+00 + 0E+00i];\n"},
  };
  for (const Case& c : cases) {
    CNetworkDataSolution s;
    Fill(s, 1, {{3000000000.5, {C(3.0, 0.0)}}, {1e9, {C(1.0, 0.0)}}, {2e9, {C(2.0, 0.0)}}});
    std::string body = Body(Export(s, c.requested, {nd::kSMatrix}, 0));
    // Width 16 is a minimum; squeeze the padding so the table stays readable.
    for (size_t at; (at = body.find("  ")) != std::string::npos;) body.erase(at, 1);
    EXPECT_EQ(body, c.body) << c.requested.size() << " frequencies requested";
  }
}

namespace {

// Interpolates by copying the nearest solved point below, so that export of
// unsolved frequencies produces kept points the writer must release.
class CopyBelow : public CInterpolateVisitor {
 public:
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

class InterpolatingSolution : public CNetworkModalSolution {
 protected:
  std::unique_ptr<CInterpolateVisitor> MakeInterpolateVisitor() const override {
    return std::make_unique<CopyBelow>();
  }
};

}  // namespace

TEST(MatlabExport, InterpolatedPointsAreWrittenAndReleased) {
  InterpolatingSolution s;
  Fill(s, 1, {{1e9, {C(0.5, 0.0)}, {C(50.0, 0.0)}, {C(0.0, 21.0)}}});
  // The first frequency is unsolved: the vector declarations come from an
  // interpolated point too.
  const std::string body = Body(Export(s, {1.5e9, 1e9}, {nd::kPortImpedances, nd::kYMatrix}, 2));
  EXPECT_EQ(body,
            "f = zeros(2,1);\nZo = zeros(2,1);\nY = zeros(2,1,1);\nf = [1500000000 1000000000 ];\n"
            "Zo(1,:) = [ \n        5.00E+01 +         0.00E+00i ];\n"
            "Zo(2,:) = [ \n        5.00E+01 +         0.00E+00i ];\n"
            "Y(1,:,:) = [         6.67E-03 +         0.00E+00i];\n"
            "Y(2,:,:) = [         6.67E-03 +         0.00E+00i];\n");
  EXPECT_TRUE(s.GetInterpolatedMap().empty());
  EXPECT_EQ(s.GetFrequencyMap().size(), 1u);
}
