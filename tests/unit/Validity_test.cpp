// Where the approximations of the models fail and by how much: the tables of docs/accuracy.md.
// SPDX-License-Identifier: GPL-3.0-or-later
//
// The exact side is always propagated, or an eigenvalue, in extended precision, without noise.
#include "DocTable.h"
#include "EchoTrain.h"
#include "Models.h"
#include "SpinLock.h"
#include "SyntheticFit.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <functional>
#include <numbers>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace {

using doctable::fixed;
using doctable::Row;
using echo::Real;
using echo::Sites;
using models::Model;
using Numbers = std::vector<double>;

class Dice {
 public:
  double uniform(double low, double high) {
    return low + (high - low) * static_cast<double>(engine_()) / 4294967296.0;
  }
  double spread(double low, double high) {
    return low * std::exp(uniform(0.0, std::log(high / low)));
  }

 private:
  std::mt19937 engine_{1};
};

std::string number(double x) {
  std::ostringstream out;
  out << x;
  return out.str();
}

/// With its sign, as a deviation.
std::string percent(double found, double truth) {
  const double deviation = 100.0 * (found / truth - 1.0);
  const int decimals = std::abs(deviation) < 9.95 ? 1 : 0;
  std::string text = fixed(std::abs(deviation), decimals);
  return (deviation < 0 ? "-" : "+") + text;
}

/// Percents of an error; beyond ten times the effect itself only that.
std::string errorPercent(double error) {
  if (!(error <= 1000)) return ">1000";
  return fixed(error, error < 99.95 ? 1 : 0);
}

double quantile(Numbers values, double fraction) {
  std::sort(values.begin(), values.end());
  return values[static_cast<std::size_t>(fraction * static_cast<double>(values.size() - 1))];
}

// ---- Carver-Richards against the constant-time experiment ----

constexpr double kT = 0.04;
constexpr double kDw = 1000;
constexpr double kR20 = 10;
constexpr double kBlocks[] = {1, 2, 3, 4, 5, 6, 8, 10, 12, 14, 16, 20, 24, 28, 32, 36, 40};
constexpr double kRatios[] = {0.03, 0.1, 0.3, 1, 3, 10};
constexpr double kPopulations[] = {0.01, 0.03, 0.1, 0.3};

Sites twoSites(double kex, double pb, double dw) {
  Sites s;
  s.ab = Real{kex} * pb;
  s.ba = Real{kex} * (1 - Real{pb});
  s.pA = 1 - Real{pb};
  s.pB = pb;
  s.BN = dw;
  return s;
}

double pulseRate(double blocks) { return 2 * blocks / kT; }

/// R2eff of a site A whose signal is followed through the train.
double observed(const Sites& s, double blocks) {
  return kR20 + static_cast<double>(
                    echo::trainRate(s, 0, static_cast<int>(blocks), pulseRate(blocks), kT));
}

TEST(Validity, CarverRichardsAgainstTheSignalOfAConstantTimeTrain) {
  const Model closed("CPMG_Richards_p");
  std::vector<Row> rows;
  for (const double ratio : kRatios) {
    Row row = {number(ratio)};
    for (const double pb : kPopulations) {
      Numbers differences;
      for (const double blocks : kBlocks) {
        const double value =
            closed.value({.x = {pulseRate(blocks), 298, 1}, .p = {kDw, ratio * kDw, pb, kR20}});
        differences.push_back(value - observed(twoSites(ratio * kDw, pb, kDw), blocks));
      }
      const auto [low, high] = std::minmax_element(differences.begin(), differences.end());
      row.push_back(fixed(std::max(std::abs(*low), std::abs(*high)), 2) + " (" +
                    fixed((*high - *low) / 2, 2) + ")");
    }
    rows.push_back(row);
  }
  doctable::expectDocumented("closed-values",
                             {"kex/dw", "pb = 0.01", "pb = 0.03", "pb = 0.1", "pb = 0.3"}, rows);
}

/// Fits CPMG_Richards_p to noise-free rates at fields 1 and 1.6, from the truth.
Row fittedBias(double kex, double pb, const std::function<double(double dw, double blocks)>& rate) {
  std::string input = "FUNCTION CPMG_Richards_p\nMETHOD ONEEX\nSET residue\nPAR dw " +
                      problem::text(kDw) + "\nPAR kex " + problem::text(kex) + "\nPAR pb " +
                      problem::text(pb) + "\nPAR R20_1_1 10\nPAR R20_1_2 10\n";
  for (const double field : {1.0, 1.6}) {
    for (const double blocks : kBlocks) {
      input += synthetic::dataLine({pulseRate(blocks), 298, field}, field == 1.0 ? "11" : "12",
                                   rate(field * kDw, blocks), 0.2);
    }
  }
  synthetic::Fitted fit(input);
  return {percent(fit.value("residue::kex"), kex), percent(fit.value("residue::pb"), pb),
          percent(fit.value("residue::dw"), kDw), fixed(fit.chi2() / fit.dof(), 2)};
}

TEST(Validity, FitOfCarverRichardsToTheSignalOfAConstantTimeTrain) {
  std::vector<Row> rows;
  for (const double pb : {0.03, 0.1}) {
    for (const double ratio : {0.1, 0.3, 0.5, 1.0, 2.0}) {
      const double kex = ratio * kDw;
      const Row bias = fittedBias(kex, pb, [&](double dw, double blocks) {
        return observed(twoSites(kex, pb, dw), blocks);
      });
      Row row = {number(ratio), number(pb)};
      row.insert(row.end(), bias.begin(), bias.end());
      rows.push_back(row);
    }
  }
  doctable::expectDocumented(
      "closed-fits", {"kex/dw", "pb", "kex, %", "pb, %", "dw, %", "reduced chi-square"}, rows);
}

TEST(Validity, FitOfCarverRichardsWhenTheMinorSiteRelaxesFaster) {
  constexpr double pb = 0.05;
  std::vector<Row> rows;
  for (const double excess : {5.0, 20.0, 50.0}) {
    for (const double ratio : {0.3, 1.0, 3.0}) {
      const double kex = ratio * kDw;
      const Row bias = fittedBias(kex, pb, [&](double dw, double blocks) {
        Sites s = twoSites(kex, pb, dw);
        s.excess_R2_of_B = excess;
        return kR20 + static_cast<double>(echo::endlessRate(s, 0, pulseRate(blocks)));
      });
      Row row = {number(excess), number(ratio)};
      row.insert(row.end(), bias.begin(), bias.end());
      rows.push_back(row);
    }
  }
  doctable::expectDocumented(
      "unequal-r2",
      {"R2 of B above A, 1/s", "kex/dw", "kex, %", "pb, %", "dw, %", "reduced chi-square"}, rows);
}

TEST(Validity, FastExchangeFormsAgainstTheDecayOfAnEndlessTrain) {
  std::vector<Row> rows;
  for (const double ratio : {0.3, 1.0, 2.0, 5.0, 10.0}) {
    Row row = {number(ratio)};
    for (const double pb : {0.03, 0.1}) {
      const double kex = ratio * kDw, papb = pb * (1 - pb);
      const Model meiboom("CPMG_Meiboom"), torchia("CPMG_Torchia");
      double largest = 0, of_meiboom = 0, of_torchia = 0;
      for (const double blocks : kBlocks) {
        const double x0 = pulseRate(blocks);
        const auto exact = static_cast<double>(echo::endlessRate(twoSites(kex, pb, kDw), 0, x0));
        largest = std::max(largest, exact);
        of_meiboom = std::max(
            of_meiboom,
            std::abs(meiboom.value({.x = {x0, 298, 1}, .p = {kex, papb * kDw * kDw, 0}}) - exact));
        of_torchia = std::max(
            of_torchia,
            std::abs(torchia.value({.x = {x0, 298, 1}, .p = {kDw, kex, papb, 0}}) - exact));
      }
      row.push_back(errorPercent(100 * of_meiboom / largest));
      row.push_back(errorPercent(100 * of_torchia / largest));
    }
    rows.push_back(row);
  }
  doctable::expectDocumented("fast-forms",
                             {"kex/dw", "CPMG_Meiboom, pb = 0.03", "CPMG_Torchia, pb = 0.03",
                              "CPMG_Meiboom, pb = 0.1", "CPMG_Torchia, pb = 0.1"},
                             rows);
}

// ---- R1rho against the smallest decay of the Bloch-McConnell equations ----

constexpr double kTwoPi = 2 * std::numbers::pi;
constexpr double kLockDw = 1500;
constexpr double kRates = 5;  // R1 = R2: then the exchange contribution is what is left

struct LockPoint {
  double nu1;
  double offset;  ///< of the carrier from site A, Hz
};

double exactExchange(const LockPoint& at, double kex, double pB) {
  const double site_a = -kTwoPi * at.offset;
  return spinlock::smallestDecay(
             {kex, pB, kRates, kRates, kTwoPi * at.nu1, site_a, site_a + kLockDw}) -
         kRates;
}

/// Exchange contribution by a model; London's and Kay's count the offset from the average.
double modelExchange(const std::string& name, const LockPoint& at, double kex, double pB) {
  const Model model(name);
  const bool from_average = name.starts_with("R1RHO_LONDON") || name.starts_with("R1RHO_KAY");
  const double offset = at.offset - (from_average ? pB * kLockDw / kTwoPi : 0.0);
  Numbers p = model.parmName(0) == "phi" ? Numbers{(1 - pB) * pB * kLockDw * kLockDw, kex}
                                         : Numbers{kLockDw, kex, pB};
  p.insert(p.end(), {kRates, kRates});
  p.resize(model.size());
  return model.value({.x = {at.nu1, offset, 298, 1}, .p = p}) - kRates;
}

const std::string kFamilies[] = {"R1RHO_LONDON", "R1RHO_KAY", "R1RHO_PALMER02", "R1RHO_PALMER05"};

/// Largest error over the points, in percent of the largest exchange contribution among them.
Row errorsOfFamilies(const std::string& variant, const std::vector<LockPoint>& points, double kex,
                     double pB) {
  Numbers exact;
  for (const LockPoint& at : points) exact.push_back(exactExchange(at, kex, pB));
  const double largest = *std::max_element(exact.begin(), exact.end());
  Row row;
  for (const std::string& family : kFamilies) {
    if (family == "R1RHO_KAY" && pB > 0.1) {
      row.push_back("-");  // beyond its legal range
      continue;
    }
    double error = 0;
    for (std::size_t i = 0; i < points.size(); ++i) {
      const double value = modelExchange(family + variant, points[i], kex, pB);
      error = std::max(error, std::abs(value - exact[i]));
    }
    row.push_back(errorPercent(100 * error / largest));
  }
  return row;
}

void expectErrorsOfFamilies(const std::string& table, const std::string& variant,
                            const std::vector<LockPoint>& points) {
  std::vector<Row> rows;
  for (const double pB : {0.01, 0.03, 0.1, 0.3}) {
    for (const double ratio : {0.1, 0.3, 1.0, 3.0, 10.0}) {
      Row row = {number(pB), number(ratio)};
      const Row errors = errorsOfFamilies(variant, points, ratio * kLockDw, pB);
      row.insert(row.end(), errors.begin(), errors.end());
      rows.push_back(row);
    }
  }
  Row header = {"pB", "kex/dw"};
  for (const std::string& family : kFamilies) header.push_back(family + variant);
  doctable::expectDocumented(table, header, rows);
}

constexpr double kLockFields[] = {50, 100, 200, 500, 1000};
constexpr double kOffsets[] = {-1000, -500, -250, -125, 0, 125, 250, 375, 500, 1000};

TEST(Validity, R1rhoOffResonanceAgainstBlochMcConnell) {
  std::vector<LockPoint> points;
  for (const double nu1 : kLockFields) {
    for (const double offset : kOffsets) points.push_back({nu1, offset});
  }
  expectErrorsOfFamilies("r1rho-off", "", points);
}

TEST(Validity, R1rhoOnResonanceAgainstBlochMcConnell) {
  std::vector<LockPoint> points;
  for (const double nu1 : kLockFields) points.push_back({nu1, 0});
  expectErrorsOfFamilies("r1rho-on", "_ON", points);
}

TEST(Validity, R1rhoAgainstBlochMcConnellAlongTheOffset) {
  constexpr double pB = 0.05, kex = 450;
  std::vector<Row> rows;
  for (const double offset : kOffsets) {
    const LockPoint at = {100, offset};
    const double exact = exactExchange(at, kex, pB);
    Row row = {number(offset), fixed(exact, 2)};
    for (const std::string& family : kFamilies) {
      row.push_back(fixed(modelExchange(family, at, kex, pB), 2));
    }
    rows.push_back(row);
  }
  Row header = {"Offset, Hz", "exact"};
  for (const std::string& family : kFamilies) header.push_back(family);
  doctable::expectDocumented("r1rho-offsets", header, rows);
}

TEST(Validity, FitOfR1rhoToBlochMcConnell) {
  constexpr double R1 = 1.5, R20 = 10;
  std::vector<Row> rows;
  for (const double pB : {0.03, 0.1}) {
    for (const double ratio : {0.2, 0.5, 2.0}) {
      const double kex = ratio * kLockDw;
      for (const std::string family : {"R1RHO_KAY", "R1RHO_PALMER02", "R1RHO_PALMER05"}) {
        std::string input = "FUNCTION " + family + "\nMETHOD ONEEX\nSET residue\nPAR dw " +
                            problem::text(kLockDw) + "\nPAR kex " + problem::text(kex) +
                            "\nPAR pB " + problem::text(0.95 * pB) + "\nPAR R20 10\nPAR R1 1.5\n";
        for (const double nu1 : {50.0, 100.0, 200.0, 400.0}) {
          for (const double offset : kOffsets) {
            const double site_a = -kTwoPi * offset;
            const double rate =
                spinlock::smallestDecay({kex, pB, R1, R20, kTwoPi * nu1, site_a, site_a + kLockDw});
            const double count_from = family == "R1RHO_KAY" ? pB * kLockDw / kTwoPi : 0.0;
            input += synthetic::dataLine({nu1, offset - count_from, 298, 1}, "111", rate, 0.3);
          }
        }
        synthetic::Fitted fit(input);
        rows.push_back({number(pB), number(ratio), family, percent(fit.value("residue::kex"), kex),
                        percent(fit.value("residue::pB"), pB),
                        percent(fit.value("residue::dw"), kLockDw),
                        fixed(fit.chi2() / fit.dof(), 2)});
      }
    }
  }
  doctable::expectDocumented(
      "r1rho-fits", {"pB", "kex/dw", "Model", "kex, %", "pB, %", "dw, %", "reduced chi-square"},
      rows);
}

// ---- CLEANEX ----

/// Amide and water that exchange both ways; `share`: protons of the amide over those of the water.
double builtUp(Real k, Real R1a, Real R1b, Real share, Real t) {
  echo::Matrix L;
  L.e[0] = {echo::Complex(-R1a - k), echo::Complex(k), 0};
  L.e[1] = {echo::Complex(k * share), echo::Complex(-R1b - k * share), 0};
  return static_cast<double>(echo::exponential(echo::scaled(L, t)).e[0][1].real());
}

constexpr double kMixing[] = {0.005, 0.01, 0.015, 0.02, 0.03, 0.04, 0.05, 0.06, 0.08, 0.1};

// Both exponentials are rounded, and what is left of them is of the order of their difference.
TEST(Validity, CleanexLosesDigitsAsItsTwoRatesMeet) {
  constexpr double k = 0.5, R1b = 0.6;
  const Model model("CLEANEX");
  for (const double difference : {1e-3, 1e-6, 1e-9, 1e-12}) {
    const double R1a = R1b - k + difference;
    for (const double t : kMixing) {
      const double exact = builtUp(k, R1a, R1b, 0, t);
      const double error = model.value({.x = {t, 0}, .p = {k, R1a, R1b}}) / exact - 1;
      EXPECT_LE(std::abs(error), 4e-16 / (difference * t)) << difference << ' ' << t;
    }
  }
}

TEST(Validity, FitOfCleanexToTwoWayExchangeAndAWrongWaterRate) {
  std::vector<Row> rows;
  const auto add = [&](const std::string& what, double share, double R1b_fixed) {
    Row row = {what};
    for (const double k : {2.0, 20.0, 100.0}) {
      std::string input = "FUNCTION CLEANEX\nMETHOD ONEEX\nSET amide\nPAR k " + problem::text(k) +
                          "\nPAR R1a 5\nFIXED R1b " + problem::text(R1b_fixed) + "\n";
      for (const double t : kMixing) {
        input += synthetic::dataLine({t, 0}, "1", builtUp(k, 5, 0.6, share, t), 0.01);
      }
      synthetic::Fitted fit(input);
      row.push_back(percent(fit.value("amide::k"), k) + ", " + percent(fit.value("amide::R1a"), 5));
    }
    rows.push_back(row);
  };
  add("amide/water protons 1e-4", 1e-4, 0.6);
  add("amide/water protons 1e-2", 1e-2, 0.6);
  add("R1b fixed at 0.3 instead of 0.6", 0, 0.3);
  add("R1b fixed at 1.2 instead of 0.6", 0, 1.2);
  doctable::expectDocumented("cleanex-fits",
                             {"Neglected", "k = 2 1/s", "k = 20 1/s", "k = 100 1/s"}, rows);
}

// ---- three sites with six free rates ----

using Reals = std::vector<Real>;

/// Sites with rates kab, kba, kbc, kcb, kca, kac.
Sites threeSites(const Reals& k, double B, double C) {
  Sites s;
  s.ab = k[0];
  s.ba = k[1];
  s.bc = k[2];
  s.cb = k[3];
  s.ca = k[4];
  s.ac = k[5];
  s.BN = B;
  s.CN = C;
  return s;
}

/// Shares of the sites in the steady state: for each site the sum over the trees that lead to it.
std::vector<Real> steadyState(const Sites& s) {
  const Real A = s.ba * s.ca + s.ba * s.cb + s.bc * s.ca;
  const Real B = s.ab * s.cb + s.ab * s.ca + s.ac * s.cb;
  const Real C = s.ac * s.bc + s.ac * s.ba + s.ab * s.bc;
  const Real sum = A + B + C;
  return {A / sum, B / sum, C / sum};
}

struct Off {
  models::Call call;
  Sites sites;
};

/// Six rates of which kcb, or k21 here, is off the cycle by `factor`.
Off drawRates(Dice& dice, double factor) {
  const double pB = dice.spread(0.02, 0.3), pC = dice.spread(0.02, 0.3), pA = 1 - pB - pC;
  const double ab = dice.spread(5, 500), bc = dice.spread(5, 500), ac = dice.spread(5, 500);
  const double ba = ab * pA / pB, ca = ac * pA / pC, cb = factor * bc * pB / pC;
  const double B = dice.uniform(-1500, 1500), C = dice.uniform(-1500, 1500);
  return {{.x = {dice.spread(25, 2000), kT, 0, 1, 1}, .p = {B, C, ab, ba, ac, ca, bc, cb, 0}},
          threeSites({ab, ba, bc, cb, ca, ac}, B, C)};
}

/// Binding with concentrations; the free ligand is that of the steady state.
Off drawBinding(Dice& dice, double factor, bool two_free) {
  const double kon1 = dice.spread(0.5, 20), koff1 = dice.spread(50, 2000);
  const double kon2 = dice.spread(0.5, 20), koff2 = dice.spread(50, 2000);
  const double k12 = dice.spread(5, 500);
  const double k21 =
      factor * k12 * (two_free ? kon2 * koff1 / (kon1 * koff2) : kon1 * koff2 / (kon2 * koff1));
  const double A0 = dice.spread(5e-5, 5e-4), B0 = dice.spread(2e-5, 2e-4);
  const double ligand = dice.spread(0.1, 3);
  const double B = dice.uniform(-1500, 1500), C = dice.uniform(-1500, 1500);
  const auto at = [&](Real L) {
    return two_free ? threeSites({k12, k21, kon2 * L, koff2, koff1, kon1 * L}, B, C)
                    : threeSites({kon1 * L, koff1, k12, k21, koff2, kon2 * L}, B, C);
  };
  Real low = 0, high = 1e6L * ligand * B0;
  const Real total = high;
  for (int i = 0; i < 100; ++i) {
    const Real L = (low + high) / 2;
    const std::vector<Real> shares = steadyState(at(L));
    const Real bound = two_free ? shares[2] : shares[1] + shares[2];
    (L + 1e6L * A0 * bound < total ? low : high) = L;
  }
  return {{.x = {dice.spread(25, 2000), kT, 0, 1, ligand},
           .p = {B, C, kon1, koff1, kon2, koff2, k12, k21, A0, B0, 0}},
          at((low + high) / 2)};
}

Row offTheCycle(const std::string& name, double factor,
                const std::function<Off(Dice&, double)>& draw) {
  constexpr int kDraws = 300;
  const Model model(name);
  Dice dice;
  Numbers errors;
  for (int i = 0; i < kDraws; ++i) {
    const Off off = draw(dice, factor);
    const auto exact = static_cast<double>(echo::endlessRate(off.sites, 0, off.call.x[0]));
    errors.push_back(std::abs(model.value(off.call) - exact));
  }
  return {name, number(factor), fixed(quantile(errors, 0.5), 3), fixed(quantile(errors, 0.95), 2),
          fixed(quantile(errors, 1.0), 1)};
}

TEST(Validity, SixFreeRatesOffTheCycle) {
  std::vector<Row> rows;
  for (const double factor : {1.0, 1.01, 1.1, 2.0, 5.0}) {
    rows.push_back(offTheCycle("CPMG_bind3a", factor, drawRates));
    rows.push_back(offTheCycle("CPMG_bind3c_1F2B", factor,
                               [](Dice& dice, double f) { return drawBinding(dice, f, false); }));
    rows.push_back(offTheCycle("CPMG_bind3c_2F1B", factor,
                               [](Dice& dice, double f) { return drawBinding(dice, f, true); }));
  }
  doctable::expectDocumented(
      "off-cycle", {"Model", "Off by a factor", "median, 1/s", "95 %, 1/s", "largest, 1/s"}, rows);
}

// ---- multiple quantum: closed form and matrix ----

TEST(Validity, MultipleQuantumClosedFormAgainstTheTrain) {
  constexpr int kDraws = 200;
  const Model closed("MQCPMG_Richards_p"), matrix("MQCPMG_Matrix2_p");
  std::vector<Row> rows;
  for (const double T : {0.02, 0.04, 0.1, 0.2, 1.0}) {
    Dice dice;
    Numbers largest;
    Numbers after_offset;
    for (int i = 0; i < kDraws; ++i) {
      const Numbers p = {dice.uniform(-400, 400), dice.uniform(-250, 250), dice.spread(100, 3000),
                         dice.spread(0.005, 0.05), 10};
      Numbers differences;
      for (const double pulses : {2.0, 4.0, 8.0, 12.0, 20.0, 40.0}) {
        // the pulse rates of T = 0.04 s at every T
        const double x0 = (std::round(pulses * T / 0.08) * 2 + 0.001) / T;
        const models::Call call{.x = {x0, T, 298, 1, 4}, .p = p};
        if (x0 * T < 2) continue;
        differences.push_back(closed.value(call) - matrix.value(call));
      }
      const auto [low, high] = std::minmax_element(differences.begin(), differences.end());
      largest.push_back(std::max(std::abs(*low), std::abs(*high)));
      after_offset.push_back((*high - *low) / 2);
    }
    rows.push_back({number(T), fixed(quantile(largest, 0.5), 3), fixed(quantile(largest, 0.95), 2),
                    fixed(quantile(after_offset, 0.5), 3), fixed(quantile(after_offset, 0.95), 2)});
  }
  doctable::expectDocumented("mq-closed",
                             {"T, s", "median, 1/s", "95 %, 1/s", "median without offset, 1/s",
                              "95 % without offset, 1/s"},
                             rows);
}

}  // namespace
