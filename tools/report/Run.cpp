// SPDX-License-Identifier: GPL-3.0-or-later
#include "Run.h"

#include "Files.h"
#include "Text.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <map>

namespace {

using Curve = std::vector<std::array<double, 2>>;

/// FILE.in beside REPORT, named like it, or the only one there.
std::string findInput(const std::string& report) {
  const std::filesystem::path path(report);
  std::string named = std::filesystem::path(path).replace_extension(".in").string();
  if (fileExists(named)) return named;
  std::vector<std::string> found;
  std::error_code error;
  const auto directory = path.has_parent_path() ? path.parent_path() : ".";
  for (const auto& entry : std::filesystem::directory_iterator(directory, error)) {
    if (entry.path().extension() == ".in") found.push_back(entry.path().string());
  }
  if (found.size() != 1) {
    fail(report, "its input is neither " + named + " nor the only .in file there; use --input");
  }
  return found[0].compare(0, 2, "./") == 0 ? found[0].substr(2) : found[0];
}

/// For each set of the report its place in the input; a set that had too few points is only there.
std::vector<std::size_t> matchSets(const Report& report, const Input& input) {
  std::vector<std::size_t> places;
  std::size_t next = 0;
  std::size_t points = 0;
  for (const ReportSet& set : report.sets) {
    while (next < input.sets.size() && input.sets[next].title != set.title) ++next;
    if (next == input.sets.size()) {
      fail(input.path, "is not the input of " + report.path + ": it has no set " + set.title);
    }
    points += input.sets[next].points.size();
    places.push_back(next++);
  }
  if (points != static_cast<std::size_t>(report.points)) {
    fail(input.path, "is not the input of " + report.path + ": its sets have " +
                         std::to_string(points) + " points, the report " +
                         std::to_string(report.points));
  }
  return places;
}

/// Users of each GPAR name among the sets that were fitted.
std::map<std::string, int> countUsers(const Input& input, const std::vector<std::size_t>& places) {
  std::map<std::string, int> users;
  for (const std::size_t place : places) {
    for (const Declaration& d : input.sets[place].declarations) {
      if (d.kind == Declaration::Kind::kReference) ++users[d.global];
    }
  }
  return users;
}

const Declaration* findDeclaration(const std::vector<Declaration>& list, const std::string& name) {
  const auto found = std::find_if(list.begin(), list.end(),
                                  [&name](const Declaration& d) { return d.name == name; });
  return found == list.end() ? nullptr : &*found;
}

/// Status, unit and legal range of a parameter from its declaration and the model.
void describe(Parameter& parameter, const Run& run, const Declaration& own, int users) {
  const Declaration* declaration = &own;
  if (own.kind == Declaration::Kind::kReference) {
    declaration = findDeclaration(run.input.globals, own.global);
    if (declaration == nullptr) {
      fail(run.input.path, "is not the input of " + run.report.path + ": it has no " + own.global);
    }
    parameter.shared_name = own.global;
    if (users > 1) parameter.status = Parameter::Status::kShared;
  }
  if (!parameter.error) parameter.status = Parameter::Status::kFixed;
  const ParameterRow* row = findParameter(*run.model, parameter.name);
  if (row != nullptr) parameter.unit = row->unit;
  if (parameter.status == Parameter::Status::kFixed) return;
  if (declaration->kind == Declaration::Kind::kRestrained) {
    parameter.low = declaration->low;
    parameter.high = declaration->high;
  } else if (row != nullptr) {
    parameter.low = row->low;
    parameter.high = row->high;
  }
}

void addAnalysis(Parameter& parameter, const std::optional<Analysis>& analysis, std::size_t set,
                 std::size_t i, std::optional<Number> Parameter::*mean,
                 std::optional<Number> Parameter::*error) {
  if (!analysis) return;
  if (!analysis->errors[set][i].error) return;  // fixed
  parameter.*mean = analysis->means[set][i].value;
  parameter.*error = analysis->errors[set][i].error;
}

Parameter makeParameter(const Run& run, const Value& value, const InputSet& input,
                        const std::map<std::string, int>& users, std::size_t place) {
  Parameter parameter;
  parameter.name = value.name;
  parameter.base = value.name.substr(0, value.name.find('_'));
  parameter.value = value.value;
  parameter.error = value.error;
  if (value.quantity) {
    parameter.status = Parameter::Status::kDerived;
    parameter.base = value.name;
    for (const CalcLine& calc : run.input.calcs) {
      if (calc.label == value.name) parameter.unit = quantityUnit(calc.type);
    }
    return parameter;
  }
  // Both lists are in the order of the input, so that a name declared twice is no trouble.
  const bool same =
      place < input.declarations.size() && input.declarations[place].name == value.name;
  if (!same) {
    fail(run.input.path, "is not the input of " + run.report.path + ": set " + input.title +
                             " does not declare " + value.name + " there");
  }
  const Declaration& own = input.declarations[place];
  const auto count = users.find(own.global);
  describe(parameter, run, own, count == users.end() ? 0 : count->second);
  return parameter;
}

/// The curve at x by a cubic through the four nearest points; nothing outside of it.
std::optional<double> interpolate(const Curve& curve, double x) {
  if (curve.empty()) return std::nullopt;
  const double slack = 1e-5 * std::max(std::fabs(curve.front()[0]), std::fabs(curve.back()[0]));
  const bool inside = x >= curve.front()[0] - slack && x <= curve.back()[0] + slack;
  if (!inside) return std::nullopt;
  const auto above = std::lower_bound(curve.begin(), curve.end(), x,
                                      [](const auto& node, double at) { return node[0] < at; });
  const auto nodes = static_cast<std::ptrdiff_t>(std::min<std::size_t>(4, curve.size()));
  const std::ptrdiff_t last = std::ssize(curve) - nodes;
  const std::ptrdiff_t first = std::clamp<std::ptrdiff_t>(above - curve.begin() - 2, 0, last);
  double sum = 0.0;
  for (std::ptrdiff_t i = first; i < first + nodes; ++i) {
    const auto& node = curve[static_cast<std::size_t>(i)];
    double term = node[1];
    for (std::ptrdiff_t k = first; k < first + nodes; ++k) {
      if (k == i) continue;
      const double other = curve[static_cast<std::size_t>(k)][0];
      if (other == node[0]) return node[1];  // a range of no width
      term *= (x - other) / (node[0] - other);
    }
    sum += term;
  }
  return sum;
}

/// The points of the set by their labels, named by the first PLOT line for them.
std::vector<Series> makeSeries(const Input& input, const InputSet& set) {
  std::vector<Series> series;
  for (const Point& point : set.points) {
    auto place = std::find_if(series.begin(), series.end(),
                              [&point](const Series& s) { return s.labels == point.labels; });
    if (place == series.end()) {
      const auto plot = std::find_if(input.plots.begin(), input.plots.end(),
                                     [&point](const auto& p) { return p.labels == point.labels; });
      const std::string name = plot != input.plots.end() ? plot->name
                               : input.model->labels > 0 ? "labels " + point.labels
                                                         : "data";
      place = series.insert(series.end(), Series{name, point.labels, {}, {}});
    }
    place->points.push_back({point.x[0], point.y, point.error, std::nullopt});
  }
  return series;
}

/// True when the printed points of the plot are those of the input.
bool samePoints(const PlotSeries& plot, const Series& series, bool errors) {
  if (plot.points.size() != series.points.size()) return false;
  const auto near = [](double a, double b) { return std::fabs(a - b) <= 1e-5 * std::fabs(b); };
  for (std::size_t i = 0; i < plot.points.size(); ++i) {
    const SeriesPoint& point = series.points[i];
    const bool same = near(plot.points[i][0], point.x) && near(plot.points[i][1], point.y) &&
                      (!errors || near(plot.points[i][2], point.error));
    if (!same) return false;
  }
  return true;
}

/// True when the box has the values of the report: five digits under the name, or that of the GPAR
/// line.
bool sameBox(const Plot& plot, const Set& set, int digits) {
  constexpr int kBoxDigits = 5;
  constexpr std::size_t kNameWidth = 12;
  std::size_t item = 0;
  for (const Parameter& parameter : set.parameters) {
    if (parameter.status == Parameter::Status::kDerived) continue;
    if (item == plot.box.size()) return false;
    const std::string& name =
        parameter.shared_name.empty() ? parameter.name : parameter.shared_name;
    const std::string& text = plot.box[item++];
    if (text.compare(0, name.size(), name) != 0) return false;
    const std::size_t start = std::min(text.size(), std::max(kNameWidth, name.size()));
    const double shown = toNumber(text.substr(start));
    if (!sameRounded(parameter.value.value, digits, shown, kBoxDigits)) return false;
  }
  return item == plot.box.size();
}

/// Gives the curves of the plot file to the series; returns why not, or "".
std::string addCurves(const Plot& plot, const Input& input, int digits, Set& set) {
  if (!sameBox(plot, set, digits)) return "the plot file has other values than the report";
  std::size_t next = 0;
  for (const PlotLine& line : input.plots) {
    const auto series = std::find_if(set.series.begin(), set.series.end(),
                                     [&line](const Series& s) { return s.labels == line.labels; });
    if (series == set.series.end()) continue;  // the set has no such points
    if (next == plot.series.size() || plot.series[next].name != line.name) {
      return "the plot file has other curves than the input asks for";
    }
    if (!samePoints(plot.series[next], *series, plot.bars)) {
      return "the plot file has other points than the input";
    }
    series->curves.push_back(plot.series[next++].curve);
  }
  return next == 0 ? "the input has no PLOT line for its points" : "";
}

void addResiduals(Set& set, bool errors_known, int digits) {
  for (Series& series : set.series) {
    for (SeriesPoint& point : series.points) {
      for (const Curve& curve : series.curves) {
        if (!point.fit) point.fit = interpolate(curve, point.x);
      }
      if (!point.fit) continue;
      const double error = errors_known ? point.error : 1.0;
      set.residual_chi += std::pow((point.y - *point.fit) / error, 2);
      ++set.residuals;
    }
  }
  // The curve may have other x1, x2 than the points of its labels: then the sum shows it.
  const double difference = std::fabs(set.residual_chi - set.chi());
  const double allowed = 0.02 + 0.5 * std::pow(10.0, 1 - digits);  // X2/DoF is rounded too
  set.residuals_agree = set.residuals < set.points || difference <= allowed * set.chi();
}

void loadPlot(Run& run, Set& set, const std::string& directory) {
  const std::string path =
      (std::filesystem::path(directory) / (set.title + ".xmgr")).lexically_normal().string();
  run.files.push_back(path);
  if (!fileExists(path)) {
    set.plot_note = "there is no plot file " + cleanText(path);
    return;
  }
  const Plot plot = readPlot(path);
  set.plot_note = addCurves(plot, run.input, run.report.digits, set);
  if (!set.plot_note.empty()) {
    for (Series& series : set.series) series.curves.clear();
    return;
  }
  if (!plot.bars) run.errors_known = false;
  if (run.x_label.empty()) run.x_label = plot.x_label;
  if (run.y_label.empty()) run.y_label = plot.y_label;
}

void loadSets(Run& run, const std::string& plots) {
  const std::vector<std::size_t> places = matchSets(run.report, run.input);
  const std::map<std::string, int> users = countUsers(run.input, places);
  std::string note;
  const auto jack = readAnalysis(run.report, "jack", note);
  if (!note.empty()) run.notes.push_back(note);
  note.clear();
  run.monte = readAnalysis(run.report, "monte", note);
  if (!note.empty()) run.notes.push_back(note);
  run.has_jack = jack.has_value();
  run.has_monte = run.monte.has_value();
  for (std::size_t s = 0; s < places.size(); ++s) {
    const ReportSet& from = run.report.sets[s];
    const InputSet& input = run.input.sets[places[s]];
    Set set;
    set.title = from.title;
    set.reduced_chi = from.reduced_chi;
    set.dof = from.dof;
    set.points = static_cast<int>(input.points.size());
    set.data = input.points;
    for (std::size_t i = 0; i < from.values.size(); ++i) {
      Parameter parameter = makeParameter(run, from.values[i], input, users, i);
      addAnalysis(parameter, jack, s, i, &Parameter::jack_mean, &Parameter::jack_error);
      addAnalysis(parameter, run.monte, s, i, &Parameter::monte_mean, &Parameter::monte_error);
      set.parameters.push_back(parameter);
    }
    for (const Parameter& parameter : set.parameters) {
      if (parameter.status != Parameter::Status::kShared) continue;
      set.spared += 1.0 - 1.0 / users.at(parameter.shared_name);
    }
    set.series = makeSeries(run.input, input);
    loadPlot(run, set, plots);
    run.sets.push_back(std::move(set));
  }
}

}  // namespace

bool Run::shares() const {
  for (const Set& set : sets) {
    for (const Parameter& p : set.parameters) {
      if (p.status == Parameter::Status::kShared) return true;
    }
  }
  return false;
}

Run loadRun(const RunFiles& files) {
  Run run;
  run.report = readReport(files.report);
  run.input = readInput(files.input.empty() ? findInput(files.report) : files.input);
  run.model = run.input.model;
  if (!sameWord(run.model->name, run.report.model)) {
    fail(run.input.path, "is not the input of " + files.report + ": its model is " +
                             run.model->name + ", that of the report " + run.report.model);
  }
  run.name = files.name.empty() ? std::filesystem::path(files.report).stem().string() : files.name;
  run.errors_known = run.input.errors && !files.no_errors;
  run.files = {run.report.path, run.input.path};
  for (const char* ending : {"-jack", "-monte"}) {
    for (const char* part : {"", ".sum", "-final.out"}) {
      run.files.push_back(run.report.path + ending + part);
    }
  }
  const auto parent = std::filesystem::path(files.report).parent_path();
  loadSets(run, files.plots.empty() ? parent.string() : files.plots);
  for (Set& set : run.sets) addResiduals(set, run.errors_known, run.report.digits);
  if (run.x_label.empty()) run.x_label = run.model->axes->x;
  if (run.y_label.empty()) run.y_label = run.model->axes->y;
  return run;
}
