// Mutation by lines and words beside libFuzzer's own by bytes.
// SPDX-License-Identifier: GPL-3.0-or-later
//
// DRAVO_FUZZ_LINES is the kind of line a target reads: inputLine, nameLine or optionLine.
#include "FuncLib.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <map>
#include <random>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t most);
extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size,
                                               std::size_t most, unsigned seed);
extern "C" std::size_t LLVMFuzzerCustomCrossOver(const std::uint8_t* a, std::size_t a_size,
                                                 const std::uint8_t* b, std::size_t b_size,
                                                 std::uint8_t* out, std::size_t most,
                                                 unsigned seed);

namespace {

using Words = std::vector<std::string>;

/// Draws of one mutation.
class Dice {
 public:
  explicit Dice(unsigned seed) : engine_(seed) {}
  /// One of 0 ... n - 1.
  std::size_t below(std::size_t n) { return engine_() % n; }
  bool once_in(std::size_t n) { return below(n) == 0; }
  const std::string& of(const Words& words) { return words[below(words.size())]; }
  double between(double low, double high) {
    return low + (high - low) * (static_cast<double>(engine_() % 1000001) / 1e6);
  }

 private:
  std::mt19937 engine_;
};

// ---- words ----

/// The words of the dictionary under each heading, escapes left out.
std::map<std::string, Words> readDictionary() {
  std::map<std::string, Words> sections;
  std::ifstream file(DRAVO_FUZZ_DICTIONARY);
  std::string heading;
  for (std::string line; std::getline(file, line);) {
    if (line.size() > 2 && line[0] == '#') {
      heading = line.substr(2);
    } else if (line.size() > 2 && line[0] == '"' && line.find('\\') == std::string::npos) {
      sections[heading].push_back(line.substr(1, line.size() - 2));
    }
  }
  return sections;
}

const Words& words(const std::string& heading) {
  static const std::map<std::string, Words> sections = readDictionary();
  return sections.at(heading);
}

/// One model as the lines of an input need it.
struct ModelShape {
  std::string name;
  std::size_t dimX;
  std::size_t dimIndex;
  Rules rules;
};

const std::vector<ModelShape>& models() {
  static const std::vector<ModelShape> shapes = [] {
    std::vector<ModelShape> all;
    Funclib funclib;
    for (int i = 0; i < funclib.size(); ++i) {
      funclib.Pick_Func(funclib.nameOf(i));
      all.push_back({funclib.Name(), static_cast<std::size_t>(funclib.Get_dimX()),
                     static_cast<std::size_t>(funclib.Get_dimIndex()), funclib.Get_Rules()});
    }
    return all;
  }();
  return shapes;
}

std::string number(double value) {
  std::ostringstream text;
  text << value;
  return text.str();
}

std::string anyNumber(Dice& dice) {
  switch (dice.below(4)) {
    case 0: return dice.of(words("numbers"));
    case 1: return std::to_string(dice.below(20));
    case 2: return number(dice.between(0.0, 1.0));
    default: return number(dice.between(0.0, 3000.0));
  }
}

std::string label(Dice& dice, std::size_t digits) {
  std::string text;
  for (std::size_t i = 0; i < digits; ++i) text += static_cast<char>('0' + dice.below(2));
  return text;
}

std::string parmName(Dice& dice, const Rules& rules) {
  const auto k = static_cast<unsigned>(dice.below(rules.basePAR_size()));
  std::string name = rules.baseName(k);
  if (dice.once_in(2)) return name;
  for (const char indexed : rules.indexRule(k)) {
    if (indexed != '0') name += '_' + std::to_string(dice.below(2));
  }
  return name;
}

std::string anyWord(Dice& dice) {
  switch (dice.below(8)) {
    case 0: return dice.of(words("keywords"));
    case 1: return dice.of(words("methods"));
    case 2: return dice.of(words("quantities"));
    case 3: return dice.of(words("options"));
    case 4: return dice.of(words("other"));
    case 5: return models()[dice.below(models().size())].name;
    case 6: return parmName(dice, models()[dice.below(models().size())].rules);
    default: return anyNumber(dice);
  }
}

// ---- lines ----

std::string parmLine(Dice& dice, const std::string& keyword, const std::string& name, double low,
                     double high) {
  const double value = dice.once_in(3) ? dice.between(low, high)
                                       : dice.between(std::max(low, -100.0), std::min(high, 100.0));
  if (keyword == "FIXED" || keyword == "GFIXED") return keyword + ' ' + name + ' ' + number(value);
  std::string line = keyword + ' ' + name + ' ' + number(value);
  if (keyword == "PAR" && dice.once_in(2)) return line;
  line += ' ' + number(dice.between(value, std::min(high, value + 10.0)));
  if (dice.once_in(2)) line += ' ' + std::to_string(1 + dice.below(3)) + "egtEGT "[dice.below(7)];
  return line;
}

std::string xColumns(Dice& dice, const ModelShape& model) {
  std::string text;
  for (std::size_t i = 0; i < model.dimX; ++i) {
    text += ' ' + (i == 0 ? std::to_string(50 + 50 * dice.below(40))
                          : dice.of({"0.04", "1", "0", "293", "308", "1.33", "2", "4"}));
  }
  return text;
}

std::string dataLine(Dice& dice, const ModelShape& model) {
  std::string line = "DATA" + xColumns(dice, model);
  if (model.dimIndex != 0) line += ' ' + label(dice, model.dimIndex);
  line += ' ' + number(dice.between(1.0, 30.0)) + ' ' + number(dice.between(0.1, 1.0));
  // A model without labels needs one more token, of any content.
  return model.dimIndex != 0 ? line : line + " 0";
}

std::string methodLine(Dice& dice) {
  return "METHOD " + dice.of(words("methods")) + ' ' + std::to_string(1 + dice.below(3)) + ' ' +
         dice.of({"1", "2", "0.01", "0.3"}) + ' ' + dice.of({"1", "0.1"});
}

std::string calcLine(Dice& dice, const ModelShape& model) {
  return "CALC " + dice.of(words("quantities")) + " Q" + xColumns(dice, model) + ' ' +
         label(dice, model.dimIndex);
}

std::string plotLine(Dice& dice, const ModelShape& model) {
  std::string line = "PLOT curve";
  if (dice.once_in(3)) return line;
  line += xColumns(dice, model) + ' ' + label(dice, model.dimIndex);
  return dice.once_in(2) ? line : line + ' ' + anyNumber(dice) + " 2000 5";
}

std::string parmLine(Dice& dice, const std::string& keyword, const ModelShape& model) {
  const auto k = static_cast<unsigned>(dice.below(model.rules.basePAR_size()));
  return parmLine(dice, keyword, parmName(dice, model.rules), model.rules.Get_LowerBound(k),
                  model.rules.Get_UpperBound(k));
}

/// A line of an input file.
[[maybe_unused]] std::string inputLine(Dice& dice, const ModelShape& model) {
  switch (dice.below(12)) {
    case 0: return "FUNCTION " + models()[dice.below(models().size())].name;
    case 1:
    case 2: return methodLine(dice);
    case 3: return "SET s" + std::to_string(dice.below(3));
    case 4:
    case 5:
      return parmLine(dice, dice.of({"PAR", "REST", "FIXED", "GPAR", "GREST", "GFIXED"}), model);
    case 6: return "PAR " + parmName(dice, model.rules) + ' ' + parmName(dice, model.rules);
    case 7:
    case 8: return dataLine(dice, model);
    case 9: return calcLine(dice, model);
    case 10: return plotLine(dice, model);
    default: return dice.of({"JACK", "JACK1", "MONTE 2", "MONTE1 10", "#SET x"});
  }
}

/// The first line that gives the options of a run.
std::string optionsLine(Dice& dice) {
  std::string line = "#args:";
  do {
    line += ' ' + dice.of({"-v", "-vv", "-xmgr", "-noerr", "-prec"});
    if (line.ends_with("c")) line += ' ' + anyNumber(dice);
  } while (dice.once_in(2));
  return line;
}

/// A whole input that is legal in all that counts.
std::string wholeInput(Dice& dice, const ModelShape& model) {
  std::string text = dice.once_in(2) ? optionsLine(dice) + '\n' : "";
  if (dice.once_in(4)) {  // lines that are read under another model stay
    const ModelShape& other = models()[dice.below(models().size())];
    text += "FUNCTION " + other.name + '\n' + calcLine(dice, other) + '\n';
    text += plotLine(dice, other) + '\n';
  }
  text += "FUNCTION " + model.name + '\n' + methodLine(dice) + '\n';
  if (dice.once_in(2)) text += calcLine(dice, model) + '\n';
  if (dice.once_in(2)) text += plotLine(dice, model) + '\n';
  const bool shared = dice.once_in(2);
  for (unsigned k = 0; shared && k < model.rules.basePAR_size(); ++k) {
    text += parmLine(dice, dice.of({"GPAR", "GFIXED"}), "g" + std::to_string(k),
                     model.rules.Get_LowerBound(k), model.rules.Get_UpperBound(k)) +
            '\n';
  }
  for (std::size_t set = 0; set <= dice.below(3); ++set) {
    text += "SET s" + std::to_string(set) + '\n';
    for (unsigned k = 0; k < model.rules.basePAR_size(); ++k) {
      const std::string& name = model.rules.baseName(k);
      text += shared && dice.once_in(2)
                  ? "PAR " + name + " g" + std::to_string(k)
                  : parmLine(dice, dice.of({"PAR", "REST", "FIXED", "FIXED"}), name,
                             model.rules.Get_LowerBound(k), model.rules.Get_UpperBound(k));
      text += '\n';
    }
    for (std::size_t n = 4 + dice.below(6); n > 0; --n) text += dataLine(dice, model) + '\n';
  }
  return text;
}

/// A parameter name, or the model in whose terms names are read.
[[maybe_unused]] std::string nameLine(Dice& dice, const ModelShape& model) {
  return dice.once_in(8) ? model.name : parmName(dice, model.rules);
}

/// A word of a command line.
[[maybe_unused]] std::string optionLine(Dice& dice, const ModelShape& /*model*/) {
  return dice.once_in(6) ? anyWord(dice) : dice.of(words("options"));
}

// ---- mutations ----

Words splitAt(const std::string& text, const char* delimiters, bool keep_empty) {
  Words parts;
  std::size_t begin = 0;
  while (begin <= text.size()) {
    const std::size_t end = std::min(text.find_first_of(delimiters, begin), text.size());
    if (keep_empty || end > begin) parts.push_back(text.substr(begin, end - begin));
    begin = end + 1;
  }
  return parts;
}

std::string joined(const Words& parts, char delimiter) {
  std::string text;
  for (std::size_t i = 0; i < parts.size(); ++i) {
    if (i > 0) text += delimiter;
    text += parts[i];
  }
  return text;
}

/// The model that the text names, else any.
const ModelShape& modelOf(const std::string& text, Dice& dice) {
  for (const std::string& line : splitAt(text, "\n", false)) {
    const Words tokens = splitAt(line, " \t,", false);
    if (tokens.empty()) continue;
    const std::string& name = tokens.size() > 1 && tokens[0] == "FUNCTION" ? tokens[1] : tokens[0];
    for (const ModelShape& model : models()) {
      if (model.name == name) return model;
    }
  }
  return models()[dice.below(models().size())];
}

std::string otherNumber(const std::string& token, Dice& dice) {
  const double value = std::strtod(token.c_str(), nullptr);
  switch (dice.below(6)) {
    case 0: return number(-value);
    case 1:
    case 2: return number(value * std::pow(10.0, std::floor(dice.between(-12.0, 13.0))));
    case 3: return number(value + 1.0);
    case 4: return number(value - 1.0);
    default: return anyNumber(dice);
  }
}

void mutateTokens(std::string& line, const std::string& other_line, const ModelShape& model,
                  Dice& dice) {
  Words tokens = splitAt(line, " \t,", false);
  if (tokens.empty()) {
    line = anyWord(dice);
    return;
  }
  const std::size_t at = dice.below(tokens.size());
  const auto place = tokens.begin() + static_cast<std::ptrdiff_t>(at);
  switch (dice.below(9)) {
    case 0: tokens[at] = anyWord(dice); break;
    case 1: tokens[at] = anyNumber(dice); break;
    case 2:
    case 3: tokens[at] = otherNumber(tokens[at], dice); break;
    case 4: tokens.insert(place, anyWord(dice)); break;
    case 5: tokens.erase(place); break;
    case 6: std::swap(tokens[at], tokens[dice.below(tokens.size())]); break;
    case 7: tokens[at] = parmName(dice, model.rules); break;
    default:
      if (const Words others = splitAt(other_line, " \t,", false); !others.empty()) {
        tokens[at] = dice.of(others);
      }
  }
  line = joined(tokens, ' ');
}

void mutateLines(Words& lines, const ModelShape& model, Dice& dice) {
  const std::size_t at = dice.below(lines.size());
  const std::size_t other = dice.below(lines.size());
  const auto place = lines.begin() + static_cast<std::ptrdiff_t>(at);
  switch (dice.below(10)) {
    case 0: lines.insert(place, std::string(lines[other])); break;
    case 1:
      if (lines.size() > 1) lines.erase(place);
      break;
    case 2: std::swap(lines[at], lines[other]); break;
    case 3:
    case 4: lines.insert(place, DRAVO_FUZZ_LINES(dice, model)); break;
    case 5: lines[at] = DRAVO_FUZZ_LINES(dice, model); break;
    default: mutateTokens(lines[at], lines[other], model, dice);
  }
}

std::size_t store(const std::string& text, std::uint8_t* data, std::size_t most) {
  const std::size_t size = std::min(text.size(), most);
  std::copy_n(text.begin(), size, data);
  return size;
}

constexpr bool kReadsInputs = std::string_view(DRAVO_FUZZ_LINES_NAME) == "inputLine";

}  // namespace

std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t most,
                                    unsigned seed) {
  Dice dice(seed);
  if (dice.once_in(4)) return LLVMFuzzerMutate(data, size, most);
  const std::string text(data, data + size);
  if (kReadsInputs && dice.once_in(100)) {
    return store(wholeInput(dice, models()[dice.below(models().size())]), data, most);
  }
  const ModelShape& model = modelOf(text, dice);
  Words lines = splitAt(text, "\n", true);
  if (kReadsInputs && dice.once_in(50)) {
    const std::string options = optionsLine(dice);
    if (lines[0].starts_with("#args:")) {
      lines[0] = options;
    } else {
      lines.insert(lines.begin(), options);
    }
  }
  for (std::size_t n = 1 + dice.below(4); n > 0; --n) mutateLines(lines, model, dice);
  return store(joined(lines, '\n'), data, most);
}

std::size_t LLVMFuzzerCustomCrossOver(const std::uint8_t* a, std::size_t a_size,
                                      const std::uint8_t* b, std::size_t b_size, std::uint8_t* out,
                                      std::size_t most, unsigned seed) {
  Dice dice(seed);
  Words lines = splitAt(std::string(a, a + a_size), "\n", true);
  const Words others = splitAt(std::string(b, b + b_size), "\n", true);
  const std::size_t first = dice.below(others.size());
  const std::size_t count = 1 + dice.below(others.size() - first);
  const auto from = others.begin() + static_cast<std::ptrdiff_t>(first);
  const auto place = lines.begin() + static_cast<std::ptrdiff_t>(dice.below(lines.size()));
  lines.insert(place, from, from + static_cast<std::ptrdiff_t>(count));
  return store(joined(lines, '\n'), out, most);
}
