// The HTML page: one file that needs nothing else.
// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "Compare.h"
#include "Remarks.h"
#include "Run.h"

#include <string>
#include <vector>

std::string makePage(const std::string& title, const std::vector<Run>& runs,
                     const Comparisons& comparisons, const std::vector<Remark>& remarks);
