// Runs a piece of code as if the disk filled up after `bytes` bytes: in a
// child process whose file-size limit is `bytes`, with SIGXFSZ ignored, so a
// write past the limit fails with EFBIG as it would with ENOSPC. The child's
// result comes back through a pipe as text.
#pragma once

#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <string>

namespace testing_support {

inline std::string RunWithFileSizeLimit(size_t bytes, const std::function<std::string()>& body) {
  int fds[2];
  if (::pipe(fds) != 0) return "pipe failed";
  const pid_t pid = ::fork();
  if (pid < 0) return "fork failed";
  if (pid == 0) {
    ::close(fds[0]);
    ::signal(SIGXFSZ, SIG_IGN);
    const rlimit limit{bytes, bytes};
    ::setrlimit(RLIMIT_FSIZE, &limit);
    const std::string result = body();
    // Reporting through a pipe is not limited by RLIMIT_FSIZE.
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
  if (!WIFEXITED(status)) out += " [child died]";
  return out;
}

}  // namespace testing_support
