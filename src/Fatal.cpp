// How a run ends on an error.
// SPDX-License-Identifier: GPL-3.0-or-later
#include "Fatal.h"

#include <cstdlib>
#include <string>

namespace {

EndHandler end_handler = nullptr;

}  // namespace

void setEndHandler(EndHandler handler) { end_handler = handler; }

void endRun(int status) {
  if (end_handler != nullptr) end_handler(status);
  std::exit(status);
}

void fatal(std::string_view message, std::ostream& channel) {
  channel << message << std::flush;
  endRun(EXIT_FAILURE);
}

void fatalNoMemory(std::string_view routine) {
  fatal("ERROR: Unable to allocate memory in routine " + std::string(routine) + "\n");
}
