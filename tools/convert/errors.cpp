// Errors of the measured values: from the file, from a stated noise, or pooled from repeats.
// SPDX-License-Identifier: GPL-3.0-or-later
#include "errors.h"

#include <gsl/gsl_cdf.h>
#include <gsl/gsl_statistics_double.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <tuple>

namespace {

using Experiment = std::vector<Reading*>;

/// Intensities and rates of the same conditions do not share a noise.
std::map<std::pair<Conditions, bool>, Experiment> experimentsOf(std::vector<Reading>& readings) {
  std::map<std::pair<Conditions, bool>, Experiment> experiments;
  for (Reading& reading : readings) {
    experiments[{reading.at, reading.is_rate}].push_back(&reading);
  }
  return experiments;
}

bool everyPoint(const Experiment& experiment, bool (*has)(const Reading&)) {
  return std::all_of(experiment.begin(), experiment.end(),
                     [&](const Reading* r) { return r->reference || has(*r); });
}

bool hasError(const Reading& reading) { return std::isfinite(reading.error); }
bool hasNoise(const Reading& reading) { return std::isfinite(reading.noise); }

ErrorSource chooseFor(const Experiment& experiment, ErrorSource wanted) {
  if (wanted != ErrorSource::kAuto) return wanted;
  if (everyPoint(experiment, hasNoise)) return ErrorSource::kNoise;
  return everyPoint(experiment, hasError) ? ErrorSource::kFile : ErrorSource::kRepeats;
}

/// Ends the run when only some points have an error: not their absence is the trouble.
void checkBare(const Experiment& experiment, const std::string& where) {
  const auto without = [](const Reading* r) { return !r->reference && !hasError(*r); };
  const auto first = std::find_if(experiment.begin(), experiment.end(), without);
  const bool some = std::any_of(experiment.begin(), experiment.end(),
                                [](const Reading* r) { return !r->reference && hasError(*r); });
  if (first == experiment.end() || !some) return;
  const Place& place = (*first)->place;
  die(std::to_string(std::count_if(experiment.begin(), experiment.end(), without)) + " points at " +
      where + " have no error, first " + place.file + ':' + std::to_string(place.line) +
      ", and none is repeated; state --noise, or --errors file to leave them out");
}

std::string fromRepeats(const Experiment& experiment) {
  const PooledError pooled = poolRepeats({experiment.begin(), experiment.end()});
  const std::string where = describe(experiment.front()->at);
  if (pooled.freedom == 0) {
    checkBare(experiment, where);
    die("no repeated points at " + where + " to take errors from; state --noise or noise=");
  }
  if (!(pooled.sigma > 0.0)) die("all repeated points at " + where + " are equal; state --noise");
  for (Reading* reading : experiment) reading->error = pooled.sigma;
  constexpr int kDigits = 4;
  return shortText(pooled.sigma) + ", pooled from repeats of " + std::to_string(pooled.points) +
         " points, " + std::to_string(pooled.freedom) +
         " degrees of freedom (95 %: " + shortText(pooled.low, kDigits) + " to " +
         shortText(pooled.high, kDigits) + ")";
}

std::string fromNoise(const Experiment& experiment) {
  double low = HUGE_VAL;
  double high = 0.0;
  for (Reading* reading : experiment) {
    reading->error = reading->noise;
    if (!hasNoise(*reading)) continue;
    low = std::min(low, reading->noise);
    high = std::max(high, reading->noise);
  }
  return "the stated noise, " + shortText(low) + (high > low ? " to " + shortText(high) : "");
}

}  // namespace

PooledError poolRepeats(const std::vector<const Reading*>& experiment) {
  std::map<std::tuple<std::string, double, double>, std::vector<double>> repeats;
  for (const Reading* r : experiment) {
    repeats[{r->name, r->frequency, r->offset}].push_back(r->value);
  }
  PooledError pooled;
  double squares = 0.0;
  for (const auto& [point, values] : repeats) {
    if (values.size() < 2) continue;
    squares += gsl_stats_tss(values.data(), 1, values.size());
    pooled.freedom += static_cast<int>(values.size()) - 1;
    ++pooled.points;
  }
  if (pooled.freedom == 0) return pooled;
  constexpr double kTail = 0.025;
  const double freedom = pooled.freedom;
  pooled.sigma = std::sqrt(squares / freedom);
  pooled.low = std::sqrt(squares / gsl_cdf_chisq_Qinv(kTail, freedom));
  pooled.high = std::sqrt(squares / gsl_cdf_chisq_Pinv(kTail, freedom));
  return pooled;
}

std::vector<std::string> setErrors(std::vector<Reading>& readings, ErrorSource from,
                                   bool of_references, Rejects& rejects) {
  std::vector<std::string> notes;
  for (auto& [key, experiment] : experimentsOf(readings)) {
    std::string note = "those of the file";
    switch (chooseFor(experiment, from)) {
      case ErrorSource::kRepeats: note = fromRepeats(experiment); break;
      case ErrorSource::kNoise: note = fromNoise(experiment); break;
      default: break;
    }
    std::string line = (key.second ? "Rates at " : "Intensities at ") + describe(key.first);
    if (!key.second) line += ", T = " + shortText(key.first.time) + " s";
    line += ": errors are ";
    line += note;
    notes.push_back(line + '.');
  }
  std::vector<Reading> kept;
  for (const Reading& reading : readings) {
    if (hasError(reading) || (reading.reference && !of_references)) {
      kept.push_back(reading);
    } else {
      rejects.add(reading.place, "no error");
    }
  }
  readings = kept;
  return notes;
}

std::string describe(const Conditions& at) {
  std::string text = shortText(at.field_mhz) + " MHz, " + shortText(at.temp_kelvin) + " K";
  if (at.concentration > 0.0) text += ", ligand " + shortText(at.concentration);
  if (at.code > 0) text += ", code " + std::to_string(at.code);
  return text;
}
