// `sparam convert`: any network data file we read (project, Touchstone,
// Citifile) written in any format we write, chosen by extension.
#pragma once

#include <memory>
#include <string>

#include "product/ExportNetworkDataCmd.h"
#include "product/Project.h"

namespace sparam {

// True for the extensions LoadNetworkFile reads: .ndp, .sNp, .ts, .cit.
bool IsNetworkFile(const std::string& path);

// A project file as it is; a Touchstone or Citifile file as a project whose
// one variation holds one solution named after the file. Null with a
// one-line message naming the file (and line) in `error`.
std::unique_ptr<CProject> LoadNetworkFile(const std::string& path, std::string* error);

// Writes `input` to request.output: a project file (.ndp) whole, any other
// format through the export command with the request's options, so the
// file states the same reference impedance `sparam export` would state;
// propagation constants travel as "! Gamma" lines behind Touchstone
// records. An output that is the input file itself (by name, hard link or
// symbolic link) is refused. False with a one-line reason; the target is
// then untouched. `notes` as for CExportNetworkDataCmd::Execute.
bool Convert(const std::string& input, ExportRequest request, std::string* error,
             std::vector<std::string>* notes = nullptr);

}  // namespace sparam
