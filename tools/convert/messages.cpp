// What the user is told: errors that end the run, and lines and points that were left out.
// SPDX-License-Identifier: GPL-3.0-or-later
#include "messages.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <iostream>

void die(const std::string& message) {
  std::cerr << "dravo-convert: " << message << '\n';
  std::exit(EXIT_FAILURE);
}

void finishOutput() {
  std::cout.flush();
  if (!std::cout) die("cannot write to standard output");
}

void Rejects::add(const Place& place, const std::string& reason) {
  add(place.file + ':' + std::to_string(place.line), reason);
}

void Rejects::add(const std::string& name, const std::string& reason) {
  // Bytes of a file that is no table at all must not steer the terminal.
  std::string text = name + ": " + reason;
  std::replace_if(
      text.begin(), text.end(), [](unsigned char c) { return std::iscntrl(c) != 0; }, '?');
  std::cerr << text << '\n';
  ++count_;
}

bool parseNumber(const std::string& text, double& value) {
  // strtod would also take leading blanks, hexadecimal numbers, inf and nan.
  if (text.empty() || text.find_first_not_of("+-.0123456789eE") != std::string::npos) return false;
  char* end = nullptr;
  const double number = std::strtod(text.c_str(), &end);
  if (*end != '\0' || !std::isfinite(number)) return false;
  value = number;
  return true;
}

std::string shortText(double value, int digits) {
  std::array<char, 40> text{};
  std::snprintf(text.data(), text.size(), "%.*g", digits, value);
  return text.data();
}
