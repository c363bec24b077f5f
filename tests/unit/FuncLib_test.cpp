// The registry: defining, picking and describing models. The models themselves: Registration_test.
// SPDX-License-Identifier: GPL-3.0-or-later
#include "FuncLib.h"

#include "InputText.h"
#include "Problem.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

double seven(const Data& /*d*/, double* /*p*/, std::vector<double>& /*dydp*/,
             const std::vector<bool>& /*skip*/) {
  return 7.0;
}

TEST(Funclib, NumbersRiseByOneFromZeroInTheOrderOfRegistration) {
  Funclib funclib;
  ASSERT_GT(funclib.size(), 0);
  const int first_own = funclib.size();
  EXPECT_EQ(funclib.Define_Func(seven, "One", "f(1)", "EXP", 1, 0, 0), first_own);
  EXPECT_EQ(funclib.Define_Func(seven, "Two", "f(2)", "EXP", 1, 0, 0), first_own + 1);
  EXPECT_EQ(funclib.nameOf(first_own), "One");
  EXPECT_EQ(funclib.nameOf(first_own + 1), "Two");
  EXPECT_EQ(funclib.size(), first_own + 2);
  funclib.Pick_Func(funclib.nameOf(0));  // number 0 is a model
  EXPECT_EQ(funclib.Name(), funclib.nameOf(0));
}

TEST(Funclib, PickedModelAnswersForItself) {
  Funclib funclib;
  const int model = funclib.Define_Func(seven, "Own", "f(own)", "CLEANEX", 5, 3, 1);
  funclib.Define_Parm(model, "k", -1.0, 2.0, "101");
  funclib.Pick_Func("Own");
  EXPECT_EQ(funclib.Name(), "Own");
  EXPECT_EQ(funclib.Eqn(), "f(own)");
  EXPECT_EQ(funclib.XmgrHeader(), "CLEANEX");
  EXPECT_EQ(funclib.Get_dimX(), 5);
  EXPECT_EQ(funclib.Get_dimIndex(), 3);
  EXPECT_EQ(funclib.Get_dist(), 1);
  ASSERT_EQ(funclib.Get_Rules().basePAR_size(), 1U);
  EXPECT_EQ(funclib.Get_Rules().baseName(0), "k");
  std::vector<double> none;
  EXPECT_EQ(funclib.Func()(Data(), nullptr, none, {}), 7.0);
}

TEST(Funclib, EveryModelHasItsOwnRules) {
  Funclib funclib;
  const int one = funclib.Define_Func(seven, "One", "", "", 1, 0, 0);
  const int two = funclib.Define_Func(seven, "Two", "", "", 1, 0, 0);
  funclib.Define_Parm(two, "b", 0.0, 1.0, "");
  funclib.Define_Parm(one, "a", 0.0, 1.0, "");
  funclib.Pick_Func("One");
  EXPECT_EQ(funclib.Get_Rules().index("a"), 0);
  EXPECT_EQ(funclib.Get_Rules().index("b"), -1);
  funclib.Pick_Func("Two");
  EXPECT_EQ(funclib.Get_Rules().index("a"), -1);
  EXPECT_EQ(funclib.Get_Rules().index("b"), 0);
}

TEST(Funclib, ModelWithoutParametersHasEmptyRules) {
  Funclib funclib;
  funclib.Define_Func(seven, "Bare", "", "", 1, 0, 0);
  funclib.Pick_Func("Bare");
  EXPECT_EQ(funclib.Get_Rules().basePAR_size(), 0U);
}

class FunclibDist : public testing::TestWithParam<int> {};

TEST_P(FunclibDist, OnlyDistOneTakesTheSecondAbscissaAsDelay) {
  Funclib funclib;
  funclib.Define_Func(seven, "Own", "", "", 3, 0, GetParam());
  funclib.Pick_Func("Own");
  EXPECT_EQ(funclib.Get_dist(), GetParam());
  EXPECT_EQ(funclib.posTau(), GetParam() == 1 ? 1 : 0);
}

INSTANTIATE_TEST_SUITE_P(Values, FunclibDist, testing::Values(0, 1, 2, -1));

TEST(Funclib, LetterCaseOfANameDoesNotMatter) {
  Funclib funclib;
  funclib.Pick_Func("cpmg_richards");
  EXPECT_EQ(funclib.Name(), "CPMG_Richards");
  funclib.Pick_Func("LINEAR");
  EXPECT_EQ(funclib.Name(), "Linear");
}

TEST(Funclib, OnlyTheWholeNameMatches) {
  Funclib funclib;
  funclib.Pick_Func("CPMG_Richards_p");
  EXPECT_EQ(funclib.Name(), "CPMG_Richards_p");
  funclib.Pick_Func("Gauss");
  EXPECT_EQ(funclib.Name(), "Gauss");
}

TEST(Funclib, OfEqualNamesTheFirstWins) {
  Funclib funclib;
  funclib.Define_Func(seven, "LINEAR", "f(other)", "", 9, 0, 0);
  funclib.Pick_Func("LINEAR");
  EXPECT_EQ(funclib.Name(), "Linear");
  EXPECT_EQ(funclib.Get_dimX(), 1);
}

TEST(Funclib, ALaterPickReplacesTheEarlier) {
  Funclib funclib;
  funclib.Pick_Func("Linear");
  const ModelFunc line = funclib.Func();
  funclib.Pick_Func("Exp2");
  EXPECT_EQ(funclib.Name(), "Exp2");
  EXPECT_NE(funclib.Func(), line);
}

TEST(Funclib, BadNameListsEveryModelInTheOrderOfRegistration) {
  Funclib funclib;
  funclib.Define_Func(seven, "MyLast", "", "", 1, 0, 0);
  std::string list;
  for (int model = 0; model < funclib.size(); ++model) list += "'" + funclib.nameOf(model) + "' ";
  ASSERT_EQ(list.substr(list.size() - 9), "'MyLast' ");
  EXPECT_EQ(endingOf([&] { funclib.Pick_Func("Lin"); }),
            fatalEnding("ERROR: Function name 'Lin' is not recognized.\n"
                        "Valid function names: " +
                        list + "\n"));
}

TEST(GatherParms, TakesThemInTheOrderOfTheMap) {
  EXPECT_EQ(gatherParms({2, 0, 2}, {1.5, 2.5, 3.5}, "run"), (std::vector<double>{3.5, 1.5, 3.5}));
}

TEST(GatherParms, MemoryThatRunsOutEndsTheRunInTheNameOfTheRoutine) {
  const std::vector<int> parmap(100000, 0);
  for (const char* routine : {"run", "xplot"}) {
    EXPECT_EQ(
        endingOf([&] {
          problem::heap.refuse_from = 500000;
          static_cast<void>(gatherParms(parmap, {1.0}, routine));
        }),
        fatalEnding(std::string("ERROR: Unable to allocate memory in routine ") + routine + "\n"));
  }
}

}  // namespace
