// SPDX-License-Identifier: GPL-3.0-or-later
#include "Tables.h"

#include "Text.h"

#include <nlohmann/json.hpp>

#include <cmath>

namespace {

using Json = nlohmann::ordered_json;

constexpr int kFormat = 1;  // raised when a column or key changes its meaning or goes

std::string textOf(const std::optional<Number>& number) { return number ? number->text : ""; }

std::string textOf(const std::optional<double>& number) {
  return number ? general(*number, 10) : "";
}

/// A cell of a CSV line, quoted where it must be.
std::string cell(const std::string& text) {
  if (text.find_first_of("\",\r\n") == std::string::npos) return text;
  std::string quoted = "\"";
  for (const char c : text) quoted += c == '"' ? std::string("\"\"") : std::string(1, c);
  return quoted + '"';
}

Json numberOf(double value) { return std::isfinite(value) ? Json(value) : Json(nullptr); }

Json numberOf(const std::optional<Number>& number) {
  return number ? numberOf(number->value) : Json(nullptr);
}

Json numberOf(const std::optional<double>& number) {
  return number ? numberOf(*number) : Json(nullptr);
}

Json parameterRow(const Run& run, const Set& set, const Parameter& p) {
  Json row;
  row["run"] = cleanText(run.name);
  row["set"] = cleanText(set.title);
  row["name"] = cleanText(p.name);
  row["status"] = statusName(p.status);
  row["shared_as"] = p.shared_name.empty() ? Json(nullptr) : Json(cleanText(p.shared_name));
  row["unit"] = p.unit;
  row["value"] = numberOf(p.value.value);
  row["error"] = numberOf(p.error);
  row["jackknife_mean"] = numberOf(p.jack_mean);
  row["jackknife_error"] = numberOf(p.jack_error);
  row["montecarlo_mean"] = numberOf(p.monte_mean);
  row["montecarlo_error"] = numberOf(p.monte_error);
  row["low"] = numberOf(p.low);
  row["high"] = numberOf(p.high);
  row["at_bound"] = boundOf(p).empty() ? Json(nullptr) : Json(boundOf(p));
  return row;
}

/// With the points of each series, their place on the curve and their residuals.
Json setRow(const Run& run, const Set& set) {
  Json row;
  row["run"] = cleanText(run.name);
  row["set"] = cleanText(set.title);
  row["points"] = set.points;
  row["dof"] = set.dof;
  row["reduced_chi_square"] = numberOf(set.reduced_chi.value);
  row["probability"] =
      run.errors_known ? numberOf(chiProbability(set.chi(), set.shareDof())) : Json(nullptr);
  row["curve_missing"] = set.plot_note.empty() ? Json(nullptr) : Json(cleanText(set.plot_note));
  row["series"] = Json::array();
  for (const Series& series : set.series) {
    Json one;
    one["name"] = cleanText(series.name);
    one["labels"] = cleanText(series.labels);
    one["points"] = Json::array();
    for (const SeriesPoint& point : series.points) {
      Json cells;
      cells["x"] = numberOf(point.x);
      cells["y"] = numberOf(point.y);
      cells["error"] = run.errors_known ? numberOf(point.error) : Json(nullptr);
      cells["fit"] = numberOf(point.fit);
      one["points"].push_back(cells);
    }
    row["series"].push_back(one);
  }
  return row;
}

Json runRow(const Run& run) {
  Json row;
  row["run"] = cleanText(run.name);
  row["report"] = cleanText(run.report.path);
  row["input"] = cleanText(run.input.path);
  row["model"] = run.model->name;
  row["equation"] = cleanText(run.report.equation);
  row["methods"] = Json::array();
  for (const ChiLine& line : run.report.chi_lines) {
    row["methods"].push_back({{"method", cleanText(line.label)},
                              {"reduced_chi_square", numberOf(line.reduced_chi.value)}});
  }
  row["points"] = run.report.points;
  row["adjustable"] = run.adjustable();
  row["dof"] = run.report.dof;
  row["reduced_chi_square"] = numberOf(run.report.reduced_chi.value);
  row["probability"] =
      run.errors_known ? numberOf(chiProbability(run.chi(), run.report.dof)) : Json(nullptr);
  row["errors_known"] = run.errors_known;
  row["x_axis"] = cleanText(gracePlain(run.x_label));
  row["y_axis"] = cleanText(gracePlain(run.y_label));
  return row;
}

Json comparisonRow(const std::vector<Run>& runs, const Comparison& comparison) {
  Json row;
  row["set"] = cleanText(comparison.title);
  row["criteria"] = Json::array();
  for (const Criteria& c : comparison.criteria) {
    row["criteria"].push_back({{"run", cleanText(runs[c.run].name)},
                               {"chi_square", numberOf(c.chi)},
                               {"points", c.points},
                               {"parameters", c.parameters},
                               {"aic", numberOf(c.aic)},
                               {"aicc", numberOf(c.aicc)},
                               {"bic", numberOf(c.bic)}});
  }
  row["f_tests"] = Json::array();
  for (const FTest& t : comparison.tests) {
    row["f_tests"].push_back({{"simple", cleanText(runs[t.simple].name)},
                              {"rich", cleanText(runs[t.rich].name)},
                              {"extra_parameters", t.extra},
                              {"dof", t.dof},
                              {"f", numberOf(t.f)},
                              {"p", numberOf(t.p)},
                              {"nesting", nestingName(t.nesting)}});
  }
  row["not_compared"] = Json::array();
  for (std::size_t r = 0; r < comparison.different.size(); ++r) {
    if (comparison.different[r].empty()) continue;
    row["not_compared"].push_back(
        {{"run", cleanText(runs[r].name)}, {"reason", cleanText(comparison.different[r])}});
  }
  return row;
}

Json remarkRow(const std::vector<Run>& runs, const Remark& remark) {
  const Run& run = runs[remark.run];
  Json row;
  row["kind"] = remark.kind;
  row["run"] = cleanText(run.name);
  row["set"] = remark.set ? Json(cleanText(run.sets[*remark.set].title)) : Json(nullptr);
  row["parameter"] = remark.parameter.empty() ? Json(nullptr) : Json(cleanText(remark.parameter));
  row["text"] = cleanText(remark.text);
  return row;
}

}  // namespace

const char* statusName(Parameter::Status status) {
  switch (status) {
    case Parameter::Status::kAdjustable: return "adjustable";
    case Parameter::Status::kShared: return "shared";
    case Parameter::Status::kFixed: return "fixed";
    case Parameter::Status::kDerived: return "derived";
  }
  return "";
}

const char* nestingName(FTest::Nesting nesting) {
  switch (nesting) {
    case FTest::Nesting::kSameModel: return "same model";
    case FTest::Nesting::kLimit: return "limit";
    case FTest::Nesting::kUnknown: return "unknown";
  }
  return "";
}

std::string makeCsv(const std::vector<Run>& runs) {
  std::string csv =
      "run,model,set,name,status,shared_as,unit,value,error,jackknife_mean,jackknife_error,"
      "montecarlo_mean,montecarlo_error,low,high,at_bound,points,dof,reduced_chi_square,"
      "probability\n";
  for (const Run& run : runs) {
    for (const Set& set : run.sets) {
      const double p = chiProbability(set.chi(), set.shareDof());
      const std::string probability = run.errors_known && std::isfinite(p) ? general(p, 6) : "";
      for (const Parameter& q : set.parameters) {
        for (const std::string& text :
             {run.name, std::string(run.model->name), set.title, q.name,
              std::string(statusName(q.status)), q.shared_name, q.unit, q.value.text,
              textOf(q.error), textOf(q.jack_mean), textOf(q.jack_error), textOf(q.monte_mean),
              textOf(q.monte_error), textOf(q.low), textOf(q.high), boundOf(q),
              std::to_string(set.points), std::to_string(set.dof), set.reduced_chi.text}) {
          csv += cell(text) + ',';
        }
        csv += probability + '\n';
      }
    }
  }
  return csv;
}

std::string makeJson(const std::vector<Run>& runs, const Comparisons& comparisons,
                     const std::vector<Remark>& remarks) {
  Json all;
  all["format"] = kFormat;
  for (const char* key : {"runs", "parameters", "sets", "remarks"}) all[key] = Json::array();
  for (const Run& run : runs) {
    all["runs"].push_back(runRow(run));
    for (const Set& set : run.sets) {
      all["sets"].push_back(setRow(run, set));
      for (const Parameter& p : set.parameters) {
        all["parameters"].push_back(parameterRow(run, set, p));
      }
    }
  }
  for (const Remark& remark : remarks) all["remarks"].push_back(remarkRow(runs, remark));
  if (runs.size() > 1) {
    Json& comparison = all["comparison"];
    comparison["errors_known"] = comparisons.errors_known;
    comparison["total"] = comparisonRow(runs, comparisons.total);
    comparison["sets"] = Json::array();
    for (const Comparison& set : comparisons.sets) {
      comparison["sets"].push_back(comparisonRow(runs, set));
    }
  }
  return all.dump(1) + '\n';
}
