// SPDX-License-Identifier: GPL-3.0-or-later
#include "Input.h"

#include "Files.h"
#include "Text.h"

namespace {

using Words = std::vector<std::string>;

class Reader {
 public:
  explicit Reader(const std::string& path) { input_.path = path; }

  Input read() {
    for (const std::string& line : linesOf(readFile(input_.path))) {
      ++number_;
      const Words tokens = words(line);
      if (!tokens.empty()) readLine(tokens);
    }
    if (input_.model == nullptr) fail(input_.path, "not an input file: it has no FUNCTION line");
    if (input_.sets.empty()) fail(input_.path, "not an input file: it has no SET line");
    return input_;
  }

 private:
  void readLine(const Words& t) {
    const auto is = [&t](const char* keyword) { return sameWord(t[0], keyword); };
    if (is("FUNCTION")) readFunction(t);
    if (is("CALC") && t.size() > 2) input_.calcs.push_back({t[1], t[2]});
    if (is("PLOT") || is("PLOT2")) readPlot(t);
    if (is("GPAR") || is("GREST") || is("GFIXED")) readDeclaration(t, input_.globals);
    if (is("SET") || is("#SET")) readSet(t);
    if (skipping_) return;
    if (is("PAR") || is("REST") || is("FIXED")) readDeclaration(t, currentSet().declarations);
    if (is("DATA")) readData(t);
  }

  void readFunction(const Words& t) {
    need(t, 2);
    input_.model = findModel(t[1]);
    if (input_.model == nullptr) failHere("there is no model '" + t[1] + "'");
  }

  void readSet(const Words& t) {
    need(t, 2);
    skipping_ = t[0][0] == '#';
    if (!skipping_) input_.sets.push_back({t[1], {}, {}});
  }

  /// PAR NAME GLOBAL, PAR NAME VALUE and FIXED NAME VALUE have three words, a range four and more.
  void readDeclaration(const Words& t, std::vector<Declaration>& list) {
    need(t, 3);
    using Kind = Declaration::Kind;
    Declaration declaration;
    declaration.name = t[1];
    const bool fixed = sameWord(t[0], "FIXED") || sameWord(t[0], "GFIXED");
    const bool restrained = sameWord(t[0], "REST") || sameWord(t[0], "GREST");
    if (fixed) declaration.kind = Kind::kFixed;
    if (restrained) declaration.kind = Kind::kRestrained;
    declaration.low = toNumber(t[2]);
    declaration.high = toNumber(t[t.size() > 3 ? 3 : 2]);
    char* end = nullptr;
    std::strtod(t[2].c_str(), &end);
    if (t.size() == 3 && !fixed && end == t[2].c_str()) {
      declaration.kind = Kind::kReference;
      declaration.global = t[2];
    }
    list.push_back(declaration);
  }

  void readData(const Words& t) {
    const Model& model = currentModel();
    const auto columns = static_cast<std::size_t>(model.columns);
    need(t, columns + 3);
    // A line that is short of a word has no error, and none has from there on.
    if (t.size() == columns + 3) input_.errors = false;
    Point point;
    for (std::size_t i = 1; i <= columns; ++i) point.x.push_back(toNumber(t[i]));
    std::size_t next = columns + 1;
    point.labels = model.labels > 0 ? t[next++] : "0";
    point.y = toNumber(t[next++]);
    if (input_.errors) point.error = toNumber(t[next]);
    currentSet().points.push_back(point);
  }

  void readPlot(const Words& t) {
    need(t, 2);
    const Model& model = currentModel();
    const auto columns = static_cast<std::size_t>(model.columns);
    const bool labelled = model.labels > 0 && t.size() > columns + 2;
    input_.plots.push_back({t[1], labelled ? t[columns + 2] : "0"});
  }

  const Model& currentModel() {
    if (input_.model == nullptr) failHere("FUNCTION must come first");
    return *input_.model;
  }

  InputSet& currentSet() {
    if (input_.sets.empty()) failHere("SET must come first");
    return input_.sets.back();
  }

  void need(const Words& t, std::size_t count) {
    if (t.size() < count) failHere("too few words");
  }

  [[noreturn]] void failHere(const std::string& text) {
    fail(input_.path + ":" + std::to_string(number_), text);
  }

  Input input_;
  int number_ = 0;
  bool skipping_ = false;
};

}  // namespace

Input readInput(const std::string& path) { return Reader(path).read(); }
