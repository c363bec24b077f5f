// How a run ends on an error.
// SPDX-License-Identifier: GPL-3.0-or-later
#include "Fatal.h"

#include <cstdlib>
#include <string>

void fatal(std::string_view message, std::ostream& channel) {
  channel << message << std::flush;
  std::exit(EXIT_FAILURE);
}

void fatalNoMemory(std::string_view routine) {
  fatal("ERROR: Unable to allocate memory in routine " + std::string(routine) + "\n");
}
