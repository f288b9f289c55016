// Frequency lists as users type them: "1GHz", "2.5e9", "10 MHz",
// "START:STOP:COUNT" (COUNT points, evenly spaced, both ends included) or a
// comma-separated list of frequencies.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace sparam {

// A frequency in Hz from text with an optional unit (Hz, kHz, MHz, GHz,
// THz; any letter case). Nothing on failure.
std::optional<double> ParseFrequency(std::string_view text);

// The list in Hz, or nothing with the reason in `error`.
std::optional<std::vector<double>> ParseFrequencyList(std::string_view text, std::string* error);

}  // namespace sparam
