// Tables for other programs; README.md beside this file describes their columns.
// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "Compare.h"
#include "Remarks.h"
#include "Run.h"

#include <string>
#include <vector>

const char* statusName(Parameter::Status status);
const char* nestingName(FTest::Nesting nesting);

/// One row for each run, set and parameter (RFC 4180 but for line ends, which are LF). Numbers are
/// copied digit by digit.
std::string makeCsv(const std::vector<Run>& runs);

/// The same rows and all else that the page says. Numbers that are not finite are null.
std::string makeJson(const std::vector<Run>& runs, const Comparisons& comparisons,
                     const std::vector<Remark>& remarks);
