// Helpers of the model tests: a model by name, its value and its derivatives at one point.
// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "FuncLib.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <sstream>
#include <string>
#include <vector>

namespace models {

/// Fills every derivative entry before a call; what still holds it afterwards was not written.
constexpr double kUntouched = -9.87654321e99;

/// One call of a model function.
struct Call {
  std::vector<double> x;
  std::vector<double> p;
  std::vector<std::size_t> masked = {};  ///< positions of the parameter vector that are masked
  std::vector<int> parmap = {};          ///< empty: 0, 1, 2, ...
  std::vector<int> labels = {};          ///< empty: every label is 1
};

struct Evaluation {
  double value = 0.0;
  std::vector<double> dydp;
};

/// A model of the registry, picked by its name. Model functions with a cache share it among all
/// objects of this class.
class Model {
 public:
  explicit Model(const std::string& name) { lib_.Pick_Func(name); }

  [[nodiscard]] const Funclib& lib() const { return lib_; }
  [[nodiscard]] std::size_t size() const { return lib_.Get_Rules().basePAR_size(); }
  [[nodiscard]] const std::string& parmName(std::size_t k) const {
    return lib_.Get_Rules().baseName(static_cast<unsigned>(k));
  }
  /// Number of the base parameter of this name.
  [[nodiscard]] std::size_t parm(const std::string& name) const {
    const int k = lib_.Get_Rules().index(name);
    EXPECT_GE(k, 0) << lib_.Name() << " has no parameter " << name;
    return static_cast<std::size_t>(std::max(k, 0));
  }

  /// The value alone, from a call with an empty derivative vector.
  [[nodiscard]] double value(const Call& call) const {
    std::vector<double> none;
    const double value = run(call, none);
    EXPECT_TRUE(none.empty()) << lib_.Name() << " resizes an empty derivative vector";
    return value;
  }

  /// Value and derivatives. The derivative vector has three entries behind the last of parmap.
  [[nodiscard]] Evaluation evaluate(const Call& call) const {
    Evaluation result;
    result.dydp.assign(vectorSize(call), kUntouched);
    result.value = run(call, result.dydp);
    EXPECT_EQ(result.dydp.size(), vectorSize(call)) << lib_.Name();
    return result;
  }

  /// As evaluate(), but never answered from what an earlier call left in a cache: a call elsewhere
  /// comes first, so that rows of derivatives are those of this point wherever they are computed.
  [[nodiscard]] Evaluation evaluateFresh(const Call& call) const {
    Call elsewhere = call;
    elsewhere.masked.clear();
    for (double& p : elsewhere.p) p = 1.01 * p + 1e-12;
    static_cast<void>(evaluate(elsewhere));
    return evaluate(call);
  }

 private:
  [[nodiscard]] std::vector<int> mapOf(const Call& call) const {
    if (!call.parmap.empty()) return call.parmap;
    std::vector<int> map;
    for (std::size_t k = 0; k < size(); ++k) map.push_back(static_cast<int>(k));
    return map;
  }

  [[nodiscard]] std::size_t vectorSize(const Call& call) const {
    const std::vector<int> map = mapOf(call);
    return static_cast<std::size_t>(*std::max_element(map.begin(), map.end())) + 4;
  }

  double run(const Call& call, std::vector<double>& dydp) const {
    EXPECT_EQ(call.x.size(), static_cast<std::size_t>(lib_.Get_dimX())) << lib_.Name();
    EXPECT_EQ(call.p.size(), size()) << lib_.Name();
    Data d;
    d.x = call.x;
    // A model without labels has the single label 0.
    d.index = lib_.Get_dimIndex() == 0
                  ? std::vector<int>{0}
                  : std::vector<int>(static_cast<std::size_t>(lib_.Get_dimIndex()), 1);
    if (!call.labels.empty()) d.index = call.labels;
    d.parmap = mapOf(call);
    std::vector<bool> skip(vectorSize(call), false);
    for (const std::size_t position : call.masked) skip[position] = true;
    std::vector<double> p = call.p;
    const double value = lib_.Func()(d, p.data(), dydp, skip);
    for (std::size_t k = 0; k < p.size(); ++k) {
      EXPECT_TRUE(p[k] == call.p[k] || std::isnan(p[k]))
          << lib_.Name() << " changes its parameters";
    }
    return value;
  }

  Funclib lib_;
};

/// Names of all registered models, in the order of registration.
inline std::vector<std::string> registeredNames() {
  const Funclib lib;
  std::vector<std::string> names;
  names.reserve(static_cast<std::size_t>(lib.size()));
  for (int model = 0; model < lib.size(); ++model) names.push_back(lib.nameOf(model));
  return names;
}

/// |a - b| <= absolute + relative * max(|a|, |b|), with both values and their difference on
/// failure. A NaN is near nothing.
template <class A, class B>
testing::AssertionResult near(A a, B b, double absolute, double relative = 0.0) {
  const auto p = static_cast<long double>(a);
  const auto q = static_cast<long double>(b);
  const long double tolerance =
      static_cast<long double>(absolute) +
      static_cast<long double>(relative) * std::max(std::fabs(p), std::fabs(q));
  if (std::fabs(p - q) <= tolerance && std::isfinite(tolerance)) return testing::AssertionSuccess();
  std::ostringstream text;
  text.precision(17);
  text << p << " and " << q << " differ by " << p - q << ", more than " << tolerance;
  return testing::AssertionFailure() << text.str();
}

}  // namespace models
