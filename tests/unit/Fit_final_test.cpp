// Summary and final report of the error analyses; whole layouts are golden runs.
// SPDX-License-Identifier: GPL-3.0-or-later
#include "Problem.h"

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

namespace {

using problem::Captured;
using problem::data;
using problem::FakeClock;
using problem::Options;
using problem::Problem;
using problem::readFile;
using problem::ScratchDirectory;
using problem::writeFile;

constexpr int kJackknife = 1;
constexpr int kMonteCarlo = 2;

/// A fit that has run in a directory of its own.
struct Analysis {
  explicit Analysis(const std::string& input, int precision = 6) {
    Options options;
    options.output_file = path("out");
    options.precision = precision;
    FakeClock::start(400);
    options.random = Random(FakeClock::now);
    problem = std::make_unique<Problem>(input, options);
    problem->fit().run_FIT(false);
  }
  [[nodiscard]] std::string path(const std::string& name) const {
    return (directory.path() / name).string();
  }
  [[nodiscard]] std::string text(const std::string& name) const { return readFile(path(name)); }
  [[nodiscard]] std::vector<std::string> files() const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(directory.path())) {
      names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
  }

  ScratchDirectory directory;
  Captured console{std::cerr};
  std::unique_ptr<Problem> problem;
};

/// Mean 3 of 1, 2, 4, 5, chi-square 10; displaced lists {2,4,5}, {4,5,1}, {5,1,4}, {1,4,1}.
const std::string kMean = "FUNCTION Constant\nMETHOD ONE\nMETHOD GRID\nSET s\nPAR c 0 9 1 1\n" +
                          data(0, 1) + data(1, 2) + data(2, 4) + data(3, 5);

std::vector<std::string> linesOf(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

TEST(ReportFinal, NamesItsFilesAfterTheReportAndTheKind) {
  Analysis run(kMean);
  run.problem->fit().run_JACK();
  run.problem->fit().report_final(kJackknife);
  EXPECT_EQ(run.files(),
            (std::vector<std::string>{"out-jack", "out-jack-final.out", "out-jack.sum"}));
  run.problem->calc.SetMonte(2, 2);
  run.problem->fit().run_MONTE();
  run.problem->fit().report_final(kMonteCarlo);
  EXPECT_EQ(run.files(),
            (std::vector<std::string>{"out-jack", "out-jack-final.out", "out-jack.sum", "out-monte",
                                      "out-monte-final.out", "out-monte.sum"}));
}

TEST(ReportFinal, OfAnotherKindWritesNothing) {
  Analysis run(kMean);
  for (const int kind : {-1, 0, 3}) run.problem->fit().report_final(kind);
  EXPECT_TRUE(run.files().empty());
}

TEST(ReportFinal, ReplacesOlderFiles) {
  Analysis run(kMean);
  for (const char* name : {"out-jack", "out-jack.sum", "out-jack-final.out"}) {
    writeFile(run.path(name), std::string(5000, '@'));
  }
  run.problem->fit().run_JACK();
  run.problem->fit().report_final(kJackknife);
  for (const char* name : {"out-jack", "out-jack.sum", "out-jack-final.out"}) {
    EXPECT_EQ(run.text(name).find('@'), std::string::npos) << name;
  }
}

TEST(ReportFinal, NumbersHaveSixDigitsWhateverThePrecisionOfTheReport) {
  // Passes 11/3, 10/3, 10/3 and 2 about 3: error sqrt(3/4 (4 + 1 + 1 + 9)/9).
  Analysis run(kMean, 12);
  run.problem->fit().run_JACK();
  run.problem->fit().report_final(kJackknife);
  EXPECT_EQ(linesOf(run.text("out-jack.sum")).at(2), "\tc\t3.08333 (1.11803)");
  EXPECT_EQ(linesOf(run.text("out-jack")).at(2), "#1:\tc\t3.66667");
  EXPECT_NE(run.text("out-jack-final.out").find("SET\ts\n\tc\t      3 (1.11803)\n"),
            std::string::npos);
}

TEST(ReportFinal, HasTheHeaderOfTheReportWithoutItsDuration) {
  Analysis run(kMean);
  run.problem->fit().run_JACK();
  run.problem->fit().report_final(kJackknife);
  run.problem->fit().report_fit(run.problem->method.size());
  const std::string report = run.text("out");
  const std::string header = report.substr(0, report.find("# Fit duration"));
  const std::string final = run.text("out-jack-final.out");
  EXPECT_EQ(final.substr(0, header.size()), header);
  EXPECT_EQ(final.substr(header.size(), 30), "# Error Analysis: JACK\n\nSET\ts\n");
}

TEST(ReportFinal, ListsTheMethodsInForceWhenItIsWritten) {
  Analysis run(kMean);
  const Method spare = run.problem->method;
  run.problem->setup.resetMETHOD_ONEEX(run.problem->method);
  run.problem->fit().run_JACK();
  run.problem->fit().report_final(kJackknife);
  const std::vector<std::string> quick = linesOf(run.text("out-jack-final.out"));
  EXPECT_EQ(quick.at(3), "METHOD INIT");
  EXPECT_EQ(quick.at(4), "METHOD ONEEX");
  EXPECT_EQ(quick.at(5), "");
  // The chi-squares are the first of the full fit, whose second method was ONE.
  EXPECT_EQ(quick.at(9), "# INIT         X2/DoF = 8.66667");
  EXPECT_EQ(quick.at(10), "# ONE          X2/DoF = 3.33333");
  EXPECT_EQ(quick.at(11), "# Error Analysis: JACK");

  run.problem->method = spare;
  run.problem->calc.SetMonte(2, 2);
  run.problem->fit().run_MONTE();
  run.problem->fit().report_final(kMonteCarlo);
  const std::vector<std::string> full = linesOf(run.text("out-monte-final.out"));
  EXPECT_EQ(full.at(4), "METHOD ONE");
  EXPECT_EQ(full.at(5), "METHOD GRID10");
  EXPECT_EQ(full.at(12), "# GRID         X2/DoF = 3.33333");
  EXPECT_EQ(full.at(13), "# Error Analysis: MONTE 2");
}

TEST(ReportFinal, ValuesAreThoseOfTheFullFitAndErrorsThoseOfTheAnalysis) {
  Analysis run(kMean);
  run.problem->fit().run_JACK();
  run.problem->fit().report_final(kJackknife);
  const std::string final = run.text("out-jack-final.out");
  EXPECT_NE(final.find("SET\ts\n\tc\t      3 (1.11803)\n\tX2/DoF\t3.33333 (DoF = 3)\n\n"
                       "Global X2/DoF\t3.33333 (DoF = 3)\n"),
            std::string::npos);
}

TEST(JackknifeSummary, GlobalLineDividesByOneLessThanTheFinalReport) {
  const std::string input = "FUNCTION Constant\nMETHOD ONE\nGPAR C 0 9 1 2\nSET s\nPAR c C\n" +
                            data(0, 1) + data(1, 3) + "SET t\nPAR c C\n" + data(0, 1) + data(1, 3);
  Analysis run(input);
  run.problem->fit().run_JACK();
  run.problem->fit().report_final(kJackknife);
  // Every pass: three points with mean 5/3 or 7/3 and chi-square 8/3; the full fit has 4. gDoF was
  // 3 and is 4 now.
  EXPECT_EQ(linesOf(run.text("out-jack.sum")).back(), "Global X2/DoF = 0.888889  (0.7698)");
}

TEST(PercentileLines, NeedTenRequestedSimulations) {
  for (const int simulations : {2, 9, 10, 11}) {
    Analysis run("FUNCTION Constant\nSET s\nFIXED c 1\n" + data(0, 1) + "SET t\nFIXED c 1\n" +
                 data(0, 1));
    run.problem->calc.SetMonte(2, simulations);
    run.problem->fit().run_MONTE();
    run.problem->fit().report_final(kMonteCarlo);
    std::size_t lines = 0;
    for (const std::string& line : linesOf(run.text("out-monte.sum"))) {
      if (line.rfind("\t\t0.", 0) == 0) ++lines;
    }
    EXPECT_EQ(lines, simulations < 10 ? 0U : 2U * 19U) << simulations;
  }
}

TEST(PercentileLines, AreStarredOnlyAboveTheChiSquareOfTheFit) {
  // The fit has the chi-square of a quarter of the simulations below it.
  Analysis run("FUNCTION Constant\nSET s\nFIXED c 0\n" + data(0, 0.3186));
  run.problem->calc.SetMonte(2, 400);
  run.problem->fit().run_MONTE();
  run.problem->fit().report_final(kMonteCarlo);
  const Fit& fit = run.problem->fit();
  const double best = fit.saved().chi(0);
  double p = 0.05;
  std::size_t starred = 0;
  for (const std::string& line : linesOf(run.text("out-monte.sum"))) {
    if (line.rfind("\t\t0.", 0) != 0) continue;
    const bool has_stars = line.find("\t***") != std::string::npos;
    EXPECT_EQ(has_stars, fit.pchi(0, p) > best) << line;
    if (has_stars) ++starred;
    p += 0.05;
  }
  EXPECT_GT(starred, 10U);
  EXPECT_LT(starred, 18U);
}

}  // namespace
