// Line-by-line input for the network-file readers: a file read in large
// blocks (never held whole, so a big file costs a block of memory, not its
// size) or text already in memory, handed out a line at a time or as the
// whole lines buffered; and number tokens parsed as std::from_chars does.
#pragma once

#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace nd {

// The longest line the readers take, in bytes without its line end. A file
// is read a block at a time, but one line must fit the buffer whole; this
// bound keeps a file without line ends (or /dev/zero) from being buffered
// until memory runs out, while any real line, even a record of thousands of
// ports on one line, is far shorter. The project-file reader has the same
// bound (io::kMaxLineBytes).
inline constexpr size_t kMaxLineBytes = size_t{64} << 20;

class CLineReader {
 public:
  // Lines of text in memory (not copied: it must outlive the reader).
  explicit CLineReader(std::string_view text);
  // Lines of a file. `error()` tells when it could not be opened.
  explicit CLineReader(const std::filesystem::path& path);
  ~CLineReader();
  CLineReader(const CLineReader&) = delete;
  CLineReader& operator=(const CLineReader&) = delete;

  // The next line without its line end ("\n", "\r\n" or "\r\n" split by a
  // block boundary); false at the end of the input, after a read error or
  // at a line longer than kMaxLineBytes (then LineTooLong() is true and
  // LineNumber() is that line's number). The view stays valid until the
  // next call.
  bool Next(std::string_view& line);
  bool LineTooLong() const { return m_TooLong; }
  // 1-based number of the line Next returned last.
  long LineNumber() const { return m_Line; }
  // The buffered lines after the one Next returned last, up to and
  // including the last line end in the buffer (empty when no whole line is
  // buffered): a parser may read them in place, then Skip what it used.
  // Valid until the next call of Next or Skip.
  std::string_view WholeLines() const;
  // Marks the first `bytes` of WholeLines(), `lines` whole lines, as read.
  void Skip(size_t bytes, long lines) {
    m_Text.remove_prefix(bytes);
    m_Line += lines;
  }
  // Empty, or why the file could not be opened or read.
  const std::string& error() const { return m_Error; }

 private:
  struct Free {
    void operator()(char* p) const { std::free(p); }
  };

  bool Fill();
  void FindWholeEnd();
  bool TooLong();

  int m_Fd = -1;
  std::string_view m_Text;  // unread text (memory) or unread buffer bytes
  // Held by malloc, so that growing it for a long line moves no bytes (a
  // large block is remapped) and needs no room for two copies at once.
  std::unique_ptr<char, Free> m_Buffer;
  size_t m_Capacity = 0;
  const char* m_WholeEnd = nullptr;  // past the last '\n' of the text or the buffer
  bool m_Eof = false;
  bool m_TooLong = false;
  long m_Line = 0;
  std::string m_Error;
};

// What the line-based readers share: a pass over the lines that stops at the
// first failure, and that failure as "file:line:column: what".
class CLineParser {
 public:
  explicit CLineParser(std::string name) : m_Name(std::move(name)) {}
  virtual ~CLineParser() = default;

 protected:
  // Hands every line to Line() until a failure or Stop(), then sets the
  // line number past the last line (for errors at the end). False on a
  // failure, a read error included.
  bool RunLines(CLineReader& lines);
  virtual void Line(std::string_view line) = 0;
  // May take whole lines straight from `text` (the reader's WholeLines(),
  // so it ends with '\n'; its first line is line `firstLine`) before they
  // go through Line() one by one: returns the bytes of the lines it took and
  // their count in `lines`. Taking none hands the next line to Line().
  virtual size_t Lines(std::string_view text, long firstLine, long& lines) {
    (void)text;
    (void)firstLine;
    lines = 0;
    return 0;
  }
  // Keeps the first failure only; `column` is 0-based.
  void Fail(size_t column, const std::string& what);
  void Stop() { m_Stopped = true; }

  std::string m_Name;
  long m_Line = 0;
  bool m_Failed = false;
  bool m_Stopped = false;
  std::string m_Error;
};

// One whitespace-separated token and where it starts (0-based column).
struct Token {
  std::string_view text;
  size_t column = 0;
};

// Splits `line` at blanks, tabs and carriage returns: calls f(Token) for
// each token until f returns false. Returns false when f stopped it.
template <class F>
bool ForEachToken(std::string_view line, F&& f) {
  size_t i = 0;
  const size_t n = line.size();
  while (true) {
    while (i < n && (line[i] == ' ' || line[i] == '\t' || line[i] == '\r')) ++i;
    if (i == n) return true;
    const size_t start = i;
    while (i < n && line[i] != ' ' && line[i] != '\t' && line[i] != '\r') ++i;
    if (!f(Token{line.substr(start, i - start), start})) return false;
  }
}

// A whole token as a double (an optional leading '+' allowed, as printf
// writes and C reads). False for anything else, or out of range.
bool ParseNumber(std::string_view token, double& value);

// Lower-case ASCII copy, and trimming of blanks, tabs and carriage returns.
std::string Lower(std::string_view s);
std::string_view Trim(std::string_view s);

}  // namespace nd
