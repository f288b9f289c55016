// ExternalSolver against small /bin/sh solvers: the exchange itself, every
// way a solver can fail and the message it gives, and that no process
// outlives the solver object.
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

#include "product/ExternalSolver.h"

namespace {

namespace fs = std::filesystem;
using sparam::ExternalSolver;

// Answers every request with a fixed 2-port matrix at the requested frequency.
constexpr const char* kGood2Port = R"(while read f; do
  echo "$f" >> "$(dirname "$0")/requests"
  printf '{"frequency": %s, "s": [[[0.1, 0.2], [0.5, 0]], [[0.5, 0], [0.1, -0.2]]], "port_impedance": [[50, 0], [75, -5]], "gamma": null, "port_impedance_zpv": [[48, 1], [71, -4]]}\n' "$f"
done
)";

class ExternalSolverTest : public ::testing::Test {
 protected:
  void SetUp() override {
    dir = fs::temp_directory_path() / ("sparam_solver_test." + std::to_string(::getpid()) + "." +
                                       ::testing::UnitTest::GetInstance()->current_test_info()->name());
    fs::create_directories(dir);
  }
  void TearDown() override { fs::remove_all(dir); }
  // Writes a shell script and returns the command that runs it.
  std::string Script(const std::string& body, const char* name = "solver.sh") {
    std::ofstream(dir / name) << body;
    return "exec sh '" + (dir / name).string() + "'";
  }
  std::string Read(const char* name) {
    std::ifstream in(dir / name);
    std::stringstream ss;
    ss << in.rdbuf();
    return ss.str();
  }
  // True once `pid` is gone (or only a zombie that some other process reaps).
  static bool Gone(pid_t pid) {
    for (int k = 0; k < 200; ++k) {
      std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
      std::string text;
      if (!std::getline(stat, text)) return true;
      const size_t paren = text.rfind(')');
      if (paren != std::string::npos && paren + 2 < text.size() && text[paren + 2] == 'Z') return true;
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return false;
  }
  fs::path dir;
};

TEST_F(ExternalSolverTest, OneProcessAnswersEveryRequest) {
  ExternalSolver solver(Script(kGood2Port), 10.0);
  EXPECT_EQ(solver.GetNumPorts(), 0);
  EXPECT_EQ(solver.Describe(), "solver " + Script(kGood2Port));
  pid_t first = -1;
  // The request is the shortest decimal that reads back as the same double,
  // in plain digits: the frequency echoed back must be the very same number.
  for (double f : {1.5e9, 2450000000.5, 1e10, 1234567890.123456}) {
    SolvedPoint p;
    std::string why;
    ASSERT_TRUE(solver.Solve(f, 0.0, p, &why)) << why;
    EXPECT_EQ(p.frequency, f);
    ASSERT_EQ(p.s.num_rows(), 2);
    EXPECT_EQ(p.s[0][0], TNT::Complex(0.1, 0.2));
    EXPECT_EQ(p.s[0][1], TNT::Complex(0.5, 0.0));
    EXPECT_EQ(p.s[1][1], TNT::Complex(0.1, -0.2));
    ASSERT_TRUE(p.portImpedance.has_value());
    EXPECT_EQ((*p.portImpedance)[1], TNT::Complex(75.0, -5.0));
    EXPECT_FALSE(p.gamma.has_value());
    ASSERT_TRUE(p.zpv.has_value());
    EXPECT_EQ((*p.zpv)[1], TNT::Complex(71.0, -4.0));
    EXPECT_FALSE(p.zvi.has_value());
    if (first < 0) first = solver.GetPid();
    EXPECT_EQ(solver.GetPid(), first);
  }
  EXPECT_EQ(solver.GetNumPorts(), 2);
  EXPECT_EQ(Read("requests"), "1500000000\n2450000000.5\n10000000000\n1234567890.123456\n");
}

// Each broken solver, the message it gives and whether the process is
// stopped (the conversation is out of step) or kept for the next request.
TEST_F(ExternalSolverTest, BrokenSolversFailWithAClearMessage) {
  const std::string ok = R"({"frequency": %s, "s": [[[0.5, 0]]]})";
  const struct {
    const char* name;
    std::string script;
    int ports;
    double timeout;
    const char* message;
    bool stopped;
  } cases[] = {
      {"crash", "read f; exit 3", 0, 10, "solver exited with status 3 while solving 1.5 GHz", true},
      {"signal", "read f; kill -SEGV $$", 0, 10,
       "solver was killed by signal 11 (Segmentation fault) while solving 1.5 GHz", true},
      {"closed output", "exec >&-; read f; sleep 30", 0, 10, "solver closed its output while solving 1.5 GHz",
       true},
      {"hang", "read f; sleep 30", 0, 1,
       "solver answered no JSON within 1 s at 1.5 GHz (does it flush its output after each answer?)", true},
      {"garbage", "read f; echo 'Solver 2.1 ready'", 0, 10,
       "line 1 of the solver's output (answer for 1.5 GHz): expected one JSON object per line, got 'Solver 2.1 "
       "ready'",
       true},
      {"not an object", "read f; echo '[1, 2]'", 0, 10,
       "line 1 of the solver's output (answer for 1.5 GHz): expected a JSON object, got '[1, 2]'", false},
      {"nan", "read f; echo '{\"frequency\": 1.5e9, \"s\": [[[NaN, 0]]]}'", 0, 10,
       "line 1 of the solver's output (answer for 1.5 GHz): non-finite number (NaN or Infinity) in the answer",
       false},
      {"overflow", "read f; echo '{\"frequency\": 1.5e9, \"s\": [[[1e999, 0]]]}'", 0, 10,
       "line 1 of the solver's output (answer for 1.5 GHz): number out of the range of a double in the answer",
       false},
      {"wrong size", "while read f; do printf '" + ok + "\\n' $f; done", 2, 10,
       "line 1 of the solver's output (answer for 1.5 GHz): \"s\" has 1 rows, expected 2 (the solver's port "
       "count)",
       false},
      {"ragged", "read f; echo '{\"frequency\": 1.5e9, \"s\": [[[1, 0], [0, 0]], [[0, 0]]]}'", 0, 10,
       "line 1 of the solver's output (answer for 1.5 GHz): s[1] should be a row of 2 [re, im] pairs", false},
      {"no frequency", "read f; echo '{\"s\": [[[0.5, 0]]]}'", 0, 10,
       "line 1 of the solver's output (answer for 1.5 GHz): expected \"frequency\": the solved frequency in Hz",
       false},
      {"moved", "read f; echo '{\"frequency\": 1.502e9, \"s\": [[[0.5, 0]]]}'", 0, 10,
       "line 1 of the solver's output (answer for 1.5 GHz): solved 1.502 GHz, more than the tolerance 1 MHz "
       "away from the requested frequency",
       false},
      {"port impedances", "read f; echo '{\"frequency\": 1.5e9, \"s\": [[[0.5, 0]]], \"port_impedance\": [50]}'", 0,
       10, "line 1 of the solver's output (answer for 1.5 GHz): port_impedance[0] should be [re, im], got '50'",
       false},
      {"zvi count", "read f; echo '{\"frequency\": 1.5e9, \"s\": [[[0.5, 0]]], \"port_impedance_zvi\": []}'", 0,
       10,
       "line 1 of the solver's output (answer for 1.5 GHz): \"port_impedance_zvi\" should be a list of 1 [re, im] "
       "pairs, one per port",
       false},
      {"gamma count", "read f; echo '{\"frequency\": 1.5e9, \"s\": [[[0.5, 0]]], \"gamma\": [[0, 1], [0, 1]]}'", 0,
       10,
       "line 1 of the solver's output (answer for 1.5 GHz): \"gamma\" should be a list of 1 [re, im] pairs, one "
       "per port",
       false},
      {"reported error", "read f; echo; echo '{\"error\": \"mesh did not converge\"}'", 0, 10,
       "solver could not solve 1.5 GHz: mesh did not converge", false},
      {"not found", "exec no_such_solver_program_xyz 2>/dev/null", 0, 10,
       "solver exited with status 127 while solving 1.5 GHz (command not found?)", true},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    ExternalSolver solver(Script(c.script), c.timeout, c.ports);
    SolvedPoint p;
    std::string why;
    EXPECT_FALSE(solver.Solve(1.5e9, 1e6, p, &why));
    EXPECT_EQ(why, c.message);
    EXPECT_EQ(solver.GetPid() < 0, c.stopped);
    if (c.stopped) {
      // A stopped solver keeps giving the reason it stopped.
      std::string again;
      EXPECT_FALSE(solver.Solve(2e9, 1e6, p, &again));
      EXPECT_EQ(again, c.message);
    }
  }
}

// A malformed answer fails only its own solve; the next one is read in step.
TEST_F(ExternalSolverTest, ContentErrorsKeepTheConversationInStep) {
  ExternalSolver solver(Script(R"(read f; printf '{"frequency": %s, "s": [[[2, 0]]], "gamma": [[0]]}\n' "$f"
while read f; do printf '{"frequency": %s, "s": [[[0.25, 0]]]}\n' "$f"; done
)"),
                        10.0);
  SolvedPoint p;
  std::string why;
  EXPECT_FALSE(solver.Solve(1e9, 0.0, p, &why));
  EXPECT_NE(why.find("gamma[0] should be [re, im]"), std::string::npos) << why;
  EXPECT_EQ(solver.GetNumPorts(), 0);  // a failed answer fixes nothing
  ASSERT_TRUE(solver.Solve(2e9, 0.0, p, &why)) << why;
  EXPECT_EQ(p.frequency, 2e9);
  EXPECT_EQ(p.s[0][0], TNT::Complex(0.25, 0.0));
  EXPECT_EQ(solver.GetNumPorts(), 1);
}

// Writing to a solver that has already exited raises SIGPIPE; it must come
// back as a message, not end the test program.
TEST_F(ExternalSolverTest, SolverGoneBeforeTheRequestIsAMessageNotASignal) {
  ExternalSolver solver(Script("exit 4"), 10.0);
  std::string why;
  ASSERT_TRUE(solver.Start(&why)) << why;
  const pid_t pid = solver.GetPid();
  // Wait until it has exited (a zombie of ours, not yet reaped).
  for (int k = 0; k < 500; ++k) {
    std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
    std::string text;
    std::getline(stat, text);
    if (text.find(") Z") != std::string::npos) break;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  SolvedPoint p;
  EXPECT_FALSE(solver.Solve(1.5e9, 0.0, p, &why));
  EXPECT_EQ(why, "solver exited with status 4 while solving 1.5 GHz");
}

// The solver, what the shell started and what the solver started in the
// background all end with the solver object: after a normal close, after a
// solver that ignores the closed stdin, and after a timeout.
TEST_F(ExternalSolverTest, NoProcessOutlivesTheSolver) {
  const struct {
    const char* name;
    const char* loop;
    bool timeout;
  } cases[] = {
      {"closes on EOF", R"(while read f; do printf '{"frequency": %s, "s": [[[0, 0]]]}\n' "$f"; done)", false},
      {"ignores EOF", R"(read f; printf '{"frequency": %s, "s": [[[0, 0]]]}\n' "$f"; trap '' TERM; sleep 60)",
       false},
      {"times out", "read f; sleep 60", true},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    pid_t shell = -1;
    {
      ExternalSolver solver(Script(std::string("echo $$ > \"$(dirname \"$0\")/pid\"\n"
                                               "sleep 300 &\necho $! > \"$(dirname \"$0\")/child\"\n") +
                                   c.loop + "\n"),
                            1.0);
      SolvedPoint p;
      std::string why;
      EXPECT_EQ(solver.Solve(1e9, 0.0, p, &why), !c.timeout) << why;
      shell = solver.GetPid();
    }
    const pid_t leader = std::stoi(Read("pid")), child = std::stoi(Read("child"));
    EXPECT_TRUE(c.timeout || leader == shell) << leader << " " << shell;
    EXPECT_TRUE(Gone(leader));
    EXPECT_TRUE(Gone(child));
    EXPECT_EQ(::kill(leader, 0), -1);  // reaped, not a zombie of ours
  }
}

// An interrupt that comes while the solver is busy ends the solve at once
// and the solver's whole process group with it, even one that ignores
// SIGTERM; the solve says why, and so does every later one.
TEST_F(ExternalSolverTest, AnInterruptEndsASolveInFlightAndTheSolver) {
  for (const bool ignoresTerm : {false, true}) {
    SCOPED_TRACE(ignoresTerm ? "ignores SIGTERM" : "default SIGTERM");
    ExternalSolver solver(Script(std::string(ignoresTerm ? "trap '' TERM\n" : "") +
                                 "read f; sleep 30 &\necho $! > \"$(dirname \"$0\")/child\"\nwait $!\n"),
                          60.0);
    std::atomic<int> interrupt{0};
    solver.SetInterrupt(&interrupt);
    std::thread user([&] {
      std::this_thread::sleep_for(std::chrono::milliseconds(200));
      interrupt.store(SIGINT);
    });
    SolvedPoint p;
    std::string why;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(solver.Solve(1.5e9, 0.0, p, &why));
    const double took = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    user.join();
    EXPECT_EQ(why, "interrupted while solving 1.5 GHz");
    EXPECT_LT(took, 1.0);  // 0.2 s until the interrupt, then at most 0.5 s of SIGTERM grace
    EXPECT_EQ(solver.GetPid(), -1);
    EXPECT_TRUE(Gone(std::stoi(Read("child"))));
    EXPECT_FALSE(solver.Solve(2e9, 0.0, p, &why));
    EXPECT_EQ(why, "interrupted while solving 1.5 GHz");
  }
}

}  // namespace
