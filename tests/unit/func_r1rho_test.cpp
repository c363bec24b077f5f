// R1rho models: values worked out by hand, the variants against each other, the smallest decay of
// the two-site Bloch-McConnell equations, derivatives, recovery of known parameters.
// SPDX-License-Identifier: GPL-3.0-or-later
#include "Models.h"
#include "SpinLock.h"
#include "SyntheticFit.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <functional>
#include <numbers>
#include <string>
#include <utility>
#include <vector>

namespace {

using models::Call;
using models::Evaluation;
using models::kUntouched;
using models::Model;
using models::near;

constexpr double kTwoPi = 2.0 * std::numbers::pi;

/// Abscissae of the plain models from angular frequencies in rad/s.
std::vector<double> at(double omega1, double offset, double field = 1.0) {
  return {omega1 / kTwoPi, offset / kTwoPi, 298.0, field};
}

// Relative tolerance of hand-checked values: some twenty roundings and the 2 pi of the abscissae.
constexpr double kRounding = 1e-14;

void expectDerivatives(const Evaluation& e, const std::vector<double>& expected) {
  for (std::size_t k = 0; k < expected.size(); ++k) {
    EXPECT_TRUE(near(e.dydp[k], expected[k], 1e-15, kRounding)) << "derivative " << k;
  }
}

// ---- by hand: omega1 = 3, Omega = 4, so sin^2 = 9/25 where the tilt is that of the offset ----

TEST(R1rhoConst, ByHand) {
  const Evaluation e = Model("R1RHO_CONST").evaluate({.x = at(3, 4), .p = {20, 5}});
  EXPECT_TRUE(near(e.value, 0.36 * 20 + 0.64 * 5, 0, kRounding));
  expectDerivatives(e, {0.36, 0.64});
}

TEST(R1rhoConst, OnResonanceIsR20) {
  const Evaluation e = Model("R1RHO_CONST").evaluate({.x = {500, 0, 298, 1}, .p = {20, 5}});
  EXPECT_EQ(e.value, 20.0);
  expectDerivatives(e, {1.0, 0.0});
}

TEST(R1rhoConst, WithoutSpinLockIsR1) {
  for (const double offset : {250.0, -250.0}) {
    const Evaluation e = Model("R1RHO_CONST").evaluate({.x = {0, offset, 298, 1}, .p = {20, 5}});
    EXPECT_EQ(e.value, 5.0);
    expectDerivatives(e, {0.0, 1.0});
  }
}

TEST(R1rhoConst, WithoutAnyFieldIsR1) {
  EXPECT_EQ(Model("R1RHO_CONST").value({.x = {0, 0, 298, 1}, .p = {20, 5}}), 5.0);
}

TEST(R1rhoConstOn, IsR20AtAnyField) {
  const Model model("R1RHO_CONST_ON");
  for (const double x1 : {0.0, 300.0}) {
    const Evaluation e = model.evaluate({.x = {100, x1, 298, 1}, .p = {20}});
    EXPECT_EQ(e.value, 20.0);
    EXPECT_EQ(e.dydp[0], 1.0);
  }
}

TEST(R1rhoConstOn, MaskedDerivativeIsNotWritten) {
  const Evaluation e =
      Model("R1RHO_CONST_ON").evaluate({.x = {100, 0, 298, 1}, .p = {20}, .masked = {0}});
  EXPECT_EQ(e.dydp[0], kUntouched);
}

TEST(R1rhoLondon, ByHand) {
  // D = 9 + 16 + 100 = 125, Rex = 10 * 100 * 4/125 = 32.
  const Evaluation e = Model("R1RHO_LONDON").evaluate({.x = at(3, 4, 2), .p = {100, 10, 20, 5}});
  EXPECT_TRUE(near(e.value, 0.36 * 52 + 0.64 * 5, 0, kRounding));
  expectDerivatives(e, {0.1152, -0.6912, 0.36, 0.64});
}

TEST(R1rhoLondonOn, ByHand) {
  // D = 9 + 16 = 25 with kex = 4, Rex = 4 * 100 * 4/25 = 64; an offset is not read.
  for (const double offset : {0.0, 7.0}) {
    const Evaluation e =
        Model("R1RHO_LONDON_ON").evaluate({.x = at(3, offset, 2), .p = {100, 4, 20}});
    EXPECT_TRUE(near(e.value, 84, 0, kRounding));
    expectDerivatives(e, {0.64, 16.0 * (1 - 32.0 / 25), 1.0});
  }
}

TEST(R1rhoKay, ByHand) {
  // Delta = 20, offset of the minor site 0.9 * 20 - 4 = 14, D = 196 + 9 + 100 = 305.
  const Evaluation e = Model("R1RHO_KAY").evaluate({.x = at(3, 4, 2), .p = {10, 10, 0.1, 20, 5}});
  EXPECT_TRUE(near(e.value, 0.36 * (20 + 400.0 / 305) + 0.64 * 5, 0, kRounding));
  expectDerivatives(
      e, {28.8 * 53 / (305.0 * 305), 14.4 * 105 / (305.0 * 305), 1440.0 / 305, 0.36, 0.64});
}

TEST(R1rhoKay, TheSignOfTheOffsetMatters) {
  // Offset of the minor site 18 + 4 = 22, D = 484 + 9 + 100 = 593.
  const Evaluation e = Model("R1RHO_KAY").evaluate({.x = at(3, -4, 2), .p = {10, 10, 0.1, 20, 5}});
  EXPECT_TRUE(near(e.value, 0.36 * (20 + 400.0 / 593) + 0.64 * 5, 0, kRounding));
}

TEST(R1rhoKay, DerivativeForPBTakesTheOffsetOfTheMinorSiteAsConstant) {
  const double D = 305;  // as above
  const Evaluation e = Model("R1RHO_KAY").evaluate({.x = at(3, 4, 2), .p = {10, 10, 0.1, 20, 5}});
  EXPECT_TRUE(near(e.dydp[2], 0.36 * 400 * 10 / D, 0, kRounding));
  // The whole derivative has the factor 1 + 2 pB Omega' Delta/D, Omega' = 14: 1.18 here.
  EXPECT_FALSE(near(e.dydp[2], 0.36 * 400 * 10 / D * (1 + 2 * 0.1 * 14 * 20 / D), 0, 0.1));
}

TEST(R1rhoKayOn, ByHand) {
  // Offset of the minor site 18, D = 324 + 9 + 100 = 433; an offset is not read.
  for (const double offset : {0.0, 4.0}) {
    const Evaluation e =
        Model("R1RHO_KAY_ON").evaluate({.x = at(3, offset, 2), .p = {10, 10, 0.1, 20}});
    EXPECT_TRUE(near(e.value, 20 + 400.0 / 433, 0, kRounding));
    expectDerivatives(e, {80.0 * 109 / (433.0 * 433), 40.0 * 233 / (433.0 * 433), 4000.0 / 433, 1});
  }
}

TEST(R1rhoPalmer02, ByHand) {
  // Average offset 4 - 2 = 2: sin^2 = 9/13, wa^2 = 25, wb^2 = 16^2 + 9 = 265, we^2 = 13;
  // Rex = 0.09 * 400 * 10/(25 * 265/13 + 100) = 4680/7925.
  const double value = Model("R1RHO_PALMER02").value({.x = at(3, 4, 2), .p = {10, 10, 0.1, 20, 5}});
  EXPECT_TRUE(near(value, 4.0 / 13 * 5 + 9.0 / 13 * (20 + 4680.0 / 7925), 0, kRounding));
}

TEST(R1rhoPalmer05, ByHand) {
  // As above, pA wa^2 + pB wb^2 = 49: the second-order factor is 1 + 200 * 49/7925.
  const double value = Model("R1RHO_PALMER05").value({.x = at(3, 4, 2), .p = {10, 10, 0.1, 20, 5}});
  const double Rex = 360 / (7925.0 / 13 - 36 * (9.0 / 13) * (17725.0 / 7925));
  EXPECT_TRUE(near(value, 4.0 / 13 * 5 + 9.0 / 13 * (20 + Rex), 0, kRounding));
}

TEST(R1rhoPalmerOn, ByHand) {
  // wa^2 = 9, wb^2 = 409, we^2 = 13: 9 * 409/13 + 100 = 4981/13; pA wa^2 + pB wb^2 = 49. An offset
  // is not read.
  for (const double offset : {0.0, 4.0}) {
    const Call call = {.x = at(3, offset, 2), .p = {10, 10, 0.1, 20}};
    EXPECT_TRUE(near(Model("R1RHO_PALMER02_ON").value(call), 20 + 4680.0 / 4981, 0, kRounding));
    const double Rex = 360 / (4981.0 / 13 - 36 * (14781.0 / 4981));
    EXPECT_TRUE(near(Model("R1RHO_PALMER05_ON").value(call), 20 + Rex, 0, kRounding));
  }
}

TEST(R1rhoPalmer, AParameterThatIsZeroHasNoFiniteDerivative) {
  for (const char* name : {"R1RHO_PALMER02", "R1RHO_PALMER02_OFF", "R1RHO_PALMER02_ON",
                           "R1RHO_PALMER05", "R1RHO_PALMER05_OFF", "R1RHO_PALMER05_ON"}) {
    const Model model(name);
    for (std::size_t zero = 0; zero < model.size(); ++zero) {
      Call call = {.x = {100, 50, 298, 1}, .p = {1500, 900, 0.05, 10, 2}};
      call.p.resize(model.size());
      call.p[zero] = 0.0;
      const Evaluation e = model.evaluate(call);
      EXPECT_TRUE(std::isfinite(e.value)) << name;
      for (std::size_t k = 0; k < model.size(); ++k) {
        EXPECT_EQ(std::isfinite(e.dydp[k]), k != zero) << name << ' ' << model.parmName(k);
      }
      call.masked = {zero};
      EXPECT_EQ(model.evaluate(call).dydp[zero], kUntouched) << name;
    }
  }
}

// ---- what holds among the variants ----

const char* const kFamilies[] = {"R1RHO_CONST", "R1RHO_LONDON", "R1RHO_KAY", "R1RHO_PALMER02",
                                 "R1RHO_PALMER05"};

/// Typical parameters of a model of this family.
std::vector<double> typical(const Model& model) {
  std::vector<double> p;
  for (std::size_t k = 0; k < model.size(); ++k) {
    const std::string& name = model.parmName(k);
    p.push_back(name == "phi"   ? 9e4
                : name == "dw"  ? 1400.0
                : name == "kex" ? 900.0
                : name == "pB"  ? 0.04
                : name == "R20" ? 11.0
                                : 1.7);
  }
  return p;
}

constexpr std::array<std::pair<double, double>, 5> kLocks = {
    {{150, 0}, {150, 220}, {400, -310}, {25, 600}, {1000, 10}}};  // nu1 and offset in Hz

TEST(R1rhoVariants, OffReadsTheSameTwoAbscissaeInTheOppositeOrder) {
  for (const std::string family : kFamilies) {
    const Model plain(family);
    const Model off(family + "_OFF");
    for (const auto& [nu1, offset] : kLocks) {
      const Evaluation a = plain.evaluate({.x = {nu1, offset, 298, 1.3}, .p = typical(plain)});
      const Evaluation b = off.evaluate({.x = {offset, nu1, 298, 1.3}, .p = typical(off)});
      EXPECT_EQ(a.value, b.value) << family;
      EXPECT_EQ(a.dydp, b.dydp) << family;
    }
  }
}

TEST(R1rhoVariants, OnIsThePlainModelAtOffsetZero) {
  for (const std::string family : {"R1RHO_CONST", "R1RHO_LONDON", "R1RHO_KAY"}) {
    const Model plain(family);
    const Model on(family + "_ON");
    ASSERT_EQ(on.size() + 1, plain.size());
    for (const double nu1 : {25.0, 150.0, 1000.0}) {
      const Evaluation a = plain.evaluate({.x = {nu1, 0, 298, 1.3}, .p = typical(plain)});
      const Evaluation b = on.evaluate({.x = {nu1, 0, 298, 1.3}, .p = typical(on)});
      EXPECT_EQ(a.value, b.value) << family;
      for (std::size_t k = 0; k < on.size(); ++k) EXPECT_EQ(a.dydp[k], b.dydp[k]) << family;
    }
  }
}

TEST(R1rhoVariants, OnNeglectsTheTiltThatPalmersPlainModelHasAtOffsetZero) {
  const Model plain("R1RHO_PALMER02");
  const Model on("R1RHO_PALMER02_ON");
  for (const double nu1 : {25.0, 150.0, 1000.0}) {
    const std::vector<double> x = {nu1, 0, 298, 1.3};
    const double average = 0.04 * 1400 * 1.3;  // offset of the population average from site A
    const double s2 =
        std::pow(kTwoPi * nu1, 2) / (std::pow(average, 2) + std::pow(kTwoPi * nu1, 2));
    EXPECT_TRUE(near(plain.value({.x = x, .p = typical(plain)}),
                     s2 * on.value({.x = x, .p = typical(on)}) + (1 - s2) * 1.7, 0, kRounding));
  }
}

TEST(R1rhoVariants, TheFieldFactorScalesTheShiftDifference) {
  for (const std::string family : {"R1RHO_KAY", "R1RHO_PALMER02", "R1RHO_PALMER05"}) {
    for (const char* variant : {"", "_ON", "_OFF"}) {
      const Model model(family + variant);
      std::vector<double> p = typical(model);
      const double scaled = model.value({.x = {150, 80, 298, 2}, .p = p});
      p[0] *= 2;
      EXPECT_EQ(scaled, model.value({.x = {150, 80, 298, 1}, .p = p})) << family << variant;
    }
  }
  for (const char* name : {"R1RHO_LONDON", "R1RHO_LONDON_ON", "R1RHO_LONDON_OFF"}) {
    const Model model(name);
    std::vector<double> p = typical(model);
    const double scaled = model.value({.x = {150, 80, 298, 2}, .p = p});
    p[0] *= 4;  // phi goes with the square
    EXPECT_EQ(scaled, model.value({.x = {150, 80, 298, 1}, .p = p})) << name;
  }
}

TEST(R1rhoVariants, OnResonanceTheSignOfTheShiftDifferenceHasNoEffect) {
  for (const char* name : {"R1RHO_KAY_ON", "R1RHO_PALMER02_ON", "R1RHO_PALMER05_ON"}) {
    const Model model(name);
    std::vector<double> p = typical(model);
    const double positive = model.value({.x = {150, 0, 298, 1.3}, .p = p});
    p[0] = -p[0];
    EXPECT_EQ(positive, model.value({.x = {150, 0, 298, 1.3}, .p = p})) << name;
  }
}

TEST(R1rhoVariants, TheTemperatureIsNotRead) {
  for (const std::string& name : models::registeredNames()) {
    if (name.rfind("R1RHO_", 0) != 0) continue;
    const Model model(name);
    EXPECT_EQ(model.value({.x = {150, 80, 298, 1.3}, .p = typical(model)}),
              model.value({.x = {150, 80, 0, 1.3}, .p = typical(model)}))
        << name;
  }
}

// ---- against the smallest decay of the Bloch-McConnell equations ----

using spinlock::real;
using spinlock::Real;
using spinlock::smallestDecay;

TEST(BlochMcConnell, WithoutExchangeLockedMagnetisationDecaysAtItsTransverseRate) {
  EXPECT_NEAR(smallestDecay({1000, 0.1, 2, 12, 900, 0, 0}), 12, 1e-12);
}

TEST(BlochMcConnell, FastExchangeOfStrongLockIsThatOfTheAverage) {
  // kex far above all: one site at the average, 0 here.
  EXPECT_NEAR(smallestDecay({1e9, 0.25, 2, 12, 900, -100, 300}), 12, 1e-3);
}

/// Equal intrinsic rates: the decay is R + sin^2 Rex exactly, and what is compared is sin^2 Rex.
constexpr double kR = 5.0;

struct Lock {
  double omega1;
  double offset;
};

constexpr Lock kLockList[] = {{1000, 0}, {1000, 1500}, {1500, -800}, {300, 2000}};

enum class Origin { kSiteA, kAverage };

/// sin^2 Rex from the equations, with the carrier `offset` away from site A or from the average.
double exactRex(Origin origin, const Lock& lock, double dw, double kex, double pB) {
  const double site_a = origin == Origin::kSiteA ? -lock.offset : -lock.offset - pB * dw;
  return smallestDecay({kex, pB, kR, kR, lock.omega1, site_a, site_a + dw}) - kR;
}

/// Relative error of the model's sin^2 Rex.
double errorOf(const std::string& name, Origin origin, const Lock& lock, double dw, double kex,
               double pB) {
  const Model model(name);
  const std::vector<double> p = model.parmName(0) == "phi"
                                    ? std::vector<double>{(1 - pB) * pB * dw * dw, kex, kR, kR}
                                    : std::vector<double>{dw, kex, pB, kR, kR};
  return (model.value({.x = at(lock.omega1, lock.offset), .p = p}) - kR) /
             exactRex(origin, lock, dw, kex, pB) -
         1.0;
}

TEST(R1rhoLondon, IsTheFastExchangeLimit) {
  // First terms left out: squares of the frequencies over kex^2. Found: 0.36 of that at most.
  constexpr double dw = 1000;
  for (const double kex : {10000.0, 20000.0, 40000.0, 80000.0}) {
    for (const double pB : {0.05, 0.3, 0.5}) {
      for (const Lock& lock : {Lock{6280, 0}, Lock{6280, 3140}, Lock{1256, -5024}}) {
        const double left_out =
            (dw * dw + lock.omega1 * lock.omega1 + lock.offset * lock.offset) / (kex * kex);
        EXPECT_LE(std::abs(errorOf("R1RHO_LONDON", Origin::kAverage, lock, dw, kex, pB)),
                  0.4 * left_out)
            << kex << ' ' << pB;
      }
    }
  }
}

TEST(R1rhoKay, IsTheLimitOfASmallPopulation) {
  // Of first order in pB (the prefactor pB for pA pB and more). Found: at most 1.23 pB.
  for (const double pB : {0.01, 0.001, 0.0001}) {
    for (const Lock& lock : kLockList) {
      EXPECT_LE(std::abs(errorOf("R1RHO_KAY", Origin::kAverage, lock, 1500, 1200, pB)), 1.3 * pB)
          << pB << ' ' << lock.offset;
    }
  }
}

TEST(R1rhoPalmer02, IsOfFirstOrderInASmallPopulation) {
  // Found: 0.07 pB to 0.77 pB.
  for (const double pB : {0.05, 0.01, 0.001}) {
    for (const Lock& lock : kLockList) {
      EXPECT_LE(std::abs(errorOf("R1RHO_PALMER02", Origin::kSiteA, lock, 1500, 1200, pB)), 0.8 * pB)
          << pB << ' ' << lock.offset;
    }
  }
}

TEST(R1rhoPalmer05, IsOfSecondOrderInASmallPopulation) {
  // Found: 0.003 pB^2 to 0.214 pB^2.
  for (const double pB : {0.05, 0.01, 0.001}) {
    for (const Lock& lock : kLockList) {
      EXPECT_LE(std::abs(errorOf("R1RHO_PALMER05", Origin::kSiteA, lock, 1500, 1200, pB)),
                0.25 * pB * pB)
          << pB << ' ' << lock.offset;
    }
  }
}

TEST(R1rhoPalmer, AreGoodInFastExchangeAtAnyPopulation) {
  // Of the order of dw^2/kex^2. Found: at most 0.60 of it, and 0.055 of it in second order.
  constexpr double dw = 1500;
  for (const double kex : {8000.0, 16000.0, 32000.0}) {
    for (const double pB : {0.1, 0.3, 0.5}) {
      for (const Lock& lock : kLockList) {
        const double left_out = dw * dw / (kex * kex);
        EXPECT_LE(std::abs(errorOf("R1RHO_PALMER02", Origin::kSiteA, lock, dw, kex, pB)),
                  0.65 * left_out);
        EXPECT_LE(std::abs(errorOf("R1RHO_PALMER05", Origin::kSiteA, lock, dw, kex, pB)),
                  0.06 * left_out);
      }
    }
  }
}

TEST(R1rhoPalmer, ErrorsFallWithTheSecondAndFourthPowerOfTheShiftDifference) {
  // Halving it divides the error by about 4 and by about 16, at populations that are not skewed.
  for (const Lock& lock : {Lock{1000, 0}, Lock{1000, 1500}, Lock{1500, -800}}) {
    const auto gain = [&](const char* name) {
      return errorOf(name, Origin::kSiteA, lock, 400, 1200, 0.3) /
             errorOf(name, Origin::kSiteA, lock, 200, 1200, 0.3);
    };
    EXPECT_GT(gain("R1RHO_PALMER02"), 3);
    EXPECT_LT(gain("R1RHO_PALMER02"), 6);
    EXPECT_GT(gain("R1RHO_PALMER05"), 10);
    EXPECT_LT(gain("R1RHO_PALMER05"), 30);
  }
}

TEST(R1rhoPalmer05, IsTheMoreGeneralModel) {
  // Intermediate exchange, populations 0.6 and 0.4: 3 % off where the first order is 24 % off.
  for (const Lock& lock : kLockList) {
    const double first = errorOf("R1RHO_PALMER02", Origin::kSiteA, lock, 1500, 1200, 0.4);
    const double second = errorOf("R1RHO_PALMER05", Origin::kSiteA, lock, 1500, 1200, 0.4);
    EXPECT_LT(std::abs(first), 0.25);
    EXPECT_LT(std::abs(second), 0.032);
    EXPECT_LT(std::abs(second), 0.2 * std::abs(first));
  }
}

TEST(R1rhoPalmerOn, HaveTheOrdersOfThePlainModelsOnResonance) {
  // The neglected tilt is (pB dw/omega1)^2, of second order in pB; in Palmer05 it also enters the
  // divisor. Found: at most 0.99 pB, and 1.15 of the tilt.
  for (const double omega1 : {500.0, 1000.0, 3000.0}) {
    for (const double pB : {0.01, 0.005, 0.001}) {
      const Call call = {.x = at(omega1, 0), .p = {1500, 1200, pB, kR}};
      const double exact = exactRex(Origin::kSiteA, {omega1, 0}, 1500, 1200, pB);
      const double tilt = std::pow(pB * 1500 / omega1, 2);
      EXPECT_LE(std::abs((Model("R1RHO_PALMER02_ON").value(call) - kR) / exact - 1), pB);
      EXPECT_LE(std::abs((Model("R1RHO_PALMER05_ON").value(call) - kR) / exact - 1),
                1.15 * tilt + 0.25 * pB * pB);
    }
  }
}

TEST(R1rhoModels, HoldForUnequalIntrinsicRates) {
  // R1 and R2 add to the decay with cos^2 and sin^2 up to terms of the order (R2 - R1)^2/omega and
  // (R2 - R1) Rex/omega, together below 0.2 1/s at these fields. Found: below 0.1.
  constexpr double R1 = 1.5, R2 = 12.0, dw = 1500, kex = 1200, pB = 0.01;
  for (const Lock& lock : kLockList) {
    const std::vector<double> x = at(lock.omega1, lock.offset);
    const double from_a =
        smallestDecay({kex, pB, R1, R2, lock.omega1, -lock.offset, dw - lock.offset});
    const double average = -lock.offset - pB * dw;
    const double from_average =
        smallestDecay({kex, pB, R1, R2, lock.omega1, average, average + dw});
    const std::vector<double> p = {dw, kex, pB, R2, R1};
    EXPECT_NEAR(Model("R1RHO_PALMER02").value({.x = x, .p = p}), from_a, 0.1);
    EXPECT_NEAR(Model("R1RHO_PALMER05").value({.x = x, .p = p}), from_a, 0.1);
    EXPECT_NEAR(Model("R1RHO_KAY").value({.x = x, .p = p}), from_average, 0.1);
  }
}

// ---- against the same formulas in other words and extended precision ----

struct Reference {
  Real omega1, offset, delta, kex, pB, R20, R1;
  bool transverse = false;  ///< as on resonance: the field is not tilted

  [[nodiscard]] Real sin2(Real average) const {
    return transverse ? 1 : omega1 * omega1 / (omega1 * omega1 + average * average);
  }
  [[nodiscard]] Real along(Real average, Real Rex) const {
    return R1 + sin2(average) * (R20 + Rex - R1);
  }
  [[nodiscard]] Real lorentzian(Real frequency2) const {
    return pB * delta * delta * kex / (kex * kex + frequency2);
  }
  [[nodiscard]] Real london() const {
    return along(offset, (1 - pB) * lorentzian(omega1 * omega1 + offset * offset));
  }
  [[nodiscard]] Real kay() const {
    const Real minor = delta - pB * delta - offset;
    return along(offset, lorentzian(minor * minor + omega1 * omega1));
  }
  /// Palmer's models: site A lies at -offset from the carrier, B at delta - offset.
  [[nodiscard]] Real palmer(bool second_order) const {
    const Real average = pB * delta - offset;  // of the sites' frequencies
    const Real a = offset * offset + omega1 * omega1;
    const Real b = (delta - offset) * (delta - offset) + omega1 * omega1;
    const Real e = average * average + omega1 * omega1;
    const Real P = pB * (1 - pB) * delta * delta;
    Real divisor = a * b / e + kex * kex;
    if (second_order) {
      const Real mean = a + pB * (b - a);
      divisor -= sin2(average) * P * (1 + 2 * kex * kex * mean / (a * b + kex * kex * e));
    }
    return along(average, kex * P / divisor);
  }
};

/// Parameters: dw or phi, kex, pB; the rest is fixed.
struct Case {
  double dw, kex, pB;
};

constexpr Case kCases[] = {{1500, 900, 0.03},  {-1500, 900, 0.03}, {400, 60, 0.3},
                           {4000, 200, 0.005}, {900, 20000, 0.45}, {2500, 3000, 0.1}};

Reference reference(double nu1, double offset, double field, const Case& c) {
  const Real two_pi = 2 * std::numbers::pi_v<Real>;
  return {.omega1 = two_pi * real(nu1),
          .offset = two_pi * real(offset),
          .delta = real(c.dw) * real(field),
          .kex = real(c.kex),
          .pB = real(c.pB),
          .R20 = 11.25L,
          .R1 = 1.75L};
}

/// Compares the model, off and on resonance, with a formula in extended precision.
void expectFormula(const std::string& family, const Case& c, double nu1, double offset,
                   const std::function<Real(const Reference&)>& formula) {
  // Some twenty roundings; offsets and averages lose a digit more where they nearly cancel.
  constexpr double kTolerance = 1e-13;
  constexpr double field = 1.25;
  std::vector<double> p = {c.dw, c.kex, c.pB, 11.25, 1.75};
  if (family == "R1RHO_LONDON") p = {(1 - c.pB) * c.pB * c.dw * c.dw, c.kex, 11.25, 1.75};
  const Reference tilted = reference(nu1, offset, field, c);
  EXPECT_TRUE(near(Model(family).value({.x = {nu1, offset, 298, field}, .p = p}), formula(tilted),
                   0, kTolerance))
      << family << ' ' << nu1 << ' ' << offset;
  EXPECT_TRUE(near(Model(family + "_OFF").value({.x = {offset, nu1, 298, field}, .p = p}),
                   formula(tilted), 0, kTolerance))
      << family << ' ' << nu1 << ' ' << offset;
  p.pop_back();
  Reference transverse = reference(nu1, 0, field, c);
  transverse.transverse = true;
  EXPECT_TRUE(near(Model(family + "_ON").value({.x = {nu1, offset, 298, field}, .p = p}),
                   formula(transverse), 0, kTolerance))
      << family << ' ' << nu1;
}

TEST(R1rhoModels, MatchTheFormulasInExtendedPrecision) {
  for (const Case& c : kCases) {
    for (const auto& [nu1, offset] : kLocks) {
      expectFormula("R1RHO_LONDON", c, nu1, offset, &Reference::london);
      expectFormula("R1RHO_KAY", c, nu1, offset, &Reference::kay);
      expectFormula("R1RHO_PALMER02", c, nu1, offset,
                    [](const Reference& r) { return r.palmer(false); });
      expectFormula("R1RHO_PALMER05", c, nu1, offset,
                    [](const Reference& r) { return r.palmer(true); });
    }
  }
}

double centralDifference(const Model& model, const Call& call, std::size_t k) {
  const double step = std::cbrt(std::numeric_limits<double>::epsilon()) * std::abs(call.p[k]);
  Call ahead = call;
  Call behind = call;
  ahead.p[k] += step;
  behind.p[k] -= step;
  return (model.value(ahead) - model.value(behind)) / (ahead.p[k] - behind.p[k]);
}

TEST(R1rhoModels, AnalyticDerivativesMatchCentralDifferences) {
  for (const char* name :
       {"R1RHO_CONST", "R1RHO_CONST_ON", "R1RHO_CONST_OFF", "R1RHO_LONDON", "R1RHO_LONDON_OFF",
        "R1RHO_LONDON_ON", "R1RHO_KAY", "R1RHO_KAY_ON", "R1RHO_KAY_OFF"}) {
    const Model model(name);
    for (const auto& [nu1, offset] : kLocks) {
      const Call call = {.x = {nu1, offset, 298, 1.25}, .p = typical(model)};
      const Evaluation e = model.evaluate(call);
      for (std::size_t k = 0; k < model.size(); ++k) {
        if (model.parmName(k) == "pB") continue;  // inexact on purpose
        // Rounding of the value counts where the derivative is small.
        EXPECT_TRUE(near(e.dydp[k], centralDifference(model, call, k),
                         1e-10 * std::abs(e.value / call.p[k]), 1e-6))
            << name << ' ' << model.parmName(k);
      }
    }
  }
}

TEST(R1rhoPalmer, ForwardDifferencesAreAsGoodAsTheirStep) {
  // The step is 1e-9 of the parameter, the value is rounded to some 1e-16 of itself several times
  // over: what is left of a derivative has the error of 1e-6 value/parameter.
  for (const char* name : {"R1RHO_PALMER02", "R1RHO_PALMER02_OFF", "R1RHO_PALMER02_ON",
                           "R1RHO_PALMER05", "R1RHO_PALMER05_OFF", "R1RHO_PALMER05_ON"}) {
    const Model model(name);
    for (const auto& [nu1, offset] : kLocks) {
      const Call call = {.x = {nu1, offset, 298, 1.25}, .p = typical(model)};
      const Evaluation e = model.evaluate(call);
      for (std::size_t k = 0; k < model.size(); ++k) {
        EXPECT_TRUE(near(e.dydp[k], centralDifference(model, call, k),
                         2e-6 * std::abs(e.value / call.p[k]), 1e-6))
            << name << ' ' << model.parmName(k);
      }
    }
  }
}

TEST(R1rhoPalmer, PlainAddendsAreDifferencedLikeAllOthers) {
  // On resonance the derivative for R20 is 1; that it is not exactly 1 shows how it is found.
  const Model model("R1RHO_PALMER02_ON");
  const Evaluation e = model.evaluate({.x = {150, 0, 298, 1}, .p = typical(model)});
  EXPECT_NE(e.dydp[3], 1.0);
  EXPECT_NEAR(e.dydp[3], 1.0, 1e-6);
}

// ---- recovery of known parameters from noisy data ----

constexpr double kSigma = 0.2;

/// Two fields, labels 111 and 121; spin locks and offsets in Hz.
struct Plan {
  std::vector<double> nu1;
  std::vector<double> offsets;
  bool offset_first = false;
};

constexpr double kFieldFactors[] = {1.0, 4.0 / 3.0};

/// DATA lines of one residue: `rate` gives the true value at a field number and a reference.
std::string dataOf(const Plan& plan, const Case& truth, synthetic::Noise& noise,
                   const std::function<double(int field, Reference)>& rate) {
  std::string lines;
  for (int field = 0; field < 2; ++field) {
    const double factor = kFieldFactors[field];
    for (const double nu1 : plan.nu1) {
      for (const double offset : plan.offsets) {
        const double y = rate(field, reference(nu1, offset, factor, truth)) + kSigma * noise();
        std::vector<double> x = {nu1, offset, 298, factor};
        if (plan.offset_first) std::swap(x[0], x[1]);
        lines += synthetic::dataLine(x, field == 0 ? "111" : "121", y, kSigma);
      }
    }
  }
  return lines;
}

const Plan kOn = {{25, 50, 75, 100, 150, 200, 250, 300, 400, 500, 600, 700, 800, 900, 1000}, {0}};
const Plan kTilted = {{50, 100, 200, 400},
                      {-500, -300, -200, -100, -50, 0, 50, 100, 200, 300, 400, 500, 700}};

// Stronger fields, for faster exchange.
const Plan kFast = {{100, 250, 500, 1000}, {-1000, -700, -400, -200, 0, 200, 400, 700, 1000}};

constexpr double kR20[] = {9.0, 12.5};
constexpr double kR1[] = {1.6, 1.3};

/// The rate along the field with the field's own R20 and R1.
std::function<double(int, Reference)> tiltedRate(const std::function<Real(Reference)>& f) {
  return [f](int field, Reference r) {
    r.R20 = real(kR20[field]);
    r.R1 = real(kR1[field]);
    return static_cast<double>(f(r));
  };
}

/// The transverse rate alone.
std::function<double(int, Reference)> transverseRate(const std::function<Real(Reference)>& f) {
  return [f](int field, Reference r) {
    r.R20 = real(kR20[field]);
    r.transverse = true;
    return static_cast<double>(f(r));
  };
}

const std::string kRates = "PAR R20_1_1 1 40 1 6\nPAR R20_1_2 1 40 1 20\n";
const std::string kLongitudinalRates = "PAR R1_1_1 0.1 20 1 3\nPAR R1_1_2 0.1 20 1 3\n";

void expectRates(const synthetic::Fitted& fit, const std::string& set, bool with_R1) {
  synthetic::expectRecovered(fit, set + "::R20_1_1", kR20[0], 0.1);
  synthetic::expectRecovered(fit, set + "::R20_1_2", kR20[1], 0.1);
  if (!with_R1) return;
  synthetic::expectRecovered(fit, set + "::R1_1_1", kR1[0], 0.1);
  synthetic::expectRecovered(fit, set + "::R1_1_2", kR1[1], 0.1);
}

struct Variant {
  const char* suffix;
  bool tilted;
  bool offset_first;
};

constexpr Variant kVariants[] = {{"", true, false}, {"_OFF", true, true}, {"_ON", false, false}};

Plan planOf(const Variant& variant, const Plan& tilted) {
  Plan plan = variant.tilted ? tilted : kOn;
  plan.offset_first = variant.offset_first;
  return plan;
}

/// One residue alone: shift difference or phi, kex, population.
void recoverOne(const std::string& family, const Plan& tilted, const Case& truth,
                const std::string& parameters,
                const std::vector<std::pair<std::string, double>>& expected,
                const std::function<Real(Reference)>& formula) {
  for (const Variant& variant : kVariants) {
    SCOPED_TRACE(family + variant.suffix);
    synthetic::Noise noise(20);
    const Plan plan = planOf(variant, tilted);
    synthetic::Fitted fit(
        "FUNCTION " + family + variant.suffix + "\nMETHOD ONEEX\nSET residue\n" + parameters +
        kRates + (variant.tilted ? kLongitudinalRates : "") +
        dataOf(plan, truth, noise, variant.tilted ? tiltedRate(formula) : transverseRate(formula)));
    synthetic::expectChi2OfNoise(fit);
    for (const auto& [name, value] : expected) {
      synthetic::expectRecovered(fit, "residue::" + name, value, 0.3);
    }
    expectRates(fit, "residue", variant.tilted);
  }
}

TEST(R1rhoRecovery, Const) {
  recoverOne("R1RHO_CONST", kTilted, {0, 1000, 0.1}, "", {}, &Reference::london);
}

TEST(R1rhoRecovery, London) {
  const Case truth = {900, 3000, 0.1};
  recoverOne("R1RHO_LONDON", kFast, truth, "PAR phi 1e3 1e6 1 2e4\nPAR kex 500 30000 1 6000\n",
             {{"phi", 0.09 * 810000}, {"kex", 3000}}, &Reference::london);
}

TEST(R1rhoRecovery, Kay) {
  const Case truth = {1500, 1500, 0.03};
  recoverOne("R1RHO_KAY", kTilted, truth,
             "PAR dw 300 4000 1 1200\nPAR kex 200 8000 1 1000\nPAR pB 0.001 0.1 1 0.05\n",
             {{"dw", 1500}, {"kex", 1500}, {"pB", 0.03}}, &Reference::kay);
}

TEST(R1rhoRecovery, Palmer02) {
  const Case truth = {1500, 1500, 0.03};
  recoverOne("R1RHO_PALMER02", kTilted, truth,
             "PAR dw 300 4000 1 1200\nPAR kex 200 8000 1 1000\nPAR pB 0.001 0.4 1 0.05\n",
             {{"dw", 1500}, {"kex", 1500}, {"pB", 0.03}},
             [](const Reference& r) { return r.palmer(false); });
}

TEST(R1rhoRecovery, Palmer05) {
  const Case truth = {1500, 1500, 0.03};
  recoverOne("R1RHO_PALMER05", kTilted, truth,
             "PAR dw 300 4000 1 1200\nPAR kex 200 8000 1 1000\nPAR pB 0.001 0.4 1 0.05\n",
             {{"dw", 1500}, {"kex", 1500}, {"pB", 0.03}},
             [](const Reference& r) { return r.palmer(true); });
}

/// Two residues, each with a shift difference of its own, share kex and pB.
void recoverShared(const std::string& family, const std::function<Real(Reference)>& formula) {
  constexpr double kDw[] = {1500, 2400};
  for (const Variant& variant : kVariants) {
    SCOPED_TRACE(family + variant.suffix);
    synthetic::Noise noise(2);
    const Plan plan = planOf(variant, kTilted);
    std::string text = "FUNCTION " + family + variant.suffix +
                       "\nMETHOD ONEEX\nGPAR kexg 200 8000 1 1000\nGPAR pBg 0.001 0.1 1 0.05\n";
    for (const double dw : kDw) {
      text += "SET r" + std::to_string(static_cast<int>(dw)) +
              "\nPAR dw 300 6000 1 1400\nPAR kex kexg\nPAR pB pBg\n" + kRates +
              (variant.tilted ? kLongitudinalRates : "") +
              dataOf(plan, {dw, 1500, 0.03}, noise,
                     variant.tilted ? tiltedRate(formula) : transverseRate(formula));
    }
    synthetic::Fitted fit(text);
    synthetic::expectChi2OfNoise(fit);
    synthetic::expectRecovered(fit, "GLOBAL::kexg", 1500, 0.1);
    synthetic::expectRecovered(fit, "GLOBAL::pBg", 0.03, 0.1);
    for (const double dw : kDw) {
      const std::string set = "r" + std::to_string(static_cast<int>(dw));
      synthetic::expectRecovered(fit, set + "::dw", dw, 0.1);
      expectRates(fit, set, variant.tilted);
    }
  }
}

TEST(R1rhoRecovery, SharedKay) { recoverShared("R1RHO_KAY", &Reference::kay); }

TEST(R1rhoRecovery, SharedPalmer02) {
  recoverShared("R1RHO_PALMER02", [](const Reference& r) { return r.palmer(false); });
}

TEST(R1rhoRecovery, SharedPalmer05) {
  recoverShared("R1RHO_PALMER05", [](const Reference& r) { return r.palmer(true); });
}

TEST(R1rhoRecovery, SharedLondon) {
  for (const Variant& variant : kVariants) {
    SCOPED_TRACE(variant.suffix);
    synthetic::Noise noise(3);
    const Plan plan = planOf(variant, kFast);
    std::string text = std::string("FUNCTION R1RHO_LONDON") + variant.suffix +
                       "\nMETHOD ONEEX\nGPAR kexg 500 30000 1 2000\n";
    for (const int dw : {900, 1300}) {
      text += "SET r" + std::to_string(dw) + "\nPAR phi 1e3 1e6 1 5e4\nPAR kex kexg\n" + kRates +
              (variant.tilted ? kLongitudinalRates : "") +
              dataOf(plan, {static_cast<double>(dw), 3000, 0.1}, noise,
                     variant.tilted ? tiltedRate(&Reference::london)
                                    : transverseRate(&Reference::london));
    }
    synthetic::Fitted fit(text);
    synthetic::expectChi2OfNoise(fit);
    synthetic::expectRecovered(fit, "GLOBAL::kexg", 3000, 0.2);
    for (const int dw : {900, 1300}) {
      const std::string set = "r" + std::to_string(dw);
      synthetic::expectRecovered(fit, set + "::phi", 0.09 * dw * dw, 0.2);
      expectRates(fit, set, variant.tilted);
    }
  }
}

}  // namespace
