// Linear systems of the minimiser and of the covariance, by LAPACK.
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
