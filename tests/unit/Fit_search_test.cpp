// Search strategies: what they try, keep, count and show.
// SPDX-License-Identifier: GPL-3.0-or-later
#include "Problem.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace {

using problem::Captured;
using problem::data;
using problem::FakeClock;
using problem::kInf;
using problem::kNaN;
using problem::Options;
using problem::Problem;

// ---- the console table ----

/// One line of the console table.
struct Row {
  std::string method;
  int set = 0;  ///< 0: no set field
  int counter = 0;
  int total = 0;
  double start = 0.0;
  double result = 0.0;
  double best = 0.0;
};

/// Reads "number.method (set, counter/total)  start -> result | best".
Row readRow(const std::string& line) {
  const std::size_t dot = line.find('.');
  const std::size_t open = line.find('(');
  const std::size_t slash = line.find('/');
  const std::size_t close = line.find(')');
  const std::size_t comma = line.find(',');
  Row row;
  row.method = line.substr(dot + 1, line.find(' ') - dot - 1);
  std::size_t counter = open + 1;
  if (comma < slash) {
    row.set = std::stoi(line.substr(counter));
    counter = comma + 1;
  }
  row.counter = std::stoi(line.substr(counter));
  row.total = std::stoi(line.substr(slash + 1));
  std::istringstream numbers(line.substr(close + 1));
  std::string start, arrow, result, bar, best;
  numbers >> start >> arrow >> result >> bar >> best;
  EXPECT_EQ(arrow + bar, "->|") << line;
  row.start = std::stod(start);
  row.result = std::stod(result);
  row.best = std::stod(best);
  return row;
}

/// The lines of the table, each of which begins with a carriage return.
std::vector<Row> rows(const std::string& console) {
  std::vector<Row> table;
  std::size_t begin = console.find('\r');
  while (begin != std::string::npos) {
    const std::size_t end = console.find('\r', begin + 1);
    table.push_back(readRow(console.substr(begin + 1, end - begin - 1)));
    begin = end;
  }
  return table;
}

template <class Member>
std::vector<Member> column(const std::vector<Row>& table, Member Row::*member) {
  std::vector<Member> entries;
  for (const Row& row : table) entries.push_back(row.*member);
  return entries;
}

// ---- a model whose values are a script ----

/// A parameter on which chi-square seems not to depend: the minimiser stays where it is put. The
/// value at x = 0 is read from a list, one entry for each call, the last one for ever; 0 elsewhere.
struct Script {
  std::vector<double> values;
  std::vector<double> asked;  ///< values of the parameter
};
Script script;

double flat(const Data& d, double* p, std::vector<double>& dydp,
            const std::vector<bool>& /*skip*/) {
  if (!dydp.empty()) dydp[d.slot(0)] = 0.0;
  if (d.x[0] != 0.0) return 0.0;
  const std::size_t call = script.asked.size();
  script.asked.push_back(p[0]);
  return script.values[std::min(call, script.values.size() - 1)];
}

/// y = p, refused at x = 1 where p is above 5; seems to depend on nothing.
double cliff(const Data& d, double* p, std::vector<double>& dydp,
             const std::vector<bool>& /*skip*/) {
  if (!dydp.empty()) dydp[d.slot(0)] = 0.0;
  if (d.x[0] > 0.0 && p[0] > 5.0) return kNaN;
  return p[0];
}

/// Two minima in q: residuals q^2 - 1 and (q - 1)/10; and g alone at x = 2, a copy of it at x = 3.
double wells(const Data& d, double* p, std::vector<double>& dydp,
             const std::vector<bool>& /*skip*/) {
  const double q = p[0], g = p[1];
  double by_q = 0.0;
  double by_g = 0.0;
  double y = g;
  if (d.x[0] == 0.0) {
    y = q * q - 1.0;
    by_q = 2.0 * q;
  } else if (d.x[0] == 1.0) {
    y = 0.1 * (q - 1.0);
    by_q = 0.1;
  } else {
    by_g = 1.0;
  }
  if (!dydp.empty()) {
    dydp[d.slot(0)] = by_q;
    dydp[d.slot(1)] = by_g;
  }
  return y;
}

Options toys() {
  Options options;
  options.models = {{flat, "Flat", {{"p", -1e9, 1e9, ""}}},
                    {cliff, "Cliff", {{"p", -1e9, 1e9, ""}}},
                    {wells, "Wells", {{"q", -9, 9, ""}, {"g", -9, 9, ""}}}};
  options.verbosity = 1;
  options.random = Random(FakeClock::now);
  return options;
}

/// One set of the scripted model: chi-square is the square of the script, 1 degree of freedom.
std::string flatSet(const std::string& parameter) {
  return "FUNCTION Flat\nSET s\n" + parameter + "\n" + data(0, 0) + data(1, 0);
}

/// What `run` writes to the console after INIT, with the script starting at the INIT evaluation.
template <class Run>
std::string consoleOf(Problem& problem, std::vector<double> values, Run run) {
  script = {std::move(values), {}};
  Captured console(std::cerr);
  problem.fit().run_INIT(0, false);
  const std::size_t before = console.text().size();
  run(problem.fit());
  return console.text().substr(before);
}

using Numbers = std::vector<double>;
using Counts = std::vector<int>;

// ---- INIT ----

TEST(Init, PutsTheInitialValuesIntoTheBestSetAndEvaluatesThem) {
  Problem problem("FUNCTION Linear\nSET s\nPAR a 1 9 3 4\nPAR b 2\n" + data(0, 3) + data(1, 7) +
                  data(2, 8));
  problem.fit().run_INIT(0, false);
  EXPECT_EQ(problem.fit().best().par, (Numbers{4, 2}));
  EXPECT_EQ(problem.fit().best().total(), 1 + 1 + 0);
  EXPECT_EQ(problem.fit().chiLines().back(), "# INIT         X2/DoF = 2");
}

// ---- ONE ----

TEST(One, KeepsAnImprovement) {
  Problem problem(flatSet("PAR p 3"), toys());
  const auto table = rows(consoleOf(problem, {10, 9}, [](Fit& fit) { fit.run_ONE(1); }));
  ASSERT_EQ(table.size(), 1U);
  EXPECT_EQ(table[0].method, "ONE");
  EXPECT_EQ(table[0].set, 1);
  EXPECT_EQ(table[0].counter, 1);
  EXPECT_EQ(table[0].total, 1);
  EXPECT_EQ(table[0].start, 100);
  EXPECT_EQ(table[0].result, 81);
  EXPECT_EQ(table[0].best, 81);
  EXPECT_EQ(problem.fit().best().total(), 81.0);
}

TEST(One, KeepsNothingWorse) {
  Problem problem(flatSet("PAR p 3"), toys());
  const auto table = rows(consoleOf(problem, {10, 11}, [](Fit& fit) { fit.run_ONE(1); }));
  ASSERT_EQ(table.size(), 1U);
  EXPECT_EQ(table[0].result, 100);  // the best set again
  EXPECT_EQ(problem.fit().best().total(), 100.0);
}

TEST(One, EachSetIsFittedAlone) {
  Problem problem("FUNCTION Constant\nSET s\nPAR c 1\n" + data(0, 2) + data(0, 4) +
                      "SET t\nPAR c 1\n" + data(0, 10) + data(0, 14),
                  toys());
  const std::string console = consoleOf(problem, {0}, [](Fit& fit) { fit.run_ONE(1); });
  const auto table = rows(console);
  EXPECT_EQ(column(table, &Row::set), (Counts{1, 2}));
  // Chi-squares 10 and 250 at the start, 2 and 8 at the means, over 2 degrees of freedom.
  EXPECT_EQ(column(table, &Row::start), (Numbers{130, 126}));
  EXPECT_EQ(column(table, &Row::result), (Numbers{126, 5}));
  EXPECT_EQ(column(table, &Row::best), (Numbers{126, 5}));
  EXPECT_EQ(console.back(), '\n');
  EXPECT_NEAR(problem.value("s::c"), 3, 1e-6);
  EXPECT_NEAR(problem.value("t::c"), 12, 1e-6);
}

// ---- ONEEX ----

TEST(OneEx, GoesOnFromItsOwnResultUntilNothingImproves) {
  Problem problem(flatSet("PAR p 3"), toys());
  const auto table = rows(consoleOf(problem, {10, 9, 8, 8}, [](Fit& fit) { fit.run_ONEEX(1); }));
  EXPECT_EQ(column(table, &Row::start), (Numbers{100, 81, 64}));
  EXPECT_EQ(column(table, &Row::result), (Numbers{81, 64, 64}));
  EXPECT_EQ(column(table, &Row::best), (Numbers{81, 64, 64}));
  EXPECT_EQ(column(table, &Row::counter), (Counts{1, 1, 1}));
  EXPECT_EQ(column(table, &Row::total), (Counts{1, 1, 1}));
}

TEST(OneEx, FirstPassIsComparedWithInfinitySoThatASecondOneFollows) {
  Problem problem(flatSet("PAR p 3"), toys());
  const auto table = rows(consoleOf(problem, {10, 10, 9, 9}, [](Fit& fit) { fit.run_ONEEX(1); }));
  EXPECT_EQ(column(table, &Row::result), (Numbers{100, 81, 81}));
}

TEST(OneEx, EndsAfterTwoPassesWithoutAGain) {
  Problem problem(flatSet("PAR p 3"), toys());
  const auto table = rows(consoleOf(problem, {10, 10, 11, 9}, [](Fit& fit) { fit.run_ONEEX(1); }));
  EXPECT_EQ(column(table, &Row::result), (Numbers{100, 100}));
  EXPECT_EQ(problem.fit().best().total(), 100.0);
}

TEST(OneEx, GainThatTheTotalDoesNotShowEndsIt) {
  // Beside 1e8 of the first set a gain of 1e-10 in the second is below the total's last digit.
  Problem problem("FUNCTION Flat\nSET s\nFIXED p 3\n" + data(1, 1e4) + "SET t\nPAR p 3\n" +
                      data(0, 0) + data(1, 0),
                  toys());
  const double y = 1.0 - 5e-11;
  const auto table = rows(
      consoleOf(problem, {1, y, 1.0 - 10e-11, 0.5}, [](Fit& fit) { fit.run_localONEEX(1, 1); }));
  EXPECT_EQ(table.size(), 2U);
}

// ---- GRID values ----

/// Grid values 0 ... n - 1 of a parameter from 1 to 101 with this points token.
Numbers gridValues(const std::string& points) {
  Problem problem("FUNCTION Constant\nSET s\nPAR c 1 101 " + points + "\n" + data(0, 2) +
                  data(0, 4));
  Numbers values;
  for (int i = 0; i < problem.pardef.grd_size(0); ++i) {
    values.push_back(problem.fit().set_grid(0, i));
  }
  return values;
}

void expectNear(const Numbers& actual, const Numbers& expected) {
  ASSERT_EQ(actual.size(), expected.size());
  for (std::size_t i = 0; i < actual.size(); ++i) {
    EXPECT_NEAR(actual[i], expected[i], 1e-11) << "point " << i;
  }
}

TEST(GridValues, Code0IsEven) { expectNear(gridValues("5"), {1, 26, 51, 76, 101}); }

TEST(GridValues, Code1AddsExponentialsToTheStart) {
  // step = ln(100)/4
  expectNear(gridValues("5e"), {1, 1 + std::sqrt(10.0), 11, 1 + 10 * std::sqrt(10.0), 101});
}

TEST(GridValues, Code2AddsExponentialsOfSquaresToTheStart) {
  // step = sqrt(ln 100)/2: exponents ln(100)/4 and ln(100)
  expectNear(gridValues("3g"), {1, 1 + std::sqrt(10.0), 101});
}

TEST(GridValues, Code3AddsPowersOfTenToTheStart) {
  // step = log10(100)/2
  expectNear(gridValues("3t"), {1, 11, 101});
}

TEST(GridValues, Code4TakesExponentialsFromTheEnd) { expectNear(gridValues("3E"), {101, 91, 1}); }

TEST(GridValues, Code5TakesExponentialsOfSquaresFromTheEnd) {
  expectNear(gridValues("3G"), {101, 101 - std::sqrt(10.0), 1});
}

TEST(GridValues, Code6TakesPowersOfTenFromTheEnd) {
  expectNear(gridValues("5T"), {101, 101 - std::sqrt(10.0), 91, 101 - 10 * std::sqrt(10.0), 1});
}

TEST(GridValues, OnePointIsTheStartOrForTheLaterCodesTheEnd) {
  for (const char* points : {"1", "1e", "1g", "1t"}) EXPECT_EQ(gridValues(points), Numbers{1});
  for (const char* points : {"1E", "1G", "1T"}) EXPECT_EQ(gridValues(points), Numbers{101});
}

TEST(GridValues, UnknownCodeStaysAtTheStart) {
  for (const double code : {7.0, -1.0, 1e99}) {
    Funclib funclib;
    funclib.Pick_Func("Constant");
    ParDef pardef;
    pardef.setRule(funclib.Get_Rules());
    pardef.Add_Set("s");
    pardef.Add_PAR("c", 1, 101, 5, code, 2);
    pardef.Add_DATA({0}, {0}, 1, 1);
    pardef.Add_DATA({0}, {0}, 1, 1);
    pardef.prep();
    const Method method;
    Calc calc;
    const Xmgr xmgr;
    const Fit fit("2.4.4", funclib, method, pardef, calc, xmgr, "no-file", 0, 6);
    for (int i = 0; i < 5; ++i) EXPECT_EQ(fit.set_grid(0, i), 1.0);
    EXPECT_EQ(pardef.grd_step(0), 0.0);
  }
}

TEST(GridValues, SpacingCodeIsTruncatedToAnInteger) {
  Elem elem;
  elem.setGrid(1, 101, 5, 1.9, 2);
  EXPECT_EQ(elem.interval, 1);
  EXPECT_DOUBLE_EQ(elem.step, std::log(100.0) / 4);
}

// ---- local GRID ----

/// A line through values whose chi-square is 3 a^2 + 2 b^2 + 6, 1 degree of freedom.
std::string bowl(const std::string& parameters) {
  return "FUNCTION Linear\nSET s\n" + parameters + data(-1, 1) + data(0, -2) + data(1, 1);
}

TEST(LocalGrid, WalksTheFirstParameterFastest) {
  Problem problem(bowl("PAR a 1 2 2\nPAR b 10 30 3\n"), toys());
  const std::string console = consoleOf(problem, {0}, [](Fit& fit) { fit.run_GRID(1); });
  const auto table = rows(console);
  EXPECT_EQ(column(table, &Row::start), (Numbers{209, 218, 809, 818, 1809, 1818}));
  EXPECT_EQ(column(table, &Row::counter), (Counts{1, 2, 3, 4, 5, 6}));
  EXPECT_EQ(column(table, &Row::total), Counts(6, 6));
  EXPECT_EQ(column(table, &Row::set), Counts(6, 1));
  EXPECT_EQ(column(table, &Row::result), Numbers(6, 6.0));
  EXPECT_EQ(column(table, &Row::best), Numbers(6, 6.0));
  EXPECT_EQ(console.back(), '\n');
}

TEST(LocalGrid, OrderIsThatOfTheSetsDeclarationsNotOfTheModel) {
  Problem problem(bowl("PAR b 10 20 2\nPAR a 1 2 2\n"), toys());
  const auto table = rows(consoleOf(problem, {0}, [](Fit& fit) { fit.run_GRID(1); }));
  EXPECT_EQ(column(table, &Row::start), (Numbers{209, 809, 218, 818}));
}

TEST(LocalGrid, OfOnePointEachTriesOneCandidateAtTheGridStarts) {
  Problem problem(bowl("PAR a 1 5 1 3\nPAR b 10 50 1 30\n"), toys());
  const auto table = rows(consoleOf(problem, {0}, [](Fit& fit) { fit.run_GRID(1); }));
  EXPECT_EQ(column(table, &Row::start), (Numbers{209}));
}

TEST(LocalGrid, KeepsFixedParametersWhereTheyAre) {
  Problem problem(bowl("FIXED a 2\nPAR b 10 20 2\n"), toys());
  const auto table = rows(consoleOf(problem, {0}, [](Fit& fit) { fit.run_GRID(1); }));
  // Over 2 degrees of freedom.
  EXPECT_EQ(column(table, &Row::start), (Numbers{218.0 / 2, 818.0 / 2}));
  EXPECT_EQ(problem.value("s::a"), 2.0);
}

TEST(LocalGrid, WithoutPointsInOneDirectionTriesNothing) {
  for (const char* points : {"0", "-3"}) {
    Problem problem(bowl(std::string("PAR a 1 2 ") + points + " 1\nPAR b 10 30 3\n"), toys());
    const std::string console = consoleOf(problem, {0}, [](Fit& fit) { fit.run_GRID(1); });
    EXPECT_EQ(console, "\n");
    EXPECT_EQ(problem.fit().best().par, (Numbers{1, 10}));
    EXPECT_EQ(problem.fit().chiLines().back(), "# GRID         X2/DoF = 209");
  }
}

TEST(LocalGrid, TooLargeToBeCountedIsAnError) {
  Problem problem(
      "FUNCTION Exp3\nSET s\nPAR a 1 2 2147483647\nPAR b -1 0 2147483647\n"
      "PAR c 1 2 2147483647\n" +
      data(0, 1) + data(1, 1) + data(2, 1) + data(3, 1));
  problem.fit().run_INIT(0, false);
  EXPECT_EXIT(problem.fit().run_GRID(1), testing::ExitedWithCode(1),
              testing::Eq("ERROR: The number of grid points is too large.\n"));
}

TEST(LocalGrid, KeepsTheBestOfItsMinima) {
  // From -1 the minimiser falls into the worse well near -1; the grid's end is in the better one.
  Problem problem(
      "FUNCTION Wells\nSET s\nPAR q -1 1 2\nPAR g 0\n" + data(0, 0) + data(1, 0) + data(2, 3),
      toys());
  const auto table = rows(consoleOf(problem, {0}, [](Fit& fit) {
    fit.run_ONEEX(1);
    fit.run_GRID(2);
  }));
  EXPECT_GT(table.front().best, 0.03);
  EXPECT_NEAR(problem.value("s::q"), 1.0, 1e-6);
  EXPECT_NEAR(problem.fit().best().total(), 0.0, 1e-10);
}

TEST(LocalGrid, EqualChiSquareDoesNotReplaceTheBestSet) {
  Problem problem(flatSet("PAR p 3 5 2 4"), toys());
  consoleOf(problem, {10}, [](Fit& fit) { fit.run_GRID(1); });
  EXPECT_EQ(problem.fit().best().par, Numbers{4});
}

TEST(LocalGrid, CandidateThatIsNotFiniteIsNotKept) {
  Problem problem(flatSet("PAR p 3 5 2 4"), toys());
  const auto table = rows(consoleOf(problem, {10, kNaN}, [](Fit& fit) { fit.run_GRID(1); }));
  EXPECT_EQ(problem.fit().best().par, Numbers{4});
  EXPECT_EQ(problem.fit().best().total(), 100.0);
  EXPECT_EQ(table.size(), 2U);
}

TEST(LocalGrid, ComparesWithThePartialSumThatARefusedSetKeeps) {
  // At the start, 6, the point at x = 0 counts (6 - 5)^2 = 1 and the other one is refused. The
  // candidate 4 has 1 + 0.81: finite, but not below that sum.
  const std::string points = data(0, 5) + data(1, 4.9);
  Problem worse("FUNCTION Cliff\nSET s\nPAR p 4 6 1 6\n" + points, toys());
  consoleOf(worse, {0}, [](Fit& fit) { fit.run_GRID(1); });
  EXPECT_EQ(worse.value("s::p"), 6.0);
  EXPECT_FALSE(worse.fit().best().isFinite());
  // The candidate 5 has 0.01.
  Problem better("FUNCTION Cliff\nSET s\nPAR p 5 6 1 6\n" + points, toys());
  consoleOf(better, {0}, [](Fit& fit) { fit.run_GRID(1); });
  EXPECT_EQ(better.value("s::p"), 5.0);
  EXPECT_NEAR(better.fit().best().total(), 0.01, 1e-12);
}

// ---- global GRID ----

/// Two sets of the bowl with a common slope, 6 - 3 degrees of freedom.
std::string bowls(const std::string& global, const std::string& a) {
  const std::string set = a + "PAR b S\n" + data(-1, 1) + data(0, -2) + data(1, 1);
  return "FUNCTION Linear\n" + global + "SET s\n" + set + "SET t\n" + set;
}

TEST(GlobalGrid, HasOneLineForEachGlobalPointWithTheStartOfTheEvaluatedPoint) {
  // Locals stay at their initial 2 before each point, although a better set is known by then.
  Problem problem(bowls("GPAR S 10 30 3\n", "PAR a 1 5 2 2\n"), toys());
  const std::string console = consoleOf(problem, {0}, [](Fit& fit) { fit.run_GRID(1); });
  const auto table = rows(console);
  // 2 (3 * 4 + 2 S^2 + 6) / 3
  EXPECT_EQ(column(table, &Row::start), (Numbers{145.333, 545.333, 1212}));
  EXPECT_EQ(column(table, &Row::set), Counts(3, 0));
  EXPECT_EQ(column(table, &Row::counter), (Counts{1, 2, 3}));
  EXPECT_EQ(column(table, &Row::total), Counts(3, 3));
  EXPECT_EQ(column(table, &Row::result), Numbers(3, 4.0));
  EXPECT_NE(console.back(), '\n');
}

TEST(GlobalGrid, WalksTheFirstGlobalFastest) {
  Captured warnings(std::cerr);
  const std::string set = "PAR b S\nPAR a I\n" + data(-1, 1) + data(0, -2) + data(1, 1);
  Problem problem("FUNCTION Linear\nGPAR S 10 20 2\nGPAR I 1 3 3\nSET s\n" + set + "SET t\n" + set,
                  toys());
  const auto table = rows(consoleOf(problem, {0}, [](Fit& fit) { fit.run_GRID(1); }));
  const auto chi = [](double a, double b) { return 2 * (3 * a * a + 2 * b * b + 6) / 4; };
  EXPECT_EQ(column(table, &Row::start),
            (Numbers{chi(1, 10), chi(1, 20), chi(2, 10), chi(2, 20), chi(3, 10), chi(3, 20)}));
}

TEST(GlobalGrid, WalksTheGridOfEachSetsOwnParametersInsideEveryGlobalPoint) {
  // Both q start in the wrong well, and only their own grids reach the other.
  const std::string own = "PAR q -1 1 2\nPAR g G\n" + data(0, 0) + data(1, 0) + data(2, 3);
  const std::string input = "FUNCTION Wells\nGPAR G 0 1 1 0\nSET s\n" + own + "SET t\n" + own;
  Problem without(input, toys());
  consoleOf(without, {0}, [](Fit& fit) { fit.run_ONEEX(1); });
  EXPECT_LT(without.value("s::q"), 0.0);
  Problem with(input, toys());
  consoleOf(with, {0}, [](Fit& fit) { fit.run_GRID(1); });
  EXPECT_NEAR(with.value("s::q"), 1.0, 1e-6);
  EXPECT_NEAR(with.value("t::q"), 1.0, 1e-6);
  EXPECT_NEAR(with.value("GLOBAL::G"), 3.0, 1e-6);
  EXPECT_NEAR(with.fit().best().total(), 0.0, 1e-9);
}

TEST(GlobalGrid, FixedParametersOfASetStay) {
  Problem problem(bowls("GPAR S 10 30 3\n", "FIXED a 2\n"), toys());
  const auto table = rows(consoleOf(problem, {0}, [](Fit& fit) { fit.run_GRID(1); }));
  EXPECT_EQ(table.size(), 3U);
  EXPECT_EQ(problem.value("s::a"), 2.0);
  EXPECT_NEAR(problem.fit().best().total(), 2 * (3 * 4 + 6), 1e-9);
}

TEST(GlobalGrid, GlobalThatNoSetRefersToHasNoGrid) {
  Problem problem(bowls("GPAR idle 0 9 5 4\nGPAR S 10 30 3\n", "PAR a 1\n"), toys());
  const auto table = rows(consoleOf(problem, {0}, [](Fit& fit) { fit.run_GRID(1); }));
  EXPECT_EQ(table.size(), 3U);
  EXPECT_EQ(problem.value("GLOBAL::idle"), 4.0);
}

TEST(GlobalGrid, WithoutPointsTriesNothing) {
  Problem problem(bowls("GPAR S 10 30 0 10\n", "PAR a 1\n"), toys());
  EXPECT_EQ(consoleOf(problem, {0}, [](Fit& fit) { fit.run_GRID(1); }), "");
  EXPECT_EQ(problem.value("GLOBAL::S"), 10.0);
}

TEST(GlobalGrid, TooLargeToBeCountedIsAnError) {
  const std::string set =
      "PAR a A\nPAR b B\nPAR c C\n" + data(0, 1) + data(1, 1) + data(2, 1) + data(3, 1);
  std::optional<Problem> problem;
  {
    Captured warnings(std::cerr);  // all parameters are shared
    problem.emplace(
        "FUNCTION Exp3\nGPAR A 1 2 2147483647\nGPAR B -1 0 2147483647\n"
        "GPAR C 1 2 2147483647\nSET s\n" +
        set + "SET t\n" + set);
  }
  problem->fit().run_INIT(0, false);
  EXPECT_EXIT(problem->fit().run_GRID(1), testing::ExitedWithCode(1),
              testing::Eq("ERROR: The number of grid points is too large.\n"));
}

/// Two sets of the scripted model that share their parameter, 3 degrees of freedom.
std::string flatSets(const std::string& global) {
  const std::string set = "PAR p P\n" + data(0, 0) + data(1, 0);
  return "FUNCTION Flat\n" + global + "\nSET s\n" + set + "SET t\n" + set;
}

/// The problem without the warning that its sets have no parameters of their own.
class FlatGlobal : public testing::Test {
 protected:
  explicit FlatGlobal(const std::string& global = "GPAR P 3 5 2 4") {
    Captured warnings(std::cerr);
    problem_.emplace(flatSets(global), toys());
  }
  Problem& problem() { return *problem_; }

 private:
  std::optional<Problem> problem_;
};

TEST_F(FlatGlobal, GridKeepsTheBestSetAtEqualChiSquare) {
  consoleOf(problem(), {3}, [](Fit& fit) { fit.run_GRID(1); });
  EXPECT_EQ(problem().fit().best().par, Numbers{4});
}

TEST_F(FlatGlobal, GridKeepsNoCandidateThatIsNotFinite) {
  consoleOf(problem(), {3, 3, kNaN}, [](Fit& fit) { fit.run_GRID(1); });
  EXPECT_EQ(problem().fit().best().par, Numbers{4});
  EXPECT_EQ(problem().fit().best().total(), 18.0);
}

// ---- global ONE, ONEEX ----

TEST_F(FlatGlobal, OneHasNoSetFieldAndDoesNotEndTheLine) {
  // INIT 9 + 9, then 4 + 4, over 3.
  const std::string console = consoleOf(problem(), {3, 3, 2}, [](Fit& fit) { fit.run_ONE(1); });
  EXPECT_EQ(console, "\r1.ONE    (      1/      1)           6 ->    2.66667 |    2.66667");
  EXPECT_EQ(problem().fit().chiLines().back(), "# ONE          X2/DoF = 2.66667");
}

TEST_F(FlatGlobal, OneKeepsNothingWorse) {
  consoleOf(problem(), {3, 3, 4}, [](Fit& fit) { fit.run_ONE(1); });
  EXPECT_EQ(problem().fit().best().total(), 18.0);
}

TEST_F(FlatGlobal, OneExGoesOnUntilNothingImprovesAndDoesNotEndTheLine) {
  // 18, then 13, 8, 8.
  const std::string console =
      consoleOf(problem(), {3, 3, 3, 2, 2, 2, 2, 2}, [](Fit& fit) { fit.run_ONEEX(1); });
  const auto table = rows(console);
  EXPECT_EQ(column(table, &Row::start), (Numbers{6, 4.33333, 2.66667}));
  EXPECT_EQ(column(table, &Row::result), (Numbers{4.33333, 2.66667, 2.66667}));
  EXPECT_EQ(column(table, &Row::set), Counts(3, 0));
  EXPECT_NE(console.back(), '\n');
}

// ---- starts that are not finite ----

class BadStart : public testing::Test {
 protected:
  Problem problem{"FUNCTION Exp2\nSET s\nPAR a 1\nPAR b -1 0 2 -800\n" + data(1, 1) + data(2, 1) +
                  data(3, 1)};
};

TEST_F(BadStart, EndsOne) {
  EXPECT_EXIT(
      {
        problem.fit().run_INIT(0, false);
        problem.fit().run_ONE(1);
      },
      testing::ExitedWithCode(1),
      testing::Eq("WARNING: Bad initial parameters\nERROR: Bad initial parameters\n"));
}

TEST_F(BadStart, EndsOneEx) {
  EXPECT_EXIT(
      {
        problem.fit().run_INIT(0, false);
        problem.fit().run_ONEEX(1);
      },
      testing::ExitedWithCode(1),
      testing::Eq("WARNING: Bad initial parameters\nERROR: Bad initial parameters\n"));
}

TEST_F(BadStart, EndsMcMin) {
  EXPECT_EXIT(
      {
        problem.fit().run_INIT(0, false);
        problem.fit().run_MCMIN(1, 5, 0.1);
      },
      testing::ExitedWithCode(1),
      testing::Eq("WARNING: Bad initial parameters\nERROR: Bad initial parameters\n"));
}

TEST_F(BadStart, DoesNotEndTheOtherMethods) {
  Captured console(std::cerr);
  problem.fit().run_INIT(0, false);
  problem.fit().run_GRID(1);
  problem.fit().run_RANDOM(2, 1);
  problem.fit().run_RMCMIN(3, 1, 1, 0.1);
  EXPECT_EQ(console.text(), "WARNING: Bad initial parameters\n");
  EXPECT_TRUE(problem.fit().best().isFinite());
}

TEST_F(BadStart, IsReplacedByAnyFiniteRandomCandidate) {
  Captured console(std::cerr);
  problem.fit().run_INIT(0, false);
  problem.fit().run_RANDOM(1, 3);
  EXPECT_TRUE(problem.fit().best().isFinite());
  // From there ONE is allowed.
  problem.fit().run_ONE(2);
  EXPECT_LT(problem.fit().best().total(), 3.0);
}

TEST(BadStartOfACliff, IsReplacedByARandomCandidateWorseThanItsPartialSum) {
  // As for the grid, but a total that is not finite gives way to any finite candidate.
  Problem problem("FUNCTION Cliff\nSET s\nPAR p 4 4 1 6\n" + data(0, 5) + data(1, 4.9), toys());
  consoleOf(problem, {0}, [](Fit& fit) { fit.run_RANDOM(1, 1); });
  EXPECT_EQ(problem.value("s::p"), 4.0);
  EXPECT_NEAR(problem.fit().best().total(), 1.81, 1e-12);
}

// ---- random draws ----

/// What draws from this tick on give.
Random drawsFrom(std::uint32_t tick) {
  FakeClock::start(tick);
  return Random(FakeClock::now);
}

TEST(RandomStart, IsUniformInTheGridRange) {
  Problem problem(flatSet("PAR p -3 5 4 1"), toys());
  ParSet at = problem.initial();
  Numbers drawn;
  FakeClock::start(10);
  for (int i = 0; i < 5; ++i) {
    problem.fit().rand_parm(0, at);
    drawn.push_back(at.par[0]);
  }
  Random random = drawsFrom(10);
  for (int i = 0; i < 5; ++i) {
    EXPECT_DOUBLE_EQ(drawn[static_cast<std::size_t>(i)], -3 + 8 * random.unirand());
  }
}

TEST(RandomStart, OutOfTheLegalRangeIsDrawnAgain) {
  // Bounds of the model: 0 to 0.5; the range of the search is five times as wide.
  Problem problem("FUNCTION Gauss2\nSET s\nPAR a -1 1.5 2 0.2\nPAR b 1\nPAR c 0.7\nPAR d 1\n" +
                      data(0, 1) + data(1, 1) + data(2, 1) + data(3, 1) + data(4, 1),
                  toys());
  ParSet at = problem.initial();
  Numbers drawn;
  FakeClock::start(10);
  for (int i = 0; i < 20; ++i) {
    problem.fit().rand_parm(0, at);
    drawn.push_back(at.par[0]);
  }
  EXPECT_GT(FakeClock::ticks, 10U + 40U);
  Random random = drawsFrom(10);
  for (const double value : drawn) {
    double expected = 0.0;
    do {
      expected = -1 + 2.5 * random.unirand();
    } while (!(expected >= 0.0 && expected <= 0.5));
    EXPECT_DOUBLE_EQ(value, expected);
  }
}

TEST(RandomStart, WithoutARangeIsTheGridStartAndDrawsNothing) {
  Problem problem(flatSet("PAR p 3 3 1 7"), toys());
  ParSet at = problem.initial();
  ASSERT_EQ(at.par[0], 7.0);
  FakeClock::start(10);
  problem.fit().rand_parm(0, at);
  EXPECT_EQ(at.par[0], 3.0);
  EXPECT_EQ(FakeClock::ticks, 10U);
}

TEST(RandomStart, OfAFixedParameterIsItsValue) {
  Captured warnings(std::cerr);
  Problem problem(flatSet("FIXED p 3"), toys());
  ParSet at = problem.initial();
  at.par[0] = 8;
  FakeClock::start(10);
  problem.fit().rand_parm(0, at);
  EXPECT_EQ(at.par[0], 3.0);
  EXPECT_EQ(FakeClock::ticks, 10U);
}

TEST(Perturbation, MultipliesByANormalDeviateAboutOne) {
  Problem problem(flatSet("PAR p -3 5 4 2"), toys());
  ParSet at = problem.initial();
  FakeClock::start(10);
  problem.fit().mc_parm(0, at, 0.25);
  Random random = drawsFrom(10);
  EXPECT_DOUBLE_EQ(at.par[0], (random.gaussrand() * 0.25 + 1.0) * 2.0);
}

TEST(Perturbation, OutOfTheLegalRangeIsRepeatedFromTheOldValue) {
  Problem problem(flatSet("REST p 1.9 2.1 4 2"), toys());
  ParSet at = problem.initial();
  Numbers drawn;
  FakeClock::start(10);
  for (int i = 0; i < 20; ++i) {
    at.par[0] = 2.0;
    problem.fit().mc_parm(0, at, 0.25);
    drawn.push_back(at.par[0]);
  }
  Random random = drawsFrom(10);
  for (const double value : drawn) {
    double expected = 0.0;
    do {
      expected = (random.gaussrand() * 0.25 + 1.0) * 2.0;
    } while (!(expected >= 1.9 && expected <= 2.1));
    EXPECT_DOUBLE_EQ(value, expected);
  }
}

TEST(Perturbation, LeavesFixedParametersAlone) {
  Captured warnings(std::cerr);
  Problem problem(flatSet("FIXED p 3"), toys());
  ParSet at = problem.initial();
  FakeClock::start(10);
  problem.fit().mc_parm(0, at, 0.25);
  EXPECT_EQ(at.par[0], 3.0);
  EXPECT_EQ(FakeClock::ticks, 10U);
}

TEST(Perturbation, TakesPlaceForAParameterWithoutAGridRange) {
  Problem problem(flatSet("PAR p 3"), toys());
  ParSet at = problem.initial();
  FakeClock::start(10);
  problem.fit().mc_parm(0, at, 0.25);
  EXPECT_NE(at.par[0], 3.0);
}

// ---- RANDOM ----

TEST(LocalRandom, DrawsEvaluatesMinimisesAndKeepsTheBest) {
  Problem problem(flatSet("PAR p 3 5 4 4"), toys());
  FakeClock::start(50);
  // INIT; then for each draw the evaluation and the minimum.
  const std::string console =
      consoleOf(problem, {10, 12, 11, 9, 8, 9, 9}, [](Fit& fit) { fit.run_RANDOM(1, 3); });
  const auto table = rows(console);
  EXPECT_EQ(column(table, &Row::start), (Numbers{144, 81, 81}));
  EXPECT_EQ(column(table, &Row::result), (Numbers{121, 64, 81}));
  EXPECT_EQ(column(table, &Row::best), (Numbers{100, 64, 64}));
  EXPECT_EQ(column(table, &Row::counter), (Counts{1, 2, 3}));
  EXPECT_EQ(column(table, &Row::total), (Counts{3, 3, 3}));
  EXPECT_EQ(column(table, &Row::set), (Counts{1, 1, 1}));
  EXPECT_EQ(console.back(), '\n');
  Random random = drawsFrom(50);
  random.unirand();
  EXPECT_EQ(problem.value("s::p"), 3 + 2 * random.unirand());
}

TEST(LocalRandom, CandidateThatIsNotFiniteHasNoLine) {
  Problem problem(flatSet("PAR p 3 5 4 4"), toys());
  const auto table = rows(
      consoleOf(problem, {10, kNaN, kNaN, 9, 8, 9, kInf}, [](Fit& fit) { fit.run_RANDOM(1, 3); }));
  EXPECT_EQ(column(table, &Row::counter), Counts{2});
  EXPECT_EQ(problem.fit().best().total(), 64.0);
}

TEST(LocalRandom, EqualChiSquareDoesNotReplaceTheBestSet) {
  Problem problem(flatSet("PAR p 3 5 4 4"), toys());
  consoleOf(problem, {10}, [](Fit& fit) { fit.run_RANDOM(1, 20); });
  EXPECT_EQ(problem.value("s::p"), 4.0);
}

TEST(LocalRandom, WithoutIterationsTriesNothing) {
  for (const int iterations : {0, -1}) {
    Problem problem(flatSet("PAR p 3 5 4 4"), toys());
    EXPECT_EQ(consoleOf(problem, {10, 1}, [&](Fit& fit) { fit.run_RANDOM(1, iterations); }), "\n");
    EXPECT_EQ(problem.fit().best().total(), 100.0);
    EXPECT_EQ(problem.fit().chiLines().back(), "# RANDOM       X2/DoF = 100");
  }
}

TEST_F(FlatGlobal, RandomDrawsAllParametersAndEndsItsLines) {
  FakeClock::start(50);
  // INIT 18, evaluation 8, minimum 2; evaluation 32, minimum 18.
  const std::string console =
      consoleOf(problem(), {3, 3, 2, 2, 1, 1, 4, 4, 3, 3}, [](Fit& fit) { fit.run_RANDOM(1, 2); });
  const auto table = rows(console);
  EXPECT_EQ(column(table, &Row::start), (Numbers{2.66667, 10.6667}));
  EXPECT_EQ(column(table, &Row::result), (Numbers{0.666667, 6}));
  EXPECT_EQ(column(table, &Row::best), (Numbers{0.666667, 0.666667}));
  EXPECT_EQ(column(table, &Row::counter), (Counts{1, 2}));
  EXPECT_EQ(column(table, &Row::set), (Counts{0, 0}));
  EXPECT_EQ(console.back(), '\n');
  Random random = drawsFrom(50);
  EXPECT_EQ(problem().value("GLOBAL::P"), 3 + 2 * random.unirand());
}

TEST(GlobalRandom, DrawsInTheOrderOfTheParameterVector) {
  Problem problem(bowls("GPAR idle 0 9 2 4\nGPAR S 10 30 3\n", "PAR a 1 5 2\n"), toys());
  FakeClock::start(50);
  const auto table = rows(consoleOf(problem, {0}, [](Fit& fit) { fit.run_RANDOM(1, 1); }));
  Random random = drawsFrom(50);
  random.unirand();  // idle
  const double b = 10 + 20 * random.unirand();
  const double s = 1 + 4 * random.unirand();
  const double t = 1 + 4 * random.unirand();
  ASSERT_EQ(table.size(), 1U);
  // 6 points, 4 parameters; the console shows six digits.
  EXPECT_NEAR(table[0].start, (3 * s * s + 3 * t * t + 4 * b * b + 12) / 2, 5e-3);
}

TEST_F(FlatGlobal, RandomWithoutIterationsTriesNothing) {
  EXPECT_EQ(consoleOf(problem(), {3, 3, 1}, [](Fit& fit) { fit.run_RANDOM(1, 0); }), "\n");
  EXPECT_EQ(problem().fit().best().total(), 18.0);
}

// ---- MCMIN ----

TEST(LocalMcMin, CountsAnImprovementAsTheFirstTrialAndEndsAfterThatManyInARow) {
  Problem problem(flatSet("PAR p 3 5 4 4"), toys());
  // For each trial the evaluation and the minimum: better, worse, better, worse, worse.
  const std::string console = consoleOf(problem, {10, 12, 9, 12, 9.5, 12, 8, 12, 8.5, 12, 8.5, 1},
                                        [](Fit& fit) { fit.run_MCMIN(1, 3, 0.1); });
  const auto table = rows(console);
  EXPECT_EQ(column(table, &Row::counter), (Counts{1, 2, 1, 2, 3}));
  EXPECT_EQ(column(table, &Row::total), Counts(5, 3));
  EXPECT_EQ(column(table, &Row::start), Numbers(5, 144.0));
  EXPECT_EQ(column(table, &Row::result), (Numbers{81, 90.25, 64, 72.25, 72.25}));
  EXPECT_EQ(column(table, &Row::best), (Numbers{81, 81, 64, 64, 64}));
  EXPECT_EQ(console.back(), '\n');
}

TEST(LocalMcMin, FromTheMinimumEndsAfterThatManyFailures) {
  Problem problem(flatSet("PAR p 3 5 4 4"), toys());
  const auto table = rows(consoleOf(problem, {10}, [](Fit& fit) { fit.run_MCMIN(1, 3, 0.1); }));
  EXPECT_EQ(column(table, &Row::counter), (Counts{1, 2, 3}));
  EXPECT_EQ(problem.value("s::p"), 4.0);
}

TEST(LocalMcMin, PerturbsTheBestSetEachTime) {
  Problem problem(flatSet("PAR p 3 5 4 4"), toys());
  FakeClock::start(70);
  // The second trial improves: the third one starts from there.
  consoleOf(problem, {10, 10, 10, 9, 9, 9, 9, 9, 9}, [](Fit& fit) { fit.run_MCMIN(1, 2, 0.1); });
  // Asked: INIT, then twice for each trial.
  ASSERT_EQ(script.asked.size(), 1U + 2U * 4U - 2U);
  Random random = drawsFrom(70);
  const double first = (random.gaussrand() * 0.1 + 1.0) * 4.0;
  const double second = (random.gaussrand() * 0.1 + 1.0) * 4.0;
  const double third = (random.gaussrand() * 0.1 + 1.0) * second;
  EXPECT_DOUBLE_EQ(script.asked[1], first);
  EXPECT_DOUBLE_EQ(script.asked[3], second);
  EXPECT_DOUBLE_EQ(script.asked[5], third);
}

TEST(LocalMcMin, TrialsThatAreNotFiniteCountWithoutALine) {
  Problem problem(flatSet("PAR p 3 5 4 4"), toys());
  // Evaluation refused; minimum refused; worse.
  const auto table = rows(
      consoleOf(problem, {10, kNaN, 10, kNaN, 11, 11}, [](Fit& fit) { fit.run_MCMIN(1, 3, 0.1); }));
  EXPECT_EQ(column(table, &Row::counter), Counts{3});
  EXPECT_EQ(script.asked.size(), 1U + 1U + 2U + 2U);  // nothing is minimised from a refused start
}

TEST(LocalMcMin, WithoutIterationsTriesNothing) {
  Problem problem(flatSet("PAR p 3 5 4 4"), toys());
  EXPECT_EQ(consoleOf(problem, {10, 1}, [](Fit& fit) { fit.run_MCMIN(1, 0, 0.1); }), "\n");
  EXPECT_EQ(problem.fit().best().total(), 100.0);
}

TEST_F(FlatGlobal, McMinCountsAndEndsItsLines) {
  // Better (8), worse, worse; each an evaluation and a minimum of two sets.
  const std::string console = consoleOf(problem(), {3, 3, 4, 4, 2, 2, 4, 4, 3, 3, 4, 4, 3, 3},
                                        [](Fit& fit) { fit.run_MCMIN(1, 3, 0.1); });
  const auto table = rows(console);
  EXPECT_EQ(column(table, &Row::counter), (Counts{1, 2, 3}));
  EXPECT_EQ(column(table, &Row::best), Numbers(3, 2.66667));
  EXPECT_EQ(column(table, &Row::start), Numbers(3, 10.6667));
  EXPECT_EQ(column(table, &Row::set), Counts(3, 0));
  EXPECT_EQ(console.back(), '\n');
  EXPECT_EQ(problem().fit().best().total(), 8.0);
}

TEST_F(FlatGlobal, McMinWithoutIterationsTriesNothing) {
  EXPECT_EQ(consoleOf(problem(), {3, 3, 1}, [](Fit& fit) { fit.run_MCMIN(1, 0, 0.1); }), "\n");
  EXPECT_EQ(problem().fit().best().total(), 18.0);
}

// ---- RMCMIN ----

TEST(LocalRmcMin, PerturbsEachRandomMinimumAndRepeatsTheDrawsCounterTotalAndStart) {
  Problem problem(flatSet("PAR p 3 5 4 4"), toys());
  FakeClock::start(90);
  // INIT; draw 1: evaluation 9, minimum 8; perturbed: worse, better, worse.
  // Draw 2: evaluation 12, minimum 11; perturbed: better than 11 but not than the best, worse.
  const std::string console = consoleOf(problem, {10, 9, 8, 8.5, 7, 7.5, 12, 11, 10.5, 10.75},
                                        [](Fit& fit) { fit.run_RMCMIN(1, 2, 2, 0.1); });
  const auto table = rows(console);
  EXPECT_EQ(column(table, &Row::method), std::vector<std::string>(7, "RMCMIN"));
  EXPECT_EQ(column(table, &Row::counter), (Counts{1, 1, 1, 1, 2, 2, 2}));
  EXPECT_EQ(column(table, &Row::total), Counts(7, 2));
  EXPECT_EQ(column(table, &Row::start), (Numbers{81, 81, 81, 81, 144, 144, 144}));
  EXPECT_EQ(column(table, &Row::result), (Numbers{64, 72.25, 49, 56.25, 121, 110.25, 115.562}));
  EXPECT_EQ(column(table, &Row::best), (Numbers{64, 64, 49, 49, 49, 49, 49}));
  EXPECT_EQ(console.back(), '\n');

  // Uniform draw, three normal deviates (two clock readings), uniform draw, two deviates.
  Random random = drawsFrom(90);
  const double drawn = 3 + 2 * random.unirand();
  const auto perturbed = [&](double p) { return (random.gaussrand() * 0.1 + 1.0) * p; };
  const double worse = perturbed(drawn);
  const double better = perturbed(drawn);
  const double from_better = perturbed(better);
  EXPECT_DOUBLE_EQ(script.asked[1], drawn);
  EXPECT_DOUBLE_EQ(script.asked[3], worse);
  EXPECT_DOUBLE_EQ(script.asked[4], better);
  EXPECT_DOUBLE_EQ(script.asked[5], from_better);
  EXPECT_DOUBLE_EQ(problem.value("s::p"), better);
  const double drawn_again = 3 + 2 * random.unirand();
  EXPECT_DOUBLE_EQ(script.asked[6], drawn_again);
  // The random minimum is perturbed, not the best set.
  EXPECT_DOUBLE_EQ(script.asked[8], perturbed(drawn_again));
}

TEST(LocalRmcMin, DrawThatIsNotFiniteIsSkippedWithItsPerturbations) {
  Problem problem(flatSet("PAR p 3 5 4 4"), toys());
  const auto table = rows(consoleOf(problem, {10, kNaN, kNaN, 9, 8, 8},
                                    [](Fit& fit) { fit.run_RMCMIN(1, 2, 1, 0.1); }));
  EXPECT_EQ(column(table, &Row::counter), (Counts{2, 2}));
}

TEST(LocalRmcMin, PerturbationThatIsNotFiniteCountsWithoutALine) {
  Problem problem(flatSet("PAR p 3 5 4 4"), toys());
  const auto table = rows(
      consoleOf(problem, {10, 9, 8, kNaN, 8.5, 1}, [](Fit& fit) { fit.run_RMCMIN(1, 1, 2, 0.1); }));
  EXPECT_EQ(column(table, &Row::result), (Numbers{64, 72.25}));
}

TEST(LocalRmcMin, WithoutIterationsTriesNothing) {
  Problem problem(flatSet("PAR p 3 5 4 4"), toys());
  EXPECT_EQ(consoleOf(problem, {10, 1}, [](Fit& fit) { fit.run_RMCMIN(1, 0, 5, 0.1); }), "\n");
  EXPECT_EQ(problem.fit().best().total(), 100.0);
  const auto table =
      rows(consoleOf(problem, {10, 9, 8}, [](Fit& fit) { fit.run_RMCMIN(1, 1, 0, 0.1); }));
  EXPECT_EQ(table.size(), 1U);
}

TEST_F(FlatGlobal, RmcMinPerturbsEachRandomMinimumAndEndsItsLines) {
  // INIT 18; draw: evaluation 8, minimum 2; perturbed: worse (8), better (0.5), worse (2).
  const std::string console = consoleOf(problem(), {3, 3, 2, 2, 1, 1, 2, 2, 0.5, 0.5, 1, 1},
                                        [](Fit& fit) { fit.run_RMCMIN(1, 1, 2, 0.1); });
  const auto table = rows(console);
  EXPECT_EQ(column(table, &Row::counter), Counts(4, 1));
  EXPECT_EQ(column(table, &Row::total), Counts(4, 1));
  EXPECT_EQ(column(table, &Row::start), Numbers(4, 2.66667));
  EXPECT_EQ(column(table, &Row::result), (Numbers{0.666667, 2.66667, 0.166667, 0.666667}));
  EXPECT_EQ(column(table, &Row::best), (Numbers{0.666667, 0.666667, 0.166667, 0.166667}));
  EXPECT_EQ(console.back(), '\n');
  EXPECT_EQ(problem().fit().best().total(), 0.5);
}

TEST_F(FlatGlobal, RmcMinWithoutIterationsTriesNothing) {
  EXPECT_EQ(consoleOf(problem(), {3, 3, 1}, [](Fit& fit) { fit.run_RMCMIN(1, 0, 5, 0.1); }), "\n");
  EXPECT_EQ(problem().fit().best().total(), 18.0);
}

// ---- what holds for any draw ----

/// Two noisy decays, local or with a common rate; the clock of the system draws.
class AnyDraw : public testing::TestWithParam<const char*> {
 protected:
  static std::string input(const std::string& globals, const std::string& rate) {
    const std::string set = "REST a 0 20 3 8\n" + rate + "PAR c -5 5 2 1\n";
    return "FUNCTION Exp3\n" + globals + "SET s\n" + set + data(0, 9.8) + data(1, 6.3) +
           data(2, 4.4) + data(3, 2.9) + data(5, 1.6) + "SET t\n" + set + data(0, 5.1) +
           data(1, 3.6) + data(2, 2.1) + data(3, 1.9) + data(5, 1.2);
  }
  static void check(const std::string& globals, const std::string& rate) {
    Problem plain(input("METHOD ONEEX\n" + globals, rate));
    plain.fit().run_FIT(false);
    Problem problem(input("METHOD ONEEX\n" + globals + GetParam(), rate));
    problem.fit().run_FIT(false);
    const ParSet& best = problem.fit().best();
    EXPECT_LE(best.total(), plain.fit().best().total());
    for (int parm = 0; parm < problem.pardef.PAR_size(); ++parm) {
      EXPECT_TRUE(problem.pardef.isLegal(parm, best.par[static_cast<std::size_t>(parm)])) << parm;
    }
    ParSet again = best;
    EXPECT_NEAR(problem.fit().calc_chi(again), best.total(), 1e-9);
    EXPECT_EQ(problem.fit().chiLines().size(), static_cast<std::size_t>(problem.method.size()));
  }
};

TEST_P(AnyDraw, LocalResultIsLegalConsistentAndNoWorseThanAPlainFit) {
  check("", "PAR b -3 0 3 -0.5\n");
}

TEST_P(AnyDraw, GlobalResultIsLegalConsistentAndNoWorseThanAPlainFit) {
  check("GREST B -3 0 3 -0.5\n", "PAR b B\n");
}

INSTANTIATE_TEST_SUITE_P(Methods, AnyDraw,
                         testing::Values("METHOD RANDOM 5\n", "METHOD MCMIN 5 0.3\n",
                                         "METHOD RMCMIN 3 3 0.3\n",
                                         "METHOD GRID\nMETHOD MCMIN 3 0.5\n"));

}  // namespace
