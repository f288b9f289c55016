// io::ReadError: the result of reading an item or an object from a block.
// 0 and 1 let reading go on; anything else aborts the read and is passed up.
#pragma once

namespace io {

enum ReadError : int {
  kReadOk = 0,           // read as asked
  kReadTolerated = 1,    // not fatal: the item is absent (value kept) or was dropped
  kReadUnknownName = 2,  // an enumeration name outside the table; value kept
  kReadWrongType = 3,    // the item holds another kind of value or is not an item of that kind
  kReadBadValue = 4,     // a number out of range, or counts and shapes that disagree
  kReadSyntax = 5,       // the text could not be parsed
  kReadFileError = 6,    // the file could not be opened or read
};

// True for the results that let a caller continue reading.
constexpr bool IsReadOk(int result) { return result == kReadOk || result == kReadTolerated; }

// Keeps in `first` the first result of a sequence of reads that stops reading.
constexpr void KeepFirstError(int& first, int result) {
  if (IsReadOk(first) && !IsReadOk(result)) first = result;
}

}  // namespace io
