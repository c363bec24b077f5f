// The names of the files that a run writes.
// SPDX-License-Identifier: GPL-3.0-or-later
#include "Problem.h"

#include <filesystem>
#include <string>

namespace {

using problem::Captured;
using problem::data;
using problem::Options;
using problem::Problem;
using problem::ScratchDirectory;
using problem::writeFile;

namespace fs = std::filesystem;

/// A set of this title.
std::string set(const std::string& title) {
  return "SET " + title + "\nPAR c 1\n" + data(0, 1) + data(0, 3);
}

/// A fit that will write `output`, and plots if `plots`.
struct FileRun {
  explicit FileRun(const std::string& sets, const fs::path& output, bool plots = false)
      : problem("FUNCTION Constant\n" + sets, Options{.output_file = output.string()}) {
    problem.xmgr.SetXmgr(plots);
  }
  /// What the check says when it lets the run go on.
  std::string saidOf(const fs::path& input) {
    const Captured console(std::cerr);
    problem.fit().checkFiles(input.string());
    return console.text();
  }

  Problem problem;
};

TEST(FilesDeathTest, InputIsNotOverwrittenByTheReport) {
  const ScratchDirectory directory;
  const fs::path input = directory.path() / "in";
  writeFile(input, "");
  const fs::path output = directory.path() / "sub" / ".." / "in";
  fs::create_directory(directory.path() / "sub");
  FileRun run(set("one"), output);
  EXPECT_EXIT(run.problem.fit().checkFiles(input.string()), testing::ExitedWithCode(1),
              testing::Eq("ERROR: Output file '" + output.string() + "' is the input file.\n"));
}

TEST(FilesDeathTest, InputIsNotOverwrittenByAnAnalysis) {
  const ScratchDirectory directory;
  const fs::path output = directory.path() / "out";
  for (const char* suffix : {"-jack", "-jack.sum", "-jack-final.out"}) {
    const std::string input = output.string() + suffix;
    writeFile(input, "");
    FileRun run("JACK1\n" + set("one"), output);
    EXPECT_EXIT(run.problem.fit().checkFiles(input), testing::ExitedWithCode(1),
                testing::Eq("ERROR: Output file '" + input + "' is the input file.\n"));
    EXPECT_EQ(FileRun(set("one"), output).saidOf(input), "");
    EXPECT_EQ(FileRun("MONTE 10\n" + set("one"), output).saidOf(input), "");
  }
}

TEST(FilesDeathTest, ReportIsNotOverwrittenByAPlot) {
  const fs::path output = fs::current_path() / "two.xmgr";
  FileRun run(set("one") + set("two"), output, true);
  EXPECT_EXIT(
      run.problem.fit().checkFiles("missing"), testing::ExitedWithCode(1),
      testing::Eq("ERROR: Output file '" + output.string() + "' is also the plot of a set.\n"));
  EXPECT_EQ(FileRun(set("two"), output).saidOf("missing"), "");
  EXPECT_EQ(FileRun(set("two"), "elsewhere/two.xmgr", true).saidOf("missing"), "");
}

TEST(Files, SharedPlotsAreTold) {
  const std::string sets = set("one") + set("two") + set("one");
  EXPECT_EQ(FileRun(sets, "out", true).saidOf("missing"),
            "WARNING (one): The plot overwrites that of another set with this title\n");
  EXPECT_EQ(FileRun(sets, "out").saidOf("missing"), "");
}

}  // namespace
