// Sets, elements of the parameter vector, degrees of freedom, mapping of points.
// SPDX-License-Identifier: GPL-3.0-or-later
#include "ParDef.h"

#include "InputText.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <ostream>
#include <string>
#include <vector>

namespace {

constexpr double kInf = std::numeric_limits<double>::infinity();
constexpr double kNan = std::numeric_limits<double>::quiet_NaN();

using Numbers = std::vector<int>;

const char* const kTooManyParameters = "#ERROR: More adjustable parameters than data points.\n";

std::string omitted(const std::string& title) {
  return "WARNING: Too few data points. '" + title + "' is omitted.\n";
}
std::string notUsed(const std::string& title, const std::string& name) {
  return "WARNING (" + title + "): Parameter '" + name + "' is not used by any data point\n";
}

/// A model without labels: a within 0..10, b within -5..5.
ParDef line() {
  Rules rules;
  rules.Define_Parm("a", 0.0, 10.0, "");
  rules.Define_Parm("b", -5.0, 5.0, "");
  ParDef pardef;
  pardef.setRule(rules);
  return pardef;
}

/// A model with two labels: kex within 1..1000 for the first, R20 within 0.1..50 for both.
ParDef dispersion() {
  Rules rules;
  rules.Define_Parm("kex", 1.0, 1000.0, "10");
  rules.Define_Parm("R20", 0.1, 50.0, "11");
  ParDef pardef;
  pardef.setRule(rules);
  return pardef;
}

void addPar(ParDef& pardef, const std::string& name) {
  pardef.Add_PAR(name, 1.0, 2.0, 2, 0.0, kInf);
}
void addGlobal(ParDef& pardef, const std::string& name) {
  pardef.Add_GPAR(name, 1.0, 2.0, 2, 0.0, kInf);
}
void addPoints(ParDef& pardef, int n, const Numbers& labels = {0}) {
  for (int i = 0; i < n; ++i) pardef.Add_DATA({1.0 * i}, labels, 10.0 + i, 1.0);
}
/// A set of `line` with a and b of its own.
void addLineSet(ParDef& pardef, const std::string& title, int points) {
  pardef.Add_Set(title);
  addPar(pardef, "a");
  addPar(pardef, "b");
  addPoints(pardef, points);
}

Ending endingOfPrep(ParDef pardef) {
  return endingOf([&] { pardef.prep(); });
}
Ending returnedSaying(const std::string& out) { return {Ending::kReturned, out, ""}; }

// ---- one element ----

TEST(Elem, NewElementIsUndefinedAndUnbounded) {
  const Elem elem;
  EXPECT_EQ(elem.type, 0);
  EXPECT_EQ(elem.start, -kInf);
  EXPECT_EQ(elem.end, kInf);
  EXPECT_EQ(elem.range, 0.0);
  EXPECT_EQ(elem.step, 0.0);
  EXPECT_EQ(elem.steps, 1);
  EXPECT_EQ(elem.interval, 0);
  EXPECT_TRUE(elem.sets.empty());
}

TEST(Elem, GridKeepsItsNumbers) {
  Elem elem;
  elem.setGrid(1.0, 101.0, 5, 3.0, 7.0);
  EXPECT_EQ(elem.type, 1);
  EXPECT_EQ(elem.start, 1.0);
  EXPECT_EQ(elem.end, 101.0);
  EXPECT_EQ(elem.range, 100.0);
  EXPECT_EQ(elem.steps, 5);
  EXPECT_EQ(elem.interval, 3);
  EXPECT_EQ(elem.initial, 7.0);
}

struct StepRow {
  double interval;
  int code;
  double step;
};

void PrintTo(const StepRow& row, std::ostream* stream) { *stream << row.interval; }

class ElemStep : public testing::TestWithParam<StepRow> {};

// 5 points over a range of 100: ln 100 = 4.60517018598809, its root 2.14596602628935, log10 100
// = 2.
TEST_P(ElemStep, FollowsTheSpacingCode) {
  Elem elem;
  elem.setGrid(1.0, 101.0, 5, GetParam().interval, kInf);
  EXPECT_EQ(elem.interval, GetParam().code);
  EXPECT_DOUBLE_EQ(elem.step, GetParam().step);
}

INSTANTIATE_TEST_SUITE_P(Codes, ElemStep,
                         testing::Values(StepRow{0.0, 0, 25.0}, StepRow{1.0, 1, 1.151292546497023},
                                         StepRow{2.0, 2, 0.5364915065723368}, StepRow{3.0, 3, 0.5},
                                         StepRow{4.0, 4, 1.151292546497023},
                                         StepRow{5.0, 5, 0.5364915065723368}, StepRow{6.0, 6, 0.5},
                                         StepRow{7.0, 7, 0.0}, StepRow{-1.0, -1, 0.0},
                                         StepRow{1.9, 1, 1.151292546497023}, StepRow{6.9, 6, 0.5},
                                         StepRow{-0.9, 0, 25.0}),
                         [](const auto& row) {
                           return asTestName("Code" + std::to_string(row.param.interval));
                         });

TEST(ElemStep, StaysZeroWithFewerThanTwoPoints) {
  for (const int steps : {1, 0, -3}) {
    Elem elem;
    elem.setGrid(1.0, 101.0, steps, 0.0, kInf);
    EXPECT_EQ(elem.step, 0.0) << steps;
    EXPECT_EQ(elem.steps, steps);
  }
}

TEST(ElemStep, IsResetByALaterGrid) {
  Elem elem;
  elem.setGrid(1.0, 101.0, 5, 0.0, kInf);
  elem.setGrid(1.0, 101.0, 1, 0.0, kInf);
  EXPECT_EQ(elem.step, 0.0);
}

TEST(ElemStep, OfARangeBelowOneIsNegativeInLogarithmicSpacing) {
  Elem elem;
  elem.setGrid(0.0, 0.01, 5, 3.0, kInf);
  EXPECT_DOUBLE_EQ(elem.step, -0.5);
  elem.setGrid(0.0, 0.01, 5, 2.0, kInf);
  EXPECT_TRUE(std::isnan(elem.step));  // root of a negative logarithm
}

TEST(Elem, InitialValueThatIsNotFiniteMeansTheStart) {
  for (const double initial : {kInf, -kInf, kNan}) {
    Elem elem;
    elem.setGrid(3.0, 9.0, 2, 0.0, initial);
    EXPECT_EQ(elem.initial, 3.0) << initial;
  }
}

TEST(Elem, FixedElementStartsAndEndsAtItsValue) {
  Elem elem;
  elem.setFixed(4.5);
  EXPECT_EQ(elem.type, 2);
  EXPECT_EQ(elem.start, 4.5);
  EXPECT_EQ(elem.end, 4.5);
  EXPECT_EQ(elem.initial, 4.5);
}

TEST(Elem, IsGlobalFromTheSecondUseOnAndOnlyWhenAdjustable) {
  Elem elem;
  elem.setGrid(1.0, 2.0, 2, 0.0, kInf);
  EXPECT_FALSE(elem.isGlobal());
  elem.Add_nSetByPAR(3);
  EXPECT_FALSE(elem.isGlobal());
  elem.Add_nSetByPAR(4);
  EXPECT_TRUE(elem.isGlobal());
  elem.setFixed(1.0);
  EXPECT_FALSE(elem.isGlobal());
}

TEST(Elem, IsFittedBySetAloneOnlyWhenThatIsItsOneSetAndItIsAdjustable) {
  Elem elem;
  elem.setGrid(1.0, 2.0, 2, 0.0, kInf);
  EXPECT_FALSE(elem.IsLocalNonFIXED(3));
  elem.Add_nSetByPAR(3);
  EXPECT_TRUE(elem.IsLocalNonFIXED(3));
  EXPECT_FALSE(elem.IsLocalNonFIXED(4));
  elem.Add_nSetByPAR(3);
  EXPECT_FALSE(elem.IsLocalNonFIXED(3));
  Elem fixed;
  fixed.setFixed(1.0);
  fixed.Add_nSetByPAR(3);
  EXPECT_FALSE(fixed.IsLocalNonFIXED(3));
}

// ---- declarations ----

TEST(ParDef, ElementsAreNumberedInTheOrderOfDeclaration) {
  ParDef pardef = line();
  addGlobal(pardef, "g");
  pardef.Add_Set("one");
  pardef.Add_FIXED("b", 3.0);
  pardef.Add_PAR("A", 1.0, 5.0, 3, 0.0, 2.0);
  EXPECT_EQ(pardef.PAR_size(), 3);
  EXPECT_EQ(pardef.Name(0), "g");
  EXPECT_EQ(pardef.Name(1), "b");
  EXPECT_EQ(pardef.Name(2), "A");
}

TEST(ParDef, FullNamesCarryTheScope) {
  ParDef pardef = line();
  addGlobal(pardef, "k");
  pardef.Add_Set("res 7");
  addPar(pardef, "a");
  pardef.Add_FIXED("b", 3.0);
  pardef.Add_GREST("kr", 1.0, 2.0, 1, 0.0, kInf);
  pardef.Add_GFIXED("kf", 1.0);
  EXPECT_EQ(pardef.FullName(0), "GLOBAL::k");
  EXPECT_EQ(pardef.FullName(1), "res 7::a");
  EXPECT_EQ(pardef.FullName(2), "res 7::b");
  EXPECT_EQ(pardef.FullName(3), "GLOBAL::kr");
  EXPECT_EQ(pardef.FullName(4), "GLOBAL::kf");
}

TEST(ParDef, ScopeIsGlobalOnlyForGlobalKeywords) {
  ParDef pardef = line();
  pardef.Add_Set("GLOBAL");  // a title like any other
  addPar(pardef, "a");
  pardef.Add_REST("b", 1.0, 2.0, 1, 0.0, kInf);
  pardef.Add_FIXED("b", 1.0);
  addGlobal(pardef, "k");
  pardef.Add_GREST("kr", 1.0, 2.0, 1, 0.0, kInf);
  pardef.Add_GFIXED("kf", 1.0);
  for (int i = 0; i < 3; ++i) EXPECT_TRUE(pardef.elem(i).isLocal()) << i;
  for (int i = 3; i < 6; ++i) EXPECT_FALSE(pardef.elem(i).isLocal()) << i;
}

TEST(ParDef, RangeOfAParameterIsReadBack) {
  ParDef pardef = line();
  pardef.Add_Set("one");
  pardef.Add_PAR("a", 1.0, 101.0, 5, 0.0, 7.0);
  EXPECT_EQ(pardef.grd_start(0), 1.0);
  EXPECT_EQ(pardef.grd_end(0), 101.0);
  EXPECT_EQ(pardef.grd_initial(0), 7.0);
  EXPECT_EQ(pardef.grd_range(0), 100.0);
  EXPECT_EQ(pardef.grd_step(0), 25.0);
  EXPECT_EQ(pardef.grd_size(0), 5);
  EXPECT_EQ(pardef.grd_interval(0), 0);
  EXPECT_TRUE(pardef.isGRID(0));
  EXPECT_FALSE(pardef.isFIXED(0));
}

TEST(ParDef, FixedParameterIsReadBack) {
  ParDef pardef = line();
  pardef.Add_Set("one");
  pardef.Add_FIXED("a", 4.5);
  pardef.Add_GFIXED("g", 5.5);
  for (int i = 0; i < 2; ++i) {
    EXPECT_FALSE(pardef.isGRID(i));
    EXPECT_TRUE(pardef.isFIXED(i));
    EXPECT_EQ(pardef.grd_initial(i), i == 0 ? 4.5 : 5.5);
  }
}

TEST(ParDef, DeclarationsKeepOrderNameBaseAndIndices) {
  ParDef pardef = dispersion();
  addGlobal(pardef, "shared");
  pardef.Add_Set("one");
  addPar(pardef, "R20_1_2");
  pardef.Add_PAR("KEX_3", "shared");
  pardef.Add_FIXED("r20", 3.0);
  const std::vector<Declaration>& list = pardef.declarations(0);
  ASSERT_EQ(list.size(), 3U);
  EXPECT_EQ(list[0].elem, 1);
  EXPECT_EQ(list[0].base, 1);
  EXPECT_EQ(list[0].index, (Numbers{1, 2}));
  EXPECT_EQ(list[0].name, "R20_1_2");
  EXPECT_EQ(list[1].elem, 0);
  EXPECT_EQ(list[1].base, 0);
  EXPECT_EQ(list[1].index, (Numbers{3, -1}));
  EXPECT_EQ(list[1].name, "KEX_3");  // as the set's own line has it
  EXPECT_EQ(list[2].elem, 2);
  EXPECT_EQ(list[2].base, 1);
  EXPECT_EQ(list[2].index, (Numbers{-1, -1}));
}

TEST(ParDef, KeptSetStoresTheBaseParameterInItsElements) {
  ParDef pardef = line();
  addGlobal(pardef, "g");
  pardef.Add_Set("one");
  pardef.Add_PAR("b", "g");
  pardef.Add_FIXED("a", 1.0);
  addPoints(pardef, 2);
  pardef.prep();
  EXPECT_EQ(pardef.elem(0).base, 1);
  EXPECT_EQ(pardef.elem(1).base, 0);
}

TEST(ParDef, RulesAreInUseFromTheFirstLineOfASetThatNamesAParameter) {
  ParDef pardef = line();
  addGlobal(pardef, "g");
  pardef.Add_GFIXED("f", 1.0);
  pardef.Add_Set("one");
  EXPECT_FALSE(pardef.usesRules());
  pardef.Add_PAR("a", "g");
  EXPECT_TRUE(pardef.usesRules());
  for (const bool fixed : {false, true}) {
    ParDef other = line();
    other.Add_Set("one");
    if (fixed) {
      other.Add_FIXED("a", 1.0);
    } else {
      addPar(other, "a");
    }
    EXPECT_TRUE(other.usesRules());
  }
}

TEST(ParDef, BadNamesOfASetEndTheRun) {
  ParDef pardef = line();
  pardef.Add_Set("one");
  const Ending expected = fatalEnding(
      "ERROR: Parameter name 'c' unrecognized.\n"
      "Valid parameter names for the model:\t'a'\t'b'\n");
  EXPECT_EQ(endingOf([&] { addPar(pardef, "c"); }), expected);
  EXPECT_EQ(endingOf([&] { pardef.Add_REST("c", 1.0, 2.0, 1, 0.0, kInf); }), expected);
  EXPECT_EQ(endingOf([&] { pardef.Add_FIXED("c", 1.0); }), expected);
}

TEST(ParDef, GlobalNamesAreFreeText) {
  ParDef pardef = line();
  addGlobal(pardef, "no_such_parameter_");
  pardef.Add_GREST("#", 1.0, 2.0, 1, 0.0, kInf);
  pardef.Add_GFIXED("1.5", 1.0);
  EXPECT_EQ(pardef.Name(0), "no_such_parameter_");
  EXPECT_EQ(pardef.Name(1), "#");
  EXPECT_EQ(pardef.Name(2), "1.5");
}

// ---- legal ranges ----

TEST(LegalRange, OfParAndFixedIsTheModels) {
  ParDef pardef = line();
  pardef.Add_Set("one");
  pardef.Add_PAR("a", 3.0, 4.0, 2, 0.0, kInf);
  pardef.Add_FIXED("b", 1.0);
  addPoints(pardef, 2);
  pardef.prep();
  EXPECT_EQ(pardef.elem(0).legal_low, 0.0);
  EXPECT_EQ(pardef.elem(0).legal_high, 10.0);
  EXPECT_EQ(pardef.elem(1).legal_low, -5.0);
  EXPECT_EQ(pardef.elem(1).legal_high, 5.0);
}

TEST(LegalRange, OfRestIsTheUsersEvenBeyondTheModels) {
  ParDef pardef = line();
  pardef.Add_Set("one");
  pardef.Add_REST("a", 3.0, 4.0, 2, 0.0, kInf);
  pardef.Add_REST("b", -100.0, 100.0, 2, 0.0, kInf);
  addPoints(pardef, 3);
  pardef.prep();
  EXPECT_EQ(pardef.elem(0).legal_low, 3.0);
  EXPECT_EQ(pardef.elem(0).legal_high, 4.0);
  EXPECT_EQ(pardef.elem(1).legal_low, -100.0);
  EXPECT_EQ(pardef.elem(1).legal_high, 100.0);
}

TEST(LegalRange, OfGlobalsComesFromTheReferenceButARestraintStays) {
  ParDef pardef = line();
  addGlobal(pardef, "adjustable");
  pardef.Add_GREST("restrained", 3.0, 4.0, 2, 0.0, kInf);
  pardef.Add_GFIXED("fixed", 1.0);
  pardef.Add_Set("one");
  pardef.Add_PAR("b", "adjustable");
  pardef.Add_PAR("a", "restrained");
  addPoints(pardef, 3);
  pardef.Add_Set("two");
  pardef.Add_PAR("b", "adjustable");
  pardef.Add_PAR("a", "fixed");
  addPoints(pardef, 3);
  pardef.prep();
  EXPECT_EQ(pardef.elem(0).legal_low, -5.0);
  EXPECT_EQ(pardef.elem(0).legal_high, 5.0);
  EXPECT_EQ(pardef.elem(1).legal_low, 3.0);
  EXPECT_EQ(pardef.elem(1).legal_high, 4.0);
  EXPECT_EQ(pardef.elem(2).legal_low, 0.0);
  EXPECT_EQ(pardef.elem(2).legal_high, 10.0);
}

TEST(LegalRange, OfAGlobalWithoutReferenceIsUnboundedUnlessRestrained) {
  ParDef pardef = line();
  addGlobal(pardef, "adjustable");
  pardef.Add_GREST("restrained", 3.0, 4.0, 2, 0.0, kInf);
  pardef.Add_GFIXED("fixed", 1.0);
  addLineSet(pardef, "one", 5);
  pardef.prep();
  for (const int i : {0, 2}) {
    EXPECT_EQ(pardef.elem(i).legal_low, -kInf) << i;
    EXPECT_EQ(pardef.elem(i).legal_high, kInf) << i;
  }
  EXPECT_EQ(pardef.elem(1).legal_low, 3.0);
  EXPECT_EQ(pardef.elem(1).legal_high, 4.0);
}

TEST(LegalRange, IncludesItsEndsAndRefusesNan) {
  ParDef pardef = line();
  pardef.Add_Set("one");
  pardef.Add_REST("a", 3.0, 4.0, 2, 0.0, kInf);
  EXPECT_TRUE(pardef.isLegal(0, 3.0));
  EXPECT_TRUE(pardef.isLegal(0, 4.0));
  EXPECT_FALSE(pardef.isLegal(0, std::nextafter(3.0, 0.0)));
  EXPECT_FALSE(pardef.isLegal(0, std::nextafter(4.0, 9.0)));
  EXPECT_FALSE(pardef.isLegal(0, kNan));
}

TEST(LegalRange, WithoutBoundsStillRefusesNan) {
  ParDef pardef = line();
  addGlobal(pardef, "g");
  EXPECT_TRUE(pardef.isLegal(0, kInf));
  EXPECT_TRUE(pardef.isLegal(0, -kInf));
  EXPECT_FALSE(pardef.isLegal(0, kNan));
}

// ---- shared elements ----

TEST(Globals, SetsShareOnePositionOfTheParameterVector) {
  ParDef pardef = line();
  addGlobal(pardef, "k");
  for (const std::string title : {"one", "two"}) {
    pardef.Add_Set(title);
    pardef.Add_PAR("a", "k");
    addPar(pardef, "b");
    addPoints(pardef, 3);
  }
  pardef.prep();
  EXPECT_EQ(pardef.PAR_size(), 3);
  EXPECT_EQ(pardef.parms(0), (Numbers{0, 1}));
  EXPECT_EQ(pardef.parms(1), (Numbers{0, 2}));
  EXPECT_EQ(pardef.elem(0).sets, (Numbers{0, 1}));
  EXPECT_TRUE(pardef.isGlobal(0));
  EXPECT_FALSE(pardef.isLocal(0));
  EXPECT_FALSE(pardef.isGlobal(1));
  EXPECT_TRUE(pardef.isLocal(1));
  EXPECT_TRUE(pardef.hasGlobals());
}

TEST(Globals, ElementOfOneSetIsLocalWhateverItsKeyword) {
  ParDef pardef = line();
  addGlobal(pardef, "k");
  pardef.Add_Set("one");
  pardef.Add_PAR("a", "k");
  addPar(pardef, "b");
  addPoints(pardef, 3);
  pardef.prep();
  EXPECT_FALSE(pardef.isGlobal(0));
  EXPECT_TRUE(pardef.elem(0).IsLocalNonFIXED(0));
  EXPECT_FALSE(pardef.hasGlobals());
}

TEST(Globals, FixedElementOfTwoSetsIsNotGlobal) {
  ParDef pardef = line();
  pardef.Add_GFIXED("k", 1.0);
  for (const std::string title : {"one", "two"}) {
    pardef.Add_Set(title);
    pardef.Add_PAR("a", "k");
    addPar(pardef, "b");
    addPoints(pardef, 2);
  }
  pardef.prep();
  EXPECT_EQ(pardef.elem(0).sets, (Numbers{0, 1}));
  EXPECT_FALSE(pardef.isGlobal(0));
  EXPECT_FALSE(pardef.hasGlobals());
}

TEST(Globals, ElementListedTwiceByOneSetIsGlobalAndCountsTwiceInItsDegreesOfFreedom) {
  ParDef pardef = line();
  addGlobal(pardef, "k");
  pardef.Add_Set("one");
  pardef.Add_PAR("a", "k");
  pardef.Add_PAR("b", "k");
  addPoints(pardef, 5);
  pardef.prep();
  EXPECT_EQ(pardef.lDoF(0), 3);
  EXPECT_EQ(pardef.gDoF(), 4);
  EXPECT_EQ(pardef.elem(0).sets, (Numbers{0, 0}));
  EXPECT_TRUE(pardef.isGlobal(0));
  EXPECT_EQ(pardef.declarations(0).size(), 2U);
  EXPECT_EQ(pardef.parms(0), Numbers{0});  // solved for once
}

TEST(Globals, NameIsComparedExactly) {
  ParDef pardef = line();
  addGlobal(pardef, "kex");
  pardef.Add_Set("res7");
  for (const std::string name : {"KEX", "ke", "kexx", "a"}) {
    EXPECT_EQ(
        endingOf([&] { pardef.Add_PAR("a", name); }),
        fatalEnding("ERROR: Set 'res7' par 'a' references unknown variable '" + name + "'\n"));
  }
  EXPECT_EQ(pardef.Find_GPAR("a", "kex"), 0);
}

TEST(Globals, ParameterOfASetIsNoGlobal) {
  ParDef pardef = line();
  pardef.Add_Set("one");
  addPar(pardef, "a");
  EXPECT_EQ(endingOf([&] { pardef.Add_PAR("b", "a"); }),
            fatalEnding("ERROR: Set 'one' par 'b' references unknown variable 'a'\n"));
}

TEST(Globals, UnknownGlobalIsFoundBeforeABadParameterName) {
  ParDef pardef = line();
  addGlobal(pardef, "k");
  pardef.Add_Set("one");
  EXPECT_EQ(endingOf([&] { pardef.Add_PAR("bogus", "nosuch"); }),
            fatalEnding("ERROR: Set 'one' par 'bogus' references unknown variable 'nosuch'\n"));
  EXPECT_EQ(endingOf([&] { pardef.Add_PAR("bogus", "k"); }),
            fatalEnding("ERROR: Parameter name 'bogus' unrecognized.\n"
                        "Valid parameter names for the model:\t'a'\t'b'\n"));
}

TEST(Globals, OfEqualNamesTheFirstIsMeant) {
  ParDef pardef = line();
  addGlobal(pardef, "k");
  pardef.Add_GFIXED("k", 1.0);
  pardef.Add_Set("one");
  pardef.Add_PAR("a", "k");
  EXPECT_EQ(pardef.declarations(0)[0].elem, 0);
}

// ---- degrees of freedom ----

TEST(DegreesOfFreedom, FixedElementsCostNothing) {
  ParDef pardef = line();
  pardef.Add_GFIXED("k", 1.0);
  pardef.Add_Set("one");
  addPar(pardef, "a");
  pardef.Add_FIXED("b", 1.0);
  addPoints(pardef, 4);
  pardef.Add_Set("two");
  addPar(pardef, "a");
  pardef.Add_PAR("b", "k");
  addPoints(pardef, 2);
  pardef.prep();
  EXPECT_EQ(pardef.lDoF(0), 3);
  EXPECT_EQ(pardef.lDoF(1), 1);
  EXPECT_EQ(pardef.gDoF(), 4);
}

TEST(DegreesOfFreedom, GlobalCountsInEverySetAndOnceGlobally) {
  ParDef pardef = line();
  addGlobal(pardef, "k");
  for (const std::string title : {"one", "two"}) {
    pardef.Add_Set(title);
    pardef.Add_PAR("a", "k");
    addPar(pardef, "b");
    addPoints(pardef, 5);
  }
  pardef.prep();
  EXPECT_EQ(pardef.lDoF(0), 3);
  EXPECT_EQ(pardef.lDoF(1), 3);
  EXPECT_EQ(pardef.gDoF(), 7);
}

TEST(DegreesOfFreedom, GlobalThatNoSetRefersToCounts) {
  ParDef pardef = line();
  addGlobal(pardef, "k");
  addLineSet(pardef, "one", 5);
  pardef.prep();
  EXPECT_EQ(pardef.lDoF(0), 3);
  EXPECT_EQ(pardef.gDoF(), 2);
}

TEST(DegreesOfFreedom, CanBeOverwritten) {
  ParDef pardef = line();
  addLineSet(pardef, "one", 5);
  pardef.prep();
  pardef.setlDoF(0, 11);
  pardef.setgDoF(12);
  EXPECT_EQ(pardef.lDoF(0), 11);
  EXPECT_EQ(pardef.gDoF(), 12);
}

/// One set with a local degree of freedom, and a global that costs one more globally.
ParDef lineWithSpareGlobal(int points) {
  ParDef pardef = line();
  addGlobal(pardef, "k");
  pardef.Add_Set("one");
  addPar(pardef, "a");
  pardef.Add_FIXED("b", 1.0);
  addPoints(pardef, points);
  return pardef;
}

TEST(DegreesOfFreedom, OneGlobalDegreeIsEnough) {
  EXPECT_EQ(endingOfPrep(lineWithSpareGlobal(3)), returnedSaying(""));
  ParDef pardef = lineWithSpareGlobal(3);
  pardef.prep();
  EXPECT_EQ(pardef.gDoF(), 1);
}

TEST(DegreesOfFreedom, NoGlobalDegreeEndsTheRunOnStandardOutput) {
  EXPECT_EQ(endingOfPrep(lineWithSpareGlobal(2)), (Ending{1, kTooManyParameters, ""}));
}

TEST(DegreesOfFreedom, EmptyInputEndsTheRunWithThatMessageAlone) {
  EXPECT_EQ(endingOfPrep(ParDef()), (Ending{1, kTooManyParameters, ""}));
}

TEST(DegreesOfFreedom, GlobalsWithoutAnySetEndTheRunWithThatMessageAlone) {
  ParDef pardef = line();
  addGlobal(pardef, "k");
  EXPECT_EQ(endingOfPrep(pardef), (Ending{1, kTooManyParameters, ""}));
}

TEST(DegreesOfFreedom, WithAllSetsOmittedTheRunEndsAfterTheirWarnings) {
  ParDef pardef = line();
  addLineSet(pardef, "last", 2);
  EXPECT_EQ(endingOfPrep(pardef), (Ending{1, omitted("last") + kTooManyParameters, ""}));
}

// ---- sets with too few points ----

TEST(OmittedSet, HasNoMorePointsThanAdjustableParameters) {
  for (const int points : {0, 1, 2}) {
    ParDef pardef = line();
    addLineSet(pardef, "short", points);
    EXPECT_EQ(endingOf([&] { pardef.Add_Set("next"); }), returnedSaying(omitted("short")))
        << points;
  }
  ParDef pardef = line();
  addLineSet(pardef, "enough", 3);
  EXPECT_EQ(endingOf([&] { pardef.Add_Set("next"); }), returnedSaying(""));
}

TEST(OmittedSet, WithoutAnyLineIsOmitted) {
  ParDef pardef = line();
  pardef.Add_Set("empty");
  EXPECT_EQ(endingOf([&] { pardef.Add_Set("next"); }), returnedSaying(omitted("empty")));
}

TEST(OmittedSet, IsNamedWhenItClosesAndTheRunGoesOn) {
  ParDef pardef = line();
  addLineSet(pardef, "kept", 3);
  addLineSet(pardef, "short", 2);
  EXPECT_EQ(endingOfPrep(pardef), returnedSaying(omitted("short")));
}

/// Runs a preparation whose warnings on standard output are tested elsewhere.
template <typename Call>
void silently(const Call& call) {
  testing::internal::CaptureStdout();
  call();
  testing::internal::GetCapturedStdout();
}

TEST(OmittedSet, LeavesItsNumberAndPositionsToTheNextSet) {
  ParDef pardef = line();
  addLineSet(pardef, "kept", 3);
  silently([&] {
    addLineSet(pardef, "short", 2);
    addLineSet(pardef, "after", 4);
    pardef.prep();
  });
  ASSERT_EQ(pardef.SETsize(), 2);
  EXPECT_EQ(pardef.TITLE(0), "kept");
  EXPECT_EQ(pardef.TITLE(1), "after");
  EXPECT_EQ(pardef.lDoF(1), 2);
  EXPECT_EQ(pardef.PAR_size(), 4);
  EXPECT_EQ(pardef.FullName(2), "after::a");
  EXPECT_EQ(pardef.FullName(3), "after::b");
  EXPECT_EQ(pardef.parms(1), (Numbers{2, 3}));
  EXPECT_EQ(pardef.declarations(1).size(), 2U);
  EXPECT_EQ(pardef.elem(2).sets, Numbers{1});
  EXPECT_EQ(pardef.gDoF(), 3);
  ASSERT_EQ(pardef.DATAsize(), 7);
  EXPECT_EQ(pardef.points(0), (Numbers{0, 1, 2}));
  EXPECT_EQ(pardef.points(1), (Numbers{3, 4, 5, 6}));
  EXPECT_EQ(pardef.DATA(3).set, 1);
  EXPECT_EQ(pardef.DATA(3).parmap, (Numbers{2, 3}));
}

TEST(OmittedSet, LeavesTheGlobalsItRefersTo) {
  ParDef pardef = line();
  addGlobal(pardef, "k");
  silently([&] {
    pardef.Add_Set("short");
    pardef.Add_PAR("a", "k");
    addPar(pardef, "b");
    addPoints(pardef, 2);
    pardef.Add_Set("kept");
    pardef.Add_PAR("a", "k");
    addPar(pardef, "b");
    addPoints(pardef, 3);
    pardef.prep();
  });
  EXPECT_EQ(pardef.PAR_size(), 2);
  EXPECT_EQ(pardef.elem(0).sets, Numbers{0});
  EXPECT_EQ(pardef.parms(0), (Numbers{0, 1}));
}

TEST(OmittedSet, LeavesGlobalsThatWereDeclaredInsideIt) {
  ParDef pardef = line();
  addGlobal(pardef, "before");
  silently([&] {
    pardef.Add_Set("short");
    addPar(pardef, "a");
    addGlobal(pardef, "inside1");
    addPar(pardef, "b");
    pardef.Add_GFIXED("inside2", 4.0);
    addPoints(pardef, 1);
    pardef.Add_Set("kept");
  });
  ASSERT_EQ(pardef.PAR_size(), 3);
  EXPECT_EQ(pardef.FullName(0), "GLOBAL::before");
  EXPECT_EQ(pardef.FullName(1), "GLOBAL::inside1");
  EXPECT_EQ(pardef.FullName(2), "GLOBAL::inside2");
  pardef.Add_PAR("a", "inside1");
  pardef.Add_PAR("b", "inside2");
  addPoints(pardef, 3);
  pardef.prep();
  EXPECT_EQ(pardef.DATA(0).parmap, (Numbers{1, 2}));
  EXPECT_EQ(pardef.elem(1).sets, Numbers{0});
  EXPECT_EQ(pardef.fixedFlags(), (std::vector<bool>{false, false, true}));
  EXPECT_EQ(pardef.gDoF(), 1);
}

TEST(OmittedSet, LeavesTheFirstOfEqualGlobalsFirst) {
  ParDef pardef = line();
  addGlobal(pardef, "outside");
  silently([&] {
    pardef.Add_Set("short");
    addPar(pardef, "a");
    addGlobal(pardef, "inside");
    addGlobal(pardef, "outside");
    addPar(pardef, "b");
    addGlobal(pardef, "inside");
    pardef.Add_Set("next");
  });
  ASSERT_EQ(pardef.PAR_size(), 4);
  EXPECT_EQ(pardef.Find_GPAR("a", "outside"), 0);
  EXPECT_EQ(pardef.Find_GPAR("a", "inside"), 1);
}

TEST(OmittedSet, LeavesEarlierSetsAlone) {
  ParDef pardef = line();
  addLineSet(pardef, "kept", 3);
  silently([&] {
    addLineSet(pardef, "short", 1);
    pardef.prep();
  });
  EXPECT_EQ(pardef.SETsize(), 1);
  EXPECT_EQ(pardef.PAR_size(), 2);
  EXPECT_EQ(pardef.DATAsize(), 3);
  EXPECT_EQ(pardef.gDoF(), 1);
  EXPECT_EQ(pardef.points(0), (Numbers{0, 1, 2}));
}

TEST(OmittedSet, TwoInARowAreBothOmitted) {
  ParDef pardef = line();
  silently([&] {
    addLineSet(pardef, "short1", 1);
    addLineSet(pardef, "short2", 2);
    addLineSet(pardef, "kept", 3);
    pardef.prep();
  });
  EXPECT_EQ(pardef.SETsize(), 1);
  EXPECT_EQ(pardef.TITLE(0), "kept");
  EXPECT_EQ(pardef.PAR_size(), 2);
  EXPECT_EQ(pardef.DATAsize(), 3);
}

// ---- parameters without data ----

TEST(UnusedParameter, IsNamedOnceKeepsCountingAndIsNotSolvedFor) {
  ParDef pardef = dispersion();
  pardef.Add_Set("res7");
  addPar(pardef, "kex");
  addPar(pardef, "R20_1_1");
  addPar(pardef, "R20_1_2");
  addPoints(pardef, 5, {1, 1});
  EXPECT_EQ(endingOfPrep(pardef), returned(notUsed("res7", "R20_1_2")));
  testing::internal::CaptureStderr();
  pardef.prep();
  testing::internal::GetCapturedStderr();
  EXPECT_TRUE(pardef.isUsed(0));
  EXPECT_TRUE(pardef.isUsed(1));
  EXPECT_FALSE(pardef.isUsed(2));
  EXPECT_EQ(pardef.lDoF(0), 2);
  EXPECT_EQ(pardef.gDoF(), 2);
}

TEST(UnusedParameter, FixedOnesAreNotNamed) {
  ParDef pardef = dispersion();
  pardef.Add_Set("res7");
  addPar(pardef, "kex");
  addPar(pardef, "R20_1_1");
  pardef.Add_FIXED("R20_1_2", 3.0);
  addPoints(pardef, 5, {1, 1});
  EXPECT_EQ(endingOfPrep(pardef), returned());
}

TEST(UnusedParameter, SharedOneIsNamedOnce) {
  ParDef pardef = dispersion();
  addGlobal(pardef, "g");
  for (const std::string title : {"one", "two"}) {
    pardef.Add_Set(title);
    addPar(pardef, "kex");
    addPar(pardef, "R20_1_1");
    pardef.Add_PAR("R20_9_9", "g");
    addPoints(pardef, 5, {1, 1});
  }
  EXPECT_EQ(endingOfPrep(pardef), returned(notUsed("one", "R20_9_9")));
}

TEST(UnusedParameter, LaterOneBehindAWildcardIsUnused) {
  ParDef pardef = dispersion();
  pardef.Add_Set("res7");
  addPar(pardef, "kex");
  addPar(pardef, "kex_1");
  addPar(pardef, "R20");
  addPoints(pardef, 5, {1, 1});
  EXPECT_EQ(endingOfPrep(pardef), returned(notUsed("res7", "kex_1")));
}

TEST(UnusedParameter, GlobalThatNoSetRefersToIsNotNamed) {
  ParDef pardef = line();
  addGlobal(pardef, "k");
  addLineSet(pardef, "one", 5);
  EXPECT_EQ(endingOfPrep(pardef), returned());
}

// ---- data points ----

TEST(DataPoint, KeepsItsLineAndTheReciprocalOfItsError) {
  ParDef pardef = dispersion();
  addGlobal(pardef, "g");
  pardef.Add_Set("one");
  pardef.Add_PAR("kex", "g");
  addPar(pardef, "R20");
  pardef.Add_DATA({50.0, 298.0, 1.5}, {1, 2}, 12.5, 0.5);
  const Data& point = pardef.DATA(0);
  EXPECT_EQ(point.set, 0);
  EXPECT_EQ(point.x, (std::vector<double>{50.0, 298.0, 1.5}));
  EXPECT_EQ(point.index, (Numbers{1, 2}));
  EXPECT_EQ(point.y, 12.5);
  EXPECT_EQ(point.dy, 0.5);
  EXPECT_EQ(point.w, 2.0);
  EXPECT_EQ(point.parmap, (Numbers{0, 1}));
}

TEST(DataPoint, ErrorOfZeroGivesAnInfiniteWeight) {
  ParDef pardef = line();
  pardef.Add_Set("one");
  addPar(pardef, "a");
  addPar(pardef, "b");
  pardef.Add_DATA({1.0}, {0}, 1.0, 0.0);
  EXPECT_EQ(pardef.DATA(0).w, kInf);
}

TEST(DataPoint, NumbersRiseAcrossSets) {
  ParDef pardef = line();
  addLineSet(pardef, "one", 3);
  addLineSet(pardef, "two", 4);
  EXPECT_EQ(pardef.DATAsize(), 7);
  EXPECT_EQ(pardef.points(0), (Numbers{0, 1, 2}));
  EXPECT_EQ(pardef.points(1), (Numbers{3, 4, 5, 6}));
  EXPECT_EQ(pardef.DATA(2).set, 0);
  EXPECT_EQ(pardef.DATA(3).set, 1);
}

TEST(DataPoint, WithoutADeclarationForItsLabelsEndsTheRun) {
  ParDef pardef = dispersion();
  pardef.Add_Set("res7");
  addPar(pardef, "kex");
  addPar(pardef, "R20_1_1");
  addPar(pardef, "R20_1_2");
  EXPECT_EQ(endingOf([&] {
              addPoints(pardef, 1, {2, 1});
            }),
            fatalEnding("ERROR: Set 'res7' missing declaration ofparameter 'R20_2_1'\n"));
}

TEST(DataPoint, OfTwoMissingDeclarationsTheFirstBaseParameterIsNamed) {
  ParDef pardef = dispersion();
  pardef.Add_Set("res7");
  EXPECT_EQ(endingOf([&] {
              addPoints(pardef, 1, {2, 1});
            }),
            fatalEnding("ERROR: Set 'res7' missing declaration ofparameter 'kex_2'\n"));
}

TEST(DataPoint, DeclarationsOfAnEarlierSetDoNotServe) {
  ParDef pardef = line();
  addLineSet(pardef, "one", 3);
  pardef.Add_Set("two");
  addPar(pardef, "a");
  EXPECT_EQ(endingOf([&] { addPoints(pardef, 1); }),
            fatalEnding("ERROR: Set 'two' missing declaration ofparameter 'b'\n"));
}

// ---- mapping ----

TEST(Mapping, NameWithoutIndicesServesEveryLabel) {
  ParDef pardef = dispersion();
  pardef.Add_Set("one");
  addPar(pardef, "R20");
  addPar(pardef, "kex");
  EXPECT_EQ(pardef.Get_nPARs({1, 1}), (Numbers{1, 0}));
  EXPECT_EQ(pardef.Get_nPARs({9, 0}), (Numbers{1, 0}));
}

TEST(Mapping, DeclarationOfAModelWithoutLabelsServesEveryPoint) {
  ParDef pardef = line();
  pardef.Add_Set("one");
  addPar(pardef, "b");
  addPar(pardef, "a");
  EXPECT_EQ(pardef.Get_nPARs({0}), (Numbers{1, 0}));
  EXPECT_EQ(pardef.Get_nPARs({5}), (Numbers{1, 0}));
}

TEST(Mapping, EveryGivenIndexMustEqualItsLabel) {
  ParDef pardef = dispersion();
  pardef.Add_Set("one");
  addPar(pardef, "kex_1");
  addPar(pardef, "kex_2");
  addPar(pardef, "R20_1_2");
  addPar(pardef, "R20_2_1");
  addPar(pardef, "R20_1_1");
  EXPECT_EQ(pardef.Get_nPARs({1, 1}), (Numbers{0, 4}));
  EXPECT_EQ(pardef.Get_nPARs({1, 2}), (Numbers{0, 2}));
  EXPECT_EQ(pardef.Get_nPARs({2, 1}), (Numbers{1, 3}));
}

TEST(Mapping, EarlierWildcardGoesBeforeALaterIndex) {
  ParDef pardef = dispersion();
  pardef.Add_Set("one");
  addPar(pardef, "kex");
  addPar(pardef, "kex_2");
  addPar(pardef, "R20");
  EXPECT_EQ(pardef.Get_nPARs({2, 1}), (Numbers{0, 2}));
}

TEST(Mapping, EarlierIndexGoesBeforeALaterWildcard) {
  ParDef pardef = dispersion();
  pardef.Add_Set("one");
  addPar(pardef, "kex_2");
  addPar(pardef, "kex");
  addPar(pardef, "R20");
  EXPECT_EQ(pardef.Get_nPARs({2, 1}), (Numbers{0, 2}));
  EXPECT_EQ(pardef.Get_nPARs({1, 1}), (Numbers{1, 2}));
}

TEST(Mapping, NegativeIndexOfTheUserIsAWildcard) {
  ParDef pardef = dispersion();
  pardef.Add_Set("one");
  addPar(pardef, "kex");
  addPar(pardef, "R20_-1_2");
  EXPECT_EQ(pardef.Get_nPARs({7, 2}), (Numbers{0, 1}));
}

TEST(Mapping, MatchIsThePositionAmongTheDeclarations) {
  ParDef pardef = dispersion();
  addGlobal(pardef, "unreferenced");
  pardef.Add_Set("one");
  addPar(pardef, "kex");
  addPar(pardef, "R20");
  addPoints(pardef, 3, {1, 1});
  pardef.Add_Set("two");
  addPar(pardef, "R20_1_1");
  addPar(pardef, "R20_1_2");
  EXPECT_EQ(pardef.match_local(1, {1, 2}), 1);  // of the open set
  EXPECT_EQ(pardef.match_local(1, {1, 3}), -1);
  EXPECT_EQ(pardef.match_local(0, {1, 1}), -1);
  EXPECT_EQ(pardef.match_local(1, 0, {1, 2}), 1);
  EXPECT_EQ(pardef.match_local(0, 0, {1, 1}), 0);
  EXPECT_EQ(pardef.match_local(1, 1, {1, 1}), 0);
}

TEST(Mapping, PointCanBeMappedOntoAnotherSet) {
  ParDef pardef = dispersion();
  pardef.Add_Set("one");
  addPar(pardef, "kex");
  addPar(pardef, "R20");
  addPoints(pardef, 3, {1, 1});
  pardef.Add_Set("two");
  addPar(pardef, "R20_2_1");
  addPar(pardef, "R20_1_1");
  addPar(pardef, "kex");
  Data point = pardef.DATA(0);
  pardef.Get_datamap(point, 1);
  EXPECT_EQ(point.parmap, (Numbers{4, 3}));
  pardef.Get_datamap(point, 0);
  EXPECT_EQ(point.parmap, (Numbers{0, 1}));
}

TEST(Mapping, EntriesWithoutAMatchStayAsTheyWere) {
  ParDef pardef = dispersion();
  pardef.Add_Set("one");
  addPar(pardef, "kex_1");
  addPar(pardef, "R20_1_1");
  Data point;
  point.index = {1, 2};
  point.parmap = {77, 88};
  pardef.Get_datamap(point, 0);
  EXPECT_EQ(point.parmap, (Numbers{0, 88}));
}

TEST(Mapping, MapGetsOneEntryForEachBaseParameter) {
  ParDef pardef = dispersion();
  pardef.Add_Set("one");
  addPar(pardef, "kex");
  addPar(pardef, "R20");
  Data point;
  point.index = {1, 2};
  pardef.Get_datamap(point, 0);
  EXPECT_EQ(point.parmap, (Numbers{0, 1}));
  point.parmap = {5, 6, 7};
  pardef.Get_datamap(point, 0);
  EXPECT_EQ(point.parmap, (Numbers{0, 1}));
}

TEST(Mapping, FlagsMarkTheFixedElements) {
  ParDef pardef = line();
  pardef.Add_GFIXED("g", 1.0);
  pardef.Add_Set("one");
  addPar(pardef, "a");
  pardef.Add_FIXED("b", 1.0);
  addPoints(pardef, 3);
  pardef.prep();
  EXPECT_EQ(pardef.fixedFlags(), (std::vector<bool>{true, false, true}));
}

}  // namespace
