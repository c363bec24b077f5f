// Plot files: data, curves, parameter box and columns of error analyses, line by line.
// SPDX-License-Identifier: GPL-3.0-or-later
#include "Xmgr.h"

#include "Problem.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <iostream>
#include <span>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace {

using problem::kInf;
using problem::kNaN;
using problem::Options;
using problem::Problem;

const std::string kTwoPoints = "SET one\nFIXED c 2\nDATA 1 3 0.5 -\nDATA 5 1 0.25 -\n";

std::string constantInput(const std::string& plots) {
  return "FUNCTION Constant\n" + plots + kTwoPoints;
}

std::string plotText(const Problem& run, const ParSet& values, const Funclib& funclib) {
  std::ostringstream out;
  run.xmgr.xplot(out, values, 0, run.pardef, funclib);
  return out.str();
}

std::string plotText(const Problem& run) { return plotText(run, run.initial(), run.funclib); }

/// The lines from the one that holds `first` to the next "&", both included.
std::string block(const std::string& text, const std::string& first) {
  const std::size_t begin = text.rfind('\n', text.find(first)) + 1;
  return text.substr(begin, text.find("&\n", begin) + 2 - begin);
}

/// The points of a curve.
std::string curvePoints(const std::string& text, const std::string& name) {
  const std::string type = "@ TYPE xy\n";
  const std::string lines = block(text, "\"Fit " + name + "\"");
  return lines.substr(lines.find(type) + type.size());
}

int count(const std::string& text, const std::string& part) {
  int found = 0;
  for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
    ++found;
  }
  return found;
}

std::string textItem(const std::string& place, const std::string& text) {
  return "@ WITH STRING\n@ STRING FONT \"Courier\"\n@ STRING LOCTYPE VIEW\n"
         "@ STRING CHAR SIZE 0.6\n@ STRING " +
         place + "\n@ STRING DEF \"" + text + "\"\n@ STRING on\n";
}

std::string heading(const std::string& place, const std::string& text) {
  return "@ WITH STRING\n@ STRING FONT \"Courier\"\n@ STRING LOCTYPE VIEW\n"
         "@ STRING CHAR SIZE 0.6\n@ STRING FONT \"Courier-Bold\"\n@ STRING " +
         place + "\n@ STRING DEF \"" + text + "\"\n@ STRING on\n";
}

// ---- top, data and curve ----

TEST(XmgrPlot, FileBeginsWithCommandsAnEmptyLineAndTheTitles) {
  const Problem run("  @ first,\t\"x\" \n" + constantInput("@last\nPLOT c\n"));
  const std::string text = plotText(run);
  EXPECT_EQ(text.substr(0, text.find('\n', 22) + 1), "  @ first,\t\"x\" \n@ VERSION 40102\n");
  EXPECT_EQ(count(text, "@ with g0\n@last\n\n@ TITLE \"one\"\n@ SUBTITLE \"f(x) = C\"\n@ S0 "), 1);
}

TEST(XmgrPlot, DataAndCurveLineByLine) {
  const Problem run(constantInput("PLOT c 0 0 0 4 3\n"));
  const std::string text = plotText(run);
  EXPECT_EQ(text.substr(text.find("@ S0 ")),
            "@ S0 LINESTYLE 0\n@ S0 COLOR 1\n@ S0 SYMBOL 2\n@ S0 SYMBOL SIZE 0.5\n"
            "@ S0 SYMBOL FILL 1\n@ S0 SYMBOL COLOR 1\n@ S0 ERRORBAR LENGTH 0.5\n"
            "@ legend string 0 \"Data c\"\n@ TARGET S0\n@ TYPE xydy\n"
            "\t1\t3\t0.5\n\t5\t1\t0.25\n&\n"
            "@ S1 LINESTYLE 1\n@ S1 COLOR 1\n@ S1 SYMBOL 0\n@ legend string 1 \"Fit c\"\n"
            "@ TARGET S1\n@ TYPE xy\n\t0\t2\n\t2\t2\n\t4\t2\n&\n");
}

TEST(XmgrPlot, WithoutErrorsTheBarsAreHiddenAndEveryErrorIsOnePointZero) {
  Problem run(constantInput("PLOT c\n"));
  run.xmgr.SetError(false);
  EXPECT_EQ(block(plotText(run), "@ S0 ERRORBAR LENGTH"),
            "@ S0 ERRORBAR LENGTH 0.5\n@ S0 ERRORBAR LINESTYLE 0\n"
            "@ S0 ERRORBAR RISER LINESTYLE 0\n@ legend string 0 \"Data c\"\n@ TARGET S0\n"
            "@ TYPE xydy\n\t1\t3\t1.0\n\t5\t1\t1.0\n&\n");
}

TEST(XmgrPlot, WithoutRangeTheCurveHasAHundredStepsOverTheData) {
  const Problem run(
      "FUNCTION Linear\nPLOT c\nSET one\nFIXED a 1\nFIXED b 10\n"
      "DATA 2.1 1 1 -\nDATA 0.1 1 1 -\nDATA 1 1 1 -\n");
  std::ostringstream expected;
  for (int i = 0; i <= 100; ++i) {
    expected << '\t' << 0.1 + 0.02 * i << '\t' << 2.0 + 0.2 * i << '\n';
  }
  EXPECT_EQ(curvePoints(plotText(run), "c"), expected.str() + "&\n");
}

TEST(XmgrPlot, ColoursGoRoundAfterFifteen) {
  std::string plots;
  for (int i = 0; i < 16; ++i) plots += "PLOT p" + std::to_string(i) + "\n";
  const std::string text = plotText(Problem(constantInput(plots)));
  EXPECT_EQ(count(text, "@ S28 COLOR 15\n"), 1);
  EXPECT_EQ(count(text, "@ S30 COLOR 1\n@ S30 SYMBOL 2\n"), 1);
  EXPECT_EQ(count(text, "@ S31 COLOR 1\n@ S31 SYMBOL 0\n"), 1);
}

TEST(XmgrPlot, InstructionWithoutPointsTakesAColourButNoSetNumber) {
  const std::string text = plotText(
      Problem("FUNCTION CPMG_const\nPLOT none 0 0 1 12\nPLOT bare\nPLOT c 0 0 1 11\nSET one\n"
              "FIXED R20 9\nDATA 100 0 1 11 9 1\n"));
  EXPECT_EQ(count(text, "none"), 0);
  EXPECT_EQ(count(text, "bare"), 0);
  EXPECT_EQ(count(text, "@ S0 COLOR 3\n"), 1);
  EXPECT_EQ(count(text, "@ S1 COLOR 3\n"), 1);
}

TEST(XmgrPlot, CurveTakesTheParametersOfItsOwnLabels) {
  const std::string text = plotText(
      Problem("FUNCTION CPMG_const\nPLOT first 0 0 1 11 0 1 2\nPLOT second 0 0 1 12 0 1 2\n"
              "SET one\nFIXED R20_1_2 7\nFIXED R20_1_1 9\nDATA 100 0 1 12 6 1\n"
              "DATA 100 0 1 11 8 1\n"));
  EXPECT_EQ(curvePoints(text, "first"), "\t0\t9\n\t1\t9\n&\n");
  EXPECT_EQ(curvePoints(text, "second"), "\t0\t7\n\t1\t7\n&\n");
}

TEST(XmgrPlot, WithoutInstructionsOnlyAWarningOnStandardOutput) {
  const Problem run(constantInput(""));
  const problem::Captured console(std::cout);
  EXPECT_EQ(plotText(run), "");
  EXPECT_EQ(console.text(), "#WARNING: No plot instructions given\n");
}

// ---- what the model is handed ----

double refusesHalf(const Data& d, double* p, std::vector<double>& /*dydp*/,
                   const std::vector<bool>& /*skip*/) {
  const double x = d.x[0];
  if (x == 1.0) return kNaN;
  if (x == 2.0) return kInf;
  if (x == 3.0) return -kInf;
  return x == 4.0 ? -1.7976931348623157e308 : p[0];
}

TEST(XmgrPlot, CurvePointsThatAreNotFiniteAreLeftOut) {
  const Options options = {.models = {{refusesHalf, "Toy", {{"c", -9, 9, ""}}}}};
  const Problem run("FUNCTION Toy\nPLOT c 0 0 0 5 6\nSET one\nFIXED c 2\nDATA 0 3 1 -\n", options);
  EXPECT_EQ(curvePoints(plotText(run), "c"), "\t0\t2\n\t4\t-1.79769e+308\n\t5\t2\n&\n");
}

double showsAbscissae(const Data& d, double* /*p*/, std::vector<double>& /*dydp*/,
                      const std::vector<bool>& /*skip*/) {
  return d.x.size() == 3 ? d.x[0] + 10 * d.x[1] + 100 * d.x[2] : kNaN;
}

/// A registry whose picked model has three abscissae.
Funclib threeColumns() {
  Funclib funclib;
  funclib.Define_Func(showsAbscissae, "Three", "toy", "EXP", 3, 0, 0);
  funclib.Pick_Func("Three");
  return funclib;
}

std::string threeColumnCurve(const Instr& instruction) {
  Problem run(constantInput(""));
  run.xmgr.add_plot(instruction);
  return curvePoints(plotText(run, run.initial(), threeColumns()), instruction.name);
}

Instr instruction(std::vector<double> x, double low, double high, int points) {
  Instr made;
  made.name = "c";
  made.x = std::move(x);
  made.index = {0};
  made.low = low;
  made.high = high;
  made.points = points;
  return made;
}

TEST(XmgrPlot, ShortAbscissaeAreFilledUpWithZeros) {
  EXPECT_EQ(threeColumnCurve(instruction({7.0}, 1, 3, 2)), "\t1\t1\n\t3\t3\n&\n");
}

TEST(XmgrPlot, AbscissaeBeyondTheFirstAreThoseOfTheInstruction) {
  EXPECT_EQ(threeColumnCurve(instruction({7.0, 2.0, 5.0}, 1, 3, 2)), "\t1\t521\n\t3\t523\n&\n");
}

TEST(XmgrPlot, FactorIsAddedToTheSecondAbscissaAfterEachPoint) {
  Instr made = instruction({7.0, 2.0, 5.0}, 1, 3, 3);
  made.factor = 0.5;
  EXPECT_EQ(threeColumnCurve(made), "\t1\t521\n\t2\t527\n\t3\t533\n&\n");
}

TEST(XmgrPlot, FactorOneAddsNothing) {
  Instr made = instruction({7.0, 2.0, 5.0}, 1, 3, 3);
  made.factor = 1.0;
  EXPECT_EQ(threeColumnCurve(made), "\t1\t521\n\t2\t522\n\t3\t523\n&\n");
}

TEST(XmgrPlot, FactorNeedsASecondAbscissa) {
  Problem run(constantInput(""));
  Instr made = instruction({7.0}, 1, 3, 2);
  made.factor = 0.5;
  run.xmgr.add_plot(made);
  EXPECT_EQ(curvePoints(plotText(run), "c"), "\t1\t2\n\t3\t2\n&\n");
}

TEST(XmgrPlot, RangeMayFallAndEachEndHasItsOwnDefault) {
  EXPECT_EQ(threeColumnCurve(instruction({0.0}, 3, 1, 2)), "\t3\t3\n\t1\t1\n&\n");
  EXPECT_EQ(threeColumnCurve(instruction({0.0}, Instr::kNoLow, 3, 2)), "\t1\t1\n\t3\t3\n&\n");
  EXPECT_EQ(threeColumnCurve(instruction({0.0}, 3, Instr::kNoHigh, 2)), "\t3\t3\n\t5\t5\n&\n");
}

std::vector<std::size_t> derivative_sizes;

double notesDerivatives(const Data& d, double* /*p*/, std::vector<double>& dydp,
                        const std::vector<bool>& /*skip*/) {
  derivative_sizes.push_back(dydp.size());
  return d.x[0];
}

// A model with a cache that was evaluated without derivatives would serve old ones to the next fit.
TEST(XmgrPlot, CurvesAreEvaluatedWithDerivatives) {
  const Options options = {
      .models = {{notesDerivatives, "Toy", {{"c", -9, 9, ""}, {"d", -9, 9, ""}}}}};
  const Problem run("FUNCTION Toy\nPLOT c 0 0 0 1 2\nSET one\nFIXED c 2\nFIXED d 2\nDATA 0 3 1 -\n",
                    options);
  derivative_sizes.clear();
  plotText(run);
  EXPECT_EQ(derivative_sizes, (std::vector<std::size_t>{2, 2}));
}

TEST(XmgrPlot, CurveShowsTheGivenValuesNotTheInitialOnes) {
  const Problem run(constantInput("PLOT c 0 0 0 1 2\n"));
  ParSet values = run.initial();
  values.par[0] = -7.0;
  EXPECT_EQ(curvePoints(plotText(run, values, run.funclib), "c"), "\t0\t-7\n\t1\t-7\n&\n");
}

// ---- parameter box ----

const std::string kBoxHeading = heading("0.03, 0.45", "Parameter   Fit       (Error)");

std::string boxText(const Problem& run, const ParSet& values, std::span<const double> errors) {
  std::ostringstream out;
  Xmgr::annot_plot(out, values, 0, run.pardef, errors);
  return out.str();
}

/// One free and one fixed parameter at four points: three degrees of freedom.
const std::string kLine =
    "FUNCTION Linear\nSET one\nPAR a 0 9\nFIXED b 0.5\nDATA 0 1 1 -\nDATA 1 1 1 -\n"
    "DATA 2 1 1 -\nDATA 3 1 1 -\n";

TEST(XmgrBox, RowsAreLeftAlignedWithFiveDigits) {
  const Problem run(kLine);
  ParSet values = run.initial();
  values.par = {1.234567, 0.5};
  values.setChi(0, 2.0);
  const std::vector<double> errors = {0.01234567, 9.0};
  EXPECT_EQ(boxText(run, values, errors),
            kBoxHeading + textItem("0.03, 0.424", "a           1.2346    (0.012346)") +
                textItem("0.03, 0.404", "b           0.5       ") +
                textItem("0.03, 0.384", "X2/DoF      0.66667   "));
}

TEST(XmgrBox, WithoutErrorsNoBrackets) {
  const Problem run(kLine);
  ParSet values = run.initial();
  values.par = {1.0, 0.5};
  EXPECT_EQ(boxText(run, values, {}), kBoxHeading +
                                          textItem("0.03, 0.424", "a           1         ") +
                                          textItem("0.03, 0.404", "b           0.5       ") +
                                          textItem("0.03, 0.384", "X2/DoF      0         "));
}

TEST(XmgrBox, SharedParameterHasTheNameOfItsDeclaration) {
  const Problem run(
      "FUNCTION Linear\nGPAR slope 0 9\nSET one\nPAR b slope\nPAR a 0 9\nDATA 0 1 1 -\n"
      "DATA 1 1 1 -\nDATA 2 1 1 -\nSET two\nPAR a 0 9\nPAR b slope\nDATA 0 1 1 -\n"
      "DATA 1 1 1 -\nDATA 2 1 1 -\n");
  const std::string text = boxText(run, run.initial(), {});
  EXPECT_LT(text.find("\"slope       0         \""), text.find("\"a           0         \""));
  EXPECT_EQ(text.find("\"b "), std::string::npos);
}

TEST(XmgrBox, WideTextsAreNotCut) {
  const Problem run(kLine);
  ParSet values = run.initial();
  values.par = {-1.23456e-05, 123456.0};
  const std::vector<double> errors = {-kNaN, 0.0};
  const std::string text = boxText(run, values, errors);
  EXPECT_EQ(count(text, "\"a           -1.2346e-05(nan)\""), 1);
  EXPECT_EQ(count(text, "\"b           1.2346e+05\""), 1);
}

TEST(XmgrBox, RowsGoOnBelowThePage) {
  std::string input = "FUNCTION CPMG_const\nSET one\n";
  for (int field = 0; field < 24; ++field) {
    const std::string temperature = std::to_string(field / 8 + 1);
    const std::string label = std::to_string(field % 8 + 1);
    input.append("FIXED R20_").append(temperature).append("_").append(label).append(" 9\n");
    input.append("DATA 100 0 1 ").append(temperature).append(label).append(" 9 1\n");
  }
  const Problem run(input);
  const std::string text = boxText(run, run.initial(), {});
  EXPECT_EQ(count(text, "@ STRING 0.03, 0.004\n@ STRING DEF \"R20_3_6     9         \"\n"), 1);
  EXPECT_EQ(count(text, "@ STRING 0.03, -0.016\n@ STRING DEF \"R20_3_7     9         \"\n"), 1);
  EXPECT_EQ(count(text, "@ STRING 0.03, -0.056\n@ STRING DEF \"X2/DoF      0         \"\n"), 1);
}

// ---- columns of the error analyses ----

std::string columnText(const Problem& run, const ParSet& centre, const ParSet& spread, int index,
                       const std::string& title) {
  std::ostringstream out;
  Xmgr::annot_sims(out, centre, spread, 0, run.pardef, index, title);
  return out.str();
}

TEST(XmgrColumn, ValuesAreRightAlignedAndFixedOnesHaveErrorsToo) {
  const Problem run(kLine);
  ParSet centre = run.initial();
  ParSet spread = run.initial();
  centre.par = {1.234567, 0.5};
  spread.par = {0.01234567, 0.0};
  centre.setChi(0, 6.0);
  spread.setChi(0, 0.75);
  EXPECT_EQ(
      columnText(run, centre, spread, 1, "Jackknife"),
      heading("0.45, 0.45", "Jackknife (Error)") + textItem("0.45, 0.424", "    1.2346(0.012346)") +
          textItem("0.45, 0.404", "       0.5(0)") + textItem("0.45, 0.384", "         2(0.25)"));
  EXPECT_EQ(columnText(run, centre, spread, 2, "Monte Carlo"),
            heading("0.73, 0.45", "Monte Carlo (Error)") +
                textItem("0.73, 0.424", "    1.2346(0.012346)") +
                textItem("0.73, 0.404", "       0.5(0)") +
                textItem("0.73, 0.384", "         2(0.25)"));
}

}  // namespace
