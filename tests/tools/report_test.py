#!/usr/bin/env python3
"""dravo-report: pages in a browser, tables read back, remarks, comparison of models, faults.

Statistics are checked against closed forms: the chi-square tail for an even number of degrees of freedom,
the F tail for two additional parameters. Most runs are written by hand, so that each number is known.
"""
# SPDX-License-Identifier: GPL-3.0-or-later
import argparse
import csv
import io
import json
import math
import os
import pathlib
import random
import re
import shutil
import struct
import subprocess
import sys
import tempfile
import unittest
import xml.etree.ElementTree
import zlib

ROOT = pathlib.Path(__file__).resolve().parents[2]
REPORT = os.environ.get("DRAVO_REPORT", "")
PROGRAM = ""


def chi_tail(chi, dof):
    """Closed form for an even number of degrees of freedom."""
    term = total = 1.0
    for i in range(1, dof // 2):
        term *= chi / 2 / i
        total += term
    return math.exp(-chi / 2) * total


def write_report(path, model, sets, chi_lines=(("INIT", 9.0), ("ONEEX", 1.0)), total=None, points=None):
    """sets: (title, [(name, value, error or None)], X2/DoF, DoF); total: X2/DoF and DoF of the whole."""
    dof = sum(s[3] for s in sets)
    chi, dof = total or (sum(s[2] * s[3] for s in sets) / dof, dof)
    text = f"# DRAVO VERSION 2.4.4\nMODEL  {model}\nEQN    f(x)\n"
    text += "".join(f"METHOD {name}\n" for name, _ in chi_lines)
    text += f"\n# Fitting results\n# Total data points = {points}\n"
    text += f"# Total degrees of freedom (DoF) = {dof}\n"
    text += "".join(f"# {name:<13}X2/DoF = {value:g}\n" for name, value in chi_lines)
    text += "# Fit duration        0h0m0s\n\n"
    for title, values, set_chi, set_dof in sets:
        text += f"SET\t{title}\n"
        for name, value, error in values:
            text += f"\t{name}\t{value:>7}" + (f" ({error})\n" if error is not None else "\n")
        text += f"\tX2/DoF\t{set_chi:g} (DoF = {set_dof})\n\n"
    path.write_text(text + f"Global X2/DoF\t{chi:g} (DoF = {dof})\n")


def write_input(path, model, sets, data, head="", columns=1, labels=0):
    """sets: (title, lines); data: (x, y, error) of every set."""
    text = f"FUNCTION {model}\n{head}"
    for title, lines in sets:
        text += f"SET {title}\n" + "".join(line + "\n" for line in lines)
        for x, y, error in data:
            text += "DATA " + " ".join([f"{x:g}"] + ["0"] * (columns - 1)) + " "
            text += f"{'1' * labels} {y:g} {error:g}\n" if labels else f"{y:g} {error:g} -\n"
    path.write_text(text)


LINE = [(x, 2.0 + 3.0 * x, 0.5) for x in range(12)]  # 12 points; with two parameters 10 degrees of freedom


class Case(unittest.TestCase):
    def setUp(self):
        self.temporary = tempfile.TemporaryDirectory()
        self.dir = pathlib.Path(self.temporary.name)

    def tearDown(self):
        self.temporary.cleanup()

    def run_report(self, *args, status=0):
        done = subprocess.run([REPORT, *map(str, args)], cwd=self.dir, capture_output=True)
        self.assertEqual(done.returncode, status, done.stderr.decode(errors="replace"))
        return done

    def json_of(self, *reports):
        return json.loads(self.run_report("--json", "-", *reports).stdout)

    def csv_of(self, *reports):
        text = self.run_report("--csv", "-", *reports).stdout.decode()
        return list(csv.DictReader(io.StringIO(text)))

    def fit(self, name, directory=None):
        done = subprocess.run([PROGRAM, "-i", name + ".in", "-o", name + ".out", "-xmgr"],
                              cwd=directory or self.dir, capture_output=True, text=True)
        self.assertEqual(done.returncode, 0, done.stderr)

    def by_hand(self, name, values, chi=1.0, lines=None, **more):
        """A fit of a line with these values: (name, value, error)."""
        lines = lines or [f"PAR {value[0]} -1e8 1e8" for value in values]
        write_input(self.dir / f"{name}.in", "Linear", [("s1", lines)], LINE)
        adjustable = sum(value[2] is not None for value in values)
        write_report(self.dir / f"{name}.out", "Linear", [("s1", values, chi, 12 - adjustable)],
                     points=12, **more)
        return f"{name}.out"

    def kinds(self, *reports):
        return [remark["kind"] for remark in self.json_of(*reports)["remarks"] if remark["kind"] != "plot"]


GOOD = [("a", "2", "0.1"), ("b", "3", "0.2")]


class Remarks(Case):
    def test_an_ordinary_fit_has_none(self):
        self.assertEqual(self.kinds(self.by_hand("good", GOOD)), [])

    def test_parameter_at_a_bound_of_the_model_or_of_its_own_line(self):
        values = [("a", "2", "0.1"), ("b", "-999900", "0.2")]  # the model's bound is -1e6
        found = self.json_of(self.by_hand("model", values))["parameters"]
        self.assertEqual([p["at_bound"] for p in found], [None, "lower"])
        self.assertIn("bound", self.kinds("model.out"))
        rest = ["REST a 0 2.001", "PAR b -10 10"]
        report = self.by_hand("rest", GOOD, lines=rest)
        self.assertEqual(self.kinds(report), ["bound"])
        self.assertEqual(self.json_of(report)["parameters"][0]["high"], 2.001)
        self.assertEqual(self.kinds(self.by_hand("free", GOOD, lines=["REST a 0 2.5", "PAR b -10 10"])), [])
        near = self.by_hand("near", GOOD, lines=["REST a 0 2.05", "PAR b -10 10"])
        self.assertEqual(self.kinds(near), ["near-bound"])

    def test_error_larger_than_the_value_or_none(self):
        self.assertEqual(self.kinds(self.by_hand("large", [GOOD[0], ("b", "-3", "3.1")])), ["error"])
        self.assertEqual(self.kinds(self.by_hand("equal", [GOOD[0], ("b", "-3", "3")])), [])
        self.assertEqual(self.kinds(self.by_hand("nan", [GOOD[0], ("b", "3", "nan")])), ["no-error"])

    def test_chi_square_with_its_probability(self):
        # 10 degrees of freedom: closed tails on both sides of 1 %.
        for chi, expected in ((2.31, []), (2.33, ["chi-square"]), (0.26, []), (0.25, ["chi-square"])):
            tail = chi_tail(10 * chi, 10)
            self.assertEqual(bool(expected), min(tail, 1 - tail) < 0.01)
            report = self.by_hand("chi", GOOD, chi=chi)
            self.assertEqual(self.kinds(report), expected)
            self.assertAlmostEqual(self.json_of(report)["runs"][0]["probability"], tail, delta=1e-12)
            self.assertAlmostEqual(float(self.csv_of(report)[0]["probability"]), tail, delta=1e-6)

    def shared_line(self, name, chi, shared):
        """Two sets of 13 points with one line, or a line each; X2 of each set is `chi`."""
        lines = ["PAR a a_all", "PAR b b_all"] if shared else ["PAR a -9 9", "PAR b -9 9"]
        write_input(self.dir / f"{name}.in", "Linear", [("s1", lines), ("s2", lines)],
                    LINE + [(12, 38.0, 0.5)], head="GPAR a_all -9 9\nGPAR b_all -9 9\n" * shared)
        dof = 24 if shared else 22
        write_report(self.dir / f"{name}.out", "Linear", [(t, GOOD, chi / 11, 11) for t in ("s1", "s2")],
                     points=26, total=(2 * chi / dof, dof))
        return f"{name}.out"

    def test_a_shared_parameter_counts_in_part_in_each_set(self):
        # Of 13 points both sets pay one parameter each: 12 degrees of freedom, not 11.
        tail = chi_tail(25.5, 12)
        self.assertGreater(tail, 0.01)
        report = self.shared_line("shared", 25.5, shared=True)
        remark, = [r for r in self.json_of(report)["remarks"] if r["kind"] == "chi-square"]
        self.assertEqual(remark["set"], None)  # 51 with 24 degrees of freedom is rare, 25.5 with 12 is not
        for row in self.csv_of(report):
            self.assertAlmostEqual(float(row["probability"]), tail, delta=1e-6)
            self.assertEqual(row["dof"], "11")
        report = self.shared_line("shared", 29.0, shared=True)
        remark = [r for r in self.json_of(report)["remarks"] if r["kind"] == "chi-square"][1]
        self.assertIn("with 11 degrees of freedom, 12 where shared parameters count in part", remark["text"])
        self.assertIn(f"probability of {chi_tail(29.0, 12):#.2g}", remark["text"])

    def test_the_sets_of_a_shared_fit_add_up_to_the_whole(self):
        comparison = self.json_of(self.shared_line("shared", 12.0, shared=True),
                                  self.shared_line("own", 10.0, shared=False))["comparison"]
        for i, (chi, k) in enumerate(((12.0, 1), (10.0, 2))):
            for one in comparison["sets"]:
                self.assertEqual(one["criteria"][i]["parameters"], k)
                self.assertAlmostEqual(one["criteria"][i]["aic"], chi + 2 * k, delta=1e-3)
            self.assertEqual(comparison["total"]["criteria"][i]["parameters"], 2 * k)
            self.assertAlmostEqual(comparison["total"]["criteria"][i]["aic"], 2 * (chi + 2 * k), delta=1e-3)
        test, = comparison["sets"][0]["f_tests"]
        self.assertEqual((test["extra_parameters"], test["dof"]), (1, 11))
        self.assertAlmostEqual(test["f"], 2 / (10 / 11), delta=1e-3)
        test, = comparison["total"]["f_tests"]  # two more parameters: the tail has a closed form
        self.assertAlmostEqual(test["p"], (1 + 2 * test["f"] / 22) ** -11, delta=1e-6)

    def test_minimisation_that_was_still_falling(self):
        for lines, expected in (((("INIT", 9), ("GRID10", 1)), ["unfinished"]),
                                ((("INIT", 9), ("ONEEX", 1)), []),
                                ((("INIT", 9), ("GRID10", 1.2), ("ONEEX", 1)), ["unfinished"]),
                                ((("INIT", 9), ("GRID10", 1), ("ONEEX", 1)), [])):
            self.assertEqual(self.kinds(self.by_hand("fall", GOOD, chi_lines=lines)), expected, lines)

    def analysed(self, name, jack, monte, shared):
        """A fit of two sets with errors of all methods for a and b."""
        sets, lines = [], ["PAR a a_all" if shared else "PAR a -9 9", "PAR b -9 9"]
        for title in ("s1", "s2"):
            sets.append((title, GOOD, 1.0, 10))
        write_input(self.dir / f"{name}.in", "Linear", [("s1", lines), ("s2", lines)], LINE,
                    head="GPAR a_all -9 9\n")
        report = self.dir / f"{name}.out"
        write_report(report, "Linear", sets, points=24, total=(1.0, 21 if shared else 20))
        for kind, errors in (("jack", jack), ("monte", monte)):
            values = [(v[0], v[1], e) for v, e in zip(GOOD, errors)]
            final = self.dir / f"{name}.out-{kind}-final.out"
            write_report(final, "Linear", [(t, values, 1.0, 10) for t in ("s1", "s2")], points=24)
            summary = "# error analysis results\n"
            for title in ("s1", "s2"):
                summary += f"SET\t{title}\n\ta\t    2.1 ({errors[0]})\n\tb\t    2.9 ({errors[1]})\n"
                summary += "\tX2/DoF\t1 (0.2) (DoF = 10)\n\n\t\tPercentile\tX2/DoF\n\t\t0.05\t0.1\t***\n"
            (self.dir / f"{name}.out-{kind}.sum").write_text(summary + "Global X2/DoF = 1  (0.2)\n")
        return f"{name}.out"

    def test_errors_of_a_shared_fit_that_disagree(self):
        report = self.analysed("shared", ("0.25", "0.39"), ("0.11", "0.2"), shared=True)
        remarks = [r for r in self.json_of(report)["remarks"] if r["kind"] != "plot"]
        # a is shared and said once; b of either set stays below a factor of 2.
        self.assertEqual([(r["kind"], r["set"], r["parameter"]) for r in remarks],
                         [("methods-disagree", None, "a_all")])
        row = self.csv_of(report)[0]
        self.assertEqual((row["status"], row["shared_as"], row["error"], row["jackknife_error"],
                          row["montecarlo_mean"], row["montecarlo_error"]),
                         ("shared", "a_all", "0.1", "0.25", "2.1", "0.11"))

    def test_the_jackknife_without_shared_parameters_is_not_held_against_it(self):
        report = self.analysed("local", ("0.9", "0.9"), ("0.11", "0.2"), shared=False)
        self.assertEqual(self.kinds(report), [])
        self.analysed("local", ("0.1", "0.2"), ("0.11", "0.41"), shared=False)
        self.assertEqual(self.kinds(report), ["methods-disagree"] * 2)

    def test_simulations_that_are_correlated_or_off_the_fitted_value(self):
        report = self.analysed("monte", ("0.1", "0.2"), ("0.12", "0.2"), shared=False)
        # r of 20 passes by hand: b follows a but for a part that is orthogonal to it.
        for part, expected in ((0.1, ["correlated"]), (0.5, [])):
            text, a, b = "Monte Carlo simulations (20)\n", [], []
            for k in range(1, 21):
                a.append((-1) ** k)
                b.append((-1) ** k + part * (1 if k <= 10 else -1))
                for title in ("s1", "s2"):
                    values = (a[-1], b[-1] if title == "s1" else k)
                    text += f"#{k}: {title}\n#{k}:\ta\t{values[0]}\n#{k}:\tb\t{values[1]}\n"
                    text += f"#{k}:\tX2/DoF\t1\t(DoF = 10)\n"
                text += f"#{k}: GLOBAL X2/DoF\t1\t(DoF = 20)\n\n"
            (self.dir / f"{report}-monte").write_text(text)
            self.assertEqual(self.kinds(report), expected)
            if expected:
                remark, = [r for r in self.json_of(report)["remarks"] if r["kind"] == "correlated"]
                self.assertEqual((remark["set"], remark["parameter"]), ("s1", "a, b"))
                self.assertIn(f"r = {1 / math.sqrt(1 + part * part):.3g} in 20 simulations", remark["text"])
        summary = self.dir / f"{report}-monte.sum"
        summary.write_text(summary.read_text().replace("\ta\t    2.1 ", "\ta\t   2.13 ", 1))
        self.assertEqual(self.kinds(report), ["shifted-mean"])  # 0.13 from 2, error 0.12

    def test_curves_at_other_conditions_than_the_points(self):
        text = (ROOT / "examples/fyn_d9_15n_sq_cpmg.in").read_text().replace("METHOD MCMIN 20 0.1\n", "")
        (self.dir / "d9.in").write_text(text)
        self.fit("d9")
        self.assertNotIn("residuals", self.kinds("d9.out"))
        (self.dir / "d9.in").write_text(text.replace("PLOT 500MHz * 298 1 11", "PLOT 500MHz * 298 1.1 11"))
        self.fit("d9")
        self.assertIn("residuals", self.kinds("d9.out"))

    def test_reports_of_few_digits_go_with_their_curves(self):
        text = (ROOT / "examples/hansen08_15n_cpmg_local.in").read_text()
        (self.dir / "l.in").write_text(re.sub(r"(?m)^METHOD (GRID|MCMIN).*\n", "", text))
        for digits in ("1", "2", "6", "17"):
            subprocess.run([PROGRAM, "-i", "l.in", "-o", "l.out", "-xmgr", "-prec", digits], cwd=self.dir,
                           check=True, capture_output=True)
            self.assertEqual(set(self.kinds("l.out")) & {"residuals", "files", "plot"}, set(), digits)

    def test_summaries_of_another_fit_are_left_out(self):
        report = self.analysed("stale", ("0.9", "0.9"), ("0.11", "0.2"), shared=True)
        final = self.dir / f"{report}-jack-final.out"
        final.write_text(final.read_text().replace("\t      3", "\t      9"))
        self.assertIn("files", self.kinds(report))
        self.assertEqual(self.csv_of(report)[0]["jackknife_error"], "")
        self.assertEqual(self.csv_of(report)[0]["montecarlo_error"], "0.11")

    def test_passes_of_another_fit_or_cut_short_are_named(self):
        report = self.analysed("cut", ("0.1", "0.2"), ("0.11", "0.2"), shared=True)
        text = "Monte Carlo simulations (2)\n"
        for k in (1, 2):
            for title in ("s1", "s2"):
                text += f"#{k}: {title}\n#{k}:\ta\t{k}\n#{k}:\tb\t{2 * k}\n#{k}:\tX2/DoF\t1\t(DoF = 10)\n"
            text += f"#{k}: GLOBAL X2/DoF\t1\t(DoF = 20)\n\n"
        passes = self.dir / f"{report}-monte"
        passes.write_text(text)
        self.assertEqual(self.kinds(report), [])
        more = text.replace("#1:\tb\t2\n", "#1:\tb\t2\n#1:\tc\t3\n#1:\td\t3\n#1:\te\t3\n")
        for changed in (text[:text.rindex("#2: GLOBAL")], text[:len(text) // 2], more,
                        text.replace("\tb\t", "\tz\t"), text.replace("#2: s2\n", ""),
                        text.replace("\tb\t4", "\tb\tx"), "#1: GLOBAL X2/DoF\t1\n"):
            self.assertNotEqual(changed, text)
            passes.write_text(changed)
            remark, = [r for r in self.json_of(report)["remarks"] if r["kind"] == "files"]
            self.assertIn("cut.out-monte is of another fit or incomplete", remark["text"])

    def test_an_analysis_that_did_not_finish_is_named(self):
        report = self.analysed("half", ("0.1", "0.2"), ("0.11", "0.2"), shared=True)
        self.assertEqual(self.kinds(report), [])
        (self.dir / f"{report}-monte.sum").unlink()
        remark, = [r for r in self.json_of(report)["remarks"] if r["kind"] == "files"]
        self.assertIn("half.out-monte was not finished", remark["text"])
        self.assertEqual(self.csv_of(report)[0]["montecarlo_error"], "")


class Comparison(Case):
    def line_and_constant(self, data=LINE, errors=True):
        """Chi-squares 50 of a constant (11 degrees) and 8 of a line (10)."""
        write_input(self.dir / "c.in", "Constant", [("s1", ["PAR c -9 9"])], LINE)
        write_report(self.dir / "c.out", "Constant", [("s1", [("c", "2", "0.1")], 50 / 11, 11)], points=12)
        write_input(self.dir / "l.in", "Linear", [("s1", ["PAR a -9 9", "PAR b -9 9"])], data)
        dof = len(data) - 2
        write_report(self.dir / "l.out", "Linear", [("s1", GOOD, 8 / dof, dof)], points=len(data))
        return self.json_of(*(() if errors else ("--noerr",)), "c.out", "l.out")["comparison"]

    def test_criteria_are_those_of_the_formulas(self):
        total = self.line_and_constant()["total"]
        simple, rich = total["criteria"]
        for found, chi, k in ((simple, 50.0, 1), (rich, 8.0, 2)):
            self.assertEqual((found["points"], found["parameters"]), (12, k))
            self.assertAlmostEqual(found["chi_square"], chi, delta=1e-4 * chi)
            self.assertAlmostEqual(found["aic"], chi + 2 * k, delta=1e-3)
            self.assertAlmostEqual(found["aicc"], chi + 2 * k + 2 * k * (k + 1) / (12 - k - 1), delta=1e-3)
            self.assertAlmostEqual(found["bic"], chi + k * math.log(12), delta=1e-3)
        test, = total["f_tests"]
        # One additional parameter and 10 degrees: F = 42/0.8.
        self.assertAlmostEqual(test["f"], 52.5, delta=1e-2)
        self.assertEqual((test["extra_parameters"], test["dof"], test["nesting"]), (1, 10, "unknown"))

    def test_without_errors_their_size_is_one_parameter_more(self):
        comparison = self.line_and_constant(errors=False)
        self.assertFalse(comparison["errors_known"])
        for found, chi, k in zip(comparison["total"]["criteria"], (50.0, 8.0), (2, 3)):
            self.assertAlmostEqual(found["aic"], 12 * math.log(chi / 12) + 2 * k, delta=1e-3)
            self.assertAlmostEqual(found["bic"], 12 * math.log(chi / 12) + k * math.log(12), delta=1e-3)

    def test_other_data_are_named_and_not_compared(self):
        moved = [(x, y + (x == 4) * 0.25, e) for x, y, e in LINE]
        fewer = LINE[:-1]
        heavier = [(x, y, e * (1 + (x == 4))) for x, y, e in LINE]
        for data, word in ((moved, "y is 14.25 instead of 14"), (fewer, "11 points instead of 12"),
                           (heavier, "the error is 1 instead of 0.5")):
            comparison = self.line_and_constant(data)
            self.assertEqual(len(comparison["total"]["criteria"]), 1)
            self.assertEqual(comparison["total"]["f_tests"], [])
            reason, = comparison["total"]["not_compared"]
            self.assertEqual(reason["run"], "l")
            self.assertIn(word, reason["reason"])
            page = self.run_report("-o", "-", "c.out", "l.out").stdout.decode()
            self.assertIn('data-kind="data-differ"', page)
            self.assertIn(word, page)
        self.line_and_constant()
        self.assertNotIn('data-kind="data-differ"', self.run_report("-o", "-", "c.out", "l.out").stdout.decode())

    def test_order_of_points_does_not_matter(self):
        self.assertEqual(len(self.line_and_constant(LINE[::-1])["total"]["criteria"]), 2)

    def test_a_set_that_one_run_lacks(self):
        write_input(self.dir / "two.in", "Linear", [(t, ["PAR a -9 9", "PAR b -9 9"]) for t in ("s1", "s2")], LINE)
        write_report(self.dir / "two.out", "Linear", [(t, GOOD, 1.0, 10) for t in ("s1", "s2")], points=24)
        self.by_hand("one", GOOD)
        comparison = self.json_of("one.out", "two.out")["comparison"]
        self.assertEqual(comparison["total"]["not_compared"], [{"run": "two", "reason": "it has a set more, s2"}])
        self.assertEqual([(s["set"], len(s["criteria"])) for s in comparison["sets"]], [("s1", 2)])

    def test_runs_of_other_sets_do_not_swell_the_comparison(self):
        runs = []
        for k in range(40):
            title = "same" if k in (7, 9) else f"set{k}"
            write_input(self.dir / f"r{k}.in", "Linear", [(title, ["PAR a -9 9", "PAR b -9 9"])], LINE)
            write_report(self.dir / f"r{k}.out", "Linear", [(title, GOOD, 1.0, 10)], points=12)
            runs.append(f"r{k}.out")
        comparison = self.json_of(*runs)["comparison"]
        self.assertEqual([c["run"] for c in comparison["total"]["criteria"]], ["r7", "r9"])
        self.assertEqual([s["set"] for s in comparison["sets"]], ["same"])
        page = self.run_report("-o", "-", *runs).stdout.decode()
        section = page[page.index('<h2 id="comparison"'):]
        section = section[:section.index("<h2", 5)]
        self.assertIn("38 of 40 runs have no set that another run has too", section)
        self.assertNotIn("set1", section)
        apart = self.run_report("-o", "-", "r1.out", "r2.out").stdout.decode()
        self.assertIn("nothing is compared", apart)

    def test_a_larger_model_that_fits_worse(self):
        self.by_hand("fixed", [GOOD[0], ("b", "3", None)], lines=["PAR a -9 9", "FIXED b 3"], chi=1.0)
        self.by_hand("both", GOOD, chi=1.3)  # chi-square 13 instead of 11
        self.assertEqual(self.kinds("fixed.out", "both.out"), ["worse"])
        test, = self.json_of("fixed.out", "both.out")["comparison"]["total"]["f_tests"]
        self.assertEqual((test["nesting"], test["p"]), ("same model", 1.0))
        self.by_hand("both", GOOD, chi=1.05)
        self.assertEqual(self.kinds("fixed.out", "both.out"), [])


class Tables(Case):
    def test_values_are_copied_and_both_tables_say_the_same(self):
        name = "decay"
        shutil.copy(ROOT / "examples/synthetic_decay.in", self.dir / f"{name}.in")
        self.fit(name)
        rows, data = self.csv_of(f"{name}.out"), self.json_of(f"{name}.out")
        printed = re.findall(r"^\t(\w+)\t *(\S+) \((\S+)\)$", (self.dir / f"{name}.out").read_text(), re.MULTILINE)
        self.assertEqual([(r["name"], r["value"], r["error"]) for r in rows], printed)
        self.assertEqual(len(rows), 4)
        self.assertEqual([r["unit"] for r in rows], ["of y", "1/x"] * 2)
        for row, other in zip(rows, data["parameters"]):
            for key in ("run", "set", "name", "status", "unit"):
                self.assertEqual(row[key], other[key])
            for key in ("value", "error", "low", "high"):
                self.assertEqual(float(row[key]), other[key])
        for one in data["sets"]:  # the curve goes with the points: its chi-square is that of the fit
            points = [p for series in one["series"] for p in series["points"]]
            self.assertEqual(len(points), one["points"])
            chi = sum(((p["y"] - p["fit"]) / p["error"]) ** 2 for p in points)
            self.assertAlmostEqual(chi / one["dof"], one["reduced_chi_square"], delta=0.01)

    def test_titles_of_any_kind_stay_what_they_are(self):
        title = '<b>"x"&\'y\''
        values = [("a", "2", "0.1"), ("b", "3", "0.2")]
        write_input(self.dir / "t.in", "Linear", [(title, ["PAR a -9 9", "PAR b -9 9"])], LINE)
        write_report(self.dir / "t.out", "Linear", [(title, values, 1.0, 10)], points=12)
        self.assertEqual(self.csv_of("t.out")[0]["set"], title)
        self.assertEqual(self.json_of("t.out")["sets"][0]["set"], title)
        page = self.run_report("-o", "-", "--svg", "svg", "t.out").stdout.decode()
        self.assertNotIn("<b>\"x", page)
        self.assertIn("&lt;b&gt;&quot;x&quot;&amp;&#39;y&#39;", page)
        file, = (self.dir / "svg").glob("*.svg")
        self.assertRegex(file.name, r"^[\w.-]+$")
        self.assertIn(title, xml.etree.ElementTree.parse(file).getroot().get("aria-label"))
        for path in ("t.in", "t.out"):  # a title that is no UTF-8
            raw = (self.dir / path).read_bytes()
            (self.dir / path).write_bytes(raw.replace(title.encode(), b"\xff\x01z"))
        self.assertEqual(self.json_of("t.out")["sets"][0]["set"], "\ufffd\ufffdz")

    def test_figures_are_complete_files(self):
        shutil.copy(ROOT / "examples/synthetic_recovery.in", self.dir / "r.in")
        self.fit("r")
        self.run_report("--svg", "figures", "r.out")
        names = sorted(path.name for path in (self.dir / "figures").iterdir())
        self.assertEqual(names, ["along-a.svg", "along-b.svg", "multiples.svg", "set-A7.svg", "set-V31.svg"])
        for path in (self.dir / "figures").iterdir():
            root = xml.etree.ElementTree.parse(path).getroot()
            self.assertEqual(root.tag, "{http://www.w3.org/2000/svg}svg")
            self.assertNotIn("var(", path.read_text())  # colours do not depend on a page
        text = (self.dir / "figures/set-A7.svg").read_text()
        marks = re.findall(r'<path class="mark s0 full" d="([^"]*)"', text)
        # Legend, points, residuals: 14 points, each begun by one M.
        self.assertEqual([d.count("M") for d in marks], [1, 14, 14])

    def test_axis_labels_are_those_of_the_plot_file(self):
        text = (ROOT / "examples/fyn_d9_15n_sq_cpmg.in").read_text()
        for line, label in (("", "1/τ_CP (s^-1)"), ("@ XAXIS LABEL \"\\xn\\f{}\\sCPMG\\N (Hz)\"\n", "ν_CPMG (Hz)")):
            (self.dir / "d9.in").write_text(text.replace("METHOD GRID", line + "METHOD GRID").replace(
                "METHOD MCMIN 20 0.1\n", ""))
            self.fit("d9")
            run, = self.json_of("d9.out")["runs"]
            self.assertEqual(run["x_axis"], label)
            self.assertEqual(run["y_axis"], "R_2^eff (s^-1)")


class Files(Case):
    def test_faults_are_named_and_nothing_is_written(self):
        report = self.by_hand("good", GOOD)
        whole = (self.dir / report).read_text()
        (self.dir / "cut.out").write_text(whole[:whole.index("Global")])
        (self.dir / "half.out").write_text(whole[:-20])
        (self.dir / "other.in").write_text((self.dir / "good.in").read_text().replace("SET s1", "SET s9"))
        (self.dir / "short.in").write_text("\n".join((self.dir / "good.in").read_text().split("\n")[:-2]) + "\n")
        (self.dir / "model.in").write_text((self.dir / "good.in").read_text().replace("Linear", "Exp2"))
        before = sorted(path.name for path in self.dir.iterdir())
        for args, words in ((["missing.out"], "missing.out: No such file"),
                            (["good.in"], "good.in: not a report"),
                            (["cut.out", "-i", "good.in"], "cut.out: unfinished"),
                            (["half.out", "-i", "good.in"], "half.out: unfinished"),
                            ([report, "-i", "other.in"], "other.in: is not the input of good.out: it has no set s1"),
                            ([report, "-i", "short.in"], "11 points, the report 12"),
                            ([report, "-i", "model.in"], "its model is Exp2"),
                            ([report, "-i", "."], ".: is a directory"),
                            ([report, "-n", "x", "-n", "y"], "--name is given 2 times for 1 reports"),
                            ([report, "-o", "no/page.html"], "no/page.html: No such file"),
                            ([report, "-o", report], "good.out: is a file of the run"),
                            ([report, "--csv", "t.csv", "-o", "/dev/full"], "/dev/full: No space left"),
                            ([report, "--wrong"], "--wrong"), ([], "REPORT")):
            done = self.run_report(*args, status=1)
            self.assertIn(words, done.stderr.decode())
            self.assertEqual(done.stdout, b"")
            self.assertEqual(sorted(path.name for path in self.dir.iterdir()), before, args)

    def test_outputs_in_one_place_or_in_that_of_a_file_of_the_run(self):
        shutil.copy(ROOT / "examples/synthetic_decay.in", self.dir / "d.in")
        self.fit("d")
        before = {path.name: path.read_bytes() for path in self.dir.iterdir()}
        self.assertIn("G12.xmgr", before)
        for args, words in ((["--csv", "G12.xmgr"], "G12.xmgr: is a file of the run"),
                            (["--csv", "./d.in"], "./d.in: is a file of the run"),
                            (["--json", "d.out-monte.sum"], "d.out-monte.sum: is a file of the run"),
                            (["-o", "x", "--csv", "./x"], "./x: is where two outputs would go"),
                            (["-o", "-", "--csv", "-"], "standard output: is where two outputs would go")):
            self.assertIn(words, self.run_report(*args, "d.out", status=1).stderr.decode())
            self.assertEqual({path.name: path.read_bytes() for path in self.dir.iterdir()}, before)

    def test_output_that_ends_early_is_no_success(self):
        report = self.by_hand("good", GOOD)
        for args in (["--help"], ["--version"], ["-o", "-", report], ["--csv", "-", report]):
            with self.subTest(args), open("/dev/full", "wb") as full:
                done = subprocess.run([REPORT, *args], cwd=self.dir, stdout=full, stderr=subprocess.PIPE)
                self.assertEqual((done.returncode, done.stderr),
                                 (1, b"dravo-report: standard output: cannot be written\n"))

    def test_without_options_the_page_lies_beside_the_report_and_is_the_same_each_time(self):
        self.run_report(self.by_hand("good", GOOD))
        first = (self.dir / "good.html").read_bytes()
        self.run_report("good.out")
        self.assertEqual((self.dir / "good.html").read_bytes(), first)

    def test_a_plot_file_of_another_fit_is_not_drawn(self):
        shutil.copy(ROOT / "examples/synthetic_decay.in", self.dir / "d.in")
        self.fit("d")
        plot = self.dir / "G12.xmgr"
        kept = plot.read_text()
        self.assertEqual([r["kind"] for r in self.json_of("d.out")["remarks"]], [])
        value = self.json_of("d.out")["parameters"][0]["value"]
        for changed in (kept.replace(f"{value:<10.5g}", f"{value * 1.001:<10.5g}", 1),
                        re.sub(r"(?m)^\t(\S+)\t(\S+)\t", r"\t\1\t9\2\t", kept, count=1), "# nothing\n"):
            self.assertNotEqual(changed, kept)
            plot.write_text(changed)
            remark, = self.json_of("d.out")["remarks"]
            self.assertEqual((remark["kind"], remark["set"]), ("plot", "G12"))
            sets = self.json_of("d.out")["sets"]
            self.assertTrue(all(p["fit"] is None for p in sets[0]["series"][0]["points"]))

    def test_hidden_error_bars_say_that_errors_are_not_known(self):
        text = (ROOT / "examples/synthetic_decay.in").read_text()
        (self.dir / "d.in").write_text(re.sub(r"(?m)^(JACK|MONTE).*\n", "", text))
        subprocess.run([PROGRAM, "-i", "d.in", "-o", "d.out", "-xmgr", "-noerr"], cwd=self.dir, check=True)
        run, = self.json_of("d.out")["runs"]
        self.assertEqual((run["errors_known"], run["probability"]), (False, None))

    def test_help_names_the_options_of_the_man_page(self):
        text = self.run_report("--help").stdout.decode()
        offered = set(re.findall(r"(?<![\w-])--?[a-z][a-z-]*", text))
        if shutil.which("mandoc") is None:
            self.fail("mandoc is not installed; it comes with the Debian package of that name")
        page = ROOT / "docs/dravo-report.1"
        lint = subprocess.run(["mandoc", "-T", "lint", "-W", "warning", page], capture_output=True, text=True)
        self.assertEqual(lint.stdout, "")
        plain = re.sub(".\x08", "", subprocess.run(["mandoc", "-T", "ascii", page], capture_output=True,
                                                   text=True).stdout)
        described = set(re.findall(r"(?<![\w-])--?[a-z][a-z-]*", plain[plain.index("The options are"):
                                                                    plain.index("FILES")]))
        self.assertGreater(len(offered), 15)
        self.assertEqual(offered, described)  # -noerr, which both name, is the option of dravo


class Models(Case):
    """The tool's table against what the program says and does."""

    def program_says(self, text):
        (self.dir / "probe.in").write_text(text)
        return subprocess.run([PROGRAM, "-i", "probe.in", "-o", "probe.out"], cwd=self.dir,
                              capture_output=True, text=True).stderr

    def table(self):
        """model: (columns, labels, [(name, unit, low, high)]) of dravo-report, found by trying shapes."""
        names = re.findall(r"'([^']+)'", self.program_says("FUNCTION none\n").split("\n")[1])
        self.assertEqual(len(names), 52)
        shapes, reports = {}, []
        for model in names:
            valid = self.program_says(f"FUNCTION {model}\nSET s\nPAR none 1\n")
            bases = re.findall(r"\t'([^']+)'", valid)
            self.assertTrue(bases, valid)
            for columns, labels in ((3, 2), (4, 3), (5, 3), (1, 0), (4, 2), (2, 1)):
                text = f"FUNCTION {model}\nSET s\n" + "".join(f"FIXED {b} 0.0\n" for b in bases)
                line = "DATA " + "100 " * columns + ("1" * labels + " " if labels else "") + "1 1"
                text += (line + (" -" if not labels else "") + "\n") * 30
                said = self.program_says(text)
                if not re.search(r"number of parameters|Index is not|WARNING: Assuming", said):
                    break
            else:
                self.fail(f"no shape for {model}")
            shapes[model] = (columns, labels, bases)
            write_input(self.dir / f"{model}.in", model, [("s", [f"PAR {b} -1e30 1e30" for b in bases])],
                        [(100 + i, 1, 1) for i in range(30)], columns=columns, labels=labels)
            write_report(self.dir / f"{model}.out", model, [("s", [(b, "1", "0.1") for b in bases], 1.0,
                                                               30 - len(bases))], points=30)
            reports.append(f"{model}.out")
        rows = self.csv_of(*reports)
        result = {}
        for model, (columns, labels, bases) in shapes.items():
            found = [(r["name"], r["unit"], r["low"], r["high"]) for r in rows if r["model"] == model]
            self.assertEqual([f[0] for f in found], bases, model)
            result[model] = (columns, labels, found)
        return result

    def illegal(self, model, columns, labels, values):
        text = f"FUNCTION {model}\nMETHOD INIT\nSET s\n" + "".join(f"PAR {n} {v!r}\n" for n, v in values)
        line = "DATA " + "100 " * columns + ("1" * labels + " " if labels else "") + "1 1"
        said = self.program_says(text + (line + (" -" if not labels else "") + "\n") * 30)
        return re.findall(r"^s::(\w+)", said, re.MULTILINE) if "Illegal initial" in said else []

    def test_names_ranges_and_units(self):
        for model, (columns, labels, rows) in self.table().items():
            names = [row[0] for row in rows]
            for end, away in ((2, -math.inf), (3, math.inf)):
                at = [(row[0], float(row[end])) for row in rows]
                beyond = [(name, math.nextafter(value, away)) for name, value in at]
                self.assertEqual(self.illegal(model, columns, labels, at), [], model)
                self.assertEqual(self.illegal(model, columns, labels, beyond), names, model)
            for name, unit, _, _ in rows:
                if expected := self.unit_by_rule(model, name):
                    self.assertEqual(unit, expected.strip(), (model, name))
        self.check_manual()

    @staticmethod
    def unit_by_rule(model, name):
        """What the README says of units, for models of exchange."""
        if not re.match(r"(MQ)?CPMG|R1RHO|CLEANEX", model):
            return None
        rules = ((r"dw", "rad/s"), (r"pdw|phi", "rad^2/s^2"), (r"p", " "), (r"R\d", "1/s"), (r"dJ", "Hz"),
                 (r"dH", "kcal/mol"), (r"dS", "kcal/(mol K)"), (r"[AB]0", "mol/l"), (r"kon", "1/(umol/l s)"),
                 (r"B?k", "1/s"))
        return next(unit for rule, unit in rules if re.match(rule, name))

    def check_manual(self):
        """Where the manual of the models is there, its tables of units agree as well."""
        page = ROOT / "docs/models.md"
        if not page.exists():
            return
        checked = 0
        rows = self.csv_of(*sorted(path.name for path in self.dir.glob("*.out") if path.stem != "probe"))
        for chapter in re.split(r"^### ", page.read_text(), flags=re.MULTILINE)[1:]:
            head, _, body = chapter.partition("\n")
            for model in re.findall(r"`(\w+)`", head):
                for name, unit in re.findall(r"^\| `(\w+)` \| ([^|]*) \|", body, re.MULTILINE):
                    for row in rows:
                        if row["model"] == model and row["name"] == name:
                            self.assertEqual(row["unit"], unit.strip(), (model, name))
                            checked += 1
        self.assertGreater(checked, 200)


class Example(Case):
    """The commands of docs/report.md and the table under them."""

    def test_it_gives_what_it_shows(self):
        readme = (ROOT / "docs/report.md").read_text()
        script, = re.findall(r"```sh\n(.*?)```", readme, re.DOTALL)
        (self.dir / "examples").symlink_to(ROOT / "examples")
        path = os.pathsep.join([os.path.dirname(REPORT), os.path.dirname(PROGRAM), os.environ["PATH"]])
        subprocess.run(["sh", "-eu", "-c", script], cwd=self.dir, check=True, env=dict(os.environ, PATH=path))
        data = json.loads((self.dir / "d9.json").read_text())
        total = data["comparison"]["total"]
        shown = re.findall(r"^\| (none|fast|two|three) \| (.*) \|$", readme, re.MULTILINE)
        self.assertEqual([c["run"] for c in total["criteria"]], [row[0] for row in shown])
        for found, (_, cells) in zip(total["criteria"], shown):
            numbers = [found[key] for key in ("parameters", "chi_square", "aic", "aicc", "bic")]
            for number, text in zip(numbers, cells.split(" | ")):
                self.assertAlmostEqual(number, float(text), delta=0.02)
            k, chi = found["parameters"], found["chi_square"]
            self.assertAlmostEqual(found["aicc"], chi + 2 * k + 2 * k * (k + 1) / (40 - k), delta=1e-9 * chi)
            self.assertAlmostEqual(found["bic"], chi + k * math.log(41), delta=1e-9 * chi)
        # The minimum of the two-site model is known from other software; see the example's head.
        self.assertAlmostEqual(total["criteria"][2]["chi_square"], 18.206445, delta=1e-4)
        for key in ("aic", "aicc", "bic"):
            self.assertEqual(min(total["criteria"], key=lambda c: c[key])["run"], "two")
        for test in total["f_tests"]:
            if test["extra_parameters"] == 2:  # the F tail has a closed form
                expected = (1 + 2 * test["f"] / test["dof"]) ** (-test["dof"] / 2)
                self.assertAlmostEqual(test["p"] / expected, 1, delta=1e-9)
        third = next(t for t in total["f_tests"] if t["simple"] == "two")
        self.assertAlmostEqual(third["f"], 1.23, delta=0.01)
        self.assertAlmostEqual(third["p"], 0.32, delta=0.01)
        for run in data["runs"]:
            if run["dof"] % 2 == 0:
                self.assertAlmostEqual(run["probability"], chi_tail(run["reduced_chi_square"] * run["dof"],
                                                                    run["dof"]), delta=1e-9)
        undetermined = {r["parameter"] for r in data["remarks"] if r["kind"] == "error"}
        self.assertEqual(undetermined, {"kca", "kac"})
        self.assertTrue(any(r["kind"] == "chi-square" and r["run"] == "two" for r in data["remarks"]))


# Put first: notes every error, and whatever the page would have fetched.
LISTEN = """<script>
window.found = [];
window.addEventListener("error", e => found.push("error: " + e.message));
document.addEventListener("securitypolicyviolation", e => found.push("blocked: " + e.blockedURI));
</script>"""

# Put last: clicks on headings and writes down what the table then shows.
CLICK = """<script>
const out = {errors: found, resources: performance.getEntriesByType("resource").length};
const table = document.getElementById("overview-r1");
const heads = [...table.tHead.rows[0].cells];
const column = name => heads.findIndex(h => h.textContent.trim().startsWith(name));
const cells = c => [...table.tBodies[0].rows].map(r => r.cells[c].textContent.trim());
out.columns = heads.map(h => h.textContent.trim());
out.before = cells(0);
for (const name of ["kex", "Set"]) {
  const c = column(name);
  heads[c].querySelector("button").click();
  out[name + " up"] = cells(c).map((t, i) => [t, cells(0)[i], heads[c].getAttribute("aria-sort")]);
  heads[c].querySelector("button").click();
  out[name + " down"] = cells(c).map((t, i) => [t, cells(0)[i], heads[c].getAttribute("aria-sort")]);
}
out.sets = document.querySelectorAll("section.set").length;
out.small = document.querySelectorAll(".small a svg").length;
out.along = document.querySelectorAll(".along svg").length;
out.dead = [...document.querySelectorAll("a[href^='#']")].filter(a => !document.getElementById(a.hash.slice(1))).length;
out.wide = document.documentElement.scrollWidth - document.documentElement.clientWidth;
const size = document.querySelector("section.set svg").getBoundingClientRect();
out.figure = [size.width, size.height];
const pre = document.createElement("pre");
pre.id = "found";
pre.textContent = JSON.stringify(out);
document.body.append(pre);
</script>"""


# Put last: text beyond the edge of its figure, and tables wider than their place.
MEASURE = """<script>
const out = {errors: found, cut: [], wide: [], texts: 0};
document.querySelectorAll(".set, .small a").forEach(e => e.style.contentVisibility = "visible");
for (const svg of document.querySelectorAll("svg")) {
  const box = svg.getBoundingClientRect();
  for (const text of svg.querySelectorAll("text")) {
    const b = text.getBoundingClientRect();
    ++out.texts;
    if (b.left < box.left - 1 || b.right > box.right + 1 || b.top < box.top - 1 || b.bottom > box.bottom + 1) {
      out.cut.push(text.textContent);
    }
  }
}
for (const table of document.querySelectorAll("table")) {
  const room = document.querySelector("main").getBoundingClientRect().right;
  const scrolls = getComputedStyle(table.parentElement).overflowX === "auto";
  if (!scrolls && table.getBoundingClientRect().right > room + 1) out.wide.push(table.textContent.slice(0, 40));
}
const pre = document.createElement("pre");
pre.id = "found";
pre.textContent = JSON.stringify(out);
document.body.append(pre);
</script>"""


def pixels(path):
    """{(r, g, b): count} and the first pixel of a PNG of 8 bits without interlace."""
    raw = path.read_bytes()
    place, packed = 8, b""
    while place < len(raw):
        length, kind = struct.unpack(">I4s", raw[place:place + 8])
        body = raw[place + 8:place + 8 + length]
        if kind == b"IHDR":
            width, height, bits, colour = struct.unpack(">IIBB", body[:10])
        if kind == b"IDAT":
            packed += body
        place += length + 12
    assert bits == 8 and colour in (2, 6)
    step = 3 if colour == 2 else 4
    data, stride, above = zlib.decompress(packed), width * step, bytearray(width * step)
    counts, first = {}, None
    for y in range(height):
        kind, row = data[y * (stride + 1)], bytearray(data[y * (stride + 1) + 1:(y + 1) * (stride + 1)])
        for i in range(stride if kind else 0):
            left = row[i - step] if i >= step else 0
            corner = above[i - step] if i >= step else 0
            if kind == 1:
                guess = left
            elif kind == 2:
                guess = above[i]
            elif kind == 3:
                guess = (left + above[i]) // 2
            else:
                p = left + above[i] - corner
                guess = min((left, above[i], corner), key=lambda v: abs(p - v))
            row[i] = (row[i] + guess) & 255
        for i in range(0, stride, step):
            pixel = tuple(row[i:i + 3])
            counts[pixel] = counts.get(pixel, 0) + 1
        first, above = first or tuple(row[:3]), row
    return counts, first


class Browser(Case):
    def chromium(self, *args):
        browser = shutil.which("chromium")
        if browser is None:
            self.fail("chromium is not installed; it comes with the Debian package of that name")
        command = [browser, "--headless", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage",
                   "--no-first-run", "--hide-scrollbars", f"--user-data-dir={self.dir}/profile", *args]
        return subprocess.run(command, capture_output=True, text=True, timeout=120).stdout

    def many_sets(self, count):
        """Fast exchange (Luz and Meiboom) with noise; titles in an order that is not that of numbers."""
        noise, text = random.Random(7), "FUNCTION CPMG_Meiboom\nMETHOD ONEEX\n"
        text += "PLOT 600MHz * 298 1 11 100 2000 39\nPLOT 800MHz * 298 1.3333 12 100 2000 39\n"
        for i in range(count):
            kex, pdw, rate = noise.uniform(900, 2500), 10 ** noise.uniform(4.2, 5.2), noise.uniform(7, 12)
            text += f"SET G{(i * 77) % count + 3}N-H\nPAR kex 200 8000 1 1500\nPAR pdw 1e3 1e6 1 4e4\n"
            text += "PAR R20_1_1 2 30 1 9\nPAR R20_1_2 2 30 1 9\n"
            for label, field in ((1, 1.0), (2, 1.3333)):
                for x in range(100, 2001, 190):
                    u = kex / (2 * x)
                    y = rate + pdw * field ** 2 / kex * (1 - math.tanh(u) / u) + noise.gauss(0, 0.2)
                    text += f"DATA {x} 298 {field} 1{label} {y:.4f} 0.2\n"
        (self.dir / "many.in").write_text(text)
        self.fit("many")
        self.run_report("-o", "many.html", "many.out")
        return (self.dir / "many.html").read_text()

    def test_page_of_200_sets(self):
        page = self.many_sets(200)
        self.assertEqual(re.findall(r"(?:https?:)?//[a-z]|@import|url\(", page), [])
        self.assertLess(len(page), 5e6)
        found = self.found(page, CLICK, "--window-size=1280,1000")
        self.assertEqual((found["errors"], found["resources"], found["dead"], found["wide"]), ([], 0, 0, 0))
        self.assertEqual((found["sets"], found["small"], found["along"]), (200, 200, 3))
        self.assertGreater(min(found["figure"]), 200)
        self.check_sorting(found)
        self.check_screenshots()

    def check_sorting(self, found):
        by_title = {row["set"]: float(row["value"]) for row in self.csv_of("many.out") if row["name"] == "kex"}
        self.assertEqual(found["before"], list(by_title))
        for way, name in ((False, "up"), (True, "down")):
            titles = [row[1] for row in found[f"kex {name}"]]
            self.assertEqual([by_title[t] for t in titles], sorted(by_title.values(), reverse=way))
            self.assertEqual({row[2] for row in found[f"kex {name}"]}, {"descending" if way else "ascending"})
            expected = [f"G{i}N-H" for i in range(3, 203)]
            self.assertEqual([row[1] for row in found[f"Set {name}"]], expected[::-1] if way else expected)
        # The cells show the values rounded to two digits of their errors.
        for shown, title, _ in found["kex up"]:
            self.assertLess(abs(float(shown) - by_title[title]), 0.51)

    def check_screenshots(self):
        for scheme, paper, accent in ((1, (255, 255, 255), (10, 100, 143)), (0, (18, 22, 27), (99, 189, 232))):
            shot = self.dir / "shot.png"
            self.chromium("--window-size=900,700", f"--blink-settings=preferredColorScheme={scheme}",
                          f"--screenshot={shot}", f"file://{self.dir}/many.html")
            counts, first = pixels(shot)
            self.assertEqual(first, paper)
            self.assertGreater(counts[paper], 300000)
            self.assertGreater(counts.get(accent, 0), 200)  # links of the table

    def found(self, page, script, *args):
        """What a script finds out about a page."""
        probe = page.replace('<meta charset="utf-8">', '<meta charset="utf-8">' + LISTEN)
        (self.dir / "probe.html").write_text(probe.replace("</body>", script + "</body>"))
        dom = self.chromium(*args, "--dump-dom", f"file://{self.dir}/probe.html")
        text = re.search(r'<pre id="found">(.*?)</pre>', dom, re.DOTALL)
        self.assertTrue(text, dom[-2000:])
        return json.loads(text[1].replace("&lt;", "<").replace("&gt;", ">").replace("&amp;", "&"))

    def test_nothing_is_cut_off_on_the_screen_and_in_print(self):
        # Titles with one number, so that they stand slanted below the axis, and errors by all methods.
        text = (ROOT / "examples/hansen08_15n_cpmg_local.in").read_text()
        text = re.sub(r"(?m)^SET (70|71)$", r"SET L98CD1-HD1-\1-and-more", text, count=2)
        text = re.sub(r"(?m)^METHOD (GRID|MCMIN).*\n", "", text)
        (self.dir / "l.in").write_text(text + "JACK1\nMONTE1 5\n")
        self.fit("l")
        self.run_report("-o", "l.html", "l.out")
        page = (self.dir / "l.html").read_text()
        self.assertIn("L98CD1-HD1-70-and-more", page)
        # Letter paper less its margins is 710 wide.
        for place, words in ((page, "--window-size=1280,1000"),
                             (page.replace("@media print", "@media all"), "--window-size=710,1000")):
            found = self.found(place, MEASURE, words)
            with self.subTest(words):
                self.assertEqual((found["errors"], found["cut"], found["wide"]), ([], [], []))
                self.assertGreater(found["texts"], 60)

    def test_points_of_a_column_stand_below_each_other(self):
        rows = re.findall(r"<tr><td><a href=\"#r1-s\d+\">.*?</tr>", self.many_sets(12))
        self.assertEqual(len(rows), 12)
        columns = zip(*(re.findall(r"<td[^>]*?(?: data-pad=\"([.\d]+)\")?>([^<]*)</td>", row) for row in rows))
        padded = 0
        for column in columns:
            ends = set()  # places behind the point
            for pad, shown in column:
                if not re.fullmatch(r"-?\d+(\.\d+)?", shown):
                    continue
                decimals = len(shown.partition(".")[2])
                self.assertEqual(pad.startswith("."), bool(pad) and decimals == 0)
                ends.add(decimals + int(pad.strip(".") or 0))
                padded += bool(pad)
            self.assertLessEqual(len(ends - {0}), 1 if padded else 2, column)
        self.assertGreater(padded, 5)

    def test_small_figures_have_two_numbers_on_each_axis(self):
        page = self.many_sets(30)
        small = page[page.index('<div class="small">'):]
        figures = re.findall(r"<svg.*?</svg>", small[:small.index("</div>")])
        self.assertEqual(len(figures), 30)
        for figure in figures:
            for axis in ("num mid", "num end"):
                self.assertGreaterEqual(figure.count(f'class="{axis}"'), 2)

    def test_page_of_several_models(self):
        write_input(self.dir / "one.in", "CPMG_const", [("s1", ["PAR R20 1 40"])],
                    [(100 + i, 5, 1) for i in range(20)], columns=3, labels=2)
        write_report(self.dir / "one.out", "CPMG_const", [("s1", [("R20", "5", "0.1")], 3.0, 19)], points=20)
        write_input(self.dir / "two.in", "CPMG_Meiboom",
                    [("s1", ["PAR kex 1 5000", "PAR pdw 1 1e6", "PAR R20 1 40"])],
                    [(100 + i, 5, 1) for i in range(20)], columns=3, labels=2)
        values = [("kex", "900", "40"), ("pdw", "20000", "300"), ("R20", "5", "0.1")]
        write_report(self.dir / "two.out", "CPMG_Meiboom", [("s1", values, 1.0, 17)], points=20)
        self.run_report("-o", "page.html", "one.out", "two.out")
        page = (self.dir / "page.html").read_text().replace('<meta charset="utf-8">', '<meta charset="utf-8">' + LISTEN)
        page = page.replace("</body>", "<script>document.title = JSON.stringify([found, "
                            "document.getElementById('verdict').textContent, "
                            "[...document.querySelectorAll('#f-tests td')].map(c => c.textContent)]);</script></body>")
        (self.dir / "probe.html").write_text(page)
        dom = self.chromium("--dump-dom", f"file://{self.dir}/probe.html")
        found = json.loads(re.search(r"<title>(.*?)</title>", dom)[1].replace("&gt;", ">").replace("&lt;", "<"))
        # F = ((57 - 17)/2)/(17/17) = 20, p = (1 + 40/17)^-8.5
        p = (1 + 40 / 17) ** -8.5
        self.assertEqual(found, [[], "Smallest AIC: two, AICc: two, BIC: two.",
                                 ["one", "two", "2", "17", "20.00", f"{p:#.2g}", "a limit of the larger model"]])


if __name__ == "__main__":
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--program", required=True)
    options, rest = parser.parse_known_args()
    PROGRAM = os.path.abspath(options.program)
    if not REPORT:
        sys.exit("the environment does not name dravo-report: DRAVO_REPORT")
    unittest.main(argv=[sys.argv[0], *rest])
