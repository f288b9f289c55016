// Building a post-processing setup from the command line's choices, keeping
// the choices the command line does not mention.
#include "product/SetupCommand.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdlib>
#include <map>
#include <ostream>
#include <set>
#include <sstream>

#include "product/Project.h"
#include "product/Sweep.h"
#include "sparamlib/data/NetworkDataTypes.h"

namespace sparam {
namespace {

using Complex = AComplex<double>;

std::string Trim(const std::string& s) {
  const size_t a = s.find_first_not_of(" \t");
  if (a == std::string::npos) return {};
  return s.substr(a, s.find_last_not_of(" \t") - a + 1);
}

bool ParseReal(const std::string& text, double& value) {
  const std::string t = Trim(text);
  if (t.empty()) return false;
  char* end = nullptr;
  value = std::strtod(t.c_str(), &end);
  return end == t.c_str() + t.size() && std::isfinite(value);
}

std::string Number(double v) { return AString::Format("%.10g", v); }

std::string Ohms(const Complex& z) {
  if (z.im == 0.0) return Number(z.re) + " ohms";
  return Number(z.re) + (z.im < 0 ? "-" : "+") + Number(std::fabs(z.im)) + "j ohms";
}

// "50" (every port) or "1=75,2=50+10j" (the ports named, 1-based): the
// 0-based index of each assignment (-1 for every port) and its text.
bool ParseAssignments(const std::string& text, int ports, const char* option,
                      std::vector<std::pair<int, std::string>>& out, std::string* why) {
  if (text.find('=') == std::string::npos) {
    out.emplace_back(-1, text);
    return true;
  }
  std::stringstream list(text);
  std::set<int> seen;
  for (std::string item; std::getline(list, item, ',');) {
    const size_t eq = item.find('=');
    double port = 0.0;
    if (eq == std::string::npos || !ParseReal(item.substr(0, eq), port) || port != std::floor(port) ||
        port < 1 || port > ports) {
      *why = std::string(option) + ": expected PORT=VALUE with a port from 1 to " +
             std::to_string(ports) + ", found \"" + Trim(item) + "\"";
      return false;
    }
    if (!seen.insert(static_cast<int>(port)).second) {
      *why = std::string(option) + ": port " + Number(port) + " is given twice";
      return false;
    }
    out.emplace_back(static_cast<int>(port) - 1, item.substr(eq + 1));
  }
  return true;
}

struct Renormalisation {
  CNetworkPostprocSetup::CVector impedances;
  std::vector<bool> flags;  // empty: every entry
};

bool ParseRenormalisation(const std::string& text, int n, Renormalisation& r, std::string* why) {
  std::vector<std::pair<int, std::string>> items;
  if (!ParseAssignments(text, n, "--renorm", items, why)) return false;
  r.impedances = CNetworkPostprocSetup::CVector(n, Complex(nd::kDefaultReferenceOhms, 0.0));
  if (items.front().first >= 0) r.flags.assign(static_cast<size_t>(n), false);
  for (const auto& [index, value] : items) {
    const auto z = ParseImpedance(value);
    if (!z || !(z->re > 0.0)) {
      *why = "--renorm: expected an impedance with a positive real part (75, 50+10j), found \"" +
             Trim(value) + "\"";
      return false;
    }
    for (int k = 0; k < n; ++k) {
      if (index >= 0 && k != index) continue;
      r.impedances[k] = *z;
      if (index >= 0) r.flags[static_cast<size_t>(k)] = true;
    }
  }
  return true;
}

bool ParseDistances(const std::string& text, int n, CNetworkPostprocSetup::RVector& d, std::string* why) {
  std::vector<std::pair<int, std::string>> items;
  if (!ParseAssignments(text, n, "--deembed", items, why)) return false;
  d = CNetworkPostprocSetup::RVector(n, 0.0);
  for (const auto& [index, value] : items) {
    const auto length = ParseLength(value);
    if (!length) {
      *why = "--deembed: expected a length such as 2mm, 0.1in or 15mil, found \"" + Trim(value) + "\"";
      return false;
    }
    for (int k = 0; k < n; ++k)
      if (index < 0 || k == index) d[k] = *length;
  }
  return true;
}

// "NAME=P,N": the pair's differential mode takes port P's place, its common
// mode port N's.
bool ParsePairs(const std::vector<std::string>& texts, const CNetworkDataSolution& solution,
                bool matched, CNetworkPostprocSetup& setup, std::string* why) {
  const int n = solution.GetNumMatrixEntries();
  std::set<int> used;
  for (const std::string& text : texts) {
    const size_t eq = text.find('='), comma = text.find(',', eq);
    double p = 0.0, q = 0.0;
    const std::string name = Trim(text.substr(0, eq));
    if (eq == std::string::npos || comma == std::string::npos || name.empty() ||
        !ParseReal(text.substr(eq + 1, comma - eq - 1), p) || !ParseReal(text.substr(comma + 1), q) ||
        p != std::floor(p) || q != std::floor(q) || p < 1 || q < 1 || p > n || q > n || p == q) {
      *why = "--pair: expected NAME=P,N with two different ports from 1 to " + std::to_string(n) +
             ", found \"" + text + "\"";
      return false;
    }
    const int pos = static_cast<int>(p) - 1, neg = static_cast<int>(q) - 1;
    if (!used.insert(pos).second || !used.insert(neg).second) {
      *why = "--pair: a port belongs to one pair at most (\"" + text + "\")";
      return false;
    }
    auto pair = std::make_unique<CFxemDifferentialPair>();
    pair->SetDiffName(name + "_Diff");
    pair->SetCommonName(name + "_Comm");
    pair->SetPosTerminalIndex(pos);
    pair->SetNegTerminalIndex(neg);
    pair->SetDiffPortName(solution.GetMatrixEntry(pos)->GetPortName());
    pair->SetCommPortName(solution.GetMatrixEntry(neg)->GetPortName());
    pair->SetUseMatched(matched);
    setup.AddDiffPair(std::move(pair));
  }
  return true;
}

bool AnyChoice(const SetupOptions& o) {
  return o.clear || !o.renorm.empty() || !o.deembed.empty() || o.lossless || !o.pairs.empty() ||
         o.matched || o.dc || o.multiplier.has_value() || !o.impedance.empty() || o.terminal || o.modal;
}

using Kind = CNetworkPostprocSetup::ImpedanceKind;

bool ParseImpedanceKinds(const std::string& text, int n, std::vector<Kind>& kinds, std::string* why) {
  std::vector<std::pair<int, std::string>> items;
  if (!ParseAssignments(text, n, "--impedance", items, why)) return false;
  kinds.assign(static_cast<size_t>(n), Kind::Zpi);
  for (const auto& [index, value] : items) {
    const std::string v = Trim(value);
    const Kind kind = v == "Zpi" ? Kind::Zpi : v == "Zpv" ? Kind::Zpv : v == "Zvi" ? Kind::Zvi : Kind::NotSet;
    if (kind == Kind::NotSet) {
      *why = "--impedance: expected Zpi, Zpv or Zvi, found \"" + v + "\"";
      return false;
    }
    for (int k = 0; k < n; ++k)
      if (index < 0 || k == index) kinds[static_cast<size_t>(k)] = kind;
  }
  return true;
}

// The new setup: the old one's choices, with what the options say laid over
// them (`--clear` starts from nothing).
std::unique_ptr<CNetworkPostprocSetup> BuildSetup(const CNetworkPostprocSetup* old,
                                                  const CNetworkDataSolution& solution,
                                                  const SetupOptions& o, std::string* why) {
  const int n = solution.GetNumMatrixEntries();
  const CNetworkPostprocSetup* keep = o.clear ? nullptr : old;
  auto setup = std::make_unique<CNetworkPostprocSetup>();
  setup->SetNumPorts(n);
  setup->SetMatrixSize(n);
  setup->SetModes(std::vector<int>(static_cast<size_t>(n), 1));

  std::optional<Renormalisation> renorm;
  if (!o.renorm.empty()) {
    renorm.emplace();
    if (!ParseRenormalisation(o.renorm, n, *renorm, why)) return nullptr;
  } else if (keep && keep->GetRenormImpeds() && keep->GetRenormImpeds()->dim() == n) {
    renorm = Renormalisation{*keep->GetRenormImpeds(), keep->GetPortRenormFlags()};
  }
  std::optional<CNetworkPostprocSetup::RVector> dists;
  if (!o.deembed.empty()) {
    dists.emplace();
    if (!ParseDistances(o.deembed, n, *dists, why)) return nullptr;
  } else if (keep && keep->GetDeembedDists() && keep->GetDeembedDists()->dim() == n) {
    dists = *keep->GetDeembedDists();
  }
  const bool isModal = o.terminal ? false : o.modal ? true : keep ? keep->IsModal() : true;
  setup->SetPostprocessing(isModal, renorm ? &renorm->impedances : nullptr, dists ? &*dists : nullptr);
  if (renorm) setup->SetPortRenormFlags(renorm->flags);
  setup->SetLosslessDeembed(o.deembed.empty() && keep ? keep->GetLosslessDeembed() || o.lossless
                                                      : o.lossless);
  if (!o.pairs.empty()) {
    if (!ParsePairs(o.pairs, solution, o.matched, *setup, why)) return nullptr;
  } else if (keep) {
    for (int i = 0; i < keep->GetNumDiffPairs(); ++i) {
      auto pair = keep->GetDiffPair(i)->Clone();
      if (o.matched) pair->SetUseMatched(true);
      setup->AddDiffPair(std::move(pair));
    }
  }
  setup->SetExtrapToDC(o.dc || (keep && keep->GetExtrapToDC()));
  if (o.multiplier && !(*o.multiplier > 0.0 && std::isfinite(*o.multiplier))) {
    *why = "--multiplier: expected a positive number, found " + Number(*o.multiplier);
    return nullptr;
  }
  setup->SetImpedMultiplier(o.multiplier.value_or(keep ? keep->GetImpedMultiplier() : 1.0));
  if (!o.impedance.empty()) {
    std::vector<Kind> kinds;
    if (!ParseImpedanceKinds(o.impedance, n, kinds, why)) return nullptr;
    setup->SetUseZpiOnly(std::all_of(kinds.begin(), kinds.end(), [](Kind k) { return k == Kind::Zpi; }));
    setup->SetCharImpedanceKinds(std::move(kinds));
  } else if (keep) {
    setup->SetUseZpiOnly(keep->GetUseZpiOnly());
    setup->SetCharImpedanceKinds(keep->GetCharImpedanceKinds());
  }
  if (keep) {
    setup->SetPortCalibration(keep->GetCalibratePorts(), keep->GetPortLengths(), keep->GetPortWidths());
  }
  return setup;
}

}  // namespace

std::optional<Complex> ParseImpedance(const std::string& text) {
  std::string t;
  for (char c : text)
    if (!std::isspace(static_cast<unsigned char>(c))) t.push_back(c);
  if (t.empty()) return std::nullopt;
  if (t.back() != 'j' && t.back() != 'i') {
    double re = 0.0;
    return ParseReal(t, re) ? std::optional<Complex>(Complex(re, 0.0)) : std::nullopt;
  }
  t.pop_back();
  // The sign that starts the imaginary part: the last + or - that is not
  // the sign of an exponent or of the whole number.
  size_t split = std::string::npos;
  for (size_t k = t.size(); k-- > 1;) {
    if ((t[k] == '+' || t[k] == '-') && t[k - 1] != 'e' && t[k - 1] != 'E') {
      split = k;
      break;
    }
  }
  double re = 0.0, im = 0.0;
  const std::string imText = split == std::string::npos ? t : t.substr(split);
  if (split != std::string::npos && !ParseReal(t.substr(0, split), re)) return std::nullopt;
  if (imText == "+" || imText == "-" || imText.empty()) {
    im = imText == "-" ? -1.0 : 1.0;
  } else if (!ParseReal(imText, im)) {
    return std::nullopt;
  }
  return Complex(re, im);
}

std::optional<double> ParseLength(const std::string& text) {
  static const std::map<std::string, double> units = {
      {"", 1.0},     {"m", 1.0},     {"cm", 1e-2},     {"mm", 1e-3},
      {"um", 1e-6},  {"nm", 1e-9},   {"mil", 25.4e-6}, {"in", 25.4e-3}};
  const std::string t = Trim(text);
  size_t end = t.size();
  while (end > 0 && std::isalpha(static_cast<unsigned char>(t[end - 1]))) --end;
  std::string unit = t.substr(end);
  for (char& c : unit) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  double value = 0.0;
  const auto it = units.find(unit);
  if (it == units.end() || !ParseReal(t.substr(0, end), value)) return std::nullopt;
  return value * it->second;
}

std::vector<std::string> DescribeSetup(const CNetworkPostprocSetup& setup) {
  std::vector<std::string> lines;
  const int n = setup.GetMatrixSize();
  if (setup.DoesRenormalize() && setup.GetRenormImpeds()) {
    const auto& z = *setup.GetRenormImpeds();
    const auto& flags = setup.GetPortRenormFlags();
    std::string text;
    bool all = flags.empty(), same = true;
    for (int k = 0; k < n && k < z.dim(); ++k) {
      if (!all && !flags[static_cast<size_t>(k)]) continue;
      same = same && z[k] == z[0];
      text += (text.empty() ? "" : ", ") + std::string("port ") + std::to_string(k + 1) + " to " + Ohms(z[k]);
    }
    lines.push_back(all && same && z.dim() > 0 ? "renormalise every port to " + Ohms(z[0])
                                               : "renormalise " + text);
  }
  if (setup.DoesDeembed() && setup.GetDeembedDists()) {
    std::string text;
    const auto& d = *setup.GetDeembedDists();
    for (int k = 0; k < d.dim(); ++k)
      if (d[k] != 0.0) text += (text.empty() ? "" : ", ") + std::string("port ") + std::to_string(k + 1) + " by " + Number(d[k] * 1e3) + " mm";
    lines.push_back("de-embed " + (text.empty() ? std::string("no port") : text) +
                    (setup.GetLosslessDeembed() ? " (phase only)" : " (with loss)"));
  }
  for (int i = 0; i < setup.GetNumDiffPairs(); ++i) {
    const CFxemDifferentialPair& p = *setup.GetDiffPair(i);
    lines.push_back("pair " + std::string(p.GetDiffName()) + "/" + std::string(p.GetCommonName()) + " from ports " +
                    std::to_string(p.GetPosTerminalIndex() + 1) + " (+) and " +
                    std::to_string(p.GetNegTerminalIndex() + 1) + " (-)" +
                    (p.GetUseMatched() ? ", matched references" : ""));
  }
  if (!setup.GetUseZpiOnly()) {
    std::string text;
    const auto& kinds = setup.GetCharImpedanceKinds();
    for (size_t k = 0; k < kinds.size(); ++k)
      if (kinds[k] == Kind::Zpv || kinds[k] == Kind::Zvi)
        text += (text.empty() ? "" : ", ") + std::string("port ") + std::to_string(k + 1) + " " +
                (kinds[k] == Kind::Zpv ? "Zpv" : "Zvi");
    if (!text.empty()) lines.push_back("characteristic impedance " + text);
  }
  if (!setup.IsModal()) lines.push_back("export the terminal view (renormalisation impedances are the terminals' references)");
  if (setup.GetExtrapToDC()) lines.push_back("extrapolate to DC");
  if (setup.GetImpedMultiplier() != 1.0)
    lines.push_back("impedance multiplier " + Number(setup.GetImpedMultiplier()));
  return lines;
}

int RunSetup(const SetupOptions& o, std::ostream& out, std::ostream& err) {
  auto fail = [&](const std::string& why) {
    err << "sparam setup: " << why << "\n";
    return 1;
  };
  if (!IsProjectFile(o.project)) return fail(o.project + ": expected a project file (.ndp)");
  if (o.terminal && o.modal) return fail("--terminal and --modal exclude each other");
  // A sweep writing the project would overwrite the setup, or the setup its
  // points: one writer at a time.
  std::string why;
  std::unique_ptr<SweepLock> lock;
  if (AnyChoice(o)) {
    lock = SweepLock::Acquire(o.project, &why);
    if (!lock) return fail(why);
  }
  AString error;
  std::unique_ptr<CProject> project = CProject::Load(o.project, &error);
  if (!project) return fail(error);
  FxSolutionVariation* variation = project->GetVariation(o.variation - 1);
  if (!variation) return fail(o.project + " has no variation " + std::to_string(o.variation));
  const CNetworkDataSolution* solution = variation->GetNetworkDataSolution();
  if (!solution) return fail("variation " + std::to_string(o.variation) + " has no network data");
  if (AnyChoice(o)) {
    auto setup = BuildSetup(variation->GetPostprocSetup(), *solution, o, &why);
    if (!setup) return fail(why);
    variation->SetPostprocSetup(std::move(setup));
    if (!project->Save(o.project, &error)) return fail(error);
  }
  const CNetworkPostprocSetup* setup = variation->GetPostprocSetup();
  const auto lines = setup ? DescribeSetup(*setup) : std::vector<std::string>{};
  if (lines.empty()) out << "variation " << o.variation << ": no post-processing\n";
  for (const auto& line : lines) out << "variation " << o.variation << ": " << line << "\n";
  return 0;
}

}  // namespace sparam
