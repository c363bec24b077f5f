// The command line and the input file.
// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "Calc.h"
#include "FuncLib.h"
#include "Method.h"
#include "ParDef.h"
#include "Xmgr.h"

#include <string>
#include <vector>

/// Options of a run, and the reader that hands each line of the input file to its owner.
///
/// Every error of the user ends the run with a message and exit status 1.
class Setup {
 public:
  /// Reads the options of main's arguments. -h ends the run with status 0.
  void ProcCmdLine(int argc, const char* const* argv, Xmgr& xmgr);
  /// Writes the usage text to standard error and ends the run with `status`.
  [[noreturn]] static void ShowHelp(int status, const std::string& invocation);

  /// Reads the whole input file that the command line named.
  void ReadInputFile(Funclib& funclib, Method& method, ParDef& pardef, Calc& calc, Xmgr& xmgr);
  /// Makes `method` the list INIT, ONEEX, as if these were input lines.
  void resetMETHOD_ONEEX(Method& method);

  /// 0 quiet, 1 progress on the console, 2 also the result of each method on disk.
  [[nodiscard]] int IsVerb() const { return verbosity_; }
  /// Digits of the parameter values in the report.
  [[nodiscard]] int GetPrec() const { return precision_; }
  [[nodiscard]] const std::string& GetInputFile() const { return input_file_; }
  [[nodiscard]] const std::string& GetOutputFile() const { return output_file_; }

  /// Splits a line at tabs, commas and blanks into the token list; returns the number of tokens.
  int TokenizeText(const std::string& line);
  /// True when the text begins with a floating-point number.
  [[nodiscard]] static bool IsNumeric(const std::string& text);

 private:
  /// The objects that own the input's keywords, for the time of reading.
  struct Receivers {
    Funclib& funclib;
    Method& method;
    ParDef& pardef;
    Calc& calc;
    Xmgr& xmgr;
  };
  struct Keyword;
  struct Range;
  static const Keyword kKeywords[];

  // Command line.
  void setDefaultFiles();
  bool setFlag(const std::string& option, Xmgr& xmgr);

  // Lines.
  void dispatch(Receivers& to);
  void handle(const Keyword& keyword, Receivers& to);

  // Keywords. Each finds its line in the token list.
  void SetFUNCTION(Receivers& to);
  void SetSET(Receivers& to);
  void SkipSET(Receivers& to);
  void SetPAR(Receivers& to);
  void SetREST(Receivers& to);
  void SetFIXED(Receivers& to);
  void SetGPAR(Receivers& to);
  void SetGREST(Receivers& to);
  void SetGFIXED(Receivers& to);
  void SetDATA(Receivers& to);
  void SetMETHOD(Receivers& to);
  void SetJACK(Receivers& to);
  void SetJACK1(Receivers& to);
  void SetMONTE(Receivers& to);
  void SetMONTE1(Receivers& to);
  void SetCALC(Receivers& to);
  void SetPLOT(Receivers& to);
  void SetPLOT2(Receivers& to);

  // Fields of a line.
  [[nodiscard]] Range readRange() const;
  [[nodiscard]] int readMonteIterations() const;
  [[nodiscard]] std::vector<double> GetDataX(std::size_t first_token) const;
  [[nodiscard]] std::vector<int> GetIndex(const std::string& token) const;
  /// The labels given by `token`, or the single label 0 of a model without labels.
  [[nodiscard]] std::vector<int> readLabels(std::size_t token) const;
  [[nodiscard]] std::size_t tokens() const { return tokens_.size(); }

  // Errors.
  [[noreturn]] void ShowOffendingLine(const std::string& message) const;
  [[noreturn]] void ERROR_wrong_parm_num() const;
  [[noreturn]] void ERROR_no_SET() const;
  [[noreturn]] void ERROR_wrong_range() const;
  [[noreturn]] void ERROR_invalid_token() const;
  [[noreturn]] static void ERROR_no_MONTE_without_error();
  [[noreturn]] static void ERROR_too_few_iter();
  void requireModel() const;

  // Options.
  int verbosity_ = 0;
  int precision_ = 6;
  std::string input_file_;
  std::string output_file_;

  // The line at hand.
  int line_number_ = 0;
  std::string line_;
  std::vector<std::string> tokens_;
  std::string keyword_;  ///< as messages name it

  // What earlier lines have set.
  bool function_seen_ = false;
  bool set_seen_ = false;
  bool skip_set_ = false;
  std::size_t dimX_ = 0;
  std::size_t dimIndex_ = 0;
};
