// Plain Touchstone data lines, the bulk of a big file, parsed in place in
// the read buffer: token bounds from byte masks, short decimals by their own
// exact scanner, each number written straight where its record keeps it.
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstring>

#include "sparamlib/formats/BlockScan.h"
#include "sparamlib/formats/TouchstoneParser.h"

namespace nd {

// The data lines of a big file come here straight from the reader's
// buffer: one pass over their bytes, each number written where the record
// keeps it, no line or token objects. A line is taken only when it holds
// nothing but numbers that fit the record's layout, which is checked
// before any state changes. The first line that needs more (a comment, a
// keyword, a frequency that does not increase, a token that is no number,
// a count that breaks the layout) is left untouched to Line(), which reads
// it as it reads any line, with the same messages.
size_t CTouchstoneParser::Lines(std::string_view text, long firstLine, long& lines) {
  lines = 0;
  if (m_Stage != kNetwork || m_VectorPending) return 0;
  const char* const begin = text.data();
  const char* const end = begin + text.size();
  const char* p = begin;
  while (p != end && TakeLine(p, end, firstLine + lines)) ++lines;
  return static_cast<size_t>(p - begin);
}

// One line from p (line number `line`); on success p moves past its '\n'.
// First the bounds of its tokens, from bit masks of 64 bytes at a time
// (no loop that stops at a different byte for every token), then their
// numbers: each parsed knowing where it ends, so the numbers of a line
// are independent work the processor overlaps, not a chain where each
// waits for the end of the last.
inline bool CTouchstoneParser::TakeLine(const char*& p, const char* end, long line) {
  const bool starts = !m_InRecord;
  const size_t rowValues = 2 * static_cast<size_t>(m_RowPairs[starts ? 0 : m_Row]);
  const size_t room = starts ? rowValues + 1 : rowValues - static_cast<size_t>(m_InRow);
  const char** const firsts = m_Firsts.data();
  const char** const lasts = m_Lasts.data();
  size_t tokens = 0, ended = 0;
  std::uint64_t before = 1;  // whether the byte before the chunk is a blank
  const char* lineEnd = nullptr;
  for (const char* base = p; !lineEnd; base += 64) {
    std::uint64_t blanks, ends;
    if (end - base >= 64) {
      BlankAndEndMasks(base, blanks, ends);
    } else {
      char tail[64];
      std::memset(tail, '\n', sizeof tail);
      std::memcpy(tail, base, static_cast<size_t>(end - base));
      BlankAndEndMasks(tail, blanks, ends);
    }
    if (ends) {
      const int at = std::countr_zero(ends);
      lineEnd = base + at;
      blanks |= ~std::uint64_t{0} << at;  // the line end and what follows end the last token
    }
    const std::uint64_t startBits = ~blanks & ((blanks << 1) | before);
    const std::uint64_t endBits = blanks & ~((blanks << 1) | before);
    // Room for 64 more bounds than a line may hold: a chunk's bounds are
    // stored before the count is checked.
    for (std::uint64_t bits = startBits; bits; bits &= bits - 1) firsts[tokens++] = base + std::countr_zero(bits);
    for (std::uint64_t bits = endBits; bits; bits &= bits - 1) lasts[ended++] = base + std::countr_zero(bits);
    if (tokens > room) return false;
    before = blanks >> 63;
  }
  // A line beyond the longest allowed is left to the reader, which refuses
  // it (text in memory may hold one; a file's buffer never does).
  if (static_cast<size_t>(lineEnd - p) > kMaxLineBytes) return false;
  if (tokens == 0) {  // a blank line
    p = lineEnd + 1;
    return true;
  }
  if (m_Header.ports <= 2 && tokens != room) return false;  // such a record is one line
  const size_t skip = starts ? 1 : 0;
  // The record's numbers are given room as they arrive.
  if (const size_t need = starts ? rowValues : m_Count + room; need > m_Values.size()) [[unlikely]]
    GrowValues(need);
  double* const out = m_Values.data() + (starts ? 0 : m_Count);
  double frequency = 0.0;
  for (size_t k = 0; k < tokens; ++k) {
    const char* const first = firsts[k];
    const auto length = static_cast<size_t>(lasts[k] - first);
    double v;
    // A short decimal is always finite; nan and inf come only from the
    // general parser and go to the line-by-line path, which judges them.
    if (!(end - first >= kTokenReach && ShortDecimal(first, static_cast<int>(length), v)) &&
        (!ParseNumber(std::string_view(first, length), v) || !std::isfinite(v)))
      return false;
    if (starts && k == 0) {
      frequency = v;
    } else {
      out[k - skip] = v;
    }
  }
  if (starts) {
    if ((m_Records > 0 && !(frequency > m_LastFrequency)) || !std::isfinite(frequency) || frequency < 0.0)
      return false;
    m_Line = line;
    FinishPending();
    BeginRecord(frequency);
  }
  const size_t count = tokens - skip;
  m_Count += count;
  m_InRow += static_cast<int>(count);
  if (static_cast<size_t>(m_InRow) == rowValues) {
    m_InRow = 0;
    if (++m_Row == m_RowPairs.size()) {
      m_Line = line;
      EndRecord();
    }
  }
  p = lineEnd + 1;
  return true;
}

}  // namespace nd
