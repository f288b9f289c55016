// The sweep loop: it meets its goal on a filter, saves every point as it
// arrives, stops cleanly when the solver fails or the budget is spent, and a
// resumed sweep ends where an uninterrupted one does.
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <sstream>

#include "product/Sweep.h"
#include "support/CoupledResonatorFilter.h"

namespace {

namespace fs = std::filesystem;

// The filter as a solver that fails from its `failAt`-th solve on.
class FilterSolver : public ISweepSolver {
 public:
  explicit FilterSolver(int failAt = -1) : failAt_(failAt) {}
  int GetNumPorts() const override { return 2; }
  bool Solve(double f, double, SolvedPoint& out, std::string* why) override {
    if (failAt_ >= 0 && solves_ >= failAt_) {
      *why = "solver crashed";
      return false;
    }
    ++solves_;
    out.frequency = f;
    out.s = filter_.S(f);
    return true;
  }
  std::string Describe() const override { return "filter"; }

 private:
  testing_support::CoupledResonatorFilter filter_;
  int failAt_, solves_ = 0;
};

class Sweep : public ::testing::Test {
 protected:
  void SetUp() override {
    path = fs::temp_directory_path() /
           ("sparam_sweep_test." + std::to_string(::getpid()) + "." +
            ::testing::UnitTest::GetInstance()->current_test_info()->name() + ".ndp");
    settings.solver = "device:filter";
    settings.start = 9e9;
    settings.stop = 11e9;
    settings.tolerance = 1e-3;
    settings.maxSolves = 60;
  }
  void TearDown() override { fs::remove(path); }
  sparam::SweepOutcome Run(CProject& project, ISweepSolver& solver) {
    sparam::SweepSettings stored;
    CFxemModalSolution* solution = nullptr;
    EXPECT_TRUE(sparam::FindSweep(project, stored, solution, nullptr));
    EXPECT_EQ(stored.tolerance, settings.tolerance);
    std::ostringstream progress;
    return sparam::RunSweep(project, *solution, stored, path, solver, progress);
  }
  std::vector<double> Sequence(const fs::path& p) {
    auto project = CProject::Load(p);
    EXPECT_NE(project, nullptr);
    sparam::SweepSettings s;
    CFxemModalSolution* solution = nullptr;
    sparam::FindSweep(*project, s, solution, nullptr);
    return solution->GetInterpolator()->GetFreqSequence();
  }
  fs::path path;
  sparam::SweepSettings settings;
};

TEST_F(Sweep, MeetsItsGoalOnAFilterWithEveryPointSaved) {
  auto project = sparam::NewSweepProject(settings, 2);
  FilterSolver solver;
  const sparam::SweepOutcome outcome = Run(*project, solver);
  EXPECT_EQ(outcome.stop, sparam::SweepOutcome::Converged) << outcome.message;
  EXPECT_LE(outcome.solvesThisRun, 20);
  // What is on disk is the whole sweep, and it answers within the goal.
  auto loaded = CProject::Load(path);
  ASSERT_NE(loaded, nullptr);
  auto* s = const_cast<CNetworkDataSolution*>(loaded->GetVariations()[0]->GetNetworkDataSolution());
  EXPECT_EQ(s->GetNumFrequencies(), outcome.solvesThisRun);
  const testing_support::CoupledResonatorFilter filter;
  double worst = 0.0;
  for (int k = 0; k <= 2000; ++k) {
    const double f = 9e9 + 2e9 * k / 2000.0;
    CNetworkData* p = s->GetNetworkData(f, 0.0, true);
    ASSERT_NE(p, nullptr);
    const TNT::CMatrix truth = filter.S(f);
    for (int e = 0; e < 4; ++e) worst = std::max(worst, abs(p->GetSMatrix(true)->data()[e] - truth.data()[e]));
    s->ReleaseNetworkData(f);
  }
  EXPECT_LT(worst, settings.tolerance);
}

TEST_F(Sweep, CrashThenResumeEndsLikeAnUninterruptedSweep) {
  auto whole = sparam::NewSweepProject(settings, 2);
  FilterSolver good;
  ASSERT_EQ(Run(*whole, good).stop, sparam::SweepOutcome::Converged);
  const std::vector<double> expected = Sequence(path);

  auto project = sparam::NewSweepProject(settings, 2);
  FilterSolver crashing(7);
  const sparam::SweepOutcome crashed = Run(*project, crashing);
  EXPECT_EQ(crashed.stop, sparam::SweepOutcome::SolverFailed);
  EXPECT_EQ(crashed.message, "solver crashed");
  EXPECT_EQ(Sequence(path).size(), 7u) << "every point solved before the crash is saved";

  auto resumed = CProject::Load(path);
  ASSERT_NE(resumed, nullptr);
  FilterSolver again;
  const sparam::SweepOutcome finished = Run(*resumed, again);
  EXPECT_EQ(finished.stop, sparam::SweepOutcome::Converged);
  EXPECT_EQ(finished.solvesThisRun, static_cast<int>(expected.size()) - 7) << "nothing solved twice";
  EXPECT_EQ(Sequence(path), expected);

  // A budget below what the goal needs stops the sweep with what it has.
  settings.maxSolves = 5;
  auto small = sparam::NewSweepProject(settings, 2);
  FilterSolver solver;
  const sparam::SweepOutcome spent = Run(*small, solver);
  EXPECT_EQ(spent.stop, sparam::SweepOutcome::BudgetSpent);
  EXPECT_EQ(Sequence(path).size(), 5u);
}

// A solve that fails because a signal came is the user's stop, not the
// solver's failure: its status is 128 + the signal, and what was solved
// before stays in the project.
TEST_F(Sweep, ASolveEndedByASignalIsAnInterruptNotAFailure) {
  class SignalledSolver : public FilterSolver {
   public:
    explicit SignalledSolver(std::atomic<int>& flag) : FilterSolver(4), flag_(flag) {}
    bool Solve(double f, double tolerance, SolvedPoint& out, std::string* why) override {
      const bool solved = FilterSolver::Solve(f, tolerance, out, why);
      if (!solved) flag_.store(SIGTERM);  // the signal arrives while the fifth solve runs
      return solved;
    }

   private:
    std::atomic<int>& flag_;
  };
  auto project = sparam::NewSweepProject(settings, 2);
  sparam::SweepSettings stored;
  CFxemModalSolution* solution = nullptr;
  ASSERT_TRUE(sparam::FindSweep(*project, stored, solution, nullptr));
  std::atomic<int> flag{0};
  SignalledSolver solver(flag);
  std::ostringstream progress;
  const sparam::SweepOutcome outcome = sparam::RunSweep(*project, *solution, stored, path, solver, progress, &flag);
  EXPECT_EQ(outcome.stop, sparam::SweepOutcome::Interrupted) << outcome.message;
  EXPECT_EQ(outcome.signal, SIGTERM);
  EXPECT_EQ(sparam::ExitStatus(outcome), 143);
  EXPECT_EQ(outcome.message, "interrupted by SIGTERM; every point solved so far is saved");
  EXPECT_EQ(Sequence(path).size(), 4u);
}

}  // namespace
