// What the user is told: errors that end the run, and lines and points that were left out.
// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <string>

/// Ends the run with status 1 after "dravo-convert: MESSAGE" on standard error.
[[noreturn]] void die(const std::string& message);

/// Ends the run when not all of standard output could be written.
void finishOutput();

/// A line of a file.
struct Place {
  std::string file;
  int line = 0;
};

/// Names on standard error what is left out, and counts it.
class Rejects {
 public:
  /// "FILE:LINE: REASON".
  void add(const Place& place, const std::string& reason);
  /// "NAME: REASON", for what is not one line.
  void add(const std::string& name, const std::string& reason);
  [[nodiscard]] int count() const { return count_; }

 private:
  int count_ = 0;
};

/// A finite number that fills the whole text; false, and `value` as it was, otherwise.
[[nodiscard]] bool parseNumber(const std::string& text, double& value);

/// The shortest text of at most `digits` significant digits.
[[nodiscard]] std::string shortText(double value, int digits = 10);
