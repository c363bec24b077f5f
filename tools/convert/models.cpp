// What the writer must know of a model beside its registration: what its columns and labels mean,
// and where its parameters are searched when the user says nothing.
// SPDX-License-Identifier: GPL-3.0-or-later
#include "models.h"

#include "Text.h"  // equalIgnoringCase

#include <algorithm>
#include <numbers>

namespace {

// A grid where its points are few; random starts for three sites; Eyring rates change by powers of
// ten over their ranges, so these start from one place.
constexpr const char* kGrid = "GRID;ONEEX";
constexpr const char* kRandom = "RANDOM 30;ONEEX;MCMIN 20 0.1";
constexpr const char* kAround = "ONEEX;MCMIN 20 0.01";
constexpr const char* kPlain = "ONEEX";

// clang-format off
constexpr Layout kLayouts[] = {
    // model                  columns  labels methods
    {"CPMG_const",            "rtf",   "tf",  kPlain},
    {"CPMG_Meiboom",          "rtf",   "tf",  kGrid},
    {"CPMG_Torchia",          "rtf",   "tf",  kGrid},
    {"CPMG_Richards",         "rtf",   "tf",  kGrid},
    {"CPMG_Richards_p",       "rtf",   "tf",  kGrid},
    {"CPMG_Richards_k",       "rtf",   "tf",  kGrid},
    {"CPMG_TEMP2",            "rtf",   "tf",  kAround},
    {"CPMG_RDC",              "rtfc",  "tfc", kGrid},
    {"CPMG_Bind2",            "rtfl",  "tfl", kGrid},
    {"CPMG_Bind2c",           "rtfl",  "tfl", kGrid},
    {"CPMG_matrix3",          "rT-f",  "tf",  kRandom},
    {"CPMG_temp3",            "rt-f",  "tf",  kAround},
    {"CPMG_temp3linear",      "rt-f",  "tf",  kAround},
    {"CPMG_temp3folked",      "rt-f",  "tf",  kAround},
    {"CPMG_bind3a",           "rT-fl", "tfl", kRandom},
    {"CPMG_bind3b",           "rT-fl", "tfl", kRandom},
    {"CPMG_bind3c_1F2B",      "rT-fl", "tfl", kRandom},
    {"CPMG_bind3c_2F1B",      "rT-fl", "tfl", kRandom},
    {"MQCPMG_Richards",       "rTtfc", "tfc", kGrid},
    {"MQCPMG_Richards_p",     "rTtfc", "tfc", kGrid},
    {"MQCPMG_Richards_k",     "rTtfc", "tfc", kGrid},
    {"MQCPMG_Matrix2_p",      "rTtfc", "tfc", kGrid},
    {"MQCPMG_Matrix2_k",      "rTtfc", "tfc", kGrid},
    {"MQCPMG_Matrix3_p",      "rTtfc", "tfc", kRandom},
    {"MQCPMG_Matrix3_k",      "rTtfc", "tfc", kRandom},
    {"R1RHO_CONST",           "potf",  "tfx", kPlain},
    {"R1RHO_CONST_ON",        "potf",  "tfx", kPlain},
    {"R1RHO_CONST_OFF",       "optf",  "tfx", kPlain},
    {"R1RHO_LONDON",          "potf",  "tfx", kGrid},
    {"R1RHO_LONDON_ON",       "potf",  "tfx", kGrid},
    {"R1RHO_LONDON_OFF",      "optf",  "tfx", kGrid},
    {"R1RHO_KAY",             "potf",  "tfx", kGrid},
    {"R1RHO_KAY_ON",          "potf",  "tfx", kGrid},
    {"R1RHO_KAY_OFF",         "optf",  "tfx", kGrid},
    {"R1RHO_PALMER02",        "potf",  "tfx", kGrid},
    {"R1RHO_PALMER02_ON",     "potf",  "tfx", kGrid},
    {"R1RHO_PALMER02_OFF",    "optf",  "tfx", kGrid},
    {"R1RHO_PALMER05",        "potf",  "tfx", kGrid},
    {"R1RHO_PALMER05_ON",     "potf",  "tfx", kGrid},
    {"R1RHO_PALMER05_OFF",    "optf",  "tfx", kGrid},
};

// Rates in 1/s, shift differences in rad/s: 100 to 4000 is 0.3 to 13 ppm of 15N at 500 MHz. Values
// of 0 are avoided: there the numerical derivatives and those by dwH vanish. Of the Eyring models,
// in kcal/mol and kcal/(mol K), 16 and 0.003 is 51 1/s, 12 and -0.005 is 780 1/s at 298 K.
constexpr ParmDefault kDefaults[] = {
    // name    low    high   points  start    shared
    {"dw",    {100,   4000,  4,      800},    false},
    {"pdw",   {1e3,   1e6,   4,      2e4},    false},
    {"phi",   {1e3,   1e6,   4,      2e4},    false},
    {"dwN",   {100,   4000,  4,      800},    false},
    {"dwH",   {50,    2000,  2,      200},    false},
    {"dwab",  {-4000, 4000,  1,      800},    false},
    {"dwac",  {-4000, 4000,  1,      -1200},  false},
    {"dwfb1", {-4000, 4000,  1,      800},    false},
    {"dwfb2", {-4000, 4000,  1,      -1200},  false},
    {"dwfi",  {-4000, 4000,  1,      800},    false},
    {"dwfb",  {-4000, 4000,  1,      -1200},  false},
    {"dwf1f2",{-4000, 4000,  1,      800},    false},
    {"dwf1b", {-4000, 4000,  1,      -1200},  false},
    {"dwabN", {-4000, 4000,  1,      800},    false},
    {"dwabH", {-1000, 1000,  1,      200},    false},
    {"dwacN", {-4000, 4000,  1,      -1200},  false},
    {"dwacH", {-1000, 1000,  1,      -300},   false},
    {"dJ",    {-100,  100,   2,      20},     false},
    {"R1",    {0.5,   5,     1,      1.5},    false},
    {"kex",   {100,   4000,  4,      800},    true},
    {"papb",  {0.005, 0.2,   4,      0.03},   true},
    {"pb",    {0.006, 0.3,   4,      0.04},   true},
    {"pc",    {0.006, 0.3,   1,      0.03},   true},
    {"kex1",  {50,    4000,  1,      600},    true},
    {"kex2",  {50,    4000,  1,      1500},   true},
    {"kex3",  {1,     1000,  1,      10},     true},
    {"kab",   {5,     500,   4,      40},     true},
    {"kba",   {100,   4000,  4,      700},    true},
    {"kac",   {5,     500,   1,      50},     true},
    {"kca",   {100,   4000,  1,      1500},   true},
    {"kbc",   {1,     1000,  1,      10},     true},
    {"kfi",   {5,     500,   1,      40},     true},
    {"kif",   {100,   4000,  1,      700},    true},
    {"Bkon",  {5,     500,   4,      40},     true},
    {"Bkon1", {5,     500,   1,      40},     true},
    {"Bkon2", {5,     500,   1,      40},     true},
    {"koff",  {50,    4000,  4,      500},    true},
    {"koff1", {50,    4000,  1,      500},    true},
    {"koff2", {50,    4000,  1,      1000},   true},
    {"kon",   {1,     1000,  4,      50},     true},
    {"kon1",  {1,     1000,  1,      50},     true},
    {"kon2",  {1,     1000,  1,      50},     true},
    {"k12",   {1,     1000,  1,      100},    true},
    {"k21",   {1,     1000,  1,      100},    true},
    {"dHab",  {5,     30,    1,      16},     true},
    {"dHba",  {5,     30,    1,      12},     true},
    {"dHac",  {5,     30,    1,      16},     true},
    {"dHca",  {5,     30,    1,      12},     true},
    {"dHbc",  {5,     30,    1,      15},     true},
    {"dHcb",  {5,     30,    1,      13},     true},
    {"dSab",  {-0.05, 0.05,  1,      0.003},  true},
    {"dSba",  {-0.05, 0.05,  1,      -0.005}, true},
    {"dSac",  {-0.05, 0.05,  1,      0.004},  true},
    {"dSca",  {-0.05, 0.05,  1,      -0.004}, true},
    {"dSbc",  {-0.05, 0.05,  1,      0.002},  true},
    {"dScb",  {-0.05, 0.05,  1,      -0.002}, true},
};

// Off resonance the sign of dw counts, and the wrong one has minima of its own.
constexpr ParmDefault kSignedShift = {"dw", {-4000, 4000, 6, 800}, false};

// Frequencies at which 13C and 15N are referenced to the 1H of DSS: Markley et al., Pure Appl. Chem.
// 70, 117 (1998); the ratio of the magnetogyric constants differs from the fourth digit on.
constexpr Nucleus kNuclei[] = {{"1H", 1.0}, {"13C", 0.251449530}, {"15N", 0.101329118}};
// clang-format on

template <class Row>
const Row* findRow(std::span<const Row> rows, const char* Row::*name, const std::string& wanted) {
  const auto row = std::find_if(rows.begin(), rows.end(),
                                [&](const Row& r) { return equalIgnoringCase(r.*name, wanted); });
  return row == rows.end() ? nullptr : &*row;
}

}  // namespace

bool Layout::onResonance() const {
  const std::string name = model;
  return spinLock() && name.size() > 3 && name.compare(name.size() - 3, 3, "_ON") == 0;
}

bool Layout::countedPulses() const { return std::string(model).rfind("MQCPMG_Matrix", 0) == 0; }

bool Layout::needsTemperature() const {
  const std::string name = model;
  return name == "CPMG_TEMP2" || name.rfind("CPMG_temp3", 0) == 0;
}

std::span<const Layout> layouts() { return kLayouts; }

const Layout* findLayout(const std::string& model) {
  return findRow<Layout>(kLayouts, &Layout::model, model);
}

const ParmDefault* findDefault(const Layout& layout, const std::string& name) {
  const bool offsets = layout.spinLock() && !layout.onResonance();
  if (offsets && equalIgnoringCase(name, "dw")) return &kSignedShift;
  return findRow<ParmDefault>(kDefaults, &ParmDefault::name, name);
}

std::span<const Nucleus> nuclei() { return kNuclei; }

double radPerPpm(const Nucleus& nucleus, double field_mhz) {
  return 2.0 * std::numbers::pi * field_mhz * nucleus.ratio;
}
