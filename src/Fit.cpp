// The front of the fitting engine: construction, the method list, the console.
// SPDX-License-Identifier: GPL-3.0-or-later
#include "Fit.h"

#include "Fatal.h"
#include "Text.h"

#include <algorithm>
#include <iomanip>
#include <iostream>
#include <map>
#include <sstream>
#include <utility>

// ---- construction ----

namespace {

// A double has at most 767 significant digits. More would print the same, but streams may overflow
// the stack on the way.
constexpr int kMostDigits = 767;

}  // namespace

Fit::Fit(std::string version, const Funclib& funclib, const Method& method, ParDef& pardef,
         Calc& calc, const Xmgr& xmgr, std::string output_file, int verbosity, int precision,
         const Random& random)
    : version_(std::move(version)),
      funclib_(funclib),
      method_(method),
      pardef_(pardef),
      calc_(calc),
      xmgr_(xmgr),
      output_file_(std::move(output_file)),
      verbosity_(verbosity),
      precision_(std::min(precision, kMostDigits)),
      random_(random) {
  const auto sets = static_cast<std::size_t>(pardef_.SETsize());
  const auto parms = static_cast<std::size_t>(pardef_.PAR_size());
  for (ParSet* set : {&work_, &best_, &saved_, &grid_, &random_start_, &trial_, &nested_trial_,
                      &centre_, &spread_}) {
    set->resize(sets, parms);
  }
  dydp_.resize(parms);
  std_error_.resize(parms);
  scratch_.resize(funclib_.Get_Rules().basePAR_size());
  buildSetMats();
  buildGlobalMat();
  buildFootprints();
  sizeWork();
  calc_.prep(sets);
  // No report shows more of them: those of the methods here, or of the two that replace them in an
  // error analysis. The passes of an analysis add none that are shown.
  constexpr int kReplacedMethods = 2;
  most_chi_lines_ = asIndex(std::max(method_.size(), kReplacedMethods));
}

void Fit::buildSetMats() {
  for (int set = 0; set < pardef_.SETsize(); ++set) {
    set_mats_.push_back(localMat(set));
    if (set_mats_.back().parms.empty()) {
      std::cerr << "WARNING (" << pardef_.TITLE(set) << "): All parameters are fixed\n";
    }
  }
}

FitMat Fit::localMat(int set) const {
  const std::vector<int>& parms = pardef_.parms(set);
  std::vector<std::pair<int, int>> solved;  // parameter, row: ordered by parameter
  for (std::size_t row = 0; row < parms.size(); ++row) {
    const int parm = parms[row];
    if (!pardef_.elem(parm).IsLocalNonFIXED(set) || !pardef_.isUsed(parm)) continue;
    solved.emplace_back(parm, static_cast<int>(row));
  }
  std::sort(solved.begin(), solved.end());
  FitMat mat;
  mat.set = set;
  for (const auto& [parm, row] : solved) {
    mat.parms.push_back(parm);
    mat.rows.push_back(row);
  }
  return mat;
}

void Fit::buildGlobalMat() {
  std::vector<int> global_row(static_cast<std::size_t>(pardef_.PAR_size()), -1);
  for (int parm = 0; parm < pardef_.PAR_size(); ++parm) {
    if (!pardef_.isGlobal(parm) || !pardef_.isUsed(parm)) continue;
    global_row[asIndex(parm)] = global_mat_.size();
    global_mat_.rows.push_back(global_mat_.size());
    global_mat_.parms.push_back(parm);
  }
  for (int set = 0; set < pardef_.SETsize(); ++set) {
    SharedRows& shared = shared_rows_.emplace_back();
    const std::vector<int>& parms = pardef_.parms(set);
    for (std::size_t row = 0; row < parms.size(); ++row) {
      const int global = global_row[asIndex(parms[row])];
      if (global < 0) continue;
      shared.set_rows.push_back(static_cast<int>(row));
      shared.global_rows.push_back(global);
    }
  }
}

void Fit::buildFootprints() {
  footprint_of_.resize(asIndex(pardef_.DATAsize()));
  for (int set = 0; set < pardef_.SETsize(); ++set) {
    std::map<std::vector<int>, int> known;  // a set has as many as combinations of labels
    for (const int point : pardef_.points(set)) {
      const std::vector<int>& parmap = pardef_.DATA(point).parmap;
      const auto [entry, is_new] = known.try_emplace(parmap, static_cast<int>(footprints_.size()));
      if (is_new) footprints_.push_back(footprintOf(parmap, set));
      footprint_of_[asIndex(point)] = entry->second;
    }
  }
}

Fit::Footprint Fit::footprintOf(const std::vector<int>& parmap, int set) const {
  Footprint footprint;
  const std::vector<int>& parms = pardef_.parms(set);
  for (std::size_t row = 0; row < parms.size(); ++row) {
    if (std::find(parmap.begin(), parmap.end(), parms[row]) == parmap.end()) continue;
    footprint.parms.push_back(parms[row]);
    footprint.rows.push_back(static_cast<int>(row));
  }
  return footprint;
}

void Fit::sizeWork() {
  std::size_t most = global_mat_.parms.size();
  for (const FitMat& mat : set_mats_) most = std::max(most, mat.parms.size());
  solved_alpha_.resize(most * most);
  solved_beta_.resize(most);
  step_.resize(most);
  std::size_t most_parms = 0;
  for (int set = 0; set < pardef_.SETsize(); ++set) {
    most_parms = std::max(most_parms, pardef_.parms(set).size());
  }
  slopes_.resize(most_parms);
}

// ---- the method list ----

namespace {

/// The name of a method in stage directories; null for an unknown type.
const char* directoryLabel(int type) {
  switch (type) {
    case kInit: return "INIT";
    case kOne: return "ONE";
    case kOneEx: return "ONEEX";
    case kGrid: return "GRID";
    case kRandom: return "RANDOM";
    case kMcMin: return "MCMIN";
    case kRmcMin: return "RMCMIN";
    default: return nullptr;
  }
}

}  // namespace

void Fit::run_FIT(bool jack) {
  start_time_ = std::time(nullptr);
  in_pass_ = jack;
  if (!jack) tryCalcs();
  display_chi_header();
  for (int i = 0; i < method_.size(); ++i) {
    runMethod(i, jack);
    if (verbosity_ == 2 && !jack) make_dir(i, directoryLabel(method_.Type(i)));
  }
  calc_covar(best_);
  if (!jack) saved_ = best_;
  in_pass_ = false;
  end_time_ = std::time(nullptr);
}

void Fit::runMethod(int i, bool jack) {
  const int iter = method_.Iter(i);
  const double scale = method_.Scale(i);
  switch (method_.Type(i)) {
    case kInit: run_INIT(i, jack); break;
    case kOne: run_ONE(i); break;
    case kOneEx: run_ONEEX(i); break;
    case kGrid: run_GRID(i); break;
    case kRandom: run_RANDOM(i, iter); break;
    case kMcMin: run_MCMIN(i, iter, scale); break;
    case kRmcMin: run_RMCMIN(i, iter, method_.IterMC(i), scale); break;
    default: fatal("");
  }
}

// ---- derived quantities ----

double Fit::run_CALC(int set, int i, const ParSet& at) {
  Data& data = calc_.getData(i);
  // A line that was read under a model with fewer columns lacks some.
  data.x.resize(std::max(data.x.size(), asIndex(funclib_.Get_dimX())));
  pardef_.Get_datamap(data, set);
  return calc_.run(i, at.par, funclib_.Func(), pardef_.labels(set), dydp_, pardef_.fixedFlags());
}

void Fit::tryCalcs() {
  // A quantity may lie where a model ends the run: then before the fit, not in the middle of a
  // report.
  for (int parm = 0; parm < pardef_.PAR_size(); ++parm) {
    work_.par[asIndex(parm)] = pardef_.grd_initial(parm);
  }
  for (int set = 0; set < pardef_.SETsize(); ++set) {
    for (int i = 0; i < calc_.size(); ++i) run_CALC(set, i, work_);
  }
}

void Fit::storeCalcResults() {
  for (int set = 0; set < pardef_.SETsize(); ++set) {
    for (int i = 0; i < calc_.size(); ++i) calc_.storeResult(set, i, run_CALC(set, i, saved_));
  }
}

// ---- console ----

void Fit::display_chi_header() const {
  if (!reportsToConsole()) return;
  const std::string rule(is_global() ? 66 : 73, '-');
  std::cerr << rule << '\n'
            << (is_global()
                    ? "  METHOD (      #/  total)         X2/DoF            | best X2/DoF"
                    : "  METHOD (set ,       #/  total)          X2/DoF           | best X2/DoF")
            << '\n'
            << rule << '\n';
}

void Fit::display_chi(int method, const std::string& label, int set, long long counter,
                      long long total, double best, double start, double result) {
  if (!reportsToConsole()) return;
  std::ostringstream line;
  line << '\r' << method << '.' << std::left << std::setw(6) << label << std::right << " (";
  if (set != 0) line << std::setw(4) << set << ", ";
  line << std::setw(7) << counter << '/' << std::setw(7) << total;
  if (method == 0) {
    line << ')' << std::string(16, ' ');
    writeConsoleNumber(line, best);
  } else {
    line << ")  ";
    writeConsoleNumber(line, start);
    line << " -> ";
    writeConsoleNumber(line, result);
  }
  line << " | ";
  writeConsoleNumber(line, best);
  std::cerr << line.str();
}

void Fit::writeConsoleNumber(std::ostream& out, double chi) {
  const double x = shown(chi / pardef_.gDoF());
  const bool is_extreme = x != 0.0 && !(1e-5 < x && x < 100000.0);
  // Once an extreme number was shown, the console keeps its 5 digits for all that follow.
  if (is_extreme) console_precision_ = 5;
  out << std::setprecision(console_precision_);
  if (is_extreme) {
    out << std::showpoint << x << std::noshowpoint;
  } else {
    out << std::setw(10) << x;
  }
}

void Fit::endConsoleLine() const {
  if (reportsToConsole()) std::cerr << '\n';
}
