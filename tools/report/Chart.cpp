// SPDX-License-Identifier: GPL-3.0-or-later
#include "Chart.h"

#include "Text.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <map>

namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();

/// Colours of a file of its own, those of the page in light.
constexpr std::pair<const char*, const char*> kLight[] = {{"var(--ink)", "#1d2733"},
                                                          {"var(--soft)", "#5a6675"},
                                                          {"var(--line)", "#d9dfe6"},
                                                          {"var(--accent)", "#0a648f"},
                                                          {"var(--paper)", "#ffffff"}};

struct Range {
  double low = kInfinity;
  double high = -kInfinity;

  void take(double value) {
    if (!std::isfinite(value)) return;
    low = std::min(low, value);
    high = std::max(high, value);
  }
  bool empty() const { return !(low <= high); }
};

std::string at(double value) {
  std::string text = fixedPoint(value, 1);
  if (text.size() > 2 && text.compare(text.size() - 2, 2, ".0") == 0) text.resize(text.size() - 2);
  return text == "-0" ? "0" : text;
}

/// Distance of ticks so that there are about `count`: 1, 2 or 5 times a power of ten.
double tickStep(double width, int count) {
  const double raw = width / count;
  const double power = std::pow(10.0, std::floor(std::log10(raw)));
  const double lead = raw / power;
  return power * (lead <= 1.0 ? 1.0 : lead <= 2.0 ? 2.0 : lead <= 5.0 ? 5.0 : 10.0);
}

/// Maps values to one direction of a panel.
class Axis {
 public:
  /// Ends the range `pad` of its width further out on both sides; from and to are the places of its
  /// ends.
  Axis(Range range, double pad, double from, double to, int ticks) : from_(from), to_(to) {
    if (range.empty()) range = {0.0, 1.0};
    double width = range.high - range.low;
    if (!(width > 0.0)) width = range.low != 0.0 ? std::fabs(range.low) : 1.0;
    low_ = range.low - pad * width;
    high_ = range.high + pad * width;
    if (range.low >= 0.0 && low_ < 0.0) low_ = 0.0;
    if (!(high_ > low_)) high_ = low_ + width;
    step_ = tickStep(high_ - low_, ticks);
  }

  double place(double value) const {
    return from_ + (value - low_) / (high_ - low_) * (to_ - from_);
  }
  bool holds(double value) const { return value >= low_ && value <= high_; }

  std::vector<double> ticks() const {
    std::vector<double> ticks;
    const double first = std::ceil(low_ / step_ - 1e-9);
    for (int i = 0; i < 40; ++i) {
      const double tick = (first + i) * step_;
      if (tick > high_ + 1e-9 * step_) break;
      ticks.push_back(std::fabs(tick) < 1e-9 * step_ ? 0.0 : tick);
    }
    return ticks;
  }

  std::string tickText(double tick) const {
    if (std::fabs(tick) >= 1e6 || step_ < 1e-5) return general(tick, 4);
    const int decimals = std::max(0, static_cast<int>(-std::floor(std::log10(step_) + 1e-9)));
    return fixedPoint(tick, decimals);
  }

 private:
  double from_, to_;
  double low_ = 0.0, high_ = 1.0, step_ = 1.0;
};

/// A rectangle with its two axes.
struct Panel {
  double left, top, right, bottom;
  Axis x, y;
};

std::string line(const char* style, double x1, double y1, double x2, double y2) {
  return std::string("<path class=\"") + style + "\" d=\"M" + at(x1) + ' ' + at(y1) + 'L' + at(x2) +
         ' ' + at(y2) + "\"/>";
}

std::string text(double x, double y, const char* style, const std::string& inner) {
  return "<text class=\"" + std::string(style) + "\" x=\"" + at(x) + "\" y=\"" + at(y) + "\">" +
         inner + "</text>";
}

/// Grace text as tspans: lowered and raised parts are smaller, and undone by the next part.
std::string spans(const std::string& grace) {
  std::string result;
  int level = 0;
  for (const TextRun& run : graceText(grace)) {
    result += "<tspan";
    if (run.level != level) {
      const int shift = (run.level < 0   ? 3
                         : run.level > 0 ? -5
                                         : 0) -
                        (level < 0   ? 3
                         : level > 0 ? -5
                                     : 0);
      result += " dy=\"" + std::to_string(shift) + "\"";
    }
    if (run.level != 0) result += " font-size=\"9\"";
    if (run.slanted) result += " font-style=\"italic\"";
    result += '>' + escaped(run.text) + "</tspan>";
    level = run.level;
  }
  return result;
}

std::string yLabel(double x, double middle, const std::string& inner) {
  return "<text class=\"lab mid\" transform=\"translate(" + at(x) + ' ' + at(middle) +
         ") rotate(-90)\">" + inner + "</text>";
}

/// Grid lines and numbers of the y axis.
std::string yAxis(const Panel& p) {
  std::string result;
  for (const double tick : p.y.ticks()) {
    result += line("grid", p.left, p.y.place(tick), p.right, p.y.place(tick));
    result += text(p.left - 7, p.y.place(tick) + 3.5, "num end", escaped(p.y.tickText(tick)));
  }
  return result;
}

std::string xAxis(const Panel& p, bool numbers) {
  std::string result = line("axis", p.left, p.bottom, p.right, p.bottom);
  for (const double tick : p.x.ticks()) {
    result += line("axis", p.x.place(tick), p.bottom, p.x.place(tick), p.bottom + 4);
    if (numbers) {
      result += text(p.x.place(tick), p.bottom + 17, "num mid", escaped(p.x.tickText(tick)));
    }
  }
  return result;
}

/// Outline of a marker around a point: circle, square, triangle or diamond.
std::string marker(std::size_t shape, double x, double y, double r) {
  const std::string d = at(2 * r);
  switch (shape % 4) {
    case 0:
      return 'M' + at(x - r) + ' ' + at(y) + 'a' + at(r) + ' ' + at(r) + " 0 1 0 " + d + " 0a" +
             at(r) + ' ' + at(r) + " 0 1 0 -" + d + " 0z";
    case 1: return 'M' + at(x - r) + ' ' + at(y - r) + 'h' + d + 'v' + d + "h-" + d + 'z';
    case 2:
      return 'M' + at(x) + ' ' + at(y - 1.2 * r) + 'l' + at(1.2 * r) + ' ' + at(2.1 * r) + "h-" +
             at(2.4 * r) + 'z';
    default:
      return 'M' + at(x) + ' ' + at(y - 1.3 * r) + 'l' + at(1.3 * r) + ' ' + at(1.3 * r) + 'l' +
             at(-1.3 * r) + ' ' + at(1.3 * r) + 'l' + at(-1.3 * r) + ' ' + at(-1.3 * r) + 'z';
  }
}

/// Classes of series k: three tones, every second round of them hollow.
std::string seriesClass(std::size_t k) {
  return "s" + std::to_string(k % 3) + ((k / 3) % 2 == 0 ? " full" : " hollow");
}

std::string curvePath(const std::vector<std::array<double, 2>>& curve, const Panel& p) {
  std::string d;
  for (const auto& node : curve) {
    d += (d.empty() ? 'M' : 'L') + at(p.x.place(node[0])) + ' ' + at(p.y.place(node[1]));
  }
  return d;
}

/// Bars of one series as one path, cut off at the frame.
std::string barPath(const Series& series, const Panel& p) {
  std::string d;
  for (const SeriesPoint& point : series.points) {
    if (!(point.error > 0.0) || !std::isfinite(point.error)) continue;
    const double high = std::max(p.y.place(point.y + point.error), p.top);
    const double low = std::min(p.y.place(point.y - point.error), p.bottom);
    const double x = p.x.place(point.x);
    d += 'M' + at(x) + ' ' + at(high) + 'V' + at(low);
    d += 'M' + at(x - 2.5) + ' ' + at(high) + "h5M" + at(x - 2.5) + ' ' + at(low) + "h5";
  }
  return d;
}

std::string pathOf(const std::string& style, const std::string& d) {
  return d.empty() ? "" : "<path class=\"" + style + "\" d=\"" + d + "\"/>";
}

void takePoints(const Set& set, bool errors, Range& x, Range& y) {
  for (const Series& series : set.series) {
    for (const SeriesPoint& point : series.points) {
      const double error = errors && std::isfinite(point.error) ? point.error : 0.0;
      x.take(point.x);
      y.take(point.y - error);
      y.take(point.y + error);
    }
    for (const auto& curve : series.curves) {
      for (const auto& node : curve) {
        x.take(node[0]);
        y.take(node[1]);
      }
    }
  }
}

/// Markers and names in a row, as many as have room beside each other.
std::string legend(const Set& set, double left, double right, double y, int& rows) {
  std::string result;
  double x = left;
  rows = 1;
  for (std::size_t k = 0; k < set.series.size(); ++k) {
    const std::string name = cleanText(set.series[k].name);
    const double width = 28 + 7.4 * static_cast<double>(name.size());
    if (x > left && x + width > right) {
      x = left;
      ++rows;
    }
    const double line_y = y + 17 * (rows - 1);
    result += pathOf("mark " + seriesClass(k), marker(k, x + 5, line_y - 4, 3.4));
    result += text(x + 14, line_y, "leg", escaped(name));
    x += width;
  }
  return result;
}

/// Room for the numbers beside a panel.
double numberWidth(const Axis& axis) {
  std::size_t longest = 1;
  for (const double tick : axis.ticks()) longest = std::max(longest, axis.tickText(tick).size());
  return 6.4 * static_cast<double>(longest);
}

std::string dataMarks(const Set& set, const Panel& p, bool errors, double radius) {
  std::string result;
  for (std::size_t k = 0; k < set.series.size(); ++k) {
    for (const auto& curve : set.series[k].curves) {
      const char* dash = (k / 3) % 2 == 0 ? "" : " dash";
      result += pathOf("curve s" + std::to_string(k % 3) + dash, curvePath(curve, p));
    }
    if (errors) result += pathOf("bar s" + std::to_string(k % 3), barPath(set.series[k], p));
    std::string d;
    for (const SeriesPoint& point : set.series[k].points) {
      d += marker(k, p.x.place(point.x), p.y.place(point.y), radius);
    }
    result += pathOf("mark " + seriesClass(k), d);
  }
  return result;
}

/// Deviation of a point in units of its error, or of y where errors are not known.
std::optional<double> residual(const SeriesPoint& point, bool errors) {
  if (!point.fit) return std::nullopt;
  const double value = (point.y - *point.fit) / (errors ? point.error : 1.0);
  if (!std::isfinite(value)) return std::nullopt;
  return value;
}

std::string residualPanel(const Run& run, const Set& set, const Panel& p, double label_x) {
  std::string result = yAxis(p);
  if (run.errors_known) {
    result += "<rect class=\"band\" x=\"" + at(p.left) + "\" y=\"" + at(p.y.place(1)) +
              "\" width=\"" + at(p.right - p.left) + "\" height=\"" +
              at(p.y.place(-1) - p.y.place(1)) + "\"/>";
  }
  result += line("zero", p.left, p.y.place(0), p.right, p.y.place(0));
  for (std::size_t k = 0; k < set.series.size(); ++k) {
    std::string d;
    for (const SeriesPoint& point : set.series[k].points) {
      if (const auto value = residual(point, run.errors_known)) {
        d += marker(k, p.x.place(point.x), p.y.place(*value), 2.6);
      }
    }
    result += pathOf("mark " + seriesClass(k), d);
  }
  const char* label = run.errors_known ? "residual/error" : "residual";
  return result + yLabel(label_x, (p.top + p.bottom) / 2, label) + xAxis(p, true);
}

Range residualRange(const Run& run, const Set& set) {
  Range range;
  double most = run.errors_known ? 2.2 : 0.0;
  for (const Series& series : set.series) {
    for (const SeriesPoint& point : series.points) {
      if (const auto value = residual(point, run.errors_known)) {
        most = std::max(most, std::fabs(*value));
      }
    }
  }
  if (most == 0.0) most = 1.0;
  range.take(-most);
  range.take(most);
  return range;
}

/// The first number of a title, as the residue's.
std::optional<int> residueNumber(const std::string& title) {
  const std::size_t digit = title.find_first_of("0123456789");
  if (digit == std::string::npos) return std::nullopt;
  const std::string digits =
      title.substr(digit, title.find_first_not_of("0123456789", digit) - digit);
  if (digits.size() > 6) return std::nullopt;
  return std::atoi(digits.c_str());
}

/// Places of the sets along an axis: residue numbers where all differ, else one after the other.
struct Places {
  std::vector<double> x;
  bool residues = true;
};

Places placesOf(const Run& run) {
  Places places;
  std::vector<int> seen;
  for (const Set& set : run.sets) {
    const auto number = residueNumber(set.title);
    places.residues =
        places.residues && number && std::find(seen.begin(), seen.end(), *number) == seen.end();
    if (number) seen.push_back(*number);
    places.x.push_back(number.value_or(0));
  }
  if (places.residues) return places;
  for (std::size_t i = 0; i < places.x.size(); ++i) places.x[i] = static_cast<double>(i + 1);
  return places;
}

/// The values of one name in all sets, as a series that can be drawn.
struct Along {
  std::string base;
  std::string unit;
  std::vector<Series> series;
};

std::vector<Along> gather(const Run& run, const Places& places) {
  std::vector<Along> all;
  for (std::size_t s = 0; s < run.sets.size(); ++s) {
    for (const Parameter& p : run.sets[s].parameters) {
      const bool same =
          p.status == Parameter::Status::kShared || p.status == Parameter::Status::kFixed;
      if (same || !std::isfinite(p.value.value)) continue;
      auto along =
          std::find_if(all.begin(), all.end(), [&p](const Along& a) { return a.base == p.base; });
      if (along == all.end()) along = all.insert(all.end(), Along{p.base, p.unit, {}});
      auto series = std::find_if(along->series.begin(), along->series.end(),
                                 [&p](const Series& one) { return one.name == p.name; });
      if (series == along->series.end()) {
        series = along->series.insert(along->series.end(), Series{p.name, "", {}, {}});
      }
      const std::optional<Number>& error = p.status == Parameter::Status::kDerived
                                               ? (p.monte_error ? p.monte_error : p.jack_error)
                                               : p.error;
      series->points.push_back(
          {places.x[s], p.value.value, error ? error->value : 0.0, std::nullopt});
    }
  }
  return all;
}

/// Values fill the axis; of the bars it takes as much as the values span, so that one bad fit does
/// not press all others flat.
Range alongRange(const Along& along) {
  Range values;
  Range range;
  for (const Series& series : along.series) {
    for (const SeriesPoint& point : series.points) values.take(point.y);
  }
  const double span = values.high > values.low ? values.high - values.low : std::fabs(values.high);
  for (const Series& series : along.series) {
    for (const SeriesPoint& point : series.points) {
      const double error = std::isfinite(point.error) ? std::min(point.error, 0.5 * span) : 0.0;
      range.take(point.y - error);
      range.take(point.y + error);
    }
  }
  return range;
}

/// False for a quantity that depends on shared parameters alone.
bool varies(const Along& along) {
  Range range;
  for (const Series& series : along.series) {
    for (const SeriesPoint& point : series.points) range.take(point.y);
  }
  return range.high > range.low;
}

/// The title, or its beginning where it is long.
std::string shortTitle(const std::string& title) {
  constexpr std::size_t kMost = 14;
  std::string clean = cleanText(title);
  const auto begins = [](char c) { return (static_cast<unsigned char>(c) & 0xc0U) != 0x80U; };
  std::size_t letters = 0;
  for (std::size_t i = 0; i < clean.size(); ++i) {
    if (begins(clean[i]) && ++letters > kMost) return clean.substr(0, i) + "\xe2\x80\xa6";
  }
  return clean;
}

/// Height of the slanted titles below the axis.
double titleRoom(const Run& run) {
  constexpr double kRise = 5.8;  // of a letter: its width times the sine of 60 degrees
  std::size_t longest = 0;
  for (const Set& set : run.sets) longest = std::max(longest, shortTitle(set.title).size());
  return 14 + kRise * static_cast<double>(longest);
}

std::string alongTicks(const Run& run, const Places& places, const Panel& p) {
  if (places.residues) return xAxis(p, true);
  std::string result = line("axis", p.left, p.bottom, p.right, p.bottom);
  // Titles only where they have room.
  const double room = (p.right - p.left) / static_cast<double>(run.sets.size());
  const auto every = static_cast<std::size_t>(std::max(1.0, std::ceil(13.0 / room)));
  for (std::size_t s = 0; s < run.sets.size(); s += every) {
    const double x = p.x.place(places.x[s]);
    result += line("axis", x, p.bottom, x, p.bottom + 4);
    result += "<text class=\"num end\" transform=\"translate(" + at(x + 3) + ' ' +
              at(p.bottom + 9) + ") rotate(-60)\">" + escaped(shortTitle(run.sets[s].title)) +
              "</text>";
  }
  return result;
}

Figure alongFigure(const Run& run, const Along& along, const Places& places) {
  Figure figure{"along-" + along.base, along.base + " along the sets", 640, 210, ""};
  Set marks;
  marks.series = along.series;
  Range x;
  for (const double place : places.x) x.take(place);
  int rows = 0;
  const std::string names = along.series.size() > 1 ? legend(marks, 60, 630, 14, rows) : "";
  const double top = rows > 0 ? 10 + 17 * rows : 10;
  const double bottom = 165;
  const Axis y(alongRange(along), 0.06, bottom, top, 4);
  const double left = 26 + numberWidth(y);
  const double pad =
      places.residues ? 0.03 : 0.5 / std::max(1.0, static_cast<double>(run.sets.size() - 1));
  const Panel p{left, top, 630, bottom, Axis(x, pad, left, 630, 10), y};
  figure.body = names + yAxis(p) + alongTicks(run, places, p) +
                dataMarks(marks, p, true, run.sets.size() > 60 ? 2.2 : 3.0);
  const std::string unit = along.unit.empty() ? "" : " (" + prettyUnit(along.unit) + ")";
  figure.body += yLabel(12, (top + bottom) / 2, escaped(along.base + unit));
  const double below = places.residues ? 28 : titleRoom(run);
  figure.height = static_cast<int>(bottom + below + 17);
  figure.body +=
      text((left + 630) / 2, figure.height - 5, "lab mid", places.residues ? "residue" : "set");
  return figure;
}

void replaceAll(std::string& text, const std::string& from, const std::string& to) {
  for (std::size_t i = text.find(from); i != std::string::npos;
       i = text.find(from, i + to.size())) {
    text.replace(i, from.size(), to);
  }
}

std::string openingTag(const Figure& figure, const std::string& extra) {
  return "<svg class=\"fig\" viewBox=\"0 0 " + std::to_string(figure.width) + ' ' +
         std::to_string(figure.height) + "\" role=\"img\" aria-label=\"" + escaped(figure.label) +
         "\"" + extra + '>';
}

}  // namespace

Figure setFigure(const Run& run, const Set& set) {
  Figure figure{"set-" + set.title, "Points, fit and residuals of " + set.title, 640, 420, ""};
  Range x;
  Range y;
  takePoints(set, run.errors_known, x, y);
  int rows = 0;
  figure.body = legend(set, 60, 630, 16, rows);
  const double top = 12 + 17 * rows;
  const bool residuals = set.residuals > 0;
  const double bottom = residuals ? 275 : 375;
  const Axis y_axis(y, 0.04, bottom, top, 5);
  const Axis residual_axis(residualRange(run, set), 0.08, 375, 293, 5);
  const double left = 30 + std::max(numberWidth(y_axis), numberWidth(residual_axis));
  const Axis x_axis(x, 0.02, left, 630, 7);
  const Panel data{left, top, 630, bottom, x_axis, y_axis};
  figure.body += yAxis(data) + xAxis(data, !residuals) +
                 dataMarks(set, data, run.errors_known, set.points > 150 ? 2.6 : 3.4);
  figure.body += yLabel(13, (top + bottom) / 2, spans(run.y_label));
  if (residuals) {
    figure.body += residualPanel(run, set, {left, 293, 630, 375, x_axis, residual_axis}, 13);
  }
  figure.body += text((left + 630) / 2, 412, "lab mid", spans(run.x_label));
  return figure;
}

Figure smallFigure(const Run& run, const Set& set) {
  Figure figure{"small-" + set.title, "Points and fit of " + set.title, 180, 116, ""};
  Range x;
  Range y;
  for (const Set& other : run.sets) {
    Range unused;
    takePoints(other, false, x, unused);
  }
  takePoints(set, false, x, y);
  const Axis y_axis(y, 0.05, 94, 6, 5);
  const double left = 6 + numberWidth(y_axis) + 4;
  const Panel p{left, 6, 162, 94, Axis(x, 0.03, left, 162, 4), y_axis};
  figure.body = yAxis(p) + xAxis(p, true) + dataMarks(set, p, false, 1.7);
  return figure;
}

std::vector<Figure> alongFigures(const Run& run) {
  std::vector<Figure> figures;
  if (run.sets.size() < 2) return figures;
  const Places places = placesOf(run);
  for (const Along& along : gather(run, places)) {
    if (varies(along)) figures.push_back(alongFigure(run, along, places));
  }
  return figures;
}

Figure gridOf(const std::vector<Figure>& figures, const std::vector<std::string>& captions) {
  constexpr int kColumns = 5;
  constexpr int kRow = 146;
  const int rows = (static_cast<int>(figures.size()) + kColumns - 1) / kColumns;
  Figure grid{"multiples", "All sets", 190 * kColumns, kRow * rows, ""};
  for (std::size_t i = 0; i < figures.size(); ++i) {
    const int place = static_cast<int>(i);
    grid.body += "<g transform=\"translate(" + std::to_string(place % kColumns * 190 + 5) + ' ' +
                 std::to_string(place / kColumns * kRow + 18) + ")\">" +
                 text(6, -3, "leg", escaped(captions[i])) + figures[i].body + "</g>";
  }
  return grid;
}

std::string inlineSvg(const Figure& figure) {
  return openingTag(figure, "") + figure.body + "</svg>";
}

std::string standaloneSvg(const Figure& figure) {
  std::string style = chartStyle();
  for (const auto& [variable, colour] : kLight) replaceAll(style, variable, colour);
  const std::string size = " xmlns=\"http://www.w3.org/2000/svg\" width=\"" +
                           std::to_string(figure.width) + "\" height=\"" +
                           std::to_string(figure.height) + "\"";
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n" + openingTag(figure, size) + "\n<title>" +
         escaped(figure.label) + "</title>\n<style>" + style + "</style>\n" + figure.body +
         "\n</svg>\n";
}

std::string chartStyle() {
  return R"(
.fig{font-family:system-ui,-apple-system,"Segoe UI",Roboto,"Helvetica Neue",Arial,sans-serif;font-size:12px}
.fig text{fill:var(--ink)}
.fig .num{font-size:11px;fill:var(--soft);font-variant-numeric:tabular-nums}
.fig .leg{font-size:11.5px}
.fig .mid{text-anchor:middle}
.fig .end{text-anchor:end}
.fig path,.fig rect{vector-effect:non-scaling-stroke}
.fig .grid{stroke:var(--line);stroke-width:1;fill:none}
.fig .axis{stroke:var(--soft);stroke-width:1;fill:none}
.fig .zero{stroke:var(--soft);stroke-width:1;fill:none}
.fig .band{fill:var(--line);opacity:.55}
.fig .s0{stroke:var(--accent)}
.fig .s1{stroke:var(--ink)}
.fig .s2{stroke:var(--soft)}
.fig .curve{fill:none;stroke-width:1.7}
.fig .dash{stroke-dasharray:5 3}
.fig .bar{fill:none;stroke-width:1}
.fig .mark{stroke-width:1.2}
.fig .full.s0{fill:var(--accent)}
.fig .full.s1{fill:var(--ink)}
.fig .full.s2{fill:var(--soft)}
.fig .hollow{fill:var(--paper)}
)";
}
