// The table of the three-site and multiple-quantum models: names, equations, columns, parameters,
// bounds and index rules.
// SPDX-License-Identifier: GPL-3.0-or-later
//
// Typed in independently of the families' own tables.
#include "FuncLib.h"

#include <gtest/gtest.h>

#include <cstddef>
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
  int dimX;
  int dimIndex;
  int dist;
  int posTau;
  std::vector<ExpectedParm> parms;
};

void PrintTo(const ExpectedModel& model, std::ostream* stream) { *stream << model.name; }

/// In the order of registration.
const std::vector<ExpectedModel>& expectedModels() {
  // clang-format off
  static const std::vector<ExpectedModel> models = {
      {"CPMG_matrix3", "f(dwab, dwac, kab, kba, kbc, kca, kac, R20)", 4, 2, 1, 1,
       {{"dwab", -12000.0, 12000.0, "00"},
        {"dwac", -12000.0, 12000.0, "00"},
        {"kab", 0.0, 12000.0, "10"},
        {"kba", 0.0, 12000.0, "10"},
        {"kbc", 0.0, 12000.0, "10"},
        {"kca", 0.0, 12000.0, "10"},
        {"kac", 0.0, 12000.0, "10"},
        {"R20", 0.1, 100.0, "11"}}},
      {"CPMG_temp3", "f(dwab, dwac, dHab, dHba, dHbc, dHcb, dHca, dHac, dSab, dSba, dSbc, dScb, dSca, dSac, R20)", 4, 2, 0, 0,
       {{"dwab", -12000.0, 12000.0, "00"},
        {"dwac", -12000.0, 12000.0, "00"},
        {"dHab", -50.0, 50.0, "00"},
        {"dHba", -50.0, 50.0, "00"},
        {"dHbc", -50.0, 50.0, "00"},
        {"dHcb", -50.0, 50.0, "00"},
        {"dHca", -50.0, 50.0, "00"},
        {"dHac", -50.0, 50.0, "00"},
        {"dSab", -1.0, 1.0, "00"},
        {"dSba", -1.0, 1.0, "00"},
        {"dSbc", -1.0, 1.0, "00"},
        {"dScb", -1.0, 1.0, "00"},
        {"dSca", -1.0, 1.0, "00"},
        {"dSac", -1.0, 1.0, "00"},
        {"R20", 0.1, 100.0, "11"}}},
      {"CPMG_temp3linear", "f(dwab, dwac, dHab, dHba, dHbc, dHcb, dSab, dSba, dSbc, dScb, R20)", 4, 2, 1, 1,
       {{"dwab", -12000.0, 12000.0, "00"},
        {"dwac", -12000.0, 12000.0, "00"},
        {"dHab", -50.0, 50.0, "00"},
        {"dHba", -50.0, 50.0, "00"},
        {"dHbc", -50.0, 50.0, "00"},
        {"dHcb", -50.0, 50.0, "00"},
        {"dSab", -1.0, 1.0, "00"},
        {"dSba", -1.0, 1.0, "00"},
        {"dSbc", -1.0, 1.0, "00"},
        {"dScb", -1.0, 1.0, "00"},
        {"R20", 0.1, 100.0, "11"}}},
      // The spelling is part of the name.
      {"CPMG_temp3folked", "f(dwab, dwac, dHab, dHba, dHca, dHac, dSab, dSba, dSca, dSac, R20)", 4, 2, 0, 0,
       {{"dwab", -12000.0, 12000.0, "00"},
        {"dwac", -12000.0, 12000.0, "00"},
        {"dHab", -50.0, 50.0, "00"},
        {"dHba", -50.0, 50.0, "00"},
        {"dHca", -50.0, 50.0, "00"},
        {"dHac", -50.0, 50.0, "00"},
        {"dSab", -1.0, 1.0, "00"},
        {"dSba", -1.0, 1.0, "00"},
        {"dSca", -1.0, 1.0, "00"},
        {"dSac", -1.0, 1.0, "00"},
        {"R20", 0.1, 100.0, "11"}}},
      {"CPMG_bind3a", "f(dwfb1, dwfb2, Bkon1, koff1, Bkon2, koff2, k12, k21, R20)", 5, 3, 1, 1,
       {{"dwfb1", -12000.0, 12000.0, "000"},
        {"dwfb2", -12000.0, 12000.0, "000"},
        {"Bkon1", 0.0, 12000.0, "101"},
        {"koff1", 0.0, 12000.0, "100"},
        {"Bkon2", 0.0, 12000.0, "101"},
        {"koff2", 0.0, 12000.0, "100"},
        {"k12", 0.0, 12000.0, "100"},
        {"k21", 0.0, 12000.0, "100"},
        {"R20", 0.1, 100.0, "111"}}},
      {"CPMG_bind3b", "f(dwfi, dwfb, kfi, kif, Bkon, koff, R20)", 5, 3, 0, 0,
       {{"dwfi", -12000.0, 12000.0, "000"},
        {"dwfb", -12000.0, 12000.0, "000"},
        {"kfi", 0.0, 12000.0, "100"},
        {"kif", 0.0, 12000.0, "100"},
        {"Bkon", 0.0, 12000.0, "101"},
        {"koff", 0.0, 12000.0, "100"},
        {"R20", 0.1, 100.0, "111"}}},
      // kon2 and koff2 are parameters of the next two although their equations leave them out, and
      // R20 starts at 1.
      {"CPMG_bind3c_1F2B", "f(dwfb1, dwfb2, kon1, koff1, k12, k21, A0, B0, R20)", 5, 3, 0, 0,
       {{"dwfb1", -12000.0, 12000.0, "000"},
        {"dwfb2", -12000.0, 12000.0, "000"},
        {"kon1", 0.0, 10000.0, "100"},
        {"koff1", 0.0, 12000.0, "100"},
        {"kon2", 0.0, 10000.0, "100"},
        {"koff2", 0.0, 12000.0, "100"},
        {"k12", 0.0, 12000.0, "100"},
        {"k21", 0.0, 12000.0, "100"},
        {"A0", 1e-9, 0.01, "000"},
        {"B0", 1e-9, 0.01, "000"},
        {"R20", 1.0, 100.0, "111"}}},
      {"CPMG_bind3c_2F1B", "f(dwf1f2, dwf1b, kon1, koff1, k12, k21, A0, B0, R20)", 5, 3, 0, 0,
       {{"dwf1f2", -12000.0, 12000.0, "000"},
        {"dwf1b", -12000.0, 12000.0, "000"},
        {"kon1", 0.0, 10000.0, "100"},
        {"koff1", 0.0, 12000.0, "100"},
        {"kon2", 0.0, 10000.0, "100"},
        {"koff2", 0.0, 12000.0, "100"},
        {"k12", 0.0, 12000.0, "100"},
        {"k21", 0.0, 12000.0, "100"},
        {"A0", 1e-9, 0.01, "000"},
        {"B0", 1e-9, 0.01, "000"},
        {"R20", 1.0, 100.0, "111"}}},
      {"MQCPMG_Richards", "f(dwN, dwH, kex, papb, R20)", 5, 3, 0, 0,
       {{"dwN", -12000.0, 12000.0, "000"},
        {"dwH", -12000.0, 12000.0, "000"},
        {"kex", 1.0, 12000.0, "100"},
        {"papb", 0.001, 0.249, "100"},
        {"R20", 0.1, 100.0, "111"}}},
      // pb ends at 0.249 here and at 0.49 in the matrix model.
      {"MQCPMG_Richards_p", "f(dwN, dwH, kex, pb, R20)", 5, 3, 0, 0,
       {{"dwN", -12000.0, 12000.0, "000"},
        {"dwH", -12000.0, 12000.0, "000"},
        {"kex", 1.0, 12000.0, "100"},
        {"pb", 0.005, 0.249, "100"},
        {"R20", 0.1, 100.0, "111"}}},
      {"MQCPMG_Richards_k", "f(dwN, dwH, kab, kba, R20)", 5, 3, 0, 0,
       {{"dwN", -12000.0, 12000.0, "000"},
        {"dwH", -12000.0, 12000.0, "000"},
        {"kab", 1.0, 12000.0, "100"},
        {"kba", 1.0, 12000.0, "100"},
        {"R20", 0.1, 100.0, "111"}}},
      {"MQCPMG_Matrix2_p", "f(dwN, dwH, kex, pb, R20)", 5, 3, 0, 0,
       {{"dwN", -12000.0, 12000.0, "000"},
        {"dwH", -12000.0, 12000.0, "000"},
        {"kex", 1.0, 12000.0, "100"},
        {"pb", 0.005, 0.49, "100"},
        {"R20", 0.1, 100.0, "111"}}},
      {"MQCPMG_Matrix2_k", "f(dwN, dwH, kab, kba, R20)", 5, 3, 0, 0,
       {{"dwN", -12000.0, 12000.0, "000"},
        {"dwH", -12000.0, 12000.0, "000"},
        {"kab", 1.0, 12000.0, "100"},
        {"kba", 1.0, 12000.0, "100"},
        {"R20", 0.1, 100.0, "111"}}},
      {"MQCPMG_Matrix3_p", "f(dwabN, dwabH, dwacN, dwacH, pb, pc, kex1, kex2, kex3, R20)", 5, 3, 0, 0,
       {{"dwabN", -12000.0, 12000.0, "000"},
        {"dwabH", -12000.0, 12000.0, "000"},
        {"dwacN", -12000.0, 12000.0, "000"},
        {"dwacH", -12000.0, 12000.0, "000"},
        {"pb", 0.005, 0.49, "100"},
        {"pc", 0.005, 0.49, "100"},
        {"kex1", 0.0, 12000.0, "100"},
        {"kex2", 0.0, 12000.0, "100"},
        {"kex3", 0.0, 12000.0, "100"},
        {"R20", 0.1, 100.0, "111"}}},
      // kac is declared before kca although the equation names them the other way round.
      {"MQCPMG_Matrix3_k", "f(dwabN, dwabH, dwacN, dwacH, kab, kba, kca, kac, kbc, R20)", 5, 3, 0, 0,
       {{"dwabN", -12000.0, 12000.0, "000"},
        {"dwabH", -12000.0, 12000.0, "000"},
        {"dwacN", -12000.0, 12000.0, "000"},
        {"dwacH", -12000.0, 12000.0, "000"},
        {"kab", 0.0, 12000.0, "100"},
        {"kba", 0.0, 12000.0, "100"},
        {"kac", 0.0, 12000.0, "100"},
        {"kca", 0.0, 12000.0, "100"},
        {"kbc", 0.0, 12000.0, "100"},
        {"R20", 0.1, 100.0, "111"}}},
  };
  // clang-format on
  return models;
}

class RegistrationMatrix : public testing::TestWithParam<ExpectedModel> {
 protected:
  RegistrationMatrix() { funclib_.Pick_Func(GetParam().name); }
  Funclib funclib_;
};

INSTANTIATE_TEST_SUITE_P(Models, RegistrationMatrix, testing::ValuesIn(expectedModels()),
                         [](const auto& model) { return std::string(model.param.name); });

TEST_P(RegistrationMatrix, NameAndEquationAreExact) {
  EXPECT_EQ(funclib_.Name(), GetParam().name);
  EXPECT_EQ(funclib_.Eqn(), GetParam().equation);
}

TEST_P(RegistrationMatrix, GroupAndColumnsAreExact) {
  EXPECT_EQ(funclib_.XmgrHeader(), "CT-CPMG");
  EXPECT_EQ(funclib_.Get_dimX(), GetParam().dimX);
  EXPECT_EQ(funclib_.Get_dimIndex(), GetParam().dimIndex);
  EXPECT_EQ(funclib_.Get_dist(), GetParam().dist);
  EXPECT_EQ(funclib_.posTau(), GetParam().posTau);
}

TEST_P(RegistrationMatrix, ParametersBoundsAndIndexRulesAreExact) {
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

TEST(RegistrationMatrixOrder, ModelsStandInThisOrderBehindTheTwoSiteModels) {
  const Funclib funclib;
  int model = 0;
  while (model < funclib.size() && funclib.nameOf(model) != "CPMG_Bind2c") ++model;
  for (const ExpectedModel& expected : expectedModels()) {
    ++model;
    ASSERT_LT(model, funclib.size());
    EXPECT_EQ(funclib.nameOf(model), expected.name);
  }
}

TEST(RegistrationMatrixOrder, NoTwoModelsShareAFunction) {
  Funclib funclib;
  std::set<ModelFunc> functions;
  for (const ExpectedModel& model : expectedModels()) {
    funclib.Pick_Func(model.name);
    functions.insert(funclib.Func());
  }
  EXPECT_EQ(functions.size(), expectedModels().size());
  EXPECT_EQ(functions.count(nullptr), 0U);
}

TEST(RegistrationMatrixOrder, NamesAreFoundInAnyLetterCase) {
  Funclib funclib;
  funclib.Pick_Func("cpmg_MATRIX3");
  EXPECT_EQ(funclib.Name(), "CPMG_matrix3");
  funclib.Pick_Func("mqcpmg_matrix3_K");
  EXPECT_EQ(funclib.Name(), "MQCPMG_Matrix3_k");
}

}  // namespace
