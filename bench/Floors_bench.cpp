// What the arithmetic itself costs: the floors that performance figures are relative to.
// SPDX-License-Identifier: GPL-3.0-or-later
//
// Each floor stands beside the code it bounds and runs on the same numbers, so that their ratio
// means the same on every machine. Results are checked before anything is timed.
#include "Calc.h"
#include "Fit.h"
#include "FuncLib.h"
#include "Method.h"
#include "ParDef.h"
#include "Random.h"
#include "Setup.h"
#include "Xmgr.h"

#include <benchmark/benchmark.h>

#include <array>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <random>
#include <string>
#include <vector>

namespace {

[[noreturn]] void wrong(const std::string& what) {
  std::cerr << what << ": the result is not what it should be\n";
  std::exit(EXIT_FAILURE);
}

// ---- two sites: the transcendental functions of the closed form ----

constexpr std::size_t kPoints = 15;
constexpr double kShift = 1300.0, kRate = 900.0, kProduct = 0.0475, kR20 = 10.0;

/// The arguments that "CPMG_Richards" hands to the mathematical library at one point.
struct Arguments {
  double sum, difference;  // (psi + Q)/2 and (Q - psi)/2
  double eta_p, eta_m, Y;
};

double x0Of(std::size_t point) { return 50.0 + 66.0 * static_cast<double>(point); }

std::array<Arguments, kPoints> argumentsOfCurve() {
  std::array<Arguments, kPoints> all{};
  const double psi = kRate * kRate - kShift * kShift;
  const double zeta = 2.0 * kShift * kRate * std::sqrt(1.0 - 4.0 * kProduct);
  const double Q = std::sqrt(psi * psi + zeta * zeta);
  const double r = (kShift * kShift + kRate * kRate) / Q;
  for (std::size_t i = 0; i < kPoints; ++i) {
    Arguments& at = all[i];
    at.sum = (psi + Q) / 2.0;
    at.difference = (Q - psi) / 2.0;
    at.eta_p = std::sqrt(at.sum) / x0Of(i);
    at.eta_m = std::sqrt(at.difference) / x0Of(i);
    at.Y = (r + 1.0) / 2.0 * std::cosh(at.eta_p) - (r - 1.0) / 2.0 * std::cos(at.eta_m);
  }
  return all;
}

Data pointOfCurve(std::size_t point) {
  Data d;
  d.x = {x0Of(point), 298.0, 1.0};
  d.index = {0, 0};
  d.parmap = {0, 1, 2, 3};
  return d;
}

/// The functions and square roots of the value alone, or with those of the derivatives.
void bareCalls(benchmark::State& state, bool derivatives) {
  const std::array<Arguments, kPoints> curve = argumentsOfCurve();
  std::size_t call = 0;
  for (auto _ : state) {
    const Arguments& at = curve[call];
    if (++call == kPoints) call = 0;
    benchmark::DoNotOptimize(std::sqrt(at.sum));
    benchmark::DoNotOptimize(std::sqrt(at.difference));
    benchmark::DoNotOptimize(std::cosh(at.eta_p));
    benchmark::DoNotOptimize(std::cos(at.eta_m));
    benchmark::DoNotOptimize(std::acosh(at.Y));
    if (!derivatives) continue;
    benchmark::DoNotOptimize(std::sinh(at.eta_p));
    benchmark::DoNotOptimize(std::sin(at.eta_m));
    benchmark::DoNotOptimize(std::sqrt(at.Y * at.Y - 1.0));
    benchmark::DoNotOptimize(std::sqrt(8.0 * at.sum));
    benchmark::DoNotOptimize(std::sqrt(8.0 * at.difference));
  }
}

void closedForm(benchmark::State& state, ModelFunc model, std::vector<double> dydp) {
  std::vector<Data> points;
  for (std::size_t i = 0; i < kPoints; ++i) points.push_back(pointOfCurve(i));
  const std::array<Arguments, kPoints> curve = argumentsOfCurve();
  const std::vector<bool> skip(4, false);
  std::array<double, 4> p = {kShift, kRate, kProduct, kR20};
  for (std::size_t i = 0; i < kPoints; ++i) {
    const double bare = kR20 + 0.5 * (kRate - x0Of(i) * std::acosh(curve[i].Y));
    if (!(std::abs(model(points[i], p.data(), dydp, skip) - bare) < 1e-9)) wrong("CPMG_Richards");
  }
  std::size_t call = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(model(points[call], p.data(), dydp, skip));
    benchmark::ClobberMemory();
    if (++call == kPoints) call = 0;
  }
}

// ---- two sites: a whole global fit ----

long long calls = 0;  // of the model that counts

ModelFunc counted_model = nullptr;

double countingModel(const Data& d, double* p, std::vector<double>& dydp,
                     const std::vector<bool>& skip) {
  ++calls;
  return counted_model(d, p, dydp, skip);
}

/// The registry with one more model, "Counting": CPMG_Richards, its calls counted.
void addCountingModel(Funclib& lib) {
  lib.Pick_Func("CPMG_Richards");
  counted_model = lib.Func();
  const Rules& rules = lib.Get_Rules();
  const int model =
      lib.Define_Func(countingModel, "Counting", "", "CT-CPMG", 3, 2, 0, lib.keepsSlopes());
  for (unsigned k = 0; k < rules.basePAR_size(); ++k) {
    lib.Define_Parm(model, rules.baseName(k).c_str(), rules.Get_LowerBound(k),
                    rules.Get_UpperBound(k), rules.indexRule(k).c_str());
  }
}

/// What a fit is made of, read from an input file.
struct Job {
  Funclib funclib;
  Method method;
  ParDef pardef;
  Calc calc;
  Xmgr xmgr;

  explicit Job(const std::string& file) {
    Setup setup;
    const char* const argv[] = {"dravo", "-i", file.c_str(), "-o", "/dev/null"};
    setup.ProcCmdLine(5, argv, xmgr);
    addCountingModel(funclib);
    setup.ReadInputFile(funclib, method, pardef, calc, xmgr);
    pardef.prep();
  }

  /// Chi-square of a complete fit.
  double run() {
    Fit fit("", funclib, method, pardef, calc, xmgr, "/dev/null", 0, 6);
    fit.run_FIT(false);
    return fit.best().total();
  }
};

/// The time of a whole fit for each call of its model: divides by the calls counted in a fit of the
/// same data by the model that counts.
void wholeFit(benchmark::State& state, const std::string& plain, const std::string& counting) {
  Job counted(counting);
  calls = 0;
  const double chi = counted.run();
  const double calls_of_one = static_cast<double>(calls);
  Job job(plain);
  if (job.run() != chi) wrong("the fit of " + plain);
  for (auto _ : state) benchmark::DoNotOptimize(job.run());
  state.counters["calls"] = calls_of_one;
}

// ---- random draws ----

std::uint32_t tick = 0;

std::uint32_t nextTick() { return ++tick; }

void freshEngine(benchmark::State& state) {
  for (auto _ : state) {
    std::mt19937 engine(
        static_cast<std::uint32_t>(std::chrono::system_clock::now().time_since_epoch().count()));
    benchmark::DoNotOptimize(std::generate_canonical<double, 53>(engine));
  }
}

void draw(benchmark::State& state) {
  Random checked(nextTick);
  for (std::uint32_t seed = 1; seed <= 1000; ++seed) {
    tick = seed - 1;
    std::mt19937 engine(seed);
    if (checked.unirand() != std::generate_canonical<double, 53>(engine)) wrong("a draw");
  }
  Random random;
  for (auto _ : state) benchmark::DoNotOptimize(random.unirand());
}

// ---- reading the input ----

/// The plain way through the numbers of a file: getline, and strtod on the fields of DATA lines.
void plainReading(benchmark::State& state, const std::string& file) {
  for (auto _ : state) {
    std::ifstream input(file);
    std::string line;
    double sum = 0.0;
    while (std::getline(input, line)) {
      if (line.rfind("DATA", 0) != 0) continue;
      const char* at = line.c_str() + 4;
      char* end = nullptr;
      for (double x = std::strtod(at, &end); end != at; x = std::strtod(at, &end)) {
        sum += x;
        at = end;
      }
    }
    benchmark::DoNotOptimize(sum);
  }
}

void reading(benchmark::State& state, const std::string& file, int points) {
  for (auto _ : state) {
    const Job job(file);
    if (job.pardef.DATAsize() != points) wrong("the reading of " + file);
  }
}

}  // namespace

int main(int argc, char* argv[]) {
  benchmark::Initialize(&argc, argv);
  if (argc != 4) {
    std::cerr
        << "usage: Floors_bench [--benchmark_...] GLOBAL COUNTING MILLION\n"
           "  the input files of a global fit of CPMG_Richards, of the same data by the model\n"
           "  Counting, and one of a million DATA lines; jobs.py writes them\n";
    return EXIT_FAILURE;
  }
  const std::string plain = argv[1], counting = argv[2], million = argv[3];
  Funclib lib;
  lib.Pick_Func("CPMG_Richards");
  const ModelFunc richards = lib.Func();
  const std::vector<double> value_only;
  const std::vector<double> all(4, 0.0);
  benchmark::RegisterBenchmark("two_sites/floor/value", bareCalls, false);
  benchmark::RegisterBenchmark("two_sites/model/value", closedForm, richards, value_only);
  benchmark::RegisterBenchmark("two_sites/floor/derivatives", bareCalls, true);
  benchmark::RegisterBenchmark("two_sites/model/derivatives", closedForm, richards, all);
  benchmark::RegisterBenchmark("two_sites/fit", wholeFit, plain, counting)
      ->Unit(benchmark::kMillisecond);
  benchmark::RegisterBenchmark("draw/floor", freshEngine);
  benchmark::RegisterBenchmark("draw/dravo", draw);
  benchmark::RegisterBenchmark("reading/floor", plainReading, million)
      ->Unit(benchmark::kMillisecond);
  benchmark::RegisterBenchmark("reading/dravo", reading, million, 1000000)
      ->Unit(benchmark::kMillisecond);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
}
