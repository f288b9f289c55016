// Runs the sparam binary as a user would and collects its exit status,
// standard output and standard error; optionally with a file-size limit
// (SIGXFSZ ignored), so that a write fails the way it does on a full disk.
#pragma once

#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <vector>

namespace testing_support {

struct SparamRun {
  int status = -1;  // -1: did not exit normally
  std::string out, err;
};

inline std::string ReadWholeFile(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

// Standard output goes to a file in `scratch` (it can be large), standard
// error through a pipe, so that neither is cut by `fileSizeLimit` (bytes,
// when given).
inline SparamRun RunSparam(const std::string& binary, const std::vector<std::string>& args,
                           const std::filesystem::path& scratch,
                           std::optional<size_t> fileSizeLimit = std::nullopt) {
  const std::string out = (scratch / "run.stdout").string();
  int errPipe[2];
  if (::pipe(errPipe) != 0) return {};
  const pid_t pid = ::fork();
  if (pid == 0) {
    const int o = ::open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    ::dup2(o, 1);
    ::dup2(errPipe[1], 2);
    ::close(errPipe[0]);
    if (fileSizeLimit) {
      ::signal(SIGXFSZ, SIG_IGN);
      const rlimit limit{*fileSizeLimit, *fileSizeLimit};
      ::setrlimit(RLIMIT_FSIZE, &limit);
    }
    std::vector<std::string> all = {binary};
    all.insert(all.end(), args.begin(), args.end());
    std::vector<char*> argv;
    for (std::string& a : all) argv.push_back(a.data());
    argv.push_back(nullptr);
    ::execv(binary.c_str(), argv.data());
    ::_exit(127);
  }
  ::close(errPipe[1]);
  SparamRun run;
  char buffer[4096];
  for (ssize_t n; (n = ::read(errPipe[0], buffer, sizeof buffer)) > 0;)
    run.err.append(buffer, static_cast<size_t>(n));
  ::close(errPipe[0]);
  int status = 0;
  ::waitpid(pid, &status, 0);
  if (WIFEXITED(status)) run.status = WEXITSTATUS(status);
  run.out = ReadWholeFile(out);
  std::filesystem::remove(out);
  return run;
}

}  // namespace testing_support
