// SPDX-License-Identifier: GPL-3.0-or-later
#include "Page.h"

#include "Chart.h"
#include "Style.h"
#include "Tables.h"
#include "Text.h"

#include <algorithm>
#include <cmath>

namespace {

using Status = Parameter::Status;

constexpr const char* kArrow = " \xe2\x86\x92 ";

std::string runId(std::size_t run) { return "r" + std::to_string(run + 1); }

std::string setId(std::size_t run, std::size_t set) {
  return runId(run) + "-s" + std::to_string(set + 1);
}

std::string link(const std::string& id, const std::string& text) {
  return "<a href=\"#" + id + "\">" + escaped(text) + "</a>";
}

std::string cell(const std::string& inner) { return "<td>" + inner + "</td>"; }

std::string right(const std::string& inner) { return "<td class=\"r\">" + inner + "</td>"; }

/// A number with its exact text for sorting and, on hovering, for reading; one that is not finite
/// is sorted last.
std::string numberCell(const std::string& shown, const std::string& exact,
                       const std::string& pad = "") {
  const std::string key = std::isfinite(toNumber(exact)) ? escaped(exact) : "";
  return "<td class=\"r\" data-v=\"" + key + "\" title=\"" + escaped(exact) + '"' + pad + '>' +
         escaped(shown) + "</td>";
}

/// -1 where the text is not of digits and a point alone.
int decimalsOf(const std::string& shown) {
  if (shown.find_first_not_of("-0123456789.") != std::string::npos) return -1;
  const std::size_t point = shown.find('.');
  return point == std::string::npos ? 0 : static_cast<int>(shown.size() - point) - 1;
}

/// The attribute by which the style sheet sets blanks behind a number with fewer decimals than its
/// column, so that the points stand below each other and copied cells stay numbers.
std::string padOf(const std::string& shown, int column) {
  constexpr int kMost = 6;  // as many as there are rules
  const int own = decimalsOf(shown);
  const int missing = std::min(column - own, kMost);
  if (own < 0 || missing <= 0) return "";
  return std::string(" data-pad=\"") + (own == 0 ? "." : "") + std::to_string(missing) + '"';
}

/// Fixed decimals where the size allows it, so that the digits of a column stand below each other.
std::string chiText(double value) {
  if (!std::isfinite(value)) return general(value, 4);
  return std::fabs(value) < 1e5 ? fixedPoint(value, 2) : general(value, 4);
}

std::string unitText(const std::string& unit) {
  return unit.empty() ? "" : " <span class=\"unit\">" + escaped(prettyUnit(unit)) + "</span>";
}

std::string headCell(const std::string& inner, bool sorts, bool number) {
  return std::string("<th scope=\"col\"") + (number ? " class=\"r\">" : ">") +
         (sorts ? "<button type=\"button\">" + inner + "</button>" : inner) + "</th>";
}

double errorOf(const Parameter& p) {
  if (p.error) return p.error->value;
  if (p.monte_error) return p.monte_error->value;
  return p.jack_error ? p.jack_error->value : 0.0;
}

/// Without an error: four digits, enough to compare sets.
std::string valueText(const Parameter& p) {
  const double value = p.value.value;
  const bool plain = std::isfinite(value) && std::fabs(value) >= 1e-3 && std::fabs(value) < 1e6;
  const bool derived = p.status == Status::kDerived && !(errorOf(p) > 0.0);
  if (!derived || !plain) return roundedTo(value, errorOf(p));
  return fixedPoint(value,
                    std::max(0, 3 - static_cast<int>(std::floor(std::log10(std::fabs(value))))));
}

std::string errorCell(const std::optional<Number>& error) {
  return error ? numberCell(roundedError(error->value), error->text) : "<td></td>";
}

std::string probability(const Run& run, double chi, double dof) {
  return run.errors_known ? probabilityText(chiProbability(chi, dof)) : "";
}

/// An axis label with its raised and lowered parts.
std::string labelHtml(const std::string& grace) {
  std::string html;
  for (const TextRun& run : graceText(grace)) {
    const std::string tag = run.level < 0 ? "sub" : run.level > 0 ? "sup" : run.slanted ? "i" : "";
    if (!tag.empty()) html.append("<").append(tag).append(">");
    html += escaped(run.text);
    if (!tag.empty()) html.append("</").append(tag).append(">");
  }
  return html;
}

class Page {
 public:
  Page(const std::vector<Run>& runs, const Comparisons& comparisons,
       const std::vector<Remark>& remarks)
      : runs_(runs), comparisons_(comparisons), remarks_(remarks) {}

  std::string make(const std::string& title) {
    head(title);
    remarkList();
    if (runs_.size() > 1) comparison();
    for (std::size_t r = 0; r < runs_.size(); ++r) runSection(r);
    out_ +=
        std::string("</main>\n<footer>dravo-report ") + DRAVO_VERSION +
        ". Residuals are differences to the plotted curves, which are interpolated between their "
        "points. Hover over a rounded number for all its digits.</footer>\n<script>" +
        kPageScript + "</script>\n</body>\n</html>\n";
    return std::move(out_);
  }

 private:
  void head(const std::string& title) {
    out_ +=
        "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
        "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
        // The browser itself keeps the page from fetching anything.
        "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; "
        "style-src 'unsafe-inline'; script-src 'unsafe-inline'; base-uri 'none'\">\n<title>" +
        escaped(title) + "</title>\n<style>" + kPageStyle + chartStyle() +
        "</style>\n</head>\n<body>\n<header>\n<h1>" + escaped(title) + "</h1>\n<nav>";
    out_ += link("remarks", "Remarks");
    if (runs_.size() > 1) out_ += link("comparison", "Comparison of models");
    for (std::size_t r = 0; r < runs_.size(); ++r) out_ += link(runId(r), runs_[r].name);
    out_ += "</nav>\n</header>\n<main>\n";
  }

  void remarkList() {
    out_ += "<h2 id=\"remarks\">Remarks</h2>\n";
    if (remarks_.empty()) {
      out_ +=
          "<p>None: no parameter at a bound, no error larger than its value, X2/DoF as noise gives "
          "it, minimisations that ended.</p>\n";
      return;
    }
    out_ += "<ul class=\"remarks\">\n";
    for (std::size_t r = 0; r < runs_.size(); ++r) {
      for (const RemarkKind& kind : remarkKinds()) remarkGroup(r, kind);
    }
    out_ += "</ul>\n";
  }

  /// Remarks on a run in full; those on several sets as one, since the sets have the full text.
  void remarkGroup(std::size_t r, const RemarkKind& kind) {
    std::vector<const Remark*> of_sets;
    const std::string run = runs_.size() > 1 ? link(runId(r), runs_[r].name) + ": " : "";
    const auto item = [this, &kind](const std::string& inner) {
      out_ += std::string("<li data-kind=\"") + kind.name + "\">" + inner + "</li>\n";
    };
    for (const Remark& remark : remarks_) {
      if (remark.run != r || remark.kind != kind.name) continue;
      if (remark.set) {
        of_sets.push_back(&remark);
      } else {
        item(run + escaped(remark.text));
      }
    }
    const auto linkTo = [this, r](const Remark& remark) {
      return link(setId(r, *remark.set), runs_[r].sets[*remark.set].title);
    };
    const bool one_set = std::all_of(of_sets.begin(), of_sets.end(), [&of_sets](const Remark* m) {
      return m->set == of_sets[0]->set;
    });
    if (one_set) {
      for (const Remark* remark : of_sets) {
        item(run + linkTo(*remark) + ": " + escaped(remark->text));
      }
      return;
    }
    std::string links;
    std::size_t count = 0;
    const Remark* last = nullptr;
    for (const Remark* remark : of_sets) {
      if (last != nullptr && last->set == remark->set) continue;
      links += (last == nullptr ? "" : ", ") + linkTo(*remark);
      last = remark;
      ++count;
    }
    item(run + escaped(kind.several) + " in " + std::to_string(count) + " of " +
         std::to_string(runs_[r].sets.size()) + " sets: " + links);
  }

  void comparison() {
    out_ += "<h2 id=\"comparison\">Comparison of models</h2>\n";
    if (comparisons_.runs.empty()) {
      out_ += "<p>No set stands in two runs under the same title: nothing is compared.</p>\n";
      return;
    }
    const auto formula = [](const std::string& text) {
      return "<span class=\"formula\">" + text + "</span>";
    };
    const std::string deviance = comparisons_.errors_known ? "X2" : "n ln(X2/n)";
    out_ += std::string("<p>The errors of the points are ") +
            (comparisons_.errors_known
                 ? "taken as Gaussian, independent and of the stated size: "
                 : "not known, and taken as Gaussian, independent and all equal: ") +
            formula("AIC = " + deviance + " + 2k") + ", " +
            formula("AICc = AIC + 2k(k + 1)/(n - k - 1)") + ", " +
            formula("BIC = " + deviance + " + k ln n") + ", with n points and k " +
            (comparisons_.errors_known ? "adjustable parameters. "
                                       : "counting the size of the error too. ") +
            "The smallest value of a criterion is in bold; differences below 2 mean little.</p>\n"
            "<p>The F test asks how often noise alone would lower X2 as much as the additional "
            "parameters did: it does not need the size of the errors, but the smaller model must "
            "be a special case of the larger. Where it is a limit at the edge of a range (no "
            "exchange: kex then means nothing) p is approximate.</p>\n"
            "<p>In a set, a shared parameter counts as one over the number of its sets, and X2 is "
            "not the least that the set could have alone: trust the total there. All criteria "
            "compare fits of the same points, which has been checked: by x0, y and error.</p>\n";
    warnDifferences();
    if (comparisons_.total.criteria.size() > 1) {
      out_ += "<h3>All sets together</h3>\n<p id=\"verdict\">Smallest AIC: " +
              bestName(&Criteria::aic) + ", AICc: " + bestName(&Criteria::aicc) +
              ", BIC: " + bestName(&Criteria::bic) + ".</p>\n";
      totalTable();
      testTable(comparisons_.total);
    }
    if (comparisons_.sets.size() > 1 || comparisons_.total.criteria.size() < 2) setTable();
  }

  void warnDifferences() {
    std::string items;
    const std::size_t first = comparisons_.runs.front();
    for (const std::size_t r : comparisons_.runs) {
      const std::string& different = comparisons_.total.different[r];
      if (different.empty()) continue;
      items += "<li data-kind=\"data-differ\">The data of " + link(runId(r), runs_[r].name) +
               " are not those of " + link(runId(first), runs_[first].name) + " (" +
               escaped(different) + "): its X2 and criteria cannot be compared as a whole.</li>\n";
    }
    if (const std::size_t others = runs_.size() - comparisons_.runs.size(); others > 0) {
      items += "<li data-kind=\"data-differ\">" + std::to_string(others) + " of " +
               std::to_string(runs_.size()) +
               " runs have no set that another run has too, and are not compared.</li>\n";
    }
    if (!items.empty()) out_ += "<ul class=\"remarks\">\n" + items + "</ul>\n";
  }

  std::string bestName(double Criteria::*criterion) const {
    const Criteria* best = comparisons_.total.best(criterion);
    return best == nullptr ? "none" : link(runId(best->run), runs_[best->run].name);
  }

  static std::string criterionCell(const Comparison& c, const Criteria& one,
                                   double Criteria::*criterion) {
    const Criteria* best = c.best(criterion);
    const double value = one.*criterion;
    if (!std::isfinite(value)) return "<td class=\"r soft\" data-v=\"\">too few points</td>";
    const bool is_best = best != nullptr && best->run == one.run;
    return std::string("<td class=\"r") + (is_best ? " best" : "") + "\" data-v=\"" +
           general(value, 10) + "\">" + chiText(value) + "</td>";
  }

  void totalTable() {
    const Comparison& total = comparisons_.total;
    out_ += "<div class=\"wide\"><table id=\"criteria\"><thead><tr>";
    for (const char* name : {"Run", "Model"}) out_ += headCell(name, false, false);
    for (const char* name : {"n", "k", "X2", "X2/DoF", "probability", "AIC", "AICc", "BIC"}) {
      out_ += headCell(name, false, true);
    }
    out_ += "</tr></thead><tbody>\n";
    for (const Criteria& c : total.criteria) {
      const Run& run = runs_[c.run];
      out_ += "<tr>" + cell(link(runId(c.run), run.name)) + cell(run.model->name) +
              right(std::to_string(c.points)) + right(general(c.parameters, 6)) +
              right(chiText(c.chi)) + right(chiText(run.report.reduced_chi.value)) +
              right(escaped(probability(run, c.chi, run.report.dof))) +
              criterionCell(total, c, &Criteria::aic) + criterionCell(total, c, &Criteria::aicc) +
              criterionCell(total, c, &Criteria::bic) + "</tr>\n";
    }
    out_ += "</tbody></table></div>\n";
  }

  static std::string nestingText(const FTest& test) {
    switch (test.nesting) {
      case FTest::Nesting::kSameModel: return "the same model with fewer adjustable parameters";
      case FTest::Nesting::kLimit: return "a limit of the larger model";
      case FTest::Nesting::kUnknown: break;
    }
    return "not known to be a special case: judge before you use p";
  }

  void testTable(const Comparison& c) {
    if (c.tests.empty()) return;
    out_ += "<div class=\"wide\"><table id=\"f-tests\"><thead><tr>";
    for (const char* name : {"Smaller", "Larger"}) out_ += headCell(name, false, false);
    for (const char* name : {"more parameters", "DoF", "F", "p"}) {
      out_ += headCell(name, false, true);
    }
    out_ += headCell("The smaller model is", false, false) + "</tr></thead><tbody>\n";
    for (const FTest& t : c.tests) {
      out_ += "<tr>" + cell(link(runId(t.simple), runs_[t.simple].name)) +
              cell(link(runId(t.rich), runs_[t.rich].name)) + right(general(t.extra, 6)) +
              right(general(t.dof, 6)) + right(chiText(t.f)) +
              right(escaped(probabilityText(t.p))) + cell(nestingText(t)) + "</tr>\n";
    }
    out_ += "</tbody></table></div>\n";
  }

  using Pair = std::pair<std::size_t, std::size_t>;

  /// Runs of which one is known to be a special case of the other, in some set.
  std::vector<Pair> nestedPairs() const {
    std::vector<Pair> pairs;
    for (const Comparison& c : comparisons_.sets) {
      for (const FTest& t : c.tests) {
        const Pair pair(t.simple, t.rich);
        const bool known = std::find(pairs.begin(), pairs.end(), pair) != pairs.end();
        if (t.nesting != FTest::Nesting::kUnknown && !known) pairs.push_back(pair);
      }
    }
    std::sort(pairs.begin(), pairs.end());
    return pairs;
  }

  /// A row for each set: X2/DoF and AICc of each run, the best by AICc and BIC, p of each F test.
  void setTable() {
    const std::vector<Pair> pairs = nestedPairs();
    out_ +=
        "<h3>Set by set</h3>\n<div class=\"wide\"><table class=\"sortable\" id=\"set-criteria\">"
        "<thead><tr>" +
        headCell("Set", true, false);
    for (const std::size_t r : comparisons_.runs) {
      out_ += headCell(escaped(runs_[r].name) + " <span class=\"unit\">X2/DoF</span>", true, true);
      out_ += headCell("<span class=\"unit\">AICc</span>", true, true);
    }
    out_ += headCell("best by AICc", true, false) + headCell("by BIC", true, false);
    for (const auto& [simple, rich] : pairs) {
      out_ += headCell("p <span class=\"unit\">" +
                           escaped(runs_[simple].name + kArrow + runs_[rich].name) + "</span>",
                       true, true);
    }
    out_ += headCell("", false, false) + "</tr></thead><tbody>\n";
    for (const Comparison& c : comparisons_.sets) setTableRow(c, pairs);
    out_ += "</tbody></table></div>\n";
  }

  void setTableRow(const Comparison& c, const std::vector<Pair>& pairs) {
    std::string differences;
    out_ += "<tr>" + cell(escaped(c.title));
    for (const std::size_t r : comparisons_.runs) {
      const Criteria* one = c.of(r);
      if (one == nullptr) {
        out_ += "<td data-v=\"\"></td><td data-v=\"\"></td>";
        differences += runs_[r].name + " is not compared: " + c.different[r] + ". ";
        continue;
      }
      out_ += numberCell(chiText(one->reduced_chi), general(one->reduced_chi, 6)) +
              criterionCell(c, *one, &Criteria::aicc);
    }
    for (double Criteria::*criterion : {&Criteria::aicc, &Criteria::bic}) {
      const Criteria* best = c.criteria.size() > 1 ? c.best(criterion) : nullptr;
      out_ += cell(best == nullptr ? "" : escaped(runs_[best->run].name));
    }
    for (const Pair& pair : pairs) {
      const auto test = std::find_if(c.tests.begin(), c.tests.end(), [&pair](const FTest& t) {
        return Pair(t.simple, t.rich) == pair;
      });
      out_ += test == c.tests.end() ? "<td data-v=\"\"></td>"
                                    : numberCell(probabilityText(test->p), general(test->p, 6));
    }
    out_ += "<td class=\"soft\">" + escaped(differences) + "</td></tr>\n";
  }

  void runSection(std::size_t r) {
    const Run& run = runs_[r];
    out_ += "<h2 id=\"" + runId(r) + "\">" + escaped(run.name) + "</h2>\n";
    facts(run);
    sharedTable(run);
    if (run.sets.size() > 1) {
      out_ += "<h3>All sets</h3>\n";
      overview(r);
      const std::vector<Figure> along = alongFigures(run);
      if (!along.empty()) out_ += "<h3>Parameters along the sets</h3>\n<div class=\"along\">\n";
      for (const Figure& figure : along) out_ += inlineSvg(figure) + '\n';
      if (!along.empty()) out_ += "</div>\n";
      multiples(r);
    }
    out_ += "<h3>Set by set</h3>\n";
    for (std::size_t s = 0; s < run.sets.size(); ++s) setSection(r, s);
  }

  void facts(const Run& run) {
    const auto fact = [this](const char* name, const std::string& inner) {
      out_ += std::string("<dt>") + name + "</dt><dd>" + inner + "</dd>\n";
    };
    out_ += "<dl class=\"facts\">\n";
    fact("Model", escaped(std::string(run.model->name) + ", " + run.report.equation));
    fact("Files", escaped(baseName(run.report.path) + ", " + baseName(run.input.path)));
    std::string path;
    for (const ChiLine& line : run.report.chi_lines) {
      path += (path.empty() ? "" : kArrow) + line.label + ' ' + line.reduced_chi.text;
    }
    fact("X2/DoF by method", escaped(path));
    const std::string p = probability(run, run.chi(), run.report.dof);
    fact("Fit",
         escaped(std::to_string(run.sets.size()) + (run.sets.size() == 1 ? " set, " : " sets, ") +
                 std::to_string(run.report.points) + " points, " +
                 std::to_string(run.adjustable()) + " adjustable parameters; X2/DoF " +
                 run.report.reduced_chi.text + ", DoF " + std::to_string(run.report.dof)) +
             (p.empty() ? "" : escaped(", probability " + p)));
    std::string errors = "covariance";
    if (run.has_jack) errors += ", jackknife";
    if (run.has_monte) errors += ", Monte Carlo";
    if (run.has_jack && !run.shares()) {
      errors +=
          ". Without shared parameters the jackknife displaces points: its errors come out larger "
          "than those of a plain one";
    }
    if (!run.errors_known) {
      errors += ". The points have no errors: those of the parameters lack a scale";
    }
    fact("Errors", escaped(errors));
    if (run.errors_known && run.shares()) {
      fact("Probability",
           "in a set, a shared parameter counts as one over the number of its sets; DoF counts it "
           "in "
           "full");
    }
    out_ += "</dl>\n";
  }

  void parameterHead(const Run& run) {
    out_ += "<thead><tr>" + headCell("Parameter", false, false) + headCell("value", false, true) +
            headCell(run.has_jack || run.has_monte ? "covariance" : "error", false, true);
    if (run.has_jack) out_ += headCell("jackknife", false, true);
    if (run.has_monte) out_ += headCell("Monte Carlo", false, true);
    out_ += headCell("unit", false, false) + "</tr></thead><tbody>\n";
  }

  void parameterRow(const Run& run, const Parameter& p, const std::string& name,
                    const std::string& note) {
    out_ += "<tr><td>" + escaped(name) +
            (note.empty() ? "" : " <span class=\"soft\">" + escaped(note) + "</span>") + "</td>" +
            numberCell(valueText(p), p.value.text) + errorCell(p.error);
    if (run.has_jack) out_ += errorCell(p.jack_error);
    if (run.has_monte) out_ += errorCell(p.monte_error);
    out_ += cell(escaped(prettyUnit(p.unit))) + "</tr>\n";
  }

  /// Each shared parameter once, with the number of its sets.
  void sharedTable(const Run& run) {
    if (!run.shares()) return;
    std::vector<std::pair<const Parameter*, int>> shared;
    for (const Set& set : run.sets) {
      for (const Parameter& p : set.parameters) {
        if (p.status != Status::kShared) continue;
        const auto known = std::find_if(shared.begin(), shared.end(), [&p](const auto& entry) {
          return entry.first->shared_name == p.shared_name;
        });
        if (known == shared.end()) {
          shared.emplace_back(&p, 1);
        } else {
          ++known->second;
        }
      }
    }
    out_ += "<h3>Shared parameters</h3>\n<div class=\"wide\"><table>";
    parameterHead(run);
    for (const auto& [p, count] : shared) {
      parameterRow(run, *p, p->shared_name, "in " + std::to_string(count) + " sets");
    }
    out_ += "</tbody></table></div>\n";
  }

  /// Names of the columns of the overview: what is not shared and not fixed in some set.
  static std::vector<const Parameter*> columnsOf(const Run& run) {
    std::vector<const Parameter*> columns;
    for (const Set& set : run.sets) {
      for (const Parameter& p : set.parameters) {
        const bool known = std::any_of(columns.begin(), columns.end(),
                                       [&p](const Parameter* c) { return c->name == p.name; });
        const bool varies = p.status == Status::kAdjustable || p.status == Status::kDerived;
        if (varies && !known) columns.push_back(&p);
      }
    }
    return columns;
  }

  std::size_t remarksOn(std::size_t r, std::size_t s) const {
    return static_cast<std::size_t>(
        std::count_if(remarks_.begin(), remarks_.end(), [r, s](const Remark& remark) {
          return remark.run == r && remark.set && *remark.set == s;
        }));
  }

  void overview(std::size_t r) {
    const Run& run = runs_[r];
    const std::vector<const Parameter*> columns = columnsOf(run);
    out_ += "<div class=\"wide\"><table class=\"sortable\" id=\"overview-" + runId(r) +
            "\"><thead><tr>" + headCell("Set", true, false) + headCell("points", true, true) +
            headCell("X2/DoF", true, true);
    if (run.errors_known) out_ += headCell("probability", true, true);
    for (const Parameter* p : columns) {
      out_ += headCell(escaped(p->name) + unitText(p->unit), true, true) +
              headCell("error", true, true);
    }
    out_ += headCell("remarks", true, true) + "</tr></thead><tbody>\n";
    std::vector<Column> numbers;
    numbers.reserve(columns.size());
    for (const Parameter* p : columns) numbers.push_back(columnOf(run, p->name));
    for (std::size_t s = 0; s < run.sets.size(); ++s) overviewRow(r, s, numbers);
    out_ += "</tbody></table></div>\n";
  }

  static const Parameter* find(const Set& set, const std::string& name) {
    const auto p = std::find_if(set.parameters.begin(), set.parameters.end(),
                                [&name](const Parameter& q) { return q.name == name; });
    return p == set.parameters.end() ? nullptr : &*p;
  }

  /// Two columns of the overview: value and error.
  struct Column {
    std::string name;
    int value_decimals = 0;  // the most in any row
    int error_decimals = 0;
  };

  static Column columnOf(const Run& run, const std::string& name) {
    Column column{name};
    for (const Set& set : run.sets) {
      const Parameter* p = find(set, name);
      if (p == nullptr) continue;
      column.value_decimals = std::max(column.value_decimals, decimalsOf(valueText(*p)));
      if (!(errorOf(*p) > 0.0)) continue;
      column.error_decimals =
          std::max(column.error_decimals, decimalsOf(roundedError(errorOf(*p))));
    }
    return column;
  }

  void overviewRow(std::size_t r, std::size_t s, const std::vector<Column>& columns) {
    const Run& run = runs_[r];
    const Set& set = run.sets[s];
    out_ += "<tr><td>" + link(setId(r, s), set.title) + "</td>" +
            right(std::to_string(set.points)) +
            numberCell(chiText(set.reduced_chi.value), set.reduced_chi.text);
    if (run.errors_known) {
      const double p = chiProbability(set.chi(), set.shareDof());
      out_ += numberCell(probabilityText(p), general(p, 6));
    }
    for (const Column& column : columns) {
      const Parameter* p = find(set, column.name);
      if (p == nullptr) {
        out_ += "<td data-v=\"\"></td><td data-v=\"\"></td>";
        continue;
      }
      const std::string value = valueText(*p);
      out_ += numberCell(value, p->value.text, padOf(value, column.value_decimals));
      const double error = errorOf(*p);
      const std::string shown = roundedError(error);
      out_ += error > 0.0
                  ? numberCell(shown, general(error, 6), padOf(shown, column.error_decimals))
                  : "<td data-v=\"\"></td>";
    }
    const std::size_t count = remarksOn(r, s);
    out_ += "<td class=\"r flag\" data-v=\"" + std::to_string(count) + "\">" +
            (count > 0 ? std::to_string(count) : "") + "</td></tr>\n";
  }

  void multiples(std::size_t r) {
    const Run& run = runs_[r];
    out_ += "<h3>Small multiples</h3>\n<p class=\"soft\">" + labelHtml(run.y_label) + " against " +
            labelHtml(run.x_label) +
            ", each with a y axis of its own; X2/DoF at the right.</p>\n<div class=\"small\">\n";
    for (std::size_t s = 0; s < run.sets.size(); ++s) {
      const Set& set = run.sets[s];
      out_ += "<a href=\"#" + setId(r, s) + "\"><span><b>" + escaped(set.title) + "</b>" +
              escaped(chiText(set.reduced_chi.value)) + "</span>" +
              inlineSvg(smallFigure(run, set)) + "</a>\n";
    }
    out_ += "</div>\n";
  }

  static std::string noteOf(const Parameter& p) {
    if (p.status == Status::kShared) {
      return p.shared_name == p.name ? "shared" : "shared " + p.shared_name;
    }
    if (p.status == Status::kFixed) return "fixed";
    if (p.status == Status::kDerived) return "derived";
    const std::string bound = boundOf(p);
    return bound.empty() ? "" : "at " + bound + " bound";
  }

  void setSection(std::size_t r, std::size_t s) {
    const Run& run = runs_[r];
    const Set& set = run.sets[s];
    const std::string p = probability(run, set.chi(), set.shareDof());
    out_ += "<section class=\"set\" id=\"" + setId(r, s) + "\"><h3>" + escaped(set.title) +
            " <span class=\"soft unit\">X2/DoF " + escaped(chiText(set.reduced_chi.value)) +
            ", DoF " + std::to_string(set.dof) + (p.empty() ? "" : ", probability " + escaped(p)) +
            "</span></h3>\n<div class=\"cols\"><div>" + inlineSvg(setFigure(run, set)) +
            "</div><div><div class=\"wide\"><table>";
    parameterHead(run);
    for (const Parameter& q : set.parameters) parameterRow(run, q, q.name, noteOf(q));
    out_ += "</tbody></table></div>\n";
    std::string items;
    for (const Remark& remark : remarks_) {
      const bool here = remark.run == r && remark.set && *remark.set == s;
      if (here) items += "<li>" + escaped(remark.text) + "</li>\n";
    }
    if (!items.empty()) out_ += "<ul class=\"remarks\">\n" + items + "</ul>\n";
    out_ += "</div></div></section>\n";
  }

  const std::vector<Run>& runs_;
  const Comparisons& comparisons_;
  const std::vector<Remark>& remarks_;
  std::string out_;
};

}  // namespace

std::string makePage(const std::string& title, const std::vector<Run>& runs,
                     const Comparisons& comparisons, const std::vector<Remark>& remarks) {
  return Page(runs, comparisons, remarks).make(title);
}
