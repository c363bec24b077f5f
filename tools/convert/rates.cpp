// From intensities to points: R2eff = -ln(I/I0)/T, and the rate of the pulses.
// SPDX-License-Identifier: GPL-3.0-or-later
#include "rates.h"

#include "errors.h"  // describe

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <map>
#include <tuple>

namespace {

constexpr double kDecimals = 1e4;         // four decimals of x0
constexpr double kLeastPulseRate = 10.0;  // 1/s; the CPMG models refuse less

/// Mean of the reference points of a curve.
struct Zero {
  double sum = 0.0;
  double squared_error = 0.0;  // of the sum
  int points = 0;

  [[nodiscard]] double mean() const { return sum / points; }
  [[nodiscard]] double relativeError() const { return std::sqrt(squared_error) / sum; }
};

using Curve = std::pair<std::string, Conditions>;

class Converter {
 public:
  Converter(const RateRules& rules, Rejects& rejects) : rules_(rules), rejects_(rejects) {}

  void findZeros(const std::vector<Reading>& readings) {
    for (const Reading& reading : readings) {
      if (!reading.reference) continue;
      Zero& zero = zeros_[{reading.name, reading.at}];
      zero.sum += reading.value;
      zero.squared_error += reading.error * reading.error;
      ++zero.points;
    }
    if (std::isfinite(rules_.i0)) zeros_.clear();
  }

  /// False, and the reading is named, when no point comes of it.
  bool convert(const Reading& reading, Point& point) {
    std::string reason;
    point.at = reading.at;
    point.offset = reading.offset;
    if (findX0(reading, point.x0, reason) && findRate(reading, point, reason)) return true;
    rejects_.add(reading.place, reason);
    return false;
  }

  [[nodiscard]] std::vector<Reference> referencesOf(const std::string& name) const {
    std::vector<Reference> references;
    for (const auto& [curve, zero] : zeros_) {
      if (curve.first == name) references.push_back({curve.second, zero.mean(), zero.points});
    }
    return references;
  }

 private:
  bool findX0(const Reading& reading, double& x0, std::string& reason) const {
    if (reading.spin_lock != rules_.spin_lock) {
      reason = rules_.spin_lock ? "the model is one of R1rho, the point one of CPMG"
                                : "the model is one of CPMG, the point one of a spin lock";
      return false;
    }
    if (rules_.needs_temperature && !reading.temperature_known) {
      reason = "the model needs the temperature: --temperature K or temperature=K";
      return false;
    }
    if (rules_.on_resonance && reading.offset != 0.0) {
      reason = "the model is one on resonance, the offset " + shortText(reading.offset) + " Hz";
      return false;
    }
    x0 = reading.frequency;
    if (rules_.spin_lock) return true;
    if (rules_.needs_time && !(reading.at.time > 0.0)) {
      reason = "the model needs the constant time: --time S or time=S";
      return false;
    }
    x0 = pulseRate(reading.frequency, reading.at.time, rules_.counted_pulses);
    if (x0 >= kLeastPulseRate) return true;
    reason = x0 > 0.0 || !rules_.counted_pulses
                 ? "1/tcp = " + shortText(x0) + " is below 10, which dravo refuses"
                 : "T/tcp = " + shortText(2.0 * reading.frequency * reading.at.time) +
                       " is not an even number of pulses";
    return false;
  }

  bool findRate(const Reading& reading, Point& point, std::string& reason) const {
    point.rate = reading.value;
    point.error = reading.error;
    if (!reading.is_rate && !fromIntensity(reading, point, reason)) return false;
    point.error =
        std::max({point.error, rules_.floor_rate, rules_.floor_fraction * std::fabs(point.rate)});
    if (point.error > 0.0 && std::isfinite(1.0 / point.error)) return true;
    reason = "the error of the rate is " + shortText(point.error);
    return false;
  }

  bool fromIntensity(const Reading& reading, Point& point, std::string& reason) const {
    double i0 = rules_.i0;
    double i0_error = 0.0;
    if (!std::isfinite(i0)) {
      const auto zero = zeros_.find({reading.name, reading.at});
      if (zero == zeros_.end()) {
        reason = reading.name + " has no reference at " + describe(reading.at) +
                 "; if intensities are relative to it, state --I0 1";
        return false;
      }
      i0 = zero->second.mean();
      if (rules_.i0_error) i0_error = zero->second.relativeError();
    }
    const double ratio = reading.value / i0;
    if (!(ratio > 0.0) || !std::isfinite(ratio)) {
      reason = "no logarithm of I/I0 = " + shortText(reading.value) + "/" + shortText(i0);
      return false;
    }
    point.rate = -std::log(ratio) / reading.at.time;
    point.error = std::hypot(reading.error / reading.value, i0_error) / reading.at.time;
    return true;
  }

  const RateRules& rules_;
  Rejects& rejects_;
  std::map<Curve, Zero> zeros_;
};

}  // namespace

double pulseRate(double nu_cpmg, double time, bool counted) {
  const double rate = 2.0 * nu_cpmg;
  if (!counted) return std::round(rate * kDecimals) / kDecimals;
  // As far as a frequency that was written with few digits may be from its number of pulses.
  constexpr double kNear = 0.1;
  const double pulses = 2.0 * std::round(0.5 * rate * time);
  if (pulses < 2.0 || std::fabs(rate * time - pulses) > kNear) return 0.0;
  const double read_time = std::strtod(shortText(time).c_str(), nullptr);
  double steps = std::ceil(pulses / read_time * kDecimals - 0.5);
  double read_rate = 0.0;
  do {
    read_rate = std::strtod(shortText(steps / kDecimals).c_str(), nullptr);
    steps += 1.0;
  } while (read_time * read_rate < pulses);
  return read_rate;
}

std::vector<Residue> makeRates(const std::vector<Reading>& readings, const RateRules& rules,
                               Rejects& rejects) {
  Converter converter(rules, rejects);
  converter.findZeros(readings);
  std::vector<Residue> residues;
  std::map<std::string, std::size_t> places;
  for (const Reading& reading : readings) {
    const auto [place, is_new] = places.insert({reading.name, residues.size()});
    if (is_new) residues.push_back({reading.name, {}, converter.referencesOf(reading.name)});
    Point point;
    if (!reading.reference && converter.convert(reading, point)) {
      residues[place->second].points.push_back(point);
    }
  }
  for (Residue& residue : residues) {
    std::stable_sort(
        residue.points.begin(), residue.points.end(),
        [](const Point& a, const Point& b) { return std::tie(a.at, a.x0) < std::tie(b.at, b.x0); });
  }
  return residues;
}
