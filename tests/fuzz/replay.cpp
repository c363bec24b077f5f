// Feeds every file of the directories on its command line to a fuzz target, without libFuzzer.
// SPDX-License-Identifier: GPL-3.0-or-later
#include "Harness.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>

int main(int argc, char* argv[]) {
  int files = 0;
  for (int i = 1; i < argc; ++i) {
    for (const auto& entry : std::filesystem::recursive_directory_iterator(argv[i])) {
      if (!entry.is_regular_file()) continue;
      std::cout << entry.path().filename().string() << std::endl;  // the last one names a crash
      std::ifstream file(entry.path(), std::ios::binary);
      const std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
      const std::vector<std::uint8_t> data(bytes.begin(), bytes.end());
      LLVMFuzzerTestOneInput(data.data(), data.size());
      ++files;
    }
  }
  std::cout << files << " files\n";
  return files > 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
