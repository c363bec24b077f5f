// Writes the input file of dravo.
// SPDX-License-Identifier: GPL-3.0-or-later
#include "writer.h"

#include "FuncLib.h"
#include "Text.h"    // equalIgnoringCase
#include "errors.h"  // describe
#include "labels.h"
#include "source.h"  // splitAt

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <set>
#include <sstream>

namespace {

constexpr int kRangeDigits = 4;

Rules rulesOf(const Choices& choices) {
  Funclib models;
  models.Pick_Func(choices.layout->model);
  return models.Get_Rules();
}

/// The name as the model has it.
std::string modelName(const Rules& rules, const std::string& name) {
  const int parm = rules.index(name);
  if (parm < 0) die("the model has no parameter '" + name + "'");
  return rules.baseName(static_cast<unsigned>(parm));
}

template <class Value>
void useModelNames(const Rules& rules, std::map<std::string, Value>& values) {
  std::map<std::string, Value> renamed;
  for (const auto& [name, value] : values) renamed[modelName(rules, name)] = value;
  values = renamed;
}

void checkMethod(const std::string& line) {
  struct Row {
    const char* word;
    std::size_t numbers;
  };
  constexpr Row kMethods[] = {{"INIT", 0},   {"GRID", 0},  {"ONE", 0},   {"ONEEX", 0},
                              {"RANDOM", 1}, {"MCMIN", 2}, {"RMCMIN", 3}};
  std::istringstream words(line);
  std::string word;
  words >> word;
  const Row* row = std::find_if(std::begin(kMethods), std::end(kMethods),
                                [&](const Row& r) { return equalIgnoringCase(r.word, word); });
  if (row == std::end(kMethods)) die("there is no method '" + word + "'");
  std::size_t numbers = 0;
  double ignored = 0.0;
  std::string bad;
  for (std::string text; words >> text; ++numbers) {
    if (bad.empty() && !parseNumber(text, ignored)) bad = text;
  }
  if (!bad.empty()) die("method " + word + ": '" + bad + "' is no number");
  if (numbers != row->numbers) {
    die("method " + word + " takes " + std::to_string(row->numbers) + " numbers, not " +
        std::to_string(numbers));
  }
}

/// A round step of which about five fill the range.
double tickOf(double range) {
  if (!(range > 0.0)) return 1.0;
  const double rough = range / 5.0;
  const double power = std::pow(10.0, std::floor(std::log10(rough)));
  for (const double factor : {1.0, 2.0, 5.0}) {
    if (rough <= factor * power) return factor * power;
  }
  return 10.0 * power;
}

/// One set with its lines.
struct Set {
  const Residue* residue = nullptr;
  std::vector<DataLine> lines;
};

/// A curve of the plots: the points of all sets with one label.
struct Curve {
  std::string name;
  std::vector<std::string> x;  ///< x1, ...
  double time = 0.0;
  double highest = 0.0;  ///< x0
  bool uniform = true;   ///< all points have the same x1, ...
};

class Writer {
 public:
  Writer(const std::vector<Residue>& residues, const Choices& choices, Rejects& rejects)
      : choices_(choices),
        layout_(*choices.layout),
        rules_(rulesOf(choices)),
        labels_(residues, layout_, choices.reference_field) {
    for (const Residue& residue : residues) addSet(residue);
    findKeys();
    dropSmallSets(rejects);
    findKeys();  // a residue that is gone may have been alone at its field
    findCurves();
  }

  std::string text() {
    writeHead();
    out_ << "\nFUNCTION " << layout_.model << '\n';
    writePlots();
    writeMethods();
    for (unsigned parm = 0; parm < rules_.basePAR_size(); ++parm) {
      if (isShared(parm)) writeShared(parm);
    }
    for (const Set& set : sets_) writeSet(set);
    return out_.str();
  }

 private:
  using Keys = std::set<std::string>;  ///< digits that a parameter depends on

  void addSet(const Residue& residue) {
    Set set;
    set.residue = &residue;
    for (const Point& point : residue.points) set.lines.push_back(labels_.lineOf(point));
    sets_.push_back(set);
  }

  [[nodiscard]] bool isFixed(unsigned parm) const {
    return choices_.fixed.count(rules_.baseName(parm)) > 0;
  }
  [[nodiscard]] bool isShared(unsigned parm) const {
    const auto& names = choices_.shared;
    return std::find(names.begin(), names.end(), rules_.baseName(parm)) != names.end();
  }

  /// The digits of the label that the parameter depends on.
  [[nodiscard]] std::string keyOf(unsigned parm, const DataLine& line) const {
    std::string key;
    for (std::size_t i = 0; i < line.label.size(); ++i) {
      if (rules_.indexRule(parm)[i] != '0') key += line.label[i];
    }
    return key;
  }

  [[nodiscard]] Keys keysOf(unsigned parm, const Set& set) const {
    Keys keys;
    for (const DataLine& line : set.lines) keys.insert(keyOf(parm, line));
    return keys;
  }

  void findKeys() {
    all_keys_.assign(rules_.basePAR_size(), {});
    for (unsigned parm = 0; parm < rules_.basePAR_size(); ++parm) {
      for (const Set& set : sets_) all_keys_[parm].merge(keysOf(parm, set));
    }
  }

  /// The name with its indices; without any where all points have the same.
  [[nodiscard]] std::string fullName(unsigned parm, const std::string& key) const {
    std::string name = rules_.baseName(parm);
    if (all_keys_[parm].size() < 2) return name;
    for (const char digit : key) name += std::string("_") + digit;
    return name;
  }

  [[nodiscard]] std::size_t adjustable(const Set& set) const {
    std::size_t count = 0;
    for (unsigned parm = 0; parm < rules_.basePAR_size(); ++parm) {
      if (!isFixed(parm)) count += keysOf(parm, set).size();
    }
    return count;
  }

  void dropSmallSets(Rejects& rejects) {
    std::vector<Set> kept;
    for (const Set& set : sets_) {
      const std::size_t parameters = adjustable(set);
      if (set.lines.size() > parameters) {
        kept.push_back(set);
      } else if (set.lines.empty()) {
        rejects.add(set.residue->name, "left out: it has no point");
      } else {
        rejects.add(set.residue->name, "left out: too few points, " +
                                           std::to_string(set.lines.size()) + " for " +
                                           std::to_string(parameters) + " parameters");
      }
    }
    sets_ = kept;
    if (sets_.empty()) die("no residue is left");
  }

  void findCurves() {
    for (const Set& set : sets_) {
      for (std::size_t i = 0; i < set.lines.size(); ++i) addToCurve(set, i);
    }
  }

  void addToCurve(const Set& set, std::size_t i) {
    const DataLine& line = set.lines[i];
    const Point& point = set.residue->points[i];
    const std::vector<std::string> tail(line.x.begin() + 1, line.x.end());
    const auto [place, is_new] = curves_.insert({line.label, Curve{}});
    Curve& curve = place->second;
    if (is_new) curve = {labels_.curveName(point), tail, point.at.time, line.x0, true};
    curve.uniform = curve.uniform && curve.x == tail;
    curve.highest = std::max(curve.highest, line.x0);
    x_low_ = std::min(x_low_, line.x0);
    x_high_ = std::max(x_high_, line.x0);
    y_low_ = std::min(y_low_, line.rate);
    y_high_ = std::max(y_high_, line.rate);
  }

  void comment(const std::string& text) { out_ << "# " << text << '\n'; }

  void writeHead() {
    for (const std::string& line : choices_.comments) comment(line);
    for (const std::string& line : labels_.legend()) comment(line);
    const double field = labels_.referenceField();
    std::string ppm =
        "Shift differences are in rad/s at " + shortText(field) + " MHz, where 1 ppm is";
    for (const Nucleus& nucleus : nuclei()) {
      ppm += std::string(&nucleus == nuclei().data() ? " " : ", ") +
             shortText(radPerPpm(nucleus, field), 7) + " of " + nucleus.name;
    }
    bool any = false;
    std::vector<std::string> ranges;
    for (unsigned parm = 0; parm < rules_.basePAR_size(); ++parm) {
      const std::string& name = rules_.baseName(parm);
      if (name.rfind("dw", 0) != 0 || isFixed(parm)) continue;
      any = true;
      const Search search = searchOf(parm, sets_.front(), "");
      ranges.push_back(rangeInPpm(name, search, field));
    }
    if (!any) return;
    comment(ppm + '.');
    if (choices_.shifts_ppm.empty()) {
      for (const std::string& range : ranges) comment(range);
    }
  }

  static std::string rangeInPpm(const std::string& name, const Search& search, double field) {
    std::string text =
        name + " from " + shortText(search.low) + " to " + shortText(search.high) + " rad/s is";
    for (const Nucleus& nucleus : nuclei()) {
      const double unit = radPerPpm(nucleus, field);
      text += std::string(&nucleus == nuclei().data() ? " " : ", ") +
              shortText(search.low / unit, 3) + " to " + shortText(search.high / unit, 3) +
              " ppm of " + nucleus.name;
    }
    return text + '.';
  }

  void writePlots() {
    const double x_tick = tickOf(x_high_ - x_low_);
    const double y_tick = tickOf(y_high_ - y_low_);
    // A little beyond the points, in fifths of a tick.
    const auto down = [](double value, double tick) {
      return std::floor(5.0 * value / tick) * tick / 5.0;
    };
    const auto up = [](double value, double tick) {
      return std::ceil(5.0 * value / tick + 0.5) * tick / 5.0;
    };
    const double left = down(x_low_, x_tick);
    const double right = up(x_high_, x_tick);
    const double bottom = down(y_low_, y_tick);
    const double top = up(y_high_, y_tick);
    out_ << "@ WORLD " << shortText(left) << ", " << shortText(bottom) << ", " << shortText(right)
         << ", " << shortText(top) << '\n'
         << "@ XAXIS TICK MAJOR " << shortText(x_tick) << '\n'
         << "@ YAXIS TICK MAJOR " << shortText(y_tick) << '\n'
         << "@ LEGEND VGAP 2\n";
    for (const auto& [label, curve] : curves_) {
      if (curve.uniform) writePlot(label, curve);
    }
    const bool all = std::all_of(curves_.begin(), curves_.end(),
                                 [](const auto& entry) { return entry.second.uniform; });
    if (!all) comment("No PLOT for labels whose points differ in more than x0.");
  }

  void writePlot(const std::string& label, const Curve& curve) {
    out_ << "PLOT " << curve.name << " *";
    for (const std::string& x : curve.x) out_ << ' ' << x;
    out_ << ' ' << label;
    if (layout_.countedPulses()) {
      // Curves are defined at even numbers of pulses only: steps of two.
      const double low = pulseRate(1.0 / curve.time, curve.time, true);
      const double points = std::round(curve.highest / low);
      out_ << ' ' << shortText(low) << ' ' << shortText(low * points) << ' ' << points;
    }
    out_ << '\n';
  }

  void writeMethods() {
    const std::vector<std::string> methods =
        choices_.methods.empty() ? splitAt(layout_.methods, ';') : choices_.methods;
    for (const std::string& method : methods) out_ << "METHOD " << method << '\n';
  }

  /// The rates of the points that the parameter serves, in ascending order: those of all sets when
  /// it is shared.
  [[nodiscard]] std::vector<double> ratesOf(unsigned parm, const Set& own,
                                            const std::string& key) const {
    std::vector<double> rates;
    for (const Set& set : sets_) {
      if (!isShared(parm) && set.residue != own.residue) continue;
      for (const DataLine& line : set.lines) {
        if (keyOf(parm, line) == key) rates.push_back(line.rate);
      }
    }
    std::sort(rates.begin(), rates.end());
    return rates;
  }

  /// Where R20 is searched: from a little below the lowest rate of these points; off resonance,
  /// where the lowest is near R1, around the middle.
  [[nodiscard]] Search searchR20(unsigned parm, const Set& set, const std::string& key) const {
    const std::vector<double> rates = ratesOf(parm, set, key);
    const bool off_resonance = rules_.index("R1") >= 0;
    const double start = off_resonance ? rates[rates.size() / 2] : rates.front();
    return {0.8 * start, std::max(1.5 * start, rates.back()), 1, start};
  }

  [[nodiscard]] Search searchOf(unsigned parm, const Set& set, const std::string& key) const {
    const std::string& name = rules_.baseName(parm);
    const ParmDefault* standard = findDefault(layout_, name);
    Search search = standard != nullptr ? standard->search : searchR20(parm, set, key);
    const auto shift = choices_.shifts_ppm.find(set.residue->name);
    const bool has_shift = shift != choices_.shifts_ppm.end() && (name == "dw" || name == "dwN");
    if (has_shift) search = searchShift(parm, shift->second);
    for (double* value : {&search.low, &search.high, &search.start}) {
      *value = std::strtod(shortText(*value, kRangeDigits).c_str(), nullptr);
    }
    // What the user chose is not rounded.
    const auto chosen = choices_.searches.find(name);
    if (chosen != choices_.searches.end()) search = chosen->second;
    const double lower = rules_.Get_LowerBound(parm);
    const double upper = rules_.Get_UpperBound(parm);
    for (double* value : {&search.low, &search.high, &search.start}) {
      *value = std::clamp(*value, lower, upper);
    }
    return search;
  }

  /// 30 % around a known shift difference; where the sign counts, that of the angular frequency,
  /// which for 15N is opposite to that in ppm.
  [[nodiscard]] Search searchShift(unsigned parm, double ppm) const {
    const bool negative_ratio = std::string(choices_.nucleus->name) == "15N";
    double value = ppm * radPerPpm(*choices_.nucleus, labels_.referenceField());
    if (negative_ratio) value = -value;
    if (rules_.Get_LowerBound(parm) >= 0.0 || !layout_.spinLock()) value = std::fabs(value);
    const auto [low, high] = std::minmax({0.7 * value, 1.3 * value});
    return {low, high, 3, value};
  }

  void writeRange(const std::string& keyword, const std::string& name, const Search& search) {
    out_ << keyword << ' ' << name << ' ' << shortText(search.low) << ' ' << shortText(search.high)
         << ' ' << search.points << ' ' << shortText(search.start) << '\n';
  }

  void writeShared(unsigned parm) {
    for (const std::string& key : all_keys_[parm]) {
      const std::string name = fullName(parm, key);
      if (isFixed(parm)) {
        out_ << "GFIXED " << name << ' ' << shortText(choices_.fixed.at(rules_.baseName(parm)))
             << '\n';
      } else {
        writeRange("GPAR", name, searchOf(parm, sets_.front(), key));
      }
    }
  }

  void writeParameter(unsigned parm, const Set& set, const std::string& key) {
    const std::string name = fullName(parm, key);
    if (isShared(parm)) {
      out_ << "PAR " << name << ' ' << name << '\n';
    } else if (isFixed(parm)) {
      out_ << "FIXED " << name << ' ' << shortText(choices_.fixed.at(rules_.baseName(parm)))
           << '\n';
    } else {
      writeRange("PAR", name, searchOf(parm, set, key));
    }
  }

  void writeSet(const Set& set) {
    out_ << "\nSET " << set.residue->name << '\n';
    for (const Reference& reference : set.residue->references) {
      comment("I0 at " + describe(reference.at) + ": " + shortText(reference.intensity) +
              ", from " + std::to_string(reference.points));
    }
    const auto shift = choices_.shifts_ppm.find(set.residue->name);
    if (shift != choices_.shifts_ppm.end()) {
      const double rad = shift->second * radPerPpm(*choices_.nucleus, labels_.referenceField());
      comment("Shift difference " + shortText(shift->second) + " ppm of " + choices_.nucleus->name +
              ", " + shortText(std::fabs(rad), 7) + " rad/s");
    }
    for (unsigned parm = 0; parm < rules_.basePAR_size(); ++parm) {
      for (const std::string& key : keysOf(parm, set)) writeParameter(parm, set, key);
    }
    for (const DataLine& line : set.lines) {
      out_ << "DATA";
      for (const std::string& x : line.x) out_ << ' ' << x;
      out_ << ' ' << line.label << ' ' << shortText(line.rate) << ' ' << shortText(line.error)
           << '\n';
    }
  }

  const Choices& choices_;
  const Layout& layout_;
  const Rules rules_;
  const Labels labels_;
  std::vector<Set> sets_;
  std::vector<Keys> all_keys_;  ///< of each parameter, over all sets
  std::map<std::string, Curve> curves_;
  double x_low_ = 0.0;
  double x_high_ = 0.0;
  double y_low_ = 0.0;
  double y_high_ = 0.0;
  std::ostringstream out_;
};

}  // namespace

void checkChoices(Choices& choices) {
  const Rules rules = rulesOf(choices);
  std::vector<std::string> shared;
  for (const std::string& name : choices.shared) {
    if (!equalIgnoringCase(name, "all")) {
      shared.push_back(modelName(rules, name));
      continue;
    }
    for (unsigned parm = 0; parm < rules.basePAR_size(); ++parm) {
      const ParmDefault* standard = findDefault(*choices.layout, rules.baseName(parm));
      if (standard != nullptr && standard->shared) shared.push_back(rules.baseName(parm));
    }
  }
  choices.shared = shared;
  useModelNames(rules, choices.searches);
  useModelNames(rules, choices.fixed);
  std::string concentration;  // the first that is not stated
  for (unsigned parm = 0; parm < rules.basePAR_size(); ++parm) {
    const std::string& name = rules.baseName(parm);
    const bool known = findDefault(*choices.layout, name) != nullptr || name == "R20" ||
                       choices.searches.count(name) + choices.fixed.count(name) > 0;
    if (!known && concentration.empty()) concentration = name;
  }
  if (!concentration.empty()) {
    die("state the concentration " + concentration + ", in mol/l: --fix " + concentration +
        "=VALUE");
  }
  for (const std::string& method : choices.methods) checkMethod(method);
}

std::string writeInput(const std::vector<Residue>& residues, const Choices& choices,
                       Rejects& rejects) {
  return Writer(residues, choices, rejects).text();
}
