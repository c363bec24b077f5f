// Fits that recover known parameters from synthetic data with noise, model by model: one set alone,
// then two sets that share some of the parameters.
// SPDX-License-Identifier: GPL-3.0-or-later
//
// The data come from the model function itself: tested is the path from the input text to values
// and errors, with the labels, the sharing and the fit's own derivatives, not the formulas. Rates
// in 1/s, shift differences in rad/s at field factor 1, enthalpies in kcal/mol, entropies in
// kcal/(mol K), concentrations in mol/l, kon in 1/(umol/l s).
#include "Models.h"
#include "SyntheticFit.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iostream>
#include <ostream>
#include <string>
#include <vector>

namespace {

enum class Role { kOwn, kShared, kAlone, kFixed };

/// A parameter as the input names it, with its labels or, for one value at all labels, without.
struct Parm {
  const char* name;
  Role role;
  double truth;
  double second;  ///< truth in the second of two sets; that of the first unless own
  double start;   ///< the fit starts at the truth times this
};

/// Adjusted for each set, also where there are two.
Parm own(const char* name, double truth, double second, double start = 1.1) {
  return {name, Role::kOwn, truth, second, start};
}
/// Adjusted; one for both sets where there are two.
Parm shared(const char* name, double truth, double start = 1.1) {
  return {name, Role::kShared, truth, truth, start};
}
/// Adjusted in a set alone, fixed where sets share others: a shared fit minimises each set anew at
/// every step, and takes long where the parameters of the sets trade off against the shared ones.
Parm alone(const char* name, double truth, double start = 1.1) {
  return {name, Role::kAlone, truth, truth, start};
}
Parm fixed(const char* name, double truth) { return {name, Role::kFixed, truth, truth, 1.0}; }

/// Points with the same labels, one for each x0 of the design.
struct Curve {
  std::string labels;        ///< one digit each
  std::vector<double> rest;  ///< x1, x2, ...
};

struct Recovery {
  const char* model;
  const char* method;  ///< ONEEX, or ONE where derivatives are differences or the model is costly
  double sigma;
  std::vector<double> x0;
  std::vector<Curve> curves;
  std::vector<Parm> parms;
};

void PrintTo(const Recovery& recovery, std::ostream* out) { *out << recovery.model; }

const std::vector<double> kAbscissae = {0.05, 0.1, 0.15, 0.2, 0.3, 0.4, 0.5, 0.6,
                                        0.7,  0.8, 0.9,  1.0, 1.1, 1.2, 1.4, 1.6,
                                        1.8,  2.0, 2.2,  2.4, 2.6, 2.8, 3.0, 3.5};
const std::vector<double> kRates = {50, 100, 200, 300, 400, 600, 800, 1000, 1400, 2000};
// Two pulses and more in 0.04 s. The 0.001 keeps rounding from costing a block of pulses.
const std::vector<double> kTrains = {50.001,  100.001, 150.001, 200.001,  300.001,
                                     400.001, 600.001, 800.001, 1000.001, 1500.001};

const std::vector<Curve> kPlain = {{"", {}}};
const std::vector<Curve> kTwoFields = {{"11", {298, 1}}, {"12", {298, 1.6}}};
const std::vector<Curve> kTemperatures = {
    {"11", {278, 1}}, {"21", {288, 1}}, {"31", {298, 1}}, {"41", {308, 1}}};
const std::vector<Curve> kThreeSiteTemperatures = {
    {"11", {278, 0, 1}}, {"21", {288, 0, 1}}, {"31", {298, 0, 1}}, {"41", {308, 0, 1}}};
const std::vector<Curve> kTitration = {
    {"111", {298, 1, 0.05}}, {"112", {298, 1, 0.2}}, {"113", {298, 1, 0.45}}};
// Two concentrations at two fields.
const std::vector<Curve> kThreeSiteTitration = {{"111", {0.04, 0, 1, 0.1}},
                                                {"112", {0.04, 0, 1, 0.4}},
                                                {"121", {0.04, 0, 1.6, 0.1}},
                                                {"122", {0.04, 0, 1.6, 0.4}}};
// 15N and 1H single quantum, 15N multiple quantum.
const std::vector<Curve> kCoherences = {
    {"111", {0.04, 0, 1, 0}}, {"112", {0.04, 0, 1, 1}}, {"115", {0.04, 0, 1, 4}}};
const std::vector<Curve> kFourCoherences = {{"111", {0.04, 0, 1, 0}},
                                            {"112", {0.04, 0, 1, 1}},
                                            {"113", {0.04, 0, 1, 2}},
                                            {"114", {0.04, 0, 1, 3}}};

// clang-format off
const std::vector<Recovery> kElementary = {
    {"Constant", "ONEEX", 0.3, kAbscissae, kPlain, {shared("c", 5)}},
    {"Linear", "ONEEX", 0.1, kAbscissae, kPlain, {shared("a", 2), own("b", 3, -1.5)}},
    {"Exp2", "ONEEX", 0.05, kAbscissae, kPlain, {own("a", 10, 6), shared("b", -1.2)}},
    {"Exp3", "ONEEX", 0.05, kAbscissae, kPlain,
     {own("a", 10, -6), shared("b", -1.5), own("c", 2, 3)}},
    {"Gauss", "ONEEX", 0.05, kAbscissae, kPlain,
     {own("a", 8, 5), shared("b", 1.3), own("c", 2, 1)}},
    {"Gauss2", "ONEEX", 0.002, kAbscissae, kPlain,
     {own("a", 0.3, 0.4), shared("b", 8), own("c", 0.8, 0.7), shared("d", 0.6)}},
};

const std::vector<Recovery> kTwoSites = {
    {"CPMG_const", "ONEEX", 0.3, kRates, kTwoFields,
     {shared("R20_1_1", 9), own("R20_1_2", 12, 15)}},
    {"CPMG_Meiboom", "ONEEX", 0.05, kRates, kTwoFields,
     {shared("kex", 1500), own("pdw", 20000, 30000), own("R20_1_1", 9, 10),
      own("R20_1_2", 11, 13)}},
    {"CPMG_Torchia", "ONEEX", 0.05, kRates, kTwoFields,
     {own("dw", 1500, 2000), shared("kex", 1200), shared("papb", 0.04), own("R20_1_1", 9, 10),
      own("R20_1_2", 11, 13)}},
    {"CPMG_Richards", "ONEEX", 0.1, kRates, kTwoFields,
     {own("dw", 1500, 2200), shared("kex", 800), shared("papb", 0.05), own("R20_1_1", 9, 10),
      own("R20_1_2", 11, 13)}},
    {"CPMG_Richards_p", "ONEEX", 0.1, kRates, kTwoFields,
     {own("dw", 1500, 2200), shared("kex", 800), shared("pb", 0.06), own("R20_1_1", 9, 10),
      own("R20_1_2", 11, 13)}},
    {"CPMG_Richards_k", "ONEEX", 0.1, kRates, kTwoFields,
     {own("dw", 1500, 2200), shared("kab", 50), shared("kba", 750), own("R20_1_1", 9, 10),
      own("R20_1_2", 11, 13)}},
    {"CPMG_Richards_probes", "ONEEX", 0.1, kRates,
     {{"111", {298, 1, 1}}, {"121", {298, 1.6, 1}}, {"112", {298, 1, 2}}, {"122", {298, 1.6, 2}}},
     {own("dw_1", 1500, 1800), own("dw_2", 900, 2500), shared("kex", 800), shared("papb", 0.05),
      own("R20_1_1_1", 9, 10), own("R20_1_2_1", 11, 13), own("R20_1_1_2", 7, 12),
      own("R20_1_2_2", 8, 14)}},
    // One R20 for the three pulse sequences: without dJ, in-phase and antiphase.
    {"CPMG_RDC", "ONEEX", 0.1, kRates,
     {{"111", {298, 1, 0}}, {"112", {298, 1, 1}}, {"113", {298, 1, 2}}},
     {own("dw", 1500, 2000), own("dJ", 60, -80), shared("kex", 800), shared("papb", 0.05),
      own("R20", 9, 11)}},
    // kab 51, kba 780 at 298 K
    {"CPMG_TEMP2", "ONEEX", 0.05, kRates, kTemperatures,
     {own("dw", 1500, 2000), shared("dHab", 16, 1.01), shared("dHba", 12, 1.01),
      shared("dSab", 0.003, 1.1), shared("dSba", -0.005, 1.1), own("R20_1_1", 12, 14),
      own("R20_2_1", 10, 12), own("R20_3_1", 9, 11), own("R20_4_1", 8, 10)}},
    {"CPMG_Bind2", "ONEEX", 0.1, kRates,
     {{"111", {298, 1, 0.1}}, {"112", {298, 1, 0.2}}, {"121", {298, 1.6, 0.1}},
      {"122", {298, 1.6, 0.2}}},
     {own("dw", 1500, 2000), shared("Bkon_1_1", 30), shared("Bkon_1_2", 60), shared("koff", 600),
      own("R20_1_1_1", 9, 10), own("R20_1_1_2", 8, 12), own("R20_1_2_1", 11, 13),
      own("R20_1_2_2", 10, 14)}},
    // The data hold kon [B] alone. A common factor of A0 and B0 is undone by kon, and their ratio
    // shows little: both are fixed.
    {"CPMG_Bind2c", "ONEEX", 0.1, kRates, kTitration,
     {own("dw", 1500, 1100), shared("kon", 5), shared("koff", 500), fixed("A0", 1e-4),
      fixed("B0", 1e-4), own("R20_1_1_1", 9, 10), own("R20_1_1_2", 8, 12),
      own("R20_1_1_3", 11, 13)}},
};

// Without some of the exchange between sites, rates keep to the detailed balance that the models
// take for granted, whatever the fit tries.
const std::vector<Recovery> kThreeSites = {
    // At 298 K kab 31, kba 780, kbc 200, kcb 810, kca 1600, kac 16, in detailed balance at every
    // temperature. Only dHab is adjusted: more would trade off against each other, with rates far
    // from balance.
    {"CPMG_temp3", "ONE", 0.05, kRates, kThreeSiteTemperatures,
     {shared("dwab", 1200), alone("dwac", -1800), shared("dHab", 16, 1.01),
      fixed("dHba", 12), fixed("dHbc", 14), fixed("dHcb", 9), fixed("dHca", 8), fixed("dHac", 17),
      fixed("dSab", 0.002), fixed("dSba", -0.005), fixed("dSbc", -0.001), fixed("dScb", -0.015),
      fixed("dSca", -0.017), fixed("dSac", 0.004), own("R20_1_1", 12, 14), own("R20_2_1", 10, 12),
      own("R20_3_1", 9, 11), own("R20_4_1", 8, 10)}},
    // The same without exchange between B and C; entropies trade off against enthalpies.
    {"CPMG_temp3folked", "ONE", 0.05, kRates, kThreeSiteTemperatures,
     {shared("dwab", 1200), alone("dwac", -1800), shared("dHab", 16, 1.01),
      alone("dHba", 12, 1.01), alone("dHca", 8, 1.01), alone("dHac", 17, 1.01),
      fixed("dSab", 0.002), fixed("dSba", -0.005), fixed("dSca", -0.017), fixed("dSac", 0.004),
      own("R20_1_1", 12, 14), own("R20_2_1", 10, 12), own("R20_3_1", 9, 11),
      own("R20_4_1", 8, 10)}},
    // F - B1 - B2
    {"CPMG_bind3a", "ONE", 0.03, kRates, kThreeSiteTitration,
     {shared("dwfb1", 900), alone("dwfb2", -1600), shared("Bkon1_1_1", 25),
      shared("Bkon1_1_2", 60), shared("koff1", 500), fixed("Bkon2", 0), fixed("koff2", 0),
      alone("k12", 120), alone("k21", 150), own("R20_1_1_1", 9, 10), own("R20_1_1_2", 8, 12),
      own("R20_1_2_1", 11, 13), own("R20_1_2_2", 10, 14)}},
    // F - I - B
    {"CPMG_bind3b", "ONE", 0.05, kRates, kThreeSiteTitration,
     {shared("dwfi", 900), alone("dwfb", -1600), shared("kfi", 40), shared("kif", 600),
      alone("Bkon_1_1", 100), alone("Bkon_1_2", 250), alone("koff", 400),
      own("R20_1_1_1", 9, 10), own("R20_1_1_2", 8, 12), own("R20_1_2_1", 11, 13),
      own("R20_1_2_2", 10, 14)}},
    // F2 - F1 - B; A0 and B0 as with two sites
    {"CPMG_bind3c_2F1B", "ONE", 0.05, kRates, kThreeSiteTitration,
     {shared("dwf1f2", 1200), alone("dwf1b", -1600), shared("kon1", 5),
      shared("koff1", 800), fixed("kon2", 0), fixed("koff2", 0), alone("k12", 40),
      alone("k21", 600), fixed("A0", 1e-4), fixed("B0", 1e-4), own("R20_1_1_1", 9, 10),
      own("R20_1_1_2", 8, 12), own("R20_1_2_1", 11, 13), own("R20_1_2_2", 10, 14)}},
};

const std::vector<Parm> kTwoRates = {
    shared("dwN", 400), alone("dwH", 230), shared("kab", 64), shared("kba", 736),
    own("R20_1_1_1", 8, 10), own("R20_1_1_2", 9, 11), own("R20_1_1_5", 12, 14)};

const std::vector<Recovery> kMultipleQuantum = {
    {"MQCPMG_Richards_p", "ONE", 0.05, kTrains, kCoherences,
     {own("dwN", 400, 600), own("dwH", 230, 150), shared("kex", 800), shared("pb", 0.08),
      own("R20_1_1_1", 8, 10), own("R20_1_1_2", 9, 11), own("R20_1_1_5", 12, 14)}},
    {"MQCPMG_Richards_k", "ONE", 0.05, kTrains, kCoherences, kTwoRates},
    {"MQCPMG_Matrix2_k", "ONE", 0.05, kTrains, kCoherences, kTwoRates},
    // B - A - C
    {"MQCPMG_Matrix3_k", "ONE", 0.02, kTrains, kFourCoherences,
     {shared("dwabN", 500, 1.04), alone("dwabH", 150, 0.96), alone("dwacN", -350, 1.04),
      alone("dwacH", 300, 0.96), shared("kab", 27, 1.04), shared("kba", 473, 0.96),
      alone("kac", 48, 1.04), alone("kca", 1452, 0.96), fixed("kbc", 0),
      own("R20_1_1_1", 8, 10), own("R20_1_1_2", 9, 11), own("R20_1_1_3", 10, 12),
      own("R20_1_1_4", 11, 13)}},
};
// clang-format on

std::vector<int> labelsOf(const Curve& curve) {
  std::vector<int> labels;
  for (const char digit : curve.labels) labels.push_back(digit - '0');
  return labels;
}

/// Whether a parameter with these indices is that of a point with these labels.
bool covers(const std::vector<int>& indices, const std::vector<int>& labels) {
  for (std::size_t q = 0; q < indices.size(); ++q) {
    if (indices[q] != Rules::kAnyLabel && indices[q] != labels[q]) return false;
  }
  return true;
}

/// The input text of a fit to noisy data, with chi-square at the truth.
class Input {
 public:
  Input(const Recovery& recovery, std::uint32_t seed)
      : recovery_(recovery),
        model_(recovery.model),
        noise_(seed),
        text_(std::string("FUNCTION ") + recovery.model + "\nMETHOD INIT\nMETHOD " +
              recovery.method + '\n') {}

  /// The shared parameters, each with a range from half to twice its truth.
  void addGlobals() {
    for (const Parm& parm : recovery_.parms) {
      if (parm.role != Role::kShared) continue;
      const auto [low, high] = std::minmax({0.5 * parm.truth, 2.0 * parm.truth});
      text_ += std::string("GPAR ") + parm.name + ' ' + problem::text(low) + ' ' +
               problem::text(high) + " 1 " + problem::text(parm.start * parm.truth) + '\n';
    }
  }

  /// A set whose shared parameters are those of addGlobals().
  void addSharingSet(const std::string& set, double Parm::*truth) {
    text_ += "SET " + set + '\n';
    for (const Parm& parm : recovery_.parms) {
      if (parm.role == Role::kShared) {
        text_ += std::string("PAR ") + parm.name + ' ' + parm.name + '\n';
      } else if (parm.role == Role::kOwn) {
        addAdjusted(parm, truth);
      } else {
        addFixed(parm);
      }
    }
    addData(truth);
  }

  void addSetAlone(const std::string& set) {
    text_ += "SET " + set + '\n';
    for (const Parm& parm : recovery_.parms) {
      if (parm.role == Role::kFixed) {
        addFixed(parm);
      } else {
        addAdjusted(parm, &Parm::truth);
      }
    }
    addData(&Parm::truth);
  }

  [[nodiscard]] const std::string& text() const { return text_; }
  [[nodiscard]] double chi2AtTruth() const { return chi2_at_truth_; }

 private:
  void addAdjusted(const Parm& parm, double Parm::*truth) {
    text_ += std::string("PAR ") + parm.name + ' ' + problem::text(parm.start * parm.*truth) + '\n';
  }

  void addFixed(const Parm& parm) {
    text_ += std::string("FIXED ") + parm.name + ' ' + problem::text(parm.truth) + '\n';
  }

  void addData(double Parm::*truth) {
    for (const Curve& curve : recovery_.curves) {
      models::Call call;
      call.labels = labelsOf(curve);
      call.p = valuesAt(call.labels, truth);
      if (call.labels.empty()) call.labels = {0};
      for (const double x0 : recovery_.x0) {
        call.x = {x0};
        call.x.insert(call.x.end(), curve.rest.begin(), curve.rest.end());
        const double deviate = noise_();
        chi2_at_truth_ += deviate * deviate;
        text_ += synthetic::dataLine(
            call.x, curve.labels, model_.value(call) + recovery_.sigma * deviate, recovery_.sigma);
      }
    }
  }

  /// The base parameters of a point; each must be given by exactly one line.
  [[nodiscard]] std::vector<double> valuesAt(const std::vector<int>& labels,
                                             double Parm::*truth) const {
    std::vector<double> values(model_.size(), 0.0);
    std::vector<int> given(model_.size(), 0);
    for (const Parm& parm : recovery_.parms) {
      std::vector<int> indices;
      const auto base =
          static_cast<std::size_t>(model_.lib().Get_Rules().decompose(parm.name, indices));
      if (!covers(indices, labels)) continue;
      values[base] = parm.*truth;
      ++given[base];
    }
    for (std::size_t k = 0; k < given.size(); ++k) EXPECT_EQ(given[k], 1) << model_.parmName(k);
    return values;
  }

  const Recovery& recovery_;
  models::Model model_;
  synthetic::Noise noise_;
  std::string text_;
  double chi2_at_truth_ = 0.0;
};

/// Errors are below this fraction of the truth: data that say nothing would pass the rest.
constexpr double kLargestError = 0.25;

/// The minimum lies below the truth, whose noise is that of the data, though not far below.
void expectMinimum(synthetic::Fitted& fit, const Input& input) {
  EXPECT_LE(fit.chi2(), input.chi2AtTruth());
  synthetic::expectChi2OfNoise(fit);
}

class RecoveryOf : public testing::TestWithParam<Recovery> {};

TEST_P(RecoveryOf, OneSet) {
  Input input(GetParam(), 7);
  input.addSetAlone("one");
  const problem::Captured console(std::cout);
  synthetic::Fitted fit(input.text());
  expectMinimum(fit, input);
  for (const Parm& parm : GetParam().parms) {
    if (parm.role == Role::kFixed) continue;
    synthetic::expectRecovered(fit, std::string("one::") + parm.name, parm.truth, kLargestError);
  }
}

TEST_P(RecoveryOf, TwoSetsThatShare) {
  Input input(GetParam(), 8);
  input.addGlobals();
  input.addSharingSet("one", &Parm::truth);
  input.addSharingSet("two", &Parm::second);
  const problem::Captured console(std::cout);
  synthetic::Fitted fit(input.text());
  expectMinimum(fit, input);
  for (const Parm& parm : GetParam().parms) {
    const std::string name = parm.name;
    if (parm.role == Role::kShared) {
      synthetic::expectRecovered(fit, "GLOBAL::" + name, parm.truth, kLargestError);
    } else if (parm.role == Role::kOwn) {
      synthetic::expectRecovered(fit, "one::" + name, parm.truth, kLargestError);
      synthetic::expectRecovered(fit, "two::" + name, parm.second, kLargestError);
    }
  }
}

std::string nameOf(const testing::TestParamInfo<Recovery>& info) { return info.param.model; }

INSTANTIATE_TEST_SUITE_P(Elementary, RecoveryOf, testing::ValuesIn(kElementary), nameOf);
INSTANTIATE_TEST_SUITE_P(TwoSites, RecoveryOf, testing::ValuesIn(kTwoSites), nameOf);
INSTANTIATE_TEST_SUITE_P(ThreeSites, RecoveryOf, testing::ValuesIn(kThreeSites), nameOf);
INSTANTIATE_TEST_SUITE_P(MultipleQuantum, RecoveryOf, testing::ValuesIn(kMultipleQuantum), nameOf);

}  // namespace
