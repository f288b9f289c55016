// The Touchstone reader's one pass over a file: its state and its steps,
// each group of steps defined in the file named beside it below.
#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "sparamlib/data/BlockMatrixIO.h"
#include "sparamlib/data/NetworkModalData.h"
#include "sparamlib/formats/LineReader.h"
#include "sparamlib/formats/TouchstoneReader.h"

namespace nd {

// One parser object, not one per part of the file: the parts hand over to
// one another in the middle of a line (a version 1 data line that turns out
// to open the noise block, a keyword that ends a record, a comment that
// completes the point before it), and all of them fail through the one
// first-failure rule of CLineParser with the line they are on. So the state
// is shared and the steps are split by what they read:
//   TouchstoneReader.cpp    the line dispatch, the end of the file, the entry points
//   TouchstoneKeywords.cpp  the option line and the [Keyword] lines
//   TouchstoneRecords.cpp   data lines one by one, and a record into a point
//   TouchstoneBulk.cpp      plain data lines in bulk from the read buffer
//   TouchstoneNoise.cpp     the noise block
//   TouchstoneComments.cpp  port names and our own "! Gamma" / "! Port Impedance" lines
class CTouchstoneParser : public CLineParser {
 public:
  CTouchstoneParser(std::string name, TouchstoneHeader& header);
  // The size of the whole input, when it is known.
  void SetInputBytes(std::uint64_t bytes) { m_InputBytes = bytes; }

  // Returns the solution, or null with the first error in `error`.
  std::unique_ptr<CNetworkModalSolution> Run(CLineReader& lines, std::string* error);

 private:
  using Complex = AComplex<double>;
  using CMatrix = TNT::CMatrix;
  using CVector = TNT::CVector;

  enum Stage { kHeader, kReference, kInformation, kNetwork, kNoise };

  // For messages: a token in quotes, cut at 40 characters; a frequency as
  // the file writes it.
  static std::string Quoted(std::string_view text);
  static std::string FrequencyText(double value);

  // ---- TouchstoneReader.cpp ----------------------------------------------
  void Line(std::string_view line) override;
  void Finish();

  // ---- TouchstoneKeywords.cpp --------------------------------------------
  void OptionLine(std::string_view content, size_t start);
  void Keyword(std::string_view content, size_t start);
  std::optional<int> Count(std::string_view text, size_t column, const char* keyword, int least);
  void ReferenceValues(std::string_view text, size_t offset = 0);
  void NetworkDataKeyword(size_t column);

  // ---- TouchstoneRecords.cpp ---------------------------------------------
  bool Prepare(size_t column);
  void GrowValues(size_t need);
  void Layout();
  void DataLine(std::string_view content, size_t start);
  bool StartRecord(double v, const Token& token, std::string_view content);
  void RowTooLong(const Token& token);
  void EndRecord();
  bool Angles();
  template <class F>
  void Convert(Complex* data, F&& pair) const;
  bool Store(CNetworkModalData& point, std::unique_ptr<CMatrix> m);
  void FinishPending();
  void EndOfData();

  // Both the line-by-line and the bulk path open records; kept here so that
  // the bulk loop compiles it in.
  void BeginRecord(double frequency) {
    m_InRecord = true;
    m_RecordDone = false;
    m_RowDone = false;
    m_Row = 0;
    m_InRow = 0;
    m_RecordLine = m_Line;
    m_Frequency = frequency;
    m_Count = 0;
  }

  // ---- TouchstoneBulk.cpp ------------------------------------------------
  size_t Lines(std::string_view text, long firstLine, long& lines) override;
  // Defined and called in TouchstoneBulk.cpp only, and compiled into Lines
  // there: a call per data line costs measurably in a big file.
  [[gnu::always_inline]] inline bool TakeLine(const char*& p, const char* end, long line);

  // ---- TouchstoneNoise.cpp -----------------------------------------------
  void NoiseDataKeyword(size_t column);
  void NoiseLine(std::string_view content);

  // ---- TouchstoneComments.cpp --------------------------------------------
  void Comment(std::string_view text, size_t column, bool wholeLine);
  void PortName(std::string_view t);
  void StartVector(bool impedance, std::string_view rest, size_t column);
  void VectorValues(std::string_view text, size_t column);
  const char* VectorTitle() const { return m_VectorIsImpedance ? "! Port Impedance" : "! Gamma"; }
  void VectorIncomplete();
  void NameEntries();

  TouchstoneHeader& m_Header;
  std::unique_ptr<CNetworkModalSolution> m_Solution;
  int m_NamedPorts = -1;
  // Bytes of the whole input (the file's size where it has one): a port
  // count is believed only as far as the input can hold one record.
  std::uint64_t m_InputBytes = UINT64_MAX;
  // The record being read holds a nan or inf token.
  bool m_NonFiniteToken = false;
  bool m_Ended = false;

  Stage m_Stage = kHeader;
  Stage m_StageBeforeInformation = kHeader;
  long m_InformationLine = 0;
  long m_ReferenceLine = 0;
  bool m_SeenContent = false;
  bool m_HaveOptions = false;
  bool m_OwnWriter = false;
  std::vector<double> m_OptionResistance;
  int m_DeclaredFrequencies = -1;
  int m_DeclaredNoise = -1;
  std::vector<std::string> m_PortNames;

  // Record layout.
  bool m_Prepared = false;
  size_t m_Pairs = 0;             // value pairs per record
  std::vector<size_t> m_Target;   // matrix element of each pair (from the first record on)
  std::vector<size_t> m_Mirror;   // its transpose, for Lower and Upper
  std::vector<int> m_RowPairs;    // pairs per line-starting row
  // The record being read.
  bool m_InRecord = false;
  bool m_RecordDone = false;
  bool m_RowDone = false;
  size_t m_Row = 0;
  int m_InRow = 0;
  long m_RecordLine = 0;
  double m_Frequency = 0.0;
  double m_LastFrequency = 0.0;
  std::vector<double> m_Values;  // the record's numbers after its frequency (grown as they arrive)
  size_t m_Count = 0;            // how many of them are read
  std::vector<double> m_Cos, m_Sin;  // of the record's angles
  std::vector<const char*> m_Firsts, m_Lasts;  // bounds of a line's tokens, in bulk
  int m_Records = 0;
  std::unique_ptr<CNetworkModalData> m_Pending;  // last point, until its comment lines are read
  // "! Gamma" / "! Port Impedance" values being gathered.
  bool m_VectorPending = false;
  bool m_VectorIsImpedance = false;
  long m_VectorLine = 0;
  std::vector<double> m_Vector;
  // Noise.
  int m_NoiseCount = 0;
  double m_LastNoiseFrequency = 0.0;
};

}  // namespace nd
