// ExternalSolver: process start and stop, the request/answer exchange over
// pipes with a deadline, and the checks on every answer.
#include "product/ExternalSolver.h"

#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <chrono>
#include <cmath>
#include <cstring>
#include <limits>
#include <string_view>
#include <nlohmann/json.hpp>
#include <thread>
#include <utility>
#include <vector>

#include "product/InfoCommand.h"

extern char** environ;

namespace sparam {

namespace {

using nlohmann::json;

// A line longer than this is not an answer (a 1000-port matrix is ~50 MB).
constexpr size_t kMaxLineBytes = size_t{256} << 20;

double Now() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

// Milliseconds left until `deadline` for poll(): -1 waits forever.
int PollMillis(double deadline) {
  if (std::isinf(deadline)) return -1;
  const double left = (deadline - Now()) * 1000.0;
  if (left <= 0.0) return 0;
  return left > 1e9 ? 1000000000 : static_cast<int>(std::ceil(left));
}

std::string Seconds(double s) {
  char buf[32];
  const auto [end, ec] = std::to_chars(buf, buf + sizeof buf, s, std::chars_format::general, 6);
  return std::string(buf, ec == std::errc() ? end : buf) + " s";
}

// The request line. Plain digits where frequencies live (1500000000,
// 2450000000.5), the shortest text that reads back as the same double.
std::string RequestText(double f) {
  char buf[64];
  const auto fmt = f >= 1.0 && f < 1e16 ? std::chars_format::fixed : std::chars_format::general;
  const auto [end, ec] = std::to_chars(buf, buf + sizeof buf - 1, f, fmt);
  char* p = ec == std::errc() ? end : buf;
  *p++ = '\n';
  return std::string(buf, p);
}

// Has the process ended? Leaves it unreaped (WNOWAIT) so that its process
// group id cannot be reused before we have signalled the group.
bool HasExited(pid_t pid, siginfo_t* info) {
  siginfo_t local;
  siginfo_t* si = info ? info : &local;
  std::memset(si, 0, sizeof *si);
  return ::waitid(P_PID, static_cast<id_t>(pid), si, WEXITED | WNOHANG | WNOWAIT) == 0 &&
         si->si_pid == pid;
}

// Waits up to `seconds` for the process to end; a set `interrupt` cuts the
// wait short.
bool WaitExited(pid_t pid, double seconds, siginfo_t* info, const std::atomic<int>* interrupt = nullptr) {
  const double until = Now() + seconds;
  for (;;) {
    if (HasExited(pid, info)) return true;
    if (Now() >= until || (interrupt && interrupt->load())) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
}

std::string Excerpt(const std::string& line) {
  std::string text = line.size() > 60 ? line.substr(0, 57) + "..." : line;
  for (char& c : text)
    if (static_cast<unsigned char>(c) < 0x20) c = ' ';
  return "'" + text + "'";
}

// Reads a [re, im] pair; false with the reason naming `what`.
bool ReadComplex(const json& v, const std::string& what, TNT::Complex& z, std::string& error) {
  if (!v.is_array() || v.size() != 2 || !v[0].is_number() || !v[1].is_number()) {
    error = what + " should be [re, im], got " + Excerpt(v.dump());
    return false;
  }
  z = TNT::Complex(v[0].get<double>(), v[1].get<double>());
  if (std::isfinite(z.re) && std::isfinite(z.im)) return true;
  error = what + " is not finite";
  return false;
}

// An optional per-port vector ("port_impedance", "gamma"); null means absent.
bool ReadPortVector(const json& answer, const char* key, int n, std::optional<TNT::CVector>& out,
                    std::string& error) {
  out.reset();
  const auto it = answer.find(key);
  if (it == answer.end() || it->is_null()) return true;
  if (!it->is_array() || static_cast<int>(it->size()) != n) {
    error = std::string("\"") + key + "\" should be a list of " + std::to_string(n) +
            " [re, im] pairs, one per port";
    return false;
  }
  TNT::CVector v(n);
  for (int i = 0; i < n; ++i)
    if (!ReadComplex((*it)[static_cast<size_t>(i)], std::string(key) + "[" + std::to_string(i) + "]",
                     v[i], error))
      return false;
  out = std::move(v);
  return true;
}

// Runs `fn` with SIGPIPE blocked in this thread and swallows a SIGPIPE it
// raises, so that writing to a solver that has gone away gives EPIPE instead
// of ending our process. The process-wide disposition is left alone.
template <class Fn>
auto WithoutSigpipe(Fn fn) {
  sigset_t pipeSet, old, pending;
  sigemptyset(&pipeSet);
  sigaddset(&pipeSet, SIGPIPE);
  pthread_sigmask(SIG_BLOCK, &pipeSet, &old);
  sigpending(&pending);
  const bool wasPending = sigismember(&pending, SIGPIPE) == 1;
  auto result = fn();
  const int savedErrno = errno;
  if (!wasPending) {
    sigpending(&pending);
    if (sigismember(&pending, SIGPIPE) == 1) {
      const timespec zero{};
      while (sigtimedwait(&pipeSet, nullptr, &zero) < 0 && errno == EINTR) {
      }
    }
  }
  pthread_sigmask(SIG_SETMASK, &old, nullptr);
  errno = savedErrno;
  return result;
}

}  // namespace

ExternalSolver::ExternalSolver(std::string command, double timeoutSeconds, int numPorts)
    : m_Command(std::move(command)),
      m_Timeout(timeoutSeconds > 0.0 ? timeoutSeconds : std::numeric_limits<double>::infinity()),
      m_NumPorts(numPorts > 0 ? numPorts : 0) {}

ExternalSolver::~ExternalSolver() { Stop(2.0); }

bool ExternalSolver::Start(std::string* why) {
  if (!m_Broken.empty()) {
    if (why) *why = m_Broken;
    return false;
  }
  if (m_Pid > 0) return true;
  int in[2], out[2];
  if (::pipe2(in, O_CLOEXEC) != 0) return Fail(std::string("cannot create a pipe: ") + std::strerror(errno), false, why);
  if (::pipe2(out, O_CLOEXEC) != 0) {
    const int e = errno;
    ::close(in[0]);
    ::close(in[1]);
    return Fail(std::string("cannot create a pipe: ") + std::strerror(e), false, why);
  }
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, in[0], STDIN_FILENO);
  posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
  posix_spawnattr_t attr;
  posix_spawnattr_init(&attr);
  // A process group of its own, so that stopping the solver also stops what
  // the shell and the solver started; default signal handling whatever ours is.
  sigset_t none, defaults;
  sigemptyset(&none);
  sigemptyset(&defaults);
  sigaddset(&defaults, SIGPIPE);
  posix_spawnattr_setpgroup(&attr, 0);
  posix_spawnattr_setsigmask(&attr, &none);
  posix_spawnattr_setsigdefault(&attr, &defaults);
  posix_spawnattr_setflags(&attr, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
  // Python buffers a piped stdout; without this a solver that forgets to flush
  // would never be heard.
  std::vector<char*> env;
  bool hasUnbuffered = false;
  for (char** e = environ; e && *e; ++e) {
    env.push_back(*e);
    hasUnbuffered = hasUnbuffered || std::strncmp(*e, "PYTHONUNBUFFERED=", 17) == 0;
  }
  std::string unbuffered = "PYTHONUNBUFFERED=1";
  if (!hasUnbuffered) env.push_back(unbuffered.data());
  env.push_back(nullptr);
  std::string sh = "sh", dashC = "-c";
  char* argv[] = {sh.data(), dashC.data(), m_Command.data(), nullptr};
  pid_t pid = -1;
  const int rc = ::posix_spawn(&pid, "/bin/sh", &actions, &attr, argv, env.data());
  posix_spawn_file_actions_destroy(&actions);
  posix_spawnattr_destroy(&attr);
  ::close(in[0]);
  ::close(out[1]);
  if (rc != 0) {
    ::close(in[1]);
    ::close(out[0]);
    return Fail("cannot start /bin/sh for the solver: " + std::string(std::strerror(rc)), false, why);
  }
  m_Pid = pid;
  m_In = in[1];
  m_Out = out[0];
  ::fcntl(m_In, F_SETFL, ::fcntl(m_In, F_GETFL) | O_NONBLOCK);
  ::fcntl(m_Out, F_SETFL, ::fcntl(m_Out, F_GETFL) | O_NONBLOCK);
  m_Buffer.clear();
  m_LinesRead = 0;
  return true;
}

bool ExternalSolver::Solve(double frequency, double tolerance, SolvedPoint& out, std::string* why) {
  if (!(std::isfinite(frequency) && frequency > 0.0))
    return Fail("cannot ask the solver for " + FormatFrequency(frequency) +
                    " (frequencies must be positive and finite)",
                false, why);
  if (!Start(why)) return false;
  const double deadline = Now() + m_Timeout;
  std::string line;
  if (!WriteRequest(frequency, deadline, why)) return false;
  if (!ReadLine(frequency, deadline, line, why)) return false;
  return ParseAnswer(line, frequency, std::isfinite(tolerance) ? std::fabs(tolerance) : 0.0, out, why);
}

bool ExternalSolver::Fail(std::string message, bool stop, std::string* why) {
  if (stop) {
    m_Broken = message;
    Stop(0.0);
  }
  if (why) *why = std::move(message);
  return false;
}

bool ExternalSolver::WriteRequest(double frequency, double deadline, std::string* why) {
  const std::string text = RequestText(frequency);
  size_t done = 0;
  while (done < text.size()) {
    if (Interrupted()) return Fail("interrupted while solving " + FormatFrequency(frequency), true, why);
    pollfd p{m_In, POLLOUT, 0};
    const int ready = ::poll(&p, 1, PollSlice(deadline));
    if (ready < 0 && errno == EINTR) continue;
    if (ready == 0 && Now() < deadline) continue;
    if (ready == 0)
      return Fail("solver took no request within " + Seconds(m_Timeout) + " at " + FormatFrequency(frequency),
                  true, why);
    const ssize_t n =
        WithoutSigpipe([&] { return ::write(m_In, text.data() + done, text.size() - done); });
    if (n > 0) {
      done += static_cast<size_t>(n);
    } else if (n < 0 && errno != EAGAIN && errno != EINTR) {
      // EPIPE: the solver has closed its stdin, most likely by exiting.
      return Fail(ExitReason(frequency), true, why);
    }
  }
  return true;
}

bool ExternalSolver::ReadLine(double frequency, double deadline, std::string& line, std::string* why) {
  size_t scanned = 0;
  for (;;) {
    const size_t eol = m_Buffer.find('\n', scanned);
    if (eol != std::string::npos) {
      line.assign(m_Buffer, 0, eol);
      m_Buffer.erase(0, eol + 1);
      scanned = 0;
      ++m_LinesRead;
      if (!line.empty() && line.back() == '\r') line.pop_back();
      // Blank lines carry nothing; a solver may separate answers with them.
      if (line.find_first_not_of(" \t") == std::string::npos) continue;
      return true;
    }
    scanned = m_Buffer.size();
    if (m_Buffer.size() > kMaxLineBytes)
      return Fail("line " + std::to_string(m_LinesRead + 1) + " of the solver's output is longer than " +
                      std::to_string(kMaxLineBytes >> 20) + " MB",
                  true, why);
    if (Interrupted()) return Fail("interrupted while solving " + FormatFrequency(frequency), true, why);
    pollfd p{m_Out, POLLIN, 0};
    const int ready = ::poll(&p, 1, PollSlice(deadline));
    if (ready < 0 && errno == EINTR) continue;
    if (ready == 0 && Now() < deadline) continue;
    if (ready == 0)
      return Fail("solver answered no JSON within " + Seconds(m_Timeout) + " at " + FormatFrequency(frequency) +
                      " (does it flush its output after each answer?)",
                  true, why);
    char chunk[65536];
    const ssize_t n = ::read(m_Out, chunk, sizeof chunk);
    if (n > 0) {
      m_Buffer.append(chunk, static_cast<size_t>(n));
    } else if (n == 0) {
      return Fail(ExitReason(frequency), true, why);
    } else if (errno != EAGAIN && errno != EINTR) {
      return Fail("cannot read the solver's output: " + std::string(std::strerror(errno)), true, why);
    }
  }
}

std::string ExternalSolver::ExitReason(double frequency) {
  const std::string at = " while solving " + FormatFrequency(frequency);
  siginfo_t info;
  // It has closed its end of a pipe; an exiting process does that just before
  // it is gone, so a short wait tells a crash from a closed stream.
  if (m_Pid > 0 && WaitExited(m_Pid, 1.0, &info, m_Interrupt)) {
    if (info.si_code == CLD_EXITED) {
      std::string hint;
      if (info.si_status == 127) hint = " (command not found?)";
      if (info.si_status == 126) hint = " (command not executable?)";
      return "solver exited with status " + std::to_string(info.si_status) + at + hint;
    }
    const char* name = ::strsignal(info.si_status);
    return "solver was killed by signal " + std::to_string(info.si_status) + " (" +
           (name ? name : "unknown") + ")" + at;
  }
  return "solver closed its output" + at;
}

bool ExternalSolver::ParseAnswer(const std::string& line, double frequency, double tolerance, SolvedPoint& out,
                                 std::string* why) {
  const std::string where = "line " + std::to_string(m_LinesRead) + " of the solver's output (answer for " +
                            FormatFrequency(frequency) + "): ";
  json answer;
  try {
    answer = json::parse(line);
  } catch (const json::exception& e) {
    // A whole line that holds a number we cannot represent is a bad answer in
    // step with its request; anything else that is not JSON (a banner, a log
    // line) may be followed by more, so the conversation cannot be trusted.
    // Python's json module writes NaN and Infinity, which JSON does not have.
    if (line.find("NaN") != std::string::npos || line.find("Infinity") != std::string::npos)
      return Fail(where + "non-finite number (NaN or Infinity) in the answer", false, why);
    if (dynamic_cast<const json::out_of_range*>(&e) ||
        std::string_view(e.what()).find("number overflow") != std::string_view::npos)
      return Fail(where + "number out of the range of a double in the answer", false, why);
    return Fail(where + "expected one JSON object per line, got " + Excerpt(line), true, why);
  }
  if (!answer.is_object()) return Fail(where + "expected a JSON object, got " + Excerpt(line), false, why);
  if (const auto e = answer.find("error"); e != answer.end() && !e->is_null())
    return Fail("solver could not solve " + FormatFrequency(frequency) + ": " +
                    (e->is_string() ? e->get<std::string>() : e->dump()),
                false, why);

  const auto f = answer.find("frequency");
  if (f == answer.end() || !f->is_number() || !std::isfinite(f->get<double>()))
    return Fail(where + "expected \"frequency\": the solved frequency in Hz", false, why);
  const double solved = f->get<double>();
  // The relative slack admits an answer that prints the request with 12 or
  // more significant digits when no tolerance is allowed.
  if (std::fabs(solved - frequency) > tolerance + 1e-12 * std::fabs(frequency))
    return Fail(where + "solved " + FormatFrequency(solved) + ", more than the tolerance " +
                    FormatFrequency(tolerance) + " away from the requested frequency",
                false, why);

  const auto s = answer.find("s");
  if (s == answer.end() || !s->is_array() || s->empty())
    return Fail(where + "expected \"s\": the S matrix as a list of rows of [re, im] pairs", false, why);
  const int n = m_NumPorts > 0 ? m_NumPorts : static_cast<int>(s->size());
  if (static_cast<int>(s->size()) != n)
    return Fail(where + "\"s\" has " + std::to_string(s->size()) + " rows, expected " + std::to_string(n) +
                    " (the solver's port count)",
                false, why);
  std::string error;
  TNT::CMatrix matrix(n, n);
  for (int i = 0; i < n; ++i) {
    const json& row = (*s)[static_cast<size_t>(i)];
    if (!row.is_array() || static_cast<int>(row.size()) != n)
      return Fail(where + "s[" + std::to_string(i) + "] should be a row of " + std::to_string(n) + " [re, im] pairs",
                  false, why);
    for (int j = 0; j < n; ++j)
      if (!ReadComplex(row[static_cast<size_t>(j)], "s[" + std::to_string(i) + "][" + std::to_string(j) + "]",
                       matrix[i][j], error))
        return Fail(where + error, false, why);
  }
  std::optional<TNT::CVector> z, gamma, zpv, zvi;
  if (!ReadPortVector(answer, "port_impedance", n, z, error) || !ReadPortVector(answer, "gamma", n, gamma, error) ||
      !ReadPortVector(answer, "port_impedance_zpv", n, zpv, error) ||
      !ReadPortVector(answer, "port_impedance_zvi", n, zvi, error))
    return Fail(where + error, false, why);
  if (z)
    for (int i = 0; i < n; ++i)
      if ((*z)[i] == TNT::Complex(0.0))
        return Fail(where + "port_impedance[" + std::to_string(i) + "] is zero", false, why);

  m_NumPorts = n;
  out.frequency = solved;
  out.s = std::move(matrix);
  out.portImpedance = std::move(z);
  out.gamma = std::move(gamma);
  out.zpv = std::move(zpv);
  out.zvi = std::move(zvi);
  return true;
}

int ExternalSolver::PollSlice(double deadline) const {
  const int millis = PollMillis(deadline);
  if (!m_Interrupt) return millis;
  return millis < 0 || millis > 50 ? 50 : millis;
}

void ExternalSolver::Stop(double graceSeconds) {
  if (m_In >= 0) ::close(m_In);
  m_In = -1;
  if (m_Pid > 0) {
    // A well-behaved solver ends when its stdin closes; give it that chance,
    // then ask, then insist. The leader stays unreaped until the group has
    // been signalled, so the group id still names our solver's group. An
    // interrupted sweep gives no grace: the user wants it to stop now.
    if (!WaitExited(m_Pid, Interrupted() ? 0.0 : graceSeconds, nullptr, m_Interrupt)) {
      ::kill(-m_Pid, SIGTERM);
      if (!WaitExited(m_Pid, 0.5, nullptr)) ::kill(-m_Pid, SIGKILL);
    }
    // Whatever the solver left running in its group goes too.
    ::kill(-m_Pid, SIGKILL);
    while (::waitpid(m_Pid, nullptr, 0) < 0 && errno == EINTR) {
    }
    m_Pid = -1;
  }
  if (m_Out >= 0) ::close(m_Out);
  m_Out = -1;
  m_Buffer.clear();
}

}  // namespace sparam
