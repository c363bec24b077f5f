// Fields, temperatures and concentrations as index digits and factors, points as data lines.
// SPDX-License-Identifier: GPL-3.0-or-later
#include "labels.h"

#include <algorithm>

namespace {

constexpr std::size_t kMostValues = 9;  // digits 1 to 9

void insertSorted(std::vector<double>& values, double value) {
  const auto place = std::lower_bound(values.begin(), values.end(), value);
  if (place == values.end() || *place != value) values.insert(place, value);
}

void checkCount(const std::vector<double>& values, const std::string& what) {
  if (values.size() > kMostValues) {
    die(std::to_string(values.size()) + " " + what + ": labels of one digit tell 9 apart");
  }
}

char digit(const std::vector<double>& values, double value) {
  const auto place = std::lower_bound(values.begin(), values.end(), value) - values.begin();
  return static_cast<char>('1' + place);
}

std::string numbered(const std::vector<double>& values, const std::string& unit) {
  std::string text;
  for (std::size_t i = 0; i < values.size(); ++i) {
    text += (i == 0 ? "" : ", ") + std::to_string(i + 1) + " is " + shortText(values[i]) + unit;
  }
  return text;
}

std::string codeName(int code, bool coherences) {
  if (coherences && code < 6) {
    constexpr const char* kCoherences[] = {"N_SQ", "H_SQ", "ZQ", "DQ", "N_MQ", "H_MQ"};
    return kCoherences[code];
  }
  return "code" + std::to_string(code);
}

}  // namespace

Labels::Labels(const std::vector<Residue>& residues, const Layout& layout, double reference_field)
    : layout_(layout), reference_field_(reference_field) {
  for (const Residue& residue : residues) {
    for (const Point& point : residue.points) {
      insertSorted(temperatures_, point.at.temp_kelvin);
      insertSorted(fields_, point.at.field_mhz);
      insertSorted(ligands_, point.at.concentration);
      insertSorted(codes_, point.at.code);
      insertSorted(seconds_[point.at], secondColumn(point));
    }
  }
  checkCount(temperatures_, "temperatures");
  checkCount(fields_, "fields");
  if (layout.has('l')) checkCount(ligands_, "concentrations");
  // A digit for each of too many values is not possible; one for all then takes its place.
  const bool too_many = std::any_of(seconds_.begin(), seconds_.end(), [](const auto& entry) {
    return entry.second.size() > kMostValues;
  });
  if (too_many) seconds_.clear();
  if (reference_field_ <= 0.0 && !fields_.empty()) reference_field_ = fields_.front();
  const auto ligand = std::upper_bound(ligands_.begin(), ligands_.end(), 0.0);
  if (ligand != ligands_.end()) reference_ligand_ = *ligand;
}

DataLine Labels::lineOf(const Point& point) const {
  DataLine line;
  for (const char* column = layout_.columns; *column != '\0'; ++column) {
    line.x.push_back(columnOf(point, *column));
  }
  for (const char* label = layout_.labels; *label != '\0'; ++label) {
    line.label += digitOf(point, *label);
  }
  line.x0 = layout_.columns[0] == 'o' ? point.offset : point.x0;
  line.rate = point.rate;
  line.error = point.error;
  return line;
}

std::string Labels::curveName(const Point& point) const {
  std::string name = shortText(point.at.field_mhz, 4) + "MHz";
  if (temperatures_.size() > 1) name = shortText(point.at.temp_kelvin, 5) + "K_" + name;
  if (ligands_.size() > 1 && layout_.has('l')) {
    name = "c" + shortText(point.at.concentration, 4) + '_' + name;
  }
  if (codes_.size() > 1 && layout_.has('c')) {
    name = codeName(point.at.code, layout_.has('T')) + '_' + name;
  }
  const auto seconds = seconds_.find(point.at);
  if (layout_.spinLock() && seconds != seconds_.end() && seconds->second.size() > 1) {
    name += '_' + shortText(secondColumn(point), 5) + "Hz";
  }
  return name;
}

std::vector<std::string> Labels::legend() const {
  std::vector<std::string> lines;
  std::string columns = "Columns:";
  std::string labels = "Index digits:";
  for (int i = 0; layout_.columns[i] != '\0'; ++i) {
    columns += (i == 0 ? " x" : "; x") + std::to_string(i) + ' ';
    switch (layout_.columns[i]) {
      case 'r':
        columns +=
            std::string("1/tcp = 2 nu_CPMG (1/s)") +
            (layout_.countedPulses() ? ", rounded up: T x0 is truncated to the number of pulses"
                                     : "");
        break;
      case 'p': columns += "power of the spin lock (Hz)"; break;
      case 'o': columns += "offset of the spin lock (Hz)"; break;
      case 'T': columns += "constant time (s)"; break;
      case 't': columns += "temperature (K)"; break;
      case 'f': columns += "field relative to " + shortText(reference_field_) + " MHz"; break;
      case 'l': columns += "ligand relative to " + shortText(reference_ligand_); break;
      case 'c': columns += "code"; break;
      default: columns += "not read"; break;
    }
  }
  for (int i = 0; layout_.labels[i] != '\0'; ++i) {
    labels += i == 0 ? " " : "; ";
    switch (layout_.labels[i]) {
      case 't': labels += "temperature, " + numbered(temperatures_, " K"); break;
      case 'f': labels += "field, " + numbered(fields_, " MHz"); break;
      case 'l': labels += "ligand, " + numbered(ligands_, ""); break;
      case 'c': labels += "code"; break;
      default: labels += seconds_.empty() ? "without meaning" : "x1, which tells curves apart";
    }
  }
  lines.push_back(columns + '.');
  lines.push_back(labels + '.');
  return lines;
}

std::string Labels::columnOf(const Point& point, char column) const {
  switch (column) {
    case 'r':
    case 'p': return shortText(point.x0);
    case 'o': return shortText(point.offset);
    case 'T': return shortText(point.at.time);
    case 't': return shortText(point.at.temp_kelvin);
    case 'f': return shortText(point.at.field_mhz / reference_field_);
    case 'l': return shortText(point.at.concentration / reference_ligand_);
    case 'c': return std::to_string(point.at.code);
    default: return "0";
  }
}

char Labels::digitOf(const Point& point, char label) const {
  switch (label) {
    case 't': return digit(temperatures_, point.at.temp_kelvin);
    case 'f': return digit(fields_, point.at.field_mhz);
    case 'l': return digit(ligands_, point.at.concentration);
    case 'c': return static_cast<char>('0' + point.at.code);
    default: {
      const auto seconds = seconds_.find(point.at);
      return seconds == seconds_.end() ? '1' : digit(seconds->second, secondColumn(point));
    }
  }
}

double Labels::secondColumn(const Point& point) const {
  if (!layout_.spinLock()) return 0.0;
  return layout_.columns[0] == 'o' ? point.x0 : point.offset;
}
