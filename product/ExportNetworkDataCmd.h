// CExportNetworkDataCmd: exports one solution of a project in a chosen file
// format. It picks the writer by nd::NetworkDataExportFormat, checks
// everything a writer would silently give up on, and writes through a
// temporary file renamed at the end, so a failed export leaves no half file.
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
  // Touchstone: the data is already at this real impedance on every port,
  // and the option line says so (R); ignored when renormalizeTo is set.
  std::optional<double> dataAtReference;
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
  // then untouched.
  bool Execute(CProject& project, const ExportRequest& request, std::string* error) const;
};
