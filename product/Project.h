// CProject: a project file (.ndp) holding one design with its variations,
// each with its solutions and post-processing setup. Saving is atomic and
// loading is all or nothing: a damaged or foreign file gives an error that
// names the file and line, and no project.
#pragma once

#include <filesystem>
#include <memory>
#include <vector>

#include "product/FxSolutionVariation.h"

// Whether a file name is a project's (.ndp, in any case).
bool IsProjectFile(const std::filesystem::path& path);

class CProject {
 public:
  // Version of the stored form this build writes and reads.
  static constexpr int kFormatVersion = 1;

  const AString& GetDesignName() const { return m_DesignName; }
  void SetDesignName(const AString& name) { m_DesignName = name; }

  FxSolutionVariation& AddVariation();
  const std::vector<std::unique_ptr<FxSolutionVariation>>& GetVariations() const {
    return m_Variations;
  }
  FxSolutionVariation* GetVariation(size_t index);

  bool WriteToBlock(io::CBlock& root) const;
  // Writes a temporary file beside `path` and renames it over the target.
  bool Save(const std::filesystem::path& path, AString* error = nullptr) const;
  // Null, with a one-line message in `error`, when the file cannot be used.
  static std::unique_ptr<CProject> Load(const std::filesystem::path& path, AString* error = nullptr);
  static std::unique_ptr<CProject> FromBlock(const io::CBlock& root, AString* error = nullptr);

 private:
  AString m_DesignName;
  std::vector<std::unique_ptr<FxSolutionVariation>> m_Variations;
};
