// io::COutputFile: where a command's output goes, so that a file we write is
// either complete or not there at all.
//
// A regular file (or a name that does not exist yet) is written to an
// unnamed temporary file in the same directory and put in place by one
// rename at Commit, after every byte has reached the disk. Until then the old
// file stays exactly as it was; a failure or a killed process leaves nothing
// behind. A symbolic link is followed: the file it points to is replaced and
// the link stays. A replaced file keeps its permissions.
//
// Pipes, fifos, terminals and other character devices cannot be replaced;
// they are written directly, as is "-" (standard output). Nothing but a
// regular file is ever renamed over.
#pragma once

#include <cstddef>
#include <filesystem>
#include <string>

namespace io {

class COutputFile {
 public:
  COutputFile() = default;
  ~COutputFile();  // abandons an output that was not committed
  COutputFile(const COutputFile&) = delete;
  COutputFile& operator=(const COutputFile&) = delete;

  // Opens the output for `path`; "-" means standard output when
  // `allowStandardOutput` is set. On failure `why` holds the step and the
  // system's reason ("cannot create a temporary file: Permission denied").
  bool Open(const std::filesystem::path& path, std::string* why, bool allowStandardOutput = true);

  // Writes everything or fails; the first failure's reason is kept and every
  // later call fails at once.
  bool Write(const char* data, size_t size);

  // Makes the data durable and puts the file in place. False, with the step
  // and the reason in `why`, when any write failed or this fails; the old
  // file is then untouched and no temporary remains.
  bool Commit(std::string* why);

  // Drops the output: a temporary disappears, a direct output is closed.
  void Abandon();

  bool IsOpen() const { return m_Fd >= 0; }
  // True for outputs written in place (standard output, fifos, devices).
  bool IsDirect() const { return m_Direct; }
  // The file that is replaced at Commit (a link's target), or the device.
  const std::filesystem::path& Target() const { return m_Target; }
  // The system's reason for the first failed write; empty when none failed.
  std::string WriteError() const;

 private:
  bool OpenTemporary(std::string* why);
  bool Fail(std::string* why, const char* step, int err);

  int m_Fd = -1;
  bool m_Direct = false;
  bool m_OwnsFd = true;  // false for standard output
  bool m_Unnamed = false;
  int m_WriteErrno = 0;
  std::filesystem::path m_Target;
  std::string m_TempName;  // the named temporary, when the file system has no unnamed ones
};

// Removes temporaries that a killed writer left beside `target`: names of the
// form "<target>.tmp<pid>.<n>" whose process no longer runs.
void RemoveStaleTemporaries(const std::filesystem::path& target);

// The system's description of an errno value.
std::string SystemReason(int err);

}  // namespace io
