// Fits of measured data, compared with independent least-squares fits of the same numbers.
// SPDX-License-Identifier: GPL-3.0-or-later
//
// The example inputs name the origin of their data and the values expected. The tolerances say how
// far a parameter moves when chi-square rises by 1e-6 of itself.
#include "Problem.h"

#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace {

using problem::Problem;
using problem::readFile;

constexpr double kChiTolerance = 1e-6;  // relative

std::string example(const std::string& name) {
  return readFile(std::string(DRAVO_SOURCE_DIR) + "/examples/" + name);
}

/// `text` with the one place that reads `old` replaced.
std::string replaced(std::string text, const std::string& old, const std::string& by) {
  const std::size_t found = text.find(old);
  if (found == std::string::npos) throw std::runtime_error("no '" + old + "' in the example");
  return text.replace(found, old.size(), by);
}

void expectChi(double actual, double expected) {
  EXPECT_NEAR(actual, expected, kChiTolerance * expected);
}

using Values = std::vector<std::pair<std::string, double>>;

void expectValues(const Problem& problem, const Values& expected, double tolerance) {
  for (const auto& [name, value] : expected) {
    EXPECT_NEAR(problem.value(name), value, tolerance * value) << name;
  }
}

TEST(RealData, Hansen08Residues70And71) {
  Problem problem(example("hansen08_15n_cpmg_local.in"));
  problem.fit().run_FIT(false);
  ASSERT_EQ(problem.pardef.DATAsize(), 60);
  expectChi(problem.fit().best().chi(0), 53.83821);
  expectValues(problem,
               {{"70::dw", 1786.676},
                {"70::kex", 1752.888},
                {"70::papb", 0.01004037},
                {"70::R20_1_1", 6.97255},
                {"70::R20_1_2", 9.40992}},
               5e-4);
  expectChi(problem.fit().best().chi(1), 15.65953);
  expectValues(problem, {{"71::dw", 638.848}, {"71::papb", 0.0138729}}, 5e-3);
  expectValues(problem, {{"71::kex", 2481.01}, {"71::R20_1_1", 5.00310}, {"71::R20_1_2", 6.90214}},
               5e-4);
}

TEST(RealData, FynSh3Asp9) {
  Problem problem(example("fyn_d9_15n_sq_cpmg.in"));
  problem.fit().run_FIT(false);
  ASSERT_EQ(problem.pardef.DATAsize(), 41);
  expectChi(problem.fit().best().total(), 18.206445);
  expectValues(problem,
               {{"D9::dw", 1355.611},
                {"D9::kex", 466.632},
                {"D9::papb", 0.04437961},
                {"D9::R20_1_1", 8.348057},
                {"D9::R20_1_2", 8.772850},
                {"D9::R20_1_3", 10.233888}},
               1e-3);
}

TEST(RealData, Abp1pFiveResiduesWithCommonExchange) {
  Problem problem(example("abp1p_15n_cpmg_global.in"));
  problem.fit().run_FIT(false);
  ASSERT_EQ(problem.pardef.DATAsize(), 220);
  ASSERT_EQ(problem.pardef.gDoF(), 220 - 17);
  expectChi(problem.fit().best().total(), 590.49515);
  expectValues(problem,
               {{"GLOBAL::kex", 466.560},
                {"GLOBAL::papb", 0.0588226},
                {"15N::dw", 593.361},
                {"31N::dw", 595.559},
                {"33N::dw", 540.296},
                {"34N::dw", 1072.592},
                {"37N::dw", 503.304}},
               5e-4);
}

TEST(RealData, Sod1ResiduesWithCommonExchange) {
  // From elsewhere the fit creeps along its valley for many seconds: it starts at the shared values
  // of the minimum, with the sets' own parameters where the example has them.
  std::string input = example("sod1_15n_cpmg_global.in");
  input = replaced(input, "METHOD GRID\nMETHOD ONEEX\nMETHOD MCMIN 20 0.1\n", "METHOD ONE\n");
  input = replaced(input, "GPAR kexg 100 8000 5 1500", "GPAR kexg 100 8000 5 3832");
  input = replaced(input, "GPAR papbg 0.002 0.2 5 0.02", "GPAR papbg 0.002 0.2 5 0.0277");
  Problem problem(input);
  problem.fit().run_FIT(false);
  ASSERT_EQ(problem.pardef.DATAsize(), 64);
  ASSERT_EQ(problem.pardef.gDoF(), 64 - 8);
  expectChi(problem.fit().best().total(), 48.790759);
  // kex, papb and dw are correlated to nearly 1 and may stand anywhere in the valley.
  expectValues(problem,
               {{"10G::R20_1_1", 16.981},
                {"10G::R20_1_2", 18.430},
                {"11D::R20_1_1", 17.309},
                {"11D::R20_1_2", 18.193}},
               1e-3);
}

}  // namespace
