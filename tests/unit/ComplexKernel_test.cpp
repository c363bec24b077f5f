// The complex matrix kernel against plain complex arithmetic: storage, the composition of each
// operation, singular matrices, matrices with entries that are not finite, no memory from the heap.
// SPDX-License-Identifier: GPL-3.0-or-later
#include "LinearAlgebra.h"

#include "InputText.h"
#include "Problem.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstddef>
#include <limits>
#include <random>
#include <string>
#include <vector>

namespace {

using Complex = std::complex<double>;

constexpr double kInf = std::numeric_limits<double>::infinity();
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kRounding = 1e-13;  // products of a few matrices with entries of about 1

constexpr const char* kSingular = "WARNING: Relaxation matrix is singular. Check the input file.\n";
constexpr const char* kNoEigenvectors =
    "\nERROR: Eigenvectors of the relaxation matrix cannot be computed.\n";

// ---- reference: plain complex arithmetic ----

/// The numbers of a matrix or vector as the kernel stores them.
using Numbers = std::vector<double>;

std::size_t at(int position) { return static_cast<std::size_t>(position); }

/// Square matrix as rows of complex entries.
struct Matrix {
  int n;
  std::vector<std::vector<Complex>> rows;

  explicit Matrix(int order) : n(order), rows(at(order), std::vector<Complex>(at(order))) {}
  Complex& operator()(int i, int j) { return rows[at(i)][at(j)]; }
  Complex operator()(int i, int j) const { return rows[at(i)][at(j)]; }

  static Matrix unit(int order) {
    Matrix m(order);
    for (int i = 0; i < order; ++i) m(i, i) = 1.0;
    return m;
  }
  static Matrix random(int order, unsigned seed) {
    std::mt19937 engine(seed);
    std::uniform_real_distribution<double> entry(-1.0, 1.0);
    Matrix m(order);
    for (auto& row : m.rows) {
      for (Complex& z : row) {
        const double re = entry(engine);
        z = Complex(re, entry(engine));
      }
    }
    return m;
  }
  /// Column by column, real before imaginary part.
  [[nodiscard]] Numbers stored() const {
    Numbers numbers;
    for (int j = 0; j < n; ++j) {
      for (int i = 0; i < n; ++i) {
        numbers.push_back((*this)(i, j).real());
        numbers.push_back((*this)(i, j).imag());
      }
    }
    return numbers;
  }
};

Matrix operator*(const Matrix& a, const Matrix& b) {
  Matrix c(a.n);
  for (int i = 0; i < a.n; ++i) {
    for (int j = 0; j < a.n; ++j) {
      for (int k = 0; k < a.n; ++k) c(i, j) += a(i, k) * b(k, j);
    }
  }
  return c;
}

Matrix power(const Matrix& a, int p) {
  Matrix result = Matrix::unit(a.n);
  for (int k = 0; k < p; ++k) result = result * a;
  return result;
}

using Vector = std::vector<Complex>;

Vector randomVector(int n, unsigned seed) { return Matrix::random(n, seed).rows[0]; }

Vector operator*(const Matrix& a, const Vector& v) {
  Vector w(v.size());
  for (int i = 0; i < a.n; ++i) {
    for (int k = 0; k < a.n; ++k) w[at(i)] += a(i, k) * v[at(k)];
  }
  return w;
}

Matrix diagonal(const Vector& d) {
  Matrix m(static_cast<int>(d.size()));
  for (int i = 0; i < m.n; ++i) m(i, i) = d[at(i)];
  return m;
}

Numbers stored(const Vector& v) {
  Numbers numbers;
  for (const Complex& z : v) {
    numbers.push_back(z.real());
    numbers.push_back(z.imag());
  }
  return numbers;
}

testing::AssertionResult near(const Numbers& actual, const Numbers& expected,
                              double tolerance = kRounding) {
  if (actual.size() != expected.size()) {
    return testing::AssertionFailure() << actual.size() << " numbers, not " << expected.size();
  }
  for (std::size_t i = 0; i < actual.size(); ++i) {
    if (!(std::fabs(actual[i] - expected[i]) <= tolerance)) {
      return testing::AssertionFailure()
             << "number " << i << " is " << actual[i] << ", not " << expected[i];
    }
  }
  return testing::AssertionSuccess();
}

// ---- storage ----

TEST(ComplexStorage, MatricesAreStoredByColumnsAndRealPartFirst) {
  EXPECT_EQ(idxr(1, 2, 3), 14);
  EXPECT_EQ(idxi(1, 2, 3), 15);
  EXPECT_EQ(idxr(0, 0, 6), 0);
  EXPECT_EQ(idxi(5, 5, 6), 71);
  EXPECT_EQ(idxr(1, 0, 2), 2);
  EXPECT_EQ(idxr(0, 1, 2), 4);
}

TEST(ComplexStorage, VectorsAlternateRealAndImaginaryParts) {
  EXPECT_EQ(idvr(0), 0);
  EXPECT_EQ(idvi(0), 1);
  EXPECT_EQ(idvr(5), 10);
  EXPECT_EQ(idvi(5), 11);
}

TEST(ComplexStorage, ElementOfAProductIsFoundWhereTheIndexSays) {
  // Only A(0, 1) = 2 and B(1, 2) = i are not 0, so that A B holds 2i in (0, 2) alone.
  constexpr int n = 3;
  Numbers A(18), B(18), C(18, kNaN), expected(18);
  A[at(idxr(0, 1, n))] = 2.0;
  B[at(idxi(1, 2, n))] = 1.0;
  expected[at(idxi(0, 2, n))] = 2.0;
  zmat_mlt(n, A.data(), B.data(), C.data());
  EXPECT_EQ(C, expected);
}

// ---- composition ----

class ComplexKernel : public testing::TestWithParam<int> {
 protected:
  const int n = GetParam();
  const Matrix A = Matrix::random(n, 1), B = Matrix::random(n, 2);
  const Matrix C = Matrix::random(n, 3), D = Matrix::random(n, 4);
  const Numbers a = A.stored(), b = B.stored(), c = C.stored(), d = D.stored();
  const Vector v = randomVector(n, 5);
  const Numbers v_stored = stored(v);
  /// Outputs: NaN wherever a routine does not write.
  Numbers matrix = Numbers(a.size(), kNaN);
  Numbers vector = Numbers(v_stored.size(), kNaN);

  void TearDown() override {  // inputs are read only
    EXPECT_EQ(a, A.stored());
    EXPECT_EQ(b, B.stored());
    EXPECT_EQ(c, C.stored());
    EXPECT_EQ(d, D.stored());
    EXPECT_EQ(v_stored, stored(v));
  }
};

INSTANTIATE_TEST_SUITE_P(Orders, ComplexKernel, testing::Values(2, 3, 6));

TEST_P(ComplexKernel, CopyIsExact) {
  zmat_cpy(n, a.data(), matrix.data());
  EXPECT_EQ(matrix, a);
}

TEST_P(ComplexKernel, ProductOfTwo) {
  zmat_mlt(n, a.data(), b.data(), matrix.data());
  EXPECT_TRUE(near(matrix, (A * B).stored()));
}

TEST_P(ComplexKernel, ProductOfThreeIsTheTwoProductsInOrder) {
  zmat_mlt(n, a.data(), b.data(), c.data(), matrix.data());
  EXPECT_TRUE(near(matrix, (A * B * C).stored()));
  Numbers ab(a.size()), abc(a.size());
  zmat_mlt(n, a.data(), b.data(), ab.data());
  zmat_mlt(n, ab.data(), c.data(), abc.data());
  EXPECT_EQ(matrix, abc);
}

TEST_P(ComplexKernel, ProductOfFourIsTheThreeProductsInOrder) {
  zmat_mlt(n, a.data(), b.data(), c.data(), d.data(), matrix.data());
  EXPECT_TRUE(near(matrix, (A * B * C * D).stored()));
  Numbers abc(a.size()), abcd(a.size());
  zmat_mlt(n, a.data(), b.data(), c.data(), abc.data());
  zmat_mlt(n, abc.data(), d.data(), abcd.data());
  EXPECT_EQ(matrix, abcd);
}

TEST_P(ComplexKernel, ProductWithVector) {
  zmat_vmlt(n, a.data(), v_stored.data(), vector.data());
  EXPECT_TRUE(near(vector, stored(A * v)));
}

TEST_P(ComplexKernel, ProductOfTwoWithVectorMultipliesTheMatricesFirst) {
  zmat_vmlt(n, a.data(), b.data(), v_stored.data(), vector.data());
  EXPECT_TRUE(near(vector, stored(A * B * v)));
  Numbers ab(a.size()), abv(vector.size());
  zmat_mlt(n, a.data(), b.data(), ab.data());
  zmat_vmlt(n, ab.data(), v_stored.data(), abv.data());
  EXPECT_EQ(vector, abv);
}

TEST_P(ComplexKernel, DiagonalFromTheLeftScalesRows) {
  zdmat_mlt(n, v_stored.data(), a.data(), matrix.data());
  EXPECT_TRUE(near(matrix, (diagonal(v) * A).stored()));
}

TEST_P(ComplexKernel, UnitVectorAsDiagonalKeepsTheFirstRowAndZeroesTheOthers) {
  Vector first(at(n));
  first[0] = 1.0;
  const Numbers e = stored(first);
  zdmat_mlt(n, e.data(), a.data(), matrix.data());
  for (int i = 0; i < n; ++i) {
    for (int j = 0; j < n; ++j) {
      EXPECT_EQ(matrix[at(idxr(i, j, n))], i == 0 ? A(0, j).real() : 0.0);
      EXPECT_EQ(matrix[at(idxi(i, j, n))], i == 0 ? A(0, j).imag() : 0.0);
    }
  }
}

TEST_P(ComplexKernel, DiagonalBetweenTwoMatricesIsAppliedToTheSecondFirst) {
  zdmat_mlt(n, a.data(), v_stored.data(), b.data(), matrix.data());
  EXPECT_TRUE(near(matrix, (A * diagonal(v) * B).stored()));
  Numbers db(a.size()), adb(a.size());
  zdmat_mlt(n, v_stored.data(), b.data(), db.data());
  zmat_mlt(n, a.data(), db.data(), adb.data());
  EXPECT_EQ(matrix, adb);
}

TEST_P(ComplexKernel, ExponentialOfADiagonal) {
  constexpr double t = -0.7;
  zmat_exp(n, t, v_stored.data(), vector.data());
  Vector expected;
  for (const Complex& z : v) expected.push_back(std::exp(t * z));
  EXPECT_TRUE(near(vector, stored(expected)));
}

TEST_P(ComplexKernel, ExponentialAtTimeZeroIsOneExactly) {
  zmat_exp(n, 0.0, v_stored.data(), vector.data());
  EXPECT_EQ(vector, stored(Vector(at(n), 1.0)));
}

TEST_P(ComplexKernel, ConjugateNegatesImaginaryParts) {
  Matrix expected = A;
  for (auto& row : expected.rows) {
    for (Complex& z : row) z = std::conj(z);
  }
  zmat_cnj(n, a.data(), matrix.data());
  EXPECT_EQ(matrix, expected.stored());
}

TEST_P(ComplexKernel, PowersZeroToFour) {
  for (int p = 0; p <= 4; ++p) {
    SCOPED_TRACE(p);
    std::fill(matrix.begin(), matrix.end(), kNaN);
    zmat_pow(n, a.data(), p, matrix.data());
    EXPECT_TRUE(near(matrix, power(A, p).stored()));
  }
}

TEST_P(ComplexKernel, PowerZeroIsTheIdentityAndPowerOneTheMatrixExactly) {
  zmat_pow(n, a.data(), 0, matrix.data());
  EXPECT_EQ(matrix, Matrix::unit(n).stored());
  zmat_pow(n, a.data(), 1, matrix.data());
  EXPECT_EQ(matrix, a);
}

TEST_P(ComplexKernel, PowersArePlainRepeatedProductsFromTheRight) {
  Numbers product = a;
  for (int p = 2; p <= 9; ++p) {
    SCOPED_TRACE(p);
    Numbers next(a.size());
    zmat_mlt(n, product.data(), a.data(), next.data());
    product = next;
    zmat_pow(n, a.data(), p, matrix.data());
    EXPECT_EQ(matrix, product);
  }
}

TEST_P(ComplexKernel, NegativePowersMultiplyNothing) {
  for (const int p : {-2, -4}) {
    SCOPED_TRACE(p);
    std::fill(matrix.begin(), matrix.end(), kNaN);
    zmat_pow(n, a.data(), p, matrix.data());
    EXPECT_EQ(matrix, Matrix::unit(n).stored());
  }
  const Numbers before(a.size(), 7.0);
  for (const int p : {-1, -3}) {
    SCOPED_TRACE(p);
    matrix = before;
    zmat_pow(n, a.data(), p, matrix.data());
    EXPECT_EQ(matrix, before);
  }
}

TEST_P(ComplexKernel, PowerOfAProductOfFour) {
  Numbers abcd(a.size()), expected(a.size());
  zmat_mlt(n, a.data(), b.data(), c.data(), d.data(), abcd.data());
  for (int p = 0; p <= 3; ++p) {
    SCOPED_TRACE(p);
    std::fill(matrix.begin(), matrix.end(), kNaN);
    zmat_mltpow(n, a.data(), b.data(), c.data(), d.data(), p, matrix.data());
    zmat_pow(n, abcd.data(), p, expected.data());
    EXPECT_EQ(matrix, expected);
  }
  zmat_mltpow(n, a.data(), b.data(), c.data(), d.data(), 2, matrix.data());
  EXPECT_TRUE(near(matrix, power(A * B * C * D, 2).stored(), 1e-12));
}

// ---- inverse ----

TEST_P(ComplexKernel, InverseTimesMatrixIsTheIdentity) {
  EXPECT_EQ(zmat_inv(n, a.data(), matrix.data()), 0);
  Numbers left(a.size()), right(a.size());
  zmat_mlt(n, matrix.data(), a.data(), left.data());
  zmat_mlt(n, a.data(), matrix.data(), right.data());
  EXPECT_TRUE(near(left, Matrix::unit(n).stored(), 1e-12));
  EXPECT_TRUE(near(right, Matrix::unit(n).stored(), 1e-12));
}

TEST_P(ComplexKernel, SingularMatrixIsReportedOnceAndTheRunGoesOn) {
  Matrix singular = A;  // a column of zeros: the factor is exactly singular in any arithmetic
  for (int i = 0; i < n; ++i) singular(i, n - 1) = 0.0;
  const Numbers s = singular.stored();
  const problem::Captured console(std::cerr);
  EXPECT_EQ(zmat_inv(n, s.data(), matrix.data()), n);  // zgetrf: pivot number n is 0
  EXPECT_EQ(console.text(), kSingular);
  EXPECT_EQ(s, singular.stored());
}

TEST(ComplexInverse, OfTwoByTwoAsByHand) {
  // {{1, i}, {0, 2}} has the inverse {{1, -i/2}, {0, 1/2}}.
  const Numbers A = {1, 0, 0, 0, 0, 1, 2, 0};
  Numbers B(8, kNaN);
  EXPECT_EQ(zmat_inv(2, A.data(), B.data()), 0);
  EXPECT_EQ(B, (Numbers{1, 0, 0, 0, 0, -0.5, 0.5, 0}));
}

// ---- eigenvalues ----

/// V diag(w) V^-1
Numbers recomposed(int n, const Numbers& V, const Numbers& w, const Numbers& V_inv) {
  Numbers result(V.size());
  zdmat_mlt(n, V.data(), w.data(), V_inv.data(), result.data());
  return result;
}

TEST_P(ComplexKernel, EigenvectorsRecomposeTheMatrixWhichIsKept) {
  Numbers V(a.size(), kNaN), V_inv(a.size(), kNaN);
  EXPECT_EQ(zmat_eig(n, a.data(), V.data(), V_inv.data(), vector.data()), 0);
  EXPECT_TRUE(near(recomposed(n, V, vector, V_inv), a, 1e-12));
  EXPECT_EQ(a, A.stored());
}

TEST_P(ComplexKernel, FormWithoutInverseGivesTheSameAndColumnKBelongsToValueK) {
  Numbers V(a.size(), kNaN), w(vector.size(), kNaN), V_inv(a.size());
  Numbers destroyed = a;
  EXPECT_EQ(zmat_eig(n, destroyed.data(), V.data(), w.data()), 0);
  zmat_eig(n, a.data(), matrix.data(), V_inv.data(), vector.data());
  EXPECT_EQ(V, matrix);
  EXPECT_EQ(w, vector);
  for (int k = 0; k < n; ++k) {
    const Complex value(w[at(idvr(k))], w[at(idvi(k))]);
    Vector column;
    for (int i = 0; i < n; ++i) column.emplace_back(V[at(idxr(i, k, n))], V[at(idxi(i, k, n))]);
    Vector scaled = column;
    for (Complex& z : scaled) z *= value;
    EXPECT_TRUE(near(stored(A * column), stored(scaled), 1e-13)) << "column " << k;
  }
}

TEST(ComplexEigen, ValuesOfATriangleAreItsDiagonal) {
  // {{2, 1}, {0, 3i}}
  const Numbers A = {2, 0, 0, 0, 1, 0, 0, 3};
  Numbers V(8), V_inv(8), w(4);
  EXPECT_EQ(zmat_eig(2, A.data(), V.data(), V_inv.data(), w.data()), 0);
  EXPECT_EQ(w, (Numbers{2, 0, 0, 3}));
}

TEST(ComplexEigen, VectorsWithoutInverseGiveTheWarningOnceAndNoStop) {
  // {{0, 1e130}, {0, 0}} has one eigenvector only. The routine makes the second one distinct by
  // perturbing the diagonal by 1e-292; with this large an entry that is below the smallest double.
  const Numbers A = {0, 0, 0, 0, 1e130, 0, 0, 0};
  Numbers V(8, kNaN), V_inv(8, kNaN), w(4, kNaN);
  const problem::Captured console(std::cerr);
  EXPECT_EQ(zmat_eig(2, A.data(), V.data(), V_inv.data(), w.data()), 0);  // not that of the inverse
  EXPECT_EQ(console.text(), kSingular);
  EXPECT_EQ(w, Numbers(4, 0.0));
}

TEST(ComplexEigen, NumbersThatAreNotFiniteEndWithTheMessageAndNotInTheLibrary) {
  for (const double bad : {kNaN, kInf, -kInf}) {
    for (const int position : {0, 1, 7, 17}) {
      SCOPED_TRACE(testing::Message() << bad << " at " << position);
      Numbers A = Matrix::random(3, 9).stored();
      A[at(position)] = bad;
      Numbers V(18), V_inv(18), w(6);
      EXPECT_EQ(endingOf([&] { zmat_eig(3, A.data(), V.data(), V_inv.data(), w.data()); }),
                fatalEnding(kNoEigenvectors));
      EXPECT_EQ(endingOf([&] { zmat_eig(3, A.data(), V.data(), w.data()); }),
                fatalEnding(kNoEigenvectors));
    }
  }
}

// ---- heap ----

TEST_P(ComplexKernel, NothingIsTakenFromTheHeap) {
  Numbers V(a.size()), V_inv(a.size());
  ASSERT_TRUE(problem::heapIsWatched());
  const std::size_t before = problem::heap.blocks;
  zmat_cpy(n, a.data(), matrix.data());
  zmat_mlt(n, a.data(), b.data(), matrix.data());
  zmat_mlt(n, a.data(), b.data(), c.data(), matrix.data());
  zmat_mlt(n, a.data(), b.data(), c.data(), d.data(), matrix.data());
  zmat_vmlt(n, a.data(), v_stored.data(), vector.data());
  zmat_vmlt(n, a.data(), b.data(), v_stored.data(), vector.data());
  zdmat_mlt(n, v_stored.data(), a.data(), matrix.data());
  zdmat_mlt(n, a.data(), v_stored.data(), b.data(), matrix.data());
  zmat_exp(n, 0.3, v_stored.data(), vector.data());
  zmat_cnj(n, a.data(), matrix.data());
  const int inverse = zmat_inv(n, a.data(), matrix.data());
  const int eigen = zmat_eig(n, a.data(), V.data(), V_inv.data(), vector.data());
  zmat_pow(n, a.data(), 5, matrix.data());
  zmat_pow(n, a.data(), 4, matrix.data());
  zmat_mltpow(n, a.data(), b.data(), c.data(), d.data(), 3, matrix.data());
  EXPECT_EQ(problem::heap.blocks, before);
  EXPECT_EQ(inverse, 0);
  EXPECT_EQ(eigen, 0);
}

}  // namespace
