// Figures as SVG: a set with its residuals, small multiples, a parameter along the sets.
// Colours are CSS variables; the page sets them for light and dark, a file of its own has them
// written in. SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "Run.h"

#include <string>
#include <vector>

struct Figure {
  std::string name;   // of a file
  std::string label;  // what it shows, for those who cannot see it
  int width = 0;
  int height = 0;
  std::string body;
};

Figure setFigure(const Run& run, const Set& set);
Figure smallFigure(const Run& run, const Set& set);

/// One figure for each base parameter or quantity that is not the same in all sets; none for one
/// set.
std::vector<Figure> alongFigures(const Run& run);

/// The small figures in rows, as one.
Figure gridOf(const std::vector<Figure>& figures, const std::vector<std::string>& captions);

/// For a page, which has the style sheet.
std::string inlineSvg(const Figure& figure);

/// A file that stands alone.
std::string standaloneSvg(const Figure& figure);

/// Rules of the classes used in figures.
std::string chartStyle();
