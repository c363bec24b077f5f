// Derivatives of models that have no analytic ones, and what such models keep from call to call.
// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "FuncLib.h"

#include <array>
#include <cstddef>
#include <vector>

/// A model's value alone. `slot` tells apart the parameter vectors that are evaluated for one
/// point: 0 as given, k + 1 with parameter k shifted, so that a model can keep what it computed for
/// each.
using ValueFunc = double (*)(const Data& d, const double* p, std::size_t slot);

/// Stands for "no parameter enters as a plain addend".
inline constexpr std::size_t kNoAddend = static_cast<std::size_t>(-1);

/// Value of a model of `parms` parameters, with derivatives (f(p + h) - f(p))/h, h = 1e-9 |p[k]|,
/// as a model function writes them (ModelFunc): none when `dydp` is empty, none for masked
/// parameters. `addend` is the parameter whose derivative is 1, if there is one. A parameter that
/// is exactly 0 has the step 0 and a derivative that is not finite. `p` is shifted in place and
/// restored to the bit; one evaluation for each derivative.
double forwardDifferences(ValueFunc value, std::size_t parms, std::size_t addend, const Data& d,
                          double* p, std::vector<double>& dydp, const std::vector<bool>& skip);

/// The model function of a value. The last parameter is the addend, R20, unless said otherwise.
template <ValueFunc value, std::size_t kParms, std::size_t kAddend = kParms - 1>
double withDerivatives(const Data& d, double* p, std::vector<double>& dydp,
                       const std::vector<bool>& skip) {
  return forwardDifferences(value, kParms, kAddend, d, p, dydp, skip);
}

/// What a model keeps for each slot of its ValueFunc, with the numbers that it depends on.
template <class Kept, std::size_t kNumbers, std::size_t kSlots>
class SlotCache {
 public:
  using Key = std::array<double, kNumbers>;

  /// What `make` gave for this key. Only the last key of each slot is known; a NaN never matches.
  template <class Make>
  const Kept& at(std::size_t slot, const Key& key, Make make) {
    Entry& entry = entries_[slot];
    if (!entry.filled || entry.key != key) {
      entry.kept = make();
      entry.key = key;
      entry.filled = true;
    }
    return entry.kept;
  }

 private:
  struct Entry {
    bool filled = false;
    Key key;
    Kept kept;
  };
  std::array<Entry, kSlots> entries_;
};
