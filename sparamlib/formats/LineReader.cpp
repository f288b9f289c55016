// Block-wise line reading and number tokens for the network-file readers.
#include "sparamlib/formats/LineReader.h"

#include "core/BlockText.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdint>
#include <cstring>

namespace nd {
static_assert(kMaxLineBytes == io::kMaxLineBytes, "one line limit for every reader");
namespace {

// Large enough that a read call costs nothing next to parsing its bytes,
// small enough to stay in the cache hierarchy and out of the peak memory.
constexpr size_t kBlockSize = size_t{1} << 20;

}  // namespace

CLineReader::CLineReader(std::string_view text) : m_Text(text), m_Eof(true) { FindWholeEnd(); }

CLineReader::CLineReader(const std::filesystem::path& path) {
  m_Fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (m_Fd < 0) {
    m_Error = std::strerror(errno);
    m_Eof = true;
    return;
  }
  m_Buffer.reset(static_cast<char*>(std::malloc(kBlockSize)));
  if (!m_Buffer) {
    m_Error = std::strerror(ENOMEM);
    m_Eof = true;
    return;
  }
  m_Capacity = kBlockSize;
  m_Text = std::string_view(m_Buffer.get(), 0);
}

CLineReader::~CLineReader() {
  if (m_Fd >= 0) ::close(m_Fd);
}

// Moves the unread bytes to the front of the buffer and reads more behind
// them, growing the buffer when one line fills it, up to the longest line
// (and its line end). False at the end.
bool CLineReader::Fill() {
  if (m_Eof) return false;
  const size_t kept = m_Text.size();
  if (kept > 0 && m_Text.data() != m_Buffer.get()) std::memmove(m_Buffer.get(), m_Text.data(), kept);
  if (kept == m_Capacity) {
    // Next() stops at a line longer than kMaxLineBytes, so here kept is at
    // most that and the buffer below holds the line and one byte more.
    const size_t grown = std::min(2 * m_Capacity, kMaxLineBytes + 1);
    char* const bigger = static_cast<char*>(std::realloc(m_Buffer.get(), grown));
    if (!bigger) {
      m_Error = std::strerror(ENOMEM);
      m_Eof = true;
      m_Text = std::string_view();
      return false;
    }
    (void)m_Buffer.release();
    m_Buffer.reset(bigger);
    m_Capacity = grown;
  }
  ssize_t got;
  do {
    got = ::read(m_Fd, m_Buffer.get() + kept, m_Capacity - kept);
  } while (got < 0 && errno == EINTR);
  if (got < 0) {
    m_Error = std::strerror(errno);
    m_Eof = true;
    m_Text = std::string_view();
    return false;
  }
  if (got == 0) m_Eof = true;
  m_Text = std::string_view(m_Buffer.get(), kept + static_cast<size_t>(got));
  FindWholeEnd();
  return got > 0;
}

// The line after the last one handed out is too long: it is counted, so
// that LineNumber() names it, and nothing more is read.
bool CLineReader::TooLong() {
  ++m_Line;
  m_TooLong = true;
  m_Eof = true;
  m_Text = std::string_view();
  m_WholeEnd = nullptr;
  return false;
}

bool CLineReader::Next(std::string_view& line) {
  if (m_TooLong) return false;
  while (true) {
    const void* found = m_Text.empty() ? nullptr : std::memchr(m_Text.data(), '\n', m_Text.size());
    if (found) {
      const size_t length = static_cast<size_t>(static_cast<const char*>(found) - m_Text.data());
      if (length > kMaxLineBytes) return TooLong();  // only text in memory gets here
      line = m_Text.substr(0, length);
      m_Text.remove_prefix(length + 1);
      ++m_Line;
      return true;
    }
    if (m_Text.size() > kMaxLineBytes) return TooLong();
    if (!Fill()) {
      if (!m_Error.empty() || m_Text.empty()) return false;
      if (m_Text.size() > kMaxLineBytes) return TooLong();
      line = m_Text;  // the last line has no line end
      m_Text = std::string_view();
      ++m_Line;
      return true;
    }
  }
}

// Once per block, so that asking for the whole lines costs nothing per line.
void CLineReader::FindWholeEnd() {
  const void* last = m_Text.empty() ? nullptr : ::memrchr(m_Text.data(), '\n', m_Text.size());
  m_WholeEnd = last ? static_cast<const char*>(last) + 1 : nullptr;
}

std::string_view CLineReader::WholeLines() const {
  if (m_Text.empty() || !m_WholeEnd || m_WholeEnd <= m_Text.data()) return {};
  return std::string_view(m_Text.data(), static_cast<size_t>(m_WholeEnd - m_Text.data()));
}

bool CLineParser::RunLines(CLineReader& lines) {
  std::string_view line;
  while (!m_Failed && !m_Stopped) {
    if (const std::string_view whole = lines.WholeLines(); !whole.empty()) {
      long taken = 0;
      const size_t bytes = Lines(whole, lines.LineNumber() + 1, taken);
      lines.Skip(bytes, taken);
      if (m_Failed || m_Stopped) break;
    }
    if (!lines.Next(line)) break;
    m_Line = lines.LineNumber();
    Line(line);
  }
  if (!m_Failed && lines.LineTooLong()) {
    m_Line = lines.LineNumber();
    Fail(kMaxLineBytes, "expected at most " + std::to_string(kMaxLineBytes) +
                            " bytes (64 MiB) on a line, found more");
  }
  if (!m_Failed && !lines.error().empty()) {
    m_Failed = true;
    m_Error = m_Name + ": cannot read the file: " + lines.error();
  }
  m_Line = lines.LineNumber() + 1;
  return !m_Failed;
}

void CLineParser::Fail(size_t column, const std::string& what) {
  if (m_Failed) return;
  m_Failed = true;
  m_Error = m_Name + ":" + std::to_string(m_Line) + ":" + std::to_string(column + 1) + ": " + what;
}

namespace {

// Powers of ten that a double holds exactly.
constexpr double kExactPowers[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,  1e8,  1e9,  1e10, 1e11,
                                   1e12, 1e13, 1e14, 1e15, 1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};

// Below 2^53 every whole number is a double.
constexpr std::uint64_t kExactDigits = std::uint64_t{1} << 53;

// Clinger's fast path: when the decimal digits, read as a whole number, and
// the power of ten are both exact doubles, one multiplication or division
// rounds the value correctly, so it is the double from_chars gives. Up to
// 19 digits fit an unsigned 64-bit number without overflow; whether they are
// below 2^53 is checked once at the end, so leading zeros cost nothing.
// Returns the end of the number, or null when it is no such number, which
// decides nothing: the caller must then ask from_chars.
const char* ScanShortNumber(const char* p, const char* end, double& value) {
  bool negative = false;
  if (p != end && (*p == '-' || *p == '+')) negative = *p++ == '-';
  std::uint64_t digits = 0;
  const char* const first = p;
  while (p != end && static_cast<unsigned char>(*p - '0') < 10)
    digits = digits * 10 + static_cast<unsigned char>(*p++ - '0');
  int count = static_cast<int>(p - first);
  int exponent = 0;
  if (p != end && *p == '.') {
    const char* const fraction = ++p;
    while (p != end && static_cast<unsigned char>(*p - '0') < 10)
      digits = digits * 10 + static_cast<unsigned char>(*p++ - '0');
    exponent = -static_cast<int>(p - fraction);
    count -= exponent;
  }
  if (count == 0 || count > 19) return nullptr;
  if (p != end && (*p == 'e' || *p == 'E')) {
    ++p;
    bool negativeExponent = false;
    if (p != end && (*p == '-' || *p == '+')) negativeExponent = *p++ == '-';
    if (p == end || static_cast<unsigned char>(*p - '0') >= 10) return nullptr;
    int e = 0;
    for (; p != end && static_cast<unsigned char>(*p - '0') < 10; ++p) {
      e = e * 10 + (*p - '0');
      if (e > 1000) return nullptr;
    }
    exponent += negativeExponent ? -e : e;
  }
  if (digits > kExactDigits || exponent < -22 || exponent > 22) return nullptr;
  const double m = static_cast<double>(digits);
  value = exponent < 0 ? m / kExactPowers[-exponent] : m * kExactPowers[exponent];
  if (negative) value = -value;
  return p;
}

}  // namespace

bool ParseNumber(std::string_view token, double& value) {
  const char* first = token.data();
  const char* last = first + token.size();
  if (ScanShortNumber(first, last, value) == last && first != last) return true;
  // from_chars takes no '+'; a sign before another sign is no number.
  if (first != last && *first == '+') {
    ++first;
    if (first != last && (*first == '+' || *first == '-')) return false;
  }
  const auto [end, ec] = std::from_chars(first, last, value);
  return ec == std::errc() && end == last;
}

std::string Lower(std::string_view s) {
  std::string out(s);
  for (char& c : out)
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  return out;
}

std::string_view Trim(std::string_view s) {
  const auto blank = [](char c) { return c == ' ' || c == '\t' || c == '\r'; };
  while (!s.empty() && blank(s.front())) s.remove_prefix(1);
  while (!s.empty() && blank(s.back())) s.remove_suffix(1);
  return s;
}

}  // namespace nd
