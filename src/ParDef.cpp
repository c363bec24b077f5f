// What the input declares: sets, parameters, data points, and how they belong together.
// SPDX-License-Identifier: GPL-3.0-or-later
#include "ParDef.h"

#include "Fatal.h"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <utility>

// ---- one element ----

namespace {

/// The length of the search range in the units in which a spacing code walks it.
double gridLength(double range, int interval) {
  switch (interval) {
    case 1:
    case 4: return std::log(range);
    case 2:
    case 5: return std::sqrt(std::log(range));
    case 3:
    case 6: return std::log10(range);
    default: return range;
  }
}

/// Truncates a spacing code; what no int can hold is no known code.
int spacingCode(double interval) {
  constexpr int kUnknown = -1;
  return std::abs(interval) < 100.0 ? static_cast<int>(interval) : kUnknown;
}

}  // namespace

void Elem::setGrid(double new_start, double new_end, int new_steps, double new_interval,
                   double new_initial) {
  type = kAdjustable;
  start = new_start;
  end = new_end;
  range = end - start;
  steps = new_steps;
  interval = spacingCode(new_interval);
  step = 0.0;
  if (steps >= 2 && interval >= 0 && interval <= 6) {
    step = gridLength(range, interval) / (steps - 1);
  }
  initial = std::isfinite(new_initial) ? new_initial : start;
}

void Elem::setFixed(double value) {
  type = kFixed;
  start = end = initial = value;
}

void Elem::Restraint(double low, double high) {
  legal_low = low;
  legal_high = high;
}

// ---- while the input is read ----

void ParDef::Add_Set(const std::string& name) {
  closeSet();
  Set set;
  set.title = name;
  set.first_elem = PAR_size();
  sets_.push_back(std::move(set));
  set_open_ = true;
}

void ParDef::Add_PAR(const std::string& name, double start, double end, int steps, double interval,
                     double initial) {
  addSetElem(name).setGrid(start, end, steps, interval, initial);
}

void ParDef::Add_PAR(const std::string& name, const std::string& global_name) {
  Add_ParmMap(Find_GPAR(name, global_name), name);
}

void ParDef::Add_REST(const std::string& name, double start, double end, int steps, double interval,
                      double initial) {
  Elem& elem = addSetElem(name);
  elem.setGrid(start, end, steps, interval, initial);
  elem.Restraint(start, end);
  elem.restrained = true;
}

void ParDef::Add_FIXED(const std::string& name, double value) { addSetElem(name).setFixed(value); }

void ParDef::Add_GPAR(const std::string& name, double start, double end, int steps, double interval,
                      double initial) {
  addGlobalElem(name).setGrid(start, end, steps, interval, initial);
}

void ParDef::Add_GREST(const std::string& name, double start, double end, int steps,
                       double interval, double initial) {
  Elem& elem = addGlobalElem(name);
  elem.setGrid(start, end, steps, interval, initial);
  elem.Restraint(start, end);
  elem.restrained = true;
}

void ParDef::Add_GFIXED(const std::string& name, double value) {
  addGlobalElem(name).setFixed(value);
}

Elem& ParDef::addSetElem(const std::string& name) {
  addElem(sets_.back().title, name);
  Add_ParmMap(PAR_size() - 1, name);
  return elems_.back();
}

Elem& ParDef::addGlobalElem(const std::string& name) {
  Elem& elem = addElem("GLOBAL", name);
  elem.global_scope = true;
  globals_.try_emplace(name, PAR_size() - 1);  // of two with one name the first is meant
  return elem;
}

Elem& ParDef::addElem(const std::string& scope, const std::string& name) {
  Elem elem;
  elem.name = name;
  elem.full_name = scope + "::" + name;
  elems_.push_back(std::move(elem));
  return elems_.back();
}

void ParDef::Add_ParmMap(int elem, const std::string& name) {
  uses_rules_ = true;
  Declaration declaration{elem, 0, {}, name};
  declaration.base = rules_.decompose(name, declaration.index);
  sets_.back().declarations.push_back(std::move(declaration));
}

int ParDef::Find_GPAR(const std::string& parm, const std::string& global_name) const {
  const auto found = globals_.find(global_name);
  if (found != globals_.end()) return found->second;
  fatal("ERROR: Set '" + sets_.back().title + "' par '" + parm + "' references unknown variable '" +
        global_name + "'\n");
}

void ParDef::Add_DATA(std::vector<double> x, std::vector<int> labels, double y, double dy) {
  uses_rules_ = true;
  Data point;
  point.set = SETsize() - 1;
  point.x = std::move(x);
  point.index = std::move(labels);
  point.y = y;
  point.dy = dy;
  point.parmap = Get_nPARs(point.index);
  point.w = 1.0 / dy;
  sets_.back().points.push_back(DATAsize());
  points_.push_back(std::move(point));
}

// ---- mapping of points onto the parameter vector ----

namespace {

bool matches(const Declaration& declaration, int base, const std::vector<int>& labels) {
  if (declaration.base != base) return false;
  for (std::size_t i = 0; i < declaration.index.size(); ++i) {
    if (declaration.index[i] < 0) continue;
    if (i >= labels.size() || declaration.index[i] != labels[i]) return false;
  }
  return true;
}

}  // namespace

int ParDef::match_local(int base, int set, const std::vector<int>& labels) const {
  const std::vector<Declaration>& list = declarations(set);
  const auto found = std::find_if(list.begin(), list.end(),
                                  [&](const Declaration& d) { return matches(d, base, labels); });
  return found == list.end() ? -1 : static_cast<int>(found - list.begin());
}

int ParDef::match_local(int base, const std::vector<int>& labels) const {
  return match_local(base, SETsize() - 1, labels);
}

std::vector<int> ParDef::Get_nPARs(const std::vector<int>& labels) const {
  const Set& set = sets_.back();
  std::vector<int> parmap(rules_.basePAR_size());
  for (std::size_t k = 0; k < parmap.size(); ++k) {
    const int found = match_local(static_cast<int>(k), labels);
    if (found < 0) {
      std::string name;
      rules_.markup(name, static_cast<int>(k), &labels);
      // No blank between "of" and "parameter": readers of the message know this form.
      fatal("ERROR: Set '" + set.title + "' missing declaration ofparameter '" + name + "'\n");
    }
    parmap[k] = set.declarations[static_cast<std::size_t>(found)].elem;
  }
  return parmap;
}

void ParDef::Get_datamap(Data& point, int set) const {
  point.parmap.resize(rules_.basePAR_size());
  for (std::size_t k = 0; k < point.parmap.size(); ++k) {
    const int found = match_local(static_cast<int>(k), set, point.index);
    if (found < 0) continue;
    point.parmap[k] = declarations(set)[static_cast<std::size_t>(found)].elem;
  }
}

// ---- closing a set ----

void ParDef::closeSet() {
  if (!set_open_) return;
  set_open_ = false;
  Set& set = sets_.back();
  set.lDoF = Calc_lDoF(set);
  if (set.lDoF > 0) {
    Store_SET();
    return;
  }
  std::cout << "WARNING: Too few data points. '" << set.title << "' is omitted.\n" << std::flush;
  Remove_SET();
}

int ParDef::Calc_lDoF(const Set& set) const {
  const auto adjustable = std::count_if(set.declarations.begin(), set.declarations.end(),
                                        [this](const Declaration& d) { return !isFIXED(d.elem); });
  return static_cast<int>(set.points.size()) - static_cast<int>(adjustable);
}

void ParDef::Store_SET() {
  Set& set = sets_.back();
  for (const Declaration& declaration : set.declarations) {
    Elem& elem = elems_[static_cast<std::size_t>(declaration.elem)];
    elem.Add_nSetByPAR(SETsize() - 1);
    elem.base = declaration.base;
    if (!elem.restrained) {
      const auto base = static_cast<unsigned>(declaration.base);
      elem.Restraint(rules_.Get_LowerBound(base), rules_.Get_UpperBound(base));
    }
    if (std::find(set.parms.begin(), set.parms.end(), declaration.elem) == set.parms.end()) {
      set.parms.push_back(declaration.elem);
    }
  }
}

void ParDef::Remove_SET() {
  const Set& set = sets_.back();
  points_.resize(points_.size() - set.points.size());
  // Globals that were declared after the set was opened stay.
  elems_.erase(std::remove_if(elems_.begin() + set.first_elem, elems_.end(),
                              [](const Elem& elem) { return elem.isLocal(); }),
               elems_.end());
  for (int i = PAR_size() - 1; i >= set.first_elem; --i) {
    int& number = globals_[Name(i)];
    if (number >= set.first_elem) number = i;
  }
  sets_.pop_back();
}

// ---- after the input ----

void ParDef::prep() {
  closeSet();
  findFixed();
  Calc_gDoF();
  has_globals_ =
      std::any_of(elems_.begin(), elems_.end(), [](const Elem& elem) { return elem.isGlobal(); });
  listPoints();
  findUsed();
  warnUnused();
}

void ParDef::findFixed() {
  fixed_.assign(elems_.size(), false);
  for (std::size_t i = 0; i < elems_.size(); ++i) fixed_[i] = elems_[i].type == Elem::kFixed;
}

void ParDef::Calc_gDoF() {
  gDoF_ = DATAsize() - static_cast<int>(std::count(fixed_.begin(), fixed_.end(), false));
  if (gDoF_ < 1) {
    // The '#' makes the line a comment for readers of a report.
    fatal("#ERROR: More adjustable parameters than data points.\n", std::cout);
  }
}

void ParDef::findUsed() {
  used_.assign(elems_.size(), false);
  for (const Data& point : points_) {
    for (const int parm : point.parmap) used_[static_cast<std::size_t>(parm)] = true;
  }
}

void ParDef::warnUnused() const {
  std::vector<bool> named(elems_.size(), false);
  for (const Set& set : sets_) {
    for (const Declaration& declaration : set.declarations) {
      const int parm = declaration.elem;
      const auto i = static_cast<std::size_t>(parm);
      if (isFIXED(parm) || isUsed(parm) || named[i]) continue;
      named[i] = true;
      std::cerr << "WARNING (" << set.title << "): Parameter '" << declaration.name
                << "' is not used by any data point\n";
    }
  }
}

void ParDef::listPoints() {
  all_points_.resize(points_.size());
  std::iota(all_points_.begin(), all_points_.end(), 0);
  for (Set& set : sets_) {
    for (const int point : set.points) {
      const std::vector<int>& labels = DATA(point).index;
      if (std::find(set.labels.begin(), set.labels.end(), labels) == set.labels.end()) {
        set.labels.push_back(labels);
      }
    }
  }
}

// ---- data points during an error analysis ----

int ParDef::takeFirstPoint() {
  const int point = all_points_.front();
  all_points_.erase(all_points_.begin());
  takeFirstPoint(DATA(point).set);  // it is the first there, too: both lists turn alike
  return point;
}

void ParDef::putPointBack(int point) {
  all_points_.push_back(point);
  appendPoint(DATA(point).set, point);
}

void ParDef::takeFirstPoint(int set) { at(set).points.erase(at(set).points.begin()); }

std::vector<double> ParDef::values() const {
  std::vector<double> values;
  values.reserve(points_.size());
  for (const Data& point : points_) values.push_back(point.y);
  return values;
}

void ParDef::setValues(const std::vector<double>& values) {
  for (std::size_t i = 0; i < points_.size(); ++i) points_[i].y = values[i];
}
