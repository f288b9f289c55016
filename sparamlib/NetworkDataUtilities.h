// Touchstone and Supercompact writers: a solution's network data at a list
// of frequencies, as the files circuit and system simulators read.
#pragma once

#include <vector>

#include "core/AString.h"
#include "sparamlib/DesignVariation.h"
#include "sparamlib/NetworkDataSolution.h"
#include "sparamlib/NetworkDataTypes.h"

namespace nd {

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
