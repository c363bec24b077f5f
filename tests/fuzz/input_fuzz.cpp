// Fuzz target: the input reader with everything behind it up to the preparation of the fit.
// SPDX-License-Identifier: GPL-3.0-or-later
#include "ReadRun.h"

#include <cmath>

namespace {

using harness::require;

/// What the fit relies on without looking.
void checkPrepared(const ParDef& pardef, const Funclib& funclib, const Method& method) {
  const std::size_t base_parms = funclib.Get_Rules().basePAR_size();
  require(pardef.gDoF() >= 1, "a degree of freedom");
  require(pardef.SETsize() >= 1, "a set");
  require(method.size() >= 1, "a method");
  require(pardef.fixedFlags().size() == static_cast<std::size_t>(pardef.PAR_size()),
          "a flag for each element");
  for (int i = 0; i < pardef.DATAsize(); ++i) {
    const Data& point = pardef.DATA(i);
    require(point.set >= 0 && point.set < pardef.SETsize(), "the set of a point");
    require(point.parmap.size() == base_parms, "an element for each parameter of a point");
    for (const int parm : point.parmap) {
      require(parm >= 0 && parm < pardef.PAR_size(), "an element that exists");
      require(pardef.isUsed(parm), "an element that is known to be used");
    }
  }
  int points = 0;
  for (int set = 0; set < pardef.SETsize(); ++set) {
    require(pardef.lDoF(set) >= 1, "a degree of freedom of each set");
    for (const int point : pardef.points(set)) {
      require(point >= 0 && point < pardef.DATAsize(), "a point that exists");
      require(pardef.DATA(point).set == set, "a point in its own set");
    }
    for (const int parm : pardef.parms(set)) {
      require(parm >= 0 && parm < pardef.PAR_size(), "an element that exists");
    }
    points += static_cast<int>(pardef.points(set).size());
  }
  require(points == pardef.DATAsize(), "every point in one set");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(data, data + size);
  harness::endingOf(
      [&] {
        harness::ReadRun run(text);
        run.read();
        checkPrepared(run.pardef, run.funclib, run.method);
      },
      false);
  return 0;
}
