// io::CToken_ostream: the output stream the export writers use. A buffered
// file with a user precision for its own number output, printf-style output
// with formats built at run time, and two line-end operations.
#pragma once

#include <filesystem>
#include <string>

#include "core/AString.h"

namespace io {

class COutputFile;

class CToken_ostream {
 public:
  // Opens (truncates) the file for writing. A stream that could not be
  // opened reports fail() and ignores every output.
  explicit CToken_ostream(const std::filesystem::path& path);
  // Writes into `out`, which the caller opened and commits after Close();
  // the stream fails as soon as a write into it fails.
  explicit CToken_ostream(COutputFile& out);
  ~CToken_ostream();
  CToken_ostream(const CToken_ostream&) = delete;
  CToken_ostream& operator=(const CToken_ostream&) = delete;

  // True when the file could not be opened or a write has failed.
  bool fail() const { return !m_Open || m_Failed; }

  // Token formatting: when on (the default), the stream's own number output
  // puts one blank between two numbers that would otherwise touch.
  void Format(bool on) { m_Format = on; }
  // Significant digits of the stream's own number output ("%.<p>g").
  void SetPrecision(int digits);
  int GetPrecision() const { return m_Precision; }

  // The stream's own output.
  CToken_ostream& operator<<(double value);
  CToken_ostream& operator<<(int value);
  CToken_ostream& operator<<(const char* text);
  CToken_ostream& operator<<(const AString& text);

  // printf-style output; the format may be built at run time.
  void Printf(const char* format, ...) __attribute__((format(printf, 2, 3)));

  // Line end after header and comment lines (and the empty line behind a record).
  void EndLine();
  // Line end after a data line.
  void EndDataLine();

  // Flushes and closes; false when anything failed. Called by the destructor.
  bool Close();

  // The system's reason for the first failure ("No space left on device");
  // empty when nothing failed.
  std::string FailureReason() const;

 private:
  void Write(const char* data, size_t size);
  bool Drain();

  int m_Fd = -1;                   // a file opened by name
  COutputFile* m_Sink = nullptr;   // or the caller's output
  std::string m_Buffer;
  int m_Errno = 0;
  bool m_Open = false;
  bool m_Failed = false;
  bool m_WasOpen = false;
  bool m_Format = true;
  bool m_LastWasNumber = false;
  int m_Precision = 6;
};

}  // namespace io
