// SPDX-License-Identifier: GPL-3.0-or-later
#include "Report.h"

#include "Files.h"
#include "Text.h"

#include <algorithm>
#include <cstdlib>

namespace {

bool beginsWith(const std::string& line, const std::string& head) {
  return line.compare(0, head.size(), head) == 0;
}

std::string trimmed(const std::string& text) {
  const std::size_t first = text.find_first_not_of(' ');
  return first == std::string::npos ? ""
                                    : text.substr(first, text.find_last_not_of(' ') + 1 - first);
}

/// The number of "(3.25)" or of "3.25".
std::optional<Number> numberIn(std::string text) {
  text = trimmed(text);
  if (text.size() > 2 && text.front() == '(' && text.back() == ')') {
    text = text.substr(1, text.size() - 2);
  }
  if (!isNumber(text)) return std::nullopt;
  return Number{text, toNumber(text)};
}

/// A line of a parameter or quantity: TAB name TAB value [(error)], with four blanks or a second
/// tab before the name of a quantity, and a tab before its error.
std::optional<Value> valueLine(const std::string& line) {
  std::vector<std::string> fields = tabFields(line);
  if (fields.size() < 3 || !fields[0].empty()) return std::nullopt;
  Value value;
  if (fields[1].empty()) {
    value.quantity = true;
    fields.erase(fields.begin());
  } else if (beginsWith(fields[1], "    ")) {
    value.quantity = true;
    fields[1].erase(0, 4);
  }
  if (fields.size() < 3) return std::nullopt;
  value.name = fields[1];
  std::string number = trimmed(fields[2]);
  std::string error = fields.size() > 3 ? fields[3] : "";
  if (const std::size_t bracket = number.find(" ("); bracket != std::string::npos) {
    error = number.substr(bracket + 1);
    number.resize(bracket);
  }
  const auto read = numberIn(number);
  if (!read) return std::nullopt;
  value.value = *read;
  if (!error.empty()) {
    value.error = numberIn(error);
    if (!value.error) return std::nullopt;
  }
  return value;
}

/// "1.5 (DoF = 10)" or "1.5 (0.2) (DoF = 10)".
bool readChi(const std::string& text, Number& chi, int& dof) {
  const std::size_t mark = text.find("(DoF = ");
  const auto number = numberIn(text.substr(0, text.find(' ')));
  if (mark == std::string::npos || !number) return false;
  chi = *number;
  dof = std::atoi(text.c_str() + mark + 7);
  return true;
}

class Reader {
 public:
  explicit Reader(const std::string& path) { report_.path = path; }

  Report read() {
    const std::string text = readFile(report_.path);
    if (!beginsWith(text, "# DRAVO VERSION ")) {
      fail(report_.path, "not a report: it does not begin with '# DRAVO VERSION'");
    }
    if (text.back() != '\n') fail(report_.path, "unfinished: its last line has no end");
    for (const std::string& line : linesOf(text)) {
      ++number_;
      readLine(line);
    }
    if (!finished_) fail(report_.path, "unfinished: it has no line 'Global X2/DoF'");
    return report_;
  }

 private:
  void readLine(const std::string& line) {
    const auto rest = [&line](const char* head) { return line.substr(std::string(head).size()); };
    constexpr const char* kDof = "# Total degrees of freedom (DoF) = ";
    if (line.empty() || beginsWith(line, "# DRAVO VERSION ")) return;
    if (beginsWith(line, "MODEL  ")) {
      report_.model = rest("MODEL  ");
    } else if (beginsWith(line, "EQN    ")) {
      report_.equation = rest("EQN    ");
    } else if (beginsWith(line, "METHOD ")) {
      report_.methods.push_back(rest("METHOD "));
    } else if (beginsWith(line, "# Total data points = ")) {
      report_.points = std::atoi(rest("# Total data points = ").c_str());
    } else if (beginsWith(line, kDof)) {
      report_.dof = std::atoi(rest(kDof).c_str());
    } else if (beginsWith(line, "# Fit duration")) {
      report_.duration = trimmed(rest("# Fit duration"));
    } else if (line[0] == '#') {
      readChiLine(line);
    } else if (beginsWith(line, "SET\t")) {
      report_.sets.push_back({rest("SET\t"), {}, {}, 0});
    } else if (beginsWith(line, "Global X2/DoF\t")) {
      // The line of a jackknife with shared parameters counts one degree too many: the header's is
      // kept.
      int dof = 0;
      finished_ = readChi(rest("Global X2/DoF\t"), report_.reduced_chi, dof);
      if (!finished_) failHere(line);
    } else {
      readSetLine(line);
    }
  }

  void readChiLine(const std::string& line) {
    const std::size_t mark = line.find("X2/DoF = ");
    if (mark == std::string::npos) return;  // a heading
    const auto number = numberIn(line.substr(mark + 9));
    if (!number) failHere(line);
    report_.chi_lines.push_back({trimmed(line.substr(2, mark - 2)), *number});
  }

  void readSetLine(const std::string& line) {
    if (report_.sets.empty()) failHere(line);
    ReportSet& set = report_.sets.back();
    if (beginsWith(line, "\tX2/DoF\t")) {
      if (!readChi(line.substr(8), set.reduced_chi, set.dof)) failHere(line);
      return;
    }
    const auto value = valueLine(line);
    if (!value) failHere(line);
    report_.digits = std::max(report_.digits, significantDigits(value->value.text));
    set.values.push_back(*value);
  }

  [[noreturn]] void failHere(const std::string& line) {
    fail(report_.path + ":" + std::to_string(number_),
         "does not belong to a report: '" + cleanText(line) + "'");
  }

  Report report_;
  int number_ = 0;
  bool finished_ = false;
};

/// The values of each set of a summary; none where it is unfinished or has other sets than the
/// report.
std::vector<std::vector<Value>> readSummary(const Report& report, const std::string& path) {
  std::vector<std::vector<Value>> sets;
  bool percentiles = false;
  bool finished = false;
  for (const std::string& line : linesOf(readFile(path))) {
    if (beginsWith(line, "SET\t")) {
      const std::size_t set = sets.size();
      if (set >= report.sets.size() || report.sets[set].title != line.substr(4)) return {};
      sets.emplace_back();
      percentiles = false;
    } else if (beginsWith(line, "\t\tPercentile\t")) {
      percentiles = true;
    } else if (beginsWith(line, "Global X2/DoF")) {
      finished = true;
    } else if (!percentiles && !beginsWith(line, "\tX2/DoF\t") && !sets.empty()) {
      if (const auto value = valueLine(line)) sets.back().push_back(*value);
    }
  }
  if (!finished) return {};
  return sets;
}

/// The values of each pass over all sets. A jackknife without shared parameters has passes of
/// single sets, which are not read.
class PassReader {
 public:
  PassReader(const Report& report, Analysis& analysis) : report_(report), analysis_(analysis) {}

  /// False when the file is of another fit or ends before its last pass does.
  bool read(const std::string& path) {
    analysis_.drawn.assign(report_.sets.size(), {});
    const std::vector<std::string> lines = linesOf(readFile(path));
    for (const std::string& line : lines) {
      if (!line.empty() && line[0] == '#' && !readLine(line)) return false;
    }
    // "Monte Carlo simulations (200)"
    const std::size_t mark = lines.empty() ? std::string::npos : lines[0].find('(');
    if (mark == std::string::npos) return false;
    if (std::atoi(lines[0].c_str() + mark + 1) != analysis_.passes) return false;
    for (std::size_t s = 0; s < report_.sets.size(); ++s) {
      const auto& columns = analysis_.drawn[s];
      const auto complete = [this](const std::vector<double>& column) {
        return column.size() == static_cast<std::size_t>(analysis_.passes);
      };
      if (columns.size() != parameters(s) ||
          !std::all_of(columns.begin(), columns.end(), complete)) {
        return false;
      }
    }
    return set_ == 0;
  }

 private:
  std::size_t parameters(std::size_t set) const {
    const auto& values = report_.sets[set].values;
    return static_cast<std::size_t>(
        std::count_if(values.begin(), values.end(), [](const Value& v) { return !v.quantity; }));
  }

  bool readLine(const std::string& line) {
    const std::vector<std::string> fields = tabFields(line);
    if (line.find(": GLOBAL X2/DoF\t") != std::string::npos) {
      ++analysis_.passes;
      const bool all = set_ == report_.sets.size();
      set_ = 0;
      return all;
    }
    if (fields.size() == 1) {
      value_ = 0;
      return ++set_ <= report_.sets.size();
    }
    if (fields.size() != 3 || fields[1] == "X2/DoF") return true;
    if (set_ == 0 || value_ >= parameters(set_ - 1)) return false;
    if (report_.sets[set_ - 1].values[value_].name != fields[1]) return false;
    auto& columns = analysis_.drawn[set_ - 1];
    if (value_ == columns.size()) columns.emplace_back();
    columns[value_++].push_back(toNumber(fields[2]));
    return isNumber(fields[2]);
  }

  const Report& report_;
  Analysis& analysis_;
  std::size_t set_ = 0;
  std::size_t value_ = 0;
};

/// An analysis belongs to a report when it has the same names and, in its final report, values.
bool belongs(const Report& report, const std::vector<std::vector<Value>>& sets, bool same_values) {
  constexpr int kFinalDigits = 6;
  if (sets.size() != report.sets.size()) return false;
  for (std::size_t s = 0; s < sets.size(); ++s) {
    const std::vector<Value>& values = report.sets[s].values;
    if (values.size() != sets[s].size()) return false;
    for (std::size_t i = 0; i < values.size(); ++i) {
      const double a = values[i].value.value;
      const double b = sets[s][i].value.value;
      if (values[i].name != sets[s][i].name) return false;
      if (same_values && !sameRounded(a, report.digits, b, kFinalDigits)) return false;
    }
  }
  return true;
}

}  // namespace

Report readReport(const std::string& path) { return Reader(path).read(); }

std::optional<Analysis> readAnalysis(const Report& report, const std::string& kind,
                                     std::string& note) {
  const std::string stem = report.path + "-" + kind;
  if (!fileExists(stem + ".sum") || !fileExists(stem + "-final.out")) {
    const bool begun =
        fileExists(stem) || fileExists(stem + ".sum") || fileExists(stem + "-final.out");
    if (begun) {
      note =
          baseName(stem) + " was not finished: its .sum or -final.out is missing; it is not used";
    }
    return std::nullopt;
  }
  Analysis analysis;
  analysis.means = readSummary(report, stem + ".sum");
  const Report last = readReport(stem + "-final.out");
  for (const ReportSet& set : last.sets) analysis.errors.push_back(set.values);
  if (last.model != report.model || !belongs(report, analysis.means, false) ||
      !belongs(report, analysis.errors, true)) {
    note = baseName(stem) + ".sum and -final.out are not of this fit; they are not used";
    return std::nullopt;
  }
  if (kind == "monte" && fileExists(stem) && !PassReader(report, analysis).read(stem)) {
    analysis.drawn.assign(report.sets.size(), {});
    analysis.passes = 0;
    note = baseName(stem) + " is of another fit or incomplete; it is not searched for correlations";
  }
  return analysis;
}
