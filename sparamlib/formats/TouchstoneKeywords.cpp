// The Touchstone header: the option line ("# GHz S MA R 50") and the
// [Keyword] lines of version 2 ([Version], [Number of Ports], [Reference], ...).
#include <cmath>
#include <optional>
#include <string>
#include <vector>

#include "sparamlib/formats/TouchstoneParser.h"

namespace nd {

void CTouchstoneParser::OptionLine(std::string_view content, size_t start) {
  if (m_HaveOptions) return;  // later option lines are ignored, as Touchstone has it
  m_HaveOptions = true;
  m_SeenContent = true;
  bool unit = false, parameter = false, format = false, resistance = false, inR = false;
  std::vector<double> r;
  ForEachToken(content.substr(start + 1), [&](const Token& token) {
    const size_t column = start + 1 + token.column;
    double v = 0.0;
    if (inR && ParseNumber(token.text, v)) {
      if (!(v > 0.0) || !std::isfinite(v)) {
        Fail(column, "expected a reference resistance above 0 ohms, found " + Quoted(token.text));
        return false;
      }
      r.push_back(v);
      return true;
    }
    if (inR && r.empty()) {
      Fail(column, "expected a resistance in ohms after R, found " + Quoted(token.text));
      return false;
    }
    inR = false;
    const std::string t = Lower(token.text);
    bool* seen = nullptr;
    if (t == "hz" || t == "khz" || t == "mhz" || t == "ghz") {
      seen = &unit;
      m_Header.hertzPerUnit = t == "hz" ? 1.0 : t == "khz" ? 1e3 : t == "mhz" ? 1e6 : 1e9;
    } else if (t == "s" || t == "y" || t == "z" || t == "h" || t == "g") {
      seen = &parameter;
      m_Header.parameter = static_cast<char>(t[0] - 'a' + 'A');
    } else if (t == "ma" || t == "db" || t == "ri") {
      seen = &format;
      m_Header.format = t == "ma" ? kMagnitudeAngle : t == "db" ? kDbAngle : kRealImaginary;
    } else if (t == "r") {
      seen = &resistance;
      inR = true;
    } else {
      Fail(column, "expected a frequency unit (Hz, kHz, MHz, GHz), a parameter (S, Y, Z, H, G), "
                   "a format (MA, DB, RI) or R and a resistance on the option line, found " +
                       Quoted(token.text));
      return false;
    }
    if (*seen) {
      Fail(column, "the option line names this kind of option twice: " + Quoted(token.text));
      return false;
    }
    *seen = true;
    return true;
  });
  if (m_Failed) return;
  if (inR && r.empty()) {
    Fail(content.size(), "expected a resistance in ohms after R, found the end of the line");
    return;
  }
  m_OptionResistance = r;
}

void CTouchstoneParser::Keyword(std::string_view content, size_t start) {
  const size_t close = content.find(']', start);
  if (close == std::string_view::npos) {
    Fail(start, "expected a keyword in brackets, found " + Quoted(Trim(content.substr(start))));
    return;
  }
  const std::string name = Lower(content.substr(start, close + 1 - start));
  const std::string_view argument = Trim(content.substr(close + 1));
  const size_t argColumn = argument.empty() ? close + 1 : static_cast<size_t>(argument.data() - content.data());
  if (name == "[version]") {
    if (m_SeenContent) {
      Fail(start, "expected [Version] as the first line that is not a comment");
      return;
    }
    double v = 0.0;
    if (!ParseNumber(argument, v) || (v != 2.0 && v != 2.1)) {
      Fail(argColumn, "expected [Version] 2.0 or 2.1, found " + Quoted(argument));
      return;
    }
    m_Header.version = v;
    m_SeenContent = true;
    return;
  }
  m_SeenContent = true;
  if (m_Stage == kReference) {
    Fail(start, "expected " + std::to_string(m_Header.ports) + " reference impedances after [Reference] at line " +
                    std::to_string(m_ReferenceLine) + ", found " + std::to_string(m_Header.reference.size()));
    return;
  }
  if (m_Header.version < 2.0) {
    Fail(start, "found the keyword " + Quoted(content.substr(start, close + 1 - start)) +
                    " in a file without [Version] 2.0 in its first line");
    return;
  }
  if (name == "[end]") {
    if (m_Stage == kNetwork || m_Stage == kNoise) EndOfData();
    m_Ended = true;
    Stop();
    return;
  }
  if (m_Stage == kNetwork || m_Stage == kNoise) {
    EndOfData();
    if (m_Failed) return;
  }
  if (name == "[begin information]") {
    m_StageBeforeInformation = m_Stage;
    m_InformationLine = m_Line;
    m_Stage = kInformation;
    return;
  }
  if (name == "[end information]") {
    Fail(start, "found [End Information] without [Begin Information]");
    return;
  }
  if (name == "[network data]") {
    NetworkDataKeyword(start);
    return;
  }
  if (name == "[noise data]") {
    NoiseDataKeyword(start);
    return;
  }
  if (m_Stage != kHeader) {
    Fail(start, "expected the keyword " + Quoted(content.substr(start, close + 1 - start)) +
                    " before [Network Data]");
    return;
  }
  if (name == "[number of ports]") {
    const std::optional<int> n = Count(argument, argColumn, "[Number of Ports]", 1);
    if (!n) return;
    if (m_NamedPorts >= 0 && *n != m_NamedPorts) {
      Fail(argColumn, "[Number of Ports] says " + std::to_string(*n) + " but the file name says " +
                          std::to_string(m_NamedPorts) + " ports");
      return;
    }
    m_Header.ports = *n;
  } else if (name == "[two-port data order]") {
    const std::string order = Lower(argument);
    if (order != "12_21" && order != "21_12") {
      Fail(argColumn, "expected [Two-Port Data Order] 12_21 or 21_12, found " + Quoted(argument));
      return;
    }
    m_Header.twoPortDataOrder = order;
  } else if (name == "[number of frequencies]") {
    if (const auto n = Count(argument, argColumn, "[Number of Frequencies]", 1)) m_DeclaredFrequencies = *n;
  } else if (name == "[number of noise frequencies]") {
    if (const auto n = Count(argument, argColumn, "[Number of Noise Frequencies]", 1))
      m_DeclaredNoise = *n;
  } else if (name == "[reference]") {
    if (m_Header.ports < 1) {
      Fail(start, "expected [Number of Ports] before [Reference]");
      return;
    }
    m_Header.reference.clear();
    m_Stage = kReference;
    m_ReferenceLine = m_Line;
    if (!argument.empty()) ReferenceValues(content.substr(close + 1), close + 1);
  } else if (name == "[matrix format]") {
    const std::string f = Lower(argument);
    if (f == "full") {
      m_Header.matrixFormat = TouchstoneHeader::kFull;
    } else if (f == "lower") {
      m_Header.matrixFormat = TouchstoneHeader::kLower;
    } else if (f == "upper") {
      m_Header.matrixFormat = TouchstoneHeader::kUpper;
    } else {
      Fail(argColumn, "expected [Matrix Format] Full, Lower or Upper, found " + Quoted(argument));
    }
  } else if (name == "[mixed-mode order]") {
    m_Header.mixedModeOrder = std::string(argument);
  } else {
    Fail(start, "expected a Touchstone keyword, found " + Quoted(content.substr(start, close + 1 - start)));
  }
}

std::optional<int> CTouchstoneParser::Count(std::string_view text, size_t column, const char* keyword, int least) {
  double v = 0.0;
  if (!ParseNumber(text, v) || v != std::floor(v) || v < least || v > 1e8) {
    Fail(column, std::string("expected a whole number of at least ") + std::to_string(least) +
                     " after " + keyword + ", found " + Quoted(text));
    return std::nullopt;
  }
  return static_cast<int>(v);
}

void CTouchstoneParser::ReferenceValues(std::string_view text, size_t offset) {
  ForEachToken(text, [&](const Token& token) {
    double v = 0.0;
    if (!ParseNumber(token.text, v) || !(v > 0.0) || !std::isfinite(v)) {
      Fail(offset + token.column, "expected " + std::to_string(m_Header.ports) +
                                      " reference impedances above 0 ohms after [Reference], found " +
                                      Quoted(token.text));
      return false;
    }
    if (m_Header.reference.size() == static_cast<size_t>(m_Header.ports)) {
      Fail(offset + token.column, "expected " + std::to_string(m_Header.ports) +
                                      " reference impedances after [Reference], found more");
      return false;
    }
    m_Header.reference.push_back(v);
    return true;
  });
  if (m_Header.reference.size() == static_cast<size_t>(m_Header.ports)) m_Stage = kHeader;
}

void CTouchstoneParser::NetworkDataKeyword(size_t column) {
  if (m_Stage != kHeader || m_Records > 0) {
    Fail(column, "found a second [Network Data]");
    return;
  }
  if (!m_HaveOptions) {
    Fail(column, "expected the option line (such as \"# GHz S MA R 50\") before [Network Data]");
    return;
  }
  if (m_Header.ports < 1) {
    Fail(column, "expected [Number of Ports] before [Network Data]");
    return;
  }
  if (m_DeclaredFrequencies < 0) {
    Fail(column, "expected [Number of Frequencies] before [Network Data]");
    return;
  }
  if (m_Header.ports == 2 && m_Header.twoPortDataOrder.empty()) {
    Fail(column, "expected [Two-Port Data Order] (12_21 or 21_12) before the data of a 2-port");
    return;
  }
  if (!Prepare(column)) return;
  m_Stage = kNetwork;
}

}  // namespace nd
