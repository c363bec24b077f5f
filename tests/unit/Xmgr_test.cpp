// What the input asks of plots: switches, Grace commands, family headers.
// SPDX-License-Identifier: GPL-3.0-or-later
#include "Xmgr.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <vector>

namespace {

using Lines = std::vector<std::string>;

const Lines& pageSetup() {
  static const Lines lines = {"@ VERSION 40102",
                              "@ CLEAR STRING",
                              "@ PAGE SIZE 595, 842",
                              "@ VIEW XMIN 0.10",
                              "@ VIEW XMAX 0.95",
                              "@ VIEW YMIN 0.55",
                              "@ VIEW YMAX 0.92",
                              "@ legend on",
                              "@ legend box off",
                              "@ legend box fill off",
                              "@ legend box color 1",
                              "@ legend box linewidth 1",
                              "@ legend box linestyle 1",
                              "@ legend x1 0.60",
                              "@ legend y1 0.90",
                              "@ legend char size 0.6",
                              "@ g0 on",
                              "@ g0 hidden false",
                              "@ with g0"};
  return lines;
}

/// The page setup followed by the axis lines of a family.
Lines header(const std::string& x_label, const std::string& y_label, const std::string& x_decimals,
             const std::string& y_decimals) {
  Lines lines = pageSetup();
  lines.insert(lines.end(),
               {"@ XAXIS LABEL \"" + x_label + "\"", "@ YAXIS LABEL \"" + y_label + "\"",
                "@ XAXIS TICKLABEL FORMAT DECIMAL", "@ YAXIS TICKLABEL FORMAT DECIMAL",
                "@ XAXIS TICKLABEL CHAR SIZE 0.8", "@ YAXIS TICKLABEL CHAR SIZE 0.8",
                "@ XAXIS TICKLABEL PREC " + x_decimals, "@ YAXIS TICKLABEL PREC " + y_decimals});
  return lines;
}

Lines headerOf(const std::string& family) {
  Xmgr xmgr;
  xmgr.header(family);
  return xmgr.commands();
}

TEST(Xmgr, PlotsAreOffAndErrorsOnAtFirst) {
  const Xmgr xmgr;
  EXPECT_FALSE(xmgr.isXmgr());
  EXPECT_TRUE(xmgr.isError());
  EXPECT_TRUE(xmgr.commands().empty());
  EXPECT_TRUE(xmgr.instructions().empty());
}

TEST(Xmgr, SwitchesAreIndependent) {
  Xmgr xmgr;
  xmgr.SetXmgr(true);
  EXPECT_TRUE(xmgr.isXmgr());
  EXPECT_TRUE(xmgr.isError());
  xmgr.SetError(false);
  xmgr.SetXmgr(false);
  EXPECT_FALSE(xmgr.isXmgr());
  EXPECT_FALSE(xmgr.isError());
}

TEST(XmgrHeader, CpmgLabelsItsAxes) {
  EXPECT_EQ(headerOf("CT-CPMG"), header("1/\\xt\\f{}\\sCP\\N (s\\S-1\\N)",
                                        "\\qR\\Q\\s2\\N\\Seff\\N (s\\S-1\\N)", "0", "0"));
}

TEST(XmgrHeader, R1rhoLabelsItsAxes) {
  EXPECT_EQ(headerOf("R1rho"), header("\\xw\\f{}\\s1\\N/(2\\xp\\f{}) (s\\S-1\\N)",
                                      "\\qR\\Q\\s1\\xr\\f{}\\N\\Seff\\N (s\\S-1\\N)", "0", "0"));
}

TEST(XmgrHeader, OffResonanceR1rhoLabelsItsAxes) {
  EXPECT_EQ(headerOf("R1rho_off"),
            header("\\xW\\f{}/(2\\xp\\f{}) (Hz)", "\\qR\\Q\\s1\\xr\\f{}\\N\\Seff\\N (s\\S-1\\N)",
                   "0", "0"));
}

TEST(XmgrHeader, CleanexLabelsItsAxes) {
  EXPECT_EQ(headerOf("CLEANEX"), header("Delay (s)", "I(t) / I\\s0", "2", "1"));
}

TEST(XmgrHeader, OtherFamiliesGetThePageSetupAlone) {
  EXPECT_EQ(headerOf("EXP"), pageSetup());
  EXPECT_EQ(headerOf(""), pageSetup());
}

TEST(XmgrHeader, FamilyIsComparedExactly) {
  EXPECT_EQ(headerOf("ct-cpmg"), pageSetup());
  EXPECT_EQ(headerOf("R1rho_"), pageSetup());
}

TEST(XmgrHeader, SecondHeaderIsAppended) {
  Xmgr xmgr;
  xmgr.header("EXP");
  xmgr.add_XMGRcommand("@ between");
  xmgr.header("EXP");
  Lines expected = pageSetup();
  expected.emplace_back("@ between");
  expected.insert(expected.end(), pageSetup().begin(), pageSetup().end());
  EXPECT_EQ(xmgr.commands(), expected);
}

TEST(Xmgr, CommandsStayUnchangedAndInOrder) {
  Xmgr xmgr;
  xmgr.add_XMGRcommand("  @ b,\t\"x\" ");
  xmgr.add_XMGRcommand("@ a");
  EXPECT_EQ(xmgr.commands(), (Lines{"  @ b,\t\"x\" ", "@ a"}));
}

TEST(Xmgr, InstructionsStayInOrder) {
  Xmgr xmgr;
  Instr one;
  one.name = "one";
  one.factor = 2.5;
  Instr two;
  two.name = "two";
  xmgr.add_plot(one);
  xmgr.add_plot(two);
  ASSERT_EQ(xmgr.instructions().size(), 2U);
  EXPECT_EQ(xmgr.instructions()[0].name, "one");
  EXPECT_EQ(xmgr.instructions()[0].factor, 2.5);
  EXPECT_EQ(xmgr.instructions()[1].name, "two");
}

TEST(Xmgr, InstructionWithoutRangeIsMarkedByTheInvertedLargestRange) {
  const Instr instruction;
  EXPECT_EQ(instruction.low, 1.7976931348623157e308);
  EXPECT_EQ(instruction.high, -1.7976931348623157e308);
  EXPECT_EQ(instruction.points, 0);
  EXPECT_EQ(instruction.factor, 1.0);
}

}  // namespace
