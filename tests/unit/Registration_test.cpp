// The table of the elementary curves and the two-site CPMG models: names, equations, columns,
// parameters, bounds and index rules.
// SPDX-License-Identifier: GPL-3.0-or-later
//
// Typed in independently of the families' own tables.
#include "FuncLib.h"

#include "InputText.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <ostream>
#include <set>
#include <string>
#include <vector>

namespace {

struct ExpectedParm {
  const char* name;
  double lower;
  double upper;
  const char* rule;
};

struct ExpectedModel {
  const char* name;
  const char* equation;
  const char* plot_header;
  int dimX;
  int dimIndex;
  int dist;
  std::vector<ExpectedParm> parms;
};

void PrintTo(const ExpectedModel& model, std::ostream* stream) { *stream << model.name; }

/// In the order of registration.
const std::vector<ExpectedModel>& expectedModels() {
  // clang-format off
  static const std::vector<ExpectedModel> models = {
      {"Constant", "f(x) = C", "EXP", 1, 0, 0,
       {{"c", -1e9, 1e9, ""}}},
      {"Linear", "f(x) = A + Bx", "EXP", 1, 0, 0,
       {{"a", -1e9, 1e9, ""}, {"b", -1e6, 1e6, ""}}},
      {"Exp2", "f(x) = Aexp(Bx)", "EXP", 1, 0, 0,
       {{"a", -1e9, 1e9, ""}, {"b", -1e6, 1e6, ""}}},
      {"Exp3", "f(x) = Aexp(Bx) + C", "EXP", 1, 0, 0,
       {{"a", -1e9, 1e9, ""}, {"b", -1e6, 1e6, ""}, {"c", -1e9, 1e9, ""}}},
      // b of Gauss has the wide range of the amplitudes, unlike every other rate-like b.
      {"Gauss", "f(x) = Aexp(-Bx^2) + C", "EXP", 1, 0, 0,
       {{"a", -1e9, 1e9, ""}, {"b", -1e9, 1e9, ""}, {"c", -1e9, 1e9, ""}}},
      {"Gauss2", "f(x) = Aexp(-Bx^2) + Cexp(-Dx^2)", "EXP", 1, 0, 0,
       {{"a", 0.0, 0.5, ""}, {"b", -1e6, 1e6, ""}, {"c", 0.5, 1.0, ""}, {"d", -1e6, 1e6, ""}}},
      {"CPMG_const", "f(R20)", "CT-CPMG", 3, 2, 0,
       {{"R20", 0.01, 50.0, "11"}}},
      // The equation names the parameters in another order than they are declared in.
      {"CPMG_Meiboom", "f(R20,pdw,kex)", "CT-CPMG", 3, 2, 0,
       {{"kex", 0.1, 12000.0, "10"}, {"pdw", 1e-30, 3.6e7, "10"}, {"R20", 0.1, 50.0, "11"}}},
      {"CPMG_Torchia", "f(dw, kex, papb, R20)", "CT-CPMG", 3, 2, 0,
       {{"dw", 1.0, 12000.0, "00"}, {"kex", 1.0, 12000.0, "10"}, {"papb", 0.001, 0.113, "10"},
        {"R20", 0.1, 100.0, "11"}}},
      {"CPMG_Richards", "f(dw, kex, papb, R20)", "CT-CPMG", 3, 2, 0,
       {{"dw", 1.0, 12000.0, "00"}, {"kex", 1.0, 12000.0, "10"}, {"papb", 0.001, 0.249, "10"},
        {"R20", 0.1, 100.0, "11"}}},
      {"CPMG_Richards_p", "f(dw, kex, pb, R20)", "CT-CPMG", 3, 2, 0,
       {{"dw", 1.0, 12000.0, "00"}, {"kex", 1.0, 12000.0, "10"}, {"pb", 0.005, 0.49, "10"},
        {"R20", 0.1, 100.0, "11"}}},
      {"CPMG_Richards_k", "f(dw, kab, kba, R20)", "CT-CPMG", 3, 2, 0,
       {{"dw", 1.0, 12000.0, "00"}, {"kab", 1.0, 12000.0, "10"}, {"kba", 1.0, 12000.0, "10"},
        {"R20", 0.1, 100.0, "11"}}},
      {"CPMG_Richards_probes", "f(dw, kex, papb, R20)", "CT-CPMG", 4, 3, 0,
       {{"dw", 1.0, 12000.0, "001"}, {"kex", 1.0, 12000.0, "100"}, {"papb", 0.001, 0.249, "100"},
        {"R20", 0.1, 100.0, "111"}}},
      {"CPMG_RDC", "f(dw, dJ, kex, papb, R20)", "CT-CPMG", 4, 3, 0,
       {{"dw", 1.0, 12000.0, "000"}, {"dJ", -200.0, 200.0, "000"}, {"kex", 1.0, 12000.0, "100"},
        {"papb", 0.001, 0.249, "100"}, {"R20", 0.1, 100.0, "111"}}},
      {"CPMG_TEMP2", "f(dw, dHab, dHba, dSab, dSba, R20)", "CT-CPMG", 3, 2, 0,
       {{"dw", 1.0, 12000.0, "00"}, {"dHab", -50.0, 50.0, "00"}, {"dHba", -50.0, 50.0, "00"},
        {"dSab", -1.0, 1.0, "00"}, {"dSba", -1.0, 1.0, "00"}, {"R20", 0.1, 100.0, "11"}}},
      // Bkon stands before koff although the equation names koff first.
      {"CPMG_Bind2", "f(dw, koff, [B]kon, R20)", "CT-CPMG", 4, 3, 0,
       {{"dw", 1.0, 12000.0, "000"}, {"Bkon", 1.0, 12000.0, "101"}, {"koff", 1.0, 12000.0, "100"},
        {"R20", 0.1, 100.0, "111"}}},
      {"CPMG_Bind2c", "f(dw, kon, koff, A0, B0, R20)", "CT-CPMG", 4, 3, 0,
       {{"dw", 1.0, 12000.0, "000"}, {"kon", 1.0, 1e11, "100"}, {"koff", 1.0, 12000.0, "100"},
        {"A0", 1e-9, 0.01, "000"}, {"B0", 1e-9, 0.01, "000"}, {"R20", 0.1, 100.0, "111"}}},
  };
  // clang-format on
  return models;
}

class Registration : public testing::TestWithParam<ExpectedModel> {
 protected:
  Registration() { funclib_.Pick_Func(GetParam().name); }
  Funclib funclib_;
};

TEST_P(Registration, NameAndEquationAreExact) {
  EXPECT_EQ(funclib_.Name(), GetParam().name);
  EXPECT_EQ(funclib_.Eqn(), GetParam().equation);
}

TEST_P(Registration, GroupAndColumnsAreExact) {
  EXPECT_EQ(funclib_.XmgrHeader(), GetParam().plot_header);
  EXPECT_EQ(funclib_.Get_dimX(), GetParam().dimX);
  EXPECT_EQ(funclib_.Get_dimIndex(), GetParam().dimIndex);
  EXPECT_EQ(funclib_.Get_dist(), GetParam().dist);
  EXPECT_EQ(funclib_.posTau(), 0);
}

TEST_P(Registration, ParametersBoundsAndIndexRulesAreExact) {
  const Rules& rules = funclib_.Get_Rules();
  ASSERT_EQ(rules.basePAR_size(), GetParam().parms.size());
  for (unsigned i = 0; i < rules.basePAR_size(); ++i) {
    const ExpectedParm& parm = GetParam().parms[i];
    EXPECT_EQ(rules.baseName(i), parm.name);
    EXPECT_EQ(rules.Get_LowerBound(i), parm.lower) << parm.name;
    EXPECT_EQ(rules.Get_UpperBound(i), parm.upper) << parm.name;
    EXPECT_EQ(rules.indexRule(i), parm.rule) << parm.name;
  }
}

TEST_P(Registration, EveryIndexRuleHasOneCharacterForEachLabel) {
  const Rules& rules = funclib_.Get_Rules();
  for (unsigned i = 0; i < rules.basePAR_size(); ++i) {
    EXPECT_EQ(rules.indexRule(i).size(), static_cast<std::size_t>(funclib_.Get_dimIndex()))
        << rules.baseName(i);
  }
}

INSTANTIATE_TEST_SUITE_P(Models, Registration, testing::ValuesIn(expectedModels()),
                         [](const auto& model) { return std::string(model.param.name); });

/// The line that lists the valid names.
std::string listOfNames() {
  const std::string start =
      "ERROR: Function name 'CPMG_Richard' is not recognized.\n"
      "Valid function names: ";
  const Ending ending = endingOfReading("FUNCTION CPMG_Richard\n");
  EXPECT_EQ(ending.err.substr(0, start.size()), start);
  return ending.err.substr(std::min(start.size(), ending.err.size()));
}

TEST(RegistrationOrder, BadNameIsAnsweredWithAllFamiliesInTheirOrderOnOneLine) {
  const std::string list = listOfNames();
  const std::size_t curves = list.find("'Constant' 'Linear' 'Exp2' 'Exp3' 'Gauss' 'Gauss2' ");
  const std::size_t cpmg = list.find(
      "'CPMG_const' 'CPMG_Meiboom' 'CPMG_Torchia' 'CPMG_Richards' 'CPMG_Richards_p' "
      "'CPMG_Richards_k' 'CPMG_Richards_probes' 'CPMG_RDC' 'CPMG_TEMP2' 'CPMG_Bind2' "
      "'CPMG_Bind2c' ");
  ASSERT_NE(curves, std::string::npos) << list;
  ASSERT_NE(cpmg, std::string::npos) << list;
  EXPECT_LT(curves, cpmg);
  EXPECT_EQ(list.find('\n'), list.size() - 1);
}

TEST(RegistrationOrder, ModelsOfAFamilyHaveConsecutiveNumbers) {
  const Funclib funclib;
  Words registered;
  for (int model = 0; model < funclib.size(); ++model) registered.push_back(funclib.nameOf(model));
  Words curves;
  Words cpmg;
  for (const ExpectedModel& model : expectedModels()) {
    (std::string(model.plot_header) == "EXP" ? curves : cpmg).emplace_back(model.name);
  }
  ASSERT_EQ(curves.size(), 6U);
  ASSERT_EQ(cpmg.size(), 11U);
  for (const Words& family : {curves, cpmg}) {
    EXPECT_NE(std::search(registered.begin(), registered.end(), family.begin(), family.end()),
              registered.end())
        << family.front();
  }
}

TEST(RegistrationOrder, NoTwoModelsShareAFunction) {
  Funclib funclib;
  std::set<ModelFunc> functions;
  for (const ExpectedModel& model : expectedModels()) {
    funclib.Pick_Func(model.name);
    functions.insert(funclib.Func());
  }
  EXPECT_EQ(functions.size(), expectedModels().size());
  EXPECT_EQ(functions.count(nullptr), 0U);
}

}  // namespace
