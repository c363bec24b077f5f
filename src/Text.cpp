// How words and numbers of the input are read, and how numbers are handed to an output stream.
// SPDX-License-Identifier: GPL-3.0-or-later
#include "Text.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <system_error>

namespace {

char lowerAscii(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

}  // namespace

bool equalIgnoringCase(std::string_view a, std::string_view b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [](char x, char y) { return lowerAscii(x) == lowerAscii(y); });
}

double toDouble(const std::string& token) {
  // The plain decimal numbers that nearly all fields hold are read faster, to the same bits.
  double value = 0.0;
  const char* const end = token.data() + token.size();
  const auto [stop, error] = std::from_chars(token.data(), end, value);
  if (error == std::errc() && stop == end && std::isfinite(value)) return value;
  return std::strtod(token.c_str(), nullptr);
}

int toInt(const std::string& token) {
  const long value = std::strtol(token.c_str(), nullptr, 0);
  return static_cast<int>(
      std::clamp<long>(value, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()));
}

double shown(double value) {
  return std::isnan(value) ? std::numeric_limits<double>::quiet_NaN() : value;
}
