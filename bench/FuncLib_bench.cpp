// Cost of one call of every registered model, with and without derivatives.
// SPDX-License-Identifier: GPL-3.0-or-later
//
// "same": the calls walk over 16 points that differ in x0 alone, as the points of one set do, so a
// model that keeps work from call to call keeps it here. "new": each call has other parameters than
// the one before. Every value and derivative is checked to be finite before anything is timed.
#include "FuncLib.h"
#include "Text.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdlib>
#include <iostream>
#include <string>
#include <vector>

namespace {

constexpr std::size_t kPoints = 16;
constexpr std::size_t kVariants = 64;  // parameter vectors of "new"
constexpr double kVariantStep = 1e-3;  // each is larger than the one before by this fraction

struct TypicalValue {
  const char* parm;
  double value;
};

struct TypicalPoints {
  const char* family;  ///< plot type of the family, or how the names of its models begin
  double first;        ///< x0 of the first point
  double step;         ///< added to x0 from point to point
  std::array<double, 4> others;
};

// Exchange of a protein near 298 K, observed at 15N; curves that decay over the points.
// clang-format off
constexpr TypicalValue kTypicalValues[] = {
    // rate constants, 1/s
    {"kex", 500}, {"kab", 20}, {"kba", 480}, {"kbc", 100}, {"kca", 300}, {"kac", 15},
    {"kex1", 500}, {"kex2", 300}, {"kex3", 100},
    {"koff", 480}, {"koff1", 480}, {"koff2", 300}, {"Bkon", 20}, {"Bkon1", 20}, {"Bkon2", 10},
    {"kfi", 20}, {"kif", 480}, {"k12", 50}, {"k21", 80}, {"k", 10},
    {"R20", 10}, {"R1", 1.5}, {"R1a", 1}, {"R1b", 0.5},
    // rate constants of second order and concentrations, in the units of their models
    {"kon", 1e7}, {"kon1", 10}, {"kon2", 5}, {"A0", 1e-3}, {"B0", 5e-5},
    // populations
    {"papb", 0.04}, {"pb", 0.04}, {"pc", 0.02},
    // shift differences in rad/s, their combinations, a coupling in Hz
    {"dw", 1300}, {"dwab", 1300}, {"dwac", -800}, {"dwfb1", 1300}, {"dwfb2", -800},
    {"dwfi", 1300}, {"dwfb", -800}, {"dwf1f2", 1300}, {"dwf1b", -800},
    {"dwN", 1300}, {"dwH", 600}, {"dwabN", 1300}, {"dwabH", 600}, {"dwacN", -800}, {"dwacH", -300},
    {"pdw", 7e4}, {"phi", 1e5}, {"dJ", 90},
    // activation enthalpies in kcal/mol and entropies in kcal/(mol K)
    {"dHab", 15}, {"dHba", 14}, {"dHbc", 15}, {"dHcb", 14}, {"dHca", 14}, {"dHac", 15},
    {"dSab", -0.002}, {"dSba", 0.001}, {"dSbc", -0.002}, {"dScb", 0.001}, {"dSca", 0.001},
    {"dSac", -0.002},
    // curves
    {"a", 0.4}, {"b", -1}, {"c", 0.6}, {"d", 0.5}, {"e", -0.2}, {"f", 0.1},
    {"bd", -1}, {"bn", 1}, {"tm", 300}, {"dh", 50000}, {"a1", 1}, {"a2", -0.1}, {"m", 5},
};
constexpr TypicalPoints kTypicalPoints[] = {
    // family      x0 from  step   the other abscissae
    {"MQCPMG",     50.0,    50.0,  {0.04, 298.0, 1.0, 4.0}}, // 1/tcp; delay, temperature, field, MQ
    {"CT-CPMG",    50.0,    50.0,  {298.0, 1.0, 1.0, 1.0}},   // 1/tcp; temperature, fields, excess
    {"R1rho",      100.0,   100.0, {50.0, 298.0, 1.0, 1.0}},  // spin-lock field; offset
    {"R1rho_off",  -800.0,  100.0, {500.0, 298.0, 1.0, 1.0}}, // offset; spin-lock field
    {"CLEANEX",    0.005,   0.005, {1.0, 1.0, 1.0, 1.0}},     // mixing time
    {"EXP",        0.1,     0.1,   {1.0, 1.0, 1.0, 1.0}},
    {"SIG",        285.0,   2.0,   {1.0, 1.0, 1.0, 1.0}},     // temperature
    {"SIG_BOLTZ",  285.0,   2.0,   {1.0, 1.0, 1.0, 1.0}},
};
// clang-format on

[[noreturn]] void noInputFor(const std::string& what) {
  std::cerr << "There is no typical value for " << what << ": add one to the tables\n";
  std::exit(EXIT_FAILURE);
}

double typicalValue(const Funclib& lib, unsigned k) {
  const std::string& name = lib.Get_Rules().baseName(k);
  for (const TypicalValue& typical : kTypicalValues) {
    if (equalIgnoringCase(typical.parm, name)) return typical.value;
  }
  noInputFor("parameter " + name + " of " + lib.Name());
}

const TypicalPoints& typicalPoints(const Funclib& lib) {
  for (const TypicalPoints& typical : kTypicalPoints) {
    const bool begins_name = lib.Name().rfind(typical.family, 0) == 0;
    if (begins_name || lib.XmgrHeader() == typical.family) return typical;
  }
  noInputFor("the abscissae of " + lib.Name());
}

/// One model with the inputs of its calls.
struct Workload {
  std::string name;
  ModelFunc func = nullptr;
  std::vector<Data> points;
  std::vector<std::vector<double>> parms;  ///< kVariants vectors
  std::vector<bool> skip;                  ///< nothing is masked

  Workload(Funclib& lib, int model) : name(lib.nameOf(model)) {
    lib.Pick_Func(name);
    func = lib.Func();
    const unsigned size = lib.Get_Rules().basePAR_size();
    skip.assign(size, false);
    for (std::size_t i = 0; i < kPoints; ++i) points.push_back(point(lib, i));
    for (std::size_t i = 0; i < kVariants; ++i) {
      std::vector<double> p;
      for (unsigned k = 0; k < size; ++k) {
        p.push_back(typicalValue(lib, k) * (1.0 + kVariantStep * static_cast<double>(i)));
      }
      parms.push_back(p);
    }
  }

  static Data point(const Funclib& lib, std::size_t i) {
    const TypicalPoints& typical = typicalPoints(lib);
    Data d;
    d.x.push_back(typical.first + typical.step * static_cast<double>(i));
    d.x.insert(d.x.end(), typical.others.begin(), typical.others.end());
    d.x.resize(static_cast<std::size_t>(lib.Get_dimX()));
    d.index.assign(static_cast<std::size_t>(std::max(1, lib.Get_dimIndex())), 0);
    for (unsigned k = 0; k < lib.Get_Rules().basePAR_size(); ++k) {
      d.parmap.push_back(static_cast<int>(k));
    }
    return d;
  }

  /// True when the model accepts every input, with finite derivatives.
  [[nodiscard]] bool isFinite() const {
    const auto finite = [](double value) { return std::isfinite(value); };
    for (std::vector<double> p : parms) {
      for (const Data& d : points) {
        std::vector<double> dydp(p.size(), 0.0);
        if (!finite(func(d, p.data(), dydp, skip))) return false;
        if (!std::all_of(dydp.begin(), dydp.end(), finite)) return false;
      }
    }
    return true;
  }
};

/// Times calls with the first `variants` parameter vectors in turn; an empty `dydp` asks for the
/// value alone.
void timeCalls(benchmark::State& state, const Workload& load, std::size_t variants,
               std::vector<double> dydp) {
  std::vector<std::vector<double>> parms(
      load.parms.begin(), load.parms.begin() + static_cast<std::ptrdiff_t>(variants));
  std::size_t call = 0;
  for (auto _ : state) {
    const Data& d = load.points[call % kPoints];
    benchmark::DoNotOptimize(load.func(d, parms[call % variants].data(), dydp, load.skip));
    benchmark::ClobberMemory();
    ++call;
  }
  state.SetItemsProcessed(state.iterations());
}

void registerBenchmarks(const Workload& load) {
  const std::vector<double> none;
  const std::vector<double> all(load.skip.size(), 0.0);
  const auto add = [&load](const char* what, std::size_t variants,
                           const std::vector<double>& dydp) {
    benchmark::RegisterBenchmark((load.name + what).c_str(),
                                 [&load, variants, dydp](benchmark::State& state) {
                                   timeCalls(state, load, variants, dydp);
                                 });
  };
  add("/value/same", 1, none);
  add("/value/new", kVariants, none);
  add("/derivatives/same", 1, all);
  add("/derivatives/new", kVariants, all);
}

}  // namespace

int main(int argc, char* argv[]) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return EXIT_FAILURE;
  Funclib lib;
  std::vector<Workload> loads;
  loads.reserve(static_cast<std::size_t>(lib.size()));
  for (int model = 0; model < lib.size(); ++model) loads.emplace_back(lib, model);
  for (const Workload& load : loads) {
    if (!load.isFinite()) {
      std::cerr << load.name << ": a result is not finite at the inputs of the benchmark\n";
      return EXIT_FAILURE;
    }
    registerBenchmarks(load);
  }
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
}
