// Complete-or-absent output files.
#include "core/OutputFile.h"

#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <string_view>

namespace io {
namespace {

namespace fs = std::filesystem;

std::atomic<unsigned> g_tempCounter{0};

// Follows symbolic links to the path that will really be written; a link to
// a file not made yet resolves to that file. Gives up on loops as the kernel
// does (40 links).
fs::path ResolveLinks(fs::path path) {
  for (int hops = 0; hops < 40; ++hops) {
    std::error_code ec;
    if (!fs::is_symlink(fs::symlink_status(path, ec))) return path;
    fs::path next = fs::read_symlink(path, ec);
    if (ec) return path;
    path = next.is_absolute() ? next : path.parent_path() / next;
  }
  return path;
}

// Paths that name a descriptor the process already has: written in place
// (renaming over /proc/self/fd/1 would replace the file the shell redirected
// into behind its back).
bool NamesOpenDescriptor(const fs::path& path) {
  const std::string& s = path.native();
  return s.rfind("/proc/", 0) == 0 || s.rfind("/dev/fd/", 0) == 0 || s == "/dev/stdout" ||
         s == "/dev/stderr";
}

// "<name>.tmp<pid>.<n>": the names our writers give their named temporaries.
bool ParseTemporaryName(std::string_view name, std::string_view base, pid_t* pid) {
  if (name.size() <= base.size() + 4 || name.substr(0, base.size()) != base ||
      name.substr(base.size(), 4) != ".tmp") {
    return false;
  }
  name.remove_prefix(base.size() + 4);
  const size_t dot = name.find('.');
  if (dot == 0 || dot == std::string_view::npos || dot + 1 == name.size()) return false;
  long long value = 0;
  for (size_t i = 0; i < name.size(); ++i) {
    const char c = name[i];
    if (i == dot) continue;
    if (c < '0' || c > '9') return false;
    if (i < dot && value < (1LL << 40)) value = value * 10 + (c - '0');
  }
  *pid = static_cast<pid_t>(value);
  return value > 0;
}

}  // namespace

std::string SystemReason(int err) { return std::strerror(err); }

void RemoveStaleTemporaries(const fs::path& target) {
  const fs::path dir = target.parent_path().empty() ? fs::path(".") : target.parent_path();
  const std::string base = target.filename().string();
  DIR* d = ::opendir(dir.c_str());
  if (!d) return;
  while (const dirent* entry = ::readdir(d)) {
    pid_t pid = 0;
    if (!ParseTemporaryName(entry->d_name, base, &pid)) continue;
    // Only a writer that is gone: another process may be saving right now.
    if (pid != ::getpid() && ::kill(pid, 0) != 0 && errno == ESRCH)
      ::unlinkat(::dirfd(d), entry->d_name, 0);
  }
  ::closedir(d);
}

COutputFile::~COutputFile() { Abandon(); }

bool COutputFile::Fail(std::string* why, const char* step, int err) {
  if (why) *why = std::string(step) + ": " + SystemReason(err);
  return false;
}

bool COutputFile::Open(const fs::path& path, std::string* why, bool allowStandardOutput) {
  Abandon();
  m_WriteErrno = 0;
  if (allowStandardOutput && path == "-") {
    m_Target = path;
    m_Fd = STDOUT_FILENO;
    m_OwnsFd = false;
    m_Direct = true;
    return true;
  }
  m_Target = ResolveLinks(path);
  struct stat st {};
  const bool exists = ::stat(m_Target.c_str(), &st) == 0;
  if (NamesOpenDescriptor(m_Target) ||
      (exists && (S_ISFIFO(st.st_mode) || S_ISCHR(st.st_mode)))) {
    m_Fd = ::open(m_Target.c_str(), O_WRONLY | O_CLOEXEC);
    if (m_Fd < 0) return Fail(why, "cannot open the output", errno);
    m_Direct = true;
    m_OwnsFd = true;
    return true;
  }
  if (exists && !S_ISREG(st.st_mode))
    return Fail(why, "cannot replace the file", S_ISDIR(st.st_mode) ? EISDIR : EINVAL);
  if (!OpenTemporary(why)) return false;
  // A replaced file keeps its permissions; a new one gets the usual 0666
  // less the umask, as the unnamed temporary was created with.
  if (exists) ::fchmod(m_Fd, st.st_mode & 07777);
  return true;
}

bool COutputFile::OpenTemporary(std::string* why) {
  RemoveStaleTemporaries(m_Target);
  m_Direct = false;
  m_OwnsFd = true;
  // Same directory as the target, so the final rename cannot cross file
  // systems. An unnamed file vanishes by itself if we are killed.
  fs::path dir = m_Target.parent_path();
  if (dir.empty()) dir = ".";
  m_Fd = ::open(dir.c_str(), O_TMPFILE | O_WRONLY | O_CLOEXEC, 0666);
  if (m_Fd >= 0) {
    m_Unnamed = true;
    return true;
  }
  if (errno != EOPNOTSUPP && errno != EISDIR && errno != EINVAL)
    return Fail(why, "cannot create a temporary file", errno);
  // File systems without unnamed files: a name the next save recognises.
  m_Unnamed = false;
  for (int attempt = 0; attempt < 100 && m_Fd < 0; ++attempt) {
    m_TempName = m_Target.string() + ".tmp" + std::to_string(::getpid()) + "." +
                 std::to_string(g_tempCounter.fetch_add(1));
    m_Fd = ::open(m_TempName.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (m_Fd < 0 && errno != EEXIST) return Fail(why, "cannot create a temporary file", errno);
  }
  if (m_Fd < 0) return Fail(why, "cannot create a temporary file", EEXIST);
  return true;
}

bool COutputFile::Write(const char* data, size_t size) {
  if (m_Fd < 0 || m_WriteErrno != 0) return false;
  while (size > 0) {
    const ssize_t n = ::write(m_Fd, data, size);
    if (n < 0) {
      if (errno == EINTR) continue;
      m_WriteErrno = errno;
      return false;
    }
    data += n;
    size -= static_cast<size_t>(n);
  }
  return true;
}

std::string COutputFile::WriteError() const {
  return m_WriteErrno ? SystemReason(m_WriteErrno) : std::string();
}

bool COutputFile::Commit(std::string* why) {
  if (m_Fd < 0) return Fail(why, "write failed", EBADF);
  if (m_WriteErrno != 0) {
    const int err = m_WriteErrno;
    Abandon();
    return Fail(why, "write failed", err);
  }
  if (m_Direct) {
    const int fd = m_Fd;
    const bool owned = m_OwnsFd;
    m_Fd = -1;
    if (owned && ::close(fd) != 0) return Fail(why, "close failed", errno);
    return true;
  }
  const auto failAndDrop = [&](const char* step) {
    const int err = errno;
    Abandon();
    return Fail(why, step, err);
  };
  if (::fsync(m_Fd) != 0) return failAndDrop("flush to disk failed");
  if (m_Unnamed) {
    // Give the unnamed file a name beside the target, then rename that over
    // the target: link() cannot replace an existing file.
    m_TempName = m_Target.string() + ".tmp" + std::to_string(::getpid()) + "." +
                 std::to_string(g_tempCounter.fetch_add(1));
    const std::string self = "/proc/self/fd/" + std::to_string(m_Fd);
    if (::linkat(AT_FDCWD, self.c_str(), AT_FDCWD, m_TempName.c_str(), AT_SYMLINK_FOLLOW) != 0) {
      m_TempName.clear();
      return failAndDrop("cannot replace the file");
    }
    m_Unnamed = false;
  }
  if (::close(m_Fd) != 0) {
    m_Fd = -1;
    return failAndDrop("close failed");
  }
  m_Fd = -1;
  if (::rename(m_TempName.c_str(), m_Target.c_str()) != 0) return failAndDrop("cannot replace the file");
  m_TempName.clear();
  // Make the rename itself durable; a failure here loses nothing already saved.
  fs::path dir = m_Target.parent_path();
  if (dir.empty()) dir = ".";
  const int dfd = ::open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (dfd >= 0) {
    ::fsync(dfd);
    ::close(dfd);
  }
  return true;
}

void COutputFile::Abandon() {
  if (m_Fd >= 0 && m_OwnsFd) ::close(m_Fd);
  m_Fd = -1;
  if (!m_TempName.empty()) ::unlink(m_TempName.c_str());
  m_TempName.clear();
  m_Unnamed = false;
}

}  // namespace io
