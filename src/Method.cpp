// The ordered list of search methods of a fit.
// SPDX-License-Identifier: GPL-3.0-or-later
#include "Method.h"

#include "Fatal.h"
#include "Text.h"

#include <sstream>

namespace {

struct MethodRow {
  const char* word;
  int type;
  std::size_t min_tokens;
};

// clang-format off
constexpr MethodRow kMethods[] = {
    // word     type      tokens needed, METHOD included
    {"INIT",   kInit,   2},
    {"GRID",   kGrid,   2},
    {"ONE",    kOne,    2},
    {"ONEEX",  kOneEx,  2},
    {"RANDOM", kRandom, 3},
    {"MCMIN",  kMcMin,  4},
    {"RMCMIN", kRmcMin, 5},
};
// clang-format on

const MethodRow& findMethod(const std::string& word) {
  for (const MethodRow& row : kMethods) {
    if (equalIgnoringCase(row.word, word)) return row;
  }
  // RMCMIN is valid although the list does not name it; the text is part of the interface.
  fatal("ERROR: Optimization type '" + word +
        "' not recognized.\n"
        "Valid methods are INIT, GRID, ONE, ONEEX, RANDOM and MCMIN.\n");
}

}  // namespace

Method::Method() { Add({"METHOD", "INIT"}); }

void Method::Add(const std::vector<std::string>& tokens) {
  const MethodRow& row = findMethod(tokens[1]);
  check_option(tokens.size(), row.min_tokens, row.word);
  OneMethod method;
  method.type = row.type;
  if (row.type == kRandom || row.type == kMcMin || row.type == kRmcMin) {
    method.iterations = toInt(tokens[2]);
  }
  if (row.type == kMcMin) method.scale = toDouble(tokens[3]);
  if (row.type == kRmcMin) {
    method.mc_iterations = toInt(tokens[3]);
    method.scale = toDouble(tokens[4]);
  }
  methods_.push_back(method);
}

void Method::check_option(std::size_t tokens, std::size_t required, const std::string& word) {
  if (tokens < required) fatal("ERROR: insufficient options for METHOD " + word + "\n");
}

std::string Method::report(int i) const {
  const OneMethod& method = at(i);
  std::ostringstream text;
  switch (method.type) {
    case kInit: text << "METHOD INIT"; break;
    case kOne: text << "METHOD ONE"; break;
    case kOneEx: text << "METHOD ONEEX"; break;
    // No blank before the count, which GRID does not use: readers of reports know this form.
    case kGrid: text << "METHOD GRID" << method.iterations; break;
    case kRandom: text << "METHOD RANDOM " << method.iterations; break;
    case kMcMin: text << "METHOD MCMIN " << method.iterations << ' ' << shown(method.scale); break;
    case kRmcMin:
      text << "METHOD RMCMIN " << method.iterations << ' ' << method.mc_iterations << ' '
           << shown(method.scale);
      break;
    default: break;
  }
  return text.str();
}
