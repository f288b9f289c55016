// Buffered token output for the export writers.
#include "core/TokenOstream.h"

#include <cstdarg>
#include <cstring>
#include <string>

namespace io {

CToken_ostream::CToken_ostream(const std::filesystem::path& path) {
  m_File = std::fopen(path.c_str(), "wb");
  m_WasOpen = m_File != nullptr;
  // Export files run to hundreds of megabytes; a large buffer keeps the
  // number of system calls low.
  if (m_File) std::setvbuf(m_File, nullptr, _IOFBF, 1 << 20);
}

CToken_ostream::~CToken_ostream() { Close(); }

bool CToken_ostream::Close() {
  if (!m_File) return !m_Failed && m_WasOpen;
  if (std::fclose(m_File) != 0) m_Failed = true;
  m_File = nullptr;
  return !m_Failed;
}

void CToken_ostream::SetPrecision(int digits) { m_Precision = digits < 0 ? 0 : digits; }

void CToken_ostream::Write(const char* data, size_t size) {
  if (fail() || size == 0) return;
  if (std::fwrite(data, 1, size, m_File) != size) m_Failed = true;
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
  va_list args;
  va_start(args, format);
  if (std::vfprintf(m_File, format, args) < 0) m_Failed = true;
  va_end(args);
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
