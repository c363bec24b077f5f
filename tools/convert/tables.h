// Readers of tables: plain ones, NMRPipe series tables, Sparky peak lists.
// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "messages.h"
#include "reading.h"
#include "source.h"

#include <map>
#include <string>
#include <vector>

/// All values of a file. A line that is not understood goes to `rejects` with its reason. Ends the
/// run when the file cannot be read, or when it is not clear what its columns are.
///
/// Plain tables: columns parted by commas, else by tabs, else by blanks, as the first line has it;
/// what follows '#' is a comment. A first line, or a comment before it, that consists of names of
/// columns is the header. Without a column of names the name of the file is that of the residue;
/// without a header and such a column, the columns are ncyc, intensity and error.
///
/// NMRPipe: the planes are Z_A0, Z_A1, ..., ratios to the first plane, times HEIGHT or VOL.
///
/// Sparky: a header with Assignment and Data Height or Volume; one plane.
[[nodiscard]] std::vector<Reading> readTable(const Source& source, Rejects& rejects);

/// Shift differences in ppm from a plain table of two columns, residue and number.
[[nodiscard]] std::map<std::string, double> readShifts(const std::string& path, Rejects& rejects);
