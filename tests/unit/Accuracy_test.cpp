// Every registered model against a calculation that does not share its formula or its precision:
// the table "models" of docs/accuracy.md.
// SPDX-License-Identifier: GPL-3.0-or-later
//
// Points are drawn over the range in which the models are used, with a generator that is the same
// everywhere; rates of six-rate schemes obey the cycle condition here.
#include "DocTable.h"
#include "EchoTrain.h"
#include "Models.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <functional>
#include <numbers>
#include <random>
#include <string>
#include <vector>

namespace {

using echo::Real;
using echo::Sites;
using models::Call;
using models::Model;
using Numbers = std::vector<double>;
using Reals = std::vector<Real>;

constexpr int kPoints = 300;
constexpr Real kPi = std::numbers::pi_v<Real>;

// ---- draws ----

class Dice {
 public:
  double uniform(double low, double high) {
    return low + (high - low) * static_cast<double>(engine_()) / 4294967296.0;
  }
  double spread(double low, double high) {  // evenly in the logarithm
    return low * std::exp(uniform(0.0, std::log(high / low)));
  }
  double sign() { return uniform(-1, 1) < 0 ? -1 : 1; }

 private:
  std::mt19937 engine_{1};
};

using Draw = std::function<double(Dice&)>;

Draw uniform(double low, double high) {
  return [=](Dice& dice) { return dice.uniform(low, high); };
}
Draw spread(double low, double high) {
  return [=](Dice& dice) { return dice.spread(low, high); };
}

const Draw kPulseRate = spread(20, 4000);
const Draw kField = uniform(0.8, 2.0);
const Draw kTemperature = uniform(275, 320);
const Draw kR20 = uniform(1, 20);
const Draw kDw = spread(50, 4000);
const Draw kSignedDw = [](Dice& dice) { return dice.sign() * dice.spread(50, 2000); };
const Draw kKex = spread(30, 8000);
const Draw kRate = spread(10, 2000);
const Draw kMinor = spread(0.01, 0.4);
const Draw kUnused = uniform(0, 1);

constexpr double kGasKcal = 0.001985878;

/// Enthalpies, then entropies, of activation for these rates at temperature T.
void addEyring(Dice& dice, double T, const Numbers& rates, Numbers& p) {
  Numbers dS;
  for (const double k : rates) {
    p.push_back(dice.uniform(6, 20));
    dS.push_back(kGasKcal * std::log(k / (2.0836644e10 * T)) + p.back() / T);
  }
  p.insert(p.end(), dS.begin(), dS.end());
}

// ---- what the parameters mean ----

Real eyring(Real T, Real dH, Real dS) {
  return static_cast<Real>(2.0836644e10) * T *
         std::exp((-dH / T + dS) / static_cast<Real>(kGasKcal));
}

/// Two sites whose single-quantum shift difference is `delta`.
Sites two(Real ab, Real ba, Real delta) {
  Sites s;
  s.ab = ab;
  s.ba = ba;
  s.pA = ba / (ab + ba);
  s.pB = ab / (ab + ba);
  s.BN = delta;
  return s;
}
Sites ofMinor(Real kex, Real pb, Real delta) { return two(kex * pb, kex * (1 - pb), delta); }
Sites ofProduct(Real kex, Real papb, Real delta) {
  return ofMinor(kex, (1 - std::sqrt(1 - 4 * papb)) / 2, delta);
}
/// Rates in the order of the models, kcb last; populations from the pairs A-B and A-C.
Sites three(Real ab, Real ba, Real bc, Real ca, Real ac, Real cb, Real B, Real C) {
  Sites s;
  s.ab = ab;
  s.ba = ba;
  s.bc = bc;
  s.cb = cb;
  s.ca = ca;
  s.ac = ac;
  s.BN = B;
  s.CN = C;
  return s;
}

Real endless(const Sites& s, Real x0) { return echo::endlessRate(s, 0, x0); }

/// L + bound(L) = total, by bisection; concentrations in umol/l.
Real freeLigand(Real total, const std::function<Real(Real)>& bound) {
  Real low = 0;
  Real high = total;
  for (int i = 0; i < 100; ++i) {
    const Real L = (low + high) / 2;
    (L + bound(L) < total ? low : high) = L;
  }
  return (low + high) / 2;
}

// ---- one check for each model ----

struct Check {
  std::string model;
  std::string against;
  /// "1/s", or "relative" to the value.
  std::string unit;
  std::function<Call(Dice&)> draw;
  std::function<Real(const Reals& x, const Reals& p)> expected;
};

/// A call whose abscissae and parameters are drawn one by one.
std::function<Call(Dice&)> independent(std::vector<Draw> x, std::vector<Draw> p) {
  return [=](Dice& dice) {
    Call call;
    for (const Draw& draw : x) call.x.push_back(draw(dice));
    for (const Draw& draw : p) call.p.push_back(draw(dice));
    return call;
  };
}

const char* const kRetyped = "formula typed anew, 64-bit mantissa";
const char* const kTrain = "decay of an endless echo train, propagated";
const char* const kPulses = "signal of the train, propagated pulse by pulse";

using Expected = std::function<Real(const Reals& x, const Reals& p)>;

/// Curves of one abscissa.
Check curve(const char* model, const Draw& x, std::vector<Draw> p, const Expected& expected) {
  return {model, kRetyped, "relative", independent({x}, std::move(p)), expected};
}

std::vector<Check> curves() {
  const Draw amplitude = uniform(0.2, 5);
  const Draw rate = uniform(-10, -0.1);
  const Draw delay = uniform(0, 1);
  return {
      curve("Constant", delay, {amplitude}, [](const Reals&, const Reals& p) { return p[0]; }),
      curve("Linear", delay, {amplitude, amplitude},
            [](const Reals& x, const Reals& p) { return p[0] + p[1] * x[0]; }),
      curve("Exp2", delay, {amplitude, rate},
            [](const Reals& x, const Reals& p) { return p[0] / std::exp(-p[1] * x[0]); }),
      curve("Exp3", delay, {amplitude, rate, amplitude},
            [](const Reals& x, const Reals& p) { return p[2] + p[0] / std::exp(-p[1] * x[0]); }),
      curve("Gauss", delay, {amplitude, uniform(0.1, 10), amplitude},
            [](const Reals& x, const Reals& p) {
              return p[2] + p[0] / std::exp(p[1] * x[0] * x[0]);
            }),
      curve("Gauss2", delay, {uniform(0, 0.5), uniform(0.1, 10), uniform(0.5, 1), uniform(0.1, 10)},
            [](const Reals& x, const Reals& p) {
              const Real square = x[0] * x[0];
              return p[0] / std::exp(p[1] * square) + p[2] / std::exp(p[3] * square);
            }),
      curve("2Exp3", delay, {uniform(0, 1), rate, rate, amplitude},
            [](const Reals& x, const Reals& p) {
              return p[3] + std::exp(p[2] * x[0]) +
                     p[0] * (std::exp(p[1] * x[0]) - std::exp(p[2] * x[0]));
            }),
      // near its zero a relative difference would say nothing
      curve(
          "SIRE", uniform(0, 0.06), {uniform(0.5, 1.5), rate},
          [](const Reals& x, const Reals& p) { return -p[0] * (1 + 2 * std::expm1(p[1] * x[0])); }),
      curve("Sig", uniform(275, 345),
            {uniform(-5, -1), uniform(6, 10), uniform(300, 330), uniform(30000, 150000)},
            [](const Reals& x, const Reals& p) {
              // Boltzmann: free energy of unfolding dG = dH (1 - x/tm)
              const Real dG = p[3] * (1 - x[0] / p[2]);
              const Real denatured = 1 / (1 + std::exp(dG / (1.987L * x[0])));
              return p[1] + (p[0] - p[1]) * denatured;
            }),
      curve("Sig_boltz", uniform(20, 80),
            {uniform(0.2, 1), uniform(-0.1, 0), uniform(40, 60), uniform(10, 20)},
            [](const Reals& x, const Reals& p) {
              return p[1] + (p[0] - p[1]) / 2 * (1 - std::tanh((x[0] - p[2]) / (2 * p[3])));
            }),
  };
}

/// Two-site CPMG: abscissae x0, temperature, field factor and what follows.
Check cpmg2(const char* model, std::vector<Draw> parms,
            const std::function<Sites(const Reals&, const Reals&)>& sites,
            const std::vector<Draw>& more = {}) {
  std::vector<Draw> abscissae = {kPulseRate, kTemperature, kField};
  abscissae.insert(abscissae.end(), more.begin(), more.end());
  return {model, kTrain, "1/s", independent(abscissae, std::move(parms)),
          [=](const Reals& x, const Reals& p) { return endless(sites(x, p), x[0]) + p.back(); }};
}

std::vector<Check> twoSiteCpmg() {
  const Draw product = [](Dice& dice) {
    const double pb = kMinor(dice);
    return pb * (1 - pb);
  };
  const Draw code = [](Dice& dice) { return std::floor(dice.uniform(1, 4)); };
  const auto richards = [](const Reals& x, const Reals& p) {
    return ofProduct(p[1], p[2], p[0] * x[2]);
  };
  const auto simple = [&](const char* model, std::vector<Draw> p, const Expected& expected) {
    return Check{model, kRetyped, "1/s",
                 independent({kPulseRate, kTemperature, kField}, std::move(p)), expected};
  };
  Check temp2 = cpmg2("CPMG_TEMP2", {}, [](const Reals& x, const Reals& p) {
    return two(eyring(x[1], p[1], p[3]), eyring(x[1], p[2], p[4]), p[0] * x[2]);
  });
  temp2.draw = [](Dice& dice) {
    Call call{.x = {kPulseRate(dice), kTemperature(dice), kField(dice)}, .p = {kDw(dice)}};
    addEyring(dice, call.x[1], {dice.spread(5, 500), dice.spread(50, 3000)}, call.p);
    call.p.push_back(kR20(dice));
    return call;
  };
  return {
      simple("CPMG_const", {kR20}, [](const Reals&, const Reals& p) { return p[0]; }),
      simple("CPMG_Meiboom", {kKex, spread(1e3, 1e6), kR20},
             [](const Reals& x, const Reals& p) {
               const Real full = p[1] * x[2] * x[2] / p[0];
               const Real e =
                   std::exp(-p[0] / x[0]);  // tanh(u) = (1 - e)/(1 + e) at u = kex/(2 x0)
               return p[2] + full - full * 2 * x[0] / p[0] * (1 - e) / (1 + e);
             }),
      simple("CPMG_Torchia", {kDw, kKex, spread(0.001, 0.113), kR20},
             [](const Reals& x, const Reals& p) {
               const Real square = std::pow(p[0] * x[2], 2.0L);
               const Real pa = 0.5L + std::sqrt(0.25L - p[2]);
               return p[3] +
                      p[2] * square / (p[1] + std::hypot(12 * x[0] * x[0], pa * square) / p[1]);
             }),
      cpmg2("CPMG_Richards", {kDw, kKex, product, kR20}, richards),
      cpmg2("CPMG_Richards_p", {kDw, kKex, kMinor, kR20},
            [](const Reals& x, const Reals& p) { return ofMinor(p[1], p[2], p[0] * x[2]); }),
      cpmg2("CPMG_Richards_k", {kDw, kRate, kRate, kR20},
            [](const Reals& x, const Reals& p) { return two(p[1], p[2], p[0] * x[2]); }),
      cpmg2("CPMG_Richards_probes", {kDw, kKex, product, kR20}, richards, {kUnused}),
      cpmg2("CPMG_RDC", {kDw, uniform(-100, 100), kKex, product, kR20},
            [](const Reals& x, const Reals& p) {
              const Real c = x[3] == 1 ? -kPi : x[3] == 2 ? kPi : 0;
              return ofProduct(p[2], p[3], p[0] * x[2] + c * p[1]);
            },
            {code}),
      temp2,
      cpmg2("CPMG_Bind2", {kDw, kRate, kRate, kR20},
            [](const Reals& x, const Reals& p) { return two(p[1], p[2], p[0] * x[2]); }, {kUnused}),
      cpmg2("CPMG_Bind2c",
            {kDw, spread(0.5, 20), kRate, spread(5e-5, 5e-4), spread(2e-5, 2e-4), kR20},
            [](const Reals& x, const Reals& p) {
              const Real K = p[2] / p[1];
              const Real L = freeLigand(1e6L * x[3] * p[4],
                                        [&](Real free) { return 1e6L * p[3] * free / (K + free); });
              return two(p[1] * L, p[2], p[0] * x[2]);
            },
            {spread(0.1, 3)}),
  };
}

/// kab, kba, kbc, kca, kac with populations of 2 to 30 % in B and C.
Numbers fiveRates(Dice& dice) {
  const double pB = dice.spread(0.02, 0.3), pC = dice.spread(0.02, 0.3), pA = 1 - pB - pC;
  const double ab = kRate(dice) / 4, bc = kRate(dice) / 4, ac = kRate(dice) / 4;
  return {ab, ab * pA / pB, bc, ac * pA / pC, ac};
}
double closingRate(const Numbers& k) { return k[0] * k[2] * k[3] / (k[1] * k[4]); }

using Schemes = std::function<Sites(const Reals&, const Reals&)>;

/// Three-site CPMG whose parameters between the two shift differences and R20 are drawn together.
Check cpmg3(const char* model, std::size_t abscissae,
            const std::function<void(Dice&, Call&)>& rates, const Schemes& sites) {
  const auto draw = [=](Dice& dice) {
    Call call{.x = {kPulseRate(dice), kTemperature(dice), 0, kField(dice)},
              .p = {kSignedDw(dice), kSignedDw(dice)}};
    if (abscissae == 5) call.x.push_back(dice.spread(0.1, 3));
    rates(dice, call);
    call.p.push_back(kR20(dice));
    return call;
  };
  return {model, kTrain, "1/s", draw,
          [=](const Reals& x, const Reals& p) { return endless(sites(x, p), x[0]) + p.back(); }};
}

/// Chosen rates of kab, kba, kbc, kca, kac, kcb as Eyring parameters.
std::function<void(Dice&, Call&)> eyringRates(const std::vector<std::size_t>& chosen) {
  return [=](Dice& dice, Call& call) {
    Numbers six = fiveRates(dice);
    six.push_back(closingRate(six));
    Numbers rates;
    for (const std::size_t k : chosen) rates.push_back(six[k]);
    addEyring(dice, call.x[1], rates, call.p);
  };
}

/// kon1, koff1, kon2, koff2, k12, k21, A0, B0 on the cycle.
std::function<void(Dice&, Call&)> binding(bool two_free) {
  return [=](Dice& dice, Call& call) {
    const double kon1 = dice.spread(0.5, 20), koff1 = dice.spread(50, 2000);
    const double kon2 = dice.spread(0.5, 20), koff2 = dice.spread(50, 2000);
    const double k12 = dice.spread(5, 500);
    const double k21 =
        two_free ? k12 * kon2 * koff1 / (kon1 * koff2) : kon1 * k12 * koff2 / (kon2 * koff1);
    const Numbers p = {
        kon1, koff1, kon2, koff2, k12, k21, dice.spread(5e-5, 5e-4), dice.spread(2e-5, 2e-4)};
    call.p.insert(call.p.end(), p.begin(), p.end());
  };
}

std::vector<Check> threeSiteCpmg() {
  const auto five = [](Dice& dice, Call& call) {
    const Numbers k = fiveRates(dice);
    call.p.insert(call.p.end(), k.begin(), k.end());
  };
  return {
      cpmg3("CPMG_matrix3", 4, five,
            [](const Reals& x, const Reals& p) {
              return three(p[2], p[3], p[4], p[5], p[6], p[2] * p[4] * p[5] / (p[3] * p[6]),
                           p[0] * x[3], p[1] * x[3]);
            }),
      cpmg3("CPMG_temp3", 4, eyringRates({0, 1, 2, 5, 3, 4}),
            [](const Reals& x, const Reals& p) {
              const auto k = [&](std::size_t i) { return eyring(x[1], p[2 + i], p[8 + i]); };
              return three(k(0), k(1), k(2), k(4), k(5), k(3), p[0] * x[3], p[1] * x[3]);
            }),
      cpmg3("CPMG_temp3linear", 4, eyringRates({0, 1, 2, 5}),
            [](const Reals& x, const Reals& p) {
              const auto k = [&](std::size_t i) { return eyring(x[1], p[2 + i], p[6 + i]); };
              return three(k(0), k(1), k(2), 0, 0, k(3), p[0] * x[3], p[1] * x[3]);
            }),
      cpmg3("CPMG_temp3folked", 4, eyringRates({0, 1, 3, 4}),
            [](const Reals& x, const Reals& p) {
              const auto k = [&](std::size_t i) { return eyring(x[1], p[2 + i], p[6 + i]); };
              return three(k(0), k(1), 0, k(2), k(3), 0, p[0] * x[3], p[1] * x[3]);
            }),
      cpmg3(
          "CPMG_bind3a", 5,
          [](Dice& dice, Call& call) {
            const Numbers k = fiveRates(dice);
            const Numbers p = {k[0], k[1], k[4], k[3], k[2], closingRate(k)};
            call.p.insert(call.p.end(), p.begin(), p.end());
          },
          [](const Reals& x, const Reals& p) {
            return three(p[2], p[3], p[6], p[5], p[4], p[7], p[0] * x[3], p[1] * x[3]);
          }),
      cpmg3(
          "CPMG_bind3b", 5,
          [](Dice& dice, Call& call) {
            const Numbers k = fiveRates(dice);
            const Numbers p = {k[0], k[1], k[2], dice.spread(50, 2000)};
            call.p.insert(call.p.end(), p.begin(), p.end());
          },
          [](const Reals& x, const Reals& p) {
            return three(p[2], p[3], p[4], 0, 0, p[5], p[0] * x[3], p[1] * x[3]);
          }),
      cpmg3("CPMG_bind3c_1F2B", 5, binding(false),
            [](const Reals& x, const Reals& p) {
              const Real L = freeLigand(1e6L * x[4] * p[9], [&](Real free) {
                const Real ratio = free * (p[2] / p[3] + p[4] / p[5]);  // bound to free
                return 1e6L * p[8] * ratio / (1 + ratio);
              });
              return three(p[2] * L, p[3], p[6], p[5], p[4] * L, p[7], p[0] * x[3], p[1] * x[3]);
            }),
      cpmg3("CPMG_bind3c_2F1B", 5, binding(true),
            [](const Reals& x, const Reals& p) {
              const Real L = freeLigand(1e6L * x[4] * p[9], [&](Real free) {
                const Real first = free * p[2] / p[3];  // bound to the first free form
                return 1e6L * p[8] * first / (1 + p[6] / p[7] + first);
              });
              return three(p[6], p[7], p[4] * L, p[3], p[2] * L, p[5], p[0] * x[3], p[1] * x[3]);
            }),
  };
}

/// Multiple-quantum CPMG. T = 0.02 to 0.06 s and a whole number of pulses, 0.3 more.
Check multiple(const char* model, std::size_t differences, std::vector<Draw> rates,
               bool endless_train, const Schemes& sites) {
  const auto draw = [=](Dice& dice) {
    const double T = dice.uniform(0.02, 0.06);
    const double pulses = std::floor(dice.uniform(2, 60));
    const double code = std::floor(dice.uniform(0, 6));
    Call call{.x = {std::max(10.5, (pulses + 0.3) / T), T, 298, kField(dice), code}, .p = {}};
    for (std::size_t k = 0; k < differences; ++k) call.p.push_back(dice.uniform(-600, 600));
    for (const Draw& rate : rates) call.p.push_back(rate(dice));
    call.p.push_back(kR20(dice));
    return call;
  };
  const auto expected = [=](const Reals& x, const Reals& p) {
    Sites s = sites(x, p);
    s.BN = p[0] * x[3];
    s.BH = p[1] * x[3];
    if (differences == 4) {
      s.CN = p[2] * x[3];
      s.CH = p[3] * x[3];
    }
    const int code = static_cast<int>(x[4]);
    const int blocks = static_cast<int>(x[0] * x[1]) / 2;
    return p.back() + (endless_train ? echo::endlessRate(s, code, x[0])
                                     : echo::trainRate(s, code, blocks, x[0], x[1]));
  };
  return {model, endless_train ? kTrain : kPulses, "1/s", draw, expected};
}

std::vector<Check> multipleQuantum() {
  const Draw slow = spread(5, 300), fast = spread(300, 3000), kex = spread(50, 5000);
  const auto rates = [](const Reals&, const Reals& p) { return two(p[2], p[3], 0); };
  const auto minor = [](const Reals&, const Reals& p) { return ofMinor(p[2], p[3], 0); };
  return {
      multiple("MQCPMG_Richards", 2, {kex, spread(0.005, 0.24)}, true,
               [](const Reals&, const Reals& p) { return ofProduct(p[2], p[3], 0); }),
      multiple("MQCPMG_Richards_p", 2, {kex, spread(0.01, 0.24)}, true, minor),
      multiple("MQCPMG_Richards_k", 2, {slow, fast}, true, rates),
      multiple("MQCPMG_Matrix2_p", 2, {kex, spread(0.01, 0.24)}, false, minor),
      multiple("MQCPMG_Matrix2_k", 2, {slow, fast}, false, rates),
      multiple("MQCPMG_Matrix3_p", 4, {spread(0.01, 0.3), spread(0.01, 0.3), kex, kex, kex}, false,
               [](const Reals&, const Reals& p) {
                 const Real pB = p[4], pC = p[5], pA = 1 - pB - pC;
                 Sites s = three(p[6] * pB / (pA + pB), p[6] * pA / (pA + pB),
                                 p[7] * pC / (pB + pC), p[8] * pA / (pA + pC),
                                 p[8] * pC / (pA + pC), p[7] * pB / (pB + pC), 0, 0);
                 s.pA = pA;
                 s.pB = pB;
                 s.pC = pC;
                 return s;
               }),
      multiple("MQCPMG_Matrix3_k", 4, {slow, fast, slow, fast, slow}, false,
               [](const Reals&, const Reals& p) {
                 const Real B = p[4] / p[5], C = p[6] / p[7];  // populations relative to A
                 Sites s = three(p[4], p[5], p[8], p[7], p[6], p[8] * B / C, 0, 0);
                 s.pA = 1 / (1 + B + C);
                 s.pB = B * s.pA;
                 s.pC = C * s.pA;
                 return s;
               }),
  };
}

// ---- R1rho: formulas in other words ----

/// Rex for the spin lock omega1, the offset of the carrier, the shift difference in rad/s.
using RexOf = std::function<Real(Real omega1, Real offset, Real delta, const Reals& p)>;

Real sin2(Real omega1, Real offset) {
  return omega1 == 0 ? 0 : 1 / (1 + offset * offset / (omega1 * omega1));
}

Real palmer(Real omega1, Real offset, Real delta, const Reals& p, bool second_order, Real s2) {
  const Real kex = p[1], pB = p[2], pA = 1 - pB;
  const Real a = offset * offset + omega1 * omega1;
  const Real b = (delta - offset) * (delta - offset) + omega1 * omega1;
  const Real e = std::pow(offset - pB * delta, 2.0L) + omega1 * omega1;
  const Real P = pA * pB * delta * delta;
  Real divisor = a * b / e + kex * kex;
  if (second_order) {
    divisor -= s2 * P * (1 + 2 * kex * kex * (pA * a + pB * b) / (a * b + e * kex * kex));
  }
  return kex * P / divisor;
}

/// The three variants of a family; `average`: the tilt is that of the population average.
void addFamily(std::vector<Check>& checks, const std::string& family,
               const std::vector<Draw>& exchange, bool average, const RexOf& rex) {
  const Draw lock = spread(25, 2000), offset = uniform(-1500, 1500), R1 = uniform(0.5, 3);
  const std::size_t n = exchange.size();
  const auto value = [=](Real nu1, Real offset_hz, const Reals& x, const Reals& p, bool on) {
    const Real omega1 = 2 * kPi * nu1, Omega = on ? 0 : 2 * kPi * offset_hz;
    const Real delta = n == 0 ? 0 : p[0] * x[3];
    const Real rate = rex(omega1, Omega, delta, p) + p[n];
    if (on) return rate;
    const Real s2 = sin2(omega1, average ? Omega - p[2] * delta : Omega);
    return s2 * rate + (1 - s2) * p[n + 1];
  };
  std::vector<Draw> p = exchange;
  p.push_back(kR20);
  const auto on = independent({lock, offset, kTemperature, kField}, p);
  p.push_back(R1);
  const auto field_first = independent({lock, offset, kTemperature, kField}, p);
  const auto offset_first = independent({offset, lock, kTemperature, kField}, p);
  checks.push_back({family, kRetyped, "1/s", field_first, [=](const Reals& x, const Reals& q) {
                      return value(x[0], x[1], x, q, false);
                    }});
  checks.push_back({family + "_ON", kRetyped, "1/s", on,
                    [=](const Reals& x, const Reals& q) { return value(x[0], 0, x, q, true); }});
  checks.push_back(
      {family + "_OFF", kRetyped, "1/s", offset_first,
       [=](const Reals& x, const Reals& q) { return value(x[1], x[0], x, q, false); }});
}

std::vector<Check> spinLock() {
  std::vector<Check> checks;
  const Draw pB = spread(0.002, 0.1);
  addFamily(checks, "R1RHO_CONST", {}, false,
            [](Real, Real, Real, const Reals&) { return Real{0}; });
  // phi x3^2 is delta x3 of the call
  addFamily(checks, "R1RHO_LONDON", {spread(1e3, 1e6), kKex}, false,
            [](Real omega1, Real offset, Real delta, const Reals& p) {
              const Real field = delta / p[0];
              return delta * field / (p[1] + (omega1 * omega1 + offset * offset) / p[1]);
            });
  addFamily(checks, "R1RHO_KAY", {kSignedDw, kKex, pB}, false,
            [](Real omega1, Real offset, Real delta, const Reals& p) {
              const Real minor = delta - p[2] * delta - offset;
              return p[2] * delta * delta / (p[1] + (minor * minor + omega1 * omega1) / p[1]);
            });
  addFamily(checks, "R1RHO_PALMER02", {kSignedDw, kKex, kMinor}, true,
            [](Real omega1, Real offset, Real delta, const Reals& p) {
              return palmer(omega1, offset, delta, p, false, 0);
            });
  addFamily(checks, "R1RHO_PALMER05", {kSignedDw, kKex, kMinor}, true,
            [](Real omega1, Real offset, Real delta, const Reals& p) {
              // On resonance, the only offset that is exactly 0, the tilt is neglected.
              const Real s2 = offset == 0 ? 1 : sin2(omega1, offset - p[2] * delta);
              return palmer(omega1, offset, delta, p, true, s2);
            });
  return checks;
}

/// Amide magnetisation, fed by water that decays on its own, at mixing time t.
Real builtUp(Real k, Real R1a, Real R1b, Real t) {
  echo::Matrix L;
  L.e[0] = {echo::Complex(-(R1a + k)), echo::Complex(k), 0};
  L.e[1] = {0, echo::Complex(-R1b), 0};
  return echo::exponential(echo::scaled(L, t)).e[0][1].real();
}

std::vector<Check> allChecks() {
  std::vector<Check> all;
  for (const std::vector<Check>& family :
       {curves(), twoSiteCpmg(), threeSiteCpmg(), multipleQuantum(), spinLock()}) {
    all.insert(all.end(), family.begin(), family.end());
  }
  all.push_back({"CLEANEX", "two coupled pools, propagated", "relative",
                 independent({uniform(0.002, 0.1), kUnused},
                             {spread(0.5, 300), uniform(1, 30), uniform(0.2, 0.9)}),
                 [](const Reals& x, const Reals& p) { return builtUp(p[0], p[1], p[2], x[0]); }});
  return all;
}

double largestDifference(const Check& check) {
  const Model model(check.model);
  Dice dice;
  Real largest = 0;
  for (int i = 0; i < kPoints; ++i) {
    const Call call = check.draw(dice);
    const Reals x(call.x.begin(), call.x.end());
    const Reals p(call.p.begin(), call.p.end());
    const Real expected = check.expected(x, p);
    const Real difference = std::fabs(static_cast<Real>(model.value(call)) - expected);
    const Real relative = check.unit == "relative" ? difference / std::fabs(expected) : difference;
    // written so that a NaN is not passed over
    if (!(relative <= largest)) largest = relative;
  }
  return static_cast<double>(largest);
}

/// Rounded up to one digit.
std::string roundedUp(double number) {
  if (number == 0) return "0";
  double power = std::pow(10.0, std::floor(std::log10(number)));
  double digit = std::ceil(number / power);
  if (digit == 10) {
    digit = 1;
    power *= 10;
  }
  char text[32];
  std::snprintf(text, sizeof text, "%.0e", digit * power);
  return text;
}

// Other compilers and mathematical libraries round elsewhere: differences may be twice those of the
// page.
TEST(Accuracy, OfEveryModelIsAsDocumented) {
  std::vector<doctable::Row> rows;
  std::vector<double> found;
  for (const Check& check : allChecks()) {
    found.push_back(largestDifference(check));
    rows.push_back({check.model, check.against,
                    roundedUp(found.back()) + (check.unit == "1/s" ? " 1/s" : " of the value")});
  }
  const doctable::Row header = {"Model", "Compared with", "Largest difference"};
  doctable::print(header, rows);

  std::vector<std::string> registered = models::registeredNames();
  std::vector<std::string> checked;
  for (const doctable::Row& row : rows) checked.push_back(row[0]);
  std::sort(registered.begin(), registered.end());
  std::sort(checked.begin(), checked.end());
  EXPECT_EQ(checked, registered);

  const std::vector<doctable::Row> documented = doctable::documented("models");
  ASSERT_EQ(documented.size(), rows.size() + 1);
  EXPECT_EQ(documented[0], header);
  for (std::size_t i = 0; i < rows.size(); ++i) {
    const doctable::Row& row = documented[i + 1];
    EXPECT_EQ(row[0], rows[i][0]);
    EXPECT_EQ(row[1], rows[i][1]);
    EXPECT_LE(found[i], 2 * std::stod(row[2])) << row[0];
  }
}

}  // namespace
