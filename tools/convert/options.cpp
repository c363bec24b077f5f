// The command line.
// SPDX-License-Identifier: GPL-3.0-or-later
#include "options.h"

#include "messages.h"

#include <CLI/CLI.hpp>

#include <cstdlib>

namespace {

void addFileOptions(CLI::App& app, Options& options) {
  struct Row {
    const char* option;
    const char* key;
    const char* help;
  };
  // clang-format off
  constexpr Row kRows[] = {
      {"--format",        "format",        "auto, table, nmrpipe or sparky"},
      {"--columns",       "columns",       "Columns of plain tables: name,ncyc,nu,power,offset,intensity,rate,error,field,temperature,concentration,time,code; - for one to pass over"},
      {"--ncyc",          "ncyc",          "Pulse pairs of each plane or file, 0 for references: a list with commas or @FILE"},
      {"--nu",            "nu",            "The same as CPMG frequencies in Hz"},
      {"--amplitude",     "amplitude",     "height or volume, of NMRPipe and Sparky peaks"},
      {"-T,--time",       "time",          "Constant time in s"},
      {"--field",         "field",         "Field in MHz of 1H"},
      {"--temperature",   "temperature",   "In K, or as 25C; 298.15 without it"},
      {"--concentration", "concentration", "Of the ligand"},
      {"--code",          "code",          "Coherence or pulse train, as the model numbers them"},
      {"--noise",         "noise",         "Standard deviation of an intensity (or of a rate)"},
  };
  // clang-format on
  for (const Row& row : kRows) {
    app.add_option_function<std::string>(
           row.option,
           [&options, key = std::string(row.key)](const std::string& text) {
             options.defaults[key] = text;
           },
           row.help)
        ->group("Of the files; each also as :KEY=VALUE behind a file");
  }
}

void addOptions(CLI::App& app, Options& options) {
  app.add_option("FILE", options.files, "Tables: FILE[:KEY=VALUE]..., a directory or a pattern");
  app.add_option("-o,--output", options.output, "Input file to write; standard output without it");
  app.add_flag("--strict", options.strict, "Write nothing when any line is rejected");
  addFileOptions(app, options);

  const std::string rates = "Rates and errors";
  app.add_option("--I0", options.i0, "Intensity without the constant time; else from references")
      ->group(rates);
  app.add_option("--errors", options.errors, "file, noise, repeats or auto")->group(rates);
  app.add_option("--floor", options.floor, "Least error of a rate: in 1/s, or as 2%")->group(rates);
  app.add_flag("--I0-error", options.i0_error, "Errors of rates with that of I0")->group(rates);

  const std::string fit = "Fit";
  app.add_option("--model", options.model, "FUNCTION of the input; CPMG_Richards without it")
      ->group(fit);
  app.add_flag("--list-models", options.list_models, "Show the models and end")->group(fit);
  app.add_option("--share", options.shared, "Parameters with one value for all residues, or all")
      ->delimiter(',')
      ->allow_extra_args(false)
      ->group(fit);
  app.add_option("--range", options.ranges, "NAME=LOW,HIGH[,POINTS[,START]]")
      ->allow_extra_args(false)
      ->group(fit);
  app.add_option("--fix", options.fixed, "NAME=VALUE")->allow_extra_args(false)->group(fit);
  app.add_option("--method", options.methods, "METHOD line, as 'MCMIN 20 0.1'; may repeat")
      ->allow_extra_args(false)
      ->group(fit);
  app.add_option("--residues", options.residues, "Only these")
      ->delimiter(',')
      ->allow_extra_args(false)
      ->group(fit);
  app.add_option("--without", options.without, "All but these")
      ->delimiter(',')
      ->allow_extra_args(false)
      ->group(fit);
  app.add_option("--shifts", options.shifts, "Table of residue and shift difference in ppm")
      ->group(fit);
  app.add_option("--nucleus", options.nucleus, "1H, 13C or 15N, of --shifts")->group(fit);
  app.add_option("--reference-field", options.reference_field,
                 "Field in MHz with factor 1; the lowest without it")
      ->group(fit);
}

}  // namespace

Options readOptions(int argc, const char* const* argv) {
  CLI::App app("Writes an input file of dravo from tables of intensities or rates.",
               "dravo-convert");
  Options options;
  addOptions(app, options);
  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForHelp& help) {
    const int status = app.exit(help);
    finishOutput();
    std::exit(status);
  } catch (const CLI::ParseError& error) {
    die(error.what());
  }
  return options;
}
