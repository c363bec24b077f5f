// The minimiser: its policy step by step on a scripted model, normal equations, nested fits.
// SPDX-License-Identifier: GPL-3.0-or-later
#include "Problem.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace {

using problem::data;
using problem::kInf;
using problem::kNaN;
using problem::Options;
using problem::Problem;

// ---- policy ----

/// Value and slope that a model of one parameter gives to a question.
struct Answer {
  double y;
  double slope;
};

/// The model's answers and the values it was asked about, in order.
struct Script {
  std::function<Answer(std::size_t call, double p)> answer;
  std::vector<double> asked;
};
Script script;

/// Follows the script at x = 0; at x = 1 it is 0, so that a second data point changes nothing.
double scripted(const Data& d, double* p, std::vector<double>& dydp,
                const std::vector<bool>& /*skip*/) {
  if (d.x[0] != 0.0) {
    if (!dydp.empty()) dydp[d.slot(0)] = 0.0;
    return 0.0;
  }
  const Answer answer = script.answer(script.asked.size(), p[0]);
  script.asked.push_back(p[0]);
  if (!dydp.empty()) dydp[d.slot(0)] = answer.slope;
  return answer.y;
}

/// The answer to call i is number i of the list; the last one goes on for ever.
std::function<Answer(std::size_t, double)> answers(std::vector<Answer> list) {
  return [list = std::move(list)](std::size_t call, double) {
    return list[std::min(call, list.size() - 1)];
  };
}

struct Minimum {
  double chi;
  double p;
  std::vector<double> asked;
};

/// Minimises y^2 of the scripted model, whose legal range is low to high, from p = start.
Minimum minimise(double start, std::function<Answer(std::size_t, double)> answer, double low = -1e9,
                 double high = 1e9) {
  Options options;
  options.models = {{scripted, "Scripted", {{"p", low, high, ""}}}};
  Problem problem("FUNCTION Scripted\nSET s\nPAR p 0\n" + data(0, 0) + data(1, 0), options);
  script = {std::move(answer), {}};
  ParSet at = problem.initial();
  at.par[0] = start;
  const double chi = problem.fit().minimize_local(at, 0);
  return {chi, at.par[0], script.asked};
}

/// With this slope the curvature is 1e8 and damping starts at 1e-8 * 1e8 = 1.
constexpr double kSteep = 1e4;

/// The steps from value y with slope kSteep for each damping.
std::vector<double> steps(double y, const std::vector<double>& lambdas) {
  std::vector<double> result;
  for (const double lambda : lambdas) result.push_back(-y / (kSteep * (1.0 + lambda)));
  return result;
}

void expectAsked(const Minimum& minimum, std::size_t from, const std::vector<double>& values) {
  ASSERT_GE(minimum.asked.size(), from + values.size());
  for (std::size_t i = 0; i < values.size(); ++i) {
    EXPECT_DOUBLE_EQ(minimum.asked[from + i], values[i]) << "call " << from + i;
  }
}

TEST(Minimiser, DampingFallsToAQuarterAfterEachSuccess) {
  // y = 1e4 p: each step goes from p to p lambda/(1 + lambda), lambda = 1, 1/4, 1/16, ...
  const Minimum minimum = minimise(1.0, [](std::size_t, double p) {
    return Answer{kSteep * p, kSteep};
  });
  expectAsked(minimum, 0, {1.0, 0.5, 0.5 * 0.25 / 1.25});
  EXPECT_NEAR(minimum.asked[3], 0.1 / 17.0, 1e-16);
  EXPECT_NEAR(minimum.asked[4], 0.1 / 17.0 / 65.0, 1e-16);
}

TEST(Minimiser, RepeatedFailureMultipliesDampingBy2Then4Then8) {
  const Minimum minimum = minimise(0.0, answers({{1, kSteep}, {2, kSteep}}));
  expectAsked(minimum, 0, {0.0});
  expectAsked(minimum, 1, steps(1, {1, 2, 8, 64, 1024, 32768}));
  EXPECT_EQ(minimum.chi, 1.0);
  EXPECT_EQ(minimum.p, 0.0);
}

TEST(Minimiser, SuccessResetsTheGrowthOfDamping) {
  // Two failures, a success at lambda = 8, then failures again.
  const Minimum minimum =
      minimise(0.0, answers({{1, kSteep}, {2, kSteep}, {2, kSteep}, {0.5, kSteep}, {2, kSteep}}));
  expectAsked(minimum, 1, steps(1, {1, 2, 8}));
  const double accepted = minimum.asked[3];
  EXPECT_EQ(minimum.p, accepted);
  EXPECT_EQ(minimum.chi, 0.25);
  std::vector<double> after = steps(0.5, {2, 4, 16, 128});
  for (double& p : after) p += accepted;
  expectAsked(minimum, 4, after);
}

TEST(Minimiser, EqualChiSquareIsAFailure) {
  const Minimum minimum = minimise(0.0, answers({{1, kSteep}, {1, kSteep}}));
  expectAsked(minimum, 1, steps(1, {1, 2, 8}));
  EXPECT_EQ(minimum.p, 0.0);
}

TEST(Minimiser, ValuesThatAreNotFiniteAreFailures) {
  const Minimum minimum = minimise(0.0, answers({{1, kSteep},
                                                 {kNaN, kSteep},
                                                 {-kInf, kSteep},
                                                 {0, kNaN},
                                                 {0, kInf},
                                                 {0.5, kSteep},
                                                 {2, kSteep}}));
  expectAsked(minimum, 1, steps(1, {1, 2, 8, 64, 1024}));
  EXPECT_EQ(minimum.chi, 0.25);
  EXPECT_EQ(minimum.p, minimum.asked[5]);
}

TEST(Minimiser, DampingStartsAtTheLargestCurvatureTimes1em8ButNotBelow1em8) {
  // Slope 1e-4: curvature 1e-8, damping 1e-8 * 1.
  const Minimum flat = minimise(0.0, answers({{1, 1e-4}, {2, 1e-4}}));
  expectAsked(flat, 1, {-1e-4 / (1e-8 * (1.0 + 1e-8)), -1e-4 / (1e-8 * (1.0 + 2e-8))});
  // Slope 1e6: curvature 1e12, damping 1e4.
  const Minimum steep = minimise(0.0, answers({{1, 1e6}, {2, 1e6}}));
  expectAsked(steep, 1, {-1e-6 / (1.0 + 1e4), -1e-6 / (1.0 + 2e4)});
}

TEST(Minimiser, StepOutOfTheLegalRangeIsNeverEvaluatedAndDoublesDamping) {
  // Steps for lambda = 1 and 2 are 5e-5 and 3.3e-5 long, that for 4 fits.
  const Minimum minimum = minimise(0.0, answers({{1, kSteep}, {2, kSteep}}), -2.5e-5, 1.0);
  // 8 = 4 * 2: the growth factor was not touched by the illegal steps.
  expectAsked(minimum, 1, steps(1, {4, 8, 32}));
}

TEST(Minimiser, LimitsOfTheLegalRangeAreLegal) {
  const double limit = steps(1, {1})[0];
  const Minimum minimum = minimise(0.0, answers({{1, kSteep}, {2, kSteep}}), limit, 1.0);
  expectAsked(minimum, 1, {limit});
}

TEST(Minimiser, IllegalStepsUseUpTheRounds) {
  // At the end of the legal range every step is illegal: without a count this would not end.
  const Minimum minimum = minimise(0.0, answers({{1, kSteep}}), 0.0, 1.0);
  EXPECT_EQ(minimum.asked.size(), 1U);
  EXPECT_EQ(minimum.chi, 1.0);
  EXPECT_EQ(minimum.p, 0.0);
}

TEST(Minimiser, SingularSystemsUseUpTheRounds) {
  // The curvature 1e-340 underflows to 0 while the gradient does not.
  const Minimum minimum = minimise(0.0, answers({{1e160, 1e-170}}), -1e300, 1e300);
  EXPECT_EQ(minimum.asked.size(), 1U);
}

TEST(Minimiser, TinyGainIsReturnedButNotMovedTo) {
  const double y = std::sqrt(1.0 - 5e-13);
  const Minimum minimum = minimise(0.0, answers({{1, kSteep}, {y, kSteep}}));
  EXPECT_EQ(minimum.asked.size(), 2U);
  EXPECT_EQ(minimum.chi, y * y);
  EXPECT_LT(minimum.chi, 1.0);
  EXPECT_EQ(minimum.p, 0.0);
}

TEST(Minimiser, GainAboveTheLimitIsMovedToAndGoesOn) {
  const double y = std::sqrt(1.0 - 2e-12);
  const Minimum minimum = minimise(0.0, answers({{1, kSteep}, {y, kSteep}, {2, kSteep}}));
  EXPECT_GT(minimum.asked.size(), 2U);
  EXPECT_EQ(minimum.chi, y * y);
  EXPECT_EQ(minimum.p, minimum.asked[1]);
}

TEST(Minimiser, StopsWithoutAStepWhenTheGradientVanishes) {
  // beta = -y for slope 1; the limit is 1e-15.
  EXPECT_EQ(minimise(0.0, answers({{1e-15, 1}})).asked.size(), 1U);
  EXPECT_GT(minimise(0.0, answers({{1.1e-15, 1}})).asked.size(), 1U);
}

TEST(Minimiser, StopsWithoutATrialWhenTheStepIsNegligible) {
  // |step| is |y| for slope 1; the limit is 1e-15 * 100.
  EXPECT_EQ(minimise(100.0, answers({{0.9e-13, 1}})).asked.size(), 1U);
  EXPECT_GT(minimise(100.0, answers({{1.2e-13, 1}})).asked.size(), 1U);
}

TEST(Minimiser, ExactFitStopsInTheFirstRound) {
  const Minimum minimum = minimise(3.0, answers({{0, 1}}));
  EXPECT_EQ(minimum.asked, std::vector<double>{3.0});
  EXPECT_EQ(minimum.chi, 0.0);
  EXPECT_EQ(minimum.p, 3.0);
}

TEST(Minimiser, StartThatIsNotFiniteIsInfiniteAndStays) {
  for (const Answer bad :
       {Answer{kNaN, 1}, Answer{kInf, 1}, Answer{-kInf, 1}, Answer{1, kNaN}, Answer{1, kInf}}) {
    const Minimum minimum = minimise(3.0, answers({bad}));
    EXPECT_EQ(minimum.chi, kInf);
    EXPECT_EQ(minimum.p, 3.0);
    EXPECT_EQ(minimum.asked.size(), 1U);
  }
}

TEST(Minimiser, EndsAfter300RoundsWithTheLastAcceptedChiSquare) {
  // Every trial gains: y = 1000, 999, 998, ...
  const Minimum minimum = minimise(0.0, [](std::size_t call, double) {
    return Answer{1000.0 - static_cast<double>(call), 1.0};
  });
  EXPECT_EQ(minimum.asked.size(), 301U);
  EXPECT_EQ(minimum.chi, 700.0 * 700.0);
  EXPECT_EQ(minimum.p, minimum.asked[300]);
}

TEST(Minimiser, FailedTrialsCountAsRounds) {
  // Trial and success alternate: 300 rounds, 150 successes.
  const Minimum minimum = minimise(0.0, [](std::size_t call, double) {
    const std::size_t gains = call / 2;
    return Answer{call % 2 == 0 ? 1000.0 - static_cast<double>(gains) : 5000.0, 1.0};
  });
  EXPECT_EQ(minimum.asked.size(), 301U);
  EXPECT_EQ(minimum.chi, 850.0 * 850.0);
}

/// Two parameters of which only the sum counts. The derivatives are ten times too large: a step
/// goes a tenth of the way.
double sumOfTwo(const Data& d, double* p, std::vector<double>& dydp,
                const std::vector<bool>& /*skip*/) {
  if (!dydp.empty()) dydp[d.slot(0)] = dydp[d.slot(1)] = 10.0;
  script.asked.push_back(p[0]);
  return p[0] + p[1] - 1.0;
}

TEST(Minimiser, SingularSystemDoublesDampingAndUsesUpOneRound) {
  // Every step succeeds and damping falls from 3e-6: after 18 successes it is 4.4e-17, which leaves
  // 1 + lambda at 1 and the two equal columns singular. Doubled twice, to 1.7e-16, it counts again.
  // So 300 rounds hold 18 + (300 - 18)/3 = 112 successes, of 0.81 each in chi-square.
  Options options;
  options.models = {{sumOfTwo, "Sum", {{"p", -9, 9, ""}, {"q", -9, 9, ""}}}};
  Problem problem("FUNCTION Sum\nSET s\nPAR p 0\nPAR q 0\n" + data(0, 0) + data(0, 0) + data(0, 0),
                  options);
  script.asked.clear();
  ParSet at = problem.initial();
  const double chi = problem.fit().minimize_local(at, 0);
  EXPECT_EQ(script.asked.size() / 3, 1U + 112U);
  EXPECT_NEAR(chi, 3.0 * std::pow(0.81, 112), 0.01 * chi);
}

TEST(Minimiser, FixedParametersLeaveNothingToDo) {
  problem::Captured console(std::cerr);
  Options options;
  options.models = {{scripted, "Scripted", {{"p", -9, 9, ""}}}};
  Problem problem("FUNCTION Scripted\nSET s\nFIXED p 2\n" + data(0, 0) + data(1, 0), options);
  script = {answers({{3, 1}}), {}};
  ParSet at = problem.initial();
  EXPECT_EQ(problem.fit().minimize_local(at, 0), 9.0);
  EXPECT_EQ(script.asked, std::vector<double>{2.0});
  EXPECT_EQ(at.par[0], 2.0);
}

TEST(Minimiser, MovesNoParameterOfAnotherSet) {
  Problem problem("FUNCTION Linear\nSET s\nPAR a 1\nPAR b 1\n" + data(0, 5) + data(1, 7) +
                  data(2, 9) + "SET t\nPAR a 1\nPAR b 1\n" + data(0, 5) + data(1, 7) + data(2, 9));
  ParSet at = problem.initial();
  EXPECT_NEAR(problem.fit().minimize_local(at, 1), 0.0, 1e-10);
  EXPECT_EQ(at.par[0], 1.0);
  EXPECT_EQ(at.par[1], 1.0);
  EXPECT_NEAR(at.par[2], 5.0, 1e-5);
  EXPECT_NEAR(at.par[3], 2.0, 1e-5);
}

// ---- normal equations of one set ----

double builtLocally(Problem& problem, ParSet& at, int set, LevMar& lm) {
  return problem.fit().lMarq(at, problem.pardef.points(set), problem.pardef.parms(set), FitMat(),
                             lm);
}

TEST(NormalEquations, HoldWeightedDerivativesAndResiduals) {
  // y = 1 + 2x at x = 0, 3 against 2 and 5, errors 1/2 and 1/3: residuals 1 and -2, weights 4, 9.
  Problem problem("FUNCTION Linear\nSET s\nPAR a 1\nPAR b 2\n" + data(0, 2, 0.5) +
                  "DATA 3 5 0.33333333333333333 .\n" + data(0, 1, 1e9));
  ParSet at = problem.initial();
  LevMar lm;
  EXPECT_DOUBLE_EQ(builtLocally(problem, at, 0, lm), 1.0 * 4 + 4.0 * 9);
  ASSERT_EQ(lm.n, 2);
  EXPECT_NEAR(lm.at(0, 0), 4 + 9, 1e-12);
  EXPECT_NEAR(lm.at(0, 1), 3 * 9, 1e-12);
  EXPECT_NEAR(lm.at(1, 0), 3 * 9, 1e-12);
  EXPECT_NEAR(lm.at(1, 1), 9 * 9, 1e-12);
  EXPECT_NEAR(lm.beta[0], 1 * 4 - 2 * 9, 1e-12);
  EXPECT_NEAR(lm.beta[1], -2 * 3 * 9, 1e-12);
}

TEST(NormalEquations, CoverTheSetsWholeListFixedOnesIncluded) {
  Problem problem("FUNCTION Linear\nSET s\nFIXED a 1\nPAR b 2\n" + data(2, 0) + data(2, 0));
  ParSet at = problem.initial();
  LevMar lm;
  builtLocally(problem, at, 0, lm);
  ASSERT_EQ(lm.n, 2);
  EXPECT_EQ(lm.at(0, 0), 2.0);
  EXPECT_EQ(lm.at(0, 1), 4.0);
  EXPECT_EQ(lm.at(1, 1), 8.0);
}

TEST(NormalEquations, AreZeroWithoutData) {
  Problem problem("FUNCTION Linear\nSET s\nPAR a 1\nPAR b 2\n" + data(0, 2) + data(1, 2) +
                  data(2, 2));
  ParSet at = problem.initial();
  LevMar lm;
  builtLocally(problem, at, 0, lm);
  EXPECT_NE(lm.at(0, 0), 0.0);
  EXPECT_EQ(problem.fit().lMarq(at, {}, problem.pardef.parms(0), FitMat(), lm), 0.0);
  EXPECT_EQ(lm.alpha, std::vector<double>(4, 0.0));
  EXPECT_EQ(lm.beta, std::vector<double>(2, 0.0));
}

TEST(NormalEquations, OfOnePointDoNotSeeDerivativesOfAnother) {
  // Labels: R20_1_1 serves the first point, R20_1_2 the second.
  Problem problem(
      "FUNCTION CPMG_const\nSET s\nPAR R20_1_1 1\nPAR R20_1_2 1\n"
      "DATA 100 298 1 11 3 1\nDATA 100 298 1 12 4 1\nDATA 100 298 1 12 4 1\n");
  ParSet at = problem.initial();
  LevMar lm;
  builtLocally(problem, at, 0, lm);
  EXPECT_EQ(lm.alpha, (std::vector<double>{1, 0, 0, 2}));
  EXPECT_EQ(lm.beta, (std::vector<double>{2, 6}));
}

TEST(NormalEquations, OfOneElementThatServesTwoParametersHoldTheDerivativeWrittenLast) {
  // The element g serves both a and b: one row, filled by the slope of b, which is written last.
  Problem problem("FUNCTION Linear\nGPAR g 0 5 2 1\nSET s\nPAR a g\nPAR b g\n" + data(3, 5) +
                  data(3, 5) + data(3, 5));
  ParSet at = problem.initial();
  LevMar lm;
  EXPECT_EQ(builtLocally(problem, at, 0, lm), 3 * 1.0);
  EXPECT_EQ(lm.alpha, (std::vector<double>{3 * 9.0}));
  EXPECT_EQ(lm.beta, (std::vector<double>{3 * 3.0}));
}

TEST(NormalEquations, OfManyLabelsAreThoseOfAPlainSumToTheLastBit) {
  // Five temperatures of one set: 1 + 3 * 5 rows, of which a point touches 4.
  std::string input = "FUNCTION CPMG_Richards\nSET s\nPAR dw 900\n";
  for (const std::string t : {"0", "1", "2", "3", "4"}) {
    input += "PAR kex_" + t + " 50" + t + "\nPAR papb_" + t + " 0.0" + t + "7\nPAR R20_" + t +
             "_1 8" + t + "\n";
  }
  for (int i = 0; i < 40; ++i) {
    input += "DATA " + std::to_string(50 + 37 * i) + " 298 1 " + std::to_string(i % 5) + "1 " +
             std::to_string(10 + i % 7) + " 0.3\n";
  }
  Problem problem(input);
  ParSet at = problem.initial();
  LevMar lm;
  const double chi = builtLocally(problem, at, 0, lm);

  const std::vector<int>& parms = problem.pardef.parms(0);
  const std::size_t n = parms.size();
  ASSERT_EQ(n, 16U);
  std::vector<double> alpha(n * n, 0.0);
  std::vector<double> beta(n, 0.0);
  std::vector<double> scratch(4);
  double plain_chi = 0.0;
  for (const int point : problem.pardef.points(0)) {
    std::vector<double> slopes(n, 0.0);
    const double y = problem.fit().calc_y_dy(at.par, point, slopes, scratch);
    const Data& d = problem.pardef.DATA(point);
    plain_chi += (d.y - y) * (d.y - y) * (d.w * d.w);
    for (std::size_t j = 0; j < n; ++j) {
      const double weighted = slopes[static_cast<std::size_t>(parms[j])] * (d.w * d.w);
      beta[j] += weighted * (d.y - y);
      for (std::size_t k = 0; k < n; ++k) {
        alpha[j * n + k] += slopes[static_cast<std::size_t>(parms[k])] * weighted;
      }
    }
  }
  EXPECT_EQ(lm.alpha, alpha);
  EXPECT_EQ(lm.beta, beta);
  EXPECT_EQ(chi, plain_chi);
}

std::size_t blocksTakenBy(Problem& problem, ParSet& at, int points) {
  const std::vector<int> some(problem.pardef.points(0).begin(),
                              problem.pardef.points(0).begin() + points);
  LevMar lm;
  problem.fit().lMarq(at, some, problem.pardef.parms(0), FitMat(), lm);  // sizes it
  const std::size_t before = problem::heap.blocks;
  problem.fit().lMarq(at, some, problem.pardef.parms(0), FitMat(), lm);
  return problem::heap.blocks - before;
}

TEST(NormalEquations, TakeNoMemory) {
  ASSERT_TRUE(problem::heapIsWatched());
  for (const std::string model : {"CPMG_Richards", "CPMG_matrix3"}) {
    const bool two_sites = model == "CPMG_Richards";
    std::string input = "FUNCTION " + model + "\nSET s\n";
    input += two_sites ? "PAR dw 900\nPAR kex 500\nPAR papb 0.05\nPAR R20 8\n"
                       : "PAR dwab 900\nPAR dwac -700\nPAR kab 20\nPAR kba 480\nPAR kbc 100\n"
                         "PAR kca 300\nPAR kac 15\nPAR R20 8\n";
    for (int i = 1; i <= 50; ++i) {
      input += "DATA " + std::to_string(50 * i) +
               (two_sites ? " 298 1 11 10 1\n" : " 0.04 0 1 11 10 1\n");
    }
    Problem problem(input);
    ParSet at = problem.initial();
    EXPECT_EQ(blocksTakenBy(problem, at, 1), 0U) << model;
    EXPECT_EQ(blocksTakenBy(problem, at, 50), 0U) << model;
  }
}

TEST(Minimiser, TakesOnlyTheMemoryOfTheLinearSolver) {
  // Each solution of a linear system takes a matrix, a vector and its pivots, which sanitizers do
  // not count; nothing else does, however many points and rounds there are.
  ASSERT_TRUE(problem::heapIsWatched());
  std::string input = "FUNCTION Exp2\nSET s\nPAR a 3\nPAR b -0.1\n";
  for (int i = 0; i < 200; ++i) input += data(0.1 * i, 5.0 * std::exp(-0.3 * (0.1 * i)), 0.1);
  Problem problem(input);
  ParSet start = problem.initial();
  ParSet at = start;
  problem.fit().minimize_local(at, 0);  // sizes the working memory
  at = start;
  const std::size_t before = problem::heap.blocks;
  problem.fit().minimize_local(at, 0);
  const std::size_t taken = problem::heap.blocks - before;
  EXPECT_EQ(taken % 3, 0U);
  EXPECT_LT(taken, 3U * 60U);  // a few tens of rounds; 200 points in each
}

// ---- shared parameters ----

/// Two decays with one rate, noise that no decay describes.
std::string decays(const std::string& head, const std::vector<int>& order) {
  const std::vector<std::vector<double>> measured = {
      {9.8, 6.3, 3.4, 2.4, 1.2}, {5.1, 2.9, 2.0, 1.0, 0.8}, {7.2, 4.0, 2.7, 1.4, 1.1}};
  std::string input = "FUNCTION Exp2\nGPAR rate -5 0 1 -0.2\n" + head;
  for (const int set : order) {
    input += "SET s" + std::to_string(set) + "\nPAR a 1\nPAR b rate\n";
    const std::vector<double>& y = measured[static_cast<std::size_t>(set)];
    for (std::size_t i = 0; i < y.size(); ++i) input += data(static_cast<double>(i), y[i], 0.1);
  }
  return input;
}

/// Chi-square of the decays, minimised over the amplitudes in closed form for this rate.
double profile(const Problem& problem, double rate) {
  double chi = 0.0;
  for (int set = 0; set < problem.pardef.SETsize(); ++set) {
    double ee = 0.0;
    double ye = 0.0;
    double yy = 0.0;
    for (const int point : problem.pardef.points(set)) {
      const Data& d = problem.pardef.DATA(point);
      const double e = std::exp(rate * d.x[0]);
      ee += e * e * d.w * d.w;
      ye += d.y * e * d.w * d.w;
      yy += d.y * d.y * d.w * d.w;
    }
    chi += yy - ye * ye / ee;
  }
  return chi;
}

/// The rate of the least profile, by golden section.
double bestRate(const Problem& problem) {
  double low = -2.0;
  double high = -0.05;
  const double ratio = (std::sqrt(5.0) - 1.0) / 2.0;
  for (int i = 0; i < 200; ++i) {
    const double left = high - ratio * (high - low);
    const double right = low + ratio * (high - low);
    if (profile(problem, left) < profile(problem, right)) {
      high = right;
    } else {
      low = left;
    }
  }
  return 0.5 * (low + high);
}

TEST(NestedMinimiser, FindsTheMinimumOverAllParametersAtOnce) {
  Problem problem(decays("", {0, 1, 2}));
  const double rate = bestRate(problem);
  ParSet at = problem.initial();
  const double chi = problem.fit().minimize_global(at);
  EXPECT_NEAR(chi, profile(problem, rate), 1e-9 * chi);
  EXPECT_NEAR(at.par[0], rate, 1e-6);
}

TEST(NestedMinimiser, TotalIsTheSumOfTheSetsAfterAcceptedSteps) {
  Problem problem(decays("", {0, 1, 2}));
  ParSet at = problem.initial();
  const double chi = problem.fit().minimize_global(at);
  const double sum = at.chi(0) + at.chi(1) + at.chi(2);
  EXPECT_NEAR(sum, chi, 2e-12 * 3);
  for (int set = 0; set < 3; ++set) {
    ParSet copy = at;
    EXPECT_NEAR(problem.fit().calc_chi(copy, set), at.chi(set), 2e-12);
  }
}

TEST(NestedMinimiser, OrderOfTheSetsDoesNotMatter) {
  Problem forward(decays("METHOD ONEEX\n", {0, 1, 2}));
  Problem backward(decays("METHOD ONEEX\n", {2, 0, 1}));
  forward.fit().run_FIT(false);
  backward.fit().run_FIT(false);
  EXPECT_NEAR(forward.fit().best().total(), backward.fit().best().total(), 1e-10);
  EXPECT_NEAR(forward.value("GLOBAL::rate"), backward.value("GLOBAL::rate"), 1e-7);
  for (const char* name : {"s0::a", "s1::a", "s2::a"}) {
    EXPECT_NEAR(forward.value(name), backward.value(name), 1e-5) << name;
    EXPECT_NEAR(forward.error(name), backward.error(name), 1e-7) << name;
  }
}

TEST(NestedMinimiser, OrderOfTheLocalSetsDoesNotMatterToTheLastBit) {
  const std::string first = "SET s\nPAR a 1\nPAR b 1\n" + data(0, 1) + data(1, 3.5) + data(2, 4);
  const std::string second = "SET t\nPAR a 2\nPAR b 1\n" + data(0, 7) + data(1, 3) + data(2, 1);
  Problem forward("FUNCTION Linear\nMETHOD ONEEX\n" + first + second);
  Problem backward("FUNCTION Linear\nMETHOD ONEEX\n" + second + first);
  forward.fit().run_FIT(false);
  backward.fit().run_FIT(false);
  for (const char* name : {"s::a", "s::b", "t::a", "t::b"}) {
    EXPECT_EQ(forward.value(name), backward.value(name)) << name;
    EXPECT_EQ(forward.error(name), backward.error(name)) << name;
  }
}

TEST(NestedMinimiser, SharedByOneSetThatListsItTwiceFitsAsALocalOne) {
  const std::string points =
      data(0, 9.8) + data(1, 6.3) + data(2, 3.4) + data(3, 2.4) + data(4, 1.2);
  Problem local("FUNCTION Exp2\nMETHOD ONEEX\nSET s\nPAR a 1\nPAR b -5 0 1 -0.2\n" + points);
  Problem global(
      "FUNCTION Exp2\nMETHOD ONEEX\nGPAR rate -5 0 1 -0.2\n"
      "SET s\nPAR a 1\nPAR b rate\nPAR b rate\n" +
      points);
  local.fit().run_FIT(false);
  global.fit().run_FIT(false);
  ASSERT_TRUE(local.fit().is_local());
  ASSERT_TRUE(global.fit().is_global());
  EXPECT_NEAR(global.fit().best().total(), local.fit().best().total(), 1e-11);
  EXPECT_NEAR(global.value("GLOBAL::rate"), local.value("s::b"), 1e-6);
  EXPECT_NEAR(global.value("s::a"), local.value("s::a"), 1e-5);
  EXPECT_NEAR(global.error("GLOBAL::rate"), local.error("s::b"), 1e-7);
  EXPECT_NEAR(global.error("s::a"), local.error("s::a"), 1e-6);
}

TEST(NestedMinimiser, ElementThatASetListsTwiceCountsTwiceInItsDoFAndEntersTheEquationsOnce) {
  Problem problem(
      "FUNCTION Linear\nGPAR slope 0 9 1 1\nSET s\nPAR a 1\nPAR b slope\nPAR b slope\n" +
      data(0, 1) + data(1, 2) + data(2, 3) + data(3, 4) + data(4, 5));
  EXPECT_EQ(problem.pardef.lDoF(0), 5 - 3);
  EXPECT_EQ(problem.pardef.gDoF(), 5 - 2);
  EXPECT_EQ(problem.pardef.declarations(0).size(), 3U);
  EXPECT_TRUE(problem.pardef.isGlobal(problem.parm("GLOBAL::slope")));
  ParSet at = problem.initial();
  LevMar lm;
  builtLocally(problem, at, 0, lm);
  EXPECT_EQ(lm.n, 2);
}

TEST(NestedMinimiser, AllSharedFitsAsTheSetsPooled) {
  const std::string first = data(0, 1) + data(1, 3.5) + data(2, 4);
  const std::string second = data(3, 7) + data(4, 8) + data(5, 12);
  Problem shared(
      "FUNCTION Linear\nMETHOD ONEEX\nGPAR A 0 9 1 1\nGPAR B 0 9 1 1\n"
      "SET s\nPAR a A\nPAR b B\n" +
      first + "SET t\nPAR a A\nPAR b B\n" + second);
  Problem pooled("FUNCTION Linear\nMETHOD ONEEX\nSET s\nPAR a 1\nPAR b 1\n" + first + second);
  problem::Captured console(std::cerr);  // no set has a parameter of its own
  shared.fit().run_FIT(false);
  pooled.fit().run_FIT(false);
  EXPECT_NEAR(shared.fit().best().total(), pooled.fit().best().total(), 1e-10);
  EXPECT_NEAR(shared.value("GLOBAL::A"), pooled.value("s::a"), 1e-5);
  EXPECT_NEAR(shared.value("GLOBAL::B"), pooled.value("s::b"), 1e-5);
  EXPECT_DOUBLE_EQ(shared.error("GLOBAL::A"), pooled.error("s::a"));
  EXPECT_DOUBLE_EQ(shared.error("GLOBAL::B"), pooled.error("s::b"));
}

TEST(NestedMinimiser, AddsTheRowsAtTheMinimaOfTheSetsAfterAcceptedLocalSteps) {
  // dy/d rate = x a e^(rate x): rows at the amplitudes of the start would be far too small.
  Problem problem(decays("", {0, 1, 2}));
  ParSet at = problem.initial();
  FitMat globals;
  globals.parms = {0};
  globals.rows = {0};
  LevMar lm;
  const double chi = problem.fit().gMarq(at, {}, {}, globals, lm);
  EXPECT_NEAR(chi, profile(problem, -0.2), 1e-9 * chi);
  double alpha = 0.0;
  double beta = 0.0;
  for (int set = 0; set < 3; ++set) {
    const double a = at.par[static_cast<std::size_t>(set) + 1];
    EXPECT_GT(a, 2.0);
    for (const int point : problem.pardef.points(set)) {
      const Data& d = problem.pardef.DATA(point);
      const double e = std::exp(-0.2 * d.x[0]);
      const double by_rate = d.x[0] * a * e;
      alpha += by_rate * by_rate * d.w * d.w;
      beta += by_rate * (d.y - a * e) * d.w * d.w;
    }
  }
  EXPECT_NEAR(lm.at(0, 0), alpha, 1e-9 * alpha);
  EXPECT_NEAR(lm.beta[0], beta, 1e-9 * std::abs(beta));
}

TEST(NestedMinimiser, StoresTheChiSquareOfEverySetAndTheirTotal) {
  Problem problem(decays("", {0, 1, 2}));
  ParSet at = problem.initial();
  FitMat globals;
  globals.parms = {0};
  globals.rows = {0};
  LevMar lm;
  const double chi = problem.fit().gMarq(at, {}, {}, globals, lm);
  EXPECT_EQ(chi, at.chi(0) + at.chi(1) + at.chi(2));
  EXPECT_EQ(at.total(), chi);
  EXPECT_EQ(at.par[0], -0.2);  // the shared value stands still meanwhile
}

TEST(NestedMinimiser, ASetAddsRowsOnlyForTheSharedParametersItUses) {
  // Slope S of sets s and t, intercept I of sets t and u: u knows nothing of S, s nothing of I.
  Problem problem(
      "FUNCTION Linear\nMETHOD ONEEX\nGPAR S -9 9 1 1\nGPAR I -9 9 1 1\n"
      "SET s\nPAR a 1\nPAR b S\n" +
      data(0, 1) + data(1, 3.5) + data(2, 4) + "SET t\nPAR a I\nPAR b S\n" + data(0, 2) +
      data(1, 3) + data(2, 7) + "SET u\nPAR a I\nPAR b 1\n" + data(0, 3) + data(1, 1) +
      data(2, 0.5));
  ParSet at = problem.initial();
  FitMat globals;
  globals.parms = {0, 1};
  globals.rows = {0, 1};
  LevMar lm;
  problem::Captured console(std::cerr);
  problem.fit().gMarq(at, {}, {}, globals, lm);
  // Sums over x of x^2, x and 1: S in two sets, the pair in t alone, I in two sets.
  EXPECT_EQ(lm.alpha, (std::vector<double>{10, 3, 3, 6}));

  // The minimum, with the parameters of s and u eliminated from the normal equations by hand:
  //   s: about its mean, 2 S = -1 * 1 + 1 * 4 = 3
  //   t: 5 S + 3 I = 17 and 3 S + 3 I = 12
  //   u: 3 I + 3 b = 4.5 and 3 I + 5 b = 2, so 3 I - 9/5 I = 4.5 - 6/5
  // together 7 S + 3 I = 20 and 3 S + 4.2 I = 15.3.
  problem.fit().run_FIT(false);
  const double det = 7 * 4.2 - 9;
  EXPECT_NEAR(problem.value("GLOBAL::S"), (20 * 4.2 - 3 * 15.3) / det, 1e-6);
  EXPECT_NEAR(problem.value("GLOBAL::I"), (7 * 15.3 - 3 * 20) / det, 1e-6);
}

TEST(NestedMinimiser, IsInfiniteAsSoonAsOneSetIs) {
  Problem problem("FUNCTION Exp2\nGPAR rate -900 0 1 -800\nSET s\nPAR a 1\nPAR b rate\n" +
                  data(0.1, 1) + data(0.2, 1) + data(0.3, 1) + "SET t\nPAR a 1\nPAR b rate\n" +
                  data(1, 1) + data(2, 1) + data(3, 1));
  ParSet at = problem.initial();
  EXPECT_EQ(problem.fit().minimize_global(at), kInf);
  EXPECT_EQ(at.par[0], -800.0);
}

TEST(NestedMinimiser, FixedSharedParameterStaysAndTheSetsAreMinimised) {
  // One shared rate is fixed, the other one (used nowhere) does not count: nothing is solved for
  // globally except the amplitude.
  Problem problem(
      "FUNCTION Exp2\nMETHOD ONEEX\nGFIXED rate -0.5\nGPAR amplitude 0 9 1 1\n"
      "SET s\nPAR a amplitude\nPAR b rate\n" +
      data(0, 2) + data(2, 1) + "SET t\nPAR a amplitude\nPAR b rate\n" + data(0, 3) + data(2, 1));
  problem::Captured console(std::cerr);
  problem.fit().run_FIT(false);
  const double e = std::exp(-1.0);
  EXPECT_EQ(problem.value("GLOBAL::rate"), -0.5);
  EXPECT_NEAR(problem.value("GLOBAL::amplitude"), (2 + 3 + 2 * e) / (2 + 2 * e * e), 1e-6);
}

TEST(NestedMinimiser, RecoversExactParameters) {
  std::string input = "FUNCTION Exp3\nMETHOD ONEEX\nGPAR rate -9 0 1 -0.3\n";
  const std::vector<std::pair<double, double>> truth = {{10, 1}, {5, -2}, {7, 0.5}};
  for (const auto& [a, c] : truth) {
    input += "SET s" + problem::text(a) + "\nPAR a 1\nPAR b rate\nPAR c 0\n";
    for (int i = 0; i < 6; ++i) input += data(i, a * std::exp(-0.7 * i) + c, 0.01);
  }
  Problem problem(input);
  problem.fit().run_FIT(false);
  EXPECT_NEAR(problem.value("GLOBAL::rate"), -0.7, 1e-7);
  EXPECT_NEAR(problem.value("s10::a"), 10, 1e-6);
  EXPECT_NEAR(problem.value("s5::c"), -2, 1e-6);
  EXPECT_LT(problem.fit().best().total(), 1e-9);
}

}  // namespace
