// The program: reads one input file, fits, reports.
// SPDX-License-Identifier: GPL-3.0-or-later
#include "Calc.h"
#include "Fatal.h"
#include "Fit.h"
#include "FuncLib.h"
#include "Method.h"
#include "ParDef.h"
#include "Setup.h"
#include "Xmgr.h"

#include <cstdlib>
#include <iostream>
#include <new>
#include <string>

namespace {

/// Says which requests of the user this version reads but does not carry out.
void nameMissingStages(const Calc& calc, const Xmgr& xmgr) {
  const auto say = [](const char* what) {
    std::cerr << "NOTE: " << what << " in this version; the request has no effect.\n";
  };
  if (calc.size() > 0) say("Derived quantities (CALC) are not computed");
  if (xmgr.isXmgr()) say("Grace plots (-xmgr) are not written");
  if (calc.getJackType() != 0) say("The jackknife (JACK) is not carried out");
  if (calc.getMonteType() != 0) say("The Monte Carlo analysis (MONTE) is not carried out");
}

void run(int argc, const char* const* argv) {
  const std::string version = "2.4.4";
  Setup setup;
  Xmgr xmgr;
  setup.ProcCmdLine(argc, argv, xmgr);
  Funclib funclib;
  ParDef pardef;
  Method method;
  Calc calc;
  setup.ReadInputFile(funclib, method, pardef, calc, xmgr);
  pardef.prep();
  nameMissingStages(calc, xmgr);
  Fit fit(version, funclib, method, pardef, calc, xmgr, setup.GetOutputFile(), setup.IsVerb(),
          setup.GetPrec());
  fit.run_FIT(false);
  fit.report_fit(method.size());
}

}  // namespace

int main(int argc, char* argv[]) {
  try {
    run(argc, argv);
  } catch (const std::bad_alloc&) {
    fatal("ERROR: Unable to allocate memory\n");
  }
  return EXIT_SUCCESS;
}
