// Denaturation sigmoids: values worked out by hand, what is refused, derivatives, recovery.
// SPDX-License-Identifier: GPL-3.0-or-later
#include "Models.h"
#include "SyntheticFit.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <utility>
#include <vector>

namespace {

using models::Call;
using models::Evaluation;
using models::kUntouched;
using models::Model;
using models::near;

constexpr double kInf = std::numeric_limits<double>::infinity();
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kGasCal = 1.987;  // cal/(mol K)

// tm = 300 and x = 330: the reciprocal temperatures differ by 1/3300, and this enthalpy makes E
// = 3.
const double kEnthalpy = kGasCal * 3300 * std::log(3.0);

TEST(Sig, ByHand) {
  const Evaluation e = Model("Sig").evaluate({.x = {330}, .p = {-4, 8, 300, kEnthalpy}});
  // The exponent is a difference of nearly equal numbers: 2 of 16 digits are lost.
  EXPECT_TRUE(near(e.value, -1.0, 0, 1e-13));
  EXPECT_TRUE(near(e.dydp[0], 0.75, 0, 1e-13));
  EXPECT_TRUE(near(e.dydp[1], 0.25, 0, 1e-13));
  EXPECT_TRUE(near(e.dydp[3], -2.25 / (kGasCal * 3300), 0, 1e-13));
}

TEST(Sig, IsHalfWayAtTheMeltingTemperature) {
  for (const double dh : {1e3, 1e5}) {
    EXPECT_EQ(Model("Sig").value({.x = {320}, .p = {-4, 8, 320, dh}}), 2.0);
  }
}

TEST(Sig, RunsFromNativeToDenatured) {
  const Model model("Sig");
  EXPECT_TRUE(near(model.value({.x = {200}, .p = {-4, 8, 320, 1e5}}), 8, 0, 1e-15));
  EXPECT_TRUE(near(model.value({.x = {600}, .p = {-4, 8, 320, 1e5}}), -4, 0, 1e-15));
}

TEST(Sig, UsesReciprocalTemperaturesNotTheirDifference) {
  // Linear in the temperature, the two values would lie symmetrically about the middle.
  const Model model("Sig");
  const double below = model.value({.x = {280}, .p = {-1, 1, 320, 2e4}});
  const double above = model.value({.x = {360}, .p = {-1, 1, 320, 2e4}});
  EXPECT_TRUE(near(below, -std::tanh(2e4 / kGasCal * (1 / 320.0 - 1 / 280.0) / 2), 0, 1e-13));
  EXPECT_TRUE(near(above, -std::tanh(2e4 / kGasCal * (1 / 320.0 - 1 / 360.0) / 2), 0, 1e-13));
  EXPECT_GT(std::abs(below + above), 0.01);
}

TEST(Sig, DerivativeForTmIsNotThatOfTheValue) {
  const Evaluation e = Model("Sig").evaluate({.x = {330}, .p = {-4, 8, 300, kEnthalpy}});
  // (48 dh + 48)/tm^2/16 at E = 3, S = N = 4 (N = -4): no factor 1/R, no dh in the second term.
  EXPECT_TRUE(near(e.dydp[2], (kEnthalpy + 1) / 30000, 0, 1e-13));
  const double true_derivative = 2.25 * kEnthalpy / (kGasCal * 90000);
  EXPECT_FALSE(near(e.dydp[2], true_derivative, 0, 0.1));
  EXPECT_GT(true_derivative, 0.0);  // the sign is right
}

TEST(Sig, TemperaturesOutsideTheRangeOfExponentsAreRefusedWhateverTheParameters) {
  const Model model("Sig");
  for (const std::vector<double>& p :
       {std::vector<double>{-4, 8, 300, 1e5}, {0, 0, 1, 1}, {kNaN, kNaN, kNaN, kNaN}}) {
    const Evaluation above = model.evaluate({.x = {710}, .p = p});
    EXPECT_EQ(above.value, kInf);
    const Evaluation below = model.evaluate({.x = {-709}, .p = p});
    EXPECT_EQ(below.value, -kInf);
    for (const double entry : above.dydp) EXPECT_EQ(entry, kUntouched);
    for (const double entry : below.dydp) EXPECT_EQ(entry, kUntouched);
  }
  EXPECT_TRUE(std::isfinite(model.value({.x = {709.5}, .p = {-4, 8, 300, 1e5}})));
}

TEST(Sig, AnExponentThatOverflowsIsRefusedAsNaN) {
  EXPECT_TRUE(std::isnan(Model("Sig").value({.x = {330}, .p = {-4, 8, 1, 500000}})));
}

TEST(Sig, TemperatureZeroIsTheNativeState) {
  // The reciprocal of 0 is kept finite, and exp of a huge negative number is 0.
  EXPECT_EQ(Model("Sig").value({.x = {0}, .p = {-4, 8, 300, 1e5}}), 8.0);
}

TEST(SigBoltz, ByHand) {
  // E = 3 at x - tm = m ln 3.
  const double u = 10 * std::log(3.0);
  const Evaluation e = Model("Sig_boltz").evaluate({.x = {50 + u}, .p = {0.8, -0.4, 50, 10}});
  EXPECT_TRUE(near(e.value, -0.1, 0, 1e-14));
  EXPECT_TRUE(near(e.dydp[0], 0.25, 0, 1e-14));
  EXPECT_TRUE(near(e.dydp[1], 0.75, 0, 1e-14));
  EXPECT_TRUE(near(e.dydp[2], 0.0225, 0, 1e-14));
  EXPECT_TRUE(near(e.dydp[3], 0.0225 * std::log(3.0), 0, 1e-14));
}

TEST(SigBoltz, IsHalfWayAtTm) {
  EXPECT_TRUE(near(Model("Sig_boltz").value({.x = {50}, .p = {0.8, -0.4, 50, 10}}), 0.2, 0, 1e-15));
}

TEST(SigBoltz, IsRefusedWhereTheSumNotTheExponentLeavesTheRange) {
  const Model model("Sig_boltz");
  const Evaluation e = model.evaluate({.x = {120}, .p = {0.8, -0.4, 50, 10}});  // exponent 7
  EXPECT_EQ(e.value, kInf);
  for (const double entry : e.dydp) EXPECT_EQ(entry, kUntouched);
  // The limit: E = 709.7827 - 1.
  const double last = 10 * std::log(709.782712893384 - 1);
  EXPECT_TRUE(std::isfinite(model.value({.x = {50 + last - 1e-9}, .p = {0.8, -0.4, 50, 10}})));
  EXPECT_EQ(model.value({.x = {50 + last + 1e-9}, .p = {0.8, -0.4, 50, 10}}), kInf);
}

TEST(SigBoltz, FarBelowTmIsTheUpperPlateau) {
  EXPECT_TRUE(
      near(Model("Sig_boltz").value({.x = {-1e5}, .p = {0.8, -0.4, 50, 10}}), 0.8, 0, 1e-15));
}

TEST(SigFamily, MaskedDerivativesAreWrittenAllTheSame) {
  for (const auto& [name, p] : {std::pair{"Sig", std::vector<double>{-4, 8, 320, 1e4}},
                                std::pair{"Sig_boltz", std::vector<double>{0.8, -0.4, 310, 10}}}) {
    const Model model(name);
    const Evaluation e = model.evaluate({.x = {315}, .p = p});
    EXPECT_EQ(model.evaluate({.x = {315}, .p = p, .masked = {0, 1, 2, 3}}).dydp, e.dydp) << name;
  }
}

TEST(SigFamily, DerivativesMatchCentralDifferences) {
  for (const auto& [name, p] : {std::pair{"Sig", std::vector<double>{-4, 8, 320, 1e4}},
                                std::pair{"Sig_boltz", std::vector<double>{0.8, -0.4, 310, 10}}}) {
    const Model model(name);
    for (const double x : {290.0, 315.0, 340.0}) {
      const Call call = {.x = {x}, .p = p};
      const Evaluation e = model.evaluate(call);
      for (std::size_t k = 0; k < 4; ++k) {
        if (name == std::string("Sig") && k == 2) continue;  // inexact on purpose
        Call ahead = call;
        Call behind = call;
        const double step = std::cbrt(std::numeric_limits<double>::epsilon()) * std::abs(p[k]);
        ahead.p[k] += step;
        behind.p[k] -= step;
        const double difference =
            (model.value(ahead) - model.value(behind)) / (ahead.p[k] - behind.p[k]);
        EXPECT_TRUE(near(e.dydp[k], difference, 1e-9 * std::abs(e.value / p[k]), 1e-6))
            << name << ' ' << model.parmName(k);
      }
    }
  }
}

// ---- recovery of known parameters ----

/// Signals from 280 to 340 K.
std::string melting(double bd, double bn, double tm, double dh, double sigma,
                    synthetic::Noise& noise) {
  std::string lines;
  for (int i = 0; i <= 60; ++i) {
    const double x = 280 + i;
    const double folded = 1 / (1 + std::exp(dh / kGasCal * (1 / tm - 1 / x)));
    const double y = bd + (bn - bd) * folded;
    lines += synthetic::dataLine({x}, "", y + sigma * noise(), 0.05);
  }
  return lines;
}

TEST(Sig, KnownParametersAreRecoveredAtAFixedMeltingTemperature) {
  synthetic::Noise noise(31);
  synthetic::Fitted fit(
      "FUNCTION Sig\nMETHOD ONEEX\nSET protein\nPAR bd -10 0 1 -1\nPAR bn 0 10 1 1\n"
      "FIXED tm 312\nPAR dh 1e4 3e5 1 4e4\n" +
      melting(-3, 6, 312, 7e4, 0.05, noise));
  synthetic::expectChi2OfNoise(fit);
  synthetic::expectRecovered(fit, "protein::bd", -3, 0.05);
  synthetic::expectRecovered(fit, "protein::bn", 6, 0.05);
  synthetic::expectRecovered(fit, "protein::dh", 7e4, 0.05);
}

TEST(Sig, ASharedEnthalpyIsRecovered) {
  synthetic::Noise noise(32);
  std::string text = "FUNCTION Sig\nMETHOD ONEEX\nGPAR enthalpy 1e4 3e5 1 4e4\n";
  for (const double tm : {306.0, 318.0}) {
    text += "SET at" + std::to_string(static_cast<int>(tm)) +
            "\nPAR bd -10 0 1 -1\nPAR bn 0 10 1 1\nFIXED tm " + std::to_string(tm) +
            "\nPAR dh enthalpy\n" + melting(-3, 6, tm, 7e4, 0.05, noise);
  }
  synthetic::Fitted fit(text);
  synthetic::expectChi2OfNoise(fit);
  synthetic::expectRecovered(fit, "GLOBAL::enthalpy", 7e4, 0.05);
}

TEST(Sig, TheMeltingTemperatureIsFoundOnAGrid) {
  // Its derivative cannot lead there: the fit from every grid point stays near it.
  synthetic::Noise noise(33);
  synthetic::Fitted fit(
      "FUNCTION Sig\nMETHOD GRID\nSET protein\nPAR bd -10 0 1 -2\nPAR bn 0 10 1 5\n"
      "PAR tm 290 330 81\nPAR dh 1e4 3e5 1 5e4\n" +
      melting(-3, 6, 312, 7e4, 0.05, noise));
  EXPECT_NEAR(fit.value("protein::tm"), 312, 0.5);  // the spacing of the grid
  EXPECT_NEAR(fit.value("protein::dh"), 7e4, 0.02 * 7e4);
}

std::string boltzmann(double a1, double a2, double tm, double m, synthetic::Noise& noise) {
  std::string lines;
  for (int i = 0; i <= 60; ++i) {
    const double x = 20 + i;
    const double y = (a1 - a2) / (1 + std::exp((x - tm) / m)) + a2;
    lines += synthetic::dataLine({x}, "", y + 0.01 * noise(), 0.01);
  }
  return lines;
}

TEST(SigBoltz, KnownParametersAreRecovered) {
  synthetic::Noise noise(34);
  synthetic::Fitted fit(
      "FUNCTION Sig_boltz\nMETHOD ONEEX\nSET protein\nPAR a1 0 1 1 0.5\nPAR a2 -1 0 1 -0.1\n"
      "PAR tm 20 90 1 45\nPAR m 4 40 1 10\n" +
      boltzmann(0.8, -0.4, 52, 8, noise));
  synthetic::expectChi2OfNoise(fit);
  synthetic::expectRecovered(fit, "protein::a1", 0.8, 0.1);
  synthetic::expectRecovered(fit, "protein::a2", -0.4, 0.1);
  synthetic::expectRecovered(fit, "protein::tm", 52, 0.05);
  synthetic::expectRecovered(fit, "protein::m", 8, 0.1);
}

TEST(SigBoltz, ASharedWidthIsRecovered) {
  synthetic::Noise noise(35);
  const std::string own = "PAR a1 0 1 1 0.5\nPAR a2 -1 0 1 -0.1\nPAR tm 20 90 1 50\nPAR m width\n";
  synthetic::Fitted fit("FUNCTION Sig_boltz\nMETHOD ONEEX\nGPAR width 5 40 1 11\nSET one\n" + own +
                        boltzmann(0.8, -0.4, 52, 8, noise) + "SET two\n" + own +
                        boltzmann(0.9, -0.2, 45, 8, noise));
  synthetic::expectChi2OfNoise(fit);
  synthetic::expectRecovered(fit, "GLOBAL::width", 8, 0.05);
  synthetic::expectRecovered(fit, "one::tm", 52, 0.05);
  synthetic::expectRecovered(fit, "two::tm", 45, 0.05);
}

}  // namespace
