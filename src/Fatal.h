// How a run ends on an error: the message on a diagnostic channel, exit status 1.
// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <iostream>
#include <string_view>

/// What is called in place of std::exit; must not return.
using EndHandler = void (*)(int status);

/// Lets `handler` end the runs of this process, null: std::exit. Whoever makes many runs in one
/// process installs one that throws: everything a run holds is released when the stack unwinds.
void setEndHandler(EndHandler handler);

/// Ends the run with this exit status. All ends but the return from main come here.
[[noreturn]] void endRun(int status);

/// Ends the run with exit status 1 after writing `message`, which brings its own line end, to
/// `channel`. std::exit does not destroy locals: files must be closed before a call that can end
/// here.
[[noreturn]] void fatal(std::string_view message, std::ostream& channel = std::cerr);

/// Ends the run as every routine does that cannot have the memory it asked for.
[[noreturn]] void fatalNoMemory(std::string_view routine);
