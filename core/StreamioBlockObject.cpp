// Text and file I/O shared by every persistent object.
#include "core/StreamioBlockObject.h"

#include <iterator>
#include <ostream>
#include <sstream>

#include "core/BlockText.h"

namespace io {

int CStreamio_block_object::DoDataExchange(CBlock& block, bool reading) {
  if (reading) return ReadFromBlock(block);
  return WriteToBlock(block) ? 0 : 1;
}

namespace {

bool BuildRoot(const CStreamio_block_object& object, CBlock& root) {
  CBlock& own = root.AddBlock(object.GetBlockName());
  return object.WriteToBlock(own);
}

}  // namespace

bool CStreamio_block_object::WriteToStream(std::ostream& os) const {
  CBlock root;
  if (!BuildRoot(*this, root)) return false;
  std::string text;
  WriteBlockText(root, text);
  os.write(text.data(), static_cast<std::streamsize>(text.size()));
  return static_cast<bool>(os);
}

bool CStreamio_block_object::WriteToFile(const std::filesystem::path& path, AString* error) const {
  CBlock root;
  if (!BuildRoot(*this, root)) {
    if (error) *error = AString("could not store \"") + GetBlockName() + "\"";
    return false;
  }
  return WriteBlockFile(path, root, error);
}

int CStreamio_block_object::ReadFromRoot(const CBlock& root, AString* error) {
  const CBlock* own = root.FindBlock(GetBlockName());
  if (!own) {
    root.ReportReadError(kReadWrongType, -1,
                         AString("expected a block \"") + GetBlockName() + "\" at the top level");
    if (error) *error = root.GetReadError();
    return kReadWrongType;
  }
  const int result = ReadFromBlock(*own);
  if (error) *error = root.GetReadError();
  return result;
}

int CStreamio_block_object::ReadFromText(std::string_view text, std::string_view sourceName,
                                         AString* error) {
  CBlock root;
  const ReadError parsed = ParseBlockText(text, sourceName, root);
  if (parsed != kReadOk) {
    if (error) *error = root.GetReadError();
    return parsed;
  }
  return ReadFromRoot(root, error);
}

int CStreamio_block_object::ReadFromStream(std::istream& is, AString* error) {
  const std::string text{std::istreambuf_iterator<char>(is), std::istreambuf_iterator<char>()};
  return ReadFromText(text, "<stream>", error);
}

int CStreamio_block_object::ReadFromFile(const std::filesystem::path& path, AString* error) {
  CBlock root;
  const ReadError loaded = ReadBlockFile(path, root);
  if (loaded != kReadOk) {
    if (error) *error = root.GetReadError();
    return loaded;
  }
  return ReadFromRoot(root, error);
}

}  // namespace io
