// The writer of the text form of block trees: values, names and nesting,
// in memory or piece by piece into an output file that is complete or absent.
#include "core/Assert.h"
#include "core/BlockText.h"
#include "core/BlockTextFormat.h"
#include "core/OutputFile.h"

#include <algorithm>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <vector>

namespace io {
namespace blocktext {


constexpr char kHex[] = "0123456789abcdef";

void AppendQuoted(std::string& out, std::string_view s) {
  out += '"';
  size_t plain = 0;  // start of the run of bytes copied as they are
  for (size_t i = 0; i < s.size(); ++i) {
    const auto c = static_cast<unsigned char>(s[i]);
    if (c >= 0x20 && c != 0x7f && c != '"' && c != '\\') continue;
    out.append(s.data() + plain, i - plain);
    plain = i + 1;
    switch (c) {
      case '"':
        out += "\\\"";
        break;
      case '\\':
        out += "\\\\";
        break;
      case '\n':
        out += "\\n";
        break;
      case '\t':
        out += "\\t";
        break;
      case '\r':
        out += "\\r";
        break;
      default: {
        const char esc[4] = {'\\', 'x', kHex[c >> 4], kHex[c & 15]};
        out.append(esc, 4);
      }
    }
  }
  out.append(s.data() + plain, s.size() - plain);
  out += '"';
}

void AppendItemName(std::string& out, std::string_view name) {
  // In name position a keyword is unambiguous, so only non-identifiers need quotes.
  if (IsIdentifier(name))
    out += name;
  else
    AppendQuoted(out, name);
}

void AppendInteger(std::string& out, std::int64_t v) {
  char buf[24];
  const auto r = std::to_chars(buf, buf + sizeof buf, v);
  out.append(buf, static_cast<size_t>(r.ptr - buf));
}

void AppendReal(std::string& out, double v) {
  const auto bits = std::bit_cast<std::uint64_t>(v);
  if (std::isnan(v)) {
    // to_chars drops NaN payloads; only the two canonical quiet NaNs get the
    // short spelling, every other NaN keeps its full bit pattern.
    if (bits == kQuietNaN) {
      out += "nan";
    } else if (bits == (kQuietNaN | kSignBit)) {
      out += "-nan";
    } else {
      char buf[23] = {'n', 'a', 'n', '(', '0', 'x'};
      for (int i = 0; i < 16; ++i) buf[6 + i] = kHex[(bits >> (60 - 4 * i)) & 15];
      buf[22] = ')';
      out.append(buf, sizeof buf);
    }
    return;
  }
  char buf[40];
  const auto r = std::to_chars(buf, buf + sizeof buf, v);  // shortest exact form
  const size_t n = static_cast<size_t>(r.ptr - buf);
  out.append(buf, n);
  // "2" would read back as an integer; the reader must see a real.
  if (std::memchr(buf, '.', n) == nullptr && std::memchr(buf, 'e', n) == nullptr &&
      std::memchr(buf, 'n', n) == nullptr)
    out += ".0";
}

void AppendValue(std::string& out, const CItemView& item, size_t k) {
  switch (item.GetValueKind(k)) {
    case ValueKind::Real:
      AppendReal(out, item.GetRealUnchecked(k));
      break;
    case ValueKind::Integer:
      AppendInteger(out, item.GetValue(k).GetInteger());
      break;
    case ValueKind::Boolean:
      out += item.GetValue(k).GetBoolean() ? "true" : "false";
      break;
    case ValueKind::String:
      AppendQuoted(out, item.GetValue(k).GetText());
      break;
    case ValueKind::Name: {
      // A name that cannot stand bare is written as a string; readers of
      // enumerations accept both.
      const CValue v = item.GetValue(k);
      if (IsIdentifier(v.GetText()) && !IsKeyword(v.GetText()))
        out += v.GetText();
      else
        AppendQuoted(out, v.GetText());
      break;
    }
  }
}


}  // namespace blocktext

namespace {

using namespace blocktext;

// Hands a full buffer to its destination; false stops the writing.
using Flush = bool (*)(std::string& out, void* context);

// Writes the text and returns the deepest nesting of blocks met. An explicit
// stack: trees built in memory have no depth limit of their own. With a
// `flush`, the text goes out in pieces of about 1 MiB instead of being kept
// whole; `failed` then tells whether a piece could not be written.
size_t AppendText(const CBlock& root, std::string& out, Flush flush = nullptr,
                  void* context = nullptr, bool* failed = nullptr) {
  constexpr size_t kPiece = 1 << 20;
  size_t deepest = 0;
  struct Frame {
    const CBlock* block;
    size_t next;
  };
  std::vector<Frame> stack;
  stack.push_back({&root, 0});
  while (!stack.empty()) {
    const CBlock* block = stack.back().block;
    const size_t depth = stack.size() - 1;
    if (stack.back().next == block->GetNumItems()) {
      stack.pop_back();
      if (!stack.empty()) {
        // The closing name is the item's name in the parent, like the opening one.
        const Frame& parent = stack.back();
        out.append(2 * (depth - 1), ' ');
        out += "} ";
        AppendItemName(out, parent.block->GetItem(parent.next - 1).GetName());
        out += '\n';
      }
      continue;
    }
    if (flush && out.size() >= kPiece && !flush(out, context)) {
      *failed = true;
      return deepest;
    }
    const CItemView item = block->GetItem(stack.back().next++);
    out.append(2 * depth, ' ');
    AppendItemName(out, item.GetName());
    switch (item.GetKind()) {
      case ItemKind::Value:
        out += " = ";
        AppendValue(out, item, 0);
        break;
      case ItemKind::Function:
        out += " = [";
        for (size_t k = 0; k < item.GetNumValues(); ++k) {
          if (k) out += ", ";
          // Lists of reals (complex numbers, above all) are most of a project.
          if (item.GetValueKind(k) == ValueKind::Real) {
            AppendReal(out, item.GetRealUnchecked(k));
          } else {
            AppendValue(out, item, k);
          }
        }
        out += ']';
        break;
      case ItemKind::Block:
        out += " {\n";
        stack.push_back({item.GetBlock(), 0});
        deepest = std::max(deepest, stack.size() - 1);
        continue;
    }
    out += '\n';
  }
  if (flush && !out.empty() && !flush(out, context)) *failed = true;
  return deepest;
}

// Deepest nesting of blocks below `root`, without writing anything.
size_t Depth(const CBlock& root) {
  size_t deepest = 0;
  std::vector<std::pair<const CBlock*, size_t>> stack{{&root, 0}};
  while (!stack.empty()) {
    auto [block, depth] = stack.back();
    stack.pop_back();
    deepest = std::max(deepest, depth);
    for (size_t k = 0; k < block->GetNumItems(); ++k)
      if (const CBlock* sub = block->GetItem(k).GetBlock()) stack.push_back({sub, depth + 1});
  }
  return deepest;
}

}  // namespace

void WriteBlockText(const CBlock& root, std::string& out) {
  // Deeper trees are written all the same, but the reader would refuse them.
  const size_t deepest = AppendText(root, out);
  ASSERT(deepest <= static_cast<size_t>(kMaxBlockDepth));
}

bool WriteBlockFile(const std::filesystem::path& path, const CBlock& root, AString* error) {
  const size_t deepest = Depth(root);
  if (deepest > static_cast<size_t>(kMaxBlockDepth)) {
    // A file that cannot be read back is worse than no file.
    if (error) {
      *error = AString::Format("cannot save \"%s\": blocks are nested %zu deep, more than the %d "
                               "a project file may hold",
                               path.c_str(), deepest, kMaxBlockDepth);
    }
    return false;
  }

  // The text goes out piece by piece into a temporary that replaces the
  // file only when all of it is on disk (links followed, permissions kept).
  io::COutputFile file;
  std::string why;
  const auto fail = [&] {
    if (error) *error = AString("cannot save \"" + path.string() + "\": " + why);
    return false;
  };
  if (!file.Open(path, &why, false)) return fail();
  bool failed = false;
  std::string text;
  text.reserve((1 << 20) + 4096);
  auto* flush = +[](std::string& out, void* sink) {
    const bool ok = static_cast<io::COutputFile*>(sink)->Write(out.data(), out.size());
    out.clear();
    return ok;
  };
  AppendText(root, text, flush, &file, &failed);
  if (!file.Commit(&why)) return fail();
  return true;
}

}  // namespace io
