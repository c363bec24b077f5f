// Reading and writing of files, and the way out on errors.
// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <string>
#include <utility>
#include <vector>

/// Prints "dravo-report: " and the text on standard error and ends the program with status 1.
[[noreturn]] void fail(const std::string& text);

/// The same with the file's name before the text.
[[noreturn]] void fail(const std::string& path, const std::string& text);

bool fileExists(const std::string& path);

/// All of a file; fails with a message.
std::string readFile(const std::string& path);

/// Its lines without line ends, as the input file is read: a last one needs none, LF and CR LF are
/// alike.
std::vector<std::string> linesOf(const std::string& text);

/// What is to be written, in memory: paths ("-": standard output) and contents.
using Outputs = std::vector<std::pair<std::string, std::string>>;

/// Writes each file beside its place and, when all are complete, renames them: after a failure
/// every file is what it was before. A failure ends the program.
void writeAll(const Outputs& outputs);
