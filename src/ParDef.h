// What the input declares: sets, parameters, data points, and how they belong together.
// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "FuncLib.h"
#include "Rule.h"

#include <limits>
#include <string>
#include <unordered_map>
#include <vector>

/// One element of the parameter vector. Its number is its position there.
class Elem {
 public:
  enum Type : int { kUndefined = 0, kAdjustable = 1, kFixed = 2 };

  int type = kUndefined;
  int base = 0;           ///< number of the model's base parameter it serves
  std::string name;       ///< as declared, e.g. R20_1_2
  std::string full_name;  ///< scope "::" name; the scope is a set's title or GLOBAL
  bool global_scope = false;
  double start = -std::numeric_limits<double>::infinity();  ///< search range
  double end = std::numeric_limits<double>::infinity();
  double range = 0.0;    ///< end - start
  double step = 0.0;     ///< grid step in the units of the spacing code
  int steps = 1;         ///< grid points
  int interval = 0;      ///< grid spacing code, 0 to 6
  double initial = 0.0;  ///< starting value
  double legal_low = -std::numeric_limits<double>::infinity();  ///< the fit stays in this range
  double legal_high = std::numeric_limits<double>::infinity();
  bool restrained = false;  ///< the legal range is the user's own and holds against the model's
  std::vector<int> sets;    ///< numbers of the sets that use it

  /// Makes it adjustable, searched from `start` to `end` in `steps` points spaced by code
  /// `interval` (truncated to an integer). A value of `initial` that is not finite means `start`.
  void setGrid(double start, double end, int steps, double interval, double initial);
  void setFixed(double value);
  /// Sets the legal range.
  void Restraint(double low, double high);
  void Add_nSetByPAR(int set) { sets.push_back(set); }

  /// Adjustable and used at least twice, by several sets or by one that lists it twice.
  [[nodiscard]] bool isGlobal() const { return type == kAdjustable && sets.size() >= 2; }
  /// Adjustable and used by `set` alone.
  [[nodiscard]] bool IsLocalNonFIXED(int set) const {
    return type == kAdjustable && sets.size() == 1 && sets.front() == set;
  }
  /// True unless it was declared by GPAR, GREST or GFIXED.
  [[nodiscard]] bool isLocal() const { return !global_scope; }
};

/// The use that one set makes of one element: which base parameter it serves, for which labels.
struct Declaration {
  int elem;                ///< position in the parameter vector
  int base;                ///< number of the base parameter
  std::vector<int> index;  ///< one entry for each rule position, Rules::kAnyLabel where open
  std::string name;        ///< as the set's own line has it
};

/// Everything that the input file declares about sets, parameters and data.
///
/// The reader calls the Add_ functions line by line, then prep once; a fit reads the rest.
class ParDef {
 public:
  // While the input is read. All Add_ functions end the run on a bad name.

  /// Takes over the names and bounds of the picked model.
  void setRule(const Rules& rules) { rules_ = rules; }
  /// Closes the open set and opens a new one.
  void Add_Set(const std::string& name);
  /// Parameter of the open set with a search range; legal range: the model's bounds.
  void Add_PAR(const std::string& name, double start, double end, int steps, double interval,
               double initial);
  /// Parameter of the open set that is served by the global element `global_name`.
  void Add_PAR(const std::string& name, const std::string& global_name);
  /// As Add_PAR; legal range: start to end.
  void Add_REST(const std::string& name, double start, double end, int steps, double interval,
                double initial);
  void Add_FIXED(const std::string& name, double value);
  // Global elements. Their names are free text.
  void Add_GPAR(const std::string& name, double start, double end, int steps, double interval,
                double initial);
  void Add_GREST(const std::string& name, double start, double end, int steps, double interval,
                 double initial);
  void Add_GFIXED(const std::string& name, double value);
  /// A data point of the open set. Ends the run when the set lacks a parameter that it needs.
  void Add_DATA(std::vector<double> x, std::vector<int> labels, double y, double dy);
  /// True from the first parameter or data line of a set on: the rules can no longer change.
  [[nodiscard]] bool usesRules() const { return uses_rules_; }

  /// Closes the last set, computes the degrees of freedom and the tables of the fit. Ends the run
  /// when nothing is left to fit.
  void prep();

  // Sets.
  [[nodiscard]] int SETsize() const { return static_cast<int>(sets_.size()); }
  [[nodiscard]] const std::string& TITLE(int set) const { return at(set).title; }
  [[nodiscard]] int lDoF(int set) const { return at(set).lDoF; }
  void setlDoF(int set, int dof) { at(set).lDoF = dof; }
  /// In the order of the input, shared elements included.
  [[nodiscard]] const std::vector<Declaration>& declarations(int set) const {
    return at(set).declarations;
  }
  /// The set's elements, each once, in the order of their first declaration.
  [[nodiscard]] const std::vector<int>& parms(int set) const { return at(set).parms; }
  /// Numbers of the set's data points.
  [[nodiscard]] const std::vector<int>& points(int set) const { return at(set).points; }

  // Data points, numbered in the order of the input.
  [[nodiscard]] int DATAsize() const { return static_cast<int>(points_.size()); }
  [[nodiscard]] const Data& DATA(int point) const {
    return points_[static_cast<std::size_t>(point)];
  }

  /// Numbers of all points, in the order in which a jackknife leaves them out.
  [[nodiscard]] const std::vector<int>& allPoints() const { return all_points_; }
  /// The labels that occur among the set's points, each once.
  [[nodiscard]] const std::vector<std::vector<int>>& labels(int set) const {
    return at(set).labels;
  }

  // Data points during an error analysis. A point belongs to the set of its DATA line.

  /// Takes the first of all points out of the lists, its set's list included, and returns it.
  int takeFirstPoint();
  /// Appends it to both lists again.
  void putPointBack(int point);
  /// Removes the first entry of a set's list alone, or appends one.
  void takeFirstPoint(int set);
  void appendPoint(int set, int point) { at(set).points.push_back(point); }
  /// The measured values, one for each point by number.
  [[nodiscard]] std::vector<double> values() const;
  void setValues(const std::vector<double>& values);

  // Elements of the parameter vector.
  [[nodiscard]] int PAR_size() const { return static_cast<int>(elems_.size()); }
  [[nodiscard]] int gDoF() const { return gDoF_; }
  void setgDoF(int dof) { gDoF_ = dof; }
  [[nodiscard]] const Elem& elem(int i) const { return elems_[static_cast<std::size_t>(i)]; }
  [[nodiscard]] const std::string& Name(int i) const { return elem(i).name; }
  [[nodiscard]] const std::string& FullName(int i) const { return elem(i).full_name; }
  [[nodiscard]] double grd_start(int i) const { return elem(i).start; }
  [[nodiscard]] double grd_end(int i) const { return elem(i).end; }
  [[nodiscard]] double grd_initial(int i) const { return elem(i).initial; }
  [[nodiscard]] double grd_range(int i) const { return elem(i).range; }
  [[nodiscard]] double grd_step(int i) const { return elem(i).step; }
  [[nodiscard]] int grd_size(int i) const { return elem(i).steps; }
  [[nodiscard]] int grd_interval(int i) const { return elem(i).interval; }
  [[nodiscard]] bool isGRID(int i) const { return elem(i).type == Elem::kAdjustable; }
  [[nodiscard]] bool isFIXED(int i) const { return elem(i).type == Elem::kFixed; }
  /// True when the legal range holds `value`; a NaN is never legal.
  [[nodiscard]] bool isLegal(int i, double value) const {
    const Elem& e = elem(i);
    return e.legal_low <= value && value <= e.legal_high;
  }
  [[nodiscard]] bool isGlobal(int i) const { return elem(i).isGlobal(); }
  [[nodiscard]] bool isLocal(int i) const { return !isGlobal(i); }
  /// True when any element is shared: the fit is then a nested global one.
  [[nodiscard]] bool hasGlobals() const { return has_globals_; }
  /// True when a data point depends on the element. Others are never solved for.
  [[nodiscard]] bool isUsed(int i) const { return used_[static_cast<std::size_t>(i)]; }
  /// One flag for each element, set for fixed ones: the derivatives that models may leave out.
  [[nodiscard]] const std::vector<bool>& fixedFlags() const { return fixed_; }

  // Mapping of points onto the parameter vector.

  /// The elements that serve a point with these labels in the open set, one for each base
  /// parameter. Ends the run when one is missing.
  [[nodiscard]] std::vector<int> Get_nPARs(const std::vector<int>& labels) const;
  /// Maps `point` onto the declarations of `set`; entries without a match stay as they are.
  void Get_datamap(Data& point, int set) const;
  /// Position of the first declaration of `set` that serves `base` for these labels; -1: none.
  [[nodiscard]] int match_local(int base, int set, const std::vector<int>& labels) const;
  /// The same for the open set.
  [[nodiscard]] int match_local(int base, const std::vector<int>& labels) const;
  /// Number of the global element of exactly this name. Ends the run if there is none; `parm` is
  /// the parameter of the open set that refers to it.
  [[nodiscard]] int Find_GPAR(const std::string& parm, const std::string& global_name) const;

 private:
  struct Set {
    std::string title;
    std::vector<Declaration> declarations;
    std::vector<int> parms;
    std::vector<int> points;
    std::vector<std::vector<int>> labels;
    int lDoF = 0;
    int first_elem = 0;  ///< number of elements when the set was opened
  };

  Elem& addSetElem(const std::string& name);
  Elem& addGlobalElem(const std::string& name);
  Elem& addElem(const std::string& scope, const std::string& name);
  void Add_ParmMap(int elem, const std::string& name);

  void closeSet();
  [[nodiscard]] int Calc_lDoF(const Set& set) const;
  void Calc_gDoF();
  void Store_SET();
  void Remove_SET();
  void findFixed();
  void findUsed();
  void listPoints();
  void warnUnused() const;

  [[nodiscard]] const Set& at(int set) const { return sets_[static_cast<std::size_t>(set)]; }
  [[nodiscard]] Set& at(int set) { return sets_[static_cast<std::size_t>(set)]; }

  Rules rules_;
  std::vector<Set> sets_;  ///< the last one is open while the input is read
  bool set_open_ = false;
  bool uses_rules_ = false;
  std::vector<Elem> elems_;
  std::unordered_map<std::string, int> globals_;  ///< element numbers by name
  std::vector<Data> points_;
  std::vector<int> all_points_;
  std::vector<bool> fixed_;
  std::vector<bool> used_;
  bool has_globals_ = false;
  int gDoF_ = 0;
};
