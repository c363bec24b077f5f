// The registry of models, the record of one data point and the contract of a model function.
// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "Rule.h"

#include <span>
#include <string>
#include <vector>

/// One data point.
struct Data {
  int set = 0;              ///< number of the set whose DATA line it was
  std::vector<double> x;    ///< abscissae, as many as the model has x columns
  std::vector<int> index;   ///< integer labels; a model without labels has the single label 0
  double y = 0.0;           ///< measured value
  double dy = 1.0;          ///< its standard deviation
  std::vector<int> parmap;  ///< for each base parameter, its position in the parameter vector
  double w = 1.0;           ///< 1/dy: the reciprocal of the error, not of its square

  /// Where the derivative with respect to base parameter k goes.
  [[nodiscard]] std::size_t slot(std::size_t k) const {
    return static_cast<std::size_t>(parmap[k]);
  }
};

/// A model: returns its value at `d` for the base parameters `p`, in declaration order.
///
/// Unless `dydp` is empty, the derivative with respect to base parameter k goes to
/// dydp[d.slot(k)]; other entries are left alone. A set flag skip[d.slot(k)] says that this
/// derivative is not wanted; the elementary curves, sigmoids and kinetics models write it anyway. A
/// value that is not finite refuses the parameters; nothing useful is then in dydp. `p` may be
/// changed during the call, never after it.
using ModelFunc = double (*)(const Data& d, double* p, std::vector<double>& dydp,
                             const std::vector<bool>& skip);

/// The base parameters of a point, gathered from the full parameter vector `par`. Ends the run in
/// the name of `routine` when memory runs out.
[[nodiscard]] std::vector<double> gatherParms(const std::vector<int>& parmap,
                                              const std::vector<double>& par, const char* routine);

/// One row of a model family's table: a base parameter.
struct ParmRow {
  const char* name;
  double lower;
  double upper;
  const char* rule;  ///< index rule, see Rules
};

/// One row of a model family's table: a model.
struct ModelRow {
  ModelFunc func;
  const char* name;
  const char* equation;  ///< as reports show it
  std::span<const ParmRow> parms;
  /// A call without derivatives can spoil those of a later call: see Funclib::keepsSlopes.
  bool keeps_slopes = false;
};

/// What all models of one table share.
struct ModelGroup {
  const char* plot_header;  ///< plot type, selects the axis labels of plot files
  int dimX;                 ///< x columns of a data line
  int dimIndex;             ///< labels of a data line
  int dist;                 ///< how Monte Carlo noise enters, see Funclib::Get_dist
};

/// Every model of the program, numbered in the order of registration; FUNCTION picks one.
class Funclib {
 public:
  /// Registers all model families.
  Funclib();

  /// Appends a model; returns its number. Its position of the relaxation delay follows from `dist`.
  int Define_Func(ModelFunc func, const char* name, const char* equation, const char* plot_header,
                  int dimX, int dimIndex, int dist, bool keeps_slopes = false);
  /// Declares the next base parameter of model number `model`.
  void Define_Parm(int model, const char* name, double lower, double upper, const char* rule);

  /// Picks the first model of this name, letter case ignored. Ends the run if there is none.
  void Pick_Func(const std::string& name);

  // The picked model. Valid after Pick_Func only.
  [[nodiscard]] ModelFunc Func() const { return current_function_; }
  [[nodiscard]] const Rules& Get_Rules() const { return picked().rules; }
  [[nodiscard]] const std::string& Name() const { return picked().name; }
  [[nodiscard]] const std::string& Eqn() const { return picked().equation; }
  [[nodiscard]] const std::string& XmgrHeader() const { return picked().plot_header; }
  [[nodiscard]] int Get_dimX() const { return picked().dimX; }
  [[nodiscard]] int Get_dimIndex() const { return picked().dimIndex; }
  /// 0: noise is added to the value; 1: to the intensity ratio exp(-R T), with T = x[posTau()].
  [[nodiscard]] int Get_dist() const { return picked().dist; }
  [[nodiscard]] int posTau() const { return picked().posTau; }
  /// True for a model that keeps parts of its derivatives from call to call, and renews them only
  /// in a call that wants derivatives: the others go stale. Such a model is always asked for them.
  [[nodiscard]] bool keepsSlopes() const { return picked().keeps_slopes; }

  // All models, for listings and tests.
  [[nodiscard]] int size() const { return static_cast<int>(models_.size()); }
  [[nodiscard]] const std::string& nameOf(int model) const { return at(model).name; }

 private:
  struct Model {
    ModelFunc func;
    std::string name;
    std::string equation;
    std::string plot_header;
    int dimX;
    int dimIndex;
    int dist;
    int posTau;
    bool keeps_slopes;
    Rules rules;
  };

  // Model families. The argument is always 0.
  void Read_Sig_Funcs(int);
  void Read_Exp_Funcs(int);
  void Read_Bio_Funcs(int);
  void Read_CPMG2_Funcs(int);
  void Read_CPMG3_Funcs(int);
  void Read_MQCPMG_Funcs(int);
  void Read_R1RHO_Funcs(int);
  void Read_CLEANEX_Funcs(int);

  /// Registers a family's table, row by row.
  void define(const ModelGroup& group, std::span<const ModelRow> rows);
  [[noreturn]] void ERROR_invalid_func(const std::string& name) const;
  [[nodiscard]] const Model& at(int model) const {
    return models_[static_cast<std::size_t>(model)];
  }
  [[nodiscard]] const Model& picked() const { return at(current_); }

  std::vector<Model> models_;
  int current_ = -1;
  ModelFunc current_function_ = nullptr;
};
