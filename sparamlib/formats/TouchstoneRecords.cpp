// Touchstone data lines read one by one (all that the bulk path leaves),
// and a complete record turned into a point: its matrix in the kind the
// file holds, its port impedances.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

#include "sparamlib/formats/TouchstoneParser.h"

namespace nd {
namespace {

std::string Pairs(size_t count) { return std::to_string(count) + (count == 1 ? " pair" : " pairs"); }

}  // namespace

// Fixes the record layout once the port count, the matrix format and the
// references are known.
bool CTouchstoneParser::Prepare(size_t column) {
  const int n = m_Header.ports;
  if ((m_Header.parameter == 'H' || m_Header.parameter == 'G') && n != 2) {
    Fail(column, std::string(1, m_Header.parameter) + "-parameters exist for 2-ports only; this file has " +
                     std::to_string(n) + " ports");
    return false;
  }
  // One record holds two numbers per pair, each at least a digit and a
  // separator: a port count whose pairs outnumber the bytes of the whole
  // input is refused at once, saying why (where the size is known; nothing
  // of the record's size is allocated before its numbers arrive anyway).
  const std::uint64_t pairs = m_Header.matrixFormat == TouchstoneHeader::kFull
                                  ? static_cast<std::uint64_t>(n) * static_cast<std::uint64_t>(n)
                                  : static_cast<std::uint64_t>(n) * (static_cast<std::uint64_t>(n) + 1) / 2;
  if (pairs > m_InputBytes) {
    Fail(column, "expected " + std::to_string(pairs) + " value pairs per frequency for " + std::to_string(n) +
                     " ports, but the whole input is " + std::to_string(m_InputBytes) + " bytes");
    return false;
  }
  if (n > kMaxMatrixOrder) {
    Fail(column, "expected at most " + std::to_string(kMaxMatrixOrder) + " ports, found " + std::to_string(n) +
                     ": a larger square matrix has more elements than the library can index");
    return false;
  }
  if (m_Header.reference.empty()) {
    if (m_OptionResistance.size() > 1 && m_OptionResistance.size() != static_cast<size_t>(n)) {
      Fail(column, "expected 1 or " + std::to_string(n) + " resistances after R on the option line, found " +
                       std::to_string(m_OptionResistance.size()));
      return false;
    }
    m_Header.reference = m_OptionResistance.size() == static_cast<size_t>(n)
                             ? m_OptionResistance
                             : std::vector<double>(static_cast<size_t>(n),
                                                   m_OptionResistance.empty() ? kDefaultReferenceOhms
                                                                              : m_OptionResistance[0]);
  }
  // Pairs per line-starting row: one- and two-ports hold a record on one
  // line; larger matrices begin every row on a new line.
  m_Pairs = static_cast<size_t>(pairs);
  m_RowPairs.clear();
  if (n <= 2) {
    m_RowPairs.push_back(static_cast<int>(m_Pairs));
  } else {
    for (int i = 0; i < n; ++i) {
      const int from = m_Header.matrixFormat == TouchstoneHeader::kUpper ? i : 0;
      const int to = m_Header.matrixFormat == TouchstoneHeader::kLower ? i + 1 : n;
      m_RowPairs.push_back(to - from);
    }
  }
  // What grows with the square of the port count (the record's numbers,
  // where each goes) is allocated as the numbers arrive, so that a port
  // count the input does not hold costs nothing: an input whose size is
  // unknown (a pipe) may claim any number of ports.
  m_Target.clear();
  m_Mirror.clear();
  m_Values.assign(std::min<size_t>(2 * m_Pairs, 4096), 0.0);
  const size_t most = 2 * static_cast<size_t>(*std::max_element(m_RowPairs.begin(), m_RowPairs.end())) + 1;
  m_Firsts.resize(most + 64);
  m_Lasts.resize(most + 64);
  m_Count = 0;
  m_Prepared = true;
  return true;
}

// Room for `need` numbers of the record; never more than a record holds.
void CTouchstoneParser::GrowValues(size_t need) {
  m_Values.resize(std::min(std::max(need, 2 * m_Values.size()), 2 * m_Pairs));
}

// Where each pair of a record goes (and its mirror for a triangle), fixed
// once the first record is in; indices in 64 bits.
void CTouchstoneParser::Layout() {
  const size_t n = static_cast<size_t>(m_Header.ports);
  const bool byColumn = n == 2 && (m_Header.version < 2.0 || m_Header.twoPortDataOrder == "21_12");
  m_Target.reserve(m_Pairs);
  if (m_Header.matrixFormat != TouchstoneHeader::kFull) m_Mirror.reserve(m_Pairs);
  for (size_t i = 0; i < n; ++i) {
    const size_t from = m_Header.matrixFormat == TouchstoneHeader::kUpper ? i : 0;
    const size_t to = m_Header.matrixFormat == TouchstoneHeader::kLower ? i + 1 : n;
    for (size_t j = from; j < to; ++j) {
      m_Target.push_back(byColumn ? j * n + i : i * n + j);
      if (m_Header.matrixFormat != TouchstoneHeader::kFull) m_Mirror.push_back(j * n + i);
    }
  }
  m_Cos.resize(m_Pairs);
  m_Sin.resize(m_Pairs);
}

void CTouchstoneParser::DataLine(std::string_view content, size_t start) {
  m_SeenContent = true;
  if (m_Stage == kHeader && m_Header.version >= 2.0) {
    Fail(start, "expected [Network Data] before the data");
    return;
  }
  if (!m_HaveOptions) {
    Fail(start, "expected the option line (such as \"# GHz S MA R 50\") before the data");
    return;
  }
  if (!m_Prepared) {
    if (m_NamedPorts < 1) {
      Fail(start, "cannot tell the port count: name the file .sNp or give [Number of Ports] in a "
                  "version 2 file");
      return;
    }
    m_Header.ports = m_NamedPorts;
    if (!Prepare(start)) return;
    m_Stage = kNetwork;
  }
  if (m_Stage == kNoise) {
    NoiseLine(content);
    return;
  }
  size_t onLine = 0;
  ForEachToken(content, [&](const Token& token) {
    ++onLine;
    double v = 0.0;
    if (!ParseNumber(token.text, v)) {
      Fail(token.column, "expected a number, found " + Quoted(token.text));
      return false;
    }
    if (!m_InRecord) return StartRecord(v, token, content);
    if (m_RowDone) {
      RowTooLong(token);
      return false;
    }
    if (!std::isfinite(v)) m_NonFiniteToken = true;
    if (m_Count == m_Values.size()) GrowValues(m_Count + 1);
    m_Values[m_Count++] = v;
    if (++m_InRow == m_RowPairs[m_Row] * 2) {
      m_InRow = 0;
      ++m_Row;
      m_RowDone = true;
      if (static_cast<size_t>(m_Row) == m_RowPairs.size()) m_RecordDone = true;
    }
    return true;
  });
  if (m_Failed || m_Stage == kNoise) return;
  if (m_RecordDone) {
    EndRecord();
    return;
  }
  m_RowDone = false;
  if (m_InRecord && m_Header.ports <= 2) {
    const size_t found = onLine;
    Fail(content.size(), "expected " + std::to_string(1 + 2 * m_Pairs) +
                             " values on the line of a " + std::to_string(m_Header.ports) +
                             "-port record (the frequency and " + Pairs(m_Pairs) + "), found " +
                             std::to_string(found));
  }
}

// The first number of a record: its frequency. For a version 1 two-port
// a frequency that does not increase starts the noise block.
bool CTouchstoneParser::StartRecord(double v, const Token& token, std::string_view content) {
  FinishPending();
  if (m_Records > 0 && !(v > m_LastFrequency)) {
    if (m_Header.version < 2.0 && m_Header.ports == 2) {
      m_Stage = kNoise;
      NoiseLine(content);
      return false;
    }
    Fail(token.column, "expected frequencies in increasing order, found " + Quoted(token.text) +
                           " after " + FrequencyText(m_LastFrequency));
    return false;
  }
  if (!std::isfinite(v) || v < 0.0) {
    Fail(token.column, "expected a frequency of 0 or more, found " + Quoted(token.text));
    return false;
  }
  BeginRecord(v);
  return true;
}

void CTouchstoneParser::RowTooLong(const Token& token) {
  const int n = m_Header.ports;
  if (n <= 2) {
    std::string hint;
    if (m_Records == 0 && m_NamedPorts >= 0 && m_DeclaredFrequencies < 0) hint = "; is the extension right?";
    Fail(token.column, "expected " + std::to_string(1 + 2 * m_Pairs) + " values on the line of a " +
                           std::to_string(n) + "-port record (the frequency and " + Pairs(m_Pairs) +
                           "), found more" + hint);
    return;
  }
  Fail(token.column, "expected row " + std::to_string(m_Row) + " of the record for frequency " +
                         FrequencyText(m_Frequency) + " (line " + std::to_string(m_RecordLine) +
                         ") to end its line after " + Pairs(static_cast<size_t>(m_RowPairs[m_Row - 1])) +
                         ", found more values");
}

// Turns the gathered numbers into the point's matrix.
void CTouchstoneParser::EndRecord() {
  const int n = m_Header.ports;
  if (m_Target.empty()) Layout();
  m_InRecord = false;
  m_RecordDone = false;
  auto point = std::make_unique<CNetworkModalData>(m_Solution.get(), m_Frequency * m_Header.hertzPerUnit,
                                                   CNetworkData::ExactPoint);
  auto m = std::make_unique<CMatrix>(n, n);
  Complex* data = m->data();
  const double* v = m_Values.data();
  if (m_Header.format == kRealImaginary) {
    Convert(data, [v](size_t k) { return Complex(v[2 * k], v[2 * k + 1]); });
  } else {
    if (!Angles()) return;
    const double* c = m_Cos.data();
    const double* s = m_Sin.data();
    Convert(data, [v, c, s](size_t k) { return Complex(v[2 * k] * c[k], v[2 * k] * s[k]); });
  }
  // nan and inf parse as numbers but are no data; a magnitude of -inf dB,
  // which some writers use for an exact zero, is the value 0 and fine. Only
  // records that held such a token are looked at.
  bool notFinite = false;
  if (m_NonFiniteToken) {
    for (int k = 0; k < m->size(); ++k) notFinite |= !std::isfinite(data[k].re) || !std::isfinite(data[k].im);
    m_NonFiniteToken = false;
  }
  if (notFinite) {
    size_t bad = 0;
    while (bad < m_Values.size() && std::isfinite(m_Values[bad])) ++bad;
    Fail(0, "expected finite numbers in the record for frequency " + FrequencyText(m_Frequency) + " (line " +
                std::to_string(m_RecordLine) + "), found " +
                (bad < m_Values.size() ? std::to_string(m_Values[bad]) + " as its value " + std::to_string(bad + 2)
                                       : std::string("a value that is not finite")));
    return;
  }
  if (!Store(*point, std::move(m))) return;
  m_Pending = std::move(point);
  m_LastFrequency = m_Frequency;
  ++m_Records;
}

// Cosine and sine of every angle of the record, and dB turned into
// magnitudes in place.
bool CTouchstoneParser::Angles() {
  double* v = m_Values.data();
  const size_t pairs = m_Pairs;
  for (size_t k = 0; k < pairs; ++k) m_Cos[k] = v[2 * k + 1];
  SinCosDegrees(m_Cos.data(), pairs, m_Sin.data(), m_Cos.data());
  if (m_Header.format != kDbAngle) return true;
  // A finite number of dB above 20 log10 of the largest double (about
  // 6165 dB) has no magnitude: it is refused like inf, naming the number.
  size_t overflow = pairs;
  double db = 0.0;
  for (size_t k = 0; k < pairs; ++k) {
    const double magnitude = std::pow(10.0, v[2 * k] / 20.0);
    if (std::isinf(magnitude) && std::isfinite(v[2 * k]) && overflow == pairs) {
      overflow = k;
      db = v[2 * k];
    }
    v[2 * k] = magnitude;
  }
  if (overflow == pairs) return true;
  m_NonFiniteToken = false;
  Fail(0, "expected magnitudes a double can hold in the record for frequency " + FrequencyText(m_Frequency) +
              " (line " + std::to_string(m_RecordLine) + "), found " + FrequencyText(db) + " dB as its value " +
              std::to_string(2 * overflow + 2));
  return false;
}

// The record's pairs into the matrix: pair(k) is the k-th complex value.
template <class F>
void CTouchstoneParser::Convert(Complex* data, F&& pair) const {
  const size_t pairs = m_Pairs;
  const size_t* target = m_Target.data();
  if (m_Header.matrixFormat == TouchstoneHeader::kFull) {
    for (size_t k = 0; k < pairs; ++k) data[target[k]] = pair(k);
    return;
  }
  for (size_t k = 0; k < pairs; ++k) data[target[k]] = data[m_Mirror[k]] = pair(k);
}

// Stores the matrix as the kind the file holds. Version 1 files hold Y,
// Z, H and G normalised to the reference; version 2 files and our own
// writer's files hold them in ohms and siemens.
bool CTouchstoneParser::Store(CNetworkModalData& point, std::unique_ptr<CMatrix> m) {
  const char p = m_Header.parameter;
  if (p == 'S') {
    point.SetSMatrix(std::move(m));
    return true;
  }
  // Scaling by the references and turning H or G into Z or Y may leave the
  // range of a double (or divide by a zero H22 or G22) from finite numbers.
  const auto refuse = [&](const char* what) {
    Fail(0, std::string("expected ") + p + "-parameters with finite " + what + " in the record for frequency " +
                FrequencyText(m_Frequency) + " (line " + std::to_string(m_RecordLine) + ")");
    return false;
  };
  const auto finite = [](const CMatrix& x) {
    for (int k = 0; k < x.size(); ++k)
      if (!std::isfinite(x.data()[k].re) || !std::isfinite(x.data()[k].im)) return false;
    return true;
  };
  const int n = m_Header.ports;
  CMatrix& a = *m;
  if (m_Header.version < 2.0 && !m_OwnWriter) {
    // Normalised quantities: v = V / sqrt(R), i = I sqrt(R) per port.
    const auto& r = m_Header.reference;
    for (int i = 0; i < n; ++i) {
      for (int j = 0; j < n; ++j) {
        const double rij = std::sqrt(r[static_cast<size_t>(i)] * r[static_cast<size_t>(j)]);
        const double ratio = std::sqrt(r[0] / r[static_cast<size_t>(n - 1)]);
        double scale = 1.0;
        if (p == 'Z') scale = rij;
        if (p == 'Y') scale = 1.0 / rij;
        if (p == 'H') scale = i == j ? (i == 0 ? r[0] : 1.0 / r[1]) : ratio;
        if (p == 'G') scale = i == j ? (i == 0 ? 1.0 / r[0] : r[1]) : 1.0 / ratio;
        a[i][j] = a[i][j] * scale;
      }
    }
    if (!finite(a)) return refuse("values once multiplied by the reference impedances");
  }
  if (p == 'Z') {
    point.SetZMatrix(std::move(m));
  } else if (p == 'Y') {
    point.SetYMatrix(std::move(m));
  } else {
    // Hybrid parameters of a two-port as Z (from H) or Y (from G):
    // x11 = det / p22, x12 = p12 / p22, x21 = -p21 / p22, x22 = 1 / p22.
    const Complex det = a[0][0] * a[1][1] - a[0][1] * a[1][0];
    const Complex d = a[1][1];
    auto x = std::make_unique<CMatrix>(2, 2);
    (*x)[0][0] = det / d;
    (*x)[0][1] = a[0][1] / d;
    (*x)[1][0] = -a[1][0] / d;
    (*x)[1][1] = Complex(1.0) / d;
    // (A zero divisor gives the largest double, no value either.)
    if ((d.re == 0.0 && d.im == 0.0) || !finite(*x)) return refuse(p == 'H' ? "Z-parameters (H22 other than 0)" : "Y-parameters (G22 other than 0)");
    if (p == 'H') {
      point.SetZMatrix(std::move(x));
    } else {
      point.SetYMatrix(std::move(x));
    }
  }
  return true;
}

// Hands the last point to the solution with its impedances.
void CTouchstoneParser::FinishPending() {
  if (!m_Pending) return;
  if (!m_Pending->GetPortImpedance()) {
    auto z = std::make_unique<CVector>(m_Header.ports);
    for (int k = 0; k < m_Header.ports; ++k) (*z)[k] = Complex(m_Header.reference[static_cast<size_t>(k)]);
    m_Pending->SetPortImpedance(std::move(z));
  }
  m_Solution->AddNetworkData(std::move(m_Pending));
}

// A keyword or the end of the file ends the data: a record must be whole.
void CTouchstoneParser::EndOfData() {
  if (m_InRecord) {
    const size_t pairs = m_Count / 2;
    Fail(0, "the record for frequency " + FrequencyText(m_Frequency) + " that begins at line " +
                std::to_string(m_RecordLine) + " ends early: expected " + Pairs(m_Pairs) + ", found " +
                std::to_string(pairs) + (m_Count % 2 ? " and a half" : ""));
    return;
  }
  FinishPending();
}

}  // namespace nd
