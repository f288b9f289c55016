// Touchstone and Supercompact writers: a solution's network data at a list
// of frequencies, as the files circuit and system simulators read.
#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "core/AString.h"
#include "sparamlib/data/NetworkDataTypes.h"
#include "sparamlib/solution/DesignVariation.h"
#include "sparamlib/solution/NetworkDataSolution.h"

namespace nd {

// ---- Shared by the export writers ----------------------------------------

// The two numbers a complex value is written as: magnitude and angle in
// degrees, dB and angle (-9999.999 dB at or below a magnitude of 1e-25), or
// real and imaginary part.
struct NumberPair {
  double first;
  double second;
};
NumberPair Convert(const AComplex<double>& z, DisplayFormatType format);

// The point's n x n matrix of a kind (computed when absent); null for other
// kinds, when it cannot be formed, or when its size is not n.
const TNT::CMatrix* MatrixOf(CNetworkData& point, NetworkDataType kind, int n);

// A copy of a modal point referred to `reference`, for writing: the stored
// point keeps its own references. Null when the point has no port
// impedances or cannot be renormalised (write it as it stands).
std::unique_ptr<CNetworkData> RenormalizedCopy(CNetworkData& point, const TNT::CVector& reference);

// Calls `write(frequency, point)` for each frequency of the list that has a
// point (interpolated where it was not solved), with a renormalised copy
// when `renormalize` is set, and releases interpolated points afterwards:
// the walk every writer of one record per frequency makes.
void ForEachExportPoint(CNetworkDataSolution& solution, const std::vector<double>& frequencies,
                        bool renormalize, double referenceImpedance,
                        const std::function<void(double, CNetworkData&)>& write);

// Writes a Touchstone file. Points are fetched with interpolation allowed
// and released after writing, and renormalised points are put back, so the
// solution holds what it held before. A file that cannot be opened is not
// written and nothing is reported (callers check first).
void WriteTouchstoneFile(const AString& fileName, CNetworkDataSolution& solution,
                         const std::vector<double>& frequencies, const AString& projectName,
                         bool exportGamma, double referenceImpedance, DisplayFormatType format,
                         NetworkDataType kind, int precision, bool renormalize,
                         bool alreadyAtReference, const IDesignVariation* variation);

// Writes a Supercompact file. Points interpolated for the export are removed
// afterwards unless `keepPoints` is set.
void WriteSupercompactFile(const AString& fileName, CNetworkDataSolution& solution,
                           const std::vector<double>& frequencies, const AString& projectName,
                           double referenceImpedance, NetworkDataType kind,
                           DisplayFormatType format, bool keepPoints);

}  // namespace nd
