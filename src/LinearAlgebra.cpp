// Linear systems of the minimiser and of the covariance, by LAPACK.
// SPDX-License-Identifier: GPL-3.0-or-later
#include "LinearAlgebra.h"

#include "Fatal.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <memory>
#include <new>

extern "C" {
void dgesv_(const int* n, const int* nrhs, double* a, const int* lda, int* ipiv, double* b,
            const int* ldb, int* info);
void dgetrf_(const int* m, const int* n, double* a, const int* lda, int* ipiv, int* info);
void dgetri_(const int* n, double* a, const int* lda, const int* ipiv, double* work,
             const int* lwork, int* info);
}

namespace {

/// Working memory of one call for a system of n unknowns.
struct Buffers {
  Buffers(int n, const char* routine)
      : matrix(
            new (std::nothrow) double[static_cast<std::size_t>(n) * static_cast<std::size_t>(n)]),
        vector(new (std::nothrow) double[static_cast<std::size_t>(n)]),
        pivots(new (std::nothrow) int[static_cast<std::size_t>(n)]) {
    if (matrix == nullptr || vector == nullptr || pivots == nullptr) fatalNoMemory(routine);
  }

  std::unique_ptr<double[]> matrix;
  std::unique_ptr<double[]> vector;
  std::unique_ptr<int[]> pivots;
};

bool allFinite(std::span<const double> numbers) {
  return std::all_of(numbers.begin(), numbers.end(), [](double x) { return std::isfinite(x); });
}

}  // namespace

int LM_solv(int n, std::span<const double> alpha, std::span<const double> beta,
            std::span<double> step, double lambda) {
  if (n == 0) return 0;
  const auto size = static_cast<std::size_t>(n);
  const Buffers work(n, "LM_solv");
  double* const a = work.matrix.get();
  double* const b = work.vector.get();
  std::copy_n(alpha.begin(), size * size, a);
  std::copy_n(beta.begin(), size, b);
  for (std::size_t j = 0; j < size; ++j) a[j * size + j] *= 1.0 + lambda;
  if (!allFinite({a, size * size}) || !allFinite({b, size})) return n + 1;
  constexpr int kOneSide = 1;
  int info = 0;
  dgesv_(&n, &kOneSide, a, &n, work.pivots.get(), b, &n, &info);
  if (info == 0) std::copy_n(b, size, step.begin());
  return info;
}

int LM_inv(int n, std::span<double> matrix) {
  if (n == 0) return 0;
  const auto size = static_cast<std::size_t>(n) * static_cast<std::size_t>(n);
  if (!allFinite(matrix.first(size))) return n + 1;
  const Buffers work(n, "LM_inv");
  double* const a = work.matrix.get();
  std::copy_n(matrix.begin(), size, a);
  int info = 0;
  dgetrf_(&n, &n, a, &n, work.pivots.get(), &info);
  if (info != 0) return info;
  dgetri_(&n, a, &n, work.pivots.get(), work.vector.get(), &n, &info);
  if (info == 0) std::copy_n(a, size, matrix.begin());
  return info;
}
