// Linear systems of the minimiser and of the covariance, and small complex matrices of the exchange
// models, by LAPACK and BLAS.
// SPDX-License-Identifier: GPL-3.0-or-later
#include "LinearAlgebra.h"

#include "Fatal.h"

#include <algorithm>
#include <array>
#include <cassert>
#include <cmath>
#include <cstddef>
#include <iostream>
#include <memory>
#include <new>
#include <utility>

extern "C" {
void dgesv_(const int* n, const int* nrhs, double* a, const int* lda, int* ipiv, double* b,
            const int* ldb, int* info);
void dgetrf_(const int* m, const int* n, double* a, const int* lda, int* ipiv, int* info);
void dgetri_(const int* n, double* a, const int* lda, const int* ipiv, double* work,
             const int* lwork, int* info);

// Complex arrays are passed as their numbers. Fortran takes the length of each text argument as a
// further argument at the end.
void zgemm_(const char* transa, const char* transb, const int* m, const int* n, const int* k,
            const double* alpha, const double* a, const int* lda, const double* b, const int* ldb,
            const double* beta, double* c, const int* ldc, std::size_t, std::size_t);
void zgemv_(const char* trans, const int* m, const int* n, const double* alpha, const double* a,
            const int* lda, const double* x, const int* incx, const double* beta, double* y,
            const int* incy, std::size_t);
void zlacpy_(const char* part, const int* m, const int* n, const double* a, const int* lda,
             double* b, const int* ldb, std::size_t);
void zgetrf_(const int* m, const int* n, double* a, const int* lda, int* ipiv, int* info);
void zgetri_(const int* n, double* a, const int* lda, const int* ipiv, double* work,
             const int* lwork, int* info);
void zgeev_(const char* jobvl, const char* jobvr, const int* n, double* a, const int* lda,
            double* w, double* vl, const int* ldvl, double* vr, const int* ldvr, double* work,
            const int* lwork, double* rwork, int* info, std::size_t, std::size_t);
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

// ---- complex matrices ----

namespace {

constexpr double kOne[] = {1.0, 0.0};
constexpr double kZero[] = {0.0, 0.0};
constexpr int kStride = 1;

constexpr std::size_t kMost = kMaxOrder;
using Scratch = std::array<double, 2 * kMost * kMost>;
using VectorScratch = std::array<double, 2 * kMost>;

std::span<const double> entries(int n, const double* A) {
  return {A, 2 * static_cast<std::size_t>(n) * static_cast<std::size_t>(n)};
}

void setIdentity(int n, double* A) {
  std::fill_n(A, 2 * n * n, 0.0);
  for (int i = 0; i < n; ++i) A[idxr(i, i, n)] = 1.0;
}

}  // namespace

void zmat_cpy(int n, const double* A, double* B) { zlacpy_("A", &n, &n, A, &n, B, &n, 1); }

void zmat_mlt(int n, const double* A, const double* B, double* C) {
  zgemm_("N", "N", &n, &n, &n, kOne, A, &n, B, &n, kZero, C, &n, 1, 1);
}

void zmat_mlt(int n, const double* A, const double* B, const double* C, double* D) {
  Scratch AB;
  zmat_mlt(n, A, B, AB.data());
  zmat_mlt(n, AB.data(), C, D);
}

void zmat_mlt(int n, const double* A, const double* B, const double* C, const double* D,
              double* E) {
  Scratch AB;
  Scratch ABC;
  zmat_mlt(n, A, B, AB.data());
  zmat_mlt(n, AB.data(), C, ABC.data());
  zmat_mlt(n, ABC.data(), D, E);
}

void zmat_vmlt(int n, const double* A, const double* v, double* w) {
  zgemv_("N", &n, &n, kOne, A, &n, v, &kStride, kZero, w, &kStride, 1);
}

void zmat_vmlt(int n, const double* A, const double* B, const double* v, double* w) {
  Scratch AB;
  zmat_mlt(n, A, B, AB.data());
  zmat_vmlt(n, AB.data(), v, w);
}

void zdmat_mlt(int n, const double* d, const double* A, double* B) {
  for (int j = 0; j < n; ++j) {
    for (int i = 0; i < n; ++i) {
      const double d_re = d[idvr(i)], d_im = d[idvi(i)];
      const double a_re = A[idxr(i, j, n)], a_im = A[idxi(i, j, n)];
      B[idxr(i, j, n)] = d_re * a_re - d_im * a_im;
      B[idxi(i, j, n)] = d_re * a_im + d_im * a_re;
    }
  }
}

void zdmat_mlt(int n, const double* A, const double* d, const double* B, double* C) {
  Scratch dB;
  zdmat_mlt(n, d, B, dB.data());
  zmat_mlt(n, A, dB.data(), C);
}

void zmat_exp(int n, double t, const double* lambda, double* e) {
  for (int k = 0; k < n; ++k) {
    const double size = std::exp(t * lambda[idvr(k)]);
    const double angle = t * lambda[idvi(k)];
    e[idvr(k)] = size * std::cos(angle);
    e[idvi(k)] = size * std::sin(angle);
  }
}

void zmat_cnj(int n, const double* A, double* B) {
  for (int k = 0; k < n * n; ++k) {
    B[idvr(k)] = A[idvr(k)];
    B[idvi(k)] = -A[idvi(k)];
  }
}

int zmat_inv(int n, const double* A, double* B) {
  assert(n <= kMaxOrder);
  std::array<int, kMaxOrder> pivots;
  std::array<double, 4 * kMost> work;  // 2n complex numbers
  const int work_size = 2 * n;
  int info = 0;
  zmat_cpy(n, A, B);
  zgetrf_(&n, &n, B, &n, pivots.data(), &info);
  if (info == 0) zgetri_(&n, B, &n, pivots.data(), work.data(), &work_size, &info);
  if (info != 0) {
    std::cerr << "WARNING: Relaxation matrix is singular. Check the input file.\n";
  }
  return info;
}

int zmat_eig(int n, double* A, double* V, double* w) {
  assert(n <= kMaxOrder);
  constexpr int kNoLeftVectors = 1;
  std::array<double, 4 * kMost> work;
  VectorScratch real_work;
  const int work_size = 2 * n;
  int info = 1;
  if (allFinite(entries(n, A))) {
    zgeev_("N", "V", &n, A, &n, w, nullptr, &kNoLeftVectors, V, &n, work.data(), &work_size,
           real_work.data(), &info, 1, 1);
  }
  if (info != 0) {
    fatal("\nERROR: Eigenvectors of the relaxation matrix cannot be computed.\n");
  }
  return info;
}

int zmat_eig(int n, const double* A, double* V, double* V_inv, double* w) {
  Scratch copy;
  zmat_cpy(n, A, copy.data());
  const int info = zmat_eig(n, copy.data(), V, w);
  zmat_inv(n, V, V_inv);
  return info;
}

void zmat_pow(int n, const double* A, int p, double* B) {
  if (p == 0) {
    setIdentity(n, B);
    return;
  }
  // Plain multiplication: echo counts are small. Starts where the last product lands in B.
  Scratch scratch;
  double* from = p % 2 != 0 ? scratch.data() : B;
  double* to = p % 2 != 0 ? B : scratch.data();
  setIdentity(n, from);
  for (int k = 0; k < p; ++k) {
    zmat_mlt(n, from, A, to);
    std::swap(from, to);
  }
}

void zmat_mltpow(int n, const double* A, const double* B, const double* C, const double* D, int p,
                 double* E) {
  Scratch product;
  zmat_mlt(n, A, B, C, D, product.data());
  zmat_pow(n, product.data(), p, E);
}
