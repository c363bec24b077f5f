// The registry of models.
// SPDX-License-Identifier: GPL-3.0-or-later
#include "FuncLib.h"

#include "Fatal.h"
#include "Text.h"

#include <new>

std::vector<double> gatherParms(const std::vector<int>& parmap, const std::vector<double>& par,
                                const char* routine) {
  try {
    std::vector<double> parms(parmap.size());
    for (std::size_t k = 0; k < parms.size(); ++k) {
      parms[k] = par[static_cast<std::size_t>(parmap[k])];
    }
    return parms;
  } catch (const std::bad_alloc&) {
    fatalNoMemory(routine);
  }
}

Funclib::Funclib() {
  // The order fixes the model numbers and the list that a bad name is answered with.
  Read_Sig_Funcs(0);
  Read_Exp_Funcs(0);
  Read_Bio_Funcs(0);
  Read_CPMG2_Funcs(0);
  Read_CPMG3_Funcs(0);
  Read_MQCPMG_Funcs(0);
  Read_R1RHO_Funcs(0);
  Read_CLEANEX_Funcs(0);
}

int Funclib::Define_Func(ModelFunc func, const char* name, const char* equation,
                         const char* plot_header, int dimX, int dimIndex, int dist,
                         bool keeps_slopes) {
  const int posTau = dist == 1 ? 1 : 0;
  models_.push_back(
      {func, name, equation, plot_header, dimX, dimIndex, dist, posTau, keeps_slopes, Rules()});
  return size() - 1;
}

void Funclib::Define_Parm(int model, const char* name, double lower, double upper,
                          const char* rule) {
  models_[static_cast<std::size_t>(model)].rules.Define_Parm(name, lower, upper, rule);
}

void Funclib::define(const ModelGroup& group, std::span<const ModelRow> rows) {
  for (const ModelRow& row : rows) {
    const int model = Define_Func(row.func, row.name, row.equation, group.plot_header, group.dimX,
                                  group.dimIndex, group.dist, row.keeps_slopes);
    for (const ParmRow& parm : row.parms) {
      Define_Parm(model, parm.name, parm.lower, parm.upper, parm.rule);
    }
  }
}

void Funclib::Pick_Func(const std::string& name) {
  for (int model = 0; model < size(); ++model) {
    if (!equalIgnoringCase(nameOf(model), name)) continue;
    current_ = model;
    current_function_ = at(model).func;
    return;
  }
  ERROR_invalid_func(name);
}

void Funclib::ERROR_invalid_func(const std::string& name) const {
  std::string message = "ERROR: Function name '" + name + "' is not recognized.\n";
  message += "Valid function names: ";
  for (const Model& model : models_) message += "'" + model.name + "' ";
  fatal(message + "\n");
}
