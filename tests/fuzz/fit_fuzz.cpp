// Fuzz target: a whole run with its files, bounded by the number of model values and random draws.
// SPDX-License-Identifier: GPL-3.0-or-later
#include "ReadRun.h"

#include "Fit.h"
#include "Random.h"

#include <filesystem>
#include <limits>

namespace {

using harness::LimitReached;
using harness::require;

// Keep an input below a second under the sanitizers.
constexpr int kMostValues = 3000;
constexpr std::uint32_t kMostDraws = 50000;
constexpr int kMostPoints = 200;

ModelFunc model = nullptr;
int values = 0;
std::uint32_t draws = 0;

double countedModel(const Data& d, double* p, std::vector<double>& dydp,
                    const std::vector<bool>& skip) {
  if (++values > kMostValues) throw LimitReached();
  return model(d, p, dydp, skip);
}

/// Ticks once for each draw: a run's numbers depend on its input alone.
std::uint32_t countedDraws() {
  if (++draws > kMostDraws) throw LimitReached();
  return draws;
}

/// The picked model of `read` under the same name, its values counted.
Funclib countedCopy(const Funclib& read) {
  constexpr const char* kOwnName = "counted";
  Funclib funclib;
  const int number =
      funclib.Define_Func(countedModel, kOwnName, read.Eqn().c_str(), read.XmgrHeader().c_str(),
                          read.Get_dimX(), read.Get_dimIndex(), read.Get_dist());
  const Rules& rules = read.Get_Rules();
  for (unsigned k = 0; k < rules.basePAR_size(); ++k) {
    funclib.Define_Parm(number, rules.baseName(k).c_str(), rules.Get_LowerBound(k),
                        rules.Get_UpperBound(k), rules.indexRule(k).c_str());
  }
  funclib.Pick_Func(kOwnName);
  return funclib;
}

/// Fills what a model keeps from one call to the next with the same content before every run: a
/// finding depends on its input alone.
void resetModel(const Funclib& funclib) {
  const Rules& rules = funclib.Get_Rules();
  const std::size_t parms = rules.basePAR_size();
  Data point;
  point.x.assign(static_cast<std::size_t>(funclib.Get_dimX()), 1.0);
  point.x[0] = 1000.0;
  if (point.x.size() > 1) point.x[1] = 0.04;
  point.index.assign(static_cast<std::size_t>(funclib.Get_dimIndex()), 0);
  std::vector<double> p;
  for (unsigned k = 0; k < parms; ++k) {
    point.parmap.push_back(static_cast<int>(k));
    p.push_back(rules.Get_LowerBound(k) +
                0.3 * (rules.Get_UpperBound(k) - rules.Get_LowerBound(k)));
  }
  std::vector<double> dydp(parms);
  funclib.Func()(point, p.data(), dydp, std::vector<bool>(parms));
}

/// The analyses as main makes them; `kind` is report_final's.
void analyse(harness::ReadRun& run, Fit& fit, int type, int kind, int& plot_index) {
  constexpr int kQuick = 1;
  if (type == 0) return;
  const Method spare = run.method;
  if (type == kQuick) run.setup.resetMETHOD_ONEEX(run.method);
  if (kind == 1) fit.run_JACK();
  if (kind == 2) fit.run_MONTE();
  fit.report_final(kind);
  if (run.xmgr.isXmgr()) fit.plot_xmgr(plot_index++, "Analysis");
  run.method = spare;
}

void wholeRun(const std::string& text) {
  harness::ReadRun run(text);
  run.read();
  if (run.pardef.DATAsize() > kMostPoints) return;
  resetModel(run.funclib);
  values = 0;
  draws = 0;
  model = run.funclib.Func();
  const Funclib funclib = countedCopy(run.funclib);
  const harness::Workplace workplace;
  Fit fit("2.4.4", funclib, run.method, run.pardef, run.calc, run.xmgr, run.setup.GetOutputFile(),
          run.setup.IsVerb(), run.setup.GetPrec(), Random(countedDraws));
  fit.run_FIT(false);
  fit.report_fit(run.method.size());
  if (run.xmgr.isXmgr()) fit.plot_xmgr(0, "");
  int plot_index = 1;
  analyse(run, fit, run.calc.getJackType(), 1, plot_index);
  analyse(run, fit, run.calc.getMonteType(), 2, plot_index);
  require(std::filesystem::file_size(run.setup.GetOutputFile()) > 0, "a report");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(data, data + size);
  // Where standard errors cannot be computed, a run ends in silence.
  harness::endingOf([&] { wholeRun(text); }, true);
  return 0;
}
