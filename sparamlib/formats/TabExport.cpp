// Spreadsheet export: one header line, then one line per frequency built in
// a reused buffer.
#include "sparamlib/formats/TabExport.h"

#include <filesystem>
#include <string>

#include "core/TokenOstream.h"
#include "sparamlib/formats/NetworkDataUtilities.h"
#include "sparamlib/formats/NumberFormat.h"

namespace nd {

bool WriteTabFile(const AString& fileName, CNetworkDataSolution& solution,
                  const std::vector<double>& frequencies, NetworkDataType kind,
                  DisplayFormatType format, int precision, bool renormalize,
                  double referenceImpedance) {
  io::CToken_ostream out{std::filesystem::path(static_cast<const std::string&>(fileName))};
  if (out.fail()) return false;
  WriteTabFile(out, solution, frequencies, kind, format, precision, renormalize, referenceImpedance);
  return out.Close();
}

void WriteTabFile(io::CToken_ostream& out, CNetworkDataSolution& solution,
                  const std::vector<double>& frequencies, NetworkDataType kind,
                  DisplayFormatType format, int precision, bool renormalize,
                  double referenceImpedance) {
  const int n = solution.GetNumMatrixEntries();
  const char letter = kind == kYMatrix ? 'Y' : kind == kZMatrix ? 'Z' : 'S';
  const char* first = format == kMagnitudeAngle ? "mag" : format == kDbAngle ? "dB" : "re";
  const char* second = format == kRealImaginary ? "im" : "ang";
  const char* secondUnit = format == kRealImaginary ? "" : " [deg]";
  std::string line = "Freq [Hz]";
  for (int i = 0; i < n; ++i) {
    for (int j = 0; j < n; ++j) {
      line += AString::Format("\t%s(%c(%d,%d))\t%s(%c(%d,%d))%s", first, letter, i + 1, j + 1, second,
                              letter, i + 1, j + 1, secondUnit);
    }
  }
  out << line.c_str();
  out.EndLine();

  const CNumberFormat frequencyFormat(AString::Format("%%.%dG", std::max(precision, 15)));
  const CNumberFormat valueFormat(AString::Format("\t%%.%dG", std::max(precision, 1)));
  ForEachExportPoint(solution, frequencies, renormalize, referenceImpedance, [&](double f, CNetworkData& point) {
    const TNT::CMatrix* m = MatrixOf(point, kind, n);
    if (!m) return;
    line.clear();
    frequencyFormat.Append(line, f);
    for (int k = 0; k < n * n; ++k) {
      const NumberPair v = Convert(m->data()[k], format);
      valueFormat.Append(line, v.first);
      valueFormat.Append(line, v.second);
    }
    out << line.c_str();
    out.EndDataLine();
  });
}

}  // namespace nd
