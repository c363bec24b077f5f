// What users see of the R1rho, CLEANEX, sigmoid and recovery models: names, equations, data
// columns, parameters with bounds and index rules, and their places in the list of models.
// SPDX-License-Identifier: GPL-3.0-or-later
#include "FuncLib.h"
#include "Models.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <string>
#include <vector>

namespace {

struct ExpectedParm {
  std::string name;
  double lower;
  double upper;
  std::string rule;
};

struct ExpectedModel {
  std::string name;
  std::string equation;
  int dimX;
  int dimIndex;
  std::vector<ExpectedParm> parms;
};

void expectRegistered(const ExpectedModel& expected, const std::string& plot_header) {
  SCOPED_TRACE(expected.name);
  Funclib lib;
  lib.Pick_Func(expected.name);
  EXPECT_EQ(lib.Name(), expected.name);
  EXPECT_EQ(lib.Eqn(), expected.equation);
  EXPECT_EQ(lib.XmgrHeader(), plot_header);
  EXPECT_EQ(lib.Get_dimX(), expected.dimX);
  EXPECT_EQ(lib.Get_dimIndex(), expected.dimIndex);
  EXPECT_EQ(lib.Get_dist(), 0);
  EXPECT_EQ(lib.posTau(), 0);
  const Rules& rules = lib.Get_Rules();
  ASSERT_EQ(rules.basePAR_size(), expected.parms.size());
  for (unsigned k = 0; k < rules.basePAR_size(); ++k) {
    SCOPED_TRACE(expected.parms[k].name);
    EXPECT_EQ(rules.baseName(k), expected.parms[k].name);
    EXPECT_EQ(rules.Get_LowerBound(k), expected.parms[k].lower);
    EXPECT_EQ(rules.Get_UpperBound(k), expected.parms[k].upper);
    EXPECT_EQ(rules.indexRule(k), expected.parms[k].rule);
  }
}

using Names = std::vector<std::string>;

const std::vector<ExpectedParm> kKay = {{"dw", -12000, 12000, "000"},
                                        {"kex", 1, 80000, "100"},
                                        {"pB", 0.001, 0.1, "100"},
                                        {"R20", 0.1, 100, "110"},
                                        {"R1", 0.01, 100, "110"}};
const std::vector<ExpectedParm> kPalmer02 = {{"dw", -12000, 12000, "000"},
                                             {"kex", 1, 80000, "100"},
                                             {"pB", 0.001, 0.49, "100"},
                                             {"R20", 0.1, 100, "110"},
                                             {"R1", 0.01, 100, "110"}};
const std::vector<ExpectedParm> kPalmer05 = {{"dw", -12000, 12000, "000"},
                                             {"kex", 1, 80000, "100"},
                                             {"pB", 0.001, 0.499, "100"},
                                             {"R20", 0.1, 100, "110"},
                                             {"R1", 0.01, 100, "110"}};

std::vector<ExpectedParm> firstFour(const std::vector<ExpectedParm>& parms) {
  return {parms.begin(), parms.begin() + 4};
}

const ExpectedModel kConst = {
    "", "f(R20,R1)", 4, 3, {{"R20", 0.01, 100, "110"}, {"R1", 0.01, 100, "110"}}};
const ExpectedModel kLondon = {"",
                               "f(phi,kex,R20,R1)",
                               4,
                               3,
                               {{"phi", 1e-5, 1e8, "100"},
                                {"kex", 1, 80000, "100"},
                                {"R20", 0.1, 100, "110"},
                                {"R1", 0.01, 100, "110"}}};

ExpectedModel named(const char* name, ExpectedModel model) {
  model.name = name;
  return model;
}

TEST(RegistrationR1rho, FieldFirst) {
  const std::vector<ExpectedModel> expected = {
      named("R1RHO_CONST", kConst),
      {"R1RHO_CONST_ON", "f(R20)", 4, 3, {{"R20", 0.01, 100, "110"}}},
      named("R1RHO_LONDON", kLondon),
      // Wider ranges of phi and R20 than off resonance.
      {"R1RHO_LONDON_ON",
       "f(phi,kex,R20)",
       4,
       3,
       {{"phi", 1e-5, 1e9, "100"}, {"kex", 1, 80000, "100"}, {"R20", 0.01, 100, "110"}}},
      {"R1RHO_KAY", "f(dw,kex,pB,R20,R1)", 4, 3, kKay},
      {"R1RHO_KAY_ON", "f(dw,kex,pB,R20)", 4, 3, firstFour(kKay)},
      {"R1RHO_PALMER02", "f(dw,kex,pB,R20,R1)", 4, 3, kPalmer02},
      // These name an R1 that they do not have.
      {"R1RHO_PALMER02_ON", "f(dw,kex,pB,R20,R1)", 4, 3, firstFour(kPalmer02)},
      {"R1RHO_PALMER05", "f(dw,kex,pB,R20,R1)", 4, 3, kPalmer05},
      {"R1RHO_PALMER05_ON", "f(dw,kex,pB,R20,R1)", 4, 3, firstFour(kPalmer05)},
  };
  for (const ExpectedModel& model : expected) expectRegistered(model, "R1rho");
}

TEST(RegistrationR1rho, OffsetFirst) {
  const std::vector<ExpectedModel> expected = {
      named("R1RHO_CONST_OFF", kConst),
      named("R1RHO_LONDON_OFF", kLondon),
      {"R1RHO_KAY_OFF", "f(dw,kex,pB,R20,R1)", 4, 3, kKay},
      {"R1RHO_PALMER02_OFF", "f(dw,kex,pB,R20,R1)", 4, 3, kPalmer02},
      {"R1RHO_PALMER05_OFF", "f(dw,kex,pB,R20,R1)", 4, 3, kPalmer05},
  };
  for (const ExpectedModel& model : expected) expectRegistered(model, "R1rho_off");
}

TEST(RegistrationCleanex, IsRegisteredAsUsersKnowIt) {
  expectRegistered({"CLEANEX",
                    "f(k, R1a, R1b)",
                    2,
                    1,
                    {{"k", 0, 2500, "0"}, {"R1a", 0, 100, "1"}, {"R1b", 0, 100, "1"}}},
                   "CLEANEX");
}

TEST(RegistrationSig, IsRegisteredAsUsersKnowIt) {
  expectRegistered(
      {"Sig",
       "f(x) = (bn+bd*exp(dh/R*tm - dh/R*x))/(1+exp(dh/R*tm-dh/R*x))",
       1,
       0,
       {{"bd", -10, 0, ""}, {"bn", 0, 10, ""}, {"tm", 1, 500, ""}, {"dh", 1, 500000, ""}}},
      "SIG");
  expectRegistered({"Sig_boltz",
                    "f(x) = a2 + (a1-a2)/[1+exp(x-tm/m)]",
                    1,
                    0,
                    {{"a1", 0, 1, ""}, {"a2", -1, 0, ""}, {"tm", 1, 300, ""}, {"m", 1, 100, ""}}},
                   "SIG_BOLTZ");
}

TEST(RegistrationBio, IsRegisteredAsUsersKnowIt) {
  expectRegistered(
      {"2Exp3",
       "f(x) = Aexp(Bx) +  (1-A)exp(Ex) + F",
       1,
       0,
       {{"a", -1e9, 1e9, ""}, {"b", -1e6, 1e6, ""}, {"e", -1e6, 1e6, ""}, {"f", -1e9, 1e9, ""}}},
      "EXP");
  expectRegistered(
      {"SIRE", "f(x) = M0-2*Mo*exp(Bx)", 1, 0, {{"a", -1.5, 1.5, ""}, {"b", -1e6, 1e6, ""}}},
      "EXP");
}

TEST(RegistrationOrderOfFamilies, SigmoidsComeFirst) {
  const Names names = models::registeredNames();
  ASSERT_GE(names.size(), 2U);
  EXPECT_EQ(Names(names.begin(), names.begin() + 2), (Names{"Sig", "Sig_boltz"}));
}

TEST(RegistrationOrderOfFamilies, RecoveriesStandBetweenTheElementaryCurvesAndTwoSiteCpmg) {
  const Names names = models::registeredNames();
  const auto first = std::find(names.begin(), names.end(), "2Exp3");
  ASSERT_TRUE(first - names.begin() >= 1 && names.end() - first >= 3);
  EXPECT_EQ(Names(first - 1, first + 3), (Names{"Gauss2", "2Exp3", "SIRE", "CPMG_const"}));
}

TEST(RegistrationOrderOfFamilies, R1rhoCleanexAndNewerFamiliesComeLast) {
  const Names expected = {
      "R1RHO_CONST",      "R1RHO_CONST_ON",    "R1RHO_CONST_OFF",    "R1RHO_LONDON",
      "R1RHO_LONDON_OFF", "R1RHO_LONDON_ON",   "R1RHO_KAY",          "R1RHO_KAY_ON",
      "R1RHO_KAY_OFF",    "R1RHO_PALMER02",    "R1RHO_PALMER02_ON",  "R1RHO_PALMER02_OFF",
      "R1RHO_PALMER05",   "R1RHO_PALMER05_ON", "R1RHO_PALMER05_OFF", "CLEANEX"};
  const Names names = models::registeredNames();
  ASSERT_GE(names.size(), expected.size());
  EXPECT_EQ(Names(names.end() - static_cast<std::ptrdiff_t>(expected.size()), names.end()),
            expected);
}

}  // namespace
