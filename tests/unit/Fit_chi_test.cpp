// Chi-square of a value set, and the vetting of values before a fit.
// SPDX-License-Identifier: GPL-3.0-or-later
#include "Problem.h"

#include <cstddef>
#include <string>
#include <vector>

namespace {

using problem::data;
using problem::kInf;
using problem::kNaN;
using problem::Options;
using problem::Problem;

/// y = p, refused where x is below p.
double upTo(const Data& d, double* p, std::vector<double>& dydp,
            const std::vector<bool>& /*skip*/) {
  const bool refused = d.x[0] < p[0];
  if (refused && d.x[0] < 0.0) return kNaN;
  if (refused) return kInf;
  if (!dydp.empty()) dydp[d.slot(0)] = 1.0;
  return p[0];
}

Options withUpTo() {
  Options options;
  options.models = {{upTo, "UpTo", {{"p", -99, 99, ""}}}};
  return options;
}

// ---- chi-square ----

TEST(ChiSquare, IsTheSumOfSquaredWeightedResiduals) {
  Problem problem("FUNCTION Linear\nSET s\nPAR a 1\nPAR b 2\n" + data(0, 3, 0.5) + data(1, 7, 2) +
                  data(2, 5, 4));
  ParSet at = problem.initial();
  // Residuals 2, 4, 0 over errors 1/2, 2, 4.
  EXPECT_EQ(problem.fit().calc_chi(at, 0), 16.0 + 4.0);
  EXPECT_EQ(at.chi(0), 20.0);
}

TEST(ChiSquare, TotalIsTheSumOverTheSets) {
  Problem problem("FUNCTION Constant\nSET s\nPAR c 1\n" + data(0, 2) + data(1, 3) +
                  "SET t\nPAR c 10\n" + data(0, 10) + data(1, 13));
  ParSet at = problem.initial();
  EXPECT_EQ(problem.fit().calc_chi(at), 14.0);
  EXPECT_EQ(at.chi(0), 5.0);
  EXPECT_EQ(at.chi(1), 9.0);
  EXPECT_EQ(at.total(), 14.0);
}

TEST(ChiSquare, OfOneSetLeavesTheOthersAlone) {
  Problem problem("FUNCTION Constant\nSET s\nPAR c 1\n" + data(0, 2) + data(1, 3) +
                  "SET t\nPAR c 10\n" + data(0, 10) + data(1, 13));
  ParSet at = problem.initial();
  at.setChi(0, 77.0);
  EXPECT_EQ(problem.fit().calc_chi(at, 1), 9.0);
  EXPECT_EQ(at.chi(0), 77.0);
}

TEST(ChiSquare, UsesTheParametersThatServeEachPoint) {
  Problem problem(
      "FUNCTION CPMG_const\nSET s\nPAR R20_1_1 3\nPAR R20_1_2 5\n"
      "DATA 100 298 1 11 4 1\nDATA 100 298 1 12 7 1\nDATA 100 298 1 12 5 1\n");
  ParSet at = problem.initial();
  EXPECT_EQ(problem.fit().calc_chi(at), 1.0 + 4.0);
}

TEST(ChiSquare, WithoutErrorColumnIsThePlainSumOfSquares) {
  // Three tokens behind the keyword: the error column is switched off.
  problem::Captured console(std::cerr);
  Problem problem(
      "FUNCTION Linear\nSET s\nPAR a 1\nPAR b 0\nDATA 0 3 100\nDATA 1 5 100\n"
      "DATA 2 1 100\n");
  ParSet at = problem.initial();
  EXPECT_EQ(problem.fit().calc_chi(at), 4.0 + 16.0);
  for (int point = 0; point < 3; ++point) EXPECT_EQ(problem.pardef.DATA(point).w, 1.0);
}

TEST(ChiSquare, IsInfiniteForAnyValueThatIsNotFinite) {
  for (const double x : {-1.0, 1.0}) {  // NaN and infinity
    Problem problem("FUNCTION UpTo\nSET s\nPAR p 5\n" + data(9, 6) + data(x, 6), withUpTo());
    ParSet at = problem.initial();
    EXPECT_EQ(problem.fit().calc_chi(at, 0), kInf);
    EXPECT_EQ(problem.fit().calc_chi(at), kInf);
    EXPECT_EQ(at.total(), kInf);
    EXPECT_FALSE(at.isFinite());
  }
}

TEST(ChiSquare, OfARefusedSetKeepsItsSumUpToTheRefusedPoint) {
  Problem problem("FUNCTION UpTo\nSET s\nPAR p 5\n" + data(9, 6) + data(1, 6) + data(9, 55),
                  withUpTo());
  ParSet at = problem.initial();
  EXPECT_EQ(problem.fit().calc_chi(at, 0), kInf);
  EXPECT_EQ(at.chi(0), 1.0);
}

TEST(ChiSquare, SetsAfterARefusedOneAreStillEvaluated) {
  Problem problem("FUNCTION UpTo\nSET s\nPAR p 5\n" + data(1, 6) + data(9, 6) + "SET t\nPAR p 2\n" +
                      data(9, 4) + data(9, 2),
                  withUpTo());
  ParSet at = problem.initial();
  EXPECT_EQ(problem.fit().calc_chi(at), kInf);
  EXPECT_EQ(at.chi(0), 0.0);
  EXPECT_EQ(at.chi(1), 4.0);
}

TEST(ChiSquare, IsFiniteAgainOnceTheSetIsNoLongerRefused) {
  Problem problem("FUNCTION UpTo\nSET s\nPAR p 5\n" + data(1, 6) + data(9, 6), withUpTo());
  ParSet at = problem.initial();
  problem.fit().calc_chi(at);
  at.par[0] = 1.0;
  EXPECT_EQ(problem.fit().calc_chi(at), 50.0);
  EXPECT_EQ(at.total(), 50.0);
  EXPECT_TRUE(at.isFinite());
}

TEST(ChiSquare, NumbersOfTheInputThatAreNotFiniteMakeTheTotalNotFinite) {
  for (const char* point : {"DATA 1 nan 1 .\n", "DATA 1 inf 1 .\n", "DATA nan 2 1 .\n",
                            "DATA inf 2 1 .\n", "DATA 1 2 nan .\n",
                            "DATA 1 2 0 .\n",     // residual 1, weight infinite
                            "DATA 1 3 0 .\n"}) {  // residual 0, weight infinite: NaN
    Problem problem(std::string("FUNCTION Linear\nSET s\nPAR a 1\nPAR b 2\n") + point + data(0, 1) +
                    data(3, 1));
    ParSet at = problem.initial();
    problem.fit().calc_chi(at);
    EXPECT_FALSE(at.isFinite()) << point;
  }
}

TEST(ChiSquare, TakesNoMemory) {
  std::string input =
      "FUNCTION CPMG_Richards\nSET s\nPAR dw 900\nPAR kex 500\nPAR papb 0.05\n"
      "PAR R20 8\n";
  for (int i = 1; i <= 100; ++i) {
    input += "DATA " + std::to_string(50 * i) + " 298 1 11 10 1\n";
  }
  Problem problem(input);
  ParSet at = problem.initial();
  problem.fit().calc_chi(at);
  ASSERT_TRUE(problem::heapIsWatched());
  const std::size_t before = problem::heap.blocks;
  problem.fit().calc_chi(at);
  EXPECT_EQ(problem::heap.blocks, before);
}

TEST(ChiSquare, ModelValueGoesThroughTheMapOfThePoint) {
  Problem problem("FUNCTION Linear\nSET s\nPAR b 7\nPAR a 3\n" + data(2, 0) + data(0, 0) +
                  data(1, 0));
  std::vector<double> dydp(2, -1.0);
  std::vector<double> scratch(2, 0.0);
  EXPECT_EQ(problem.fit().calc_y_dy({7, 3}, 0, dydp, scratch), 3.0 + 7.0 * 2.0);
  // Gathered in the order of the model's declaration, derivatives at vector positions.
  EXPECT_EQ(scratch, (std::vector<double>{3, 7}));
  EXPECT_EQ(dydp, (std::vector<double>{2, 1}));
}

TEST(ChiSquare, EmptyDerivativeVectorAsksForTheValueAlone) {
  Problem problem("FUNCTION Constant\nSET s\nPAR c 3\n" + data(2, 0) + data(0, 0));
  std::vector<double> none;
  std::vector<double> scratch(1, 0.0);
  EXPECT_EQ(problem.fit().calc_y_dy({3}, 0, none, scratch), 3.0);
  EXPECT_TRUE(none.empty());
}

// ---- derivatives that nobody looks at ----

int asked_for_slopes = 0;

double constantThatCounts(const Data& d, double* p, std::vector<double>& dydp,
                          const std::vector<bool>& /*skip*/) {
  if (!dydp.empty()) {
    ++asked_for_slopes;
    dydp[d.slot(0)] = 1.0;
  }
  return p[0];
}

TEST(ChiSquare, AsksNoDerivativesOfAModelThatKeepsNoPartOfThem) {
  problem::Options options;
  options.models = {{constantThatCounts, "Counts", {{"c", -10, 10, ""}}}};
  Problem problem("FUNCTION Counts\nSET s\nPAR c 3\n" + data(0, 1) + data(1, 2), options);
  ParSet at = problem.initial();
  asked_for_slopes = 0;
  EXPECT_EQ(problem.fit().calc_chi(at), 4.0 + 1.0);
  EXPECT_EQ(asked_for_slopes, 0);
}

TEST(ChiSquare, LeavesTheKeptSlopesOfAModelAsTheMinimiserWantsThem) {
  // One field, so that only the first point after a change of dw misses the model's cache.
  Problem problem(
      "FUNCTION CPMG_Richards\nSET s\nPAR dw 900\nPAR kex 500\nPAR papb 0.05\nPAR R20 8\n"
      "DATA 50 298 1 11 20 1\nDATA 200 298 1 11 18 1\nDATA 400 298 1 11 15 1\n"
      "DATA 800 298 1 11 12 1\nDATA 1600 298 1 11 10 1\n");
  ASSERT_TRUE(problem.funclib.keepsSlopes());
  const auto equationsAt = [&](double dw, bool chi_first) {
    ParSet at = problem.initial();
    at.par[0] = dw;
    if (chi_first) problem.fit().calc_chi(at);
    LevMar lm;
    problem.fit().lMarq(at, problem.pardef.points(0), problem.pardef.parms(0), FitMat(), lm);
    return lm;
  };
  const LevMar plain = equationsAt(1200, false);
  equationsAt(700, false);
  const LevMar after_chi = equationsAt(1200, true);
  EXPECT_EQ(after_chi.alpha, plain.alpha);
  EXPECT_EQ(after_chi.beta, plain.beta);
}

// ---- vetting ----

TEST(Vetting, LegalValuesPass) {
  Problem problem("FUNCTION Linear\nSET s\nREST a 0 2 1 1\nPAR b 2\n" + data(0, 3) + data(1, 7) +
                  data(2, 5));
  problem::Captured console(std::cerr);
  ParSet at = problem.initial();
  problem.fit().check_parm(at);
  problem.fit().check_parm_range(at);
  EXPECT_EQ(console.text(), "");
}

TEST(Vetting, TwoIllegalValuesAreListedUnderOneHeading) {
  Problem problem("FUNCTION Linear\nSET s\nREST a 0 2 1 1\nREST b 0 2 1 1\n" + data(0, 3) +
                  data(1, 7) + data(2, 5));
  ParSet at = problem.initial();
  at.par = {2.5, -1e-7};
  EXPECT_EXIT(problem.fit().check_parm(at), testing::ExitedWithCode(1),
              testing::Eq("ERROR: Illegal initial parameters\ns::a 2.5\ns::b -1e-07\n"));
}

TEST(Vetting, LegalOnesAreNotListed) {
  Problem problem("FUNCTION Linear\nGREST slope 0 2 1 1\nSET s\nREST a 0 2 1 1\nPAR b slope\n" +
                  data(0, 3) + data(1, 7) + data(2, 5));
  ParSet at = problem.initial();
  at.par = {3.0, 2.0};
  EXPECT_EXIT(problem.fit().check_parm(at), testing::ExitedWithCode(1),
              testing::Eq("ERROR: Illegal initial parameters\nGLOBAL::slope 3\n"));
}

TEST(Vetting, NotANumberIsIllegalAndShownWithoutItsSign) {
  Problem problem("FUNCTION Constant\nSET s\nPAR c 1\n" + data(0, 3) + data(1, 7));
  ParSet at = problem.initial();
  at.par = {-kNaN};
  EXPECT_EXIT(problem.fit().check_parm(at), testing::ExitedWithCode(1),
              testing::Eq("ERROR: Illegal initial parameters\ns::c nan\n"));
}

TEST(Vetting, GridStartOutOfTheLegalRangeStopsTheRunThoughTheInitialValueIsLegal) {
  // The model allows c up to 1e9.
  Problem problem("FUNCTION Constant\nSET s\nPAR c -2e9 3 2 1\n" + data(0, 3) + data(1, 7));
  EXPECT_EXIT(problem.fit().run_FIT(false), testing::ExitedWithCode(1),
              testing::Eq("ERROR: Illegal initial parameters\ns::c -2e+09\n"));
}

TEST(Vetting, GridEndOutOfTheLegalRangeStopsTheRun) {
  Problem problem("FUNCTION Constant\nSET s\nPAR c -2 3e9 2 1\n" + data(0, 3) + data(1, 7));
  EXPECT_EXIT(problem.fit().run_FIT(false), testing::ExitedWithCode(1),
              testing::Eq("ERROR: Illegal initial parameters\ns::c 3e+09\n"));
}

TEST(Vetting, InitialValueOutOfTheLegalRangeStopsTheRun) {
  Problem problem("FUNCTION Constant\nSET s\nREST c 0 3 2 4\n" + data(0, 3) + data(1, 7));
  EXPECT_EXIT(problem.fit().run_FIT(false), testing::ExitedWithCode(1),
              testing::Eq("ERROR: Illegal initial parameters\ns::c 4\n"));
}

TEST(Vetting, FixedValueIsVettedToo) {
  Problem problem("FUNCTION Linear\nSET s\nFIXED b 2e6\nPAR a 1\n" + data(0, 3) + data(1, 7));
  EXPECT_EXIT(problem.fit().run_FIT(false), testing::ExitedWithCode(1),
              testing::Eq("ERROR: Illegal initial parameters\ns::b 2e+06\n"));
}

TEST(Vetting, LeavesTheInitialValuesBehind) {
  Problem problem("FUNCTION Linear\nSET s\nPAR a 1 9 3 4\nPAR b 2 8 2\n" + data(0, 3) + data(1, 7) +
                  data(2, 5));
  ParSet at = problem.initial();
  at.par = {0, 0};
  problem.fit().check_parm_range(at);
  // Without an initial value of its own a parameter starts at its grid start.
  EXPECT_EQ(at.par, (std::vector<double>{4, 2}));
}

TEST(Vetting, TotalThatIsNotFiniteIsFatal) {
  for (const double bad : {kInf, -kInf, kNaN}) {
    ParSet at;
    at.resize(1, 1);
    at.setTotal(bad);
    EXPECT_EXIT(Fit::check_chi(at), testing::ExitedWithCode(1),
                testing::Eq("ERROR: Bad initial parameters\n"));
  }
}

TEST(Vetting, LargestFiniteTotalPasses) {
  ParSet at;
  at.resize(1, 1);
  at.setTotal(std::numeric_limits<double>::max());
  problem::Captured console(std::cerr);
  Fit::check_chi(at);
  EXPECT_EQ(console.text(), "");
}

TEST(Vetting, GlobalThatNoSetRefersToIsLegalWhateverItsValue) {
  problem::Captured console(std::cerr);
  Problem problem("FUNCTION Constant\nGPAR any-text -1e300 1e300 1 1e200\nSET s\nPAR c 1\n" +
                  data(0, 3) + data(1, 7) + data(2, 7));
  ParSet at = problem.initial();
  problem.fit().check_parm_range(at);
  EXPECT_EQ(at.par[0], 1e200);
  EXPECT_TRUE(problem.pardef.isLegal(0, -kInf));
  EXPECT_TRUE(problem.pardef.isLegal(0, kInf));
  EXPECT_FALSE(problem.pardef.isLegal(0, kNaN));
}

TEST(Vetting, RestrainedGlobalKeepsItsOwnRangeWhateverReferToIt) {
  problem::Captured console(std::cerr);
  // Bounds of the model: -1e6 to 1e6.
  Problem problem(
      "FUNCTION Linear\nGREST mine -2 2 1 1\nGREST idle -3 3 1 1\nGPAR model 0 9 1 1\n"
      "GFIXED still 2\nSET s\nPAR a still\nPAR b mine\n" +
      data(0, 3) + data(1, 7) + "SET t\nPAR a still\nPAR b model\n" + data(0, 3) + data(1, 7) +
      data(1, 8));
  const auto legal = [&](const char* name, double value) {
    return problem.pardef.isLegal(problem.parm(name), value);
  };
  EXPECT_TRUE(legal("GLOBAL::mine", 2));
  EXPECT_FALSE(legal("GLOBAL::mine", 2.1));
  EXPECT_TRUE(legal("GLOBAL::idle", -3));
  EXPECT_FALSE(legal("GLOBAL::idle", -3.1));
  EXPECT_TRUE(legal("GLOBAL::model", -1e6));
  EXPECT_FALSE(legal("GLOBAL::model", 1.1e6));
  EXPECT_TRUE(legal("GLOBAL::still", 1e9));
  EXPECT_FALSE(legal("GLOBAL::still", 1.1e9));
}

}  // namespace
