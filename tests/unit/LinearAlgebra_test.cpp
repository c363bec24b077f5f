// The real linear systems of the minimiser and of the covariance.
// SPDX-License-Identifier: GPL-3.0-or-later
#include "LinearAlgebra.h"

#include "Problem.h"  // for heap

#include <cstddef>
#include <cstdlib>
#include <vector>

namespace {

using problem::kInf;
using problem::kNaN;

void expectNear(const std::vector<double>& actual, const std::vector<double>& expected,
                double tolerance) {
  ASSERT_EQ(actual.size(), expected.size());
  for (std::size_t i = 0; i < actual.size(); ++i) {
    EXPECT_NEAR(actual[i], expected[i], tolerance) << "entry " << i;
  }
}

// ---- LM_inv ----

TEST(LmInv, InvertsTwoByTwoAsByHand) {
  std::vector<double> matrix = {2, 1, 1, 2};
  ASSERT_EQ(LM_inv(2, matrix), 0);
  expectNear(matrix, {2.0 / 3, -1.0 / 3, -1.0 / 3, 2.0 / 3}, 1e-15);
}

TEST(LmInv, KeepsRowsAndColumnsOfAnUnsymmetricMatrixApart) {
  std::vector<double> matrix = {1, 2, 3, 0, 1, 4, 5, 6, 0};  // determinant 1
  ASSERT_EQ(LM_inv(3, matrix), 0);
  expectNear(matrix, {-24, 18, 5, 20, -15, -4, -5, 4, 1}, 1e-11);
}

TEST(LmInv, InvertsTheHilbertMatrixToItsIntegerInverse) {
  std::vector<double> matrix;
  for (int i = 0; i < 4; ++i) {
    for (int j = 0; j < 4; ++j) matrix.push_back(1.0 / (i + j + 1));
  }
  ASSERT_EQ(LM_inv(4, matrix), 0);
  expectNear(matrix,
             {16, -120, 240, -140, -120, 1200, -2700, 1680, 240, -2700, 6480, -4200, -140, 1680,
              -4200, 2800},
             1e-8);
}

TEST(LmInv, InvertsOnlyTheFirstRowsOfALongerArray) {
  std::vector<double> matrix = {4, 7, 8, 9};
  ASSERT_EQ(LM_inv(1, matrix), 0);
  EXPECT_EQ(matrix, (std::vector<double>{0.25, 7, 8, 9}));
}

TEST(LmInv, SingularMatrixIsReportedAndLeftAlone) {
  const std::vector<double> singular = {1, 2, 2, 4};
  std::vector<double> matrix = singular;
  EXPECT_EQ(LM_inv(2, matrix), 2);  // the second pivot is 0
  EXPECT_EQ(matrix, singular);
}

TEST(LmInv, ZeroMatrixIsReportedAtItsFirstPivot) {
  std::vector<double> matrix(9, 0.0);
  EXPECT_EQ(LM_inv(3, matrix), 1);
}

TEST(LmInv, NumbersThatAreNotFiniteNeverReachLapack) {
  // LAPACK's own statuses end at n: one more says that it was not asked.
  for (const double bad : {kNaN, kInf, -kInf}) {
    std::vector<double> matrix = {1, 0, bad, 1};
    EXPECT_EQ(LM_inv(2, matrix), 3);
    EXPECT_EQ(matrix[0], 1.0);
    EXPECT_EQ(matrix[3], 1.0);
  }
}

// LAPACK answers an empty system by ending the process with status 0: hence a status of its own.
constexpr int kCameBack = 7;

TEST(LmInv, NoParametersSucceedWithoutLapack) {
  std::vector<double> matrix;
  EXPECT_EXIT(std::exit(LM_inv(0, matrix) == 0 ? kCameBack : 1), testing::ExitedWithCode(kCameBack),
              testing::Eq(""));
}

// ---- LM_solv ----

TEST(LmSolv, SolvesTheUndampedSystemAsByHand) {
  const std::vector<double> alpha = {4, 2, 2, 3};
  const std::vector<double> beta = {8, 7};
  std::vector<double> step(2, 0.0);
  ASSERT_EQ(LM_solv(2, alpha, beta, step, 0.0), 0);
  expectNear(step, {10.0 / 8, 12.0 / 8}, 1e-15);
}

TEST(LmSolv, DampingMultipliesTheDiagonalAlone) {
  const std::vector<double> alpha = {4, 2, 2, 3};
  const std::vector<double> beta = {8, 7};
  std::vector<double> step(2, 0.0);
  ASSERT_EQ(LM_solv(2, alpha, beta, step, 1.0), 0);
  // (8 2; 2 6) step = (8, 7), determinant 44
  expectNear(step, {34.0 / 44, 40.0 / 44}, 1e-15);
}

TEST(LmSolv, ArgumentsMayBeLongerThanTheSystem) {
  const std::vector<double> alpha = {5, 99, 99, 99};
  const std::vector<double> beta = {10, 99};
  std::vector<double> step = {0, 42};
  ASSERT_EQ(LM_solv(1, alpha, beta, step, 0.0), 0);
  EXPECT_EQ(step, (std::vector<double>{2, 42}));
}

TEST(LmSolv, SingularSystemIsReportedAndTheStepLeftAlone) {
  const std::vector<double> alpha = {1, 1, 1, 1};
  const std::vector<double> beta = {1, 1};
  std::vector<double> step = {7, 8};
  EXPECT_EQ(LM_solv(2, alpha, beta, step, 0.0), 2);
  EXPECT_EQ(step, (std::vector<double>{7, 8}));
}

TEST(LmSolv, DampingMakesASingularSystemSolvable) {
  const std::vector<double> alpha = {1, 1, 1, 1};
  const std::vector<double> beta = {3, 3};
  std::vector<double> step(2, 0.0);
  ASSERT_EQ(LM_solv(2, alpha, beta, step, 1.0), 0);
  expectNear(step, {1, 1}, 1e-15);
}

TEST(LmSolv, NumbersThatAreNotFiniteNeverReachLapack) {
  const std::vector<double> good = {1, 0, 0, 1};
  const std::vector<double> beta = {1, 1};
  for (const double bad : {kNaN, kInf, -kInf}) {
    std::vector<double> step = {7, 8};
    EXPECT_EQ(LM_solv(2, std::vector<double>{1, bad, bad, 1}, beta, step, 0.0), 3);
    EXPECT_EQ(LM_solv(2, good, std::vector<double>{bad, 1}, step, 0.0), 3);
    EXPECT_EQ(LM_solv(2, good, beta, step, bad), 3);
    EXPECT_EQ(step, (std::vector<double>{7, 8}));
  }
}

TEST(LmSolv, DampingThatOverflowsTheDiagonalNeverReachesLapack) {
  std::vector<double> step = {7};
  EXPECT_EQ(LM_solv(1, std::vector<double>{1e300}, std::vector<double>{1}, step, 1e300), 2);
  EXPECT_EQ(step[0], 7.0);
}

TEST(LmSolv, NoParametersSucceedWithoutLapack) {
  std::vector<double> step;
  EXPECT_EXIT(std::exit(LM_solv(0, {}, {}, step, 1.0) == 0 ? kCameBack : 1),
              testing::ExitedWithCode(kCameBack), testing::Eq(""));
}

// ---- memory ----

/// The number of arrays that are served before the refused one.
class MemoryRunsOut : public testing::TestWithParam<int> {};

TEST_P(MemoryRunsOut, LmSolvNamesItselfAndEndsTheRun) {
  std::vector<double> step(1, 0.0);
  const std::vector<double> one = {1.0};
  EXPECT_EXIT(
      {
        problem::heap.arrays_until_refusal = GetParam();
        std::exit(LM_solv(1, one, one, step, 0.0) == 0 ? 0 : 2);
      },
      testing::ExitedWithCode(1),
      testing::Eq("ERROR: Unable to allocate memory in routine LM_solv\n"));
}

TEST_P(MemoryRunsOut, LmInvNamesItselfAndEndsTheRun) {
  std::vector<double> matrix = {1.0};
  EXPECT_EXIT(
      {
        problem::heap.arrays_until_refusal = GetParam();
        std::exit(LM_inv(1, matrix) == 0 ? 0 : 2);
      },
      testing::ExitedWithCode(1),
      testing::Eq("ERROR: Unable to allocate memory in routine LM_inv\n"));
}

// Matrix, vector, pivots.
INSTANTIATE_TEST_SUITE_P(AtAnyOfThreeArrays, MemoryRunsOut, testing::Values(0, 1, 2));

}  // namespace
