// Search strategies: each proposes starting points, minimises from them and keeps the best result.
// SPDX-License-Identifier: GPL-3.0-or-later
//
// Between two local strategies the working set agrees with the best one in every set but the one
// last worked on, so that starting over moves only the values of one set.
#include "Fatal.h"
#include "Fit.h"
#include "Text.h"

#include <cmath>
#include <iostream>
#include <limits>
#include <sstream>

// ---- shared steps ----

template <class RunLocal>
void Fit::forEachSet(RunLocal run_local) {
  for (int set = 0; set < pardef_.SETsize(); ++set) run_local(set);
  endConsoleLine();
}

void Fit::restart(int set) { work_.copy(best_, pardef_.parms(set), set); }

double Fit::minimizeWork(int set) {
  const double chi = minimize_local(work_, set);
  work_.setChi(set, chi);
  return chi;
}

double Fit::minimizeWork() {
  const double chi = minimize_global(work_);
  work_.setTotal(chi);
  return chi;
}

void Fit::keep(int set) { best_.copy(work_, pardef_.parms(set), set); }

void Fit::evaluateWork(int set) {
  calc_chi(work_, set);
  work_.useEvaluatedTotal();
}

double Fit::totalToShow(const ParSet& at) const {
  // With many sets the sum costs more than a fit of one: it is not made when nobody looks.
  return reportsToConsole() ? at.total() : 0.0;
}

void Fit::store_chi2(const std::string& label, double value) {
  if (chi_lines_.size() == most_chi_lines_) return;
  std::ostringstream line;
  line << label << shown(value);
  chi_lines_.push_back(line.str());
}

// ---- INIT ----

void Fit::run_INIT(int method, bool restart) {
  if (restart) {
    best_ = saved_;
  } else {
    check_parm_range(best_);
  }
  evaluateStart(method);
  store_chi2("# INIT         X2/DoF = ", chiPerDoF());
}

void Fit::evaluateStart(int method) {
  calc_chi(best_);
  if (!best_.isFinite()) std::cerr << "WARNING: Bad initial parameters\n";
  work_ = best_;
  const double total = totalToShow(best_);
  display_chi(method, "INIT", is_global() ? 0 : pardef_.SETsize(), 1, 1, total, total, total);
  endConsoleLine();
}

bool Fit::startIsUsable() const {
  if (!in_pass_) check_chi(best_);
  return best_.isFinite();
}

// ---- ONE ----

void Fit::run_ONE(int method) {
  if (!startIsUsable()) {
    // the pass stays as it is
  } else if (is_global()) {
    run_globalONE(method);
  } else {
    forEachSet([&](int set) { run_localONE(method, set); });
  }
  store_chi2("# ONE          X2/DoF = ", chiPerDoF());
}

void Fit::run_localONE(int method, int set) {
  restart(set);
  const double start = totalToShow(work_);
  const double chi = minimizeWork(set);
  if (std::isfinite(chi) && chi < best_.chi(set)) {
    keep(set);
  } else {
    restart(set);
  }
  display_chi(method, "ONE", set + 1, 1, 1, totalToShow(best_), start, totalToShow(work_));
}

void Fit::run_globalONE(int method) {
  work_ = best_;
  const double start = work_.total();
  const double chi = minimizeWork();
  if (std::isfinite(chi) && chi < best_.total()) best_ = work_;
  display_chi(method, "ONE", 0, 1, 1, best_.total(), start, chi);
}

// ---- ONEEX ----

void Fit::run_ONEEX(int method) {
  if (!startIsUsable()) {
    // the pass stays as it is
  } else if (is_global()) {
    run_globalONEEX(method);
  } else {
    forEachSet([&](int set) { run_localONEEX(method, set); });
  }
  store_chi2("# ONEEX        X2/DoF = ", chiPerDoF());
}

void Fit::run_localONEEX(int method, int set) {
  restart(set);
  bool fell = true;
  for (bool first = true; fell; first = false) {
    const double start = totalToShow(work_);
    const double start_chi = work_.chi(set);
    const double chi = minimizeWork(set);
    const bool better = std::isfinite(chi) && chi < best_.chi(set);
    if (better) {
      keep(set);
    } else {
      restart(set);
    }
    display_chi(method, "ONEEX", set + 1, 1, 1, totalToShow(best_), start, totalToShow(work_));
    // The first pass is held against infinity, as in a global fit: a second one follows it.
    fell = first ? work_.isFinite() : better && work_.sumFellFrom(set, start_chi);
  }
}

void Fit::run_globalONEEX(int method) {
  work_ = best_;
  double before = std::numeric_limits<double>::infinity();
  for (bool fell = true; fell;) {
    const double start = work_.total();
    const double chi = minimizeWork();
    if (std::isfinite(chi) && chi < best_.total()) {
      best_ = work_;
    } else {
      work_ = best_;
    }
    display_chi(method, "ONEEX", 0, 1, 1, best_.total(), start, work_.total());
    fell = work_.total() < before;
    before = work_.total();
  }
}

// ---- GRID ----

namespace {

/// Walks the grid of some parameters, the first one fastest.
class GridWalk {
 public:
  /// Ends the run when the number of grid points is beyond counting.
  GridWalk(const ParDef& pardef, const std::vector<int>& parms) : parms_(parms) {
    for (const int parm : parms) {
      const int size = pardef.grd_size(parm);
      sizes_.push_back(size);
      // A grid without points in one direction has none at all.
      if (size < 1 || points_ == 0) {
        points_ = 0;
      } else if (points_ > std::numeric_limits<long long>::max() / size) {
        fatal("ERROR: The number of grid points is too large.\n");
      } else {
        points_ *= size;
      }
    }
    counters_.assign(parms.size(), 0);
  }

  [[nodiscard]] long long points() const { return points_; }
  /// Sets the parameters of `at` to the current grid point.
  void apply(const Fit& fit, ParSet& at) const {
    for (std::size_t i = 0; i < parms_.size(); ++i) {
      at.par[static_cast<std::size_t>(parms_[i])] = fit.set_grid(parms_[i], counters_[i]);
    }
  }
  void advance() {
    for (std::size_t i = 0; i < counters_.size(); ++i) {
      if (++counters_[i] < sizes_[i]) return;
      counters_[i] = 0;
    }
  }

 private:
  const std::vector<int>& parms_;
  std::vector<int> sizes_;
  std::vector<int> counters_;
  long long points_ = 1;
};

}  // namespace

double Fit::set_grid(int parm, int i) const {
  const double start = pardef_.grd_start(parm);
  const double end = pardef_.grd_end(parm);
  const int interval = pardef_.grd_interval(parm);
  if (i == 0) return interval >= 4 && interval <= 6 ? end : start;
  const double length = i * pardef_.grd_step(parm);
  switch (interval) {
    case 0: return start + length;
    case 1: return start + std::exp(length);
    case 2: return start + std::exp(length * length);
    case 3: return start + std::pow(10.0, length);
    case 4: return end - std::exp(length);
    case 5: return end - std::exp(length * length);
    case 6: return end - std::pow(10.0, length);
    default: return start;
  }
}

void Fit::run_GRID(int method) {
  if (is_global()) {
    run_globalGRID(method);
  } else {
    forEachSet([&](int set) { run_localGRID(method, set); });
  }
  store_chi2("# GRID         X2/DoF = ", chiPerDoF());
}

void Fit::run_localGRID(int method, int set) {
  restart(set);
  GridWalk grid(pardef_, pardef_.parms(set));
  for (long long point = 1; point <= grid.points(); ++point) {
    grid.apply(*this, work_);
    evaluateWork(set);
    const double start = totalToShow(work_);
    const double chi = minimizeWork(set);
    if (std::isfinite(chi) && chi < best_.chi(set)) keep(set);
    display_chi(method, "GRID", set + 1, point, grid.points(), totalToShow(best_), start,
                totalToShow(work_));
    grid.advance();
  }
  restart(set);
}

void Fit::run_globalGRID(int method) {
  work_ = best_;
  std::vector<int> globals;
  for (int parm = 0; parm < pardef_.PAR_size(); ++parm) {
    if (pardef_.isGlobal(parm)) globals.push_back(parm);
  }
  GridWalk grid(pardef_, globals);
  for (long long point = 1; point <= grid.points(); ++point) {
    grid.apply(*this, work_);
    calc_chi(work_);
    const double start = work_.total();
    ParSet candidate = work_;
    for (int set = 0; set < pardef_.SETsize(); ++set) searchLocalGrid(set, candidate);
    candidate.setTotal(minimize_global(candidate));
    if (candidate.isFinite() && candidate.total() < best_.total()) best_ = candidate;
    display_chi(method, "GRID", 0, point, grid.points(), best_.total(), start, candidate.total());
    grid.advance();
  }
}

void Fit::searchLocalGrid(int set, ParSet& candidate) {
  std::vector<int> locals;
  for (const int parm : pardef_.parms(set)) {
    if (!pardef_.isGlobal(parm)) locals.push_back(parm);
  }
  ParSet& trial = grid_;
  trial.copy(candidate, pardef_.parms(set), set);
  GridWalk grid(pardef_, locals);
  for (long long point = 1; point <= grid.points(); ++point) {
    grid.apply(*this, trial);
    trial.setChi(set, minimize_local(trial, set));
    if (std::isfinite(trial.chi(set)) && trial.chi(set) < candidate.chi(set)) {
      candidate.copy(trial, pardef_.parms(set), set);
    }
    grid.advance();
  }
}

// ---- RANDOM ----

template <class Draw>
double Fit::drawLegal(int parm, Draw draw) const {
  constexpr int kMostDraws = 1000000;  // in a row without a legal one: there will be none
  for (int i = 0; i < kMostDraws; ++i) {
    const double value = draw();
    if (pardef_.isLegal(parm, value)) return value;
  }
  fatal("ERROR: No legal value can be drawn for parameter '" + pardef_.FullName(parm) + "'\n");
}

void Fit::rand_parm(int parm, ParSet& at) {
  double& value = at.par[asIndex(parm)];
  const double range = pardef_.grd_range(parm);
  if (!(range > 0.0) || !pardef_.isGRID(parm)) {
    value = pardef_.grd_start(parm);
    return;
  }
  value = drawLegal(parm, [&] { return pardef_.grd_start(parm) + range * random_.unirand(); });
}

void Fit::run_RANDOM(int method, int iter) {
  if (is_global()) {
    run_globalRANDOM(method, iter);
    endConsoleLine();
  } else {
    forEachSet([&](int set) { run_localRANDOM(method, set, iter); });
  }
  store_chi2("# RANDOM       X2/DoF = ", chiPerDoF());
}

bool Fit::drawWork(int set, double& start) {
  for (const int parm : pardef_.parms(set)) rand_parm(parm, work_);
  evaluateWork(set);
  start = totalToShow(work_);
  const double chi = minimizeWork(set);
  if (!std::isfinite(chi)) return false;
  if (!best_.isFinite() || best_.chi(set) > chi) keep(set);
  return true;
}

bool Fit::drawWork(double& start) {
  for (int parm = 0; parm < pardef_.PAR_size(); ++parm) rand_parm(parm, work_);
  start = calc_chi(work_);
  const double chi = minimizeWork();
  if (!std::isfinite(chi)) return false;
  if (!best_.isFinite() || best_.total() > chi) best_ = work_;
  return true;
}

void Fit::run_localRANDOM(int method, int set, int iter) {
  restart(set);
  for (long long i = 1; i <= iter; ++i) {
    double start = 0.0;
    if (!drawWork(set, start)) continue;
    display_chi(method, "RANDOM", set + 1, i, iter, totalToShow(best_), start, totalToShow(work_));
  }
  restart(set);
}

void Fit::run_globalRANDOM(int method, int iter) {
  work_ = best_;
  for (long long i = 1; i <= iter; ++i) {
    double start = 0.0;
    if (!drawWork(start)) continue;
    display_chi(method, "RANDOM", 0, i, iter, best_.total(), start, work_.total());
  }
}

// ---- MCMIN ----

void Fit::mc_parm(int parm, ParSet& at, double scale) {
  if (!pardef_.isGRID(parm)) return;
  double& value = at.par[asIndex(parm)];
  const double old = value;
  value = drawLegal(parm, [&] { return (random_.gaussrand() * scale + 1.0) * old; });
}

void Fit::run_MCMIN(int method, int iter, double scale) {
  if (!startIsUsable()) {
    // the pass stays as it is
  } else if (is_global()) {
    run_globalMCMIN(method, iter, scale);
    endConsoleLine();
  } else {
    forEachSet([&](int set) { run_localMCMIN(method, set, iter, scale); });
  }
  store_chi2("# MCMIN        X2/DoF = ", chiPerDoF());
}

void Fit::run_localMCMIN(int method, int set, int iter, double scale) {
  // Ends after `iter` trials in a row without a gain; the trial that gains counts as the first.
  for (int counter = 0; counter < iter;) {
    restart(set);
    for (const int parm : pardef_.parms(set)) mc_parm(parm, work_, scale);
    evaluateWork(set);
    const double start = totalToShow(work_);
    const bool tried = work_.isFinite() && std::isfinite(minimizeWork(set));
    if (tried && work_.chi(set) < best_.chi(set)) {
      keep(set);
      counter = 1;
    } else {
      ++counter;
    }
    if (!tried) continue;
    display_chi(method, "MCMIN", set + 1, counter, iter, totalToShow(best_), start,
                totalToShow(work_));
  }
  restart(set);
}

void Fit::run_globalMCMIN(int method, int iter, double scale) {
  for (int counter = 0; counter < iter;) {
    work_ = best_;
    for (int parm = 0; parm < pardef_.PAR_size(); ++parm) mc_parm(parm, work_, scale);
    const double start = calc_chi(work_);
    const bool tried = work_.isFinite() && std::isfinite(minimizeWork());
    if (tried && work_.total() < best_.total()) {
      best_ = work_;
      counter = 1;
    } else {
      ++counter;
    }
    if (!tried) continue;
    display_chi(method, "MCMIN", 0, counter, iter, best_.total(), start, work_.total());
  }
}

// ---- RMCMIN ----

void Fit::run_RMCMIN(int method, int iter, int iter_mc, double scale) {
  if (is_global()) {
    run_globalRMCMIN(method, iter, iter_mc, scale);
    endConsoleLine();
  } else {
    forEachSet([&](int set) { run_localRMCMIN(method, set, iter, iter_mc, scale); });
  }
  store_chi2("# RMCMIN       X2/DoF = ", chiPerDoF());
}

void Fit::run_localRMCMIN(int method, int set, int iter, int iter_mc, double scale) {
  const std::vector<int>& parms = pardef_.parms(set);
  restart(set);
  for (long long i = 1; i <= iter; ++i) {
    double start = 0.0;
    if (!drawWork(set, start)) continue;
    const auto display = [&] {
      display_chi(method, "RMCMIN", set + 1, i, iter, totalToShow(best_), start,
                  totalToShow(work_));
    };
    display();
    random_start_.copy(work_, parms, set);
    for (int counter = 0; counter < iter_mc; ++counter) {
      work_.copy(random_start_, parms, set);
      for (const int parm : parms) mc_parm(parm, work_, scale);
      const double chi = minimizeWork(set);
      if (!std::isfinite(chi)) continue;
      if (chi < random_start_.chi(set)) {
        random_start_.copy(work_, parms, set);
        counter = 0;
      }
      if (chi < best_.chi(set)) keep(set);
      display();
    }
  }
  restart(set);
}

void Fit::run_globalRMCMIN(int method, int iter, int iter_mc, double scale) {
  work_ = best_;
  for (long long i = 1; i <= iter; ++i) {
    double start = 0.0;
    if (!drawWork(start)) continue;
    const auto display = [&] {
      display_chi(method, "RMCMIN", 0, i, iter, best_.total(), start, work_.total());
    };
    display();
    random_start_ = work_;
    for (int counter = 0; counter < iter_mc; ++counter) {
      work_ = random_start_;
      for (int parm = 0; parm < pardef_.PAR_size(); ++parm) mc_parm(parm, work_, scale);
      const double chi = minimizeWork();
      if (!std::isfinite(chi)) continue;
      if (chi < random_start_.total()) {
        random_start_ = work_;
        counter = 0;
      }
      if (chi < best_.total()) best_ = work_;
      display();
    }
  }
}
