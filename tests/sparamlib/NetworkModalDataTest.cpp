// Modal and solver points: port vectors, persistence, the solver's guard.
#include <gtest/gtest.h>

#include "sparamlib/BlockMatrixIO.h"
#include "sparamlib/FxemModalData.h"
#include "sparamlib/NetworkDataVisitor.h"
#include "support/FixedPorts.h"
#include "support/RandomNetwork.h"

using testing_support::FixedPorts;
using TNT::CMatrix;
using TNT::CVector;
using C = AComplex<double>;

TEST(NetworkModalData, PersistsPortVectorsAndTransformAfterBaseItems) {
  FixedPorts owner(2);
  CNetworkModalData p(&owner, 3e9, CNetworkData::ExactPoint);
  p.SetSMatrix(std::make_unique<CMatrix>(2, 2, C(0.1)));
  p.SetPortImpedance(std::make_unique<CVector>(2, C(50.0, -1.0)));
  p.SetGamma(std::make_unique<CVector>(2, C(0.5, 62.8)));
  p.SetTerminalTransform(std::make_unique<CMatrix>(2, 2, C(1.0)));
  io::CBlock block("DataPoint");
  ASSERT_TRUE(p.WriteToBlock(block));
  std::vector<std::string> names;
  for (size_t k = 0; k < block.GetNumItems(); ++k) names.push_back(block.GetItem(k).GetName());
  EXPECT_EQ(names, (std::vector<std::string>{"Frequency", "DataType", "SMatrix", "PortImpedance",
                                             "Gamma", "TerminalTransform"}));

  CNetworkModalData q(&owner);
  EXPECT_EQ(q.ReadFromBlock(block), 0);
  ASSERT_NE(q.GetGamma(), nullptr);
  EXPECT_EQ((*q.GetGamma())[1], C(0.5, 62.8));
  ASSERT_NE(q.GetTerminalTransform(), nullptr);
  EXPECT_EQ((*q.GetTerminalTransform())[1][0], C(1.0));
  EXPECT_EQ(q.GetVectorValue(nd::kPortImpedances, 1), C(50.0, -1.0));
  EXPECT_EQ(q.GetPortVector(nd::kPropagationConstants), q.GetGamma());
}

TEST(NetworkModalData, AbsentOrBrokenVectorsReadAsNull) {
  FixedPorts owner(2);
  io::CBlock block("DataPoint");
  block.AddReal("Frequency", 1.0);
  nd::WriteVector(block, "PortImpedance", CVector(3, C(50.0)));  // wrong length
  CNetworkModalData p(&owner);
  p.SetGamma(std::make_unique<CVector>(2));
  p.SetPortImpedance(std::make_unique<CVector>(2));
  EXPECT_EQ(p.ReadFromBlock(block), 0);
  EXPECT_EQ(p.GetPortImpedance(), nullptr);
  ASSERT_NE(p.GetGamma(), nullptr) << "absent items keep the current value";

  CNetworkModalData fresh(&owner);
  EXPECT_EQ(fresh.ReadFromBlock(block), 0);
  EXPECT_EQ(fresh.GetGamma(), nullptr);
}

TEST(NetworkModalData, NewPortImpedancesDropDerivedMatricesOnly) {
  FixedPorts owner(1);
  CNetworkModalData p(&owner);
  p.SetSMatrix(std::make_unique<CMatrix>(1, 1, C(0.5)));
  p.SetPortImpedance(std::make_unique<CVector>(1, C(50.0)));
  EXPECT_NEAR(p.GetZMatrix(true)[0][0][0].re, 150.0, 1e-12);
  p.SetPortImpedance(std::make_unique<CVector>(1, C(75.0)));
  EXPECT_EQ(p.GetZMatrix(false), nullptr);
  EXPECT_NEAR(p.GetZMatrix(true)[0][0][0].re, 225.0, 1e-12);
  EXPECT_NE(p.GetSMatrix(false), nullptr);
}

TEST(NetworkModalData, CopiesAreDeepAndDowncastFollowsTheBaseLink) {
  FixedPorts owner(1);
  CNetworkModalData p(&owner);
  p.SetSMatrix(std::make_unique<CMatrix>(1, 1, C(0.5)));
  p.SetGamma(std::make_unique<CVector>(1, C(1.0)));
  std::unique_ptr<CNetworkData> copy = p.Clone();
  (*p.GetSMatrix())[0][0] = C(0.0);
  (*p.GetGamma())[0] = C(0.0);
  auto* modal = dynamic_cast<CNetworkModalData*>(copy.get());
  ASSERT_NE(modal, nullptr);
  EXPECT_EQ((*modal->GetSMatrix(false))[0][0], C(0.5));
  EXPECT_EQ((*modal->GetGamma())[0], C(1.0));

  EXPECT_EQ(p.GetNetworkData(), &p);
  CNetworkData base;
  p.SetBaseData(&base);
  EXPECT_EQ(p.GetNetworkData(), &base);
}

TEST(NetworkModalData, VisitorsDispatchOnThePointKind) {
  struct Counter : CNetworkDataVisitor {
    int generic = 0;
    int modal = 0;
    void Visit(CNetworkData&) override { ++generic; }
    void Visit(CNetworkModalData&) override { ++modal; }
  } counter;
  CNetworkData plain;
  CFxemModalData solver;
  plain.Accept(counter);
  solver.Accept(counter);
  EXPECT_EQ(counter.generic, 1);
  EXPECT_EQ(counter.modal, 1);
}

TEST(FxemModalData, ComputesNothingWithoutPortImpedances) {
  FixedPorts owner(2);
  CFxemModalData p(&owner);
  p.SetSMatrix(std::make_unique<CMatrix>(2, 2, C(0.1)));
  p.SetZMatrix(std::make_unique<CMatrix>(2, 2));
  EXPECT_EQ(p.GetYMatrix(true), nullptr);
  EXPECT_NE(p.GetZMatrix(true), nullptr) << "stored matrices are still handed out";

  p.SetPortImpedance(std::make_unique<CVector>(2, C(50.0)));
  ASSERT_NE(p.GetYMatrix(true), nullptr);
  EXPECT_TRUE(p.IsYDerived());
  EXPECT_NE(dynamic_cast<CFxemModalData*>(p.Clone().get()), nullptr);
}

TEST(NetworkModalData, RenormalizationKeepsTheNetworkAndUndoesExactly) {
  std::mt19937_64 rng(99);
  for (int n = 1; n <= 6; ++n) {
    FixedPorts owner(n);
    CNetworkModalData p(&owner);
    p.SetSMatrix(std::make_unique<CMatrix>(testing_support::RandomS(n, rng)));
    const CVector z = testing_support::RandomImpedances(n, rng);
    p.SetPortImpedance(std::make_unique<CVector>(z));
    const CMatrix s = *p.GetSMatrix();
    const CMatrix zBefore = *p.GetZMatrix(true);
    ASSERT_TRUE(p.Renormalize(CVector(n, C(50.0))));
    EXPECT_EQ((*p.GetPortImpedance())[n - 1], C(50.0));
    // Same network: its impedance matrix does not depend on the references.
    EXPECT_LT(testing_support::MaxAbsDiff(*p.GetZMatrix(true), zBefore),
              1e-12 * testing_support::MaxAbs(zBefore));
    ASSERT_TRUE(p.Renormalize(z));
    EXPECT_LT(testing_support::MaxAbsDiff(*p.GetSMatrix(), s), 1e-12) << n;
  }
}

TEST(NetworkModalData, IdealThruRenormalizesWithoutAnImpedanceMatrix) {
  FixedPorts owner(2);
  CNetworkModalData thru(&owner);
  thru.SetSMatrix(std::make_unique<CMatrix>(2, 2));
  (*thru.GetSMatrix())[0][1] = (*thru.GetSMatrix())[1][0] = C(1.0);
  thru.SetPortImpedance(std::make_unique<CVector>(2, C(50.0)));
  CVector z(2, C(50.0));
  z[1] = C(75.0);
  ASSERT_TRUE(thru.Renormalize(z));
  const CMatrix& s = *thru.GetSMatrix();
  // Port 1 sees port 2's 75 ohms: reflection (75-50)/(75+50); transmission
  // 2 sqrt(z1 z2) / (z1 + z2) for travelling waves.
  EXPECT_NEAR(s[0][0].re, 0.2, 1e-15);
  EXPECT_NEAR(s[1][1].re, -0.2, 1e-15);
  EXPECT_NEAR(s[1][0].re, 2.0 * std::sqrt(50.0 * 75.0) / 125.0, 1e-15);

  CNetworkModalData bare(&owner);
  bare.SetSMatrix(std::make_unique<CMatrix>(2, 2));
  EXPECT_FALSE(bare.Renormalize(z)) << "no references to start from";
}
