// Data points: conversions between S, Y and Z, quantity codes, persistence.
#include <gtest/gtest.h>

#include <bit>
#include <cstring>

#include "core/BlockText.h"
#include "sparamlib/BlockMatrixIO.h"
#include "sparamlib/NetworkModalData.h"
#include "support/AssertCapture.h"
#include "support/FixedPorts.h"
#include "support/RandomNetwork.h"

using testing_support::FixedPorts;
using TNT::CMatrix;
using TNT::CVector;
using C = AComplex<double>;

namespace {

std::unique_ptr<CMatrix> MakeMatrix(int n, std::initializer_list<C> values) {
  return std::make_unique<CMatrix>(n, n, std::span<const C>(values.begin(), values.size()));
}

std::unique_ptr<CVector> Uniform(int n, C z) { return std::make_unique<CVector>(n, z); }

CNetworkModalData ModalPoint(FixedPorts& owner, const CMatrix& s, const CVector& z) {
  CNetworkModalData p(&owner, 1e9, CNetworkData::ExactPoint);
  p.SetSMatrix(std::make_unique<CMatrix>(s));
  p.SetPortImpedance(std::make_unique<CVector>(z));
  return p;
}

// Text round trip of a point through the block syntax.
template <class Point>
void RoundTrip(const Point& in, Point& out) {
  io::CBlock root;
  ASSERT_TRUE(in.WriteToBlock(root.AddBlock(in.GetBlockName())));
  std::string text;
  io::WriteBlockText(root, text);
  io::CBlock parsed;
  ASSERT_EQ(io::ParseBlockText(text, "point.txt", parsed), io::kReadOk) << parsed.GetReadError();
  const io::CBlock* block = parsed.FindBlock("DataPoint");
  ASSERT_NE(block, nullptr);
  EXPECT_EQ(out.ReadFromBlock(*block), 0) << parsed.GetReadError();
}

bool SameBits(const CMatrix& a, const CMatrix& b) {
  return a.num_rows() == b.num_rows() && a.num_cols() == b.num_cols() &&
         std::memcmp(a.data(), b.data(), sizeof(C) * static_cast<size_t>(a.size())) == 0;
}

}  // namespace

TEST(NetworkConversions, FiftyOhmAdmittanceIsScaledInverseFormula) {
  FixedPorts owner(2);
  const auto s = MakeMatrix(2, {C(0.2, 0.1), C(0.5, -0.3), C(0.5, -0.3), C(-0.1, 0.4)});
  CNetworkModalData p = ModalPoint(owner, *s, CVector(2, C(50.0)));
  ASSERT_NE(p.GetYMatrix(true), nullptr);
  EXPECT_TRUE(p.IsYDerived());
  // 50 (I + S) Y = I - S
  const CMatrix& y = *p.GetYMatrix();
  const CMatrix lhs = TNT::Identity(2) + *s;
  const CMatrix rhs = TNT::Identity(2) - *s;
  for (int i = 0; i < 2; ++i)
    for (int j = 0; j < 2; ++j)
      EXPECT_LT(abs((lhs[i][0] * y[0][j] + lhs[i][1] * y[1][j]) * 50.0 - rhs[i][j]), 1e-14);
}

TEST(NetworkConversions, UncoupledPortsGiveTheirOwnComplexImpedance) {
  // With a diagonal S each port is a load z_k (1 + s) / (1 - s): the
  // principal square roots multiply back to z_k exactly.
  FixedPorts owner(3);
  const CVector z = [] {
    CVector v(3);
    v[0] = C(50.0, 0.0);
    v[1] = C(30.0, -40.0);
    v[2] = C(75.0, 20.0);
    return v;
  }();
  CMatrix s(3, 3);
  s[0][0] = C(0.3, 0.0);
  s[1][1] = C(-0.2, 0.5);
  s[2][2] = C(0.0, -0.7);
  CNetworkModalData p = ModalPoint(owner, s, z);
  const CMatrix* zm = p.GetZMatrix(true);
  ASSERT_NE(zm, nullptr);
  for (int k = 0; k < 3; ++k) {
    const C expected = z[k] * (C(1.0) + s[k][k]) / (C(1.0) - s[k][k]);
    EXPECT_NEAR(abs((*zm)[k][k] - expected), 0.0, 1e-12 * abs(expected)) << k;
  }
  EXPECT_EQ((*zm)[0][1], C());
}

TEST(NetworkConversions, RoundTripsReturnSForOneToEightPorts) {
  std::mt19937_64 rng(20261121);
  for (int n = 1; n <= 8; ++n) {
    FixedPorts owner(n);
    const CMatrix s = testing_support::RandomS(n, rng);
    const CVector z = testing_support::RandomImpedances(n, rng);
    CNetworkModalData p = ModalPoint(owner, s, z);

    CNetworkModalData fromY(&owner);
    fromY.SetYMatrix(std::make_unique<CMatrix>(*p.GetYMatrix(true)));
    fromY.SetPortImpedance(std::make_unique<CVector>(z));
    CNetworkModalData fromZ(&owner);
    fromZ.SetZMatrix(std::make_unique<CMatrix>(*p.GetZMatrix(true)));
    fromZ.SetPortImpedance(std::make_unique<CVector>(z));

    ASSERT_NE(fromY.GetSMatrix(true), nullptr);
    ASSERT_NE(fromZ.GetSMatrix(true), nullptr);
    EXPECT_TRUE(fromY.IsSDerived());
    EXPECT_LT(testing_support::MaxAbsDiff(*fromY.GetSMatrix(), s), 1e-12) << n;
    EXPECT_LT(testing_support::MaxAbsDiff(*fromZ.GetSMatrix(), s), 1e-12) << n;
  }
}

TEST(NetworkConversions, SingularNetworksGiveZeroMatricesNotCrashes) {
  FixedPorts one(1), two(2);
  // An ideal open has no Z (I - S is singular) and a zero Y.
  CNetworkModalData open = ModalPoint(one, *MakeMatrix(1, {C(1.0)}), CVector(1, C(50.0)));
  const CMatrix* z = open.GetZMatrix(true);
  ASSERT_NE(z, nullptr);
  EXPECT_EQ((*z)[0][0], C());
  EXPECT_NEAR(open.GetYMatrix(true)[0][0][0].re, 0.0, 1e-18);

  // An ideal thru has neither Z nor Y: I - S and I + S are both singular.
  CNetworkModalData thru =
      ModalPoint(two, *MakeMatrix(2, {C(), C(1.0), C(1.0), C()}), CVector(2, C(50.0)));
  ASSERT_NE(thru.GetZMatrix(true), nullptr);
  ASSERT_NE(thru.GetYMatrix(true), nullptr);
  EXPECT_EQ(testing_support::MaxAbs(*thru.GetZMatrix()), 0.0);
  EXPECT_EQ(testing_support::MaxAbs(*thru.GetYMatrix()), 0.0);
  EXPECT_TRUE(thru.IsZDerived());

  // A short (S = -1) has no Y.
  CNetworkModalData shorted = ModalPoint(one, *MakeMatrix(1, {C(-1.0)}), CVector(1, C(50.0)));
  EXPECT_EQ((*shorted.GetYMatrix(true))[0][0], C());
}

TEST(NetworkConversions, WithoutImpedancesYAndZInvertEachOtherAndSIsUnavailable) {
  FixedPorts owner(2);
  CNetworkModalData p(&owner);
  p.SetZMatrix(MakeMatrix(2, {C(100.0), C(20.0), C(20.0), C(80.0)}));
  const CMatrix* y = p.GetYMatrix(true);
  ASSERT_NE(y, nullptr);
  const double det = 100.0 * 80.0 - 20.0 * 20.0;
  EXPECT_NEAR((*y)[0][0].re, 80.0 / det, 1e-15);
  EXPECT_NEAR((*y)[0][1].re, -20.0 / det, 1e-15);
  EXPECT_EQ(p.GetSMatrix(true), nullptr);

  CNetworkModalData empty(&owner);
  EXPECT_EQ(empty.GetYMatrix(true), nullptr);
  EXPECT_EQ(empty.GetZMatrix(true), nullptr);
  EXPECT_EQ(empty.GetSMatrix(true), nullptr);
}

TEST(NetworkConversions, SOfTheWrongSizeIsNotConverted) {
  FixedPorts owner(3);
  CNetworkModalData p = ModalPoint(owner, CMatrix(2, 2), CVector(3, C(50.0)));
  EXPECT_EQ(p.GetYMatrix(true), nullptr);
  EXPECT_EQ(p.GetZMatrix(true), nullptr);
}

TEST(NetworkDataValue, QuantityCodes) {
  FixedPorts owner(2);
  CNetworkModalData p = ModalPoint(
      owner, *MakeMatrix(2, {C(0.999995), C(0.1), C(0.1), C(0.0, 0.5)}), CVector(2, C(50.0)));
  EXPECT_EQ(p.GetValue(nd::kQuantityVSWR, 0, 1), C(200000.0));
  EXPECT_NEAR(p.GetValue(nd::kQuantityVSWR, 1, 0).re, 3.0, 1e-15);
  EXPECT_EQ(p.GetValue(nd::kQuantityS, 0, 1), C(0.1));
  EXPECT_EQ(p.GetValue(nd::kQuantityY, 0, 0), (*p.GetYMatrix())[0][0]);
  EXPECT_EQ(p.GetValue(nd::kQuantityZ, 1, 1), (*p.GetZMatrix())[1][1]);
  EXPECT_EQ(p.GetValue(64, 0, 0), C());

  p.SetCompanionMatrix2(std::make_unique<CMatrix>(1, 2, C(7.0, 1.0)));
  EXPECT_EQ(p.GetValue(nd::kQuantityCompanion2, 0, 1), C(7.0, 1.0));
  EXPECT_EQ(p.GetValue(nd::kQuantityCompanion2, 1, 0), C());
  EXPECT_EQ(p.GetValue(nd::kQuantityCompanion1, 0, 0), C());
  p.SetCompanionMatrix1(std::make_unique<CMatrix>(2, 2, C(3.0)));
  EXPECT_EQ(p.GetValue(nd::kQuantityCompanion1Alt, 1, 1), C(3.0));
  p.SetScatteredB(Uniform(2, C(0.0, 2.0)));
  EXPECT_EQ(p.GetValue(nd::kQuantityScatteredB, 1, 99), C(0.0, 2.0));

  FixedPorts none(0);
  CNetworkData portless(&none);
  EXPECT_EQ(portless.GetValue(nd::kQuantityS, 0, 0), C());
}

TEST(NetworkDataValue, MemorySizeCountsPresentMatrices) {
  FixedPorts owner(4);
  CNetworkModalData p = ModalPoint(owner, CMatrix(4, 4), CVector(4, C(50.0)));
  EXPECT_EQ(p.GetMemorySize(), 16u * 16u);
  p.GetYMatrix(true);
  p.SetCompanionMatrix2(std::make_unique<CMatrix>(2, 3));
  EXPECT_EQ(p.GetMemorySize(), 2u * 256u + 6u * 16u);
}

TEST(NetworkDataValue, BaseClassHasNoVectorQuantities) {
  testing_support::AssertCapture capture;
  CNetworkData p;
  EXPECT_EQ(p.GetVectorQuantity(nd::kPortImpedances), nullptr);
  EXPECT_EQ(p.GetVectorValue(nd::kPortImpedances, 0), C());
  ASSERT_EQ(capture.conditions().size(), 2u);
  EXPECT_EQ(capture.conditions()[0], "!\"Base class doesn't have any vector quantities\"");
}

TEST(NetworkDataPersistence, StoredNumbersComeBackBitForBit) {
  std::mt19937_64 rng(7);
  FixedPorts owner(3);
  CNetworkModalData p = ModalPoint(owner, testing_support::RandomS(3, rng),
                                   testing_support::RandomImpedances(3, rng));
  p.SetFrequency(1.2345678901234567e9);
  (*p.GetSMatrix())[1][2] = C(-0.0, 4.9406564584124654e-324);
  p.SetScatteredB(Uniform(3, C(1.0 / 3.0, -2.0 / 7.0)));
  p.SetGamma(Uniform(3, C(0.01, 31.4159)));
  p.GetYMatrix(true);  // derived: must not be stored

  CNetworkModalData q(&owner);
  RoundTrip(p, q);
  EXPECT_EQ(std::bit_cast<std::uint64_t>(q.GetFrequency()),
            std::bit_cast<std::uint64_t>(p.GetFrequency()));
  EXPECT_EQ(q.GetDataType(), CNetworkData::ExactPoint);
  ASSERT_NE(q.GetSMatrix(false), nullptr);
  EXPECT_TRUE(SameBits(*q.GetSMatrix(false), *p.GetSMatrix(false)));
  EXPECT_EQ(q.GetYMatrix(false), nullptr);
  ASSERT_NE(q.GetScatteredB(), nullptr);
  EXPECT_EQ((*q.GetScatteredB())[2], C(1.0 / 3.0, -2.0 / 7.0));
  ASSERT_NE(q.GetPortImpedance(), nullptr);
  EXPECT_EQ((*q.GetPortImpedance())[1], (*p.GetPortImpedance())[1]);
  // Y is computed again on first use and matches the original.
  ASSERT_NE(q.GetYMatrix(true), nullptr);
  EXPECT_TRUE(SameBits(*q.GetYMatrix(), *p.GetYMatrix()));
}

TEST(NetworkDataPersistence, BlockLayoutUsesStoredKeys) {
  FixedPorts owner(2);
  CNetworkData p(&owner, 2e9, CNetworkData::Interpolated);
  p.SetSMatrix(MakeMatrix(2, {C(1), C(2), C(3), C(4)}));
  io::CBlock block("DataPoint");
  ASSERT_TRUE(p.WriteToBlock(block));
  std::vector<std::string> names;
  for (size_t k = 0; k < block.GetNumItems(); ++k) names.push_back(block.GetItem(k).GetName());
  EXPECT_EQ(names, (std::vector<std::string>{"Frequency", "DataType", "SMatrix"}));
  AString type;
  EXPECT_EQ(block.GetString("DataType", type), io::kReadOk);
  EXPECT_EQ(type, "Interpolated");
  const io::CBlock* s = block.FindBlock("SMatrix");
  ASSERT_NE(s, nullptr);
  const io::CBlock* r1 = s->FindBlock("r1");
  ASSERT_NE(r1, nullptr);
  AComplex<double> c;
  EXPECT_EQ(r1->GetComplex("c", c), io::kReadOk);
  EXPECT_EQ(c, C(3.0));

  // A type outside the name table survives a save by number.
  p.SetDataType(static_cast<CNetworkData::DataPointType>(9));
  io::CBlock odd("DataPoint");
  EXPECT_TRUE(p.WriteToBlock(odd));
  CNetworkData q(&owner);
  q.ReadFromBlock(odd);
  EXPECT_EQ(q.GetDataType(), 9);
}

TEST(NetworkDataPersistence, PortlessOwnerReadsOnlyFrequencyAndType) {
  FixedPorts none(0);
  io::CBlock block;
  block.AddReal("Frequency", 5e9);
  block.AddName("DataType", "Extrapolated");
  nd::WriteMatrix(block, "SMatrix", CMatrix(2, 2, C(1.0)));
  CNetworkData p(&none);
  EXPECT_EQ(p.ReadFromBlock(block), 0);
  EXPECT_EQ(p.GetFrequency(), 5e9);
  EXPECT_EQ(p.GetDataType(), CNetworkData::Extrapolated);
  EXPECT_EQ(p.GetSMatrix(false), nullptr);
}

TEST(NetworkDataPersistence, ZIsMarkedStoredAfterAnyRead) {
  FixedPorts owner(1);
  CNetworkModalData p = ModalPoint(owner, *MakeMatrix(1, {C(0.2)}), CVector(1, C(50.0)));
  p.GetZMatrix(true);
  p.GetYMatrix(true);
  ASSERT_TRUE(p.IsZDerived());
  io::CBlock block;
  block.AddReal("Frequency", 1.0);
  EXPECT_EQ(p.ReadFromBlock(block), 0);
  EXPECT_FALSE(p.IsZDerived());
  EXPECT_TRUE(p.IsYDerived());
}

TEST(NetworkDataPersistence, BrokenMatrixIsDroppedAndReportedWithItsLine) {
  const char* text =
      "DataPoint {\n"
      "  Frequency = 1e9\n"
      "  SMatrix {\n"
      "    m = 2\n"
      "    n = 2\n"
      "    r0 {\n"
      "      c = [1.0, 0.0]\n"
      "      c = [2.0, 0.0]\n"
      "    } r0\n"
      "    r1 {\n"
      "      c = [3.0, 0.0]\n"
      "    } r1\n"
      "  } SMatrix\n"
      "} DataPoint\n";
  FixedPorts owner(2);
  CNetworkData p(&owner);
  p.SetSMatrix(std::make_unique<CMatrix>(2, 2));
  AString error;
  EXPECT_EQ(p.ReadFromText(text, "broken.txt", &error), 1);
  EXPECT_EQ(p.GetSMatrix(false), nullptr);
  EXPECT_NE(error.find("broken.txt:10:"), std::string::npos) << error;
  EXPECT_NE(error.find("expected 2 \"c\" items, found 1"), std::string::npos) << error;

  FixedPorts three(3);
  CNetworkData q(&three);
  EXPECT_EQ(q.ReadFromText(text, "small.txt", &error), 1);
  EXPECT_NE(error.find("expected a 3 x 3 matrix, found 2 x 2"), std::string::npos) << error;
}

TEST(NetworkDataPersistence, MatrixOfAnOlderLargerLayoutIsAdaptedByTheOwner) {
  io::CBlock block;
  block.AddReal("Frequency", 1.0);
  CMatrix big(3, 3);
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 3; ++j) big[i][j] = C(10.0 * i + j);
  nd::WriteMatrix(block, "SMatrix", big);
  FixedPorts owner(2, 3);
  CNetworkData p(&owner);
  EXPECT_EQ(p.ReadFromBlock(block), 0);
  ASSERT_NE(p.GetSMatrix(false), nullptr);
  EXPECT_EQ(p.GetSMatrix(false)->num_rows(), 2);
  EXPECT_EQ((*p.GetSMatrix(false))[1][1], C(11.0));
}

TEST(NetworkDataPersistence, UnreadableScatteredBIsDroppedSilently) {
  io::CBlock block;
  block.AddReal("Frequency", 1.0);
  nd::WriteVector(block, "Scattered B", CVector(3, C(1.0)));
  FixedPorts owner(2);
  CNetworkData p(&owner);
  EXPECT_EQ(p.ReadFromBlock(block), 0);
  EXPECT_EQ(p.GetScatteredB(), nullptr);
}
