// Whether the errors are right: those of Monte Carlo, jackknife and covariance on synthetic data of
// known noise.
// SPDX-License-Identifier: GPL-3.0-or-later
//
// Seeds are fixed, so that a test passes or fails for good. Bounds are 4 standard deviations of
// what is tested: a correct program fails one such comparison of random data in 16000.
#include "LinearAlgebra.h"
#include "Problem.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <ostream>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using problem::FakeClock;
using problem::Options;
using problem::Problem;
using problem::ScratchDirectory;
using problem::text;

using Numbers = std::vector<double>;

constexpr double kBound = 4.0;

double square(double x) { return x * x; }

// ---- synthetic data ----

/// Makes the input of a job from noise: every call of the argument is a normal deviate.
using Job = std::function<std::string(const std::function<double()>&)>;

/// Three lines of a common slope, errors that differ from line to line.
std::string sharedSlope(const std::function<double()>& normal) {
  std::string input = "FUNCTION Linear\nMETHOD ONEEX\nGPAR slope 0 5 1 2\n";
  for (int set = 0; set < 3; ++set) {
    const double sigma = 0.1 * (1 + set);
    input += "SET s" + std::to_string(set) + "\nPAR a 0 9 1 1\nPAR b slope\n";
    for (int i = 0; i < 12; ++i) {
      input += problem::data(i, 1.0 + set + 2.0 * i + sigma * normal(), sigma);
    }
  }
  return input;
}

/// One line alone, ten points.
std::string oneLine(const std::function<double()>& normal) {
  std::string input = "FUNCTION Linear\nMETHOD ONEEX\nSET s\nPAR a 0 9 1 1\nPAR b 0 9 1 2\n";
  for (int i = 0; i < 10; ++i) input += problem::data(i, 1.0 + 2.0 * i + 0.5 * normal(), 0.5);
  return input;
}

/// R2eff of two sites, Carver & Richards.
double dispersion(double x0, double dw, double kex, double papb, double R20) {
  const double zeta = 2.0 * dw * kex * std::sqrt(1.0 - 4.0 * papb);
  const double psi = kex * kex - dw * dw;
  const double norm = std::sqrt(psi * psi + zeta * zeta);
  const double cosines = (psi + 2.0 * dw * dw) / norm;
  const double up = std::sqrt((psi + norm) / 2.0) / x0;
  const double um = std::sqrt((norm - psi) / 2.0) / x0;
  const double Y = 0.5 * (1.0 + cosines) * std::cosh(up) - 0.5 * (cosines - 1.0) * std::cos(um);
  return R20 + 0.5 * (kex - x0 * std::acosh(Y));
}

/// Two residues at two fields, common kex and papb; errors of 0.5 %.
std::string twoResidues(const std::function<double()>& normal) {
  std::string input =
      "FUNCTION CPMG_Richards\nMETHOD ONEEX\nGPAR kex 100 4000 1 1200\nGPAR papb 0.01 0.2 1 "
      "0.06\n";
  const double shifts[] = {700.0, 1100.0};
  for (int set = 0; set < 2; ++set) {
    const double dw = shifts[set];
    input += "SET r" + std::to_string(set) + "\nPAR dw 100 3000 1 " + text(dw) +
             "\nPAR kex kex\nPAR papb papb\nPAR R20_1_1 1 30 1 8\nPAR R20_1_2 1 30 1 10\n";
    for (int field = 1; field <= 2; ++field) {
      const double factor = field == 1 ? 1.0 : 1.6;
      for (const double x0 : {60.0, 150.0, 300.0, 500.0, 800.0, 1200.0, 1800.0, 2600.0}) {
        const double sigma = 0.1;
        const double y = dispersion(x0, dw * factor, 1200.0, 0.06, 6.0 + 2.0 * field);
        input += "DATA " + text(x0) + " 298 " + text(factor) + " 1" + std::to_string(field) + ' ' +
                 text(y + sigma * normal()) + ' ' + text(sigma) + '\n';
      }
    }
  }
  return input;
}

/// A fit to data set number `seed` of a job.
struct Fitted {
  Fitted(const Job& job, unsigned seed) {
    std::mt19937 engine(seed);
    std::normal_distribution<double> normal(0.0, 1.0);
    Options options;
    options.output_file = (directory.path() / "out").string();
    FakeClock::start(100000U * seed);
    options.random = Random(FakeClock::now);
    problem = std::make_unique<Problem>(job([&] { return normal(engine); }), options);
    problem->fit().run_FIT(false);
    for (int parm = 0; parm < problem->pardef.PAR_size(); ++parm) {
      covariance_error.push_back(problem->fit().stdError(parm));
    }
  }
  [[nodiscard]] Fit& fit() const { return problem->fit(); }
  [[nodiscard]] std::size_t parms() const { return covariance_error.size(); }
  /// Variance by the analysis that ran last over that by the covariance.
  [[nodiscard]] double varianceRatio(std::size_t parm) const {
    return square(fit().spread().par[parm] / covariance_error[parm]);
  }

  ScratchDirectory directory;
  problem::Captured console{std::cerr};
  std::unique_ptr<Problem> problem;
  Numbers covariance_error;
};

// ---- covariance and Monte Carlo ----

struct JobRow {
  const char* name;
  std::string (*job)(const std::function<double()>&);
  unsigned data_sets;
  int simulations;
};

void PrintTo(const JobRow& row, std::ostream* out) { *out << row.name; }

class MonteCarloErrors : public testing::TestWithParam<JobRow> {};

TEST_P(MonteCarloErrors, AgreeWithTheCovariance) {
  const auto [name, job, data_sets, simulations] = GetParam();
  Numbers sums;
  for (unsigned seed = 1; seed <= data_sets; ++seed) {
    Fitted fitted(job, seed);
    fitted.problem->calc.SetMonte(2, simulations);
    fitted.fit().run_MONTE();
    sums.resize(fitted.parms());
    for (std::size_t parm = 0; parm < sums.size(); ++parm) sums[parm] += fitted.varianceRatio(parm);
  }
  // A sample variance has the relative standard deviation sqrt(2/(n - 1)).
  const double deviation = std::sqrt(2.0 / (data_sets * (simulations - 1.0)));
  for (std::size_t parm = 0; parm < sums.size(); ++parm) {
    const double ratio = sums[parm] / data_sets;
    EXPECT_NEAR(ratio, 1.0, kBound * deviation) << name << ", parameter " << parm;
    RecordProperty(std::string(name) + "_error_ratio_" + std::to_string(parm),
                   std::to_string(std::sqrt(ratio)));
  }
}

TEST_P(MonteCarloErrors, HaveTheFullFitAsTheirMean) {
  const auto [name, job, data_sets, simulations] = GetParam();
  Fitted fitted(job, data_sets + 1);
  fitted.problem->calc.SetMonte(2, simulations);
  fitted.fit().run_MONTE();
  for (std::size_t parm = 0; parm < fitted.parms(); ++parm) {
    EXPECT_NEAR(fitted.fit().centre().par[parm], fitted.fit().saved().par[parm],
                kBound * fitted.covariance_error[parm] / std::sqrt(simulations))
        << name << ", parameter " << parm;
  }
}

INSTANTIATE_TEST_SUITE_P(WellPosed, MonteCarloErrors,
                         testing::Values(JobRow{"local_line", oneLine, 20, 200},
                                         JobRow{"global_slope", sharedSlope, 10, 100},
                                         JobRow{"global_dispersion", twoResidues, 3, 100}),
                         [](const auto& row) { return std::string(row.param.name); });

TEST(CovarianceErrors, AreTheScatterOfFitsToRepeatedData) {
  constexpr unsigned kDataSets = 200;
  Numbers sums;
  for (unsigned seed = 1; seed <= kDataSets; ++seed) {
    const Fitted fitted(sharedSlope, 5000 + seed);
    const Numbers truth = {2.0, 1.0, 2.0, 3.0};  // slope, then the intercepts
    ASSERT_EQ(fitted.parms(), truth.size());
    sums.resize(truth.size());
    for (std::size_t parm = 0; parm < truth.size(); ++parm) {
      sums[parm] +=
          square((fitted.fit().saved().par[parm] - truth[parm]) / fitted.covariance_error[parm]);
    }
  }
  for (const double sum : sums) {
    EXPECT_NEAR(sum / kDataSets, 1.0, kBound * std::sqrt(2.0 / kDataSets));
  }
}

// ---- jackknife ----

/// What a fit that is linear about its minimum lets expect of the variances of a jackknife.
///
/// With whitened derivatives a_i, covariance C and leverages h_i = a_i' C a_i, leaving out point i
/// moves the parameters by -C a_i r_i/(1 - h_i), and the residuals have the covariance 1 - H.
struct Expectation {
  Numbers ratio;     ///< variance over that of the covariance, its mean over data sets
  Numbers variance;  ///< and the variance of that ratio

  explicit Expectation(Fitted& fitted) {
    const ParDef& pardef = fitted.problem->pardef;
    const std::size_t n = static_cast<std::size_t>(pardef.DATAsize());
    const std::size_t p = fitted.parms();
    std::vector<Numbers> a;
    Numbers scratch(16);
    for (std::size_t i = 0; i < n; ++i) {
      Numbers row(p, 0.0);
      fitted.fit().calc_y_dy(fitted.fit().saved().par, static_cast<int>(i), row, scratch);
      for (double& entry : row) entry *= pardef.DATA(static_cast<int>(i)).w;
      a.push_back(row);
    }
    Numbers C(p * p, 0.0);
    for (const Numbers& row : a) {
      for (std::size_t j = 0; j < p * p; ++j) C[j] += row[j / p] * row[j % p];
    }
    if (LM_inv(static_cast<int>(p), C) != 0) throw std::runtime_error("singular");
    std::vector<Numbers> Ca(n, Numbers(p, 0.0));
    for (std::size_t i = 0; i < n; ++i) {
      for (std::size_t j = 0; j < p * p; ++j) Ca[i][j / p] += C[j] * a[i][j % p];
    }
    const auto hat = [&](std::size_t i, std::size_t k) {
      double h = 0.0;
      for (std::size_t j = 0; j < p; ++j) h += a[k][j] * Ca[i][j];
      return h;
    };
    const double scale = (static_cast<double>(n) - 1.0) / static_cast<double>(n);
    for (std::size_t parm = 0; parm < p; ++parm) {
      Numbers weight;
      double mean = 0.0;
      for (std::size_t i = 0; i < n; ++i) {
        const double left = 1.0 - hat(i, i);
        weight.push_back(scale * square(Ca[i][parm] / left) / C[parm * p + parm]);
        mean += weight[i] * left;
      }
      double spread = 0.0;
      for (std::size_t i = 0; i < n; ++i) {
        for (std::size_t k = 0; k < n; ++k) {
          const double residual = (i == k ? 1.0 : 0.0) - hat(i, k);
          spread += 2.0 * weight[i] * weight[k] * square(residual);
        }
      }
      ratio.push_back(mean);
      variance.push_back(spread);
    }
  }
};

class JackknifeErrors : public testing::TestWithParam<JobRow> {};

TEST_P(JackknifeErrors, OfGlobalFitsAgreeWithTheCovariance) {
  const auto [name, job, data_sets, unused] = GetParam();
  Numbers measured, expected, variance;
  for (unsigned seed = 1; seed <= data_sets; ++seed) {
    Fitted fitted(job, 900 + seed);
    const Expectation expectation(fitted);
    fitted.fit().run_JACK();
    measured.resize(fitted.parms());
    expected.resize(fitted.parms());
    variance.resize(fitted.parms());
    for (std::size_t parm = 0; parm < fitted.parms(); ++parm) {
      measured[parm] += fitted.varianceRatio(parm) / data_sets;
      expected[parm] += expectation.ratio[parm] / data_sets;
      variance[parm] += expectation.variance[parm] / square(data_sets);
    }
  }
  for (std::size_t parm = 0; parm < measured.size(); ++parm) {
    EXPECT_NEAR(measured[parm], expected[parm], kBound * std::sqrt(variance[parm]))
        << name << ", parameter " << parm;
    // Leverage alone makes the jackknife a little too large, the more the fewer points there are.
    EXPECT_GT(expected[parm], 1.0);
    EXPECT_LT(expected[parm], 2.0);
    RecordProperty(std::string(name) + "_error_ratio_" + std::to_string(parm),
                   std::to_string(std::sqrt(measured[parm])) + " expected " +
                       std::to_string(std::sqrt(expected[parm])));
  }
}

INSTANTIATE_TEST_SUITE_P(WellPosed, JackknifeErrors,
                         testing::Values(JobRow{"global_slope", sharedSlope, 60, 0},
                                         JobRow{"global_dispersion", twoResidues, 6, 0}),
                         [](const auto& row) { return std::string(row.param.name); });

/// Twenty measurements of one value.
constexpr int kMeasurements = 20;

std::string oneMean(const std::function<double()>& normal) {
  std::string input = "FUNCTION Constant\nMETHOD ONEEX\nSET s\nPAR c 0 9 1 2\n";
  for (int i = 0; i < kMeasurements; ++i) input += problem::data(i, 2.0 + normal());
  return input;
}

/// The variance of a local jackknife of a mean over that of the covariance: every pass is a mean
/// over a list, whose first entry goes while that at the pass's own position comes back.
double displacedVarianceRatio(int n) {
  std::vector<int> list;
  for (int i = 0; i < n; ++i) list.push_back(i);
  double sum = 0.0;
  for (int j = 0; j < n; ++j) {
    const int back = list[static_cast<std::size_t>(j)];
    list.erase(list.begin());
    for (int i = 0; i < n; ++i) {
      const auto times = static_cast<double>(std::count(list.begin(), list.end(), i));
      sum += square(times / (n - 1) - 1.0 / n);
    }
    list.push_back(back);
  }
  return (n - 1.0) / n * sum * n;
}

TEST(LocalJackknifeErrors, AreSeveralTimesTooLargeAsTheDisplacedListsMakeThem) {
  // The lists lose half of the points, and the errors are no estimate of the noise: for a mean 2.2
  // times too large with 10 points, 3.3 with 20, 4.1 with 30.
  EXPECT_NEAR(std::sqrt(displacedVarianceRatio(10)), 2.19, 0.005);
  EXPECT_NEAR(std::sqrt(displacedVarianceRatio(30)), 4.09, 0.005);
  constexpr unsigned kDataSets = 300;
  double sum = 0.0;
  double squares = 0.0;
  for (unsigned seed = 1; seed <= kDataSets; ++seed) {
    Fitted fitted(oneMean, 700 + seed);
    fitted.fit().run_JACK();
    sum += fitted.varianceRatio(0);
    squares += square(fitted.varianceRatio(0));
  }
  const double mean = sum / kDataSets;
  const double deviation_of_mean = std::sqrt((squares / kDataSets - square(mean)) / kDataSets);
  EXPECT_NEAR(mean, displacedVarianceRatio(kMeasurements), kBound * deviation_of_mean);
  EXPECT_GT(std::sqrt(mean), 3.0);
  RecordProperty("error_ratio", std::to_string(std::sqrt(mean)));
}

// ---- percentiles ----

TEST(ChiSquarePercentiles, FollowTheirDistribution) {
  // Quantiles of the chi-square distribution with 8 degrees of freedom (Abramowitz & Stegun,
  // Table 26.8, and its complement).
  struct Quantile {
    double p;
    double chi;
  };
  constexpr Quantile kQuantiles[] = {{0.05, 2.73264}, {0.10, 3.48954}, {0.25, 5.07064},
                                     {0.50, 7.34412}, {0.75, 10.2188}, {0.90, 13.3616},
                                     {0.95, 15.5073}};
  constexpr int kSimulations = 3000;
  Fitted fitted(oneLine, 42);
  ASSERT_EQ(fitted.problem->pardef.lDoF(0), 8);
  fitted.problem->calc.SetMonte(2, kSimulations);
  fitted.fit().run_MONTE();
  for (const auto& [p, chi] : kQuantiles) {
    // The share of simulations below a quantile is binomial.
    const double bound = kBound * std::sqrt(p * (1.0 - p) / kSimulations);
    EXPECT_LT(fitted.fit().pchi(0, p - bound), chi) << p;
    EXPECT_GT(fitted.fit().pchi(0, p + bound), chi) << p;
  }
  EXPECT_NEAR(fitted.fit().centre().chi(0), 8.0, kBound * std::sqrt(2.0 * 8.0 / kSimulations));
}

}  // namespace
