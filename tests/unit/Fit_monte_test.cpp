// Monte Carlo error analysis.
// SPDX-License-Identifier: GPL-3.0-or-later
#include "Problem.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <vector>

namespace {

using problem::Captured;
using problem::data;
using problem::FakeClock;
using problem::kInf;
using problem::kNaN;
using problem::Options;
using problem::Problem;
using problem::readFile;
using problem::ScratchDirectory;
using problem::text;

using Numbers = std::vector<double>;

/// A gain below 1e-12 in chi-square ends a minimisation one step short: up to 1e-6 standard errors,
/// which are 1 or less in these fits.
constexpr double kStop = 1e-6;

constexpr std::uint32_t kStart = 20000;

/// The normal deviates of a run whose clock counts up from kStart: by the polar method from a
/// standard engine, two for each reading.
class Deviates {
 public:
  double next() {
    if (has_kept_) {
      has_kept_ = false;
      return kept_;
    }
    std::mt19937 engine(tick_++);
    std::uniform_real_distribution<double> uniform(0.0, 1.0);
    for (;;) {
      const double x = 2.0 * uniform(engine) - 1.0;
      const double y = 2.0 * uniform(engine) - 1.0;
      const double r2 = x * x + y * y;
      if (r2 > 1.0 || r2 == 0.0) continue;
      const double m = std::sqrt(-2.0 * std::log(r2) / r2);
      kept_ = x * m;
      has_kept_ = true;
      return y * m;
    }
  }
  [[nodiscard]] std::uint32_t readings() const { return tick_ - kStart; }

 private:
  std::uint32_t tick_ = kStart;
  double kept_ = 0.0;
  bool has_kept_ = false;
};

/// A fit that has run, then its simulations with draws from the counted clock.
struct MonteCarlo {
  MonteCarlo(const std::string& input, int simulations) {
    Options options;
    options.output_file = output();
    options.random = Random(FakeClock::now);
    problem = std::make_unique<Problem>(input, options);
    problem->calc.SetMonte(2, simulations);
    problem->fit().run_FIT(false);
    FakeClock::start(kStart);
  }
  void run() { problem->fit().run_MONTE(); }

  [[nodiscard]] std::string output() const { return (directory.path() / "out").string(); }
  [[nodiscard]] std::string file() const { return readFile(output() + "-monte"); }
  [[nodiscard]] const ParSet& centre() const { return problem->fit().centre(); }
  [[nodiscard]] const ParSet& spread() const { return problem->fit().spread(); }

  ScratchDirectory directory;
  Captured console{std::cerr};
  std::unique_ptr<Problem> problem;
};

double squaresAround(const Numbers& values, double centre) {
  double sum = 0.0;
  for (const double value : values) sum += (value - centre) * (value - centre);
  return sum;
}

double meanOf(const Numbers& values) {
  double sum = 0.0;
  for (const double value : values) sum += value;
  return sum / static_cast<double>(values.size());
}

double sampleDeviation(const Numbers& values) {
  return std::sqrt(squaresAround(values, meanOf(values)) / static_cast<double>(values.size() - 1));
}

std::size_t countOf(const std::string& in, const std::string& part) {
  std::size_t count = 0;
  for (std::size_t at = in.find(part); at != std::string::npos; at = in.find(part, at + 1)) {
    ++count;
  }
  return count;
}

// ---- the lists and the arithmetic ----

TEST(PushSort, KeepsTheListAscendingAndPutsEqualValuesFirst) {
  Numbers list;
  for (const double value : {3.0, 1.0, 2.0, 0.0, -0.0, 9.999e99}) Fit::push_sort(list, value);
  EXPECT_EQ(list, (Numbers{-0.0, 0.0, 1.0, 2.0, 3.0, 9.999e99}));
  EXPECT_TRUE(std::signbit(list[0])) << "the later of two equal values stands first";
  EXPECT_FALSE(std::signbit(list[1]));
}

TEST(ComputeStdev, IsThatOfASample) {
  // 1, 2, 4, 5: mean 3, squares 46
  EXPECT_DOUBLE_EQ(Fit::compute_stdev(3.0, 46.0, 4), std::sqrt(10.0 / 3.0));
}

TEST(ComputeStdev, IsZeroWhereItIsNotDefined) {
  EXPECT_EQ(Fit::compute_stdev(3.0, 9.0, 1), 0.0);
  EXPECT_EQ(Fit::compute_stdev(3.0, 10.0, 1), 0.0);
  EXPECT_EQ(Fit::compute_stdev(kNaN, 0.0, 0), 0.0);
  EXPECT_EQ(Fit::compute_stdev(3.0, 18.0, 2), 0.0);
  EXPECT_EQ(Fit::compute_stdev(3.0, 17.9, 2), 0.0) << "rounding below zero";
  EXPECT_EQ(Fit::compute_stdev(kInf, kInf, 3), 0.0);
}

// ---- noise ----

constexpr const char* kFlat = "FUNCTION Constant\nSET s\nFIXED c 3\n";

TEST(MonteNoise, IsANormalDeviateTimesTheErrorOfThePoint) {
  // Everything fixed: chi-square of a simulation is the sum of the squared deviates.
  MonteCarlo monte(kFlat + data(0, 1, 0.5) + data(1, 7, 2) + data(2, 3, 0.25) +
                       "SET t\nFIXED c -1\n" + data(0, 9, 10) + data(1, 9, 3),
                   1);
  monte.run();
  Deviates draws;
  double first = 0.0;
  for (int i = 0; i < 3; ++i) first += std::pow(draws.next(), 2);
  double second = 0.0;
  for (int i = 0; i < 2; ++i) second += std::pow(draws.next(), 2);
  EXPECT_NEAR(monte.centre().chi(0), first, 1e-12 * first);
  EXPECT_NEAR(monte.centre().chi(1), second, 1e-12 * second);
}

TEST(MonteNoise, TakesOneReadingOfTheClockForTwoPointsAcrossSimulations) {
  MonteCarlo monte(kFlat + data(0, 1) + data(1, 7) + data(2, 3), 5);
  monte.run();
  EXPECT_EQ(FakeClock::ticks - kStart, 8U) << "for 15 points";
}

TEST(MonteNoise, EveryPointHasItsOwnDrawInTheOrderOfTheInput) {
  std::string input = "FUNCTION Constant\n";
  for (int set = 0; set < 6; ++set) {
    input += "SET s" + std::to_string(set) + "\nFIXED c 3\n" + data(0, 1, 0.5 + set);
  }
  MonteCarlo monte(input, 1);
  monte.run();
  Deviates draws;
  for (int set = 0; set < 6; ++set) {
    const double square = std::pow(draws.next(), 2);
    EXPECT_NEAR(monte.centre().chi(set), square, 1e-12 * square + 1e-14);
  }
}

TEST(MonteNoise, IsAddedToTheFittedCurveNotToTheData) {
  // Data with a scatter of 1000 about the fit, errors of 1.
  MonteCarlo monte("FUNCTION Constant\nMETHOD ONEEX\nSET s\nPAR c 1\n" + data(0, -1000) +
                       data(1, 1000) + data(2, -1000) + data(3, 1000),
                   50);
  monte.run();
  EXPECT_LT(monte.centre().chi(0), 20.0);
  EXPECT_NEAR(monte.centre().par[0], 0.0, 5 * 0.5 / std::sqrt(50.0));
}

/// Three sites, relaxation delay x1; noise of the intensity ratio.
std::string threeSites(double delay, const Numbers& errors) {
  std::string input = "FUNCTION CPMG_matrix3\n";
  for (std::size_t i = 0; i < errors.size(); ++i) {
    input += "SET s" + std::to_string(i) +
             "\nFIXED dwab 300\nFIXED dwac 500\nFIXED kab 100\nFIXED kba 900\nFIXED kbc 50\n"
             "FIXED kca 800\nFIXED kac 60\nFIXED R20 10\nDATA 400 " +
             text(delay) + " 298 1 11 12 " + text(errors[i]) + "\n";
  }
  return input;
}

class RatioNoise : public testing::TestWithParam<double> {};

TEST_P(RatioNoise, FollowsItsFormulaWithRedraws) {
  constexpr double kDelay = 0.04;
  const double sigma = GetParam();
  const Numbers errors(40, sigma);
  MonteCarlo monte(threeSites(kDelay, errors), 1);
  ASSERT_EQ(monte.problem->funclib.Get_dist(), 1);
  ASSERT_EQ(monte.problem->funclib.posTau(), 1);
  monte.run();
  Deviates draws;
  int redraws = 0;
  for (std::size_t i = 0; i < errors.size(); ++i) {
    double u = draws.next() * sigma * kDelay;
    for (; u <= -1.0; ++redraws) u = draws.next() * sigma * kDelay;
    const double square = std::pow(-std::log(1.0 + u) / kDelay / sigma, 2);
    // The noise stands on a value of about 10, whose last digit counts.
    const double rounding = 1e-14 * 20.0 / sigma * std::sqrt(square);
    EXPECT_NEAR(monte.centre().chi(static_cast<int>(i)), square, 1e-12 * square + 4 * rounding);
  }
  EXPECT_EQ(FakeClock::ticks - kStart, draws.readings());
  EXPECT_EQ(redraws > 0, sigma * kDelay > 0.5) << redraws;
}

// Errors of 0.5 leave the ratio positive; of 50 and 1e5 every sixth and every second draw does not.
INSTANTIATE_TEST_SUITE_P(Errors, RatioNoise, testing::Values(0.5, 50.0, 1e5),
                         [](const auto& error) { return "error" + std::to_string(error.index); });

TEST(RatioNoise, OfOtherModelsIsPlain) {
  // The same columns, error type 0.
  std::string input = threeSites(0.04, {100.0});
  input.replace(input.find("CPMG_matrix3"), 12, "CPMG_bind3b");
  const std::size_t first = input.find("FIXED");
  input.replace(first, input.find("DATA") - first,
                "FIXED dwfi 300\nFIXED dwfb 500\nFIXED kfi 100\nFIXED kif 900\nFIXED Bkon 50\n"
                "FIXED koff 80\nFIXED R20 10\n");
  input.replace(input.find(" 298 1 11 "), 10, " 298 1 1 111 ");
  MonteCarlo monte(input, 1);
  ASSERT_EQ(monte.problem->funclib.Get_dist(), 0);
  monte.run();
  const double square = std::pow(Deviates().next(), 2);
  EXPECT_NEAR(monte.centre().chi(0), square, 1e-10 * square);
}

// ---- results ----

/// Pass values and chi-squares of a mean of four values of error 0.5, replayed.
struct Replay {
  Numbers value;
  Numbers chi;

  explicit Replay(int simulations, double truth = 2.0) {
    Deviates draws;
    for (int k = 0; k < simulations; ++k) {
      Numbers y;
      for (int i = 0; i < 4; ++i) y.push_back(truth + 0.5 * draws.next());
      value.push_back(meanOf(y));
      chi.push_back(squaresAround(y, value.back()) / 0.25);
    }
  }
};

const std::string kMean = "FUNCTION Constant\nMETHOD ONEEX\nSET s\nPAR c 0 9 2 1\n" +
                          data(0, 1, 0.5) + data(1, 3, 0.5) + data(2, 1, 0.5) + data(3, 3, 0.5);

TEST(MonteResult, IsMeanAndSampleDeviationOverTheSimulations) {
  MonteCarlo monte(kMean, 25);
  monte.run();
  const Replay replay(25);
  EXPECT_NEAR(monte.centre().par[0], meanOf(replay.value), kStop);
  EXPECT_NEAR(monte.spread().par[0], sampleDeviation(replay.value), kStop);
  EXPECT_NEAR(monte.centre().chi(0), meanOf(replay.chi), kStop);
  EXPECT_NEAR(monte.spread().chi(0), sampleDeviation(replay.chi), kStop);
  EXPECT_NEAR(monte.centre().total(), meanOf(replay.chi), kStop);
  EXPECT_NEAR(monte.spread().total(), sampleDeviation(replay.chi), kStop);
}

TEST(MonteResult, OfOneSimulationHasNoSpread) {
  MonteCarlo monte(kMean, 1);
  monte.run();
  EXPECT_NEAR(monte.centre().par[0], Replay(1).value[0], kStop);
  EXPECT_EQ(monte.spread().par[0], 0.0);
  EXPECT_EQ(monte.spread().chi(0), 0.0);
  EXPECT_EQ(monte.spread().total(), 0.0);
}

TEST(MonteFile, HasABlockForEverySimulation) {
  MonteCarlo monte(kMean, 4);
  monte.run();
  const Replay replay(4);
  std::ostringstream expected;
  expected << "Monte Carlo simulations (4)\n";
  for (std::size_t k = 1; k <= 4; ++k) {
    expected << '#' << k << ": s\n#" << k << ":\tc\t" << replay.value[k - 1] << "\n#" << k
             << ":\tX2/DoF\t" << replay.chi[k - 1] / 3 << "\t(DoF = 3)\n#" << k
             << ": GLOBAL X2/DoF\t" << replay.chi[k - 1] / 3 << "\t(DoF = 3)\n\n";
  }
  EXPECT_EQ(monte.file(), expected.str());
}

TEST(MonteFile, SummaryHasThePercentilesOfTheReplayedChiSquares) {
  MonteCarlo monte(kMean, 20);
  monte.run();
  monte.problem->fit().report_final(2);
  Replay replay(20);
  std::ostringstream expected;
  const auto width7 = [](double x) {
    std::ostringstream number;
    number << x;
    return std::string(number.str().size() < 7 ? 7 - number.str().size() : 0, ' ') + number.str();
  };
  expected << "# Monte Carlo error analysis results\nSET\ts\n\tc\t" << width7(meanOf(replay.value))
           << " (" << sampleDeviation(replay.value) << ")\n\tX2/DoF\t" << meanOf(replay.chi) / 3
           << " (" << sampleDeviation(replay.chi) / 3 << ") (DoF = 3)\n\n"
           << "\t\tPercentile\tX2/DoF\n";
  // Of 20 values the p-percentile is number 20 p; the fit's own chi-square is 4/0.25.
  std::sort(replay.chi.begin(), replay.chi.end());
  const char* const fractions[] = {"0.05", "0.1",  "0.15", "0.2",  "0.25", "0.3",  "0.35",
                                   "0.4",  "0.45", "0.5",  "0.55", "0.6",  "0.65", "0.7",
                                   "0.75", "0.8",  "0.85", "0.9",  "0.95"};
  for (std::size_t i = 0; i < 19; ++i) {
    expected << "\t\t" << fractions[i] << '\t' << width7(replay.chi[i] / 3)
             << (replay.chi[i] > 16.0 ? "\t***\n" : "\n");
  }
  expected << "Global X2/DoF = " << meanOf(replay.chi) / 3 << "  ("
           << sampleDeviation(replay.chi) / 3 << ")\n";
  EXPECT_EQ(readFile(monte.output() + "-monte.sum"), expected.str());
}

TEST(Percentile, IsOneOfTheChiSquaresAndTheSmallestForLowFractions) {
  MonteCarlo monte(kMean, 10);
  monte.run();
  Numbers chi = Replay(10).chi;
  std::sort(chi.begin(), chi.end());
  const Fit& fit = monte.problem->fit();
  for (const double low : {0.0, 0.05, 0.1, 0.1499}) EXPECT_NEAR(fit.pchi(0, low), chi[0], kStop);
  EXPECT_NEAR(fit.pchi(0, 0.15), chi[1], kStop);
  EXPECT_NEAR(fit.pchi(0, 0.2499), chi[1], kStop);
  EXPECT_NEAR(fit.pchi(0, 0.5), chi[4], kStop);
  EXPECT_NEAR(fit.pchi(0, 0.95), chi[9], kStop);
  EXPECT_NEAR(fit.pchi(0, 1.0), chi[9], kStop);
}

TEST(Percentile, ListsAreClearedByANewAnalysis) {
  MonteCarlo monte(kMean, 10);
  monte.run();
  FakeClock::start(kStart);
  monte.problem->calc.SetMonte(2, 2);
  monte.run();
  Numbers chi = Replay(2).chi;
  std::sort(chi.begin(), chi.end());
  EXPECT_NEAR(monte.problem->fit().pchi(0, 1.0), chi[1], kStop);
  EXPECT_NEAR(monte.problem->fit().pchi(0, 0.0), chi[0], kStop);
}

TEST(MonteResult, LeavesDataSavedFitAndDegreesOfFreedomAlone) {
  MonteCarlo monte(kMean, 3);
  const Numbers values = monte.problem->pardef.values();
  const Numbers saved = monte.problem->fit().saved().par;
  monte.run();
  EXPECT_EQ(monte.problem->pardef.values(), values);
  EXPECT_EQ(values, (Numbers{1, 3, 1, 3}));
  EXPECT_EQ(monte.problem->fit().saved().par, saved);
  EXPECT_EQ(monte.problem->pardef.lDoF(0), 3);
  EXPECT_EQ(monte.problem->pardef.gDoF(), 3);
}

TEST(MonteResult, EverySimulationStartsFromTheFullFit) {
  MonteCarlo monte(kMean, 5);
  monte.problem->method = Method();  // INIT alone
  monte.run();
  EXPECT_EQ(monte.centre().par, monte.problem->fit().saved().par);
  EXPECT_NEAR(monte.spread().par[0], 0.0, 1e-7) << "cancellation of the sums";
}

// ---- after a jackknife ----

TEST(MonteAfterLocalJackknife, RunsOnTheDisplacedLists) {
  MonteCarlo monte(
      "FUNCTION Constant\nMETHOD ONEEX\nSET s\nPAR c 1\n" + data(0, 1) + data(1, 2) + data(2, 6),
      3);
  monte.problem->fit().run_JACK();
  ASSERT_EQ(monte.problem->pardef.points(0), (std::vector<int>{0, 2, 2}));
  FakeClock::start(kStart);
  monte.run();
  // Every point is drawn; the fit sees the first once and the third twice.
  Deviates draws;
  Numbers means;
  for (int k = 0; k < 3; ++k) {
    const double a = 3.0 + draws.next();
    draws.next();
    const double c = 3.0 + draws.next();
    means.push_back((a + 2.0 * c) / 3.0);
  }
  EXPECT_NEAR(monte.centre().par[0], meanOf(means), kStop);
  EXPECT_NEAR(monte.spread().par[0], sampleDeviation(means), kStop);
}

TEST(MonteAfterGlobalJackknife, DividesByTheRaisedDegreesOfFreedom) {
  MonteCarlo monte("FUNCTION Constant\nMETHOD ONEEX\nGPAR C 0 9 2 1\nSET s\nPAR c C\n" +
                       data(0, 1) + data(1, 2) + "SET t\nPAR c C\n" + data(0, 1) + data(1, 2),
                   2);
  ASSERT_EQ(monte.problem->pardef.gDoF(), 3);
  monte.problem->fit().run_JACK();
  monte.run();
  EXPECT_EQ(countOf(monte.file(), "GLOBAL X2/DoF"), 2U);
  EXPECT_EQ(countOf(monte.file(), "\t(DoF = 4)\n\n"), 2U);
  EXPECT_EQ(countOf(monte.file(), "\t(DoF = 1)\n"), 4U);
}

std::string flatQuantity(const std::string& analyses) {
  std::string input = "FUNCTION CPMG_Meiboom\nMETHOD ONEEX\nCALC PB pb 0 0 1 11\n" + analyses +
                      "SET s\nFIXED kex 1000\nFIXED pdw 1000\nPAR R20 0.1 0.25 1 0.15\n";
  for (const char* y : {"0.15", "0.17", "0.13", "0.19"}) {
    input += std::string("DATA 100000 298 1e-9 11 ") + y + " 0.01\n";
  }
  return input;
}

double pbOf(double papb) { return 0.5 * (1.0 - std::sqrt(1.0 - 4.0 * papb)); }

TEST(MonteCalc, HasMeanAndSampleDeviationOfTheSimulations) {
  MonteCarlo monte(flatQuantity(""), 12);
  monte.run();
  Deviates draws;
  Numbers passes;
  for (int k = 0; k < 12; ++k) {
    double sum = 0.0;
    for (int i = 0; i < 4; ++i) sum += 0.16 + 0.01 * draws.next();
    passes.push_back(pbOf(sum / 4.0));
  }
  EXPECT_NEAR(monte.problem->calc.calcMean(0, 0), meanOf(passes), kStop);
  EXPECT_NEAR(monte.problem->calc.calcStdev(0, 0), sampleDeviation(passes), kStop);
}

TEST(MonteCalc, FeedsJackknifeSumsWhenAnyJackknifeWasAskedFor) {
  MonteCarlo plain(flatQuantity(""), 12);
  plain.run();
  const double mean = plain.problem->calc.calcMean(0, 0);
  const double stdev = plain.problem->calc.calcStdev(0, 0);
  MonteCarlo both(flatQuantity("JACK\n"), 12);
  both.problem->calc.storeResult(0, 0, 100.0);  // what a jackknife stored is forgotten
  both.run();
  // About a stored result of 0 the squares are plain, and the sample deviation is the same.
  EXPECT_DOUBLE_EQ(both.problem->calc.calcMean(0, 0), mean);
  EXPECT_NEAR(both.problem->calc.calcStdev(0, 0), stdev, 1e-12);
}

TEST(MonteCalc, JackknifeBeforeLeavesNoValuesBehind) {
  MonteCarlo monte(flatQuantity("JACK\n"), 2);
  monte.problem->fit().run_JACK();
  EXPECT_GT(monte.problem->calc.calcMean(0, 0), 0.0);
  monte.problem->calc.SetMonte(2, 0);
  monte.run();
  EXPECT_EQ(monte.problem->calc.calcMean(0, 0), 0.0);
}

// ---- dropped simulations ----

/// Points of error 1e308: where a deviate is beyond 1.797 in magnitude, the value overflows and the
/// simulation is dropped.
const std::string kOverflowing = "FUNCTION Constant\nMETHOD ONEEX\nSET s\nFIXED c 0\n" +
                                 data(0, 1, 1e308) + data(1, 1, 1e308) + "SET t\nFIXED c 0\n" +
                                 data(0, 1, 1e308);

struct DroppedReplay {
  std::vector<bool> kept;
  Numbers first;
  Numbers second;

  explicit DroppedReplay(int simulations) {
    Deviates draws;
    for (int k = 0; k < simulations; ++k) {
      const double g[] = {draws.next(), draws.next(), draws.next()};
      kept.push_back(std::all_of(std::begin(g), std::end(g),
                                 [](double deviate) { return std::isfinite(deviate * 1e308); }));
      if (!kept.back()) continue;
      first.push_back(g[0] * g[0] + g[1] * g[1]);
      second.push_back(g[2] * g[2]);
    }
  }
};

TEST(DroppedSimulation, CountsInPercentilesButNotInMeans) {
  constexpr int kSimulations = 40;
  MonteCarlo monte(kOverflowing, kSimulations);
  monte.run();
  DroppedReplay replay(kSimulations);
  const std::size_t stored = replay.first.size();
  ASSERT_GT(stored, 10U);
  ASSERT_LT(stored, 38U);
  EXPECT_NEAR(monte.centre().chi(0), meanOf(replay.first), 1e-12);
  EXPECT_NEAR(monte.spread().chi(0), sampleDeviation(replay.first), 1e-12);
  EXPECT_NEAR(monte.centre().chi(1), meanOf(replay.second), 1e-12);

  std::sort(replay.second.begin(), replay.second.end());
  const Fit& fit = monte.problem->fit();
  const auto fraction = [](std::size_t k) { return static_cast<double>(k) / kSimulations; };
  EXPECT_NEAR(fit.pchi(1, fraction(stored)), replay.second.back(), 1e-12);
  EXPECT_EQ(fit.pchi(1, fraction(stored + 1)), 9.999e99);
  EXPECT_EQ(fit.pchi(0, 1.0), 9.999e99) << "every set's list, not only that of the bad point";
}

TEST(DroppedSimulation, IsAnnouncedAndHasNoBlock) {
  constexpr int kSimulations = 40;
  MonteCarlo monte(kOverflowing, kSimulations);
  monte.run();
  const DroppedReplay replay(kSimulations);
  const auto dropped =
      static_cast<std::size_t>(std::count(replay.kept.begin(), replay.kept.end(), false));
  EXPECT_EQ(countOf(monte.console.text(), "# Simulation hit nan - not storing result\n"), dropped);
  const std::string file = monte.file();
  for (std::size_t k = 0; k < replay.kept.size(); ++k) {
    const std::string title = "\n#" + std::to_string(k + 1) + ": s\n";
    EXPECT_EQ(file.find(title) != std::string::npos, replay.kept[k]) << "simulation " << k + 1;
  }
}

class DroppingMethod : public testing::TestWithParam<const char*> {};

TEST_P(DroppingMethod, LeavesASimulationThatItCannotStart) {
  // An infinite error weighs nothing in the fit and makes every simulated value infinite.
  MonteCarlo monte(std::string("METHOD ") + GetParam() +
                       "\nFUNCTION Constant\nSET s\nFIXED c 1\nDATA 0 1 inf -\n",
                   3);
  monte.run();
  EXPECT_EQ(countOf(monte.console.text(), "# Simulation hit nan - not storing result\n"), 3U);
  EXPECT_EQ(monte.console.text().find("ERROR"), std::string::npos);
  EXPECT_TRUE(std::isnan(monte.centre().chi(0)));
  EXPECT_EQ(monte.spread().chi(0), 0.0);
  EXPECT_EQ(monte.file(), "Monte Carlo simulations (3)\n");
}

INSTANTIATE_TEST_SUITE_P(AnyMethod, DroppingMethod,
                         testing::Values("INIT", "ONE", "ONEEX", "GRID", "RANDOM 2", "MCMIN 2 0.1",
                                         "RMCMIN 2 2 0.1"),
                         [](const auto& method) {
                           const std::string word(method.param);
                           return word.substr(0, word.find(' '));
                         });

TEST(DroppedSimulation, DoesNotSpoilTheNextOne) {
  MonteCarlo monte("FUNCTION Constant\nMETHOD ONEEX\nSET s\nFIXED c 0\n" + data(0, 1, 1e308) +
                       "SET t\nPAR c 0 9 2 1\n" + data(0, 2) + data(1, 2) + data(2, 2),
                   30);
  monte.run();
  Deviates draws;
  Numbers means;
  for (int k = 0; k < 30; ++k) {
    const bool kept = std::isfinite(draws.next() * 1e308);
    double sum = 0.0;
    for (int i = 0; i < 3; ++i) sum += 2.0 + draws.next();
    if (kept) means.push_back(sum / 3.0);
  }
  ASSERT_LT(means.size(), 30U);
  EXPECT_NEAR(monte.centre().par[1], meanOf(means), kStop);
  EXPECT_NEAR(monte.spread().par[1], sampleDeviation(means), kStop);
}

}  // namespace
