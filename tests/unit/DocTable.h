// Tables of docs/accuracy.md: printed by the test that measures them and compared with the text.
// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <cstddef>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <regex>
#include <string>
#include <vector>

namespace doctable {

using Row = std::vector<std::string>;

/// A number with this many decimals.
inline std::string fixed(double number, int decimals) {
  char text[64];
  std::snprintf(text, sizeof text, "%.*f", decimals, number);
  return text;
}

/// Printed in Markdown, so that it can be pasted into the document.
inline void print(const Row& header, const std::vector<Row>& rows) {
  const auto line = [](const Row& row) {
    for (const std::string& cell : row) std::cout << "| " << cell << ' ';
    std::cout << "|\n";
  };
  line(header);
  for (std::size_t i = 0; i < header.size(); ++i) std::cout << "|---";
  std::cout << "|\n";
  for (const Row& row : rows) line(row);
}

/// The table behind the line `<!-- name -->` of docs/accuracy.md, header first.
inline std::vector<Row> documented(const std::string& name) {
  std::ifstream file(DRAVO_SOURCE_DIR "/docs/accuracy.md");
  std::vector<Row> rows;
  bool found = false;
  for (std::string line; std::getline(file, line);) {
    if (line == "<!-- " + name + " -->") found = true;
    if (!found || (line.empty() && rows.empty())) continue;
    if (line.starts_with("|---")) continue;
    if (!line.starts_with("|")) {
      if (rows.empty()) continue;
      break;
    }
    Row row;
    for (std::size_t at = 1; at < line.size();) {
      const std::size_t end = line.find(" |", at);
      row.push_back(line.substr(at + 1, end - at - 1));
      at = end + 2;
    }
    rows.push_back(row);
  }
  return rows;
}

/// Same text between the numbers, and numbers that differ by no more than one unit in the last
/// decimal of the first: rounding falls either way on other machines.
inline bool agree(const std::string& documented, const std::string& measured) {
  static const std::regex kNumber(R"([-+]?\d+(\.\d+)?)");
  if (std::regex_replace(documented, kNumber, "#") != std::regex_replace(measured, kNumber, "#")) {
    return false;
  }
  const std::sregex_iterator end;
  std::sregex_iterator a(documented.begin(), documented.end(), kNumber);
  std::sregex_iterator b(measured.begin(), measured.end(), kNumber);
  for (; a != end; ++a, ++b) {
    const auto decimals = static_cast<int>((*a)[1].length()) - 1;
    const double unit = decimals > 0 ? std::pow(10.0, -decimals) : 1.0;
    if (std::abs(std::stod(a->str()) - std::stod(b->str())) > 1.01 * unit) return false;
  }
  return true;
}

/// Prints the measured table and compares it with the documented one, cell by cell.
inline void expectDocumented(const std::string& name, const Row& header,
                             const std::vector<Row>& rows) {
  print(header, rows);
  std::vector<Row> expected = documented(name);
  ASSERT_EQ(expected.size(), rows.size() + 1) << "docs/accuracy.md, " << name;
  EXPECT_EQ(expected[0], header) << name;
  for (std::size_t i = 0; i < rows.size(); ++i) {
    const Row& row = expected[i + 1];
    ASSERT_EQ(row.size(), rows[i].size()) << name << ", row " << i;
    for (std::size_t k = 0; k < row.size(); ++k) {
      EXPECT_TRUE(agree(row[k], rows[i][k])) << name << ", row " << i << ": documented '" << row[k]
                                             << "', found '" << rows[i][k] << '\'';
    }
  }
}

}  // namespace doctable
