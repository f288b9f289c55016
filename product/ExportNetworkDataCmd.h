// CExportNetworkDataCmd: exports one solution of a project in a chosen file
// format. It decides what to write first (ExportPlan: frequencies, points,
// the reference the file may state), picks the writer by
// nd::NetworkDataExportFormat, and writes through io::COutputFile, so a
// failed export leaves the old file as it was and no half file.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "product/Project.h"
#include "sparamlib/data/NetworkDataTypes.h"

struct ExportRequest {
  std::string output;
  nd::NetworkDataExportFormat format = nd::kExportTouchstone;
  size_t variation = 0;          // 0-based
  std::string solution;          // empty: the variation's first
  nd::NetworkDataType kind = nd::kSMatrix;
  nd::DisplayFormatType display = nd::kMagnitudeAngle;
  int precision = 8;
  std::optional<double> renormalizeTo;  // ohms
  // Keep port impedances that differ or vary instead of renormalising the
  // data to the one reference a Touchstone option line can state.
  bool keepPortImpedances = false;
  // Leave out requested frequencies outside the solved band instead of
  // refusing them.
  bool clip = false;
  // Write the data as solved, without the setup's post-processing.
  bool noPostprocessing = false;
  bool gamma = false;
  std::vector<int> quantities;      // MATLAB; empty: the matrix kind
  std::vector<double> frequencies;  // Hz; empty: the solved ones
  std::string projectName;          // header text; empty: the design name
};

class CExportNetworkDataCmd {
 public:
  // The export format that a file name's extension calls for (.sNp and .ts
  // Touchstone, .cit Citifile, .tab spreadsheet, .m MATLAB, .sc
  // Supercompact); nothing for others.
  static std::optional<nd::NetworkDataExportFormat> FormatFromExtension(const std::string& path);

  // Runs the export. False with a one-line reason in `error`; the target is
  // then untouched. `notes` receives what the user should know about the
  // data written (renormalised, frequencies or quantities left out).
  bool Execute(CProject& project, const ExportRequest& request, std::string* error,
               std::vector<std::string>* notes = nullptr) const;
};
