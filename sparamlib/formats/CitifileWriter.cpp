// Citifile writing: the solution's S, Y or Z matrices, port impedances and
// propagation constants as one package, one DATA array per element. The
// arrays run over all frequencies, so every point is gathered before any
// line is written.
#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "core/TokenOstream.h"
#include "sparamlib/data/NetworkModalData.h"
#include "sparamlib/formats/Citifile.h"
#include "sparamlib/formats/NetworkDataUtilities.h"
#include "sparamlib/formats/NumberFormat.h"

namespace nd {
namespace {

using Complex = AComplex<double>;
using TNT::CMatrix;
using TNT::CVector;

// Citifile names are single words.
std::string PackageName(const AString& name) {
  std::string out;
  for (char c : name) out.push_back(c == ' ' || c == '\t' ? '_' : c);
  return out.empty() ? std::string("DATA") : out;
}

}  // namespace

bool WriteCitifile(const AString& fileName, CNetworkDataSolution& solution,
                   const std::vector<double>& frequencies, NetworkDataType kind, int precision,
                   bool renormalize, double referenceImpedance) {
  io::CToken_ostream out{std::filesystem::path(static_cast<const std::string&>(fileName))};
  if (out.fail()) return false;
  WriteCitifile(out, solution, frequencies, kind, precision, renormalize, referenceImpedance);
  return out.Close();
}

void WriteCitifile(io::CToken_ostream& out, CNetworkDataSolution& solution,
                   const std::vector<double>& frequencies, NetworkDataType kind, int precision,
                   bool renormalize, double referenceImpedance) {
  const int n = solution.GetNumMatrixEntries();
  // The arrays run over all frequencies, so the values are gathered first.
  std::vector<double> written;
  std::vector<CMatrix> matrices;
  std::vector<CVector> impedances, gammas;
  bool allImpedances = true, allGammas = true;
  ForEachExportPoint(solution, frequencies, renormalize, referenceImpedance, [&](double f, CNetworkData& point) {
    const CMatrix* m = MatrixOf(point, kind, n);
    if (!m) return;
    written.push_back(f);
    matrices.push_back(*m);
    const CVector* z = point.GetPortVector(kPortImpedances);
    const CVector* g = point.GetPortVector(kPropagationConstants);
    allImpedances = allImpedances && z && z->dim() == n;
    allGammas = allGammas && g && g->dim() == n;
    if (allImpedances) impedances.push_back(*z);
    if (allGammas) gammas.push_back(*g);
  });

  const char letter = kind == kYMatrix ? 'Y' : kind == kZMatrix ? 'Z' : 'S';
  out << "CITIFILE A.01.00";
  out.EndLine();
  out.Printf("NAME %s", PackageName(solution.GetName()).c_str());
  out.EndLine();
  out.Printf("VAR FREQ MAG %zu", written.size());
  out.EndLine();
  for (int i = 0; i < n; ++i) {
    for (int j = 0; j < n; ++j) {
      out.Printf("DATA %c[%d,%d] RI", letter, i + 1, j + 1);
      out.EndLine();
    }
  }
  const bool withImpedance = allImpedances && !written.empty();
  const bool withGamma = allGammas && !written.empty();
  for (const char* name : {withImpedance ? "Z0" : nullptr, withGamma ? "GAMMA" : nullptr}) {
    if (!name) continue;
    for (int k = 0; k < n; ++k) {
      out.Printf("DATA %s[%d] RI", name, k + 1);
      out.EndLine();
    }
  }

  // Frequencies in Hz want more digits than the values: 1.0000001 GHz must
  // not collapse onto 1 GHz.
  const CNumberFormat frequencyFormat(AString::Format("%%.%dG", std::max(precision, 15)));
  const CNumberFormat valueFormat(AString::Format("%%.%dE,", std::max(precision - 1, 0)));
  const CNumberFormat lastFormat(AString::Format("%%.%dE", std::max(precision - 1, 0)));
  std::string line;
  out << "VAR_LIST_BEGIN";
  out.EndLine();
  for (double f : written) {
    line.clear();
    frequencyFormat.Append(line, f);
    out << line.c_str();
    out.EndDataLine();
  }
  out << "VAR_LIST_END";
  out.EndLine();
  const auto block = [&](auto value) {
    out << "BEGIN";
    out.EndLine();
    for (size_t f = 0; f < written.size(); ++f) {
      const Complex z = value(f);
      line.clear();
      valueFormat.Append(line, z.re);
      lastFormat.Append(line, z.im);
      out << line.c_str();
      out.EndDataLine();
    }
    out << "END";
    out.EndLine();
  };
  for (int k = 0; k < n * n; ++k) block([&](size_t f) { return matrices[f].data()[k]; });
  if (withImpedance)
    for (int k = 0; k < n; ++k) block([&](size_t f) { return impedances[f][k]; });
  if (withGamma)
    for (int k = 0; k < n; ++k) block([&](size_t f) { return gammas[f][k]; });
}

}  // namespace nd
