// The command line and the input file.
// SPDX-License-Identifier: GPL-3.0-or-later
#include "Setup.h"

#include "Fatal.h"
#include "Text.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <limits>
#include <sstream>
#include <system_error>
#include <utility>

// ---- command line ----

void Setup::ProcCmdLine(int argc, const char* const* argv, Xmgr& xmgr) {
  const std::string invocation = argc > 0 ? argv[0] : "dravo";
  if (argc < 2) {
    std::cerr << "ERROR: No parameter is specified.\n";
    ShowHelp(EXIT_FAILURE, invocation);
  }
  for (int i = 1; i < argc; ++i) {
    const std::string option = argv[i];
    // A value is taken whatever it looks like, an option word included.
    const auto value = [&](const char* missing) -> std::string {
      if (i + 1 == argc) fatal(missing);
      return argv[++i];
    };
    if (option == "-h") {
      ShowHelp(EXIT_SUCCESS, invocation);
    } else if (option == "-i") {
      input_file_ = value("ERROR: No input file specified\n");
    } else if (option == "-o") {
      output_file_ = value("ERROR: No output file specified\n");
    } else if (option == "-prec") {
      precision_ = toInt(value("ERROR: No precision value specified\n"));
    } else if (!setFlag(option, xmgr)) {
      std::cerr << "ERROR: Parameter '" << option << "' not understood.\n";
      ShowHelp(EXIT_FAILURE, invocation);
    }
  }
  if (output_file_.empty()) fatal("ERROR: No output file is specified.\n");
}

namespace {

struct Flag {
  const char* word;
  int verbosity;       ///< 0: leave as it is
  bool plots;          ///< switch plots on
  bool default_files;  ///< dravo.in and dravo.out
};

// clang-format off
constexpr Flag kFlags[] = {
    // word    verbosity plots  default files
    {"-v",     1,        false, false},
    {"-vv",    2,        false, false},
    {"-xmgr",  0,        true,  false},
    {"-d",     0,        false, true},
    {"-dv",    1,        false, true},
    {"-vd",    1,        false, true},
    {"-dx",    0,        true,  true},
    {"-xd",    0,        true,  true},
    {"-dvx",   1,        true,  true},
    {"-dxv",   1,        true,  true},
    {"-vdx",   1,        true,  true},
    {"-vxd",   1,        true,  true},
    {"-xdv",   1,        true,  true},
    {"-xvd",   1,        true,  true},
    {"-vx",    1,        true,  false},
    {"-xv",    1,        true,  false},
};
// clang-format on

}  // namespace

bool Setup::setFlag(const std::string& option, Xmgr& xmgr) {
  if (option == "-noerr") {
    xmgr.SetError(false);
    return true;
  }
  for (const Flag& flag : kFlags) {
    if (option != flag.word) continue;
    if (flag.verbosity > 0) verbosity_ = flag.verbosity;
    if (flag.plots) xmgr.SetXmgr(true);
    if (flag.default_files) setDefaultFiles();
    return true;
  }
  return false;
}

void Setup::setDefaultFiles() {
  input_file_ = "dravo.in";
  output_file_ = "dravo.out";
}

void Setup::ShowHelp(int status, const std::string& invocation) {
  // -prec and the combined options are accepted although the text does not list them.
  std::cerr << "DRAVO fitting program usage:\t" << invocation
            << " {parameters}\n\n"
               "Valid parameters:\n"
               "  -i INPUT FILE\n"
               "  -o OUTPUT FILE\n"
               "  -d INPUT FILE = dravo.in, OUTPUT FILE = dravo.out\n"
               "  -v       Shows verbose messages\n"
               "  -vv      Store the result of each method\n"
               "  -xmgr    Outputs Grace (XMGR) files\n"
               "  -noerr   Experimental error is set to 1.0\n"
               "  -h       Displays this help message\n";
  endRun(status);
}

// ---- lines of the input file ----

/// One row of the keyword table.
struct Setup::Keyword {
  /// Stands for "no limit of its own": the handler tests the count against the model's columns.
  static constexpr std::size_t kByModel = std::numeric_limits<std::size_t>::max();

  const char* word;
  const char* name;  ///< in messages
  std::size_t min_tokens;
  std::size_t max_tokens;  ///< keyword included
  bool needs_set;
  bool needs_function;
  bool needs_errors;  ///< of the data points
  void (Setup::*handler)(Receivers&);
};

// clang-format off
const Setup::Keyword Setup::kKeywords[] = {
    // word      in messages  tokens                needs: SET, FUNCTION, errors
    {"FUNCTION", "FUNCTION",  2, 2,                 false, false, false, &Setup::SetFUNCTION},
    {"METHOD",   "METHOD",    2, 6,                 false, false, false, &Setup::SetMETHOD},
    {"JACK1",    "JACK",      1, 1,                 false, false, false, &Setup::SetJACK1},
    {"JACK",     "JACK",      1, 1,                 false, false, false, &Setup::SetJACK},
    {"MONTE1",   "MONTE",     2, 2,                 false, false, true,  &Setup::SetMONTE1},
    {"MONTE",    "MONTE",     2, 2,                 false, false, true,  &Setup::SetMONTE},
    {"CALC",     "CALC",      1, Keyword::kByModel, false, true,  false, &Setup::SetCALC},
    {"PLOT",     "PLOT",      2, Keyword::kByModel, false, true,  false, &Setup::SetPLOT},
    {"PLOT2",    "PLOT2",     2, Keyword::kByModel, false, true,  false, &Setup::SetPLOT2},
    {"GPAR",     "GPAR",      4, 6,                 false, true,  false, &Setup::SetGPAR},
    {"GREST",    "GREST",     4, 6,                 false, true,  false, &Setup::SetGREST},
    {"GFIXED",   "GFIXED",    3, 3,                 false, true,  false, &Setup::SetGFIXED},
    {"SET",      "SET",       2, 2,                 false, true,  false, &Setup::SetSET},
    {"#SET",     "SET",       2, 2,                 false, true,  false, &Setup::SkipSET},
    {"PAR",      "PAR",       3, 6,                 true,  true,  false, &Setup::SetPAR},
    {"REST",     "REST",      4, 6,                 true,  true,  false, &Setup::SetREST},
    {"FIXED",    "FIXED",     3, 3,                 true,  true,  false, &Setup::SetFIXED},
    {"DATA",     "DATA",      1, Keyword::kByModel, true,  true,  false, &Setup::SetDATA},
};
// clang-format on

void Setup::ReadInputFile(Funclib& funclib, Method& method, ParDef& pardef, Calc& calc,
                          Xmgr& xmgr) {
  std::error_code ignored;
  std::ifstream file(input_file_);
  if (!file || std::filesystem::is_directory(input_file_, ignored)) {
    fatal("ERROR: Unable to open '" + input_file_ + "'\n");
  }
  Receivers to{funclib, method, pardef, calc, xmgr};
  while (std::getline(file, line_)) {
    ++line_number_;
    if (!line_.empty() && line_.back() == '\r') line_.pop_back();
    if (TokenizeText(line_) > 0) dispatch(to);
  }
  if (file.bad()) fatal("ERROR: Unable to read '" + input_file_ + "'\n");
}

void Setup::dispatch(Receivers& to) {
  const std::string& word = tokens_.front();
  if (word.front() == '@') {
    to.xmgr.add_XMGRcommand(line_);
    return;
  }
  for (const Keyword& keyword : kKeywords) {
    if (equalIgnoringCase(word, keyword.word)) {
      handle(keyword, to);
      return;
    }
  }
  if (word.front() == '#') return;
  ShowOffendingLine("ERROR: Keyword '" + word + "' not recognized.\n");
}

void Setup::handle(const Keyword& keyword, Receivers& to) {
  keyword_ = keyword.name;
  if (keyword.needs_set) {
    if (skip_set_) return;
    if (!set_seen_) ERROR_no_SET();
  }
  // Not fatal here: lines that do not use the model's columns or names go on without it.
  if (keyword.needs_function && !function_seen_) {
    std::cerr << "ERROR: No 'FUNCTION' specified.\n";
  }
  if (keyword.needs_errors && !to.xmgr.isError()) ERROR_no_MONTE_without_error();
  if (tokens() < keyword.min_tokens || tokens() > keyword.max_tokens) ERROR_wrong_parm_num();
  (this->*keyword.handler)(to);
}

namespace {

bool separatesFields(char c) { return c == ' ' || c == '\t' || c == ','; }

}  // namespace

int Setup::TokenizeText(const std::string& line) {
  std::size_t count = 0;
  const auto end = line.end();
  for (auto at = std::find_if_not(line.begin(), end, separatesFields); at != end;) {
    const auto after = std::find_if(at, end, separatesFields);
    if (count == tokens_.size()) tokens_.emplace_back();
    tokens_[count++].assign(at, after);  // into the memory of an earlier line's token
    at = std::find_if_not(after, end, separatesFields);
  }
  tokens_.resize(count);
  return static_cast<int>(count);
}

void Setup::resetMETHOD_ONEEX(Method& method) {
  method.Clear();
  for (const char* line : {"METHOD INIT", "METHOD ONEEX"}) {
    TokenizeText(line);
    method.Add(tokens_);
  }
}

// ---- keywords: the model, methods and error analyses ----

void Setup::SetFUNCTION(Receivers& to) {
  if (to.pardef.usesRules()) {
    ShowOffendingLine("ERROR: Keyword 'FUNCTION' cannot follow a parameter or 'DATA' of a set.\n");
  }
  to.funclib.Pick_Func(tokens_[1]);
  function_seen_ = true;
  dimX_ = static_cast<std::size_t>(to.funclib.Get_dimX());
  dimIndex_ = static_cast<std::size_t>(to.funclib.Get_dimIndex());
  to.pardef.setRule(to.funclib.Get_Rules());
  to.xmgr.header(to.funclib.XmgrHeader());
}

void Setup::SetMETHOD(Receivers& to) { to.method.Add(tokens_); }

void Setup::SetJACK1(Receivers& to) { to.calc.SetJack(1); }

void Setup::SetJACK(Receivers& to) { to.calc.SetJack(2); }

void Setup::SetMONTE1(Receivers& to) { to.calc.SetMonte(1, readMonteIterations()); }

void Setup::SetMONTE(Receivers& to) { to.calc.SetMonte(2, readMonteIterations()); }

int Setup::readMonteIterations() const {
  const int iterations = toInt(tokens_[1]);
  if (iterations < 2) ERROR_too_few_iter();
  return iterations;
}

// ---- keywords: sets, parameters, data ----

void Setup::SetSET(Receivers& to) {
  set_seen_ = true;
  skip_set_ = false;
  to.pardef.Add_Set(tokens_[1]);
}

void Setup::SkipSET(Receivers& /*to*/) { skip_set_ = true; }

/// The fields of a line that gives a parameter a search range.
struct Setup::Range {
  double low;
  double high;
  int points = 1;
  double spacing = 0.0;
  double initial = std::numeric_limits<double>::infinity();
};

namespace {

/// The grid spacing code that ends a points token: "10e" means 10 points, code 1.
int spacingCode(const std::string& points_token) {
  static const std::string kCodes = "egtEGT";
  const std::size_t found = kCodes.find(points_token.back());
  return found == std::string::npos ? 0 : static_cast<int>(found) + 1;
}

}  // namespace

Setup::Range Setup::readRange() const {
  Range range{toDouble(tokens_[2]), toDouble(tokens_[3])};
  if (range.low > range.high) ERROR_wrong_range();
  if (tokens() > 4) {
    range.points = toInt(tokens_[4]);
    range.spacing = spacingCode(tokens_[4]);
  }
  if (tokens() > 5) range.initial = toDouble(tokens_[5]);
  return range;
}

void Setup::SetPAR(Receivers& to) {
  const std::string& name = tokens_[1];
  if (tokens() > 3) {
    Range range = readRange();
    // Two points are the default of this keyword alone.
    if (tokens() == 4 && range.high > range.low) range.points = 2;
    requireModel();
    to.pardef.Add_PAR(name, range.low, range.high, range.points, range.spacing, range.initial);
    return;
  }
  requireModel();
  if (IsNumeric(tokens_[2])) {
    const double value = toDouble(tokens_[2]);
    to.pardef.Add_PAR(name, value, value, 1, 0.0, value);
  } else {
    to.pardef.Add_PAR(name, tokens_[2]);
  }
}

void Setup::SetREST(Receivers& to) {
  const Range range = readRange();
  requireModel();
  to.pardef.Add_REST(tokens_[1], range.low, range.high, range.points, range.spacing, range.initial);
}

void Setup::SetFIXED(Receivers& to) {
  requireModel();
  to.pardef.Add_FIXED(tokens_[1], toDouble(tokens_[2]));
}

void Setup::SetGPAR(Receivers& to) {
  const Range range = readRange();
  to.pardef.Add_GPAR(tokens_[1], range.low, range.high, range.points, range.spacing, range.initial);
}

void Setup::SetGREST(Receivers& to) {
  const Range range = readRange();
  to.pardef.Add_GREST(tokens_[1], range.low, range.high, range.points, range.spacing,
                      range.initial);
}

void Setup::SetGFIXED(Receivers& to) { to.pardef.Add_GFIXED(tokens_[1], toDouble(tokens_[2])); }

void Setup::SetDATA(Receivers& to) {
  requireModel();
  // The count is the same for models without labels, so there a line needs one more token, of
  // any content, to keep its error.
  const std::size_t k = tokens() > dimX_ ? tokens() - dimX_ : 0;
  if (k != 3 && k != 4) ERROR_wrong_parm_num();
  if (k == 3 && to.xmgr.isError()) {
    std::cerr << "WARNING: Assuming that no experimental error is specficed.\n";
    to.xmgr.SetError(false);
  }
  const std::size_t label_tokens = dimIndex_ != 0 ? 1 : 0;
  const std::size_t y_token = 1 + dimX_ + label_tokens;
  std::vector<double> x = GetDataX(1);
  std::vector<int> labels = readLabels(1 + dimX_);
  const double y = toDouble(tokens_[y_token]);
  const double dy = to.xmgr.isError() ? toDouble(tokens_[y_token + 1]) : 1.0;
  to.pardef.Add_DATA(std::move(x), std::move(labels), y, dy);
}

// ---- keywords: derived quantities and plots ----

void Setup::SetCALC(Receivers& to) {
  requireModel();
  if (tokens() != dimX_ + 4) ERROR_wrong_parm_num();
  // An index is read even for a model without labels, for which none is right.
  to.calc.Add(tokens_[1], tokens_[2], GetDataX(3), GetIndex(tokens_[dimX_ + 3]));
}

void Setup::SetPLOT(Receivers& to) {
  requireModel();
  if (tokens() > dimX_ + 6) ERROR_wrong_parm_num();
  Instr instruction;
  instruction.name = tokens_[1];
  instruction.x = {0.0};
  instruction.index = {0};
  if (tokens() > dimX_ + 2) {
    instruction.x = GetDataX(2);
    instruction.index = readLabels(dimX_ + 2);
  }
  if (tokens() > dimX_ + 5) {
    instruction.low = toDouble(tokens_[dimX_ + 3]);
    instruction.high = toDouble(tokens_[dimX_ + 4]);
    if (instruction.low > instruction.high) ERROR_wrong_range();
    instruction.points = toInt(tokens_[dimX_ + 5]);
  }
  to.xmgr.add_plot(std::move(instruction));
}

void Setup::SetPLOT2(Receivers& to) {
  requireModel();
  if (tokens() != dimX_ + 7) ERROR_wrong_parm_num();
  Instr instruction;
  instruction.name = tokens_[1];
  instruction.x = GetDataX(2);
  instruction.index = GetIndex(tokens_[dimX_ + 2]);
  instruction.factor = toDouble(tokens_[dimX_ + 3]);
  instruction.low = toDouble(tokens_[dimX_ + 4]);
  instruction.high = toDouble(tokens_[dimX_ + 5]);
  instruction.points = toInt(tokens_[dimX_ + 6]);
  to.xmgr.add_plot(std::move(instruction));
}

// ---- fields of a line ----

bool Setup::IsNumeric(const std::string& text) {
  std::istringstream stream(text);
  double number = 0.0;
  return static_cast<bool>(stream >> number);
}

std::vector<double> Setup::GetDataX(std::size_t first_token) const {
  std::vector<double> x(dimX_);
  for (std::size_t i = 0; i < dimX_; ++i) {
    const std::string& token = tokens_[first_token + i];
    x[i] = token == "*" ? 0.0 : toDouble(token);
  }
  return x;
}

std::vector<int> Setup::GetIndex(const std::string& token) const {
  if (token.size() != dimIndex_) ERROR_invalid_token();
  std::vector<int> labels;
  labels.reserve(token.size());
  for (const char c : token) labels.push_back(c >= '0' && c <= '9' ? c - '0' : 0);
  return labels;
}

std::vector<int> Setup::readLabels(std::size_t token) const {
  return dimIndex_ != 0 ? GetIndex(tokens_[token]) : std::vector<int>{0};
}

// ---- errors ----

void Setup::ShowOffendingLine(const std::string& message) const {
  fatal(message + "Line " + std::to_string(line_number_) + ": " + line_ + "\n");
}

void Setup::ERROR_wrong_parm_num() const {
  ShowOffendingLine("ERROR: The number of parameters for '" + keyword_ + "' is wrong.\n");
}

void Setup::ERROR_no_SET() const {
  ShowOffendingLine("ERROR: Keyword '" + keyword_ + "' cannot preceed the 'SET' keyword.\n");
}

void Setup::ERROR_wrong_range() const {
  ShowOffendingLine("ERROR: Keyword '" + keyword_ + "' has a wrong parameter range.\n");
}

void Setup::ERROR_invalid_token() const {
  ShowOffendingLine("ERROR: Index is not defined correctly.\n");
}

void Setup::ERROR_no_MONTE_without_error() {
  fatal(
      "ERROR: Unable to perform Monte Carlo error analysis without a measure of\n"
      " the uncertainty of each point.\n");
}

void Setup::ERROR_too_few_iter() {
  // Says "more than 2" although 2 is accepted; text and limit are both part of the interface.
  fatal("ERROR: Monte Carlo simulations require more than 2 iterations.\n");
}

void Setup::requireModel() const {
  if (!function_seen_) fatal("ERROR: No 'FUNCTION' specified.\n");
}
