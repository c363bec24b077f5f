// Fuzz target: the command line, one word in each line.
// SPDX-License-Identifier: GPL-3.0-or-later
#include "Harness.h"

#include "Setup.h"
#include "Xmgr.h"

#include <cstdlib>
#include <sstream>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::istringstream lines(std::string(data, data + size));
  std::vector<std::string> words;
  for (std::string line; std::getline(lines, line);) words.push_back(line);
  std::vector<const char*> argv;
  bool asks_for_help = false;
  for (const std::string& word : words) {
    argv.push_back(word.c_str());
    asks_for_help = asks_for_help || std::string(word.c_str()) == "-h";
  }
  argv.push_back(nullptr);
  const harness::Ending ending = harness::endingOf(
      [&] {
        Setup setup;
        Xmgr xmgr;
        setup.ProcCmdLine(static_cast<int>(words.size()), argv.data(), xmgr);
        harness::require(words.size() >= 2, "an option");
        harness::require(!setup.GetOutputFile().empty(), "a name of the report");
        harness::require(setup.IsVerb() >= 0 && setup.IsVerb() <= 2, "a verbosity that exists");
      },
      false);
  harness::require(ending.status != EXIT_SUCCESS || asks_for_help, "help only when asked for");
  return 0;
}
