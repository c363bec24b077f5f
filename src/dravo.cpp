// The program: reads one input file, fits, reports, analyses errors.
// SPDX-License-Identifier: GPL-3.0-or-later
#include "Calc.h"
#include "Fatal.h"
#include "Fit.h"
#include "FuncLib.h"
#include "Method.h"
#include "ParDef.h"
#include "Setup.h"
#include "Xmgr.h"

#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <new>
#include <string>

namespace {

// Types of an error analysis: with the methods INIT and ONEEX, or with those of the input.
constexpr int kQuick = 1;
constexpr int kFull = 2;

/// Returns the plot index that is free after it.
int runJackknife(Setup& setup, Method& method, Fit& fit, int type, bool plots) {
  constexpr int kFirstColumn = 1;
  if (type != kQuick && type != kFull) return kFirstColumn;
  const Method spare = method;
  if (type == kQuick) setup.resetMETHOD_ONEEX(method);
  fit.run_JACK();
  fit.report_final(1);
  if (plots) fit.plot_xmgr(kFirstColumn, "Jackknife");
  method = spare;
  return plots ? kFirstColumn + 1 : kFirstColumn;
}

void runMonteCarlo(Setup& setup, Method& method, Fit& fit, int type, bool plots, int plot_index) {
  if (type != kQuick && type != kFull) return;
  if (type == kQuick) setup.resetMETHOD_ONEEX(method);  // nothing needs the list afterwards
  fit.run_MONTE();
  fit.report_final(2);
  if (plots) fit.plot_xmgr(plot_index, "Monte Carlo");
}

/// A run whose console has gone goes on, and a write that fails is answered where it fails: by the
/// message of the file, never by a signal (a pipe without a reader, a limit of the file size).
void outliveConsole() {
  std::signal(SIGPIPE, SIG_IGN);
  std::signal(SIGXFSZ, SIG_IGN);
  // A closed stream's number would go to the next file that is opened: messages would land in a
  // report or plot.
  for (int stream = STDIN_FILENO; stream <= STDERR_FILENO; ++stream) {
    if (fcntl(stream, F_GETFD) == -1) open("/dev/null", O_RDWR);
  }
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
  Fit fit(version, funclib, method, pardef, calc, xmgr, setup.GetOutputFile(), setup.IsVerb(),
          setup.GetPrec());
  fit.checkFiles(setup.GetInputFile());
  const bool plots = xmgr.isXmgr();
  fit.run_FIT(false);
  fit.report_fit(method.size());
  if (plots) fit.plot_xmgr(0, "");
  const int plot_index = runJackknife(setup, method, fit, calc.getJackType(), plots);
  runMonteCarlo(setup, method, fit, calc.getMonteType(), plots, plot_index);
}

}  // namespace

int main(int argc, char* argv[]) {
  outliveConsole();
  try {
    run(argc, argv);
  } catch (const std::bad_alloc&) {
    fatal("ERROR: Unable to allocate memory\n");
  }
  return EXIT_SUCCESS;
}
