// Touchstone and Supercompact writers: a solution's network data at a list
// of frequencies, as the files circuit and system simulators read.
#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "core/AString.h"
#include "sparamlib/data/NetworkDataTypes.h"
#include "core/TokenOstream.h"
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
// when `renormalize` is set, and releases the points it interpolated:
// the walk every writer of one record per frequency makes. `frequency` is
// the point's own.
void ForEachExportPoint(CNetworkDataSolution& solution, const std::vector<double>& frequencies,
                        bool renormalize, double referenceImpedance,
                        const std::function<void(double, CNetworkData&)>& write);

// Writes a Touchstone file (version 1). Points are fetched with
// interpolation allowed; those interpolated for the export are released
// after writing and renormalisation works on copies, so the solution holds
// what it held before. Each record carries its point's own frequency. A file that cannot be opened is not
// written and nothing is reported (callers check first).
void WriteTouchstoneFile(const AString& fileName, CNetworkDataSolution& solution,
                         const std::vector<double>& frequencies, const AString& projectName,
                         bool exportGamma, double referenceImpedance, DisplayFormatType format,
                         NetworkDataType kind, int precision, bool renormalize,
                         bool alreadyAtReference, const IDesignVariation* variation);

// The same into an open stream; the caller closes it and checks for
// failure.
void WriteTouchstone(io::CToken_ostream& out, CNetworkDataSolution& solution,
                     const std::vector<double>& frequencies, const AString& projectName,
                     bool exportGamma, double referenceImpedance, DisplayFormatType format,
                     NetworkDataType kind, int precision, bool renormalize,
                     bool alreadyAtReference, const IDesignVariation* variation);

// What a Touchstone 2.0 file states about its data beyond the records.
struct Touchstone2Options {
  // The option line's R: the reference of every port without a [Reference].
  double referenceImpedance = 50.0;
  // One real reference per port for the [Reference] line; empty: none.
  std::vector<double> portReferences;
  // "! Gamma" and "! Port Impedance" comment lines behind each record.
  bool exportGamma = false;
};

// Writes Touchstone 2.0: the comment header, [Version] 2.0, the option line,
// [Number of Ports], [Two-Port Data Order] for two-ports, [Number of
// Frequencies], [Reference] when given, [Network Data], the records laid out
// as version 1 lays them out, [Noise Data] for a two-port with noise data,
// and [End]. Y and Z are written in siemens and ohms, as version 2 reads
// them. The points are written as they stand: renormalising is the caller's
// business, and the reference stated must be the data's own. The frequency
// list must hold only frequencies with a point (it gives the count).
void WriteTouchstone2(io::CToken_ostream& out, CNetworkDataSolution& solution,
                      const std::vector<double>& frequencies, const AString& projectName,
                      const Touchstone2Options& options, DisplayFormatType format,
                      NetworkDataType kind, int precision, const IDesignVariation* variation);

// Writes a Supercompact file. Points interpolated for the export are removed
// afterwards unless `keepPoints` is set.
void WriteSupercompactFile(const AString& fileName, CNetworkDataSolution& solution,
                           const std::vector<double>& frequencies, const AString& projectName,
                           double referenceImpedance, NetworkDataType kind,
                           DisplayFormatType format, bool keepPoints);

// The same into an open stream.
void WriteSupercompact(io::CToken_ostream& out, CNetworkDataSolution& solution,
                       const std::vector<double>& frequencies, const AString& projectName,
                       double referenceImpedance, NetworkDataType kind, DisplayFormatType format,
                       bool keepPoints);

}  // namespace nd
