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

#include "support/ChildProcess.h"

namespace testing_support {

inline std::string RunWithFileSizeLimit(size_t bytes, const std::function<std::string()>& body) {
  return RunInChild(
      [bytes] {
        ::signal(SIGXFSZ, SIG_IGN);
        const rlimit limit{bytes, bytes};
        ::setrlimit(RLIMIT_FSIZE, &limit);
      },
      body);
}

}  // namespace testing_support
