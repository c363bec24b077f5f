// A run up to the fit, as main makes it, from an input text.
// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "Harness.h"

#include "Calc.h"
#include "FuncLib.h"
#include "Method.h"
#include "ParDef.h"
#include "Setup.h"
#include "Xmgr.h"

#include <string>
#include <string_view>
#include <vector>

namespace harness {

/// The objects of a run. Made after a command line of the text's own options was read.
struct ReadRun {
  explicit ReadRun(std::string_view text) {
    std::vector<std::string> words = {"dravo", "-i", fileOf(text), "-o", "report"};
    for (std::string& option : optionsOf(text)) words.push_back(std::move(option));
    std::vector<const char*> argv;
    for (const std::string& word : words) argv.push_back(word.c_str());
    setup.ProcCmdLine(static_cast<int>(argv.size()), argv.data(), xmgr);
  }
  void read() {
    setup.ReadInputFile(funclib, method, pardef, calc, xmgr);
    pardef.prep();
  }

  Setup setup;
  Xmgr xmgr;
  Funclib funclib;
  ParDef pardef;
  Method method;
  Calc calc;
};

}  // namespace harness
