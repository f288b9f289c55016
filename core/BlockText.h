// The text form of a block tree: how a project file spells blocks, named
// values, lists, strings and numbers (documented in docs/project-file.md).
#pragma once

#include <cstddef>
#include <filesystem>
#include <string>
#include <string_view>

#include "core/Block.h"

namespace io {

// The longest line the reader accepts, in bytes without its line end. A
// project file is read whole, but a file whose line does not end within this
// bound (a file without line ends, /dev/zero) is refused as soon as that is
// clear instead of being buffered until memory runs out. The writer puts
// one item per line, and its longest (a list) stays far below it. The
// network-file readers have the same bound (nd::kMaxLineBytes).
inline constexpr size_t kMaxLineBytes = size_t{64} << 20;

// Deepest nesting of blocks the reader accepts; deeper input is an error, so
// no input can exhaust the stack of the reader or of the block destructor.
inline constexpr int kMaxBlockDepth = 200;

// Appends the items of `root` (not the root's own name) as text. Reals are
// written in the shortest form that reads back to the same bits.
void WriteBlockText(const CBlock& root, std::string& out);

// Parses `text` and appends its items to `root`. On failure returns
// kReadSyntax, leaves `root` empty and records a message in root's error
// state naming `sourceName`, line, column and what was expected.
ReadError ParseBlockText(std::string_view text, std::string_view sourceName, CBlock& root);

// Reads a whole file (kReadFileError with a message when it cannot be read;
// kReadSyntax for a line longer than kMaxLineBytes, found while reading).
ReadError ReadBlockFile(const std::filesystem::path& path, CBlock& root);

// Writes the text of `root` to `path` atomically: a temporary file beside
// the target is written, flushed and renamed, so an interrupted or failed
// save never leaves a damaged file. On failure `error` says why.
bool WriteBlockFile(const std::filesystem::path& path, const CBlock& root, AString* error = nullptr);

}  // namespace io
