// Three-site CPMG models against propagation of the Bloch-McConnell equations in extended
// precision, in their closed limits and at their edges; what is reused, restored and refused; fits.
// SPDX-License-Identifier: GPL-3.0-or-later
#include "func_cpmg3.h"

#include "InputText.h"
#include "Models.h"
#include "Problem.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cfloat>
#include <cmath>
#include <complex>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <limits>
#include <ostream>
#include <random>
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

static_assert(LDBL_MANT_DIG >= 64, "the references need more digits than double has");

constexpr double kInf = std::numeric_limits<double>::infinity();
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

// ---- reference: three sites, propagated ----

struct Matrix {
  std::array<std::array<Complex, 3>, 3> e{};
};

Matrix operator*(const Matrix& a, const Matrix& b) {
  Matrix c;
  for (std::size_t i = 0; i < 3; ++i) {
    for (std::size_t j = 0; j < 3; ++j) {
      for (std::size_t k = 0; k < 3; ++k) c.e[i][j] += a.e[i][k] * b.e[k][j];
    }
  }
  return c;
}

Matrix transformed(Matrix m, const std::function<Complex(Complex)>& f) {
  for (auto& row : m.e) {
    for (Complex& z : row) z = f(z);
  }
  return m;
}

Matrix scaled(const Matrix& m, Real factor) {
  return transformed(m, [=](Complex z) { return factor * z; });
}

Matrix conj(const Matrix& m) {
  return transformed(m, [](Complex z) { return std::conj(z); });
}

Real magnitude(const Matrix& m) {
  Real sum = 0;
  for (const auto& row : m.e) {
    for (const Complex& z : row) sum += std::abs(z);
  }
  return sum;
}

/// exp(m): Taylor series of m/2^n, squared n times.
Matrix exponential(const Matrix& m) {
  int squarings = 0;
  while (std::ldexp(magnitude(m), -squarings) > 0.125L) ++squarings;
  const Matrix x = scaled(m, std::ldexp(Real{1}, -squarings));
  Matrix sum;
  for (std::size_t i = 0; i < 3; ++i) sum.e[i][i] = 1;
  const Matrix unit = sum;
  for (int n = 18; n > 0; --n) {
    sum = scaled(x * sum, Real{1} / static_cast<Real>(n));
    for (std::size_t i = 0; i < 3; ++i) sum.e[i][i] += unit.e[i][i];
  }
  for (int i = 0; i < squarings; ++i) sum = sum * sum;
  return sum;
}

/// Rates between the sites and the offsets of B and C relative to A.
struct Sites {
  Real ab, ba, bc, cb, ca, ac;
  Real B, C;
};

/// L of dm/dt = -L m.
Matrix relaxationMatrix(const Sites& s) {
  Matrix L;
  L.e[0] = {Complex(s.ab + s.ac), Complex(-s.ba), Complex(-s.ca)};
  L.e[1] = {Complex(-s.ab), Complex(s.ba + s.bc, -s.B), Complex(-s.cb)};
  L.e[2] = {Complex(-s.ac), Complex(-s.bc), Complex(s.ca + s.cb, -s.C)};
  return L;
}

/// Largest eigenvalue, real and positive, by the power method with m squared at every step.
Real dominantEigenvalue(const Matrix& m) {
  Matrix power = m;
  for (int i = 0; i < 64; ++i) {
    power = power * power;
    power = scaled(power, 1 / magnitude(power));
  }
  const Matrix next = m * power;
  std::size_t row = 0;
  std::size_t column = 0;
  for (std::size_t i = 0; i < 3; ++i) {
    for (std::size_t j = 0; j < 3; ++j) {
      if (std::abs(power.e[i][j]) > std::abs(power.e[row][column])) {
        row = i;
        column = j;
      }
    }
  }
  return (next.e[row][column] / power.e[row][column]).real();
}

/// Decay of the slowest mode of an endless train of echoes tcp/2 - 180 - tcp/2. A pulse conjugates
/// the magnetisation: two echoes, m -> M conj(M conj(m)) with M = A conj(A), are a linear map.
Real propagated(const Sites& s, Real x0) {
  const Matrix A = exponential(scaled(relaxationMatrix(s), -0.5L / x0));
  const Matrix M = A * conj(A);
  return -x0 / 2 * std::log(dominantEigenvalue(M * conj(M)));
}

/// Populations that A relaxes to, from exp(-K t) for a t far beyond all exchange.
std::array<Real, 3> relaxed(Sites s) {
  s.B = s.C = 0;
  Matrix m = exponential(scaled(relaxationMatrix(s), -1.0L));
  for (int i = 0; i < 40; ++i) {
    m = m * m;
    for (std::size_t j = 0; j < 3; ++j) {  // rounding would otherwise double at every step
      const Complex sum = m.e[0][j] + m.e[1][j] + m.e[2][j];
      for (std::size_t k = 0; k < 3; ++k) m.e[k][j] /= sum;
    }
  }
  return {m.e[0][0].real(), m.e[1][0].real(), m.e[2][0].real()};
}

// ---- reference: what the models mean ----

using Numbers = std::vector<double>;
using SitesOf = Sites (*)(const Numbers& x, const Numbers& p);

Real cycle(Real ab, Real ba, Real bc, Real ca, Real ac) { return ab * bc * ca / (ba * ac); }

Sites matrix3(const Numbers& x, const Numbers& p) {
  const Real ab = p[2], ba = p[3], bc = p[4], ca = p[5], ac = p[6];
  return {ab, ba, bc, cycle(ab, ba, bc, ca, ac), ca, ac, Real{p[0]} * x[3], Real{p[1]} * x[3]};
}

Real eyring(Real T, Real dH, Real dS) {
  // k_B/h in 1/(s K); R in kcal/(mol K)
  return static_cast<Real>(2.0836644e10) * T *
         std::exp((-dH / T + dS) / static_cast<Real>(0.001985878));
}

/// Rates number `rate` of `n`, whose enthalpies begin at p[2].
Real eyringOf(const Numbers& x, const Numbers& p, std::size_t n, std::size_t rate) {
  return eyring(x[1], p[2 + rate], p[2 + n + rate]);
}

Sites temp3(const Numbers& x, const Numbers& p) {
  const auto k = [&](std::size_t rate) { return eyringOf(x, p, 6, rate); };
  return {k(0), k(1), k(2), k(3), k(4), k(5), Real{p[0]} * x[3], Real{p[1]} * x[3]};
}
Sites temp3linear(const Numbers& x, const Numbers& p) {
  const auto k = [&](std::size_t rate) { return eyringOf(x, p, 4, rate); };
  return {k(0), k(1), k(2), k(3), 0, 0, Real{p[0]} * x[3], Real{p[1]} * x[3]};
}
Sites temp3folked(const Numbers& x, const Numbers& p) {
  const auto k = [&](std::size_t rate) { return eyringOf(x, p, 4, rate); };
  return {k(0), k(1), 0, 0, k(2), k(3), Real{p[0]} * x[3], Real{p[1]} * x[3]};
}

/// A free, B and C two bound forms; k12 leads from the first to the second.
Sites bind3a(const Numbers& x, const Numbers& p) {
  return {p[2], p[3], p[6], p[7], p[5], p[4], Real{p[0]} * x[3], Real{p[1]} * x[3]};
}
/// A free, B intermediate, C bound, in a line.
Sites bind3b(const Numbers& x, const Numbers& p) {
  return {p[2], p[3], p[4], p[5], 0, 0, Real{p[0]} * x[3], Real{p[1]} * x[3]};
}

/// Parameters of the models with concentrations: kon in 1/(umol/l s), A0 and B0 in mol/l.
Sites oneFreeAt(const Numbers& x, const Numbers& p, Real L) {
  return {p[2] * L, p[3], p[6], p[7], p[5], p[4] * L, Real{p[0]} * x[3], Real{p[1]} * x[3]};
}
Sites twoFreeAt(const Numbers& x, const Numbers& p, Real L) {
  return {p[6], p[7], p[4] * L, p[5], p[3], p[2] * L, Real{p[0]} * x[3], Real{p[1]} * x[3]};
}

/// Free ligand in umol/l: L + A0 (bound fraction at L) = total, by bisection.
Real freeLigand(Real A0, Real total, const std::function<Real(Real)>& boundFraction) {
  Real low = 0;
  Real high = total;
  for (int i = 0; i < 70; ++i) {
    const Real L = (low + high) / 2;
    (L + A0 * boundFraction(L) < total ? low : high) = L;
  }
  return (low + high) / 2;
}

Sites bind3c_1F2B(const Numbers& x, const Numbers& p) {
  const auto bound = [&](Real L) { return 1 - relaxed(oneFreeAt(x, p, L))[0]; };
  return oneFreeAt(x, p, freeLigand(1e6L * p[8], 1e6L * x[4] * p[9], bound));
}
Sites bind3c_2F1B(const Numbers& x, const Numbers& p) {
  const auto bound = [&](Real L) { return relaxed(twoFreeAt(x, p, L))[2]; };
  return twoFreeAt(x, p, freeLigand(1e6L * p[8], 1e6L * x[4] * p[9], bound));
}

// ---- random points with rates on the cycle ----

class Dice {
 public:
  explicit Dice(unsigned seed) : engine_(seed) {}
  double uniform(double low, double high) {
    return low + (high - low) * static_cast<double>(engine_()) / 4294967296.0;
  }
  double spread(double low, double high) {  // evenly in the logarithm
    return low * std::exp(uniform(0.0, std::log(high / low)));
  }

 private:
  std::mt19937 engine_;
};

using Draw = Call (*)(Dice& dice);

constexpr double kGasKcal = 0.001985878;

/// dH and dS of rates k at temperature T.
void addEyring(Dice& dice, double T, const Numbers& k, Numbers& p) {
  Numbers dS;
  for (const double rate : k) {
    const double dH = dice.uniform(6.0, 20.0);
    p.push_back(dH);
    dS.push_back(kGasKcal * std::log(rate / (2.0836644e10 * T)) + dH / T);
  }
  p.insert(p.end(), dS.begin(), dS.end());
}

Numbers offsets(Dice& dice) { return {dice.uniform(-1500, 1500), dice.uniform(-1500, 1500)}; }

/// kab, kba, kbc, kca, kac with populations of 2 to 30 % in B and C.
Numbers fiveRates(Dice& dice) {
  const double pB = dice.spread(0.02, 0.3), pC = dice.spread(0.02, 0.3), pA = 1 - pB - pC;
  const double ab = dice.spread(5, 500), bc = dice.spread(5, 500), ac = dice.spread(5, 500);
  return {ab, ab * pA / pB, bc, ac * pA / pC, ac};
}

double pulseRate(Dice& dice) { return dice.spread(25, 2000); }
double field(Dice& dice) { return dice.uniform(0.8, 2.0); }

Call drawMatrix3(Dice& dice) {
  Call call{.x = {pulseRate(dice), 0.04, 0, field(dice)}, .p = offsets(dice)};
  const Numbers k = fiveRates(dice);
  call.p.insert(call.p.end(), k.begin(), k.end());
  call.p.push_back(dice.uniform(1, 20));
  return call;
}
Call drawTemp(Dice& dice, const std::vector<std::size_t>& rates) {
  const Numbers k = fiveRates(dice);
  const Numbers six = {k[0], k[1], k[2], k[0] * k[2] * k[3] / (k[1] * k[4]), k[3], k[4]};
  Numbers chosen;
  for (const std::size_t rate : rates) chosen.push_back(six[rate]);
  Call call{.x = {pulseRate(dice), dice.uniform(275, 320), 0, field(dice)}, .p = offsets(dice)};
  addEyring(dice, call.x[1], chosen, call.p);
  call.p.push_back(dice.uniform(1, 20));
  return call;
}
Call drawTemp3(Dice& dice) { return drawTemp(dice, {0, 1, 2, 3, 4, 5}); }
Call drawTemp3Linear(Dice& dice) { return drawTemp(dice, {0, 1, 2, 3}); }
Call drawTemp3Folked(Dice& dice) { return drawTemp(dice, {0, 1, 4, 5}); }

Call drawBinding(Dice& dice, const Numbers& k) {
  Call call{.x = {pulseRate(dice), 0.04, 0, field(dice), dice.spread(0.1, 3)}, .p = offsets(dice)};
  call.p.insert(call.p.end(), k.begin(), k.end());
  return call;
}
Call drawBind3a(Dice& dice) {
  const Numbers k = fiveRates(dice);  // Bkon1, koff1, k12, koff2, Bkon2
  Call call = drawBinding(dice, {k[0], k[1], k[4], k[3], k[2], k[0] * k[2] * k[3] / (k[1] * k[4])});
  call.p.push_back(dice.uniform(1, 20));
  return call;
}
Call drawBind3b(Dice& dice) {
  const Numbers k = fiveRates(dice);
  Call call = drawBinding(dice, {k[0], k[1], k[2], dice.spread(50, 2000)});
  call.p.push_back(dice.uniform(1, 20));
  return call;
}
/// kon1, koff1, kon2, koff2, k12, k21, A0, B0, R20, on the cycle at every ligand concentration.
Call drawBind3c(Dice& dice, bool two_free) {
  const double kon1 = dice.spread(0.5, 20), koff1 = dice.spread(50, 2000);
  const double kon2 = dice.spread(0.5, 20), koff2 = dice.spread(50, 2000);
  const double k12 = dice.spread(5, 500);
  const double k21 =
      two_free ? k12 * kon2 * koff1 / (kon1 * koff2) : kon1 * k12 * koff2 / (kon2 * koff1);
  return drawBinding(dice, {kon1, koff1, kon2, koff2, k12, k21, dice.spread(5e-5, 5e-4),
                            dice.spread(2e-5, 2e-4), dice.uniform(1, 20)});
}
Call drawOneFree(Dice& dice) { return drawBind3c(dice, false); }
Call drawTwoFree(Dice& dice) { return drawBind3c(dice, true); }

struct Family {
  const char* name;
  SitesOf sites;
  Draw draw;
};

void PrintTo(const Family& family, std::ostream* stream) { *stream << family.name; }

const Family kFamilies[] = {
    {"CPMG_matrix3", matrix3, drawMatrix3},
    {"CPMG_temp3", temp3, drawTemp3},
    {"CPMG_temp3linear", temp3linear, drawTemp3Linear},
    {"CPMG_temp3folked", temp3folked, drawTemp3Folked},
    {"CPMG_bind3a", bind3a, drawBind3a},
    {"CPMG_bind3b", bind3b, drawBind3b},
    {"CPMG_bind3c_1F2B", bind3c_1F2B, drawOneFree},
    {"CPMG_bind3c_2F1B", bind3c_2F1B, drawTwoFree},
};

class ThreeSite : public testing::TestWithParam<Family> {
 protected:
  const Model model_{GetParam().name};
  const std::size_t R20_ = model_.size() - 1;

  [[nodiscard]] std::vector<Call> points(int count, unsigned seed) const {
    Dice dice(seed);
    std::vector<Call> calls;
    for (int i = 0; i < count; ++i) calls.push_back(GetParam().draw(dice));
    return calls;
  }
};

INSTANTIATE_TEST_SUITE_P(Models, ThreeSite, testing::ValuesIn(kFamilies),
                         [](const auto& family) { return std::string(family.param.name); });

std::string describe(const Call& call) {
  std::ostringstream text;
  text.precision(17);
  for (const double x : call.x) text << x << ' ';
  text << '|';
  for (const double p : call.p) text << ' ' << p;
  return text.str();
}

// ---- propagation ----

// Agreement found with 200 random points of each model (40 of those with concentrations): 4e-12 1/s
// at worst, for x0 = 25 to 2000 and rates up to some 1e4 1/s.
TEST_P(ThreeSite, ValueIsThatOfPropagation) {
  for (const Call& call :
       points(GetParam().sites == bind3c_1F2B || GetParam().sites == bind3c_2F1B ? 40 : 200, 11)) {
    const Sites s = GetParam().sites(call.x, call.p);
    const Real expected = propagated(s, call.x[0]) + Real{call.p[R20_]};
    EXPECT_TRUE(near(model_.value(call), expected, 1e-10)) << describe(call);
  }
}

TEST_P(ThreeSite, IntrinsicRateIsAddedAndHasDerivativeOne) {
  for (Call call : points(5, 12)) {
    call.p[R20_] = 0.0;
    const Evaluation zero = model_.evaluateFresh(call);
    EXPECT_EQ(zero.dydp[R20_], 1.0);  // also where a step in proportion would be 0
    call.p[R20_] = 12.5;
    const Evaluation e = model_.evaluate(call);
    EXPECT_EQ(e.value, zero.value + 12.5);
    EXPECT_EQ(e.dydp[R20_], 1.0);
  }
}

TEST_P(ThreeSite, WithoutShiftDifferencesOnlyTheIntrinsicRateIsLeft) {
  for (Call call : points(50, 13)) {
    call.p[0] = call.p[1] = 0.0;
    const Sites s = GetParam().sites(call.x, call.p);
    if (std::max({s.ab, s.ba, s.bc, s.cb, s.ca, s.ac}) > 3000.0L) continue;
    EXPECT_TRUE(near(model_.value(call), call.p[R20_], 1e-9)) << describe(call);
  }
}

TEST_P(ThreeSite, SignOfBothShiftDifferencesTogetherIsWithoutEffect) {
  for (Call call : points(50, 14)) {
    const double value = model_.value(call);
    call.p[0] = -call.p[0];
    call.p[1] = -call.p[1];
    EXPECT_TRUE(near(model_.value(call), value, 1e-10)) << describe(call);
  }
}

TEST_P(ThreeSite, FieldFactorScalesBothShiftDifferences) {
  for (Call call : points(10, 15)) {
    const double value = model_.value(call);
    call.p[0] *= call.x[3];
    call.p[1] *= call.x[3];
    call.x[3] = 1.0;
    EXPECT_TRUE(near(model_.value(call), value, 1e-10)) << describe(call);
  }
}

TEST_P(ThreeSite, AbscissaThatIsNotReadIsWithoutEffect) {
  const bool by_temperature = std::string(GetParam().name).find("temp3") != std::string::npos;
  const bool by_ligand = std::string(GetParam().name).find("bind3c") != std::string::npos;
  for (const Call& call : points(3, 16)) {
    const double value = model_.value(call);
    for (std::size_t k = 1; k < call.x.size(); ++k) {
      Call other = call;
      other.x[k] *= 1.01;
      other.x[k] += 0.01;
      const bool is_read = k == 3 || (k == 1 && by_temperature) || (k == 4 && by_ligand);
      EXPECT_EQ(model_.value(other) != value, is_read) << "x" << k;
    }
  }
}

// ---- hand-checked values and closed limits ----

double richardsK(double x0, double field_factor, double dw, double kab, double kba, double R20) {
  return Model("CPMG_Richards_k").value({.x = {x0, 298, field_factor}, .p = {dw, kab, kba, R20}});
}
double bind2c(const Call& call, double kon, double koff) {
  const Numbers& p = call.p;
  return Model("CPMG_Bind2c")
      .value(
          {.x = {call.x[0], 298, call.x[3], call.x[4]}, .p = {p[1], kon, koff, p[8], p[9], p[10]}});
}

TEST(Matrix3, TwoEquallyPopulatedSitesAsByHand) {
  // kab = kba = 500, dw = 600, x0 = 800: kex = 1000, psi = kex^2 - dw^2 = 800^2, and
  // cosh(2 tcp (kex/2 - Rex)/2) = (1e6 cosh 1 - 3.6e5)/6.4e5 = 1.848563491898818,
  // Rex = 500 - 400 x 1.224743789051677 = 10.10248437932920
  const Model model("CPMG_matrix3");
  const double value = model.value({.x = {800, 0.04, 0, 1}, .p = {600, 0, 500, 500, 0, 0, 0, 8}});
  EXPECT_NEAR(value, 18.10248437932920, 1e-11);
}

TEST(Matrix3, RareSitesFarAwayTakeAllThatLeavesForThem) {
  // Slow exchange, rare pulses: Rex = kab + kac = 8, up to kab kba/dw^2 of it.
  const Model model("CPMG_matrix3");
  const double value =
      model.value({.x = {20, 0.04, 0, 1}, .p = {12000, -9000, 5, 200, 0, 150, 3, 10}});
  EXPECT_NEAR(value, 18.0, 0.01);
}

TEST(Matrix3, FastExchangeIsTheSumOfTwoLuzMeiboomTerms) {
  // C and B exchange with A independently (kbc = 0), both rare and fast: each term is
  // pi dw^2/k (1 - (2 x0/k) tanh(k/(2 x0))), up to the order of its population.
  const Model model("CPMG_matrix3");
  const double x0 = 1000, k = 6000, dwB = 300, dwC = 500, pop = 0.001;
  const double value =
      model.value({.x = {x0, 0.04, 0, 1}, .p = {dwB, dwC, pop * k, k, 0, k, pop * k, 10}});
  const double train = 1.0 - 2.0 * x0 / k * std::tanh(k / (2.0 * x0));
  const double expected = pop * (dwB * dwB + dwC * dwC) / k * train;
  EXPECT_NEAR((value - 10.0) / expected, 1.0, 0.02);
}

TEST(Matrix3, WithoutSiteCIsTheTwoSiteModel) {
  const Model model("CPMG_matrix3");
  Dice dice(21);
  for (int i = 0; i < 100; ++i) {
    const double x0 = pulseRate(dice), f = field(dice), dw = dice.uniform(50, 1500);
    const double kab = dice.spread(5, 1000), kba = dice.spread(50, 2000);
    const double value = model.value(
        {.x = {x0, 0.04, 0, f}, .p = {dw, dice.uniform(-1500, 1500), kab, kba, 0, 0, 0, 7}});
    EXPECT_TRUE(near(value, richardsK(x0, f, dw, kab, kba, 7), 1e-9))
        << x0 << ' ' << f << ' ' << dw << ' ' << kab << ' ' << kba;
  }
}

TEST(Matrix3, WithoutSiteBIsTheTwoSiteModel) {
  const Model model("CPMG_matrix3");
  const double value =
      model.value({.x = {300, 0.04, 0, 1.2}, .p = {333, 700, 0, 0, 0, 400, 30, 7}});
  EXPECT_TRUE(near(value, richardsK(300, 1.2, 700, 30, 400, 7), 1e-9));
}

TEST(Matrix3, SitesBAndCThatLookAlikeAreOneSite) {
  const Model model("CPMG_matrix3");
  Dice dice(22);
  for (int i = 0; i < 100; ++i) {
    const double x0 = pulseRate(dice), f = field(dice), dw = dice.uniform(50, 1500);
    const double kab = dice.spread(5, 300), kac = dice.spread(5, 300), k = dice.spread(100, 2000);
    const double kbc = i % 4 == 0 ? 0.0 : dice.spread(1, 2000);
    const Call call{.x = {x0, 0.04, 0, f}, .p = {dw, dw, kab, k, kbc, k, kac, 7}};
    EXPECT_TRUE(near(model.value(call), richardsK(x0, f, dw, kab + kac, k, 7), 1e-9))
        << describe(call);
  }
}

TEST(Matrix3, AllRatesZeroLeaveTheIntrinsicRate) {
  const Model model("CPMG_matrix3");
  EXPECT_EQ(model.value({.x = {300, 0.04, 0, 1}, .p = {700, -300, 0, 0, 0, 0, 0, 7}}), 7.0);
}

TEST(Matrix3, OneWayIntoBLeavesTheIntrinsicRate) {
  // kab alone: everything is in B, which does not exchange.
  const Model model("CPMG_matrix3");
  EXPECT_NEAR(model.value({.x = {300, 0.04, 0, 1}, .p = {700, 0, 50, 0, 0, 0, 0, 7}}), 7.0, 1e-12);
}

TEST(Matrix3, EqualRatesOfAAndBAloneAreTheTwoSiteValue) {
  const Model model("CPMG_matrix3");
  for (const double x0 : {25.0, 100.0, 400.0, 1600.0}) {
    const double value = model.value({.x = {x0, 0.04, 0, 1}, .p = {800, 0, 250, 250, 0, 0, 0, 7}});
    EXPECT_TRUE(near(value, richardsK(x0, 1, 800, 250, 250, 7), 1e-9));
  }
}

TEST(Matrix3, BackRateOfZeroWithConnectedSitesIsRefused) {
  const Model model("CPMG_matrix3");
  const Call kba{.x = {300, 0.04, 0, 1}, .p = {700, 300, 20, 0, 50, 300, 30, 7}};
  const Call kac{.x = {300, 0.04, 0, 1}, .p = {700, 300, 20, 300, 50, 300, 0, 7}};
  const Call line{.x = {300, 0.04, 0, 1}, .p = {700, 300, 20, 300, 50, 0, 0, 7}};  // A - B - C
  for (const Call& call : {kba, kac, line}) {
    EXPECT_TRUE(std::isnan(model.value(call)));
    EXPECT_TRUE(std::isnan(model.evaluateFresh(call).value));
  }
}

TEST(Bind3a, WithAnEmptySecondBoundFormIsTheTwoSiteModel) {
  const Model model("CPMG_bind3a");
  Dice dice(23);
  for (int i = 0; i < 50; ++i) {
    const double x0 = pulseRate(dice), f = field(dice), dw = dice.uniform(50, 1500);
    const double Bkon1 = dice.spread(5, 500), koff1 = dice.spread(50, 2000);
    const Call call{.x = {x0, 0.04, 0, f, 1},
                    .p = {dw, dice.uniform(-1500, 1500), Bkon1, koff1, 0, dice.spread(1, 900), 0,
                          dice.spread(1, 900), 7}};
    EXPECT_TRUE(near(model.value(call), richardsK(x0, f, dw, Bkon1, koff1, 7), 1e-9))
        << describe(call);
  }
}

TEST(Bind3c1F2B, BoundFormsThatLookAlikeAreOneBoundForm) {
  const Model model("CPMG_bind3c_1F2B");
  Dice dice(24);
  for (int i = 0; i < 50; ++i) {
    Call call = drawOneFree(dice);
    const double kon1 = call.p[2], kon2 = call.p[4], k12 = call.p[6];
    call.p[0] = call.p[1] = std::fabs(call.p[1]) + 1;
    call.p[5] = call.p[3];
    call.p[7] = kon1 * k12 / kon2;
    EXPECT_TRUE(near(model.value(call), bind2c(call, kon1 + kon2, call.p[3]), 1e-9))
        << describe(call);
  }
}

TEST(Bind3c2F1B, FreeFormsThatLookAlikeAreOneFreeForm) {
  const Model model("CPMG_bind3c_2F1B");
  Dice dice(25);
  for (int i = 0; i < 50; ++i) {
    Call call = drawTwoFree(dice);
    const double koff1 = call.p[3], koff2 = call.p[5], k12 = call.p[6];
    call.p[0] = 0.0;
    call.p[1] = std::fabs(call.p[1]) + 1;
    call.p[4] = call.p[2];
    call.p[7] = k12 * koff1 / koff2;
    EXPECT_TRUE(near(model.value(call), bind2c(call, call.p[2], koff1 + koff2), 1e-9))
        << describe(call);
  }
}

TEST(Bind3c1F2B, WithoutBindingLeavesTheIntrinsicRate) {
  const Model model("CPMG_bind3c_1F2B");
  const Call call{.x = {300, 0.04, 0, 1, 1},
                  .p = {700, -400, 0, 300, 0, 200, 20, 30, 2e-4, 1e-4, 7}};
  EXPECT_NEAR(model.value(call), 7.0, 1e-9);
}

TEST(Bind3c1F2B, SecondBoundFormReachedThroughTheFirstAloneBindsStronger) {
  // kon2 = koff2 = 0: K = K1/(1 + k12/k21) with K1 = koff1/kon1 = 100 umol/l and k12/k21 = 4 gives
  // 20 umol/l. With A0 = 100 and 120 umol/l of ligand: L^2 - (120 - 20 - 100) L - 120 x 20 = 0,
  // L = sqrt(2400) umol/l.
  const Call call{.x = {300, 0.04, 0, 1, 1.2},
                  .p = {700, -400, 5, 500, 0, 0, 80, 20, 1e-4, 1e-4, 7}};
  const Sites line = {5 * std::sqrt(2400.0L), 500, 80, 20, 0, 0, 700, -400};
  EXPECT_TRUE(near(Model("CPMG_bind3c_1F2B").value(call), 7 + propagated(line, 300), 1e-10));
}

TEST(Bind3c2F1B, OneBindingFreeFormAloneBindsWeaker) {
  // kon2 = koff2 = 0: K = K1 (1 + k12/k21) with K1 = 20 umol/l and k12/k21 = 4 ... here the form
  // that binds is A, of which 1/5 is free: K = 100 umol/l. A0 = 100, ligand 200 umol/l: m = 0,
  // L = sqrt(200 x 100) umol/l.
  const Call call{.x = {300, 0.04, 0, 1, 2}, .p = {700, -400, 5, 100, 0, 0, 80, 20, 1e-4, 1e-4, 7}};
  const Sites line = {80, 20, 0, 0, 100, 5 * std::sqrt(2e4L), 700, -400};
  EXPECT_TRUE(near(Model("CPMG_bind3c_2F1B").value(call), 7 + propagated(line, 300), 1e-10));
}

TEST(Temp3, RatesOfMatrix3GiveItsValue) {
  const Model temp("CPMG_temp3"), matrix("CPMG_matrix3");
  Dice dice(26);
  for (int i = 0; i < 50; ++i) {
    const Call call = drawTemp3(dice);
    const Sites s = temp3(call.x, call.p);
    const auto d = [](Real rate) { return static_cast<double>(rate); };
    const Call same{
        .x = {call.x[0], 0.04, 0, call.x[3]},
        .p = {call.p[0], call.p[1], d(s.ab), d(s.ba), d(s.bc), d(s.ca), d(s.ac), call.p[14]}};
    EXPECT_TRUE(near(temp.value(call), matrix.value(same), 1e-9)) << describe(call);
  }
}

TEST(Temp3Schemes, MissingPairIsAPairOfZeroRates) {
  // dH = 50, dS = -1 make a rate of 1e-244 1/s at 300 K.
  const Model full("CPMG_temp3"), linear("CPMG_temp3linear"), forked("CPMG_temp3folked");
  Dice dice(27);
  const Call l = drawTemp3Linear(dice);
  const Numbers& p = l.p;
  EXPECT_TRUE(near(full.value({.x = l.x,
                               .p = {p[0], p[1], p[2], p[3], p[4], p[5], 50, 50, p[6], p[7], p[8],
                                     p[9], -1, -1, p[10]}}),
                   linear.value(l), 1e-9));
  const Call f = drawTemp3Folked(dice);
  const Numbers& q = f.p;
  EXPECT_TRUE(near(full.value({.x = f.x,
                               .p = {q[0], q[1], q[2], q[3], 50, 50, q[4], q[5], q[6], q[7], -1, -1,
                                     q[8], q[9], q[10]}}),
                   forked.value(f), 1e-9));
}

// ---- populations and the cycle rate ----

void expectPopulations(const ThreeSiteRates& k, const std::array<double, 3>& expected) {
  const std::array<double, 3> actual = equilibrium(k);
  for (std::size_t i = 0; i < 3; ++i) EXPECT_DOUBLE_EQ(actual[i], expected[i]) << "site " << i;
}

TEST(Equilibrium, EqualRatesOfAAndBAloneGiveHalfEach) {
  expectPopulations({.kab = 7, .kba = 7, .kbc = 0, .kcb = 0, .kca = 0, .kac = 0}, {0.5, 0.5, 0});
}

TEST(Equilibrium, SiteWithoutRatesIsEmpty) {
  expectPopulations({.kab = 1, .kba = 3, .kbc = 0, .kcb = 0, .kca = 0, .kac = 0}, {0.75, 0.25, 0});
  expectPopulations({.kab = 0, .kba = 0, .kbc = 0, .kcb = 0, .kca = 3, .kac = 1}, {0.75, 0, 0.25});
  expectPopulations({.kab = 0, .kba = 0, .kbc = 0, .kcb = 0, .kca = 0, .kac = 0}, {1, 0, 0});
}

TEST(Equilibrium, OpenCasesAreNotANumber) {
  // B and C exchange, A is apart: how much is in A is open. One-way rates between B and C alike.
  for (const ThreeSiteRates& k :
       {ThreeSiteRates{.kab = 0, .kba = 0, .kbc = 5, .kcb = 5, .kca = 0, .kac = 0},
        ThreeSiteRates{.kab = 0, .kba = 0, .kbc = 5, .kcb = 0, .kca = 0, .kac = 0},
        ThreeSiteRates{.kab = 0, .kba = 0, .kbc = 0, .kcb = 5, .kca = 0, .kac = 0},
        ThreeSiteRates{.kab = 5, .kba = 0, .kbc = 0, .kcb = 0, .kca = 0, .kac = 5}}) {
    for (const double population : equilibrium(k)) EXPECT_TRUE(std::isnan(population));
  }
}

TEST(Equilibrium, IsWhatTheSitesRelaxTo) {
  Dice dice(31);
  for (int i = 0; i < 20; ++i) {
    const ThreeSiteRates k = {dice.spread(1, 900), dice.spread(1, 900), dice.spread(1, 900),
                              dice.spread(1, 900), dice.spread(1, 900), dice.spread(1, 900)};
    const std::array<double, 3> actual = equilibrium(k);
    const std::array<Real, 3> expected = relaxed({k.kab, k.kba, k.kbc, k.kcb, k.kca, k.kac, 0, 0});
    for (std::size_t site = 0; site < 3; ++site) {
      EXPECT_TRUE(near(actual[site], expected[site], 1e-14));
    }
  }
}

TEST(CycleRate, IsTheQuotientOrZeroForADisconnectedSite) {
  EXPECT_EQ(cycleRate(2, 3, 5, 7, 11), 2.0 * 5.0 * 7.0 / (3.0 * 11.0));
  EXPECT_EQ(cycleRate(2, 3, 0, 0, 0), 0.0);   // C
  EXPECT_EQ(cycleRate(0, 0, 0, 7, 11), 0.0);  // B
  EXPECT_EQ(cycleRate(0, 0, 0, 0, 0), 0.0);
  EXPECT_EQ(cycleRate(2, 3, 0, 7, 11), 0.0);  // B - A - C
  EXPECT_EQ(cycleRate(2, 0, 5, 7, 11), kInf);
  EXPECT_TRUE(std::isnan(cycleRate(2, 3, 5, 0, 0)));  // A - B - C
}

// ---- accuracy at the ends of the range ----

// Agreement found: 3e-12 1/s. The coefficients of the cubic itself would leave 1e-7.
TEST(ThreeSiteRange, ShortEchoesKeepTheirDigits) {
  const Model model("CPMG_matrix3");
  Dice dice(41);
  for (int i = 0; i < 100; ++i) {
    Call call = drawMatrix3(dice);
    call.x[0] = dice.spread(500, 4000);
    for (std::size_t k = 2; k < 7; ++k) call.p[k] = dice.spread(1, 10);
    const Sites s = matrix3(call.x, call.p);
    EXPECT_TRUE(near(model.value(call), propagated(s, call.x[0]) + Real{call.p[7]}, 2e-11))
        << describe(call);
  }
}

TEST(ThreeSiteRange, DecayByFiveHundredWithinAnEchoIsExact) {
  const Model model("CPMG_matrix3");
  const Call call{.x = {10, 0.04, 0, 2}, .p = {12000, 9000, 5000, 5000, 20, 6000, 1000, 7}};
  const Real expected = propagated(matrix3(call.x, call.p), 10) + 7;
  ASSERT_GT(expected, 4500.0L);
  ASSERT_LT(expected, 6500.0L);
  EXPECT_TRUE(near(model.value(call), expected, 0, 1e-12));
}

TEST(ThreeSiteRange, DecayBelowTheSmallestDoubleIsInfinite) {
  // Rex tcp = 800: both sites leave at 8000 1/s.
  const Model model("CPMG_matrix3");
  EXPECT_EQ(model.value({.x = {10, 0.04, 0, 2}, .p = {12000, 0, 8000, 8000, 0, 0, 0, 7}}), kInf);
}

TEST(ThreeSiteRange, SlowThirdSiteCapsTheRate) {
  // The slowest mode counts even if hardly populated: C leaves at kca + kcb = 10.4 1/s.
  const Model model("CPMG_matrix3");
  const Call call{.x = {50, 0.04, 0, 1}, .p = {1500, 3000, 300, 600, 0.1, 10, 0.7, 0}};
  const double kcb = cycleRate(300, 600, 0.1, 10, 0.7);
  EXPECT_LT(model.value(call), 10.0 + kcb + 1e-6);
  EXPECT_GT(richardsK(50, 1, 1500, 300, 600, 0), 100.0);
  EXPECT_TRUE(near(model.value(call), propagated(matrix3(call.x, call.p), 50), 1e-10));
}

TEST(ThreeSiteRange, NearADefectiveMatrixSomeDigitsAreLostAndNoMore) {
  // kab = kba and offset = 2 kab make both eigenvalues of the pair equal.
  const Model model("CPMG_matrix3");
  for (const double off : {1e-3, -1e-3, 1e-2}) {
    const Call call{.x = {200, 0.04, 0, 1}, .p = {1000 * (1 + off), 0, 500, 500, 0, 0, 0, 7}};
    const Sites s = {500, 500, 0, 0, 1e4, 0, Real{call.p[0]}, 0};  // C drains and stays empty
    EXPECT_TRUE(near(model.value(call), propagated(s, 200) + 7, 1e-8));
  }
}

// ---- what is refused ----

TEST_P(ThreeSite, EmptyRateHasADerivativeThatIsNotFinite) {
  for (const Call& point : points(3, 51)) {
    Call call = point;
    call.p[0] = 0.0;  // a shift difference of 0 is legal in every scheme
    const Evaluation e = model_.evaluateFresh(call);
    EXPECT_TRUE(std::isfinite(e.value));
    EXPECT_FALSE(std::isfinite(e.dydp[0]));
    call.masked = {0};
    EXPECT_EQ(model_.evaluateFresh(call).dydp[0], kUntouched);
  }
}

TEST(Matrix3, RateOfZeroHasADerivativeThatIsNotFinite) {
  const Call call{.x = {300, 0.04, 0, 1}, .p = {700, -300, 20, 300, 0, 200, 10, 7}};
  const Evaluation e = Model("CPMG_matrix3").evaluateFresh(call);
  EXPECT_TRUE(std::isfinite(e.value));
  for (std::size_t k = 0; k < 8; ++k) EXPECT_EQ(std::isfinite(e.dydp[k]), k != 4) << k;
}

TEST_P(ThreeSite, ShortPulseSpacingOnlyDownToTen) {
  Call call = points(1, 52)[0];
  for (const double x0 : {9.999999, 5.0, 0.0, -100.0}) {
    call.x[0] = x0;
    EXPECT_EQ(endingOf([&] { static_cast<void>(model_.value(call)); }),
              fatalEnding("1/tcp is too short. Check the input file\n"))
        << x0;
  }
  EXPECT_EXIT(static_cast<void>(model_.value(call)), testing::ExitedWithCode(1),
              "^1/tcp is too short\\. Check the input file\n$");
  call.x[0] = 10.0;
  EXPECT_TRUE(std::isfinite(model_.value(call)));
}

TEST_P(ThreeSite, InputsThatAreNotFiniteAreRefusedWithoutAWord) {
  const Call point = points(1, 53)[0];
  EXPECT_EQ(endingOf([&] {
              for (const double bad : {kNaN, kInf, -kInf}) {
                for (std::size_t k = 0; k < point.p.size(); ++k) {
                  Call call = point;
                  call.p[k] = bad;
                  // The total concentrations may be infinite and leave no or all ligand free.
                  const bool concentration =
                      model_.parmName(k) == "A0" || model_.parmName(k) == "B0";
                  const bool minus_energy = model_.parmName(k).starts_with("d") &&
                                            std::isinf(bad) && k > 1;  // a rate of 0
                  const double value = model_.evaluate(call).value;
                  if (std::isfinite(value) && !concentration && !minus_energy) {
                    std::cerr << model_.parmName(k) << " = " << bad << ": " << value << '\n';
                  }
                }
                Call call = point;
                call.x[3] = bad;
                if (std::isfinite(model_.evaluate(call).value)) std::cerr << "field " << bad;
              }
            }),
            returned());
}

/// Somewhere within the legal range of every parameter, at its ends for one in four.
Call anywhere(const Model& model, Dice& dice) {
  Call call;
  const auto columns = static_cast<std::size_t>(model.lib().Get_dimX());
  call.x = {dice.spread(10, 5000), dice.uniform(270, 330), 0, dice.uniform(0, 3),
            dice.uniform(0, 9)};
  call.x.resize(columns);
  for (std::size_t k = 0; k < model.size(); ++k) {
    const double low = model.lib().Get_Rules().Get_LowerBound(static_cast<unsigned>(k));
    const double high = model.lib().Get_Rules().Get_UpperBound(static_cast<unsigned>(k));
    const double at = dice.uniform(-0.15, 1.15);
    call.p.push_back(low + (high - low) * std::clamp(at, 0.0, 1.0));
  }
  return call;
}

TEST_P(ThreeSite, NoLegalParametersEndTheRun) {
  const Ending ending = endingOf([&] {
    Dice dice(54);
    for (int i = 0; i < 3000; ++i) static_cast<void>(model_.evaluate(anywhere(model_, dice)));
  });
  EXPECT_EQ(ending.status, Ending::kReturned) << ending.err;
}

TEST(Temp3, RatesBeyondTheRangeOfDoubleAreRefused) {
  // dH = -50 and dS = 1 make 1e267 1/s at 280 K; products of two are infinite.
  const Call call{.x = {300, 280, 0, 1},
                  .p = {700, -300, -50, -50, -50, -50, -50, -50, 1, 1, 1, 1, 1, 1, 7}};
  EXPECT_FALSE(std::isfinite(Model("CPMG_temp3").value(call)));
}

// ---- what is kept from call to call ----

bool sameBits(double a, double b) {
  return std::bit_cast<std::uint64_t>(a) == std::bit_cast<std::uint64_t>(b);
}

testing::AssertionResult sameBits(const Evaluation& a, const Evaluation& b) {
  if (!sameBits(a.value, b.value)) {
    return testing::AssertionFailure() << "values " << a.value << " and " << b.value;
  }
  for (std::size_t k = 0; k < a.dydp.size(); ++k) {
    if (!sameBits(a.dydp[k], b.dydp[k])) {
      return testing::AssertionFailure()
             << "derivatives " << k << ": " << a.dydp[k] << " and " << b.dydp[k];
    }
  }
  return testing::AssertionSuccess();
}

/// Points that share some or all of what a decomposition depends on with the first one.
std::vector<Call> relatives(const Model& model, const Call& point) {
  std::vector<Call> calls;
  const auto add = [&](const std::function<void(Call&)>& change) {
    calls.push_back(point);
    change(calls.back());
  };
  add([](Call&) {});
  add([](Call& c) { c.x[0] *= 3; });
  for (std::size_t k = 1; k < point.x.size(); ++k) {
    add([=](Call& c) { c.x[k] = 1.25 * c.x[k] + 0.1; });
  }
  for (std::size_t k = 0; k < model.size(); ++k) add([=](Call& c) { c.p[k] *= 1.001; });
  // the parameters of a neighbour's shifted evaluation
  for (std::size_t k = 0; k < model.size(); ++k) {
    add([=](Call& c) { c.p[k] += 1e-9 * std::fabs(c.p[k]); });
  }
  return calls;
}

TEST_P(ThreeSite, ReuseDoesNotChangeABit) {
  const std::vector<Call> calls = relatives(model_, points(1, 61)[0]);
  std::vector<Evaluation> fresh;
  for (const Call& call : calls) fresh.push_back(model_.evaluateFresh(call));
  std::mt19937 engine(62);
  for (int round = 0; round < 400; ++round) {
    const std::size_t i = engine() % calls.size();
    if (engine() % 4 == 0) {
      EXPECT_TRUE(sameBits(model_.value(calls[i]), fresh[i].value)) << i;
    } else if (engine() % 3 == 0) {  // only some slots are filled
      Call masked = calls[i];
      for (std::size_t k = 0; k < model_.size(); ++k) {
        if (engine() % 2 == 0) masked.masked.push_back(k);
      }
      Evaluation expected = fresh[i];
      for (const std::size_t k : masked.masked) expected.dydp[k] = kUntouched;
      EXPECT_TRUE(sameBits(model_.evaluate(masked), expected)) << i;
    } else {
      EXPECT_TRUE(sameBits(model_.evaluate(calls[i]), fresh[i])) << i;
    }
  }
}

TEST_P(ThreeSite, ReuseAcrossARefusedPointDoesNotChangeABit) {
  const Call good = points(1, 63)[0];
  const Evaluation fresh = model_.evaluateFresh(good);
  Call bad = good;
  bad.p[2] = kNaN;
  EXPECT_FALSE(std::isfinite(model_.evaluate(bad).value));
  EXPECT_FALSE(std::isfinite(model_.evaluate(bad).value));
  EXPECT_TRUE(sameBits(model_.evaluate(good), fresh));
}

TEST_P(ThreeSite, ParametersAreRestoredToTheBit) {
  for (const Call& call : points(10, 64)) {
    Data d;
    d.x = call.x;
    for (int k = 0; k < static_cast<int>(call.p.size()); ++k) d.parmap.push_back(k);
    Numbers p = call.p;
    Numbers dydp(p.size());
    static_cast<void>(model_.lib().Func()(d, p.data(), dydp, std::vector<bool>(p.size())));
    EXPECT_EQ(std::memcmp(p.data(), call.p.data(), p.size() * sizeof(double)), 0);
  }
}

TEST_P(ThreeSite, MaskedSlotsStayAndOthersAreTheSame) {
  for (Call call : points(3, 65)) {
    const Evaluation all = model_.evaluateFresh(call);
    for (std::size_t k = 0; k < model_.size(); ++k) {
      call.masked = {k};
      Evaluation expected = all;
      expected.dydp[k] = kUntouched;
      EXPECT_TRUE(sameBits(model_.evaluateFresh(call), expected)) << model_.parmName(k);
    }
  }
}

// ---- fits ----

/// Seeded deviates of mean 0 and standard deviation 1, the same with every library.
class Noise {
 public:
  explicit Noise(unsigned seed) : engine_(seed) {}
  double next() {
    const double u = (static_cast<double>(engine_()) + 0.5) / 4294967296.0;
    const double v = static_cast<double>(engine_()) / 4294967296.0;
    return std::sqrt(-2.0 * std::log(u)) * std::cos(6.283185307179586 * v);
  }

 private:
  std::mt19937 engine_;
};

/// DATA lines of an input text, with values from propagation.
class Synthetic {
 public:
  Synthetic(const Family& family, double sigma, unsigned seed)
      : family_(family), sigma_(sigma), noise_(seed) {}

  std::string data(const Numbers& x, const std::string& labels, const Numbers& p) {
    const Real exact = propagated(family_.sites(x, p), x[0]) + Real{p.back()};
    std::string line = "DATA";
    for (const double abscissa : x) line += ' ' + problem::text(abscissa);
    const double deviate = noise_.next();
    chi_at_truth_ += deviate * deviate;
    return line + ' ' + labels + ' ' +
           problem::text(static_cast<double>(exact) + sigma_ * deviate) + ' ' +
           problem::text(sigma_) + '\n';
  }
  [[nodiscard]] double chiAtTruth() const { return chi_at_truth_; }

 private:
  Family family_;
  double sigma_;
  Noise noise_;
  double chi_at_truth_ = 0.0;
};

const Family& familyOf(const std::string& name) {
  return *std::find_if(std::begin(kFamilies), std::end(kFamilies),
                       [&](const Family& family) { return name == family.name; });
}

constexpr double kRates[] = {50, 100, 200, 300, 400, 600, 800, 1000, 1400, 2000};

std::string par(const std::string& name, double start) {
  return "PAR " + name + ' ' + problem::text(start) + '\n';
}

/// Fits and expects each named parameter within four of its standard errors of the truth, which
/// are below the given fraction of it, and a chi-square below that of the truth.
struct Truth {
  std::string name;
  double value;
};

void expectRecovered(const Synthetic& synthetic, const std::string& input,
                     const std::vector<Truth>& truth, double fraction) {
  problem::Problem run(input);
  const problem::Captured console(std::cout);
  run.fit().run_FIT(false);
  for (const Truth& t : truth) {
    const double error = run.error(t.name);
    EXPECT_NEAR(run.value(t.name), t.value, 4.0 * error) << t.name;
    EXPECT_GT(error, 0.0) << t.name;
    EXPECT_LT(error, fraction * std::fabs(t.value)) << t.name;
  }
  EXPECT_LT(run.fit().best().total(), synthetic.chiAtTruth());
  EXPECT_GT(run.fit().best().total(), 0.0);
}

constexpr const char* kMethods = "METHOD INIT\nMETHOD ONE\n";

TEST(Matrix3Fit, RecoversTheRatesOfOneSet) {
  // B - A - C with kbc held at 0; two fields.
  Synthetic synthetic(familyOf("CPMG_matrix3"), 0.05, 71);
  std::string input = std::string("FUNCTION CPMG_matrix3\n") + kMethods + "SET one\n";
  input += par("dwab", 900) + par("dwac", -1400) + par("kab", 20) + par("kba", 350) +
           "FIXED kbc 0\n" + par("kca", 1200) + par("kac", 30) + par("R20_1_1", 8) +
           par("R20_1_2", 12);
  for (const double f : {1.0, 1.6}) {
    const double R20 = f == 1.0 ? 9 : 11;
    for (const double x0 : kRates) {
      input += synthetic.data({x0, 0.04, 0, f}, f == 1.0 ? "11" : "12",
                              {1000, -1600, 25, 400, 0, 1500, 40, R20});
    }
  }
  expectRecovered(synthetic, input,
                  {{"one::dwab", 1000},
                   {"one::dwac", -1600},
                   {"one::kab", 25},
                   {"one::kba", 400},
                   {"one::kca", 1500},
                   {"one::kac", 40},
                   {"one::R20_1_1", 9},
                   {"one::R20_1_2", 11}},
                  0.2);
}

TEST(Matrix3Fit, RecoversWhatTwoSetsShare) {
  // One set for each field.
  Synthetic synthetic(familyOf("CPMG_matrix3"), 0.05, 72);
  std::string input = std::string("FUNCTION CPMG_matrix3\n") + kMethods +
                      "GPAR dwab -12000 12000 1 1050\nGPAR dwac -12000 12000 1 -1500\n"
                      "GPAR kab 1 500 1 23\nGPAR kba 1 5000 1 370\nGPAR kca 1 5000 1 1400\n"
                      "GPAR kac 1 500 1 37\nGFIXED kbc 0\n";
  for (const int set : {1, 2}) {
    const double f = set == 1 ? 1.0 : 1.6, R20 = set == 1 ? 9 : 11;
    const std::string label = "1" + std::to_string(set);
    input += "SET field" + std::to_string(set) +
             "\nPAR dwab dwab\nPAR dwac dwac\nPAR kab kab\nPAR kba kba\nPAR kbc kbc\n"
             "PAR kca kca\nPAR kac kac\n" +
             par("R20_1_" + std::to_string(set), 10);
    for (const double x0 : kRates) {
      input += synthetic.data({x0, 0.04, 0, f}, label, {1000, -1600, 25, 400, 0, 1500, 40, R20});
    }
  }
  expectRecovered(synthetic, input,
                  {{"GLOBAL::dwab", 1000},
                   {"GLOBAL::dwac", -1600},
                   {"GLOBAL::kab", 25},
                   {"GLOBAL::kba", 400},
                   {"GLOBAL::kca", 1500},
                   {"GLOBAL::kac", 40},
                   {"field1::R20_1_1", 9},
                   {"field2::R20_1_2", 11}},
                  0.2);
}

/// Energies that make these rates at 298 K.
double entropyOf(double rate, double dH) {
  return kGasKcal * std::log(rate / (2.0836644e10 * 298.0)) + dH / 298.0;
}

TEST(TemperatureFit, RecoversEnergiesOverFourTemperatures) {
  // A - B - C; the entropies are fitted with the enthalpies, the populations vary with temperature.
  Synthetic synthetic(familyOf("CPMG_temp3linear"), 0.05, 73);
  const Numbers dH = {16, 12, 14, 9}, rate = {40, 600, 300, 900};
  Numbers p = {1200, -800};
  p.insert(p.end(), dH.begin(), dH.end());
  for (std::size_t k = 0; k < 4; ++k) p.push_back(entropyOf(rate[k], dH[k]));
  p.push_back(0);
  const char* const names[] = {"dHab", "dHba", "dHbc", "dHcb", "dSab", "dSba", "dSbc", "dScb"};
  std::string input = std::string("FUNCTION CPMG_temp3linear\n") + kMethods + "SET series\n" +
                      par("dwab", 1150) + par("dwac", -850);
  std::vector<Truth> truth = {{"series::dwab", 1200}, {"series::dwac", -800}};
  for (std::size_t k = 0; k < 4; ++k) {  // starts: rates a fifth larger, as at another temperature
    input += par(names[k], 1.01 * dH[k]);
    truth.push_back({std::string("series::") + names[k], dH[k]});
  }
  for (std::size_t k = 0; k < 4; ++k) {
    input += par(names[4 + k], entropyOf(1.1 * rate[k], 1.01 * dH[k]));
  }
  const double temperatures[] = {278, 288, 298, 308};
  for (std::size_t t = 0; t < 4; ++t) input += par("R20_" + std::to_string(t + 1) + "_1", 10);
  for (std::size_t t = 0; t < 4; ++t) {
    p.back() = 12.0 - static_cast<double>(t);
    truth.push_back({"series::R20_" + std::to_string(t + 1) + "_1", p.back()});
    for (const double x0 : kRates) {
      input += synthetic.data({x0, temperatures[t], 0, 1.0}, std::to_string(t + 1) + "1", p);
    }
  }
  expectRecovered(synthetic, input, truth, 0.3);
}

TEST(TitrationFit, RecoversBindingRatesSharedByThreeConcentrations) {
  // F - B1 - B2, one set for each concentration of the ligand.
  Synthetic synthetic(familyOf("CPMG_bind3c_1F2B"), 0.05, 74);
  std::string input = std::string("FUNCTION CPMG_bind3c_1F2B\n") + kMethods +
                      "GPAR dwfb1 -12000 12000 1 950\nGPAR dwfb2 -12000 12000 1 -1500\n"
                      "GPAR kon1 0.1 100 1 4.5\nGPAR koff1 1 5000 1 550\nGFIXED kon2 0\n"
                      "GFIXED koff2 0\nGPAR k12 1 1000 1 110\nGPAR k21 1 3000 1 160\n"
                      "GFIXED A0 1e-4\nGFIXED B0 1e-4\n";
  std::vector<Truth> truth = {{"GLOBAL::dwfb1", 900}, {"GLOBAL::dwfb2", -1600},
                              {"GLOBAL::kon1", 5},    {"GLOBAL::koff1", 500},
                              {"GLOBAL::k12", 120},   {"GLOBAL::k21", 150}};
  for (int c = 1; c <= 3; ++c) {
    const std::string name = "c" + std::to_string(c), label = std::to_string(c);
    input += "SET " + name +
             "\nPAR dwfb1 dwfb1\nPAR dwfb2 dwfb2\nPAR kon1 kon1\nPAR koff1 koff1\n"
             "PAR kon2 kon2\nPAR koff2 koff2\nPAR k12 k12\nPAR k21 k21\nPAR A0 A0\nPAR B0 B0\n" +
             par("R20_1_1_" + label, 10) + par("R20_1_2_" + label, 12);
    truth.push_back({name + "::R20_1_1_" + label, 8.0 + c});
    truth.push_back({name + "::R20_1_2_" + label, 10.0 + c});
    for (const double x0 : {50.0, 150.0, 400.0, 900.0, 2000.0}) {
      const double ligand = 0.05 * c * c;
      input += synthetic.data({x0, 0.04, 0, 1.0, ligand}, "11" + label,
                              {900, -1600, 5, 500, 0, 0, 120, 150, 1e-4, 1e-4, 8.0 + c});
      input += synthetic.data({x0, 0.04, 0, 1.6, ligand}, "12" + label,
                              {900, -1600, 5, 500, 0, 0, 120, 150, 1e-4, 1e-4, 10.0 + c});
    }
  }
  expectRecovered(synthetic, input, truth, 0.2);
}

}  // namespace
