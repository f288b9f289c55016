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

std::string ReadFile(const fs::path& p) {
  std::ifstream in(p, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// A two-conductor port (odd/even modes) and a coaxial one at awkward
// frequencies and numbers, as terminal data at unequal complex references.
std::unique_ptr<CProject> TerminalProject(int points) {
  CNetworkModalSolution modal("Lines");
  for (const auto& [port, mode] : {std::pair{"Pair", 1}, {"Pair", 2}, {"Coax", 1}})
    modal.AddMatrixEntry(CMatrixEntry(port, mode, 0));
  std::mt19937_64 rng(17);
  for (int p = 0; p < points; ++p) {
    auto m = std::make_unique<CNetworkModalData>(&modal, 1e9 + p * 0.7e9 + 1.0 / 3.0);
    m->SetSMatrix(std::make_unique<TNT::CMatrix>(testing_support::RandomS(3, rng)));
    m->SetPortImpedance(std::make_unique<TNT::CVector>(testing_support::RandomImpedances(3, rng)));
    auto gamma = std::make_unique<TNT::CVector>(3);
    for (int k = 0; k < 3; ++k) (*gamma)[k] = C(0.01 * (p + k) + 1e-310, 20.0 + p + 3.7 * k);
    m->SetGamma(std::move(gamma));
    modal.AddNetworkData(std::move(m));
  }
  TNT::CVector references(3, C(50.0, -0.0));
  references[1] = C(75.0, 1.0 / 7.0);
  references[2] = C(1e-300, 3.0);
  auto project = std::make_unique<CProject>();
  project->AddVariation().AddSolution(nd::MakeTerminalSolution(modal, &references, {true, true}));
  return project;
}

class TerminalProjectFile : public ::testing::Test {
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

}  // namespace

TEST_F(TerminalProjectFile, SaveLoadSaveGivesTheSameFileAndEveryBit) {
  const auto project = TerminalProject(4);
  AString error;
  ASSERT_TRUE(project->Save(dir / "first.ndp", &error)) << error;
  const auto back = CProject::Load(dir / "first.ndp", &error);
  ASSERT_NE(back, nullptr) << error;
  ASSERT_TRUE(back->Save(dir / "second.ndp", &error)) << error;
  EXPECT_EQ(ReadFile(dir / "second.ndp"), ReadFile(dir / "first.ndp"));

  const auto* a = project->GetVariations()[0]->GetNetworkDataSolution("Lines");
  const auto* b = dynamic_cast<const CNetworkTerminalSolution*>(
      back->GetVariations()[0]->GetNetworkDataSolution("Lines"));
  ASSERT_TRUE(a && b);
  EXPECT_EQ(b->GetMatrixEntry(2)->GetTerminalEntryName(), "Coax:T1");
  ASSERT_EQ(b->GetFrequencyMap().size(), 4u);
  auto same = [](const auto* x, const auto* y) {
    return x && y && x->size() == y->size() &&
           std::memcmp(x->data(), y->data(), sizeof(C) * static_cast<size_t>(x->size())) == 0;
  };
  for (auto ia = a->GetFrequencyMap().begin(), ib = b->GetFrequencyMap().begin();
       ia != a->GetFrequencyMap().end(); ++ia, ++ib) {
    EXPECT_EQ(std::memcmp(&ia->first, &ib->first, sizeof(double)), 0);
    auto& pa = static_cast<CNetworkTerminalData&>(*ia->second);
    auto& pb = static_cast<CNetworkTerminalData&>(*ib->second);
    EXPECT_TRUE(same(pa.GetSMatrix(false), pb.GetSMatrix(false)));
    EXPECT_TRUE(same(pa.GetTerminalImpedance(), pb.GetTerminalImpedance()));
    EXPECT_TRUE(same(pa.GetCharacteristicImpedance(), pb.GetCharacteristicImpedance()));
    EXPECT_TRUE(same(pa.GetGammaMatrix(), pb.GetGammaMatrix()));
    EXPECT_NE((*pb.GetGammaMatrix())[0][1], C(0.0));  // the full matrix was kept
  }
}

TEST_F(TerminalProjectFile, ASweepsTerminalSolutionIsRefusedByName) {
  AString error;
  ASSERT_TRUE(TerminalProject(1)->Save(dir / "t.ndp", &error)) << error;
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
