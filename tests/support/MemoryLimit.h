// Runs a piece of code in a child process whose address space may grow by
// at most `bytes` beyond what it holds at the fork (setrlimit RLIMIT_AS):
// an input that makes a reader allocate what the input does not hold fails
// there with std::bad_alloc (reported as such) instead of going unnoticed on
// a machine with memory to spare. The child's result comes back through a
// pipe as text; a child that dies, or runs past `seconds`, says so.
//
// AddressSanitizer reserves terabytes of address space for its shadow
// memory, so under it no limit is set: the code still runs in a child, and
// the sanitizer itself refuses absurd allocation sizes.
#pragma once

#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <exception>
#include <functional>
#include <new>
#include <string>

#if defined(__SANITIZE_ADDRESS__)
#define SPARAMLIB_TEST_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define SPARAMLIB_TEST_ASAN 1
#endif
#endif

namespace testing_support {

// Bytes of address space the process holds now.
inline size_t AddressSpaceBytes() {
  FILE* f = std::fopen("/proc/self/statm", "r");
  if (!f) return 0;
  unsigned long pages = 0;
  const int got = std::fscanf(f, "%lu", &pages);
  std::fclose(f);
  return got == 1 ? pages * static_cast<size_t>(::sysconf(_SC_PAGESIZE)) : 0;
}

inline std::string RunWithMemoryLimit(size_t bytes, const std::function<std::string()>& body,
                                      unsigned seconds = 30) {
  int fds[2];
  if (::pipe(fds) != 0) return "pipe failed";
  const pid_t pid = ::fork();
  if (pid < 0) return "fork failed";
  if (pid == 0) {
    ::close(fds[0]);
    ::alarm(seconds);
#ifndef SPARAMLIB_TEST_ASAN
    const rlim_t limit = AddressSpaceBytes() + bytes;
    const rlimit as{limit, limit};
    ::setrlimit(RLIMIT_AS, &as);
#else
    (void)bytes;
#endif
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
