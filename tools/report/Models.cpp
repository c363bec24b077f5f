// SPDX-License-Identifier: GPL-3.0-or-later
#include "Models.h"

#include "Text.h"

namespace {

constexpr Axes kCpmg = {R"(1/\xt\f{}\sCP\N (s\S-1\N))", R"(\qR\Q\s2\N\Seff\N (s\S-1\N))"};
constexpr Axes kR1rho = {R"(\xw\f{}\s1\N/(2\xp\f{}) (s\S-1\N))",
                         R"(\qR\Q\s1\xr\f{}\N\Seff\N (s\S-1\N))"};
constexpr Axes kR1rhoOffset = {R"(\xW\f{}/(2\xp\f{}) (Hz))",
                               R"(\qR\Q\s1\xr\f{}\N\Seff\N (s\S-1\N))"};
constexpr Axes kBuildUp = {"Delay (s)", R"(I(t) / I\s0)"};
constexpr Axes kCurve = {"x", "y"};

// clang-format off
constexpr ParameterRow kCPMGConst[] = {{"R20", "1/s", 0.01, 50}};
constexpr ParameterRow kCPMGMeiboom[] = {{"kex", "1/s", 0.1, 12000},
    {"pdw", "rad^2/s^2", 1e-30, 3.6e7}, {"R20", "1/s", 0.1, 50}};
constexpr ParameterRow kCPMGTorchia[] = {{"dw", "rad/s", 1, 12000}, {"kex", "1/s", 1, 12000},
    {"papb", "", 0.001, 0.113}, {"R20", "1/s", 0.1, 100}};
constexpr ParameterRow kCPMGRichards[] = {{"dw", "rad/s", 1, 12000}, {"kex", "1/s", 1, 12000},
    {"papb", "", 0.001, 0.249}, {"R20", "1/s", 0.1, 100}};
constexpr ParameterRow kCPMGRichardsP[] = {{"dw", "rad/s", 1, 12000}, {"kex", "1/s", 1, 12000},
    {"pb", "", 0.005, 0.49}, {"R20", "1/s", 0.1, 100}};
constexpr ParameterRow kCPMGRichardsK[] = {{"dw", "rad/s", 1, 12000}, {"kab", "1/s", 1, 12000},
    {"kba", "1/s", 1, 12000}, {"R20", "1/s", 0.1, 100}};
constexpr ParameterRow kCPMGRDC[] = {{"dw", "rad/s", 1, 12000}, {"dJ", "Hz", -200, 200},
    {"kex", "1/s", 1, 12000}, {"papb", "", 0.001, 0.249}, {"R20", "1/s", 0.1, 100}};
constexpr ParameterRow kCPMGTEMP2[] = {{"dw", "rad/s", 1, 12000}, {"dHab", "kcal/mol", -50, 50},
    {"dHba", "kcal/mol", -50, 50}, {"dSab", "kcal/(mol K)", -1, 1}, {"dSba", "kcal/(mol K)", -1, 1},
    {"R20", "1/s", 0.1, 100}};
constexpr ParameterRow kCPMGBind2[] = {{"dw", "rad/s", 1, 12000}, {"Bkon", "1/s", 1, 12000},
    {"koff", "1/s", 1, 12000}, {"R20", "1/s", 0.1, 100}};
constexpr ParameterRow kCPMGBind2c[] = {{"dw", "rad/s", 1, 12000}, {"kon", "1/(umol/l s)", 1, 1e11},
    {"koff", "1/s", 1, 12000}, {"A0", "mol/l", 1e-9, 0.01}, {"B0", "mol/l", 1e-9, 0.01},
    {"R20", "1/s", 0.1, 100}};
constexpr ParameterRow kCPMGMatrix3[] = {{"dwab", "rad/s", -12000, 12000},
    {"dwac", "rad/s", -12000, 12000}, {"kab", "1/s", 0, 12000}, {"kba", "1/s", 0, 12000},
    {"kbc", "1/s", 0, 12000}, {"kca", "1/s", 0, 12000}, {"kac", "1/s", 0, 12000},
    {"R20", "1/s", 0.1, 100}};
constexpr ParameterRow kCPMGTemp3[] = {{"dwab", "rad/s", -12000, 12000},
    {"dwac", "rad/s", -12000, 12000}, {"dHab", "kcal/mol", -50, 50}, {"dHba", "kcal/mol", -50, 50},
    {"dHbc", "kcal/mol", -50, 50}, {"dHcb", "kcal/mol", -50, 50}, {"dHca", "kcal/mol", -50, 50},
    {"dHac", "kcal/mol", -50, 50}, {"dSab", "kcal/(mol K)", -1, 1}, {"dSba", "kcal/(mol K)", -1, 1},
    {"dSbc", "kcal/(mol K)", -1, 1}, {"dScb", "kcal/(mol K)", -1, 1},
    {"dSca", "kcal/(mol K)", -1, 1}, {"dSac", "kcal/(mol K)", -1, 1}, {"R20", "1/s", 0.1, 100}};
constexpr ParameterRow kCPMGTemp3linear[] = {{"dwab", "rad/s", -12000, 12000},
    {"dwac", "rad/s", -12000, 12000}, {"dHab", "kcal/mol", -50, 50}, {"dHba", "kcal/mol", -50, 50},
    {"dHbc", "kcal/mol", -50, 50}, {"dHcb", "kcal/mol", -50, 50}, {"dSab", "kcal/(mol K)", -1, 1},
    {"dSba", "kcal/(mol K)", -1, 1}, {"dSbc", "kcal/(mol K)", -1, 1},
    {"dScb", "kcal/(mol K)", -1, 1}, {"R20", "1/s", 0.1, 100}};
constexpr ParameterRow kCPMGTemp3folked[] = {{"dwab", "rad/s", -12000, 12000},
    {"dwac", "rad/s", -12000, 12000}, {"dHab", "kcal/mol", -50, 50}, {"dHba", "kcal/mol", -50, 50},
    {"dHca", "kcal/mol", -50, 50}, {"dHac", "kcal/mol", -50, 50}, {"dSab", "kcal/(mol K)", -1, 1},
    {"dSba", "kcal/(mol K)", -1, 1}, {"dSca", "kcal/(mol K)", -1, 1},
    {"dSac", "kcal/(mol K)", -1, 1}, {"R20", "1/s", 0.1, 100}};
constexpr ParameterRow kCPMGBind3a[] = {{"dwfb1", "rad/s", -12000, 12000},
    {"dwfb2", "rad/s", -12000, 12000}, {"Bkon1", "1/s", 0, 12000}, {"koff1", "1/s", 0, 12000},
    {"Bkon2", "1/s", 0, 12000}, {"koff2", "1/s", 0, 12000}, {"k12", "1/s", 0, 12000},
    {"k21", "1/s", 0, 12000}, {"R20", "1/s", 0.1, 100}};
constexpr ParameterRow kCPMGBind3b[] = {{"dwfi", "rad/s", -12000, 12000},
    {"dwfb", "rad/s", -12000, 12000}, {"kfi", "1/s", 0, 12000}, {"kif", "1/s", 0, 12000},
    {"Bkon", "1/s", 0, 12000}, {"koff", "1/s", 0, 12000}, {"R20", "1/s", 0.1, 100}};
constexpr ParameterRow kCPMGBind3c1F2B[] = {{"dwfb1", "rad/s", -12000, 12000},
    {"dwfb2", "rad/s", -12000, 12000}, {"kon1", "1/(umol/l s)", 0, 10000},
    {"koff1", "1/s", 0, 12000}, {"kon2", "1/(umol/l s)", 0, 10000}, {"koff2", "1/s", 0, 12000},
    {"k12", "1/s", 0, 12000}, {"k21", "1/s", 0, 12000}, {"A0", "mol/l", 1e-9, 0.01},
    {"B0", "mol/l", 1e-9, 0.01}, {"R20", "1/s", 1, 100}};
constexpr ParameterRow kCPMGBind3c2F1B[] = {{"dwf1f2", "rad/s", -12000, 12000},
    {"dwf1b", "rad/s", -12000, 12000}, {"kon1", "1/(umol/l s)", 0, 10000},
    {"koff1", "1/s", 0, 12000}, {"kon2", "1/(umol/l s)", 0, 10000}, {"koff2", "1/s", 0, 12000},
    {"k12", "1/s", 0, 12000}, {"k21", "1/s", 0, 12000}, {"A0", "mol/l", 1e-9, 0.01},
    {"B0", "mol/l", 1e-9, 0.01}, {"R20", "1/s", 1, 100}};
constexpr ParameterRow kMQCPMGRichards[] = {{"dwN", "rad/s", -12000, 12000},
    {"dwH", "rad/s", -12000, 12000}, {"kex", "1/s", 1, 12000}, {"papb", "", 0.001, 0.249},
    {"R20", "1/s", 0.1, 100}};
constexpr ParameterRow kMQCPMGRichardsP[] = {{"dwN", "rad/s", -12000, 12000},
    {"dwH", "rad/s", -12000, 12000}, {"kex", "1/s", 1, 12000}, {"pb", "", 0.005, 0.249},
    {"R20", "1/s", 0.1, 100}};
constexpr ParameterRow kMQCPMGRichardsK[] = {{"dwN", "rad/s", -12000, 12000},
    {"dwH", "rad/s", -12000, 12000}, {"kab", "1/s", 1, 12000}, {"kba", "1/s", 1, 12000},
    {"R20", "1/s", 0.1, 100}};
constexpr ParameterRow kMQCPMGMatrix2P[] = {{"dwN", "rad/s", -12000, 12000},
    {"dwH", "rad/s", -12000, 12000}, {"kex", "1/s", 1, 12000}, {"pb", "", 0.005, 0.49},
    {"R20", "1/s", 0.1, 100}};
constexpr ParameterRow kMQCPMGMatrix3P[] = {{"dwabN", "rad/s", -12000, 12000},
    {"dwabH", "rad/s", -12000, 12000}, {"dwacN", "rad/s", -12000, 12000},
    {"dwacH", "rad/s", -12000, 12000}, {"pb", "", 0.005, 0.49}, {"pc", "", 0.005, 0.49},
    {"kex1", "1/s", 0, 12000}, {"kex2", "1/s", 0, 12000}, {"kex3", "1/s", 0, 12000},
    {"R20", "1/s", 0.1, 100}};
constexpr ParameterRow kMQCPMGMatrix3K[] = {{"dwabN", "rad/s", -12000, 12000},
    {"dwabH", "rad/s", -12000, 12000}, {"dwacN", "rad/s", -12000, 12000},
    {"dwacH", "rad/s", -12000, 12000}, {"kab", "1/s", 0, 12000}, {"kba", "1/s", 0, 12000},
    {"kac", "1/s", 0, 12000}, {"kca", "1/s", 0, 12000}, {"kbc", "1/s", 0, 12000},
    {"R20", "1/s", 0.1, 100}};
constexpr ParameterRow kR1RHOCONST[] = {{"R20", "1/s", 0.01, 100}, {"R1", "1/s", 0.01, 100}};
constexpr ParameterRow kR1RHOCONSTON[] = {{"R20", "1/s", 0.01, 100}};
constexpr ParameterRow kR1RHOLONDON[] = {{"phi", "rad^2/s^2", 1e-5, 1e8}, {"kex", "1/s", 1, 80000},
    {"R20", "1/s", 0.1, 100}, {"R1", "1/s", 0.01, 100}};
constexpr ParameterRow kR1RHOLONDONON[] = {{"phi", "rad^2/s^2", 1e-5, 1e9},
    {"kex", "1/s", 1, 80000}, {"R20", "1/s", 0.01, 100}};
constexpr ParameterRow kR1RHOKAY[] = {{"dw", "rad/s", -12000, 12000}, {"kex", "1/s", 1, 80000},
    {"pB", "", 0.001, 0.1}, {"R20", "1/s", 0.1, 100}, {"R1", "1/s", 0.01, 100}};
constexpr ParameterRow kR1RHOKAYON[] = {{"dw", "rad/s", -12000, 12000}, {"kex", "1/s", 1, 80000},
    {"pB", "", 0.001, 0.1}, {"R20", "1/s", 0.1, 100}};
constexpr ParameterRow kR1RHOPALMER02[] = {{"dw", "rad/s", -12000, 12000}, {"kex", "1/s", 1, 80000},
    {"pB", "", 0.001, 0.49}, {"R20", "1/s", 0.1, 100}, {"R1", "1/s", 0.01, 100}};
constexpr ParameterRow kR1RHOPALMER02ON[] = {{"dw", "rad/s", -12000, 12000},
    {"kex", "1/s", 1, 80000}, {"pB", "", 0.001, 0.49}, {"R20", "1/s", 0.1, 100}};
constexpr ParameterRow kR1RHOPALMER05[] = {{"dw", "rad/s", -12000, 12000}, {"kex", "1/s", 1, 80000},
    {"pB", "", 0.001, 0.499}, {"R20", "1/s", 0.1, 100}, {"R1", "1/s", 0.01, 100}};
constexpr ParameterRow kR1RHOPALMER05ON[] = {{"dw", "rad/s", -12000, 12000},
    {"kex", "1/s", 1, 80000}, {"pB", "", 0.001, 0.499}, {"R20", "1/s", 0.1, 100}};
constexpr ParameterRow kCLEANEX[] = {{"k", "1/s", 0, 2500}, {"R1a", "1/s", 0, 100},
    {"R1b", "1/s", 0, 100}};
constexpr ParameterRow kSig[] = {{"bd", "of y", -10, 0}, {"bn", "of y", 0, 10}, {"tm", "K", 1, 500},
    {"dh", "cal/mol", 1, 500000}};
constexpr ParameterRow kSigBoltz[] = {{"a1", "of y", 0, 1}, {"a2", "of y", -1, 0},
    {"tm", "of x", 1, 300}, {"m", "of x", 1, 100}};
constexpr ParameterRow kConstant[] = {{"c", "of y", -1e9, 1e9}};
constexpr ParameterRow kLinear[] = {{"a", "of y", -1e9, 1e9}, {"b", "y/x", -1e6, 1e6}};
constexpr ParameterRow kExp2[] = {{"a", "of y", -1e9, 1e9}, {"b", "1/x", -1e6, 1e6}};
constexpr ParameterRow kExp3[] = {{"a", "of y", -1e9, 1e9}, {"b", "1/x", -1e6, 1e6},
    {"c", "of y", -1e9, 1e9}};
constexpr ParameterRow kGauss[] = {{"a", "of y", -1e9, 1e9}, {"b", "1/x^2", -1e9, 1e9},
    {"c", "of y", -1e9, 1e9}};
constexpr ParameterRow kGauss2[] = {{"a", "of y", 0, 0.5}, {"b", "1/x^2", -1e6, 1e6},
    {"c", "of y", 0.5, 1.0}, {"d", "1/x^2", -1e6, 1e6}};
constexpr ParameterRow kTwoExp3[] = {{"a", "of y", -1e9, 1e9}, {"b", "1/x", -1e6, 1e6},
    {"e", "1/x", -1e6, 1e6}, {"f", "of y", -1e9, 1e9}};
constexpr ParameterRow kSIRE[] = {{"a", "of y", -1.5, 1.5}, {"b", "1/x", -1e6, 1e6}};

constexpr Model kModels[] = {
    {"CPMG_const", &kCpmg, kCPMGConst, 3, 2, Exchange::kNone},
    {"CPMG_Meiboom", &kCpmg, kCPMGMeiboom, 3, 2, Exchange::kFast},
    {"CPMG_Torchia", &kCpmg, kCPMGTorchia, 3, 2, Exchange::kOther},
    {"CPMG_Richards", &kCpmg, kCPMGRichards, 3, 2, Exchange::kTwoSites},
    {"CPMG_Richards_p", &kCpmg, kCPMGRichardsP, 3, 2, Exchange::kTwoSites},
    {"CPMG_Richards_k", &kCpmg, kCPMGRichardsK, 3, 2, Exchange::kTwoSites},
    {"CPMG_Richards_probes", &kCpmg, kCPMGRichards, 4, 3, Exchange::kTwoSites},
    {"CPMG_RDC", &kCpmg, kCPMGRDC, 4, 3, Exchange::kTwoSites},
    {"CPMG_TEMP2", &kCpmg, kCPMGTEMP2, 3, 2, Exchange::kTwoSites},
    {"CPMG_Bind2", &kCpmg, kCPMGBind2, 4, 3, Exchange::kTwoSites},
    {"CPMG_Bind2c", &kCpmg, kCPMGBind2c, 4, 3, Exchange::kTwoSites},
    {"CPMG_matrix3", &kCpmg, kCPMGMatrix3, 4, 2, Exchange::kThreeSites},
    {"CPMG_temp3", &kCpmg, kCPMGTemp3, 4, 2, Exchange::kThreeSites},
    {"CPMG_temp3linear", &kCpmg, kCPMGTemp3linear, 4, 2, Exchange::kThreeSites},
    {"CPMG_temp3folked", &kCpmg, kCPMGTemp3folked, 4, 2, Exchange::kThreeSites},
    {"CPMG_bind3a", &kCpmg, kCPMGBind3a, 5, 3, Exchange::kThreeSites},
    {"CPMG_bind3b", &kCpmg, kCPMGBind3b, 5, 3, Exchange::kThreeSites},
    {"CPMG_bind3c_1F2B", &kCpmg, kCPMGBind3c1F2B, 5, 3, Exchange::kThreeSites},
    {"CPMG_bind3c_2F1B", &kCpmg, kCPMGBind3c2F1B, 5, 3, Exchange::kThreeSites},
    {"MQCPMG_Richards", &kCpmg, kMQCPMGRichards, 5, 3, Exchange::kTwoSites},
    {"MQCPMG_Richards_p", &kCpmg, kMQCPMGRichardsP, 5, 3, Exchange::kTwoSites},
    {"MQCPMG_Richards_k", &kCpmg, kMQCPMGRichardsK, 5, 3, Exchange::kTwoSites},
    {"MQCPMG_Matrix2_p", &kCpmg, kMQCPMGMatrix2P, 5, 3, Exchange::kTwoSites},
    {"MQCPMG_Matrix2_k", &kCpmg, kMQCPMGRichardsK, 5, 3, Exchange::kTwoSites},
    {"MQCPMG_Matrix3_p", &kCpmg, kMQCPMGMatrix3P, 5, 3, Exchange::kThreeSites},
    {"MQCPMG_Matrix3_k", &kCpmg, kMQCPMGMatrix3K, 5, 3, Exchange::kThreeSites},
    {"R1RHO_CONST", &kR1rho, kR1RHOCONST, 4, 3, Exchange::kNone},
    {"R1RHO_CONST_OFF", &kR1rhoOffset, kR1RHOCONST, 4, 3, Exchange::kNone, true},
    {"R1RHO_CONST_ON", &kR1rho, kR1RHOCONSTON, 4, 3, Exchange::kNone},
    {"R1RHO_LONDON", &kR1rho, kR1RHOLONDON, 4, 3, Exchange::kFast},
    {"R1RHO_LONDON_OFF", &kR1rhoOffset, kR1RHOLONDON, 4, 3, Exchange::kFast, true},
    {"R1RHO_LONDON_ON", &kR1rho, kR1RHOLONDONON, 4, 3, Exchange::kFast},
    {"R1RHO_KAY", &kR1rho, kR1RHOKAY, 4, 3, Exchange::kTwoSites},
    {"R1RHO_KAY_OFF", &kR1rhoOffset, kR1RHOKAY, 4, 3, Exchange::kTwoSites, true},
    {"R1RHO_KAY_ON", &kR1rho, kR1RHOKAYON, 4, 3, Exchange::kTwoSites},
    {"R1RHO_PALMER02", &kR1rho, kR1RHOPALMER02, 4, 3, Exchange::kTwoSites},
    {"R1RHO_PALMER02_OFF", &kR1rhoOffset, kR1RHOPALMER02, 4, 3, Exchange::kTwoSites, true},
    {"R1RHO_PALMER02_ON", &kR1rho, kR1RHOPALMER02ON, 4, 3, Exchange::kTwoSites},
    {"R1RHO_PALMER05", &kR1rho, kR1RHOPALMER05, 4, 3, Exchange::kTwoSites},
    {"R1RHO_PALMER05_OFF", &kR1rhoOffset, kR1RHOPALMER05, 4, 3, Exchange::kTwoSites, true},
    {"R1RHO_PALMER05_ON", &kR1rho, kR1RHOPALMER05ON, 4, 3, Exchange::kTwoSites},
    {"CLEANEX", &kBuildUp, kCLEANEX, 2, 1, Exchange::kOther},
    {"Sig", &kCurve, kSig, 1, 0, Exchange::kOther},
    {"Sig_boltz", &kCurve, kSigBoltz, 1, 0, Exchange::kOther},
    {"Constant", &kCurve, kConstant, 1, 0, Exchange::kOther},
    {"Linear", &kCurve, kLinear, 1, 0, Exchange::kOther},
    {"Exp2", &kCurve, kExp2, 1, 0, Exchange::kOther},
    {"Exp3", &kCurve, kExp3, 1, 0, Exchange::kOther},
    {"Gauss", &kCurve, kGauss, 1, 0, Exchange::kOther},
    {"Gauss2", &kCurve, kGauss2, 1, 0, Exchange::kOther},
    {"2Exp3", &kCurve, kTwoExp3, 1, 0, Exchange::kOther},
    {"SIRE", &kCurve, kSIRE, 1, 0, Exchange::kOther},
};
// clang-format on

}  // namespace

std::span<const Model> allModels() { return kModels; }

const Model* findModel(std::string_view name) {
  for (const Model& model : kModels) {
    if (sameWord(model.name, name)) return &model;
  }
  return nullptr;
}

const ParameterRow* findParameter(const Model& model, std::string_view full_name) {
  const std::string_view base = full_name.substr(0, full_name.find('_'));
  for (const ParameterRow& row : model.parameters) {
    if (sameWord(row.name, base)) return &row;
  }
  return nullptr;
}

const char* quantityUnit(std::string_view type) { return sameWord(type, "REX") ? "1/s" : ""; }

bool isLimitOf(const Model& simple, const Model& rich) {
  if (simple.exchange == Exchange::kOther || rich.exchange == Exchange::kOther) {
    // An interpolation formula has no exchange as a limit, and is one of nothing.
    return simple.exchange == Exchange::kNone && simple.axes == rich.axes;
  }
  return simple.exchange < rich.exchange;
}
