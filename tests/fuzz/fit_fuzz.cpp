// Fuzz target: a whole run with its files, bounded by the number of model values and random draws.
// SPDX-License-Identifier: GPL-3.0-or-later
#include "ReadRun.h"

#include "Fit.h"
#include "Random.h"

#include <filesystem>
#include <fstream>
#include <map>

namespace {

using harness::LimitReached;
using harness::require;

// Keep an input below a second under the sanitizers.
constexpr double kMostValues = 3000.0;
constexpr std::uint32_t kMostDraws = 50000;
constexpr int kMostPoints = 200;

ModelFunc model = nullptr;
bool has_echo_train = false;
double values = 0.0;
std::uint32_t draws = 0;

/// The model, its values counted.
double countedModel(const Data& d, double* p, std::vector<double>& dydp,
                    const std::vector<bool>& skip) {
  constexpr double kPulses = 1000.0;    // take about as long as the rest of a value
  constexpr double kMostPulses = 1e10;  // far more than a model takes up: these cost nothing
  values += 1.0;
  if (has_echo_train) {
    const double pulses = d.x[0] * d.x[1];
    if (pulses > 0.0 && pulses < kMostPulses) values += pulses / kPulses;
  }
  if (values > kMostValues) throw LimitReached();
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
  const int number = funclib.Define_Func(countedModel, kOwnName, read.Eqn().c_str(),
                                         read.XmgrHeader().c_str(), read.Get_dimX(),
                                         read.Get_dimIndex(), read.Get_dist(), read.keepsSlopes());
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

/// The files in the working directory with their names, but for lines that tell the time.
std::string writtenFiles() {
  std::map<std::string, std::string> files;
  for (const auto& entry : std::filesystem::directory_iterator(".")) {
    if (!entry.is_regular_file()) continue;  // a stage directory
    std::ifstream file(entry.path());
    std::string& text = files[entry.path().filename().string()];
    for (std::string line; std::getline(file, line);) {
      if (!line.starts_with("# Fit duration ")) text += line + '\n';
    }
  }
  std::string all;
  for (const auto& [name, text] : files) all += name + '\n' + text;
  return all;
}

/// Makes the run at a verbosity of its own and returns what it wrote.
std::string wholeRun(harness::ReadRun& run, int verbosity) {
  values = 0.0;
  draws = 0;
  model = run.funclib.Func();
  // These multiply a matrix for each pulse.
  has_echo_train = run.funclib.Name().starts_with("MQCPMG_Matrix");
  const Funclib funclib = countedCopy(run.funclib);
  const harness::Workplace workplace;
  Fit fit("2.4.4", funclib, run.method, run.pardef, run.calc, run.xmgr, run.setup.GetOutputFile(),
          verbosity, run.setup.GetPrec(), Random(countedDraws));
  fit.checkFiles(run.setup.GetInputFile());
  fit.run_FIT(false);
  fit.report_fit(run.method.size());
  if (run.xmgr.isXmgr()) fit.plot_xmgr(0, "");
  int plot_index = 1;
  analyse(run, fit, run.calc.getJackType(), 1, plot_index);
  analyse(run, fit, run.calc.getMonteType(), 2, plot_index);
  require(std::filesystem::file_size(run.setup.GetOutputFile()) > 0, "a report");
  return writtenFiles();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(data, data + size);
  std::string written;
  const auto first = [&] {
    harness::ReadRun run(text);
    run.read();
    if (run.pardef.DATAsize() > kMostPoints) return;
    resetModel(run.funclib);
    written = wholeRun(run, run.setup.IsVerb());
  };
  // Neither what the models have kept nor what the console shows changes a result.
  const auto second = [&] {
    harness::ReadRun run(text);
    run.read();
    require(wholeRun(run, run.setup.IsVerb() == 0 ? 1 : 0) == written, "the same files again");
  };
  // Where standard errors cannot be computed, a run ends in silence.
  harness::endingOf(first, true);
  if (written.empty() || values > kMostValues / 4.0) return 0;
  const bool came_to_its_end = !harness::endingOf(second, true).status;
  require(came_to_its_end, "the same end again");
  return 0;
}
