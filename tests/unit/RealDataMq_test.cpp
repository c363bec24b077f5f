// Measured multiple-quantum dispersion, examples/h2b_methyl_mq_cpmg.in, against a fit made with
// other software: the published formulas typed in anew, least squares from several starts.
// SPDX-License-Identifier: GPL-3.0-or-later
//
// The valley is flat and has other minima, so the fit starts near the known one. The two shift
// differences that are not different from 0 are held there: 0 is a stationary point.
#include "Problem.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstddef>
#include <sstream>
#include <string>
#include <vector>

namespace {

struct Residue {
  const char* set;
  double dwN;
  double dwH;  ///< 0: not different from it
  double chi2;
};

// in rad/s at 600.25 MHz; dwN stands for 13C
constexpr Residue kResidues[] = {
    {"V45CG2-HG2", 240.93, 0.0, 55.911},     {"I58CD1-HD1", 965.11, 453.3, 73.917},
    {"I66CD1-HD1", 1315.66, 450.9, 135.846}, {"L77CD2-HD2", 994.15, 87.9, 26.538},
    {"L97CD2-HD2", 492.09, 304.9, 24.791},   {"L98CD1-HD1", 259.69, 0.0, 26.251},
    {"L98CD2-HD2", 590.54, 154.7, 141.929},  {"L99CD1-HD1", 374.10, 298.8, 61.627},
};
constexpr double kChi2 = 546.810262;
constexpr double kKex = 947.980;
constexpr double kPb = 0.166579;

/// The lines of the file with other start values; these lines instead of the two shared parameters.
std::string nearTheMinimum(const std::string& shared) {
  std::istringstream in(problem::readFile(DRAVO_SOURCE_DIR "/examples/h2b_methyl_mq_cpmg.in"));
  std::string result;
  std::string line;
  std::size_t residue = 0;
  while (std::getline(in, line)) {
    const Residue& r = kResidues[residue == 0 ? 0 : residue - 1];
    if (line.starts_with("SET ")) {
      EXPECT_LT(residue, std::size(kResidues));
      EXPECT_EQ(line, std::string("SET ") + kResidues[residue].set);
      ++residue;
    } else if (line.starts_with("GPAR kex ")) {
      line = shared;
    } else if (line.starts_with("GPAR pb ")) {
      continue;
    } else if (line.starts_with("PAR dwN ")) {
      line = "PAR dwN " + problem::text(r.dwN);
    } else if (line.starts_with("PAR dwH ")) {
      line = (r.dwH == 0.0 ? "FIXED dwH " : "PAR dwH ") + problem::text(r.dwH);
    } else if (line == "METHOD ONEEX") {
      line = "METHOD ONE";
    }
    result += line + '\n';
  }
  EXPECT_EQ(residue, std::size(kResidues));
  return result;
}

void runQuietly(problem::Problem& run) {
  const problem::Captured console(std::cout);
  run.fit().run_FIT(false);
}

TEST(RealDataMq, EightMethylsOfH2bReachTheKnownMinimum) {
  problem::Problem run(nearTheMinimum("GPAR kex 50 10000 1 948\nGPAR pb 0.006 0.3 1 0.1666"));
  ASSERT_EQ(run.pardef.gDoF(), 304 - 32);
  runQuietly(run);
  const ParSet& best = run.fit().best();
  EXPECT_NEAR(best.total() / kChi2, 1.0, 1e-6);
  // How far they move when chi-square rises by 1e-6 of itself.
  EXPECT_NEAR(run.value("GLOBAL::kex") / kKex, 1.0, 2e-3);
  EXPECT_NEAR(run.value("GLOBAL::pb") / kPb, 1.0, 2e-3);
  for (std::size_t s = 0; s < std::size(kResidues); ++s) {
    const Residue& r = kResidues[s];
    EXPECT_NEAR(best.chi(static_cast<int>(s)), r.chi2, 0.01) << r.set;
    EXPECT_NEAR(run.value(std::string(r.set) + "::dwN") / r.dwN, 1.0, 2e-3) << r.set;
    // The sign is open. A rise by 1e-6 is a move by sqrt(1e-6 546.8) = 0.023 standard errors.
    const std::string dwH = std::string(r.set) + "::dwH";
    EXPECT_NEAR(std::fabs(run.value(dwH)), r.dwH, 0.05 + 0.023 * run.error(dwH)) << r.set;
  }
}

TEST(RealDataMq, ChiSquareOfH2bRisesOnEverySideOfTheMinimum) {
  for (const double kex : {0.98 * kKex, kKex, 1.02 * kKex}) {
    for (const double pb : {0.98 * kPb, kPb, 1.02 * kPb}) {
      problem::Problem run(
          nearTheMinimum("GFIXED kex " + problem::text(kex) + "\nGFIXED pb " + problem::text(pb)));
      runQuietly(run);
      const double total = run.fit().best().total();
      if (kex == kKex && pb == kPb) {
        EXPECT_NEAR(total / kChi2, 1.0, 1e-6);
      } else {
        EXPECT_GT(total, (1.0 + 1e-5) * kChi2) << kex << ' ' << pb;
        EXPECT_LT(total, 1.01 * kChi2) << kex << ' ' << pb;
      }
    }
  }
}

}  // namespace
