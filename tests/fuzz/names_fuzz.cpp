// Fuzz target: parameter names. The first line names a model, each further one a parameter.
// SPDX-License-Identifier: GPL-3.0-or-later
#include "Harness.h"

#include "FuncLib.h"
#include "Text.h"

#include <algorithm>
#include <sstream>

namespace {

using harness::require;

/// What is written for a name must be read as that name.
void checkRoundTrip(const Rules& rules, const std::string& name) {
  std::vector<int> indices;
  const int base = rules.decompose(name, indices);
  require(base >= 0 && base < static_cast<int>(rules.basePAR_size()), "a parameter that exists");
  const auto k = static_cast<unsigned>(base);
  const std::string& rule = rules.indexRule(k);
  require(indices.size() == rule.size(), "an index for each position");
  require(equalIgnoringCase(name.substr(0, name.find('_')), rules.baseName(k)), "the name's start");
  std::string written;
  rules.markup(written, base, nullptr);
  // Names are written for the labels of data, which are never negative.
  for (int& i : indices) i = std::max(i, 0);
  rules.markup(written, base, &indices);
  std::vector<int> again;
  require(rules.decompose(written, again) == base, "the same parameter from the written name");
  for (std::size_t q = 0; q < rule.size(); ++q) {
    const int expected = rule[q] == '0' ? Rules::kAnyLabel : indices[q];
    const bool has_indices = written.find('_') != std::string::npos;
    require(again[q] == (has_indices ? expected : Rules::kAnyLabel), "the same indices");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static Funclib funclib;
  std::istringstream lines(std::string(data, data + size));
  std::string line;
  std::getline(lines, line);
  if (harness::endingOf([&] { funclib.Pick_Func(line); }, false).status) return 0;
  while (std::getline(lines, line)) {
    harness::endingOf([&] { checkRoundTrip(funclib.Get_Rules(), line); }, false);
  }
  return 0;
}
