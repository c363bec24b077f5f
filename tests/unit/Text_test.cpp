// Words and numbers of the input, numbers on the way to a stream.
// SPDX-License-Identifier: GPL-3.0-or-later
#include "Text.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <random>
#include <sstream>
#include <string>
#include <vector>

namespace {

constexpr double kInf = std::numeric_limits<double>::infinity();

TEST(EqualIgnoringCase, LetterCaseDoesNotMatter) {
  EXPECT_TRUE(equalIgnoringCase("CPMG_Richards", "cpmg_rICHARDS"));
  EXPECT_TRUE(equalIgnoringCase("azAZ", "AZaz"));
  EXPECT_TRUE(equalIgnoringCase("", ""));
}

TEST(EqualIgnoringCase, OnlyTheWholeWordMatches) {
  EXPECT_FALSE(equalIgnoringCase("JACK", "JACK1"));
  EXPECT_FALSE(equalIgnoringCase("JACK1", "JACK"));
  EXPECT_FALSE(equalIgnoringCase("", "a"));
  EXPECT_FALSE(equalIgnoringCase("kex", "kez"));
}

TEST(EqualIgnoringCase, CharactersBesideTheLettersInAsciiHaveNoCase) {
  EXPECT_FALSE(equalIgnoringCase("@", "`"));
  EXPECT_FALSE(equalIgnoringCase("[", "{"));
  EXPECT_FALSE(equalIgnoringCase("\xC4", "\xE4"));
}

TEST(ToDouble, ReadsTheNumberAtTheStart) {
  EXPECT_EQ(toDouble("-2.5e3"), -2500.0);
  EXPECT_EQ(toDouble("+.5"), 0.5);
  EXPECT_EQ(toDouble("3.5Hz"), 3.5);
  EXPECT_EQ(toDouble("0x10"), 16.0);
}

TEST(ToDouble, TextIsZero) {
  EXPECT_EQ(toDouble("abc"), 0.0);
  EXPECT_EQ(toDouble("*"), 0.0);
  EXPECT_EQ(toDouble(""), 0.0);
}

TEST(ToDouble, InfinityAndNanAreTakenAsTheyAre) {
  EXPECT_EQ(toDouble("-inf"), -kInf);
  EXPECT_EQ(toDouble("1e999"), kInf);
  EXPECT_TRUE(std::isnan(toDouble("nan")));
}

TEST(ToDouble, EqualsTheStandardReaderOnEveryKindOfField) {
  std::mt19937 random(17);
  const auto digits = [&random](int most) {
    std::string text;
    for (int i = static_cast<int>(random() % static_cast<unsigned>(most + 1)); i > 0; --i) {
      text += static_cast<char>('0' + random() % 10);
    }
    return text;
  };
  const std::vector<std::string> signs = {"", "", "-", "+", " "};
  const std::vector<std::string> exponents = {"", "", "e", "E-", "e+3", "e-320", "e308", "d5", "."};
  const std::vector<std::string> odd = {
      "nan",    "-nan",  "inf",    "Infinity", "0x1p3",
      "0x",     "1e",    ".",      "-",        "4.9e-324",
      "2e-324", "1e400", "-1e400", "-0",       "1.7976931348623159e308",
      "nan(1)", "1,5",   "1_000"};
  for (int i = 0; i < 100000; ++i) {
    std::string field = signs[random() % signs.size()] + digits(20) + "." + digits(20) +
                        exponents[random() % exponents.size()] + digits(2);
    if (i < static_cast<int>(odd.size())) field = odd[static_cast<std::size_t>(i)];
    const double expected = std::strtod(field.c_str(), nullptr);
    const double read = toDouble(field);
    ASSERT_EQ(std::bit_cast<std::uint64_t>(read), std::bit_cast<std::uint64_t>(expected)) << field;
  }
}

TEST(ToInt, TheBaseFollowsFromTheDigits) {
  EXPECT_EQ(toInt("12"), 12);
  EXPECT_EQ(toInt("0x1A"), 26);
  EXPECT_EQ(toInt("010"), 8);
  EXPECT_EQ(toInt("-3"), -3);
  EXPECT_EQ(toInt("+1"), 1);
}

TEST(ToInt, TextAfterTheNumberIsIgnored) {
  EXPECT_EQ(toInt("10e"), 10);
  EXPECT_EQ(toInt("2.9"), 2);
  EXPECT_EQ(toInt("09"), 0);  // octal, and 9 is no octal digit
}

TEST(ToInt, TextIsZero) {
  EXPECT_EQ(toInt("abc"), 0);
  EXPECT_EQ(toInt(""), 0);
}

TEST(ToInt, NumbersBeyondTheRangeBecomeTheNearestInt) {
  EXPECT_EQ(toInt("99999999999999999999"), std::numeric_limits<int>::max());
  EXPECT_EQ(toInt("4294967297"), std::numeric_limits<int>::max());
  EXPECT_EQ(toInt("-4294967297"), std::numeric_limits<int>::min());
}

TEST(Shown, NanLosesItsSign) {
  std::ostringstream stream;
  stream << shown(-std::numeric_limits<double>::quiet_NaN()) << ' '
         << shown(std::numeric_limits<double>::quiet_NaN());
  EXPECT_EQ(stream.str(), "nan nan");
}

TEST(Shown, OtherNumbersStay) {
  EXPECT_EQ(shown(-kInf), -kInf);
  EXPECT_EQ(shown(0.1), 0.1);
  EXPECT_TRUE(std::signbit(shown(-0.0)));
}

}  // namespace
