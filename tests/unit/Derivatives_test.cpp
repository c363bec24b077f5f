// Derivatives of every registered model against central differences of its value: unmasked, with
// each parameter masked, with an empty derivative vector and at other places of a longer vector.
// SPDX-License-Identifier: GPL-3.0-or-later
//
// A model that is registered needs a row in kModels; one without fails.
#include "Models.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>
#include <ostream>
#include <string>
#include <vector>

namespace {

using models::Call;
using models::Evaluation;
using models::kUntouched;
using models::Model;

/// Which masked derivatives a model writes all the same.
enum class Writes { kNone, kR20, kAll };

struct TestPoint {
  std::vector<double> x;
  std::vector<double> p;  ///< none of them 0
};

struct ModelPoints {
  const char* name;
  Writes masked;
  std::vector<TestPoint> points;
  double noise = 0.0;  ///< of value/parameter, for derivatives that the model itself differences
};

/// Forward differences with the step h = 1e-9 |p|: the two values are rounded, some 8 units of
/// 1.1e-16 each, which leaves the quotient an error of 2e-6 value/p. (That of h, 1e-7 of the
/// derivative, is within the 1e-6 asked of all.)
constexpr double kStepNoise = 2e-6;
constexpr double kModesNoise =
    2e-4;  // of value/parameter; rounding of the decomposition over the step

// clang-format off
const std::vector<ModelPoints> kModels = {
    // The elementary curves ignore the mask.
    {"Constant", Writes::kAll, {{{2.0}, {3.5}}, {{-1.0}, {-1e-3}}}},
    {"Linear", Writes::kAll, {{{2.0}, {3.5, -0.7}}, {{-40.0}, {1e3, 25.0}}}},
    {"Exp2", Writes::kAll, {{{0.05}, {100.0, -12.0}}, {{3.0}, {-2.0, 0.4}}, {{1.0}, {5.0, -30.0}}}},
    {"Exp3", Writes::kAll, {{{0.05}, {100.0, -12.0, 7.0}}, {{3.0}, {-2.0, 0.4, -1.0}}}},
    {"Gauss", Writes::kAll, {{{0.5}, {100.0, 3.0, 7.0}}, {{-2.0}, {-4.0, -0.3, 1.0}}}},
    {"Gauss2", Writes::kAll, {{{0.5}, {0.3, 3.0, 0.7, 0.8}}, {{-1.5}, {0.1, 0.9, 0.6, -0.3}}}},

    {"CPMG_const", Writes::kR20, {{{50, 298, 1}, {12.0}}, {{4000, 298, 1}, {0.3}}}},
    // u = 0.5, 5, 50, and 400, where the square of cosh overflows
    {"CPMG_Meiboom", Writes::kNone,
     {{{1000, 298, 1}, {1000, 1e5, 8}}, {{100, 298, 1.2}, {1000, 1e5, 8}},
      {{50, 298, 1}, {5000, 2e6, 8}}, {{10, 298, 1}, {8000, 3e7, 8}}}},
    {"CPMG_Torchia", Writes::kNone,
     {{{100, 298, 1}, {1500, 400, 0.03, 9}}, {{1000, 298, 1.3}, {900, 4000, 0.1, 12}},
      {{20, 298, 0.8}, {3000, 60, 0.01, 9}}}},
    // slow, intermediate and fast exchange; eta+ = 240, 450, 640; the asymptote beyond 710
    {"CPMG_Richards", Writes::kR20,
     {{{100, 298, 1}, {1500, 60, 0.03, 9}}, {{400, 298, 1.2}, {1300, 1100, 0.08, 11}},
      {{1000, 298, 1}, {700, 5000, 0.2, 20}}, {{20, 298, 1}, {2000, 5000, 0.1, 15}},
      {{20, 298, 1}, {2500, 9300, 0.1, 15}}, {{15, 298, 1}, {2500, 10000, 0.1, 15}},
      {{10, 298, 1}, {3000, 11000, 0.15, 15}}}},
    {"CPMG_Richards_p", Writes::kR20,
     {{{100, 298, 1}, {1500, 60, 0.03, 9}}, {{400, 298, 1.2}, {1300, 1100, 0.08, 11}},
      {{1000, 298, 1}, {700, 5000, 0.3, 20}}, {{10, 298, 1}, {3000, 11000, 0.15, 15}}}},
    {"CPMG_Richards_k", Writes::kR20,
     {{{100, 298, 1}, {1500, 12, 180, 9}}, {{400, 298, 1.2}, {1300, 100, 1000, 11}},
      {{1000, 298, 1}, {700, 3000, 2000, 20}}, {{10, 298, 1}, {3000, 1800, 9200, 15}}}},
    {"CPMG_Richards_probes", Writes::kR20,
     {{{100, 298, 1, 1}, {1500, 60, 0.03, 9}}, {{400, 298, 1.2, 2}, {1300, 1100, 0.08, 11}},
      {{1000, 298, 1, 3}, {700, 5000, 0.2, 20}}, {{10, 298, 1, 4}, {3000, 11000, 0.15, 15}}}},
    {"CPMG_RDC", Writes::kR20,
     {{{100, 298, 1, 1}, {600, 60, 150, 0.03, 9}}, {{400, 298, 1.2, 2}, {1300, -45, 1100, 0.08, 11}},
      {{1000, 298, 1, 3}, {700, 30, 5000, 0.2, 20}}, {{10, 298, 1, 1}, {3000, 80, 11000, 0.15, 15}}}},
    // kab and kba: 77 and 1012, 157 and 1405, 1013 and 9400 1/s
    {"CPMG_TEMP2", Writes::kR20,
     {{{200, 298, 1}, {1000, 15, 14, 0.0005, 0.00226, 10}},
      {{400, 308, 1.2}, {1400, 15.5, 13.5, 0.0022, 0.0000615, 12}},
      {{50, 298, 1}, {2500, 15, 14, 0.00562, 0.00669, 10}},
      {{10, 298, 1}, {3000, 15, 14, 0.00562, 0.0069, 10}}}},
    {"CPMG_Bind2", Writes::kR20,
     {{{100, 298, 1, 1}, {1500, 12, 180, 9}}, {{400, 298, 1.2, 2}, {1300, 100, 1000, 11}},
      {{1000, 298, 1, 0.5}, {700, 3000, 2000, 20}}, {{10, 298, 1, 1}, {3000, 1800, 9200, 15}}}},
    // comparable concentrations; ligand in excess; protein in excess
    {"CPMG_Bind2c", Writes::kR20,
     {{{200, 298, 1, 0.5}, {1000, 5, 450, 2e-4, 2e-4, 10}},
      {{300, 298, 1.2, 1}, {1400, 2, 700, 1e-5, 3e-4, 12}},
      {{300, 298, 1, 1}, {1400, 20, 700, 1e-3, 1e-4, 12}},
      {{10, 298, 1, 1}, {3000, 10, 9000, 1e-3, 9e-4, 12}}}},

    // The sigmoids, recoveries and CLEANEX ignore the mask.
    {"Sig", Writes::kAll, {{{290}, {-4, 8, 320, 1e4}}, {{315}, {-3, 6, 312, 7e4}}, {{330}, {-1, 2, 300, 4e4}}}},
    {"Sig_boltz", Writes::kAll, {{{40}, {0.8, -0.4, 52, 8}}, {{60}, {0.9, -0.2, 45, 12}}}},
    {"2Exp3", Writes::kAll, {{{0.3}, {0.6, -5, -0.6, 0.2}}, {{2}, {1.4, -2, -0.5, 0.1}}}},
    {"SIRE", Writes::kAll, {{{0.3}, {0.95, -1.8}}, {{2}, {-0.6, -0.5}}}},
    {"CLEANEX", Writes::kAll, {{{0.005, 298}, {30, 2, 0.5}}, {{0.05, 298}, {2, 1, 8}}, {{0.1, 298}, {400, 20, 0.3}}}},
    // on resonance, weak and strong locks, both signs of the offset
    // Forward differences, twelve models of matrices: kModesNoise.
    {"CPMG_matrix3", Writes::kNone,
     {{{150, 0.04, 0, 1}, {900, -600, 50, 700, 40, 900, 30, 10}}, {{600, 0.04, 0, 1.6}, {-500, 1200, 20, 400, 100, 1500, 60, 8}}}, kModesNoise},
    // Rates of 1 to 1000 1/s on and off the cycle.
    {"CPMG_temp3", Writes::kNone,
     {{{150, 298, 0, 1}, {900, -1300, 14, 11, 12, 10, 9, 14, -0.0034, -0.0086, -0.0083, -0.0141, -0.0148, -0.0037, 10}},
      {{600, 308, 0, 1.2}, {-700, 1100, 14, 11, 12, 10, 9, 14, -0.003, -0.008, -0.009, -0.014, -0.015, -0.004, 8}}}, kModesNoise},
    {"CPMG_temp3linear", Writes::kNone,
     {{{150, 298, 0, 1}, {900, -700, 14, 11, 12, 9, -0.0034, -0.0086, -0.0073, -0.0148, 10}},
      {{600, 308, 0, 1.2}, {-700, 1100, 14, 11, 12, 9, -0.003, -0.008, -0.008, -0.015, 8}}}, kModesNoise},
    {"CPMG_temp3folked", Writes::kNone,
     {{{150, 298, 0, 1}, {900, -1300, 14, 11, 9, 12, -0.0034, -0.0086, -0.0138, -0.0109, 10}},
      {{600, 308, 0, 1.2}, {-700, 1100, 14, 11, 9, 12, -0.003, -0.008, -0.014, -0.011, 8}}}, kModesNoise},
    {"CPMG_bind3a", Writes::kNone,
     {{{150, 0.04, 0, 1, 1}, {1000, -1500, 40, 400, 16, 800, 50, 250, 10}}, {{600, 0.04, 0, 1.2, 1}, {-700, 900, 90, 700, 30, 500, 20, 80, 8}}}, kModesNoise},
    {"CPMG_bind3b", Writes::kNone,
     {{{150, 0.04, 0, 1, 1}, {900, -1500, 40, 600, 180, 400, 10}}, {{600, 0.04, 0, 1.2, 1}, {-700, 900, 90, 700, 60, 500, 8}}}, kModesNoise},
    {"CPMG_bind3c_1F2B", Writes::kNone,
     {{{150, 0.04, 0, 1, 0.5}, {900, -1600, 5, 500, 2, 800, 60, 120, 1e-4, 1e-4, 10}},
      {{600, 0.04, 0, 1.2, 1.5}, {-700, 900, 3, 300, 6, 900, 20, 30, 3e-4, 1e-4, 8}}}, kModesNoise},
    {"CPMG_bind3c_2F1B", Writes::kNone,
     {{{150, 0.04, 0, 1, 0.5}, {700, -1500, 5, 500, 4, 800, 60, 30, 1e-4, 1e-4, 10}},
      {{600, 0.04, 0, 1.2, 1.5}, {-700, 900, 3, 300, 6, 900, 20, 13, 3e-4, 1e-4, 8}}}, kModesNoise},
    // codes 0 to 5; cosh near its overflow and beyond it
    {"MQCPMG_Richards", Writes::kNone,
     {{{150, 0.04, 298, 1, 0}, {400, 230, 800, 0.05, 10}}, {{150, 0.04, 298, 1.2, 1}, {400, 230, 800, 0.05, 10}},
      {{400, 0.04, 298, 1, 2}, {-900, 600, 1500, 0.02, 10}}, {{400, 0.04, 298, 1, 3}, {-900, 600, 1500, 0.02, 10}},
      {{100, 0.04, 298, 1, 4}, {500, 300, 300, 0.1, 10}}, {{100, 0.04, 298, 1, 5}, {500, 300, 300, 0.1, 10}},
      {{16.9, 0.04, 298, 1, 4}, {900, 500, 12000, 0.05, 5}}, {{10, 0.04, 298, 1, 5}, {900, 500, 11000, 0.05, 5}}}},
    {"MQCPMG_Richards_p", Writes::kNone,
     {{{150, 0.04, 298, 1, 0}, {400, 230, 800, 0.05, 10}}, {{150, 0.04, 298, 1.2, 1}, {400, 230, 800, 0.05, 10}},
      {{400, 0.04, 298, 1, 2}, {-900, 600, 1500, 0.02, 10}}, {{400, 0.04, 298, 1, 3}, {-900, 600, 1500, 0.02, 10}},
      {{100, 0.04, 298, 1, 4}, {500, 300, 300, 0.1, 10}}, {{100, 0.04, 298, 1, 5}, {500, 300, 300, 0.1, 10}},
      {{10, 0.04, 298, 1, 5}, {900, 500, 11000, 0.05, 5}}}},
    {"MQCPMG_Richards_k", Writes::kNone,
     {{{150, 0.04, 298, 1, 0}, {400, 230, 60, 700, 10}}, {{150, 0.04, 298, 1.2, 1}, {400, 230, 60, 700, 10}},
      {{400, 0.04, 298, 1, 2}, {-900, 600, 40, 1500, 10}}, {{400, 0.04, 298, 1, 3}, {-900, 600, 40, 1500, 10}},
      {{100, 0.04, 298, 1, 4}, {500, 300, 50, 300, 10}}, {{100, 0.04, 298, 1, 5}, {500, 300, 50, 300, 10}},
      {{10, 0.04, 298, 1, 4}, {900, 500, 1000, 10000, 5}}}},
    {"MQCPMG_Matrix2_p", Writes::kNone,
     {{{150.001, 0.04, 298, 1, 0}, {400, 230, 800, 0.05, 10}}, {{150.001, 0.04, 298, 1.2, 1}, {400, 230, 800, 0.05, 10}},
      {{400.001, 0.04, 298, 1, 2}, {-900, 600, 1500, 0.02, 10}}, {{400.001, 0.04, 298, 1, 3}, {-900, 600, 1500, 0.02, 10}},
      {{150.001, 0.04, 298, 1, 4}, {500, 300, 300, 0.1, 10}}, {{200.001, 0.04, 298, 1, 5}, {500, 300, 300, 0.1, 10}}}, kModesNoise},
    {"MQCPMG_Matrix2_k", Writes::kNone,
     {{{150.001, 0.04, 298, 1, 0}, {400, 230, 60, 700, 10}}, {{150.001, 0.04, 298, 1.2, 1}, {400, 230, 60, 700, 10}},
      {{400.001, 0.04, 298, 1, 2}, {-900, 600, 40, 1500, 10}}, {{400.001, 0.04, 298, 1, 3}, {-900, 600, 40, 1500, 10}},
      {{150.001, 0.04, 298, 1, 4}, {500, 300, 50, 300, 10}}, {{200.001, 0.04, 298, 1, 5}, {500, 300, 50, 300, 10}}}, kModesNoise},
    {"MQCPMG_Matrix3_p", Writes::kNone,
     {{{150.001, 0.04, 298, 1, 0}, {500, 150, -350, 300, 0.05, 0.03, 500, 200, 1500, 10}}, {{150.001, 0.04, 298, 1.2, 1}, {500, 150, -350, 300, 0.05, 0.03, 500, 200, 1500, 10}},
      {{400.001, 0.04, 298, 1, 2}, {-700, 400, 300, 200, 0.1, 0.2, 900, 300, 400, 10}}, {{400.001, 0.04, 298, 1, 3}, {-700, 400, 300, 200, 0.1, 0.2, 900, 300, 400, 10}},
      {{150.001, 0.04, 298, 1, 4}, {500, 150, -350, 300, 0.05, 0.03, 500, 200, 1500, 10}}, {{200.001, 0.04, 298, 1, 5}, {500, 150, -350, 300, 0.05, 0.03, 500, 200, 1500, 10}}}, kModesNoise},
    {"MQCPMG_Matrix3_k", Writes::kNone,
     {{{150.001, 0.04, 298, 1, 0}, {500, 150, -350, 300, 25, 500, 40, 1500, 30, 10}}, {{150.001, 0.04, 298, 1.2, 1}, {500, 150, -350, 300, 25, 500, 40, 1500, 30, 10}},
      {{400.001, 0.04, 298, 1, 2}, {-700, 400, 300, 200, 90, 800, 60, 400, 100, 10}}, {{400.001, 0.04, 298, 1, 3}, {-700, 400, 300, 200, 90, 800, 60, 400, 100, 10}},
      {{150.001, 0.04, 298, 1, 4}, {500, 150, -350, 300, 25, 500, 40, 1500, 30, 10}}, {{200.001, 0.04, 298, 1, 5}, {500, 150, -350, 300, 25, 500, 40, 1500, 30, 10}}}, kModesNoise},
    {"R1RHO_CONST", Writes::kNone, {{{100, 50, 298, 1}, {11, 1.7}}, {{50, -300, 298, 1.3}, {30, 0.9}}}},
    {"R1RHO_CONST_ON", Writes::kNone, {{{100, 0, 298, 1}, {11}}, {{1000, 0, 298, 1.3}, {30}}}},
    {"R1RHO_CONST_OFF", Writes::kNone, {{{50, 100, 298, 1}, {11, 1.7}}, {{-300, 50, 298, 1.3}, {30, 0.9}}}},
    {"R1RHO_LONDON", Writes::kNone,
     {{{100, 50, 298, 1}, {9e4, 900, 11, 1.7}}, {{1000, -800, 298, 1.3}, {2e6, 9000, 20, 2}}}},
    {"R1RHO_LONDON_OFF", Writes::kNone,
     {{{50, 100, 298, 1}, {9e4, 900, 11, 1.7}}, {{-800, 1000, 298, 1.3}, {2e6, 9000, 20, 2}}}},
    {"R1RHO_LONDON_ON", Writes::kNone,
     {{{100, 0, 298, 1}, {9e4, 900, 11}}, {{1000, 0, 298, 1.3}, {2e6, 9000, 20}}}},
    {"R1RHO_KAY", Writes::kNone,
     {{{100, 150, 298, 1}, {1500, 900, 0.04, 11, 1.7}}, {{400, -300, 298, 1.3}, {-900, 3000, 0.09, 20, 2}}}},
    {"R1RHO_KAY_ON", Writes::kNone,
     {{{100, 0, 298, 1}, {1500, 900, 0.04, 11}}, {{400, 0, 298, 1.3}, {-900, 3000, 0.09, 20}}}},
    {"R1RHO_KAY_OFF", Writes::kNone,
     {{{150, 100, 298, 1}, {1500, 900, 0.04, 11, 1.7}}, {{-300, 400, 298, 1.3}, {-900, 3000, 0.09, 20, 2}}}},
    {"R1RHO_PALMER02", Writes::kNone,
     {{{100, 150, 298, 1}, {1500, 900, 0.04, 11, 1.7}}, {{400, -300, 298, 1.3}, {-900, 3000, 0.3, 20, 2}}}, kStepNoise},
    {"R1RHO_PALMER02_ON", Writes::kNone,
     {{{100, 0, 298, 1}, {1500, 900, 0.04, 11}}, {{400, 0, 298, 1.3}, {-900, 3000, 0.3, 20}}}, kStepNoise},
    {"R1RHO_PALMER02_OFF", Writes::kNone,
     {{{150, 100, 298, 1}, {1500, 900, 0.04, 11, 1.7}}, {{-300, 400, 298, 1.3}, {-900, 3000, 0.3, 20, 2}}}, kStepNoise},
    {"R1RHO_PALMER05", Writes::kNone,
     {{{100, 150, 298, 1}, {1500, 900, 0.04, 11, 1.7}}, {{400, -300, 298, 1.3}, {-900, 3000, 0.3, 20, 2}}}, kStepNoise},
    {"R1RHO_PALMER05_ON", Writes::kNone,
     {{{100, 0, 298, 1}, {1500, 900, 0.04, 11}}, {{400, 0, 298, 1.3}, {-900, 3000, 0.3, 20}}}, kStepNoise},
    {"R1RHO_PALMER05_OFF", Writes::kNone,
     {{{150, 100, 298, 1}, {1500, 900, 0.04, 11, 1.7}}, {{-300, 400, 298, 1.3}, {-900, 3000, 0.3, 20, 2}}}, kStepNoise},
};
// clang-format on

/// Derivatives that are not those of the value on purpose, each with the reason why it stays so.
/// The test fails when one of them becomes exact.
struct Inexact {
  const char* model;
  const char* parm;
};
const std::vector<Inexact> kInexact = {
    {"Sig", "tm"},        // without the factor 1/R, and without dh in the second term
    {"2Exp3", "a"},       // the second amplitude, |1 - a|, is taken as constant
    {"R1RHO_KAY", "pB"},  // the offset of the minor site is taken as constant, here and below
    {"R1RHO_KAY_ON", "pB"}, {"R1RHO_KAY_OFF", "pB"},
};

bool isInexact(const Model& model, std::size_t k) {
  return std::any_of(kInexact.begin(), kInexact.end(), [&](const Inexact& entry) {
    return model.lib().Name() == entry.model && model.parmName(k) == entry.parm;
  });
}

const ModelPoints* pointsOf(const std::string& name) {
  const auto row = std::find_if(kModels.begin(), kModels.end(),
                                [&](const ModelPoints& model) { return name == model.name; });
  return row == kModels.end() ? nullptr : &*row;
}

double centralDifference(const Model& model, const Call& call, std::size_t k) {
  const double step = std::cbrt(std::numeric_limits<double>::epsilon()) * std::fabs(call.p[k]);
  Call ahead = call;
  Call behind = call;
  ahead.p[k] += step;
  behind.p[k] -= step;
  return (model.value(ahead) - model.value(behind)) / (ahead.p[k] - behind.p[k]);
}

/// Compares to 1e-6 of the larger derivative. Where that is below 1e-4 of value/parameter, rounding
/// of the value leaves the difference fewer digits, and the scale stays at 1e-4 of it.
/// `noise` times value/parameter is allowed on top.
testing::AssertionResult matches(const Model& model, const Call& call, std::size_t k,
                                 const Evaluation& e, double noise) {
  const double difference = centralDifference(model, call, k);
  const double scale = std::max(
      {std::fabs(e.dydp[k]), std::fabs(difference), 1e-4 * std::fabs(e.value / call.p[k])});
  const double tolerance = 1e-6 * scale + noise * std::fabs(e.value / call.p[k]);
  if (std::fabs(e.dydp[k] - difference) <= tolerance) return testing::AssertionSuccess();
  std::ostringstream text;
  text.precision(12);
  text << model.lib().Name() << ", derivative of " << model.parmName(k) << " at x0 = " << call.x[0]
       << ": " << e.dydp[k] << ", by differences " << difference;
  return testing::AssertionFailure() << text.str();
}

class Derivatives : public testing::TestWithParam<std::string> {
 protected:
  void SetUp() override {
    const ModelPoints* row = pointsOf(GetParam());
    ASSERT_NE(row, nullptr) << GetParam() << " is registered and has no points in kModels";
    ASSERT_GE(row->points.size(), 2U) << GetParam();
    masked_ = row->masked;
    noise_ = row->noise;
    for (const TestPoint& point : row->points) calls_.push_back({.x = point.x, .p = point.p});
  }

  /// What stands in the slot of a masked parameter after a call, given the derivative there.
  [[nodiscard]] double whenMasked(const Model& model, std::size_t k, double unmasked) const {
    if (masked_ == Writes::kAll) return unmasked;
    if (masked_ == Writes::kR20 && model.parmName(k) == "R20") return unmasked;
    return kUntouched;
  }

  Writes masked_ = Writes::kNone;
  double noise_ = 0.0;
  std::vector<Call> calls_;
};

INSTANTIATE_TEST_SUITE_P(All, Derivatives, testing::ValuesIn(models::registeredNames()),
                         [](const auto& test) { return test.param; });

TEST_P(Derivatives, MatchCentralDifferences) {
  const Model model(GetParam());
  for (std::size_t k = 0; k < model.size(); ++k) {
    bool exact = true;
    for (const Call& call : calls_) {
      const Evaluation e = model.evaluateFresh(call);
      ASSERT_TRUE(std::isfinite(e.value));
      const testing::AssertionResult result = matches(model, call, k, e, noise_);
      exact = exact && result;
      EXPECT_TRUE(result || isInexact(model, k)) << result.message();
    }
    EXPECT_FALSE(exact && isInexact(model, k)) << model.parmName(k) << " became exact";
  }
}

TEST_P(Derivatives, NothingElseIsWritten) {
  const Model model(GetParam());
  for (const Call& call : calls_) {
    const Evaluation e = model.evaluateFresh(call);
    for (std::size_t i = 0; i < e.dydp.size(); ++i) {
      EXPECT_EQ(e.dydp[i] == kUntouched, i >= model.size()) << i;
    }
  }
}

TEST_P(Derivatives, MaskedSlotIsLeftAlone) {
  const Model model(GetParam());
  for (Call call : calls_) {
    const Evaluation all = model.evaluateFresh(call);
    for (std::size_t k = 0; k < model.size(); ++k) {
      SCOPED_TRACE(model.parmName(k));
      call.masked = {k};
      const Evaluation e = model.evaluateFresh(call);
      EXPECT_EQ(e.value, all.value);
      for (std::size_t i = 0; i < model.size(); ++i) {
        EXPECT_EQ(e.dydp[i], i == k ? whenMasked(model, k, all.dydp[k]) : all.dydp[i]);
      }
    }
  }
}

TEST_P(Derivatives, AllSlotsMaskedAtOnceAreLeftAlone) {
  const Model model(GetParam());
  for (Call call : calls_) {
    const Evaluation all = model.evaluateFresh(call);
    call.masked.resize(model.size());
    std::iota(call.masked.begin(), call.masked.end(), 0U);
    const Evaluation e = model.evaluateFresh(call);
    EXPECT_EQ(e.value, all.value);
    for (std::size_t k = 0; k < model.size(); ++k) {
      EXPECT_EQ(e.dydp[k], whenMasked(model, k, all.dydp[k])) << model.parmName(k);
    }
  }
}

TEST_P(Derivatives, AnEmptyVectorStaysEmptyAndTheValueIsTheSame) {
  const Model model(GetParam());
  for (const Call& call : calls_) {
    const double with_derivatives = model.evaluateFresh(call).value;
    Call elsewhere = call;
    for (double& p : elsewhere.p) p *= 1.01;
    static_cast<void>(model.value(elsewhere));       // so that this value is not an old one either
    EXPECT_EQ(model.value(call), with_derivatives);  // value() looks at the vector
  }
}

/// Places of the parameters in a longer vector: behind three others, in order or reversed.
std::vector<std::vector<int>> shiftedMaps(std::size_t size) {
  std::vector<int> shifted(size);
  std::iota(shifted.begin(), shifted.end(), 3);
  std::vector<int> reversed(shifted.rbegin(), shifted.rend());
  return {shifted, reversed};
}

TEST_P(Derivatives, FollowTheParameterMap) {
  const Model model(GetParam());
  for (Call call : calls_) {
    call.parmap.clear();
    const Evaluation all = model.evaluateFresh(call);
    for (const std::vector<int>& map : shiftedMaps(model.size())) {
      std::vector<double> expected(map.size() + 6, kUntouched);
      for (std::size_t k = 0; k < map.size(); ++k) {
        expected[static_cast<std::size_t>(map[k])] = all.dydp[k];
      }
      call.parmap = map;
      const Evaluation e = model.evaluateFresh(call);
      EXPECT_EQ(e.value, all.value);
      EXPECT_EQ(e.dydp, expected);
    }
  }
}

TEST_P(Derivatives, MaskIsReadAtTheMappedPosition) {
  const Model model(GetParam());
  for (Call call : calls_) {
    call.parmap.clear();
    call.masked.clear();
    const Evaluation all = model.evaluateFresh(call);
    for (const std::vector<int>& map : shiftedMaps(model.size())) {
      call.parmap = map;
      for (std::size_t k = 0; k < model.size(); ++k) {
        const auto own = static_cast<std::size_t>(map[k]);
        call.masked = {0, 1, 2, own, map.size() + 3};  // four bits of nobody's and one of k
        const Evaluation e = model.evaluateFresh(call);
        for (std::size_t i = 0; i < model.size(); ++i) {
          EXPECT_EQ(e.dydp[static_cast<std::size_t>(map[i])],
                    i == k ? whenMasked(model, k, all.dydp[k]) : all.dydp[i])
              << model.parmName(k) << " masked, " << model.parmName(i);
        }
      }
    }
  }
}

}  // namespace
