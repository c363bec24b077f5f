// A whole fit made from an input text, for the tests of the fitting engine.
// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "Calc.h"
#include "Fit.h"
#include "FuncLib.h"
#include "Method.h"
#include "ParDef.h"
#include "Random.h"
#include "Setup.h"
#include "Xmgr.h"

#include <gtest/gtest.h>

#include <stdlib.h>  // for mkdtemp

#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <limits>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace problem {

constexpr double kInf = std::numeric_limits<double>::infinity();
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

/// The heap of the test program, watched and restricted. Defined in Problem.cpp.
struct Heap {
  std::size_t blocks = 0;   ///< taken so far, those of arrays not always included
  std::size_t largest = 0;  ///< bytes of the largest of them
  /// Blocks of at least this many bytes are refused.
  std::size_t refuse_from = std::numeric_limits<std::size_t>::max();
  /// Arrays that new (std::nothrow) serves before it refuses one; negative: all.
  int arrays_until_refusal = -1;
};
extern Heap heap;
/// True when `heap` counts the blocks that are taken.
[[nodiscard]] bool heapIsWatched();

/// A directory of its own, gone with the object.
class ScratchDirectory {
 public:
  ScratchDirectory() {
    std::string name = (std::filesystem::temp_directory_path() / "dravo-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("no scratch directory");
    path_ = name;
  }
  ~ScratchDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  ScratchDirectory(const ScratchDirectory&) = delete;
  ScratchDirectory& operator=(const ScratchDirectory&) = delete;

  [[nodiscard]] const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path path_;
};

/// What is written to `stream` during the life of the object.
class Captured {
 public:
  explicit Captured(std::ostream& stream) : stream_(stream), old_(stream.rdbuf(text_.rdbuf())) {}
  ~Captured() { stream_.rdbuf(old_); }
  Captured(const Captured&) = delete;
  Captured& operator=(const Captured&) = delete;

  [[nodiscard]] std::string text() const { return text_.str(); }

 private:
  std::ostringstream text_;
  std::ostream& stream_;
  std::streambuf* old_;
};

inline std::string readFile(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) throw std::runtime_error("cannot read " + path.string());
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

inline void writeFile(const std::filesystem::path& path, const std::string& text) {
  std::ofstream file(path, std::ios::binary);
  file << text;
  file.close();
  if (!file) throw std::runtime_error("cannot write " + path.string());
}

/// A number with all its digits, for input texts.
inline std::string text(double number) {
  std::ostringstream out;
  out.precision(std::numeric_limits<double>::max_digits10);
  out << number;
  return out.str();
}

/// DATA line of a model with one abscissa and no labels (the last token is not read).
inline std::string data(double x, double y, double dy = 1.0) {
  return "DATA " + text(x) + ' ' + text(y) + ' ' + text(dy) + " .\n";
}

/// -log10 of the relative error (of the error, for an expected 0): the number of digits agreed.
inline double digitsAgreed(double actual, double expected) {
  if (actual == expected) return std::numeric_limits<double>::max_digits10;
  const double error = std::abs(actual - expected);
  return -std::log10(expected == 0.0 ? error : error / std::abs(expected));
}

/// A model of one abscissa that the registry does not have.
struct ToyModel {
  ModelFunc func;
  const char* name;
  std::vector<ParmRow> parms;
};

struct Options {
  std::vector<ToyModel> models = {};
  int verbosity = 0;
  int precision = 6;
  std::string output_file = "no-file";
  Random random = Random();
};

/// The objects of a run, in their order of dependence, after the input was read.
class Problem {
 public:
  explicit Problem(const std::string& input, const Options& options = {}) {
    for (const ToyModel& toy : options.models) {
      const int model = funclib.Define_Func(toy.func, toy.name, "toy", "EXP", 1, 0, 0);
      for (const ParmRow& parm : toy.parms) {
        funclib.Define_Parm(model, parm.name, parm.lower, parm.upper, parm.rule);
      }
    }
    read(input);
    pardef.prep();
    fit_ = std::make_unique<Fit>("2.4.4", funclib, method, pardef, calc, xmgr, options.output_file,
                                 options.verbosity, options.precision, options.random);
  }
  // The fit holds references to the other members.
  Problem(const Problem&) = delete;
  Problem& operator=(const Problem&) = delete;

  [[nodiscard]] Fit& fit() { return *fit_; }

  /// Number of the parameter of this full name, such as "set::kex" or "GLOBAL::kex".
  [[nodiscard]] int parm(const std::string& full_name) const {
    for (int i = 0; i < pardef.PAR_size(); ++i) {
      if (pardef.FullName(i) == full_name) return i;
    }
    throw std::runtime_error("no parameter " + full_name);
  }
  /// In the best set.
  [[nodiscard]] double value(const std::string& full_name) const {
    return fit_->best().par[static_cast<std::size_t>(parm(full_name))];
  }
  [[nodiscard]] double error(const std::string& full_name) const {
    return fit_->stdError(parm(full_name));
  }
  /// A value set of the right size that holds the initial values.
  [[nodiscard]] ParSet initial() const {
    ParSet at;
    at.resize(static_cast<std::size_t>(pardef.SETsize()),
              static_cast<std::size_t>(pardef.PAR_size()));
    for (int i = 0; i < pardef.PAR_size(); ++i) {
      at.par[static_cast<std::size_t>(i)] = pardef.grd_initial(i);
    }
    return at;
  }

  Setup setup;
  Xmgr xmgr;
  Funclib funclib;
  ParDef pardef;
  Method method;
  Calc calc;

 private:
  void read(const std::string& input) {
    const ScratchDirectory directory;
    const std::string file = (directory.path() / "input").string();
    writeFile(file, input);
    const std::array<const char*, 5> arguments = {"dravo", "-i", file.c_str(), "-o", "no-file"};
    setup.ProcCmdLine(static_cast<int>(arguments.size()), arguments.data(), xmgr);
    setup.ReadInputFile(funclib, method, pardef, calc, xmgr);
  }

  std::unique_ptr<Fit> fit_;
};

/// Counts up by one tick at every reading, from the number that `start` gives.
struct FakeClock {
  static std::uint32_t now() { return ticks++; }
  static void start(std::uint32_t tick) { ticks = tick; }
  static inline std::uint32_t ticks = 0;
};

}  // namespace problem
