// Stored form of complex matrices and vectors inside a block:
//   a matrix is a sub-block holding "m" and "n" and rows "r0", "r1", ...,
//   each row one "c" item (real, imaginary) per element in column order;
//   a vector is a sub-block holding "n" and one "c" item per element.
#pragma once

#include <memory>
#include <string_view>

#include "core/Block.h"
#include "math/matrix/MatrixOps.h"

namespace nd {

// The largest port count (matrix order) a reader accepts: a TNT matrix
// counts its elements in an int, and 46340 x 46340 is the largest square
// whose count fits (46341 x 46341 passes 2^31 - 1). Readers check a claimed
// count against it, and against what the input holds, before allocating.
inline constexpr int kMaxMatrixOrder = 46340;
static_assert(static_cast<long long>(kMaxMatrixOrder) * kMaxMatrixOrder <= 2147483647LL &&
              static_cast<long long>(kMaxMatrixOrder + 1) * (kMaxMatrixOrder + 1) > 2147483647LL);

void WriteMatrix(io::CBlock& parent, std::string_view key, const TNT::CMatrix& matrix);
void WriteVector(io::CBlock& parent, std::string_view key, const TNT::CVector& vector);

// Reads the matrix stored in `item` into `matrix`, whose size must match the
// stored "m" and "n". A size mismatch returns kReadBadValue quietly (callers
// may retry at another size); broken content is reported in the block's
// error state. On failure the matrix content is unspecified.
io::ReadError ReadMatrix(const io::CBlock& item, TNT::CMatrix& matrix);
io::ReadError ReadVector(const io::CBlock& item, TNT::CVector& vector);

// Reads the optional vector item `key` at length n into `vector` (allocated
// when absent or of another length). Absent: unchanged. Unreadable: dropped.
void ReadOptionalVector(const io::CBlock& block, std::string_view key,
                        std::unique_ptr<TNT::CVector>& vector, int n);

// Stored dimensions of a matrix item (0 when absent or not integers).
void StoredMatrixSize(const io::CBlock& item, int& rows, int& cols);

}  // namespace nd
