// The command line and the reader of the input file.
// SPDX-License-Identifier: GPL-3.0-or-later
#include "Setup.h"

#include "InputText.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <limits>
#include <ostream>
#include <string>
#include <vector>

namespace {

constexpr double kInf = std::numeric_limits<double>::infinity();

using Numbers = std::vector<double>;
using Labels = std::vector<int>;

// ---- messages ----

const char* const kNoModel = "ERROR: No 'FUNCTION' specified.\n";
const char* const kNoErrorColumn = "WARNING: Assuming that no experimental error is specficed.\n";
const char* const kNoMonte =
    "ERROR: Unable to perform Monte Carlo error analysis without a measure of\n"
    " the uncertainty of each point.\n";
const char* const kFewIterations =
    "ERROR: Monte Carlo simulations require more than 2 iterations.\n";

std::string usage(const std::string& invocation) {
  return "DRAVO fitting program usage:\t" + invocation +
         " {parameters}\n"
         "\n"
         "Valid parameters:\n"
         "  -i INPUT FILE\n"
         "  -o OUTPUT FILE\n"
         "  -d INPUT FILE = dravo.in, OUTPUT FILE = dravo.out\n"
         "  -v       Shows verbose messages\n"
         "  -vv      Store the result of each method\n"
         "  -xmgr    Outputs Grace (XMGR) files\n"
         "  -noerr   Experimental error is set to 1.0\n"
         "  -h       Displays this help message\n";
}
std::string atLine(int number, const std::string& line) {
  return "Line " + std::to_string(number) + ": " + line + "\n";
}
std::string wrongCount(const std::string& keyword) {
  return "ERROR: The number of parameters for '" + keyword + "' is wrong.\n";
}
std::string noSet(const std::string& keyword) {
  return "ERROR: Keyword '" + keyword + "' cannot preceed the 'SET' keyword.\n";
}
std::string wrongRange(const std::string& keyword) {
  return "ERROR: Keyword '" + keyword + "' has a wrong parameter range.\n";
}
std::string unknownKeyword(const std::string& word) {
  return "ERROR: Keyword '" + word + "' not recognized.\n";
}
const char* const kBadIndex = "ERROR: Index is not defined correctly.\n";

// ======== command line ========

Ending endingOfParsing(const Words& arguments) {
  return endingOf([&] { Reading().parse(arguments); });
}

/// Name of the input file after these arguments, by way of the message that it cannot be opened.
std::string inputNameAfter(const Words& arguments) {
  const std::string empty_directory =
      testing::TempDir() + "dravo_nothing_" + std::to_string(getpid());
  std::filesystem::create_directory(empty_directory);
  const Ending ending = endingOf([&] {
    std::filesystem::current_path(empty_directory);
    Reading run;
    run.parse(arguments);
    run.readInput();
  });
  std::filesystem::remove(empty_directory);
  const std::string prefix = "ERROR: Unable to open '";
  if (ending.status != 1 || ending.err.rfind(prefix, 0) != 0) return testing::PrintToString(ending);
  return ending.err.substr(prefix.size(), ending.err.size() - prefix.size() - 2);
}

TEST(CommandLine, DefaultsAreQuietWithSixDigits) {
  Reading run;
  run.parse({"-o", "x.out"});
  EXPECT_EQ(run.setup.IsVerb(), 0);
  EXPECT_EQ(run.setup.GetPrec(), 6);
  EXPECT_EQ(run.setup.GetOutputFile(), "x.out");
  EXPECT_FALSE(run.xmgr.isXmgr());
  EXPECT_TRUE(run.xmgr.isError());
}

struct FlagRow {
  const char* word;
  int verbosity;
  bool plots;
  bool errors;
  bool default_files;
};

void PrintTo(const FlagRow& row, std::ostream* stream) { *stream << row.word; }

class CommandLineFlag : public testing::TestWithParam<FlagRow> {};

TEST_P(CommandLineFlag, SetsItsSwitchesAndFileNames) {
  const FlagRow& row = GetParam();
  Reading run;
  run.parse({"-i", "given.in", "-o", "given.out", row.word});
  EXPECT_EQ(run.setup.IsVerb(), row.verbosity);
  EXPECT_EQ(run.xmgr.isXmgr(), row.plots);
  EXPECT_EQ(run.xmgr.isError(), row.errors);
  EXPECT_EQ(run.setup.GetPrec(), 6);
  EXPECT_EQ(run.setup.GetOutputFile(), row.default_files ? "dravo.out" : "given.out");
  EXPECT_EQ(inputNameAfter({"-i", "given.in", "-o", "given.out", row.word}),
            row.default_files ? "dravo.in" : "given.in");
}

TEST_P(CommandLineFlag, AloneIsEnoughOnlyWithDefaultFiles) {
  const FlagRow& row = GetParam();
  EXPECT_EQ(endingOfParsing({row.word}),
            row.default_files ? returned() : fatalEnding("ERROR: No output file is specified.\n"));
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(
    Words, CommandLineFlag,
    //                      word   verbosity plots  errors default files
    testing::Values(FlagRow{"-v",     1,     false, true,  false},
                    FlagRow{"-vv",    2,     false, true,  false},
                    FlagRow{"-noerr", 0,     false, false, false},
                    FlagRow{"-xmgr",  0,     true,  true,  false},
                    FlagRow{"-d",     0,     false, true,  true},
                    FlagRow{"-dv",    1,     false, true,  true},
                    FlagRow{"-vd",    1,     false, true,  true},
                    FlagRow{"-dx",    0,     true,  true,  true},
                    FlagRow{"-xd",    0,     true,  true,  true},
                    FlagRow{"-dvx",   1,     true,  true,  true},
                    FlagRow{"-dxv",   1,     true,  true,  true},
                    FlagRow{"-vdx",   1,     true,  true,  true},
                    FlagRow{"-vxd",   1,     true,  true,  true},
                    FlagRow{"-xdv",   1,     true,  true,  true},
                    FlagRow{"-xvd",   1,     true,  true,  true},
                    FlagRow{"-vx",    1,     true,  true,  false},
                    FlagRow{"-xv",    1,     true,  true,  false}),
    [](const auto& row) { return asTestName(row.param.word); });
// clang-format on

TEST(CommandLine, LaterVerbosityOverridesTheEarlier) {
  const auto verbosityAfter = [](Words arguments) {
    arguments.insert(arguments.end(), {"-o", "x.out"});
    Reading run;
    run.parse(arguments);
    return run.setup.IsVerb();
  };
  EXPECT_EQ(verbosityAfter({"-vv", "-v"}), 1);
  EXPECT_EQ(verbosityAfter({"-v", "-vv"}), 2);
  EXPECT_EQ(verbosityAfter({"-vv", "-dxv"}), 1);
  EXPECT_EQ(verbosityAfter({"-dxv", "-vv"}), 2);
}

TEST(CommandLine, FlagsWithoutVerbosityLeaveIt) {
  Reading run;
  run.parse({"-vv", "-d", "-dx", "-xmgr", "-noerr"});
  EXPECT_EQ(run.setup.IsVerb(), 2);
}

TEST(CommandLine, FlagsMayRepeat) {
  Reading run;
  run.parse({"-d", "-noerr", "-xmgr", "-noerr", "-xmgr", "-d"});
  EXPECT_FALSE(run.xmgr.isError());
  EXPECT_TRUE(run.xmgr.isXmgr());
}

TEST(CommandLine, LaterFileNamesOverrideTheEarlier) {
  Reading run;
  run.parse({"-o", "a.out", "-prec", "3", "-o", "b.out", "-prec", "4"});
  EXPECT_EQ(run.setup.GetOutputFile(), "b.out");
  EXPECT_EQ(run.setup.GetPrec(), 4);
  EXPECT_EQ(inputNameAfter({"-i", "a.in", "-o", "x", "-i", "b.in"}), "b.in");
}

TEST(CommandLine, NameAfterDefaultFilesReplacesThatNameAlone) {
  const Words own_output = {"-d", "-o", "own.out"};
  Reading run;
  run.parse(own_output);
  EXPECT_EQ(run.setup.GetOutputFile(), "own.out");
  EXPECT_EQ(inputNameAfter(own_output), "dravo.in");
  EXPECT_EQ(inputNameAfter({"-d", "-i", "own.in"}), "own.in");
}

TEST(CommandLine, DefaultFilesReplaceEarlierNamesEveryTime) {
  const Words arguments = {"-d", "-o", "own.out", "-i", "own.in", "-vd"};
  Reading run;
  run.parse(arguments);
  EXPECT_EQ(run.setup.GetOutputFile(), "dravo.out");
  EXPECT_EQ(inputNameAfter(arguments), "dravo.in");
}

TEST(CommandLine, ValueIsTakenWhateverItLooksLike) {
  Reading run;
  run.parse({"-o", "-h", "-prec", "-v"});
  EXPECT_EQ(run.setup.GetOutputFile(), "-h");
  EXPECT_EQ(run.setup.GetPrec(), 0);
  EXPECT_EQ(run.setup.IsVerb(), 0);
  EXPECT_EQ(inputNameAfter({"-i", "-d", "-o", "x"}), "-d");
}

struct PrecisionRow {
  const char* name;
  const char* text;
  int precision;
};

void PrintTo(const PrecisionRow& row, std::ostream* stream) { *stream << row.text; }

class CommandLinePrecision : public testing::TestWithParam<PrecisionRow> {};

TEST_P(CommandLinePrecision, IsReadAsAnIntegerInAutomaticBase) {
  Reading run;
  run.parse({"-d", "-prec", GetParam().text});
  EXPECT_EQ(run.setup.GetPrec(), GetParam().precision);
}

INSTANTIATE_TEST_SUITE_P(
    Texts, CommandLinePrecision,
    testing::Values(PrecisionRow{"decimal", "12", 12}, PrecisionRow{"hexadecimal", "0x10", 16},
                    PrecisionRow{"octal", "010", 8}, PrecisionRow{"text", "abc", 0},
                    PrecisionRow{"empty", "", 0}, PrecisionRow{"trailing_text", "9digits", 9},
                    PrecisionRow{"fraction", "3.9", 3}, PrecisionRow{"negative", "-5", -5}),
    [](const auto& row) { return std::string(row.param.name); });

TEST(CommandLine, WithoutArgumentsShowsMessageAndUsage) {
  EXPECT_EQ(endingOfParsing({}),
            fatalEnding("ERROR: No parameter is specified.\n" + usage("dravo")));
}

TEST(CommandLine, UsageNamesTheProgramAsItWasCalled) {
  const char* const argv[] = {"../bin/my dravo", "-h"};
  EXPECT_EQ(endingOf([&] {
              Reading run;
              run.setup.ProcCmdLine(2, argv, run.xmgr);
            }),
            (Ending{0, "", usage("../bin/my dravo")}));
}

TEST(CommandLine, ShowHelpEndsWithTheGivenStatus) {
  EXPECT_EQ(endingOf([] { Setup::ShowHelp(0, "p"); }), (Ending{0, "", usage("p")}));
  EXPECT_EQ(endingOf([] { Setup::ShowHelp(1, "p"); }), fatalEnding(usage("p")));
}

TEST(CommandLine, HelpEndsTheRunAtOnceWithStatusZero) {
  const Ending help{0, "", usage("dravo")};
  EXPECT_EQ(endingOfParsing({"-h"}), help);
  EXPECT_EQ(endingOfParsing({"-v", "-d", "-h"}), help);
  EXPECT_EQ(endingOfParsing({"-h", "-bogus"}), help);
  EXPECT_EQ(endingOfParsing({"-h", "-i"}), help);
}

TEST(CommandLine, MissingValuesEndTheRun) {
  EXPECT_EQ(endingOfParsing({"-i"}), fatalEnding("ERROR: No input file specified\n"));
  EXPECT_EQ(endingOfParsing({"-o"}), fatalEnding("ERROR: No output file specified\n"));
  EXPECT_EQ(endingOfParsing({"-prec"}), fatalEnding("ERROR: No precision value specified\n"));
  EXPECT_EQ(endingOfParsing({"-d", "-v", "-i"}), fatalEnding("ERROR: No input file specified\n"));
}

TEST(CommandLine, WithoutAnOutputFileEndsTheRunAfterAllArguments) {
  const Ending no_output = fatalEnding("ERROR: No output file is specified.\n");
  EXPECT_EQ(endingOfParsing({"-i", "x.in"}), no_output);
  EXPECT_EQ(endingOfParsing({"-o", "x.out", "-o", ""}), no_output);
  EXPECT_EQ(endingOfParsing({"-i", "x.in", "-bogus"}).err,
            "ERROR: Parameter '-bogus' not understood.\n" + usage("dravo"));
}

TEST(CommandLine, EmptyInputNameFailsOnlyWhenTheFileIsOpened) {
  EXPECT_EQ(endingOfParsing({"-o", "x.out"}), returned());
  EXPECT_EQ(inputNameAfter({"-vx", "-o", "x.out"}), "");
}

class CommandLineUnknown : public testing::TestWithParam<const char*> {};

TEST_P(CommandLineUnknown, ShowsMessageAndUsage) {
  const std::string word = GetParam();
  EXPECT_EQ(endingOfParsing({"-v", word, "-h"}),
            fatalEnding("ERROR: Parameter '" + word + "' not understood.\n" + usage("dravo")));
}

INSTANTIATE_TEST_SUITE_P(Words, CommandLineUnknown,
                         testing::Values("-V", "-D", "-vvv", "-vvx", "-dvv", "-dd", "-x", "-ino",
                                         "-precision", "-prec=3", "--h", "-", "", "dravo.in"),
                         [](const auto& word) {
                           return "n" + std::to_string(word.index) + asTestName(word.param);
                         });

// ======== the input file ========

// ---- opening, lines, tokens ----

TEST(InputFileOpening, MissingFileEndsTheRun) {
  const std::string path = testing::TempDir() + "dravo_no_such_file";
  EXPECT_EQ(endingOf([&] { Reading().readFile(path); }),
            fatalEnding("ERROR: Unable to open '" + path + "'\n"));
}

TEST(InputFileOpening, DirectoryEndsTheRun) {
  const std::string path = testing::TempDir();
  EXPECT_EQ(endingOf([&] { Reading().readFile(path); }),
            fatalEnding("ERROR: Unable to open '" + path + "'\n"));
}

TEST(InputLines, EmptyFileIsReadInSilence) {
  EXPECT_EQ(endingOfReading(""), returned());
  EXPECT_EQ(endingOfReading("\n"), returned());
}

TEST(InputLines, LinesWithoutTokensAreSkippedButCounted) {
  EXPECT_EQ(endingOfReading("\n \t,, \n\r\nWRONG\n"),
            fatalEnding(unknownKeyword("WRONG") + atLine(4, "WRONG")));
}

TEST(InputLines, LastLineNeedsNoNewline) {
  Reading run;
  run.read("METHOD GRID\nMETHOD ONE");
  ASSERT_EQ(run.method.size(), 3);
  EXPECT_EQ(run.method.report(2), "METHOD ONE");
  EXPECT_EQ(endingOfReading("METHOD ONE\nWRONG"),
            fatalEnding(unknownKeyword("WRONG") + atLine(2, "WRONG")));
}

TEST(InputLines, CarriageReturnAtTheEndOfALineIsRemoved) {
  Reading run;
  run.read("FUNCTION Linear\r\nSET one\r\nPAR a 1 2\r\nPAR b 3 4\r\n@ title\r\nMETHOD ONE\r");
  EXPECT_EQ(run.funclib.Name(), "Linear");
  EXPECT_EQ(run.pardef.TITLE(0), "one");
  EXPECT_EQ(run.pardef.grd_end(1), 4.0);
  EXPECT_EQ(run.xmgr.commands().back(), "@ title");
  EXPECT_EQ(run.method.report(1), "METHOD ONE");
  EXPECT_EQ(endingOfReading("WRONG x\r\n"),
            fatalEnding(unknownKeyword("WRONG") + atLine(1, "WRONG x")));
}

TEST(InputLines, OnlyOneCarriageReturnIsRemovedAndItSeparatesNoTokens) {
  Reading run;
  run.read("FUNCTION Linear\nSET a\rb\r\r\n");
  EXPECT_EQ(run.pardef.TITLE(0), "a\rb\r");
}

TEST(InputTokens, AreSeparatedByTabsCommasAndBlanks) {
  Reading run;
  EXPECT_EQ(run.setup.TokenizeText("PAR,kex,,100  500"), 4);
  EXPECT_EQ(run.setup.TokenizeText("\t, PAR\tkex ,\t "), 2);
  EXPECT_EQ(run.setup.TokenizeText("one"), 1);
  EXPECT_EQ(run.setup.TokenizeText(" \t,"), 0);
  EXPECT_EQ(run.setup.TokenizeText(""), 0);
}

TEST(InputTokens, OtherCharactersDoNotSeparate) {
  Reading run;
  EXPECT_EQ(run.setup.TokenizeText("a;b:c\fd\ve|\"f\"#g\\h"), 1);
  EXPECT_EQ(run.setup.TokenizeText("\"a b\""), 2);  // no quoting
  EXPECT_EQ(run.setup.TokenizeText("a\\ b"), 2);    // no escapes
}

TEST(InputTokens, OfALineReachTheirReceiver) {
  Reading run;
  run.read("FUNCTION,Linear\n\tSET one,\n PAR,a,,100  500\n");
  EXPECT_EQ(run.pardef.TITLE(0), "one");
  EXPECT_EQ(run.pardef.Name(0), "a");
  EXPECT_EQ(run.pardef.grd_start(0), 100.0);
  EXPECT_EQ(run.pardef.grd_end(0), 500.0);
}

TEST(InputNumbers, AreNumericByTheirStart) {
  for (const char* text : {"1", "-2.5e3", "+7", ".5", "3.5abc", "0x10", "1e5"}) {
    EXPECT_TRUE(Setup::IsNumeric(text)) << text;
  }
  for (const char* text : {"abc", "", "-", "e5", "*", "nan", "inf", "k1"}) {
    EXPECT_FALSE(Setup::IsNumeric(text)) << text;
  }
}

// ---- keywords and comments ----

TEST(InputKeywords, LetterCaseDoesNotMatter) {
  for (const std::string word : {"SET", "set", "SeT", "sEt"}) {
    Reading run;
    run.read("function Linear\n" + word + " one\n");
    EXPECT_EQ(run.pardef.SETsize(), 1) << word;
  }
}

TEST(InputKeywords, OnlyTheWholeWordMatches) {
  for (const std::string word : {"SETS", "SE", "JACK2", "MONTE2", "PLOT3", "FUNC", "1.5", "-PAR"}) {
    EXPECT_EQ(endingOfReading("\n" + word + " x\n"),
              fatalEnding(unknownKeyword(word) + atLine(2, word + " x")));
  }
}

TEST(InputKeywords, OffendingLineIsShownAsItStands) {
  EXPECT_EQ(endingOfReading("  Wrong,\tline  \n"),
            fatalEnding(unknownKeyword("Wrong") + atLine(1, "  Wrong,\tline  ")));
}

TEST(InputComments, BeginWithAFirstTokenThatBeginsWithANumberSign) {
  EXPECT_EQ(endingOfReading("# PAR kex 1 2\n"
                            "#\n"
                            "   # WRONG\n"
                            ",#WRONG\n"
                            "#PAR\n"
                            "#FUNCTION foo\n"
                            "#SETS a b c\n"
                            "# SET a b c\n"),
            returned());
}

TEST(InputComments, AreWholeLinesOnly) {
  Reading run;
  run.read("FUNCTION Linear\nSET a#b\nMETHOD ONE # last\n");
  EXPECT_EQ(run.pardef.TITLE(0), "a#b");
  EXPECT_EQ(run.method.report(1), "METHOD ONE");
  EXPECT_EQ(endingOfReading("FUNCTION Linear\nSET a #b\n"),
            fatalEnding(wrongCount("SET") + atLine(2, "SET a #b")));
}

TEST(InputGraceCommands, AreHandedOverWhole) {
  Reading run;
  run.read("@ title \"a, b\"\n \t@WRONG  x,\n@set\n");
  EXPECT_EQ(run.xmgr.commands(), (Words{"@ title \"a, b\"", " \t@WRONG  x,", "@set"}));
}

TEST(InputGraceCommands, StandBetweenFamilyHeadersInTheOrderOfTheInput) {
  Reading run;
  run.read("@ before\nFUNCTION CPMG_Richards\n@ after\n");
  const Words& commands = run.xmgr.commands();
  ASSERT_EQ(commands.size(), 29U);  // 19 lines of page setup, 8 of axes
  EXPECT_EQ(commands.front(), "@ before");
  EXPECT_EQ(commands[1], "@ VERSION 40102");
  EXPECT_EQ(commands[20], "@ XAXIS LABEL \"1/\\xt\\f{}\\sCP\\N (s\\S-1\\N)\"");
  EXPECT_EQ(commands.back(), "@ after");
}

// ---- number of tokens ----

const char* const kLine = "FUNCTION Linear\nSET one\nGPAR g 1 2\n";         // 1 x, no label
const char* const kCpmg = "FUNCTION CPMG_Richards\nSET one\nGPAR g 1 2\n";  // 3 x, 2 labels

struct CountRow {
  const char* name;  ///< of the keyword in messages
  const char* head;
  const char* line;
};

void PrintTo(const CountRow& row, std::ostream* stream) { *stream << row.line; }

std::string countRowName(const testing::TestParamInfo<CountRow>& row) {
  return "n" + std::to_string(row.index) + "_" + asTestName(row.param.line);
}

class TokenCountAccepted : public testing::TestWithParam<CountRow> {};

TEST_P(TokenCountAccepted, IsReadInSilence) {
  EXPECT_EQ(endingOfReading(std::string(GetParam().head) + GetParam().line + "\n"), returned());
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(
    Lines, TokenCountAccepted,
    testing::Values(
        CountRow{"FUNCTION", "",    "FUNCTION Linear"},
        CountRow{"METHOD",   "",    "METHOD ONE"},
        CountRow{"METHOD",   "",    "METHOD ONE 1 2 3 4"},
        CountRow{"JACK",     "",    "JACK1"},
        CountRow{"JACK",     "",    "JACK"},
        CountRow{"MONTE",    "",    "MONTE1 10"},
        CountRow{"MONTE",    "",    "MONTE 10"},
        CountRow{"CALC",     kCpmg, "CALC REX r 50 298 1 11"},
        CountRow{"PLOT",     kCpmg, "PLOT p"},
        CountRow{"PLOT",     kCpmg, "PLOT p 50 298 1 11 1 2 3"},
        CountRow{"PLOT",     kLine, "PLOT p"},
        CountRow{"PLOT",     kLine, "PLOT p 1 0 1 2 3"},
        CountRow{"PLOT2",    kCpmg, "PLOT2 p 50 298 1 11 2.0 1 2 3"},
        CountRow{"GPAR",     kLine, "GPAR k 1 2"},
        CountRow{"GPAR",     kLine, "GPAR k 1 2 3 4"},
        CountRow{"GREST",    kLine, "GREST k 1 2"},
        CountRow{"GREST",    kLine, "GREST k 1 2 3 4"},
        CountRow{"GFIXED",   kLine, "GFIXED k 1"},
        CountRow{"SET",      "FUNCTION Linear\n", "SET two"},
        CountRow{"SET",      kLine, "#SET two"},
        CountRow{"PAR",      kLine, "PAR a 1"},
        CountRow{"PAR",      kLine, "PAR a g"},
        CountRow{"PAR",      kLine, "PAR a 1 2"},
        CountRow{"PAR",      kLine, "PAR a 1 2 3 4"},
        CountRow{"REST",     kLine, "REST a 1 2"},
        CountRow{"REST",     kLine, "REST a 1 2 3 4"},
        CountRow{"FIXED",    kLine, "FIXED a 1"}),
    countRowName);
// clang-format on

class TokenCountRefused : public testing::TestWithParam<CountRow> {};

TEST_P(TokenCountRefused, EndsTheRunWithTheLine) {
  const std::string head = GetParam().head;
  const int line_number = 1 + static_cast<int>(std::count(head.begin(), head.end(), '\n'));
  EXPECT_EQ(endingOfReading(head + GetParam().line + "\n"),
            fatalEnding(wrongCount(GetParam().name) + atLine(line_number, GetParam().line)));
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(
    Lines, TokenCountRefused,
    testing::Values(
        CountRow{"FUNCTION", "",    "FUNCTION"},
        CountRow{"FUNCTION", "",    "FUNCTION Linear x"},
        CountRow{"METHOD",   "",    "METHOD"},
        CountRow{"METHOD",   "",    "METHOD ONE 1 2 3 4 5"},
        CountRow{"JACK",     "",    "JACK1 10"},
        CountRow{"JACK",     "",    "JACK 10"},
        CountRow{"MONTE",    "",    "MONTE1"},
        CountRow{"MONTE",    "",    "MONTE1 10 x"},
        CountRow{"MONTE",    "",    "MONTE"},
        CountRow{"MONTE",    "",    "MONTE 10 x"},
        CountRow{"CALC",     kCpmg, "CALC REX r 50 298 1"},
        CountRow{"CALC",     kCpmg, "CALC REX r 50 298 1 11 x"},
        CountRow{"CALC",     kCpmg, "CALC"},
        CountRow{"PLOT",     kCpmg, "PLOT"},
        CountRow{"PLOT",     kCpmg, "PLOT p 50 298 1 11 1 2 3 x"},
        CountRow{"PLOT",     kLine, "PLOT"},
        CountRow{"PLOT",     kLine, "PLOT p 1 0 1 2 3 x"},
        CountRow{"PLOT2",    kCpmg, "PLOT2"},
        CountRow{"PLOT2",    kCpmg, "PLOT2 p"},  // passes the limits but lacks fields
        CountRow{"PLOT2",    kCpmg, "PLOT2 p 50 298 1 11 2.0 1 2"},
        CountRow{"PLOT2",    kCpmg, "PLOT2 p 50 298 1 11 2.0 1 2 3 x"},
        CountRow{"GPAR",     kLine, "GPAR"},
        CountRow{"GPAR",     kLine, "GPAR k"},
        CountRow{"GPAR",     kLine, "GPAR k 1"},  // lacks its upper bound
        CountRow{"GPAR",     kLine, "GPAR k 1 2 3 4 x"},
        CountRow{"GREST",    kLine, "GREST k 1"},
        CountRow{"GREST",    kLine, "GREST k 1 2 3 4 x"},
        CountRow{"GFIXED",   kLine, "GFIXED k"},
        CountRow{"GFIXED",   kLine, "GFIXED k 1 x"},
        CountRow{"SET",      kLine, "SET"},
        CountRow{"SET",      kLine, "SET two x"},
        CountRow{"SET",      kLine, "#SET"},
        CountRow{"SET",      kLine, "#SET two x"},
        CountRow{"PAR",      kLine, "PAR"},
        CountRow{"PAR",      kLine, "PAR a"},
        CountRow{"PAR",      kLine, "PAR a 1 2 3 4 x"},
        CountRow{"REST",     kLine, "REST a 1"},
        CountRow{"REST",     kLine, "REST a 1 2 3 4 x"},
        CountRow{"FIXED",    kLine, "FIXED a"},
        CountRow{"FIXED",    kLine, "FIXED a 1 x"}),
    countRowName);
// clang-format on

TEST(TokenCount, MessageNamesTheKeywordInUpperCase) {
  EXPECT_EQ(endingOfReading("monte1\n"), fatalEnding(wrongCount("MONTE") + atLine(1, "monte1")));
  EXPECT_EQ(endingOfReading("FUNCTION Linear\n#set\n"),
            fatalEnding(wrongCount("SET") + atLine(2, "#set")));
}

// ---- the model ----

TEST(FunctionLine, PicksTheModelAndItsRules) {
  Reading run;
  run.read("FUNCTION cpmg_RICHARDS\nSET one\nPAR papb_3 0.01 0.1\n");
  EXPECT_EQ(run.funclib.Name(), "CPMG_Richards");
  EXPECT_EQ(run.pardef.declarations(0)[0].base, 2);
  EXPECT_EQ(run.pardef.declarations(0)[0].index, (Labels{3, -1}));
}

TEST(FunctionLine, AddsThePlotHeaderOfItsFamily) {
  Reading run;
  run.read("FUNCTION Linear\n");
  EXPECT_EQ(run.xmgr.commands().size(), 19U);
  Reading cpmg;
  cpmg.read("FUNCTION CPMG_Richards\n");
  EXPECT_EQ(cpmg.xmgr.commands().size(), 27U);
}

TEST(FunctionLine, UnknownModelShowsTheListAndNoLine) {
  const Ending ending = endingOfReading("\nFUNCTION Foo\n");
  EXPECT_EQ(ending.status, 1);
  const std::string start =
      "ERROR: Function name 'Foo' is not recognized.\n"
      "Valid function names: '";
  EXPECT_EQ(ending.err.substr(0, start.size()), start);
  EXPECT_EQ(ending.err.find("Line "), std::string::npos);
}

TEST(FunctionLine, LaterOneReplacesModelAndColumnsUntilASetUsesThem) {
  Reading run;
  run.read(
      "FUNCTION Linear\n"
      "GPAR g 1 2\n"
      "#SET skipped\n"
      "PAR a 1 2\n"
      "FUNCTION Exp2\n"
      "SET one\n"
      "FUNCTION CPMG_Richards\n"
      "PAR papb 0.1 0.2\n"
      "CALC REX r 50 298 1 11\n");
  EXPECT_EQ(run.funclib.Name(), "CPMG_Richards");
  EXPECT_EQ(run.pardef.Name(1), "papb");
  EXPECT_EQ(run.calc.size(), 1);
  EXPECT_EQ(run.xmgr.commands().size(), 19U + 19U + 27U);
}

TEST(FunctionLine, AfterAParameterOfASetEndsTheRun) {
  for (const std::string line : {"PAR a 1 2", "PAR a 1", "PAR a g", "REST a 1 2", "FIXED a 1"}) {
    EXPECT_EQ(endingOfReading(kLine + line + "\nFUNCTION Linear\n"),
              fatalEnding("ERROR: Keyword 'FUNCTION' cannot follow a parameter or 'DATA' of a "
                          "set.\n" +
                          atLine(5, "FUNCTION Linear")));
  }
}

TEST(FunctionLine, AfterDataEndsTheRunEvenWhenTheSetIsOmitted) {
  EXPECT_EQ(endingOfReading("FUNCTION Constant\nSET one\nPAR c 1 2\nDATA 1 2 0.5 x\nSET two\n"
                            "FUNCTION Linear\n"),
            (Ending{1, "WARNING: Too few data points. 'one' is omitted.\n",
                    "ERROR: Keyword 'FUNCTION' cannot follow a parameter or 'DATA' of a set.\n" +
                        atLine(6, "FUNCTION Linear")}));
}

class WithoutModel : public testing::TestWithParam<const char*> {};

class LineThatGoesOnWithoutModel : public WithoutModel {};

TEST_P(LineThatGoesOnWithoutModel, PrintsTheMessageOnce) {
  EXPECT_EQ(endingOfReading(std::string(GetParam()) + "\n"), returned(kNoModel));
}

INSTANTIATE_TEST_SUITE_P(Lines, LineThatGoesOnWithoutModel,
                         testing::Values("GPAR k 1 2", "GREST k 1 2", "GFIXED k 1", "SET one",
                                         "#SET one"),
                         [](const auto& line) { return asTestName(line.param); });

class LineThatNeedsTheModel : public WithoutModel {};

TEST_P(LineThatNeedsTheModel, PrintsTheMessageTwiceAndEndsTheRun) {
  EXPECT_EQ(endingOfReading("FUNCTION Linear\nSET one\n").status, Ending::kReturned);
  EXPECT_EQ(endingOfReading("SET one\n" + std::string(GetParam()) + "\n"),
            fatalEnding(std::string(kNoModel) + kNoModel + kNoModel));  // the first is of SET
}

INSTANTIATE_TEST_SUITE_P(Lines, LineThatNeedsTheModel,
                         testing::Values("PAR a 1 2", "PAR a 1", "PAR a g", "REST a 1 2",
                                         "FIXED a 1", "DATA 1 2 3 4", "CALC REX r 1 11",
                                         "PLOT p 1 11", "PLOT2 p 1 11 1 2 3 4"),
                         [](const auto& line) { return asTestName(line.param); });

class LineThatNeedsNoModel : public WithoutModel {};

TEST_P(LineThatNeedsNoModel, IsReadInSilence) {
  EXPECT_EQ(endingOfReading(std::string(GetParam()) + "\n"), returned());
}

INSTANTIATE_TEST_SUITE_P(Lines, LineThatNeedsNoModel,
                         testing::Values("METHOD ONE", "JACK", "JACK1", "MONTE 10", "MONTE1 10",
                                         "@ title", "# comment"),
                         [](const auto& line) { return asTestName(line.param); });

TEST(WithoutModel, GlobalsAreStored) {
  testing::internal::CaptureStderr();
  Reading run;
  run.read("GPAR k 1 2\nGFIXED f 3\n");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), std::string(kNoModel) + kNoModel);
  EXPECT_EQ(run.pardef.PAR_size(), 2);
}

// ---- order of the checks of a line ----

TEST(OrderOfChecks, SkippedLinesAreNotTestedAtAll) {
  EXPECT_EQ(endingOfReading("FUNCTION Linear\n#SET a\nPAR\nREST a\nFIXED\nDATA\nPAR bogus 2 1\n"),
            returned());
  EXPECT_EQ(endingOfReading("#SET a\nPAR\nDATA\n"), returned(kNoModel));  // that of #SET
}

TEST(OrderOfChecks, SetIsNeededBeforeTheModel) {
  for (const std::string keyword : {"PAR", "REST", "FIXED", "DATA"}) {
    EXPECT_EQ(endingOfReading("\n\n" + keyword + "\n"),
              fatalEnding(noSet(keyword) + atLine(3, keyword)));
  }
}

TEST(OrderOfChecks, ModelMessageComesBeforeTheTokenCount) {
  EXPECT_EQ(endingOfReading("GFIXED k\n"),
            fatalEnding(kNoModel + wrongCount("GFIXED") + atLine(1, "GFIXED k")));
}

TEST(OrderOfChecks, ErrorColumnIsNeededBeforeTheTokenCount) {
  EXPECT_EQ(endingOfReading("MONTE 1 2 3\n", {"-noerr"}), fatalEnding(kNoMonte));
  EXPECT_EQ(endingOfReading("MONTE1\n", {"-noerr"}), fatalEnding(kNoMonte));
}

TEST(OrderOfChecks, TokenCountComesBeforeTheValues) {
  EXPECT_EQ(endingOfReading(std::string(kLine) + "PAR bogus 2 1 0 0 0\n"),
            fatalEnding(wrongCount("PAR") + atLine(4, "PAR bogus 2 1 0 0 0")));
  EXPECT_EQ(endingOfReading("FUNCTION Foo x\n"),
            fatalEnding(wrongCount("FUNCTION") + atLine(1, "FUNCTION Foo x")));
  EXPECT_EQ(endingOfReading("METHOD foo 1 2 3 4 5\n"),
            fatalEnding(wrongCount("METHOD") + atLine(1, "METHOD foo 1 2 3 4 5")));
}

TEST(OrderOfChecks, RangeComesBeforeTheName) {
  EXPECT_EQ(endingOfReading(std::string(kLine) + "PAR bogus 2 1\n"),
            fatalEnding(wrongRange("PAR") + atLine(4, "PAR bogus 2 1")));
}

// ---- sets ----

TEST(SetLine, IsNeededBeforeParametersAndData) {
  const Words lines = {"PAR kex 1 2", "REST kex 1 2", "FIXED kex 1", "data 1 2 3 11 5 6"};
  const Words names = {"PAR", "REST", "FIXED", "DATA"};
  for (std::size_t i = 0; i < lines.size(); ++i) {
    EXPECT_EQ(endingOfReading("FUNCTION CPMG_Richards\n\n" + lines[i] + "\n"),
              fatalEnding(noSet(names[i]) + atLine(3, lines[i])));
  }
}

TEST(SetLine, IsNotNeededBeforeGlobals) {
  EXPECT_EQ(endingOfReading("FUNCTION Linear\nGPAR k 1 2\nGREST l 1 2\nGFIXED m 1\n"), returned());
}

TEST(SkippedSet, LosesItsParametersAndData) {
  for (const std::string word : {"#SET", "#set", "#Set"}) {
    Reading run;
    run.read(
        "FUNCTION Constant\n"
        "SET one\nPAR c 1 2\nDATA 1 2 0.5 x\nDATA 1 3 0.5 x\n" +
        word +
        " two\nPAR c 1 2\nREST c 1 2\nFIXED c 1\nDATA 1 4 0.5 x\nDATA 1 5\n"
        "SET three\nPAR c 3 4\nDATA 1 6 0.5 x\nDATA 1 7 0.5 x\n");
    run.pardef.prep();
    ASSERT_EQ(run.pardef.SETsize(), 2) << word;
    EXPECT_EQ(run.pardef.TITLE(0), "one");
    EXPECT_EQ(run.pardef.TITLE(1), "three");
    EXPECT_EQ(run.pardef.PAR_size(), 2);
    EXPECT_EQ(run.pardef.DATAsize(), 4);
    EXPECT_EQ(run.pardef.DATA(2).y, 6.0);
    EXPECT_TRUE(run.xmgr.isError());
  }
}

TEST(SkippedSet, OpensNoSet) {
  EXPECT_EQ(endingOfReading("FUNCTION Linear\n#SET one\nSET two\n"), returned());
  Reading run;
  run.read("FUNCTION Linear\n#SET one\n");
  EXPECT_EQ(run.pardef.SETsize(), 0);
}

TEST(SkippedSet, AtTheEndLeavesTheLastSetComplete) {
  Reading run;
  run.read(
      "FUNCTION Constant\nSET one\nPAR c 1 2\nDATA 1 2 0.5 x\nDATA 1 3 0.5 x\n"
      "#SET two\nDATA 1 4 0.5 x\n");
  run.pardef.prep();
  EXPECT_EQ(run.pardef.SETsize(), 1);
  EXPECT_EQ(run.pardef.lDoF(0), 1);
}

TEST(SkippedSet, KeepsEveryKeywordThatBelongsToNoSet) {
  Reading run;
  run.read(
      "FUNCTION Linear\n"
      "#SET one\n"
      "GPAR k 1 2\nGREST l 1 2\nGFIXED m 1\n"
      "FUNCTION CPMG_Richards\n"
      "CALC REX r 50 298 1 11\nPLOT p\nPLOT2 q 50 298 1 11 1 2 3 4\n"
      "METHOD ONE\nJACK\nMONTE 10\n@ title\n");
  EXPECT_EQ(run.pardef.PAR_size(), 3);
  EXPECT_EQ(run.funclib.Name(), "CPMG_Richards");
  EXPECT_EQ(run.calc.size(), 1);
  EXPECT_EQ(run.xmgr.instructions().size(), 2U);
  EXPECT_EQ(run.method.size(), 2);
  EXPECT_EQ(run.calc.getJackType(), 2);
  EXPECT_EQ(run.calc.getMonteType(), 2);
  EXPECT_EQ(run.xmgr.commands().back(), "@ title");
}

TEST(SkippedSet, GlobalDeclaredInsideIsUsed) {
  Reading run;
  run.read("FUNCTION Linear\n#SET one\nPAR a 1 2\nGPAR k 1 2\nSET two\nPAR a k\n");
  EXPECT_EQ(run.pardef.declarations(0)[0].elem, 0);
  EXPECT_EQ(run.pardef.FullName(0), "GLOBAL::k");
}

// ---- parameters ----

/// The last element that this line declares, for the model Linear.
Elem elemOf(const std::string& line) {
  Reading run;
  run.read(kLine + line + "\n");
  return run.pardef.elem(run.pardef.PAR_size() - 1);
}

TEST(ParameterLine, ReadsItsFields) {
  for (const std::string keyword : {"PAR", "REST", "GPAR", "GREST"}) {
    const Elem elem = elemOf(keyword + " a -1.5 4e1 10e 2.5");
    EXPECT_EQ(elem.name, "a") << keyword;
    EXPECT_EQ(elem.start, -1.5);
    EXPECT_EQ(elem.end, 40.0);
    EXPECT_EQ(elem.steps, 10);
    EXPECT_EQ(elem.interval, 1);
    EXPECT_EQ(elem.initial, 2.5);
    EXPECT_EQ(elem.type, Elem::kAdjustable);
  }
}

TEST(ParameterLine, NumberOfPointsIsOneUnlessGiven) {
  for (const std::string keyword : {"REST", "GPAR", "GREST"}) {
    EXPECT_EQ(elemOf(keyword + " a 1 2").steps, 1) << keyword;
    EXPECT_EQ(elemOf(keyword + " a 2 2").steps, 1) << keyword;
  }
}

TEST(ParameterLine, ParAloneHasTwoPointsUnlessGiven) {
  EXPECT_EQ(elemOf("PAR a 1 2").steps, 2);
  EXPECT_EQ(elemOf("PAR a 2 2").steps, 1);
  EXPECT_EQ(elemOf("PAR a 1 2 1").steps, 1);
  EXPECT_EQ(elemOf("PAR a 1 2 0").steps, 0);
}

TEST(ParameterLine, StartsAtTheLowEndUnlessASixthValueSays) {
  for (const std::string keyword : {"PAR", "REST", "GPAR", "GREST"}) {
    EXPECT_EQ(elemOf(keyword + " a 1 2").initial, 1.0) << keyword;
    EXPECT_EQ(elemOf(keyword + " a 1 2 5").initial, 1.0);
    EXPECT_EQ(elemOf(keyword + " a 1 2 5 1.75").initial, 1.75);
    EXPECT_EQ(elemOf(keyword + " a 1 2 5 inf").initial, 1.0);
    EXPECT_EQ(elemOf(keyword + " a 1 2 5 text").initial, 0.0);
    EXPECT_EQ(elemOf(keyword + " a 1 2").interval, 0);
  }
}

TEST(ParameterLine, EqualBoundsAreAccepted) {
  for (const std::string keyword : {"PAR", "REST", "GPAR", "GREST"}) {
    EXPECT_EQ(elemOf(keyword + " a 2 2").range, 0.0) << keyword;
  }
}

TEST(ParameterLine, BoundsInTheWrongOrderEndTheRun) {
  for (const std::string keyword : {"PAR", "REST", "GPAR", "GREST"}) {
    const std::string line = keyword + " a 2 1.5 10";
    EXPECT_EQ(endingOfReading(kLine + line + "\n"),
              fatalEnding(wrongRange(keyword) + atLine(4, line)));
  }
}

TEST(ParameterLine, NumbersAreNotValidated) {
  EXPECT_EQ(elemOf("GPAR k 0x10 1e2x").start, 16.0);
  EXPECT_EQ(elemOf("GPAR k 0x10 1e2x").end, 100.0);
  const Elem text = elemOf("PAR a low high");
  EXPECT_EQ(text.start, 0.0);
  EXPECT_EQ(text.end, 0.0);
  EXPECT_EQ(text.steps, 1);
}

struct PointsRow {
  const char* token;
  int points;
  int code;
};

void PrintTo(const PointsRow& row, std::ostream* stream) { *stream << row.token; }

class PointsToken : public testing::TestWithParam<PointsRow> {};

TEST_P(PointsToken, HoldsTheNumberAndTheSpacingCode) {
  const Elem elem = elemOf("PAR a 1 2 " + std::string(GetParam().token));
  EXPECT_EQ(elem.steps, GetParam().points);
  EXPECT_EQ(elem.interval, GetParam().code);
}

INSTANTIATE_TEST_SUITE_P(
    Tokens, PointsToken,
    testing::Values(PointsRow{"10", 10, 0}, PointsRow{"10e", 10, 1}, PointsRow{"10g", 10, 2},
                    PointsRow{"10t", 10, 3}, PointsRow{"10E", 10, 4}, PointsRow{"10G", 10, 5},
                    PointsRow{"10T", 10, 6}, PointsRow{"10x", 10, 0}, PointsRow{"10ex", 10, 0},
                    PointsRow{"5xe", 5, 1}, PointsRow{"e", 0, 1}, PointsRow{"0x1e", 30, 1},
                    PointsRow{"012", 10, 0}, PointsRow{"text", 0, 3}, PointsRow{"-4", -4, 0},
                    PointsRow{"3.7", 3, 0}),
    [](const auto& row) {
      return "n" + std::to_string(row.index) + "_" + asTestName(row.param.token);
    });

TEST(ParameterLine, SingleNumberIsAnAdjustableStartingValue) {
  const Elem elem = elemOf("PAR a -3.5");
  EXPECT_EQ(elem.type, Elem::kAdjustable);
  EXPECT_EQ(elem.start, -3.5);
  EXPECT_EQ(elem.end, -3.5);
  EXPECT_EQ(elem.initial, -3.5);
  EXPECT_EQ(elem.steps, 1);
  EXPECT_EQ(elem.interval, 0);
}

TEST(ParameterLine, SingleNumberMayHaveTextBehindIt) {
  EXPECT_EQ(elemOf("PAR a 3.5abc").initial, 3.5);
  EXPECT_EQ(elemOf("PAR a 0x10").initial, 16.0);
}

TEST(ParameterLine, SingleWordRefersToAGlobal) {
  Reading run;
  run.read(std::string(kLine) + "PAR a g\n");
  EXPECT_EQ(run.pardef.PAR_size(), 1);
  EXPECT_EQ(run.pardef.declarations(0)[0].elem, 0);
  EXPECT_EQ(run.pardef.declarations(0)[0].name, "a");
}

TEST(ParameterLine, UnknownGlobalEndsTheRunWithoutTheLine) {
  EXPECT_EQ(endingOfReading(std::string(kLine) + "PAR a G\n"),
            fatalEnding("ERROR: Set 'one' par 'a' references unknown variable 'G'\n"));
  EXPECT_EQ(endingOfReading(std::string(kLine) + "PAR a nan\n"),
            fatalEnding("ERROR: Set 'one' par 'a' references unknown variable 'nan'\n"));
}

TEST(ParameterLine, UnknownGlobalIsFoundBeforeABadName) {
  EXPECT_EQ(endingOfReading(std::string(kLine) + "PAR bogus nosuch\n"),
            fatalEnding("ERROR: Set 'one' par 'bogus' references unknown variable 'nosuch'\n"));
}

TEST(ParameterLine, NameErrorsShowNoLine) {
  EXPECT_EQ(endingOfReading(std::string(kLine) + "PAR a_ 1 2\n"),
            fatalEnding("ERROR: Badly constructed parameter 'a_'\n"));
  EXPECT_EQ(endingOfReading(std::string(kLine) + "FIXED a_1 1\n"),
            fatalEnding("ERROR: Parameter name 'a_1' has too many indices\n"));
  EXPECT_EQ(endingOfReading(std::string(kCpmg) + "REST R20_1 1 2\n"),
            fatalEnding("ERROR: Insufficient indices on par 'R20_1'\n"));
  EXPECT_EQ(endingOfReading(std::string(kCpmg) + "PAR pb 1\n"),
            fatalEnding("ERROR: Parameter name 'pb' unrecognized.\n"
                        "Valid parameter names for the model:\t'dw'\t'kex'\t'papb'\t'R20'\n"));
}

TEST(ParameterLine, RestraintsLimitTheFitToTheirRange) {
  EXPECT_EQ(elemOf("REST a 1 2").legal_high, 2.0);
  EXPECT_EQ(elemOf("GREST k 1 2").legal_low, 1.0);
  EXPECT_EQ(elemOf("GPAR k 1 2").legal_high, kInf);
}

TEST(FixedLine, ReadsItsValue) {
  for (const std::string keyword : {"FIXED", "GFIXED"}) {
    const Elem elem = elemOf(keyword + " a 2.5");
    EXPECT_EQ(elem.name, "a") << keyword;
    EXPECT_EQ(elem.type, Elem::kFixed);
    EXPECT_EQ(elem.initial, 2.5);
    EXPECT_EQ(elemOf(keyword + " a text").initial, 0.0);
  }
}

TEST(ParameterLine, GlobalKeywordsMakeGlobalElements) {
  EXPECT_EQ(elemOf("GPAR a 1 2").full_name, "GLOBAL::a");
  EXPECT_EQ(elemOf("GREST a 1 2").full_name, "GLOBAL::a");
  EXPECT_EQ(elemOf("GFIXED a 1").full_name, "GLOBAL::a");
  EXPECT_EQ(elemOf("PAR a 1 2").full_name, "one::a");
  EXPECT_EQ(elemOf("REST a 1 2").full_name, "one::a");
  EXPECT_EQ(elemOf("FIXED a 1").full_name, "one::a");
}

// ---- data ----

const char* const kLineSet = "FUNCTION Linear\nSET one\nPAR a 1 2\nPAR b 1 2\n";
const char* const kCpmgSet =
    "FUNCTION CPMG_Richards\nSET one\nPAR dw 1 2\nPAR kex 1 2\nPAR papb 0.1 0.2\nPAR R20 1 2\n";

/// What reading leaves behind and says on standard error.
struct Quoted {
  Reading run;
  std::string err;
};

Quoted readQuoting(const std::string& text, const Words& options = {}) {
  Quoted quoted;
  testing::internal::CaptureStderr();
  quoted.run.read(text, options);
  quoted.err = testing::internal::GetCapturedStderr();
  return quoted;
}

struct DataRow {
  const char* name;
  const char* head;
  bool noerr;
  const char* line;
  const char* err;
  Numbers x;
  Labels labels;
  double y;
  double dy;
};

void PrintTo(const DataRow& row, std::ostream* stream) { *stream << row.line; }

class DataLine : public testing::TestWithParam<DataRow> {};

TEST_P(DataLine, IsReadByColumns) {
  const DataRow& row = GetParam();
  const Quoted quoted =
      readQuoting(std::string(row.head) + row.line + "\n", row.noerr ? Words{"-noerr"} : Words{});
  EXPECT_EQ(quoted.err, row.err);
  const Data& point = quoted.run.pardef.DATA(0);
  EXPECT_EQ(point.x, row.x);
  EXPECT_EQ(point.index, row.labels);
  EXPECT_EQ(point.y, row.y);
  EXPECT_EQ(point.dy, row.dy);
  EXPECT_EQ(point.w, 1.0 / row.dy);
  EXPECT_EQ(quoted.run.xmgr.isError(), !row.noerr && std::string(row.err).empty());
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(
    Lines, DataLine,
    testing::Values(
        DataRow{"labels_and_error", kCpmgSet, false, "DATA 50 298 1.5 12 20.5 0.5", "",
                {50, 298, 1.5}, {1, 2}, 20.5, 0.5},
        DataRow{"labels_without_error", kCpmgSet, false, "DATA 50 298 1.5 12 20.5", kNoErrorColumn,
                {50, 298, 1.5}, {1, 2}, 20.5, 1.0},
        DataRow{"labels_noerr", kCpmgSet, true, "DATA 50 298 1.5 12 20.5", "",
                {50, 298, 1.5}, {1, 2}, 20.5, 1.0},
        DataRow{"labels_noerr_ignores_the_error", kCpmgSet, true, "DATA 50 298 1.5 12 20.5 0.5", "",
                {50, 298, 1.5}, {1, 2}, 20.5, 1.0},
        DataRow{"no_labels_and_error_with_extra_token", kLineSet, false, "DATA 4 20.5 0.5 x", "",
                {4}, {0}, 20.5, 0.5},
        DataRow{"no_labels_loses_its_error", kLineSet, false, "DATA 4 20.5 0.5", kNoErrorColumn,
                {4}, {0}, 20.5, 1.0},
        DataRow{"no_labels_noerr", kLineSet, true, "DATA 4 20.5 x", "",
                {4}, {0}, 20.5, 1.0},
        DataRow{"no_labels_noerr_ignores_the_error", kLineSet, true, "DATA 4 20.5 0.5 x", "",
                {4}, {0}, 20.5, 1.0},
        DataRow{"stars_are_zero", kCpmgSet, false, "DATA * 298 * 12 20.5 0.5", "",
                {0, 298, 0}, {1, 2}, 20.5, 0.5},
        DataRow{"text_is_zero", kCpmgSet, false, "DATA x ** 1e1y 12 y 0.25z", "",
                {0, 0, 10}, {1, 2}, 0.0, 0.25},
        DataRow{"label_that_is_no_digit_is_zero", kCpmgSet, false, "DATA 50 298 1 a9 20 0.5", "",
                {50, 298, 1}, {0, 9}, 20, 0.5}),
    [](const auto& row) { return std::string(row.param.name); });
// clang-format on

class DataLineCount : public testing::TestWithParam<CountRow> {};

TEST_P(DataLineCount, MustBeTheColumnsPlusThreeOrFour) {
  const std::string head = GetParam().head;
  const int line_number = 1 + static_cast<int>(std::count(head.begin(), head.end(), '\n'));
  const Ending expected = fatalEnding(wrongCount("DATA") + atLine(line_number, GetParam().line));
  EXPECT_EQ(endingOfReading(head + GetParam().line + "\n"), expected);
  EXPECT_EQ(endingOfReading(head + GetParam().line + "\n", {"-noerr"}), expected);
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(
    Lines, DataLineCount,
    testing::Values(CountRow{"DATA", kCpmgSet, "DATA 50 298 1 12"},
                    CountRow{"DATA", kCpmgSet, "DATA 50 298 1 12 20 0.5 x"},
                    CountRow{"DATA", kCpmgSet, "DATA 50 298"},
                    CountRow{"DATA", kCpmgSet, "DATA 50 298 1"},
                    CountRow{"DATA", kCpmgSet, "DATA"},
                    CountRow{"DATA", kLineSet, "DATA 4 20"},
                    CountRow{"DATA", kLineSet, "DATA 4 20 0.5 x x"},
                    CountRow{"DATA", kLineSet, "DATA"}),
    countRowName);
// clang-format on

TEST(DataErrors, LineWithoutErrorSwitchesTheColumnOffForTheRest) {
  const std::string parameters = "FIXED dw 1\nFIXED kex 1\nFIXED papb 0.1\nPAR R20 1 2\n";
  const Quoted quoted = readQuoting("FUNCTION CPMG_Richards\nSET one\n" + parameters +
                                    "DATA 50 298 1 11 20 0.5\n"
                                    "DATA 60 298 1 11 21\n"
                                    "DATA 70 298 1 11 22 0.25\n"
                                    "DATA 80 298 1 11 23\n"
                                    "SET two\n" +
                                    parameters + "DATA 90 298 1 11 24 0.25\n");
  ASSERT_EQ(quoted.run.pardef.DATAsize(), 5);
  EXPECT_EQ(quoted.err, kNoErrorColumn);  // once
  EXPECT_FALSE(quoted.run.xmgr.isError());
  EXPECT_EQ(quoted.run.pardef.DATA(0).dy, 0.5);
  for (int point = 1; point < quoted.run.pardef.DATAsize(); ++point) {
    EXPECT_EQ(quoted.run.pardef.DATA(point).dy, 1.0) << point;
    EXPECT_EQ(quoted.run.pardef.DATA(point).y, 20.0 + point);
  }
}

TEST(DataErrors, AreTakenAsTheyAre) {
  Reading run;
  run.read(std::string(kLineSet) + "DATA 1 nan 0 x\nDATA 1 inf -0.5 x\nDATA 1 2 nan x\n");
  EXPECT_TRUE(std::isnan(run.pardef.DATA(0).y));
  EXPECT_EQ(run.pardef.DATA(0).w, kInf);
  EXPECT_EQ(run.pardef.DATA(1).y, kInf);
  EXPECT_EQ(run.pardef.DATA(1).w, -2.0);
  EXPECT_TRUE(std::isnan(run.pardef.DATA(2).w));
}

TEST(DataLabels, NeedOneCharacterForEachLabelOfTheModel) {
  for (const std::string token : {"1", "123"}) {
    const std::string line = "DATA 50 298 1 " + token + " 20 0.5";
    EXPECT_EQ(endingOfReading(kCpmgSet + line + "\n"), fatalEnding(kBadIndex + atLine(7, line)));
  }
}

TEST(DataLabels, AreReadAfterTheErrorColumnIsSwitchedOff) {
  EXPECT_EQ(endingOfReading(std::string(kCpmgSet) + "DATA 50 298 1 1 20\n"),
            fatalEnding(std::string(kNoErrorColumn) + kBadIndex + atLine(7, "DATA 50 298 1 1 20")));
}

TEST(DataLabels, MayBeThree) {
  Reading run;
  run.read(
      "FUNCTION CPMG_RDC\nSET one\nPAR dw 1\nPAR dJ 1\nPAR kex_7 1\nPAR papb 0.1\nPAR R20 1\n"
      "DATA 50 298 1 2 705 20 0.5\n");
  EXPECT_EQ(run.pardef.DATA(0).x, (Numbers{50, 298, 1, 2}));
  EXPECT_EQ(run.pardef.DATA(0).index, (Labels{7, 0, 5}));
}

TEST(DataLine, WithoutADeclarationEndsTheRunWithoutTheLine) {
  EXPECT_EQ(endingOfReading("FUNCTION CPMG_const\nSET one\nPAR R20_1_1 1\nPAR R20_1_2 1\n"
                            "DATA 50 298 1 21 20 0.5\n"),
            fatalEnding("ERROR: Set 'one' missing declaration ofparameter 'R20_2_1'\n"));
}

// ---- derived quantities ----

TEST(CalcLine, ReadsItsFields) {
  Reading run;
  run.read(std::string(kCpmg) + "calc pb minor * 298 1.5 37\n");
  ASSERT_EQ(run.calc.size(), 1);
  EXPECT_EQ(run.calc.entry(0).type, 2);
  EXPECT_EQ(run.calc.Label(0), "minor");
  EXPECT_EQ(run.calc.entry(0).data.x, (Numbers{0, 298, 1.5}));
  EXPECT_EQ(run.calc.entry(0).data.index, (Labels{3, 7}));
}

TEST(CalcLine, IsUnusableForModelsWithoutLabels) {
  EXPECT_EQ(endingOfReading(std::string(kLine) + "CALC PB minor 1 0\n"),
            fatalEnding(kBadIndex + atLine(4, "CALC PB minor 1 0")));
}

TEST(CalcLine, NeedsOneCharacterForEachLabel) {
  EXPECT_EQ(endingOfReading(std::string(kCpmg) + "CALC PB minor 50 298 1 123\n"),
            fatalEnding(kBadIndex + atLine(4, "CALC PB minor 50 298 1 123")));
}

// ---- plots ----

struct PlotRow {
  const char* name;
  const char* head;
  const char* line;
  Numbers x;
  Labels labels;
  double low;
  double high;
  int points;
  double factor;
};

void PrintTo(const PlotRow& row, std::ostream* stream) { *stream << row.line; }

constexpr double kMax = std::numeric_limits<double>::max();

class PlotLine : public testing::TestWithParam<PlotRow> {};

TEST_P(PlotLine, IsReadByColumns) {
  const PlotRow& row = GetParam();
  Reading run;
  run.read(std::string(row.head) + row.line + "\n");
  ASSERT_EQ(run.xmgr.instructions().size(), 1U);
  const Instr& instruction = run.xmgr.instructions()[0];
  EXPECT_EQ(instruction.name, "curve");
  EXPECT_EQ(instruction.x, row.x);
  EXPECT_EQ(instruction.index, row.labels);
  EXPECT_EQ(instruction.low, row.low);
  EXPECT_EQ(instruction.high, row.high);
  EXPECT_EQ(instruction.points, row.points);
  EXPECT_EQ(instruction.factor, row.factor);
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(
    Lines, PlotLine,
    testing::Values(
        PlotRow{"name_alone", kCpmg, "PLOT curve", {0}, {0}, kMax, -kMax, 0, 1},
        PlotRow{"some_x_values_are_ignored", kCpmg, "PLOT curve 5 6", {0}, {0}, kMax, -kMax, 0, 1},
        PlotRow{"x_values_alone_are_ignored", kCpmg, "PLOT curve 5 6 7",
                {0}, {0}, kMax, -kMax, 0, 1},
        PlotRow{"x_values_and_labels", kCpmg, "PLOT curve * 298 1.5 12",
                {0, 298, 1.5}, {1, 2}, kMax, -kMax, 0, 1},
        PlotRow{"low_alone_is_ignored", kCpmg, "PLOT curve * 298 1.5 12 9",
                {0, 298, 1.5}, {1, 2}, kMax, -kMax, 0, 1},
        PlotRow{"low_and_high_alone_are_ignored", kCpmg, "PLOT curve * 298 1.5 12 9 1",
                {0, 298, 1.5}, {1, 2}, kMax, -kMax, 0, 1},
        PlotRow{"full", kCpmg, "plot curve * 298 1.5 12 -1.5 900 0x10",
                {0, 298, 1.5}, {1, 2}, -1.5, 900, 16, 1},
        PlotRow{"equal_ends", kCpmg, "PLOT curve * 298 1.5 12 9 9 5",
                {0, 298, 1.5}, {1, 2}, 9, 9, 5, 1},
        PlotRow{"no_labels_x_alone_is_ignored", kLine, "PLOT curve 5",
                {0}, {0}, kMax, -kMax, 0, 1},
        PlotRow{"no_labels_any_index_token", kLine, "PLOT curve 5 anything",
                {5}, {0}, kMax, -kMax, 0, 1},
        PlotRow{"no_labels_full", kLine, "PLOT curve 5 anything 1 2 3",
                {5}, {0}, 1, 2, 3, 1},
        PlotRow{"plot2", kCpmg, "plot2 curve * 298 1.5 12 0.25 -1.5 900 0x10",
                {0, 298, 1.5}, {1, 2}, -1.5, 900, 16, 0.25},
        PlotRow{"plot2_ends_are_not_compared", kCpmg, "PLOT2 curve * 298 1.5 12 1 9 1 5",
                {0, 298, 1.5}, {1, 2}, 9, 1, 5, 1}),
    [](const auto& row) { return std::string(row.param.name); });
// clang-format on

TEST(PlotLine, EndsInTheWrongOrderEndTheRun) {
  EXPECT_EQ(endingOfReading(std::string(kCpmg) + "PLOT p * 298 1 12 9 1 5\n"),
            fatalEnding(wrongRange("PLOT") + atLine(4, "PLOT p * 298 1 12 9 1 5")));
}

TEST(PlotLine, NeedsOneCharacterForEachLabel) {
  EXPECT_EQ(endingOfReading(std::string(kCpmg) + "PLOT p * 298 1 1\n"),
            fatalEnding(kBadIndex + atLine(4, "PLOT p * 298 1 1")));
  EXPECT_EQ(endingOfReading(std::string(kCpmg) + "PLOT2 p * 298 1 1 1 2 3 4\n"),
            fatalEnding(kBadIndex + atLine(4, "PLOT2 p * 298 1 1 1 2 3 4")));
}

TEST(PlotLine, Plot2IsUnusableForModelsWithoutLabels) {
  EXPECT_EQ(endingOfReading(std::string(kLine) + "PLOT2 p 1 0 1 2 3 4\n"),
            fatalEnding(kBadIndex + atLine(4, "PLOT2 p 1 0 1 2 3 4")));
}

// ---- error analyses ----

TEST(Jack, TypeFollowsFromTheKeyword) {
  Reading run;
  run.read("JACK1\n");
  EXPECT_EQ(run.calc.getJackType(), 1);
  Reading full;
  full.read("jack\n");
  EXPECT_EQ(full.calc.getJackType(), 2);
  Reading both;
  both.read("JACK\nJACK1\n");
  EXPECT_EQ(both.calc.getJackType(), 1);
}

TEST(Monte, TypeAndIterationsFollowFromTheLine) {
  Reading run;
  run.read("MONTE1 0x10\n");
  EXPECT_EQ(run.calc.getMonteType(), 1);
  EXPECT_EQ(run.calc.getMonteIter(), 16);
  Reading full;
  full.read("monte 500x\n");
  EXPECT_EQ(full.calc.getMonteType(), 2);
  EXPECT_EQ(full.calc.getMonteIter(), 500);
}

TEST(Monte, TwoIterationsAreAcceptedThoughTheMessageSaysMore) {
  for (const std::string keyword : {"MONTE", "MONTE1"}) {
    Reading run;
    run.read(keyword + " 2\n");
    EXPECT_EQ(run.calc.getMonteIter(), 2);
    for (const std::string count : {" 1\n", " 0\n", " -5\n", " many\n"}) {
      EXPECT_EQ(endingOfReading(keyword + count), fatalEnding(kFewIterations));
    }
  }
}

TEST(Monte, NeedsTheErrorColumn) {
  EXPECT_EQ(endingOfReading("MONTE 10\n", {"-noerr"}), fatalEnding(kNoMonte));
  EXPECT_EQ(endingOfReading("MONTE1 10\n", {"-noerr"}), fatalEnding(kNoMonte));
}

TEST(Monte, IsRefusedAfterADataLineWithoutError) {
  EXPECT_EQ(endingOfReading(std::string(kCpmgSet) + "DATA 50 298 1 11 20\nMONTE 10\n"),
            fatalEnding(std::string(kNoErrorColumn) + kNoMonte));
}

TEST(Monte, IsAcceptedBeforeADataLineWithoutError) {
  EXPECT_EQ(endingOfReading(std::string(kCpmgSet) + "MONTE 10\nDATA 50 298 1 11 20\n"),
            returned(kNoErrorColumn));
}

// ---- the whole input ----

TEST(Input, WithoutASetEndsInTheDegreesOfFreedomErrorAlone) {
  const std::string message = "#ERROR: More adjustable parameters than data points.\n";
  EXPECT_EQ(endingOfPreparing(""), (Ending{1, message, ""}));
  EXPECT_EQ(endingOfPreparing("FUNCTION Linear\n#SET one\nGPAR k 1 2\n"), (Ending{1, message, ""}));
}

TEST(Input, WithoutModelButWithASetIsFatalOnlyInTheEnd) {
  EXPECT_EQ(endingOfPreparing("SET one\n"),
            (Ending{1,
                    "WARNING: Too few data points. 'one' is omitted.\n"
                    "#ERROR: More adjustable parameters than data points.\n",
                    kNoModel}));
}

TEST(Input, NothingOfAnEarlierLineIsPrintedBeforeAnError) {
  EXPECT_EQ(endingOfReading(std::string(kLineSet) + "DATA 1 2 0.5 x\nMETHOD ONE\nWRONG\n"),
            fatalEnding(unknownKeyword("WRONG") + atLine(7, "WRONG")));
}

}  // namespace
