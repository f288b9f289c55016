// Terminal solutions interpolate like modal ones: S entry by entry
// (Neville tableau or barycentric weights), the references and line
// matrices by the three-point Lagrange rule.
#include <gtest/gtest.h>

#include "sparamlib/fit/InterpolateBRI.h"
#include "sparamlib/interp/BRIInterpolateVisitor.h"
#include "sparamlib/interp/NevilleInterpolateVisitor.h"
#include "sparamlib/solution/NetworkTerminalSolution.h"

using TNT::CMatrix;
using TNT::CVector;
using C = AComplex<double>;

namespace {

// Degree (1, 1) entries with complex coefficients, g in GHz.
C Rational(double g, int k) {
  return (C(0.1 + 0.1 * k, 0.05) + C(0.02, -0.01 * k) * g) / (C(1.0) + C(0.3, 0.05) * g);
}

// Entries of the line matrices, quadratic in g.
C Quadratic(double g, int k, double scale) {
  return C(scale * (1.0 + 0.1 * k) + 0.5 * g * g, 2.0 * g - 0.1 * k);
}

// A three-terminal solution sampled at `ghz`; references constant 50 ohms
// on two terminals and quadratic on the third.
std::unique_ptr<CNetworkTerminalSolution> Sampled(const std::vector<double>& ghz) {
  auto solution = std::make_unique<CNetworkTerminalSolution>("Terminal");
  solution->SetSolutionType(CNetworkDataSolution::DiscreteSweep);
  for (int k = 0; k < 3; ++k) {
    CMatrixEntry e(k < 2 ? "Pair" : "Coax", k < 2 ? k + 1 : 1, k);
    e.SetTerminalName("T" + std::to_string(k < 2 ? k + 1 : 1));
    solution->AddMatrixEntry(e);
  }
  for (double g : ghz) {
    auto point = solution->CreateNetworkData();
    auto* p = static_cast<CNetworkTerminalData*>(point.get());
    p->SetFrequency(g * 1e9);
    auto s = std::make_unique<CMatrix>(3, 3);
    auto z0 = std::make_unique<CMatrix>(3, 3);
    auto gamma = std::make_unique<CMatrix>(3, 3);
    for (int k = 0; k < 9; ++k) {
      s->data()[k] = Rational(g, k);
      z0->data()[k] = Quadratic(g, k, 40.0);
      gamma->data()[k] = Quadratic(g, k, 0.2);
    }
    p->SetSMatrix(std::move(s));
    p->SetCharacteristicImpedance(std::move(z0));
    p->SetGammaMatrix(std::move(gamma));
    CVector z(3, C(50.0));
    z[2] = C(30.0 + g * g, -g);
    p->SetTerminalImpedance(std::make_unique<CVector>(z));
    solution->AddNetworkData(std::move(point));
  }
  return solution;
}

// Checks the point at g against the sampled functions.
void ExpectSampled(CNetworkData* point, double g, double sTolerance) {
  auto* p = dynamic_cast<CNetworkTerminalData*>(point);
  ASSERT_NE(p, nullptr) << g;
  EXPECT_EQ(p->GetDataType(), CNetworkData::Interpolated);
  for (int k = 0; k < 9; ++k) {
    EXPECT_LT(abs(p->GetSMatrix(false)->data()[k] - Rational(g, k)), sTolerance) << g << " " << k;
    EXPECT_LT(abs(p->GetCharacteristicImpedance()->data()[k] - Quadratic(g, k, 40.0)), 1e-9);
    EXPECT_LT(abs(p->GetGammaMatrix()->data()[k] - Quadratic(g, k, 0.2)), 1e-9);
  }
  // Constant references stay bit for bit; the changing one follows g.
  EXPECT_EQ((*p->GetTerminalImpedance())[0], C(50.0));
  EXPECT_EQ((*p->GetTerminalImpedance())[1], C(50.0));
  EXPECT_LT(abs((*p->GetTerminalImpedance())[2] - C(30.0 + g * g, -g)), 1e-9);
  EXPECT_EQ(p->GetVectorValue(nd::kPropagationConstants, 1), (*p->GetGammaMatrix())[1][1]);
}

}  // namespace

TEST(TerminalInterpolate, NevilleAndBarycentricReproduceTheSampledData) {
  const std::vector<double> ghz = {1, 1.5, 2, 3, 4, 5};
  for (const auto type : {CNetworkDataSolution::DiscreteSweep, CNetworkDataSolution::InterpolateNeville,
                          CNetworkDataSolution::InterpolateBRI}) {
    auto s = Sampled(ghz);
    s->SetSolutionType(type);
    if (type == CNetworkDataSolution::InterpolateBRI) {
      AString why;
      s->SetBRIWeights(nd::ComputeBRIWeights(*s, {}, &why));
      ASSERT_NE(s->GetBRIWeights(), nullptr) << why;
    }
    for (double g : {1.2, 2.5, 3.75, 4.9}) ExpectSampled(s->GetNetworkData(g * 1e9, 0.0, true), g, 1e-10);
    EXPECT_EQ(s->GetInterpolatedMap().size(), 4u) << type;
  }
}

// Too few solved points for the Lagrange rule, or a point without its
// references: nothing is interpolated, and the solution keeps nothing.
TEST(TerminalInterpolate, RefusedWithoutThreePointsOrWithoutReferences) {
  auto two = Sampled({1, 2});
  two->SetSolutionType(CNetworkDataSolution::InterpolateNeville);
  EXPECT_EQ(two->GetNetworkData(1.5e9, 0.0, true), nullptr);
  EXPECT_TRUE(two->GetInterpolatedMap().empty());

  auto bare = Sampled({1, 2, 3, 4});
  static_cast<CNetworkTerminalData*>(bare->GetNetworkData(3e9, 0.0, false))->SetTerminalImpedance(nullptr);
  for (const auto type : {CNetworkDataSolution::InterpolateNeville, CNetworkDataSolution::InterpolateBRI}) {
    bare->SetSolutionType(type);
    bare->SetBRIWeights(nd::ComputeBRIWeights(*bare));
    EXPECT_EQ(bare->GetNetworkData(2.5e9, 0.0, true), nullptr) << type;
    EXPECT_TRUE(bare->GetInterpolatedMap().empty());
  }
}
