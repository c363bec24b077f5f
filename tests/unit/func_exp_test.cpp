// Elementary curves: values worked out by hand, the limits of exp, what is written where.
// SPDX-License-Identifier: GPL-3.0-or-later
#include "Models.h"

#include <gtest/gtest.h>

#include <limits>
#include <numbers>
#include <string>
#include <vector>

namespace {

using models::Call;
using models::Evaluation;
using models::kUntouched;
using models::Model;
using models::near;

constexpr double kInf = std::numeric_limits<double>::infinity();
constexpr double kE = std::numbers::e;
constexpr double kLn2 = std::numbers::ln2;

// ln(DBL_MIN) and ln(DBL_MAX), the range of exponents.
constexpr double kExpMin = -708.3964185322641;
constexpr double kExpMax = 709.782712893384;

void expectDerivatives(const Evaluation& e, const std::vector<double>& expected) {
  for (std::size_t k = 0; k < expected.size(); ++k) {
    EXPECT_TRUE(near(e.dydp[k], expected[k], 0, 1e-15)) << "derivative " << k;
  }
}

void expectNothingWritten(const Evaluation& e) {
  for (const double entry : e.dydp) EXPECT_EQ(entry, kUntouched);
}

TEST(Constant, IsItsParameterAtEveryPoint) {
  const Model model("Constant");
  for (const double x : {-3.0, 0.0, 1e300, kInf}) {
    const Evaluation e = model.evaluate({.x = {x}, .p = {4.25}});
    EXPECT_EQ(e.value, 4.25);
    EXPECT_EQ(e.dydp[0], 1.0);
  }
}

TEST(Linear, ByHand) {
  const Evaluation e = Model("Linear").evaluate({.x = {3.0}, .p = {0.5, -2.0}});
  EXPECT_EQ(e.value, -5.5);
  EXPECT_EQ(e.dydp[0], 1.0);
  EXPECT_EQ(e.dydp[1], 3.0);
}

TEST(Linear, SlopeHasNoEffectAtTheOrigin) {
  const Evaluation e = Model("Linear").evaluate({.x = {0.0}, .p = {0.5, -2.0}});
  EXPECT_EQ(e.value, 0.5);
  EXPECT_EQ(e.dydp[0], 1.0);
  EXPECT_EQ(e.dydp[1], 0.0);
}

TEST(Linear, HasNoLimitOfItsExponent) {
  EXPECT_EQ(Model("Linear").value({.x = {-1e4}, .p = {1.0, 1.0}}), -9999.0);
  EXPECT_EQ(Model("Linear").value({.x = {1e4}, .p = {1.0, 1.0}}), 10001.0);
}

TEST(Exp2, ByHand) {
  // Halves every 2 units of x: 12 at 0, 3 at 4.
  const Evaluation e = Model("Exp2").evaluate({.x = {4.0}, .p = {12.0, -kLn2 / 2}});
  EXPECT_TRUE(near(e.value, 3.0, 0, 1e-15));
  expectDerivatives(e, {0.25, 12.0});
}

TEST(Exp2, GrowsWithPositiveRate) {
  const Evaluation e = Model("Exp2").evaluate({.x = {2.0}, .p = {-3.0, 0.5}});
  EXPECT_TRUE(near(e.value, -3.0 * kE, 0, 1e-15));
  expectDerivatives(e, {kE, -6.0 * kE});
}

TEST(Exp2, UnderflowIsRefusedNotZero) {
  const Evaluation e = Model("Exp2").evaluate({.x = {1.0}, .p = {2.0, -709.0}});
  EXPECT_EQ(e.value, -kInf);
  expectNothingWritten(e);
}

TEST(Exp2, UnderflowIsMinusInfinityForANegativeAmplitudeToo) {
  EXPECT_EQ(Model("Exp2").value({.x = {1.0}, .p = {-2.0, -709.0}}), -kInf);
  EXPECT_EQ(Model("Exp2").value({.x = {1.0}, .p = {0.0, -709.0}}), -kInf);
}

TEST(Exp2, OverflowIsRefused) {
  const Evaluation e = Model("Exp2").evaluate({.x = {1.0}, .p = {2.0, 710.0}});
  EXPECT_EQ(e.value, kInf);
  expectNothingWritten(e);
  EXPECT_EQ(Model("Exp2").value({.x = {1.0}, .p = {-2.0, 710.0}}), kInf);
}

TEST(Exp2, TinyValueInsideTheLimitHasBothDerivatives) {
  const Evaluation e = Model("Exp2").evaluate({.x = {1.0}, .p = {2.0, -708.0}});
  // exp(-708) = 3.307553003638408e-308, from 50-digit arithmetic.
  EXPECT_TRUE(near(e.value, 2 * 3.307553003638408e-308L, 0, 1e-13));
  EXPECT_TRUE(near(e.dydp[0], 3.307553003638408e-308L, 0, 1e-13));
  EXPECT_TRUE(near(e.dydp[1], 2 * 3.307553003638408e-308L, 0, 1e-13));
}

TEST(Exp2, ExponentsEqualToTheLimitsAreAccepted) {
  const Model model("Exp2");
  EXPECT_GT(model.value({.x = {1.0}, .p = {1.0, kExpMin}}), 0.0);
  EXPECT_EQ(model.value({.x = {1.0}, .p = {1.0, std::nextafter(kExpMin, -kInf)}}), -kInf);
  EXPECT_LT(model.value({.x = {1.0}, .p = {0.5, kExpMax}}), kInf);
  EXPECT_EQ(model.value({.x = {1.0}, .p = {0.5, std::nextafter(kExpMax, kInf)}}), kInf);
}

TEST(Exp3, ByHand) {
  const Evaluation e = Model("Exp3").evaluate({.x = {2.0}, .p = {8.0, -kLn2, 5.0}});
  EXPECT_TRUE(near(e.value, 7.0, 0, 1e-15));
  expectDerivatives(e, {0.25, 4.0, 1.0});
}

TEST(Exp3, IsRefusedOutsideTheLimits) {
  const Model model("Exp3");
  const Evaluation below = model.evaluate({.x = {2.0}, .p = {1.0, -354.5, 5.0}});
  EXPECT_EQ(below.value, -kInf);
  expectNothingWritten(below);
  const Evaluation above = model.evaluate({.x = {2.0}, .p = {1.0, 355.0, 5.0}});
  EXPECT_EQ(above.value, kInf);
  expectNothingWritten(above);
}

TEST(Gauss, ByHand) {
  // exp(-Bx^2) = 1/4 at B = ln 2 / 2, x = -2.
  const Evaluation e = Model("Gauss").evaluate({.x = {-2.0}, .p = {8.0, kLn2 / 2, 5.0}});
  EXPECT_TRUE(near(e.value, 7.0, 0, 1e-15));
  expectDerivatives(e, {0.25, -8.0, 1.0});
}

TEST(Gauss, IsRefusedOutsideTheLimits) {
  const Model model("Gauss");
  const Evaluation below = model.evaluate({.x = {-10.0}, .p = {1.0, 7.09, 5.0}});
  EXPECT_EQ(below.value, -kInf);
  expectNothingWritten(below);
  const Evaluation above = model.evaluate({.x = {-10.0}, .p = {1.0, -7.1, 5.0}});
  EXPECT_EQ(above.value, kInf);
  expectNothingWritten(above);
}

TEST(Gauss2, ByHand) {
  // Exponentials 1/4 and 1/2.
  const Evaluation e =
      Model("Gauss2").evaluate({.x = {2.0}, .p = {0.25, kLn2 / 2, 0.75, kLn2 / 4}});
  EXPECT_TRUE(near(e.value, 0.4375, 0, 1e-15));
  expectDerivatives(e, {0.25, -0.25, 0.5, -1.5});
}

TEST(Gauss2, UnderflowOfEitherExponentIsRefused) {
  const Model model("Gauss2");
  for (const std::vector<double>& p :
       {std::vector<double>{0.25, 0.0, 0.75, 1e6}, std::vector<double>{0.25, 1e6, 0.75, 0.0},
        std::vector<double>{0.25, 1e6, 0.75, 1e6}}) {
    const Evaluation e = model.evaluate({.x = {1.0}, .p = p});
    EXPECT_EQ(e.value, -kInf);
    expectNothingWritten(e);
  }
}

TEST(Gauss2, OverflowOfEitherExponentIsRefused) {
  const Model model("Gauss2");
  for (const std::vector<double>& p :
       {std::vector<double>{0.25, 0.0, 0.75, -1e6}, std::vector<double>{0.25, -1e6, 0.75, 0.0}}) {
    const Evaluation e = model.evaluate({.x = {1.0}, .p = p});
    EXPECT_EQ(e.value, kInf);
    expectNothingWritten(e);
  }
}

TEST(Gauss2, UnderflowOfOneExponentComesBeforeOverflowOfTheOther) {
  const Model model("Gauss2");
  EXPECT_EQ(model.value({.x = {1.0}, .p = {0.25, -1e6, 0.75, 1e6}}), -kInf);
  EXPECT_EQ(model.value({.x = {1.0}, .p = {0.25, 1e6, 0.75, -1e6}}), -kInf);
}

TEST(ExpFamily, AnEmptyVectorStaysEmptyAndTheValueIsTheSame) {
  for (const char* name : {"Constant", "Linear", "Exp2", "Exp3", "Gauss", "Gauss2"}) {
    const Model model(name);
    const std::vector<double> all = {0.4, 0.3, 0.6, 0.2};
    const Call call = {
        .x = {1.5},
        .p = std::vector<double>(all.begin(), all.begin() + static_cast<long>(model.size()))};
    EXPECT_EQ(model.value(call), model.evaluate(call).value) << name;  // value() checks the vector
  }
}

}  // namespace
