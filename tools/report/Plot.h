// Plot files of a run, and the text notation of Grace.
// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <array>
#include <string>
#include <vector>

/// What a PLOT line left in a plot file: points (x, y, error) and the curve (x, y).
struct PlotSeries {
  std::string name;
  std::vector<std::array<double, 3>> points;
  std::vector<std::array<double, 2>> curve;
};

struct Plot {
  std::string x_label;  // in the notation of Grace, the last one of the file; empty: none
  std::string y_label;
  bool bars = true;  // error bars are shown: the points have errors
  std::vector<PlotSeries> series;
  std::vector<std::string> box;  // lines of the parameter box, heading and X2/DoF left out
};

Plot readPlot(const std::string& path);

/// A run of characters of a Grace text: Unicode, raised (+1), lowered (-1) or neither, slanted or
/// not.
struct TextRun {
  std::string text;
  int level = 0;
  bool slanted = false;
};

std::vector<TextRun> graceText(const std::string& text);

/// The same as plain text: "1/τ_CP (s^-1)".
std::string gracePlain(const std::string& text);
