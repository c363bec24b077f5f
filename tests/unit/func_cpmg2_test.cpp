// Two-site CPMG models against values worked out by hand and against brute-force propagation of
// the Bloch-McConnell equations in extended precision; what is cached, masked and refused.
// SPDX-License-Identifier: GPL-3.0-or-later
#include "Models.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <complex>
#include <cstdlib>
#include <limits>
#include <numbers>
#include <string>
#include <vector>

namespace {

using models::Call;
using models::Evaluation;
using models::kUntouched;
using models::Model;
using models::near;

using Real = long double;
using Complex = std::complex<Real>;
using Reals = std::vector<Real>;

static_assert(LDBL_MANT_DIG >= 64, "the references need more digits than double has");

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

// ---- reference: two-site exchange, propagated ----

/// Exchange A <-> B with rates kab (from A to B) and kba, B precessing by delta rad/s against A,
/// and R20 in both sites.
struct Sites {
  Real kab;
  Real kba;
  Real delta;
  Real R20;
};

/// {{aa, ab}, {ba, bb}}
struct Matrix {
  Complex aa, ab, ba, bb;
};

Matrix operator*(const Matrix& m, const Matrix& n) {
  return {m.aa * n.aa + m.ab * n.ba, m.aa * n.ab + m.ab * n.bb, m.ba * n.aa + m.bb * n.ba,
          m.ba * n.ab + m.bb * n.bb};
}

Matrix operator*(Real f, const Matrix& m) { return {f * m.aa, f * m.ab, f * m.ba, f * m.bb}; }

Matrix operator+(const Matrix& m, const Matrix& n) {
  return {m.aa + n.aa, m.ab + n.ab, m.ba + n.ba, m.bb + n.bb};
}

Matrix conj(const Matrix& m) {
  return {std::conj(m.aa), std::conj(m.ab), std::conj(m.ba), std::conj(m.bb)};
}

/// exp(m): Taylor series of m/2^n, squared n times.
Matrix exponential(const Matrix& m) {
  const Real size = std::abs(m.aa) + std::abs(m.ab) + std::abs(m.ba) + std::abs(m.bb);
  int squarings = 0;
  while (std::ldexp(size, -squarings) > 0.125L) ++squarings;
  const Matrix x = std::ldexp(Real{1}, -squarings) * m;
  constexpr Matrix kUnit = {1, 0, 0, 1};
  Matrix sum = kUnit;
  for (int n = 18; n > 0; --n) sum = kUnit + (Real{1} / static_cast<Real>(n)) * (x * sum);
  for (int i = 0; i < squarings; ++i) sum = sum * sum;
  return sum;
}

/// Decay of the slowest mode of an endless train of echoes tcp/2 - 180 - tcp/2, in 1/s.
/// A pulse conjugates the magnetisation, so one echo is m -> A conj(A m) = M conj(m), and only two
/// echoes, of 2 tcp together, make a linear map: P = M conj(M).
Real propagated(const Sites& s, Real x0) {
  const Real half = 0.5L / x0;
  const Matrix L = {s.R20 + s.kab, -s.kba, -s.kab, Complex(s.R20 + s.kba, s.delta)};
  const Matrix A = exponential(-half * L);
  const Matrix M = A * conj(A);
  const Matrix P = M * conj(M);
  // Both eigenvalues of P are real and positive.
  const Complex mean = (P.aa + P.bb) / Real{2};
  const Complex half_difference = (P.aa - P.bb) / Real{2};
  const Real largest =
      std::real(mean) + std::real(std::sqrt(half_difference * half_difference + P.ab * P.ba));
  return -x0 / 2 * std::log(largest);
}

// ---- reference: rates of each parametrisation ----

Sites fromMinor(Real kex, Real pb, Real delta, Real R20) {
  return {pb * kex, (1 - pb) * kex, delta, R20};
}

Sites fromProduct(Real kex, Real papb, Real delta, Real R20) {
  return fromMinor(kex, (1 - std::sqrt(1 - 4 * papb)) / 2, delta, R20);
}

/// Free ligand from the balance of its total, Bt = B + A0 B/(K + B), by bisection.
Real freeLigand(Real A0, Real Bt, Real K) {
  Real low = 0;
  Real high = Bt;
  for (int i = 0; i < 400; ++i) {
    const Real B = (low + high) / 2;
    (B + A0 * B / (K + B) < Bt ? low : high) = B;
  }
  return (low + high) / 2;
}

Real eyring(Real T, Real dH, Real dS) {
  // k_B/h in 1/(s K); R in kcal/(mol K)
  return static_cast<Real>(2.0836644e10) * T *
         std::exp((-dH / T + dS) / static_cast<Real>(0.001985878));
}

Sites richards(const Reals& x, const Reals& p) {
  return fromProduct(p[1], p[2], p[0] * x[2], p[3]);
}
Sites richardsP(const Reals& x, const Reals& p) { return fromMinor(p[1], p[2], p[0] * x[2], p[3]); }
Sites richardsK(const Reals& x, const Reals& p) { return {p[1], p[2], p[0] * x[2], p[3]}; }
Sites rdc(const Reals& x, const Reals& p) {
  const int code = static_cast<int>(x[3]);
  const Real sign = code == 1 ? -1 : code == 2 ? 1 : 0;
  return fromProduct(p[2], p[3], p[0] * x[2] + sign * std::numbers::pi_v<Real> * p[1], p[4]);
}
Sites temp2(const Reals& x, const Reals& p) {
  return {eyring(x[1], p[1], p[3]), eyring(x[1], p[2], p[4]), p[0] * x[2], p[5]};
}
Sites bind2(const Reals& x, const Reals& p) { return {p[1], p[2], p[0] * x[2], p[3]}; }
Sites bind2c(const Reals& x, const Reals& p) {
  // kon in 1/(umol/l s), concentrations in mol/l
  const Real B = freeLigand(p[3], x[3] * p[4], p[2] / p[1] / 1e6L);
  return {p[1] * B * 1e6L, p[2], p[0] * x[2], p[5]};
}

// ---- reference: values and derivatives ----

using SitesOf = Sites (*)(const Reals& x, const Reals& p);

Reals widened(const std::vector<double>& v) { return {v.begin(), v.end()}; }

/// Derivative with respect to p[k] of a function of the parameters, to about 14 digits (central
/// differences of order 6).
template <class F>
Real derivative(const F& f, const Reals& p, std::size_t k) {
  const Real step = 1e-3L * std::fabs(p[k]);
  const auto difference = [&](int n) {
    Reals ahead = p;
    Reals behind = p;
    ahead[k] += static_cast<Real>(n) * step;
    behind[k] -= static_cast<Real>(n) * step;
    return f(ahead) - f(behind);
  };
  return (45 * difference(1) - 9 * difference(2) + difference(3)) / (60 * step);
}

Real expectedValue(SitesOf sites, const Call& call) {
  const Reals x = widened(call.x);
  return propagated(sites(x, widened(call.p)), x[0]);
}

Reals expectedDerivatives(SitesOf sites, const Call& call) {
  const Reals x = widened(call.x);
  const Reals p = widened(call.p);
  Reals result;
  for (std::size_t k = 0; k < p.size(); ++k) {
    result.push_back(
        derivative([&](const Reals& q) { return propagated(sites(x, q), x[0]); }, p, k));
  }
  return result;
}

/// Quantities of the Carver-Richards equation that do not depend on x0.
struct Quantities {
  Real kex, psi, Q, D_p, D_m;
};

Quantities quantitiesOf(const Sites& s) {
  const Real kex = s.kab + s.kba;
  const Real zeta = 2 * s.delta * (s.kba - s.kab);
  const Real psi = kex * kex - s.delta * s.delta;
  const Real Q = std::sqrt(psi * psi + zeta * zeta);
  const Real r = (s.delta * s.delta + kex * kex) / Q;
  return {kex, psi, Q, (r + 1) / 2, (r - 1) / 2};
}

/// Derivative of R2eff at `call` with respect to parameter k, but with the derivatives of kex, psi,
/// Q and D+ taken at `earlier`: what comes out when the rows kept from there were not renewed.
Real staleDerivative(SitesOf sites, const Call& call, const Call& earlier, std::size_t k) {
  const Reals x_earlier = widened(earlier.x);
  const auto slope = [&](Real Quantities::*member) {
    const auto f = [&](const Reals& p) { return quantitiesOf(sites(x_earlier, p)).*member; };
    return derivative(f, widened(earlier.p), k);
  };
  const Real K = slope(&Quantities::kex), P = slope(&Quantities::psi);
  const Real N = slope(&Quantities::Q), E = slope(&Quantities::D_p);

  const Reals x = widened(call.x);
  const Quantities q = quantitiesOf(sites(x, widened(call.p)));
  const Real root_p = std::sqrt((q.psi + q.Q) / 2), root_m = std::sqrt((q.Q - q.psi) / 2);
  const Real eta_p = root_p / x[0], eta_m = root_m / x[0];
  const Real Y = q.D_p * std::cosh(eta_p) - q.D_m * std::cos(eta_m);
  const Real dY = E * (std::cosh(eta_p) - std::cos(eta_m)) +
                  q.D_p * std::sinh(eta_p) * (P + N) / (4 * root_p * x[0]) +
                  q.D_m * std::sin(eta_m) * (N - P) / (4 * root_m * x[0]);
  return 0.5L * (K - x[0] * dY / std::sqrt(Y * Y - 1));
}

// ---- the models ----

/// A Carver-Richards model, the rates it stands for and two points in intermediate exchange.
struct CarverRichards {
  const char* name;
  SitesOf sites;
  Call first;
  Call second;
};

// The two points differ in every value that the cached quantities depend on.
const CarverRichards kCarverRichards[] = {
    {"CPMG_Richards",
     richards,
     {.x = {200, 298, 1.0}, .p = {1000, 500, 0.09, 10}},
     {.x = {300, 308, 1.2}, .p = {1400, 800, 0.05, 12}}},
    {"CPMG_Richards_p",
     richardsP,
     {.x = {200, 298, 1.0}, .p = {1000, 500, 0.10, 10}},
     {.x = {300, 308, 1.2}, .p = {1400, 800, 0.05, 12}}},
    {"CPMG_Richards_k",
     richardsK,
     {.x = {200, 298, 1.0}, .p = {1000, 50, 450, 10}},
     {.x = {300, 308, 1.2}, .p = {1400, 100, 700, 12}}},
    {"CPMG_Richards_probes",
     richards,
     {.x = {200, 298, 1.0, 1}, .p = {1000, 500, 0.09, 10}},
     {.x = {300, 308, 1.2, 2}, .p = {1400, 800, 0.05, 12}}},
    {"CPMG_RDC",
     rdc,
     {.x = {200, 298, 1.0, 1}, .p = {1000, 50, 500, 0.09, 10}},
     {.x = {300, 308, 1.2, 2}, .p = {1400, -30, 800, 0.05, 12}}},
    {"CPMG_TEMP2",  // 77 and 1012 1/s; 157 and 1405 1/s
     temp2,
     {.x = {200, 298, 1.0}, .p = {1000, 15, 14, 0.0005, 0.00226, 10}},
     {.x = {300, 308, 1.2}, .p = {1400, 15.5, 13.5, 0.0022, 0.0000615, 12}}},
    {"CPMG_Bind2",
     bind2,
     {.x = {200, 298, 1.0, 1}, .p = {1000, 50, 450, 10}},
     {.x = {300, 308, 1.2, 2}, .p = {1400, 100, 700, 12}}},
    {"CPMG_Bind2c",
     bind2c,
     {.x = {200, 298, 1.0, 0.5}, .p = {1000, 5, 450, 2e-4, 2e-4, 10}},
     {.x = {300, 308, 1.2, 0.7}, .p = {1400, 8, 700, 3e-4, 3e-4, 12}}},
};

void expectDerivatives(const CarverRichards& m, const Call& call, const Evaluation& e) {
  const Model model(m.name);
  const Reals expected = expectedDerivatives(m.sites, call);
  for (std::size_t k = 0; k < model.size(); ++k) {
    EXPECT_TRUE(near(e.dydp[k], expected[k], 0, 1e-8)) << m.name << ' ' << model.parmName(k);
  }
}

void expectMatches(const CarverRichards& m, const Call& call) {
  const Evaluation e = Model(m.name).evaluateFresh(call);
  EXPECT_TRUE(near(e.value, expectedValue(m.sites, call), 1e-8)) << m.name;
  expectDerivatives(m, call, e);
}

class CarverRichardsModel : public testing::TestWithParam<CarverRichards> {};

INSTANTIATE_TEST_SUITE_P(Cpmg2, CarverRichardsModel, testing::ValuesIn(kCarverRichards),
                         [](const auto& test) { return std::string(test.param.name); });

TEST_P(CarverRichardsModel, IsTheDecayOfAnEvenEchoTrain) {
  const CarverRichards& m = GetParam();
  for (const double x0 : {10.0, 50.0, 200.0, 1000.0, 4000.0}) {
    for (Call call : {m.first, m.second}) {
      call.x[0] = x0;
      SCOPED_TRACE(x0);
      expectMatches(m, call);
    }
  }
}

// From slow to fast exchange, fast and slow pulsing: kex/dw from 1/1000 to 1000.
TEST(CpmgRichards, IsTheDecayOfAnEvenEchoTrainFromSlowToFastExchange) {
  const Model model("CPMG_Richards");
  for (const double kex : {10.0, 60.0, 300.0, 1500.0, 4000.0, 10000.0}) {
    for (const double dw : {10.0, 80.0, 600.0, 2500.0, 10000.0}) {
      for (const double papb : {0.001, 0.02, 0.113, 0.2, 0.249}) {
        for (const double x0 : {10.0, 33.0, 100.0, 400.0, 2000.0}) {
          const Call call = {.x = {x0, 298, 1.1}, .p = {dw, kex, papb, 7.5}};
          EXPECT_TRUE(near(model.value(call), expectedValue(richards, call), 1e-8))
              << "kex " << kex << " dw " << dw << " papb " << papb << " x0 " << x0;
        }
      }
    }
  }
}

// ---- the constant and the fast-exchange forms ----

TEST(CpmgConst, IsItsParameterAtAnyPulsingRate) {
  const Model model("CPMG_const");
  for (const double x0 : {0.0, 5.0, 10.0, 4000.0}) {
    const Evaluation e = model.evaluate({.x = {x0, 298, 1}, .p = {12.5}});
    EXPECT_EQ(e.value, 12.5);
    EXPECT_EQ(e.dydp[0], 1.0);
  }
}

TEST(CpmgConst, WritesItsDerivativeEvenWhenMasked) {
  const Evaluation e =
      Model("CPMG_const").evaluate({.x = {100, 298, 1}, .p = {12.5}, .masked = {0}});
  EXPECT_EQ(e.dydp[0], 1.0);
}

// kex = 1000, x0 = 500: u = 1. tanh(1) and 1/cosh(1)^2 from 40-digit arithmetic.
constexpr double kTanh1 = 0.7615941559557648881;
constexpr double kSech1Squared = 0.4199743416140260694;

TEST(CpmgMeiboom, ByHand) {
  // A = 25000 * 2^2 = 1e5
  const Evaluation e = Model("CPMG_Meiboom").evaluate({.x = {500, 298, 2}, .p = {1000, 25000, 5}});
  EXPECT_TRUE(near(e.value, 100 * (1 - kTanh1) + 5, 0, 1e-14));
  EXPECT_TRUE(near(e.dydp[0], 0.1 * (2 * kTanh1 - 1 - kSech1Squared), 0, 1e-13));
  EXPECT_TRUE(near(e.dydp[1], 0.004 * (1 - kTanh1), 0, 1e-14));
  EXPECT_EQ(e.dydp[2], 1.0);
}

TEST(CpmgMeiboom, SlowPulsingGivesTheLimitOfFreePrecession) {
  // kex much above x0: tanh(u) = 1 and A/kex (1 - 1/u) with u = 500.
  const Evaluation e = Model("CPMG_Meiboom").evaluate({.x = {10, 298, 1}, .p = {1e4, 1e6, 5}});
  EXPECT_TRUE(near(e.value, 100 * (1 - 1.0 / 500) + 5, 0, 1e-14));
  EXPECT_TRUE(near(e.dydp[0], 0.01 * (2.0 / 500 - 1), 0, 1e-14));
}

TEST(CpmgMeiboom, DerivativeIsFiniteWhereCoshOverflows) {
  const Model model("CPMG_Meiboom");
  for (const double u : {355.0, 710.4, 710.5, 1e4}) {  // the square, then cosh itself overflows
    const double kex = 20 * u;
    const Evaluation e = model.evaluate({.x = {10, 298, 1}, .p = {kex, 1e6, 5}});
    EXPECT_TRUE(near(e.dydp[0], 1e6 / (kex * kex) * (2 / u - 1), 0, 1e-14)) << u;
  }
}

TEST(CpmgMeiboom, HonoursTheMaskForR20Too) {
  const Evaluation e =
      Model("CPMG_Meiboom").evaluate({.x = {500, 298, 2}, .p = {1000, 25000, 5}, .masked = {2}});
  EXPECT_EQ(e.dydp[2], kUntouched);
  EXPECT_NE(e.dydp[0], kUntouched);
  EXPECT_NE(e.dydp[1], kUntouched);
}

// papb = 0.2304: sqrt(1 - 4 papb) = 0.28, pa = 0.64. Delta = 50: pa Delta^2 = 1600, and with
// 12 x0^2 = 1200 S = 2000; kex = 50 makes S + kex^2 = 4500 and R = 0.2304 * 2500 * 50 / 4500 = 6.4.
TEST(CpmgTorchia, ByHand) {
  const Evaluation e =
      Model("CPMG_Torchia").evaluate({.x = {10, 298, 2}, .p = {25, 50, 0.2304, 5}});
  EXPECT_TRUE(near(e.value, 11.4, 0, 1e-14));
  EXPECT_TRUE(near(e.dydp[0], 2 * 6.4 / 50 * 2 * (161.0 / 225), 0, 1e-13));  // 1 - 1600^2/9e6
  EXPECT_TRUE(near(e.dydp[1], 6.4 / 50 * (-1.0 / 9), 0, 1e-13));
  EXPECT_TRUE(near(e.dydp[2], 6.4 / 0.2304 * (921600 / 2.52e6 + 1), 0, 1e-13));
  EXPECT_EQ(e.dydp[3], 1.0);
}

TEST(CpmgTorchia, MajorPopulationEntersSquaredNotToTheFourthPower) {
  // With pa^4 the root would be sqrt(1200^2 + 1024^2) instead of 2000: R above 7 instead of 6.4.
  const double value = Model("CPMG_Torchia").value({.x = {10, 298, 1}, .p = {50, 50, 0.2304, 0}});
  const double fourth_power = 0.2304 * 2500 * 50 / (std::hypot(1200.0, 1024.0) + 2500);
  EXPECT_GT(fourth_power, 7.0);
  EXPECT_TRUE(near(value, 6.4, 0, 1e-14));
}

TEST(CpmgTorchia, FollowsTheExactValueInItsTwoLimits) {
  const auto expectSame = [](double x0, const std::vector<double>& p) {
    const Call call = {.x = {x0, 298, 1}, .p = p};
    const double torchia = Model("CPMG_Torchia").value(call);
    EXPECT_TRUE(near(torchia, expectedValue(richards, call), 0, 0.005)) << x0;
  };
  expectSame(4000, {300, 500, 0.09, 0});  // x0 far above kex and Delta: Delta^2 kex/(12 x0^2)
  expectSame(10, {300, 10000, 0.09, 0});  // fast exchange, slow pulsing: Delta^2/kex
}

TEST(CpmgTorchia, HonoursTheMaskForR20Too) {
  const Evaluation e =
      Model("CPMG_Torchia").evaluate({.x = {10, 298, 2}, .p = {25, 50, 0.2304, 5}, .masked = {3}});
  EXPECT_EQ(e.dydp[3], kUntouched);
  for (std::size_t k = 0; k < 3; ++k) EXPECT_NE(e.dydp[k], kUntouched);
}

TEST(CpmgTorchia, NoShiftDifferenceLeavesR20) {
  const Evaluation e = Model("CPMG_Torchia").evaluate({.x = {100, 298, 1}, .p = {0, 500, 0.09, 5}});
  EXPECT_EQ(e.value, 5.0);
  EXPECT_EQ(e.dydp[1], 0.0);
  EXPECT_EQ(e.dydp[2], 0.0);
}

// ---- closed cases of the Carver-Richards equation ----

TEST(CpmgRichards, EqualPopulationsInFastExchangeByHand) {
  // papb = 1/4, kex = 500, Delta = 300: Q = psi = 400^2, so eta+ = 1 and eta- = 0 at x0 = 400;
  // Y = (500^2 cosh(1) - 300^2)/400^2; (500 - 400 arccosh(Y))/2 from 40-digit arithmetic.
  const double value = Model("CPMG_Richards").value({.x = {400, 298, 2}, .p = {150, 500, 0.25, 3}});
  EXPECT_TRUE(near(value, 3 + 5.051242189664599185L, 1e-12));
}

TEST(CpmgRichards, EqualPopulationsInSlowExchangeByHand) {
  // kex = 300, Delta = 500: psi = -Q = -400^2, eta+ = 0 and eta- = 1 at x0 = 400;
  // Y = (500^2 - 300^2 cos(1))/400^2.
  const double value = Model("CPMG_Richards").value({.x = {400, 298, 1}, .p = {500, 300, 0.25, 3}});
  EXPECT_TRUE(near(value, 3 + 9.104030077202312858L, 1e-12));
}

TEST(CpmgRichards, ByHandAtPsiZero) {
  // kex = Delta = 400, sqrt(1 - 4 papb) = 0.28: Q = 0.56 * 400^2, eta+ = eta- = 2 sqrt(0.28) at
  // x0 = 200 and D+- = (1/0.28 +- 1)/2.
  const double value =
      Model("CPMG_Richards").value({.x = {200, 298, 1}, .p = {400, 400, 0.2304, 3}});
  EXPECT_TRUE(near(value, 3 + 21.65248307293674649L, 1e-12));
}

TEST(CpmgRichards, EqualPopulationsAreTheDecayOfAnEvenEchoTrain) {
  for (const double kex : {100.0, 450.0, 3000.0}) {
    const Call call = {.x = {150, 298, 1}, .p = {600, kex, 0.25, 3}};
    EXPECT_TRUE(near(Model("CPMG_Richards").value(call), expectedValue(richards, call), 1e-8));
  }
}

TEST(CpmgRichards, EqualPopulationsHaveDerivativesOfDwAndKex) {
  for (const double kex : {100.0, 3000.0}) {
    const Call call = {.x = {150, 298, 1}, .p = {600, kex, 0.25, 3}};
    const Evaluation e = Model("CPMG_Richards").evaluateFresh(call);
    const auto value = [&](const Reals& p) { return propagated(richards({150, 298, 1}, p), 150); };
    for (const std::size_t k : {std::size_t{0}, std::size_t{1}}) {
      EXPECT_TRUE(near(e.dydp[k], derivative(value, widened(call.p), k), 0, 1e-8)) << kex << k;
    }
    EXPECT_TRUE(std::isfinite(e.dydp[2])) << kex;
  }
}

/// Derivative of the decay with respect to papb at 1/4, from the legal side (order 6).
Real derivativeAtEqualPopulations(Real kex, Real delta, Real x0) {
  constexpr Real kStep = 2e-4L;
  constexpr Real kWeights[] = {-147, 360, -450, 400, -225, 72, -10};
  Real sum = 0;
  for (int i = 0; i < 7; ++i) {
    const Real papb = 0.25L - static_cast<Real>(i) * kStep;
    sum += kWeights[i] * propagated(fromProduct(kex, papb, delta, 3), x0);
  }
  return -sum / (60 * kStep);
}

// In slow exchange eta+ is 0 at equal populations, and its own derivative infinite: the small
// number that keeps the division finite drops the product sinh(eta+) d eta+ from the derivative of
// papb, whose limit is d(psi + Q)/(4 x0^2). It lies at the end of the domain, outside the default
// bounds.
TEST(CpmgRichards, EqualPopulationsInSlowExchangeDropATermOfTheDerivativeOfPapb) {
  const Real kex = 100, delta = 600, x0 = 150;
  const Evaluation e =
      Model("CPMG_Richards").evaluateFresh({.x = {150, 298, 1}, .p = {600, 100, 0.25, 3}});
  const Real Q = delta * delta - kex * kex, D_p = delta * delta / Q, D_m = kex * kex / Q;
  const Real Y = D_p - D_m * std::cos(std::sqrt(Q) / x0);
  const Real dQ = -8 * delta * delta * kex * kex / Q;
  const Real dropped = -x0 / 2 / std::sqrt(Y * Y - 1) * D_p * dQ / (4 * x0 * x0);
  const Real right = derivativeAtEqualPopulations(kex, delta, x0);
  EXPECT_TRUE(near(e.dydp[2], right - dropped, 0, 1e-7));
  EXPECT_GT(dropped, 200);
}

TEST(CpmgRichards, PopulationsBeyondTheirDomainGiveNaN) {
  const Model model("CPMG_Richards");
  const Call call = {.x = {200, 298, 1}, .p = {1000, 500, 0.2501, 10}};
  EXPECT_TRUE(std::isnan(model.value(call)));
  EXPECT_TRUE(std::isnan(model.evaluate(call).value));
  EXPECT_TRUE(std::isnan(
      Model("CPMG_Richards_probes").value({.x = {200, 298, 1, 1}, .p = {1000, 500, 0.26, 10}})));
  EXPECT_TRUE(
      std::isnan(Model("CPMG_RDC").value({.x = {200, 298, 1, 1}, .p = {1000, 50, 500, 0.26, 10}})));
}

TEST(CpmgRichards, NaNIsForgottenByTheNextCall) {
  const Model model("CPMG_Richards");
  Call call = {.x = {200, 298, 1}, .p = {1000, 500, 0.2501, 10}};
  static_cast<void>(model.evaluate(call));
  call.p[2] = 0.0901;
  EXPECT_TRUE(near(model.value(call), expectedValue(richards, call), 1e-8));
}

TEST_P(CarverRichardsModel, NoShiftDifferenceLeavesR20Exactly) {
  const CarverRichards& m = GetParam();
  Call call = m.first;
  call.p[0] = 0.0;
  call.p.back() = 10.0;
  if (std::string(m.name) == "CPMG_RDC") call.p[1] = 0.0;
  for (const double x0 : {10.0, 50.0, 200.0, 500.0}) {
    call.x[0] = x0;
    const Evaluation e = Model(m.name).evaluateFresh(call);
    // kex - x0 arccosh(cosh(kex/x0)): rounding alone, magnified where cosh is close to 1.
    EXPECT_TRUE(near(e.value, 10.0L, 1e-11)) << x0;
    EXPECT_TRUE(near(e.dydp[0], 0.0L, 1e-15)) << x0;
    EXPECT_EQ(e.dydp[m.first.p.size() - 1], 1.0);
    for (std::size_t k = 1; k + 1 < call.p.size(); ++k) {
      EXPECT_TRUE(std::isfinite(e.dydp[k])) << Model(m.name).parmName(k);
    }
  }
}

TEST(CpmgRichards, FieldFactorMultipliesTheShiftDifference) {
  const Model model("CPMG_Richards");
  const double folded = model.value({.x = {200, 298, 1}, .p = {1200, 500, 0.09, 10}});
  EXPECT_EQ(model.value({.x = {200, 298, 2}, .p = {600, 500, 0.09, 10}}), folded);
}

TEST(CpmgRdc, CodesAddSubtractAndIgnoreTheCoupling) {
  const Model model("CPMG_RDC");
  const std::vector<double> p = {1000, 50, 500, 0.09, 10};
  const Real shift = std::numbers::pi_v<Real> * 50;
  const auto expected = [](Real delta) {
    return propagated(fromProduct(500, static_cast<Real>(0.09), delta, 10), 200);
  };
  EXPECT_TRUE(near(model.value({.x = {200, 298, 0.9, 1}, .p = p}), expected(900 - shift), 1e-8));
  EXPECT_TRUE(near(model.value({.x = {200, 298, 0.9, 2}, .p = p}), expected(900 + shift), 1e-8));
  for (const double code : {3.0, 0.0, 0.99, 4.0, -1.0}) {
    EXPECT_TRUE(near(model.value({.x = {200, 298, 0.9, code}, .p = p}), expected(900), 1e-8))
        << code;
  }
}

TEST(CpmgRdc, CodeIsTruncated) {
  const Model model("CPMG_RDC");
  const std::vector<double> p = {1000, 50, 500, 0.09, 10};
  EXPECT_EQ(model.value({.x = {200, 298, 1, 1.9}, .p = p}),
            model.value({.x = {200, 298, 1, 1}, .p = p}));
  EXPECT_EQ(model.value({.x = {200, 298, 1, 2.5}, .p = p}),
            model.value({.x = {200, 298, 1, 2}, .p = p}));
}

TEST(CpmgRdc, CouplingHasNoEffectWithCodeThree) {
  const Evaluation e =
      Model("CPMG_RDC").evaluateFresh({.x = {200, 298, 1, 3}, .p = {1000, 50, 500, 0.09, 10}});
  EXPECT_EQ(e.dydp[1], 0.0);
}

TEST(CpmgBind2, ConcentrationEntersThroughTheFittedRateAlone) {
  const Model model("CPMG_Bind2");
  const std::vector<double> p = {1000, 50, 450, 10};
  EXPECT_EQ(model.value({.x = {200, 298, 1, 0.5}, .p = p}),
            model.value({.x = {200, 298, 1, 7}, .p = p}));
}

// A0 is 100 times Bt and binds tightly: Bt - K - A0 and the square root agree to up to 17 digits.
Call tightBinding(double kon) {
  return {.x = {200, 298, 1, 1.0}, .p = {1000, kon, 1000, 0.01, 1e-4, 10}};
}

TEST(CpmgBind2c, FreeLigandKeepsItsDigitsUnderExcessOfTheOtherPartner) {
  for (const double kon : {1e5, 1e8, 1e11}) {
    SCOPED_TRACE(kon);
    const Call call = tightBinding(kon);
    const Evaluation e = Model("CPMG_Bind2c").evaluateFresh(call);
    EXPECT_TRUE(near(e.value, expectedValue(bind2c, call), 1e-8));
    const Reals expected = expectedDerivatives(bind2c, call);
    for (const std::size_t k : {0U, 2U, 3U, 4U, 5U}) {
      EXPECT_TRUE(near(e.dydp[k], expected[k], 0, 1e-8)) << k;
    }
  }
}

TEST(CpmgBind2c, DerivativeOfKonKeepsItsDigitsWhenBindingIsTight) {
  // Nearly all ligand is bound whatever kon, and differences of the value have no digits left. The
  // balance Bt = B + A0 B/(K + B) gives kon/kon' dkon'/dkon = (K + B)^2/((K + B)^2 + A0 K).
  for (const double kon : {1e5, 1e8, 1e11}) {
    const Call call = tightBinding(kon);
    const Reals p = widened(call.p);
    const Real K = p[2] / p[1] / 1e6L;
    const Real square = std::pow(K + freeLigand(p[3], p[4], K), Real{2});
    const Sites sites = bind2c(widened(call.x), p);
    const auto decay = [&](const Reals& kab) {
      return propagated({kab.at(0), sites.kba, sites.delta, sites.R20}, 200);
    };
    const Real expected =
        derivative(decay, {sites.kab}, 0) * sites.kab / p[1] * square / (square + p[3] * K);
    EXPECT_TRUE(near(Model("CPMG_Bind2c").evaluateFresh(call).dydp[1], expected, 0, 1e-8)) << kon;
  }
}

TEST(CpmgBind2c, LigandInExcessIsFree) {
  const CarverRichards m = {"CPMG_Bind2c", bind2c, {}, {}};
  for (const double A0 : {1e-9, 1e-6, 1e-4}) {
    SCOPED_TRACE(A0);
    expectMatches(m, {.x = {200, 298, 1, 1.0}, .p = {1000, 2, 400, A0, 1e-4, 10}});
  }
}

// ---- large eta+ ----

/// x0 that gives eta+ at these parameters of CPMG_Richards.
double pulsingRate(const std::vector<double>& p, double eta_p) {
  const Quantities q = quantitiesOf(richards({0, 0, 1}, widened(p)));
  return static_cast<double>(std::sqrt((q.psi + q.Q) / 2) / static_cast<Real>(eta_p));
}

const CarverRichards& kRichards = kCarverRichards[0];
const std::vector<double> kFastExchange[] = {
    {100, 11000, 0.02, 10}, {4000, 11000, 0.09, 10}, {6000, 9000, 0.2, 10}};

TEST(CpmgRichards, DerivativesAreRightFromThreeHundredFiftyToTheLimitOfCosh) {
  // From 355 on the square of cosh overflows, from 710.4 on nearly cosh itself.
  for (const std::vector<double>& p : kFastExchange) {
    for (const double eta_p : {300.0, 349.9, 350.1, 354.0, 356.0, 500.0, 700.0, 709.0, 710.0}) {
      SCOPED_TRACE(eta_p);
      expectMatches(kRichards, {.x = {pulsingRate(p, eta_p), 298, 1}, .p = p});
    }
  }
}

TEST(CpmgRichards, ValueIsFiniteUpToTheLimitOfCosh) {
  // D+ cosh(eta+) overflows before cosh(eta+) does.
  for (const std::vector<double>& p : kFastExchange) {
    for (const double eta_p : {710.3, 710.4, 710.45, 710.47, 710.4758}) {
      SCOPED_TRACE(eta_p);
      expectMatches(kRichards, {.x = {pulsingRate(p, eta_p), 298, 1}, .p = p});
    }
  }
}

TEST(CpmgRichards, AsymptoteReplacesCoshBeyondItsRange) {
  for (const std::vector<double>& p : kFastExchange) {
    for (const double eta_p : {710.48, 711.0, 730.0}) {
      const Call call = {.x = {pulsingRate(p, eta_p), 298, 1}, .p = p};
      ASSERT_GE(call.x[0], 10.0);
      const Quantities q = quantitiesOf(richards(widened(call.x), widened(p)));
      const Real eta = std::sqrt((q.psi + q.Q) / 2) / static_cast<Real>(call.x[0]);
      const Real eta_m = std::sqrt((q.Q - q.psi) / 2) / static_cast<Real>(call.x[0]);
      // Extended precision has cosh to 11356.
      const Real Y = q.D_p * std::cosh(eta) - q.D_m * std::cos(eta_m);
      const Real expected = 10 + (q.kex - static_cast<Real>(call.x[0]) * std::acosh(Y)) / 2;
      EXPECT_TRUE(near(Model("CPMG_Richards").value(call), expected, 1e-9)) << eta_p;
      SCOPED_TRACE(eta_p);
      expectMatches(kRichards, call);
    }
  }
}

TEST(CpmgRichards, AsymptoteHoldsFarBeyondAnyCosh) {
  // eta+ = 1e5; arccosh(Y) = eta+ + ln D+ to all digits, in logarithmic form.
  const std::vector<double> p = {4000, 1e6, 0.09, 10};
  const Call call = {.x = {10, 298, 1}, .p = p};
  const Quantities q = quantitiesOf(richards({10, 298, 1}, widened(p)));
  const Real eta_p = std::sqrt((q.psi + q.Q) / 2) / 10;
  const Real expected = 10 + (q.kex - 10 * (eta_p + std::log1p(q.D_p - 1))) / 2;
  const Evaluation e = Model("CPMG_Richards").evaluateFresh(call);
  EXPECT_TRUE(near(e.value, expected, 1e-9));
  for (const double entry : {e.dydp[0], e.dydp[1], e.dydp[2]}) EXPECT_TRUE(std::isfinite(entry));
}

// ---- refused input ----

class PulsingRateDeathTest : public testing::TestWithParam<std::string> {
 protected:
  /// A point inside the default bounds of the model.
  [[nodiscard]] static Call callAt(const Model& model, double x0) {
    Call call;
    call.x.assign(static_cast<std::size_t>(model.lib().Get_dimX()), 1.0);
    call.x[0] = x0;
    const Rules& rules = model.lib().Get_Rules();
    for (unsigned k = 0; k < rules.basePAR_size(); ++k) {
      call.p.push_back(0.75 * rules.Get_LowerBound(k) + 0.25 * rules.Get_UpperBound(k));
    }
    for (const CarverRichards& m : kCarverRichards) {
      if (model.lib().Name() != m.name) continue;
      call = m.first;
      call.x[0] = x0;
    }
    return call;
  }
};

std::vector<std::string> modelsWithPulsingRate() {
  std::vector<std::string> names = {"CPMG_Meiboom", "CPMG_Torchia"};
  for (const CarverRichards& m : kCarverRichards) names.emplace_back(m.name);
  return names;
}

INSTANTIATE_TEST_SUITE_P(Cpmg2, PulsingRateDeathTest, testing::ValuesIn(modelsWithPulsingRate()),
                         [](const auto& test) { return test.param; });

TEST_P(PulsingRateDeathTest, BelowTenEndsTheRun) {
  const Model model(GetParam());
  const char* const kMessage = "^1/tcp is too short\\. Check the input file\n$";
  const double just_below = std::nextafter(10.0, 0.0);
  EXPECT_EXIT(static_cast<void>(model.value(callAt(model, 9.99))), testing::ExitedWithCode(1),
              kMessage);
  EXPECT_EXIT(static_cast<void>(model.evaluate(callAt(model, just_below))),
              testing::ExitedWithCode(1), kMessage);
  EXPECT_EXIT(static_cast<void>(model.value(callAt(model, -200))), testing::ExitedWithCode(1),
              kMessage);
}

TEST_P(PulsingRateDeathTest, BelowTenEndsTheRunAlsoWhenAllElseIsCached) {
  const Model model(GetParam());
  EXPECT_EXIT(
      {
        static_cast<void>(model.value(callAt(model, 200)));
        static_cast<void>(model.value(callAt(model, 9.99)));
      },
      testing::ExitedWithCode(1), "^1/tcp is too short\\. Check the input file\n$");
}

TEST_P(PulsingRateDeathTest, TenIsAccepted) {
  const Model model(GetParam());
  EXPECT_TRUE(std::isfinite(model.value(callAt(model, 10.0))));
}

// ---- mask and cache ----

TEST_P(CarverRichardsModel, WritesTheSlotOfR20EvenWhenMasked) {
  const CarverRichards& m = GetParam();
  Call call = m.first;
  for (std::size_t k = 0; k < call.p.size(); ++k) call.masked.push_back(k);
  const Evaluation e = Model(m.name).evaluateFresh(call);
  for (std::size_t k = 0; k + 1 < call.p.size(); ++k) EXPECT_EQ(e.dydp[k], kUntouched);
  EXPECT_EQ(e.dydp[call.p.size() - 1], 1.0);
}

TEST_P(CarverRichardsModel, HitsServeOtherPulsingRatesAndOtherR20) {
  const CarverRichards& m = GetParam();
  const Model model(m.name);
  Call call = m.second;
  double previous = kNaN;
  static_cast<void>(model.evaluateFresh(call));
  for (const double x0 : {10.0, 100.0, 1000.0}) {
    call.x[0] = x0;
    call.p.back() += 1.5;
    const Evaluation e = model.evaluate(call);
    EXPECT_TRUE(near(e.value, expectedValue(m.sites, call), 1e-8)) << x0;
    EXPECT_NE(e.value, previous);
    expectDerivatives(m, call, e);
    previous = e.value;
  }
}

void expectStale(const CarverRichards& m, const Call& call, const Call& earlier, std::size_t k,
                 const Evaluation& e) {
  const Real expected = staleDerivative(m.sites, call, earlier, k);
  EXPECT_TRUE(near(e.dydp[k], expected, 0, 1e-7)) << Model(m.name).parmName(k);
  const Real right = expectedDerivatives(m.sites, call)[k];
  EXPECT_FALSE(near(e.dydp[k], right, 0, 1e-3)) << Model(m.name).parmName(k);
}

// A row of derivatives is renewed only by a miss that asks for derivatives: after one that asks for
// the value alone a hit uses the rows of an earlier point. The values are right all the same.
TEST_P(CarverRichardsModel, DerivativesAreStaleAfterAMissWithoutThem) {
  const CarverRichards& m = GetParam();
  const Model model(m.name);
  static_cast<void>(model.evaluateFresh(m.first));
  static_cast<void>(model.value(m.second));
  Call call = m.second;
  call.x[0] *= 1.5;
  call.p.back() += 2;
  const Evaluation e = model.evaluate(call);
  EXPECT_TRUE(near(e.value, expectedValue(m.sites, call), 1e-8));
  for (std::size_t k = 0; k + 1 < call.p.size(); ++k) expectStale(m, call, m.first, k, e);
  EXPECT_EQ(e.dydp[call.p.size() - 1], 1.0);
}

TEST_P(CarverRichardsModel, DerivativeIsStaleAfterAMissThatMaskedIt) {
  const CarverRichards& m = GetParam();
  const Model model(m.name);
  const Reals right = expectedDerivatives(m.sites, m.second);
  for (std::size_t masked = 0; masked + 1 < m.second.p.size(); ++masked) {
    SCOPED_TRACE(model.parmName(masked));
    static_cast<void>(model.evaluateFresh(m.first));
    Call call = m.second;
    call.masked = {masked};
    static_cast<void>(model.evaluate(call));
    const Evaluation e = model.evaluate(m.second);
    for (std::size_t k = 0; k < right.size(); ++k) {
      if (k == masked) {
        expectStale(m, m.second, m.first, k, e);
      } else {
        EXPECT_TRUE(near(e.dydp[k], right[k], 0, 1e-8)) << model.parmName(k);
      }
    }
  }
}

/// Leaves the rows of m.first and the key and values of m.second in the cache: a hit shows itself
/// by its derivatives.
void makeStale(const CarverRichards& m) {
  const Model model(m.name);
  static_cast<void>(model.evaluateFresh(m.first));
  static_cast<void>(model.value(m.second));
}

TEST_P(CarverRichardsModel, KeyHoldsEveryParameterButR20) {
  const CarverRichards& m = GetParam();
  for (std::size_t k = 0; k + 1 < m.second.p.size(); ++k) {
    SCOPED_TRACE(Model(m.name).parmName(k));
    makeStale(m);
    Call call = m.second;
    call.p[k] *= 1 + 1e-12;
    expectDerivatives(m, call, Model(m.name).evaluate(call));
  }
}

TEST_P(CarverRichardsModel, KeyHoldsEveryAbscissaButThePulsingRate) {
  const CarverRichards& m = GetParam();
  for (std::size_t i = 1; i < m.second.x.size(); ++i) {
    SCOPED_TRACE(i);
    makeStale(m);
    Call call = m.second;
    call.x[i] *= i == 3 ? 0.5 : 1 + 1e-12;  // x3: another probe, code, concentration
    expectDerivatives(m, call, Model(m.name).evaluate(call));
  }
}

TEST(CpmgRdc, CodesOfTheSameIntegerShareTheCache) {
  const CarverRichards& m = kCarverRichards[4];
  ASSERT_STREQ(m.name, "CPMG_RDC");
  makeStale(m);
  Call call = m.second;
  call.x[3] = 2.75;
  const Evaluation e = Model(m.name).evaluate(call);
  for (std::size_t k = 0; k + 1 < call.p.size(); ++k) expectStale(m, call, m.first, k, e);
}

TEST(CpmgRichards, NaNInTheKeyNeverMatches) {
  // x1 is in the key and in no formula.
  Call call = kRichards.second;
  call.x[1] = kNaN;
  const Model model("CPMG_Richards");
  static_cast<void>(model.evaluateFresh(kRichards.first));
  static_cast<void>(model.value(call));
  expectDerivatives(kRichards, call, model.evaluate(call));
}

TEST(CpmgRichards, ModelsDoNotShareTheirCaches) {
  makeStale(kRichards);
  const CarverRichards& other = kCarverRichards[1];
  ASSERT_STREQ(other.name, "CPMG_Richards_p");
  static_cast<void>(Model(other.name).evaluateFresh(other.first));
  // Richards still answers from the point that it met last.
  const Evaluation e = Model("CPMG_Richards").evaluate(kRichards.second);
  expectStale(kRichards, kRichards.second, kRichards.first, 0, e);
}

/// Exit status 0 if a first call for the value alone leaves rows of zeros for the next one.
[[noreturn]] void exitByFirstDerivatives(const CarverRichards& m) {
  const Model model(m.name);
  static_cast<void>(model.value(m.first));
  const Evaluation e = model.evaluate(m.first);
  bool zeros = e.dydp[m.first.p.size() - 1] == 1.0;
  for (std::size_t k = 0; k + 1 < m.first.p.size(); ++k) zeros = zeros && e.dydp[k] == 0.0;
  std::exit(zeros ? 0 : 2);
}

class FirstCallDeathTest : public CarverRichardsModel {};

INSTANTIATE_TEST_SUITE_P(Cpmg2, FirstCallDeathTest, testing::ValuesIn(kCarverRichards),
                         [](const auto& test) { return std::string(test.param.name); });

TEST_P(FirstCallDeathTest, RowsAreZeroUntilAMissFillsThem) {
  // "threadsafe" runs the statement in a new process, whose caches are empty.
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(exitByFirstDerivatives(GetParam()), testing::ExitedWithCode(0), "");
}

// ---- where the equation has no value ----

TEST(CpmgRichards, CoalescenceOfEqualPopulationsHasNoValue) {
  // kex = Delta and papb = 1/4: Q = 0, D+ and D- are infinite.
  const double value = Model("CPMG_Richards").value({.x = {200, 298, 1}, .p = {500, 500, 0.25, 3}});
  EXPECT_FALSE(std::isfinite(value));
}

}  // namespace
