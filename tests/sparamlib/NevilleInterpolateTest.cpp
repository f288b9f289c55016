// Rational (Neville-type) interpolation of solutions: exactness on rational
// data, the single-point and exact-hit rules, the error measure, port
// vectors, and the solution's interpolation path.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <fstream>

#include "sparamlib/NetworkDataUtilities.h"
#include "sparamlib/NetworkModalData.h"
#include "sparamlib/NetworkModalSolution.h"
#include "sparamlib/NevilleInterpolateVisitor.h"

using TNT::CMatrix;
using TNT::CVector;
using C = AComplex<double>;

namespace {

// A 2-port modal solution sampled from S(f) given per entry, with port
// impedances and propagation constants quadratic in f (GHz).
template <class Response>
std::unique_ptr<CNetworkModalSolution> Sampled(const std::vector<double>& ghz, Response s) {
  auto solution = std::make_unique<CNetworkModalSolution>("Sweep");
  solution->SetSolutionType(CNetworkDataSolution::DiscreteSweep);
  for (int k = 0; k < 2; ++k) solution->AddMatrixEntry(CMatrixEntry("P" + std::to_string(k + 1), 1, k));
  for (double g : ghz) {
    auto point = solution->CreateNetworkData();
    point->SetFrequency(g * 1e9);
    auto m = std::make_unique<CMatrix>(2, 2);
    for (int k = 0; k < 4; ++k) m->data()[k] = s(g, k);
    point->SetSMatrix(std::move(m));
    auto* modal = static_cast<CNetworkModalData*>(point.get());
    modal->SetPortImpedance(std::make_unique<CVector>(2, C(50.0 + g * g, -g)));
    modal->SetGamma(std::make_unique<CVector>(2, C(0.1 * g, 2.0 * g + 0.5 * g * g)));
    solution->AddNetworkData(std::move(point));
  }
  return solution;
}

// Low-degree rational entries with complex coefficients.
C Rational(double g, int k) {
  return (C(1.0 + k, 0.5) + C(0.2, -0.1 * k) * g) / (C(1.0) + C(0.3, 0.05) * g);
}

}  // namespace

TEST(NevilleInterpolate, ReproducesRationalFunctionsAndFlagsExactHits) {
  auto s = Sampled({1, 2, 3, 4, 5, 6}, Rational);
  for (double g : {1.5, 2.25, 4.9, 5.999}) {
    CNetworkData* p = s->GetNetworkData(g * 1e9, 0.0, true);
    ASSERT_NE(p, nullptr) << g;
    EXPECT_EQ(p->GetDataType(), CNetworkData::Interpolated);
    for (int k = 0; k < 4; ++k)
      EXPECT_LT(abs(p->GetSMatrix(false)->data()[k] - Rational(g, k)), 1e-10) << g << " " << k;
    EXPECT_LT(p->GetValue(), 1e-10) << "the error estimate follows the last correction";
    // Quadratic port vectors are exact under the three-point rule.
    const auto* modal = static_cast<CNetworkModalData*>(p);
    EXPECT_LT(abs((*modal->GetPortImpedance())[1] - C(50.0 + g * g, -g)), 1e-9);
    EXPECT_LT(abs((*modal->GetGamma())[0] - C(0.1 * g, 2.0 * g + 0.5 * g * g)), 1e-12);
  }
  EXPECT_EQ(s->GetInterpolatedMap().size(), 4u);

  // Within 1e-6 of a solved frequency the stored entries come back exactly.
  std::vector<double> x;
  std::vector<const CMatrix*> values;
  for (const auto& [f, p] : s->GetFrequencyMap()) {
    x.push_back(f);
    values.push_back(p->GetSMatrix(false));
  }
  CMatrix y, e;
  nd::NevilleInterpolate(3e9 + 5e-7, x, values, y, e);
  EXPECT_EQ(y.data()[2], (*values[2]).data()[2]);
  EXPECT_EQ(nd::InterpolationError(y, e), 0.0);
}

TEST(NevilleInterpolate, SinglePointsZeroDataAndTooFewModalPoints) {
  // A generic solution with one point answers with it everywhere, error 1.
  CNetworkDataSolution one;
  one.SetSolutionType(CNetworkDataSolution::InterpolateNeville);
  one.AddMatrixEntry(CMatrixEntry("P1", 1, 0));
  auto point = one.CreateNetworkData();
  point->SetFrequency(1e9);
  point->SetSMatrix(std::make_unique<CMatrix>(1, 1, C(0.25, 0.5)));
  one.AddNetworkData(std::move(point));
  CNetworkData* p = one.GetNetworkData(7e9, 0.0, true);
  ASSERT_NE(p, nullptr);
  EXPECT_EQ((*p->GetSMatrix(false))[0][0], C(0.25, 0.5));
  EXPECT_EQ(p->GetValue(), 1.0);

  // All-zero data: the relative error is 0/0, stored as it is.
  const CMatrix zero(2, 2);
  const std::vector<const CMatrix*> zeros = {&zero, &zero};
  CMatrix y, e;
  nd::NevilleInterpolate(1.8, {1.0, 2.0}, zeros, y, e);
  EXPECT_EQ(y[1][1], C());
  EXPECT_FALSE(std::isfinite(nd::InterpolationError(y, e)));

  // Port vectors need three solved points: a modal solution with two gives
  // nothing and keeps nothing.
  auto two = Sampled({1, 2}, Rational);
  EXPECT_EQ(two->GetNetworkData(1.5e9, 0.0, true), nullptr);
  EXPECT_TRUE(two->GetInterpolatedMap().empty());
}

TEST(NevilleInterpolate, ExportsAtUnsolvedFrequenciesLeaveTheSolutionAsItWas) {
  auto s = Sampled({1, 2, 3, 4}, Rational);
  const std::string path = ::testing::TempDir() + "neville_export.s2p";
  nd::WriteTouchstoneFile(path, *s, {1e9, 1.5e9, 2.5e9, 4e9}, "p", false, 50.0,
                          nd::kRealImaginary, nd::kSMatrix, 8, false, false, nullptr);
  EXPECT_TRUE(s->GetInterpolatedMap().empty());
  std::ifstream in(path);
  int records = 0;
  for (std::string line; std::getline(in, line);) records += !line.empty() && line[0] != '!' && line[0] != '#';
  EXPECT_EQ(records, 4);
  std::remove(path.c_str());
}
