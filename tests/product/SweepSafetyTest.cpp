// What `sparam sweep`, `interp` and `convert` promise about the files they
// write, run as a user runs them (the sparam binary as a child process): one
// sweep per project at a time, a resume that refuses what it cannot honour,
// a signal that stops the sweep within a second in the middle of a solve with
// every point kept and no solver left, and no command that writes over its
// own input.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <sstream>
#include <thread>
#include <vector>

#include "product/Project.h"
#include "product/Sweep.h"

extern char** environ;

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

// Answers two requests at once and sleeps in the third, as a long field
// solve does, leaving its own and the sleep's process ids beside it.
// `trap` makes it a solver that ignores SIGTERM (its sleep inherits that).
std::string SlowSolver(bool ignoresTerm) {
  return std::string(ignoresTerm ? "trap '' TERM\n" : "") + R"(dir=$(dirname "$0")
echo $$ > "$dir/solver.pid"
n=0
while read f; do
  n=$((n + 1))
  if [ $n -ge 3 ]; then sleep 30 & echo $! > "$dir/sleep.pid.tmp"; mv "$dir/sleep.pid.tmp" "$dir/sleep.pid"; wait $!; fi
  printf '{"frequency": %s, "s": [[[0.1, 0], [0.9, 0]], [[0.9, 0], [0.1, 0]]]}\n' "$f"
done
)";
}

struct Exit {
  int status = -1;  // exit status; -1 when it did not exit
  int signal = 0;   // the signal that ended it instead
  std::string err;
};

class SweepSafety : public ::testing::Test {
 protected:
  void SetUp() override {
    dir = fs::temp_directory_path() / ("sparam_safety." + std::to_string(::getpid()) + "." +
                                       ::testing::UnitTest::GetInstance()->current_test_info()->name());
    fs::remove_all(dir);
    fs::create_directories(dir);
  }
  void TearDown() override {
    KillSolver();  // one a failed test (or a killed sweep) left running
    fs::remove_all(dir);
  }
  // Ends the process group of this test's solver if it still runs; the
  // command line tells it from a process that took over its id.
  void KillSolver() {
    const pid_t pid = ReadPid("solver.pid");
    if (pid <= 0) return;
    std::ifstream in("/proc/" + std::to_string(pid) + "/cmdline");
    std::string cmdline((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    if (cmdline.find(P("slow.sh")) != std::string::npos) ::kill(-pid, SIGKILL);
  }

  // Starts sparam with `args`, stderr to err.txt, every stop signal at its
  // default (a test runner may ignore some).
  pid_t Start(const std::vector<std::string>& args) {
    std::vector<std::string> all = {SPARAM_BINARY};
    all.insert(all.end(), args.begin(), args.end());
    std::vector<char*> argv;
    for (std::string& a : all) argv.push_back(a.data());
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 2, (dir / "err.txt").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    posix_spawnattr_t attr;
    posix_spawnattr_init(&attr);
    sigset_t defaults, none;
    sigemptyset(&none);
    sigemptyset(&defaults);
    for (int s : {SIGINT, SIGTERM, SIGHUP, SIGPIPE}) sigaddset(&defaults, s);
    posix_spawnattr_setsigdefault(&attr, &defaults);
    posix_spawnattr_setsigmask(&attr, &none);
    posix_spawnattr_setflags(&attr, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK);
    pid_t pid = -1;
    EXPECT_EQ(::posix_spawn(&pid, argv[0], &actions, &attr, argv.data(), environ), 0);
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attr);
    return pid;
  }
  // How it ended, within `seconds`; a run that takes longer is killed and
  // reported with status -1 and no signal.
  Exit Finish(pid_t pid, double seconds = 20.0) {
    Exit run;
    const auto until = Clock::now() + std::chrono::duration<double>(seconds);
    int status = 0;
    while (::waitpid(pid, &status, WNOHANG) == 0) {
      if (Clock::now() > until) {
        ::kill(pid, SIGKILL);
        ::waitpid(pid, &status, 0);
        run.err = Read("err.txt");
        return run;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    if (WIFEXITED(status)) run.status = WEXITSTATUS(status);
    if (WIFSIGNALED(status)) run.signal = WTERMSIG(status);
    run.err = Read("err.txt");
    return run;
  }
  Exit Sparam(const std::vector<std::string>& args) { return Finish(Start(args)); }

  std::string Read(const std::string& name) {
    std::ifstream in(dir / name);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
  }
  pid_t ReadPid(const std::string& name) {
    std::ifstream in(dir / name);
    pid_t pid = -1;
    in >> pid;
    return pid;
  }
  // Waits up to 10 s for a file the solver writes.
  bool Appears(const std::string& name) {
    for (int k = 0; k < 5000 && !fs::exists(dir / name); ++k)
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
    return fs::exists(dir / name);
  }
  // True once `pid` is gone: absent, or a zombie left for init to reap.
  static bool Gone(pid_t pid) {
    for (int k = 0; k < 100; ++k) {
      std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
      std::string text;
      if (!std::getline(stat, text)) return true;
      const size_t paren = text.rfind(')');
      if (paren != std::string::npos && paren + 2 < text.size() && text[paren + 2] == 'Z') return true;
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return false;
  }
  size_t Solved(const std::string& name) {
    auto project = CProject::Load(dir / name);
    if (!project) return 0;
    return project->GetVariations()[0]->GetNetworkDataSolution()->GetNumFrequencies();
  }
  std::string P(const std::string& name) { return (dir / name).string(); }
  std::string SlowSweep(bool ignoresTerm = false) {
    std::ofstream(dir / "slow.sh") << SlowSolver(ignoresTerm);
    return "exec sh '" + P("slow.sh") + "'";
  }

  fs::path dir;
};

TEST_F(SweepSafety, TheLockKeepsOutAnyOtherHolderButNeverADeadOne) {
  std::ofstream(dir / "p.ndp") << "";
  fs::create_symlink(dir / "p.ndp", dir / "link.ndp");
  int ready[2];
  ASSERT_EQ(::pipe(ready), 0);
  const pid_t holder = ::fork();
  if (holder == 0) {
    auto lock = sparam::SweepLock::Acquire(dir / "p.ndp", nullptr);
    const char ok = lock ? 'y' : 'n';
    (void)!::write(ready[1], &ok, 1);
    ::alarm(20);  // never outlives a test that stopped early
    ::pause();    // killed below, without releasing: the lock file stays
    ::_exit(0);
  }
  char ok = 0;
  ASSERT_EQ(::read(ready[0], &ok, 1), 1);
  ASSERT_EQ(ok, 'y');
  std::string why;
  // Another open of the lock file is refused, by name or through a link,
  // naming the holder.
  for (const char* name : {"p.ndp", "link.ndp"}) {
    EXPECT_EQ(sparam::SweepLock::Acquire(dir / name, &why), nullptr) << name;
    EXPECT_NE(why.find("process " + std::to_string(holder)), std::string::npos) << why;
  }
  ::kill(holder, SIGKILL);
  ::waitpid(holder, nullptr, 0);
  ASSERT_TRUE(fs::exists(sparam::SweepLock::LockPath(dir / "p.ndp"))) << "a killed holder leaves its file";
  {
    auto lock = sparam::SweepLock::Acquire(dir / "link.ndp", &why);
    EXPECT_NE(lock, nullptr) << why;
  }
  EXPECT_FALSE(fs::exists(sparam::SweepLock::LockPath(dir / "p.ndp"))) << "released locks leave no file";
  ::close(ready[0]);
  ::close(ready[1]);
}

TEST_F(SweepSafety, AResumeRefusesWhatItCannotHonourAndTakesWhatItCan) {
  const std::string p = P("p.ndp");
  ASSERT_EQ(Sparam({"sweep", "--device", "bandpass", "--tol", "1e-2", "--max-solves", "3", "-o", p}).status, 3);
  const std::string before = Read("p.ndp");
  struct Refused {
    std::vector<std::string> args;
    std::string says;
  };
  const Refused refused[] = {
      {{"--device", "waveguide"}, "was swept with device bandpass; continuing it with device waveguide"},
      {{"--solver", "sh solver.sh"}, "add --force"},
      {{"--device", "bandpass", "--noise", "1e-6"}, "(noise 1e-06, seed 1)"},
      {{"--tol", "1e-4"}, "--tol 0.0001: the sweep in " + p + " has the goal 0.01"},
      {{"--start", "9.5GHz"}, "keeps its band"},
      {{"--stop", "12GHz"}, "keeps its band"},
      {{"-o", P("other.ndp")}, "a resumed sweep keeps saving to " + p},
  };
  for (const Refused& r : refused) {
    std::vector<std::string> args = {"sweep", "--resume", p};
    args.insert(args.end(), r.args.begin(), r.args.end());
    const Exit run = Sparam(args);
    EXPECT_EQ(run.status, 1) << r.args[0] << ": " << run.err;
    EXPECT_NE(run.err.find(r.says), std::string::npos) << run.err;
  }
  EXPECT_EQ(Read("p.ndp"), before) << "a refused resume leaves the project alone";
  EXPECT_FALSE(fs::exists(dir / "other.ndp"));

  // What the project stores may be repeated; the budget is this run's.
  // (--tol is not given: the stored 1e-2 holds, not the default 1e-3.)
  Exit run = Sparam({"sweep", "--resume", p, "--device", "bandpass", "--start", "9GHz", "--max-solves", "5"});
  EXPECT_EQ(run.status, 3) << run.err;
  EXPECT_EQ(Solved("p.ndp"), 5u);
  // Another 2-port device is taken with --force, and said so.
  run = Sparam({"sweep", "--resume", p, "--device", "waveguide", "--force", "--max-solves", "6"});
  EXPECT_EQ(run.status, 3) << run.err;
  EXPECT_NE(run.err.find("--force: continuing"), std::string::npos) << run.err;
  EXPECT_EQ(Solved("p.ndp"), 6u);
}

TEST_F(SweepSafety, SignalsStopASolveWithinASecondKeepingEveryPointAndNoSolver) {
  const std::string p = P("p.ndp");
  struct Case {
    int signal;
    int status;
    const char* says;
    bool ignoresTerm;
  };
  for (const Case c : {Case{SIGINT, 130, "interrupted by SIGINT", false},
                       Case{SIGTERM, 143, "interrupted by SIGTERM", false},
                       Case{SIGHUP, 129, "interrupted by SIGHUP", false},
                       Case{SIGINT, 130, "interrupted by SIGINT", true}}) {
    SCOPED_TRACE(::strsignal(c.signal) + std::string(c.ignoresTerm ? ", solver ignores SIGTERM" : ""));
    fs::remove(dir / "p.ndp");
    fs::remove(dir / "sleep.pid");
    const pid_t sweep =
        Start({"sweep", "--solver", SlowSweep(c.ignoresTerm), "--start", "1GHz", "--stop", "2GHz", "-o", p});
    ASSERT_TRUE(Appears("sleep.pid")) << Read("err.txt");  // the third solve is under way
    const pid_t solver = ReadPid("solver.pid"), sleeper = ReadPid("sleep.pid");

    if (c.signal == SIGINT && !c.ignoresTerm) {
      // Meanwhile the project is the running sweep's alone.
      for (const auto& args : {std::vector<std::string>{"sweep", "--resume", p},
                               std::vector<std::string>{"sweep", "--device", "bandpass", "-o", p}}) {
        const Exit second = Sparam(args);
        EXPECT_EQ(second.status, 1) << second.err;
        EXPECT_NE(second.err.find("is being swept by process " + std::to_string(sweep)), std::string::npos)
            << second.err;
      }
    }

    const auto sent = Clock::now();
    ::kill(sweep, c.signal);
    const Exit run = Finish(sweep, 10.0);
    const double took = std::chrono::duration<double>(Clock::now() - sent).count();
    EXPECT_EQ(run.status, c.status) << "ended by signal " << run.signal << ": " << run.err;
    EXPECT_LT(took, 1.0);
    EXPECT_NE(run.err.find(c.says), std::string::npos) << run.err;
    EXPECT_NE(run.err.find("continue with: sparam sweep --resume"), std::string::npos) << run.err;
    EXPECT_EQ(Solved("p.ndp"), 2u) << "the two points answered before the signal are kept";
    EXPECT_TRUE(Gone(solver)) << "solver " << solver;
    EXPECT_TRUE(Gone(sleeper)) << "what the solver started, " << sleeper;
    EXPECT_FALSE(fs::exists(sparam::SweepLock::LockPath(dir / "p.ndp")));
  }
  // The project continues; with the budget spent at once no solver starts.
  const Exit resumed = Sparam({"sweep", "--resume", p, "--max-solves", "2"});
  EXPECT_EQ(resumed.status, 3) << resumed.err;
}

TEST_F(SweepSafety, AKilledSweepLeavesNoLockBehindEvenWhileItsSolverLivesOn) {
  // SIGKILL cannot be caught: the solver, in its own process group, outlives
  // the sweep. It must not have inherited the lock.
  const std::string p = P("p.ndp");
  const pid_t sweep = Start({"sweep", "--solver", SlowSweep(), "--start", "1GHz", "--stop", "2GHz", "-o", p});
  ASSERT_TRUE(Appears("sleep.pid")) << Read("err.txt");
  ::kill(sweep, SIGKILL);
  EXPECT_EQ(Finish(sweep).signal, SIGKILL);
  ASSERT_EQ(::kill(ReadPid("solver.pid"), 0), 0) << "the orphaned solver should still run here";
  const Exit resumed = Sparam({"sweep", "--resume", p, "--max-solves", "2"});
  EXPECT_EQ(resumed.status, 3) << resumed.err;
  EXPECT_EQ(Solved("p.ndp"), 2u);
  KillSolver();
}

TEST_F(SweepSafety, InterpAndConvertRefuseToWriteOverTheirInput) {
  const std::string p = P("p.ndp");
  ASSERT_EQ(Sparam({"sweep", "--device", "bandpass", "--max-solves", "5", "-o", p}).status, 3);
  ASSERT_EQ(Sparam({"convert", p, P("x.s2p")}).status, 0);
  fs::create_hard_link(dir / "p.ndp", dir / "hard.ndp");
  fs::create_symlink(dir / "p.ndp", dir / "soft.ndp");
  fs::create_hard_link(dir / "x.s2p", dir / "hard.s2p");
  const std::string project = Read("p.ndp"), touchstone = Read("x.s2p");
  const std::vector<std::string> refused[] = {
      {"interp", p, "-o", p},
      {"interp", p, "-o", P("hard.ndp")},
      {"interp", P("soft.ndp"), "--freq", "9GHz:11GHz:5", "-o", p},
      {"convert", p, p},
      {"convert", p, P("soft.ndp")},
      {"convert", P("x.s2p"), P("hard.s2p")},
  };
  for (const auto& args : refused) {
    const Exit run = Sparam(args);
    EXPECT_EQ(run.status, 1) << args[0] << " " << args.back() << ": " << run.err;
    EXPECT_NE(run.err.find("is the input"), std::string::npos) << run.err;
  }
  EXPECT_EQ(Read("p.ndp"), project);
  EXPECT_EQ(Read("x.s2p"), touchstone);
  // Another file is fine.
  EXPECT_EQ(Sparam({"interp", p, "-o", P("q.ndp")}).status, 0);
  EXPECT_EQ(Sparam({"convert", P("x.s2p"), P("y.s2p")}).status, 0);
}

}  // namespace
