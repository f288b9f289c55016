// Spreadsheet export (.tab): tab-separated text with a header naming each
// column and one row per frequency, for spreadsheets and plotting scripts.
#pragma once

#include <vector>

#include "core/AString.h"
#include "core/TokenOstream.h"
#include "sparamlib/data/NetworkDataTypes.h"
#include "sparamlib/solution/NetworkDataSolution.h"

namespace nd {

// Columns: "Freq [Hz]", then for each matrix element (row by row) its two
// numbers in `format`: "mag(S(1,2))" and "ang(S(1,2)) [deg]", "dB(S(1,2))"
// and "ang(S(1,2)) [deg]", or "re(S(1,2))" and "im(S(1,2))". Numbers carry
// `precision` significant digits (frequencies at least 15). With
// `renormalize` every port is first referred to `referenceImpedance`.
// False when the file cannot be written.
bool WriteTabFile(const AString& fileName, CNetworkDataSolution& solution,
                  const std::vector<double>& frequencies, NetworkDataType kind,
                  DisplayFormatType format, int precision, bool renormalize,
                  double referenceImpedance);

// The same into an open stream; the caller closes it and checks for
// failure.
void WriteTabFile(io::CToken_ostream& out, CNetworkDataSolution& solution,
                  const std::vector<double>& frequencies, NetworkDataType kind,
                  DisplayFormatType format, int precision, bool renormalize,
                  double referenceImpedance);

}  // namespace nd
