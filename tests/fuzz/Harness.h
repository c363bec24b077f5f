// What the fuzz targets share: runs that end by an exception, captured channels, input files in
// memory, a directory for what a run writes.
// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// One input of a fuzz target, as libFuzzer names it.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace harness {

/// Aborts with `what` on standard error unless `holds`: how a target reports a fault that no
/// sanitizer sees.
void require(bool holds, const char* what);

/// How a run ended.
struct Ending {
  std::optional<int> status;  ///< empty: it came to its end
  std::string message;        ///< the first bytes of both channels
};

/// Thrown by a target to give up a run that would take too long.
struct LimitReached {};

/// Makes a run with both channels captured; ends of the run, LimitReached and exhausted memory end
/// `run` alone. Requires that an ending has one of the two statuses and, unless `may_be_silent`, a
/// message, and that the run takes less than 20 s of the processor: libFuzzer's own time limit goes
/// by the clock on the wall and takes a busy machine for a hang.
Ending endingOf(const std::function<void()>& run, bool may_be_silent);

/// A file in memory, by name; one for the process, overwritten by each call.
std::string fileOf(std::string_view text);

/// An empty working directory in memory as long as the object lives.
class Workplace {
 public:
  Workplace();
  ~Workplace();
  Workplace(const Workplace&) = delete;
  Workplace& operator=(const Workplace&) = delete;

 private:
  int previous_;
};

/// Options that stand in a first line "#args: ..." of an input text, those alone that name no file.
std::vector<std::string> optionsOf(std::string_view text);

}  // namespace harness
