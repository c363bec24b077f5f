// Derived quantities and error analyses that the input asks for.
// SPDX-License-Identifier: GPL-3.0-or-later
#include "Calc.h"

#include "InputText.h"

#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <vector>

namespace {

TEST(Calc, NewObjectAsksForNothing) {
  const Calc calc;
  EXPECT_EQ(calc.size(), 0);
  EXPECT_EQ(calc.getJackType(), 0);
  EXPECT_EQ(calc.getMonteType(), 0);
}

TEST(Calc, EntriesKeepTheirOrderLabelAndPoint) {
  Calc calc;
  calc.Add("REX", "first", {50.0, 298.0, 1.0}, {1, 2});
  calc.Add("PB", "second", {0.0}, {3});
  ASSERT_EQ(calc.size(), 2);
  EXPECT_EQ(calc.Label(0), "first");
  EXPECT_EQ(calc.Label(1), "second");
  EXPECT_EQ(calc.entry(0).data.x, (std::vector<double>{50.0, 298.0, 1.0}));
  EXPECT_EQ(calc.entry(0).data.index, (std::vector<int>{1, 2}));
  EXPECT_EQ(calc.entry(1).data.x, std::vector<double>{0.0});
  EXPECT_EQ(calc.entry(1).data.index, std::vector<int>{3});
}

struct TypeRow {
  const char* word;
  int code;
};

void PrintTo(const TypeRow& row, std::ostream* stream) { *stream << row.word; }

class CalcType : public testing::TestWithParam<TypeRow> {};

TEST_P(CalcType, SelectsItsCode) {
  Calc calc;
  calc.Add(GetParam().word, "", {}, {});
  EXPECT_EQ(calc.entry(0).type, GetParam().code);
}

INSTANTIATE_TEST_SUITE_P(AnyLetterCase, CalcType,
                         testing::Values(TypeRow{"REX", 1}, TypeRow{"rex", 1}, TypeRow{"PB", 2},
                                         TypeRow{"Pb", 2}, TypeRow{"PB_RDC", 3},
                                         TypeRow{"pb_rdc", 3}, TypeRow{"PB_MQ", 4},
                                         TypeRow{"pB_mQ", 4}),
                         [](const auto& row) { return std::string(row.param.word); });

class CalcUnknownType : public testing::TestWithParam<const char*> {};

TEST_P(CalcUnknownType, EndsTheRun) {
  const std::string word = GetParam();
  EXPECT_EQ(endingOf([&] { Calc().Add(word, "label", {}, {}); }),
            fatalEnding("ERROR: CALC '" + word + "' is not recognized.\n"));
}

INSTANTIATE_TEST_SUITE_P(Words, CalcUnknownType, testing::Values("kex", "PB_", "RE", "REXX"),
                         [](const auto& word) { return std::string(word.param); });

TEST(Calc, UnknownTypeInAnInputFileShowsNoLine) {
  EXPECT_EQ(endingOfReading("FUNCTION CPMG_Richards\nCALC kex label 50 298 1 11\n"),
            fatalEnding("ERROR: CALC 'kex' is not recognized.\n"));
}

TEST(Calc, LaterAnalysisReplacesTheEarlier) {
  Calc calc;
  calc.SetJack(1);
  calc.SetJack(2);
  calc.SetMonte(2, 100);
  calc.SetMonte(1, 50);
  EXPECT_EQ(calc.getJackType(), 2);
  EXPECT_EQ(calc.getMonteType(), 1);
  EXPECT_EQ(calc.getMonteIter(), 50);
}

}  // namespace
