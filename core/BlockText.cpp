// The reader of the text form of block trees (iterative, with exact error
// positions) and the whole-file load around it; the writer and the atomic
// save are in BlockTextWriter.cpp.
#include "core/BlockText.h"

#include "core/Assert.h"
#include "core/OutputFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <bit>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <cstdlib>
#include <limits>
#include <memory>
#include <vector>

#include "core/BlockTextFormat.h"

namespace io {
namespace blocktext {


// What a line past the limit is told, by the file reader and the parser alike.
std::string LineLimitExpected() {
  std::string s = "at most ";
  AppendInteger(s, static_cast<std::int64_t>(kMaxLineBytes));
  return s + " bytes (64 MiB) on a line";
}

}  // namespace blocktext

namespace {

using namespace blocktext;

class CTextReader {
 public:
  CTextReader(std::string_view text, std::string_view source, CBlock& root)
      : m_P(text.data()),
        m_End(text.data() + text.size()),
        m_LineStart(text.data()),
        m_Source(source),
        m_Root(root) {}

  // Parses everything into the root; false with m_Error set on the first error.
  bool Run();
  const std::string& Error() const { return m_Error; }

 private:
  struct Open {
    CBlock* block;
    int line;
    int column;
  };
  // One parsed value; strings and names refer to the text or to m_ValueText.
  struct Scalar {
    ValueKind kind;
    std::int64_t integer;
    double real;
    std::string_view text;
  };

  int Column(const char* at) const {
    const auto c = at - m_LineStart + 1;
    return c > std::numeric_limits<int>::max() ? std::numeric_limits<int>::max()
                                               : static_cast<int>(c);
  }

  // Line numbers as items keep them (an int; no real file has more lines).
  int ItemLine() const {
    return m_Line > std::numeric_limits<int>::max() ? std::numeric_limits<int>::max() : static_cast<int>(m_Line);
  }

  void SkipSpace();
  void LineTooLong();
  // Records the message for a place on the current line.
  bool Fail(const char* at, std::string_view expected, std::string_view found);
  // Same, for a place remembered from an earlier line.
  bool FailAt(long line, long column, std::string_view expected, std::string_view found);
  std::string Describe(const char* at) const;
  std::string DescribeWord(const char* at) const;
  std::string DescribeByte(const char* at) const;
  static std::string Quote(std::string_view s);

  bool ReadName(std::string_view& name, const char* expected);
  bool ReadString(std::string& out);
  // `owner` names the item for the message of a missing value; built only
  // on failure, so the hot path allocates nothing.
  bool ReadValue(Scalar& v, std::string_view owner, bool inList);
  bool FailValue(std::string_view owner, bool inList);
  bool ReadNumber(Scalar& v);
  bool ReadNaNPattern(const char* start, Scalar& v);
  bool ReadList(CBlock& block, std::string_view name);
  bool CloseBlock(std::vector<Open>& stack);

  const char* m_P;
  const char* m_End;
  const char* m_LineStart;
  long m_Line = 1;
  // A line past kMaxLineBytes was met: its message stands, and the reader
  // goes to the end of the text (where it fails) without another message.
  bool m_TooLong = false;
  std::string_view m_Source;
  CBlock& m_Root;
  std::string m_NameText;   // decoded quoted item name
  std::string m_ValueText;  // decoded string value
  std::string m_Error;
};

void CTextReader::SkipSpace() {
  while (m_P != m_End) {
    const char c = *m_P;
    if (c == ' ' || c == '\t' || c == '\r') {
      ++m_P;
    } else if (c == '\n') {
      if (static_cast<size_t>(m_P - m_LineStart) > kMaxLineBytes) [[unlikely]] {
        LineTooLong();
        return;
      }
      ++m_P;
      ++m_Line;
      m_LineStart = m_P;
    } else if (c == '#') {
      const void* nl = std::memchr(m_P, '\n', static_cast<size_t>(m_End - m_P));
      m_P = nl ? static_cast<const char*>(nl) : m_End;
    } else {
      return;
    }
  }
}

// Every line end passes SkipSpace (strings hold none, comments stop before
// theirs), and so does the end of the text: the one place lengths are seen.
void CTextReader::LineTooLong() {
  FailAt(m_Line, static_cast<long>(kMaxLineBytes) + 1, LineLimitExpected(), "more");
  m_TooLong = true;
  m_P = m_End;
}

std::string CTextReader::Quote(std::string_view s) {
  constexpr size_t kLimit = 40;
  std::string out;
  AppendQuoted(out, s.substr(0, kLimit));
  if (s.size() > kLimit) out.insert(out.size() - 1, "...");
  return out;
}

// The run of word characters at `at`, quoted: shows "1.2.3" or "0x10" whole
// rather than the one character where the number went wrong.
std::string CTextReader::DescribeWord(const char* at) const {
  const char* e = at;
  while (e != m_End && Is(*e, kWordChar)) ++e;
  if (e == at) return Describe(at);
  return Quote(std::string_view(at, static_cast<size_t>(e - at)));
}

std::string CTextReader::Describe(const char* at) const {
  if (at == m_End) return "end of file";
  const auto c = static_cast<unsigned char>(*at);
  if (c == '"') return "a string";
  if (Is(*at, kWordChar)) return DescribeWord(at);
  if (c > 0x20 && c < 0x7f) return std::string("'") + *at + "'";
  char buf[16];
  std::snprintf(buf, sizeof buf, "byte 0x%02X", c);
  return buf;
}

// Inside a string every byte stands for itself, so no token is shown.
std::string CTextReader::DescribeByte(const char* at) const {
  if (at == m_End) return "end of file";
  const auto c = static_cast<unsigned char>(*at);
  if (c == '\n' || c == '\r') return "end of line";
  if (c > 0x20 && c < 0x7f) return std::string("'") + *at + "'";
  char buf[16];
  std::snprintf(buf, sizeof buf, "byte 0x%02X", c);
  return buf;
}

bool CTextReader::Fail(const char* at, std::string_view expected, std::string_view found) {
  return FailAt(m_Line, Column(at), expected, found);
}

bool CTextReader::FailAt(long line, long column, std::string_view expected, std::string_view found) {
  if (m_TooLong) return false;  // the line's own message stands
  m_Error.assign(m_Source);
  m_Error += ':';
  AppendInteger(m_Error, line);
  m_Error += ':';
  AppendInteger(m_Error, column);
  m_Error += ": expected ";
  m_Error += expected;
  m_Error += ", found ";
  m_Error += found;
  return false;
}

// A bare identifier or a quoted string (decoded into m_NameText).
bool CTextReader::ReadName(std::string_view& name, const char* expected) {
  const char* start = m_P;
  if (m_P != m_End && Is(*m_P, kIdentStart)) {
    ++m_P;
    while (m_P != m_End && Is(*m_P, kIdentChar)) ++m_P;
    name = std::string_view(start, static_cast<size_t>(m_P - start));
    return true;
  }
  if (m_P != m_End && *m_P == '"') {
    if (!ReadString(m_NameText)) return false;
    name = m_NameText;
    return true;
  }
  return Fail(start, expected, Describe(start));
}

bool CTextReader::ReadString(std::string& out) {
  const char* open = m_P++;
  out.clear();
  for (;;) {
    const char* run = m_P;
    while (m_P != m_End) {
      const auto c = static_cast<unsigned char>(*m_P);
      if (c == '"' || c == '\\' || (c < 0x20 && c != '\t') || c == 0x7f) break;
      ++m_P;
    }
    out.append(run, static_cast<size_t>(m_P - run));
    if (m_P == m_End || (*m_P != '"' && *m_P != '\\')) {
      // Strings never span lines, so a missing quote is reported on its own
      // line instead of swallowing the rest of the file.
      std::string expected = "'\"' to end the string started at line ";
      AppendInteger(expected, m_Line);
      expected += ", column ";
      AppendInteger(expected, Column(open));
      return Fail(m_P, expected, DescribeByte(m_P));
    }
    if (*m_P == '"') {
      ++m_P;
      return true;
    }
    const char* escape = m_P++;
    const char e = m_P == m_End ? '\0' : *m_P;
    char decoded = 0;
    switch (e) {
      case '\\':
      case '"':
        decoded = e;
        break;
      case 'n':
        decoded = '\n';
        break;
      case 't':
        decoded = '\t';
        break;
      case 'r':
        decoded = '\r';
        break;
      case 'x': {
        unsigned value = 0;
        int digits = 0;
        const char* h = m_P + 1;
        for (; digits < 2 && h != m_End; ++digits, ++h) {
          const char d = *h;
          if (d >= '0' && d <= '9')
            value = value * 16 + static_cast<unsigned>(d - '0');
          else if ((d | 0x20) >= 'a' && (d | 0x20) <= 'f')
            value = value * 16 + static_cast<unsigned>((d | 0x20) - 'a' + 10);
          else
            break;
        }
        if (digits == 2) {
          out += static_cast<char>(value);
          m_P = h;
          continue;
        }
        return Fail(h, "two hex digits after \\x", DescribeByte(h));
      }
      default:
        break;
    }
    if (decoded == 0) {
      const auto c = static_cast<unsigned char>(e);
      const std::string found = m_P != m_End && c > 0x20 && c < 0x7f
                                    ? std::string("'\\") + e + "'"
                                    : DescribeByte(m_P);
      return Fail(escape, "an escape \\\\, \\\", \\n, \\t, \\r or \\xHH", found);
    }
    out += decoded;
    ++m_P;
  }
}

// nan(0x...) with the full 64-bit pattern; `start` is at "nan".
bool CTextReader::ReadNaNPattern(const char* start, Scalar& v) {
  static constexpr const char* kExpected = "a NaN bit pattern such as nan(0x7ff8000000000001)";
  const char* q = start + 4;  // past "nan("
  const auto fail = [&](const char* at) {
    const char* e = at;
    while (e != m_End && e - start < 40 && Is(*e, kWordChar)) ++e;
    if (e != m_End && *e == ')') ++e;
    return Fail(start, kExpected, Quote(std::string_view(start, static_cast<size_t>(e - start))));
  };
  if (m_End - q < 2 || q[0] != '0' || (q[1] | 0x20) != 'x') return fail(q);
  q += 2;
  std::uint64_t bits = 0;
  const auto r = std::from_chars(q, m_End, bits, 16);
  // At most 16 digits: leading zeros would otherwise let longer spellings in.
  if (r.ec != std::errc() || r.ptr - q > 16 || r.ptr == m_End || *r.ptr != ')')
    return fail(r.ptr);
  const double d = std::bit_cast<double>(bits);
  if (!std::isnan(d)) return fail(r.ptr);
  v.kind = ValueKind::Real;
  v.real = d;
  m_P = r.ptr + 1;
  return true;
}

bool CTextReader::ReadNumber(Scalar& v) {
  const char* start = m_P;
  const char* q = m_P;
  bool negative = false;
  if (*q == '+' || *q == '-') negative = *q++ == '-';
  // from_chars takes a minus sign but not a plus.
  const char* digits = *start == '+' ? q : start;

  if (q != m_End && Is(*q, kIdentStart)) {
    const char* e = q;
    while (e != m_End && Is(*e, kIdentChar)) ++e;
    const std::string_view word(q, static_cast<size_t>(e - q));
    if ((word == "inf" || word == "nan") && (e == m_End || !Is(*e, kWordChar))) {
      if (word == "nan" && e != m_End && *e == '(')
        return Fail(start, "nan(0x...) without a sign (the pattern holds the sign bit)",
                    Quote(std::string_view(start, static_cast<size_t>(e + 1 - start))));
      v.kind = ValueKind::Real;
      const std::uint64_t sign = negative ? kSignBit : 0;
      v.real = std::bit_cast<double>((word == "inf" ? kInfinity : kQuietNaN) | sign);
      m_P = e;
      return true;
    }
    return Fail(start, "a number", DescribeWord(start));
  }

  // Mantissa, then an optional exponent; validated here so that from_chars
  // sees exactly one well-formed number.
  size_t mantissaDigits = 0;
  bool real = false;
  while (q != m_End && Is(*q, kDigit)) ++q, ++mantissaDigits;
  if (q != m_End && *q == '.') {
    real = true;
    ++q;
    while (q != m_End && Is(*q, kDigit)) ++q, ++mantissaDigits;
  }
  bool ok = mantissaDigits > 0;
  if (ok && q != m_End && (*q == 'e' || *q == 'E')) {
    real = true;
    ++q;
    if (q != m_End && (*q == '+' || *q == '-')) ++q;
    const char* exp = q;
    while (q != m_End && Is(*q, kDigit)) ++q;
    ok = q != exp;
  }
  if (!ok || (q != m_End && Is(*q, kWordChar))) return Fail(start, "a number", DescribeWord(start));

  const std::string_view token(start, static_cast<size_t>(q - start));
  if (real) {
    const auto r = std::from_chars(digits, q, v.real);
    if (r.ec == std::errc::result_out_of_range)
      return Fail(start, "a real within the range of a double", Quote(token));
    if (r.ec != std::errc() || r.ptr != q) return Fail(start, "a number", Quote(token));
    v.kind = ValueKind::Real;
  } else {
    const auto r = std::from_chars(digits, q, v.integer);
    if (r.ec == std::errc::result_out_of_range)
      return Fail(start, "an integer from -9223372036854775808 to 9223372036854775807",
                  Quote(token));
    if (r.ec != std::errc() || r.ptr != q) return Fail(start, "a number", Quote(token));
    v.kind = ValueKind::Integer;
  }
  m_P = q;
  return true;
}

bool CTextReader::FailValue(std::string_view owner, bool inList) {
  return Fail(m_P, (inList ? "a value in the list " : "a value or '[' for ") + Quote(owner),
              Describe(m_P));
}

bool CTextReader::ReadValue(Scalar& v, std::string_view owner, bool inList) {
  if (m_P == m_End) return FailValue(owner, inList);
  const char c = *m_P;
  if (c == '"') {
    if (!ReadString(m_ValueText)) return false;
    v.kind = ValueKind::String;
    v.text = m_ValueText;
    return true;
  }
  if (Is(c, kIdentStart)) {
    const char* start = m_P;
    while (m_P != m_End && Is(*m_P, kIdentChar)) ++m_P;
    const std::string_view word(start, static_cast<size_t>(m_P - start));
    if (word == "true" || word == "false") {
      v.kind = ValueKind::Boolean;
      v.integer = word[0] == 't';
    } else if (word == "inf") {
      v.kind = ValueKind::Real;
      v.real = std::numeric_limits<double>::infinity();
    } else if (word == "nan") {
      if (m_P != m_End && *m_P == '(') return ReadNaNPattern(start, v);
      v.kind = ValueKind::Real;
      v.real = std::bit_cast<double>(kQuietNaN);
    } else {
      v.kind = ValueKind::Name;
      v.text = word;
    }
    return true;
  }
  if (Is(c, kDigit) || c == '-' || c == '+' || c == '.') return ReadNumber(v);
  return FailValue(owner, inList);
}

bool CTextReader::ReadList(CBlock& block, std::string_view name) {
  ++m_P;  // '['
  block.AddFunction(name, {});
  SkipSpace();
  if (m_P != m_End && *m_P == ']') {
    ++m_P;
    return true;
  }
  Scalar v{};
  for (;;) {
    if (!ReadValue(v, name, true)) return false;
    switch (v.kind) {
      case ValueKind::Real:
        block.AppendRealArgument(v.real);
        break;
      case ValueKind::Integer:
        block.AppendArgument(CValue::Integer(v.integer));
        break;
      case ValueKind::Boolean:
        block.AppendArgument(CValue::Boolean(v.integer != 0));
        break;
      case ValueKind::String:
        block.AppendArgument(CValue::String(v.text));
        break;
      case ValueKind::Name:
        block.AppendArgument(CValue::Name(v.text));
        break;
    }
    SkipSpace();
    if (m_P != m_End && *m_P == ',') {
      ++m_P;
      SkipSpace();
      continue;
    }
    if (m_P != m_End && *m_P == ']') {
      ++m_P;
      return true;
    }
    return Fail(m_P, "',' or ']' in the list " + Quote(name), Describe(m_P));
  }
}

std::string OpenedAt(const std::string& quotedName, int line, int column) {
  std::string s = quotedName + " after '}' to close the block opened at line ";
  AppendInteger(s, line);
  s += ", column ";
  AppendInteger(s, column);
  return s;
}

// At '}': checks the repeated name against the open block and pops it.
bool CTextReader::CloseBlock(std::vector<Open>& stack) {
  const Open& open = stack.back();
  ++m_P;
  SkipSpace();
  const char* at = m_P;
  std::string_view name;
  // The message is built only on failure; blocks close thousands of times.
  if (m_P == m_End || !(Is(*m_P, kIdentStart) || *m_P == '"'))
    return Fail(at, OpenedAt(Quote(open.block->GetName()), open.line, open.column), Describe(at));
  if (!ReadName(name, "")) return false;
  if (name != open.block->GetName())
    return Fail(at, OpenedAt(Quote(open.block->GetName()), open.line, open.column), Quote(name));
  stack.pop_back();
  return true;
}

bool CTextReader::Run() {
  std::vector<Open> stack;
  stack.push_back({&m_Root, 0, 0});
  Scalar v{};
  for (;;) {
    SkipSpace();
    if (m_P == m_End) {
      if (m_TooLong) return false;
      if (static_cast<size_t>(m_End - m_LineStart) > kMaxLineBytes) {  // the last line, without a line end
        LineTooLong();
        return false;
      }
      if (stack.size() == 1) return true;
      const Open& open = stack.back();
      std::string expected = "'}' to close the block " + Quote(open.block->GetName()) +
                             " opened at line ";
      AppendInteger(expected, open.line);
      expected += ", column ";
      AppendInteger(expected, open.column);
      return Fail(m_P, expected, "end of file");
    }
    if (*m_P == '}') {
      if (stack.size() == 1) return Fail(m_P, "an item name or end of file", "'}'");
      if (!CloseBlock(stack)) return false;
      continue;
    }
    CBlock& block = *stack.back().block;
    const char* nameAt = m_P;
    const int line = ItemLine(), column = Column(nameAt);
    std::string_view name;
    if (!ReadName(name, stack.size() == 1 ? "an item name or end of file" : "an item name or '}'"))
      return false;
    SkipSpace();
    if (m_P != m_End && *m_P == '=') {
      ++m_P;
      SkipSpace();
      if (m_P != m_End && *m_P == '[') {
        if (!ReadList(block, name)) return false;
        block.SetLastItemPosition(line, column);
        continue;
      }
      if (!ReadValue(v, name, false)) return false;
      switch (v.kind) {
        case ValueKind::Real:
          block.AddReal(name, v.real);
          break;
        case ValueKind::Integer:
          block.AddInteger(name, v.integer);
          break;
        case ValueKind::Boolean:
          block.AddBoolean(name, v.integer != 0);
          break;
        case ValueKind::String:
          block.AddString(name, v.text);
          break;
        case ValueKind::Name:
          block.AddName(name, v.text);
          break;
      }
      block.SetLastItemPosition(line, column);
      continue;
    }
    if (m_P != m_End && *m_P == '{') {
      if (stack.size() > static_cast<size_t>(kMaxBlockDepth)) {
        std::string expected = "at most ";
        AppendInteger(expected, kMaxBlockDepth);
        expected += " nested blocks";
        // The name may stand on an earlier line than the '{'.
        return FailAt(line, column, expected, "block " + Quote(name) + " nested deeper");
      }
      ++m_P;
      CBlock& child = block.AddBlock(name);
      block.SetLastItemPosition(line, column);
      child.SetSourcePosition(line, column);
      stack.push_back({&child, line, column});
      continue;
    }
    return Fail(m_P, "'=' or '{' after " + Quote(name), Describe(m_P));
  }
}

// ---- Files ----------------------------------------------------------------

std::string ErrnoText(int err) { return std::strerror(err); }

struct Free {
  void operator()(char* p) const { std::free(p); }
};
using Buffer = std::unique_ptr<char, Free>;

enum class FileRead { kOk, kFailed, kLineTooLong };

// The whole file in one buffer, read a piece at a time so that a line
// longer than kMaxLineBytes is caught within a piece of its limit: a file
// without line ends, or /dev/zero, costs no more than that. The buffer
// grows by realloc, which remaps a large block instead of copying it, and
// never more than a line's limit ahead of the line being read, so neither a
// device without a size nor a sparse file that claims terabytes is trusted
// with an allocation. On kLineTooLong, `line` is that line's number.
FileRead ReadWholeFile(const std::filesystem::path& path, Buffer& data, size_t& size, std::string& reason,
                       long& line) {
  constexpr size_t kPiece = size_t{8} << 20;  // at most kMaxLineBytes: a line inside a piece is short enough
  static_assert(kPiece <= kMaxLineBytes);
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) {
    reason = ErrnoText(errno);
    return FileRead::kFailed;
  }
  struct stat st {};
  if (::fstat(fd, &st) != 0 || S_ISDIR(st.st_mode)) {
    reason = S_ISDIR(st.st_mode) ? "is a directory" : ErrnoText(errno);
    ::close(fd);
    return FileRead::kFailed;
  }
  const auto fail = [&](int err) {
    reason = ErrnoText(err);
    ::close(fd);
    return FileRead::kFailed;
  };
  size_t lineStart = 0;  // offset of the line not yet ended
  // A regular file's size is the first guess, up to a line's limit.
  size_t capacity = st.st_size > 0 ? std::min(static_cast<size_t>(st.st_size) + 1, kMaxLineBytes + kPiece) : kPiece;
  data.reset(static_cast<char*>(std::malloc(capacity)));
  if (!data) return fail(ENOMEM);
  size = 0;
  for (;;) {
    if (size == capacity) {
      size_t grown = std::max(2 * capacity, size + kPiece);
      grown = std::min(grown, std::max(size + kPiece, lineStart + kMaxLineBytes + kPiece));
      char* const bigger = static_cast<char*>(std::realloc(data.get(), grown));
      if (!bigger) return fail(ENOMEM);
      (void)data.release();
      data.reset(bigger);
      capacity = grown;
    }
    const ssize_t n = ::read(fd, data.get() + size, std::min(capacity - size, kPiece));
    if (n < 0) {
      if (errno == EINTR) continue;
      return fail(errno);
    }
    if (n == 0) break;
    const char* const piece = data.get() + size;
    size += static_cast<size_t>(n);
    // Lines that begin and end inside the piece are shorter than it; only
    // the line the piece continues, and the one it leaves open, are checked.
    const auto* first = static_cast<const char*>(std::memchr(piece, '\n', static_cast<size_t>(n)));
    const size_t firstEnd = first ? static_cast<size_t>(first - data.get()) : size;
    if (firstEnd - lineStart > kMaxLineBytes) {
      line = 1 + static_cast<long>(std::count(data.get(), data.get() + lineStart, '\n'));
      ::close(fd);
      return FileRead::kLineTooLong;
    }
    if (first) lineStart = static_cast<size_t>(static_cast<const char*>(::memrchr(piece, '\n', static_cast<size_t>(n))) - data.get()) + 1;
  }
  ::close(fd);
  return FileRead::kOk;
}

}  // namespace

ReadError ParseBlockText(std::string_view text, std::string_view sourceName, CBlock& root) {
  root.SetSourceName(sourceName);
  root.ClearReadError();
  CTextReader reader(text, sourceName, root);
  if (reader.Run()) return kReadOk;
  root.Clear();
  root.SetReadError(reader.Error());
  return kReadSyntax;
}

ReadError ReadBlockFile(const std::filesystem::path& path, CBlock& root) {
  const std::string name = path.string();
  Buffer data;
  size_t size = 0;
  std::string reason;
  long line = 0;
  const FileRead read = ReadWholeFile(path, data, size, reason, line);
  if (read == FileRead::kOk) return ParseBlockText(std::string_view(data.get(), size), name, root);
  root.Clear();
  root.SetSourceName(name);
  if (read == FileRead::kLineTooLong) {
    std::string message = name + ":";
    AppendInteger(message, line);
    message += ":";
    AppendInteger(message, static_cast<std::int64_t>(kMaxLineBytes) + 1);
    root.SetReadError(message + ": expected " + LineLimitExpected() + ", found more");
    return kReadSyntax;
  }
  root.SetReadError(name + ": cannot read the file: " + reason);
  return kReadFileError;
}

}  // namespace io
