// SPDX-License-Identifier: GPL-3.0-or-later
#include "Remarks.h"

#include "Text.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr double kRare = 0.01;  // probability of chi-square that calls for a word, at each end
constexpr double kStillFalling = 1e-4;  // relative; reports print six digits
constexpr double kDisagree = 2.0;       // ratio of errors of two methods
constexpr double kCorrelated = 0.98;    // in the Monte Carlo simulations
constexpr int kEnoughPasses = 20;       // for a correlation

std::string inWords(double probability) {
  return probability < 1e-6 ? "below 1e-06" : "of " + probabilityText(probability);
}

/// Within a thousandth of the bound: the minimiser refuses steps beyond it and stops short of it.
bool touches(double value, double bound, double width) {
  const double allowed = bound != 0.0 ? 1e-3 * std::fabs(bound) : 1e-6 * width;
  return std::fabs(value - bound) <= allowed;
}

constexpr RemarkKind kKinds[] = {
    {"unfinished", "Unfinished minimisation"},
    {"worse", "A larger model that fits worse"},
    {"chi-square", "X2/DoF that noise gives with a probability below 0.01"},
    {"bound", "Parameters at a bound"},
    {"near-bound", "A bound within the error"},
    {"error", "Errors larger than the value"},
    {"no-error", "Parameters without an error"},
    {"methods-disagree", "Errors that differ by more than a factor of 2 between methods"},
    {"shifted-mean", "Monte Carlo means far from the fitted values"},
    {"correlated", "Parameters correlated with each other"},
    {"residuals", "Curves that do not go with all points"},
    {"plot", "No curve"},
    {"files", "Files left out"},
};

class Remarker {
 public:
  Remarker(const std::vector<Run>& runs, std::size_t run) : run_(runs[run]), number_(run) {}

  std::vector<Remark> make() {
    for (const std::string& note : run_.notes) add("files", std::nullopt, "", note + ".");
    ofMinimisation();
    ofChi(std::nullopt, run_.report.reduced_chi, run_.report.dof, 0.0);
    ofMissingPlots();
    std::vector<std::string> seen;  // shared parameters are remarked on once
    for (std::size_t s = 0; s < run_.sets.size(); ++s) {
      const Set& set = run_.sets[s];
      if (run_.sets.size() > 1) ofChi(s, set.reduced_chi, set.dof, set.spared);
      for (const Parameter& p : set.parameters) {
        if (p.status == Parameter::Status::kFixed) continue;
        std::optional<std::size_t> place = s;
        if (p.status == Parameter::Status::kShared) {
          if (std::find(seen.begin(), seen.end(), p.shared_name) != seen.end()) continue;
          seen.push_back(p.shared_name);
          place = std::nullopt;
        }
        ofParameter(place, p);
      }
      ofCorrelations(s);
      ofPlot(s);
    }
    return std::move(remarks_);
  }

 private:
  void add(const char* kind, std::optional<std::size_t> set, const std::string& parameter,
           const std::string& text) {
    remarks_.push_back({kind, number_, set, parameter, text});
  }

  static const std::string& nameOf(const Parameter& p) {
    return p.shared_name.empty() ? p.name : p.shared_name;
  }

  void ofMinimisation() {
    const auto& lines = run_.report.chi_lines;
    if (lines.size() < 2) return;
    const ChiLine& before = lines[lines.size() - 2];
    const ChiLine& last = lines.back();
    const double fall = 1.0 - last.reduced_chi.value / before.reduced_chi.value;
    // ONEEX repeats itself until nothing is gained, so that a fall from the start says nothing.
    const bool settled = before.label == "INIT" && last.label == "ONEEX";
    if (settled || !(fall > kStillFalling)) return;
    add("unfinished", std::nullopt, "",
        "The minimisation may be unfinished: X2/DoF was still falling in the last method, from " +
            before.reduced_chi.text + " (" + before.label + ") to " + last.reduced_chi.text + " (" +
            last.label + "). Add METHOD ONEEX and look whether it falls further.");
  }

  void ofChi(std::optional<std::size_t> set, const Number& reduced, int dof, double spared) {
    if (!run_.errors_known) return;
    const double p = chiProbability(reduced.value * dof, dof + spared);
    std::string what = "X2/DoF is " + roundedTo(reduced.value, 0.1) + " with " +
                       std::to_string(dof) + " degrees of freedom";
    if (spared > 0.0) {
      what += ", " + general(dof + spared, 4) + " where shared parameters count in part";
    }
    what += ": ";
    if (p < kRare) {
      add("chi-square", set, "",
          what + "noise of the stated size gives as much or more with a probability " + inWords(p) +
              ". The errors are too small or the model does not describe the data.");
    } else if (1.0 - p < kRare) {
      add("chi-square", set, "",
          what + "noise of the stated size gives as little or less with a probability " +
              inWords(1.0 - p) + ". The errors of the points are too large.");
    }
  }

  void ofParameter(std::optional<std::size_t> set, const Parameter& p) {
    if (p.status != Parameter::Status::kDerived) ofBounds(set, p);
    ofErrorSize(set, p);
    ofMethods(set, p);
    ofMeans(set, p);
  }

  void ofBounds(std::optional<std::size_t> set, const Parameter& p) {
    if (!p.low || !p.high) return;
    const std::string bound = boundOf(p);
    if (!bound.empty()) {
      add("bound", set, nameOf(p),
          nameOf(p) + " = " + p.value.text + " is at its " + bound + " bound, " +
              general(bound == "lower" ? *p.low : *p.high, 6) +
              ": its error, and those of the parameters that depend on it, mean nothing.");
    } else if (p.error && std::isfinite(p.error->value) &&
               p.value.value + p.error->value > *p.high) {
      add("near-bound", set, nameOf(p),
          nameOf(p) + " = " + p.value.text + " has its upper bound, " + general(*p.high, 6) +
              ", within its error of " + roundedError(p.error->value) + '.');
    }
  }

  void ofErrorSize(std::optional<std::size_t> set, const Parameter& p) {
    const double size = std::fabs(p.value.value);
    std::string larger;
    const auto check = [&larger, size](const std::optional<Number>& error, const char* method) {
      if (!error || !(error->value > size)) return;
      larger +=
          (larger.empty() ? "" : ", ") + std::string(method) + ' ' + roundedError(error->value);
    };
    check(p.error, "covariance");
    check(p.jack_error, "jackknife");
    check(p.monte_error, "Monte Carlo");
    if (!larger.empty()) {
      add("error", set, nameOf(p),
          nameOf(p) + " = " + p.value.text + " has an error larger than the value (" + larger +
              "): the data do not determine it.");
    }
    const bool none = p.error && (!std::isfinite(p.error->value) || p.error->value == 0.0);
    if (none) {
      add("no-error", set, nameOf(p),
          nameOf(p) + " has the error " + p.error->text +
              ": the data do not determine it, or no point depends on it.");
    }
  }

  void ofMethods(std::optional<std::size_t> set, const Parameter& p) {
    struct Error {
      const char* method;
      double value;
    };
    std::vector<Error> errors;
    const auto take = [&errors](const std::optional<Number>& error, const char* method) {
      if (error && error->value > 0.0 && std::isfinite(error->value)) {
        errors.push_back({method, error->value});
      }
    };
    take(p.error, "covariance");
    // Without shared parameters the jackknife displaces points and its errors are too large by
    // design.
    if (run_.shares()) take(p.jack_error, "jackknife");
    take(p.monte_error, "Monte Carlo");
    if (errors.size() < 2) return;
    const auto smaller = [](const Error& a, const Error& b) { return a.value < b.value; };
    const auto [least, most] = std::minmax_element(errors.begin(), errors.end(), smaller);
    if (!(most->value > kDisagree * least->value)) return;
    std::string text = "The errors of " + nameOf(p) + " disagree:";
    for (const Error& e : errors) {
      text +=
          (&e == errors.data() ? " " : ", ") + std::string(e.method) + ' ' + roundedError(e.value);
    }
    text += " (" + general(most->value / least->value, 2) + " times).";
    const double excess = std::sqrt(run_.report.reduced_chi.value);
    if (std::string(most->method) == "jackknife" && excess > 1.2) {
      text += " Errors of the points that are too small explain a factor of " + general(excess, 2) +
              " of that of the jackknife, the root of X2/DoF.";
    }
    if (run_.has_jack && run_.has_monte && !run_.shares()) {
      text +=
          " A Monte Carlo analysis after a jackknife without shared parameters simulates its "
          "displaced points: run it alone.";
    }
    add("methods-disagree", set, nameOf(p), text);
  }

  void ofMeans(std::optional<std::size_t> set, const Parameter& p) {
    if (!p.monte_mean || !p.monte_error) return;
    const double shift = std::fabs(p.monte_mean->value - p.value.value);
    if (!(p.monte_error->value > 0.0) || !(shift > p.monte_error->value)) return;
    add("shifted-mean", set, nameOf(p),
        "The Monte Carlo mean of " + nameOf(p) + ", " + p.monte_mean->text + ", is " +
            general(shift / p.monte_error->value, 2) +
            " errors away from the fitted value: lopsided, or simulations that ended in another "
            "minimum.");
  }

  void ofCorrelations(std::size_t s) {
    if (!run_.monte || run_.monte->passes < kEnoughPasses) return;
    const auto& drawn = run_.monte->drawn[s];
    const Set& set = run_.sets[s];
    for (std::size_t i = 0; i < drawn.size(); ++i) {
      for (std::size_t k = 0; k < i; ++k) {
        const double r = correlation(drawn[k], drawn[i]);
        if (!(std::fabs(r) > kCorrelated)) continue;
        const bool both = set.parameters[k].status == Parameter::Status::kShared &&
                          set.parameters[i].status == Parameter::Status::kShared;
        if (both && s > 0) continue;  // said with the first set
        addCorrelation(s, nameOf(set.parameters[k]), nameOf(set.parameters[i]), r);
      }
    }
  }

  void addCorrelation(std::size_t s, const std::string& a, const std::string& b, double r) {
    add("correlated", s, a + ", " + b,
        a + " and " + b + " are correlated, r = " + general(r, 3) + " in " +
            std::to_string(run_.monte->passes) +
            " simulations: only a combination of them is well determined.");
  }

  static double correlation(const std::vector<double>& a, const std::vector<double>& b) {
    if (a.size() != b.size() || a.size() < 3) return 0.0;
    const auto n = static_cast<double>(a.size());
    double mean_a = 0.0, mean_b = 0.0, aa = 0.0, bb = 0.0, ab = 0.0;
    for (std::size_t i = 0; i < a.size(); ++i) {
      mean_a += a[i] / n;
      mean_b += b[i] / n;
    }
    for (std::size_t i = 0; i < a.size(); ++i) {
      aa += (a[i] - mean_a) * (a[i] - mean_a);
      bb += (b[i] - mean_b) * (b[i] - mean_b);
      ab += (a[i] - mean_a) * (b[i] - mean_b);
    }
    return aa > 0.0 && bb > 0.0 ? ab / std::sqrt(aa * bb) : 0.0;  // fixed parameters do not vary
  }

  bool noPlotAtAll() const {
    return std::all_of(run_.sets.begin(), run_.sets.end(),
                       [](const Set& set) { return !set.plot_note.empty(); });
  }

  void ofMissingPlots() {
    if (run_.sets.size() < 2 || !noPlotAtAll()) return;
    add("plot", std::nullopt, "",
        "No curves: " + run_.sets[0].plot_note +
            ", and likewise for the other sets. Run dravo with -xmgr "
            "and a PLOT line for each combination of labels.");
  }

  void ofPlot(std::size_t s) {
    const Set& set = run_.sets[s];
    if (run_.sets.size() > 1 && noPlotAtAll()) return;
    if (!set.plot_note.empty()) {
      add("plot", s, "", "No curve: " + set.plot_note + '.');
    } else if (!set.residuals_agree) {
      add("residuals", s, "",
          "The plotted curves do not go with all points: chi-square from them is " +
              general(set.residual_chi, 4) + ", that of the fit " + general(set.chi(), 4) +
              ". Points that share their labels have other x values than the PLOT line, or the "
              "curve is "
              "too coarse; the residuals shown are not those of the fit.");
    }
  }

  const Run& run_;
  std::size_t number_;
  std::vector<Remark> remarks_;
};

/// A richer model that contains the simpler one cannot fit worse.
void ofComparison(const std::vector<Run>& runs, const Comparison& comparison,
                  std::vector<Remark>& remarks) {
  for (const FTest& test : comparison.tests) {
    if (test.nesting == FTest::Nesting::kUnknown) continue;
    const double simple = comparison.of(test.simple)->chi;
    const double rich = comparison.of(test.rich)->chi;
    // A limit may lie outside of the bounds, so that it is only nearly reached.
    const double allowed = test.nesting == FTest::Nesting::kLimit ? 1e-2 : 1e-4;
    if (!(rich > simple * (1.0 + allowed))) continue;
    remarks.push_back({"worse", test.rich, std::nullopt, "",
                       comparison.title + ": " + runs[test.rich].name + " has " +
                           std::to_string(test.extra) + " parameters more than " +
                           runs[test.simple].name + " and yet a larger chi-square, " +
                           general(rich, 5) + " instead of " + general(simple, 5) +
                           ": its minimum was not found."});
  }
}

}  // namespace

std::string boundOf(const Parameter& parameter) {
  if (!parameter.low || !parameter.high) return "";
  const double width = *parameter.high - *parameter.low;
  const bool low = touches(parameter.value.value, *parameter.low, width);
  const bool high = touches(parameter.value.value, *parameter.high, width);
  return low ? "lower" : high ? "upper" : "";
}

std::span<const RemarkKind> remarkKinds() { return kKinds; }

std::vector<Remark> makeRemarks(const std::vector<Run>& runs, const Comparisons& comparisons) {
  std::vector<Remark> remarks;
  for (std::size_t r = 0; r < runs.size(); ++r) {
    const std::vector<Remark> found = Remarker(runs, r).make();
    remarks.insert(remarks.end(), found.begin(), found.end());
  }
  ofComparison(runs, comparisons.total, remarks);
  return remarks;
}
