// Quantities derived from fitted parameters, and the error analyses that the input asks for.
// SPDX-License-Identifier: GPL-3.0-or-later
#include "Calc.h"

#include "Fatal.h"
#include "Text.h"

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
