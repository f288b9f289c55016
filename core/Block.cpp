// The in-memory block: items, values, typed look-ups and the shared error state.
#include "core/Block.h"

#include "core/Assert.h"

#include <bit>
#include <cstring>
#include <limits>

namespace io {

// ---- CValue ---------------------------------------------------------------

CValue CValue::Integer(std::int64_t v) {
  CValue r;
  r.m_Kind = ValueKind::Integer;
  r.m_Integer = v;
  return r;
}
CValue CValue::Real(double v) {
  CValue r;
  r.m_Kind = ValueKind::Real;
  r.m_Real = v;
  return r;
}
CValue CValue::Boolean(bool v) {
  CValue r;
  r.m_Kind = ValueKind::Boolean;
  r.m_Integer = v ? 1 : 0;
  return r;
}
CValue CValue::String(std::string_view v) {
  CValue r;
  r.m_Kind = ValueKind::String;
  r.m_Text = AString(v);
  return r;
}
CValue CValue::Name(std::string_view v) {
  CValue r;
  r.m_Kind = ValueKind::Name;
  r.m_Text = AString(v);
  return r;
}

bool CValue::ToReal(double& out) const {
  if (m_Kind == ValueKind::Real) {
    out = m_Real;
    return true;
  }
  if (m_Kind == ValueKind::Integer) {
    out = static_cast<double>(m_Integer);
    return true;
  }
  return false;
}

// ---- CItemView ------------------------------------------------------------

const AString& CItemView::GetName() const { return m_Block->m_Items[m_Index].name; }
ItemKind CItemView::GetKind() const { return m_Block->m_Items[m_Index].kind; }
int CItemView::GetLine() const { return m_Block->m_Items[m_Index].line; }
int CItemView::GetColumn() const { return m_Block->m_Items[m_Index].column; }
size_t CItemView::GetNumValues() const { return m_Block->m_Items[m_Index].numSlots; }

CValue CItemView::GetValue(size_t index) const {
  const auto& item = m_Block->m_Items[m_Index];
  if (index >= item.numSlots) return CValue();
  return m_Block->SlotValue(m_Block->m_Slots[item.firstSlot + index]);
}

ValueKind CItemView::GetValueKind(size_t index) const {
  const auto& item = m_Block->m_Items[m_Index];
  if (index >= item.numSlots) return ValueKind::Integer;
  return m_Block->m_Slots[item.firstSlot + index].kind;
}

double CItemView::GetRealUnchecked(size_t index) const {
  const auto& item = m_Block->m_Items[m_Index];
  return m_Block->m_Slots[item.firstSlot + index].real;
}

const CBlock* CItemView::GetBlock() const { return m_Block->m_Items[m_Index].block.get(); }

// ---- CBlock: construction -------------------------------------------------

CBlock::CBlock(std::string_view name) : m_Name(name) {}

CBlock::CBlock(const CBlock& other)
    : m_Name(other.m_Name),
      m_Line(other.m_Line),
      m_Column(other.m_Column),
      m_Slots(other.m_Slots),
      m_Texts(other.m_Texts),
      // A copied sub-block becomes a root of its own; it keeps the file name
      // so that its read errors still say where the text came from.
      m_SourceName(other.GetSourceName()) {
  m_Items.reserve(other.m_Items.size());
  for (const Item& it : other.m_Items) {
    Item copy{it.name, it.kind, it.firstSlot, it.numSlots, it.line, it.column, nullptr};
    if (it.block) copy.block = std::make_unique<CBlock>(*it.block);
    m_Items.push_back(std::move(copy));
  }
  AdoptChildren();
}

CBlock::CBlock(CBlock&& other) noexcept
    : m_Name(std::move(other.m_Name)),
      m_Line(other.m_Line),
      m_Column(other.m_Column),
      m_Items(std::move(other.m_Items)),
      m_Slots(std::move(other.m_Slots)),
      m_Texts(std::move(other.m_Texts)),
      m_SourceName(std::move(other.m_SourceName)),
      m_ReadError(std::move(other.m_ReadError)) {
  AdoptChildren();
}

CBlock& CBlock::operator=(const CBlock& other) {
  if (this != &other) *this = CBlock(other);
  return *this;
}

CBlock& CBlock::operator=(CBlock&& other) noexcept {
  if (this == &other) return *this;
  m_Name = std::move(other.m_Name);
  m_Line = other.m_Line;
  m_Column = other.m_Column;
  m_Items = std::move(other.m_Items);
  m_Slots = std::move(other.m_Slots);
  m_Texts = std::move(other.m_Texts);
  m_SourceName = std::move(other.m_SourceName);
  m_ReadError = std::move(other.m_ReadError);
  AdoptChildren();
  return *this;
}

CBlock::~CBlock() = default;

void CBlock::AdoptChildren() {
  for (Item& it : m_Items)
    if (it.block) it.block->m_Parent = this;
}

void CBlock::SetSourcePosition(int line, int column) {
  m_Line = line;
  m_Column = column;
}

const CBlock& CBlock::Root() const {
  const CBlock* b = this;
  while (b->m_Parent) b = b->m_Parent;
  return *b;
}

const AString& CBlock::GetSourceName() const { return Root().m_SourceName; }
void CBlock::SetSourceName(std::string_view name) { m_SourceName = AString(name); }

// ---- CBlock: writing ------------------------------------------------------

CBlock::Item& CBlock::NewItem(std::string_view name, ItemKind kind) {
  Item& it = m_Items.emplace_back();
  it.name = AString(name);
  it.kind = kind;
  it.firstSlot = static_cast<std::uint32_t>(m_Slots.size());
  return it;
}

void CBlock::PushSlot(const CValue& v) {
  Slot s{};
  s.kind = v.GetKind();
  switch (v.GetKind()) {
    case ValueKind::Integer:
    case ValueKind::Boolean:
      s.integer = v.GetInteger();
      break;
    case ValueKind::Real:
      s.real = v.GetReal();
      break;
    case ValueKind::String:
    case ValueKind::Name:
      s.text = static_cast<std::uint32_t>(m_Texts.size());
      m_Texts.push_back(v.GetText());
      break;
  }
  m_Slots.push_back(s);
}

CValue CBlock::SlotValue(const Slot& s) const {
  switch (s.kind) {
    case ValueKind::Integer:
      return CValue::Integer(s.integer);
    case ValueKind::Boolean:
      return CValue::Boolean(s.integer != 0);
    case ValueKind::Real:
      return CValue::Real(s.real);
    case ValueKind::String:
      return CValue::String(m_Texts[s.text]);
    case ValueKind::Name:
      return CValue::Name(m_Texts[s.text]);
  }
  return CValue();
}

void CBlock::AddValue(std::string_view name, const CValue& value) {
  Item& it = NewItem(name, ItemKind::Value);
  it.numSlots = 1;
  PushSlot(value);
}

void CBlock::AddInteger(std::string_view name, std::int64_t value) {
  AddValue(name, CValue::Integer(value));
}
void CBlock::AddReal(std::string_view name, double value) { AddValue(name, CValue::Real(value)); }
void CBlock::AddBoolean(std::string_view name, bool value) {
  AddValue(name, CValue::Boolean(value));
}
void CBlock::AddString(std::string_view name, std::string_view value) {
  AddValue(name, CValue::String(value));
}
void CBlock::AddName(std::string_view name, std::string_view enumName) {
  AddValue(name, CValue::Name(enumName));
}

void CBlock::AddFunction(std::string_view name, std::span<const CValue> args) {
  Item& it = NewItem(name, ItemKind::Function);
  it.numSlots = static_cast<std::uint32_t>(args.size());
  for (const CValue& v : args) PushSlot(v);
}

void CBlock::AddRealFunction(std::string_view name, std::span<const double> args) {
  Item& it = NewItem(name, ItemKind::Function);
  it.numSlots = static_cast<std::uint32_t>(args.size());
  for (double d : args) {
    Slot s{};
    s.kind = ValueKind::Real;
    s.real = d;
    m_Slots.push_back(s);
  }
}

void CBlock::AddComplex(std::string_view name, AComplex<double> z) {
  const double parts[2] = {z.re, z.im};
  AddRealFunction(name, parts);
}

CBlock& CBlock::AddBlock(std::string_view name) { return AddBlock(CBlock(name)); }

CBlock& CBlock::AddBlock(CBlock block) {
  std::string_view name = block.m_Name;
  Item& it = NewItem(name, ItemKind::Block);
  it.block = std::make_unique<CBlock>(std::move(block));
  it.block->m_Parent = this;
  // The adopted block reports through this tree's root from now on.
  it.block->m_SourceName.clear();
  it.block->m_ReadError.clear();
  return *it.block;
}

int CBlock::AddEnum(std::string_view name, std::span<const char* const> table, int value) {
  if (value < 0 || static_cast<size_t>(value) >= table.size()) {
    // A value without a name (one that was never set, say) is kept by number
    // so that it survives a save; the code tells the caller it has no name.
    AddInteger(name, value);
    return kReadUnknownName;
  }
  AddName(name, table[static_cast<size_t>(value)]);
  return kReadOk;
}

void CBlock::SetLastItemPosition(int line, int column) {
  if (m_Items.empty()) return;
  m_Items.back().line = line;
  m_Items.back().column = column;
}

// Values are stored in item order, so only the last item can grow, and only
// while no other item's slots follow it (a sub-block adds none).
CBlock::Item* CBlock::LastFunction() {
  const bool ok = !m_Items.empty() && m_Items.back().kind == ItemKind::Function &&
                  m_Items.back().firstSlot + m_Items.back().numSlots == m_Slots.size();
  ASSERT(ok);
  return ok ? &m_Items.back() : nullptr;
}

void CBlock::AppendArgument(const CValue& value) {
  if (Item* it = LastFunction()) {
    PushSlot(value);
    ++it->numSlots;
  }
}

void CBlock::AppendRealArgument(double value) {
  if (Item* it = LastFunction()) {
    Slot s{};
    s.kind = ValueKind::Real;
    s.real = value;
    m_Slots.push_back(s);
    ++it->numSlots;
  }
}

void CBlock::Clear() {
  m_Items.clear();
  m_Slots.clear();
  m_Texts.clear();
}

void CBlock::Reserve(size_t items, size_t values) {
  m_Items.reserve(m_Items.size() + items);
  m_Slots.reserve(m_Slots.size() + values);
}

// ---- CBlock: inspection ---------------------------------------------------

long CBlock::FindItem(std::string_view name, size_t from) const {
  for (size_t i = from; i < m_Items.size(); ++i)
    if (m_Items[i].name == name) return static_cast<long>(i);
  return -1;
}

const CBlock::Item* CBlock::Find(std::string_view name) const {
  const long i = FindItem(name);
  return i < 0 ? nullptr : &m_Items[static_cast<size_t>(i)];
}

bool CBlock::HasItem(std::string_view name) const { return FindItem(name) >= 0; }

const CBlock* CBlock::FindBlock(std::string_view name) const {
  for (const Item& it : m_Items)
    if (it.kind == ItemKind::Block && it.name == name) return it.block.get();
  return nullptr;
}

std::vector<const CBlock*> CBlock::FindBlocks(std::string_view name) const {
  std::vector<const CBlock*> found;
  for (const Item& it : m_Items)
    if (it.kind == ItemKind::Block && it.name == name) found.push_back(it.block.get());
  return found;
}

// ---- CBlock: typed look-ups -----------------------------------------------

namespace {

const char* KindText(ValueKind k) {
  switch (k) {
    case ValueKind::Integer:
      return "an integer";
    case ValueKind::Real:
      return "a real";
    case ValueKind::Boolean:
      return "a boolean";
    case ValueKind::String:
      return "a string";
    case ValueKind::Name:
      return "a name";
  }
  return "a value";
}

}  // namespace

ReadError CBlock::WrongKind(const Item& item, const char* expected) const {
  const char* found = item.kind == ItemKind::Block      ? "a block"
                      : item.kind == ItemKind::Function ? "a list"
                                                        : KindText(m_Slots[item.firstSlot].kind);
  const long index = &item - m_Items.data();
  return ReportReadError(kReadWrongType, index,
                         AString::Format("\"%s\": expected %s, found %s", item.name.c_str(),
                                         expected, found));
}

ReadError CBlock::GetInteger(std::string_view name, std::int64_t& out) const {
  const Item* it = Find(name);
  if (!it) return kReadTolerated;
  if (it->kind != ItemKind::Value || m_Slots[it->firstSlot].kind != ValueKind::Integer)
    return WrongKind(*it, "an integer");
  out = m_Slots[it->firstSlot].integer;
  return kReadOk;
}

ReadError CBlock::GetInteger(std::string_view name, int& out) const {
  std::int64_t wide = out;
  const ReadError r = GetInteger(name, wide);
  if (r != kReadOk) return r;
  if (wide < std::numeric_limits<int>::min() || wide > std::numeric_limits<int>::max()) {
    return ReportReadError(kReadBadValue, FindItem(name),
                           AString::Format("\"%.*s\": expected a 32-bit integer, found %lld",
                                           static_cast<int>(name.size()), name.data(),
                                           static_cast<long long>(wide)));
  }
  out = static_cast<int>(wide);
  return kReadOk;
}

ReadError CBlock::GetReal(std::string_view name, double& out) const {
  const Item* it = Find(name);
  if (!it) return kReadTolerated;
  if (it->kind != ItemKind::Value) return WrongKind(*it, "a number");
  const Slot& s = m_Slots[it->firstSlot];
  if (s.kind == ValueKind::Real) {
    out = s.real;
  } else if (s.kind == ValueKind::Integer) {
    out = static_cast<double>(s.integer);
  } else {
    return WrongKind(*it, "a number");
  }
  return kReadOk;
}

ReadError CBlock::GetBoolean(std::string_view name, bool& out) const {
  const Item* it = Find(name);
  if (!it) return kReadTolerated;
  if (it->kind != ItemKind::Value || m_Slots[it->firstSlot].kind != ValueKind::Boolean)
    return WrongKind(*it, "true or false");
  out = m_Slots[it->firstSlot].integer != 0;
  return kReadOk;
}

ReadError CBlock::GetString(std::string_view name, AString& out) const {
  const Item* it = Find(name);
  if (!it) return kReadTolerated;
  const ValueKind k = it->kind == ItemKind::Value ? m_Slots[it->firstSlot].kind : ValueKind::Integer;
  if (it->kind != ItemKind::Value || (k != ValueKind::String && k != ValueKind::Name))
    return WrongKind(*it, "a string");
  out = m_Texts[m_Slots[it->firstSlot].text];
  return kReadOk;
}

ReadError CBlock::GetRealFunction(std::string_view name, std::vector<double>& out) const {
  const Item* it = Find(name);
  if (!it) return kReadTolerated;
  if (it->kind != ItemKind::Function) return WrongKind(*it, "a list of numbers");
  std::vector<double> values(it->numSlots);
  for (std::uint32_t k = 0; k < it->numSlots; ++k) {
    const Slot& s = m_Slots[it->firstSlot + k];
    if (s.kind == ValueKind::Real) {
      values[k] = s.real;
    } else if (s.kind == ValueKind::Integer) {
      values[k] = static_cast<double>(s.integer);
    } else {
      return ReportReadError(kReadWrongType, &*it - m_Items.data(),
                             AString::Format("\"%s\": expected numbers, found %s as value %u",
                                             it->name.c_str(), KindText(s.kind), k + 1));
    }
  }
  out = std::move(values);
  return kReadOk;
}

// Complex values are read once per matrix element of every frequency, so
// this checks the two slots in place instead of building a list.
ReadError CBlock::GetComplex(std::string_view name, AComplex<double>& out) const {
  const Item* it = Find(name);
  if (!it) return kReadTolerated;
  if (it->kind != ItemKind::Function) return WrongKind(*it, "a list of numbers");
  double parts[2] = {0.0, 0.0};
  for (std::uint32_t k = 0; k < it->numSlots; ++k) {
    const Slot& s = m_Slots[it->firstSlot + k];
    double v;
    if (s.kind == ValueKind::Real) {
      v = s.real;
    } else if (s.kind == ValueKind::Integer) {
      v = static_cast<double>(s.integer);
    } else {
      return ReportReadError(kReadWrongType, &*it - m_Items.data(),
                             AString::Format("\"%s\": expected numbers, found %s as value %u",
                                             it->name.c_str(), KindText(s.kind), k + 1));
    }
    if (k < 2) parts[k] = v;
  }
  if (it->numSlots != 2) {
    return ReportReadError(kReadBadValue, &*it - m_Items.data(),
                           AString::Format("\"%.*s\": expected 2 numbers (real, imaginary), found %u",
                                           static_cast<int>(name.size()), name.data(),
                                           it->numSlots));
  }
  out = AComplex<double>(parts[0], parts[1]);
  return kReadOk;
}

ReadError CBlock::GetEnum(std::string_view name, std::span<const char* const> table,
                          int& value) const {
  if (const Item* it = Find(name);
      it && it->kind == ItemKind::Value && m_Slots[it->firstSlot].kind == ValueKind::Integer) {
    // Written by number because the value had no name; give it back as it was.
    const std::int64_t number = m_Slots[it->firstSlot].integer;
    if (number < std::numeric_limits<int>::min() || number > std::numeric_limits<int>::max())
      return WrongKind(*it, "an enumeration name");
    value = static_cast<int>(number);
    return kReadUnknownName;
  }
  AString text;
  const ReadError r = GetString(name, text);
  if (r != kReadOk) return r;
  for (size_t i = 0; i < table.size(); ++i) {
    if (text == table[i]) {
      value = static_cast<int>(i);
      return kReadOk;
    }
  }
  AString expected;
  for (size_t i = 0; i < table.size(); ++i) {
    if (i) expected += i + 1 == table.size() ? " or " : ", ";
    expected += table[i];
  }
  return ReportReadError(kReadUnknownName, FindItem(name),
                         AString::Format("\"%.*s\": expected %s, found \"%s\"",
                                         static_cast<int>(name.size()), name.data(),
                                         expected.c_str(), text.c_str()));
}

// ---- CBlock: error state --------------------------------------------------

const AString& CBlock::GetReadError() const { return Root().m_ReadError; }

void CBlock::ClearReadError() const { Root().m_ReadError.clear(); }

void CBlock::SetReadError(std::string_view message) const { Root().m_ReadError = AString(message); }

namespace {

// A message is one line: names and values from the file may hold any byte
// (a quoted name or string can hold a line end), so control characters are
// shown as the escapes the text form uses.
AString OneLine(const AString& message) {
  constexpr char kHex[] = "0123456789abcdef";
  AString out;
  for (const char ch : message) {
    const auto c = static_cast<unsigned char>(ch);
    if (c >= 0x20 && c != 0x7f) {
      out += ch;
    } else if (c == '\n') {
      out += "\\n";
    } else if (c == '\r') {
      out += "\\r";
    } else if (c == '\t') {
      out += "\\t";
    } else {
      const char escape[] = {'\\', 'x', kHex[c >> 4], kHex[c & 15], 0};
      out += escape;
    }
  }
  return out;
}

}  // namespace

ReadError CBlock::ReportReadError(ReadError code, long item, std::string_view what) const {
  const CBlock& root = Root();
  if (!root.m_ReadError.empty()) return code;
  int line = m_Line, column = m_Column;
  if (item >= 0 && static_cast<size_t>(item) < m_Items.size()) {
    line = m_Items[static_cast<size_t>(item)].line;
    column = m_Items[static_cast<size_t>(item)].column;
  }
  AString message = root.m_SourceName.empty() ? AString("<block>") : root.m_SourceName;
  if (line > 0) message += AString::Format(":%d:%d", line, column);
  message += ": ";
  // The unnamed root is the file itself; naming it would only add noise.
  if (!m_Name.empty() || m_Parent) message += "in block \"" + m_Name + "\": ";
  message += what;
  root.m_ReadError = OneLine(message);
  return code;
}

// ---- Equality -------------------------------------------------------------

bool operator==(const CBlock& a, const CBlock& b) {
  if (a.m_Name != b.m_Name || a.m_Items.size() != b.m_Items.size()) return false;
  for (size_t i = 0; i < a.m_Items.size(); ++i) {
    const auto& x = a.m_Items[i];
    const auto& y = b.m_Items[i];
    if (x.name != y.name || x.kind != y.kind || x.numSlots != y.numSlots) return false;
    if (x.kind == ItemKind::Block) {
      if (!(*x.block == *y.block)) return false;
      continue;
    }
    for (std::uint32_t k = 0; k < x.numSlots; ++k) {
      const auto& s = a.m_Slots[x.firstSlot + k];
      const auto& t = b.m_Slots[y.firstSlot + k];
      if (s.kind != t.kind) return false;
      switch (s.kind) {
        case ValueKind::Real:
          if (std::bit_cast<std::uint64_t>(s.real) != std::bit_cast<std::uint64_t>(t.real))
            return false;
          break;
        case ValueKind::String:
        case ValueKind::Name:
          if (a.m_Texts[s.text] != b.m_Texts[t.text]) return false;
          break;
        default:
          if (s.integer != t.integer) return false;
      }
    }
  }
  return true;
}

}  // namespace io
