// Readers of tables: plain ones, NMRPipe series tables, Sparky peak lists.
// SPDX-License-Identifier: GPL-3.0-or-later
#include "tables.h"

#include "Text.h"  // equalIgnoringCase

#include <algorithm>
#include <cctype>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>

namespace {

using Words = std::vector<std::string>;

struct Line {
  int number = 0;
  std::string text;
};

constexpr const char* kBlanks = " \t\r\v\f";

std::string trimmed(const std::string& text) {
  const std::size_t first = text.find_first_not_of(kBlanks);
  if (first == std::string::npos) return "";
  return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

Words wordsOf(const std::string& text) {
  std::istringstream stream(text);
  return {std::istream_iterator<std::string>(stream), {}};
}

/// The lines that are not empty, without blanks at their ends.
std::vector<Line> readLines(const std::string& path) {
  std::ifstream file(path);
  std::vector<Line> lines;
  std::string text;
  for (int number = 1; std::getline(file, text); ++number) {
    if (number == 1 && text.rfind("\xEF\xBB\xBF", 0) == 0) text.erase(0, 3);  // mark of UTF-8
    text = trimmed(text);
    if (!text.empty()) lines.push_back({number, text});
  }
  // A directory opens but does not read.
  if (!file.eof()) die("cannot read '" + path + "'");
  return lines;
}

/// Reads one quantity of a line; says why not in `reason`.
class Fields {
 public:
  Fields(const Constants& constants, const Constants& columns)
      : constants_(constants), columns_(columns) {}

  [[nodiscard]] bool has(Quantity quantity) const { return find(quantity) != nullptr; }

  /// A column counts before a constant.
  [[nodiscard]] const std::string* find(Quantity quantity) const {
    for (const Constants* fields : {&columns_, &constants_}) {
      const auto found = fields->find(quantity);
      if (found != fields->end()) return &found->second;
    }
    return nullptr;
  }

  /// Leaves `value` alone when the quantity is not there.
  bool number(Quantity quantity, double& value, std::string& reason) const {
    const std::string* text = find(quantity);
    if (text == nullptr || parseNumber(*text, value)) return true;
    reason = nameOf(quantity) + " '" + *text + "' is no number";
    return false;
  }

 private:
  const Constants& constants_;
  const Constants& columns_;
};

bool readTemperature(const Fields& fields, double& kelvin, std::string& reason) {
  constexpr double kKelvinAtZeroCelsius = 273.15;
  const std::string* text = fields.find(Quantity::kTemperature);
  if (text == nullptr) return true;
  const bool celsius = text->size() > 1 && text->back() == 'C';
  if (!parseNumber(celsius ? text->substr(0, text->size() - 1) : *text, kelvin)) {
    reason = "temperature '" + *text + "' is no number";
    return false;
  }
  // Rounded, or -10.1C and 263.05 would be two temperatures.
  if (celsius) kelvin = std::round((kelvin + kKelvinAtZeroCelsius) * 1e6) / 1e6;
  if (kelvin >= 200.0) return true;
  reason = "temperature " + *text + " is not one in K; write 25C for degrees";
  return false;
}

bool readConditions(const Fields& fields, Conditions& at, std::string& reason) {
  double code = 0.0;
  if (!readTemperature(fields, at.temp_kelvin, reason)) return false;
  if (!fields.number(Quantity::kField, at.field_mhz, reason) ||
      !fields.number(Quantity::kConcentration, at.concentration, reason) ||
      !fields.number(Quantity::kTime, at.time, reason) ||
      !fields.number(Quantity::kCode, code, reason)) {
    return false;
  }
  if (!(at.field_mhz > 0.0)) reason = "the field is not known: --field MHZ or field=MHZ";
  if (at.concentration < 0.0) reason = "the concentration is negative";
  if (at.time < 0.0) reason = "the constant time is negative";
  if (!(code >= 0.0 && code <= 9.0) || code != std::trunc(code)) {
    reason = "the code is not one of 0 to 9";
  }
  at.code = static_cast<int>(reason.empty() ? code : 0.0);
  return reason.empty();
}

bool readFrequency(const Fields& fields, Reading& reading, std::string& reason) {
  const Quantity kinds[] = {Quantity::kCycles, Quantity::kFrequency, Quantity::kPower};
  const auto given = std::count_if(std::begin(kinds), std::end(kinds),
                                   [&](Quantity kind) { return fields.has(kind); });
  if (given != 1) {
    reason = given == 0 ? "no ncyc, nu or power" : "more than one of ncyc, nu and power";
    return false;
  }
  reading.spin_lock = fields.has(Quantity::kPower);
  for (const Quantity kind : kinds) {
    if (!fields.has(kind)) continue;
    if (!reading.spin_lock && isReferenceWord(*fields.find(kind))) continue;
    if (!fields.number(kind, reading.frequency, reason)) return false;
  }
  if (reading.frequency < 0.0) reason = "negative ncyc, nu or power";
  reading.reference = !reading.spin_lock && reading.frequency == 0.0;
  if (fields.has(Quantity::kCycles) && !reading.reference) {
    if (!(reading.at.time > 0.0)) {
      reason = "ncyc needs the constant time: --time S or time=S";
    } else {
      reading.frequency /= reading.at.time;
    }
  }
  return fields.number(Quantity::kOffset, reading.offset, reason) && reason.empty();
}

bool readValue(const Fields& fields, Reading& reading, std::string& reason) {
  reading.is_rate = fields.has(Quantity::kRate);
  if (reading.is_rate == fields.has(Quantity::kIntensity)) {
    reason = reading.is_rate ? "both an intensity and a rate" : "no intensity and no rate";
  } else if (!reading.is_rate && reading.spin_lock) {
    reason = "a spin lock needs rates, not intensities";
  } else if (!reading.is_rate && !(reading.at.time > 0.0)) {
    reason = "an intensity needs the constant time: --time S or time=S";
  } else if (reading.is_rate && reading.reference) {
    reason = "a rate without pulses";
  }
  if (!reason.empty()) return false;
  const Quantity kind = reading.is_rate ? Quantity::kRate : Quantity::kIntensity;
  if (!fields.number(kind, reading.value, reason) ||
      !fields.number(Quantity::kError, reading.error, reason) ||
      !fields.number(Quantity::kNoise, reading.noise, reason)) {
    return false;
  }
  if (reading.error <= 0.0) reason = "the error is not above 0";
  if (reading.noise <= 0.0) reason = "the noise is not above 0";
  return reason.empty();
}

/// dravo takes a title of one word, and names a file by it.
std::string nameFault(const std::string& name) {
  if (name.empty()) return "no name";
  if (name.find_first_of(" \t,/") != std::string::npos) {
    return "the name '" + name + "' has a blank, a comma or a slash";
  }
  if (std::any_of(name.begin(), name.end(), [](unsigned char c) { return std::iscntrl(c) != 0; })) {
    return "the name has an unprintable character";
  }
  return "";
}

/// Makes readings of the lines of one file.
class Assembler {
 public:
  Assembler(const Source& source, Rejects& rejects) : source_(source), rejects_(rejects) {}

  void reject(int line, const std::string& reason) {
    rejects_.add(Place{source_.path, line}, reason);
  }

  void add(int line, const Constants& columns) {
    const Fields fields(source_.constants, columns);
    Reading reading;
    reading.place = {source_.path, line};
    reading.name = fields.has(Quantity::kName)
                       ? *fields.find(Quantity::kName)
                       : std::filesystem::path(source_.path).stem().string();
    reading.temperature_known = fields.has(Quantity::kTemperature);
    std::string reason = nameFault(reading.name);
    if (reason.empty() && readConditions(fields, reading.at, reason) &&
        readFrequency(fields, reading, reason) && readValue(fields, reading, reason)) {
      readings_.push_back(reading);
    } else {
      reject(line, reason);
    }
  }

  [[nodiscard]] const Source& source() const { return source_; }
  [[nodiscard]] std::vector<Reading> take() { return std::move(readings_); }

 private:
  const Source& source_;
  Rejects& rejects_;
  std::vector<Reading> readings_;
};

// Plain tables.

/// The columns that a line of names tells; empty if any word is no name of a column.
std::vector<Quantity> headerColumns(const Words& words) {
  std::vector<Quantity> columns;
  for (const std::string& word : words) {
    Quantity quantity{};
    if (!findQuantity(word, quantity)) return {};
    columns.push_back(quantity);
  }
  return columns;
}

char delimiterOf(const std::string& text) {
  if (text.find(',') != std::string::npos) return ',';
  return text.find('\t') != std::string::npos ? '\t' : ' ';
}

Words splitRow(const std::string& text, char delimiter) {
  if (delimiter == ' ') return wordsOf(text);
  Words words = splitAt(text, delimiter);
  for (std::string& word : words) {
    word = trimmed(word);
    const bool quoted = word.size() > 1 && word.front() == '"' && word.back() == '"';
    if (quoted) word = word.substr(1, word.size() - 2);
  }
  return words;
}

/// The lines without comments; a comment that names columns is a header.
std::vector<Line> withoutComments(const std::vector<Line>& lines, std::vector<Quantity>& columns) {
  std::vector<Line> kept;
  for (const Line& line : lines) {
    const std::size_t mark = line.text.find('#');
    if (mark == 0 && columns.empty() && kept.empty()) {
      const std::string comment = trimmed(line.text.substr(1));
      const std::vector<Quantity> named = headerColumns(splitRow(comment, delimiterOf(comment)));
      if (named.size() > 1) columns = named;
    }
    const std::string text = trimmed(line.text.substr(0, mark));
    if (!text.empty()) kept.push_back({line.number, text});
  }
  return kept;
}

void addRow(int line, const Words& words, const std::vector<Quantity>& columns, Assembler& into) {
  const bool short_of_error =
      words.size() + 1 == columns.size() && columns.back() == Quantity::kError;
  if (words.size() != columns.size() && !short_of_error) {
    into.reject(line, std::to_string(words.size()) + " fields for " +
                          std::to_string(columns.size()) + " columns");
    return;
  }
  Constants fields;
  for (std::size_t i = 0; i < words.size(); ++i) {
    const bool no_error = columns[i] == Quantity::kError && words[i].empty();
    if (columns[i] != Quantity::kIgnored && !no_error) fields[columns[i]] = words[i];
  }
  // The cycles or the frequency of the whole file.
  if (into.source().values.size() == 1) fields[into.source().series] = into.source().values[0];
  into.add(line, fields);
}

void readPlain(const std::vector<Line>& all, Assembler& into) {
  const Source& source = into.source();
  if (source.values.size() > 1) die(source.path + ": a plain table has no planes for the list");
  std::vector<Quantity> columns;
  std::vector<Line> lines = withoutComments(all, columns);
  if (lines.empty()) return;
  const char delimiter = delimiterOf(lines.front().text);
  const std::vector<Quantity> named = headerColumns(splitRow(lines.front().text, delimiter));
  if (!named.empty()) {
    columns = named;
    lines.erase(lines.begin());
  }
  if (!source.columns.empty()) columns = source.columns;
  const std::size_t width = lines.empty() ? 0 : splitRow(lines.front().text, delimiter).size();
  if (columns.empty() && (width == 2 || width == 3) && source.values.empty()) {
    columns = {Quantity::kCycles, Quantity::kIntensity, Quantity::kError};
  }
  if (columns.empty()) {
    die(source.path + ": what are its columns? Give them by a header or by --columns");
  }
  const auto series = std::find(columns.begin(), columns.end(), source.series);
  if (!source.values.empty() && series != columns.end()) {
    die(source.path + ": " + nameOf(source.series) + " is a column, and given for the whole file");
  }
  for (const Line& line : lines) {
    addRow(line.number, splitRow(line.text, delimiter), columns, into);
  }
}

// NMRPipe series tables.

struct SeriesTable {
  Words vars;
  std::string null_value;
  std::string null_string = "*";

  [[nodiscard]] std::size_t column(const std::string& name) const {
    return static_cast<std::size_t>(std::find(vars.begin(), vars.end(), name) - vars.begin());
  }
  [[nodiscard]] bool has(const std::string& name) const { return column(name) < vars.size(); }
};

/// Takes a line of the head; false for a line of values.
bool readHeadLine(const Line& line, const std::string& path, SeriesTable& table) {
  Words words = wordsOf(line.text);
  const std::string key = words.front();
  words.erase(words.begin());
  if (key == "VARS") {
    table.vars = words;
  } else if (key == "FORMAT" && words.size() != table.vars.size()) {
    die(path + ':' + std::to_string(line.number) + ": " + std::to_string(words.size()) +
        " formats for " + std::to_string(table.vars.size()) + " variables");
  } else if (key == "NULLVALUE" && !words.empty()) {
    table.null_value = words.front();
  } else if (key == "NULLSTRING" && !words.empty()) {
    table.null_string = words.front();
  } else if (key != "FORMAT" && key != "REMARK" && key != "DATA" && key.front() != '#') {
    return false;
  }
  return true;
}

/// The assignment, or peak and its number where there is none.
std::string peakName(const SeriesTable& table, const Words& row) {
  std::string name = table.has("ASS") ? row[table.column("ASS")] : table.null_string;
  if (name != table.null_string && !equalIgnoringCase(name, "none")) return name;
  return table.has("INDEX") ? "peak" + row[table.column("INDEX")] : "";
}

/// Names of the columns of the planes, in their order.
Words planeNames(const SeriesTable& table) {
  Words names;
  for (std::string name = "Z_A0"; table.has(name); name = "Z_A" + std::to_string(names.size())) {
    names.push_back(name);
  }
  return names;
}

/// Column of the amplitude that the ratios of the planes belong to; past the end if there is none.
std::size_t amplitudeColumn(const SeriesTable& table, const std::string& wanted) {
  const std::string first = wanted == "volume" ? "VOL" : "HEIGHT";
  const std::string second = wanted == "volume" ? "HEIGHT" : "VOL";
  return table.has(first) ? table.column(first) : table.column(second);
}

void addPeak(const Line& line, const SeriesTable& table, const Words& planes, Assembler& into) {
  const Words row = wordsOf(line.text);
  if (row.size() != table.vars.size()) {
    into.reject(line.number, std::to_string(row.size()) + " fields for " +
                                 std::to_string(table.vars.size()) + " variables");
    return;
  }
  double amplitude = 1.0;
  const std::size_t at = amplitudeColumn(table, into.source().amplitude);
  if (at < row.size() && !parseNumber(row[at], amplitude)) {
    into.reject(line.number, table.vars[at] + " '" + row[at] + "' is no number");
    return;
  }
  double null_value = kNotGiven;  // the table may write -666 as -666.0000
  if (!parseNumber(table.null_value, null_value)) null_value = kNotGiven;
  Constants fields;
  fields[Quantity::kName] = peakName(table, row);
  for (std::size_t i = 0; i < planes.size(); ++i) {
    const std::string& text = row[table.column(planes[i])];
    double ratio = 0.0;
    if (text == table.null_value || !parseNumber(text, ratio) || ratio == null_value) {
      into.reject(line.number, planes[i] + " '" + text + "' is no value");
      continue;
    }
    constexpr int kAllDigits = 17;
    fields[Quantity::kIntensity] = shortText(ratio * amplitude, kAllDigits);
    fields[into.source().series] = into.source().values[i];
    into.add(line.number, fields);
  }
}

void readSeriesTable(const std::vector<Line>& lines, Assembler& into) {
  const Source& source = into.source();
  SeriesTable table;
  Words planes;
  for (const Line& line : lines) {
    if (readHeadLine(line, source.path, table)) continue;
    if (planes.empty()) {
      planes = planeNames(table);
      if (planes.empty()) die(source.path + ": no VARS line with Z_A0 before the values");
      if (planes.size() != source.values.size()) {
        die(source.path + ": " + std::to_string(planes.size()) + " planes, but " +
            std::to_string(source.values.size()) + " values of ncyc or nu");
      }
    }
    addPeak(line, table, planes, into);
  }
}

// Sparky peak lists.

/// The titles of the columns; "Data Height" and "lw1 (hz)" are one each.
Words listTitles(const std::string& text) {
  Words titles;
  for (const std::string& word : wordsOf(text)) {
    const bool continues =
        !titles.empty() && (word.front() == '(' || (titles.back() == "Data" && word == "Height"));
    if (continues) {
      titles.back() += ' ' + word;
    } else {
      titles.push_back(word);
    }
  }
  return titles;
}

std::size_t listColumn(const Words& titles, const Words& wanted) {
  for (std::size_t i = 0; i < titles.size(); ++i) {
    for (const std::string& name : wanted) {
      if (equalIgnoringCase(titles[i], name)) return i;
    }
  }
  return titles.size();
}

bool isListHeader(const Line& line) { return wordsOf(line.text).front() == "Assignment"; }

void readPeakList(const std::vector<Line>& lines, Assembler& into) {
  const Source& source = into.source();
  if (source.values.size() != 1) {
    die(source.path + ": a Sparky list is one plane, but there are " +
        std::to_string(source.values.size()) + " values of ncyc or nu");
  }
  if (lines.empty() || !isListHeader(lines.front())) {
    die(source.path + ": no header with Assignment");
  }
  const Words titles = listTitles(lines.front().text);
  const Words wanted =
      source.amplitude == "volume" ? Words{"Volume"} : Words{"Data Height", "Height"};
  const std::size_t column = listColumn(titles, wanted);
  if (column == titles.size()) die(source.path + ": no column '" + wanted.front() + "'");
  for (std::size_t i = 1; i < lines.size(); ++i) {
    const Words row = wordsOf(lines[i].text);
    if (row.size() <= column) {
      into.reject(lines[i].number, "no field in column '" + titles[column] + "'");
    } else if (row[0].find('?') != std::string::npos) {
      into.reject(lines[i].number, "the peak " + row[0] + " is not assigned");
    } else {
      into.add(lines[i].number, {{Quantity::kName, row[0]},
                                 {Quantity::kIntensity, row[column]},
                                 {source.series, source.values[0]}});
    }
  }
}

/// The format by its marks: VARS begins a line of an NMRPipe table, Assignment a Sparky list.
std::string formatOf(const std::vector<Line>& lines) {
  const bool vars = std::any_of(lines.begin(), lines.end(), [](const Line& line) {
    return wordsOf(line.text).front() == "VARS";
  });
  if (vars) return "nmrpipe";
  const bool sparky =
      !lines.empty() && isListHeader(lines.front()) && delimiterOf(lines.front().text) != ',' &&
      listColumn(wordsOf(lines.front().text), {"w1"}) > 0 &&
      listColumn(wordsOf(lines.front().text), {"w1"}) < wordsOf(lines.front().text).size();
  return sparky ? "sparky" : "table";
}

}  // namespace

std::vector<Reading> readTable(const Source& source, Rejects& rejects) {
  const std::vector<Line> lines = readLines(source.path);
  const int rejected = rejects.count();
  const std::string format = source.format == "auto" ? formatOf(lines) : source.format;
  Assembler assembler(source, rejects);
  if (format == "nmrpipe") {
    readSeriesTable(lines, assembler);
  } else if (format == "sparky") {
    readPeakList(lines, assembler);
  } else {
    readPlain(lines, assembler);
  }
  std::vector<Reading> readings = assembler.take();
  if (readings.empty() && rejects.count() == rejected) {
    rejects.add(source.path, "there is no point in it");
  }
  return readings;
}

std::map<std::string, double> readShifts(const std::string& path, Rejects& rejects) {
  std::map<std::string, double> shifts;
  std::vector<Quantity> no_header;
  for (const Line& line : withoutComments(readLines(path), no_header)) {
    const Words words = splitRow(line.text, delimiterOf(line.text));
    double ppm = 0.0;
    if (words.size() != 2 || !parseNumber(words[1], ppm) || ppm == 0.0) {
      rejects.add(Place{path, line.number}, "not a residue and a shift difference other than 0");
    } else if (!shifts.insert({words[0], ppm}).second) {
      rejects.add(Place{path, line.number}, words[0] + " has a shift difference already");
    }
  }
  return shifts;
}
