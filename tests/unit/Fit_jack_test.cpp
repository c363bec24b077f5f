// Jackknife error analysis.
// SPDX-License-Identifier: GPL-3.0-or-later
#include "Problem.h"

#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cmath>
#include <csignal>
#include <cstddef>
#include <cstdio>
#include <filesystem>
#include <list>
#include <memory>
#include <ostream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace {

using problem::Captured;
using problem::data;
using problem::Options;
using problem::Problem;
using problem::readFile;
using problem::ScratchDirectory;
using problem::text;
using problem::writeFile;

using Numbers = std::vector<double>;

/// A gain below 1e-12 in chi-square ends a minimisation one step short: up to 1e-6 standard errors,
/// which are 1 or less in these fits.
constexpr double kStop = 1e-6;

/// A fit that has run, with its jackknife and the file of that.
struct Jackknife {
  explicit Jackknife(const std::string& input, Options options = {}) {
    options.output_file = output();
    problem = std::make_unique<Problem>(input, options);
    problem->fit().run_FIT(false);
    full = problem->fit().saved();
  }
  void run() { problem->fit().run_JACK(); }

  [[nodiscard]] std::string output() const { return (directory.path() / "out").string(); }
  [[nodiscard]] std::string file() const { return readFile(output() + "-jack"); }
  [[nodiscard]] double centre(const std::string& name) const {
    return problem->fit().centre().par[static_cast<std::size_t>(problem->parm(name))];
  }
  [[nodiscard]] double spread(const std::string& name) const {
    return problem->fit().spread().par[static_cast<std::size_t>(problem->parm(name))];
  }

  ScratchDirectory directory;
  Captured console{std::cerr};
  std::unique_ptr<Problem> problem;
  ParSet full;
};

std::string points(const Numbers& values, double dy = 1.0) {
  std::string lines;
  for (std::size_t i = 0; i < values.size(); ++i) {
    lines += data(static_cast<double>(i), values[i], dy);
  }
  return lines;
}

double meanOf(const Numbers& values) {
  double sum = 0.0;
  for (const double value : values) sum += value;
  return sum / static_cast<double>(values.size());
}

double squaresAround(const Numbers& values, double centre) {
  double sum = 0.0;
  for (const double value : values) sum += (value - centre) * (value - centre);
  return sum;
}

/// sqrt((n - 1)/n sum of squared deviations from the full fit).
double jackError(const Numbers& passes, double full) {
  const auto n = static_cast<double>(passes.size());
  return std::sqrt((n - 1.0) / n * squaresAround(passes, full));
}

/// Lines of the file that begin with this pass number and hold `key`, from `key` on.
std::vector<std::string> passLines(const std::string& file, int pass, const std::string& key) {
  std::vector<std::string> found;
  std::istringstream in(file);
  const std::string prefix = '#' + std::to_string(pass) + ':';
  for (std::string line; std::getline(in, line);) {
    const std::size_t at = line.find(key);
    if (line.compare(0, prefix.size(), prefix) == 0 && at != std::string::npos) {
      found.push_back(line.substr(at));
    }
  }
  return found;
}

// ---- global procedure ----

constexpr const char* kShared = "FUNCTION Constant\nMETHOD ONEEX\nGPAR C 0 9 1 1\n";

/// One mean that two sets share.
const Numbers kFirst = {1.0, 2.0, 4.5};
const Numbers kSecond = {3.0, 7.0, 2.5, 4.0};

std::string sharedMean() {
  return kShared + ("SET s\nPAR c C\n" + points(kFirst, 0.5)) + "SET t\nPAR c C\n" +
         points(kSecond, 0.5);
}

/// All values but the one at `out`.
Numbers without(Numbers values, std::size_t out) {
  values.erase(values.begin() + static_cast<std::ptrdiff_t>(out));
  return values;
}

Numbers both() {
  Numbers all = kFirst;
  all.insert(all.end(), kSecond.begin(), kSecond.end());
  return all;
}

TEST(JackknifeGlobal, LeavesOutEveryPointOnce) {
  Jackknife jack(sharedMean());
  jack.run();
  const Numbers all = both();
  Numbers passes;
  for (std::size_t i = 0; i < all.size(); ++i) passes.push_back(meanOf(without(all, i)));
  EXPECT_NEAR(jack.centre("GLOBAL::C"), meanOf(passes), kStop);
  EXPECT_NEAR(jack.spread("GLOBAL::C"), jackError(passes, meanOf(all)), kStop);
}

TEST(JackknifeGlobal, ChiSquaresAreThoseOfTheSmallerData) {
  Jackknife jack(sharedMean());
  jack.run();
  const Numbers all = both();
  Numbers first, second, total;
  for (std::size_t i = 0; i < all.size(); ++i) {
    const double c = meanOf(without(all, i));
    const bool in_first = i < kFirst.size();
    first.push_back(4.0 * squaresAround(in_first ? without(kFirst, i) : kFirst, c));
    second.push_back(4.0 *
                     squaresAround(in_first ? kSecond : without(kSecond, i - kFirst.size()), c));
    total.push_back(first.back() + second.back());
  }
  const ParSet& centre = jack.problem->fit().centre();
  const ParSet& spread = jack.problem->fit().spread();
  const double c = meanOf(all);
  EXPECT_NEAR(centre.chi(0), meanOf(first), kStop);
  EXPECT_NEAR(centre.chi(1), meanOf(second), kStop);
  EXPECT_NEAR(centre.total(), meanOf(total), kStop);
  EXPECT_NEAR(spread.chi(0), jackError(first, 4.0 * squaresAround(kFirst, c)), kStop);
  EXPECT_NEAR(spread.chi(1), jackError(second, 4.0 * squaresAround(kSecond, c)), kStop);
  EXPECT_NEAR(spread.total(), jackError(total, 4.0 * squaresAround(all, c)), kStop);
}

TEST(JackknifeGlobal, DeviationsAreFromTheFullFitNotFromTheMeanOfThePasses) {
  // The full fit has only INIT: c = 1. The passes fit.
  Jackknife jack("FUNCTION Constant\nGPAR C 0 9 1 1\nSET s\nPAR c C\n" + points({3, 4, 5}) +
                 "SET t\nPAR c C\n" + points({3, 4, 5}));
  jack.problem->setup.resetMETHOD_ONEEX(jack.problem->method);
  jack.run();
  const Numbers passes = {4.2, 4.0, 3.8, 4.2, 4.0, 3.8};
  EXPECT_NEAR(jack.centre("GLOBAL::C"), 4.0, kStop);
  EXPECT_NEAR(jack.spread("GLOBAL::C"), jackError(passes, 1.0), kStop);
}

TEST(JackknifeGlobal, EveryPassStartsFromTheFullFit) {
  // With INIT alone a pass shows where it started.
  Jackknife jack(sharedMean());
  jack.problem->method = Method();
  jack.run();
  EXPECT_EQ(jack.spread("GLOBAL::C"), 0.0);
  EXPECT_EQ(jack.problem->fit().best().par, jack.full.par);
}

TEST(JackknifeGlobal, PassesHaveOneDegreeLessInEverySetAndAllOfThemInTotal) {
  Jackknife jack(sharedMean());
  ASSERT_EQ(jack.problem->pardef.lDoF(0), 2);
  ASSERT_EQ(jack.problem->pardef.lDoF(1), 3);
  ASSERT_EQ(jack.problem->pardef.gDoF(), 6);
  jack.run();
  const std::string file = jack.file();
  for (int pass = 1; pass <= 7; ++pass) {
    const std::vector<std::string> dofs = passLines(file, pass, "(DoF");
    EXPECT_EQ(dofs, (std::vector<std::string>{"(DoF = 1)", "(DoF = 2)", "(DoF = 6)"}));
  }
  EXPECT_TRUE(passLines(file, 8, "").empty());
}

TEST(JackknifeGlobal, LeavesListsAndLocalDegreesAsTheyWereAndTheTotalOneHigher) {
  Jackknife jack(sharedMean());
  jack.run();
  const ParDef& pardef = jack.problem->pardef;
  EXPECT_EQ(pardef.allPoints(), (std::vector<int>{0, 1, 2, 3, 4, 5, 6}));
  EXPECT_EQ(pardef.points(0), (std::vector<int>{0, 1, 2}));
  EXPECT_EQ(pardef.points(1), (std::vector<int>{3, 4, 5, 6}));
  EXPECT_EQ(pardef.lDoF(0), 2);
  EXPECT_EQ(pardef.lDoF(1), 3);
  EXPECT_EQ(pardef.gDoF(), 7) << "6 before: the asymmetry is intended";
}

TEST(JackknifeGlobal, ListsAreRestoredWhereTheSetsOfTheInputAlternateInSize) {
  const std::string one = "FUNCTION Constant\nMETHOD ONEEX\nGPAR C 0 9 1 1\n";
  Jackknife jack(one + "SET s\nFIXED c 1\n" + points({1}) + "SET t\nPAR c C\n" + points({1, 2, 4}) +
                 "SET u\nPAR c C\n" + points({3, 3}));
  jack.run();
  EXPECT_EQ(jack.problem->pardef.points(0), std::vector<int>{0});
  EXPECT_EQ(jack.problem->pardef.points(1), (std::vector<int>{1, 2, 3}));
  EXPECT_EQ(jack.problem->pardef.points(2), (std::vector<int>{4, 5}));
}

TEST(JackknifeGlobal, LeavesTheSavedFitAlone) {
  Jackknife jack(sharedMean());
  jack.run();
  EXPECT_EQ(jack.problem->fit().saved().par, jack.full.par);
  EXPECT_EQ(jack.problem->fit().saved().total(), jack.full.total());
}

TEST(JackknifeGlobal, ParameterThatLosesItsOnlyPointKeepsTheFullFit) {
  Jackknife jack(
      "FUNCTION CPMG_const\nMETHOD ONEEX\nGPAR R 1 9 1 1\n"
      "SET s\nPAR R20_1_1 R\nPAR R20_1_2 4 9 1 5\n"
      "DATA 100 298 1 12 8 1\nDATA 100 298 1 11 3 1\nDATA 100 298 1 11 4 1\n"
      "SET t\nPAR R20_1_1 R\nDATA 100 298 1 11 5 1\nDATA 100 298 1 11 8 1\n");
  jack.run();
  EXPECT_NEAR(jack.spread("s::R20_1_2"), 0.0, kStop);
  EXPECT_NEAR(jack.centre("s::R20_1_2"), 8.0, kStop);
  EXPECT_NE(jack.console.text().find("ERROR: Standard deviations cannot be computed\n"),
            std::string::npos)
      << "in the pass without that point";
}

TEST(JackknifeGlobal, ChiSquaresAreRecordedUnderTheLabelsOfAFullFit) {
  Jackknife init("FUNCTION Constant\nGPAR C 0 9 1 2\nSET s\nPAR c C\n" + points({1, 3}) +
                 "SET t\nPAR c C\n" + points({1, 3}));
  init.run();
  // chi-square 3 of three points, over 4 - 1 degrees of freedom
  EXPECT_EQ(init.problem->fit().chiLines().at(1), "# INIT         X2/DoF = 1");
}

// ---- local procedure ----

/// The lists that the passes of a set fit: the first entry goes, the entry that stood at the
/// pass's own position comes back at the end.
struct Displaced {
  std::vector<std::vector<int>> fitted;
  std::vector<int> last;
};

Displaced displace(int first, int n) {
  std::list<int> list;
  for (int i = 0; i < n; ++i) list.push_back(first + i);
  Displaced lists;
  for (int j = 1; j <= n; ++j) {
    const int remembered = *std::next(list.begin(), j - 1);
    list.pop_front();
    lists.fitted.emplace_back(list.begin(), list.end());
    list.push_back(remembered);
  }
  lists.last.assign(list.begin(), list.end());
  return lists;
}

Numbers pick(const Numbers& values, const std::vector<int>& positions) {
  Numbers picked;
  for (const int i : positions) picked.push_back(values[static_cast<std::size_t>(i)]);
  return picked;
}

TEST(JackknifeLocal, ThreePointsAreFittedAsBcCaAcAndEndAsAcc) {
  ASSERT_EQ(displace(0, 3).fitted, (std::vector<std::vector<int>>{{1, 2}, {2, 0}, {0, 2}}));
  ASSERT_EQ(displace(0, 3).last, (std::vector<int>{0, 2, 2}));
  // a = 1, b = 2, c = 6: means 4, 3.5 and 3.5; b is left out twice, c never.
  Jackknife jack("FUNCTION Constant\nMETHOD ONEEX\nSET s\nPAR c 1\n" + points({1, 2, 6}));
  jack.run();
  EXPECT_NEAR(jack.centre("s::c"), 11.0 / 3.0, kStop);
  EXPECT_NEAR(jack.spread("s::c"), std::sqrt(2.0 / 3.0 * (1.0 + 0.25 + 0.25)), kStop);
  EXPECT_NEAR(jack.problem->fit().centre().chi(0), (8.0 + 12.5 + 12.5) / 3.0, kStop);
  EXPECT_EQ(jack.problem->pardef.points(0), (std::vector<int>{0, 2, 2}));
}

/// Two sets of unequal errors, their pass values and chi-squares replayed.
struct Replay {
  Numbers y[2] = {{1.0, 2.5, 4.0, 3.0, 7.5, 6.0, 2.0}, {-1.0, 5.0, 2.5, 8.0, 4.0}};
  double dy[2] = {0.5, 2.0};
  Numbers value[2];
  Numbers chi[2];
  Numbers total;
  double full[2] = {0.0, 0.0};
  double full_chi[2] = {0.0, 0.0};

  Replay() {
    for (int s = 0; s < 2; ++s) {
      full[s] = meanOf(y[s]);
      full_chi[s] = chiOf(s, y[s], full[s]);
    }
    for (int s = 0; s < 2; ++s) {
      const Displaced lists = displace(0, static_cast<int>(y[s].size()));
      const int other = 1 - s;
      // An earlier set stays displaced, a later one is still whole.
      const Numbers others =
          s == 0 ? y[1] : pick(y[0], displace(0, static_cast<int>(y[0].size())).last);
      for (const std::vector<int>& list : lists.fitted) {
        const Numbers left = pick(y[s], list);
        value[s].push_back(meanOf(left));
        chi[s].push_back(chiOf(s, left, value[s].back()));
        total.push_back(chi[s].back() + chiOf(other, others, full[other]));
      }
    }
  }
  [[nodiscard]] double chiOf(int s, const Numbers& values, double c) const {
    return squaresAround(values, c) / (dy[s] * dy[s]);
  }
  [[nodiscard]] std::string input(const std::string& method) const {
    return "FUNCTION Constant\nMETHOD " + method + "\nSET s\nPAR c 0 9 2 1\n" +
           points(y[0], dy[0]) + "SET t\nPAR c 0 9 2 1\n" + points(y[1], dy[1]);
  }
};

class JackknifeLocalMethod : public testing::TestWithParam<const char*> {};

TEST_P(JackknifeLocalMethod, AgreesWithTheReplayedLists) {
  const Replay replay;
  Options options;
  problem::FakeClock::start(7);
  options.random = Random(problem::FakeClock::now);
  Jackknife jack(replay.input(GetParam()), options);
  jack.run();
  const ParSet& centre = jack.problem->fit().centre();
  const ParSet& spread = jack.problem->fit().spread();
  for (std::size_t s = 0; s < 2; ++s) {
    const int set = static_cast<int>(s);
    EXPECT_NEAR(centre.par[s], meanOf(replay.value[s]), kStop);
    EXPECT_NEAR(spread.par[s], jackError(replay.value[s], replay.full[s]), kStop);
    EXPECT_NEAR(centre.chi(set), meanOf(replay.chi[s]), kStop);
    EXPECT_NEAR(spread.chi(set), jackError(replay.chi[s], replay.full_chi[s]), kStop);
  }
  const double full_total = replay.full_chi[0] + replay.full_chi[1];
  EXPECT_NEAR(centre.total(), meanOf(replay.total), kStop);
  EXPECT_NEAR(spread.total(), jackError(replay.total, full_total), kStop);
}

INSTANTIATE_TEST_SUITE_P(Methods, JackknifeLocalMethod,
                         testing::Values("ONE", "ONEEX", "GRID", "RANDOM 3", "MCMIN 2 0.1",
                                         "RMCMIN 2 2 0.1"),
                         [](const auto& method) {
                           std::string word(method.param);
                           return word.substr(0, word.find(' '));
                         });

TEST(JackknifeLocal, EveryBlockShowsItsPass) {
  const Replay replay;
  Jackknife jack(replay.input("ONEEX"));
  jack.run();
  std::ostringstream expected;
  expected << "Jackknife simulations (12)\n";
  std::size_t pass = 0;
  for (std::size_t s = 0; s < 2; ++s) {
    const int dof = s == 0 ? 5 : 3;
    for (std::size_t j = 1; j <= replay.y[s].size(); ++j, ++pass) {
      expected << '#' << j << ": "
               << "st"[s] << "\n#" << j << ":\tc\t" << replay.value[s][j - 1] << "\n#" << j
               << ":\tX2/DoF\t" << replay.chi[s][j - 1] / dof << "\t(DoF = " << dof << ")\n#" << j
               << ": GLOBAL X2/DoF\t" << replay.total[pass] / 9 << "\t(DoF = 9)\n\n";
    }
  }
  EXPECT_EQ(jack.file(), expected.str());
}

TEST(JackknifeLocal, LeavesDegreesOfFreedomAsTheyWere) {
  const Replay replay;
  Jackknife jack(replay.input("ONE"));
  jack.run();
  EXPECT_EQ(jack.problem->pardef.gDoF(), 10);
  EXPECT_EQ(jack.problem->pardef.lDoF(0), 6);
  EXPECT_EQ(jack.problem->pardef.lDoF(1), 4);
}

TEST(JackknifeLocal, LeavesTheListsDisplacedAndTheListOfAllPointsAlone) {
  const Replay replay;
  Jackknife jack(replay.input("ONE"));
  jack.run();
  EXPECT_EQ(jack.problem->pardef.points(0), displace(0, 7).last);
  EXPECT_EQ(jack.problem->pardef.points(1), displace(7, 5).last);
  EXPECT_EQ(jack.problem->pardef.allPoints(),
            (std::vector<int>{0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11}));
}

TEST(JackknifeLocal, FixedValueThatSetsShareIsAveragedAsItself) {
  Jackknife jack("FUNCTION Linear\nMETHOD ONE\nGFIXED k 0.7\nSET s\nPAR a 1\nPAR b k\n" +
                 points({1, 2, 2}) + "SET t\nPAR a 1\nPAR b k\n" + points({1, 2, 2, 5}));
  jack.run();
  EXPECT_NEAR(jack.centre("GLOBAL::k"), 0.7, 1e-15);
  EXPECT_EQ(jack.spread("GLOBAL::k"), 0.0);
}

TEST(JackknifeLocal, OnlyTheSetOfThePassIsFitted) {
  // The full fit has only INIT; a pass then fits its own set and no other.
  Jackknife jack("FUNCTION Constant\nSET s\nPAR c 1\n" + points({3, 5}) + "SET t\nPAR c 2\n" +
                 points({4, 6}));
  jack.problem->setup.resetMETHOD_ONEEX(jack.problem->method);
  jack.run();
  // s: {5}, {3}; then t: {6}, {4} with s back at 1, where its list, 3 twice by now, has chi-square
  // 4 + 4.
  EXPECT_EQ(passLines(jack.file(), 1, "c\t"), (std::vector<std::string>{"c\t5", "c\t6"}));
  EXPECT_EQ(jack.problem->fit().best().par[0], 1.0);
  EXPECT_NEAR(jack.problem->fit().best().total(), 8.0, 1e-12);
}

TEST(JackknifeLocal, ChiSquaresAreRecordedUnderTheShorterLabels) {
  const std::string methods =
      "METHOD ONE\nMETHOD ONEEX\nMETHOD GRID\nMETHOD RANDOM 1\nMETHOD MCMIN 1 0.1\n"
      "METHOD RMCMIN 1 1 0.1\n";
  const std::string set = "SET s\nPAR c 0 9 1 2\n" + points({1, 3, 3, 1});
  ScratchDirectory directory;
  Options options;
  options.output_file = (directory.path() / "out").string();
  Problem fresh("FUNCTION Constant\n" + methods + set, options);
  // A full fit of INIT alone leaves room for the lines of the first pass.
  const Method all = fresh.method;
  fresh.method = Method();
  fresh.fit().run_FIT(false);
  fresh.method = all;
  fresh.fit().run_JACK();
  // chi-square 4 in full over 3; the first pass, {3, 3, 1}, has 3 at 2 and 8/3 at its mean, over 2
  EXPECT_EQ(fresh.fit().chiLines(),
            (std::vector<std::string>{
                "# INIT         X2/DoF = 1.33333", "# INIT       X2/DoF = 1.5",
                "# ONE          X2/DoF = 1.33333", "# ONEEX        X2/DoF = 1.33333",
                "# GRID        X2/DoF = 1.33333", "# RANDOM      X2/DoF = 1.33333",
                "# MCMIN       X2/DoF = 1.33333"}));
}

TEST(JackknifeLocal, LastLabelIsThatOfRmcmin) {
  ScratchDirectory directory;
  Options options;
  options.output_file = (directory.path() / "out").string();
  Problem problem("FUNCTION Constant\nMETHOD RMCMIN 1 1 0.1\nMETHOD INIT\nSET s\nPAR c 0 9 1 2\n" +
                      points({1, 3, 3, 1}),
                  options);
  const Method all = problem.method;
  problem.method = Method();
  problem.fit().run_FIT(false);
  problem.method = all;
  problem.fit().run_JACK();
  EXPECT_EQ(problem.fit().chiLines().at(2), "# RMCMIN      X2/DoF = 1.33333");
}

TEST(JackknifeLocal, ConsoleCountsPassesOverAllSetsAndPointsWithinOne) {
  Options options;
  options.verbosity = 1;
  Jackknife jack("FUNCTION Constant\nSET s\nPAR c 1\n" + points({3, 5}) + "SET t\nPAR c 2\n" +
                     points({4, 6, 7}),
                 options);
  jack.run();
  std::istringstream in(jack.console.text());
  std::vector<std::string> titles;
  for (std::string line; std::getline(in, line);) {
    if (line.rfind("# Jack", 0) == 0) titles.push_back(line);
  }
  EXPECT_EQ(titles,
            (std::vector<std::string>{
                "# Jackknife simulation #1/5 (s #1/2)", "# Jackknife simulation #2/5 (s #2/2)",
                "# Jackknife simulation #3/5 (t #1/3)", "# Jackknife simulation #4/5 (t #2/3)",
                "# Jackknife simulation #5/5 (t #3/3)"}));
}

// ---- derived quantities ----

/// A flat curve whose PB is that of R20.
std::string flat(const std::string& first_parameter) {
  std::string lines =
      "FUNCTION CPMG_Meiboom\nMETHOD ONEEX\nCALC PB pb 0 0 1 11\nJACK\n" + first_parameter;
  for (const std::string title : {"s", "t"}) {
    lines += "SET " + title + "\nFIXED kex 1000\nFIXED pdw 1000\n" +
             (first_parameter.empty() ? "PAR R20 0.1 0.25 1 0.15\n" : "PAR R20 R\n");
    for (const char* y : {"0.15", "0.17", "0.13", "0.19"}) {
      lines += std::string("DATA 100000 298 1e-9 11 ") + y + " 0.01\n";
    }
  }
  return lines;
}

double pbOf(double papb) { return 0.5 * (1.0 - std::sqrt(1.0 - 4.0 * papb)); }

TEST(JackknifeCalc, ValuesOfTheFullFitAreStoredOnceBeforeALocalProcedure) {
  Jackknife jack(flat(""));
  jack.run();
  const Numbers y = {0.15, 0.17, 0.13, 0.19};
  Numbers passes;
  for (const std::vector<int>& list : displace(0, 4).fitted) {
    passes.push_back(pbOf(meanOf(pick(y, list))));
  }
  for (const int set : {0, 1}) {
    EXPECT_NEAR(jack.problem->calc.calcMean(set, 0), meanOf(passes), kStop);
    EXPECT_NEAR(jack.problem->calc.calcJackStdev(set, 0), jackError(passes, pbOf(0.16)), kStop);
  }
}

TEST(JackknifeCalc, ValuesOfTheFullFitAreStoredOnceBeforeAGlobalProcedure) {
  Jackknife jack(flat("GPAR R 0.1 0.25 1 0.15\n"));
  jack.run();
  const Numbers y = {0.15, 0.17, 0.13, 0.19, 0.15, 0.17, 0.13, 0.19};
  Numbers passes;
  for (std::size_t i = 0; i < y.size(); ++i) passes.push_back(pbOf(meanOf(without(y, i))));
  for (const int set : {0, 1}) {
    EXPECT_NEAR(jack.problem->calc.calcMean(set, 0), meanOf(passes), kStop);
    EXPECT_NEAR(jack.problem->calc.calcJackStdev(set, 0), jackError(passes, pbOf(0.16)), kStop);
  }
}

TEST(JackknifeCalc, PassesAddNoJackknifeValuesWhenNoneWasAskedFor) {
  Jackknife jack(flat(""));
  jack.problem->calc.SetJack(0);
  jack.run();
  // addVal: the sample deviation is then that of the plain squares.
  Numbers passes;
  for (const std::vector<int>& list : displace(0, 4).fitted) {
    passes.push_back(pbOf(meanOf(pick({0.15, 0.17, 0.13, 0.19}, list))));
  }
  EXPECT_NEAR(jack.problem->calc.calcStdev(0, 0),
              std::sqrt(squaresAround(passes, meanOf(passes)) / 3.0), kStop);
}

// ---- passes that are not finite ----

TEST(JackknifeLocal, PassThatOverflowsDoesNotEndTheRun) {
  // Of four points a to d the last pass fits {a, c, a}, in which the chi-square of a overflows.
  Jackknife jack("FUNCTION Constant\nMETHOD ONE\nSET s\nFIXED c 0\n" +
                 points({1.2e154, 1.0, 1.0, 1.0}));
  EXPECT_EXIT(
      {
        jack.run();
        std::exit(0);
      },
      testing::ExitedWithCode(0), "");
}

// ---- the file ----

/// A child process that runs the program with its table on, whose channel nobody empties: it cannot
/// get far ahead of the reader.
class Program {
 public:
  Program(const std::filesystem::path& directory, const std::string& input) {
    writeFile(directory / "t.in", input);
    std::array<int, 2> ends{};
    if (pipe(ends.data()) != 0) throw std::runtime_error("no pipe");
    child_ = fork();
    if (child_ == 0) {
      dup2(ends[1], STDERR_FILENO);
      close(ends[0]);
      close(ends[1]);
      if (chdir(directory.c_str()) == 0) {
        execl(DRAVO_PROGRAM, "dravo", "-v", "-i", "t.in", "-o", "t.out", nullptr);
      }
      _exit(127);
    }
    close(ends[1]);
    stderr_ = ends[0];
  }
  ~Program() {
    if (child_ > 0) kill();
    close(stderr_);
  }
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;
  Program(Program&&) = delete;
  Program& operator=(Program&&) = delete;

  /// Reads the channel until `text` has come; false when the process ends before.
  bool waitFor(const std::string& text) {
    std::array<char, 1> byte{};
    while (read(stderr_, byte.data(), 1) == 1) {
      seen_ += byte[0];
      if (seen_.size() >= text.size() &&
          seen_.compare(seen_.size() - text.size(), text.size(), text) == 0) {
        return true;
      }
    }
    return false;
  }
  /// Stops the process at once; returns the signal that ended it, 0 if it had ended by itself.
  int kill() {
    ::kill(child_, SIGKILL);
    int status = 0;
    waitpid(child_, &status, 0);
    child_ = 0;
    return WIFSIGNALED(status) ? WTERMSIG(status) : 0;
  }

 private:
  pid_t child_ = 0;
  int stderr_ = -1;
  std::string seen_;
};

std::size_t countOf(const std::string& text, const std::string& part) {
  std::size_t count = 0;
  for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
    ++count;
  }
  return count;
}

struct KilledRow {
  const char* name;
  const char* analysis;
  const char* globals;
  const char* parameter;
  const char* suffix;
  const char* title;
};

void PrintTo(const KilledRow& row, std::ostream* out) { *out << row.name; }

class KilledRun : public testing::TestWithParam<KilledRow> {};

TEST_P(KilledRun, HasTheBlocksOfAllFinishedPassesOnDisk) {
  const KilledRow& row = GetParam();
  const ScratchDirectory directory;
  std::string input = std::string("FUNCTION Constant\nMETHOD ONE\n") + row.analysis + row.globals;
  // More passes than the channel holds lines.
  for (const std::string title : {"s", "t"}) {
    input += "SET " + title + "\n" + row.parameter;
    for (int i = 0; i < 1000; ++i) input += data(i, 1.0 + i % 7);
  }
  Program program(directory.path(), input);
  constexpr int kPasses = 20;
  ASSERT_TRUE(program.waitFor(row.title + std::to_string(kPasses + 1) + "/2000"));
  ASSERT_EQ(program.kill(), SIGKILL);
  const std::string file = readFile(directory.path() / (std::string("t.out") + row.suffix));
  // Whole blocks, each closed by an empty line.
  EXPECT_GE(countOf(file, ")\n\n"), std::size_t{kPasses});
  EXPECT_EQ(file.substr(file.size() - 3), ")\n\n");
}

INSTANTIATE_TEST_SUITE_P(Analyses, KilledRun,
                         testing::Values(KilledRow{"global_jackknife", "JACK\n", "GPAR C 0 9 2 1\n",
                                                   "PAR c C\n", "-jack",
                                                   "# Jackknife simulation #"},
                                         KilledRow{"local_jackknife", "JACK\n", "", "PAR c 1\n",
                                                   "-jack", "# Jackknife simulation #"},
                                         KilledRow{"monte_carlo", "MONTE 2000\n", "", "PAR c 1\n",
                                                   "-monte", "# Monte Carlo simulation #"}),
                         [](const auto& row) { return std::string(row.param.name); });

}  // namespace
