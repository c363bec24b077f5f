// SPDX-License-Identifier: GPL-3.0-or-later
#include "Compare.h"

#include "Text.h"

#include <gsl/gsl_cdf.h>

#include <algorithm>
#include <cmath>

namespace {

/// What two fits of the same data have in common: pulse rate or spin lock, y and its error.
struct Row {
  double x, y, error;
  auto tied() const { return std::array<double, 3>{x, y, error}; }
};

std::vector<Row> sortedRows(const Run& run, const Set& set) {
  const std::size_t column = run.model->offset_first ? 1 : 0;
  std::vector<Row> rows;
  for (const Point& point : set.data) {
    rows.push_back({point.x[column], point.y, run.errors_known ? point.error : 1.0});
  }
  std::sort(rows.begin(), rows.end(),
            [](const Row& a, const Row& b) { return a.tied() < b.tied(); });
  return rows;
}

bool near(double a, double b, double relative) {
  return std::fabs(a - b) <= relative * std::max(std::fabs(a), std::fabs(b));
}

/// "" for the same data, else the first difference. x may differ in its fifth digit: the matrix
/// models want 1/tcp rounded up.
std::string difference(const std::vector<Row>& a, const std::vector<Row>& b) {
  if (a.size() != b.size()) {
    return std::to_string(b.size()) + " points instead of " + std::to_string(a.size());
  }
  for (std::size_t i = 0; i < a.size(); ++i) {
    const std::string place = "at x = " + general(a[i].x, 6) + ", y = " + general(a[i].y, 6);
    if (!near(a[i].x, b[i].x, 1e-4)) {
      return "x is " + general(b[i].x, 6) + " instead of " + general(a[i].x, 6);
    }
    if (!near(a[i].y, b[i].y, 1e-6)) {
      return "y is " + general(b[i].y, 6) + " instead of " + general(a[i].y, 6) +
             " at x = " + general(a[i].x, 6);
    }
    if (!near(a[i].error, b[i].error, 1e-6)) {
      return "the error is " + general(b[i].error, 6) + " instead of " + general(a[i].error, 6) +
             ' ' + place;
    }
  }
  return "";
}

/// Titles with a number from the second one of the same title on.
std::vector<std::string> uniqueTitles(const Run& run) {
  std::vector<std::string> titles;
  for (const Set& set : run.sets) {
    const auto same = std::count_if(run.sets.data(), &set,
                                    [&set](const Set& other) { return other.title == set.title; });
    titles.push_back(same == 0 ? set.title : set.title + " (" + std::to_string(same + 1) + ")");
  }
  return titles;
}

FTest::Nesting nestingOf(const Model& simple, const Model& rich) {
  if (&simple == &rich) return FTest::Nesting::kSameModel;
  return isLimitOf(simple, rich) ? FTest::Nesting::kLimit : FTest::Nesting::kUnknown;
}

void addTests(const std::vector<Run>& runs, Comparison& comparison) {
  for (const Criteria& simple : comparison.criteria) {
    for (const Criteria& rich : comparison.criteria) {
      FTest test;
      test.simple = simple.run;
      test.rich = rich.run;
      test.extra = rich.parameters - simple.parameters;
      test.dof = rich.points - rich.parameters;
      constexpr double kLeast = 1.0 - 1e-9;  // fractions of shared parameters add up with rounding
      if (test.extra < kLeast || test.dof < kLeast || !(rich.chi > 0.0)) continue;
      test.f = (simple.chi - rich.chi) / test.extra / (rich.chi / test.dof);
      test.p = test.f > 0.0 ? gsl_cdf_fdist_Q(test.f, test.extra, test.dof) : 1.0;
      test.nesting = nestingOf(*runs[simple.run].model, *runs[rich.run].model);
      comparison.tests.push_back(test);
    }
  }
}

bool has(const std::vector<std::string>& titles, const std::string& title) {
  return std::find(titles.begin(), titles.end(), title) != titles.end();
}

/// All titles in the order of the first run that has them.
std::vector<std::string> allTitles(const std::vector<std::vector<std::string>>& titles) {
  std::vector<std::string> all;
  for (const auto& list : titles) {
    for (const std::string& title : list) {
      if (!has(all, title)) all.push_back(title);
    }
  }
  return all;
}

Comparison compareSet(const std::vector<Run>& runs,
                      const std::vector<std::vector<std::string>>& titles, const std::string& title,
                      bool errors_known) {
  Comparison comparison;
  comparison.title = title;
  std::optional<std::vector<Row>> reference;
  for (std::size_t r = 0; r < runs.size(); ++r) {
    const auto found = std::find(titles[r].begin(), titles[r].end(), title);
    if (found == titles[r].end()) {
      comparison.different.emplace_back("it has no such set");
      continue;
    }
    const Set& set = runs[r].sets[static_cast<std::size_t>(found - titles[r].begin())];
    const std::vector<Row> rows = sortedRows(runs[r], set);
    if (!reference) reference = rows;
    comparison.different.push_back(difference(*reference, rows));
    if (!comparison.different.back().empty()) continue;
    comparison.criteria.push_back(
        makeCriteria(r, set.chi(), set.points, set.adjustable(), errors_known));
    comparison.criteria.back().reduced_chi = set.reduced_chi.value;
  }
  addTests(runs, comparison);
  return comparison;
}

/// A run counts in the total when each of its sets has the data of the run `first`, and none is
/// missing.
Comparison compareTotal(const std::vector<Run>& runs, const std::vector<Comparison>& sets,
                        const std::vector<std::vector<std::string>>& titles, std::size_t first,
                        bool errors_known) {
  Comparison total;
  total.title = "all sets";
  for (std::size_t r = 0; r < runs.size(); ++r) {
    std::string different;
    for (const Comparison& set : sets) {
      const bool in_first = has(titles[first], set.title);
      const bool here = has(titles[r], set.title);
      if (in_first && !here) different = "it has no set " + set.title;
      if (!in_first && here) different = "it has a set more, " + set.title;
      if (in_first && here) different = set.different[r];
      if (in_first && here && !different.empty()) different.insert(0, "set " + set.title + ": ");
      if (!different.empty()) break;
    }
    total.different.push_back(different);
    if (!different.empty()) continue;
    total.criteria.push_back(
        makeCriteria(r, runs[r].chi(), runs[r].report.points, runs[r].adjustable(), errors_known));
    total.criteria.back().reduced_chi = runs[r].report.reduced_chi.value;
  }
  addTests(runs, total);
  return total;
}

}  // namespace

double chiProbability(double chi, double dof) {
  if (!(dof > 0.0) || !(chi >= 0.0)) return std::numeric_limits<double>::quiet_NaN();
  return gsl_cdf_chisq_Q(chi, dof);
}

Criteria makeCriteria(std::size_t run, double chi, int points, double parameters,
                      bool errors_known) {
  Criteria c;
  c.run = run;
  c.chi = chi;
  c.points = points;
  c.parameters = parameters;
  const double n = points;
  const double k = errors_known ? parameters : parameters + 1.0;
  const double deviance = errors_known ? chi : n * std::log(chi / n);
  c.aic = deviance + 2.0 * k;
  if (n - k - 1.0 > 0.0) c.aicc = c.aic + 2.0 * k * (k + 1.0) / (n - k - 1.0);
  c.bic = deviance + k * std::log(n);
  return c;
}

const Criteria* Comparison::of(std::size_t run) const {
  const auto found = std::find_if(criteria.begin(), criteria.end(),
                                  [run](const Criteria& c) { return c.run == run; });
  return found == criteria.end() ? nullptr : &*found;
}

const Criteria* Comparison::best(double Criteria::*criterion) const {
  const Criteria* best = nullptr;
  for (const Criteria& c : criteria) {
    if (std::isfinite(c.*criterion) && (best == nullptr || c.*criterion < best->*criterion)) {
      best = &c;
    }
  }
  return best;
}

Comparisons compareRuns(const std::vector<Run>& runs) {
  Comparisons result;
  if (runs.size() < 2) return result;
  // One rule for all, or the criteria could not be compared; where only some have errors the data
  // differ by their weights anyway.
  result.errors_known =
      std::any_of(runs.begin(), runs.end(), [](const Run& r) { return r.errors_known; });
  std::vector<std::vector<std::string>> titles;
  titles.reserve(runs.size());
  for (const Run& run : runs) titles.push_back(uniqueTitles(run));
  for (const std::string& title : allTitles(titles)) {
    result.sets.push_back(compareSet(runs, titles, title, result.errors_known));
  }
  const auto inSeveral = [&titles](const std::string& title) {
    return std::count_if(titles.begin(), titles.end(),
                         [&title](const auto& list) { return has(list, title); }) > 1;
  };
  for (std::size_t r = 0; r < runs.size(); ++r) {
    if (std::any_of(titles[r].begin(), titles[r].end(), inSeveral)) result.runs.push_back(r);
  }
  const std::size_t first = result.runs.empty() ? 0 : result.runs.front();
  result.total = compareTotal(runs, result.sets, titles, first, result.errors_known);
  std::erase_if(result.sets, [&inSeveral](const Comparison& c) { return !inSeveral(c.title); });
  return result;
}
