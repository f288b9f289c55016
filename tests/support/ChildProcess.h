// Runs `body` in a forked child after `limit` has set the child's limits,
// and returns what the body returned, through a pipe (which no file-size or
// memory limit of the child touches). An exception, a signal, a non-zero
// exit or running past `seconds` is appended in brackets.
#pragma once

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <exception>
#include <functional>
#include <new>
#include <string>

namespace testing_support {

inline std::string RunInChild(const std::function<void()>& limit, const std::function<std::string()>& body,
                              unsigned seconds = 30) {
  int fds[2];
  if (::pipe(fds) != 0) return "pipe failed";
  const pid_t pid = ::fork();
  if (pid < 0) return "fork failed";
  if (pid == 0) {
    ::close(fds[0]);
    ::alarm(seconds);
    limit();
    std::string result;
    try {
      result = body();
    } catch (const std::bad_alloc&) {
      result = "[std::bad_alloc]";
    } catch (const std::exception& e) {
      result = std::string("[exception: ") + e.what() + "]";
    }
    size_t done = 0;
    while (done < result.size()) {
      const ssize_t n = ::write(fds[1], result.data() + done, result.size() - done);
      if (n <= 0) break;
      done += static_cast<size_t>(n);
    }
    ::_exit(0);
  }
  ::close(fds[1]);
  std::string out;
  char buf[4096];
  for (ssize_t n; (n = ::read(fds[0], buf, sizeof buf)) > 0;) out.append(buf, static_cast<size_t>(n));
  ::close(fds[0]);
  int status = 0;
  ::waitpid(pid, &status, 0);
  if (WIFSIGNALED(status)) {
    out += WTERMSIG(status) == SIGALRM ? " [child ran out of time]"
                                       : " [child died of signal " + std::to_string(WTERMSIG(status)) + "]";
  } else if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
    out += " [child exited with " + std::to_string(WEXITSTATUS(status)) + "]";
  }
  return out;
}

}  // namespace testing_support
