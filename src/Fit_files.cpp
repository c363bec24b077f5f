// The names of the files that a run writes: none takes the place of another or of the input.
// SPDX-License-Identifier: GPL-3.0-or-later
#include "Fatal.h"
#include "Fit.h"

#include <filesystem>
#include <iostream>
#include <system_error>
#include <unordered_set>

namespace fs = std::filesystem;

void Fit::checkFiles(const std::string& input_file) const {
  refuseToOverwriteInput(input_file);
  if (xmgr_.isXmgr()) {
    refuseToOverwriteReport();
    warnOfSharedPlots();
  }
}

void Fit::refuseToOverwriteInput(const std::string& input_file) const {
  std::error_code ignored;  // most files are not there yet
  // A terminal or /dev/null may well be input and output.
  if (!fs::is_regular_file(input_file, ignored)) return;
  for (const std::string& name : writtenFiles()) {
    if (!fs::equivalent(name, input_file, ignored)) continue;
    fatal("ERROR: Output file '" + name + "' is the input file.\n");
  }
}

std::vector<std::string> Fit::writtenFiles() const {
  std::vector<std::string> names = analysisFiles();
  names.push_back(output_file_);
  if (xmgr_.isXmgr()) {
    for (int set = 0; set < pardef_.SETsize(); ++set) names.push_back(plotFile(set));
  }
  return names;
}

void Fit::refuseToOverwriteReport() const {
  std::error_code ignored;  // without a working directory nothing will be written
  const auto placeOf = [&](const fs::path& path) {
    return fs::absolute(path, ignored).lexically_normal();
  };
  const fs::path report = placeOf(output_file_);
  for (int set = 0; set < pardef_.SETsize(); ++set) {
    // The name first, since it is compared faster.
    if (report.filename() != plotFile(set) || report != placeOf(plotFile(set))) continue;
    fatal("ERROR: Output file '" + output_file_ + "' is also the plot of a set.\n");
  }
}

void Fit::warnOfSharedPlots() const {
  std::unordered_set<std::string> names;
  for (int set = 0; set < pardef_.SETsize(); ++set) {
    if (names.insert(plotFile(set)).second) continue;
    std::cerr << "WARNING (" << pardef_.TITLE(set)
              << "): The plot overwrites that of another set with this title\n";
  }
}
