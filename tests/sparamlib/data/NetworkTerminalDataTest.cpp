// Terminal points and the terminal view of modal points: the transform
// against the mixed-mode relations and against Z_t = T_V Z_m T_V^T, line
// matrices in closed form, modes recovered by eigen-decomposition, the
// environment settings, and the stored form.
#include <gtest/gtest.h>

#include <cstdlib>
#include <sstream>

#include "sparamlib/data/NetworkConversions.h"
#include "sparamlib/data/NetworkModalData.h"
#include "sparamlib/data/NetworkTerminalData.h"
#include "sparamlib/data/NetworkTransforms.h"
#include "support/FixedPorts.h"
#include "support/RandomNetwork.h"

using testing_support::FixedPorts;
using testing_support::MaxAbsDiff;
using TNT::CMatrix;
using TNT::CVector;
using C = AComplex<double>;

namespace {

CMatrix M(int n, std::initializer_list<C> v) {
  return CMatrix(n, n, std::span<const C>(v));
}

CVector V(std::initializer_list<C> v) {
  CVector out(static_cast<int>(v.size()));
  std::copy(v.begin(), v.end(), out.begin());
  return out;
}

CMatrix Mul(const CMatrix& a, const CMatrix& b) {
  CMatrix c(a.num_rows(), b.num_cols());
  for (int i = 0; i < a.num_rows(); ++i)
    for (int j = 0; j < b.num_cols(); ++j)
      for (int k = 0; k < a.num_cols(); ++k) c[i][j] += a[i][k] * b[k][j];
  return c;
}

CMatrix T(const CMatrix& a) {
  CMatrix t(a.num_cols(), a.num_rows());
  for (int i = 0; i < a.num_rows(); ++i)
    for (int j = 0; j < a.num_cols(); ++j) t[j][i] = a[i][j];
  return t;
}

// a diag(d) b, and a diag(d) a^-1 with b = 0.
CMatrix Through(const CMatrix& a, const CVector& d, const CMatrix* b = nullptr) {
  CMatrix ad(a), inverse;
  for (int i = 0; i < a.num_rows(); ++i)
    for (int k = 0; k < a.num_cols(); ++k) ad[i][k] *= d[k];
  if (!b) {
    EXPECT_EQ(TNT::SolveLinear(a, TNT::Identity(a.num_rows()), inverse), 0);
  }
  return Mul(ad, b ? *b : inverse);
}

void Put(CMatrix& m, int at, const CMatrix& block) {
  for (int i = 0; i < block.num_rows(); ++i)
    for (int j = 0; j < block.num_cols(); ++j) m[at + i][at + j] = block[i][j];
}

CNetworkModalData Modal(FixedPorts& owner, const CMatrix& s, const CVector& z) {
  CNetworkModalData p(&owner, 2e9, CNetworkData::ExactPoint);
  p.SetSMatrix(std::make_unique<CMatrix>(s));
  p.SetPortImpedance(std::make_unique<CVector>(z));
  return p;
}

const CMatrix kGeneral2 = M(2, {C(0.9, 0.1), C(0.4, -0.2), C(-0.3, 0.05), C(1.1, 0.3)});
const CMatrix kGeneral3 = M(3, {C(1.0), C(0.2, 0.1), C(-0.1), C(0.3, -0.2), C(0.8), C(0.25), C(0.1),
                                C(-0.4, 0.2), C(1.2, -0.1)});

}  // namespace

// Two pairs in odd/even modes and a single-mode port: the terminal S is the
// single-ended S of the mixed-mode relations, with the standard transform
// stored or asked for by the setting (which overrides another stored one).
TEST(TerminalView, OddEvenPortsGiveTheSingleEndedS) {
  std::mt19937_64 rng(21);
  FixedPorts owner(5);
  const CMatrix s = testing_support::RandomS(5, rng);
  const CVector zm = testing_support::RandomImpedances(5, rng);  // z_d, z_c, z_d, z_c, z
  const CVector zt = testing_support::RandomImpedances(5, rng);
  CMatrix expected, renormalised;
  ASSERT_EQ(nd::MixedModeToSingleEnded(s, zm, {{0, 1}, {2, 3}}, zt, expected), 0);
  ASSERT_EQ(nd::RenormalizeS(s, nd::SqrtImpedances(zm), nd::SqrtImpedances(zt), renormalised), 0);
  auto transform = [](const CMatrix& pair) {
    auto tv = std::make_unique<CMatrix>(5, 5);
    Put(*tv, 0, pair);
    Put(*tv, 2, pair);
    (*tv)[4][4] = C(1.0);
    return tv;
  };
  CNetworkModalData stored = Modal(owner, s, zm), other = Modal(owner, s, zm),
                    bare = Modal(owner, s, zm);
  stored.SetTerminalTransform(transform(nd::StandardModeTransform()));
  other.SetTerminalTransform(transform(kGeneral2));
  const struct {
    const CNetworkModalData& point;
    std::vector<int> ports;
    bool standard;
    const CMatrix* expected;  // null: no view
  } cases[] = {{stored, {2, 2, 1}, false, &expected},
               {other, {2, 2, 1}, true, &expected},
               {bare, {2, 2, 1}, true, &expected},
               {bare, {2, 2, 1}, false, nullptr},
               {bare, {}, false, &renormalised}};
  for (const auto& c : cases) {
    const auto view = nd::TerminalView(c.point, c.ports, &zt, {c.standard, false});
    ASSERT_EQ(view != nullptr, c.expected != nullptr);
    if (view) {
      EXPECT_LT(MaxAbsDiff(*view->GetSMatrix(false), *c.expected), 1e-12);
    }
  }
  const auto own = nd::TerminalView(other, {2, 2, 1}, &zt, {});
  EXPECT_GT(MaxAbsDiff(*own->GetSMatrix(false), expected), 1e-3);  // the stored one counts
  EXPECT_TRUE(own->GetFrequency() == 2e9 && own->GetDataType() == CNetworkData::ExactPoint &&
              own->GetOwner() == &owner);
}

// No Z is needed: a modal thru between two uncoupled pairs (z_d = 2 z0,
// z_c = z0 / 2) is a thru per conductor. In general Z_t = T_V Z_m T_V^T,
// and a point with only a stored Z carries it over by that congruence.
TEST(TerminalView, ThruWithoutZTheImpedanceCongruenceAndRefusals) {
  FixedPorts four(4), five(5);
  const C o(0.0), l(1.0);
  const CMatrix thru = M(4, {o, o, l, o, o, o, o, l, l, o, o, o, o, l, o, o});
  const auto tv4 =
      nd::TerminalView(Modal(four, thru, V({100, 25, 100, 25})), {2, 2}, nullptr, {true, false});
  EXPECT_LT(MaxAbsDiff(*tv4->GetSMatrix(false), thru), 1e-15);
  EXPECT_EQ((*tv4->GetTerminalImpedance())[3], C(50.0));  // the default reference

  std::mt19937_64 rng(5);
  CNetworkModalData general =
      Modal(five, testing_support::RandomS(5, rng), testing_support::RandomImpedances(5, rng));
  CMatrix tv(5, 5);
  Put(tv, 0, kGeneral2);
  Put(tv, 2, kGeneral3);
  general.SetTerminalTransform(std::make_unique<CMatrix>(tv));
  const CVector zt = testing_support::RandomImpedances(5, rng);
  const auto view = nd::TerminalView(general, {2, 3}, &zt, {});
  const CMatrix zExpected = Mul(Mul(tv, *general.GetZMatrix(true)), T(tv));
  EXPECT_LT(MaxAbsDiff(*view->GetZMatrix(true), zExpected),
            1e-12 * testing_support::MaxAbs(zExpected));

  CNetworkModalData zOnly(&five, 1e9);
  zOnly.SetZMatrix(std::make_unique<CMatrix>(*general.GetZMatrix(true)));
  zOnly.SetTerminalTransform(std::make_unique<CMatrix>(tv));
  const auto zView = nd::TerminalView(zOnly, {2, 3}, &zt, {});
  EXPECT_LT(MaxAbsDiff(*zView->GetSMatrix(true), *view->GetSMatrix(false)), 1e-12);
  EXPECT_EQ(zView->GetCharacteristicImpedance(), nullptr);  // no mode impedances

  // Blocks that miss a mode, a transform coupling two ports, a singular one.
  EXPECT_EQ(nd::TerminalView(general, {2, 2}, &zt, {}), nullptr);
  for (const auto& [i, j] : {std::pair{1, 2}, {1, 0}}) {
    auto changed = std::make_unique<CMatrix>(tv);
    (*changed)[i][j] = (*changed)[i][j + 1] = i == 1 && j == 0 ? C(0.0) : C(0.01);
    general.SetTerminalTransform(std::move(changed));
    EXPECT_EQ(nd::TerminalView(general, {2, 3}, &zt, {}), nullptr) << i << j;
  }
}

// A symmetric coupled pair: Z0_t and Gamma_t in closed form, uncoupled lines
// z0 and gamma times 1. The modes come back from Gamma_t (also for three
// coupled conductors beside a single one) and rebuild Z0_t and Gamma_t.
TEST(TerminalView, LineMatricesAndTheModesBack) {
  FixedPorts owner(2);
  const C zd(90.0, -2.0), zc(30.0, 1.0), gd(1.5, 40.0), gc(2.0, 48.0);
  CNetworkModalData modal = Modal(owner, M(2, {0.1, 0.2, 0.2, 0.1}), V({zd, zc}));
  modal.SetGamma(std::make_unique<CVector>(V({gd, gc})));
  const CMatrix z0 = M(2, {zd * 0.25 + zc, zc - zd * 0.25, zc - zd * 0.25, zd * 0.25 + zc});
  const CMatrix gamma = M(2, {(gd + gc) * 0.5, (gc - gd) * 0.5, (gc - gd) * 0.5, (gd + gc) * 0.5});
  const auto full = nd::TerminalView(modal, {2}, nullptr, {true, true});
  EXPECT_LT(MaxAbsDiff(*full->GetCharacteristicImpedance(), z0), 1e-13);
  EXPECT_LT(MaxAbsDiff(*full->GetGammaMatrix(), gamma), 1e-13);
  const auto diagonal = nd::TerminalView(modal, {2}, nullptr, {true, false});
  EXPECT_EQ(MaxAbsDiff(*diagonal->GetGammaMatrix(), M(2, {gamma[0][0], 0, 0, gamma[1][1]})), 0.0);
  EXPECT_EQ(diagonal->GetVectorValue(nd::kPropagationConstants, 1), gamma[1][1]);

  modal.SetPortImpedance(std::make_unique<CVector>(V({100, 25})));
  modal.SetGamma(std::make_unique<CVector>(V({gd, gd})));
  const auto lines = nd::TerminalView(modal, {2}, nullptr, {true, true});
  EXPECT_LT(MaxAbsDiff(*lines->GetCharacteristicImpedance(), M(2, {50, 0, 0, 50})), 1e-13);
  EXPECT_LT(MaxAbsDiff(*lines->GetGammaMatrix(), M(2, {gd, 0, 0, gd})), 1e-13);

  CVector g, zm;
  CMatrix tv;
  ASSERT_EQ(nd::ModesFromTerminalGamma(gamma, {}, g, tv), 0);
  EXPECT_LT(abs(g[0] - gd) + abs(g[1] - gc), 1e-13);  // by phase constant: odd first
  const double h = std::sqrt(0.5);
  EXPECT_LT(MaxAbsDiff(tv, M(2, {h, h, -h, h})), 1e-13);
  ASSERT_EQ(nd::ModalImpedancesFromTerminal(z0, tv, zm), 0);
  // Unit columns: the odd mode's impedance halves, the even one's doubles.
  EXPECT_LT(abs(zm[0] - zd * 0.5) + abs(zm[1] - zc * 2.0), 1e-12);
  const CMatrix tvT = T(tv);
  EXPECT_LT(MaxAbsDiff(Through(tv, zm, &tvT), z0), 1e-12);

  CMatrix gammaT(4, 4);
  gammaT[0][0] = C(0.3, 20.0);
  const CVector g3 = V({C(1.0, 30.0), C(0.5, 50.0), C(2.0, 40.0)});
  Put(gammaT, 1, Through(kGeneral3, g3));
  ASSERT_EQ(nd::ModesFromTerminalGamma(gammaT, {1, 3}, g, tv), 0);
  EXPECT_TRUE(g[0] == C(0.3, 20.0) && tv[0][0] == C(1.0) && tv[1][0] == C(0.0));
  const int from[] = {0, 2, 1};  // by phase constant 30, 40, 50
  for (int c = 0; c < 3; ++c) {
    EXPECT_LT(abs(g[1 + c] - g3[from[c]]), 1e-12);
    double length = 0.0;
    for (int i = 0; i < 3; ++i) {  // parallel to the original column, unit length
      const C ratio = tv[1][1 + c] / kGeneral3[0][from[c]];
      EXPECT_LT(abs(tv[1 + i][1 + c] - kGeneral3[i][from[c]] * ratio), 1e-12);
      length += norm(tv[1 + i][1 + c]);
    }
    EXPECT_NEAR(length, 1.0, 1e-14);
  }
  EXPECT_LT(MaxAbsDiff(Through(tv, g), gammaT), 1e-12);
  const CVector kept = g;
  EXPECT_EQ(nd::ModesFromTerminalGamma(gammaT, {1, 2}, g, tv), 2);  // blocks miss a terminal
  gammaT[2][2] = C(std::nan(""), 0.0);
  EXPECT_NE(nd::ModesFromTerminalGamma(gammaT, {1, 3}, g, tv), 0);
  EXPECT_EQ(g[1], kept[1]);
}

TEST(TerminalViewSettings, OnlyTheValueOneSwitchesOn) {
  const std::pair<const char*, bool> cases[] = {{nullptr, false}, {"1", true}, {" 1\t", true},
                                                {"0", false},     {"", false}, {"11", false}};
  for (const auto& [value, on] : cases) {
    for (const char* name : {"USE_STANDARD_MODES", "VIEW_TERMINAL_GAMMA_MATRIX"}) {
      ::unsetenv("USE_STANDARD_MODES");
      ::unsetenv("VIEW_TERMINAL_GAMMA_MATRIX");
      if (value) ::setenv(name, value, 1);
      const nd::TerminalViewSettings s = nd::ReadTerminalViewSettings();
      EXPECT_EQ(s.standardModes, on && name[0] == 'U') << name << " " << (value ? value : "unset");
      EXPECT_EQ(s.fullGammaMatrix, on && name[0] == 'V') << name;
    }
  }
  ::unsetenv("USE_STANDARD_MODES");
  ::unsetenv("VIEW_TERMINAL_GAMMA_MATRIX");
}

// Conversions and renormalisation at the terminal references, then the
// stored form: every bit back, and each kind of damage refused by name.
TEST(NetworkTerminalData, ReferencesAndStoredForm) {
  std::mt19937_64 rng(9);
  FixedPorts owner(2);
  const CMatrix s = testing_support::RandomS(2, rng);
  const CVector z = testing_support::RandomImpedances(2, rng), z50(2, C(50.0));
  CNetworkTerminalData p(&owner, 2.5e9, CNetworkData::ExactPoint);
  p.SetSMatrix(std::make_unique<CMatrix>(s));
  p.SetTerminalImpedance(std::make_unique<CVector>(z));
  CMatrix zExpected, s50;
  ASSERT_EQ(nd::ConvertSToZ(s, nd::SqrtImpedances(z), zExpected), 0);
  ASSERT_EQ(nd::RenormalizeS(s, nd::SqrtImpedances(z), nd::SqrtImpedances(z50), s50), 0);
  EXPECT_LT(MaxAbsDiff(*p.GetZMatrix(true), zExpected), 1e-12);
  ASSERT_TRUE(p.Renormalize(z50));
  EXPECT_EQ(MaxAbsDiff(*p.GetSMatrix(false), s50), 0.0);
  EXPECT_EQ(p.GetZMatrix(false), nullptr);  // derived from the old references
  EXPECT_LT(MaxAbsDiff(*p.GetZMatrix(true), zExpected), 1e-10);

  p.SetCharacteristicImpedance(std::make_unique<CMatrix>(testing_support::RandomS(2, rng)));
  p.SetGammaMatrix(
      std::make_unique<CMatrix>(M(2, {C(1.0 / 3, 40.1), C(-0.0, 4.9e-324), 0.1, C(0.7, 1e300)})));
  io::CBlock block("DataPoint");
  ASSERT_TRUE(p.WriteToBlock(block));
  std::vector<std::string> keys;
  for (size_t k = 0; k < block.GetNumItems(); ++k) keys.push_back(block.GetItem(k).GetName());
  EXPECT_EQ(keys, (std::vector<std::string>{"Frequency", "DataType", "SMatrix", "TerminalImpedance",
                                            "CharacteristicImpedance", "GammaMatrix"}));
  std::ostringstream os;
  ASSERT_TRUE(p.WriteToStream(os));
  const std::string text = os.str();
  auto read = [&](const std::string& from, const std::string& to) {
    std::string changed = text;  // every occurrence: a block's closing name too
    for (size_t at = 0; !from.empty() && (at = changed.find(from, at)) != std::string::npos;
         at += to.size())
      changed.replace(at, from.size(), to);
    CNetworkTerminalData r(&owner);
    AString error;
    const int result = r.ReadFromText(changed, "point.txt", &error);
    io::CBlock again("DataPoint");
    r.WriteToBlock(again);
    return io::IsReadOk(result) && error.empty() ? std::string(again == block ? "same" : "read")
                                                 : std::string(error);
  };
  EXPECT_EQ(read("", ""), "same");
  EXPECT_EQ(read("GammaMatrix", "Unknown"), "read");
  const size_t begin = text.find("TerminalImpedance {");
  const std::string vector = text.substr(begin, text.find("} TerminalImpedance") + 19 - begin);
  const std::string cases[][3] = {
      {"TerminalImpedance {\n    n = 2", "TerminalImpedance {\n    n = 3",
       "expected \"n\" = 2, found 3"},
      {"CharacteristicImpedance {\n    m = 2", "CharacteristicImpedance {\n    m = 3",
       "expected a 2 x 2 matrix, found 3 x 2"},
      {vector, "TerminalImpedance = 1", "expected a vector block"},
      {"1e+300", "inf", "not finite"}};
  for (const auto& [from, to, message] : cases)
    EXPECT_NE(read(from, to).find(message), std::string::npos) << read(from, to);
}
