// Citifile reading. The format stores data array by array (all frequencies
// of S[1,1], then of S[1,2], ...), so the reader builds the points once
// every array is in.
#include "sparamlib/formats/Citifile.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "core/AString.h"
#include "sparamlib/data/NetworkModalData.h"
#include "sparamlib/formats/LineReader.h"

namespace nd {
namespace {

using Complex = AComplex<double>;
using TNT::CMatrix;
using TNT::CVector;

// A DATA array: a matrix element (kind S, Y or Z), a port impedance or a
// propagation constant.
struct ArrayName {
  enum Role { kMatrix, kImpedance, kGamma } role = kMatrix;
  char kind = 'S';
  int i = 0;  // 0-based
  int j = 0;
};

// "S[2,1]", "Z0[3]", "GAMMA[1]" (any case); nothing for other names.
std::optional<ArrayName> ParseArrayName(std::string_view text) {
  const size_t open = text.find('[');
  if (open == std::string_view::npos || text.back() != ']') return std::nullopt;
  const std::string head = Lower(text.substr(0, open));
  const std::string_view inside = text.substr(open + 1, text.size() - open - 2);
  const size_t comma = inside.find(',');
  const std::string_view parts[2] = {inside.substr(0, comma),
                                     comma == std::string_view::npos ? std::string_view() : inside.substr(comma + 1)};
  const int count = comma == std::string_view::npos ? 1 : 2;
  int index[2] = {0, 0};
  for (int k = 0; k < count; ++k) {
    double v = 0.0;
    if (!ParseNumber(Trim(parts[k]), v) || v != std::floor(v) || v < 1 || v > 1e5) return std::nullopt;
    index[k] = static_cast<int>(v) - 1;
  }
  ArrayName name;
  if ((head == "s" || head == "y" || head == "z") && count == 2) {
    name.kind = static_cast<char>(head[0] - 'a' + 'A');
    name.i = index[0];
    name.j = index[1];
    return name;
  }
  if ((head == "z0" || head == "gamma") && count == 1) {
    name.role = head == "z0" ? ArrayName::kImpedance : ArrayName::kGamma;
    name.i = index[0];
    return name;
  }
  return std::nullopt;
}

// The frequency list as the file gives it: runs of listed values (kept in
// m_Frequencies) and segments, in order.
struct Piece {
  bool segment;
  size_t first;  // of a run, in m_Frequencies
  size_t count;
  double start = 0.0, stop = 0.0;  // of a segment
  long line = 0;
  size_t column = 0;
};

// The k-th frequency of a segment: evenly spaced from start to stop, both included.
double SegmentFrequency(const Piece& piece, std::uint64_t k) {
  if (piece.count == 1) return piece.start;
  return piece.start + (piece.stop - piece.start) * static_cast<double>(k) / static_cast<double>(piece.count - 1);
}

class CCitifileParser : public CLineParser {
 public:
  using CLineParser::CLineParser;

  std::unique_ptr<CNetworkModalSolution> Run(CLineReader& lines, std::string* error) {
    std::unique_ptr<CNetworkModalSolution> solution;
    if (RunLines(lines)) solution = Build();
    if (m_Failed) {
      if (error) *error = m_Error;
      return nullptr;
    }
    return solution;
  }

 private:
  enum Stage { kHeader, kVarList, kSegList, kBlock, kBetween };

  void Line(std::string_view line) override {
    const std::string_view t = Trim(line);
    if (t.empty() || t[0] == '!' || t[0] == '#') return;
    const size_t column = static_cast<size_t>(t.data() - line.data());
    const size_t blank = std::min(t.find_first_of(" \t"), t.size());
    const std::string word = Lower(t.substr(0, blank));
    const std::string_view rest = Trim(t.substr(blank));
    const size_t restColumn = rest.empty() ? line.size() : static_cast<size_t>(rest.data() - line.data());

    if (m_Stage == kVarList) {
      if (word == "var_list_end") {
        m_Stage = kBetween;
        return;
      }
      Frequency(t, column);
      return;
    }
    if (m_Stage == kSegList) {
      if (word == "seg_list_end") {
        m_Stage = kBetween;
      } else if (word == "seg") {
        Segment(rest, restColumn);
      } else {
        Fail(column, "expected SEG start stop count or SEG_LIST_END, found \"" + std::string(t) + "\"");
      }
      return;
    }
    if (m_Stage == kBlock) {
      if (word == "end") {
        EndBlock(column);
      } else {
        Value(t, column);
      }
      return;
    }
    if (word == "citifile") {
      if (m_SeenCitifile) {
        Fail(column, "found a second package (CITIFILE); one package per file can be read");
        return;
      }
      m_SeenCitifile = true;
    } else if (!m_SeenCitifile) {
      Fail(column, "expected CITIFILE and a version in the first line, found \"" + std::string(t) + "\"");
    } else if (word == "name" || word == "comment" || word == "constant") {
      // Descriptive only.
    } else if (word == "var") {
      Var(rest, restColumn);
    } else if (word == "data") {
      Data(rest, restColumn);
    } else if (word == "var_list_begin" || word == "seg_list_begin") {
      if (m_Count < 0) {
        Fail(column, "expected VAR FREQ MAG count before the frequency list");
        return;
      }
      m_Stage = word == "var_list_begin" ? kVarList : kSegList;
    } else if (word == "begin") {
      if (m_Listed != static_cast<std::uint64_t>(m_Count)) {
        Fail(column, "expected the " + std::to_string(m_Count) + " frequencies of VAR FREQ before BEGIN, found " +
                         std::to_string(m_Listed));
        return;
      }
      if (m_Block == m_Arrays.size()) {
        Fail(column, "found more BEGIN blocks than DATA arrays (" + std::to_string(m_Arrays.size()) + ")");
        return;
      }
      m_Stage = kBlock;
      // The values are counted as they arrive, not believed from VAR: room
      // for a modest block at once, more only as the file holds it.
      m_Values[m_Block].reserve(std::min<size_t>(static_cast<size_t>(m_Count), 4096));
    } else {
      Fail(column, "expected a Citifile keyword (NAME, VAR, DATA, VAR_LIST_BEGIN, SEG_LIST_BEGIN, BEGIN, "
                   "COMMENT, CONSTANT), found \"" + std::string(t) + "\"");
    }
  }

  void Var(std::string_view rest, size_t column) {
    std::vector<Token> tokens;
    ForEachToken(rest, [&](const Token& token) {
      tokens.push_back(token);
      return true;
    });
    double count = 0.0;
    if (tokens.size() != 3 || Lower(tokens[0].text) != "freq" || Lower(tokens[1].text) != "mag" ||
        !ParseNumber(tokens[2].text, count) || count != std::floor(count) || count < 1 || count > 1e8) {
      Fail(column, "expected VAR FREQ MAG and the number of frequencies, found \"" + std::string(rest) + "\"");
      return;
    }
    if (m_Count >= 0) {
      Fail(column, "found a second VAR; one independent variable (FREQ) can be read");
      return;
    }
    m_Count = static_cast<int>(count);
  }

  void Data(std::string_view rest, size_t column) {
    std::vector<Token> tokens;
    ForEachToken(rest, [&](const Token& token) {
      tokens.push_back(token);
      return true;
    });
    const std::optional<ArrayName> name = tokens.size() == 2 ? ParseArrayName(tokens[0].text) : std::nullopt;
    const std::string format = tokens.size() == 2 ? Lower(tokens[1].text) : std::string();
    if (!name || (format != "ri" && format != "mag")) {
      Fail(column, "expected DATA S[i,j], Y[i,j], Z[i,j], Z0[k] or GAMMA[k] and the format RI or MAG, found \"" +
                       std::string(rest) + "\"");
      return;
    }
    if (name->role == ArrayName::kMatrix) {
      if (m_Kind && *m_Kind != name->kind) {
        Fail(column + tokens[0].column, std::string("found ") + name->kind + " data beside " + *m_Kind +
                                            " data; a file holds one kind");
        return;
      }
      m_Kind = name->kind;
    }
    m_Arrays.push_back(*name);
    m_Magnitude.push_back(format == "mag");
    m_Values.emplace_back();
    m_ArrayLines.push_back(m_Line);
  }

  void Frequency(std::string_view t, size_t column) {
    double f = 0.0;
    if (!ParseNumber(t, f) || !std::isfinite(f) || f < 0.0) {
      Fail(column, "expected a frequency in Hz or VAR_LIST_END, found \"" + std::string(t) + "\"");
      return;
    }
    AddFrequency(f, column);
  }

  void AddFrequency(double f, size_t column) {
    if (m_Listed > 0 && !(f > m_LastListed)) {
      Fail(column, AString::Format("expected frequencies in increasing order, found %.10g after %.10g", f,
                                   m_LastListed));
      return;
    }
    if (m_Listed == static_cast<std::uint64_t>(m_Count)) {
      Fail(column, "found more than the " + std::to_string(m_Count) + " frequencies that VAR FREQ declares");
      return;
    }
    if (m_Pieces.empty() || m_Pieces.back().segment) m_Pieces.push_back({false, m_Frequencies.size(), 0});
    ++m_Pieces.back().count;
    m_Frequencies.push_back(f);
    m_LastListed = f;
    ++m_Listed;
  }

  // A segment is kept as its three numbers: its frequencies are made only
  // once the data blocks have shown, value by value, that the file holds as
  // many, so that "SEG 0 1 100000000" in a small file costs nothing.
  void Segment(std::string_view rest, size_t column) {
    double v[3];
    int count = 0;
    const bool ok = ForEachToken(rest, [&](const Token& token) { return count < 3 && ParseNumber(token.text, v[count++]); });
    if (!ok || count != 3 || v[2] < 1 || v[2] != std::floor(v[2]) || v[2] > 1e8 || !std::isfinite(v[0]) ||
        !std::isfinite(v[1]) || v[0] < 0.0) {
      Fail(column, "expected SEG start stop count (finite frequencies of 0 Hz or more), found \"" +
                       std::string(rest) + "\"");
      return;
    }
    const auto points = static_cast<std::uint64_t>(v[2]);
    if (m_Listed > 0 && !(v[0] > m_LastListed)) {
      Fail(column, AString::Format("expected frequencies in increasing order, found %.10g after %.10g", v[0],
                                   m_LastListed));
      return;
    }
    if (points > static_cast<std::uint64_t>(m_Count) - m_Listed) {
      Fail(column, "found more than the " + std::to_string(m_Count) + " frequencies that VAR FREQ declares");
      return;
    }
    Piece piece{true, 0, static_cast<size_t>(points)};
    if (points > 1 && !(v[1] > v[0])) {
      Fail(column, AString::Format("expected frequencies in increasing order, found %.10g after %.10g",
                                   SegmentFrequency({true, 0, static_cast<size_t>(points), v[0], v[1]}, 1), v[0]));
      return;
    }
    piece.start = v[0];
    piece.stop = v[1];
    piece.line = m_Line;
    piece.column = column;
    m_Pieces.push_back(piece);
    m_LastListed = SegmentFrequency(piece, points - 1);
    m_Listed += points;
  }

  // Every frequency in order, segments made now; false (and a failure at
  // the segment's line) where one does not increase.
  bool ListFrequencies(std::vector<double>& out) {
    out.reserve(static_cast<size_t>(m_Listed));
    for (const Piece& piece : m_Pieces) {
      for (size_t k = 0; k < piece.count; ++k) {
        const double f = piece.segment ? SegmentFrequency(piece, k) : m_Frequencies[piece.first + k];
        if (piece.segment && !out.empty() && !(f > out.back())) {
          m_Line = piece.line;
          Fail(piece.column, AString::Format("expected frequencies in increasing order, found %.10g after %.10g", f,
                                             out.back()));
          return false;
        }
        out.push_back(f);
      }
    }
    return true;
  }

  void Value(std::string_view t, size_t column) {
    std::vector<Complex>& values = m_Values[m_Block];
    double a = 0.0, b = 0.0;
    const size_t comma = t.find(',');
    const bool magnitude = m_Magnitude[m_Block];
    const std::string_view first = magnitude ? t : Trim(t.substr(0, comma));
    const std::string_view second = magnitude ? std::string_view() : Trim(t.substr(comma + 1));
    const bool ok = magnitude ? ParseNumber(t, a)
                              : comma != std::string_view::npos && ParseNumber(first, a) && ParseNumber(second, b);
    if (!ok) {
      Fail(column, std::string(magnitude ? "expected one number" : "expected real,imaginary") +
                       " or END, found \"" + std::string(t) + "\"");
      return;
    }
    // nan and inf read as numbers but are no data.
    if (!std::isfinite(a) || !std::isfinite(b)) {
      const std::string_view bad = std::isfinite(a) ? second : first;
      Fail(column + static_cast<size_t>(bad.data() - t.data()),
           "expected a finite number, found \"" + std::string(bad) + "\"");
      return;
    }
    if (values.size() == static_cast<size_t>(m_Count)) {
      Fail(column, "expected END after the " + std::to_string(m_Count) + " values of the block, found more");
      return;
    }
    values.emplace_back(a, b);
  }

  void EndBlock(size_t column) {
    if (m_Values[m_Block].size() != static_cast<size_t>(m_Count)) {
      Fail(column, "expected " + std::to_string(m_Count) + " values in the block before END, found " +
                       std::to_string(m_Values[m_Block].size()));
      return;
    }
    ++m_Block;
    m_Stage = kBetween;
  }

  std::unique_ptr<CNetworkModalSolution> Build() {
    if (m_Stage == kBlock || m_Stage == kVarList || m_Stage == kSegList) {
      Fail(0, std::string("the file ends inside a ") +
                  (m_Stage == kBlock ? "BEGIN block" : m_Stage == kVarList ? "VAR_LIST" : "SEG_LIST"));
      return nullptr;
    }
    if (!m_SeenCitifile) {
      Fail(0, "expected CITIFILE and a version in the first line, found an empty file");
      return nullptr;
    }
    if (!m_Kind) {
      Fail(0, "expected DATA arrays of S, Y or Z, found none");
      return nullptr;
    }
    if (m_Block != m_Arrays.size()) {
      Fail(0, "expected a BEGIN block for each of the " + std::to_string(m_Arrays.size()) + " DATA arrays, found " +
                  std::to_string(m_Block));
      return nullptr;
    }
    // The port count is the largest index; every element must be there once.
    int n = 0;
    for (const ArrayName& a : m_Arrays)
      if (a.role == ArrayName::kMatrix) n = std::max({n, a.i + 1, a.j + 1});
    // Every element needs an array of its own, so a port count beyond what
    // the arrays can fill is refused before n x n of anything is allocated.
    std::set<std::uint64_t> present;
    for (const ArrayName& a : m_Arrays)
      if (a.role == ArrayName::kMatrix) present.insert(static_cast<std::uint64_t>(a.i) * n + a.j);
    if (static_cast<std::uint64_t>(n) * static_cast<std::uint64_t>(n) > present.size()) {
      std::uint64_t k = 0;
      while (present.count(k)) ++k;  // at most present.size() steps
      Fail(0, AString::Format("expected DATA %c[%llu,%llu]: every element of the %d-port matrix", *m_Kind,
                              static_cast<unsigned long long>(k / n + 1), static_cast<unsigned long long>(k % n + 1),
                              n));
      return nullptr;
    }
    // Indices in 64 bits: n * n passes an int's range above 46340 ports.
    const size_t nn = static_cast<size_t>(n) * static_cast<size_t>(n);
    std::vector<int> element(nn, -1), impedance(static_cast<size_t>(n), -1), gamma(static_cast<size_t>(n), -1);
    for (size_t k = 0; k < m_Arrays.size(); ++k) {
      const ArrayName& a = m_Arrays[k];
      if (a.i >= n) {  // a port vector beyond the matrix
        m_Line = m_ArrayLines[k];
        Fail(0, "the array of port " + std::to_string(a.i + 1) + " is beyond the " + std::to_string(n) +
                    " ports of the matrix data");
        return nullptr;
      }
      int& slot = a.role == ArrayName::kMatrix ? element[static_cast<size_t>(a.i) * static_cast<size_t>(n) +
                                                         static_cast<size_t>(a.j)]
                  : a.role == ArrayName::kImpedance ? impedance[static_cast<size_t>(a.i)]
                                                     : gamma[static_cast<size_t>(a.i)];
      if (slot >= 0) {
        m_Line = m_ArrayLines[k];
        Fail(0, "found a second DATA array for the same element");
        return nullptr;
      }
      slot = static_cast<int>(k);
    }
    for (size_t k = 0; k < nn; ++k) {
      if (element[k] < 0) {
        Fail(0, AString::Format("expected DATA %c[%zu,%zu]: every element of the %d-port matrix", *m_Kind,
                                k / static_cast<size_t>(n) + 1, k % static_cast<size_t>(n) + 1, n));
        return nullptr;
      }
    }
    std::vector<double> frequencies;
    if (!ListFrequencies(frequencies)) return nullptr;
    const bool haveImpedance = impedance[0] >= 0, haveGamma = gamma[0] >= 0;
    for (int k = 0; k < n; ++k) {
      if ((impedance[static_cast<size_t>(k)] >= 0) != haveImpedance || (gamma[static_cast<size_t>(k)] >= 0) != haveGamma) {
        Fail(0, "expected Z0[k] and GAMMA[k] arrays for every port or for none");
        return nullptr;
      }
    }

    auto solution = std::make_unique<CNetworkModalSolution>(std::filesystem::path(m_Name).stem().string());
    solution->SetSolutionType(CNetworkDataSolution::DiscreteSweep);
    for (int k = 0; k < n; ++k) {
      const std::string name = "Port" + std::to_string(k + 1);
      CMatrixEntry entry(name, 1, k);
      entry.SetModalEntryName(name);
      solution->AddMatrixEntry(entry);
    }
    const auto array = [&](int index, size_t f) { return m_Values[static_cast<size_t>(index)][f]; };
    for (size_t f = 0; f < frequencies.size(); ++f) {
      auto point = std::make_unique<CNetworkModalData>(solution.get(), frequencies[f], CNetworkData::ExactPoint);
      auto m = std::make_unique<CMatrix>(n, n);
      for (size_t k = 0; k < nn; ++k) m->data()[k] = array(element[k], f);
      auto z = std::make_unique<CVector>(n, Complex(kDefaultReferenceOhms));
      if (haveImpedance)
        for (int k = 0; k < n; ++k) (*z)[k] = array(impedance[static_cast<size_t>(k)], f);
      point->SetPortImpedance(std::move(z));
      if (haveGamma) {
        auto g = std::make_unique<CVector>(n);
        for (int k = 0; k < n; ++k) (*g)[k] = array(gamma[static_cast<size_t>(k)], f);
        point->SetGamma(std::move(g));
      }
      if (*m_Kind == 'S') point->SetSMatrix(std::move(m));
      if (*m_Kind == 'Y') point->SetYMatrix(std::move(m));
      if (*m_Kind == 'Z') point->SetZMatrix(std::move(m));
      solution->AddNetworkData(std::move(point));
    }
    return solution;
  }

  Stage m_Stage = kHeader;
  bool m_SeenCitifile = false;
  int m_Count = -1;
  std::optional<char> m_Kind;
  std::vector<Piece> m_Pieces;
  std::vector<double> m_Frequencies;
  std::uint64_t m_Listed = 0;  // frequencies listed so far, segments included
  double m_LastListed = 0.0;
  std::vector<ArrayName> m_Arrays;
  std::vector<bool> m_Magnitude;
  std::vector<long> m_ArrayLines;
  std::vector<std::vector<Complex>> m_Values;
  size_t m_Block = 0;
};

}  // namespace

std::unique_ptr<CNetworkModalSolution> ReadCitifile(const std::filesystem::path& path, std::string* error) {
  CLineReader lines(path);
  if (!lines.error().empty()) {
    if (error) *error = path.string() + ": cannot open the file: " + lines.error();
    return nullptr;
  }
  return CCitifileParser(path.string()).Run(lines, error);
}

std::unique_ptr<CNetworkModalSolution> ReadCitifileText(std::string_view text, const std::string& name,
                                                        std::string* error) {
  CLineReader lines(text);
  return CCitifileParser(name).Run(lines, error);
}

}  // namespace nd
