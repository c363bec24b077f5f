// Parameter names: splitting, rebuilding, messages.
// SPDX-License-Identifier: GPL-3.0-or-later
#include "Rule.h"

#include "InputText.h"

#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <vector>

namespace {

using Indices = std::vector<int>;

constexpr int kDw = 0, kKex = 1, kPb = 2, kR20 = 3;

/// dw depends on no label, kex on the first, pb on the second, R20 on both.
Rules twoLabels() {
  Rules rules;
  rules.Define_Parm("dw", 1.0, 12000.0, "00");
  rules.Define_Parm("kex", 0.5, 9000.0, "10");
  rules.Define_Parm("pb", 0.005, 0.49, "01");
  rules.Define_Parm("R20", 0.1, 100.0, "11");
  return rules;
}

Rules oneParm(const char* rule) {
  Rules rules;
  rules.Define_Parm("k", 0.0, 1.0, rule);
  return rules;
}

/// A name split by twoLabels().
struct Split {
  int base;
  Indices indices;
  bool operator==(const Split&) const = default;
};

void PrintTo(const Split& split, std::ostream* stream) {
  *stream << "base " << split.base << testing::PrintToString(split.indices);
}

Split split(const std::string& name, const Rules& rules = twoLabels()) {
  Split result{};
  result.base = rules.decompose(name, result.indices);
  return result;
}

Ending endingOfSplitting(const std::string& name, const Rules& rules = twoLabels()) {
  return endingOf([&] { split(name, rules); });
}

std::string badlyConstructed(const std::string& name) {
  return "ERROR: Badly constructed parameter '" + name + "'\n";
}
std::string insufficient(const std::string& name) {
  return "ERROR: Insufficient indices on par '" + name + "'\n";
}
std::string tooMany(const std::string& name) {
  return "ERROR: Parameter name '" + name + "' has too many indices\n";
}

// ---- the list of base parameters ----

TEST(Rules, NewObjectIsEmpty) {
  const Rules rules;
  EXPECT_EQ(rules.basePAR_size(), 0U);
  EXPECT_EQ(rules.index("kex"), -1);
}

TEST(Rules, ParametersKeepTheOrderOfTheirDeclaration) {
  const Rules rules = twoLabels();
  ASSERT_EQ(rules.basePAR_size(), 4U);
  EXPECT_EQ(rules.index("dw"), kDw);
  EXPECT_EQ(rules.index("kex"), kKex);
  EXPECT_EQ(rules.index("pb"), kPb);
  EXPECT_EQ(rules.index("R20"), kR20);
  EXPECT_EQ(rules.Get_LowerBound(1), 0.5);
  EXPECT_EQ(rules.Get_UpperBound(1), 9000.0);
  EXPECT_EQ(rules.baseName(3), "R20");
  EXPECT_EQ(rules.indexRule(2), "01");
}

TEST(Rules, NamesAreFoundInAnyLetterCaseButWhole) {
  const Rules rules = twoLabels();
  EXPECT_EQ(rules.index("KEX"), kKex);
  EXPECT_EQ(rules.index("r20"), kR20);
  EXPECT_EQ(rules.index("ke"), -1);
  EXPECT_EQ(rules.index("kexx"), -1);
  EXPECT_EQ(rules.index(""), -1);
}

TEST(Rules, OfEqualNamesTheFirstWins) {
  Rules rules = twoLabels();
  rules.Define_Parm("KEX", 0.0, 1.0, "11");
  EXPECT_EQ(rules.index("KEX"), kKex);
}

// ---- splitting ----

TEST(RulesDecompose, NameWithoutIndicesStandsForEveryLabel) {
  EXPECT_EQ(split("kex"), (Split{kKex, {-1, -1}}));
  EXPECT_EQ(split("R20"), (Split{kR20, {-1, -1}}));
  EXPECT_EQ(split("dw"), (Split{kDw, {-1, -1}}));
}

TEST(RulesDecompose, EmptyRuleGivesNoIndices) {
  EXPECT_EQ(split("k", oneParm("")), (Split{0, {}}));
}

TEST(RulesDecompose, IndicesFillTheIndexedPositions) {
  EXPECT_EQ(split("R20_2_3"), (Split{kR20, {2, 3}}));
  EXPECT_EQ(split("kex_1"), (Split{kKex, {1, -1}}));
  EXPECT_EQ(split("pb_1"), (Split{kPb, {-1, 1}}));
  EXPECT_EQ(split("k_7", oneParm("001")), (Split{0, {-1, -1, 7}}));
  EXPECT_EQ(split("k_7_8", oneParm("101")), (Split{0, {7, -1, 8}}));
  EXPECT_EQ(split("k_1_2_3", oneParm("111")), (Split{0, {1, 2, 3}}));
}

TEST(RulesDecompose, AnyCharacterButZeroMarksAnIndexedPosition) {
  EXPECT_EQ(split("k_7", oneParm("0x")), (Split{0, {-1, 7}}));
}

TEST(RulesDecompose, BaseNameHasNoLetterCase) {
  EXPECT_EQ(split("KEX_1"), (Split{kKex, {1, -1}}));
  EXPECT_EQ(split("r20_2_3"), (Split{kR20, {2, 3}}));
}

TEST(RulesDecompose, IndicesAreReadInAutomaticBase) {
  EXPECT_EQ(split("kex_12").indices, (Indices{12, -1}));
  EXPECT_EQ(split("kex_0x10").indices, (Indices{16, -1}));
  EXPECT_EQ(split("kex_0x1A").indices, (Indices{26, -1}));
  EXPECT_EQ(split("kex_010").indices, (Indices{8, -1}));
}

TEST(RulesDecompose, IndexThatIsNoNumberIsZero) {
  EXPECT_EQ(split("R20_a_1").indices, (Indices{0, 1}));
  EXPECT_EQ(split("R20__1").indices, (Indices{0, 1}));
  EXPECT_EQ(split("R20_3x_1").indices, (Indices{3, 1}));
}

TEST(RulesDecompose, IndexIsTruncatedTo32Bits) {
  EXPECT_EQ(split("kex_4294967297").indices, (Indices{1, -1}));
}

TEST(RulesDecompose, IndicesAreAppendedToTheList) {
  Indices indices{9};
  EXPECT_EQ(twoLabels().decompose("R20_2_3", indices), kR20);
  EXPECT_EQ(indices, (Indices{9, 2, 3}));
}

TEST(RulesDecompose, UnderscoreAtTheEndIsBadlyConstructed) {
  EXPECT_EQ(endingOfSplitting("kex_"), fatalEnding(badlyConstructed("kex_")));
  EXPECT_EQ(endingOfSplitting("R20_1_"), fatalEnding(badlyConstructed("R20_1_")));
  EXPECT_EQ(endingOfSplitting("kex_1_"), fatalEnding(badlyConstructed("kex_1_")));
  EXPECT_EQ(endingOfSplitting("_"), fatalEnding(badlyConstructed("_")));
}

TEST(RulesDecompose, UnderscoreAtTheEndIsFoundBeforeAnUnknownName) {
  EXPECT_EQ(endingOfSplitting("foo_"), fatalEnding(badlyConstructed("foo_")));
}

TEST(RulesDecompose, MissingIndexEndsTheRun) {
  EXPECT_EQ(endingOfSplitting("R20_2"), fatalEnding(insufficient("R20_2")));
  EXPECT_EQ(endingOfSplitting("k_7", oneParm("101")), fatalEnding(insufficient("k_7")));
}

TEST(RulesDecompose, SurplusIndexEndsTheRun) {
  EXPECT_EQ(endingOfSplitting("R20_2_3_4"), fatalEnding(tooMany("R20_2_3_4")));
  EXPECT_EQ(endingOfSplitting("dw_1"), fatalEnding(tooMany("dw_1")));
  EXPECT_EQ(endingOfSplitting("kex_1_2"), fatalEnding(tooMany("kex_1_2")));
  EXPECT_EQ(endingOfSplitting("k_1", oneParm("")), fatalEnding(tooMany("k_1")));
}

TEST(RulesDecompose, UnknownNameListsTheNamesOfTheModel) {
  EXPECT_EQ(endingOfSplitting("foo_1"),
            fatalEnding("ERROR: Parameter name 'foo_1' unrecognized.\n"
                        "Valid parameter names for the model:\t'dw'\t'kex'\t'pb'\t'R20'\n"));
}

TEST(RulesDecompose, NameThatBeginsWithAnUnderscoreIsUnknown) {
  EXPECT_EQ(endingOfSplitting("_1", oneParm("1")),
            fatalEnding("ERROR: Parameter name '_1' unrecognized.\n"
                        "Valid parameter names for the model:\t'k'\n"));
}

TEST(RulesDecompose, WithoutParametersTheListIsEmpty) {
  EXPECT_EQ(endingOfSplitting("k", Rules()), fatalEnding("ERROR: Parameter name 'k' unrecognized.\n"
                                                         "Valid parameter names for the model:\n"));
}

// ---- rebuilding ----

std::string markedUp(int k, const Indices& indices, const Rules& rules = twoLabels()) {
  std::string name = "old text";
  rules.markup(name, k, &indices);
  return name;
}

TEST(RulesMarkup, WritesTheIndicesOfIndexedPositions) {
  EXPECT_EQ(markedUp(kR20, {2, 3}), "R20_2_3");
  EXPECT_EQ(markedUp(kKex, {1, -1}), "kex_1");
  EXPECT_EQ(markedUp(kDw, {1, 2}), "dw");
}

TEST(RulesMarkup, TakesTheIndexOfTheRulePositionNotTheNextOne) {
  EXPECT_EQ(markedUp(kPb, {5, 12}), "pb_12");
  EXPECT_EQ(markedUp(0, {1, 2, 3}, oneParm("101")), "k_1_3");
}

TEST(RulesMarkup, WithoutIndicesEveryIndexIsZero) {
  std::string name;
  twoLabels().markup(name, kKex, nullptr);
  EXPECT_EQ(name, "kex_0");
  twoLabels().markup(name, kR20, nullptr);
  EXPECT_EQ(name, "R20_0_0");
  twoLabels().markup(name, kDw, nullptr);
  EXPECT_EQ(name, "dw");
}

TEST(RulesMarkup, LongerIndexListIsAccepted) { EXPECT_EQ(markedUp(kKex, {4, 5, 6}), "kex_4"); }

TEST(RulesMarkup, UndoesDecompose) {
  for (const std::string name : {"R20_2_3", "kex_1", "pb_10", "dw"}) {
    const Split parts = split(name);
    EXPECT_EQ(markedUp(parts.base, parts.indices), name);
  }
}

TEST(RulesMarkup, ShortIndexListEndsTheRun) {
  EXPECT_EQ(endingOf([] { markedUp(kKex, {1}); }),
            fatalEnding("ERROR (Rules::markup): Index list too short\n"));
}

TEST(RulesMarkup, ShortIndexListEndsTheRunEvenWhereNothingIsIndexed) {
  EXPECT_EQ(endingOf([] { markedUp(kDw, {}); }),
            fatalEnding("ERROR (Rules::markup): Index list too short\n"));
}

TEST(RulesMarkup, UnknownParameterEndsTheRun) {
  EXPECT_EQ(endingOf([] { markedUp(0, {}, Rules()); }),
            fatalEnding("ERROR: Markup rule not found for parameter ''\n"));
}

TEST(RulesAppendInt, WritesDecimalDigitsOnly) {
  std::string text = "k_";
  Rules::append_int(text, 0);
  EXPECT_EQ(text, "k_0");
  text.clear();
  Rules::append_int(text, 1200345);
  EXPECT_EQ(text, "1200345");
  text.clear();
  Rules::append_int(text, 2147483647);
  EXPECT_EQ(text, "2147483647");
}

TEST(RulesAppendInt, NegativeNumberYieldsOneCharacterBelowZero) {
  std::string text;
  Rules::append_int(text, -12);
  EXPECT_EQ(text, std::string(1, '0' - 2));
}

}  // namespace
