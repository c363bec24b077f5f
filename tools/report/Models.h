// What a report needs to know of the models: shape of a DATA line, units and legal ranges of the
// parameters, axes. report_test checks names and ranges against the program itself.
// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <span>
#include <string_view>

/// A base parameter: its unit ("" for a number without one) and its legal range.
struct ParameterRow {
  const char* name;
  const char* unit;
  double low;
  double high;
};

/// What a model says about exchange; orders the models that are limits of each other.
enum class Exchange { kOther, kNone, kFast, kTwoSites, kThreeSites };

/// Axis labels of a family of models, in the notation of Grace.
struct Axes {
  const char* x;
  const char* y;
};

struct Model {
  const char* name;
  const Axes* axes;
  std::span<const ParameterRow> parameters;
  int columns;  // x values on a DATA line
  int labels;   // digits of the label word, 0: none
  Exchange exchange;
  bool offset_first =
      false;  // R1rho with the offset in the first column, the spin lock in the second
};

std::span<const Model> allModels();

/// The model of this name in any letter case, or nullptr.
const Model* findModel(std::string_view name);

/// The row of a full name, R20_1_2 for example, in any letter case, or nullptr.
const ParameterRow* findParameter(const Model& model, std::string_view full_name);

/// Unit of a derived quantity: REX in 1/s, populations without.
const char* quantityUnit(std::string_view type);

/// True when `simple` is a limit of `rich`, as no exchange is of exchange and that of two sites.
bool isLimitOf(const Model& simple, const Model& rich);
