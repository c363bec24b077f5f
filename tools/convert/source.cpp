// Where values come from: FILE[:KEY=VALUE]..., with defaults from the command line.
// SPDX-License-Identifier: GPL-3.0-or-later
#include "source.h"

#include "Text.h"  // equalIgnoringCase
#include "messages.h"

#include <glob.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

namespace {

struct QuantityRow {
  Quantity quantity;
  const char* name;
};

// The first name of each quantity is the one of messages and of the manual.
constexpr QuantityRow kQuantities[] = {
    {Quantity::kName, "name"},
    {Quantity::kName, "residue"},
    {Quantity::kName, "peak"},
    {Quantity::kName, "assignment"},
    {Quantity::kCycles, "ncyc"},
    {Quantity::kCycles, "cycles"},
    {Quantity::kFrequency, "nu"},
    {Quantity::kFrequency, "nu_cpmg"},
    {Quantity::kFrequency, "frequency"},
    {Quantity::kPower, "power"},
    {Quantity::kPower, "nu1"},
    {Quantity::kOffset, "offset"},
    {Quantity::kIntensity, "intensity"},
    {Quantity::kIntensity, "height"},
    {Quantity::kRate, "rate"},
    {Quantity::kRate, "r2eff"},
    {Quantity::kRate, "r1rho"},
    {Quantity::kError, "error"},
    {Quantity::kNoise, "noise"},
    {Quantity::kField, "field"},
    {Quantity::kTemperature, "temperature"},
    {Quantity::kConcentration, "concentration"},
    {Quantity::kTime, "time"},
    {Quantity::kCode, "code"},
    {Quantity::kIgnored, "-"},
};

using Keys = std::map<std::string, std::string>;

/// FILE and its keys: the last parts of the argument that look like KEY=VALUE.
std::string splitArgument(const std::string& argument, Keys& keys) {
  std::vector<std::string> parts = splitAt(argument, ':');
  std::string twice;
  while (parts.size() > 1 && parts.back().find('=') != std::string::npos) {
    const std::size_t equals = parts.back().find('=');
    const std::string key = parts.back().substr(0, equals);
    if (!keys.insert({key, parts.back().substr(equals + 1)}).second) twice = key;
    parts.pop_back();
  }
  if (!twice.empty()) die(argument + ": '" + twice + "' is given twice");
  std::string path = parts.front();
  for (std::size_t i = 1; i < parts.size(); ++i) path.append(":").append(parts[i]);
  return path;
}

std::vector<std::string> filesOfDirectory(const std::string& path) {
  std::vector<std::string> files;
  for (const auto& entry : std::filesystem::directory_iterator(path)) {
    const bool hidden = entry.path().filename().string().front() == '.';
    if (entry.is_regular_file() && !hidden) files.push_back(entry.path().string());
  }
  std::sort(files.begin(), files.end());
  return files;
}

std::vector<std::string> expand(const std::string& path) {
  std::error_code ignored;
  if (std::filesystem::is_directory(path, ignored)) {
    std::vector<std::string> files = filesOfDirectory(path);
    if (files.empty()) die("no file in '" + path + "'");
    return files;
  }
  if (std::filesystem::exists(path, ignored)) return {path};
  glob_t found{};
  std::vector<std::string> files;
  if (glob(path.c_str(), 0, nullptr, &found) == 0) {
    files.assign(found.gl_pathv, found.gl_pathv + found.gl_pathc);
  }
  globfree(&found);
  if (files.empty()) die("cannot open '" + path + "'");
  return files;
}

/// The values of a list, or of the words of a file when the text is @FILE.
std::vector<std::string> readList(const std::string& text) {
  if (text.empty() || text.front() != '@') return splitAt(text, ',');
  std::ifstream file(text.substr(1));
  if (!file) die("cannot open '" + text.substr(1) + "'");
  std::vector<std::string> words;
  for (std::string word; file >> word;) words.push_back(word);
  return words;
}

std::vector<Quantity> readColumns(const std::string& text) {
  std::vector<Quantity> columns;
  for (const std::string& name : splitAt(text, ',')) {
    Quantity quantity{};
    if (!findQuantity(name, quantity)) die("there is no column '" + name + "'");
    const bool again = std::find(columns.begin(), columns.end(), quantity) != columns.end();
    if (again && quantity != Quantity::kIgnored) die("column '" + name + "' is given twice");
    columns.push_back(quantity);
  }
  return columns;
}

void checkValue(Quantity quantity, const std::string& key, const std::string& text) {
  if (quantity == Quantity::kName) return;
  std::string number = text;
  if (quantity == Quantity::kTemperature && !text.empty() && text.back() == 'C') number.pop_back();
  double value = 0.0;
  if (!parseNumber(number, value)) die(key + "=" + text + ": this is no number");
}

/// A slip here would cost a whole plane.
std::vector<std::string> readSeries(const std::string& key, const std::string& text) {
  std::vector<std::string> values = readList(text);
  const auto bad = std::find_if(values.begin(), values.end(), [](const std::string& word) {
    double value = 0.0;
    return !isReferenceWord(word) && !parseNumber(word, value);
  });
  if (bad != values.end()) die(key + "=" + text + ": '" + *bad + "' is no number");
  return values;
}

void setKey(Source& source, const std::string& key, const std::string& text) {
  Quantity quantity{};
  if (key == "format") {
    source.format = text;
  } else if (key == "columns") {
    source.columns = readColumns(text);
  } else if (key == "amplitude") {
    source.amplitude = text;
  } else if (!findQuantity(key, quantity) || quantity == Quantity::kIgnored ||
             quantity == Quantity::kIntensity || quantity == Quantity::kRate) {
    die("there is no key '" + key + "' of a file");
  } else if (quantity == Quantity::kCycles || quantity == Quantity::kFrequency) {
    source.series = quantity;
    source.values = readSeries(key, text);
  } else {
    checkValue(quantity, key, text);
    source.constants[quantity] = text;
  }
}

void checkWords(const Source& source) {
  constexpr const char* kFormats[] = {"auto", "table", "nmrpipe", "sparky"};
  if (std::find(std::begin(kFormats), std::end(kFormats), source.format) == std::end(kFormats)) {
    die("there is no format '" + source.format + "': it is auto, table, nmrpipe or sparky");
  }
  if (source.amplitude != "height" && source.amplitude != "volume") {
    die("the amplitude is height or volume, not '" + source.amplitude + "'");
  }
}

}  // namespace

bool findQuantity(const std::string& name, Quantity& quantity) {
  for (const QuantityRow& row : kQuantities) {
    if (!equalIgnoringCase(row.name, name)) continue;
    quantity = row.quantity;
    return true;
  }
  return false;
}

bool isReferenceWord(const std::string& text) { return equalIgnoringCase(text, "ref"); }

std::string nameOf(Quantity quantity) {
  const auto* row = std::find_if(std::begin(kQuantities), std::end(kQuantities),
                                 [&](const QuantityRow& r) { return r.quantity == quantity; });
  return row->name;
}

std::vector<std::string> splitAt(const std::string& text, char delimiter) {
  std::vector<std::string> words(1);
  for (const char c : text) {
    if (c == delimiter) {
      words.emplace_back();
    } else {
      words.back() += c;
    }
  }
  return words;
}

std::vector<Source> readSource(const std::string& argument, const Keys& defaults) {
  Keys keys;
  const std::string path = splitArgument(argument, keys);
  if (keys.count("ncyc") + keys.count("nu") == 0) {
    for (const char* key : {"ncyc", "nu"}) {
      if (defaults.count(key) > 0) keys[key] = defaults.at(key);
    }
  }
  if (keys.count("ncyc") + keys.count("nu") > 1) die(argument + ": both ncyc and nu are given");
  for (const auto& [key, text] : defaults) {
    if (key != "ncyc" && key != "nu") keys.insert({key, text});
  }
  Source common;
  common.format = "auto";
  common.amplitude = "height";
  for (const auto& [key, text] : keys) setKey(common, key, text);
  checkWords(common);

  const std::vector<std::string> paths = expand(path);
  if (paths.size() > 1 && common.values.size() > 1 && common.values.size() != paths.size()) {
    die(argument + ": " + std::to_string(paths.size()) + " files, but " +
        std::to_string(common.values.size()) + " values of " + nameOf(common.series));
  }
  std::vector<Source> sources;
  for (std::size_t i = 0; i < paths.size(); ++i) {
    Source source = common;
    source.path = paths[i];
    if (paths.size() > 1 && common.values.size() > 1) source.values = {common.values[i]};
    sources.push_back(source);
  }
  return sources;
}
