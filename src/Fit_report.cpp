// The report of a fit, and the stage directories of a verbose run.
// SPDX-License-Identifier: GPL-3.0-or-later
#include "Fatal.h"
#include "Fit.h"
#include "Text.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <iomanip>
#include <iostream>

void Fit::report_fit(int n) {
  std::ofstream file(output_file_);
  check_file(file, output_file_);
  report_header(file, n);
  report_time(file);
  report_FitParm(file);
  closeFile(file, output_file_);
}

void Fit::check_file(const std::ofstream& file, const std::string& name) {
  if (!file.is_open()) fatal("Error: Opening file '" + name + "'\n");
}

void Fit::closeFile(std::ofstream& file, const std::string& name) {
  file.close();
  if (!file) fatal("Error: Writing file '" + name + "'\n");
}

void Fit::report_header(std::ostream& out, int n) const {
  out << "# DRAVO VERSION " << version_ << '\n'
      << "MODEL  " << funclib_.Name() << '\n'
      << "EQN    " << funclib_.Eqn() << '\n';
  for (int i = 0; i < n; ++i) out << method_.report(i) << '\n';
  out << "\n# Fitting results\n"
      << "# Total data points = " << pardef_.DATAsize() << '\n'
      << "# Total degrees of freedom (DoF) = " << pardef_.gDoF() << '\n';
  for (int i = 0; i < n; ++i) out << chi_lines_[asIndex(i)] << '\n';
}

void Fit::report_time(std::ostream& out) const {
  const auto seconds = static_cast<long>(std::difftime(end_time_, start_time_));
  out << "# Fit duration        " << seconds / 3600 << 'h' << seconds % 3600 / 60 << 'm'
      << seconds % 60 << "s\n\n";
}

void Fit::report_FitParm(std::ostream& out) {
  for (int set = 0; set < pardef_.SETsize(); ++set) {
    out << "SET\t" << pardef_.TITLE(set) << '\n';
    for (const Declaration& declaration : pardef_.declarations(set)) {
      const int parm = declaration.elem;
      // The precision stays for all numbers that follow, errors and chi-squares included.
      out << '\t' << declaration.name << '\t' << std::setprecision(precision_) << std::setw(7)
          << shown(saved_.par[asIndex(parm)]);
      if (!pardef_.isFIXED(parm)) out << " (" << shown(stdError(parm)) << ')';
      out << '\n';
    }
    for (int i = 0; i < calc_.size(); ++i) {
      out << "\t    " << calc_.Label(i) << '\t' << shown(run_CALC(set, i, saved_)) << '\n';
    }
    reportSetChi(out, set);
  }
  reportGlobalChi(out);
}

void Fit::reportSetChi(std::ostream& out, int set) const {
  const int dof = pardef_.lDoF(set);
  out << "\tX2/DoF\t" << shown(saved_.chi(set) / dof) << " (DoF = " << dof << ")\n\n";
}

void Fit::reportGlobalChi(std::ostream& out) const {
  const int dof = pardef_.gDoF();
  out << "Global X2/DoF\t" << shown(saved_.total() / dof) << " (DoF = " << dof << ")\n";
}

// ---- plots ----

void Fit::plot_xmgr(int index, const std::string& title) {
  const std::span<const double> errors =
      xmgr_.isError() ? std::span<const double>(std_error_) : std::span<const double>();
  for (int set = 0; set < pardef_.SETsize(); ++set) {
    const std::string name = plotFile(set);
    std::ofstream file;
    // A title is no path: it never leads out of the working directory.
    const bool is_name =
        name.find('/') == std::string::npos && name.find('\0') == std::string::npos;
    if (is_name) file.open(name, index == 0 ? std::ios::trunc : std::ios::app);
    check_file(file, name);
    if (index == 0) {
      xmgr_.xplot(file, saved_, set, pardef_, funclib_);
      Xmgr::annot_plot(file, saved_, set, pardef_, errors);
    } else {
      Xmgr::annot_sims(file, centre_, spread_, set, pardef_, index, title);
    }
    closeFile(file, name);
  }
}

// ---- stage directories ----

namespace {

/// Where a run came from, to go back to: ".." of a directory behind a symbolic link is elsewhere.
class Here {
 public:
  Here() : directory_(open(".", O_PATH | O_DIRECTORY | O_CLOEXEC)) {}
  ~Here() { close(directory_); }
  Here(const Here&) = delete;
  Here(Here&&) = delete;
  Here& operator=(const Here&) = delete;
  Here& operator=(Here&&) = delete;

  [[nodiscard]] bool comeBack() const { return fchdir(directory_) == 0; }

 private:
  int directory_;
};

}  // namespace

void Fit::make_dir(int i, const std::string& label) {
  // The "0" is a fixed character: the tenth directory is 010-...
  const std::string name = "0" + std::to_string(i + 1) + "-" + label;
  constexpr mode_t kMode = 0755;
  const Here parent;
  mkdir(name.c_str(), kMode);  // an existing one is reused; another failure shows on entering
  if (chdir(name.c_str()) != 0) fatal("no directory found\n");
  end_time_ = std::time(nullptr);
  calc_covar(best_);
  saved_ = best_;
  report_fit(i + 1);
  if (xmgr_.isXmgr()) plot_xmgr(0, "");
  if (!parent.comeBack()) fatal("no directory found\n");
}
