// Buffered token output for the export writers.
#include "core/TokenOstream.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "core/OutputFile.h"

namespace io {
namespace {
// Export files run to hundreds of megabytes; a large buffer keeps the number
// of system calls low.
constexpr size_t kBufferBytes = 1 << 20;
}  // namespace

CToken_ostream::CToken_ostream(const std::filesystem::path& path) {
  m_Fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
  if (m_Fd < 0) m_Errno = errno;
  m_Open = m_WasOpen = m_Fd >= 0;
  m_Buffer.reserve(kBufferBytes);
}

CToken_ostream::CToken_ostream(COutputFile& out) : m_Sink(&out) {
  m_Open = m_WasOpen = out.IsOpen();
  if (!m_Open) m_Errno = EBADF;
  m_Buffer.reserve(kBufferBytes);
}

CToken_ostream::~CToken_ostream() { Close(); }

// Hands the buffer to the file; false (and the stream failed) when that fails.
bool CToken_ostream::Drain() {
  if (m_Failed || m_Buffer.empty()) return !m_Failed;
  bool ok = true;
  if (m_Sink) {
    ok = m_Sink->Write(m_Buffer.data(), m_Buffer.size());
  } else {
    const char* data = m_Buffer.data();
    size_t size = m_Buffer.size();
    while (ok && size > 0) {
      const ssize_t n = ::write(m_Fd, data, size);
      if (n < 0 && errno == EINTR) continue;
      if (n < 0) {
        m_Errno = errno;
        ok = false;
      } else {
        data += n;
        size -= static_cast<size_t>(n);
      }
    }
  }
  m_Buffer.clear();
  if (!ok) m_Failed = true;
  return ok;
}

bool CToken_ostream::Close() {
  if (!m_Open) return !m_Failed && m_WasOpen;
  Drain();
  if (m_Fd >= 0 && ::close(m_Fd) != 0 && !m_Failed) {
    m_Errno = errno;
    m_Failed = true;
  }
  m_Fd = -1;
  m_Open = false;
  return !m_Failed;
}

std::string CToken_ostream::FailureReason() const {
  if (m_Sink && !m_Sink->WriteError().empty()) return m_Sink->WriteError();
  if (m_Errno != 0) return SystemReason(m_Errno);
  return m_Failed || !m_WasOpen ? "the output was not written" : "";
}

void CToken_ostream::SetPrecision(int digits) { m_Precision = digits < 0 ? 0 : digits; }

void CToken_ostream::Write(const char* data, size_t size) {
  if (fail() || size == 0) return;
  if (m_Buffer.size() + size > kBufferBytes && !Drain()) return;
  if (size >= kBufferBytes) {
    // Too big to be worth copying: straight through, after what was buffered.
    m_Buffer.assign(data, size);
    Drain();
    return;
  }
  m_Buffer.append(data, size);
}

CToken_ostream& CToken_ostream::operator<<(double value) {
  if (fail()) return *this;
  if (m_Format && m_LastWasNumber) Write(" ", 1);
  char buf[64];
  const int n = std::snprintf(buf, sizeof buf, "%.*g", m_Precision, value);
  if (n > 0 && static_cast<size_t>(n) < sizeof buf) {
    Write(buf, static_cast<size_t>(n));
  } else if (n > 0) {
    // Very high precisions need more room; never cut a number short.
    std::string wide(static_cast<size_t>(n) + 1, '\0');
    std::snprintf(wide.data(), wide.size(), "%.*g", m_Precision, value);
    Write(wide.data(), static_cast<size_t>(n));
  }
  m_LastWasNumber = true;
  return *this;
}

CToken_ostream& CToken_ostream::operator<<(int value) {
  if (fail()) return *this;
  if (m_Format && m_LastWasNumber) Write(" ", 1);
  char buf[16];
  const int n = std::snprintf(buf, sizeof buf, "%d", value);
  if (n > 0) Write(buf, static_cast<size_t>(n));
  m_LastWasNumber = true;
  return *this;
}

CToken_ostream& CToken_ostream::operator<<(const char* text) {
  Write(text, std::strlen(text));
  m_LastWasNumber = false;
  return *this;
}

CToken_ostream& CToken_ostream::operator<<(const AString& text) {
  Write(text.data(), text.size());
  m_LastWasNumber = false;
  return *this;
}

void CToken_ostream::Printf(const char* format, ...) {
  m_LastWasNumber = false;
  if (fail()) return;
  char buf[256];
  va_list args;
  va_start(args, format);
  va_list again;
  va_copy(again, args);
  const int n = std::vsnprintf(buf, sizeof buf, format, args);
  va_end(args);
  if (n < 0) {
    m_Failed = true;
  } else if (static_cast<size_t>(n) < sizeof buf) {
    Write(buf, static_cast<size_t>(n));
  } else {
    std::string wide(static_cast<size_t>(n) + 1, '\0');
    std::vsnprintf(wide.data(), wide.size(), format, again);
    Write(wide.data(), static_cast<size_t>(n));
  }
  va_end(again);
}

void CToken_ostream::EndLine() {
  Write("\n", 1);
  m_LastWasNumber = false;
}

void CToken_ostream::EndDataLine() {
  Write("\n", 1);
  m_LastWasNumber = false;
}

}  // namespace io
