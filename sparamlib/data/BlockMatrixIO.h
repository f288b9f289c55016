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

// Reads the matrix stored in `item` at `rows` x `cols` into `matrix`. The
// stored "m" and "n" are checked against that size, and the block against
// its own "m" and "n" (a row block "r<i>" for each row, each with room for
// `cols` "c" items), before `matrix` is allocated (or reused at that size):
// a damaged file claiming a huge matrix costs nothing. A size mismatch
// returns kReadBadValue quietly, `matrix` untouched (callers may retry at
// another size); broken content is reported in the block's error state. On
// other failures the matrix content is unspecified.
io::ReadError ReadMatrix(const io::CBlock& item, int rows, int cols, std::unique_ptr<TNT::CMatrix>& matrix);
// The same for a vector of length n (any stored length when n < 0); a length
// other than n is reported. The stored "c" items are counted before
// `vector` is allocated.
io::ReadError ReadVector(const io::CBlock& item, int n, std::unique_ptr<TNT::CVector>& vector);

// Reads the optional vector item `key` at length n into `vector`. Absent:
// unchanged. Unreadable: dropped.
void ReadOptionalVector(const io::CBlock& block, std::string_view key,
                        std::unique_ptr<TNT::CVector>& vector, int n);

// Stored dimensions of a matrix item (0 when absent or not integers).
void StoredMatrixSize(const io::CBlock& item, int& rows, int& cols);

}  // namespace nd
