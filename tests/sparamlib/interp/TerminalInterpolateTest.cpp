// Terminal solutions interpolate like modal ones: S entry by entry
// (Neville tableau or barycentric weights), references and line matrices by
// the three-point Lagrange rule; without three points or references, not.
#include <gtest/gtest.h>

#include "sparamlib/fit/InterpolateBRI.h"
#include "sparamlib/interp/BRIInterpolateVisitor.h"
#include "sparamlib/solution/NetworkTerminalSolution.h"

using TNT::CMatrix;
using C = AComplex<double>;

namespace {

// S entries of degree (1, 1), line matrices quadratic in g (GHz).
C Rational(double g, int k) {
  return (C(0.1 + 0.1 * k, 0.05) + C(0.02, -0.01 * k) * g) / (C(1.0) + C(0.3, 0.05) * g);
}
C Quadratic(double g, int k, double scale) {
  return C(scale * (1.0 + 0.1 * k) + 0.5 * g * g, 2.0 * g - 0.1 * k);
}

// Three terminals; references 50 ohms on two, quadratic on the third.
std::unique_ptr<CNetworkTerminalSolution> Sampled(const std::vector<double>& ghz) {
  auto solution = std::make_unique<CNetworkTerminalSolution>("Terminal");
  for (int k = 0; k < 3; ++k) solution->AddMatrixEntry(CMatrixEntry(k < 2 ? "Pair" : "Coax", 1, k));
  for (double g : ghz) {
    auto p = std::make_unique<CNetworkTerminalData>(solution.get(), g * 1e9);
    CMatrix s(3, 3), z0(3, 3), gamma(3, 3);
    for (int k = 0; k < 9; ++k) {
      s.data()[k] = Rational(g, k);
      z0.data()[k] = Quadratic(g, k, 40.0);
      gamma.data()[k] = Quadratic(g, k, 0.2);
    }
    p->SetSMatrix(std::make_unique<CMatrix>(s));
    p->SetCharacteristicImpedance(std::make_unique<CMatrix>(z0));
    p->SetGammaMatrix(std::make_unique<CMatrix>(gamma));
    auto z = std::make_unique<TNT::CVector>(3, C(50.0));
    (*z)[2] = C(30.0 + g * g, -g);
    p->SetTerminalImpedance(std::move(z));
    solution->AddNetworkData(std::move(p));
  }
  return solution;
}

}  // namespace

TEST(TerminalInterpolate, NevilleAndBarycentricReproduceTheSampledData) {
  for (const auto type :
       {CNetworkDataSolution::DiscreteSweep, CNetworkDataSolution::InterpolateNeville,
        CNetworkDataSolution::InterpolateBRI}) {
    auto s = Sampled({1, 1.5, 2, 3, 4, 5});
    s->SetSolutionType(type);
    if (type == CNetworkDataSolution::InterpolateBRI) s->SetBRIWeights(nd::ComputeBRIWeights(*s));
    for (double g : {1.2, 2.5, 3.75, 4.9}) {
      auto* p = dynamic_cast<CNetworkTerminalData*>(s->GetNetworkData(g * 1e9, 0.0, true));
      ASSERT_NE(p, nullptr) << type << " " << g;
      EXPECT_EQ(p->GetDataType(), CNetworkData::Interpolated);
      for (int k = 0; k < 9; ++k) {
        EXPECT_LT(abs(p->GetSMatrix(false)->data()[k] - Rational(g, k)), 1e-10) << g << " " << k;
        EXPECT_LT(abs(p->GetCharacteristicImpedance()->data()[k] - Quadratic(g, k, 40.0)), 1e-9);
        EXPECT_LT(abs(p->GetGammaMatrix()->data()[k] - Quadratic(g, k, 0.2)), 1e-9);
      }
      // Constant references stay bit for bit; the changing one follows g.
      EXPECT_TRUE((*p->GetTerminalImpedance())[0] == C(50.0) &&
                  (*p->GetTerminalImpedance())[1] == C(50.0));
      EXPECT_LT(abs((*p->GetTerminalImpedance())[2] - C(30.0 + g * g, -g)), 1e-9);
    }
    EXPECT_EQ(s->GetInterpolatedMap().size(), 4u) << type;
  }

  // Two solved points, or a point without references: nothing, nothing kept.
  auto two = Sampled({1, 2});
  two->SetSolutionType(CNetworkDataSolution::InterpolateNeville);
  EXPECT_EQ(two->GetNetworkData(1.5e9, 0.0, true), nullptr);
  auto bare = Sampled({1, 2, 3, 4});
  static_cast<CNetworkTerminalData*>(bare->GetNetworkData(3e9, 0.0, false))
      ->SetTerminalImpedance(nullptr);
  for (const auto type :
       {CNetworkDataSolution::InterpolateNeville, CNetworkDataSolution::InterpolateBRI}) {
    bare->SetSolutionType(type);
    bare->SetBRIWeights(nd::ComputeBRIWeights(*bare));
    EXPECT_EQ(bare->GetNetworkData(2.5e9, 0.0, true), nullptr) << type;
  }
  EXPECT_TRUE(two->GetInterpolatedMap().empty() && bare->GetInterpolatedMap().empty());
}
