// CMatlabExportVisitor: writes a solution's network data as a MATLAB m-file
// (S, Y or Z matrices, port impedances "Zo" and propagation constants
// "Gamma" per frequency), declarations first, then data.
#pragma once

#include <vector>

#include "core/TokenOstream.h"
#include "sparamlib/solution/DesignVariation.h"
#include "sparamlib/solution/NetworkDataSolution.h"

class CMatlabExportVisitor {
 public:
  // `quantities` are nd::NetworkDataType codes (1 S, 2 Y, 4 Z, 8 Zo,
  // 16 Gamma) written in list order; `precision` is the number of digits
  // after the decimal point. An empty frequency list means every solved one.
  CMatlabExportVisitor(io::CToken_ostream& out, std::vector<double> frequencies,
                       std::vector<int> quantities, int precision,
                       const IDesignVariation* variation, const AString& title);

  // Both passes over the solution.
  void Visit(CNetworkDataSolution& solution);

 private:
  io::CToken_ostream& m_Out;
  std::vector<double> m_Frequencies;
  std::vector<int> m_Quantities;
  int m_Precision;
  const IDesignVariation* m_Variation;
  AString m_Title;
};
