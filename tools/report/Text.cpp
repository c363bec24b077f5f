// SPDX-License-Identifier: GPL-3.0-or-later
#include "Text.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace {

char lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

/// Length of the valid UTF-8 sequence at the head of the text, 0 where there is none.
std::size_t sequenceLength(std::string_view text) {
  const auto first = static_cast<unsigned char>(text[0]);
  if (first < 0x80) return first >= 0x20 && first != 0x7f ? 1 : 0;
  const std::size_t length = first >= 0xf0 ? 4 : first >= 0xe0 ? 3 : 2;
  if (first < 0xc2 || first > 0xf4 || text.size() < length) return 0;
  unsigned code = first & (0xffU >> (length + 1));
  for (std::size_t i = 1; i < length; ++i) {
    const auto byte = static_cast<unsigned char>(text[i]);
    if ((byte & 0xc0U) != 0x80U) return 0;
    code = (code << 6U) | (byte & 0x3fU);
  }
  const unsigned least = length == 4 ? 0x10000 : length == 3 ? 0x800 : 0x80;
  const bool surrogate = code >= 0xd800 && code <= 0xdfff;
  // C1 controls and the two non-characters at the end of the plane are no XML characters.
  const bool forbidden = code < 0xa0 || code == 0xfffe || code == 0xffff;
  return code < least || code > 0x10ffff || surrogate || forbidden ? 0 : length;
}

}  // namespace

bool sameWord(std::string_view a, std::string_view b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [](char p, char q) { return lower(p) == lower(q); });
}

std::vector<std::string> words(std::string_view line) {
  constexpr std::string_view kSeparators = "\t, ";
  std::vector<std::string> result;
  std::size_t start = line.find_first_not_of(kSeparators);
  while (start != std::string_view::npos) {
    const std::size_t end = std::min(line.find_first_of(kSeparators, start), line.size());
    result.emplace_back(line.substr(start, end - start));
    start = line.find_first_not_of(kSeparators, end);
  }
  return result;
}

std::vector<std::string> tabFields(std::string_view line) {
  std::vector<std::string> result;
  while (true) {
    const std::size_t tab = line.find('\t');
    result.emplace_back(line.substr(0, tab));
    if (tab == std::string_view::npos) return result;
    line.remove_prefix(tab + 1);
  }
}

double toNumber(const std::string& text) { return std::strtod(text.c_str(), nullptr); }

bool isNumber(const std::string& text) {
  char* end = nullptr;
  std::strtod(text.c_str(), &end);
  return !text.empty() && end == text.c_str() + text.size();
}

std::string general(double value, int digits) {
  char text[64];
  std::snprintf(text, sizeof text, "%.*g", digits, value);
  return text;
}

std::string fixedPoint(double value, int decimals) {
  char text[400];  // 309 digits before the point at most
  std::snprintf(text, sizeof text, "%.*f", decimals, value);
  return text;
}

int significantDigits(const std::string& text) {
  int digits = 0;
  for (const char c : text.substr(0, text.find_first_of("eE"))) {
    const bool digit = c >= '0' && c <= '9';
    if (digit && (digits > 0 || c != '0')) ++digits;
  }
  return digits;
}

bool sameRounded(double a, int digits_a, double b, int digits_b) {
  const double half_a = 0.5 * std::pow(10.0, 1 - digits_a);  // of the value, at most
  const double half_b = 0.5 * std::pow(10.0, 1 - digits_b);
  if (std::isnan(a) || std::isnan(b)) return std::isnan(a) && std::isnan(b);
  return a == b ||
         std::fabs(a - b) <= 1.01 * (half_a + half_b) * std::max(std::fabs(a), std::fabs(b));
}

std::string roundedTo(double value, double error) {
  if (!std::isfinite(value) || !(error > 0.0) || !std::isfinite(error)) return general(value, 6);
  const int decimals = std::max(0, 1 - static_cast<int>(std::floor(std::log10(error))));
  if (decimals > 6 || std::fabs(value) >= 1e7) {
    const double size = value == 0.0 ? error : std::fabs(value);
    const int digits = static_cast<int>(std::floor(std::log10(size))) + 1 + decimals;
    return general(value, std::clamp(digits, 2, 12));
  }
  return fixedPoint(value, decimals);
}

std::string roundedError(double error) {
  if (!std::isfinite(error) || !(error > 0.0)) return general(error, 2);
  return roundedTo(error, error);
}

std::string probabilityText(double p) {
  if (!std::isfinite(p)) return "";
  if (p < 1e-6) return "< 1e-06";
  char text[32];
  std::snprintf(text, sizeof text, "%#.2g", p);  // 0.90, not 0.9
  return text;
}

std::string cleanText(std::string_view text) {
  std::string result;
  while (!text.empty()) {
    const std::size_t length = sequenceLength(text);
    if (length == 0) {
      result += "\xef\xbf\xbd";
      text.remove_prefix(1);
    } else {
      result += text.substr(0, length);
      text.remove_prefix(length);
    }
  }
  return result;
}

std::string escaped(std::string_view text) {
  std::string result;
  for (const char c : cleanText(text)) {
    switch (c) {
      case '<': result += "&lt;"; break;
      case '>': result += "&gt;"; break;
      case '&': result += "&amp;"; break;
      case '"': result += "&quot;"; break;
      case '\'': result += "&#39;"; break;
      default: result += c;
    }
  }
  return result;
}

std::string prettyUnit(const std::string& unit) {
  std::string pretty = unit;
  for (std::size_t i = pretty.find("^2"); i != std::string::npos; i = pretty.find("^2", i)) {
    pretty.replace(i, 2, "\xc2\xb2");
  }
  return pretty;
}

std::string baseName(const std::string& path) {
  const std::size_t slash = path.find_last_of('/');
  return slash == std::string::npos ? path : path.substr(slash + 1);
}
