// Multiple-quantum models of constant-time CPMG dispersion for a 15N-1H spin pair.
// SPDX-License-Identifier: GPL-3.0-or-later
//
// Korzhnev, Kloiber & Kay, J. Am. Chem. Soc. 126, 7320 (2004); Korzhnev et al., J. Am. Chem. Soc.
// 126, 3964 (2004). Site A is the reference; in site B a coherence (sN, sH) precesses at
// sN dN + sH dH. The pulses invert the s of the observed nucleus (of both for zero and double
// quantum), so an echo sees two differences D1 and D2, the second half as the conjugate of a
// propagator with D2. Units: rates and x0 = 1/tcp in 1/s, x1 = T, the constant time, in s, shift
// differences times the field factor x3 in rad/s; x4 is the coherence code.
#include "Fatal.h"
#include "ForwardDifferences.h"
#include "FuncLib.h"
#include "LinearAlgebra.h"
#include "func_cpmg2.h"
#include "func_cpmg3.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <complex>
#include <limits>

namespace {

using Complex = std::complex<double>;
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kCoshMax = 710.475860073944;  // ln(DBL_MAX) + ln 2: cosh overflows from here on
constexpr double kSquareSafe = 350.0;          // cosh squared stays finite below it
constexpr double kTiny = 1e-30;                // keeps 0/0 out of the derivatives

// ---- coherences ----

/// Coefficients of dN and dH in the two frequency differences of an echo.
struct Coherence {
  double N1, H1;  ///< D1 = N1 dN + H1 dH
  double N2, H2;
};

constexpr int kMq15N = 4;
constexpr int kLastCode = 5;

constexpr Coherence kCoherences[] = {
    {1, 0, 1, 0},    // 0: 15N single quantum
    {0, 1, 0, 1},    // 1: 1H single quantum
    {-1, 1, -1, 1},  // 2: zero quantum
    {1, 1, 1, 1},    // 3: double quantum
    {1, 1, 1, -1},   // 4: 15N multiple quantum
    {1, 1, -1, 1},   // 5: 1H multiple quantum
};

/// The code of a point. Ends the run when the pulse rate is too small or the code is unknown; both
/// are truncated to integers first, unlike the rate of the other CPMG models.
int coherenceCode(const Data& d) {
  if (std::trunc(d.x[0]) < 10.0) ERROR_rate_too_small();
  const double code = std::trunc(d.x[4]);
  if (!(code >= 0.0 && code <= kLastCode)) {
    // Code 0 is called DQ here; the text is part of the interface.
    fatal(
        "ERROR: Unknown spin state.\n"
        "       0:15N DQ, 1:1H SQ, 2:ZQ, 3:DQ, 4:15N MQ, 5:1H MQ\n");
  }
  return static_cast<int>(code);
}

/// D1 and D2 in rad/s.
struct Differences {
  Differences(const Coherence& c, double dN, double dH)
      : first(c.N1 * dN + c.H1 * dH), second(c.N2 * dN + c.H2 * dH) {}
  double first;
  double second;
};

// ---- closed form ----

/// How one parameter moves the inputs of the closed form: d kex, d(kab - kba), dD1, dD2.
struct Partial {
  double kex;
  double d;
  double D1;
  double D2;
};

/// R2eff - R20 = (kex - x0 Re arccosh Y)/2 with
/// Y = (1+r)/2 cosh(al + be) + (1-r)/2 cosh(al - be), al = w1/(2 x0), be = w2/(2 x0),
/// w1 = sqrt(kex^2 - D1^2 + 2i D1 d), w2 = sqrt(kex^2 - D2^2 - 2i D2 d), d = kab - kba,
/// r = (kex^2 + D1 D2 + i (D1 - D2) d)/(w1 w2): the decay of the dominant mode, no pre-exponential
/// factor. Real, and the value of Carver and Richards, for D1 = D2.
class ClosedForm {
 public:
  ClosedForm(double x0, double kex, double d, const Differences& by)
      : x0_(x0), kex_(kex), d_(d), D1_(by.first), D2_(by.second) {
    w1_ = std::sqrt(Complex(kex * kex - D1_ * D1_, 2.0 * D1_ * d));
    w2_ = std::sqrt(Complex(kex * kex - D2_ * D2_, -2.0 * D2_ * d));
    r_ = Complex(kex * kex + D1_ * D2_, (D1_ - D2_) * d) / (w1_ * w2_);
    al_ = w1_ / (2.0 * x0);
    be_ = w2_ / (2.0 * x0);
    Y_ = 0.5 * (1.0 + r_) * std::cosh(al_ + be_) + 0.5 * (1.0 - r_) * std::cosh(al_ - be_);
    overflows_ = !((al_ + be_).real() < kCoshMax) || !std::isfinite(std::abs(Y_));
  }

  [[nodiscard]] double value() const {
    return 0.5 * (kex_ - x0_ * (overflows_ ? asymptote() : std::acosh(Y_).real()));
  }

  [[nodiscard]] double derivative(const Partial& by) const {
    const Complex i(0.0, 1.0);
    const Complex dw1 = (kex_ * by.kex - D1_ * by.D1 + i * (D1_ * by.d + d_ * by.D1)) / w1_;
    const Complex dw2 = (kex_ * by.kex - D2_ * by.D2 - i * (D2_ * by.d + d_ * by.D2)) / w2_;
    const Complex dn = 2.0 * kex_ * by.kex + D2_ * by.D1 + D1_ * by.D2 +
                       i * ((by.D1 - by.D2) * d_ + (D1_ - D2_) * by.d);
    const Complex dr = dn / (w1_ * w2_) - r_ * (dw1 / w1_ + dw2 / w2_);
    const Complex da = dw1 / (2.0 * x0_);
    const Complex db = dw2 / (2.0 * x0_);
    // From there on the two are equal to all digits, and only the first cannot overflow.
    const bool is_large = !((al_ + be_).real() < kSquareSafe);
    return 0.5 * (by.kex - x0_ * (is_large ? slopeOfAsymptote(da, db, dr) : slope(da, db, dr)));
  }

 private:
  [[nodiscard]] double slope(Complex da, Complex db, Complex dr) const {
    const Complex sa = std::sinh(al_), ca = std::cosh(al_);
    const Complex sb = std::sinh(be_), cb = std::cosh(be_);
    const Complex dY = (sa * cb + r_ * ca * sb) * da + (ca * sb + r_ * sa * cb) * db + dr * sa * sb;
    return (dY / (std::sqrt(Y_ - 1.0) * std::sqrt(Y_ + 1.0) + kTiny)).real();
  }

  /// Re arccosh Y beyond the overflow of cosh: ln(2Y).
  [[nodiscard]] double asymptote() const {
    const Complex ea = std::exp(-2.0 * al_), eb = std::exp(-2.0 * be_);
    const Complex rest = 0.5 * ((1.0 + ea) * (1.0 + eb) + r_ * (1.0 - ea) * (1.0 - eb));
    return (al_ + be_).real() + std::log(std::abs(rest));
  }

  [[nodiscard]] double slopeOfAsymptote(Complex da, Complex db, Complex dr) const {
    const Complex ta = std::tanh(al_), tb = std::tanh(be_);
    return (((ta + r_ * tb) * da + (tb + r_ * ta) * db + dr * ta * tb) / (1.0 + r_ * ta * tb))
        .real();
  }

  double x0_, kex_, d_, D1_, D2_;
  Complex w1_, w2_, r_, al_, be_, Y_;
  bool overflows_;
};

/// Value and derivatives of a parametrisation {dwN, dwH, two exchange parameters, R20}: kex and
/// d = kab - kba, and how they follow the two exchange parameters.
double closedForm(const Data& data, const double* p, std::vector<double>& dydp,
                  const std::vector<bool>& skip, double kex, double d, const Partial& by_first,
                  const Partial& by_second) {
  const Coherence& c = kCoherences[coherenceCode(data)];
  const double field = data.x[3];
  const ClosedForm form(data.x[0], kex, d, Differences(c, p[0] * field, p[1] * field));
  if (!dydp.empty()) {
    const Partial partials[] = {{0.0, 0.0, c.N1 * field, c.N2 * field},
                                {0.0, 0.0, c.H1 * field, c.H2 * field},
                                by_first,
                                by_second};
    for (std::size_t k = 0; k < std::size(partials); ++k) {
      if (!skip[data.slot(k)]) dydp[data.slot(k)] = form.derivative(partials[k]);
    }
    constexpr std::size_t kR20 = std::size(partials);
    if (!skip[data.slot(kR20)]) dydp[data.slot(kR20)] = 1.0;
  }
  return p[4] + form.value();
}

double fmqcpmg_richards(const Data& d, double* p, std::vector<double>& dydp,
                        const std::vector<bool>& skip) {
  const double kex = p[2], papb = p[3];
  const double s = std::sqrt(1.0 - 4.0 * papb);
  return closedForm(d, p, dydp, skip, kex, -kex * s, {1.0, -s, 0.0, 0.0},
                    {0.0, 2.0 * kex / s, 0.0, 0.0});
}

double fmqcpmg_richards_p(const Data& d, double* p, std::vector<double>& dydp,
                          const std::vector<bool>& skip) {
  const double kex = p[2], pb = p[3];
  const double s = 1.0 - 2.0 * pb;
  return closedForm(d, p, dydp, skip, kex, -kex * s, {1.0, -s, 0.0, 0.0},
                    {0.0, 2.0 * kex, 0.0, 0.0});
}

double fmqcpmg_richards_k(const Data& d, double* p, std::vector<double>& dydp,
                          const std::vector<bool>& skip) {
  const double kab = p[2], kba = p[3];
  return closedForm(d, p, dydp, skip, kab + kba, kab - kba, {1.0, 1.0, 0.0, 0.0},
                    {1.0, -1.0, 0.0, 0.0});
}

// ---- matrix models: the echo train ----

/// The exchange modes of the two periods of an echo.
struct Periods {
  ExchangeModes first;
  ExchangeModes second;
};

constexpr std::size_t kMatrix = 2 * ExchangeModes::kSites * ExchangeModes::kSites;
using Matrix = std::array<double, kMatrix>;
using Vector = std::array<double, 2 * ExchangeModes::kSites>;

/// Blocks of two echoes in the train. Ends the run when there is none; 0 for a train that no
/// computer would finish.
int echoBlocks(double T, double x0) {
  const double pulses = std::trunc(T * x0);
  if (!(pulses >= 2.0)) fatal("ERROR: N is less than 2.\n");
  constexpr double kMostPulses = 1e7;
  return pulses <= kMostPulses ? static_cast<int>(pulses) / 2 : 0;
}

/// Signal of site A after the halves X and conj(Y) of a train have acted on `start`.
double signal(int n, const Matrix& X, const Matrix& Y, const Vector& start) {
  Matrix Y_conj;
  Vector end;
  zmat_cnj(n, Y.data(), Y_conj.data());
  zmat_vmlt(n, X.data(), Y_conj.data(), start.data(), end.data());
  return end[0];
}

/// Coherences without a passive nucleus: Re[F^N v]_A, F = A1 A2* A2* A1.
double signalOfTrain(int n, int N, const Matrix& A1, const Matrix& A2c, const Vector& start) {
  Matrix F;
  Vector end;
  zmat_mltpow(n, A1.data(), A2c.data(), A2c.data(), A1.data(), N, F.data());
  zmat_vmlt(n, F.data(), start.data(), end.data());
  return end[0];
}

/// Multiple quantum: a pulse on the passive nucleus in the middle of the train refocuses it, so
/// half of the blocks come before it and half after, for the two coherences that the signal holds
/// in equal parts: F starts in the first period, G = A2* A1 A1 A2* in the second.
double signalOfHalves(int n, int N, const Matrix& A1, const Matrix& A2c, const Vector& start) {
  Matrix F;
  Matrix G;
  zmat_mltpow(n, A1.data(), A2c.data(), A2c.data(), A1.data(), N / 2, F.data());
  zmat_mltpow(n, A2c.data(), A1.data(), A1.data(), A2c.data(), N / 2, G.data());
  if (N % 2 == 0) return 0.5 * (signal(n, F, G, start) + signal(n, G, F, start));
  Matrix X;  // one echo more in each half
  Matrix Y;
  zmat_mlt(n, F.data(), A1.data(), A2c.data(), X.data());
  zmat_mlt(n, G.data(), A2c.data(), A1.data(), Y.data());
  return 0.5 * (signal(n, X, X, start) + signal(n, Y, Y, start));
}

/// -ln(I/pA)/T of n sites; NaN for modes that are not valid and for a train without signal.
double decayRate(int n, const Data& d, int code, const Periods& periods) {
  const double x0 = d.x[0], T = d.x[1];
  const int N = echoBlocks(T, x0);
  if (N == 0 || !periods.first.valid || !periods.second.valid) return kNaN;
  Matrix A1, A2, A2c;
  periods.first.halfEcho(x0, A1.data());
  periods.second.halfEcho(x0, A2.data());
  zmat_cnj(n, A2.data(), A2c.data());
  Vector start{};
  for (std::size_t site = 0; site < ExchangeModes::kSites; ++site) {
    start[2 * site] = periods.first.populations[site];
  }
  const double I =
      code < kMq15N ? signalOfTrain(n, N, A1, A2c, start) : signalOfHalves(n, N, A1, A2c, start);
  // Repeated products of a signal that is gone stick at the smallest numbers instead of reaching 0.
  return I >= std::numeric_limits<double>::min() ? -std::log(I / start[0]) / T : kNaN;
}

// ---- matrix models: parametrisations ----

constexpr std::size_t kMostParms = 10;

using PeriodCache = SlotCache<Periods, kMostParms + 1, kMostParms>;
using PeriodFunc = Periods (*)(const Coherence& c, double field, const double* p);

/// All parameters but R20, the field factor and the code.
PeriodCache::Key keyOf(std::size_t parms, double field, int code, const double* p) {
  PeriodCache::Key key{};
  const auto end = std::copy_n(p, parms - 1, key.begin());
  *end = field;
  *(end + 1) = code;
  return key;
}

Periods twoSites(const Coherence& c, double field, const double* p, double kab, double kba,
                 const std::array<double, 2>& populations) {
  const Differences D(c, p[0] * field, p[1] * field);
  return {ExchangeModes::ofTwo(D.first, kab, kba, populations),
          ExchangeModes::ofTwo(D.second, kab, kba, populations)};
}

Periods matrix2_p(const Coherence& c, double field, const double* p) {
  const double kex = p[2], pb = p[3];
  return twoSites(c, field, p, kex * pb, kex * (1.0 - pb), {1.0 - pb, pb});
}

Periods matrix2_k(const Coherence& c, double field, const double* p) {
  const double kab = p[2], kba = p[3];
  const double kex = kab + kba;
  return twoSites(c, field, p, kab, kba, {kba / kex, kab / kex});
}

Periods threeSites(const Coherence& c, double field, const double* p, const ThreeSiteRates& k,
                   const std::array<double, 3>& populations) {
  const Differences B(c, p[0] * field, p[1] * field);
  const Differences C(c, p[2] * field, p[3] * field);
  return {ExchangeModes::ofThree(B.first, C.first, k, populations),
          ExchangeModes::ofThree(B.second, C.second, k, populations)};
}

/// kex1, kex2, kex3 = kij + kji of the pairs A-B, B-C, C-A; detailed balance by construction.
Periods matrix3_p(const Coherence& c, double field, const double* p) {
  const double pb = p[4], pc = p[5], kex1 = p[6], kex2 = p[7], kex3 = p[8];
  const double pa = 1.0 - pb - pc;
  const ThreeSiteRates k = {kex1 * pb / (pa + pb), kex1 * pa / (pa + pb), kex2 * pc / (pb + pc),
                            kex2 * pb / (pb + pc), kex3 * pa / (pa + pc), kex3 * pc / (pa + pc)};
  return threeSites(c, field, p, k, {pa, pb, pc});
}

Periods matrix3_k(const Coherence& c, double field, const double* p) {
  const double kab = p[4], kba = p[5], kac = p[6], kca = p[7], kbc = p[8];
  const ThreeSiteRates k = {kab, kba, kbc, cycleRate(kab, kba, kbc, kca, kac), kca, kac};
  return threeSites(c, field, p, k, equilibrium(k));
}

/// R2eff of a parametrisation of kSites sites with kParms parameters, R20 the last.
template <PeriodFunc make, int kSites, std::size_t kParms>
double value(const Data& d, const double* p, std::size_t slot) {
  static PeriodCache cache;
  const int code = coherenceCode(d);
  const double field = d.x[3];
  const Periods& periods = cache.at(slot, keyOf(kParms, field, code, p),
                                    [&] { return make(kCoherences[code], field, p); });
  return p[kParms - 1] + decayRate(kSites, d, code, periods);
}

constexpr ModelFunc fmqcpmg_matrix2_p = withDerivatives<value<matrix2_p, 2, 5>, 5>;
constexpr ModelFunc fmqcpmg_matrix2_k = withDerivatives<value<matrix2_k, 2, 5>, 5>;
constexpr ModelFunc fmqcpmg_matrix3_p = withDerivatives<value<matrix3_p, 3, 10>, 10>;
constexpr ModelFunc fmqcpmg_matrix3_k = withDerivatives<value<matrix3_k, 3, 10>, 10>;

// ---- registration ----

// clang-format off
constexpr ParmRow kRichardsParms[] = {
    {"dwN", -12000, 12000, "000"}, {"dwH", -12000, 12000, "000"}, {"kex", 1, 12000, "100"},
    {"papb", 0.001, 0.249, "100"}, {"R20", 0.1, 100, "111"}};
constexpr ParmRow kRichardsPParms[] = {
    {"dwN", -12000, 12000, "000"}, {"dwH", -12000, 12000, "000"}, {"kex", 1, 12000, "100"},
    {"pb", 0.005, 0.249, "100"}, {"R20", 0.1, 100, "111"}};
constexpr ParmRow kTwoRatesParms[] = {
    {"dwN", -12000, 12000, "000"}, {"dwH", -12000, 12000, "000"}, {"kab", 1, 12000, "100"},
    {"kba", 1, 12000, "100"}, {"R20", 0.1, 100, "111"}};
constexpr ParmRow kMatrix2PParms[] = {
    {"dwN", -12000, 12000, "000"}, {"dwH", -12000, 12000, "000"}, {"kex", 1, 12000, "100"},
    {"pb", 0.005, 0.49, "100"}, {"R20", 0.1, 100, "111"}};
constexpr ParmRow kMatrix3PParms[] = {
    {"dwabN", -12000, 12000, "000"}, {"dwabH", -12000, 12000, "000"},
    {"dwacN", -12000, 12000, "000"}, {"dwacH", -12000, 12000, "000"},
    {"pb", 0.005, 0.49, "100"}, {"pc", 0.005, 0.49, "100"}, {"kex1", 0, 12000, "100"},
    {"kex2", 0, 12000, "100"}, {"kex3", 0, 12000, "100"}, {"R20", 0.1, 100, "111"}};
// kac comes before kca although the equation names them the other way round.
constexpr ParmRow kMatrix3KParms[] = {
    {"dwabN", -12000, 12000, "000"}, {"dwabH", -12000, 12000, "000"},
    {"dwacN", -12000, 12000, "000"}, {"dwacH", -12000, 12000, "000"},
    {"kab", 0, 12000, "100"}, {"kba", 0, 12000, "100"}, {"kac", 0, 12000, "100"},
    {"kca", 0, 12000, "100"}, {"kbc", 0, 12000, "100"}, {"R20", 0.1, 100, "111"}};

constexpr ModelGroup kGroup = {"CT-CPMG", 5, 3, 0};
constexpr ModelRow kModels[] = {
    // function           name                  equation in reports, parameters
    {fmqcpmg_richards,    "MQCPMG_Richards",    "f(dwN, dwH, kex, papb, R20)", kRichardsParms},
    {fmqcpmg_richards_p,  "MQCPMG_Richards_p",  "f(dwN, dwH, kex, pb, R20)", kRichardsPParms},
    {fmqcpmg_richards_k,  "MQCPMG_Richards_k",  "f(dwN, dwH, kab, kba, R20)", kTwoRatesParms},
    {fmqcpmg_matrix2_p,   "MQCPMG_Matrix2_p",   "f(dwN, dwH, kex, pb, R20)", kMatrix2PParms},
    {fmqcpmg_matrix2_k,   "MQCPMG_Matrix2_k",   "f(dwN, dwH, kab, kba, R20)", kTwoRatesParms},
    {fmqcpmg_matrix3_p,   "MQCPMG_Matrix3_p",
     "f(dwabN, dwabH, dwacN, dwacH, pb, pc, kex1, kex2, kex3, R20)", kMatrix3PParms},
    {fmqcpmg_matrix3_k,   "MQCPMG_Matrix3_k",
     "f(dwabN, dwabH, dwacN, dwacH, kab, kba, kca, kac, kbc, R20)", kMatrix3KParms},
};
// clang-format on

}  // namespace

void Funclib::Read_MQCPMG_Funcs(int) { define(kGroup, kModels); }
