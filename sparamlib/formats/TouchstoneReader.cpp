// Touchstone reading: one pass over the lines, a record's numbers gathered
// into one reused buffer and turned into a point's matrix when the record is
// complete. Here the pass itself (which step reads which line, what must
// hold at the end) and the entry points; the steps are in the files that
// TouchstoneParser.h names.
#include "sparamlib/formats/TouchstoneReader.h"

#include <filesystem>
#include <string>

#include "sparamlib/formats/LineReader.h"
#include "sparamlib/formats/TouchstoneParser.h"

namespace nd {

std::string CTouchstoneParser::Quoted(std::string_view text) {
  if (text.size() > 40) return "\"" + std::string(text.substr(0, 40)) + "...\"";
  return "\"" + std::string(text) + "\"";
}

std::string CTouchstoneParser::FrequencyText(double value) { return AString::Format("%.10g", value); }

CTouchstoneParser::CTouchstoneParser(std::string name, TouchstoneHeader& header)
    : CLineParser(std::move(name)), m_Header(header) {
  m_NamedPorts = TouchstonePortsFromName(m_Name);
  std::filesystem::path stem = std::filesystem::path(m_Name).stem();
  m_Solution = std::make_unique<CNetworkModalSolution>(stem.string());
  m_Solution->SetSolutionType(CNetworkDataSolution::DiscreteSweep);
}

std::unique_ptr<CNetworkModalSolution> CTouchstoneParser::Run(CLineReader& lines, std::string* error) {
  if (RunLines(lines)) Finish();
  if (m_Failed) {
    if (error) *error = m_Error;
    return nullptr;
  }
  return std::move(m_Solution);
}

// Every line the bulk path leaves comes here: the stage and the first
// character that is no blank decide which step reads it.
void CTouchstoneParser::Line(std::string_view line) {
  const size_t bang = line.find('!');
  const std::string_view content = line.substr(0, bang);
  if (m_Stage == kInformation) {
    const std::string_view trimmed = Trim(content);
    if (trimmed.size() >= 17 && Lower(trimmed.substr(0, 17)) == "[end information]") {
      m_Stage = m_StageBeforeInformation;
    } else {
      m_Header.information.append(line).push_back('\n');
    }
    return;
  }
  if (bang != std::string_view::npos) {
    Comment(line.substr(bang + 1), bang + 1, Trim(content).empty());
    if (m_Failed) return;
  }
  const size_t start = content.find_first_not_of(" \t\r");
  if (start == std::string_view::npos) return;
  if (m_VectorPending) {
    VectorIncomplete();
    return;
  }
  if (m_Stage == kReference && content[start] != '[') {
    ReferenceValues(content);
    return;
  }
  if (content[start] == '[') {
    Keyword(content, start);
  } else if (content[start] == '#') {
    OptionLine(content, start);
  } else {
    DataLine(content, start);
  }
}

// What only the whole file can tell: blocks left open, counts the header
// declared, a record cut short by the end.
void CTouchstoneParser::Finish() {
  if (m_Stage == kInformation) {
    Fail(0, "[Begin Information] at line " + std::to_string(m_InformationLine) + " has no [End Information]");
    return;
  }
  if (m_Stage == kReference) {
    Fail(0, "expected " + std::to_string(m_Header.ports) + " reference impedances after [Reference] at line " +
                std::to_string(m_ReferenceLine) + ", found " + std::to_string(m_Header.reference.size()));
    return;
  }
  if (m_VectorPending) {
    VectorIncomplete();
    return;
  }
  if (!m_Ended) EndOfData();
  if (m_Failed) return;
  if (!m_HaveOptions) {
    Fail(0, "expected the option line (such as \"# GHz S MA R 50\"), found none");
    return;
  }
  if (m_Records == 0) {
    Fail(0, "expected network data, found none");
    return;
  }
  if (m_Header.version >= 2.0 && !m_Ended) {
    Fail(0, "expected [End] at the end of a version 2 file");
    return;
  }
  if (m_DeclaredFrequencies >= 0 && m_Records != m_DeclaredFrequencies) {
    Fail(0, "[Number of Frequencies] says " + std::to_string(m_DeclaredFrequencies) + " but the file holds " +
                std::to_string(m_Records));
    return;
  }
  if (m_DeclaredNoise >= 0 && m_NoiseCount != m_DeclaredNoise) {
    Fail(0, "[Number of Noise Frequencies] says " + std::to_string(m_DeclaredNoise) + " but the file holds " +
                std::to_string(m_NoiseCount));
    return;
  }
  NameEntries();
}

int TouchstonePortsFromName(const std::string& path) {
  const std::string extension = Lower(std::filesystem::path(path).extension().string());
  if (extension.size() < 4 || extension[1] != 's' || extension.back() != 'p') return -1;
  int ports = 0;
  for (size_t i = 2; i + 1 < extension.size(); ++i) {
    if (extension[i] < '0' || extension[i] > '9') return -1;
    ports = ports * 10 + (extension[i] - '0');
    if (ports > 100000) return -1;
  }
  return ports;
}

std::unique_ptr<CNetworkModalSolution> ReadTouchstoneFile(const std::filesystem::path& path,
                                                          std::string* error,
                                                          TouchstoneHeader* header) {
  CLineReader lines(path);
  if (!lines.error().empty()) {
    if (error) *error = path.string() + ": cannot open the file: " + lines.error();
    return nullptr;
  }
  TouchstoneHeader local;
  TouchstoneHeader& h = header ? *header : local;
  h = TouchstoneHeader();
  CTouchstoneParser parser(path.string(), h);
  std::error_code ec;
  if (std::filesystem::is_regular_file(path, ec)) parser.SetInputBytes(std::filesystem::file_size(path, ec));
  return parser.Run(lines, error);
}

std::unique_ptr<CNetworkModalSolution> ReadTouchstoneText(std::string_view text,
                                                          const std::string& name,
                                                          std::string* error,
                                                          TouchstoneHeader* header) {
  CLineReader lines(text);
  TouchstoneHeader local;
  TouchstoneHeader& h = header ? *header : local;
  h = TouchstoneHeader();
  CTouchstoneParser parser(name, h);
  parser.SetInputBytes(text.size());
  return parser.Run(lines, error);
}

}  // namespace nd
