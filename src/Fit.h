// The fitting engine: chi-square, minimiser, search strategies, standard errors, report.
// SPDX-License-Identifier: GPL-3.0-or-later
//
// One class in several files: Fit.cpp drives the method list, Fit_chi.cpp evaluates chi-square,
// Fit_levmar.cpp minimises it, Fit_search.cpp holds the search strategies, Fit_covar.cpp the
// standard errors, Fit_report.cpp the report, Fit_jack.cpp and Fit_monte.cpp the error analyses,
// Fit_final.cpp their files, Fit_files.cpp the names of all files.
#pragma once

#include "Calc.h"
#include "FuncLib.h"
#include "Method.h"
#include "ParDef.h"
#include "ParSet.h"
#include "PassSums.h"
#include "Random.h"
#include "Xmgr.h"

#include <ctime>
#include <iosfwd>
#include <span>
#include <string>
#include <vector>

/// Normal equations of one sub-problem: alpha, n rows of n entries, and beta, n entries.
struct LevMar {
  int n = 0;
  std::vector<double> alpha;
  std::vector<double> beta;

  /// Sizes the system for n parameters; all entries become 0. Memory is kept between calls.
  void resize(int parms);
  [[nodiscard]] double* row(int j) {
    return alpha.data() + static_cast<std::size_t>(j) * static_cast<std::size_t>(n);
  }
  [[nodiscard]] double at(int j, int k) const {
    return alpha[static_cast<std::size_t>(j) * static_cast<std::size_t>(n) +
                 static_cast<std::size_t>(k)];
  }
};

/// What a minimisation solves for, and where that stands in its normal equations.
struct FitMat {
  static constexpr int kAllSets = -1;

  int set = kAllSets;      ///< the set of a local fit, kAllSets for the global one
  std::vector<int> parms;  ///< positions in the parameter vector, ascending
  std::vector<int> rows;   ///< the row of each in the LevMar

  [[nodiscard]] int size() const { return static_cast<int>(parms.size()); }
};

/// Fits the data of a ParDef by the methods of a Method list and reports the result.
///
/// Holds references to its collaborators and must not outlive them.
class Fit {
 public:
  Fit(std::string version, const Funclib& funclib, const Method& method, ParDef& pardef, Calc& calc,
      const Xmgr& xmgr, std::string output_file, int verbosity, int precision,
      const Random& random = Random());

  /// Ends the run when a file that it is going to write is its input file, or when the report is
  /// also a plot. Warns of sets with the same title, whose plots are one file.
  void checkFiles(const std::string& input_file) const;
  /// Runs the method list, then computes the standard errors. `jack`: a pass of an error analysis,
  /// which starts from the saved result and leaves it and the disk alone.
  void run_FIT(bool jack);
  /// Writes the report with the first `n` methods and their chi-squares. Ends the run when the file
  /// cannot be opened or not be written in full.
  void report_fit(int n);

  /// Writes the plot file of every set, TITLE.xmgr: index 0 anew, with data, curves and fitted
  /// parameters; 1 or 2 appends the column of an error analysis of this title. Ends the run when a
  /// file cannot be opened or not be written in full.
  void plot_xmgr(int index, const std::string& title);
  /// Refits with one data point left out at a time and writes each pass to the file with the suffix
  /// "-jack". Leaves means and errors for report_final.
  void run_JACK();
  /// Refits synthetic data, the fitted curve with noise, and writes each simulation to the file
  /// with the suffix "-monte". Leaves means and errors for report_final.
  void run_MONTE();
  /// Writes the summary and the final report of an analysis: kind 1 jackknife, 2 Monte Carlo.
  void report_final(int kind);

  [[nodiscard]] bool is_global() const { return pardef_.hasGlobals(); }
  [[nodiscard]] bool is_local() const { return !is_global(); }

  // Results.
  [[nodiscard]] const ParSet& centre() const { return centre_; }  ///< means of an error analysis
  [[nodiscard]] const ParSet& spread() const { return spread_; }  ///< its errors
  [[nodiscard]] const ParSet& best() const { return best_; }
  [[nodiscard]] const ParSet& saved() const { return saved_; }
  [[nodiscard]] double stdError(int parm) const { return std_error_[asIndex(parm)]; }
  [[nodiscard]] const std::vector<std::string>& chiLines() const { return chi_lines_; }

  // ---- chi-square (Fit_chi.cpp) ----

  /// Model value at data point `point` for the full parameter vector `par`. Unless `dydp` is empty,
  /// the derivatives go to the point's positions in it. `scratch` holds at least as many numbers as
  /// the model has base parameters.
  double calc_y_dy(const std::vector<double>& par, int point, std::vector<double>& dydp,
                   std::vector<double>& scratch) const;
  /// Chi-square of one set, sum of ((y - model)/sigma)^2, also stored in `at`. Infinite when a
  /// model value is not finite; the stored entry then keeps the sum up to that point.
  double calc_chi(ParSet& at, int set);
  /// Chi-squares of all sets and their total, stored in `at`. Returns the total.
  double calc_chi(ParSet& at);
  /// Ends the run with a list of the illegal values, if there are any.
  void check_parm(const ParSet& at) const;
  /// check_parm for the grid starts, the grid ends and the initial values, which `at` then holds.
  void check_parm_range(ParSet& at) const;
  /// Ends the run when the total is not finite.
  static void check_chi(const ParSet& at);

  // ---- minimiser (Fit_levmar.cpp) ----

  /// Builds the normal equations at a point and returns its chi-square: lMarq or gMarq.
  using Builder = double (Fit::*)(ParSet& at, const std::vector<int>& data,
                                  const std::vector<int>& parms, const FitMat& mat, LevMar& lm);

  /// Minimises chi-square from `best` over the parameters of `mat` by damped Gauss-Newton steps;
  /// returns the chi-square found. `best` is moved to it, except for a last gain below 1e-12, which
  /// is returned but not moved to. Infinite when the start is not finite. `lm` holds the normal
  /// equations at `best` on return; `trial` and `trial_lm` are working memory.
  double LevMarq(ParSet& best, ParSet& trial, const std::vector<int>& data,
                 const std::vector<int>& parms, const FitMat& mat, LevMar& lm, LevMar& trial_lm,
                 Builder build);
  /// One set: equations for all its parameters `parms`, rows in that order. Infinite when a value
  /// or derivative is not finite.
  double lMarq(ParSet& at, const std::vector<int>& data, const std::vector<int>& parms,
               const FitMat& mat, LevMar& lm);
  /// All sets: re-minimises the local parameters of each inside `at`, stores their chi-squares
  /// there and adds up the equations of the global parameters. Infinite as soon as one set is.
  double gMarq(ParSet& at, const std::vector<int>& data, const std::vector<int>& parms,
               const FitMat& mat, LevMar& lm);
  /// Minimises one set over its own parameters, the rest of `at` fixed.
  double minimize_local(ParSet& at, int set);
  /// Minimises all sets over the shared parameters, each set's own ones nested inside.
  double minimize_global(ParSet& at);

  // ---- search strategies (Fit_search.cpp); `method` is the line's number for the console ----

  void run_INIT(int method, bool restart);
  void run_ONE(int method);
  void run_ONEEX(int method);
  void run_GRID(int method);
  void run_RANDOM(int method, int iter);
  void run_MCMIN(int method, int iter, double scale);
  void run_RMCMIN(int method, int iter, int iter_mc, double scale);

  void run_localONE(int method, int set);
  void run_localONEEX(int method, int set);
  void run_localGRID(int method, int set);
  void run_localRANDOM(int method, int set, int iter);
  void run_localMCMIN(int method, int set, int iter, double scale);
  void run_localRMCMIN(int method, int set, int iter, int iter_mc, double scale);

  void run_globalONE(int method);
  void run_globalONEEX(int method);
  void run_globalGRID(int method);
  void run_globalRANDOM(int method, int iter);
  void run_globalMCMIN(int method, int iter, double scale);
  void run_globalRMCMIN(int method, int iter, int iter_mc, double scale);

  /// Grid value number `i` of a parameter.
  [[nodiscard]] double set_grid(int parm, int i) const;
  /// Draws a legal value from the search range; without a range, the grid start. Ends the run when
  /// there seems to be none, as mc_parm does.
  void rand_parm(int parm, ParSet& at);
  /// Multiplies the value by a normal deviate of mean 1 and standard deviation `scale`, repeated
  /// until it is legal. Fixed parameters stay.
  void mc_parm(int parm, ParSet& at, double scale);

  // ---- standard errors (Fit_covar.cpp) ----

  /// Standard errors from the inverted curvature at `at`, not scaled by the reduced chi-square.
  /// Ends the run silently, with status 1, when the total is not finite.
  void calc_covar(const ParSet& at);

  // ---- error analyses (Fit_monte.cpp, Fit_final.cpp) ----

  /// Sample standard deviation from a mean and a sum of squares; 0 where it is not defined.
  [[nodiscard]] static double compute_stdev(double mean, double square_sum, int n);
  /// Inserts a value into an ascending list, before equal ones.
  static void push_sort(std::vector<double>& list, double value);
  /// The `fraction` percentile of a set's chi-square over the simulations.
  [[nodiscard]] double pchi(int set, double fraction) const;
  /// Value of derived quantity `i` for a set at the given parameters.
  double run_CALC(int set, int i, const ParSet& at);

  // ---- console (Fit.cpp) ----

  void display_chi_header() const;
  /// Writes one progress line over the previous one and does not end it. `set` 0: no set field.
  void display_chi(int method, const std::string& label, int set, long long counter,
                   long long total, double best, double start, double result);

 private:
  /// The rows of a set's normal equations that go into the global ones.
  struct SharedRows {
    std::vector<int> set_rows;
    std::vector<int> global_rows;
  };

  /// The elements that some points of one set depend on, each once, in the order of its rows.
  struct Footprint {
    std::vector<int> parms;  ///< positions in the parameter vector
    std::vector<int> rows;   ///< the row of each in the set's normal equations
  };

  [[nodiscard]] static std::size_t asIndex(int i) { return static_cast<std::size_t>(i); }

  // Fit.cpp
  void buildSetMats();
  void buildGlobalMat();
  void buildFootprints();
  [[nodiscard]] Footprint footprintOf(const std::vector<int>& parmap, int set) const;
  void sizeWork();
  [[nodiscard]] FitMat localMat(int set) const;
  void runMethod(int i, bool jack);
  void make_dir(int i, const std::string& label);
  [[nodiscard]] bool reportsToConsole() const { return verbosity_ != 0; }
  void endConsoleLine() const;
  void writeConsoleNumber(std::ostream& out, double chi);

  void storeCalcResults();
  void tryCalcs();

  // Fit_levmar.cpp
  bool addPoint(const Footprint& touched, double residual, double weight2, LevMar& lm);
  static void addSharedRows(const SharedRows& shared, const LevMar& from, LevMar& to);
  static void moveTo(const ParSet& from, const std::vector<int>& parms, const FitMat& mat,
                     ParSet& to);
  [[nodiscard]] static double startLambda(const FitMat& mat, const LevMar& lm);
  [[nodiscard]] static bool gradientVanishes(const FitMat& mat, const LevMar& lm);
  bool solveStep(const FitMat& mat, const LevMar& lm, double lambda);
  [[nodiscard]] bool stepIsNegligible(const FitMat& mat, const ParSet& best) const;
  bool applyStep(const FitMat& mat, const ParSet& best, ParSet& trial) const;

  // Fit_search.cpp
  template <class RunLocal>
  void forEachSet(RunLocal run_local);
  [[nodiscard]] double chiPerDoF() const { return best_.total() / pardef_.gDoF(); }
  void restart(int set);
  void evaluateStart(int method);
  [[nodiscard]] bool startIsUsable() const;
  double minimizeWork(int set);
  double minimizeWork();
  void keep(int set);
  [[nodiscard]] double totalToShow(const ParSet& at) const;
  void evaluateWork(int set);
  void searchLocalGrid(int set, ParSet& candidate);
  /// Draws until a value is legal. Ends the run when none of a million is.
  template <class Draw>
  double drawLegal(int parm, Draw draw) const;
  bool drawWork(int set, double& start);
  bool drawWork(double& start);
  void store_chi2(const std::string& label, double value);

  // Fit_covar.cpp
  struct SetCovar;
  /// Curvature of one set over `parms`, n rows of n entries in that order.
  std::vector<double> curvature(const ParSet& at, int set, const std::vector<int>& parms);
  /// The parameters that are solved for in this set alone, in the order of its declarations.
  [[nodiscard]] std::vector<int> solvedLocals(int set) const;
  void storeErrors(const std::vector<int>& parms, const std::vector<double>& matrix);
  void localCovar(const ParSet& at);
  void globalCovar(const ParSet& at);
  /// Fills `own` and adds the set's part of S to `shared`, its curvature's diagonal to `diagonal`.
  /// False when the set's own block cannot be inverted.
  bool reduceSet(const ParSet& at, int set, SetCovar& own, std::vector<double>& shared,
                 std::vector<double>& diagonal);
  void storeLocalErrors(const SetCovar& own, const SharedRows& shared_rows,
                        const std::vector<double>& shared_inverse);

  // Fit_files.cpp
  void refuseToOverwriteInput(const std::string& input_file) const;
  [[nodiscard]] std::vector<std::string> writtenFiles() const;
  [[nodiscard]] std::string plotFile(int set) const { return pardef_.TITLE(set) + ".xmgr"; }
  void refuseToOverwriteReport() const;
  void warnOfSharedPlots() const;

  // Fit_report.cpp
  void report_header(std::ostream& out, int n) const;
  void report_time(std::ostream& out) const;
  void report_FitParm(std::ostream& out);
  void reportSetChi(std::ostream& out, int set) const;
  void reportGlobalChi(std::ostream& out) const;
  static void check_file(const std::ofstream& file, const std::string& name);
  static void closeFile(std::ofstream& file, const std::string& name);

  // Fit_jack.cpp
  void run_JACKglobal(std::ofstream& file);
  void run_JACKlocal(std::ofstream& file);
  void run_localJACK(int set);
  void runJackMethod(int i, int set);

  // Fit_monte.cpp
  std::vector<double> backCalculate();
  void simulateData(const std::vector<double>& calculated);
  double drawNoise(int point);
  void storeSimulation(std::ostream& block, int k, const ParSet& origin);

  // Fit_final.cpp
  [[nodiscard]] std::vector<std::string> analysisFiles() const;
  [[nodiscard]] std::ofstream openRunning(const std::string& suffix) const;
  void appendPass(std::ofstream& file, const std::string& block, const std::string& suffix) const;
  void finishRunning(std::ofstream& file, const std::string& suffix) const;
  void report_SimResult(std::ostream& out, int k);
  void report_localJackResult(std::ostream& out, int set, int j);
  void reportPassSet(std::ostream& out, int set, int k);
  void reportPassTotal(std::ostream& out, int k) const;
  void reportSummary(std::ostream& out, int kind) const;
  void reportValues(std::ostream& out, int set, const ParSet& values) const;
  void reportPercentiles(std::ostream& out, int set) const;
  void report_FinalParm(std::ostream& out, int kind);
  [[nodiscard]] double calcDeviation(int kind, int set, int i) const;

  std::string version_;
  const Funclib& funclib_;
  const Method& method_;
  ParDef& pardef_;
  Calc& calc_;
  const Xmgr& xmgr_;
  std::string output_file_;
  int verbosity_;
  int precision_;
  Random random_;

  ParSet work_;          ///< candidates are built and minimised here
  ParSet best_;          ///< result of the methods run so far
  ParSet saved_;         ///< result of the full fit, where error analyses restart
  ParSet grid_;          ///< candidates of one set's grid inside a global one
  ParSet random_start_;  ///< the minimum that RMCMIN perturbs

  std::vector<FitMat> set_mats_;  ///< one for each set
  FitMat global_mat_;
  std::vector<SharedRows> shared_rows_;  ///< one for each set
  std::vector<Footprint> footprints_;    ///< each for many points
  std::vector<int> footprint_of_;        ///< for each point, its number in them

  // Working memory of the minimiser; the nested runs inside gMarq have their own.
  ParSet trial_;
  ParSet nested_trial_;
  LevMar outer_lm_;
  LevMar outer_trial_lm_;
  LevMar nested_lm_;
  LevMar nested_trial_lm_;
  std::vector<double> solved_alpha_;
  std::vector<double> solved_beta_;
  std::vector<double> step_;
  std::vector<double> dydp_;     ///< derivatives at full-vector positions
  std::vector<double> scratch_;  ///< base parameters of the point at hand
  std::vector<double> slopes_;   ///< its derivatives in the order of the set's rows

  std::vector<double> std_error_;
  std::vector<std::string> chi_lines_;  ///< one for each method run, as far as a report shows them
  std::size_t most_chi_lines_;

  bool in_pass_ = false;  ///< of an error analysis: bad values spoil the pass, not the run
  PassSums sums_;
  ParSet centre_;                                ///< means over the passes of an error analysis
  ParSet spread_;                                ///< and their errors
  std::vector<std::vector<double>> sorted_chi_;  ///< for each set, over the simulations

  int console_precision_ = 6;
  std::time_t start_time_ = 0;
  std::time_t end_time_ = 0;
};
