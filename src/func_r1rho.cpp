// Two-site models of the rotating-frame relaxation rate R1rho, off and on resonance.
// SPDX-License-Identifier: GPL-3.0-or-later
//
// Fast exchange: Davis, Perlman & London, J. Magn. Reson. B 104, 266 (1994). Kay: minor site far
// less populated. Trott & Palmer, J. Magn. Reson. 154, 157 (2002): one population far larger, or
// fast. Miloushev & Palmer, J. Magn. Reson. 177, 221 (2005): second order of the smallest decay.
// Units: x in Hz (spin-lock field, offset of the carrier), taken times 2 pi here; x[2], the
// temperature, only labels; rates in 1/s, dw x[3] in rad/s.
// The offset counts from the population average of the sites for the constant, London and Kay
// models, from site A for Palmer's.
#include "ForwardDifferences.h"
#include "FuncLib.h"

#include <array>
#include <cmath>
#include <cstddef>
#include <numbers>

namespace {

double square(double x) { return x * x; }

// ---- what all models share ----

/// Spin-lock field and offset of the carrier, rad/s.
struct SpinLock {
  double omega1;
  double offset;
};

constexpr double kTwoPi = 2.0 * std::numbers::pi;

SpinLock fieldFirst(const Data& d) { return {kTwoPi * d.x[0], kTwoPi * d.x[1]}; }
SpinLock offsetFirst(const Data& d) { return {kTwoPi * d.x[1], kTwoPi * d.x[0]}; }
SpinLock withoutOffset(const Data& d) { return {kTwoPi * d.x[0], 0.0}; }

/// sin^2 of the tilt of the effective field from the z axis; 0 without any field. The sign of the
/// offset has no effect.
double sin2Tilt(double omega1, double offset) {
  return square(std::sin(std::atan2(omega1, offset)));
}

double sin2Tilt(const SpinLock& lock) { return sin2Tilt(lock.omega1, lock.offset); }

/// The rate along the tilted field.
double tiltedRate(double Rex, double R20, double R1, double s2) {
  return (1.0 - s2) * R1 + (Rex + R20) * s2;
}

/// Exchange contribution to the transverse rate and its derivatives with respect to the model's
/// first parameters; R20 and R1 come behind them.
template <std::size_t kParms>
struct Exchange {
  double Rex;
  std::array<double, kParms> slopes;
};

/// Stores the derivative with respect to base parameter k, unless it is masked.
void put(const Data& d, std::size_t k, double derivative, std::vector<double>& dydp,
         const std::vector<bool>& skip) {
  if (!skip[d.slot(k)]) dydp[d.slot(k)] = derivative;
}

/// Value and derivatives along a tilted field.
template <std::size_t kParms>
double tilted(const Exchange<kParms>& ex, double s2, const Data& d, const double* p,
              std::vector<double>& dydp, const std::vector<bool>& skip) {
  constexpr std::size_t kR20 = kParms, kR1 = kParms + 1;
  if (!dydp.empty()) {
    for (std::size_t k = 0; k < kParms; ++k) put(d, k, s2 * ex.slopes[k], dydp, skip);
    put(d, kR20, s2, dydp, skip);
    put(d, kR1, 1.0 - s2, dydp, skip);
  }
  return tiltedRate(ex.Rex, p[kR20], p[kR1], s2);
}

/// Value and derivatives on resonance: transverse relaxation alone, also where the field is 0.
template <std::size_t kParms>
double transverse(const Exchange<kParms>& ex, const Data& d, const double* p,
                  std::vector<double>& dydp, const std::vector<bool>& skip) {
  if (!dydp.empty()) {
    for (std::size_t k = 0; k < kParms; ++k) put(d, k, ex.slopes[k], dydp, skip);
    put(d, kParms, 1.0, dydp, skip);
  }
  return p[kParms] + ex.Rex;
}

/// Model function of an exchange contribution along the tilted field.
template <auto exchange, SpinLock (*lock_of)(const Data&)>
double tiltedModel(const Data& d, double* p, std::vector<double>& dydp,
                   const std::vector<bool>& skip) {
  const SpinLock lock = lock_of(d);
  return tilted(exchange(lock, d, p), sin2Tilt(lock), d, p, dydp, skip);
}

/// The same on resonance.
template <auto exchange>
double transverseModel(const Data& d, double* p, std::vector<double>& dydp,
                       const std::vector<bool>& skip) {
  return transverse(exchange(withoutOffset(d), d, p), d, p, dydp, skip);
}

// ---- no exchange: p = {R20, R1} ----

Exchange<0> noExchange(const SpinLock& /*lock*/, const Data& /*d*/, const double* /*p*/) {
  return {0.0, {}};
}

constexpr ModelFunc fR1rho_const = tiltedModel<noExchange, fieldFirst>;
constexpr ModelFunc fR1rho_const_off = tiltedModel<noExchange, offsetFirst>;
constexpr ModelFunc fR1rho_const_on = transverseModel<noExchange>;

// ---- London: p = {phi, kex, R20, R1}, phi = pA pB dw^2 ----

/// Rex = phi x3^2 kex/D with D = omega1^2 + Omega^2 + kex^2.
Exchange<2> london(const SpinLock& lock, const Data& d, const double* p) {
  const double phi = p[0], kex = p[1];
  const double field2 = square(d.x[3]);
  const double D = square(lock.omega1) + square(lock.offset) + square(kex);
  return {kex * phi * field2 / D,
          {field2 * kex / D,                                    // phi
           phi * field2 / D * (1.0 - 2.0 * square(kex) / D)}};  // kex
}

constexpr ModelFunc fR1rho_London = tiltedModel<london, fieldFirst>;
constexpr ModelFunc fR1rho_London_off = tiltedModel<london, offsetFirst>;
constexpr ModelFunc fR1rho_London_on = transverseModel<london>;

// ---- Kay: p = {dw, kex, pB, R20, R1} ----

/// Rex = pB Delta^2 kex/D with D = (pA Delta - Omega)^2 + omega1^2 + kex^2 and Delta = dw x3: the
/// prefactor is pB, not pA pB, as fits a small population.
Exchange<3> kay(const SpinLock& lock, const Data& d, const double* p) {
  const double dw = p[0], kex = p[1], pB = p[2], field = d.x[3];
  const double pA = 1.0 - pB;
  const double delta = dw * field;
  const double offset_b = pA * delta - lock.offset;
  const double D = square(offset_b) + square(lock.omega1) + square(kex);
  // The derivative for pB leaves out that offset_b depends on pB; the term it lacks is smaller by a
  // factor of the order of pB. Completing it would change the path of every fit.
  return {pB * square(delta) * kex / D,
          {2.0 * pB * field * delta * kex / D * (1.0 - pA * offset_b * delta / D),  // dw
           pB * square(delta) / D * (1.0 - 2.0 * square(kex) / D),                  // kex
           square(delta) * kex / D}};                                               // pB
}

constexpr ModelFunc fR1rho_Kay = tiltedModel<kay, fieldFirst>;
constexpr ModelFunc fR1rho_Kay_off = tiltedModel<kay, offsetFirst>;
constexpr ModelFunc fR1rho_Kay_on = transverseModel<kay>;

// ---- Palmer 2002 and 2005: p = {dw, kex, pB, R20, R1}, derivatives by forward differences ----

/// Squared effective fields, rad^2/s^2, and the weight of transverse relaxation.
struct Fields {
  double omega_a2;  ///< at site A
  double omega_b2;  ///< at site B
  double omega_e2;  ///< at the population average
  double s2;        ///< sin^2 of the tilt at the population average; 1 on resonance
};

Fields offResonance(const SpinLock& lock, double delta, double pB) {
  const double average = lock.offset - pB * delta;
  const double omega1_2 = square(lock.omega1);
  return {square(-pB * delta - average) + omega1_2, square((1.0 - pB) * delta - average) + omega1_2,
          square(average) + omega1_2, sin2Tilt(lock.omega1, average)};
}

/// The carrier is on site A, and the tilt at the population average is neglected.
Fields onResonance(const SpinLock& lock, double delta, double pB) {
  const double omega1_2 = square(lock.omega1);
  return {omega1_2, square(delta) + omega1_2, square(pB * delta) + omega1_2, 1.0};
}

using PalmerRex = double (*)(const Fields& f, double delta, double kex, double pB);

/// Rex = kex P/(wa^2 wb^2/we^2 + kex^2) with P = pA pB Delta^2.
double palmer02(const Fields& f, double delta, double kex, double pB) {
  const double P = (1.0 - pB) * pB * square(delta);
  return P * kex / (f.omega_a2 * f.omega_b2 / f.omega_e2 + square(kex));
}

/// Rex = kex P/(wa^2 wb^2/we^2 + kex^2
///             - P sin^2 (1 + 2 kex^2 (pA wa^2 + pB wb^2)/(wa^2 wb^2 + kex^2 we^2))).
double palmer05(const Fields& f, double delta, double kex, double pB) {
  const double pA = 1.0 - pB;
  const double P = pA * pB * square(delta);
  const double ab = f.omega_a2 * f.omega_b2;
  const double mean = pA * f.omega_a2 + pB * f.omega_b2;
  const double second =
      P * f.s2 * (1.0 + 2.0 * square(kex) * mean / (ab + square(kex) * f.omega_e2));
  return kex * P / (ab / f.omega_e2 + square(kex) - second);
}

template <PalmerRex rex, SpinLock (*lock_of)(const Data&)>
double tiltedPalmer(const Data& d, const double* p, std::size_t /*slot*/) {
  const double dw = p[0], kex = p[1], pB = p[2], R20 = p[3], R1 = p[4];
  const double delta = dw * d.x[3];
  const Fields f = offResonance(lock_of(d), delta, pB);
  return tiltedRate(rex(f, delta, kex, pB), R20, R1, f.s2);
}

template <PalmerRex rex>
double transversePalmer(const Data& d, const double* p, std::size_t /*slot*/) {
  const double dw = p[0], kex = p[1], pB = p[2], R20 = p[3];
  const double delta = dw * d.x[3];
  return R20 + rex(onResonance(withoutOffset(d), delta, pB), delta, kex, pB);
}

constexpr ModelFunc fR1rho_Palmer02 =
    withDerivatives<tiltedPalmer<palmer02, fieldFirst>, 5, kNoAddend>;
constexpr ModelFunc fR1rho_Palmer02_off =
    withDerivatives<tiltedPalmer<palmer02, offsetFirst>, 5, kNoAddend>;
constexpr ModelFunc fR1rho_Palmer02_on = withDerivatives<transversePalmer<palmer02>, 4, kNoAddend>;

constexpr ModelFunc fR1rho_Palmer05 =
    withDerivatives<tiltedPalmer<palmer05, fieldFirst>, 5, kNoAddend>;
constexpr ModelFunc fR1rho_Palmer05_off =
    withDerivatives<tiltedPalmer<palmer05, offsetFirst>, 5, kNoAddend>;
constexpr ModelFunc fR1rho_Palmer05_on = withDerivatives<transversePalmer<palmer05>, 4, kNoAddend>;

// ---- registration ----

// clang-format off
constexpr ParmRow kConstParms[] = {{"R20", 0.01, 100, "110"}, {"R1", 0.01, 100, "110"}};
constexpr ParmRow kConstOnParms[] = {{"R20", 0.01, 100, "110"}};
constexpr ParmRow kLondonParms[] = {{"phi", 1e-5, 1e8, "100"}, {"kex", 1, 80000, "100"}, {"R20", 0.1, 100, "110"}, {"R1", 0.01, 100, "110"}};
// Wider ranges of phi and R20 than off resonance, and so they stay.
constexpr ParmRow kLondonOnParms[] = {{"phi", 1e-5, 1e9, "100"}, {"kex", 1, 80000, "100"}, {"R20", 0.01, 100, "110"}};
constexpr ParmRow kKayParms[] = {{"dw", -12000, 12000, "000"}, {"kex", 1, 80000, "100"}, {"pB", 0.001, 0.1, "100"}, {"R20", 0.1, 100, "110"}, {"R1", 0.01, 100, "110"}};
constexpr ParmRow kPalmer02Parms[] = {{"dw", -12000, 12000, "000"}, {"kex", 1, 80000, "100"}, {"pB", 0.001, 0.49, "100"}, {"R20", 0.1, 100, "110"}, {"R1", 0.01, 100, "110"}};
constexpr ParmRow kPalmer05Parms[] = {{"dw", -12000, 12000, "000"}, {"kex", 1, 80000, "100"}, {"pB", 0.001, 0.499, "100"}, {"R20", 0.1, 100, "110"}, {"R1", 0.01, 100, "110"}};

/// All parameters but R1, the last.
constexpr std::span<const ParmRow> withoutR1(std::span<const ParmRow> parms) { return parms.first(parms.size() - 1); }

constexpr ModelGroup kFieldFirst = {"R1rho", 4, 3, 0};
constexpr ModelGroup kOffsetFirst = {"R1rho_off", 4, 3, 0};

struct FamilyRow {
  const ModelGroup* group;
  ModelRow model;
};

// The equations of Palmer's models on resonance name an R1 that these do not have.
constexpr FamilyRow kModels[] = {
    // group        function              name                   equation in reports      parameters
    {&kFieldFirst,  {fR1rho_const,        "R1RHO_CONST",         "f(R20,R1)",             kConstParms}},
    {&kFieldFirst,  {fR1rho_const_on,     "R1RHO_CONST_ON",      "f(R20)",                kConstOnParms}},
    {&kOffsetFirst, {fR1rho_const_off,    "R1RHO_CONST_OFF",     "f(R20,R1)",             kConstParms}},
    {&kFieldFirst,  {fR1rho_London,       "R1RHO_LONDON",        "f(phi,kex,R20,R1)",     kLondonParms}},
    {&kOffsetFirst, {fR1rho_London_off,   "R1RHO_LONDON_OFF",    "f(phi,kex,R20,R1)",     kLondonParms}},
    {&kFieldFirst,  {fR1rho_London_on,    "R1RHO_LONDON_ON",     "f(phi,kex,R20)",        kLondonOnParms}},
    {&kFieldFirst,  {fR1rho_Kay,          "R1RHO_KAY",           "f(dw,kex,pB,R20,R1)",   kKayParms}},
    {&kFieldFirst,  {fR1rho_Kay_on,       "R1RHO_KAY_ON",        "f(dw,kex,pB,R20)",      withoutR1(kKayParms)}},
    {&kOffsetFirst, {fR1rho_Kay_off,      "R1RHO_KAY_OFF",       "f(dw,kex,pB,R20,R1)",   kKayParms}},
    {&kFieldFirst,  {fR1rho_Palmer02,     "R1RHO_PALMER02",      "f(dw,kex,pB,R20,R1)",   kPalmer02Parms}},
    {&kFieldFirst,  {fR1rho_Palmer02_on,  "R1RHO_PALMER02_ON",   "f(dw,kex,pB,R20,R1)",   withoutR1(kPalmer02Parms)}},
    {&kOffsetFirst, {fR1rho_Palmer02_off, "R1RHO_PALMER02_OFF",  "f(dw,kex,pB,R20,R1)",   kPalmer02Parms}},
    {&kFieldFirst,  {fR1rho_Palmer05,     "R1RHO_PALMER05",      "f(dw,kex,pB,R20,R1)",   kPalmer05Parms}},
    {&kFieldFirst,  {fR1rho_Palmer05_on,  "R1RHO_PALMER05_ON",   "f(dw,kex,pB,R20,R1)",   withoutR1(kPalmer05Parms)}},
    {&kOffsetFirst, {fR1rho_Palmer05_off, "R1RHO_PALMER05_OFF",  "f(dw,kex,pB,R20,R1)",   kPalmer05Parms}},
};
// clang-format on

}  // namespace

void Funclib::Read_R1RHO_Funcs(int) {
  for (const FamilyRow& row : kModels) define(*row.group, {&row.model, 1});
}
