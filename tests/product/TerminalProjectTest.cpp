// Projects with terminal solutions: saved, loaded and saved again they give
// the same file and every stored number bit for bit; a sweep's terminal
// solution, which this build cannot hold, is refused by name.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <fstream>

#include "product/Project.h"
#include "sparamlib/data/NetworkModalData.h"
#include "sparamlib/solution/NetworkModalSolution.h"
#include "sparamlib/solution/NetworkTerminalSolution.h"
#include "support/RandomNetwork.h"

namespace {

namespace fs = std::filesystem;
using C = AComplex<double>;
using TNT::CMatrix;
using TNT::CVector;

std::string ReadFile(const fs::path& p) {
  std::ifstream in(p, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

bool SameBits(const C* a, const C* b, int count) {
  return a && b && std::memcmp(a, b, sizeof(C) * static_cast<size_t>(count)) == 0;
}

CVector V3(C a, C b, C c) {
  CVector v(3);
  v[0] = a;
  v[1] = b;
  v[2] = c;
  return v;
}

// A two-conductor port (odd/even modes) and a coaxial one, solved at
// `points` frequencies, as terminal data at unequal complex references.
std::unique_ptr<CNetworkTerminalSolution> TerminalSweep(int points) {
  CNetworkModalSolution modal("Terminal sweep");
  modal.SetSolutionType(CNetworkDataSolution::DiscreteSweep);
  for (const auto& [port, mode] : {std::pair{"Pair", 1}, {"Pair", 2}, {"Coax", 1}})
    modal.AddMatrixEntry(CMatrixEntry(port, mode, 0));
  std::mt19937_64 rng(17);
  for (int p = 0; p < points; ++p) {
    auto point = modal.CreateNetworkData();
    auto* m = static_cast<CNetworkModalData*>(point.get());
    m->SetFrequency(1e9 + p * 0.7e9 + 1.0 / 3.0);
    m->SetDataType(CNetworkData::ExactPoint);
    m->SetSMatrix(std::make_unique<CMatrix>(testing_support::RandomS(3, rng)));
    m->SetPortImpedance(std::make_unique<CVector>(testing_support::RandomImpedances(3, rng)));
    auto gamma = std::make_unique<CVector>(3);
    for (int k = 0; k < 3; ++k) (*gamma)[k] = C(0.01 * (p + k) + 1e-310, 20.0 + p + 3.7 * k);
    m->SetGamma(std::move(gamma));
    modal.AddNetworkData(std::move(point));
  }
  const CVector references = V3(C(50.0, -0.0), C(75.0, 1.0 / 7.0), C(1e-300, 3.0));
  AString why;
  auto terminal = nd::MakeTerminalSolution(modal, &references, {true, true}, &why);
  EXPECT_NE(terminal, nullptr) << why;
  return terminal;
}

}  // namespace

class TerminalProject : public ::testing::Test {
 protected:
  void SetUp() override {
    dir = fs::temp_directory_path() /
          ("sparam_terminal_project." + std::to_string(::getpid()) + "." +
           ::testing::UnitTest::GetInstance()->current_test_info()->name());
    fs::create_directories(dir);
  }
  void TearDown() override { fs::remove_all(dir); }
  fs::path dir;
};

TEST_F(TerminalProject, SaveLoadSaveGivesTheSameFileAndEveryBit) {
  CProject project;
  project.SetDesignName("Coupled lines");
  FxSolutionVariation& variation = project.AddVariation();
  variation.SetProduct("sparamlib tests", "1.0");
  variation.AddSolution(TerminalSweep(4));
  AString error;
  ASSERT_TRUE(project.Save(dir / "first.ndp", &error)) << error;
  const auto back = CProject::Load(dir / "first.ndp", &error);
  ASSERT_NE(back, nullptr) << error;
  ASSERT_TRUE(back->Save(dir / "second.ndp", &error)) << error;
  EXPECT_EQ(ReadFile(dir / "second.ndp"), ReadFile(dir / "first.ndp"));

  const auto* a = dynamic_cast<const CNetworkTerminalSolution*>(
      project.GetVariations()[0]->GetNetworkDataSolution("Terminal sweep"));
  const auto* b = dynamic_cast<const CNetworkTerminalSolution*>(
      back->GetVariations()[0]->GetNetworkDataSolution("Terminal sweep"));
  ASSERT_TRUE(a && b);
  ASSERT_EQ(b->GetNumMatrixEntries(), 3);
  EXPECT_EQ(b->GetMatrixEntry(2)->GetTerminalEntryName(), "Coax:T1");
  ASSERT_EQ(b->GetFrequencyMap().size(), 4u);
  for (auto ia = a->GetFrequencyMap().begin(), ib = b->GetFrequencyMap().begin();
       ia != a->GetFrequencyMap().end(); ++ia, ++ib) {
    EXPECT_EQ(std::memcmp(&ia->first, &ib->first, sizeof(double)), 0);
    auto& pa = static_cast<CNetworkTerminalData&>(*ia->second);
    auto& pb = static_cast<CNetworkTerminalData&>(*ib->second);
    EXPECT_TRUE(SameBits(pa.GetSMatrix(false)->data(), pb.GetSMatrix(false)->data(), 9));
    EXPECT_TRUE(SameBits(pa.GetTerminalImpedance()->data(), pb.GetTerminalImpedance()->data(), 3));
    EXPECT_TRUE(SameBits(pa.GetCharacteristicImpedance()->data(),
                         pb.GetCharacteristicImpedance()->data(), 9));
    EXPECT_TRUE(SameBits(pa.GetGammaMatrix()->data(), pb.GetGammaMatrix()->data(), 9));
    EXPECT_NE((*pb.GetGammaMatrix())[0][1], C(0.0));  // the full matrix was kept
  }
}

TEST_F(TerminalProject, ASweepsTerminalSolutionIsRefusedByName) {
  CProject project;
  project.AddVariation().AddSolution(TerminalSweep(1));
  AString error;
  ASSERT_TRUE(project.Save(dir / "t.ndp", &error)) << error;
  std::string text = ReadFile(dir / "t.ndp");
  const size_t at = text.find("ObjectType = Terminal");
  ASSERT_NE(at, std::string::npos);
  text.replace(at, 21, "ObjectType = FxemTerminal");
  std::ofstream(dir / "sweep.ndp", std::ios::binary) << text;
  EXPECT_EQ(CProject::Load(dir / "sweep.ndp", &error), nullptr);
  EXPECT_NE(error.find("\"ObjectType\": FxemTerminal solutions cannot be read by this version"),
            std::string::npos)
      << error;
}
