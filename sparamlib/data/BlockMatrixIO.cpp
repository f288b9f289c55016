// Reading and writing complex matrices and vectors as blocks.
#include "sparamlib/data/BlockMatrixIO.h"

#include <charconv>
#include <vector>

namespace nd {
namespace {

using io::CBlock;
using io::ItemKind;
using io::ReadError;
using io::ValueKind;

// "r%d" without printf, for the hot path of large matrices.
std::string_view RowName(int i, char (&buf)[16]) {
  buf[0] = 'r';
  const auto res = std::to_chars(buf + 1, buf + sizeof buf, i);
  return std::string_view(buf, static_cast<size_t>(res.ptr - buf));
}

// Reads the "c" items of `block` into out[0..count). Returns kReadOk or a
// reported error naming what was expected.
ReadError ReadComplexItems(const CBlock& block, AComplex<double>* out, int count) {
  int found = 0;
  for (size_t k = 0; k < block.GetNumItems(); ++k) {
    const io::CItemView item = block.GetItem(k);
    if (item.GetName() != "c") continue;
    if (item.GetKind() != ItemKind::Function || item.GetNumValues() != 2) {
      return block.ReportReadError(io::kReadBadValue, static_cast<long>(k),
                                   "expected \"c\" = [real, imaginary]");
    }
    double parts[2];
    for (size_t p = 0; p < 2; ++p) {
      const ValueKind kind = item.GetValueKind(p);
      if (kind == ValueKind::Real) {
        parts[p] = item.GetRealUnchecked(p);
      } else if (kind == ValueKind::Integer) {
        parts[p] = static_cast<double>(item.GetValue(p).GetInteger());
      } else {
        return block.ReportReadError(io::kReadWrongType, static_cast<long>(k),
                                     "expected numbers in \"c\" = [real, imaginary]");
      }
    }
    if (found == count) {
      return block.ReportReadError(io::kReadBadValue, static_cast<long>(k),
                                   AString::Format("expected %d \"c\" items, found more", count));
    }
    out[found++] = AComplex<double>(parts[0], parts[1]);
  }
  if (found != count) {
    return block.ReportReadError(io::kReadBadValue, -1,
                                 AString::Format("expected %d \"c\" items, found %d", count, found));
  }
  return io::kReadOk;
}

// How many "c" items a block holds, for a message.
size_t CountComplexItems(const CBlock& block) {
  size_t count = 0;
  for (size_t k = 0; k < block.GetNumItems(); ++k) count += block.GetItem(k).GetName() == "c";
  return count;
}

// Reads a required integer dimension; absence is an error here.
ReadError ReadDimension(const CBlock& block, const char* key, int& value) {
  const ReadError r = block.GetInteger(key, value);
  if (r == io::kReadTolerated) {
    return block.ReportReadError(io::kReadBadValue, -1,
                                 AString::Format("expected the dimension \"%s\"", key));
  }
  return r;
}

}  // namespace

void WriteMatrix(CBlock& parent, std::string_view key, const TNT::CMatrix& matrix) {
  CBlock& block = parent.AddBlock(key);
  const int rows = matrix.num_rows(), cols = matrix.num_cols();
  block.Reserve(2 + static_cast<size_t>(rows), 2);
  block.AddInteger("m", rows);
  block.AddInteger("n", cols);
  char name[16];
  for (int i = 0; i < rows; ++i) {
    CBlock& row = block.AddBlock(RowName(i, name));
    row.Reserve(static_cast<size_t>(cols), 2 * static_cast<size_t>(cols));
    const AComplex<double>* values = matrix[i];
    for (int j = 0; j < matrix.num_cols(); ++j) row.AddComplex("c", values[j]);
  }
}

void WriteVector(CBlock& parent, std::string_view key, const TNT::CVector& vector) {
  CBlock& block = parent.AddBlock(key);
  block.Reserve(1 + static_cast<size_t>(vector.size()), 1 + 2 * static_cast<size_t>(vector.size()));
  block.AddInteger("n", vector.size());
  for (const AComplex<double>& z : vector) block.AddComplex("c", z);
}

void ReadOptionalVector(const CBlock& block, std::string_view key,
                        std::unique_ptr<TNT::CVector>& vector, int n) {
  const long index = block.FindItem(key);
  if (index < 0) return;
  const CBlock* item = block.GetItem(static_cast<size_t>(index)).GetBlock();
  if (!item || ReadVector(*item, n, vector) != io::kReadOk) vector.reset();
}

void StoredMatrixSize(const CBlock& item, int& rows, int& cols) {
  rows = cols = 0;
  std::int64_t m = 0, n = 0;
  const long mi = item.FindItem("m"), ni = item.FindItem("n");
  if (mi < 0 || ni < 0) return;
  const io::CItemView mv = item.GetItem(static_cast<size_t>(mi));
  const io::CItemView nv = item.GetItem(static_cast<size_t>(ni));
  if (mv.GetKind() != ItemKind::Value || nv.GetKind() != ItemKind::Value) return;
  if (mv.GetValueKind() != ValueKind::Integer || nv.GetValueKind() != ValueKind::Integer) return;
  m = mv.GetValue().GetInteger();
  n = nv.GetValue().GetInteger();
  if (m < 0 || n < 0 || m > (1 << 20) || n > (1 << 20)) return;
  rows = static_cast<int>(m);
  cols = static_cast<int>(n);
}

ReadError ReadMatrix(const CBlock& item, int rows, int cols, std::unique_ptr<TNT::CMatrix>& matrix) {
  int m = -1, n = -1;
  ReadError r = ReadDimension(item, "m", m);
  if (r != io::kReadOk) return r;
  if ((r = ReadDimension(item, "n", n)) != io::kReadOk) return r;
  if (m != rows || n != cols) return io::kReadBadValue;

  // Every row block and room for its items first: nothing of the claimed
  // size is allocated before the block is seen to hold it. (The row count
  // is bounded by the items found, so the list of rows is, too.)
  std::vector<const CBlock*> found;
  char name[16];
  size_t hint = 0;
  for (int i = 0; i < rows; ++i) {
    const std::string_view rowName = RowName(i, name);
    // Rows normally stand in order, so searching from the last one is O(1).
    long k = item.FindItem(rowName, hint);
    if (k < 0) k = item.FindItem(rowName);
    const CBlock* row = k < 0 ? nullptr : item.GetItem(static_cast<size_t>(k)).GetBlock();
    if (!row) {
      return item.ReportReadError(io::kReadBadValue, k,
                                  AString::Format("expected the row block \"%.*s\"",
                                                  static_cast<int>(rowName.size()), rowName.data()));
    }
    if (row->GetNumItems() < static_cast<size_t>(cols)) {
      return row->ReportReadError(io::kReadBadValue, -1,
                                  AString::Format("expected %d \"c\" items, found %zu", cols, CountComplexItems(*row)));
    }
    hint = static_cast<size_t>(k) + 1;
    found.push_back(row);
  }
  if (!matrix || matrix->num_rows() != rows || matrix->num_cols() != cols)
    matrix = std::make_unique<TNT::CMatrix>(rows, cols);
  for (int i = 0; i < rows; ++i)
    if ((r = ReadComplexItems(*found[static_cast<size_t>(i)], (*matrix)[i], cols)) != io::kReadOk) return r;
  return io::kReadOk;
}

ReadError ReadVector(const CBlock& item, int n, std::unique_ptr<TNT::CVector>& vector) {
  int stored = -1;
  const ReadError r = ReadDimension(item, "n", stored);
  if (r != io::kReadOk) return r;
  if (n >= 0 && stored != n) {
    return item.ReportReadError(io::kReadBadValue, item.FindItem("n"),
                                AString::Format("expected \"n\" = %d, found %d", n, stored));
  }
  if (stored < 0) {
    return item.ReportReadError(io::kReadBadValue, item.FindItem("n"),
                                AString::Format("expected \"n\" of 0 or more, found %d", stored));
  }
  // "n" and a "c" item per element: a length beyond the items is refused
  // before it is allocated.
  if (item.GetNumItems() < static_cast<size_t>(stored) + 1) {
    return item.ReportReadError(io::kReadBadValue, item.FindItem("n"),
                                AString::Format("expected %d \"c\" items, found %zu", stored, CountComplexItems(item)));
  }
  if (!vector || vector->size() != stored) vector = std::make_unique<TNT::CVector>(stored);
  return ReadComplexItems(item, vector->data(), stored);
}

}  // namespace nd
