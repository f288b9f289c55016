// Parsing frequencies and frequency lists.
#include "product/FrequencyList.h"

#include <cctype>
#include <charconv>
#include <cmath>

namespace sparam {
namespace {

std::string_view Trim(std::string_view s) {
  while (!s.empty() && std::isspace(static_cast<unsigned char>(s.front()))) s.remove_prefix(1);
  while (!s.empty() && std::isspace(static_cast<unsigned char>(s.back()))) s.remove_suffix(1);
  return s;
}

bool EqualsNoCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i)
    if (std::tolower(static_cast<unsigned char>(a[i])) != std::tolower(static_cast<unsigned char>(b[i])))
      return false;
  return true;
}

}  // namespace

std::optional<double> ParseFrequency(std::string_view text) {
  text = Trim(text);
  double value = 0.0;
  const auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (ec != std::errc() || end == text.data()) return std::nullopt;
  const std::string_view number(text.data(), static_cast<size_t>(end - text.data()));
  const std::string_view unit = Trim(std::string_view(end, static_cast<size_t>(text.data() + text.size() - end)));
  static const struct {
    const char* name;
    int exponent;
  } units[] = {{"", 0}, {"Hz", 0}, {"kHz", 3}, {"MHz", 6}, {"GHz", 9}, {"THz", 12}};
  for (const auto& u : units) {
    if (!EqualsNoCase(unit, u.name)) continue;
    // The unit moves the decimal exponent, so "8.2GHz" is the double
    // nearest to 8.2e9 (8.2 * 1e9 would round twice and miss it).
    const size_t e = number.find_first_of("eE");
    long exponent = u.exponent;
    if (e != std::string_view::npos) {
      long own = 0;
      const auto [p, ec2] = std::from_chars(number.data() + e + 1 + (number[e + 1] == '+'),
                                            number.data() + number.size(), own);
      if (ec2 != std::errc() || p != number.data() + number.size()) return std::nullopt;
      exponent += own;
    }
    const std::string scaled = std::string(number.substr(0, e)) + "e" + std::to_string(exponent);
    double hz = 0.0;
    const auto [p, ec3] = std::from_chars(scaled.data(), scaled.data() + scaled.size(), hz);
    if (ec3 != std::errc() || !std::isfinite(hz) || hz < 0.0)
      return std::nullopt;
    return hz;
  }
  return std::nullopt;
}

std::optional<std::vector<double>> ParseFrequencyList(std::string_view text, std::string* error) {
  auto fail = [error](std::string why) -> std::optional<std::vector<double>> {
    if (error) *error = std::move(why);
    return std::nullopt;
  };
  std::vector<double> list;
  if (text.find(':') != std::string_view::npos) {
    std::string_view parts[3];
    for (int k = 0; k < 3; ++k) {
      const size_t colon = text.find(':');
      if ((k < 2) == (colon == std::string_view::npos))
        return fail("expected START:STOP:COUNT, found \"" + std::string(text) + "\"");
      parts[k] = text.substr(0, colon);
      text = colon == std::string_view::npos ? std::string_view() : text.substr(colon + 1);
    }
    const auto start = ParseFrequency(parts[0]);
    const auto stop = ParseFrequency(parts[1]);
    int count = 0;
    const std::string_view c = Trim(parts[2]);
    const auto [end, ec] = std::from_chars(c.data(), c.data() + c.size(), count);
    if (!start || !stop) return fail("expected frequencies such as 1GHz in START:STOP:COUNT");
    if (ec != std::errc() || end != c.data() + c.size() || count < 1 || count > 10000000)
      return fail("expected a COUNT from 1 to 10000000, found \"" + std::string(c) + "\"");
    if (*stop < *start) return fail("expected STOP at or above START");
    for (int k = 0; k < count; ++k)
      list.push_back(count == 1 ? *start : *start + (*stop - *start) * k / (count - 1));
    return list;
  }
  while (!text.empty()) {
    const size_t comma = text.find(',');
    const std::string_view item = text.substr(0, comma);
    const auto f = ParseFrequency(item);
    if (!f) return fail("expected a frequency such as 2.5GHz, found \"" + std::string(Trim(item)) + "\"");
    list.push_back(*f);
    text = comma == std::string_view::npos ? std::string_view() : text.substr(comma + 1);
  }
  if (list.empty()) return fail("expected at least one frequency");
  return list;
}

}  // namespace sparam
