// dravo-convert: from tables of intensities to an input file of dravo.
// SPDX-License-Identifier: GPL-3.0-or-later
#include "Text.h"  // equalIgnoringCase
#include "errors.h"
#include "messages.h"
#include "models.h"
#include "options.h"
#include "rates.h"
#include "source.h"
#include "tables.h"
#include "writer.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>

namespace {

void listModels() {
  for (const Layout& layout : layouts()) std::cout << layout.model << '\n';
  finishOutput();
}

double numberOf(const std::string& text, const std::string& option) {
  double value = 0.0;
  if (!parseNumber(text, value)) die(option + ": '" + text + "' is no number");
  return value;
}

/// NAME and what follows '='.
std::pair<std::string, std::string> splitChoice(const std::string& text,
                                                const std::string& option) {
  const std::size_t equals = text.find('=');
  if (equals == std::string::npos) die(option + " " + text + ": NAME=... is wanted");
  return {text.substr(0, equals), text.substr(equals + 1)};
}

Search readSearch(const std::string& text) {
  const std::vector<std::string> words = splitAt(text, ',');
  if (words.size() < 2 || words.size() > 4) die("--range: '" + text + "' is not 2 to 4 numbers");
  Search search;
  search.low = numberOf(words[0], "--range");
  search.high = numberOf(words[1], "--range");
  const double points = words.size() > 2 ? numberOf(words[2], "--range") : 1.0;
  search.start = words.size() > 3 ? numberOf(words[3], "--range") : search.low;
  if (search.low > search.high) die("--range: " + words[0] + " is above " + words[1]);
  constexpr double kMostPoints = 1000.0;
  if (!(points >= 1.0 && points <= kMostPoints) || points != std::trunc(points)) {
    die("--range: " + words[2] + " is no number of grid points");
  }
  search.points = static_cast<int>(points);
  return search;
}

Choices choicesOf(const Options& options) {
  Choices choices;
  choices.layout = findLayout(options.model);
  if (choices.layout == nullptr) {
    die("the model '" + options.model + "' is not one that can be written; see --list-models");
  }
  choices.shared = options.shared;
  choices.methods = options.methods;
  for (const std::string& text : options.ranges) {
    const auto [name, range] = splitChoice(text, "--range");
    choices.searches[name] = readSearch(range);
  }
  for (const std::string& text : options.fixed) {
    const auto [name, value] = splitChoice(text, "--fix");
    choices.fixed[name] = numberOf(value, "--fix");
  }
  if (!options.reference_field.empty()) {
    choices.reference_field = numberOf(options.reference_field, "--reference-field");
    if (!(choices.reference_field > 0.0)) die("--reference-field: a field is above 0");
  }
  checkChoices(choices);
  return choices;
}

void readShiftsInto(Choices& choices, const Options& options, Rejects& rejects) {
  if (options.shifts.empty() != options.nucleus.empty()) die("--shifts and --nucleus go together");
  if (options.shifts.empty()) return;
  for (const Nucleus& nucleus : nuclei()) {
    if (equalIgnoringCase(nucleus.name, options.nucleus)) choices.nucleus = &nucleus;
  }
  if (choices.nucleus == nullptr) die("the nucleus is 1H, 13C or 15N, not " + options.nucleus);
  choices.shifts_ppm = readShifts(options.shifts, rejects);
}

RateRules rulesOf(const Options& options, const Layout& layout) {
  RateRules rules;
  rules.spin_lock = layout.spinLock();
  rules.on_resonance = layout.onResonance();
  rules.counted_pulses = layout.countedPulses();
  rules.needs_time = layout.has('T');
  rules.needs_temperature = layout.needsTemperature();
  if (!options.i0.empty()) rules.i0 = numberOf(options.i0, "--I0");
  rules.i0_error = options.i0_error;
  if (std::isfinite(rules.i0) && rules.i0_error) {
    die("--I0-error: an intensity that --I0 states has no error");
  }
  if (rules.i0 == 0.0) die("--I0: an intensity of 0 has no logarithm");
  if (options.floor.empty()) return rules;
  const bool percent = options.floor.back() == '%';
  const double floor = numberOf(
      percent ? options.floor.substr(0, options.floor.size() - 1) : options.floor, "--floor");
  if (floor < 0.0) die("--floor: an error is not negative");
  (percent ? rules.floor_fraction : rules.floor_rate) = percent ? floor / 100.0 : floor;
  return rules;
}

ErrorSource errorSourceOf(const std::string& word) {
  if (word == "auto") return ErrorSource::kAuto;
  if (word == "file") return ErrorSource::kFile;
  if (word == "noise") return ErrorSource::kNoise;
  if (word == "repeats") return ErrorSource::kRepeats;
  die("--errors is file, noise, repeats or auto, not '" + word + "'");
}

/// Keeps the readings of the residues that were asked for.
void selectResidues(std::vector<Reading>& readings, const Options& options) {
  for (const auto* names : {&options.residues, &options.without}) {
    for (const std::string& name : *names) {
      const bool known = std::any_of(readings.begin(), readings.end(),
                                     [&](const Reading& r) { return r.name == name; });
      if (!known) die("there is no residue '" + name + "' in the files");
    }
  }
  const auto named = [](const std::vector<std::string>& names, const std::string& name) {
    return std::find(names.begin(), names.end(), name) != names.end();
  };
  std::erase_if(readings, [&](const Reading& reading) {
    return (!options.residues.empty() && !named(options.residues, reading.name)) ||
           named(options.without, reading.name);
  });
}

std::vector<std::string> originOf(const std::vector<Source>& sources) {
  constexpr std::size_t kMostFiles = 10;  // that are listed one by one
  std::vector<std::string> lines = {"Written by dravo-convert from " +
                                    std::to_string(sources.size()) +
                                    (sources.size() == 1 ? " file:" : " files:")};
  if (sources.size() > kMostFiles) {
    lines.push_back("  " + sources.front().path + " to " + sources.back().path);
    return lines;
  }
  for (const Source& source : sources) lines.push_back("  " + source.path);
  return lines;
}

/// How rates and errors were made of what the files have.
std::vector<std::string> methodOf(const std::vector<Reading>& readings, const RateRules& rules,
                                  const Options& options) {
  const bool intensities =
      std::any_of(readings.begin(), readings.end(), [](const Reading& r) { return !r.is_rate; });
  std::vector<std::string> lines;
  if (intensities) {
    lines.push_back("R2eff = -ln(I/I0)/T; I0 is " + (std::isfinite(rules.i0)
                                                         ? shortText(rules.i0) + ", as stated."
                                                         : "the mean of the reference points."));
    lines.push_back(
        rules.i0_error
            ? "Errors: sqrt((error of I/I)^2 + (error of I0/I0)^2)/T."
            : "Errors: error of I/(T |I|); that of I0, which shifts a curve, is left out.");
  }
  if (std::any_of(readings.begin(), readings.end(),
                  [](const Reading& r) { return !r.temperature_known; })) {
    lines.push_back("No temperature was stated; " + shortText(Conditions().temp_kelvin) +
                    " K stands for it and is not read by the model.");
  }
  if (!options.floor.empty()) {
    lines.push_back("Errors are at least " + options.floor +
                    (rules.floor_fraction > 0.0 ? " of the rate." : " 1/s."));
  }
  return lines;
}

/// An output in the place of a table would destroy what was measured.
void checkOverwrite(const Options& options, const std::vector<Source>& sources) {
  std::vector<std::string> paths = {options.shifts};
  for (const Source& source : sources) paths.push_back(source.path);
  for (const std::string& path : paths) {
    std::error_code ignored;  // the output need not exist
    if (std::filesystem::equivalent(options.output, path, ignored)) {
      die("-o " + options.output + " is one of the tables");
    }
  }
}

/// A pattern and a name may both lead to a file; its points would count twice.
void checkRepeats(const std::vector<Source>& sources) {
  for (std::size_t i = 0; i < sources.size(); ++i) {
    for (std::size_t k = 0; k < i; ++k) {
      if (sources[k] == sources[i]) die(sources[i].path + " is given twice");
    }
  }
}

/// Names that are written otherwise in the table of shift differences would go unnoticed.
void checkShifts(const Choices& choices, const Options& options,
                 const std::vector<Reading>& readings) {
  if (options.shifts.empty()) return;
  const bool any = std::any_of(readings.begin(), readings.end(), [&](const Reading& reading) {
    return choices.shifts_ppm.count(reading.name) > 0;
  });
  if (!any) die(options.shifts + " has none of the residues");
}

/// Writes a file beside the output and puts it in its place when it is complete.
void writeFile(const std::string& path, const std::string& text) {
  std::error_code failed;
  const bool device =
      std::filesystem::exists(path, failed) && !std::filesystem::is_regular_file(path, failed);
  const std::string beside = device ? path : path + ".part" + std::to_string(getpid());
  std::ofstream file(beside, std::ios::binary);
  if (!file) die("cannot write '" + path + "': " + std::strerror(errno));
  file << text;
  file.close();
  if (file && !device) std::filesystem::rename(beside, path, failed);
  if (!file || (!device && failed)) {
    const std::string reason = failed ? failed.message() : std::strerror(errno);
    if (!device) std::filesystem::remove(beside, failed);
    die("cannot write '" + path + "': " + reason);
  }
}

void writeOut(const std::string& path, const std::string& text) {
  if (!path.empty()) return writeFile(path, text);
  std::cout << text;
  finishOutput();
}

void run(const Options& options) {
  Rejects rejects;
  Choices choices = choicesOf(options);
  readShiftsInto(choices, options, rejects);
  const RateRules rules = rulesOf(options, *choices.layout);
  const ErrorSource error_source = errorSourceOf(options.errors);

  std::vector<Source> sources;
  for (const std::string& file : options.files) {
    for (const Source& source : readSource(file, options.defaults)) sources.push_back(source);
  }
  checkOverwrite(options, sources);
  checkRepeats(sources);
  std::vector<Reading> readings;
  for (const Source& source : sources) {
    for (const Reading& reading : readTable(source, rejects)) readings.push_back(reading);
  }
  selectResidues(readings, options);
  if (readings.empty()) die("there is no point in the files");
  checkShifts(choices, options, readings);
  const auto notes = setErrors(readings, error_source, options.i0_error, rejects);

  choices.comments = originOf(sources);
  for (const auto& lines : {methodOf(readings, rules, options), notes}) {
    choices.comments.insert(choices.comments.end(), lines.begin(), lines.end());
  }
  const std::string text = writeInput(makeRates(readings, rules, rejects), choices, rejects);
  if (options.strict && rejects.count() > 0) {
    die(std::to_string(rejects.count()) + " rejected; nothing is written");
  }
  writeOut(options.output, text);
}

}  // namespace

int main(int argc, char* argv[]) {
  try {
    const Options options = readOptions(argc, argv);
    if (options.list_models) {
      listModels();
    } else if (options.files.empty()) {
      die("no file is given; see --help");
    } else {
      run(options);
    }
  } catch (const std::exception& error) {  // of the file system, or no memory
    die(error.what());
  }
  return EXIT_SUCCESS;
}
