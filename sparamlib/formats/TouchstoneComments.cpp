// Comment lines that carry data: the first line and the "! Port[k] = name"
// lines of our own files, and the "! Gamma" / "! Port Impedance" lines our
// writer puts behind each record, read back into the point before them.
#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include "sparamlib/formats/TouchstoneParser.h"

namespace nd {

// Comments carry the first line of our own files, port names before the
// data, and the gamma and port-impedance lines behind each record.
void CTouchstoneParser::Comment(std::string_view text, size_t column, bool wholeLine) {
  if (m_Line == 1 && Trim(text).starts_with("Touchstone file from project")) m_OwnWriter = true;
  if (!wholeLine) return;
  const std::string_view t = Trim(text);
  if (m_VectorPending) {
    VectorValues(t, column + static_cast<size_t>(t.data() - text.data()));
    return;
  }
  if (m_Pending && m_Stage == kNetwork) {
    const std::string lower = Lower(t.substr(0, std::min<size_t>(t.size(), 16)));
    if (lower.starts_with("gamma") && (t.size() == 5 || t[5] == ' ' || t[5] == '\t')) {
      StartVector(false, t.substr(5), column + static_cast<size_t>(t.data() - text.data()) + 5);
    } else if (lower.starts_with("port impedance") &&
               (t.size() == 14 || t[14] == ' ' || t[14] == '\t')) {
      StartVector(true, t.substr(14), column + static_cast<size_t>(t.data() - text.data()) + 14);
    }
    return;
  }
  if (m_Records == 0 && !m_Pending) PortName(t);
}

// "Port[3] = name"
void CTouchstoneParser::PortName(std::string_view t) {
  if (t.size() < 6 || Lower(t.substr(0, 5)) != "port[") return;
  const size_t close = t.find(']');
  const size_t equals = t.find('=');
  if (close == std::string_view::npos || equals == std::string_view::npos || equals < close) return;
  int index = 0;
  for (size_t i = 5; i < close; ++i) {
    if (t[i] < '0' || t[i] > '9' || index > 100000) return;
    index = index * 10 + (t[i] - '0');
  }
  if (index < 1) return;
  if (m_PortNames.size() < static_cast<size_t>(index)) m_PortNames.resize(static_cast<size_t>(index));
  m_PortNames[static_cast<size_t>(index) - 1] = std::string(Trim(t.substr(equals + 1)));
}

void CTouchstoneParser::StartVector(bool impedance, std::string_view rest, size_t column) {
  m_VectorIsImpedance = impedance;
  m_VectorLine = m_Line;
  m_Vector.clear();
  m_VectorPending = true;
  VectorValues(rest, column);
}

void CTouchstoneParser::VectorValues(std::string_view text, size_t column) {
  const size_t wanted = 2 * static_cast<size_t>(m_Header.ports);
  ForEachToken(text, [&](const Token& token) {
    double v = 0.0;
    if (!ParseNumber(token.text, v)) {
      Fail(column + token.column, std::string("expected a number of the ") + VectorTitle() +
                                      " line, found " + Quoted(token.text));
      return false;
    }
    if (!std::isfinite(v)) {  // nan and inf parse, but are no impedance or propagation constant
      Fail(column + token.column, std::string("expected a finite number of the ") + VectorTitle() +
                                      " line, found " + Quoted(token.text));
      return false;
    }
    if (m_Vector.size() == wanted) {
      Fail(column + token.column, std::string("expected ") + std::to_string(wanted / 2) +
                                      " complex values on the " + VectorTitle() +
                                      " line, found more");
      return false;
    }
    m_Vector.push_back(v);
    return true;
  });
  if (m_Failed || m_Vector.size() < wanted) return;
  m_VectorPending = false;
  auto v = std::make_unique<CVector>(m_Header.ports);
  for (int k = 0; k < m_Header.ports; ++k)
    (*v)[k] = Complex(m_Vector[2 * static_cast<size_t>(k)], m_Vector[2 * static_cast<size_t>(k) + 1]);
  if (m_VectorIsImpedance) {
    m_Pending->SetPortImpedance(std::move(v));
    m_Header.portImpedanceLines = true;
  } else {
    m_Pending->SetGamma(std::move(v));
  }
}

void CTouchstoneParser::VectorIncomplete() {
  Fail(0, std::string("expected ") + std::to_string(m_Header.ports) + " complex values on the " +
              VectorTitle() + " line at line " + std::to_string(m_VectorLine) + ", found " +
              std::to_string(m_Vector.size()) + " numbers");
}

// Entries named by the file's "! Port[k] = name" lines, else by its
// [Mixed-Mode Order], else Port1, Port2, ...
void CTouchstoneParser::NameEntries() {
  std::vector<std::string> mixed;
  ForEachToken(m_Header.mixedModeOrder, [&](const Token& t) {
    mixed.emplace_back(t.text);
    return true;
  });
  const size_t n = static_cast<size_t>(m_Header.ports);
  for (size_t k = 0; k < n; ++k) {
    std::string name = "Port" + std::to_string(k + 1);
    if (k < m_PortNames.size() && !m_PortNames[k].empty()) {
      name = m_PortNames[k];
    } else if (mixed.size() == n) {
      name = mixed[k];
    }
    CMatrixEntry entry(name, 1, static_cast<int>(k));
    entry.SetModalEntryName(name);
    m_Solution->AddMatrixEntry(entry);
  }
}

}  // namespace nd
