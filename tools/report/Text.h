// Words, numbers and escapes: what the readers and the writers share.
// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <string>
#include <string_view>
#include <vector>

/// Equal but for the case of ASCII letters.
bool sameWord(std::string_view a, std::string_view b);

/// Words between tabs, commas and blanks, as the input file has them.
std::vector<std::string> words(std::string_view line);

/// Parts between tabs, empty ones included.
std::vector<std::string> tabFields(std::string_view line);

/// strtod of as much as there is; 0 where there is none.
double toNumber(const std::string& text);

/// True when all of the text is one number; "nan" and "inf" are.
bool isNumber(const std::string& text);

/// With as many significant digits as given, as %g.
std::string general(double value, int digits);

/// With as many decimals as given.
std::string fixedPoint(double value, int decimals);

/// Digits of a printed number, leading zeros not counted: 3 for "0.0125" and "3.20e+02".
int significantDigits(const std::string& text);

/// True when the first can be the second, printed with other digits: each rounded to its own number
/// of significant digits.
bool sameRounded(double a, int digits_a, double b, int digits_b);

/// Value rounded where its error has its second digit; six digits where there is no such error.
std::string roundedTo(double value, double error);

/// Two significant digits, no exponent where that is short.
std::string roundedError(double error);

/// Probability in words: "0.043", "< 1e-06".
std::string probabilityText(double p);

/// Valid UTF-8 without control characters: anything else becomes U+FFFD.
std::string cleanText(std::string_view text);

/// cleanText with <, >, & and quotes escaped, for HTML, SVG and attributes.
std::string escaped(std::string_view text);

/// "rad^2/s^2" with raised digits.
std::string prettyUnit(const std::string& unit);

/// Last part of a path.
std::string baseName(const std::string& path);
