// Derived quantities: their values, and their statistics over the passes of an error analysis.
// SPDX-License-Identifier: GPL-3.0-or-later
#include "Problem.h"

#include <cmath>
#include <cstddef>
#include <ostream>
#include <string>
#include <vector>

namespace {

using problem::Captured;
using problem::kInf;
using problem::kNaN;
using problem::Problem;

constexpr const char* kPopulations[] = {"PB", "PB_RDC", "PB_MQ"};

/// Where a quantity finds the population product among the parameters of the model.
std::size_t slotOf(const std::string& type) { return type == "PB" ? 2 : 3; }

int calls = 0;

/// 1000/x0 + 10 x1 + p0, so that the height between x0 = 50 and 100000 is 19.99.
double hyperbola(const Data& d, double* p, std::vector<double>& dydp,
                 const std::vector<bool>& /*skip*/) {
  ++calls;
  if (!dydp.empty()) dydp[d.slot(0)] = 1.0;
  return 1000.0 / d.x[0] + 10.0 * d.x[1] + p[0];
}

/// One quantity and what it is evaluated with.
struct Quantity {
  Calc calc;
  std::vector<double> dydp = std::vector<double>(6, 7.0);
  std::vector<bool> skip = std::vector<bool>(6, false);

  explicit Quantity(const std::string& type, const std::vector<int>& map = {0, 1, 2, 3}) {
    calc.Add(type, "label", {1.0, 298.0}, {1, 2});
    calc.getData(0).parmap = map;
    calc.prep(2);
  }
  double at(const std::vector<double>& par, const std::vector<std::vector<int>>& labels = {}) {
    return calc.run(0, par, hyperbola, labels, dydp, skip);
  }
};

// ---- populations ----

struct PopulationRow {
  const char* name;
  double papb;
  double pb;
};

void PrintTo(const PopulationRow& row, std::ostream* out) { *out << row.name; }

class MinorPopulation : public testing::TestWithParam<PopulationRow> {};

TEST_P(MinorPopulation, IsTheSmallerRoot) {
  for (const std::string type : kPopulations) {
    std::vector<double> par = {-9, -9, -9, -9};
    par[slotOf(type)] = GetParam().papb;
    if (std::isinf(GetParam().pb)) {
      EXPECT_EQ(Quantity(type).at(par), GetParam().pb) << type;
    } else {
      EXPECT_NEAR(Quantity(type).at(par), GetParam().pb, 1e-15) << type;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Values, MinorPopulation,
                         testing::Values(PopulationRow{"none", 0.0, 0.0},
                                         PopulationRow{"equal", 0.25, 0.5},
                                         PopulationRow{"tenth", 0.09, 0.1},
                                         PopulationRow{"negative", -0.75, -0.5},
                                         PopulationRow{"beyond_equal", 0.3, kInf},
                                         PopulationRow{"minus_infinite", -kInf, kInf},
                                         PopulationRow{"not_a_number", kNaN, kInf}),
                         [](const auto& row) { return std::string(row.param.name); });

TEST(DerivedPopulation, IsReadThroughTheParameterMap) {
  const std::vector<double> par = {0.21, 0.16, 0.09, 0.0};
  EXPECT_NEAR(Quantity("PB", {3, 3, 1, 0}).at(par), 0.2, 1e-15);
  EXPECT_NEAR(Quantity("PB_MQ", {3, 3, 1, 0}).at(par), 0.3, 1e-15);
}

TEST(DerivedPopulation, IsInfiniteWhereTheModelLacksTheParameter) {
  EXPECT_EQ(Quantity("PB", {0, 1}).at({0.09, 0.09}), kInf);
  EXPECT_NEAR(Quantity("PB", {0, 1, 2}).at({0.0, 0.0, 0.09}), 0.1, 1e-15);
  EXPECT_EQ(Quantity("PB_RDC", {0, 1, 2}).at({0.09, 0.09, 0.09}), kInf);
  EXPECT_EQ(Quantity("PB_MQ", {0, 1, 2}).at({0.09, 0.09, 0.09}), kInf);
}

TEST(DerivedPopulation, NeedsNoPointOfItsLabels) {
  calls = 0;
  EXPECT_NEAR(Quantity("PB").at({0, 0, 0.09, 0}, {}), 0.1, 1e-15);
  EXPECT_EQ(calls, 0);
}

// ---- exchange contribution ----

TEST(Rex, IsTheHeightBetweenASlowAndAVeryFastPulseRate) {
  Quantity rex("REX");
  EXPECT_NEAR(rex.at({5, 0, 0, 0}, {{1, 2}}), 20.0 - 0.01, 1e-11);
}

TEST(Rex, LeavesTheFastRateInItsPointAndTheOtherColumnsAlone) {
  Quantity rex("REX");
  rex.at({5, 0, 0, 0}, {{1, 2}});
  EXPECT_EQ(rex.calc.getData(0).x, (std::vector<double>{100000.0, 298.0}));
}

TEST(Rex, IsZeroWithoutAPointOfItsLabelsAndAsksNoModel) {
  calls = 0;
  Quantity rex("REX");
  for (const std::vector<std::vector<int>>& labels :
       std::vector<std::vector<std::vector<int>>>{{}, {{1, 1}, {2, 1}}, {{1}}, {{1, 2, 0}}}) {
    EXPECT_EQ(rex.at({5, 0, 0, 0}, labels), 0.0);
  }
  EXPECT_EQ(calls, 0);
  EXPECT_EQ(rex.calc.getData(0).x[0], 1.0);
  EXPECT_NE(rex.at({5, 0, 0, 0}, {{2, 1}, {1, 2}}), 0.0) << "any entry of the list will do";
}

TEST(Rex, LetsTheModelWriteDerivatives) {
  Quantity rex("REX", {4, 1, 2, 3});
  rex.at({0, 0, 0, 0, 5, 0}, {{1, 2}});
  EXPECT_EQ(rex.dydp, (std::vector<double>{7, 7, 7, 7, 1, 7}));
}

TEST(CalcIndex, IsEqualInLengthAndEveryLabel) {
  EXPECT_TRUE(Calc::checkIndex({1, 2}, {{3, 4}, {1, 2}}));
  EXPECT_TRUE(Calc::checkIndex({}, {{}}));
  EXPECT_FALSE(Calc::checkIndex({1, 2}, {}));
  EXPECT_FALSE(Calc::checkIndex({1, 2}, {{1}, {2}, {2, 1}, {1, 2, 3}}));
}

// ---- statistics ----

TEST(CalcStatistics, AreZeroWithoutValues) {
  const Quantity q("PB");
  EXPECT_EQ(q.calc.calcMean(0, 0), 0.0);
  EXPECT_EQ(q.calc.calcStdev(0, 0), 0.0);
  EXPECT_EQ(q.calc.calcJackStdev(0, 0), 0.0);
}

TEST(CalcStatistics, OneValueHasAMeanAndNoDeviation) {
  Quantity q("PB");
  q.calc.addVal(0, 0, 5.0);
  EXPECT_EQ(q.calc.calcMean(0, 0), 5.0);
  EXPECT_EQ(q.calc.calcStdev(0, 0), 0.0);
  q.calc.addJack(1, 0, 5.0);
  EXPECT_EQ(q.calc.calcMean(1, 0), 5.0);
  EXPECT_EQ(q.calc.calcJackStdev(1, 0), 0.0);
}

TEST(CalcStatistics, DeviationOfSimulationsIsThatOfASample) {
  Quantity q("PB");
  for (const double value : {1.0, 2.0, 4.0, 5.0}) q.calc.addVal(0, 0, value);
  EXPECT_EQ(q.calc.calcMean(0, 0), 3.0);
  EXPECT_DOUBLE_EQ(q.calc.calcStdev(0, 0), std::sqrt(10.0 / 3.0));  // (46 - 12^2/4)/3
}

TEST(CalcStatistics, DeviationOfEqualValuesIsANumber) {
  // As of PB where papb is fixed: the sums differ by rounding, to either side.
  for (const int values : {2, 3, 5, 12, 100, 500}) {
    Quantity q("PB");
    for (int i = 0; i < values; ++i) q.calc.addVal(0, 0, 0.1);
    EXPECT_NEAR(q.calc.calcStdev(0, 0), 0.0, 1e-7) << values << " values";
  }
}

TEST(CalcStatistics, JackknifeDeviationIsTakenFromTheStoredResult) {
  Quantity q("PB");
  q.calc.storeResult(0, 0, 2.0);
  for (const double value : {1.0, 2.0, 4.0, 5.0}) q.calc.addJack(0, 0, value);
  EXPECT_EQ(q.calc.calcMean(0, 0), 3.0);
  EXPECT_DOUBLE_EQ(q.calc.calcJackStdev(0, 0), std::sqrt(3.0 * (1 + 0 + 4 + 9) / 4.0));
}

TEST(CalcStatistics, EverySetAndQuantityHasItsOwn) {
  Calc calc;
  calc.Add("PB", "a", {0}, {0});
  calc.Add("PB", "b", {0}, {0});
  calc.prep(2);
  calc.addVal(0, 0, 1.0);
  calc.addVal(0, 1, 2.0);
  calc.addVal(1, 0, 3.0);
  calc.addVal(1, 1, 4.0);
  EXPECT_EQ(calc.calcMean(0, 0), 1.0);
  EXPECT_EQ(calc.calcMean(0, 1), 2.0);
  EXPECT_EQ(calc.calcMean(1, 0), 3.0);
  EXPECT_EQ(calc.calcMean(1, 1), 4.0);
}

TEST(CalcStatistics, ZeroForgetsValuesAndStoredResults) {
  Quantity q("PB");
  q.calc.storeResult(1, 0, 100.0);
  q.calc.addJack(1, 0, 7.0);
  q.calc.zero();
  EXPECT_EQ(q.calc.calcMean(1, 0), 0.0);
  q.calc.addJack(1, 0, 3.0);
  q.calc.addJack(1, 0, 4.0);
  EXPECT_EQ(q.calc.calcMean(1, 0), 3.5);
  EXPECT_DOUBLE_EQ(q.calc.calcJackStdev(1, 0), std::sqrt((9.0 + 16.0) / 2.0));
}

// ---- in a fit ----

constexpr const char* kRichards =
    "FUNCTION CPMG_Richards\nCALC REX high 7 298 2 12\nCALC PB pb 0 0 0 11\n"
    "SET one\nPAR dw 1 900 2 500\nPAR kex 1 9000 2 1000\nPAR papb 0.01 0.2 2 0.09\n"
    "PAR R20 1 9 2 5\n"
    "DATA 100 298 1 11 20 1\nDATA 400 298 1 11 12 1\nDATA 800 298 1 11 8 1\n"
    "DATA 100 298 2 12 40 1\nDATA 900 298 2 12 22 1\n"
    "SET two\nFIXED dw 400\nFIXED kex 2000\nFIXED papb 0.16\nFIXED R20_1_1 5\n"
    "DATA 100 298 1 11 20 1\n";

/// A fit of two sets, the second of which is all fixed, quantities untried.
struct TwoSets {
  Captured console{std::cerr};
  Problem problem{kRichards};
  ParSet at = problem.initial();

  double calc(int set, int i) { return problem.fit().run_CALC(set, i, at); }
};

TEST(RunCalc, MapsTheQuantityOntoEachSet) {
  TwoSets sets;
  EXPECT_NEAR(sets.calc(0, 1), 0.1, 1e-15);
  EXPECT_NEAR(sets.calc(1, 1), 0.2, 1e-15);
  EXPECT_NEAR(sets.calc(0, 1), 0.1, 1e-15);
}

TEST(RunCalc, RexIsZeroForASetWithoutThePoints) {
  TwoSets sets;
  EXPECT_GT(sets.calc(0, 0), 1.0);
  EXPECT_EQ(sets.calc(1, 0), 0.0);
}

TEST(RunCalc, ParameterOfAnUndeclaredLabelIsTheFirstOfAllUntilASetHasOne) {
  Captured console(std::cerr);
  const std::string flat = "FIXED pdw 1000\nFIXED kex 1000\nDATA 100000 298 1e-9 11 1 1\n";
  Problem problem("FUNCTION CPMG_Meiboom\nCALC PB pb 0 0 1 12\nSET one\nFIXED R20_1_1 0.21\n" +
                  flat + "SET two\nFIXED R20_1_1 0.25\nFIXED R20_1_2 0.16\n" + flat);
  const ParSet at = problem.initial();
  EXPECT_NEAR(problem.fit().run_CALC(0, 0, at), 0.3, 1e-15);
  EXPECT_NEAR(problem.fit().run_CALC(1, 0, at), 0.2, 1e-15);
  EXPECT_NEAR(problem.fit().run_CALC(0, 0, at), 0.2, 1e-15) << "the map stays as the set left it";
}

TEST(RunCalc, LeavesTheCachesOfTheModelAsAFitWantsThem) {
  TwoSets sets;
  Fit& fit = sets.problem.fit();
  const ParDef& pardef = sets.problem.pardef;
  const FitMat none;
  const auto equations = [&] {
    LevMar lm;
    lm.resize(pardef.PAR_size());
    fit.lMarq(sets.at, pardef.points(0), pardef.parms(0), none, lm);
    return lm;
  };
  const LevMar before = equations();
  sets.calc(0, 0);  // the same field and parameters as the last points
  const LevMar after = equations();
  EXPECT_EQ(before.alpha, after.alpha);
  EXPECT_EQ(before.beta, after.beta);
  ParSet other = sets.at;
  other.par[0] *= 1.5;
  sets.problem.fit().run_CALC(0, 0, other);
  EXPECT_EQ(before.alpha, equations().alpha);
}

TEST(RunCalc, RexLeavesNoStaleDerivativesForALaterHit) {
  TwoSets sets;
  Fit& fit = sets.problem.fit();
  const int last = 4;  // of label 12, whose field the quantity shares
  std::vector<double> scratch(4);
  const auto derivatives = [&](const ParSet& at) {
    std::vector<double> dydp(static_cast<std::size_t>(sets.problem.pardef.PAR_size()));
    fit.calc_y_dy(at.par, last, dydp, scratch);
    return dydp;
  };
  ParSet other = sets.at;
  other.par[1] *= 2.0;
  const std::vector<double> expected = derivatives(sets.at);
  ASSERT_NE(derivatives(other), expected);
  fit.run_CALC(0, 0, sets.at);  // a miss, whose entry the next call hits
  EXPECT_EQ(derivatives(sets.at), expected);
}

TEST(RunCalc, IsTriedAtTheInitialValuesBeforeTheMethods) {
  Captured console(std::cerr);
  Problem problem(
      "METHOD INIT\nFUNCTION CPMG_Richards\nCALC REX rex 0 298 1 11\nSET one\n"
      "PAR dw 500\nPAR kex 1000\nPAR papb 0.09\nPAR R20 5\n"
      "DATA 100 298 1 11 20 1\nDATA 200 298 1 11 20 1\nDATA 300 298 1 11 20 1\n"
      "DATA 400 298 1 11 20 1\nDATA 500 298 1 11 20 1\n");
  EXPECT_EQ(problem.calc.getData(0).x[0], 0.0);
  problem.method.Clear();
  problem.fit().run_FIT(false);
  EXPECT_EQ(problem.calc.getData(0).x[0], 100000.0) << "no method ran, the quantity was tried";
}

}  // namespace
