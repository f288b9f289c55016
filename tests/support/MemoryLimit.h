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

#include <sys/resource.h>
#include <unistd.h>

#include <cstdio>
#include <functional>
#include <string>

#include "support/ChildProcess.h"

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
  return RunInChild(
      [bytes] {
#ifndef SPARAMLIB_TEST_ASAN
        const rlim_t limit = AddressSpaceBytes() + bytes;
        const rlimit as{limit, limit};
        ::setrlimit(RLIMIT_AS, &as);
#else
        (void)bytes;
#endif
      },
      body, seconds);
}

}  // namespace testing_support
