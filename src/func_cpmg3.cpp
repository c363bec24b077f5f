// Three-site models of constant-time CPMG dispersion from the 3x3 Bloch-McConnell matrix.
// SPDX-License-Identifier: GPL-3.0-or-later
//
// McConnell, J. Chem. Phys. 28, 430 (1958). A 180-degree pulse conjugates the transverse
// magnetisation, so that one echo is m -> M conj(m) with M = A conj(A), A = exp(-L tcp/2), and two
// echoes, of length 2 tcp, the linear map P = M conj(M). R2eff of a long train is the decay of the
// slowest mode of P. Units: rates and x0 = 1/tcp in 1/s, shift differences times the field factor
// x3 in rad/s, x1 temperature in K, concentrations in mol/l but kon in 1/(umol/l s).
//
// The decomposition of L does not depend on x0 and is kept for each shifted parameter vector of the
// numerical derivatives.
#include "func_cpmg3.h"

#include "Fatal.h"
#include "ForwardDifferences.h"
#include "FuncLib.h"
#include "func_cpmg2.h"

#include <algorithm>
#include <cmath>
#include <complex>
#include <limits>

namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();

bool isDisconnected(double k1, double k2, double k3) { return k1 == 0 && k2 == 0 && k3 == 0; }

}  // namespace

// ---- rates and populations ----

double cycleRate(double kab, double kba, double kbc, double kca, double kac) {
  if (isDisconnected(kbc, kca, kac) || isDisconnected(kab, kba, kbc)) return 0.0;
  return kab * kbc * kca / (kba * kac);
}

std::array<double, 3> equilibrium(const ThreeSiteRates& k) {
  const double D =
      (k.kba + k.kbc) * (k.kca + k.kac) + (k.kba + k.kac) * k.kcb + (k.kbc + k.kca + k.kcb) * k.kab;
  if (D != 0.0) {
    const double pA = (k.kbc * k.kca + k.kba * (k.kca + k.kcb)) / D;
    const double pB = (k.kac * k.kcb + k.kab * (k.kca + k.kcb)) / D;
    return {pA, pB, 1.0 - pA - pB};
  }
  if (isDisconnected(k.kca, k.kac, k.kbc) && k.kcb == 0.0) {  // two sites, or A alone
    const double kex = k.kab + k.kba;
    if (kex == 0.0) return {1.0, 0.0, 0.0};
    return {k.kba / kex, k.kab / kex, 0.0};
  }
  if (isDisconnected(k.kab, k.kba, k.kbc) && k.kcb == 0.0) {
    const double kex = k.kac + k.kca;
    return {k.kca / kex, 0.0, k.kac / kex};
  }
  return {kNaN, kNaN, kNaN};
}

// ---- decomposition ----

ExchangeModes ExchangeModes::ofThree(double OmegaB, double OmegaC, const ThreeSiteRates& k,
                                     const std::array<double, 3>& populations) {
  ExchangeModes modes;
  modes.sites_ = 3;
  modes.populations = populations;
  enum { A, B, C, n };
  std::array<double, 2 * kSites * kSites> L{};
  const auto set = [&](int row, int column, double value) {
    L[static_cast<std::size_t>(idxr(row, column, n))] = value;
  };
  set(A, A, k.kab + k.kac);
  set(B, B, k.kba + k.kbc);
  set(C, C, k.kca + k.kcb);
  set(B, A, -k.kab);
  set(C, A, -k.kac);
  set(A, B, -k.kba);
  set(C, B, -k.kbc);
  set(A, C, -k.kca);
  set(B, C, -k.kcb);
  L[static_cast<std::size_t>(idxi(B, B, n))] = -OmegaB;
  L[static_cast<std::size_t>(idxi(C, C, n))] = -OmegaC;
  modes.decompose(L.data());
  return modes;
}

ExchangeModes ExchangeModes::ofTwo(double OmegaB, double kab, double kba,
                                   const std::array<double, 2>& populations) {
  ExchangeModes modes;
  modes.sites_ = 2;
  modes.populations = {populations[0], populations[1], 0.0};
  // column A: kab, -kab; column B: -kba, kba - i OmegaB
  const std::array<double, 8> L = {kab, 0.0, -kab, 0.0, -kba, 0.0, kba, -OmegaB};
  modes.decompose(L.data());
  return modes;
}

void ExchangeModes::decompose(const double* L) {
  const int numbers = 2 * sites_ * sites_;
  const auto finite = [](double x) { return std::isfinite(x); };
  valid = std::all_of(L, L + numbers, finite) &&
          std::all_of(populations.begin(), populations.end(), finite);
  if (!valid) return;
  if (zmat_eig(sites_, L, V.data(), V_inv.data(), eigenvalues.data()) != 0) {
    fatal("ERROR: Relaxation matrix is singular.");
  }
}

void ExchangeModes::halfEcho(double x0, double* A) const {
  std::array<double, 2 * kSites> decay;
  zmat_exp(sites_, -0.5 / x0, eigenvalues.data(), decay.data());
  zdmat_mlt(sites_, V.data(), decay.data(), V_inv.data(), A);
}

// ---- from the echo to R2eff ----

namespace {

using Complex = std::complex<double>;

/// The upper triangle of H = D^-1/2 M D^1/2, D = diag(populations): Hermitian where the rates obey
/// detailed balance. P is similar to H H^T.
struct SymmetricEcho {
  double a, b, c;
  Complex x, y, z;  ///< elements (A, B), (A, C), (B, C)
};

SymmetricEcho symmetrize(const std::array<double, 18>& M, const std::array<double, 3>& pop) {
  const auto at = [&](int i, int j) {
    return Complex(M[static_cast<std::size_t>(idxr(i, j, 3))],
                   M[static_cast<std::size_t>(idxi(i, j, 3))]);
  };
  // A site without population is taken out: 1 - pA - pB may be a rounding error off zero, and an
  // isolated empty site would keep its eigenvalue 1 and hide all exchange.
  constexpr double kEmpty = 1e-14;
  const bool has[] = {pop[0] > kEmpty, pop[1] > kEmpty, pop[2] > kEmpty};
  const auto diagonal = [&](int i) { return has[i] ? at(i, i).real() : 0.0; };
  const auto coupling = [&](int i, int j) {
    if (!has[i] || !has[j]) return Complex(0.0, 0.0);
    return at(i, j) *
           std::sqrt(pop[static_cast<std::size_t>(j)] / pop[static_cast<std::size_t>(i)]);
  };
  return {diagonal(0), diagonal(1), diagonal(2), coupling(0, 1), coupling(0, 2), coupling(1, 2)};
}

/// Largest eigenvalue of P = H H^T by the trigonometric solution of its cubic, from the deviator of
/// P: near lambda = 1 the coefficients of the cubic itself would cancel to 1e-7.
double largestEigenvalue(const SymmetricEcho& h) {
  const double a = h.a, b = h.b, c = h.c;
  const Complex x = h.x, y = h.y, z = h.z;
  const Complex xc = std::conj(x), yc = std::conj(y), zc = std::conj(z);
  const Complex PAA = a * a + x * x + y * y;
  const Complex PBB = b * b + xc * xc + z * z;
  const Complex PCC = c * c + yc * yc + zc * zc;
  const Complex PAB = a * xc + b * x + y * z;
  const Complex PAC = a * yc + c * y + x * zc;
  const Complex PBC = b * zc + c * z + xc * yc;
  const double s = -(PAA.real() + PBB.real() + PCC.real()) / 3.0;
  const Complex gA = PAA + s, gB = PBB + s, gC = PCC + s;
  // Imaginary parts vanish in exact arithmetic.
  const double Q =
      -((gA * gA + gB * gB + gC * gC).real() + 2.0 * (PAB * PAB + PAC * PAC + PBC * PBC).real()) /
      6.0;
  const double R = 0.5 * (gA * gB * gC + 2.0 * PAB * PAC * PBC - gA * PBC * PBC - gB * PAC * PAC -
                          gC * PAB * PAB)
                             .real();
  if (std::isnan(Q)) return kNaN;
  if (Q >= 0.0) return -s;  // all eigenvalues equal
  const double m = std::sqrt(-Q);
  const double cc = R / (m * m * m);
  const double t = std::acos(cc);
  if (std::isfinite(t)) return 2.0 * m * std::cos(t / 3.0) - s;
  // For cc < -1 the largest root would be m - s. Rates that obey detailed balance come here only
  // when their two largest eigenvalues agree to 1e-8; for others the value is refused or poor.
  return cc > 0.0 ? 2.0 * m - s : -2.0 * m - s;
}

/// Exchange contribution to R2eff: -x0/2 ln(lambda1(P)). NaN or infinite for modes that are not
/// valid or a train that decays beyond the range of double.
double dispersion(double x0, const ExchangeModes& modes) {
  if (!modes.valid) return kNaN;
  std::array<double, 18> A;
  std::array<double, 18> A_conj;
  std::array<double, 18> M;
  modes.halfEcho(x0, A.data());
  zmat_cnj(3, A.data(), A_conj.data());
  zmat_mlt(3, A.data(), A_conj.data(), M.data());
  SymmetricEcho h = symmetrize(M, modes.populations);
  // Scaled so that the cubes of small eigenvalues do not underflow.
  const double mu = std::max({h.a, h.b, h.c});
  const double magnitude = mu + std::abs(h.x) + std::abs(h.y) + std::abs(h.z);
  if (!std::isfinite(magnitude)) return kNaN;
  if (mu == 0.0) return kInf;
  h = {h.a / mu, h.b / mu, h.c / mu, h.x / mu, h.y / mu, h.z / mu};
  return -0.5 * x0 * (std::log(largestEigenvalue(h)) + 2.0 * std::log(mu));
}

// ---- schemes: from the parameters to rates and offsets ----

struct Scheme {
  double OmegaB;
  double OmegaC;
  ThreeSiteRates rates;
};

/// Rates and offsets of a model at a point; `p` without R20.
using SchemeFunc = Scheme (*)(const Data& d, const double* p);

Scheme matrix3(const Data& d, const double* p) {
  const double kab = p[2], kba = p[3], kbc = p[4], kca = p[5], kac = p[6];
  const double kcb = cycleRate(kab, kba, kbc, kca, kac);
  return {p[0] * d.x[3], p[1] * d.x[3], {kab, kba, kbc, kcb, kca, kac}};
}

/// Eyring rates of n pairs of sites: enthalpies p[2]..., then entropies, in the order of the rates.
double eyring(const Data& d, const double* p, int n, int rate) {
  return eyringRate(d.x[1], p[2 + rate], p[2 + n + rate]);
}

Scheme temp3(const Data& d, const double* p) {
  const auto k = [&](int rate) { return eyring(d, p, 6, rate); };
  return {p[0] * d.x[3], p[1] * d.x[3], {k(0), k(1), k(2), k(3), k(4), k(5)}};
}

Scheme temp3linear(const Data& d, const double* p) {
  const auto k = [&](int rate) { return eyring(d, p, 4, rate); };
  return {p[0] * d.x[3], p[1] * d.x[3], {k(0), k(1), k(2), k(3), 0.0, 0.0}};
}

Scheme temp3folked(const Data& d, const double* p) {
  const auto k = [&](int rate) { return eyring(d, p, 4, rate); };
  return {p[0] * d.x[3], p[1] * d.x[3], {k(0), k(1), 0.0, 0.0, k(2), k(3)}};
}

/// A free, B and C bound in two forms.
Scheme bind3a(const Data& d, const double* p) {
  const double Bkon1 = p[2], koff1 = p[3], Bkon2 = p[4], koff2 = p[5], k12 = p[6], k21 = p[7];
  return {p[0] * d.x[3], p[1] * d.x[3], {Bkon1, koff1, k12, k21, koff2, Bkon2}};
}

/// A free, B intermediate, C bound; the ligand enters the second step.
Scheme bind3b(const Data& d, const double* p) {
  const double kfi = p[2], kif = p[3], Bkon = p[4], koff = p[5];
  return {p[0] * d.x[3], p[1] * d.x[3], {kfi, kif, Bkon, koff, 0.0, 0.0}};
}

constexpr double kMicro = 1e6;  // umol in a mol

/// Free ligand in umol/l for the effective dissociation constant K, in umol/l, of free and bound
/// forms in steady state.
double freeLigand(const Data& d, double A0, double B0, double K) {
  return FreeLigand(A0, d.x[4] * B0, K / kMicro).B * kMicro;
}

/// A free, B and C bound in two forms, rates proportional to the free ligand. Exact for any rates.
Scheme bind3c_1F2B(const Data& d, const double* p) {
  const double kon1 = p[2], koff1 = p[3], kon2 = p[4], koff2 = p[5], k12 = p[6], k21 = p[7];
  const double K = (koff1 * koff2 + k12 * koff2 + k21 * koff1) /
                   (kon1 * (koff2 + k12 + k21) + kon2 * (koff1 + k12 + k21));
  const double L = freeLigand(d, p[8], p[9], K);
  return {p[0] * d.x[3], p[1] * d.x[3], {kon1 * L, koff1, k12, k21, koff2, kon2 * L}};
}

/// A and B free in two forms, C bound. The ratio of bound to free depends on the ligand when the
/// rates are off the cycle; it is then taken at the total ligand.
Scheme bind3c_2F1B(const Data& d, const double* p) {
  const double kon1 = p[2], koff1 = p[3], kon2 = p[4], koff2 = p[5], k12 = p[6], k21 = p[7];
  const double Lt = d.x[4] * p[9] * kMicro;
  const double K = ((k12 + k21) * (koff1 + koff2) + Lt * (kon2 * koff1 + kon1 * koff2)) /
                   (k12 * kon2 + k21 * kon1 + Lt * kon1 * kon2);
  const double L = freeLigand(d, p[8], p[9], K);
  return {p[0] * d.x[3], p[1] * d.x[3], {k12, k21, kon2 * L, koff2, koff1, kon1 * L}};
}

// ---- model functions ----

constexpr std::size_t kMostParms = 15;

using ModeCache = SlotCache<ExchangeModes, kMostParms + 4, kMostParms>;

/// Everything but x0 and R20.
ModeCache::Key keyOf(std::size_t parms, const Data& d, const double* p) {
  ModeCache::Key key{};
  const auto end = std::copy_n(p, parms - 1, key.begin());
  std::copy(d.x.begin() + 1, d.x.end(), end);
  return key;
}

/// R2eff of a scheme with kParms parameters, R20 the last.
template <SchemeFunc scheme, std::size_t kParms>
double value(const Data& d, const double* p, std::size_t slot) {
  static ModeCache cache;
  checkRate(d);
  const ExchangeModes& modes = cache.at(slot, keyOf(kParms, d, p), [&] {
    const Scheme s = scheme(d, p);
    return ExchangeModes::ofThree(s.OmegaB, s.OmegaC, s.rates, equilibrium(s.rates));
  });
  return dispersion(d.x[0], modes) + p[kParms - 1];
}

// clang-format off
constexpr ValueFunc cpmg_matrix3     = value<matrix3, 8>;
constexpr ValueFunc cpmg_temp3       = value<temp3, 15>;
constexpr ValueFunc cpmg_temp3linear = value<temp3linear, 11>;
constexpr ValueFunc cpmg_temp3folked = value<temp3folked, 11>;
constexpr ValueFunc cpmg_bind3a      = value<bind3a, 9>;
constexpr ValueFunc cpmg_bind3b      = value<bind3b, 7>;
constexpr ValueFunc cpmg_bind3c_1F2B = value<bind3c_1F2B, 11>;
constexpr ValueFunc cpmg_bind3c_2F1B = value<bind3c_2F1B, 11>;

constexpr ModelFunc fcpmg_matrix3     = withDerivatives<cpmg_matrix3, 8>;
constexpr ModelFunc fcpmg_temp3       = withDerivatives<cpmg_temp3, 15>;
constexpr ModelFunc fcpmg_temp3linear = withDerivatives<cpmg_temp3linear, 11>;
constexpr ModelFunc fcpmg_temp3folked = withDerivatives<cpmg_temp3folked, 11>;
constexpr ModelFunc fcpmg_bind3a      = withDerivatives<cpmg_bind3a, 9>;
constexpr ModelFunc fcpmg_bind3b      = withDerivatives<cpmg_bind3b, 7>;
constexpr ModelFunc fcpmg_bind3c_1F2B = withDerivatives<cpmg_bind3c_1F2B, 11>;
constexpr ModelFunc fcpmg_bind3c_2F1B = withDerivatives<cpmg_bind3c_2F1B, 11>;

// ---- registration ----

constexpr ParmRow kMatrix3Parms[] = {
    {"dwab", -12000, 12000, "00"}, {"dwac", -12000, 12000, "00"},
    {"kab", 0, 12000, "10"}, {"kba", 0, 12000, "10"}, {"kbc", 0, 12000, "10"},
    {"kca", 0, 12000, "10"}, {"kac", 0, 12000, "10"}, {"R20", 0.1, 100, "11"}};
constexpr ParmRow kTemp3Parms[] = {
    {"dwab", -12000, 12000, "00"}, {"dwac", -12000, 12000, "00"},
    {"dHab", -50, 50, "00"}, {"dHba", -50, 50, "00"}, {"dHbc", -50, 50, "00"},
    {"dHcb", -50, 50, "00"}, {"dHca", -50, 50, "00"}, {"dHac", -50, 50, "00"},
    {"dSab", -1, 1, "00"}, {"dSba", -1, 1, "00"}, {"dSbc", -1, 1, "00"},
    {"dScb", -1, 1, "00"}, {"dSca", -1, 1, "00"}, {"dSac", -1, 1, "00"}, {"R20", 0.1, 100, "11"}};
constexpr ParmRow kTemp3LinearParms[] = {
    {"dwab", -12000, 12000, "00"}, {"dwac", -12000, 12000, "00"},
    {"dHab", -50, 50, "00"}, {"dHba", -50, 50, "00"}, {"dHbc", -50, 50, "00"},
    {"dHcb", -50, 50, "00"}, {"dSab", -1, 1, "00"}, {"dSba", -1, 1, "00"},
    {"dSbc", -1, 1, "00"}, {"dScb", -1, 1, "00"}, {"R20", 0.1, 100, "11"}};
constexpr ParmRow kTemp3FolkedParms[] = {
    {"dwab", -12000, 12000, "00"}, {"dwac", -12000, 12000, "00"},
    {"dHab", -50, 50, "00"}, {"dHba", -50, 50, "00"}, {"dHca", -50, 50, "00"},
    {"dHac", -50, 50, "00"}, {"dSab", -1, 1, "00"}, {"dSba", -1, 1, "00"},
    {"dSca", -1, 1, "00"}, {"dSac", -1, 1, "00"}, {"R20", 0.1, 100, "11"}};
constexpr ParmRow kBind3aParms[] = {
    {"dwfb1", -12000, 12000, "000"}, {"dwfb2", -12000, 12000, "000"},
    {"Bkon1", 0, 12000, "101"}, {"koff1", 0, 12000, "100"}, {"Bkon2", 0, 12000, "101"},
    {"koff2", 0, 12000, "100"}, {"k12", 0, 12000, "100"}, {"k21", 0, 12000, "100"},
    {"R20", 0.1, 100, "111"}};
constexpr ParmRow kBind3bParms[] = {
    {"dwfi", -12000, 12000, "000"}, {"dwfb", -12000, 12000, "000"},
    {"kfi", 0, 12000, "100"}, {"kif", 0, 12000, "100"}, {"Bkon", 0, 12000, "101"},
    {"koff", 0, 12000, "100"}, {"R20", 0.1, 100, "111"}};
constexpr ParmRow kBind3c1F2BParms[] = {
    {"dwfb1", -12000, 12000, "000"}, {"dwfb2", -12000, 12000, "000"},
    {"kon1", 0, 10000, "100"}, {"koff1", 0, 12000, "100"}, {"kon2", 0, 10000, "100"},
    {"koff2", 0, 12000, "100"}, {"k12", 0, 12000, "100"}, {"k21", 0, 12000, "100"},
    {"A0", 1e-9, 0.01, "000"}, {"B0", 1e-9, 0.01, "000"}, {"R20", 1, 100, "111"}};
constexpr ParmRow kBind3c2F1BParms[] = {
    {"dwf1f2", -12000, 12000, "000"}, {"dwf1b", -12000, 12000, "000"},
    {"kon1", 0, 10000, "100"}, {"koff1", 0, 12000, "100"}, {"kon2", 0, 10000, "100"},
    {"koff2", 0, 12000, "100"}, {"k12", 0, 12000, "100"}, {"k21", 0, 12000, "100"},
    {"A0", 1e-9, 0.01, "000"}, {"B0", 1e-9, 0.01, "000"}, {"R20", 1, 100, "111"}};

// dist 1: x1 is then also the relaxation delay of the Monte Carlo noise.
constexpr ModelGroup kFourDist0 = {"CT-CPMG", 4, 2, 0};
constexpr ModelGroup kFourDist1 = {"CT-CPMG", 4, 2, 1};
constexpr ModelGroup kFiveDist0 = {"CT-CPMG", 5, 3, 0};
constexpr ModelGroup kFiveDist1 = {"CT-CPMG", 5, 3, 1};

constexpr ModelRow kMatrix3[] = {{fcpmg_matrix3, "CPMG_matrix3",
    "f(dwab, dwac, kab, kba, kbc, kca, kac, R20)", kMatrix3Parms}};
constexpr ModelRow kTemp3[] = {{fcpmg_temp3, "CPMG_temp3",
    "f(dwab, dwac, dHab, dHba, dHbc, dHcb, dHca, dHac, "
    "dSab, dSba, dSbc, dScb, dSca, dSac, R20)", kTemp3Parms}};
constexpr ModelRow kTemp3Linear[] = {{fcpmg_temp3linear, "CPMG_temp3linear",
    "f(dwab, dwac, dHab, dHba, dHbc, dHcb, dSab, dSba, dSbc, dScb, R20)", kTemp3LinearParms}};
constexpr ModelRow kTemp3Folked[] = {{fcpmg_temp3folked, "CPMG_temp3folked",
    "f(dwab, dwac, dHab, dHba, dHca, dHac, dSab, dSba, dSca, dSac, R20)", kTemp3FolkedParms}};
constexpr ModelRow kBind3a[] = {{fcpmg_bind3a, "CPMG_bind3a",
    "f(dwfb1, dwfb2, Bkon1, koff1, Bkon2, koff2, k12, k21, R20)", kBind3aParms}};
// The equations of the last two leave out kon2 and koff2, which are parameters all the same.
constexpr ModelRow kBind3bc[] = {
    {fcpmg_bind3b, "CPMG_bind3b",
     "f(dwfi, dwfb, kfi, kif, Bkon, koff, R20)", kBind3bParms},
    {fcpmg_bind3c_1F2B, "CPMG_bind3c_1F2B",
     "f(dwfb1, dwfb2, kon1, koff1, k12, k21, A0, B0, R20)", kBind3c1F2BParms},
    {fcpmg_bind3c_2F1B, "CPMG_bind3c_2F1B",
     "f(dwf1f2, dwf1b, kon1, koff1, k12, k21, A0, B0, R20)", kBind3c2F1BParms}};
// clang-format on

}  // namespace

void Funclib::Read_CPMG3_Funcs(int) {
  define(kFourDist1, kMatrix3);
  define(kFourDist0, kTemp3);
  define(kFourDist1, kTemp3Linear);
  define(kFourDist0, kTemp3Folked);
  define(kFiveDist1, kBind3a);
  define(kFiveDist0, kBind3bc);
}
