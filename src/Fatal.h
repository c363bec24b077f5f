// How a run ends on an error: the message on a diagnostic channel, exit status 1.
// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <iostream>
#include <string_view>

/// Ends the run with exit status 1 after writing `message`, which brings its own line end, to
/// `channel`. std::exit does not destroy locals: files must be closed before a call that can end
/// here.
[[noreturn]] void fatal(std::string_view message, std::ostream& channel = std::cerr);

/// Ends the run as every routine does that cannot have the memory it asked for.
[[noreturn]] void fatalNoMemory(std::string_view routine);
