// CFxemDifferentialPair: two terminals of a port combined into a differential
// and a common mode, and its stored form (a "Pair" block of the setup).
#pragma once

#include <memory>

#include "core/AString.h"
#include "core/Block.h"

class CFxemDifferentialPair {
 public:
  CFxemDifferentialPair() = default;
  CFxemDifferentialPair(const CFxemDifferentialPair&) = default;
  CFxemDifferentialPair& operator=(const CFxemDifferentialPair&) = default;
  virtual ~CFxemDifferentialPair() = default;
  virtual std::unique_ptr<CFxemDifferentialPair> Clone() const;

  // A matched pair is renormalised to its matched differential and common
  // impedances, so it alone makes the network data need renormalisation.
  bool DoesRenormalize() const { return m_UseMatched; }

  // Appends the pair's items; true when the block shows no error afterwards.
  bool Write(io::CBlock& block) const;
  // Fills the pair from its block: 0, or -1 when the block shows an error.
  int Read(const io::CBlock& block);

  const AString& GetCommPortName() const { return m_CommPortName; }
  void SetCommPortName(const AString& name) { m_CommPortName = name; }
  const AString& GetDiffPortName() const { return m_DiffPortName; }
  void SetDiffPortName(const AString& name) { m_DiffPortName = name; }
  const AString& GetDiffName() const { return m_DiffName; }
  void SetDiffName(const AString& name) { m_DiffName = name; }
  int GetPosTerminalIndex() const { return m_PosTerminalIndex; }
  void SetPosTerminalIndex(int index) { m_PosTerminalIndex = index; }
  const AString& GetCommonName() const { return m_CommonName; }
  void SetCommonName(const AString& name) { m_CommonName = name; }
  int GetNegTerminalIndex() const { return m_NegTerminalIndex; }
  void SetNegTerminalIndex(int index) { m_NegTerminalIndex = index; }
  bool GetUseMatched() const { return m_UseMatched; }
  void SetUseMatched(bool useMatched) { m_UseMatched = useMatched; }

 private:
  AString m_CommPortName;  // port that carries the common mode
  AString m_DiffPortName;  // port that carries the differential mode
  AString m_DiffName;
  int m_PosTerminalIndex = -1;
  AString m_CommonName;
  int m_NegTerminalIndex = -1;
  bool m_UseMatched = true;
};
