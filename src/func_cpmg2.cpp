// Two-site models of constant-time CPMG dispersion, closed forms with analytic derivatives.
// SPDX-License-Identifier: GPL-3.0-or-later
//
// Carver & Richards, J. Magn. Reson. 6, 89 (1972), equal intrinsic R2 in both sites, in several
// parametrisations; Luz & Meiboom, J. Chem. Phys. 39, 366 (1963) for fast exchange.
// Units: rates and x0 = 1/tcp (tcp: spacing of the 180-degree pulses) in 1/s; x1 temperature in K;
// dw * x2 in rad/s: no factor 2 pi is applied, but dJ, in Hz, enters times pi.
//
// Each Carver-Richards model keeps the quantities that do not depend on x0 from call to call, since
// neighbouring points of a set differ in x0 alone. The derivative rows kept with them are renewed
// only by a miss that wants derivatives, and only for parameters that are not masked; a later hit
// uses the others as they stand.
#include "func_cpmg2.h"

#include "Fatal.h"

#include <array>
#include <cmath>
#include <numbers>

namespace {

constexpr double kMinRate = 10.0;              // smallest x0, 1/s
constexpr double kCoshMax = 710.475860073944;  // ln(DBL_MAX) + ln 2: cosh overflows from here on
constexpr double kSquareSafe = 350.0;          // cosh squared stays finite below it
constexpr double kTiny = 1e-30;                // keeps 0/0 out of the derivatives
constexpr double kBoltzmannOverPlanck =
    2.0836644e10;                         // 1/(s K); before the 2019 SI (2.083661912e10)
constexpr double kGasKcal = 0.001985878;  // kcal/(mol K); 8.314472 / 4186.8

inline bool wanted(const Data& d, std::size_t k, const std::vector<bool>& skip) {
  return !skip[d.slot(k)];
}

double square(double x) { return x * x; }

}  // namespace

// ---- shared with other families ----

void checkRate(const Data& d) {
  if (d.x[0] < kMinRate) ERROR_rate_too_small();
}

void ERROR_rate_too_small() { fatal("1/tcp is too short. Check the input file\n"); }

double eyringRate(double temp_kelvin, double dH, double dS) {
  return kBoltzmannOverPlanck * temp_kelvin * std::exp((-dH / temp_kelvin + dS) / kGasKcal);
}

FreeLigand::FreeLigand(double A0, double Bt, double K) {
  const double m = Bt - K - A0;
  root = std::sqrt(square(m) + 4.0 * Bt * K);
  if (std::isinf(K)) {
    B = Bt;
  } else {
    // the same root both ways; the second without the cancellation of m and the square root
    B = m >= 0.0 ? 0.5 * (m + root) : 2.0 * Bt * K / (root - m);
  }
}

namespace {

// ---- simple forms ----

/// R2eff = R20.
double fcpmg_const(const Data& d, double* p, std::vector<double>& dydp,
                   const std::vector<bool>& /*skip*/) {
  if (!dydp.empty()) dydp[d.slot(0)] = 1.0;  // whatever the mask says
  return p[0];
}

/// Fast exchange (Luz & Meiboom 1963): R2eff = A/kex (1 - tanh(u)/u) + R20 with u = kex/(2 x0) and
/// A = pdw x2^2; pdw = pA pB dw^2.
double fcpmg_meiboom(const Data& d, double* p, std::vector<double>& dydp,
                     const std::vector<bool>& skip) {
  checkRate(d);
  const double kex = p[0], pdw = p[1], R20 = p[2], field = d.x[2];
  const double A = pdw * square(field);
  const double u = kex * 0.5 / d.x[0];
  const double damping = std::tanh(u) / u;
  if (!dydp.empty()) {
    if (wanted(d, 0, skip)) {
      const double sech2 = u < kCoshMax ? 1.0 / square(std::cosh(u)) : 0.0;
      dydp[d.slot(0)] = A / square(kex) * (2.0 * damping - 1.0 - sech2);
    }
    if (wanted(d, 1, skip)) dydp[d.slot(1)] = square(field) / kex * (1.0 - damping);
    if (wanted(d, 2, skip)) dydp[d.slot(2)] = 1.0;
  }
  return A / kex * (1.0 - damping) + R20;
}

/// Fast exchange: R2eff = R20 + papb Delta^2 kex/(S + kex^2) with
/// S = sqrt(144 x0^4 + pa^2 Delta^4) and Delta = dw x2.
double fcpmg_torchia(const Data& d, double* p, std::vector<double>& dydp,
                     const std::vector<bool>& skip) {
  checkRate(d);
  const double dw = p[0], kex = p[1], papb = p[2], R20 = p[3];
  const double field = d.x[2];
  const double delta = dw * field;
  const double delta2 = square(delta);
  const double s = std::sqrt(1.0 - 4.0 * papb);
  const double pa = (1.0 + s) / 2.0;
  // pa enters squared here; raising it to the 4th power would shift R2eff in slow exchange.
  const double S = std::sqrt(144.0 * square(square(d.x[0])) + square(pa * delta2));
  const double denominator = S + square(kex);
  const double R = papb * delta2 * kex / denominator;
  if (!dydp.empty()) {
    if (wanted(d, 0, skip)) {
      // 2 R/Delta, written so that Delta = 0 gives 0
      const double twice = 2.0 * papb * delta * kex / denominator;
      dydp[d.slot(0)] = twice * field * (1.0 - square(pa * delta2) / (S * denominator));
    }
    if (wanted(d, 1, skip)) {
      dydp[d.slot(1)] = papb * delta2 / denominator * (1.0 - 2.0 * square(kex) / denominator);
    }
    if (wanted(d, 2, skip)) {
      dydp[d.slot(2)] =
          delta2 * kex / denominator * (papb * square(delta2) * pa / (S * denominator * s) + 1.0);
    }
    if (wanted(d, 3, skip)) dydp[d.slot(3)] = 1.0;
  }
  return R20 + R;
}

// ---- Carver-Richards: what all parametrisations share ----

/// The quantities of the equation that do not depend on x0.
struct Exchange {
  double kex = 0.0;
  double psi = 0.0;     ///< kex^2 - Delta^2
  double D_p = 0.0;     ///< D+ = (r + 1)/2 with r = (Delta^2 + kex^2)/Q
  double D_m = 0.0;     ///< D- = (r - 1)/2
  double norm = 0.0;    ///< Q = sqrt(psi^2 + zeta^2)
  double root_p = 0.0;  ///< sqrt((psi + Q)/2) = eta+ x0
  double root_m = 0.0;  ///< sqrt((Q - psi)/2) = eta- x0
};

/// Derivatives of them with respect to one parameter. D- has the derivative of D+.
struct Row {
  double kex = 0.0;
  double plus = 0.0;   ///< of psi + Q
  double minus = 0.0;  ///< of Q - psi
  double D_p = 0.0;
};

/// How one parameter moves the inputs of the equation, zeta = 2 Delta A.
struct Partial {
  double kex;    ///< d kex
  double delta;  ///< d Delta
  double A;      ///< A dA
};

template <class Key, std::size_t kParms>
struct Cache {
  Key key{};
  Exchange exchange;
  std::array<Row, kParms> pdrv;  ///< one row for each parameter but R20
};

/// Inputs of the equation; `guard` is added to Q where it divides.
struct Inputs {
  double kex;
  double delta;
  double A;
  double zeta;
  double guard = 0.0;
};

Exchange exchangeOf(const Inputs& in) {
  Exchange ex;
  ex.kex = in.kex;
  ex.psi = square(in.kex) - square(in.delta);
  ex.norm = std::sqrt(square(ex.psi) + square(in.zeta));
  const double r = (square(in.delta) + square(in.kex)) / (ex.norm + in.guard);
  ex.D_p = (r + 1.0) / 2.0;
  ex.D_m = (r - 1.0) / 2.0;
  ex.root_p = std::sqrt((ex.psi + ex.norm) / 2.0);
  ex.root_m = std::sqrt((ex.norm - ex.psi) / 2.0);
  return ex;
}

Row rowOf(const Inputs& in, const Exchange& ex, const Partial& by) {
  const double divisor = ex.norm + in.guard;
  const double r = (square(in.delta) + square(in.kex)) / divisor;
  const double delta2 = 2.0 * in.delta * by.delta;  // d(Delta^2)
  // zeta times its derivative
  const double zeta = 4.0 * (in.delta * by.delta * square(in.A) + square(in.delta) * by.A);
  const double psi = 2.0 * in.kex * by.kex - delta2;
  const double norm = (ex.psi * psi + zeta) / divisor;
  return {by.kex, psi + norm, norm - psi, (psi + 2.0 * delta2 - r * norm) / (2.0 * divisor)};
}

/// Fills the cache after a miss.
template <class Key, std::size_t kParms>
void refresh(Cache<Key, kParms>& cache, const Key& key, const Inputs& in, const Data& d,
             const std::vector<double>& dydp, const std::vector<bool>& skip,
             const std::array<Partial, kParms>& partials) {
  cache.key = key;
  cache.exchange = exchangeOf(in);
  if (dydp.empty()) return;
  for (std::size_t k = 0; k < kParms; ++k) {
    if (wanted(d, k, skip)) cache.pdrv[k] = rowOf(in, cache.exchange, partials[k]);
  }
}

/// Where the derivatives of arccosh(Y), Y = D+ cosh(eta+) - D- cos(eta-), get their factors from:
/// d arccosh(Y) = gain (dD+ cosines + d(psi + Q) plus + d(Q - psi) minus).
struct Slopes {
  double gain;
  double cosines;
  double plus;
  double minus;
};

/// The functions of one point, below the overflow of cosh.
struct Echo {
  double x0;
  double eta_p;
  double eta_m;
  double cosh_p;
  double cos_m;
  double Y;
};

Slopes slopesOf(const Exchange& ex, const Echo& e) {
  double cosh_p = e.cosh_p;
  double sinh_p = std::sinh(e.eta_p);
  double cos_m = e.cos_m;
  double sin_m = std::sin(e.eta_m);
  double root_Y = 0.0;  // sqrt(Y^2 - 1)
  if (e.eta_p < kSquareSafe) {
    root_Y = std::sqrt(e.Y * e.Y - 1.0);
  } else {  // the same divided by Y throughout, whose square may overflow
    root_Y = std::sqrt(1.0 - square(1.0 / e.Y));
    cosh_p /= e.Y;
    sinh_p /= e.Y;
    cos_m /= e.Y;
    sin_m /= e.Y;
  }
  // 4 root = sqrt(8 (psi + Q)) and sqrt(8 (Q - psi))
  const double a = 1.0 / e.x0 / (4.0 * ex.root_p + kTiny);
  const double b = 1.0 / e.x0 / (4.0 * ex.root_m + kTiny);
  return {1.0 / (root_Y + kTiny), cosh_p - cos_m, a * ex.D_p * sinh_p, b * ex.D_m * sin_m};
}

/// The same beyond the overflow of cosh, where arccosh(Y) = eta+ + ln D+.
Slopes asymptoticSlopes(const Exchange& ex, double x0) {
  return {1.0, 1.0 / (ex.D_p + kTiny), 1.0 / x0 / (4.0 * ex.root_p), 0.0};
}

/// R2eff = R20 + (kex - x0 arccosh(Y))/2 and its derivatives from the rows of all parameters but
/// R20, which is the last one.
template <std::size_t kParms>
double evaluate(const Data& d, std::vector<double>& dydp, const std::vector<bool>& skip,
                const std::array<Row, kParms>& pdrv, double R20, const Exchange& ex) {
  Echo e{};
  e.x0 = d.x[0];
  e.eta_p = ex.root_p / e.x0;
  e.eta_m = ex.root_m / e.x0;
  bool overflows = !(e.eta_p < kCoshMax);
  double arccosh_Y = 0.0;
  if (!overflows) {
    e.cosh_p = std::cosh(e.eta_p);
    e.cos_m = std::cos(e.eta_m);
    e.Y = ex.D_p * e.cosh_p - ex.D_m * e.cos_m;
    arccosh_Y = std::acosh(e.Y);
    overflows = std::isinf(e.Y);  // D+ > 1 takes the product there before cosh itself
  }
  if (overflows) arccosh_Y = e.eta_p + std::log(ex.D_p);
  if (!dydp.empty()) {
    const Slopes by = overflows ? asymptoticSlopes(ex, e.x0) : slopesOf(ex, e);
    for (std::size_t k = 0; k < kParms; ++k) {
      if (!wanted(d, k, skip)) continue;
      const Row& row = pdrv[k];
      const double dY = row.D_p * by.cosines + row.plus * by.plus + row.minus * by.minus;
      dydp[d.slot(k)] = 0.5 * (row.kex - e.x0 * by.gain * dY);
    }
    dydp[d.slot(kParms)] = 1.0;  // whatever the mask says
  }
  return R20 + 0.5 * (ex.kex - e.x0 * arccosh_Y);
}

// ---- Carver-Richards: parametrisations ----

/// Population product: zeta = 2 Delta kex sqrt(1 - 4 papb).
template <class Key>
double richards(const Data& d, double* p, std::vector<double>& dydp, const std::vector<bool>& skip,
                Cache<Key, 3>& cache, const Key& key) {
  const double dw = p[0], kex = p[1], papb = p[2], R20 = p[3], field = d.x[2];
  if (!(cache.key == key)) {
    const double delta = dw * field;
    const double asymmetry = std::sqrt(1.0 - 4.0 * papb);
    const Inputs in{kex, delta, kex * asymmetry, 2.0 * delta * kex * asymmetry};
    refresh(cache, key, in, d, dydp, skip,
            {Partial{0.0, field, 0.0},                     // dw
             Partial{1.0, 0.0, kex * (1.0 - 4.0 * papb)},  // kex
             Partial{0.0, 0.0, -2.0 * square(kex)}});      // papb
  }
  return evaluate(d, dydp, skip, cache.pdrv, R20, cache.exchange);
}

double fcpmg_richards(const Data& d, double* p, std::vector<double>& dydp,
                      const std::vector<bool>& skip) {
  struct Key {
    double temp, field, dw, kex, papb;
    bool operator==(const Key&) const = default;
  };
  static Cache<Key, 3> cache;
  checkRate(d);
  return richards(d, p, dydp, skip, cache, Key{d.x[1], d.x[2], p[0], p[1], p[2]});
}

double fcpmg_richards_probes(const Data& d, double* p, std::vector<double>& dydp,
                             const std::vector<bool>& skip) {
  struct Key {
    double temp, field, probe, dw, kex, papb;
    bool operator==(const Key&) const = default;
  };
  static Cache<Key, 3> cache;
  checkRate(d);
  return richards(d, p, dydp, skip, cache, Key{d.x[1], d.x[2], d.x[3], p[0], p[1], p[2]});
}

/// Minor population: zeta = 2 Delta kex (1 - 2 pb).
double fcpmg_richards_p(const Data& d, double* p, std::vector<double>& dydp,
                        const std::vector<bool>& skip) {
  struct Key {
    double temp, field, dw, kex, pb;
    bool operator==(const Key&) const = default;
  };
  static Cache<Key, 3> cache;
  checkRate(d);
  const double dw = p[0], kex = p[1], pb = p[2], R20 = p[3];
  const double temp = d.x[1], field = d.x[2];
  if (const Key key{temp, field, dw, kex, pb}; !(cache.key == key)) {
    const double delta = dw * field;
    const double asymmetry = 1.0 - 2.0 * pb;
    const Inputs in{kex, delta, kex * asymmetry, 2.0 * delta * kex * asymmetry};
    refresh(cache, key, in, d, dydp, skip,
            {Partial{0.0, field, 0.0},                             // dw
             Partial{1.0, 0.0, kex * square(asymmetry)},           // kex
             Partial{0.0, 0.0, -2.0 * square(kex) * asymmetry}});  // pb
  }
  return evaluate(d, dydp, skip, cache.pdrv, R20, cache.exchange);
}

/// Rate constants: kex = kab + kba, zeta = 2 Delta kex (1 - 2 kab/kex).
double fcpmg_richards_k(const Data& d, double* p, std::vector<double>& dydp,
                        const std::vector<bool>& skip) {
  struct Key {
    double temp, field, dw, kab, kba;
    bool operator==(const Key&) const = default;
  };
  static Cache<Key, 3> cache;
  checkRate(d);
  const double dw = p[0], kab = p[1], kba = p[2], R20 = p[3];
  const double temp = d.x[1], field = d.x[2];
  if (const Key key{temp, field, dw, kab, kba}; !(cache.key == key)) {
    const double kex = kab + kba;
    const double delta = dw * field;
    const double A = kba - kab;
    const Inputs in{kex, delta, A, 2.0 * delta * kex * (1.0 - 2.0 * kab / kex)};
    refresh(cache, key, in, d, dydp, skip,
            {Partial{0.0, field, 0.0},  // dw
             Partial{1.0, 0.0, -A},     // kab
             Partial{1.0, 0.0, A}});    // kba
  }
  return evaluate(d, dydp, skip, cache.pdrv, R20, cache.exchange);
}

/// Residual dipolar coupling: Delta = dw x2 - pi dJ for pulse-sequence code 1, + pi dJ for code 2,
/// without dJ for any other code.
double fcpmg_rdc(const Data& d, double* p, std::vector<double>& dydp,
                 const std::vector<bool>& skip) {
  struct Key {
    double temp, field, code, dw, dJ, kex, papb;
    bool operator==(const Key&) const = default;
  };
  static Cache<Key, 4> cache;
  checkRate(d);
  const double dw = p[0], dJ = p[1], kex = p[2], papb = p[3], R20 = p[4];
  const double temp = d.x[1], field = d.x[2], code = std::trunc(d.x[3]);
  if (const Key key{temp, field, code, dw, dJ, kex, papb}; !(cache.key == key)) {
    constexpr double kPi = std::numbers::pi;
    const double c = code == 1.0 ? -kPi : code == 2.0 ? kPi : 0.0;
    const double delta = dw * field + c * dJ;
    const double asymmetry = std::sqrt(1.0 - 4.0 * papb);
    const Inputs in{kex, delta, kex * asymmetry, 2.0 * delta * kex * asymmetry};
    refresh(cache, key, in, d, dydp, skip,
            {Partial{0.0, field, 0.0},                     // dw
             Partial{0.0, c, 0.0},                         // dJ
             Partial{1.0, 0.0, kex * (1.0 - 4.0 * papb)},  // kex
             Partial{0.0, 0.0, -2.0 * square(kex)}});      // papb
  }
  return evaluate(d, dydp, skip, cache.pdrv, R20, cache.exchange);
}

/// Rates from activation enthalpies and entropies at temperature x1: zeta = 2 Delta (kab - kba).
double fcpmg_temp2(const Data& d, double* p, std::vector<double>& dydp,
                   const std::vector<bool>& skip) {
  struct Key {
    double T, field, dw, dHab, dHba, dSab, dSba;
    bool operator==(const Key&) const = default;
  };
  static Cache<Key, 5> cache;
  checkRate(d);
  const double dw = p[0], dHab = p[1], dHba = p[2], dSab = p[3], dSba = p[4], R20 = p[5];
  const double T = d.x[1], field = d.x[2];
  if (const Key key{T, field, dw, dHab, dHba, dSab, dSba}; !(cache.key == key)) {
    const double kab = eyringRate(T, dHab, dSab);
    const double kba = eyringRate(T, dHba, dSba);
    const double delta = dw * field;
    const double A = kab - kba;
    const Inputs in{kab + kba, delta, A, 2.0 * delta * A, kTiny};
    const double dkab = kab / kGasKcal;  // with respect to dSab; times -1/T with respect to dHab
    const double dkba = kba / kGasKcal;
    refresh(cache, key, in, d, dydp, skip,
            {Partial{0.0, field, 0.0},                // dw
             Partial{-dkab / T, 0.0, -A * dkab / T},  // dHab
             Partial{-dkba / T, 0.0, A * dkba / T},   // dHba
             Partial{dkab, 0.0, A * dkab},            // dSab
             Partial{dkba, 0.0, -A * dkba}});         // dSba
  }
  return evaluate(d, dydp, skip, cache.pdrv, R20, cache.exchange);
}

/// Ligand binding with one pseudo-first-order rate for each concentration:
/// zeta = 2 Delta (Bkon - koff).
double fcpmg_bind2(const Data& d, double* p, std::vector<double>& dydp,
                   const std::vector<bool>& skip) {
  struct Key {
    double temp, field, conc, dw, Bkon, koff;
    bool operator==(const Key&) const = default;
  };
  static Cache<Key, 3> cache;
  checkRate(d);
  const double dw = p[0], Bkon = p[1], koff = p[2], R20 = p[3];
  const double temp = d.x[1], field = d.x[2], conc = d.x[3];
  if (const Key key{temp, field, conc, dw, Bkon, koff}; !(cache.key == key)) {
    const double delta = dw * field;
    const double A = Bkon - koff;
    const Inputs in{Bkon + koff, delta, A, 2.0 * delta * A, kTiny};
    refresh(cache, key, in, d, dydp, skip,
            {Partial{0.0, field, 0.0},  // dw
             Partial{1.0, 0.0, A},      // Bkon
             Partial{1.0, 0.0, -A}});   // koff
  }
  return evaluate(d, dydp, skip, cache.pdrv, R20, cache.exchange);
}

/// Ligand binding with concentrations: kon' = kon [B] 1e6 with the free ligand [B] in mol/l, kon in
/// 1/(umol/l s), total ligand x3 B0; zeta = 2 Delta (kon' - koff).
double fcpmg_bind2c(const Data& d, double* p, std::vector<double>& dydp,
                    const std::vector<bool>& skip) {
  struct Key {
    double temp, field, conc, dw, kon, koff, A0, B0;
    bool operator==(const Key&) const = default;
  };
  static Cache<Key, 5> cache;
  checkRate(d);
  const double dw = p[0], kon = p[1], koff = p[2], A0 = p[3], B0 = p[4], R20 = p[5];
  const double temp = d.x[1], field = d.x[2], conc = d.x[3];
  if (const Key key{temp, field, conc, dw, kon, koff, A0, B0}; !(cache.key == key)) {
    constexpr double kMicro = 1e6;  // umol in a mol
    const double K = koff / kon * 1e-6;
    const double Bt = conc * B0;
    const FreeLigand ligand(A0, Bt, K);
    const double kon_B = kon * ligand.B * kMicro;
    const double delta = dw * field;
    const double A = kon_B - koff;
    const Inputs in{kon_B + koff, delta, A, 2.0 * delta * A, kTiny};

    const double by_K = kon * kMicro * (Bt - ligand.B) / ligand.root;  // d kon'/dK
    // [B] 1e6 - by_K K/kon without its cancellation: [B] root = [B]^2 + Bt K
    const double by_kon = kMicro * ligand.B * (ligand.B + K) / ligand.root;
    const double by_koff = by_K * 1e-6 / kon;
    const double by_A0 = -kon * kMicro * ligand.B / ligand.root;
    const double by_B0 = kon * kMicro * conc * (ligand.B + K) / ligand.root;
    refresh(cache, key, in, d, dydp, skip,
            {Partial{0.0, field, 0.0},                          // dw
             Partial{by_kon, 0.0, A * by_kon},                  // kon
             Partial{by_koff + 1.0, 0.0, A * (by_koff - 1.0)},  // koff
             Partial{by_A0, 0.0, A * by_A0},                    // A0
             Partial{by_B0, 0.0, A * by_B0}});                  // B0
  }
  return evaluate(d, dydp, skip, cache.pdrv, R20, cache.exchange);
}

// ---- registration ----

// clang-format off
constexpr ParmRow kConstParms[] = {{"R20", 0.01, 50, "11"}};
constexpr ParmRow kMeiboomParms[] = {{"kex", 0.1, 12000, "10"}, {"pdw", 1e-30, 3.6e7, "10"}, {"R20", 0.1, 50, "11"}};
constexpr ParmRow kTorchiaParms[] = {{"dw", 1, 12000, "00"}, {"kex", 1, 12000, "10"}, {"papb", 0.001, 0.113, "10"}, {"R20", 0.1, 100, "11"}};
constexpr ParmRow kRichardsParms[] = {{"dw", 1, 12000, "00"}, {"kex", 1, 12000, "10"}, {"papb", 0.001, 0.249, "10"}, {"R20", 0.1, 100, "11"}};
constexpr ParmRow kRichardsPParms[] = {{"dw", 1, 12000, "00"}, {"kex", 1, 12000, "10"}, {"pb", 0.005, 0.49, "10"}, {"R20", 0.1, 100, "11"}};
constexpr ParmRow kRichardsKParms[] = {{"dw", 1, 12000, "00"}, {"kab", 1, 12000, "10"}, {"kba", 1, 12000, "10"}, {"R20", 0.1, 100, "11"}};
constexpr ParmRow kProbesParms[] = {{"dw", 1, 12000, "001"}, {"kex", 1, 12000, "100"}, {"papb", 0.001, 0.249, "100"}, {"R20", 0.1, 100, "111"}};
constexpr ParmRow kRdcParms[] = {{"dw", 1, 12000, "000"}, {"dJ", -200, 200, "000"}, {"kex", 1, 12000, "100"}, {"papb", 0.001, 0.249, "100"}, {"R20", 0.1, 100, "111"}};
constexpr ParmRow kTemp2Parms[] = {{"dw", 1, 12000, "00"}, {"dHab", -50, 50, "00"}, {"dHba", -50, 50, "00"}, {"dSab", -1, 1, "00"}, {"dSba", -1, 1, "00"}, {"R20", 0.1, 100, "11"}};
// Bkon comes before koff although the equation names them the other way round.
constexpr ParmRow kBind2Parms[] = {{"dw", 1, 12000, "000"}, {"Bkon", 1, 12000, "101"}, {"koff", 1, 12000, "100"}, {"R20", 0.1, 100, "111"}};
constexpr ParmRow kBind2cParms[] = {{"dw", 1, 12000, "000"}, {"kon", 1, 1e11, "100"}, {"koff", 1, 12000, "100"}, {"A0", 1e-9, 0.01, "000"}, {"B0", 1e-9, 0.01, "000"}, {"R20", 0.1, 100, "111"}};

constexpr ModelGroup kThreeColumns = {"CT-CPMG", 3, 2, 0};
constexpr ModelGroup kFourColumns = {"CT-CPMG", 4, 3, 0};

constexpr bool kKeepsSlopes = true;

constexpr ModelRow kSimple[] = {
    // function            name                    equation in reports                      parameters
    {fcpmg_const,          "CPMG_const",           "f(R20)",                                kConstParms},
    {fcpmg_meiboom,        "CPMG_Meiboom",         "f(R20,pdw,kex)",                        kMeiboomParms},
    {fcpmg_torchia,        "CPMG_Torchia",         "f(dw, kex, papb, R20)",                 kTorchiaParms},
    {fcpmg_richards,       "CPMG_Richards",        "f(dw, kex, papb, R20)",                 kRichardsParms, kKeepsSlopes},
    {fcpmg_richards_p,     "CPMG_Richards_p",      "f(dw, kex, pb, R20)",                   kRichardsPParms, kKeepsSlopes},
    {fcpmg_richards_k,     "CPMG_Richards_k",      "f(dw, kab, kba, R20)",                  kRichardsKParms, kKeepsSlopes},
};
constexpr ModelRow kProbes[] = {
    {fcpmg_richards_probes, "CPMG_Richards_probes", "f(dw, kex, papb, R20)",                kProbesParms, kKeepsSlopes},
    {fcpmg_rdc,            "CPMG_RDC",             "f(dw, dJ, kex, papb, R20)",             kRdcParms, kKeepsSlopes},
};
constexpr ModelRow kTemperature[] = {
    {fcpmg_temp2,          "CPMG_TEMP2",           "f(dw, dHab, dHba, dSab, dSba, R20)",    kTemp2Parms, kKeepsSlopes},
};
constexpr ModelRow kBinding[] = {
    {fcpmg_bind2,          "CPMG_Bind2",           "f(dw, koff, [B]kon, R20)",              kBind2Parms, kKeepsSlopes},
    {fcpmg_bind2c,         "CPMG_Bind2c",          "f(dw, kon, koff, A0, B0, R20)",         kBind2cParms, kKeepsSlopes},
};
// clang-format on

}  // namespace

void Funclib::Read_CPMG2_Funcs(int) {
  define(kThreeColumns, kSimple);
  define(kFourColumns, kProbes);
  define(kThreeColumns, kTemperature);
  define(kFourColumns, kBinding);
}
