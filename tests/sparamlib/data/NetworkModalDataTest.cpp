// Modal points: port vectors, copies and kinds.
#include <gtest/gtest.h>

#include "sparamlib/data/BlockMatrixIO.h"
#include "sparamlib/data/FxemModalData.h"
#include "sparamlib/data/NetworkDataVisitor.h"
#include "support/FixedPorts.h"

using testing_support::FixedPorts;
using TNT::CMatrix;
using TNT::CVector;
using C = AComplex<double>;

TEST(NetworkModalData, PortVectorsCopiesAndKinds) {
  FixedPorts owner(2);
  CNetworkModalData p(&owner), fresh(&owner);
  p.SetSMatrix(std::make_unique<CMatrix>(2, 2, C(0.5)));
  p.SetPortImpedance(std::make_unique<CVector>(2, C(50.0, -1.0)));
  p.SetGamma(std::make_unique<CVector>(2, C(0.5, 62.8)));
  EXPECT_EQ(p.GetVectorValue(nd::kPortImpedances, 1), C(50.0, -1.0));
  EXPECT_EQ(p.GetPortVector(nd::kPropagationConstants), p.GetGamma());
  std::unique_ptr<CNetworkData> copy = p.Clone();  // deep
  (*p.GetSMatrix())[0][0] = (*p.GetGamma())[0] = C(0.0);
  auto* modal = dynamic_cast<CNetworkModalData*>(copy.get());
  ASSERT_NE(modal, nullptr);
  EXPECT_EQ((*modal->GetSMatrix(false))[0][0], C(0.5));
  EXPECT_EQ((*modal->GetGamma())[0], C(0.5, 62.8));

  // A port vector of the wrong length reads as null; absent ones stay.
  io::CBlock broken("DataPoint");
  broken.AddReal("Frequency", 1.0);
  nd::WriteVector(broken, "PortImpedance", CVector(3, C(50.0)));
  EXPECT_EQ(p.ReadFromBlock(broken), 0);
  EXPECT_TRUE(!p.GetPortImpedance() && p.GetGamma());
  EXPECT_EQ(fresh.ReadFromBlock(broken), 0);
  EXPECT_EQ(fresh.GetGamma(), nullptr);

  // A modal point may stand in for another one.
  EXPECT_EQ(p.GetNetworkData(), &p);
  CNetworkData base;
  p.SetBaseData(&base);
  EXPECT_EQ(p.GetNetworkData(), &base);

  struct Kinds : CNetworkDataVisitor {
    std::string seen;
    void Visit(CNetworkData&) override { seen += "generic "; }
    void Visit(CNetworkModalData&) override { seen += "modal "; }
  } kinds;
  base.Accept(kinds);
  CFxemModalData().Accept(kinds);
  EXPECT_EQ(kinds.seen, "generic modal ");
}
