// MATLAB m-file export: a header pass that declares every array with zeros,
// then a data pass that assigns one frequency slice per line.
#include "sparamlib/formats/MatlabExportVisitor.h"

#include "sparamlib/formats/NumberFormat.h"

#include <cmath>
#include <cstdio>
#include <string>

#include "core/Assert.h"
#include "sparamlib/data/NetworkDataTypes.h"
#include "sparamlib/data/NetworkModalData.h"
#include "sparamlib/solution/NetworkModalSolution.h"
#include "sparamlib/solution/NetworkTerminalSolution.h"

namespace {

// Frequency tolerance (Hz) of the look-up that decides whether the vector
// kinds get a declaration; the data pass itself asks for exact keys.
constexpr double kDeclarationTolerance = 1e-05;

bool IsVectorKind(int kind) {
  return kind == nd::kPortImpedances || kind == nd::kPropagationConstants;
}

const char* MatlabName(int kind) {
  switch (kind) {
    case nd::kYMatrix:
      return "Y";
    case nd::kZMatrix:
      return "Z";
    case nd::kPortImpedances:
      return "Zo";
    case nd::kPropagationConstants:
      return "Gamma";
    default:
      return "S";  // unknown codes are written as S
  }
}

// The matrix a matrix kind writes; null for the vector kinds and for a
// point that cannot give it.
TNT::CMatrix* MatrixOf(CNetworkData& point, int kind) {
  switch (kind) {
    case nd::kPortImpedances:
    case nd::kPropagationConstants:
      return nullptr;
    case nd::kYMatrix:
      return point.GetYMatrix(true);
    case nd::kZMatrix:
      return point.GetZMatrix(true);
    default:
      return point.GetSMatrix(true);
  }
}

const TNT::CVector* VectorOf(const CNetworkModalData& point, int kind) {
  return kind == nd::kPropagationConstants ? point.GetGamma() : point.GetPortImpedance();
}

// A terminal point's line matrices stand where a modal point has vectors:
// "Zo" is the characteristic-impedance matrix, "Gamma" the propagation
// matrix.
const TNT::CMatrix* TerminalMatrixOf(CNetworkData& point, int kind) {
  const auto* terminal = dynamic_cast<const CNetworkTerminalData*>(&point);
  if (!terminal) return nullptr;
  return kind == nd::kPropagationConstants ? terminal->GetGammaMatrix()
                                           : terminal->GetCharacteristicImpedance();
}

// "re + |im|i" or "re - |im|i": MATLAB reads the blank-separated sign as a
// binary operator, so the imaginary magnitude is written unsigned. The
// formatter prints exactly what printf would, several times faster.
void AppendComplex(std::string& line, const nd::CNumberFormat& format, const AComplex<double>& z) {
  format.Append(line, z.re);
  line += z.im >= 0.0 ? " + " : " - ";
  format.Append(line, std::fabs(z.im));
  line += 'i';
}

}  // namespace

CMatlabExportVisitor::CMatlabExportVisitor(io::CToken_ostream& out, std::vector<double> frequencies,
                                           std::vector<int> quantities, int precision,
                                           const IDesignVariation* variation, const AString& title)
    : m_Out(out),
      m_Frequencies(std::move(frequencies)),
      m_Quantities(std::move(quantities)),
      m_Precision(precision),
      m_Variation(variation),
      m_Title(title) {
  ASSERT(precision >= 0);
  if (m_Precision < 0) m_Precision = 0;
}

void CMatlabExportVisitor::Visit(CNetworkDataSolution& solution) {
  // The declarations need the frequency count, so an empty list is filled
  // before anything is written.
  if (m_Frequencies.empty()) {
    m_Frequencies.reserve(solution.GetFrequencyMap().size());
    for (const auto& entry : solution.GetFrequencyMap()) m_Frequencies.push_back(entry.first);
  }
  const int numFrequencies = static_cast<int>(m_Frequencies.size());
  const int n = solution.GetNumMatrixEntries();
  const bool modalSolution = dynamic_cast<CNetworkModalSolution*>(&solution) != nullptr;
  const bool terminalSolution = dynamic_cast<CNetworkTerminalSolution*>(&solution) != nullptr;

  // ---- Header pass --------------------------------------------------------
  static const AString kDefaultProduct = "Corvan";
  static const AString kNoVersion;
  m_Out << "% Matlab m-File exported from "
        << (m_Variation ? m_Variation->GetProductName() : kDefaultProduct)
        << (m_Variation ? m_Variation->GetProductVersion() : kNoVersion) << " " << m_Title;
  m_Out.EndLine();
  m_Out << "% Note: In three-dimensional arrays, like S(i,j,k), the first index corresponds to "
           "the frequency.";
  m_Out.EndLine();
  m_Out << "%       So, S(N,j,k) is an S(j,k) matrix for frequency N.";
  m_Out.EndLine();
  m_Out.EndLine();
  m_Out.Printf("f = zeros(%i,1);", numFrequencies);
  m_Out.EndLine();

  for (const int kind : m_Quantities) {
    const char* name = MatlabName(kind);
    if (!IsVectorKind(kind)) {
      m_Out.Printf("%s = zeros(%i,%i,%i);", name, numFrequencies, n, n);
      m_Out.EndLine();
      continue;
    }
    // A vector is declared only when the first point of a modal solution
    // carries it; other solutions have no per-port vectors to write.
    // Terminal solutions write n x n matrices in their place, declared the
    // same way.
    if ((!modalSolution && !terminalSolution) || numFrequencies == 0) continue;
    CNetworkData* point = solution.GetNetworkData(m_Frequencies[0], kDeclarationTolerance, true);
    if (!point) continue;
    if (terminalSolution) {
      const bool hasMatrix = TerminalMatrixOf(*point, kind) != nullptr;
      solution.ReleaseNetworkData(point->GetFrequency());
      if (hasMatrix) {
        m_Out.Printf("%s = zeros(%i,%i,%i);", name, numFrequencies, n, n);
        m_Out.EndLine();
      }
      continue;
    }
    const auto* modal = dynamic_cast<const CNetworkModalData*>(point);
    const bool hasVector = modal && VectorOf(*modal, kind);
    solution.ReleaseNetworkData(point->GetFrequency());
    if (hasVector) {
      m_Out.Printf("%s = zeros(%i,%i);", name, numFrequencies, n);
      m_Out.EndLine();
    }
  }

  // ---- Data pass ----------------------------------------------------------
  m_Out.SetPrecision(15);
  m_Out.Format(false);
  m_Out << "f = [";
  for (const double f : m_Frequencies) m_Out << f << " ";
  m_Out << "];";
  m_Out.EndDataLine();

  m_Out.SetPrecision(16);
  char formatText[32];
  std::snprintf(formatText, sizeof formatText, "%%16.%dlE", m_Precision);
  const nd::CNumberFormat valueFormat(formatText);

  // One line is built in memory and written at once; the buffer is reused
  // so that the loop allocates only while the first lines grow it.
  std::string line;
  for (const int kind : m_Quantities) {
    const char* name = MatlabName(kind);
    const bool vectorKind = IsVectorKind(kind);
    for (int k = 1; k <= numFrequencies; ++k) {
      CNetworkData* point =
          solution.GetNetworkData(m_Frequencies[static_cast<size_t>(k - 1)], 0.0, true);
      if (!point) continue;
      if (terminalSolution && vectorKind) {
        // "Zo(k,:,:) = [ a, b;c, d ];" on one line.
        if (const TNT::CMatrix* tm = TerminalMatrixOf(*point, kind)) {
          line.clear();
          line += name;
          line += '(';
          line += std::to_string(k);
          line += ",:,:) = [ ";
          const int rows = tm->num_rows();
          const int cols = tm->num_cols();
          for (int i = 0; i < rows; ++i) {
            for (int j = 0; j < cols; ++j) {
              AppendComplex(line, valueFormat, (*tm)[i][j]);
              line += j + 1 < cols ? ", " : i + 1 < rows ? ";" : " ];";
            }
          }
          m_Out << line.c_str();
          m_Out.EndDataLine();
        }
        solution.ReleaseNetworkData(point->GetFrequency());
        continue;
      }
      // A point without the quantity gets no assignment at all: an opened
      // bracket with nothing behind it would make the whole file unreadable.
      const TNT::CMatrix* m = MatrixOf(*point, kind);
      const auto* modal = dynamic_cast<const CNetworkModalData*>(point);
      const TNT::CVector* v = vectorKind && modal ? VectorOf(*modal, kind) : nullptr;
      if (vectorKind ? !v : !m) {
        solution.ReleaseNetworkData(point->GetFrequency());
        continue;
      }
      line.clear();
      line += name;
      line += '(';
      line += std::to_string(k);
      line += modalSolution && vectorKind ? ",:) = [ " : ",:,:) = [ ";

      if (m) {
        const int rows = m->num_rows();
        const int cols = m->num_cols();
        for (int i = 0; i < rows; ++i) {
          for (int j = 0; j < cols; ++j) {
            AppendComplex(line, valueFormat, (*m)[i][j]);
            if (j + 1 < cols)
              line += ", ";
            else if (i + 1 < rows)
              line += ';';
            else
              line += "];";
          }
        }
      }
      // The vector kinds pass through the matrix step too and end its empty
      // line, so their values start on the next line.
      m_Out << line.c_str();
      m_Out.EndDataLine();

      if (v) {
        line.clear();
        const int size = v->size();
        for (int i = 0; i < size; ++i) {
          AppendComplex(line, valueFormat, (*v)[i]);
          line += i + 1 < size ? ", " : " ];";
        }
        m_Out << line.c_str();
        m_Out.EndDataLine();
      }
      solution.ReleaseNetworkData(point->GetFrequency());
    }
  }
}
