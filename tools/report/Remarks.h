// What a careful reader of the numbers would remark.
// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "Compare.h"
#include "Run.h"

#include <optional>
#include <span>
#include <string>
#include <vector>

struct Remark {
  std::string kind;  // one of remarkKinds()
  std::size_t run = 0;
  std::optional<std::size_t> set;  // none: of the run
  std::string parameter;           // may be empty
  std::string text;
};

/// A kind of remark, and how it begins when it concerns several sets.
struct RemarkKind {
  const char* name;
  const char* several;
};

/// All kinds, the gravest first.
std::span<const RemarkKind> remarkKinds();

std::vector<Remark> makeRemarks(const std::vector<Run>& runs, const Comparisons& comparisons);

/// What the value touches: "lower" or "upper" bound, or "".
std::string boundOf(const Parameter& parameter);
