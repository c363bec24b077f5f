// Names of a model's parameters: splitting and rebuilding them.
// SPDX-License-Identifier: GPL-3.0-or-later
#include "Rule.h"

#include "Fatal.h"
#include "Text.h"

#include <cstdlib>
#include <utility>

namespace {

/// Cuts the text before the first underscore off `rest`; without one, takes all of it.
/// Ends the run when the underscore is the last character, since an index must follow it.
std::string cutToken(std::string& rest, const std::string& full_name) {
  const std::size_t underscore = rest.find('_');
  if (underscore == std::string::npos) return std::exchange(rest, "");
  if (underscore + 1 == rest.size()) {
    fatal("ERROR: Badly constructed parameter '" + full_name + "'\n");
  }
  std::string token = rest.substr(0, underscore);
  rest.erase(0, underscore + 1);
  return token;
}

}  // namespace

void Rules::Define_Parm(const char* name, double lower, double upper, const char* rule) {
  parms_.push_back({name, lower, upper, rule});
}

int Rules::index(const std::string& name) const {
  for (std::size_t i = 0; i < parms_.size(); ++i) {
    if (equalIgnoringCase(parms_[i].name, name)) return static_cast<int>(i);
  }
  return -1;
}

int Rules::decompose(const std::string& full_name, std::vector<int>& indices) const {
  std::string rest = full_name;
  const int base = index(cutToken(rest, full_name));
  if (base < 0) ERROR_unrecognized(full_name);
  const std::string& rule = parms_[static_cast<std::size_t>(base)].rule;
  if (rest.empty()) {  // kex is legal where the rule is "10": one value for every label
    indices.insert(indices.end(), rule.size(), kAnyLabel);
    return base;
  }
  for (const char indexed : rule) {
    if (indexed == '0') {
      indices.push_back(kAnyLabel);
      continue;
    }
    if (rest.empty()) fatal("ERROR: Insufficient indices on par '" + full_name + "'\n");
    const std::string token = cutToken(rest, full_name);
    // In automatic base, as all integers of the input: R20_010_1 has the index 8.
    indices.push_back(static_cast<int>(std::strtol(token.c_str(), nullptr, 0)));
  }
  if (!rest.empty()) {
    fatal("ERROR: Parameter name '" + full_name + "' has too many indices\n");
  }
  return base;
}

void Rules::markup(std::string& out, int k, const std::vector<int>* indices) const {
  const bool declared = k >= 0 && k < static_cast<int>(parms_.size());
  out = declared ? parms_[static_cast<std::size_t>(k)].name : "";
  const int found = index(out);
  if (found < 0) fatal("ERROR: Markup rule not found for parameter '" + out + "'\n");
  const std::string& rule = parms_[static_cast<std::size_t>(found)].rule;
  if (indices != nullptr && indices->size() < rule.size()) {
    fatal("ERROR (Rules::markup): Index list too short\n");
  }
  for (std::size_t q = 0; q < rule.size(); ++q) {
    if (rule[q] == '0') continue;
    out += '_';
    append_int(out, indices != nullptr ? (*indices)[q] : 0);
  }
}

void Rules::append_int(std::string& text, int value) {
  if (value > 9) append_int(text, value / 10);
  text += static_cast<char>('0' + value % 10);
}

void Rules::ERROR_unrecognized(const std::string& full_name) const {
  std::string message = "ERROR: Parameter name '" + full_name + "' unrecognized.\n";
  message += "Valid parameter names for the model:";
  for (const BaseParm& parm : parms_) message += "\t'" + parm.name + "'";
  fatal(message + "\n");
}
