// Grace (XMGR) plots: what the input asks for.
// SPDX-License-Identifier: GPL-3.0-or-later
#include "Xmgr.h"

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
