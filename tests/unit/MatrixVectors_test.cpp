// The matrix and multiple-quantum models against values and derivatives computed in 50 digits by
// propagation, see tests/data/matrix_models.txt.
// SPDX-License-Identifier: GPL-3.0-or-later
#include "Models.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <fstream>
#include <map>
#include <ostream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using models::Call;
using models::Evaluation;
using models::Model;
using models::near;

constexpr std::size_t kCases = 105;
constexpr std::size_t kCasesOfAModel = 7;
constexpr std::size_t kModels = 15;

struct Case {
  int line;
  std::string model;
  std::string kind;
  double rtol;
  double value;
  std::vector<double> x;
  std::vector<double> p;
  std::vector<std::string> derivatives;  ///< "-": there is none
};

bool isClosedForm(const std::string& model) { return model.starts_with("MQCPMG_Richards"); }

Case parse(const std::string& text, int line) {
  std::istringstream in(text);
  Case c{};
  c.line = line;
  in >> c.model >> c.kind >> c.rtol >> c.value;
  std::string word;
  std::string part;
  while (in >> word) {
    if (word == "x" || word == "p" || word == "d") {
      part = word;
    } else if (part == "d") {
      c.derivatives.push_back(word);
    } else {
      (part == "x" ? c.x : c.p).push_back(std::stod(word));
    }
  }
  return c;
}

std::vector<Case> readCases() {
  std::ifstream file(DRAVO_SOURCE_DIR "/tests/data/matrix_models.txt");
  if (!file) throw std::runtime_error("cannot read tests/data/matrix_models.txt");
  std::vector<Case> cases;
  std::string text;
  for (int line = 1; std::getline(file, text); ++line) {
    if (!text.empty() && text.front() != '#') cases.push_back(parse(text, line));
  }
  return cases;
}

const std::vector<Case>& allCases() {
  static const std::vector<Case> cases = readCases();
  return cases;
}

std::vector<std::string> modelNames() {
  std::vector<std::string> names;
  for (const Case& c : allCases()) {
    if (names.empty() || names.back() != c.model) names.push_back(c.model);
  }
  return names;
}

class MatrixVectors : public testing::TestWithParam<std::string> {
 protected:
  MatrixVectors() {
    for (const Case& c : allCases()) {
      if (c.model == GetParam()) cases_.push_back(c);
    }
  }
  std::vector<Case> cases_;
};

INSTANTIATE_TEST_SUITE_P(Models, MatrixVectors, testing::ValuesIn(modelNames()),
                         [](const auto& model) { return model.param; });

TEST(MatrixVectorsFile, HasSevenCasesOfEachOfFifteenModels) {
  EXPECT_EQ(allCases().size(), kCases);
  std::map<std::string, std::size_t> count;
  for (const Case& c : allCases()) {
    ++count[c.model];
    EXPECT_TRUE(c.kind == "exact" || c.kind == "formula") << "line " << c.line;
    EXPECT_EQ(c.rtol, 1e-9) << "line " << c.line;
    EXPECT_EQ(c.p.size(), c.derivatives.size()) << "line " << c.line;
  }
  EXPECT_EQ(count.size(), kModels);
  for (const auto& [model, cases] : count) EXPECT_EQ(cases, kCasesOfAModel) << model;
}

TEST_P(MatrixVectors, ValueIsReproduced) {
  const Model model(GetParam());
  for (const Case& c : cases_) {
    const double value = model.value({.x = c.x, .p = c.p});
    EXPECT_TRUE(near(value, c.value, 0.0, c.rtol)) << "line " << c.line;
  }
}

/// The closed forms have analytic derivatives; the quotients of the others carry the rounding of
/// the value divided by the step of 1e-9 |p|.
testing::AssertionResult derivativeMatches(const Case& c, std::size_t k, double actual) {
  if (c.derivatives[k] == "-") {
    if (!std::isfinite(actual)) return testing::AssertionSuccess();
    return testing::AssertionFailure() << actual << " where the parameter is 0";
  }
  const double absolute = (isClosedForm(c.model) ? 1e-9 : 0.1) / std::fabs(c.p[k]);
  const double expected = std::stod(c.derivatives[k]);
  return near(actual, expected, absolute + 1e-6 * std::fabs(expected));
}

TEST_P(MatrixVectors, DerivativesAreReproduced) {
  const Model model(GetParam());
  for (const Case& c : cases_) {
    const Evaluation e = model.evaluateFresh({.x = c.x, .p = c.p});
    EXPECT_TRUE(near(e.value, c.value, 0.0, c.rtol)) << "line " << c.line;
    for (std::size_t k = 0; k < c.p.size(); ++k) {
      EXPECT_TRUE(derivativeMatches(c, k, e.dydp[k]))
          << "line " << c.line << ", " << model.parmName(k);
    }
    EXPECT_EQ(e.dydp[c.p.size() - 1], 1.0) << "R20, line " << c.line;
  }
}

}  // namespace
