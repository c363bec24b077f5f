// The program: reads finished runs, writes a page, figures and tables.
// SPDX-License-Identifier: GPL-3.0-or-later
#include "Chart.h"
#include "Compare.h"
#include "Files.h"
#include "Page.h"
#include "Remarks.h"
#include "Run.h"
#include "Tables.h"
#include "Text.h"

#include <gsl/gsl_errno.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cctype>
#include <filesystem>
#include <iostream>
#include <set>
#include <string>
#include <vector>

namespace {

struct Options {
  std::vector<std::string> reports, inputs, plots, names;
  std::string html, csv, json, svg, title;
  bool no_errors = false;
};

void define(CLI::App& app, Options& o) {
  app.add_option("REPORT", o.reports, "Reports of finished runs, as dravo -o wrote them")
      ->required();
  app.add_option(
         "-i,--input", o.inputs,
         "Input file of a run, one for each report in the same order; without it the report's "
         "name with .in, or the only .in file beside it")
      ->allow_extra_args(false);
  app.add_option("-p,--plots", o.plots,
                 "Directory of the plot files of a run, likewise; without it that of the report")
      ->allow_extra_args(false);
  app.add_option("-n,--name", o.names, "Name of a run, likewise; without it that of the report")
      ->allow_extra_args(false);
  app.add_option("-o,--html", o.html, "Write the page to this file (- for standard output)");
  app.add_option("--csv", o.csv, "Write one row for each run, set and parameter");
  app.add_option("--json", o.json, "Write the same with points, comparison and remarks");
  app.add_option("--svg", o.svg, "Write the figures into this directory");
  app.add_option("--title", o.title, "Title of the page");
  app.add_flag("--noerr", o.no_errors,
               "The runs were made with -noerr (seen from plot files without)");
  app.set_version_flag("--version", "dravo-report " DRAVO_VERSION);
  app.footer(
      "Without an option that names an output the page goes to REPORT.html of the first report.\n"
      "Several reports of the same data are compared: AIC, AICc, BIC and F test.\n"
      "Example: dravo-report -o page.html --csv table.csv d9.out");
}

/// Entry i of a list that is empty or has one for each report.
std::string entry(const std::vector<std::string>& list, std::size_t i) {
  return list.empty() ? "" : list[i];
}

void checkCount(const std::vector<std::string>& list, const Options& o, const char* option) {
  if (list.empty() || list.size() == o.reports.size()) return;
  fail(std::string(option) + " is given " + std::to_string(list.size()) + " times for " +
       std::to_string(o.reports.size()) + " reports: give it once for each, or not at all");
}

/// Names that differ: runs of the same name get their path, and a number if that is not enough.
void makeNamesUnique(std::vector<Run>& runs, const std::vector<std::string>& given) {
  const auto count = [&runs](const std::string& name) {
    return std::count_if(runs.begin(), runs.end(),
                         [&name](const Run& run) { return run.name == name; });
  };
  std::vector<std::string> names;
  for (const Run& run : runs) {
    const bool path = given.empty() && count(run.name) > 1;
    names.push_back(path ? std::filesystem::path(run.report.path).replace_extension("").string()
                         : run.name);
  }
  for (std::size_t r = 0; r < runs.size(); ++r) {
    const std::string plain = names[r];
    const auto end = names.begin() + static_cast<std::ptrdiff_t>(r);
    for (int number = 2; std::find(names.begin(), end, names[r]) != end; ++number) {
      names[r] = plain + "-" + std::to_string(number);
    }
  }
  for (std::size_t r = 0; r < runs.size(); ++r) runs[r].name = names[r];
}

std::string fileName(const std::string& text) {
  std::string name = text;
  for (char& c : name) {
    const bool plain =
        std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '.' || c == '-' || c == '_';
    if (!plain) c = '_';
  }
  return name;
}

void addFigure(Outputs& outputs, const std::string& directory, std::string name,
               const Figure& figure) {
  const auto path = [&directory, &name] {
    return (std::filesystem::path(directory) / (name + ".svg")).string();
  };
  const std::string plain = name;
  for (int number = 2; std::any_of(outputs.begin(), outputs.end(),
                                   [&path](const auto& output) { return output.first == path(); });
       ++number) {
    name = plain + "-" + std::to_string(number);
  }
  outputs.emplace_back(path(), standaloneSvg(figure));
}

/// SET.svg for each set, along-PARAMETER.svg and multiples.svg; with several runs each has its name
/// before.
void addFigures(Outputs& outputs, const std::string& directory, const std::vector<Run>& runs) {
  for (const Run& run : runs) {
    const std::string prefix = runs.size() > 1 ? fileName(run.name) + "-" : "";
    std::vector<Figure> small;
    std::vector<std::string> captions;
    for (const Set& set : run.sets) {
      const Figure figure = setFigure(run, set);
      addFigure(outputs, directory, prefix + fileName(figure.name), figure);
      small.push_back(smallFigure(run, set));
      captions.push_back(set.title);
    }
    for (const Figure& figure : alongFigures(run)) {
      addFigure(outputs, directory, prefix + fileName(figure.name), figure);
    }
    if (small.size() > 1) {
      addFigure(outputs, directory, prefix + "multiples", gridOf(small, captions));
    }
  }
}

std::string pageTitle(const Options& o, const std::vector<Run>& runs) {
  if (!o.title.empty()) return o.title;
  std::string title;
  for (const Run& run : runs) title += (title.empty() ? "" : ", ") + run.name;
  return title;
}

/// An output that is a file of a run would destroy what it was made from.
void checkOverwrite(const Outputs& outputs, const std::vector<Run>& runs) {
  for (const auto& output : outputs) {
    for (const Run& run : runs) {
      for (const std::string& path : run.files) {
        std::error_code error;
        if (std::filesystem::equivalent(output.first, path, error)) {
          fail(output.first, "is a file of the run");
        }
      }
    }
  }
}

/// Of two outputs in one place only one would be left.
void checkPlaces(const Outputs& outputs) {
  std::set<std::string> places;
  for (const auto& output : outputs) {
    const std::string& path = output.first;
    std::error_code error;  // the file need not exist
    const auto full = std::filesystem::weakly_canonical(std::filesystem::absolute(path), error);
    if (path == "/dev/null" || places.insert(error ? path : full.string()).second) continue;
    fail(path == "-" ? "standard output" : path, "is where two outputs would go");
  }
}

void makeReport(const Options& o) {
  checkCount(o.inputs, o, "--input");
  checkCount(o.plots, o, "--plots");
  checkCount(o.names, o, "--name");
  std::vector<Run> runs;
  for (std::size_t i = 0; i < o.reports.size(); ++i) {
    runs.push_back(loadRun(
        {o.reports[i], entry(o.inputs, i), entry(o.plots, i), entry(o.names, i), o.no_errors}));
  }
  makeNamesUnique(runs, o.names);
  const Comparisons comparisons = compareRuns(runs);
  const std::vector<Remark> remarks = makeRemarks(runs, comparisons);
  std::string html = o.html;
  if (html.empty() && o.csv.empty() && o.json.empty() && o.svg.empty()) {
    html = std::filesystem::path(o.reports[0]).replace_extension(".html").string();
  }
  Outputs outputs;
  if (!html.empty()) {
    outputs.emplace_back(html, makePage(pageTitle(o, runs), runs, comparisons, remarks));
  }
  if (!o.csv.empty()) outputs.emplace_back(o.csv, makeCsv(runs));
  if (!o.json.empty()) outputs.emplace_back(o.json, makeJson(runs, comparisons, remarks));
  if (!o.svg.empty()) addFigures(outputs, o.svg, runs);
  checkOverwrite(outputs, runs);
  checkPlaces(outputs);
  if (!o.svg.empty()) {
    std::error_code error;
    std::filesystem::create_directories(o.svg, error);
    if (error) fail(o.svg, error.message());
  }
  writeAll(outputs);
}

/// The exit status.
int run(int argc, char** argv) {
  CLI::App app{"Makes a page, figures and tables of finished runs of dravo.", "dravo-report"};
  Options options;
  define(app, options);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    const int status = app.exit(error);
    std::cout.flush();
    if (!std::cout) fail("standard output", "cannot be written");
    return status == 0 ? 0 : 1;
  }
  makeReport(options);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  gsl_set_error_handler_off();  // a tail that underflows is 0
  try {
    return run(argc, argv);
  } catch (const std::exception& error) {  // of the file system, or no memory
    fail(error.what());
  }
}
