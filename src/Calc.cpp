// Quantities derived from fitted parameters, and the error analyses that the input asks for.
// SPDX-License-Identifier: GPL-3.0-or-later
#include "Calc.h"

#include "Fatal.h"
#include "Text.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

namespace {

struct CalcRow {
  const char* word;
  OneCalc::Type type;
};

constexpr CalcRow kCalcs[] = {
    {"REX", OneCalc::kRex},
    {"PB", OneCalc::kPb},
    {"PB_RDC", OneCalc::kPbRdc},
    {"PB_MQ", OneCalc::kPbMq},
};

OneCalc::Type findType(const std::string& word) {
  for (const CalcRow& row : kCalcs) {
    if (equalIgnoringCase(row.word, word)) return row.type;
  }
  fatal("ERROR: CALC '" + word + "' is not recognized.\n");
}

/// The smaller root of p (1 - p) = papb.
double minorPopulation(double papb) {
  const double p = 0.5 * (1.0 - std::sqrt(1.0 - 4.0 * papb));
  return std::isfinite(p) ? p : std::numeric_limits<double>::infinity();
}

}  // namespace

void Calc::Add(const std::string& type, const std::string& label, const std::vector<double>& x,
               const std::vector<int>& index) {
  OneCalc calc;
  calc.type = findType(type);
  calc.label = label;
  calc.data.x = x;
  calc.data.index = index;
  calcs_.push_back(std::move(calc));
}

void Calc::SetMonte(int type, int iterations) {
  monte_type_ = type;
  monte_iterations_ = iterations;
}

void Calc::prep(std::size_t slots) {
  slots_ = slots;
  for (OneCalc& calc : calcs_) calc.prep(slots);
}

bool Calc::checkIndex(const std::vector<int>& index, const std::vector<std::vector<int>>& list) {
  return std::find(list.begin(), list.end(), index) != list.end();
}

double Calc::run(int i, const std::vector<double>& par, ModelFunc model,
                 const std::vector<std::vector<int>>& indices, std::vector<double>& dydp,
                 const std::vector<bool>& skip) {
  const OneCalc& calc = at(i);
  Data& data = getData(i);
  parms_ = gatherParms(data.parmap, par, "run");
  if (calc.type == OneCalc::kRex) {
    if (!checkIndex(data.index, indices)) return 0.0;
    data.x[0] = 50.0;
    const double slow = model(data, parms_.data(), dydp, skip);
    data.x[0] = 100000.0;
    return slow - model(data, parms_.data(), dydp, skip);
  }
  // Where the models with and without a further leading parameter keep papb.
  const std::size_t papb = calc.type == OneCalc::kPb ? 2 : 3;
  if (papb >= parms_.size()) return std::numeric_limits<double>::infinity();
  return minorPopulation(parms_[papb]);
}

// ---- statistics ----

void OneCalc::prep(std::size_t slots) { slots_.assign(slots, Slot()); }

void OneCalc::add(Slot& slot, double value, double centre) {
  slot.sum += value;
  slot.square_sum += (value - centre) * (value - centre);
  slot.count += 1;
}

void OneCalc::addVal(int slot, double value) { add(at(slot), value, 0.0); }

void OneCalc::addJack(int slot, double value) { add(at(slot), value, at(slot).stored); }

void OneCalc::store(int slot, double value) { at(slot).stored = value; }

double OneCalc::mean(int slot) const {
  const Slot& s = at(slot);
  return s.count < 1 ? 0.0 : s.sum / s.count;
}

double OneCalc::stdev(int slot) const {
  const Slot& s = at(slot);
  if (s.count < 2) return 0.0;
  const double variance = (s.square_sum - s.sum * s.sum / s.count) / (s.count - 1);
  return variance < 0.0 ? 0.0 : std::sqrt(variance);  // rounding, where all values are equal
}

double OneCalc::jackStdev(int slot) const {
  const Slot& s = at(slot);
  if (s.count < 2) return 0.0;
  return std::sqrt((s.count - 1) * s.square_sum / s.count);
}
