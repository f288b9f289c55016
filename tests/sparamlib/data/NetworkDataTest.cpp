// Data points: conversions between S, Y and Z, quantity codes, persistence.
#include <gtest/gtest.h>

#include <sstream>

#include "sparamlib/data/FxemModalData.h"
#include "support/AssertCapture.h"
#include "support/FixedPorts.h"
#include "support/RandomNetwork.h"

using testing_support::FixedPorts;
using testing_support::MaxAbs;
using testing_support::MaxAbsDiff;
using TNT::CMatrix;
using TNT::CVector;
using C = AComplex<double>;

namespace {

CMatrix M(int n, std::initializer_list<C> v) {
  return CMatrix(n, n, std::span<const C>(v.begin(), v.size()));
}

CNetworkModalData Point(FixedPorts& owner, const CMatrix& s, const CVector& z) {
  CNetworkModalData p(&owner, 1e9, CNetworkData::ExactPoint);
  p.SetSMatrix(std::make_unique<CMatrix>(s));
  p.SetPortImpedance(std::make_unique<CVector>(z));
  return p;
}

}  // namespace

TEST(NetworkConversions, MatchClosedForms) {
  // Coupled ports at 50 ohms: 50 (I + S) Y = I - S.
  FixedPorts two(2), three(3);
  const CMatrix s = M(2, {C(0.2, 0.1), C(0.5, -0.3), C(0.5, -0.3), C(-0.1, 0.4)});
  CNetworkModalData p = Point(two, s, CVector(2, C(50.0)));
  const CMatrix* y = p.GetYMatrix(true);
  ASSERT_NE(y, nullptr);
  const CMatrix lhs = TNT::Identity(2) + s, rhs = TNT::Identity(2) - s;
  for (int i = 0; i < 2; ++i)
    for (int j = 0; j < 2; ++j)
      EXPECT_LT(abs((lhs[i][0] * (*y)[0][j] + lhs[i][1] * (*y)[1][j]) * 50.0 - rhs[i][j]), 1e-14);

  // Uncoupled ports of complex impedance: each is a load z_k (1 + s) / (1 - s),
  // the principal square roots multiply back to z_k whatever its phase.
  CVector z(3);
  z[0] = C(50.0), z[1] = C(30.0, -40.0), z[2] = C(75.0, 20.0);
  const CMatrix d = M(3, {C(0.3), C(), C(), C(), C(-0.2, 0.5), C(), C(), C(), C(0.0, -0.7)});
  CNetworkModalData q = Point(three, d, z);
  const CMatrix* zm = q.GetZMatrix(true);
  ASSERT_NE(zm, nullptr);
  for (int k = 0; k < 3; ++k) {
    const C expected = z[k] * (C(1.0) + d[k][k]) / (C(1.0) - d[k][k]);
    EXPECT_LT(abs((*zm)[k][k] - expected), 1e-12 * abs(expected)) << k;
    EXPECT_EQ((*zm)[k][(k + 1) % 3], C());
  }
}

TEST(NetworkConversions, RoundTripsAndRenormalizationReturnSForOneToEightPorts) {
  std::mt19937_64 rng(20261121);
  for (int n = 1; n <= 8; ++n) {
    FixedPorts owner(n);
    const CMatrix s = testing_support::RandomS(n, rng);
    const CVector z = testing_support::RandomImpedances(n, rng);
    CNetworkModalData p = Point(owner, s, z), fromY(&owner), fromZ(&owner);
    fromY.SetYMatrix(std::make_unique<CMatrix>(*p.GetYMatrix(true)));
    fromZ.SetZMatrix(std::make_unique<CMatrix>(*p.GetZMatrix(true)));
    for (CNetworkModalData* q : {&fromY, &fromZ}) {
      q->SetPortImpedance(std::make_unique<CVector>(z));
      ASSERT_TRUE(q->GetSMatrix(true) && q->IsSDerived());
      EXPECT_LT(MaxAbsDiff(*q->GetSMatrix(), s), 1e-12) << n;
    }
    // Renormalisation keeps the network (Z does not depend on the references)
    // and undoes exactly.
    const CMatrix zBefore = *p.GetZMatrix();
    ASSERT_TRUE(p.Renormalize(CVector(n, C(50.0))));
    EXPECT_EQ((*p.GetPortImpedance())[n - 1], C(50.0));
    EXPECT_LT(MaxAbsDiff(*p.GetZMatrix(true), zBefore), 1e-12 * MaxAbs(zBefore)) << n;
    ASSERT_TRUE(p.Renormalize(z));
    EXPECT_LT(MaxAbsDiff(*p.GetSMatrix(), s), 1e-12) << n;
  }
}

TEST(NetworkConversions, SingularNetworksGiveZeroMatricesAndAThruStillRenormalizes) {
  // Open: I - S singular (no Z); short: I + S singular (no Y); thru: both.
  FixedPorts one(1), two(2);
  CNetworkModalData open = Point(one, M(1, {C(1.0)}), CVector(1, C(50.0)));
  CNetworkModalData shorted = Point(one, M(1, {C(-1.0)}), CVector(1, C(50.0)));
  CNetworkModalData thru = Point(two, M(2, {C(), C(1.0), C(1.0), C()}), CVector(2, C(50.0)));
  for (CNetworkModalData* p : {&open, &shorted, &thru}) {
    ASSERT_TRUE(p->GetZMatrix(true) && p->GetYMatrix(true));
    EXPECT_LE(MaxAbs(*p->GetZMatrix()), 1e-18);
    EXPECT_LE(MaxAbs(*p->GetYMatrix()), 1e-18);
  }
  // The thru is still renormalised. Seen from port 1 through 75 ohms at port
  // 2: reflection (75-50)/(75+50), transmission 2 sqrt(z1 z2) / (z1 + z2).
  CVector z(2, C(50.0));
  z[1] = C(75.0);
  ASSERT_TRUE(thru.Renormalize(z));
  const CMatrix& s = *thru.GetSMatrix();
  EXPECT_NEAR(s[0][0].re, 0.2, 1e-15);
  EXPECT_NEAR(s[1][1].re, -0.2, 1e-15);
  EXPECT_NEAR(s[1][0].re, 2.0 * std::sqrt(50.0 * 75.0) / 125.0, 1e-15);
  thru.SetPortImpedance(nullptr);
  EXPECT_FALSE(thru.Renormalize(z)) << "no references to start from";
}

TEST(NetworkConversions, WithoutUsableImpedancesOnlyYAndZInvertEachOther) {
  // Without port impedances Y = Z^-1 and S is unavailable; with nothing to
  // convert, or an S of the wrong size, nothing is computed.
  FixedPorts two(2), three(3);
  CNetworkModalData p(&two), empty(&two);
  CNetworkModalData wrongSize = Point(three, CMatrix(2, 2), CVector(3, C(50.0)));
  p.SetZMatrix(std::make_unique<CMatrix>(M(2, {C(100.0), C(20.0), C(20.0), C(80.0)})));
  const CMatrix* y = p.GetYMatrix(true);
  ASSERT_NE(y, nullptr);
  EXPECT_NEAR((*y)[0][0].re, 80.0 / 7600.0, 1e-15);
  EXPECT_NEAR((*y)[0][1].re, -20.0 / 7600.0, 1e-15);
  EXPECT_TRUE(!p.GetSMatrix(true) && !empty.GetSMatrix(true));
  for (CNetworkModalData* q : {&empty, &wrongSize})
    EXPECT_TRUE(!q->GetYMatrix(true) && !q->GetZMatrix(true));

  // A solver's point computes nothing until it has port impedances, but
  // hands out what is stored; new impedances drop only what was derived.
  CFxemModalData solver(&two);
  solver.SetSMatrix(std::make_unique<CMatrix>(2, 2, C(0.1)));
  solver.SetZMatrix(std::make_unique<CMatrix>(*p.GetZMatrix()));
  EXPECT_TRUE(!solver.GetYMatrix(true) && solver.GetZMatrix(true));
  for (const double z : {50.0, 75.0}) {
    solver.SetPortImpedance(std::make_unique<CVector>(2, C(z)));
    EXPECT_EQ(solver.GetYMatrix(false), nullptr);
    ASSERT_NE(solver.GetYMatrix(true), nullptr);
  }
  EXPECT_TRUE(solver.GetSMatrix(false) && solver.GetZMatrix(false));
  EXPECT_NE(dynamic_cast<CFxemModalData*>(solver.Clone().get()), nullptr);
}

TEST(NetworkDataValue, QuantityCodesMemoryAndMisuse) {
  FixedPorts owner(2);
  CNetworkModalData p =
      Point(owner, M(2, {C(0.999995), C(0.1), C(0.1), C(0.0, 0.5)}), CVector(2, C(50.0)));
  EXPECT_EQ(p.GetMemorySize(), 64u);  // 16 bytes an element of each matrix held: S
  EXPECT_EQ(p.GetValue(nd::kQuantityVSWR, 0, 1), C(200000.0));      // |S| = 0.999995: capped
  EXPECT_NEAR(p.GetValue(nd::kQuantityVSWR, 1, 0).re, 3.0, 1e-15);  // |S| = 0.5
  EXPECT_EQ(p.GetValue(nd::kQuantityS, 0, 1), C(0.1));
  EXPECT_EQ(p.GetValue(nd::kQuantityY, 0, 0), (*p.GetYMatrix())[0][0]);
  EXPECT_EQ(p.GetValue(nd::kQuantityZ, 1, 1), (*p.GetZMatrix())[1][1]);
  EXPECT_EQ(p.GetValue(64, 0, 0), C());
  EXPECT_EQ(p.GetValue(nd::kQuantityCompanion1, 0, 0), C());  // none yet
  p.SetCompanionMatrix1(std::make_unique<CMatrix>(2, 2, C(3.0)));
  p.SetCompanionMatrix2(std::make_unique<CMatrix>(1, 2, C(7.0, 1.0)));
  p.SetScatteredB(std::make_unique<CVector>(2, C(0.0, 2.0)));
  EXPECT_EQ(p.GetValue(nd::kQuantityCompanion1Alt, 1, 1), C(3.0));
  EXPECT_EQ(p.GetValue(nd::kQuantityCompanion2, 0, 1), C(7.0, 1.0));
  EXPECT_EQ(p.GetValue(nd::kQuantityCompanion2, 1, 0), C());  // outside the matrix
  EXPECT_EQ(p.GetValue(nd::kQuantityScatteredB, 1, 99), C(0.0, 2.0));
  EXPECT_EQ(p.GetMemorySize(), 4u * 64u + 2u * 16u);  // S, Y, Z, companions

  // A portless owner's point gives no values; the base class has no vectors.
  FixedPorts none(0);
  testing_support::AssertCapture capture;
  CNetworkData base(&none);
  base.SetSMatrix(std::make_unique<CMatrix>(1, 1, C(1.0)));
  EXPECT_EQ(base.GetValue(nd::kQuantityS, 0, 0), C());
  EXPECT_EQ(base.GetVectorQuantity(nd::kPortImpedances), nullptr);
  EXPECT_EQ(base.GetVectorValue(nd::kPortImpedances, 0), C());
  EXPECT_EQ(capture.conditions(),
            std::vector<std::string>(2, "!\"Base class doesn't have any vector quantities\""));
}

TEST(NetworkDataPersistence, StoredNumbersComeBackBitForBitInStoredOrder) {
  std::mt19937_64 rng(7);
  FixedPorts owner(3);
  CNetworkModalData p =
      Point(owner, testing_support::RandomS(3, rng), testing_support::RandomImpedances(3, rng));
  p.SetFrequency(1.2345678901234567e9);
  p.SetDataType(CNetworkData::Interpolated);
  (*p.GetSMatrix())[1][2] = C(-0.0, 4.9406564584124654e-324);
  p.SetScatteredB(std::make_unique<CVector>(3, C(1.0 / 3.0, -2.0 / 7.0)));
  p.SetGamma(std::make_unique<CVector>(3, C(0.5, 62.8)));
  p.SetTerminalTransform(std::make_unique<CMatrix>(3, 3, C(1.0, 0.1)));
  p.GetYMatrix(true);  // derived: must not be stored
  io::CBlock block("DataPoint");
  ASSERT_TRUE(p.WriteToBlock(block));
  std::vector<std::string> keys;  // the modal items follow the base ones
  for (size_t k = 0; k < block.GetNumItems(); ++k) keys.push_back(block.GetItem(k).GetName());
  EXPECT_EQ(keys, (std::vector<std::string>{"Frequency", "DataType", "SMatrix", "Scattered B",
                                            "PortImpedance", "Gamma", "TerminalTransform"}));
  EXPECT_EQ(block.GetItem(1).GetValue().GetText(), "Interpolated");

  // Read from text and written again: the same items, every real bit for bit.
  std::ostringstream os;
  ASSERT_TRUE(p.WriteToStream(os));
  CNetworkModalData q(&owner);
  ASSERT_EQ(q.ReadFromText(os.str(), "point.txt"), 0);
  io::CBlock again("DataPoint");
  ASSERT_TRUE(q.WriteToBlock(again));
  EXPECT_TRUE(again == block) << os.str();

  // A type outside the name table survives a save by number. Z counts as
  // stored after any read, though the block holds none; Y stays derived.
  io::CBlock odd("DataPoint");
  ASSERT_TRUE(CNetworkData(&owner, 1.0, CNetworkData::DataPointType(9)).WriteToBlock(odd));
  ASSERT_TRUE(q.GetYMatrix(true) && q.GetZMatrix(true) && q.IsZDerived());
  EXPECT_EQ(q.ReadFromBlock(odd), 0);
  EXPECT_EQ(q.GetDataType(), 9);
  EXPECT_TRUE(!q.IsZDerived() && q.IsYDerived());
  // A newly read S makes what was derived from the old one go away (Z
  // counts as stored since the last read, so it stays).
  EXPECT_EQ(q.ReadFromBlock(block), 0);
  EXPECT_EQ(q.GetYMatrix(false), nullptr);
}

TEST(NetworkDataPersistence, ReadKeepsWhatFitsTheOwnerAndDropsTheRest) {
  const std::string big =  // stored 3 x 3, S(i, j) = 10 i + j
      " SMatrix { m = 3 n = 3 r0 { c = [0.0, 0.0] c = [1.0, 0.0] c = [2.0, 0.0] } r0\n"
      " r1 { c = [10.0, 0.0] c = [11.0, 0.0] c = [12.0, 0.0] } r1\n"
      " r2 { c = [20.0, 0.0] c = [21.0, 0.0] c = [22.0, 0.0] } r2 } SMatrix\n";
  const std::string broken =  // row r1 (line 6) holds one element of two
      " SMatrix { m = 2 n = 2\n r0 { c = [1.0, 0.0] c = [2.0, 0.0] } r0\n"
      " r1 { c = [3.0, 0.0] } r1 } SMatrix\n";
  const struct {
    int ports, stored;
    std::string body;
    int result, rows;  // rows of S after reading, -1: none
    C s10;
    std::string error;
  } cases[] = {
      {0, 0, big, 0, -1, C(), ""},     // a portless owner reads frequency and type only
      {2, 3, big, 0, 2, C(10.0), ""},  // an older, larger layout is adapted by the owner
      {2, 0, broken, 1, -1, C(),
       "broken.txt:6:2: in block \"r1\": expected 2 \"c\" items, found 1"},
      {3, 0, broken, 1, -1, C(),
       "broken.txt:4:2: in block \"SMatrix\": expected a 3 x 3 matrix, found 2 x 2"},
      // An unreadable Scattered B is dropped, noted, and the read succeeds.
      {2, 0, " \"Scattered B\" { n = 3 c = [1.0, 0.0] } \"Scattered B\"\n", 0, -1, C(),
       "broken.txt:4:18: in block \"Scattered B\": expected \"n\" = 2, found 3"},
  };
  for (const auto& c : cases) {
    FixedPorts owner(c.ports, c.stored);
    CNetworkData p(&owner);
    if (c.result) p.SetSMatrix(std::make_unique<CMatrix>(c.ports, c.ports));  // to be dropped
    AString error;
    const std::string text =
        "DataPoint {\n Frequency = 5e9\n DataType = Extrapolated\n" + c.body + "} DataPoint\n";
    ASSERT_EQ(p.ReadFromText(text, "broken.txt", &error), c.result) << c.body;
    EXPECT_STREQ(error.c_str(), c.error.c_str());
    EXPECT_TRUE(p.GetFrequency() == 5e9 && p.GetDataType() == CNetworkData::Extrapolated);
    const CMatrix* s = p.GetSMatrix(false);
    EXPECT_EQ(s ? s->num_rows() : -1, c.rows) << c.body;
    EXPECT_EQ(s ? (*s)[1][0] : C(), c.s10);
    EXPECT_EQ(p.GetScatteredB(), nullptr);
  }
}
