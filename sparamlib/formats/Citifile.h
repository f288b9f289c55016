// Citifile (.cit): network data as one package with a frequency variable
// and one DATA array per matrix element (S[i,j], Y[i,j] or Z[i,j], real and
// imaginary part). Port impedances and propagation constants travel as the
// arrays Z0[k] and GAMMA[k], so a modal solution reads back as it was.
#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "core/AString.h"
#include "core/TokenOstream.h"
#include "sparamlib/data/NetworkDataTypes.h"
#include "sparamlib/solution/NetworkModalSolution.h"

namespace nd {

// Writes the solution's `kind` matrix at each frequency of the list
// (interpolated where not solved), each number with `precision` significant
// digits; with `renormalize` every port is first referred to
// `referenceImpedance`. False when the file cannot be written.
bool WriteCitifile(const AString& fileName, CNetworkDataSolution& solution,
                   const std::vector<double>& frequencies, NetworkDataType kind, int precision,
                   bool renormalize, double referenceImpedance);

// The same into an open stream; the caller closes it and checks for
// failure.
void WriteCitifile(io::CToken_ostream& out, CNetworkDataSolution& solution,
                   const std::vector<double>& frequencies, NetworkDataType kind, int precision,
                   bool renormalize, double referenceImpedance);

// Reads a Citifile holding S, Y or Z data. Ports without Z0 arrays are at
// 50 ohms. Null on failure, with "file:line:column: what was expected" in
// `error`.
std::unique_ptr<CNetworkModalSolution> ReadCitifile(const std::filesystem::path& path,
                                                    std::string* error);
std::unique_ptr<CNetworkModalSolution> ReadCitifileText(std::string_view text,
                                                        const std::string& name,
                                                        std::string* error);

}  // namespace nd
