// Files of the error analyses: one block for each pass, a summary and a final report.
// SPDX-License-Identifier: GPL-3.0-or-later
#include "Fatal.h"
#include "Fit.h"
#include "Text.h"

#include <array>
#include <fstream>
#include <iomanip>
#include <string>
#include <vector>

namespace {

constexpr int kWidth = 7;  // of parameter values

/// What the two kinds of analysis call themselves.
struct AnalysisNames {
  const char* suffix;
  const char* summary_title;
  const char* final_title;
};

constexpr int kJack = 1;
constexpr int kMonte = 2;

constexpr const char* kSummary = ".sum";
constexpr const char* kFinal = "-final.out";

constexpr AnalysisNames kNames[] = {
    {},
    {"-jack", "# Jackknife error analysis results\n", "# Error Analysis: JACK"},
    {"-monte", "# Monte Carlo error analysis results\n", "# Error Analysis: MONTE "},
};

}  // namespace

std::vector<std::string> Fit::analysisFiles() const {
  std::vector<std::string> names;
  for (const int kind : {kJack, kMonte}) {
    if ((kind == kJack ? calc_.getJackType() : calc_.getMonteType()) == 0) continue;
    const std::string name = output_file_ + kNames[kind].suffix;
    names.insert(names.end(), {name, name + kSummary, name + kFinal});
  }
  return names;
}

// ---- running files ----

std::ofstream Fit::openRunning(const std::string& suffix) const {
  std::ofstream file(output_file_ + suffix);
  check_file(file, output_file_ + suffix);
  return file;
}

void Fit::appendPass(std::ofstream& file, const std::string& block,
                     const std::string& suffix) const {
  // A run that is stopped keeps the finished passes, and no torn one: with a single write no part
  // of a block is on disk while the rest of it is still computed.
  file << block;
  if (!file.flush()) finishRunning(file, suffix);
}

void Fit::finishRunning(std::ofstream& file, const std::string& suffix) const {
  closeFile(file, output_file_ + suffix);
}

void Fit::report_SimResult(std::ostream& out, int k) {
  for (int set = 0; set < pardef_.SETsize(); ++set) reportPassSet(out, set, k);
  reportPassTotal(out, k);
}

void Fit::report_localJackResult(std::ostream& out, int set, int j) {
  reportPassSet(out, set, j);
  reportPassTotal(out, j);
}

void Fit::reportPassSet(std::ostream& out, int set, int k) {
  out << '#' << k << ": " << pardef_.TITLE(set) << '\n';
  for (const Declaration& declaration : pardef_.declarations(set)) {
    out << '#' << k << ":\t" << declaration.name << '\t'
        << shown(best_.par[asIndex(declaration.elem)]) << '\n';
  }
  for (int i = 0; i < calc_.size(); ++i) {
    const double value = run_CALC(set, i, best_);
    out << '#' << k << ":\t\t" << calc_.Label(i) << '\t' << shown(value) << '\n';
    // Any jackknife of the run decides, also for the passes of a Monte Carlo analysis.
    if (calc_.getJackType() != 0) {
      calc_.addJack(set, i, value);
    } else {
      calc_.addVal(set, i, value);
    }
  }
  const int dof = pardef_.lDoF(set);
  out << '#' << k << ":\tX2/DoF\t" << shown(best_.chi(set) / dof) << "\t(DoF = " << dof << ")\n";
}

void Fit::reportPassTotal(std::ostream& out, int k) const {
  const int dof = pardef_.gDoF();
  out << '#' << k << ": GLOBAL X2/DoF\t" << shown(best_.total() / dof) << "\t(DoF = " << dof
      << ")\n\n";
}

// ---- summary and final report ----

void Fit::report_final(int kind) {
  if (kind != kJack && kind != kMonte) return;
  const std::string name = output_file_ + kNames[kind].suffix;
  // A file that cannot be opened is passed over; one that cannot be written in full is not.
  if (std::ofstream file(name + kSummary); file) {
    reportSummary(file, kind);
    closeFile(file, name + kSummary);
  }
  if (std::ofstream file(name + kFinal); file) {
    report_header(file, method_.size());
    file << kNames[kind].final_title;
    if (kind == kMonte) file << calc_.getMonteIter();
    file << "\n\n";
    report_FinalParm(file, kind);
    closeFile(file, name + kFinal);
  }
}

double Fit::calcDeviation(int kind, int set, int i) const {
  return kind == kJack ? calc_.calcJackStdev(set, i) : calc_.calcStdev(set, i);
}

void Fit::reportSummary(std::ostream& out, int kind) const {
  out << kNames[kind].summary_title;
  for (int set = 0; set < pardef_.SETsize(); ++set) {
    out << "SET\t" << pardef_.TITLE(set) << '\n';
    reportValues(out, set, centre_);
    for (int i = 0; i < calc_.size(); ++i) {
      out << "\t\t" << calc_.Label(i) << '\t' << shown(calc_.calcMean(set, i)) << "\t("
          << shown(calcDeviation(kind, set, i)) << ")\n";
    }
    const int dof = pardef_.lDoF(set);
    out << "\tX2/DoF\t" << shown(centre_.chi(set) / dof) << " (" << shown(spread_.chi(set) / dof)
        << ") (DoF = " << dof << ")\n\n";
    if (kind == kMonte) reportPercentiles(out, set);
  }
  // The jackknife leaves out one point in each pass.
  const int dof = kind == kJack ? pardef_.gDoF() - 1 : pardef_.gDoF();
  out << "Global X2/DoF = " << shown(centre_.total() / dof) << "  (" << shown(spread_.total() / dof)
      << ")\n";
}

void Fit::reportValues(std::ostream& out, int set, const ParSet& values) const {
  for (const Declaration& declaration : pardef_.declarations(set)) {
    const std::size_t parm = asIndex(declaration.elem);
    out << '\t' << declaration.name << '\t' << std::setw(kWidth) << shown(values.par[parm]);
    if (!pardef_.isFIXED(declaration.elem)) out << " (" << shown(spread_.par[parm]) << ')';
    out << '\n';
  }
}

void Fit::reportPercentiles(std::ostream& out, int set) const {
  constexpr int kFewest = 10;  // simulations
  constexpr int kLines = 19;
  constexpr double kStep = 0.05;
  if (calc_.getMonteIter() < kFewest) return;
  out << "\t\tPercentile\tX2/DoF\n";
  double p = kStep;
  for (int line = 0; line < kLines; ++line, p += kStep) {
    const double chi = pchi(set, p);
    out << "\t\t" << p << '\t' << std::setw(kWidth) << shown(chi / pardef_.lDoF(set));
    if (chi > saved_.chi(set)) out << "\t***";
    out << '\n';
  }
}

void Fit::report_FinalParm(std::ostream& out, int kind) {
  for (int set = 0; set < pardef_.SETsize(); ++set) {
    out << "SET\t" << pardef_.TITLE(set) << '\n';
    reportValues(out, set, saved_);
    for (int i = 0; i < calc_.size(); ++i) {
      out << "\t    " << calc_.Label(i) << '\t' << shown(run_CALC(set, i, saved_)) << "\t("
          << shown(calcDeviation(kind, set, i)) << ")\n";
    }
    reportSetChi(out, set);
  }
  reportGlobalChi(out);
}
