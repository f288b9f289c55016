// ExternalSolver: a solver in another process that speaks the line protocol
// of docs/solver-protocol.md: one frequency in Hz per line on its stdin, one
// JSON answer per line on its stdout.
#pragma once

#include <atomic>
#include <string>
#include <sys/types.h>

#include "product/SweepSolver.h"

namespace sparam {

// One object drives one process for one sweep; it is not for use from
// several threads at once.
class ExternalSolver : public ISweepSolver {
 public:
  // `command` runs through /bin/sh -c in a process group of its own; its
  // stderr is ours. `timeoutSeconds` bounds each Solve (start-up included);
  // zero or less waits forever. `numPorts` > 0 fixes the port count up front,
  // otherwise the first answer fixes it. The process starts on the first Solve
  // (or Start).
  explicit ExternalSolver(std::string command, double timeoutSeconds = 300.0, int numPorts = 0);
  // Closes the solver's stdin, gives it a moment to finish, then ends its
  // process group and reaps it.
  ~ExternalSolver() override;
  ExternalSolver(const ExternalSolver&) = delete;
  ExternalSolver& operator=(const ExternalSolver&) = delete;

  // A flag that asks for a prompt stop (the sweep's interrupt: the number
  // of the signal that came, 0 while none did). A Solve waiting for the
  // solver looks at it at least every 50 ms; once it is set, the solve
  // fails with "interrupted ..." and the solver's process group is ended at
  // once (SIGTERM, SIGKILL half a second later) instead of after the usual
  // grace. Null: no interrupt.
  void SetInterrupt(const std::atomic<int>* flag) { m_Interrupt = flag; }

  // Starts the process if it is not running. False (reason in `why`) when it
  // cannot be started or has failed before.
  bool Start(std::string* why);
  // The port count given to the constructor or fixed by the first answer; 0
  // before that.
  int GetNumPorts() const override { return m_NumPorts; }
  // Sends the request and reads the answer. A malformed answer (wrong sizes,
  // non-finite numbers, a frequency off by more than the tolerance, a reported
  // error) fails this solve only; a failure that leaves the conversation out
  // of step (exit, closed output, timeout, text that is not JSON) also ends
  // the process, and every later Solve repeats that reason.
  bool Solve(double frequency, double tolerance, SolvedPoint& out, std::string* why) override;
  // "solver <command>".
  std::string Describe() const override { return "solver " + m_Command; }
  // The process id while it runs, else -1 (for tests and diagnostics).
  pid_t GetPid() const { return m_Pid; }

 private:
  bool Fail(std::string message, bool stop, std::string* why);
  bool WriteRequest(double frequency, double deadline, std::string* why);
  // Reads the next non-blank line; false with the reason on timeout, EOF or error.
  bool ReadLine(double frequency, double deadline, std::string& line, std::string* why);
  bool ParseAnswer(const std::string& line, double frequency, double tolerance, SolvedPoint& out,
                   std::string* why);
  std::string ExitReason(double frequency);
  void Stop(double graceSeconds);
  bool Interrupted() const { return m_Interrupt && m_Interrupt->load() != 0; }
  // poll() milliseconds until `deadline`, in slices short enough to notice
  // the interrupt.
  int PollSlice(double deadline) const;

  std::string m_Command;
  double m_Timeout;
  int m_NumPorts;
  pid_t m_Pid = -1;
  int m_In = -1;   // our end of the solver's stdin
  int m_Out = -1;  // our end of the solver's stdout
  std::string m_Buffer;    // bytes read past the last complete line
  long m_LinesRead = 0;    // lines of the solver's output so far, for messages
  std::string m_Broken;    // the reason the process was stopped, once it was
  const std::atomic<int>* m_Interrupt = nullptr;
};

}  // namespace sparam
