// Terminal points and the terminal view of modal points: the transform
// against the mixed-mode relations and against Z_t = T_V Z_m T_V^T, the
// line matrices of coupled pairs, the modes recovered from a propagation
// matrix, the environment settings, and the stored form.
#include <gtest/gtest.h>

#include <cstdlib>
#include <sstream>

#include "sparamlib/data/BlockMatrixIO.h"
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
  return CMatrix(n, n, std::span<const C>(v.begin(), v.size()));
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

CMatrix Diag(const CVector& d) {
  CMatrix m(d.size(), d.size());
  for (int k = 0; k < d.size(); ++k) m[k][k] = d[k];
  return m;
}

CMatrix Inverse(const CMatrix& a) {
  CMatrix x;
  EXPECT_EQ(TNT::SolveLinear(a, TNT::Identity(a.num_rows()), x), 0);
  return x;
}

// Places `block` on the diagonal of `m` at (at, at).
void Put(CMatrix& m, int at, const CMatrix& block) {
  for (int i = 0; i < block.num_rows(); ++i)
    for (int j = 0; j < block.num_cols(); ++j) m[at + i][at + j] = block[i][j];
}

double RelDiff(const CMatrix& a, const CMatrix& b) {
  return MaxAbsDiff(a, b) / std::max(1e-300, testing_support::MaxAbs(b));
}

// A modal point with S and port impedances.
CNetworkModalData Modal(FixedPorts& owner, const CMatrix& s, const CVector& z) {
  CNetworkModalData p(&owner, 2e9, CNetworkData::ExactPoint);
  p.SetSMatrix(std::make_unique<CMatrix>(s));
  p.SetPortImpedance(std::make_unique<CVector>(z));
  return p;
}

// Sets (or with null, unsets) an environment variable for the scope.
class ScopedEnv {
 public:
  ScopedEnv(const char* name, const char* value) : name_(name) {
    if (const char* old = std::getenv(name)) {
      old_ = old;
      had_ = true;
    }
    if (value) {
      ::setenv(name, value, 1);
    } else {
      ::unsetenv(name);
    }
  }
  ~ScopedEnv() {
    if (had_) {
      ::setenv(name_, old_.c_str(), 1);
    } else {
      ::unsetenv(name_);
    }
  }
  ScopedEnv(const ScopedEnv&) = delete;
  ScopedEnv& operator=(const ScopedEnv&) = delete;

 private:
  const char* name_;
  std::string old_;
  bool had_ = false;
};

}  // namespace

// Two coupled pairs in odd/even modes and one single-mode port: the terminal
// S is the single-ended S of the mixed-mode relations, whether the standard
// transform is stored with the point or asked for by the setting.
TEST(TerminalView, OddEvenPortsGiveTheSingleEndedS) {
  std::mt19937_64 rng(21);
  FixedPorts owner(5);
  const CMatrix s = testing_support::RandomS(5, rng);
  const CVector zModal = testing_support::RandomImpedances(5, rng);  // z_d, z_c, z_d, z_c, z
  const CVector zTerminal = testing_support::RandomImpedances(5, rng);
  CMatrix expected;
  ASSERT_EQ(nd::MixedModeToSingleEnded(s, zModal, {{0, 1}, {2, 3}}, zTerminal, expected), 0);

  CNetworkModalData stored = Modal(owner, s, zModal);
  auto tv = std::make_unique<CMatrix>(5, 5);
  Put(*tv, 0, nd::StandardModeTransform());
  Put(*tv, 2, nd::StandardModeTransform());
  (*tv)[4][4] = C(1.0);
  stored.SetTerminalTransform(std::move(tv));
  const auto view = nd::TerminalView(stored, {2, 2, 1}, &zTerminal, {});
  ASSERT_NE(view, nullptr);
  EXPECT_LT(MaxAbsDiff(*view->GetSMatrix(false), expected), 1e-12);
  EXPECT_EQ(view->GetFrequency(), 2e9);
  EXPECT_EQ(view->GetDataType(), CNetworkData::ExactPoint);
  EXPECT_EQ(view->GetOwner(), &owner);

  // Another stored transform: the setting replaces it for the two-mode
  // ports; without the setting the stored one counts and S differs.
  CNetworkModalData other = Modal(owner, s, zModal);
  auto eigen = std::make_unique<CMatrix>(5, 5);
  Put(*eigen, 0, M(2, {0.7, 0.7, -0.6, 0.8}));
  Put(*eigen, 2, M(2, {1.0, 0.2, 0.1, 1.0}));
  (*eigen)[4][4] = C(1.0);
  other.SetTerminalTransform(std::move(eigen));
  const auto standard = nd::TerminalView(other, {2, 2, 1}, &zTerminal, {true, false});
  ASSERT_NE(standard, nullptr);
  EXPECT_LT(MaxAbsDiff(*standard->GetSMatrix(false), expected), 1e-12);
  const auto own = nd::TerminalView(other, {2, 2, 1}, &zTerminal, {});
  ASSERT_NE(own, nullptr);
  EXPECT_GT(MaxAbsDiff(*own->GetSMatrix(false), expected), 1e-3);

  // No transform stored: two-mode ports need the setting; single-mode ports
  // are their own terminal (a renormalisation to the terminal reference).
  CNetworkModalData bare = Modal(owner, s, zModal);
  EXPECT_EQ(nd::TerminalView(bare, {2, 2, 1}, &zTerminal, {}), nullptr);
  const auto byName = nd::TerminalView(bare, {2, 2, 1}, &zTerminal, {true, false});
  ASSERT_NE(byName, nullptr);
  EXPECT_LT(MaxAbsDiff(*byName->GetSMatrix(false), expected), 1e-12);
  CMatrix renormalised;
  ASSERT_EQ(nd::RenormalizeS(s, nd::SqrtImpedances(zModal), nd::SqrtImpedances(zTerminal),
                             renormalised),
            0);
  const auto single = nd::TerminalView(bare, {}, &zTerminal, {});
  ASSERT_NE(single, nullptr);
  EXPECT_LT(MaxAbsDiff(*single->GetSMatrix(false), renormalised), 1e-12);
}

// The wave route needs no Z: an ideal modal thru between two uncoupled
// pairs (z_d = 2 z0, z_c = z0 / 2) is a thru of each conductor at z0.
// For a general network its Z is T_V Z_m T_V^T, computed here from Z.
TEST(TerminalView, ThruWithoutZAndTheImpedanceCongruence) {
  FixedPorts owner(4);
  const C o(0.0), l(1.0);
  const CMatrix thru = M(4, {o, o, l, o, o, o, o, l, l, o, o, o, o, l, o, o});
  CNetworkModalData modal = Modal(owner, thru, V({100, 25, 100, 25}));
  const auto view = nd::TerminalView(modal, {2, 2}, nullptr, {true, false});
  ASSERT_NE(view, nullptr);
  EXPECT_LT(MaxAbsDiff(*view->GetSMatrix(false), thru), 1e-15);
  EXPECT_EQ(view->GetTerminalImpedance()->size(), 4);
  EXPECT_EQ((*view->GetTerminalImpedance())[3], C(50.0));  // the default reference

  // A general transform on a 2 + 3 conductor device with complex modes.
  std::mt19937_64 rng(5);
  FixedPorts five(5);
  const CMatrix s = testing_support::RandomS(5, rng);
  const CVector zm = testing_support::RandomImpedances(5, rng);
  CNetworkModalData general = Modal(five, s, zm);
  CMatrix tv(5, 5);
  Put(tv, 0, M(2, {C(0.9, 0.1), C(0.4, -0.2), C(-0.3, 0.05), C(1.1, 0.3)}));
  Put(tv, 2, M(3, {C(1.0), C(0.2, 0.1), C(-0.1), C(0.3, -0.2), C(0.8), C(0.25), C(0.1),
                   C(-0.4, 0.2), C(1.2, -0.1)}));
  general.SetTerminalTransform(std::make_unique<CMatrix>(tv));
  const CVector zt = testing_support::RandomImpedances(5, rng);
  const auto gv = nd::TerminalView(general, {2, 3}, &zt, {});
  ASSERT_NE(gv, nullptr);
  const CMatrix zExpected = Mul(Mul(tv, *general.GetZMatrix(true)), T(tv));
  EXPECT_LT(RelDiff(*gv->GetZMatrix(true), zExpected), 1e-12);
  const CMatrix ti = T(Inverse(tv));
  EXPECT_LT(RelDiff(*gv->GetYMatrix(true), Mul(Mul(ti, *general.GetYMatrix(true)), T(ti))), 1e-12);

  // A modal point with a stored Z and no port impedances: Z and Y carry over
  // by congruence; S follows at the terminal references.
  CNetworkModalData zOnly(&five, 1e9);
  zOnly.SetZMatrix(std::make_unique<CMatrix>(*general.GetZMatrix(true)));
  zOnly.SetTerminalTransform(std::make_unique<CMatrix>(tv));
  const auto zv = nd::TerminalView(zOnly, {2, 3}, &zt, {});
  ASSERT_NE(zv, nullptr);
  EXPECT_FALSE(zv->IsZDerived());
  EXPECT_LT(RelDiff(*zv->GetZMatrix(false), zExpected), 1e-13);
  EXPECT_LT(MaxAbsDiff(*zv->GetSMatrix(true), *gv->GetSMatrix(false)), 1e-12);
  EXPECT_EQ(zv->GetCharacteristicImpedance(), nullptr);  // no mode impedances

  // Refused: blocks that do not cover the modes, a transform that couples
  // two ports, a singular transform, a point without network data.
  EXPECT_EQ(nd::TerminalView(general, {2, 2}, &zt, {}), nullptr);
  auto coupled = std::make_unique<CMatrix>(tv);
  (*coupled)[1][2] = C(0.01);
  general.SetTerminalTransform(std::move(coupled));
  EXPECT_EQ(nd::TerminalView(general, {2, 3}, &zt, {}), nullptr);
  auto singular = std::make_unique<CMatrix>(tv);
  for (int j = 0; j < 2; ++j) (*singular)[1][j] = C(0.0);
  general.SetTerminalTransform(std::move(singular));
  EXPECT_EQ(nd::TerminalView(general, {2, 3}, &zt, {}), nullptr);
  CNetworkModalData empty(&five);
  EXPECT_EQ(nd::TerminalView(empty, {}, &zt, {}), nullptr);
}

// A symmetric coupled pair: Z0_t and Gamma_t in closed form; uncoupled lines
// give z0 I. The modes come back from Gamma_t by eigen-decomposition, and
// with the mode impedances from Z0_t they give Z0_t and Gamma_t again.
TEST(TerminalView, LineMatricesOfACoupledPairAndTheModesBack) {
  FixedPorts owner(2);
  const C zd(90.0, -2.0), zc(30.0, 1.0), gd(1.5, 40.0), gc(2.0, 48.0);
  CNetworkModalData modal = Modal(owner, M(2, {0.1, 0.2, 0.2, 0.1}), V({zd, zc}));
  modal.SetGamma(std::make_unique<CVector>(V({gd, gc})));
  const auto full = nd::TerminalView(modal, {2}, nullptr, {true, true});
  ASSERT_NE(full, nullptr);
  const CMatrix z0 = M(2, {zd * 0.25 + zc, zc - zd * 0.25, zc - zd * 0.25, zd * 0.25 + zc});
  const CMatrix gamma = M(2, {(gd + gc) * 0.5, (gc - gd) * 0.5, (gc - gd) * 0.5, (gd + gc) * 0.5});
  EXPECT_LT(MaxAbsDiff(*full->GetCharacteristicImpedance(), z0), 1e-13);
  EXPECT_LT(MaxAbsDiff(*full->GetGammaMatrix(), gamma), 1e-13);
  // Without the full view only the diagonal is kept; the per-terminal
  // vector is the diagonal either way.
  const auto diagonal = nd::TerminalView(modal, {2}, nullptr, {true, false});
  ASSERT_NE(diagonal, nullptr);
  EXPECT_LT(MaxAbsDiff(*diagonal->GetGammaMatrix(), M(2, {gamma[0][0], 0, 0, gamma[1][1]})), 1e-13);
  EXPECT_EQ((*diagonal->GetGammaMatrix())[0][1], C(0.0));
  for (const auto* p : {full.get(), diagonal.get()})
    EXPECT_EQ(p->GetVectorValue(nd::kPropagationConstants, 1), (*full->GetGammaMatrix())[1][1]);

  CNetworkModalData uncoupled = Modal(owner, M(2, {0, 0, 0, 0}), V({100, 25}));
  uncoupled.SetGamma(std::make_unique<CVector>(V({gd, gd})));
  const auto lines = nd::TerminalView(uncoupled, {2}, nullptr, {true, true});
  ASSERT_NE(lines, nullptr);
  EXPECT_LT(MaxAbsDiff(*lines->GetCharacteristicImpedance(), M(2, {50, 0, 0, 50})), 1e-13);
  EXPECT_LT(MaxAbsDiff(*lines->GetGammaMatrix(), M(2, {gd, 0, 0, gd})), 1e-13);

  CVector g;
  CMatrix tv;
  ASSERT_EQ(nd::ModesFromTerminalGamma(gamma, {}, g, tv), 0);
  // Ordered by phase constant: the odd mode (40) first.
  EXPECT_LT(abs(g[0] - gd) + abs(g[1] - gc), 1e-13);
  const double h = std::sqrt(0.5);
  EXPECT_LT(MaxAbsDiff(tv, M(2, {h, h, -h, h})), 1e-13);
  CVector zm;
  ASSERT_EQ(nd::ModalImpedancesFromTerminal(z0, tv, zm), 0);
  // The unit-length odd mode has sqrt(2) times the standard one's voltage
  // per unit of its own: its impedance is half z_d, the even one twice z_c.
  EXPECT_LT(abs(zm[0] - zd * 0.5) + abs(zm[1] - zc * 2.0), 1e-12);
  EXPECT_LT(MaxAbsDiff(Mul(Mul(tv, Diag(zm)), T(tv)), z0), 1e-12);
  EXPECT_LT(MaxAbsDiff(Mul(Mul(tv, Diag(g)), Inverse(tv)), gamma), 1e-12);
}

// Three coupled conductors beside a single one: the blocks are decomposed
// one by one, modes and transform found up to the scale of each column.
TEST(ModesFromTerminalGamma, BlockByBlockAndRefusals) {
  const CMatrix tv3 = M(3, {C(1.0), C(0.2, 0.1), C(-0.1), C(0.3, -0.2), C(0.8), C(0.25), C(0.1),
                           C(-0.4, 0.2), C(1.2, -0.1)});
  const CVector g3 = V({C(1.0, 30.0), C(0.5, 50.0), C(2.0, 40.0)});
  CMatrix gammaT(4, 4);
  gammaT[0][0] = C(0.3, 20.0);
  Put(gammaT, 1, Mul(Mul(tv3, Diag(g3)), Inverse(tv3)));
  CVector g;
  CMatrix tv;
  ASSERT_EQ(nd::ModesFromTerminalGamma(gammaT, {1, 3}, g, tv), 0);
  EXPECT_EQ(g[0], C(0.3, 20.0));
  EXPECT_EQ(tv[0][0], C(1.0));
  const int order[] = {0, 2, 1};  // by phase constant 30, 40, 50
  for (int c = 0; c < 3; ++c) {
    const int from = order[c];
    EXPECT_LT(abs(g[1 + c] - g3[from]), 1e-12) << c;
    // Parallel to the original column, unit length, its largest part real.
    const C ratio = tv[1][1 + c] / tv3[0][from];
    double length = 0.0, largest = 0.0;
    C lead;
    for (int i = 0; i < 3; ++i) {
      EXPECT_LT(abs(tv[1 + i][1 + c] - tv3[i][from] * ratio), 1e-12);
      length += norm(tv[1 + i][1 + c]);
      if (abs(tv[1 + i][1 + c]) > largest) {
        largest = abs(tv[1 + i][1 + c]);
        lead = tv[1 + i][1 + c];
      }
      EXPECT_EQ(tv[1 + i][0], C(0.0));
    }
    EXPECT_NEAR(length, 1.0, 1e-14);
    EXPECT_TRUE(lead.im == 0.0 && lead.re > 0.0) << c;
  }
  EXPECT_LT(MaxAbsDiff(Mul(Mul(tv, Diag(g)), Inverse(tv)), gammaT), 1e-12);

  // Blocks that do not cover the matrix, a non-square or non-finite one:
  // refused, the outputs kept.
  const CVector kept = g;
  EXPECT_EQ(nd::ModesFromTerminalGamma(gammaT, {1, 2}, g, tv), 2);
  EXPECT_EQ(nd::ModesFromTerminalGamma(CMatrix(2, 3), {}, g, tv), 2);
  gammaT[2][2] = C(std::nan(""), 0.0);
  EXPECT_NE(nd::ModesFromTerminalGamma(gammaT, {1, 3}, g, tv), 0);
  EXPECT_EQ(g[1], kept[1]);
}

TEST(TerminalViewSettings, OnlyTheValueOneSwitchesOn) {
  const struct {
    const char* value;
    bool on;
  } cases[] = {{nullptr, false}, {"1", true},    {" 1\t", true}, {"0", false},
               {"", false},      {"yes", false}, {"11", false},  {"1.0", false}};
  for (const auto& c : cases) {
    const char* shown = c.value ? c.value : "unset";
    {
      ScopedEnv standard("USE_STANDARD_MODES", c.value);
      ScopedEnv full("VIEW_TERMINAL_GAMMA_MATRIX", nullptr);
      const nd::TerminalViewSettings s = nd::ReadTerminalViewSettings();
      EXPECT_EQ(s.standardModes, c.on) << shown;
      EXPECT_FALSE(s.fullGammaMatrix) << shown;
    }
    ScopedEnv standard("USE_STANDARD_MODES", nullptr);
    ScopedEnv full("VIEW_TERMINAL_GAMMA_MATRIX", c.value);
    const nd::TerminalViewSettings s = nd::ReadTerminalViewSettings();
    EXPECT_FALSE(s.standardModes) << shown;
    EXPECT_EQ(s.fullGammaMatrix, c.on) << shown;
  }
}

TEST(NetworkTerminalData, ConversionsRenormalisationAndCopies) {
  std::mt19937_64 rng(9);
  FixedPorts owner(3);
  const CMatrix s = testing_support::RandomS(3, rng);
  const CVector z = testing_support::RandomImpedances(3, rng);
  CNetworkTerminalData p(&owner, 1e9);
  p.SetSMatrix(std::make_unique<CMatrix>(s));
  EXPECT_FALSE(p.HasPortImpedances());
  p.SetTerminalImpedance(std::make_unique<CVector>(z));
  EXPECT_TRUE(p.HasPortImpedances() && p.IsTerminal() && !p.IsModal());
  CMatrix zExpected;
  ASSERT_EQ(nd::ConvertSToZ(s, nd::SqrtImpedances(z), zExpected), 0);
  EXPECT_LT(MaxAbsDiff(*p.GetZMatrix(true), zExpected), 1e-12);
  EXPECT_EQ(p.GetPortVector(nd::kPortImpedances), p.GetTerminalImpedance());

  // Renormalised to 50 ohms: S as nd::RenormalizeS gives it, Z unchanged.
  const CVector z50(3, C(50.0));
  ASSERT_TRUE(p.Renormalize(z50));
  CMatrix s50;
  ASSERT_EQ(nd::RenormalizeS(s, nd::SqrtImpedances(z), nd::SqrtImpedances(z50), s50), 0);
  EXPECT_EQ(MaxAbsDiff(*p.GetSMatrix(false), s50), 0.0);
  EXPECT_EQ(p.GetZMatrix(false), nullptr);  // derived from the old references: dropped
  EXPECT_LT(RelDiff(*p.GetZMatrix(true), zExpected), 1e-12);
  EXPECT_FALSE(p.Renormalize(CVector(2, C(50.0))));

  p.SetGammaMatrix(std::make_unique<CMatrix>(3, 3, C(0.5, 30.0)));
  p.SetCharacteristicImpedance(std::make_unique<CMatrix>(3, 3, C(40.0)));
  const auto copy = p.Clone();
  p.SetGammaMatrix(nullptr);
  auto* terminal = dynamic_cast<CNetworkTerminalData*>(copy.get());
  ASSERT_NE(terminal, nullptr);
  EXPECT_EQ((*terminal->GetGammaMatrix())[2][1], C(0.5, 30.0));
  EXPECT_EQ(terminal->GetVectorValue(nd::kPropagationConstants, 2), C(0.5, 30.0));
  EXPECT_EQ(p.GetPortVector(nd::kPropagationConstants), nullptr);
  // The matrix and its diagonal.
  EXPECT_EQ(terminal->GetMemorySize(), p.GetMemorySize() + 9 * sizeof(C) + 3 * sizeof(C));
}

TEST(NetworkTerminalData, StoredFormKeepsEveryBitAndRefusesDamage) {
  std::mt19937_64 rng(13);
  FixedPorts owner(2);
  CNetworkTerminalData p(&owner, 2.5e9, CNetworkData::ExactPoint);
  p.SetSMatrix(std::make_unique<CMatrix>(testing_support::RandomS(2, rng)));
  p.SetTerminalImpedance(std::make_unique<CVector>(testing_support::RandomImpedances(2, rng)));
  p.SetCharacteristicImpedance(std::make_unique<CMatrix>(testing_support::RandomS(2, rng)));
  p.SetGammaMatrix(std::make_unique<CMatrix>(
      M(2, {C(1.0 / 3.0, 40.1), C(-0.0, 4.9e-324), C(0.1), C(0.7, 1e300)})));
  p.GetZMatrix(true);  // derived: not stored
  io::CBlock block("DataPoint");
  ASSERT_TRUE(p.WriteToBlock(block));
  std::vector<std::string> keys;
  for (size_t k = 0; k < block.GetNumItems(); ++k) keys.push_back(block.GetItem(k).GetName());
  EXPECT_EQ(keys, (std::vector<std::string>{"Frequency", "DataType", "SMatrix", "TerminalImpedance",
                                            "CharacteristicImpedance", "GammaMatrix"}));
  std::ostringstream os;
  ASSERT_TRUE(p.WriteToStream(os));
  const std::string text = os.str();
  CNetworkTerminalData q(&owner);
  ASSERT_EQ(q.ReadFromText(text, "point.txt"), 0);
  io::CBlock again("DataPoint");
  ASSERT_TRUE(q.WriteToBlock(again));
  EXPECT_TRUE(again == block) << text;
  EXPECT_EQ(q.GetVectorValue(nd::kPropagationConstants, 1), C(0.7, 1e300));

  // Each damage fails the read with a message; an unknown item is ignored.
  auto read = [&](const std::string& changed) {
    CNetworkTerminalData r(&owner);
    AString error;
    const int result = r.ReadFromText(changed, "point.txt", &error);
    return io::IsReadOk(result) && error.empty() ? std::string("read") : std::string(error);
  };
  // Every occurrence, so that a block's closing name changes with it.
  auto replaced = [&](const std::string& from, const std::string& to) {
    std::string changed = text;
    EXPECT_NE(changed.find(from), std::string::npos) << from;
    for (size_t at = 0; (at = changed.find(from, at)) != std::string::npos; at += to.size())
      changed.replace(at, from.size(), to);
    return read(changed);
  };
  EXPECT_EQ(replaced("GammaMatrix", "Unknown"), "read");
  const size_t begin = text.find("TerminalImpedance {");
  const size_t end = text.find("} TerminalImpedance") + std::string("} TerminalImpedance").size();
  ASSERT_TRUE(begin != std::string::npos && end > begin);
  const struct {
    std::string from, to, message;
  } cases[] = {
      {"TerminalImpedance {\n    n = 2", "TerminalImpedance {\n    n = 3",
       "expected \"n\" = 2, found 3"},
      {"CharacteristicImpedance {\n    m = 2", "CharacteristicImpedance {\n    m = 3",
       "expected a 2 x 2 matrix, found 3 x 2"},
      {text.substr(begin, end - begin), "TerminalImpedance = 1", "expected a vector block"},
      {"1e+300", "inf", "not finite"},
  };
  for (const auto& c : cases) {
    const std::string error = replaced(c.from, c.to);
    EXPECT_NE(error.find(c.message), std::string::npos) << c.from << ": " << error;
  }
}
