// The command line.
// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <map>
#include <string>
#include <vector>

/// The command line as it was written.
struct Options {
  std::vector<std::string> files;
  std::string output;
  std::map<std::string, std::string> defaults;  ///< keys of a file
  std::string errors = "auto";
  std::string floor;
  std::string i0;
  bool i0_error = false;
  std::string model = "CPMG_Richards";
  std::vector<std::string> shared;
  std::vector<std::string> ranges;
  std::vector<std::string> fixed;
  std::vector<std::string> methods;
  std::vector<std::string> residues;
  std::vector<std::string> without;
  std::string shifts;
  std::string nucleus;
  std::string reference_field;
  bool list_models = false;
  bool strict = false;
};

/// Ends the run with status 0 after showing the help, with status 1 on an option that there is not.
[[nodiscard]] Options readOptions(int argc, const char* const* argv);
