// Interpolation of solutions, Neville-type rational and barycentric (BRI):
// exactness on rational data, the single-point and exact-hit rules, the
// error measures, port vectors, weights and their stored form, a filter
// response, and the solution's interpolation path.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <fstream>

#include "sparamlib/data/NetworkModalData.h"
#include "sparamlib/fit/BRIWeights.h"
#include "sparamlib/fit/InterpolateBRI.h"
#include "sparamlib/formats/NetworkDataUtilities.h"
#include "sparamlib/interp/BRIInterpolateVisitor.h"
#include "sparamlib/interp/NevilleInterpolateVisitor.h"
#include "sparamlib/solution/NetworkModalSolution.h"
#include "support/AssertCapture.h"
#include "support/CoupledResonatorFilter.h"
#include "support/SampleProject.h"

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

// The same solution switched to barycentric interpolation with weights
// computed from its points.
template <class Solution>
void UseBRI(Solution& solution) {
  solution.SetSolutionType(CNetworkDataSolution::InterpolateBRI);
  solution.SetBRIWeights(nd::ComputeBRIWeights(solution));
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

// Writers take every interpolated point and release it after its record:
// a large export leaves the solution as it was (and, under the sanitizers,
// nothing leaked).
TEST(Interpolate, ExportsAtUnsolvedFrequenciesLeaveTheSolutionAsItWas) {
  std::mt19937_64 rng(3);
  auto s = testing_support::RandomSolution("Sweep", 16, 40, rng);
  // The tableau costs O(points^2) per frequency, so it gets fewer of them.
  for (const auto& [type, count] : {std::pair{CNetworkDataSolution::InterpolateNeville, 201},
                                    std::pair{CNetworkDataSolution::InterpolateBRI, 2001}}) {
    std::vector<double> frequencies;
    for (int k = 0; k < count; ++k) frequencies.push_back(1e9 + 9e9 * k / (count - 1));
    s->SetSolutionType(type);
    if (type == CNetworkDataSolution::InterpolateBRI) s->SetBRIWeights(nd::ComputeBRIWeights(*s));
    const std::string path =
        ::testing::TempDir() + "interpolated_export." + std::to_string(::getpid()) + ".s16p";
    nd::WriteTouchstoneFile(path, *s, frequencies, "p", false, 50.0, nd::kRealImaginary,
                            nd::kSMatrix, 8, false, false, nullptr);
    EXPECT_TRUE(s->GetInterpolatedMap().empty());
    EXPECT_EQ(s->GetNumFrequencies(), 40);
    std::ifstream in(path);
    int records = 0;
    for (std::string line; std::getline(in, line);)
      records += !line.empty() && line[0] != '!' && line[0] != '#' && line[0] != ' ';
    EXPECT_EQ(records, count) << CNetworkDataSolution::kSolutionTypeNames[type];
    std::remove(path.c_str());
  }
}

TEST(BRIInterpolate, ReproducesRationalFunctionsFromComputedWeights) {
  auto s = Sampled({1, 1.5, 2, 3, 4, 5, 6}, [](double g, int k) {
    // Degree (2, 2), with a pole pair off the axis near the band.
    return Rational(g, k) * (C(1.0, 0.2 * k) + C(0.0, 0.1) * g) / (C(2.0, -1.0) + C(0.1, 0.4) * g);
  });
  UseBRI(*s);
  ASSERT_NE(s->GetBRIWeights(), nullptr);
  EXPECT_EQ(s->GetBRIWeights()->GetFrequencies().size(), 7u);
  for (double g : {1.2, 2.5, 3.75, 5.5}) {
    CNetworkData* p = s->GetNetworkData(g * 1e9, 0.0, true);
    ASSERT_NE(p, nullptr) << g;
    const C expected = Rational(g, 3) * (C(1.0, 0.6) + C(0.0, 0.1) * g) / (C(2.0, -1.0) + C(0.1, 0.4) * g);
    EXPECT_LT(abs(p->GetSMatrix(false)->data()[3] - expected), 1e-10) << g;
    // Port impedances come from the solved points, not the generic 50 ohms.
    const auto* modal = static_cast<CNetworkModalData*>(p);
    EXPECT_LT(abs((*modal->GetPortImpedance())[0] - C(50.0 + g * g, -g)), 1e-9);
    // The error value is the slope of the last entry between the solved
    // neighbours, per Hz.
    EXPECT_GT(p->GetValue(), 0.0);
    EXPECT_LT(p->GetValue(), 1e-9);
  }
  // Below the solved band there is nothing to interpolate from.
  EXPECT_EQ(s->GetNetworkData(0.5e9, 0.0, true), nullptr);
}

TEST(BRIInterpolate, SinglePointExactBandTopOfBandAndShortWeights) {
  auto s = Sampled({1, 2, 3, 4}, Rational);
  UseBRI(*s);
  // Half a hertz from a solved point: the visit succeeds without writing and
  // the solution answers with the solved point, keeping nothing.
  CNetworkModalData target(s.get(), 2e9 + 0.5, CNetworkData::Interpolated);
  CBRIInterpolateVisitor visitor;
  EXPECT_TRUE(visitor.Visit(*s, target));
  EXPECT_EQ(target.GetSMatrix(false), nullptr);
  EXPECT_EQ(s->GetNetworkData(2e9 + 0.5, 0.0, true), s->GetFrequencyMap().at(2e9).get());
  EXPECT_TRUE(s->GetInterpolatedMap().empty());
  // Above the highest solved point there is no upper neighbour: error 0.
  CNetworkData above(s.get(), 4.5e9);
  EXPECT_TRUE(visitor.Visit(static_cast<CNetworkDataSolution&>(*s), above));
  EXPECT_EQ(above.GetValue(), 0.0);

  // Weights one short of the solved points are refused.
  auto weights = std::make_unique<InterpolateBRI>(*s->GetBRIWeights());
  for (int i = 0; i < 2; ++i)
    for (int j = 0; j < 2; ++j) weights->SetWeights(i, j, std::make_unique<CVector>(3, C(1.0)));
  s->SetBRIWeights(std::move(weights));
  EXPECT_EQ(s->GetNetworkData(2.5e9, 0.0, true), nullptr);

  // One solved point: its matrix everywhere, error 1.
  CNetworkDataSolution one;
  one.AddMatrixEntry(CMatrixEntry("P1", 1, 0));
  auto point = one.CreateNetworkData();
  point->SetFrequency(1e9);
  point->SetSMatrix(std::make_unique<CMatrix>(1, 1, C(0.25, 0.5)));
  one.AddNetworkData(std::move(point));
  UseBRI(one);
  CNetworkData* p = one.GetNetworkData(3e9, 0.0, true);
  ASSERT_NE(p, nullptr);
  EXPECT_EQ((*p->GetSMatrix(false))[0][0], C(0.25, 0.5));
  EXPECT_EQ(p->GetValue(), 1.0);
}

TEST(BRIInterpolate, WeightsAreStoredCopiedAndCheckedWithTheSolution) {
  auto s = Sampled({1, 2, 3, 4, 5}, Rational);
  UseBRI(*s);
  io::CBlock block("SolutionData");
  ASSERT_TRUE(s->Write(block, false));
  CNetworkModalSolution back;
  ASSERT_EQ(back.Read(block), io::kReadOk);
  ASSERT_NE(back.GetBRIWeights(), nullptr);
  const InterpolateBRI& a = *s->GetBRIWeights();
  const InterpolateBRI& b = *back.GetBRIWeights();
  EXPECT_EQ(a.GetFrequencies(), b.GetFrequencies());
  EXPECT_EQ(a.GetSupportFrequencies(), b.GetSupportFrequencies());
  EXPECT_EQ(a.GetFitErrors(), b.GetFitErrors());
  for (int k = 0; k < 5; ++k) EXPECT_EQ((*a.GetWeights(1, 0))[k], (*b.GetWeights(1, 0))[k]);
  // The copy of a solution owns its own weights.
  auto copy = back.Clone();
  back.SetBRIWeights(nullptr);
  EXPECT_NE(copy->GetBRIWeights(), nullptr);
  EXPECT_NE(copy->GetNetworkData(2.5e9, 0.0, true), nullptr);

  // An empty weight vector cannot be copied.
  testing_support::AssertCapture asserts;
  InterpolateBRI broken(1, 2);
  broken.SetWeights(0, 0, std::make_unique<CVector>());
  InterpolateBRI target;
  target = broken;
  EXPECT_EQ(asserts.conditions(), std::vector<std::string>{"oldWeight->size() != 0"});
}

// A 5-resonator Chebyshev bandpass filter (Q 2000, 0.5 GHz wide at 10 GHz),
// solved at 41 frequencies over 9 to 11 GHz and read at 2001. Its response is a rational function of f of degree
// at most 10, and both methods reproduce rational data of that degree
// exactly from 41 samples in exact arithmetic; the bounds leave room only for
// rounding, amplified by the conditioning of each interpolant (measured:
// about 6e-11 for the tableau through all 41 points, 5e-14 for the weights).
TEST(Interpolate, FilterResponseFrom41To2001Frequencies) {
  const testing_support::CoupledResonatorFilter filter;
  for (const auto& [type, bound] : {std::pair{CNetworkDataSolution::InterpolateNeville, 1e-9},
                                    std::pair{CNetworkDataSolution::InterpolateBRI, 1e-11}}) {
    CNetworkDataSolution s;
    s.SetSolutionType(type);
    for (int k = 0; k < 2; ++k) s.AddMatrixEntry(CMatrixEntry("P" + std::to_string(k + 1), 1, k));
    for (int k = 0; k < 41; ++k) {
      auto p = s.CreateNetworkData();
      p->SetFrequency(9e9 + 2e9 * k / 40.0);
      p->SetSMatrix(std::make_unique<CMatrix>(filter.S(p->GetFrequency())));
      s.AddNetworkData(std::move(p));
    }
    if (type == CNetworkDataSolution::InterpolateBRI) s.SetBRIWeights(nd::ComputeBRIWeights(s));
    double worst = 0.0;
    for (int k = 0; k < 2001; ++k) {
      const double f = 9e9 + 2e9 * k / 2000.0;
      CNetworkData* p = s.GetNetworkData(f, 0.0, true);
      ASSERT_NE(p, nullptr) << f;
      const CMatrix truth = filter.S(f);
      for (int e = 0; e < 4; ++e)
        worst = std::max(worst, abs(p->GetSMatrix(true)->data()[e] - truth.data()[e]));
      s.ReleaseNetworkData(f);
    }
    RecordProperty(type == CNetworkDataSolution::InterpolateBRI ? "bri_worst" : "neville_worst",
                   std::to_string(worst));
    std::printf("%s: worst error %.2e against the filter's response\n",
                CNetworkDataSolution::kSolutionTypeNames[type], worst);
    EXPECT_LT(worst, bound);
    EXPECT_TRUE(s.GetInterpolatedMap().empty());
  }
}
