// Linear systems of the minimiser and of the covariance, and small complex matrices of the exchange
// models, by LAPACK and BLAS.
// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <span>

/// Solves the damped normal equations for one step: (A + lambda diag A) step = beta, by dgesv.
/// alpha: n rows of n entries, symmetric, both triangles filled; beta, step: n entries; step is
/// left alone on failure. Returns 0, or the status of dgesv (> 0: singular), or n + 1 when an entry
/// is not finite: LAPACK, which may end the process on such input, is then not called. Ends the run
/// when memory runs out. Allocates n*n + 2n numbers.
[[nodiscard]] int LM_solv(int n, std::span<const double> alpha, std::span<const double> beta,
                          std::span<double> step, double lambda);

/// Inverts a matrix of n rows of n entries in place, by dgetrf and dgetri. Returns as LM_solv does;
/// on failure the matrix is untouched. n = 0 succeeds.
[[nodiscard]] int LM_inv(int n, std::span<double> matrix);

// ---- complex matrices of order n ----
//
// A matrix is an array of 2 n^2 numbers, column by column, each element's real part before its
// imaginary part; a vector has 2 n numbers. The caller owns all arrays. Results do not alias
// inputs. Nothing is allocated on the heap; n is at most kMaxOrder.

inline constexpr int kMaxOrder = 6;

/// Positions of the real and the imaginary part of element (i, j), counted from 0.
[[nodiscard]] constexpr int idxr(int i, int j, int n) { return 2 * (j * n + i); }
[[nodiscard]] constexpr int idxi(int i, int j, int n) { return 2 * (j * n + i) + 1; }
/// The same for element i of a vector.
[[nodiscard]] constexpr int idvr(int i) { return 2 * i; }
[[nodiscard]] constexpr int idvi(int i) { return 2 * i + 1; }

/// B = A.
void zmat_cpy(int n, const double* A, double* B);
/// C = A B.
void zmat_mlt(int n, const double* A, const double* B, double* C);
/// D = (A B) C.
void zmat_mlt(int n, const double* A, const double* B, const double* C, double* D);
/// E = ((A B) C) D.
void zmat_mlt(int n, const double* A, const double* B, const double* C, const double* D, double* E);
/// w = A v.
void zmat_vmlt(int n, const double* A, const double* v, double* w);
/// w = (A B) v.
void zmat_vmlt(int n, const double* A, const double* B, const double* v, double* w);
/// B = diag(d) A.
void zdmat_mlt(int n, const double* d, const double* A, double* B);
/// C = A diag(d) B.
void zdmat_mlt(int n, const double* A, const double* d, const double* B, double* C);
/// e[k] = exp(t lambda[k]).
void zmat_exp(int n, double t, const double* lambda, double* e);
/// B = complex conjugate of A, element by element.
void zmat_cnj(int n, const double* A, double* B);
/// B = A^-1. Returns 0, or the LAPACK status after a warning; B then holds no inverse.
int zmat_inv(int n, const double* A, double* B);
/// Eigenvalues w and right eigenvectors, column k of V belonging to w[k]; A is destroyed. Ends the
/// run when they cannot be computed; an A with an entry that is not finite never reaches LAPACK,
/// whose answer to it may be to end the process without a word.
int zmat_eig(int n, double* A, double* V, double* w);
/// The same with V^-1; A is kept. V^-1 of a defective A is no inverse, see zmat_inv.
int zmat_eig(int n, const double* A, double* V, double* V_inv, double* w);
/// B = A^p by p multiplications, p >= 0.
void zmat_pow(int n, const double* A, int p, double* B);
/// E = (((A B) C) D)^p.
void zmat_mltpow(int n, const double* A, const double* B, const double* C, const double* D, int p,
                 double* E);
