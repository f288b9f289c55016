// Touchstone and Supercompact export. Each data line is laid out in one
// reused buffer by the printf-identical number formatter and handed to the
// token stream in one piece: formatting numbers is most of an export's work,
// and going through printf for each would multiply it.
#include "sparamlib/formats/NetworkDataUtilities.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <map>
#include <memory>
#include <numbers>
#include <string_view>

#include "core/TokenOstream.h"
#include "sparamlib/data/NetworkModalData.h"
#include "sparamlib/formats/NumberFormat.h"
#include "sparamlib/solution/NetworkModalSolution.h"
#include "sparamlib/solution/NetworkTerminalSolution.h"

namespace nd {
namespace {

using Complex = AComplex<double>;
using TNT::CMatrix;
using TNT::CVector;

constexpr double kHzPerGHz = 1000000000.0;
// Magnitudes at or below this are written as the dB floor: 0 has no
// logarithm, and -500 dB and below is no coupling anyway.
constexpr double kDbFloorMagnitude = 1e-25;
constexpr double kDbFloor = -9999.999;

}  // namespace

NumberPair Convert(const Complex& z, DisplayFormatType format) {
  if (format != kMagnitudeAngle && format != kDbAngle) return {z.re, z.im};
  const double magnitude = ::abs(z);
  const double angle = std::atan2(z.im, z.re) * 180.0 / std::numbers::pi;
  if (format == kMagnitudeAngle) return {magnitude, angle};
  return {magnitude <= kDbFloorMagnitude ? kDbFloor : 20.0 * std::log10(magnitude), angle};
}

const CMatrix* MatrixOf(CNetworkData& point, NetworkDataType kind, int n) {
  CMatrix* m = nullptr;
  if (kind == kSMatrix) {
    m = point.GetSMatrix(true);
  } else if (kind == kYMatrix) {
    m = point.GetYMatrix(true);
  } else if (kind == kZMatrix) {
    m = point.GetZMatrix(true);
  }
  if (!m || n <= 0 || m->num_rows() != n || m->num_cols() != n) return nullptr;
  return m;
}

std::unique_ptr<CNetworkData> RenormalizedCopy(CNetworkData& point, const CVector& reference) {
  auto* stored = dynamic_cast<CNetworkModalData*>(&point);
  if (!stored || !stored->GetPortImpedance()) return nullptr;
  std::unique_ptr<CNetworkData> copy = stored->Clone();
  if (!static_cast<CNetworkModalData&>(*copy).Renormalize(reference)) return nullptr;
  return copy;
}

void ForEachExportPoint(CNetworkDataSolution& solution, const std::vector<double>& frequencies,
                        bool renormalize, double referenceImpedance,
                        const std::function<void(double, CNetworkData&)>& write) {
  const CVector reference(solution.GetNumMatrixEntries(), Complex(referenceImpedance, 0.0));
  const double tolerance = CNetworkDataSolution::kStandardFrequencyTolerance;
  for (double f : frequencies) {
    // A point the solution already held (solved, or interpolated before this
    // export began) stays; only what this walk interpolates is released.
    const bool held = solution.GetNetworkData(f, tolerance, false) != nullptr;
    CNetworkData* point = solution.GetNetworkData(f, tolerance, true);
    if (!point) continue;
    std::unique_ptr<CNetworkData> renormalized;
    if (renormalize) renormalized = RenormalizedCopy(*point, reference);
    write(point->GetFrequency(), renormalized ? *renormalized : *point);
    if (!held) solution.ReleaseNetworkData(f);
  }
}

namespace {

const char* KindLetter(NetworkDataType kind) {
  if (kind == kYMatrix) return "Y";
  if (kind == kZMatrix) return "Z";
  return "S";
}

const char* FormatToken(DisplayFormatType format) {
  if (format == kMagnitudeAngle) return "MA";
  if (format == kDbAngle) return "DB";
  return "RI";
}

// ---- Touchstone --------------------------------------------------------

// One line at a time in a plain buffer, numbers written straight into it.
class CLineBuffer {
 public:
  CLineBuffer(io::CToken_ostream& out, const char* valueFormat, int valuesPerLine)
      : m_Out(out), m_Value(valueFormat) {
    // Room for the values, an indent or a comment title, and the zero.
    m_Buffer.resize(static_cast<size_t>(valuesPerLine) * (m_Value.MaxSize() + 1) + 64);
    m_End = m_Buffer.data();
  }

  void Value(double v) { m_End = m_Value.Write(m_End, v); }
  void Text(const char* text, size_t length) {
    std::memcpy(m_End, text, length);
    m_End += length;
  }
  void Blanks(size_t count) {
    std::memset(m_End, ' ', count);
    m_End += count;
  }
  // Hands the line to the stream, with a data or a comment line end.
  void Flush() {
    *m_End = '\0';
    m_Out << m_Buffer.data();
    m_End = m_Buffer.data();
  }
  void EndLine(bool data) {
    Flush();
    if (data) {
      m_Out.EndDataLine();
    } else {
      m_Out.EndLine();
    }
  }

 private:
  io::CToken_ostream& m_Out;
  CNumberFormat m_Value;
  std::vector<char> m_Buffer;
  char* m_End;
};

class CTouchstoneWriter {
 public:
  // The widest line holds the frequency and four pairs (or a comment title
  // and four pairs, or five noise values).
  CTouchstoneWriter(io::CToken_ostream& out, int n, int precision, DisplayFormatType format,
                    NetworkDataType kind)
      : m_Out(out),
        m_Line(out, AString::Format("%%-16.%dG ", precision).c_str(), 9),
        m_N(n),
        m_PairsPerLine(n == 1 || n == 3 ? n : 4),
        m_Format(format),
        m_Kind(kind) {}

  // The point's frequency and its matrix; returns the number of lines ended.
  int WriteRecord(CNetworkData& point) {
    m_Line.Value(point.GetFrequency() / kHzPerGHz);
    const CMatrix* m = MatrixOf(point, m_Kind, m_N);
    if (!m) {
      m_Line.Flush();
      return 0;
    }
    // Two-ports go column by column (11 21 12 22), as two-port readers expect.
    const bool byColumn = m_N == 2;
    int lines = 0;
    int onLine = 0;
    for (int a = 0; a < m_N; ++a) {
      for (int b = 0; b < m_N; ++b) {
        if (onLine == 0 && lines > 0) m_Line.Blanks(16);
        const NumberPair v = Convert(byColumn ? (*m)[b][a] : (*m)[a][b], m_Format);
        m_Line.Value(v.first);
        m_Line.Value(v.second);
        if (++onLine == m_PairsPerLine || (!byColumn && b == m_N - 1)) {
          m_Line.EndLine(true);
          ++lines;
          onLine = 0;
        }
      }
    }
    return lines;
  }

  // "! Gamma  " or "! Port Impedance  " and the values of each port.
  void WritePortVector(std::string_view title, const CVector& v) {
    m_Line.Text(title.data(), title.size());
    const int count = std::min(m_N, v.dim());
    for (int k = 0; k < count; ++k) {
      if (k > 0 && k % m_PairsPerLine == 0) {
        m_Line.EndLine(false);
        m_Line.Text("!      ", 7);
      }
      m_Line.Value(v[k].re);
      m_Line.Value(v[k].im);
    }
    m_Line.EndLine(false);
  }

  // The stored noise resistance is normalised to the reference, as version 1
  // states it; version 2 states it in ohms (`rnOhmsPerUnit` the reference).
  void WriteNoise(const CNoiseDataSolution& noise, double rnOhmsPerUnit = 1.0) {
    m_Out << "! Noise Data";
    m_Out.EndLine();
    for (const auto& [frequency, data] : noise.GetPoints()) {
      double fmin = 0.0, goptMag = 0.0, goptAng = 0.0, rn = 0.0;
      data->GetNoiseParameters(fmin, goptMag, goptAng, rn);
      for (double v : {frequency / kHzPerGHz, fmin, goptMag, goptAng, rn * rnOhmsPerUnit})
        m_Line.Value(v);
      m_Line.EndLine(true);
    }
  }

 private:
  io::CToken_ostream& m_Out;
  CLineBuffer m_Line;
  int m_N;
  int m_PairsPerLine;
  DisplayFormatType m_Format;
  NetworkDataType m_Kind;
};

// The option line, and the comment before it when the data keeps the
// solver's own port impedances.
void WriteOptionLine(io::CToken_ostream& out, const CNetworkDataSolution& solution,
                     NetworkDataType kind, DisplayFormatType format, double referenceImpedance,
                     bool atReference) {
  const char* letter = KindLetter(kind);
  const char* token = FormatToken(format);
  if (atReference) {
    out.Printf("# GHZ %s %s R %f", letter, token, referenceImpedance);
    out.EndLine();
    return;
  }
  // The option line has room for one real impedance: only renormalisation
  // to the same real value on every port can be stated there.
  const CNetworkPostprocSetup* setup = solution.GetPostprocSetup();
  const CNetworkPostprocSetup::CVector* z =
      setup && setup->DoesRenormalize() ? setup->GetRenormImpeds() : nullptr;
  if (z && z->dim() > 0 && (*z)[0].im == 0.0 &&
      std::all_of(z->begin(), z->end(), [&](const Complex& v) { return v == (*z)[0]; })) {
    out.Printf("# GHZ %s %s R %f", letter, token, (*z)[0].re);
    out.EndLine();
    return;
  }
  out << "!Data is not renormalized";
  out.EndLine();
  out.Printf("# GHZ %s %s", letter, token);
  out.EndLine();
}

// The comment lines that open every Touchstone file we write: project,
// exporting product and design variables.
void WriteHeaderComments(io::CToken_ostream& out, const AString& projectName,
                         const IDesignVariation* variation) {
  out.Printf("! Touchstone file from project %s", projectName.c_str());
  out.EndLine();
  if (variation && !variation->GetProductName().empty()) {
    out.Printf("! Exported from %s %s", variation->GetProductName().c_str(),
               variation->GetProductVersion().c_str());
  } else {
    out.Printf("! Exported from %s %s", "Corvan", "");
  }
  out.EndLine();
  if (variation && !variation->GetDesignVariables().empty()) {
    // Sorted by name; a name given twice keeps its last value.
    std::map<AString, AString> sorted;
    for (const auto& [name, value] : variation->GetDesignVariables()) sorted[name] = value;
    out << "! Variables:";
    out.EndLine();
    for (const auto& [name, value] : sorted) {
      out << "!  " << name << " = " << value;
      out.EndLine();
    }
  }
}

// ---- Supercompact ------------------------------------------------------

// The kind and format codes the format knows; anything else is written as
// S in magnitude and angle.
int SupercompactCode(NetworkDataType& kind, DisplayFormatType& format) {
  if (kind == kSMatrix && format == kMagnitudeAngle) return 1;
  if (kind == kSMatrix && format == kDbAngle) return 31;
  if (kind == kSMatrix && format == kRealImaginary) return -1;
  if (kind == kYMatrix && format == kRealImaginary) return 2;
  if (kind == kZMatrix && format == kRealImaginary) return 3;
  kind = kSMatrix;
  format = kMagnitudeAngle;
  return 1;
}

}  // namespace

namespace {

// The name of a terminal entry: its own, else "<port>:<terminal>" (or the
// one of the two it has).
AString TerminalEntryName(const CMatrixEntry& entry) {
  if (!entry.GetTerminalEntryName().empty()) return entry.GetTerminalEntryName();
  if (entry.GetTerminalName().empty()) return entry.GetPortName();
  if (entry.GetPortName().empty()) return entry.GetTerminalName();
  return entry.GetPortName() + ":" + entry.GetTerminalName();
}

// "! Modal data exported" (or terminal) and one "! Port[k] = name" line per
// entry of a modal or a terminal solution.
void WritePortComments(io::CToken_ostream& out, const CNetworkDataSolution& solution, int n) {
  if (dynamic_cast<const CNetworkTerminalSolution*>(&solution)) {
    // Terminal data whatever the setup says: the rows are conductors.
    out << "! Terminal data exported";
    out.EndLine();
    for (int k = 0; k < n; ++k) {
      const CMatrixEntry* entry = solution.GetMatrixEntry(k);
      if (!entry) continue;
      out.Printf("! Port[%d] = %s", k + 1, TerminalEntryName(*entry).c_str());
      out.EndLine();
    }
    return;
  }
  const CNetworkPostprocSetup* setup = solution.GetPostprocSetup();
  const bool modalView = !setup || setup->IsModal();
  out << (modalView ? "! Modal data exported" : "! Terminal data exported");
  out.EndLine();
  if (!modalView || !dynamic_cast<const CNetworkModalSolution*>(&solution)) return;
  for (int k = 0; k < n; ++k) {
    const CMatrixEntry* entry = solution.GetMatrixEntry(k);
    if (!entry) continue;
    const AString& name =
        entry->GetModalEntryName().empty() ? entry->GetPortName() : entry->GetModalEntryName();
    out.Printf("! Port[%d] = %s", k + 1, name.c_str());
    out.EndLine();
  }
}

// One record per point, with the gamma and impedance comments when asked.
void WriteRecords(io::CToken_ostream& out, CTouchstoneWriter& writer,
                  CNetworkDataSolution& solution, const std::vector<double>& frequencies,
                  bool exportGamma, bool renormalize, double referenceImpedance) {
  // The solution keeps its own references and its own bits: a copy of each
  // point is renormalised for the write, never the stored point.
  ForEachExportPoint(solution, frequencies, renormalize, referenceImpedance,
                     [&](double, CNetworkData& written) {
    auto* modal = dynamic_cast<CNetworkModalData*>(&written);
    const int lines = writer.WriteRecord(written);
    if (exportGamma && modal) {
      if (const CVector* gamma = modal->GetGamma()) writer.WritePortVector("! Gamma  ", *gamma);
      if (const CVector* z = modal->GetPortImpedance())
        writer.WritePortVector("! Port Impedance  ", *z);
      out.EndLine();
    } else if (lines > 1) {
      out.EndLine();
    }
  });
}

const CNoiseDataSolution* NoiseToWrite(const CNetworkDataSolution& solution, int n) {
  const CNoiseDataSolution* noise = solution.GetNoiseSolution();
  return n == 2 && noise && !noise->IsEmpty() ? noise : nullptr;
}

}  // namespace

void WriteTouchstoneFile(const AString& fileName, CNetworkDataSolution& solution,
                         const std::vector<double>& frequencies, const AString& projectName,
                         bool exportGamma, double referenceImpedance, DisplayFormatType format,
                         NetworkDataType kind, int precision, bool renormalize,
                         bool alreadyAtReference, const IDesignVariation* variation) {
  io::CToken_ostream out{std::filesystem::path(static_cast<const std::string&>(fileName))};
  if (out.fail()) return;
  WriteTouchstone(out, solution, frequencies, projectName, exportGamma, referenceImpedance, format,
                  kind, precision, renormalize, alreadyAtReference, variation);
}

void WriteTouchstone(io::CToken_ostream& out, CNetworkDataSolution& solution,
                     const std::vector<double>& requested, const AString& projectName,
                     bool exportGamma, double referenceImpedance, DisplayFormatType format,
                     NetworkDataType kind, int precision, bool renormalize,
                     bool alreadyAtReference, const IDesignVariation* variation) {
  // A combined sweep writes its own frequencies, whatever the caller asks.
  const std::vector<double>& frequencies =
      solution.GetOwnFrequencyList() ? *solution.GetOwnFrequencyList() : requested;
  out.Format(false);
  out.SetPrecision(precision);
  const int n = solution.GetNumMatrixEntries();
  WriteHeaderComments(out, projectName, variation);
  WriteOptionLine(out, solution, kind, format, referenceImpedance,
                  renormalize || alreadyAtReference);
  WritePortComments(out, solution, n);
  // A negative precision would make the value format meaningless; the
  // stream treats it as 0 and so do we.
  CTouchstoneWriter writer(out, n, std::max(precision, 0), format, kind);
  WriteRecords(out, writer, solution, frequencies, exportGamma, renormalize, referenceImpedance);
  if (const CNoiseDataSolution* noise = NoiseToWrite(solution, n)) writer.WriteNoise(*noise);
}

void WriteTouchstone2(io::CToken_ostream& out, CNetworkDataSolution& solution,
                      const std::vector<double>& frequencies, const AString& projectName,
                      const Touchstone2Options& options, DisplayFormatType format,
                      NetworkDataType kind, int precision, const IDesignVariation* variation) {
  out.Format(false);
  out.SetPrecision(precision);
  const int n = solution.GetNumMatrixEntries();
  WriteHeaderComments(out, projectName, variation);
  WritePortComments(out, solution, n);
  out << "[Version] 2.0";
  out.EndLine();
  // Y and Z stand in siemens and ohms in version 2; R is the reference of S
  // (overridden port by port by a [Reference] line when one is given).
  out.Printf("# GHZ %s %s R %f", KindLetter(kind), FormatToken(format), options.referenceImpedance);
  out.EndLine();
  out.Printf("[Number of Ports] %d", n);
  out.EndLine();
  // The records write a two-port column by column: 11 21 12 22.
  if (n == 2) {
    out << "[Two-Port Data Order] 21_12";
    out.EndLine();
  }
  out.Printf("[Number of Frequencies] %zu", frequencies.size());
  out.EndLine();
  const CNoiseDataSolution* noise = NoiseToWrite(solution, n);
  if (noise) {
    out.Printf("[Number of Noise Frequencies] %zu", noise->GetPoints().size());
    out.EndLine();
  }
  if (!options.portReferences.empty()) {
    // The values go on the line after the keyword, which the standard
    // allows and which readers that skip the keyword line's first value
    // (scikit-rf 0.15) also read right.
    out << "[Reference]";
    out.EndLine();
    std::string line;
    const CNumberFormat value("%.17G ");
    for (double r : options.portReferences) value.Append(line, r);
    out << line.c_str();
    out.EndLine();
  }
  out << "[Network Data]";
  out.EndLine();
  CTouchstoneWriter writer(out, n, std::max(precision, 0), format, kind);
  WriteRecords(out, writer, solution, frequencies, options.exportGamma, false,
               options.referenceImpedance);
  if (noise) {
    out << "[Noise Data]";
    out.EndLine();
    const double reference =
        options.portReferences.empty() ? options.referenceImpedance : options.portReferences[0];
    writer.WriteNoise(*noise, reference);
  }
  out << "[End]";
  out.EndLine();
}

void WriteSupercompactFile(const AString& fileName, CNetworkDataSolution& solution,
                           const std::vector<double>& frequencies, const AString& projectName,
                           double referenceImpedance, NetworkDataType kind,
                           DisplayFormatType format, bool keepPoints) {
  io::CToken_ostream out{std::filesystem::path(static_cast<const std::string&>(fileName))};
  if (out.fail()) return;
  WriteSupercompact(out, solution, frequencies, projectName, referenceImpedance, kind, format,
                    keepPoints);
}

void WriteSupercompact(io::CToken_ostream& out, CNetworkDataSolution& solution,
                       const std::vector<double>& frequencies, const AString& projectName,
                       double referenceImpedance, NetworkDataType kind, DisplayFormatType format,
                       bool keepPoints) {
  if (frequencies.empty()) return;
  const int code = SupercompactCode(kind, format);
  const int n = solution.GetNumMatrixEntries();

  out.SetPrecision(16);
  out << projectName << " " << frequencies.front() / kHzPerGHz << "GHz "
      << frequencies.back() / kHzPerGHz << "GHz ";
  out.Printf("%d", n);
  out << " " << referenceImpedance << code;
  out.EndLine();
  out << "Supercompact file from Magnar project " << projectName;
  out.EndLine();

  const CNumberFormat frequencyFormat("%-.6EGHZ ");
  const int pairsPerLine = n == 2 ? 4 : n;
  CLineBuffer line(out, "%-16.6lE", 2 * pairsPerLine + 2);
  std::vector<double> interpolated;
  for (double f : frequencies) {
    const double tolerance = CNetworkDataSolution::kStandardFrequencyTolerance;
    CNetworkData* point = solution.GetNetworkData(f, tolerance, false);
    if (!point) {
      point = solution.GetNetworkData(f, tolerance, true);
      if (!point) continue;
      interpolated.push_back(f);
    }
    char text[128];  // the frequency format's MaxSize() is 60
    const double written = point->GetFrequency() / kHzPerGHz;
    line.Text(text, static_cast<size_t>(frequencyFormat.Write(text, written) - text));
    const CMatrix* m = MatrixOf(*point, kind, n);
    if (!m) {
      line.Flush();
      continue;
    }
    int onLine = 0;
    bool first = true;
    for (int a = 0; a < n; ++a) {
      for (int b = 0; b < n; ++b) {
        if (onLine == 0 && !first) line.Blanks(15);
        const NumberPair v = Convert((*m)[a][b], format);
        line.Value(v.first);
        line.Value(v.second);
        if (++onLine == pairsPerLine) {
          line.EndLine(true);
          onLine = 0;
          first = false;
        }
      }
    }
  }
  if (!keepPoints) {
    for (double f : interpolated) solution.ReleaseNetworkData(f);
  }
}

}  // namespace nd
