// Multiple-quantum CPMG models against propagation of the coherences, pulse by pulse, in extended
// precision, in their closed limits and at their edges; what is reused and refused; fits.
// SPDX-License-Identifier: GPL-3.0-or-later
#include "EchoTrain.h"
#include "InputText.h"
#include "Models.h"
#include "Problem.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <complex>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <limits>
#include <ostream>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace {

using models::Call;
using models::Evaluation;
using models::kUntouched;
using models::Model;
using models::near;

using echo::Complex;
using echo::endlessRate;
using echo::kExperiments;
using echo::Real;
using echo::signal;
using echo::Sites;
using echo::trainRate;
using Numbers = std::vector<double>;

constexpr double kInf = std::numeric_limits<double>::infinity();
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

// ---- reference: what the parameters mean ----

Sites twoSites(const Numbers& x, const Numbers& p, Real ab, Real ba) {
  Sites s;
  s.ab = ab;
  s.ba = ba;
  s.pA = ba / (ab + ba);
  s.pB = ab / (ab + ba);
  s.BN = Real{p[0]} * x[3];
  s.BH = Real{p[1]} * x[3];
  return s;
}
Sites fromMinor(const Numbers& x, const Numbers& p) {
  return twoSites(x, p, Real{p[2]} * p[3], Real{p[2]} * (1 - Real{p[3]}));
}
Sites fromProduct(const Numbers& x, const Numbers& p) {
  const Real pb = (1 - std::sqrt(1 - 4 * Real{p[3]})) / 2;
  return twoSites(x, p, p[2] * pb, p[2] * (1 - pb));
}
Sites fromRates(const Numbers& x, const Numbers& p) { return twoSites(x, p, p[2], p[3]); }

Sites threeSites(const Numbers& x, const Numbers& p, Sites s) {
  s.BN = Real{p[0]} * x[3];
  s.BH = Real{p[1]} * x[3];
  s.CN = Real{p[2]} * x[3];
  s.CH = Real{p[3]} * x[3];
  return s;
}
/// kex1, kex2, kex3: sums of the rates between A and B, B and C, C and A.
Sites fromPopulations(const Numbers& x, const Numbers& p) {
  Sites s;
  s.pB = p[4];
  s.pC = p[5];
  s.pA = 1 - s.pB - s.pC;
  s.ab = p[6] * s.pB / (s.pA + s.pB);
  s.ba = p[6] * s.pA / (s.pA + s.pB);
  s.bc = p[7] * s.pC / (s.pB + s.pC);
  s.cb = p[7] * s.pB / (s.pB + s.pC);
  s.ca = p[8] * s.pA / (s.pA + s.pC);
  s.ac = p[8] * s.pC / (s.pA + s.pC);
  return threeSites(x, p, s);
}
/// kab, kba, kac, kca, kbc; detailed balance gives the populations and kcb.
Sites fromThreeRates(const Numbers& x, const Numbers& p) {
  Sites s;
  s.ab = p[4];
  s.ba = p[5];
  s.ac = p[6];
  s.ca = p[7];
  s.bc = p[8];
  const Real B = s.ab / s.ba, C = s.ac / s.ca;  // populations relative to A
  s.pA = 1 / (1 + B + C);
  s.pB = B * s.pA;
  s.pC = C * s.pA;
  s.cb = s.bc * B / C;
  return threeSites(x, p, s);
}

// ---- random points ----

class Dice {
 public:
  explicit Dice(unsigned seed) : engine_(seed) {}
  double uniform(double low, double high) {
    return low + (high - low) * static_cast<double>(engine_()) / 4294967296.0;
  }
  double spread(double low, double high) {  // evenly in the logarithm
    return low * std::exp(uniform(0.0, std::log(high / low)));
  }
  int number(int below) { return static_cast<int>(uniform(0.0, below)); }

 private:
  std::mt19937 engine_;
};

constexpr int kCodes = 6;

/// T = 0.02 to 0.06 s and x0 so that T x0 is an integer from 2 to 60, half of them odd, plus 0.3.
Numbers abscissae(Dice& dice, int code) {
  const double T = dice.uniform(0.02, 0.06);
  const double pulses = 2 + dice.number(59);
  return {std::max(10.5, (pulses + 0.3) / T), T, 298, dice.uniform(0.8, 1.6),
          static_cast<double>(code)};
}

using SitesOf = Sites (*)(const Numbers& x, const Numbers& p);
using DrawRates = Numbers (*)(Dice& dice);

Numbers ratesWithProduct(Dice& dice) { return {dice.spread(50, 5000), dice.spread(0.005, 0.24)}; }
Numbers ratesWithMinor(Dice& dice) { return {dice.spread(50, 5000), dice.spread(0.01, 0.24)}; }
Numbers twoRates(Dice& dice) { return {dice.spread(5, 500), dice.spread(50, 3000)}; }
Numbers threePopulations(Dice& dice) {
  return {dice.spread(0.01, 0.3), dice.spread(0.01, 0.3), dice.spread(20, 4000),
          dice.spread(20, 4000), dice.spread(20, 4000)};
}
Numbers fiveRates(Dice& dice) {
  return {dice.spread(5, 300), dice.spread(300, 3000), dice.spread(5, 300), dice.spread(300, 3000),
          dice.spread(5, 1000)};
}

struct Family {
  const char* name;
  bool closed;
  std::size_t sites;
  SitesOf meaning;
  DrawRates rates;
};

void PrintTo(const Family& family, std::ostream* stream) { *stream << family.name; }

const Family kFamilies[] = {
    {"MQCPMG_Richards", true, 2, fromProduct, ratesWithProduct},
    {"MQCPMG_Richards_p", true, 2, fromMinor, ratesWithMinor},
    {"MQCPMG_Richards_k", true, 2, fromRates, twoRates},
    {"MQCPMG_Matrix2_p", false, 2, fromMinor, ratesWithMinor},
    {"MQCPMG_Matrix2_k", false, 2, fromRates, twoRates},
    {"MQCPMG_Matrix3_p", false, 3, fromPopulations, threePopulations},
    {"MQCPMG_Matrix3_k", false, 3, fromThreeRates, fiveRates},
};

Call draw(const Family& family, Dice& dice, int code) {
  Call call{.x = abscissae(dice, code), .p = {}};
  for (std::size_t k = 0; k < family.sites - 1; ++k) {
    call.p.push_back(dice.uniform(-600, 600));
    call.p.push_back(dice.uniform(-400, 400));
  }
  const Numbers rates = family.rates(dice);
  call.p.insert(call.p.end(), rates.begin(), rates.end());
  call.p.push_back(dice.uniform(1, 20));
  return call;
}

/// Blocks of two echoes: whole pairs of pulses that fit into T.
int blocksOf(const Call& call) { return static_cast<int>(call.x[0] * call.x[1]) / 2; }

Real expectedValue(const Family& family, const Call& call) {
  const Sites s = family.meaning(call.x, call.p);
  const int code = static_cast<int>(call.x[4]);
  const Real exchange = family.closed ? endlessRate(s, code, call.x[0])
                                      : trainRate(s, code, blocksOf(call), call.x[0], call.x[1]);
  return exchange + Real{call.p.back()};
}

std::string describe(const Call& call) {
  std::ostringstream text;
  text.precision(17);
  for (const double x : call.x) text << x << ' ';
  text << '|';
  for (const double p : call.p) text << ' ' << p;
  return text.str();
}

class Multiple : public testing::TestWithParam<Family> {
 protected:
  const Family family_ = GetParam();
  const Model model_{family_.name};
  const std::size_t R20_ = model_.size() - 1;
  const std::size_t differences_ = 2 * (family_.sites - 1);

  /// `count` points of every code.
  [[nodiscard]] std::vector<Call> points(int count, unsigned seed) const {
    Dice dice(seed);
    std::vector<Call> calls;
    for (int i = 0; i < count * kCodes; ++i) calls.push_back(draw(family_, dice, i % kCodes));
    return calls;
  }
  /// With the differences of nitrogen (first = 0) or the proton (1) multiplied by a factor.
  [[nodiscard]] Call withDifferences(Call call, std::size_t first, double factor) const {
    for (std::size_t k = first; k < differences_; k += 2) call.p[k] *= factor;
    return call;
  }
};

INSTANTIATE_TEST_SUITE_P(Models, Multiple, testing::ValuesIn(kFamilies),
                         [](const auto& family) { return std::string(family.param.name); });

/// NaN in both, or equal within 1e-10.
testing::AssertionResult sameValue(double a, double b) {
  if (std::isnan(a) && std::isnan(b)) return testing::AssertionSuccess();
  return near(a, b, 1e-10, 1e-12);
}

// ---- propagation ----

// Agreement found with 40 random points of each model and code: 8e-12 1/s at worst.
TEST_P(Multiple, ValueIsThatOfPropagation) {
  int refused = 0;
  for (const Call& call : points(40, 11)) {
    const Real expected = expectedValue(family_, call);
    const double value = model_.value(call);
    if (std::isnan(expected)) {
      ++refused;
      EXPECT_TRUE(std::isnan(value)) << describe(call);
    } else {
      EXPECT_TRUE(near(value, expected, 1e-10)) << describe(call);
    }
  }
  EXPECT_LT(refused, 10);
}

TEST_P(Multiple, IntrinsicRateIsAddedAndHasDerivativeOne) {
  for (Call call : points(1, 12)) {
    call.p[R20_] = 0.0;
    const Evaluation zero = model_.evaluateFresh(call);
    EXPECT_EQ(zero.dydp[R20_], 1.0);
    call.p[R20_] = 12.5;
    const Evaluation e = model_.evaluate(call);
    EXPECT_EQ(e.value, zero.value + 12.5);
    EXPECT_EQ(e.dydp[R20_], 1.0);
  }
}

TEST_P(Multiple, FieldFactorScalesAllShiftDifferences) {
  for (const Call& call : points(2, 13)) {
    Call same = withDifferences(withDifferences(call, 0, call.x[3]), 1, call.x[3]);
    same.x[3] = 1.0;
    EXPECT_TRUE(sameValue(model_.value(same), model_.value(call))) << describe(call);
  }
}

TEST_P(Multiple, ThirdAbscissaIsNotReadAndTheSecondByTheMatrixModelsAlone) {
  for (const Call& call : points(1, 14)) {
    Call other = call;
    other.x[2] *= 1.1;
    EXPECT_EQ(model_.value(other), model_.value(call));
    other.x[1] *= 1.0001;
    EXPECT_EQ(model_.value(other) == model_.value(call), family_.closed);
  }
}

// ---- hand-checked values ----

TEST(MultipleByHand, EquallyPopulatedSitesInTheClosedForm) {
  // kab = kba = 500, D = 600 by every code, x0 = 800: kex = 1000, kex^2 - D^2 = 800^2, and
  // cosh(x) = (1e6 cosh 1 - 3.6e5)/6.4e5 = 1.848563491898818, x = 1.224743789051677,
  // Rex = 500 - 400 x = 10.10248437932920
  const Model model("MQCPMG_Richards_k");
  const double D[][2] = {{600, 99}, {99, 600}, {-200, 400}, {200, 400}, {600, 0}, {0, 600}};
  for (int code = 0; code < kCodes; ++code) {
    const double value = model.value(
        {.x = {800, 0.04, 298, 1, 1.0 * code}, .p = {D[code][0], D[code][1], 500, 500, 8}});
    EXPECT_NEAR(value, 18.10248437932920, 1e-11) << "code " << code;
  }
}

TEST(MultipleByHand, ShortestTrainInSlowExchange) {
  // One block of two echoes; B, far away in frequency and never coming back in time, leaves A the
  // decay exp(-kab T): kab = 4, up to about kab kba/D^2.
  for (const char* name : {"MQCPMG_Matrix2_k", "MQCPMG_Richards_k"}) {
    const double value =
        Model(name).value({.x = {50.000001, 0.04, 298, 1, 0}, .p = {11000, 0, 4, 20, 8}});
    EXPECT_NEAR(value, 12.0, 0.01) << name;
  }
}

// ---- closed limits ----

TEST_P(Multiple, WithoutShiftDifferencesOnlyTheIntrinsicRateIsLeft) {
  for (const Call& call : points(10, 21)) {
    const Call none = withDifferences(withDifferences(call, 0, 0.0), 1, 0.0);
    EXPECT_NEAR(model_.value(none), none.p[R20_], 1e-9) << describe(none);
  }
}

TEST_P(Multiple, SignOfAllDifferencesTogetherIsWithoutEffect) {
  for (const Call& call : points(10, 22)) {
    const Call negated = withDifferences(withDifferences(call, 0, -1.0), 1, -1.0);
    EXPECT_TRUE(sameValue(model_.value(negated), model_.value(call))) << describe(call);
  }
}

TEST_P(Multiple, SignOfOneNucleusMattersToZeroAndDoubleQuantumAlone) {
  for (const Call& call : points(10, 23)) {
    const bool both = call.x[4] == 2 || call.x[4] == 3;
    for (const std::size_t nucleus : {0U, 1U}) {
      const double other = model_.value(withDifferences(call, nucleus, -1.0));
      const double value = model_.value(call);
      if (both) {
        EXPECT_NE(other, value) << describe(call);
      } else {
        EXPECT_TRUE(sameValue(other, value)) << describe(call);
      }
    }
  }
}

TEST_P(Multiple, ZeroQuantumIsDoubleQuantumWithOneSignChanged) {
  for (Call call : points(5, 24)) {
    call.x[4] = 2;
    Call mirrored = withDifferences(call, 0, -1.0);
    mirrored.x[4] = 3;
    EXPECT_TRUE(sameValue(model_.value(mirrored), model_.value(call))) << describe(call);
  }
}

TEST_P(Multiple, WithoutDifferencesOfThePassiveNucleusItIsSingleQuantum) {
  for (Call call : points(10, 25)) {
    const bool nitrogen = call.x[4] == 4 || call.x[4] == 0;
    if (!nitrogen && call.x[4] != 5) continue;
    call = withDifferences(call, nitrogen ? 1 : 0, 0.0);
    call.x[4] = nitrogen ? 4 : 5;
    Call single = call;
    single.x[4] = nitrogen ? 0 : 1;
    EXPECT_TRUE(sameValue(model_.value(call), model_.value(single))) << describe(call);
  }
}

TEST_P(Multiple, ExchangingTheNucleiExchangesTheCodes) {
  constexpr int kPartner[] = {1, 0, 2, 3, 5, 4};
  for (const Call& call : points(10, 26)) {
    Call other = call;
    for (std::size_t k = 0; k < differences_; k += 2) std::swap(other.p[k], other.p[k + 1]);
    other.x[4] = kPartner[static_cast<int>(call.x[4])];
    EXPECT_TRUE(sameValue(model_.value(other), model_.value(call))) << describe(call);
  }
}

TEST(MultipleClosedForm, SingleZeroAndDoubleQuantumAreTheTwoSiteModel) {
  const Model multiple("MQCPMG_Richards"), two("CPMG_Richards");
  Dice dice(27);
  for (int i = 0; i < 200; ++i) {
    const int code = i % 4;
    const Call call = draw(kFamilies[0], dice, code);
    const double N = call.p[0], H = call.p[1];
    const double D[] = {N, H, H - N, N + H};
    const Call same{.x = {call.x[0], 298, call.x[3]},
                    .p = {std::fabs(D[code]), call.p[2], call.p[3], call.p[4]}};
    EXPECT_TRUE(near(multiple.value(call), two.value(same), 1e-9)) << describe(call);
  }
}

TEST(MultipleClosedForm, PassiveNucleusAloneIsNotRefocused) {
  // Code 4 with dwN = 0: no pulse acts on what precesses, at any x0.
  const Model model("MQCPMG_Richards_k");
  for (const double x0 : {25.0, 200.0, 1900.0}) {
    const double kab = 60, kba = 700, H = 350, field = 1.4;
    const Real kex = kab + kba, d = kab - kba, D = Real{H} * field;
    const Real expected = 9 + (kex - std::sqrt(Complex(kex * kex - D * D, 2 * D * d)).real()) / 2;
    const double value = model.value({.x = {x0, 0.04, 298, field, 4}, .p = {0, H, kab, kba, 9}});
    EXPECT_TRUE(near(value, expected, 1e-10)) << x0;
    const double swapped = model.value({.x = {x0, 0.04, 298, field, 5}, .p = {H, 0, kab, kba, 9}});
    EXPECT_TRUE(near(swapped, expected, 1e-10)) << x0;
  }
}

TEST(MultipleClosedForm, ParametrisationsAgree) {
  Dice dice(28);
  for (int i = 0; i < 60; ++i) {
    const Call p = draw(kFamilies[1], dice, i % kCodes);
    Call k = p, product = p;
    k.p[2] = p.p[2] * p.p[3];
    k.p[3] = p.p[2] * (1.0 - p.p[3]);
    product.p[3] = p.p[3] * (1.0 - p.p[3]);
    const double value = Model("MQCPMG_Richards_p").value(p);
    EXPECT_TRUE(near(Model("MQCPMG_Richards_k").value(k), value, 1e-10)) << describe(p);
    EXPECT_TRUE(near(Model("MQCPMG_Richards").value(product), value, 1e-10)) << describe(p);
    const double matrix = Model("MQCPMG_Matrix2_p").value(p);
    EXPECT_TRUE(sameValue(Model("MQCPMG_Matrix2_k").value(k), matrix)) << describe(p);
  }
}

TEST(MultipleClosedForm, ExchangedPopulationsGiveTheSameValue) {
  Dice dice(29);
  for (int i = 0; i < 60; ++i) {
    const Call call = draw(kFamilies[2], dice, i % kCodes);
    Call other = call;
    std::swap(other.p[2], other.p[3]);
    const Model model("MQCPMG_Richards_k");
    EXPECT_TRUE(near(model.value(other), model.value(call), 1e-10)) << describe(call);
  }
}

// A finite train lacks a factor of its first amplitude: the difference falls off as 1/T.
TEST(MultipleMatrix, LongTrainsApproachTheClosedForm) {
  const Model matrix("MQCPMG_Matrix2_p"), closed("MQCPMG_Richards_p");
  for (int code = 0; code < kCodes; ++code) {
    const auto difference = [&](double T) {
      const Call call{.x = {400.0001, T, 298, 1, 1.0 * code}, .p = {350, 120, 600, 0.06, 5}};
      return closed.value(call) - matrix.value(call);
    };
    const double one = difference(1.0), two = difference(2.0), four = difference(4.0);
    EXPECT_LT(std::fabs(one), 0.1) << "code " << code;
    EXPECT_NEAR(two / one, 0.5, 0.001) << "code " << code;
    EXPECT_NEAR(four / two, 0.5, 0.001) << "code " << code;
  }
}

TEST(MultipleMatrix, IsolatedThirdSiteIsTheTwoSiteModel) {
  const Model three("MQCPMG_Matrix3_p"), two("MQCPMG_Matrix2_p");
  Dice dice(31);
  for (int i = 0; i < 60; ++i) {
    const Call call = draw(kFamilies[3], dice, i % kCodes);
    const double pc = dice.uniform(0.01, 0.4), pb = call.p[3];
    const Call same{.x = call.x,
                    .p = {call.p[0], call.p[1], dice.uniform(-500, 500), dice.uniform(-500, 500),
                          pb * (1 - pc), pc, call.p[2], 0, 0, call.p[4]}};
    EXPECT_TRUE(sameValue(three.value(same), two.value(call))) << describe(call);
  }
}

TEST(MultipleMatrix, PopulationsAndRatesOfThreeSitesAgree) {
  const Model populations("MQCPMG_Matrix3_p"), rates("MQCPMG_Matrix3_k");
  Dice dice(32);
  for (int i = 0; i < 60; ++i) {
    const Call p = draw(kFamilies[5], dice, i % kCodes);
    const Sites s = fromPopulations(p.x, p.p);
    Call k = p;
    const Real five[] = {s.ab, s.ba, s.ac, s.ca, s.bc};
    for (std::size_t r = 0; r < 5; ++r) k.p[4 + r] = static_cast<double>(five[r]);
    EXPECT_TRUE(sameValue(rates.value(k), populations.value(p))) << describe(p);
  }
}

TEST(MultipleMatrix, LongTrainOfThreeSitesIsTheThreeSiteModel) {
  const Model multiple("MQCPMG_Matrix3_k"), three("CPMG_matrix3");
  const double x0 = 400.0001, field = 1.2;
  const auto difference = [&](double T) {
    return three.value({.x = {x0, 0.04, 0, field}, .p = {500, -300, 30, 600, 80, 900, 50, 5}}) -
           multiple.value(
               {.x = {x0, T, 298, field, 0}, .p = {500, 111, -300, 222, 30, 600, 50, 900, 80, 5}});
  };
  const double one = difference(1.0), two = difference(2.0), four = difference(4.0);
  EXPECT_LT(std::fabs(one), 0.1);
  EXPECT_NEAR(two / one, 0.5, 0.001);
  EXPECT_NEAR(four / two, 0.5, 0.001);
}

TEST(MultipleMatrix, ThreeRatesWithoutSiteCAreTheTwoSiteModel) {
  // No rates of C: detailed balance leaves kcb open, the site is taken as empty.
  const Model three("MQCPMG_Matrix3_k"), two("MQCPMG_Matrix2_k");
  for (int code = 0; code < kCodes; ++code) {
    const Numbers x = {250.01, 0.04, 298, 1.1, 1.0 * code};
    EXPECT_TRUE(sameValue(three.value({.x = x, .p = {300, 150, 999, -777, 40, 500, 0, 0, 0, 6}}),
                          two.value({.x = x, .p = {300, 150, 40, 500, 6}})));
  }
}

// ---- how many echoes ----

Call shortTrain(double x0, double T, int code = 0) {
  return {.x = {x0, T, 298, 1, 1.0 * code}, .p = {700, 300, 400, 0.1, 5}};
}

/// The value for a given number of blocks, whatever x0 and T say.
Real withBlocks(const Call& call, int blocks) {
  const int code = static_cast<int>(call.x[4]);
  return 5 + trainRate(fromMinor(call.x, call.p), code, blocks, call.x[0], call.x[1]);
}

TEST(EchoBlocks, AreWholePairsOfPulses) {
  const Model model("MQCPMG_Matrix2_p");
  const struct {
    double x0, T;
    int blocks;
  } trains[] = {
      {133.33, 0.03, 1},                    // 3.9999 pulses: one block of them is lost
      {133.34, 0.03, 2},    {50, 0.04, 1},  // 2 exactly
      {99.99, 0.04, 1},                     // 3.9996
      {149, 0.04, 2},                       // 5.96
      {1550.005, 0.02, 15},                 // 31: the odd one is not counted
      {111.1112, 0.018, 1}, {2000, 0.04, 40},
  };
  for (const auto& train : trains) {
    for (int code = 0; code < kCodes; ++code) {
      const Call call = shortTrain(train.x0, train.T, code);
      EXPECT_TRUE(near(model.value(call), withBlocks(call, train.blocks), 1e-10))
          << train.x0 << ", code " << code;
    }
  }
}

TEST(EchoBlocks, ProductThatRoundingLeavesBelowAnEvenNumberLosesABlock) {
  // 0.072 x 750 is 54, but 53.99999999999999 in double.
  const Model model("MQCPMG_Matrix2_p");
  const double T = 0.072, x0 = 750;
  ASSERT_LT(T * x0, 54.0);
  const Call call = shortTrain(x0, T);
  EXPECT_TRUE(near(model.value(call), withBlocks(call, 26), 1e-10));
  const Call above = shortTrain(std::nextafter(x0, kInf), T);
  EXPECT_TRUE(near(model.value(above), withBlocks(above, 27), 1e-10));
}

TEST(EchoBlocks, RateIsOverTheGivenTimeNotTheTimeOfTheEchoes) {
  // The same train of 4 pulses at the same x0 and a T that is longer by half a pulse.
  const Model model("MQCPMG_Matrix2_p");
  const double exact = model.value(shortTrain(100.000001, 0.04)) - 5;
  const double longer = model.value(shortTrain(100.000001, 0.045)) - 5;
  EXPECT_NEAR(longer / exact, 0.04 / 0.045, 1e-6);
}

TEST(MultipleTrain, SignalThatHasDecayedBeyondDoubleIsRefused) {
  // 1047.7 1/s through 0.3 s leaves e^-314; through 1 s nothing, where repeated products stick at
  // the smallest number instead of reaching 0.
  const Model model("MQCPMG_Matrix2_k");
  const std::vector<double> p = {12000, 0, 12000, 12000, 10};
  EXPECT_NEAR(model.value({.x = {4000, 0.3, 0, 1, 0}, .p = p}), 1047.7, 0.05);
  EXPECT_TRUE(std::isnan(model.value({.x = {4000, 1.0, 0, 1, 0}, .p = p})));
  EXPECT_TRUE(std::isnan(model.value({.x = {4000, 2.0, 0, 1, 0}, .p = p})));
}

TEST(MultipleTrain, TrainThatNoComputerWouldFinishIsRefused) {
  const Model model("MQCPMG_Matrix2_p");
  const std::vector<double> p = {500, 100, 800, 0.1, 5};
  for (const double T : {1e300, std::numeric_limits<double>::infinity()}) {
    EXPECT_TRUE(std::isnan(model.value({.x = {50, T, 0, 1, 0}, .p = p}))) << T;
    EXPECT_TRUE(std::isnan(model.value({.x = {T, 0.04, 0, 1, 0}, .p = p}))) << T;
  }
}

// ---- what ends the run, in this order ----

constexpr const char* kTooShort = "1/tcp is too short. Check the input file\n";
constexpr const char* kUnknownState =
    "ERROR: Unknown spin state.\n"
    "       0:15N DQ, 1:1H SQ, 2:ZQ, 3:DQ, 4:15N MQ, 5:1H MQ\n";
constexpr const char* kFewEchoes = "ERROR: N is less than 2.\n";

TEST_P(Multiple, PulseRateIsTruncatedAndRefusedBelowTen) {
  Call call = points(1, 41)[0];
  call.x[1] = 1.0;
  for (const double x0 : {9.999999, 9.0, 0.0, -50.0}) {
    call.x[0] = x0;
    EXPECT_EQ(endingOf([&] { static_cast<void>(model_.value(call)); }), fatalEnding(kTooShort));
  }
  EXPECT_EXIT(static_cast<void>(model_.value(call)), testing::ExitedWithCode(1),
              "^1/tcp is too short\\. Check the input file\n$");
  for (const double x0 : {10.0, 10.5}) {
    call.x[0] = x0;
    EXPECT_FALSE(std::isnan(model_.value(call))) << x0;
  }
}

TEST_P(Multiple, CodesAreTruncatedAndOthersThanZeroToFiveRefused) {
  Call call = points(1, 42)[0];
  for (const double code : {-1.0, -1.5, 6.0, 6.9, 100.0, 1e300, -1e300}) {
    call.x[4] = code;
    EXPECT_EQ(endingOf([&] { static_cast<void>(model_.value(call)); }), fatalEnding(kUnknownState))
        << code;
  }
  EXPECT_EXIT(static_cast<void>(model_.value(call)), testing::ExitedWithCode(1),
              "^ERROR: Unknown spin state\\.\n       0:15N DQ, 1:1H SQ, 2:ZQ, 3:DQ, 4:15N MQ, "
              "5:1H MQ\n$");
  const double truncated[][2] = {{-0.5, 0}, {-0.999, 0}, {0.9, 0}, {1.2, 1}, {4.999, 4}, {5.9, 5}};
  for (const auto& pair : truncated) {
    call.x[4] = pair[0];
    const double value = model_.value(call);
    call.x[4] = pair[1];
    EXPECT_EQ(value, model_.value(call)) << pair[0];
    EXPECT_TRUE(std::isfinite(value));
  }
}

TEST_P(Multiple, TrainsOfLessThanTwoPulsesEndMatrixModelsOnly) {
  Call call = points(1, 43)[0];
  const std::pair<double, double> trains[] = {{111.111, 0.018},  // 1.999998 pulses
                                              {50, 0.0399999999},
                                              {25, 0.04},
                                              {500, 0.0},
                                              {500, -0.04}};
  for (const auto& [x0, T] : trains) {
    call.x[0] = x0;
    call.x[1] = T;
    const Ending expected = family_.closed ? returned() : fatalEnding(kFewEchoes);
    EXPECT_EQ(endingOf([&] { static_cast<void>(model_.value(call)); }), expected) << x0 << ' ' << T;
  }
  if (!family_.closed) {
    EXPECT_EXIT(static_cast<void>(model_.value(call)), testing::ExitedWithCode(1),
                "^ERROR: N is less than 2\\.\n$");
  }
}

TEST_P(Multiple, PulseRateIsTestedBeforeTheCodeAndTheCodeBeforeTheTrain) {
  Call call = points(1, 44)[0];
  call.x = {9.0, 0.001, 298, 1, 7};
  EXPECT_EQ(endingOf([&] { static_cast<void>(model_.value(call)); }), fatalEnding(kTooShort));
  call.x[0] = 100.0;
  EXPECT_EQ(endingOf([&] { static_cast<void>(model_.value(call)); }), fatalEnding(kUnknownState));
}

TEST_P(Multiple, ParametersThatAreNotFiniteDoNotHideBadAbscissae) {
  Call call = points(1, 45)[0];
  call.p[2] = kNaN;
  call.x[4] = 6;
  EXPECT_EQ(endingOf([&] { static_cast<void>(model_.value(call)); }), fatalEnding(kUnknownState));
  if (family_.closed) return;
  call.x[4] = 0;
  call.x[1] = 0.0;
  EXPECT_EQ(endingOf([&] { static_cast<void>(model_.value(call)); }), fatalEnding(kFewEchoes));
}

// ---- what is refused ----

TEST_P(Multiple, InputsThatAreNotFiniteAreRefusedWithoutAWord) {
  EXPECT_EQ(endingOf([&] {
              for (const Call& point : points(1, 51)) {
                for (const double bad : {kNaN, kInf, -kInf}) {
                  for (std::size_t k = 0; k < model_.size(); ++k) {
                    Call call = point;
                    call.p[k] = bad;
                    // A difference that the coherence does not have may be anything.
                    const double code = call.x[4];
                    const bool unused = k < differences_ &&
                                        ((code == 0 && k % 2 == 1) || (code == 1 && k % 2 == 0));
                    const double value = model_.evaluate(call).value;
                    if (std::isfinite(value) && !unused) {
                      std::cerr << describe(call) << " gives " << value << '\n';
                    }
                  }
                  Call call = point;
                  call.x[3] = bad;
                  if (std::isfinite(model_.evaluate(call).value)) std::cerr << "field " << bad;
                }
              }
            }),
            returned());
}

TEST(MultipleMatrix, RatesThatLeaveKcbOpenAreRefused) {
  const Model model("MQCPMG_Matrix3_k");
  const Numbers x = {250.01, 0.04, 298, 1.1, 4};
  const Numbers kba{300, 150, 200, -100, 40, 0, 30, 500, 20, 6};
  const Numbers kac{300, 150, 200, -100, 40, 500, 0, 500, 20, 6};
  const Numbers line{300, 150, 200, -100, 40, 500, 0, 0, 20, 6};  // A - B - C
  for (const Numbers& p : {kba, kac, line}) {
    EXPECT_TRUE(std::isnan(model.value({.x = x, .p = p})));
    EXPECT_TRUE(std::isnan(model.evaluateFresh({.x = x, .p = p}).value));
  }
}

TEST(MultipleMatrix, EmptySitesLeaveTheIntrinsicRate) {
  const Model model("MQCPMG_Matrix3_k");
  const Numbers p = {300, 150, 200, -100, 0, 0, 0, 0, 0, 6};
  for (int code = 0; code < kCodes; ++code) {
    EXPECT_EQ(model.value({.x = {250.01, 0.04, 298, 1.1, 1.0 * code}, .p = p}), 6.0);
  }
}

TEST(MultipleMatrix, SignalThatIsNotPositiveIsRefused) {
  // Both coherences of code 4 come back with the opposite sign.
  const Call call{.x = {100.001, 0.04, 298, 1, 4}, .p = {400, 256, 244, 0.48, 5}};
  ASSERT_LT(signal(fromMinor(call.x, call.p), kExperiments[4], 2, 100.001L), -1e-5L);
  EXPECT_TRUE(std::isnan(Model("MQCPMG_Matrix2_p").value(call)));
}

TEST(MultipleClosedForm, EqualRootsAreRefusedAndTheMatrixIsNot) {
  // kab = kba and |D| = kab + kba: w1 = w2 = 0, one eigenvector.
  const Numbers x = {250.01, 0.04, 298, 1, 0};
  const Numbers p = {500, 0, 250, 250, 6};
  EXPECT_TRUE(std::isnan(Model("MQCPMG_Richards_k").value({.x = x, .p = p})));
  EXPECT_TRUE(std::isnan(Model("MQCPMG_Richards_k").evaluate({.x = x, .p = p}).value));
  const Ending ending =
      endingOf([&] { static_cast<void>(Model("MQCPMG_Matrix2_k").evaluate({.x = x, .p = p})); });
  EXPECT_EQ(ending.status, Ending::kReturned) << ending.err;
}

TEST_P(Multiple, DifferenceOfZeroHasADerivativeInTheClosedFormsOnly) {
  for (const Call& point : points(2, 52)) {
    for (const std::size_t nucleus : {0U, 1U}) {
      Call call = point;
      call.p[nucleus] = 0.0;
      const Evaluation e = model_.evaluateFresh(call);
      EXPECT_EQ(std::isfinite(e.dydp[nucleus]), family_.closed);
      // Even in this difference, or without it.
      const bool even = call.x[4] != 2 && call.x[4] != 3;
      if (family_.closed && even) {
        EXPECT_NEAR(e.dydp[nucleus], 0.0, 1e-14) << describe(call);
      }
      call.masked = {nucleus};
      EXPECT_EQ(model_.evaluateFresh(call).dydp[nucleus], kUntouched);
    }
  }
}

TEST(MultipleMatrix, RateOfZeroHasADerivativeThatIsNotFinite) {
  const Call call{.x = {250.01, 0.04, 298, 1.1, 4},
                  .p = {300, 150, 200, -100, 0.05, 0.04, 500, 0, 300, 6}};
  const Evaluation e = Model("MQCPMG_Matrix3_p").evaluateFresh(call);
  EXPECT_TRUE(std::isfinite(e.value));
  for (std::size_t k = 0; k < 10; ++k) EXPECT_EQ(std::isfinite(e.dydp[k]), k != 7) << k;
}

Call anywhere(const Model& model, Dice& dice) {
  Call call;
  call.x = {dice.spread(100, 5000), dice.uniform(0.021, 0.08), 298, dice.uniform(0, 3),
            static_cast<double>(dice.number(kCodes))};
  for (std::size_t k = 0; k < model.size(); ++k) {
    const double low = model.lib().Get_Rules().Get_LowerBound(static_cast<unsigned>(k));
    const double high = model.lib().Get_Rules().Get_UpperBound(static_cast<unsigned>(k));
    const double at = dice.uniform(-0.15, 1.15);  // at an end for one in four
    call.p.push_back(low + (high - low) * std::clamp(at, 0.0, 1.0));
  }
  return call;
}

TEST_P(Multiple, NoLegalParametersEndTheRun) {
  const Ending ending = endingOf([&] {
    Dice dice(54);
    for (int i = 0; i < 2000; ++i) static_cast<void>(model_.evaluate(anywhere(model_, dice)));
  });
  EXPECT_EQ(ending.status, Ending::kReturned) << ending.err;
}

// ---- beyond the overflow of cosh ----

/// Derivative of the endless train's rate by central differences of order 6.
Real expectedDerivative(const Family& family, const Call& call, std::size_t k) {
  const double step = 1e-4 * std::max(std::fabs(call.p[k]), 1e-3);
  const auto difference = [&](int n) {
    Call ahead = call, behind = call;
    ahead.p[k] += n * step;
    behind.p[k] -= n * step;
    const Real width = Real{ahead.p[k]} - Real{behind.p[k]};
    return (expectedValue(family, ahead) - expectedValue(family, behind)) / width;
  };
  return (15 * difference(1) - 6 * difference(2) + difference(3)) / 10;
}

TEST(MultipleClosedForm, ValueAndDerivativesBeyondTheOverflowOfCosh) {
  // kex/x0, about Re(w1 + w2)/(2 x0): the square of Y overflows from 355 on, cosh from 710.48 on.
  // Between 700 and 710 the derivative of Y overflows before Y does.
  for (const double x0 : {35.0, 33.0, 25.0, 17.3, 17.0, 16.9, 16.87, 16.8, 16.0, 12.0, 10.0}) {
    for (int code = 0; code < kCodes; ++code) {
      const Call product{.x = {x0, 0.04, 298, 1, 1.0 * code}, .p = {900, 500, 12000, 0.05, 5}};
      const Call minor{.x = product.x, .p = {900, 500, 12000, 0.08, 5}};
      const Call rates{.x = product.x, .p = {900, 500, 1000, 11000, 5}};
      const Call* calls[] = {&product, &minor, &rates};
      for (std::size_t f = 0; f < 3; ++f) {
        const Family& family = kFamilies[f];
        const Evaluation e = Model(family.name).evaluateFresh(*calls[f]);
        EXPECT_TRUE(near(e.value, expectedValue(family, *calls[f]), 1e-10))
            << family.name << ", code " << code << ", x0 = " << x0;
        for (std::size_t k = 0; k < 4; ++k) {
          const double p = calls[f]->p[k];
          EXPECT_TRUE(near(e.dydp[k], expectedDerivative(family, *calls[f], k), 1e-9 / p, 1e-8))
              << family.name << ", code " << code << ", x0 = " << x0 << ", p" << k;
        }
      }
    }
  }
}

TEST(MultipleClosedForm, DerivativesAreThoseOfPropagation) {
  for (const Family& family : kFamilies) {
    if (!family.closed) continue;
    const Model model(family.name);
    Dice dice(55);
    for (int i = 0; i < 60; ++i) {
      const Call call = draw(family, dice, i % kCodes);
      const Evaluation e = model.evaluateFresh(call);
      for (std::size_t k = 0; k < 4; ++k) {
        EXPECT_TRUE(
            near(e.dydp[k], expectedDerivative(family, call, k), 1e-9 / std::fabs(call.p[k]), 1e-6))
            << family.name << ' ' << k << ": " << describe(call);
      }
    }
  }
}

// ---- what is kept from call to call ----

bool sameBits(double a, double b) {
  return std::bit_cast<std::uint64_t>(a) == std::bit_cast<std::uint64_t>(b);
}

testing::AssertionResult sameBits(const Evaluation& a, const Evaluation& b) {
  if (!sameBits(a.value, b.value)) {
    return testing::AssertionFailure() << "values " << a.value << " and " << b.value;
  }
  for (std::size_t k = 0; k < a.dydp.size(); ++k) {
    if (!sameBits(a.dydp[k], b.dydp[k])) {
      return testing::AssertionFailure()
             << "derivatives " << k << ": " << a.dydp[k] << " and " << b.dydp[k];
    }
  }
  return testing::AssertionSuccess();
}

/// Points that share some or all of what a decomposition depends on with the first one.
std::vector<Call> relatives(const Model& model, const Call& point) {
  std::vector<Call> calls;
  const auto add = [&](const std::function<void(Call&)>& change) {
    calls.push_back(point);
    change(calls.back());
  };
  for (int code = 0; code < kCodes; ++code) add([=](Call& c) { c.x[4] = code; });
  add([](Call& c) { c.x[4] += 0.5; });
  add([](Call& c) { c.x[0] *= 3; });
  for (const std::size_t k : {1U, 2U, 3U}) add([=](Call& c) { c.x[k] *= 1.25; });
  for (std::size_t k = 0; k < model.size(); ++k) add([=](Call& c) { c.p[k] *= 1.001; });
  // the parameters of a neighbour's shifted evaluation
  for (std::size_t k = 0; k < model.size(); ++k) {
    add([=](Call& c) { c.p[k] += 1e-9 * std::fabs(c.p[k]); });
  }
  return calls;
}

TEST_P(Multiple, ReuseDoesNotChangeABit) {
  const std::vector<Call> calls = relatives(model_, points(1, 61)[4]);
  std::vector<Evaluation> fresh;
  for (const Call& call : calls) fresh.push_back(model_.evaluateFresh(call));
  std::mt19937 engine(62);
  for (int round = 0; round < 400; ++round) {
    const std::size_t i = engine() % calls.size();
    if (engine() % 4 == 0) {
      EXPECT_TRUE(sameBits(model_.value(calls[i]), fresh[i].value)) << i;
    } else if (engine() % 3 == 0) {  // only some slots are filled
      Call masked = calls[i];
      for (std::size_t k = 0; k < model_.size(); ++k) {
        if (engine() % 2 == 0) masked.masked.push_back(k);
      }
      Evaluation expected = fresh[i];
      for (const std::size_t k : masked.masked) expected.dydp[k] = kUntouched;
      EXPECT_TRUE(sameBits(model_.evaluate(masked), expected)) << i;
    } else {
      EXPECT_TRUE(sameBits(model_.evaluate(calls[i]), fresh[i])) << i;
    }
  }
}

TEST_P(Multiple, ReuseAcrossARefusedPointDoesNotChangeABit) {
  for (const Call& good : points(1, 63)) {
    const Evaluation fresh = model_.evaluateFresh(good);
    Call bad = good;
    bad.p[2] = kNaN;
    static_cast<void>(model_.evaluate(bad));
    static_cast<void>(model_.evaluate(bad));
    EXPECT_TRUE(sameBits(model_.evaluate(good), fresh));
  }
}

TEST_P(Multiple, ParametersAreRestoredToTheBit) {
  for (const Call& call : points(2, 64)) {
    Data d;
    d.x = call.x;
    for (int k = 0; k < static_cast<int>(call.p.size()); ++k) d.parmap.push_back(k);
    Numbers p = call.p;
    Numbers dydp(p.size());
    static_cast<void>(model_.lib().Func()(d, p.data(), dydp, std::vector<bool>(p.size())));
    EXPECT_EQ(std::memcmp(p.data(), call.p.data(), p.size() * sizeof(double)), 0);
  }
}

TEST_P(Multiple, MaskedSlotsStayAndOthersAreTheSame) {
  for (Call call : points(1, 65)) {
    const Evaluation all = model_.evaluateFresh(call);
    for (std::size_t k = 0; k < model_.size(); ++k) {
      call.masked = {k};
      Evaluation expected = all;
      expected.dydp[k] = kUntouched;
      EXPECT_TRUE(sameBits(model_.evaluateFresh(call), expected)) << model_.parmName(k);
    }
  }
}

// ---- fits ----

/// Seeded deviates of mean 0 and standard deviation 1, the same with every library.
class Noise {
 public:
  explicit Noise(unsigned seed) : engine_(seed) {}
  double next() {
    const double u = (static_cast<double>(engine_()) + 0.5) / 4294967296.0;
    const double v = static_cast<double>(engine_()) / 4294967296.0;
    return std::sqrt(-2.0 * std::log(u)) * std::cos(6.283185307179586 * v);
  }

 private:
  std::mt19937 engine_;
};

std::string par(const std::string& name, double start) {
  return "PAR " + name + ' ' + problem::text(start) + '\n';
}

struct Truth {
  std::string name;
  double value;
};

/// An input text that grows set by set, with data from propagation.
class Synthetic {
 public:
  Synthetic(const std::string& model, double sigma, unsigned seed)
      : family_(*std::find_if(std::begin(kFamilies), std::end(kFamilies),
                              [&](const Family& family) { return model == family.name; })),
        sigma_(sigma),
        noise_(seed),
        input_("FUNCTION " + model + "\nMETHOD INIT\nMETHOD ONE\n") {}

  void add(const std::string& lines) { input_ += lines; }

  /// Ten points of a code; labels: temperature 1, field 1 or 2, code + 1.
  void addCurve(int code, int field, const Numbers& p) {
    const std::string labels = "1" + std::to_string(field) + std::to_string(code + 1);
    for (const int pulses : {2, 4, 6, 8, 12, 16, 24, 32, 40, 60}) {
      const Call call{.x = {pulses / 0.04 + 0.001, 0.04, 298, field == 1 ? 1.0 : 1.4, 1.0 * code},
                      .p = p};
      input_ += "DATA";
      for (const double x : call.x) input_ += ' ' + problem::text(x);
      const double deviate = noise_.next();
      chi_at_truth_ += deviate * deviate;
      const double y = static_cast<double>(expectedValue(family_, call)) + sigma_ * deviate;
      input_ += ' ' + labels + ' ' + problem::text(y) + ' ' + problem::text(sigma_) + '\n';
    }
  }

  /// Fits; every value within four of its standard errors of the truth, and these below `fraction`
  /// of it; chi-square below that of the truth.
  void expectRecovered(const std::vector<Truth>& truth, double fraction) const {
    problem::Problem run(input_);
    const problem::Captured console(std::cout);
    run.fit().run_FIT(false);
    for (const Truth& t : truth) {
      const double error = run.error(t.name);
      EXPECT_NEAR(run.value(t.name), t.value, 4.0 * error) << t.name;
      EXPECT_GT(error, 0.0) << t.name;
      EXPECT_LT(error, fraction * std::fabs(t.value)) << t.name;
    }
    EXPECT_LT(run.fit().best().total(), chi_at_truth_);
    EXPECT_GT(run.fit().best().total(), 0.0);
  }

 private:
  Family family_;
  double sigma_;
  Noise noise_;
  std::string input_;
  double chi_at_truth_ = 0.0;
};

/// One set with curves of codes 0, 1 and 4, 15N, 1H and multiple quantum.
void fitTwoSitesLocally(const std::string& model, const char* exchange, double truth,
                        double start) {
  Synthetic synthetic(model, 0.05, 71);
  synthetic.add("SET one\n" + par("dwN", 350) + par("dwH", 200) + par("kex", 700) +
                par(exchange, start));
  const int codes[] = {0, 1, 4};
  std::vector<Truth> expected = {{"one::dwN", 400},
                                 {"one::dwH", 230},
                                 {"one::kex", 800},
                                 {std::string("one::") + exchange, truth}};
  for (const int code : codes) {
    const std::string name = "R20_1_1_" + std::to_string(code + 1);
    synthetic.add(par(name, 10));
    expected.push_back({"one::" + name, 8.0 + code});
  }
  for (const int code : codes) synthetic.addCurve(code, 1, {400, 230, 800, truth, 8.0 + code});
  synthetic.expectRecovered(expected, 0.2);
}

/// One set for each coherence: differences and exchange are shared, R20 is not.
void fitTwoSitesGlobally(const std::string& model, const char* exchange, double truth,
                         double start) {
  Synthetic synthetic(model, 0.05, 72);
  synthetic.add(
      "GPAR dwN -12000 12000 1 370\nGPAR dwH -12000 12000 1 250\nGPAR kex 1 12000 1 720\n");
  synthetic.add("GPAR " + std::string(exchange) + " 0.005 0.249 1 " + problem::text(start) + '\n');
  std::vector<Truth> expected = {{"GLOBAL::dwN", 400},
                                 {"GLOBAL::dwH", 230},
                                 {"GLOBAL::kex", 800},
                                 {std::string("GLOBAL::") + exchange, truth}};
  for (const int code : {0, 1, 2, 4, 5}) {
    const std::string set = "code" + std::to_string(code);
    const std::string R20 = "R20_1_1_" + std::to_string(code + 1);
    synthetic.add("SET " + set + "\nPAR dwN dwN\nPAR dwH dwH\nPAR kex kex\nPAR " + exchange + ' ' +
                  exchange + '\n' + par(R20, 9));
    synthetic.addCurve(code, 1, {400, 230, 800, truth, 6.0 + code});
    expected.push_back({set + "::" + R20, 6.0 + code});
  }
  synthetic.expectRecovered(expected, 0.2);
}

TEST(MultipleFit, Matrix2RecoversOneSet) {
  fitTwoSitesLocally("MQCPMG_Matrix2_p", "pb", 0.08, 0.1);
}
TEST(MultipleFit, RichardsRecoversOneSet) {
  fitTwoSitesLocally("MQCPMG_Richards", "papb", 0.07, 0.09);
}
TEST(MultipleFit, Matrix2RecoversWhatTwoSetsShare) {
  fitTwoSitesGlobally("MQCPMG_Matrix2_p", "pb", 0.08, 0.1);
}
TEST(MultipleFit, RichardsRecoversWhatTwoSetsShare) {
  fitTwoSitesGlobally("MQCPMG_Richards", "papb", 0.07, 0.09);
}

const Numbers kThreeSites = {500, 150, -350, 300, 0.05, 0.03, 500, 0, 1500};

/// Starts 4 % off, as lines of one set or, with ranges, as global ones; what is 0 is fixed.
std::string threeSiteStarts(bool global) {
  const char* const names[] = {"dwabN", "dwabH", "dwacN", "dwacH", "pb",
                               "pc",    "kex1",  "kex2",  "kex3"};
  std::string lines;
  for (std::size_t k = 0; k < 9; ++k) {
    const std::string name = names[k];
    const double truth = kThreeSites[k], start = truth * (k % 2 == 0 ? 1.04 : 0.96);
    if (truth == 0) {
      lines += (global ? "GFIXED " : "FIXED ") + name + " 0\n";
    } else if (global) {
      const std::string range = k < 4   ? " -12000 12000 1 "
                                : k < 6 ? " 0.005 0.49 1 "
                                        : " 1 9000 1 ";
      lines += "GPAR " + name + range + problem::text(start) + '\n';
    } else {
      lines += par(name, start);
    }
  }
  return lines;
}

std::vector<Truth> threeSiteTruth(const std::string& scope) {
  return {{scope + "dwabN", 500}, {scope + "dwabH", 150}, {scope + "dwacN", -350},
          {scope + "dwacH", 300}, {scope + "pb", 0.05},   {scope + "pc", 0.03},
          {scope + "kex1", 500},  {scope + "kex3", 1500}};
}

Numbers threeSitesWith(double R20) {
  Numbers p = kThreeSites;
  p.push_back(R20);
  return p;
}

TEST(MultipleFit, Matrix3RecoversOneSet) {
  Synthetic synthetic("MQCPMG_Matrix3_p", 0.02, 73);
  synthetic.add("SET one\n" + threeSiteStarts(false));
  std::vector<Truth> truth = threeSiteTruth("one::");
  for (const int code : {0, 1, 2, 3}) {
    const std::string name = "R20_1_1_" + std::to_string(code + 1);
    synthetic.add(par(name, 9));
    truth.push_back({"one::" + name, 8.0 + code});
  }
  for (const int code : {0, 1, 2, 3}) synthetic.addCurve(code, 1, threeSitesWith(8.0 + code));
  synthetic.expectRecovered(truth, 0.25);
}

TEST(MultipleFit, Matrix3RecoversWhatSetsOfOneCoherenceShare) {
  Synthetic synthetic("MQCPMG_Matrix3_p", 0.02, 74);
  synthetic.add(threeSiteStarts(true));
  std::vector<Truth> truth = threeSiteTruth("GLOBAL::");
  for (const int code : {0, 1, 2, 3}) {
    const std::string name = "R20_1_1_" + std::to_string(code + 1);
    const std::string set = "code" + std::to_string(code);
    synthetic.add("SET " + set + '\n');
    for (const char* parm :
         {"dwabN", "dwabH", "dwacN", "dwacH", "pb", "pc", "kex1", "kex2", "kex3"}) {
      synthetic.add(std::string("PAR ") + parm + ' ' + parm + '\n');
    }
    synthetic.add(par(name, 9));
    truth.push_back({set + "::" + name, 8.0 + code});
    synthetic.addCurve(code, 1, threeSitesWith(8.0 + code));
  }
  synthetic.expectRecovered(truth, 0.25);
}

}  // namespace
