// The report of a fit and the stage directories.
// SPDX-License-Identifier: GPL-3.0-or-later
#include "Problem.h"

#include <sys/stat.h>
#include <time.h>  // for clock_gettime and the declaration of time

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace {

/// Seconds by which the calendar moves on at each reading; negative: it is the real one.
long seconds_per_reading = -1;
std::time_t calendar = 0;

}  // namespace

// Stands in for the C library's, so that long fits take no time.
extern "C" std::time_t time(std::time_t* result) noexcept {
  std::time_t now = 0;
  if (seconds_per_reading < 0) {
    timespec real = {};
    clock_gettime(CLOCK_REALTIME, &real);
    now = real.tv_sec;
  } else {
    now = calendar;
    calendar += seconds_per_reading;
  }
  if (result != nullptr) *result = now;
  return now;
}

namespace {

using problem::Captured;
using problem::data;
using problem::Options;
using problem::Problem;
using problem::readFile;
using problem::ScratchDirectory;

namespace fs = std::filesystem;

/// Four values of mean 2 and error 1: standard error 1/2, chi-square 4, 3 degrees of freedom.
std::string mean(const std::string& methods) {
  return "FUNCTION Constant\n" + methods + "SET mean\nPAR c 1\n" + data(0, 1) + data(0, 3) +
         data(0, 1) + data(0, 3);
}

/// The report of a whole run, with the calendar standing still.
std::string report(const std::string& input, int precision = 6) {
  const ScratchDirectory directory;
  Options options;
  options.output_file = (directory.path() / "out").string();
  options.precision = precision;
  Captured warnings(std::cerr);
  Problem problem(input, options);
  seconds_per_reading = 0;
  problem.fit().run_FIT(false);
  seconds_per_reading = -1;
  problem.fit().report_fit(problem.method.size());
  return readFile(options.output_file);
}

TEST(Report, OfOneSet) {
  EXPECT_EQ(report(mean("METHOD ONEEX\n")),
            "# DRAVO VERSION 2.4.4\n"
            "MODEL  Constant\n"
            "EQN    f(x) = C\n"
            "METHOD INIT\n"
            "METHOD ONEEX\n"
            "\n"
            "# Fitting results\n"
            "# Total data points = 4\n"
            "# Total degrees of freedom (DoF) = 3\n"
            "# INIT         X2/DoF = 2.66667\n"
            "# ONEEX        X2/DoF = 1.33333\n"
            "# Fit duration        0h0m0s\n"
            "\n"
            "SET\tmean\n"
            "\tc\t      2 (0.5)\n"
            "\tX2/DoF\t1.33333 (DoF = 3)\n"
            "\n"
            "Global X2/DoF\t1.33333 (DoF = 3)\n");
}

TEST(Report, OfTwoSetsWithASharedAndAFixedParameter) {
  // Lines of slope 2 through 1 and 5, exact; the intercept of the second set is fixed. The slope
  // has the curvature sum (x - 1)^2 = 2 from the first set and sum x^2 = 5 from the second one, the
  // first intercept the variance 1/3 + 1^2/7.
  const std::string text = report(
      "FUNCTION Linear\nMETHOD ONEEX\nGPAR common -9 9 1 2\nGPAR unused 0 9 1 4\n"
      "SET one\nPAR a 1\nPAR b common\n" +
      data(0, 1) + data(1, 3) + data(2, 5) + "SET two\nPAR b common\nFIXED a 5\n" + data(0, 5) +
      data(1, 7) + data(2, 9));
  EXPECT_EQ(text,
            "# DRAVO VERSION 2.4.4\n"
            "MODEL  Linear\n"
            "EQN    f(x) = A + Bx\n"
            "METHOD INIT\n"
            "METHOD ONEEX\n"
            "\n"
            "# Fitting results\n"
            "# Total data points = 6\n"
            "# Total degrees of freedom (DoF) = 3\n"
            "# INIT         X2/DoF = 0\n"
            "# ONEEX        X2/DoF = 0\n"
            "# Fit duration        0h0m0s\n"
            "\n"
            "SET\tone\n"
            "\ta\t      1 (0.690066)\n"
            "\tb\t      2 (0.377964)\n"
            "\tX2/DoF\t0 (DoF = 1)\n"
            "\n"
            "SET\ttwo\n"
            "\tb\t      2 (0.377964)\n"
            "\ta\t      5\n"
            "\tX2/DoF\t0 (DoF = 2)\n"
            "\n"
            "Global X2/DoF\t0 (DoF = 3)\n");
}

TEST(Report, ShowsTheNamesAsTheSetsOwnLinesHaveThem) {
  const std::string points = "DATA 100 298 1 11 3 1\nDATA 100 298 1 11 4 1\n";
  const std::string text = report(
      "FUNCTION CPMG_const\nGPAR r-of-both 1 9 1 4\n"
      "SET s\nPAR r20_1_1 r-of-both\n" +
      points + "SET t\nPAR R20 r-of-both\n" + points);
  EXPECT_NE(text.find("SET\ts\n\tr20_1_1\t"), std::string::npos) << text;
  EXPECT_NE(text.find("SET\tt\n\tR20\t"), std::string::npos) << text;
  EXPECT_EQ(text.find("r-of-both"), std::string::npos) << text;
}

TEST(Report, ListsAnElementAsOftenAsItsSetDoes) {
  const std::string text = report(
      "FUNCTION Linear\nGPAR S 0 9 1 2\nSET s\nPAR b S\nPAR a 1\n"
      "PAR b S\n" +
      data(0, 1) + data(1, 3) + data(2, 5) + data(3, 7));
  EXPECT_NE(text.find("\n\tb\t      2 (0.447214)\n\ta\t      1 (0.83666)\n"
                      "\tb\t      2 (0.447214)\n\tX2/DoF\t0 (DoF = 1)\n"),
            std::string::npos)
      << text;
}

TEST(Report, UnusedParameterHasTheErrorZero) {
  const std::string text = report(
      "FUNCTION CPMG_const\nSET s\nPAR R20_1_2 5 9 1 7\nFIXED R20 3\n"
      "DATA 100 298 1 11 3 1\nDATA 100 298 1 11 4 1\n");
  EXPECT_NE(text.find("\n\tR20_1_2\t      7 (0)\n\tR20\t      3\n"), std::string::npos) << text;
}

TEST(Report, FixedParameterHasNoParenthesis) {
  const std::string text = report("FUNCTION Constant\nSET s\nFIXED c 2.5\n" + data(0, 2.5));
  EXPECT_NE(text.find("\n\tc\t    2.5\n\tX2/DoF\t0 (DoF = 1)\n"), std::string::npos) << text;
}

TEST(Report, PrecisionHoldsFromTheFirstParameterOn) {
  const std::string text = report(mean("METHOD ONEEX\n"), 3);
  EXPECT_NE(text.find("X2/DoF = 2.66667\n"), std::string::npos);
  EXPECT_NE(text.find("\tX2/DoF\t1.33 (DoF = 3)\n\nGlobal X2/DoF\t1.33 (DoF = 3)\n"),
            std::string::npos)
      << text;
}

TEST(Report, PrecisionShowsMoreDigitsOnDemand) {
  // The mean of 1, 1, 2 is 4/3, its error 1/sqrt(3), the sum of squares 2/3.
  const std::string text = report("FUNCTION Constant\nMETHOD ONEEX\nSET s\nPAR c 1\n" +
                                      data(0, 1e6) + data(0, 1e6) + data(0, 2e6),
                                  10);
  EXPECT_NE(text.find("\tc\t1333333.333 (0.5773502692)\n"), std::string::npos) << text;
  EXPECT_NE(text.find("\tX2/DoF\t3.333333333e+11 (DoF = 2)\n"), std::string::npos) << text;
  EXPECT_NE(text.find("# ONEEX        X2/DoF = 3.33333e+11\n"), std::string::npos) << text;
}

TEST(Report, LongValuesWidenTheirField) {
  const std::string text = report("FUNCTION Constant\nSET s\nFIXED c 123456789\n" + data(0, 1));
  EXPECT_NE(text.find("\tc\t1.23457e+08\n"), std::string::npos) << text;
}

TEST(Report, HasTheDescriptionOfEveryMethod) {
  const std::string text =
      report(mean("METHOD ONE\nMETHOD grid\nMETHOD RANDOM 3\nMETHOD MCMIN 2 0.05\n"
                  "METHOD RMCMIN 1 2 0.25\n"));
  EXPECT_NE(text.find("METHOD INIT\nMETHOD ONE\nMETHOD GRID10\nMETHOD RANDOM 3\n"
                      "METHOD MCMIN 2 0.05\nMETHOD RMCMIN 1 2 0.25\n\n# Fitting results\n"),
            std::string::npos)
      << text;
}

TEST(Report, OfFewerMethodsHasTheirLinesOnly) {
  const ScratchDirectory directory;
  Options options;
  options.output_file = (directory.path() / "out").string();
  Problem problem(mean("METHOD ONEEX\n"), options);
  problem.fit().run_FIT(false);
  problem.fit().report_fit(1);
  const std::string text = readFile(options.output_file);
  EXPECT_NE(text.find("# INIT  "), std::string::npos);
  EXPECT_EQ(text.find("ONEEX"), std::string::npos);
}

TEST(Report, ReplacesAnOlderFile) {
  const ScratchDirectory directory;
  Options options;
  options.output_file = (directory.path() / "out").string();
  problem::writeFile(options.output_file, std::string(100000, 'x'));
  Problem problem(mean("METHOD ONEEX\n"), options);
  problem.fit().run_FIT(false);
  problem.fit().report_fit(1);
  EXPECT_EQ(readFile(options.output_file).find('x'), readFile(options.output_file).find("x) ="));
}

// ---- duration ----

/// The duration line of a fit that took so many seconds.
std::string durationLine(long seconds) {
  const ScratchDirectory directory;
  Options options;
  options.output_file = (directory.path() / "out").string();
  Problem problem(mean(""), options);
  seconds_per_reading = seconds;
  problem.fit().run_FIT(false);
  seconds_per_reading = -1;
  problem.fit().report_fit(1);
  const std::string text = readFile(options.output_file);
  const std::size_t begin = text.find("# Fit duration");
  return text.substr(begin, text.find('\n', begin) - begin);
}

TEST(FitDuration, IsInHoursMinutesAndSecondsWithoutZeroFilling) {
  EXPECT_EQ(durationLine(0), "# Fit duration        0h0m0s");
  EXPECT_EQ(durationLine(59), "# Fit duration        0h0m59s");
  EXPECT_EQ(durationLine(60), "# Fit duration        0h1m0s");
  EXPECT_EQ(durationLine(125), "# Fit duration        0h2m5s");
  EXPECT_EQ(durationLine(3600), "# Fit duration        1h0m0s");
  EXPECT_EQ(durationLine(100L * 3600 + 59L * 60 + 1), "# Fit duration        100h59m1s");
}

// ---- failures ----

class ReportFails : public testing::Test {
 protected:
  static void run(const std::string& file) {
    Options options;
    options.output_file = file;
    Problem problem(mean("METHOD ONEEX\n"), options);
    problem.fit().run_FIT(false);
    EXPECT_EXIT(problem.fit().report_fit(2), testing::ExitedWithCode(1),
                testing::Eq(expected_ + "'" + file + "'\n"));
  }
  static inline std::string expected_;
};

TEST_F(ReportFails, WhenTheFileCannotBeOpened) {
  const ScratchDirectory directory;
  expected_ = "Error: Opening file ";
  run((directory.path() / "missing" / "out").string());
  run(directory.path().string());  // a directory
}

TEST_F(ReportFails, WhenTheDiskIsFull) {
  ASSERT_TRUE(fs::exists("/dev/full"));  // a disk without room, on every Linux system
  expected_ = "Error: Writing file ";
  run("/dev/full");
}

// ---- stage directories ----

/// What INIT of the mean shows on the console.
std::string tableOfInit() {
  const std::string rule(73, '-');
  return rule + "\n  METHOD (set ,       #/  total)          X2/DoF           | best X2/DoF\n" +
         rule + "\n\r0.INIT   (   1,       1/      1)                   2.66667 |    2.66667\n";
}

/// Runs `input` verbosely inside `directory`.
void runVerbosely(const fs::path& directory, const std::string& input, bool jack = false) {
  const fs::path before = fs::current_path();
  Options options;
  options.output_file = "out";
  options.verbosity = 2;
  std::optional<Problem> problem;
  Captured console(std::cerr);
  problem.emplace(input, options);
  fs::current_path(directory);
  problem->fit().run_FIT(jack);
  EXPECT_EQ(fs::current_path(), fs::canonical(directory));
  fs::current_path(before);
}

/// The report without the time that its fit took.
std::string withoutDuration(std::string text) {
  const std::string label = "# Fit duration";
  const std::size_t begin = text.find(label) + label.size();
  return text.erase(begin, text.find('\n', begin) - begin);
}

std::vector<std::string> entries(const fs::path& directory) {
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(directory)) {
    names.push_back(entry.path().filename().string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

TEST(StageDirectories, HoldTheReportUpToTheirMethod) {
  const ScratchDirectory directory;
  runVerbosely(directory.path(), mean("METHOD ONEEX\nMETHOD ONE\n"));
  EXPECT_EQ(entries(directory.path()), (std::vector<std::string>{"01-INIT", "02-ONEEX", "03-ONE"}));
  for (const char* stage : {"01-INIT", "02-ONEEX", "03-ONE"}) {
    EXPECT_EQ(entries(directory.path() / stage), std::vector<std::string>{"out"});
  }
  EXPECT_EQ(withoutDuration(readFile(directory.path() / "01-INIT" / "out")),
            "# DRAVO VERSION 2.4.4\nMODEL  Constant\nEQN    f(x) = C\nMETHOD INIT\n\n"
            "# Fitting results\n# Total data points = 4\n# Total degrees of freedom (DoF) = 3\n"
            "# INIT         X2/DoF = 2.66667\n# Fit duration\n\n"
            "SET\tmean\n\tc\t      1 (0.5)\n\tX2/DoF\t2.66667 (DoF = 3)\n\n"
            "Global X2/DoF\t2.66667 (DoF = 3)\n");
  EXPECT_EQ(withoutDuration(readFile(directory.path() / "02-ONEEX" / "out")),
            "# DRAVO VERSION 2.4.4\nMODEL  Constant\nEQN    f(x) = C\nMETHOD INIT\n"
            "METHOD ONEEX\n\n"
            "# Fitting results\n# Total data points = 4\n# Total degrees of freedom (DoF) = 3\n"
            "# INIT         X2/DoF = 2.66667\n# ONEEX        X2/DoF = 1.33333\n# Fit duration\n\n"
            "SET\tmean\n\tc\t      2 (0.5)\n\tX2/DoF\t1.33333 (DoF = 3)\n\n"
            "Global X2/DoF\t1.33333 (DoF = 3)\n");
}

TEST(StageDirectories, HaveALeadingZeroWhateverTheNumber) {
  const ScratchDirectory directory;
  runVerbosely(directory.path(),
               mean("METHOD ONE\nMETHOD ONE\nMETHOD ONE\nMETHOD ONE\nMETHOD MCMIN 1 0.1\n"
                    "METHOD RMCMIN 1 1 0.1\nMETHOD ONE\nMETHOD ONE\nMETHOD RANDOM 1\n"
                    "METHOD GRID\n"));
  EXPECT_EQ(
      entries(directory.path()),
      (std::vector<std::string>{"01-INIT", "010-RANDOM", "011-GRID", "02-ONE", "03-ONE", "04-ONE",
                                "05-ONE", "06-MCMIN", "07-RMCMIN", "08-ONE", "09-ONE"}));
}

TEST(StageDirectories, AreReused) {
  const ScratchDirectory directory;
  fs::create_directory(directory.path() / "01-INIT");
  problem::writeFile(directory.path() / "01-INIT" / "note", "mine");
  runVerbosely(directory.path(), mean(""));
  EXPECT_EQ(entries(directory.path() / "01-INIT"), (std::vector<std::string>{"note", "out"}));
}

TEST(StageDirectories, HaveTheirModeRestrictedByTheUmaskOnly) {
  const ScratchDirectory directory;
  const mode_t before = umask(0);
  runVerbosely(directory.path(), mean(""));
  umask(before);
  struct stat status = {};
  ASSERT_EQ(stat((directory.path() / "01-INIT").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777U, 0755U);
}

TEST(StageDirectories, AreNotMadeInAPassOfAnErrorAnalysis) {
  const ScratchDirectory directory;
  runVerbosely(directory.path(), mean(""), true);
  EXPECT_TRUE(entries(directory.path()).empty());
}

TEST(StageDirectories, AreNotMadeAtLowerVerbosity) {
  const ScratchDirectory directory;
  const fs::path before = fs::current_path();
  fs::current_path(directory.path());
  Options options;
  options.verbosity = 1;
  {
    Captured console(std::cerr);
    Problem problem(mean(""), options);
    problem.fit().run_FIT(false);
  }
  fs::current_path(before);
  EXPECT_TRUE(entries(directory.path()).empty());
}

TEST(StageDirectories, ThatCannotBeEnteredEndTheRun) {
  const ScratchDirectory directory;
  problem::writeFile(directory.path() / "01-INIT", "a file");
  Options options;
  options.output_file = "out";
  options.verbosity = 2;
  Problem problem(mean(""), options);
  EXPECT_EXIT(
      {
        fs::current_path(directory.path());
        problem.fit().run_FIT(false);
      },
      testing::ExitedWithCode(1), testing::Eq(tableOfInit() + "no directory found\n"));
}

TEST(StageDirectories, WithAReportThatCannotBeOpenedEndTheRun) {
  const ScratchDirectory directory;
  Options options;
  options.output_file = "missing/out";
  options.verbosity = 2;
  Problem problem(mean(""), options);
  EXPECT_EXIT(
      {
        fs::current_path(directory.path());
        problem.fit().run_FIT(false);
      },
      testing::ExitedWithCode(1),
      testing::Eq(tableOfInit() + "Error: Opening file 'missing/out'\n"));
}

}  // namespace
