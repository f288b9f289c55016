// The noise block of a two-port: [Noise Data] in version 2, in version 1
// the lines after the first frequency that does not increase.
#include <cmath>
#include <string>

#include "sparamlib/formats/TouchstoneParser.h"

namespace nd {

void CTouchstoneParser::NoiseDataKeyword(size_t column) {
  if (m_Records == 0) {
    Fail(column, "expected [Network Data] and its data before [Noise Data]");
    return;
  }
  if (m_Header.ports != 2) {
    Fail(column, "found [Noise Data] in a " + std::to_string(m_Header.ports) +
                     "-port file: noise parameters exist for 2-ports only");
    return;
  }
  if (m_DeclaredNoise < 0) {
    Fail(column, "expected [Number of Noise Frequencies] before [Noise Data]");
    return;
  }
  m_Stage = kNoise;
}

void CTouchstoneParser::NoiseLine(std::string_view content) {
  double values[5];
  size_t count = 0;
  ForEachToken(content, [&](const Token& token) {
    double v = 0.0;
    if (!ParseNumber(token.text, v)) {
      Fail(token.column, "expected a number, found " + Quoted(token.text));
      return false;
    }
    if (!std::isfinite(v)) {
      Fail(token.column, "expected a finite number on the noise line, found " + Quoted(token.text));
      return false;
    }
    if (count == 5) {
      Fail(token.column, "expected 5 values on a noise line (frequency, minimum noise figure, "
                         "magnitude and angle of the optimum source reflection, noise resistance), "
                         "found more");
      return false;
    }
    if (count == 0 && m_NoiseCount > 0 && !(v > m_LastNoiseFrequency)) {
      Fail(token.column, "expected noise frequencies in increasing order, found " +
                             Quoted(token.text) + " after " + FrequencyText(m_LastNoiseFrequency));
      return false;
    }
    values[count++] = v;
    return true;
  });
  if (m_Failed) return;
  if (count < 5) {
    Fail(content.size(), "expected 5 values on a noise line (frequency, minimum noise figure, "
                         "magnitude and angle of the optimum source reflection, noise resistance), "
                         "found " + std::to_string(count));
    return;
  }
  // Kept as version 1 files state it: the noise resistance normalised to
  // the reference; version 2 files give it in ohms.
  const double rn = m_Header.version >= 2.0 ? values[4] / m_Header.reference[0] : values[4];
  m_Solution->GetOrCreateNoiseSolution().SetNoiseParameters(values[0] * m_Header.hertzPerUnit, values[1],
                                                            values[2], values[3], rn);
  m_LastNoiseFrequency = values[0];
  ++m_NoiseCount;
}

}  // namespace nd
