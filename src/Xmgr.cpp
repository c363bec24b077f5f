// Grace (XMGR) plots: what the input asks for, and the files.
// SPDX-License-Identifier: GPL-3.0-or-later
#include "Xmgr.h"

#include "Text.h"

#include <algorithm>
#include <cmath>
#include <iomanip>
#include <iostream>
#include <sstream>

// ---- top of a file ----

namespace {

constexpr const char* kPageSetup[] = {
    "@ VERSION 40102",
    "@ CLEAR STRING",
    "@ PAGE SIZE 595, 842",
    "@ VIEW XMIN 0.10",
    "@ VIEW XMAX 0.95",
    "@ VIEW YMIN 0.55",
    "@ VIEW YMAX 0.92",
    "@ legend on",
    "@ legend box off",
    "@ legend box fill off",
    "@ legend box color 1",
    "@ legend box linewidth 1",
    "@ legend box linestyle 1",
    "@ legend x1 0.60",
    "@ legend y1 0.90",
    "@ legend char size 0.6",
    "@ g0 on",
    "@ g0 hidden false",
    "@ with g0",
};

struct Axes {
  const char* family;
  const char* x_label;  ///< in Grace's own text escapes
  const char* y_label;
  int x_decimals;
  int y_decimals;
};

constexpr const char* kR1rhoLabel = R"(\qR\Q\s1\xr\f{}\N\Seff\N (s\S-1\N))";

constexpr Axes kAxes[] = {
    {"CT-CPMG", R"(1/\xt\f{}\sCP\N (s\S-1\N))", R"(\qR\Q\s2\N\Seff\N (s\S-1\N))", 0, 0},
    {"R1rho", R"(\xw\f{}\s1\N/(2\xp\f{}) (s\S-1\N))", kR1rhoLabel, 0, 0},
    {"R1rho_off", R"(\xW\f{}/(2\xp\f{}) (Hz))", kR1rhoLabel, 0, 0},
    {"CLEANEX", "Delay (s)", R"(I(t) / I\s0)", 2, 1},
};

}  // namespace

void Xmgr::header(const std::string& family) {
  commands_.insert(commands_.end(), std::begin(kPageSetup), std::end(kPageSetup));
  for (const Axes& axes : kAxes) {
    if (family != axes.family) continue;
    add_XMGRcommand(std::string("@ XAXIS LABEL \"") + axes.x_label + '"');
    add_XMGRcommand(std::string("@ YAXIS LABEL \"") + axes.y_label + '"');
    add_XMGRcommand("@ XAXIS TICKLABEL FORMAT DECIMAL");
    add_XMGRcommand("@ YAXIS TICKLABEL FORMAT DECIMAL");
    add_XMGRcommand("@ XAXIS TICKLABEL CHAR SIZE 0.8");
    add_XMGRcommand("@ YAXIS TICKLABEL CHAR SIZE 0.8");
    add_XMGRcommand("@ XAXIS TICKLABEL PREC " + std::to_string(axes.x_decimals));
    add_XMGRcommand("@ YAXIS TICKLABEL PREC " + std::to_string(axes.y_decimals));
  }
}

void Xmgr::headerStyle(std::ostream& out, const std::string& title,
                       const std::string& equation) const {
  for (const std::string& command : commands_) out << command << '\n';
  out << "\n@ TITLE \"" << title << "\"\n@ SUBTITLE \"" << equation << "\"\n";
}

// ---- data and curves ----

void Xmgr::xplot(std::ostream& out, const ParSet& fit, int set, const ParDef& pardef,
                 const Funclib& funclib) const {
  if (instructions_.empty()) {
    std::cout << "#WARNING: No plot instructions given\n" << std::flush;
    return;
  }
  headerStyle(out, pardef.TITLE(set), funclib.Eqn());
  constexpr int kColors = 15;
  int n = 0;
  int color = 0;
  for (const Instr& instruction : instructions_) {
    color = color % kColors + 1;  // also for an instruction without data
    std::vector<int> shown_points;
    for (const int point : pardef.points(set)) {
      if (pardef.DATA(point).index == instruction.index) shown_points.push_back(point);
    }
    if (shown_points.empty()) continue;
    plotStyle(out, n, color, instruction.name);
    double low = Instr::kNoLow;
    double high = Instr::kNoHigh;
    for (const int point : shown_points) {
      const Data& data = pardef.DATA(point);
      low = std::min(low, data.x[0]);
      high = std::max(high, data.x[0]);
      out << '\t' << shown(data.x[0]) << '\t' << shown(data.y) << '\t';
      if (isError()) {
        out << shown(data.dy) << '\n';
      } else {
        out << "1.0\n";
      }
    }
    out << "&\n";
    Data point = pardef.DATA(shown_points.front());
    point.x = instruction.x;
    point.x.resize(static_cast<std::size_t>(funclib.Get_dimX()), 0.0);
    point.x[0] = instruction.low == Instr::kNoLow ? low : instruction.low;
    lineStyle(out, n + 1, color, instruction.name);
    writeCurve(out, instruction, std::move(point),
               instruction.high == Instr::kNoHigh ? high : instruction.high, fit, pardef, funclib);
    out << "&\n";
    n += 2;
  }
}

void Xmgr::writeCurve(std::ostream& out, const Instr& instruction, Data point, double end,
                      const ParSet& fit, const ParDef& pardef, const Funclib& funclib) {
  constexpr int kDefaultPoints = 101;
  const int points = instruction.points == 0 ? kDefaultPoints : instruction.points;
  const double step = (end - point.x[0]) / (points - 1.0);
  std::vector<double> parms = gatherParms(point.parmap, fit.par, "xplot");
  // Nobody reads the derivatives; without them a model would keep stale ones for the next fit.
  std::vector<double> dydp(fit.par.size());
  for (int i = 0; i < points && out; ++i) {  // no more of them on a disk that is full
    const double y = funclib.Func()(point, parms.data(), dydp, pardef.fixedFlags());
    if (std::isfinite(y)) out << '\t' << shown(point.x[0]) << '\t' << y << '\n';
    point.x[0] += step;
    if (instruction.factor != 1.0 && point.x.size() > 1) point.x[1] += instruction.factor;
  }
}

void Xmgr::plotStyle(std::ostream& out, int n, int color, const std::string& name) const {
  out << "@ S" << n << " LINESTYLE 0\n"
      << "@ S" << n << " COLOR " << color << '\n'
      << "@ S" << n << " SYMBOL 2\n"
      << "@ S" << n << " SYMBOL SIZE 0.5\n"
      << "@ S" << n << " SYMBOL FILL 1\n"
      << "@ S" << n << " SYMBOL COLOR " << color << '\n'
      << "@ S" << n << " ERRORBAR LENGTH 0.5\n";
  if (!isError()) {
    out << "@ S" << n << " ERRORBAR LINESTYLE 0\n"
        << "@ S" << n << " ERRORBAR RISER LINESTYLE 0\n";
  }
  out << "@ legend string " << n << " \"Data " << name << "\"\n"
      << "@ TARGET S" << n << '\n'
      << "@ TYPE xydy\n";
}

void Xmgr::lineStyle(std::ostream& out, int n, int color, const std::string& name) {
  out << "@ S" << n << " LINESTYLE 1\n"
      << "@ S" << n << " COLOR " << color << '\n'
      << "@ S" << n << " SYMBOL 0\n"
      << "@ legend string " << n << " \"Fit " << name << "\"\n"
      << "@ TARGET S" << n << '\n'
      << "@ TYPE xy\n";
}

// ---- text items, in view coordinates ----

namespace {

constexpr double kBoxX = 0.03;
constexpr double kHeadingY = 0.45;
constexpr double kFirstY = 0.444;  // one line above the first item
constexpr double kLineHeight = 0.02;

/// A number with 5 significant digits in a field of its own.
std::string fiveDigits(double value, int width, std::ios_base& (*align)(std::ios_base&)) {
  constexpr int kDigits = 5;
  std::ostringstream text;
  text << align << std::setprecision(kDigits) << std::setw(width) << shown(value);
  return text.str();
}

std::string leftField(double value) { return fiveDigits(value, 10, std::left); }
std::string rightField(double value) { return fiveDigits(value, 10, std::right); }
std::string inBrackets(double value) { return '(' + fiveDigits(value, 0, std::right) + ')'; }

std::string leftField(const std::string& name) {
  std::ostringstream text;
  text << std::left << std::setw(12) << name;
  return text.str();
}

}  // namespace

void Xmgr::annot_plot(std::ostream& out, const ParSet& fit, int set, const ParDef& pardef,
                      std::span<const double> errors) {
  heading(out, kBoxX, kHeadingY, "Parameter   Fit       (Error)");
  double y = kFirstY;
  for (const Declaration& declaration : pardef.declarations(set)) {
    const auto parm = static_cast<std::size_t>(declaration.elem);
    std::string text = leftField(pardef.Name(declaration.elem)) + leftField(fit.par[parm]);
    if (!errors.empty() && !pardef.isFIXED(declaration.elem)) text += inBrackets(errors[parm]);
    y -= kLineHeight;
    textItem(out, kBoxX, y, text);
  }
  textItem(out, kBoxX, y - kLineHeight,
           leftField("X2/DoF") + leftField(fit.chi(set) / pardef.lDoF(set)));
}

void Xmgr::annot_sims(std::ostream& out, const ParSet& centre, const ParSet& spread, int set,
                      const ParDef& pardef, int index, const std::string& title) {
  constexpr double kFirstColumn = 0.45;
  constexpr double kColumnWidth = 0.28;
  const double x = kFirstColumn + (index - 1) * kColumnWidth;
  const auto item = [](double value, double error) {
    return rightField(value) + inBrackets(error);
  };
  heading(out, x, kHeadingY, title + " (Error)");
  double y = kFirstY;
  for (const Declaration& declaration : pardef.declarations(set)) {
    const auto parm = static_cast<std::size_t>(declaration.elem);
    y -= kLineHeight;
    textItem(out, x, y, item(centre.par[parm], spread.par[parm]));
  }
  const int dof = pardef.lDoF(set);
  textItem(out, x, y - kLineHeight, item(centre.chi(set) / dof, spread.chi(set) / dof));
}

void Xmgr::defaultString(std::ostream& out) {
  out << "@ WITH STRING\n"
         "@ STRING FONT \"Courier\"\n"
         "@ STRING LOCTYPE VIEW\n"
         "@ STRING CHAR SIZE 0.6\n";
}

namespace {

void placeText(std::ostream& out, double x, double y, const std::string& text) {
  out << "@ STRING " << x << ", " << y << "\n@ STRING DEF \"" << text << "\"\n@ STRING on\n";
}

}  // namespace

void Xmgr::textItem(std::ostream& out, double x, double y, const std::string& text) {
  defaultString(out);
  placeText(out, x, y, text);
}

void Xmgr::heading(std::ostream& out, double x, double y, const std::string& text) {
  defaultString(out);
  out << "@ STRING FONT \"Courier-Bold\"\n";
  placeText(out, x, y, text);
}
