// SPDX-License-Identifier: GPL-3.0-or-later
#include "Plot.h"

#include "Files.h"
#include "Text.h"

#include <optional>

namespace {

bool beginsWith(const std::string& line, const std::string& head) {
  return sameWord(std::string_view(line).substr(0, head.size()), head);
}

/// What stands between the first and the last double quote.
std::string quoted(const std::string& line) {
  const std::size_t first = line.find('"');
  const std::size_t last = line.rfind('"');
  return first < last ? line.substr(first + 1, last - first - 1) : "";
}

class Reader {
 public:
  Plot read(const std::string& path) {
    for (const std::string& line : linesOf(readFile(path))) {
      if (line.empty()) continue;
      if (line[0] == '@') {
        readCommand(line);
      } else if (line[0] == '&') {
        target_ = Target::kNone;
      } else if (line[0] == '\t') {
        readPoint(line);
      }
    }
    return plot_;
  }

 private:
  enum class Target { kNone, kPoints, kCurve };

  void readCommand(const std::string& line) {
    if (beginsWith(line, "@ XAXIS LABEL \"")) plot_.x_label = quoted(line);
    if (beginsWith(line, "@ YAXIS LABEL \"")) plot_.y_label = quoted(line);
    if (line.find(" ERRORBAR LINESTYLE 0") != std::string::npos) plot_.bars = false;
    if (beginsWith(line, "@ legend string ")) readLegend(quoted(line));
    if (line == "@ TYPE xydy") target_ = Target::kPoints;
    if (line == "@ TYPE xy") target_ = Target::kCurve;
    if (beginsWith(line, "@ STRING DEF \"")) readItem(quoted(line));
  }

  /// Legends that an @ line of the input sets come before those of the program, and have no curve.
  void readLegend(const std::string& text) {
    if (beginsWith(text, "Data ")) plot_.series.push_back({text.substr(5), {}, {}});
  }

  void readPoint(const std::string& line) {
    const std::vector<std::string> fields = tabFields(line);
    if (plot_.series.empty() || target_ == Target::kNone) return;
    PlotSeries& series = plot_.series.back();
    if (target_ == Target::kPoints && fields.size() == 4) {
      series.points.push_back({toNumber(fields[1]), toNumber(fields[2]), toNumber(fields[3])});
    } else if (target_ == Target::kCurve && fields.size() == 3) {
      series.curve.push_back({toNumber(fields[1]), toNumber(fields[2])});
    }
  }

  /// The box of the fit comes first: a heading, the parameters, X2/DoF.
  void readItem(const std::string& text) {
    if (beginsWith(text, "Parameter   Fit")) {
      in_box_ = true;
    } else if (beginsWith(text, "X2/DoF")) {
      in_box_ = false;
    } else if (in_box_) {
      plot_.box.push_back(text);
    }
  }

  Plot plot_;
  Target target_ = Target::kNone;
  bool in_box_ = false;
};

/// The letter that Grace's Symbol font has in this place.
std::optional<std::string> greek(char c) {
  static const std::string kLetters = "abgdezhqiklmnxoprVstufcywDFGLPQSWXY";
  static const std::array<const char*, 35> kGreek = {
      "α", "β", "γ", "δ", "ε", "ζ", "η", "θ", "ι", "κ", "λ", "μ", "ν", "ξ", "ο", "π", "ρ", "ς",
      "σ", "τ", "υ", "φ", "χ", "ψ", "ω", "Δ", "Φ", "Γ", "Λ", "Π", "Θ", "Σ", "Ω", "Ξ", "Ψ"};
  const std::size_t place = kLetters.find(c);
  if (place == std::string::npos) return std::nullopt;
  return kGreek[place];
}

}  // namespace

Plot readPlot(const std::string& path) { return Reader().read(path); }

std::vector<TextRun> graceText(const std::string& text) {
  std::vector<TextRun> runs;
  bool symbols = false;
  TextRun run;
  const auto close = [&runs, &run] {
    if (!run.text.empty()) runs.push_back(run);
    run.text.clear();
  };
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '\\' || i + 1 == text.size()) {
      const auto letter = symbols ? greek(text[i]) : std::nullopt;
      run.text += letter ? *letter : std::string(1, text[i]);
      continue;
    }
    close();
    switch (text[++i]) {
      case 's': run.level -= 1; break;
      case 'S': run.level += 1; break;
      case 'N': run.level = 0; break;
      case 'q': run.slanted = true; break;
      case 'Q': run.slanted = false; break;
      case 'x': symbols = true; break;
      case 'f':  // \f{Symbol}, \f{}, \f{Times-Roman}, \f0
        symbols = text.compare(i + 1, 8, "{Symbol}") == 0;
        if (i + 1 < text.size() && text[i + 1] == '{') {
          i = std::min(text.find('}', i), text.size());
        } else {
          ++i;
        }
        break;
      case '\\': run.text += '\\'; break;
      default: break;  // colours, sizes and kerning do not matter here
    }
  }
  close();
  return runs;
}

std::string gracePlain(const std::string& text) {
  std::string plain;
  int level = 0;
  for (const TextRun& run : graceText(text)) {
    if (run.level != level && run.level != 0) plain += run.level < 0 ? "_" : "^";
    level = run.level;
    plain += run.text;
  }
  return plain;
}
