// io::CBlock: an ordered, named block of items, the unit of the project file.
// Items are named values (integer, real, boolean, string, enumeration name),
// function items (a name with a list of unnamed values) and named sub-blocks.
// Names may repeat and keep their order ("Port", "r0", "c", ...).
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string_view>
#include <vector>

#include "core/AComplex.h"
#include "core/AString.h"
#include "core/ReadError.h"

namespace io {

enum class ValueKind : std::uint8_t { Integer, Real, Boolean, String, Name };

// One value of a named item or of a function item's argument list.
class CValue {
 public:
  CValue() = default;
  static CValue Integer(std::int64_t v);
  static CValue Real(double v);
  static CValue Boolean(bool v);
  static CValue String(std::string_view v);
  static CValue Name(std::string_view v);  // an enumeration value, written bare

  ValueKind GetKind() const { return m_Kind; }
  std::int64_t GetInteger() const { return m_Integer; }
  double GetReal() const { return m_Real; }
  bool GetBoolean() const { return m_Integer != 0; }
  const AString& GetText() const { return m_Text; }  // String and Name

  // Real value of an Integer or Real; false for other kinds.
  bool ToReal(double& out) const;

 private:
  ValueKind m_Kind = ValueKind::Integer;
  std::int64_t m_Integer = 0;  // Integer and Boolean
  double m_Real = 0.0;
  AString m_Text;
};

enum class ItemKind : std::uint8_t { Value, Function, Block };

class CBlock;

// Read-only view of one item of a block, valid while the block is unchanged.
class CItemView {
 public:
  const AString& GetName() const;
  ItemKind GetKind() const;
  int GetLine() const;    // 1-based source line, 0 when built in memory
  int GetColumn() const;  // 1-based source column, 0 when built in memory
  size_t GetNumValues() const;  // 1 for a named value, the argument count for a function
  CValue GetValue(size_t index = 0) const;
  ValueKind GetValueKind(size_t index = 0) const;
  double GetRealUnchecked(size_t index) const;  // caller checked the kind (fast path for "c")
  const CBlock* GetBlock() const;  // non-null for ItemKind::Block

 private:
  friend class CBlock;
  CItemView(const CBlock* block, size_t index) : m_Block(block), m_Index(index) {}
  const CBlock* m_Block;
  size_t m_Index;
};

class CBlock {
 public:
  explicit CBlock(std::string_view name = {});
  CBlock(const CBlock& other);
  CBlock(CBlock&& other) noexcept;
  CBlock& operator=(const CBlock& other);
  CBlock& operator=(CBlock&& other) noexcept;
  ~CBlock();

  const AString& GetName() const { return m_Name; }
  void SetName(std::string_view name) { m_Name = AString(name); }

  // Where the block's header stood in its source text (0 when built in memory).
  int GetLine() const { return m_Line; }
  int GetColumn() const { return m_Column; }
  void SetSourcePosition(int line, int column);
  // Name of the file or stream the tree was read from; kept by the root.
  const AString& GetSourceName() const;
  void SetSourceName(std::string_view name);

  // ---- Writing -----------------------------------------------------------
  void AddInteger(std::string_view name, std::int64_t value);
  void AddReal(std::string_view name, double value);
  void AddBoolean(std::string_view name, bool value);
  void AddString(std::string_view name, std::string_view value);
  void AddName(std::string_view name, std::string_view enumName);
  void AddValue(std::string_view name, const CValue& value);
  void AddFunction(std::string_view name, std::span<const CValue> args);
  void AddRealFunction(std::string_view name, std::span<const double> args);
  void AddComplex(std::string_view name, AComplex<double> z);  // two reals: real, imaginary
  // Appends an empty sub-block and returns it; the reference stays valid
  // while this block lives (sub-blocks are held by pointer).
  CBlock& AddBlock(std::string_view name);
  CBlock& AddBlock(CBlock block);  // adopts a block built elsewhere, keeping its name
  // Writes an enumeration by name from its table. Returns 0, or
  // kReadUnknownName when the value lies outside the table: it is then
  // written as its number, which GetEnum gives back unchanged.
  int AddEnum(std::string_view name, std::span<const char* const> table, int value);
  // Records the source position of the item added last (used by the text reader).
  void SetLastItemPosition(int line, int column);
  // Appends one value to the item added last, which must be a function item
  // (checked by assertion). The text reader builds lists value by value this
  // way, without a temporary list per item.
  void AppendArgument(const CValue& value);
  void AppendRealArgument(double value);
  // Removes every item; name, position, source name and error state stay.
  void Clear();
  // Room for `items` more items holding `values` more values in all, for
  // writers that know their size (matrices): no regrowth while filling.
  void Reserve(size_t items, size_t values);

  // ---- Inspection --------------------------------------------------------
  size_t GetNumItems() const { return m_Items.size(); }
  CItemView GetItem(size_t index) const { return CItemView(this, index); }
  bool IsEmpty() const { return m_Items.empty(); }
  bool HasItem(std::string_view name) const;
  // First item with that name, or -1.
  long FindItem(std::string_view name, size_t from = 0) const;
  const CBlock* FindBlock(std::string_view name) const;
  std::vector<const CBlock*> FindBlocks(std::string_view name) const;

  // ---- Typed look-ups ----------------------------------------------------
  // Each returns kReadOk and sets the output, kReadTolerated when the item is
  // absent (output unchanged), or an error code with the output unchanged and
  // the reason recorded in the tree's error state. The first item of that
  // name is used.
  ReadError GetInteger(std::string_view name, int& out) const;
  ReadError GetInteger(std::string_view name, std::int64_t& out) const;
  ReadError GetReal(std::string_view name, double& out) const;  // integers accepted
  ReadError GetBoolean(std::string_view name, bool& out) const;
  ReadError GetString(std::string_view name, AString& out) const;  // strings and names
  ReadError GetRealFunction(std::string_view name, std::vector<double>& out) const;
  ReadError GetComplex(std::string_view name, AComplex<double>& out) const;
  // Enumeration by name: kReadOk, kReadTolerated when absent, kReadUnknownName
  // when the name is not in the table (value kept, reason recorded) or when
  // the item holds a number (written for a value outside the table; value
  // set to it).
  ReadError GetEnum(std::string_view name, std::span<const char* const> table, int& value) const;

  // ---- Error state -------------------------------------------------------
  // The first reason a read failed, kept by the root of the tree so that a
  // reader at any depth can report it. Messages name the source line and
  // column and what was expected.
  const AString& GetReadError() const;
  bool HasReadError() const { return !GetReadError().empty(); }
  void ClearReadError() const;
  // Records a reason at an item's position (or the block's when item < 0),
  // unless an earlier one is kept. Returns `code` for convenient returns.
  ReadError ReportReadError(ReadError code, long item, std::string_view what) const;
  // Replaces the error state with a complete message that already names the
  // source and position (the text reader's syntax errors).
  void SetReadError(std::string_view message) const;

  // Deep equality of names, items, values (bitwise for reals) and sub-blocks.
  friend bool operator==(const CBlock& a, const CBlock& b);

 private:
  friend class CItemView;

  // A value as stored: scalars inline, strings by index into m_Texts, so a
  // point-heavy block holds no allocation per number.
  struct Slot {
    ValueKind kind;
    union {
      std::int64_t integer;
      double real;
      std::uint32_t text;
    };
  };
  struct Item {
    AString name;
    ItemKind kind;
    std::uint32_t firstSlot = 0;
    std::uint32_t numSlots = 0;
    std::int32_t line = 0;
    std::int32_t column = 0;
    std::unique_ptr<CBlock> block;
  };

  const CBlock& Root() const;
  void AdoptChildren();
  Item& NewItem(std::string_view name, ItemKind kind);
  void PushSlot(const CValue& v);
  Item* LastFunction();
  const Item* Find(std::string_view name) const;
  ReadError WrongKind(const Item& item, const char* expected) const;
  CValue SlotValue(const Slot& s) const;

  AString m_Name;
  int m_Line = 0;
  int m_Column = 0;
  const CBlock* m_Parent = nullptr;  // back reference, for the shared error state
  std::vector<Item> m_Items;
  std::vector<Slot> m_Slots;     // values of all items, in item order
  std::vector<AString> m_Texts;  // strings and names referenced by slots
  // Kept by the root only.
  AString m_SourceName;
  mutable AString m_ReadError;
};

}  // namespace io
