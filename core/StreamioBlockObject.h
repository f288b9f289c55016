// io::CStreamio_block_object: the base of every object that stores itself as
// a named block of the project file.
#pragma once

#include <filesystem>
#include <iosfwd>

#include "core/AString.h"
#include "core/Block.h"
#include "core/ReadError.h"

namespace io {

class CStreamio_block_object {
 public:
  virtual ~CStreamio_block_object() = default;

  // Name of the block the object is stored under.
  virtual AString GetBlockName() const = 0;

  // Reading: the result of ReadFromBlock. Writing: 0 when WriteToBlock
  // succeeded, 1 otherwise.
  virtual int DoDataExchange(CBlock& block, bool reading);

  // Fills the object from its block; returns an io::ReadError code.
  virtual int ReadFromBlock(const CBlock& block) = 0;
  // Appends the object's items to its block; false when something could not be written.
  virtual bool WriteToBlock(CBlock& block) const = 0;

  // Whole-object text I/O: the object as one named block at the top level.
  bool WriteToStream(std::ostream& os) const;
  bool WriteToFile(const std::filesystem::path& path, AString* error = nullptr) const;
  // Reads the first top-level block named GetBlockName(). On a failure the
  // message (file, line, what was expected) goes to `error`.
  int ReadFromText(std::string_view text, std::string_view sourceName, AString* error = nullptr);
  int ReadFromStream(std::istream& is, AString* error = nullptr);
  int ReadFromFile(const std::filesystem::path& path, AString* error = nullptr);

 private:
  int ReadFromRoot(const CBlock& root, AString* error);
};

}  // namespace io
