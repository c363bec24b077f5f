// How words and numbers of the input are read, and how numbers are handed to an output stream.
// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <string>
#include <string_view>

/// True when both texts have the same length and the same characters but for ASCII letter case.
[[nodiscard]] bool equalIgnoringCase(std::string_view a, std::string_view b);

/// Reads a floating-point field with strtod: unvalidated, 0 for text that is no number.
[[nodiscard]] double toDouble(const std::string& token);

/// Reads an integer field with strtol in automatic base (0x hexadecimal, leading 0 octal):
/// unvalidated, 0 for text that is no number, the nearest int for a number beyond its range.
[[nodiscard]] int toInt(const std::string& token);

/// The number as it is shown: a NaN loses its sign bit, since "-nan" says no more than "nan".
[[nodiscard]] double shown(double value);
