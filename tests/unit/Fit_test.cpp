// The front of the fitting engine: construction, the method list, the console table.
// SPDX-License-Identifier: GPL-3.0-or-later
#include "Problem.h"

#include <cmath>
#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

namespace {

using problem::Captured;
using problem::data;
using problem::kInf;
using problem::kNaN;
using problem::Options;
using problem::Problem;

constexpr const char* kMean = "FUNCTION Constant\nSET s\nPAR c 1\n";

/// Four values of mean 2, chi-square 4 there and 8 at the start; 3 degrees of freedom.
std::string mean(const std::string& methods = "") {
  return methods + kMean + data(0, 1) + data(0, 3) + data(0, 1) + data(0, 3);
}

Options verbose() {
  Options options;
  options.verbosity = 1;
  return options;
}

// ---- construction ----

TEST(FitConstruction, SetWithoutFreeParametersIsNamed) {
  Captured console(std::cerr);
  Problem problem("FUNCTION Constant\nSET free\nPAR c 1\n" + data(0, 1) + data(0, 2) +
                  "SET still\nFIXED c 1\n" + data(0, 1));
  EXPECT_EQ(console.text(), "WARNING (still): All parameters are fixed\n");
}

TEST(FitConstruction, SetThatUsesOnlySharedParametersIsNamedAsAllFixed) {
  Captured console(std::cerr);
  Problem problem("FUNCTION Linear\nGPAR S 0 9 1 1\nSET s\nFIXED a 1\nPAR b S\n" + data(0, 1) +
                  data(1, 2) + "SET t\nPAR a 1\nPAR b S\n" + data(0, 1) + data(1, 2) + data(2, 2));
  EXPECT_EQ(console.text(), "WARNING (s): All parameters are fixed\n");
}

TEST(FitConstruction, SetWhoseOnlyFreeParameterIsUnusedIsNamedAfterTheParameter) {
  Captured console(std::cerr);
  Problem problem(
      "FUNCTION CPMG_const\nSET s\nFIXED R20_1_1 3\nPAR R20_1_2 1\n"
      "DATA 100 298 1 11 3 1\nDATA 100 298 1 11 4 1\n");
  EXPECT_EQ(console.text(),
            "WARNING (s): Parameter 'R20_1_2' is not used by any data point\n"
            "WARNING (s): All parameters are fixed\n");
}

TEST(FitConstruction, UnusedParameterIsNamedOnceThoughSeveralSetsShareIt) {
  Captured console(std::cerr);
  const std::string points =
      "DATA 100 298 1 11 3 1\nDATA 100 298 1 11 4 1\n"
      "DATA 100 298 1 11 4 1\n";
  Problem problem(
      "FUNCTION CPMG_const\nGPAR far 1 9 1 4\n"
      "SET s\nPAR R20_1_1 1\nPAR R20_1_2 far\n" +
      points + "SET t\nPAR R20_1_1 1\nPAR R20_1_2 far\n" + points);
  EXPECT_EQ(console.text(), "WARNING (s): Parameter 'R20_1_2' is not used by any data point\n");
}

TEST(FitConstruction, IsGlobalOnlyWithAParameterThatTwoSetsUse) {
  Problem alone("FUNCTION Constant\nGPAR C 0 9 1 1\nSET s\nPAR c C\n" + data(0, 1) + data(0, 2));
  EXPECT_TRUE(alone.fit().is_local());
  EXPECT_FALSE(alone.fit().is_global());
  Captured console(std::cerr);
  Problem shared("FUNCTION Constant\nGPAR C 0 9 1 1\nSET s\nPAR c C\n" + data(0, 1) + data(0, 2) +
                 "SET t\nPAR c C\n" + data(0, 1) + data(0, 2));
  EXPECT_FALSE(shared.fit().is_local());
  EXPECT_TRUE(shared.fit().is_global());
}

TEST(FitConstruction, SharedFixedParameterLeavesTheFitLocal) {
  Problem problem("FUNCTION Linear\nMETHOD ONEEX\nGFIXED B 2\nSET s\nPAR a 1\nPAR b B\n" +
                  data(0, 1) + data(1, 3) + "SET t\nPAR a 1\nPAR b B\n" + data(0, 5) + data(1, 8));
  ASSERT_TRUE(problem.fit().is_local());
  problem.fit().run_FIT(false);
  EXPECT_NEAR(problem.value("s::a"), 1.0, 1e-6);
  EXPECT_NEAR(problem.value("t::a"), 5.5, 1e-6);
  EXPECT_EQ(problem.value("GLOBAL::B"), 2.0);
}

// ---- the method list ----

TEST(MethodList, RunsInOrderAfterTheInitialEvaluation) {
  Problem problem(mean("METHOD ONEEX\nMETHOD GRID\nMETHOD ONE\n"));
  problem.fit().run_FIT(false);
  EXPECT_EQ(problem.fit().chiLines(),
            (std::vector<std::string>{
                "# INIT         X2/DoF = 2.66667", "# ONEEX        X2/DoF = 1.33333",
                "# GRID         X2/DoF = 1.33333", "# ONE          X2/DoF = 1.33333"}));
}

TEST(MethodList, EveryMethodHasItsLabel) {
  Problem problem(
      mean("METHOD ONE\nMETHOD ONEEX\nMETHOD GRID\nMETHOD RANDOM 1\n"
           "METHOD MCMIN 1 0.1\nMETHOD RMCMIN 1 1 0.1\n"));
  problem.fit().run_FIT(false);
  EXPECT_EQ(problem.fit().chiLines(),
            (std::vector<std::string>{
                "# INIT         X2/DoF = 2.66667", "# ONE          X2/DoF = 1.33333",
                "# ONEEX        X2/DoF = 1.33333", "# GRID         X2/DoF = 1.33333",
                "# RANDOM       X2/DoF = 1.33333", "# MCMIN        X2/DoF = 1.33333",
                "# RMCMIN       X2/DoF = 1.33333"}));
}

TEST(MethodList, EmptyOneComputesTheErrorsOfTheBestSetAndSavesIt) {
  Problem problem(mean());
  problem.method.Clear();
  problem.fit().run_FIT(false);
  EXPECT_TRUE(problem.fit().chiLines().empty());
  EXPECT_EQ(problem.error("s::c"), 0.5);
  EXPECT_EQ(problem.fit().best().par, std::vector<double>{0.0});  // as it was made
  EXPECT_EQ(problem.fit().saved().par, std::vector<double>{0.0});
}

TEST(MethodList, ResultIsSavedForTheReport) {
  Problem problem(mean("METHOD ONEEX\n"));
  problem.fit().run_FIT(false);
  EXPECT_EQ(problem.fit().saved().par, problem.fit().best().par);
  EXPECT_EQ(problem.fit().saved().chi(0), problem.fit().best().chi(0));
  EXPECT_EQ(problem.fit().saved().total(), problem.fit().best().total());
}

TEST(MethodList, PassOfAnErrorAnalysisStartsAtTheSavedResultAndLeavesItAlone) {
  Problem problem(mean("METHOD ONEEX\n"));
  problem.fit().run_FIT(false);
  const ParSet saved = problem.fit().saved();
  problem.method.Clear();
  problem.method.Add({"METHOD", "INIT"});
  problem.fit().run_FIT(true);
  EXPECT_EQ(problem.fit().best().par, saved.par);
  EXPECT_NEAR(problem.fit().best().par[0], 2.0, 1e-6);
  EXPECT_EQ(problem.fit().saved().par, saved.par);
}

TEST(MethodList, InitialValuesThatAreRefusedAreAWarningAndTheMethodsGoOn) {
  Problem problem("FUNCTION Exp2\nMETHOD RANDOM 1\nSET s\nPAR a 1\nPAR b -1 0 2 -800\n" +
                  data(1, 1) + data(2, 1) + data(3, 1));
  Captured console(std::cerr);
  problem.fit().run_FIT(false);
  EXPECT_EQ(console.text(), "WARNING: Bad initial parameters\n");
  EXPECT_EQ(problem.fit().chiLines()[0], "# INIT         X2/DoF = inf");
  EXPECT_TRUE(problem.fit().best().isFinite());
}

TEST(MethodList, RefusedToTheEndEndsTheRunWithoutAnotherWord) {
  Problem problem("FUNCTION Exp2\nSET s\nPAR a 1\nPAR b -800\n" + data(1, 1) + data(2, 1) +
                  data(3, 1));
  EXPECT_EXIT(problem.fit().run_FIT(false), testing::ExitedWithCode(1),
              testing::Eq("WARNING: Bad initial parameters\n"));
}

TEST(MethodList, TotalThatIsNotANumberIsShownWithoutItsSign) {
  for (const char* y : {"nan", "-nan"}) {
    Problem problem(mean() + "DATA 1 " + y + " 1 .\n", verbose());
    Captured console(std::cerr);
    problem.fit().run_INIT(0, false);
    EXPECT_EQ(problem.fit().chiLines()[0], "# INIT         X2/DoF = nan");
    EXPECT_EQ(console.text().find("-nan"), std::string::npos);
    EXPECT_EQ(console.text().find("WARNING: Bad initial parameters\n"), 0U);
  }
}

TEST(MethodList, PassOfAnErrorAnalysisGoesOnWithoutErrorsAtATotalThatIsNotFinite) {
  Problem problem("FUNCTION Exp2\nSET s\nPAR a 1\nPAR b -800\n" + data(1, 1) + data(2, 1) +
                  data(3, 1));
  EXPECT_EXIT(
      {
        problem.fit().run_INIT(0, false);
        problem.method.Clear();
        problem.fit().run_FIT(true);
        std::cerr << "went on\n";
        std::exit(0);
      },
      testing::ExitedWithCode(0), testing::Eq("WARNING: Bad initial parameters\nwent on\n"));
}

// ---- console ----

TEST(Console, IsSilentWithoutVerbosity) {
  Problem problem(
      mean("METHOD ONE\nMETHOD ONEEX\nMETHOD GRID\nMETHOD RANDOM 2\n"
           "METHOD MCMIN 2 0.1\nMETHOD RMCMIN 2 2 0.1\n"));
  Captured console(std::cerr);
  problem.fit().run_FIT(false);
  EXPECT_EQ(console.text(), "");
}

TEST(Console, HeaderOfALocalFit) {
  Problem problem(mean(), verbose());
  Captured console(std::cerr);
  problem.fit().display_chi_header();
  const std::string rule(73, '-');
  EXPECT_EQ(console.text(),
            rule + "\n  METHOD (set ,       #/  total)          X2/DoF           | best X2/DoF\n" +
                rule + "\n");
}

TEST(Console, HeaderOfAGlobalFit) {
  Captured warnings(std::cerr);
  Problem problem("FUNCTION Constant\nGPAR C 0 9 1 1\nSET s\nPAR c C\n" + data(0, 1) + data(0, 2) +
                      "SET t\nPAR c C\n" + data(0, 1) + data(0, 2),
                  verbose());
  Captured console(std::cerr);
  problem.fit().display_chi_header();
  const std::string rule(66, '-');
  EXPECT_EQ(console.text(),
            rule + "\n  METHOD (      #/  total)         X2/DoF            | best X2/DoF\n" + rule +
                "\n");
}

/// What display_chi writes for a fit with `dof` degrees of freedom.
std::string shownLine(int dof, int method, const std::string& label, int set, long long counter,
                      long long total, double best, double start, double result) {
  Problem problem(mean(), verbose());
  problem.pardef.setgDoF(dof);
  Captured console(std::cerr);
  problem.fit().display_chi(method, label, set, counter, total, best, start, result);
  return console.text();
}

TEST(Console, FirstMethodShowsTheBestValueTwiceWithoutStartAndArrow) {
  EXPECT_EQ(shownLine(2, 0, "INIT", 1, 1, 1, 3, 5, 7),
            "\r0.INIT   (   1,       1/      1)                       1.5 |        1.5");
}

TEST(Console, LaterMethodsShowStartResultAndBest) {
  EXPECT_EQ(shownLine(2, 3, "RMCMIN", 12, 345, 6789, 3, 50, 7),
            "\r3.RMCMIN (  12,     345/   6789)          25 ->        3.5 |        1.5");
}

TEST(Console, GlobalLineHasNoSetField) {
  EXPECT_EQ(shownLine(1, 2, "ONE", 0, 1, 1, 3, 5, 7),
            "\r2.ONE    (      1/      1)           5 ->          7 |          3");
}

TEST(Console, NumberOfTheMethodIsNotPadded) {
  EXPECT_EQ(shownLine(1, 11, "ONE", 0, 1, 1, 3, 5, 7).substr(0, 9), "\r11.ONE  ");
}

/// The number as the last field of the line shows it, after `before` as start and result.
std::string shownNumber(double number, double before = 1.0) {
  const std::string line = shownLine(1, 1, "ONE", 0, 1, 1, number, before, before);
  return line.substr(line.find(" | ") + 3);
}

TEST(Console, OrdinaryNumbersHaveSixDigitsInAFieldOfTen) {
  EXPECT_EQ(shownNumber(1.23456789), "   1.23457");
  EXPECT_EQ(shownNumber(99999.9), "   99999.9");
  EXPECT_EQ(shownNumber(0.0000100001), "1.00001e-05");
  EXPECT_EQ(shownNumber(0.0), "         0");
}

TEST(Console, ExtremeNumbersHaveFiveDigitsAndADecimalPointWithoutAField) {
  EXPECT_EQ(shownNumber(100000.0), "1.0000e+05");
  EXPECT_EQ(shownNumber(0.00001), "1.0000e-05");
  EXPECT_EQ(shownNumber(1e-7), "1.0000e-07");
  EXPECT_EQ(shownNumber(-2.0), "-2.0000");
  EXPECT_EQ(shownNumber(kInf), "inf");
  EXPECT_EQ(shownNumber(kNaN), "nan");
  EXPECT_EQ(shownNumber(-kNaN), "nan");
}

TEST(Console, AfterAnExtremeNumberAllHaveFiveDigits) {
  EXPECT_EQ(shownNumber(1.23456789, 1e7), "    1.2346");
  EXPECT_EQ(shownNumber(12345.678, 1e7), "     12346");
}

TEST(Console, FiveDigitsLastFromLineToLine) {
  Problem problem(mean(), verbose());
  problem.pardef.setgDoF(1);
  Captured console(std::cerr);
  problem.fit().display_chi(0, "INIT", 1, 1, 1, 1e9, 0, 0);
  problem.fit().display_chi(0, "INIT", 1, 1, 1, 1.23456789, 0, 0);
  EXPECT_EQ(console.text().substr(console.text().rfind('|')), "|     1.2346");
}

TEST(Console, TableOfALocalRun) {
  // Chi-square 8 at the start, 4 at the mean 2, over 3 degrees of freedom.
  Problem problem(mean("METHOD ONE\n"), verbose());
  Captured console(std::cerr);
  problem.fit().run_FIT(false);
  const std::string rule(73, '-');
  EXPECT_EQ(console.text(),
            rule + "\n  METHOD (set ,       #/  total)          X2/DoF           | best X2/DoF\n" +
                rule +
                "\n\r0.INIT   (   1,       1/      1)                   2.66667 |    2.66667\n"
                "\r1.ONE    (   1,       1/      1)     2.66667 ->    1.33333 |    1.33333\n");
}

TEST(Console, InitialLineOfALocalFitHasTheNumberOfSets) {
  Problem problem(mean() + "SET t\nPAR c 1\n" + data(0, 1) + data(0, 1), verbose());
  Captured console(std::cerr);
  problem.fit().run_INIT(0, false);
  EXPECT_EQ(console.text(),
            "\r0.INIT   (   2,       1/      1)                         2 |          2\n");
}

TEST(Console, InitialLineOfAGlobalFitHasNoSetField) {
  Captured warnings(std::cerr);
  Problem problem("FUNCTION Constant\nGPAR C 0 9 1 1\nSET s\nPAR c C\n" + data(0, 1) + data(0, 2) +
                      "SET t\nPAR c C\n" + data(0, 1) + data(0, 2),
                  verbose());
  Captured console(std::cerr);
  problem.fit().run_INIT(0, false);
  EXPECT_EQ(console.text(),
            "\r0.INIT   (      1/      1)                  0.666667 |   0.666667\n");
}

// ---- size ----

TEST(LargeJob, TenThousandSetsNeedNoSquareOfTheirParameters) {
  constexpr int kSets = 10000;
  std::string input = "FUNCTION Linear\nMETHOD ONEEX\n";
  for (int set = 0; set < kSets; ++set) {
    const double slope = set % 7;
    input += "SET s" + std::to_string(set) + "\nPAR a 1\nPAR b 1\n" + data(0, 3) +
             data(1, 3 + slope) + data(2, 3 + 2 * slope);
  }
  ASSERT_TRUE(problem::heapIsWatched());
  problem::heap.largest = 0;
  Problem problem(input);
  problem.fit().run_FIT(false);
  // A square matrix of 20,000 parameters is 3.2e9 bytes; the largest list here has 30,000 points.
  EXPECT_LT(problem::heap.largest, 20000000U);
  EXPECT_NEAR(problem.value("s9999::b"), 9999 % 7, 1e-5);
  EXPECT_NEAR(problem.error("s9999::b"), std::sqrt(3.0 / 6.0), 1e-12);
}

TEST(LargeJob, ThreeThousandSetsWithASharedParameterNeedNoSquareOfTheirParameters) {
  constexpr int kSets = 3000;
  std::string input = "FUNCTION Linear\nMETHOD ONEEX\nGPAR S -9 9 1 1\n";
  for (int set = 0; set < kSets; ++set) {
    input += "SET s" + std::to_string(set) + "\nPAR a 1\nPAR b S\n" + data(0, set) +
             data(1, set + 2.0) + data(2, set + 4.0);
  }
  ASSERT_TRUE(problem::heapIsWatched());
  problem::heap.largest = 0;
  Problem problem(input);
  problem.fit().run_FIT(false);
  // The matrix of all 3001 parameters is 7.2e7 bytes.
  EXPECT_LT(problem::heap.largest, 5000000U);
  EXPECT_NEAR(problem.value("GLOBAL::S"), 2.0, 1e-6);
  // All sets pooled, each about its own mean: sum (x - 1)^2 = 2 a set.
  EXPECT_NEAR(problem.error("GLOBAL::S"), 1.0 / std::sqrt(2.0 * kSets), 1e-12);
}

}  // namespace
