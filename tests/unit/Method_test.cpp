// The list of search methods: words, options, report lines, messages.
// SPDX-License-Identifier: GPL-3.0-or-later
#include "Method.h"

#include "InputText.h"

#include <gtest/gtest.h>

#include <ostream>
#include <string>

namespace {

/// The entry that a METHOD line of these tokens appends.
Method listWith(const Words& tokens) {
  Method method;
  method.Clear();
  method.Add(tokens);
  return method;
}

std::string reportOf(const Words& tokens) { return listWith(tokens).report(0); }

Ending endingOfAdding(const Words& tokens) {
  return endingOf([&] { Method().Add(tokens); });
}

// ---- the list ----

TEST(Method, NewListHoldsInitWithDefaults) {
  const Method method;
  ASSERT_EQ(method.size(), 1);
  EXPECT_EQ(method.Type(0), 1);
  EXPECT_EQ(method.Iter(0), 10);
  EXPECT_EQ(method.IterMC(0), 10);
  EXPECT_EQ(method.Scale(0), 0.01);
}

TEST(Method, InputWithoutMethodLinesFitsWithInitAlone) {
  Reading run;
  run.read("FUNCTION Linear\n");
  ASSERT_EQ(run.method.size(), 1);
  EXPECT_EQ(run.method.report(0), "METHOD INIT");
}

TEST(Method, LinesAreAppendedBehindInitInTheirOrder) {
  Reading run;
  run.read("METHOD GRID\nMETHOD ONE\nMETHOD INIT\n");
  ASSERT_EQ(run.method.size(), 4);
  EXPECT_EQ(run.method.Type(0), 1);
  EXPECT_EQ(run.method.Type(1), 4);
  EXPECT_EQ(run.method.Type(2), 2);
  EXPECT_EQ(run.method.Type(3), 1);
}

TEST(Method, ClearEmptiesTheList) {
  Method method;
  method.Clear();
  EXPECT_EQ(method.size(), 0);
}

TEST(Method, AssignmentCopiesTheWholeList) {
  Method working = listWith({"METHOD", "MCMIN", "7", "0.5"});
  const Method saved = working;
  working.Clear();
  ASSERT_EQ(saved.size(), 1);
  EXPECT_EQ(saved.report(0), "METHOD MCMIN 7 0.5");
}

TEST(Method, ResetLeavesInitAndOneexWithDefaults) {
  Reading run;
  Method& method = run.method;
  method.Add({"METHOD", "RMCMIN", "3", "4", "0.5"});
  run.setup.resetMETHOD_ONEEX(method);
  ASSERT_EQ(method.size(), 2);
  EXPECT_EQ(method.Type(0), 1);
  EXPECT_EQ(method.Type(1), 3);
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(method.Iter(i), 10);
    EXPECT_EQ(method.IterMC(i), 10);
    EXPECT_EQ(method.Scale(i), 0.01);
  }
}

// ---- words and options ----

struct WordRow {
  const char* word;
  int code;
};

void PrintTo(const WordRow& row, std::ostream* stream) { *stream << row.word; }

class MethodWord : public testing::TestWithParam<WordRow> {};

TEST_P(MethodWord, SelectsItsCode) {
  EXPECT_EQ(listWith({"METHOD", GetParam().word, "1", "2", "3"}).Type(0), GetParam().code);
}

INSTANTIATE_TEST_SUITE_P(AnyLetterCase, MethodWord,
                         testing::Values(WordRow{"INIT", 1}, WordRow{"init", 1}, WordRow{"ONE", 2},
                                         WordRow{"One", 2}, WordRow{"ONEEX", 3},
                                         WordRow{"oneEX", 3}, WordRow{"GRID", 4},
                                         WordRow{"grid", 4}, WordRow{"RANDOM", 5},
                                         WordRow{"rAnDoM", 5}, WordRow{"MCMIN", 6},
                                         WordRow{"McMin", 6}, WordRow{"RMCMIN", 7},
                                         WordRow{"rmcmin", 7}, WordRow{"RmcMin", 7}),
                         [](const auto& row) { return std::string(row.param.word); });

class MethodWithoutOptions : public testing::TestWithParam<const char*> {};

TEST_P(MethodWithoutOptions, KeepsDefaultsWhateverFollows) {
  const Method method = listWith({"METHOD", GetParam(), "77", "88", "0.9"});
  EXPECT_EQ(method.Iter(0), 10);
  EXPECT_EQ(method.IterMC(0), 10);
  EXPECT_EQ(method.Scale(0), 0.01);
}

INSTANTIATE_TEST_SUITE_P(Words, MethodWithoutOptions,
                         testing::Values("INIT", "ONE", "ONEEX", "GRID"),
                         [](const auto& row) { return std::string(row.param); });

TEST(Method, RandomReadsItsIterationsOnly) {
  const Method method = listWith({"METHOD", "RANDOM", "20", "30", "0.5"});
  EXPECT_EQ(method.Iter(0), 20);
  EXPECT_EQ(method.IterMC(0), 10);
  EXPECT_EQ(method.Scale(0), 0.01);
}

TEST(Method, McminReadsIterationsAndScale) {
  const Method method = listWith({"METHOD", "MCMIN", "100", "0.05", "9"});
  EXPECT_EQ(method.Iter(0), 100);
  EXPECT_EQ(method.IterMC(0), 10);
  EXPECT_EQ(method.Scale(0), 0.05);
}

TEST(Method, RmcminReadsBothCountsAndScale) {
  const Method method = listWith({"METHOD", "RMCMIN", "5", "6", "0.25", "9"});
  EXPECT_EQ(method.Iter(0), 5);
  EXPECT_EQ(method.IterMC(0), 6);
  EXPECT_EQ(method.Scale(0), 0.25);
}

TEST(Method, CountsAreReadInAutomaticBaseWithoutValidation) {
  const Method method = listWith({"METHOD", "RMCMIN", "0x10", "010k", "0.5x"});
  EXPECT_EQ(method.Iter(0), 16);
  EXPECT_EQ(method.IterMC(0), 8);
  EXPECT_EQ(method.Scale(0), 0.5);
  const Method text = listWith({"METHOD", "MCMIN", "many", "small"});
  EXPECT_EQ(text.Iter(0), 0);
  EXPECT_EQ(text.Scale(0), 0.0);
}

// ---- report lines ----

TEST(MethodReport, NamesEachMethodWithItsOptions) {
  EXPECT_EQ(reportOf({"METHOD", "init"}), "METHOD INIT");
  EXPECT_EQ(reportOf({"METHOD", "one"}), "METHOD ONE");
  EXPECT_EQ(reportOf({"METHOD", "oneex"}), "METHOD ONEEX");
  EXPECT_EQ(reportOf({"METHOD", "random", "20"}), "METHOD RANDOM 20");
  EXPECT_EQ(reportOf({"METHOD", "mcmin", "100", "0.05"}), "METHOD MCMIN 100 0.05");
  EXPECT_EQ(reportOf({"METHOD", "rmcmin", "5", "6", "0.25"}), "METHOD RMCMIN 5 6 0.25");
}

TEST(MethodReport, GridRunsIntoItsUnusedCount) {
  EXPECT_EQ(reportOf({"METHOD", "grid"}), "METHOD GRID10");
}

TEST(MethodReport, ScaleHasSixSignificantDigits) {
  EXPECT_EQ(reportOf({"METHOD", "MCMIN", "1", "0.0123456789"}), "METHOD MCMIN 1 0.0123457");
  EXPECT_EQ(reportOf({"METHOD", "MCMIN", "1", "0.010"}), "METHOD MCMIN 1 0.01");
  EXPECT_EQ(reportOf({"METHOD", "MCMIN", "1", "-nan"}), "METHOD MCMIN 1 nan");
}

// ---- messages ----

TEST(Method, UnknownWordEndsTheRunAndTheListLeavesRmcminOut) {
  EXPECT_EQ(endingOfAdding({"METHOD", "Simplex"}),
            fatalEnding("ERROR: Optimization type 'Simplex' not recognized.\n"
                        "Valid methods are INIT, GRID, ONE, ONEEX, RANDOM and MCMIN.\n"));
}

TEST(Method, PartOfAWordIsNoWord) {
  EXPECT_EQ(endingOfAdding({"METHOD", "ONEE"}),
            fatalEnding("ERROR: Optimization type 'ONEE' not recognized.\n"
                        "Valid methods are INIT, GRID, ONE, ONEEX, RANDOM and MCMIN.\n"));
}

struct ShortRow {
  Words tokens;
  const char* word;  ///< as the message spells it
};

void PrintTo(const ShortRow& row, std::ostream* stream) { *stream << row.word; }

class MethodTooShort : public testing::TestWithParam<ShortRow> {};

TEST_P(MethodTooShort, EndsTheRunNamingTheWordInUpperCase) {
  EXPECT_EQ(
      endingOfAdding(GetParam().tokens),
      fatalEnding("ERROR: insufficient options for METHOD " + std::string(GetParam().word) + "\n"));
}

INSTANTIATE_TEST_SUITE_P(Words, MethodTooShort,
                         testing::Values(ShortRow{{"METHOD", "RANDOM"}, "RANDOM"},
                                         ShortRow{{"method", "random"}, "RANDOM"},
                                         ShortRow{{"METHOD", "MCMIN"}, "MCMIN"},
                                         ShortRow{{"METHOD", "mcmin", "100"}, "MCMIN"},
                                         ShortRow{{"METHOD", "RMCMIN"}, "RMCMIN"},
                                         ShortRow{{"METHOD", "Rmcmin", "5"}, "RMCMIN"},
                                         ShortRow{{"METHOD", "rmcmin", "5", "6"}, "RMCMIN"}),
                         [](const auto& row) {
                           return std::string(row.param.tokens[1]) + "With" +
                                  std::to_string(row.param.tokens.size()) + "Tokens";
                         });

TEST(Method, MessagesOfALineShowNoLineNumber) {
  EXPECT_EQ(endingOfReading("\nMETHOD RANDOM\n"),
            fatalEnding("ERROR: insufficient options for METHOD RANDOM\n"));
  EXPECT_EQ(endingOfReading("\nMETHOD foo\n"),
            fatalEnding("ERROR: Optimization type 'foo' not recognized.\n"
                        "Valid methods are INIT, GRID, ONE, ONEEX, RANDOM and MCMIN.\n"));
}

}  // namespace
