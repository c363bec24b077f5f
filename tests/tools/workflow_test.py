#!/usr/bin/env python3
"""dravo-workflow: the numbers of one run, whatever the parts; faults, stops and a cluster.

What parts must give is what one run of dravo gives. Statistics of joined Monte Carlo analyses are
held against those that the program computes from the same passes. The cluster is a directory in which
commands with the names of Slurm's run jobs on this machine.
"""
# SPDX-License-Identifier: GPL-3.0-or-later
import argparse
import csv
import json
import math
import os
import pathlib
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
EXAMPLES = ROOT / "examples"
WORKFLOW = ROOT / "tools" / "workflow"
sys.dont_write_bytecode = True
sys.path[:0] = [str(ROOT / "tests" / "docs"), str(WORKFLOW)]
import tutorial_test  # noqa: E402  how the commands of a page are run and compared
import inputs  # noqa: E402
import jobs  # noqa: E402
import outputs  # noqa: E402

DRAVO, REPORT = "", os.environ.get("DRAVO_REPORT", "")
PATIENCE = 120  # seconds; only what hangs takes them

# y = a exp(b x), near a = 100 and b = -5.
DECAY = "".join(f"DATA {x} {y} 1 -\n" for x, y in
                ((0.0, 101), (0.1, 60), (0.2, 37), (0.3, 22), (0.4, 14), (0.5, 8)))
RANGES = "PAR a 50 200 3\nPAR b -10 -1 3\n"


def decay(*titles, head="METHOD GRID\nMETHOD ONEEX\nPLOT curve 0 0 0 0.5 20\n"):
    """An exponential for each title, the curves not alike."""
    sets = "".join(f"SET {title}\n{RANGES}DATA 0.05 {70 + i} 1 -\n{DECAY}"
                   for i, title in enumerate(titles))
    return f"FUNCTION Exp2\n{head}{sets}"


def without_random_methods(text):
    return re.sub(r"^METHOD R?MCMIN.*\n", "", text, flags=re.MULTILINE)


def same_head(text):
    """A report but for what the manual excepts: the duration, and chi-squares before the last method."""
    text = re.sub(r"^# Fit duration .*\n", "", text, flags=re.MULTILINE)
    chi = re.findall(r"^# \w+ +X2/DoF = .*\n", text, flags=re.MULTILINE)
    return text.replace("".join(chi[:-1]), "")


class Case(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="dravo workflow ")  # with blanks, as paths may have
        self.addCleanup(folder.cleanup)
        self.place = pathlib.Path(folder.name)
        self.environment = dict(os.environ, HOME=str(self.place / "home"), LC_ALL="C.UTF-8")
        (self.place / "home").mkdir()

    def write(self, name, text, mode=0o644):
        path = self.place / name
        path.parent.mkdir(exist_ok=True, parents=True)
        path.write_text(text)
        path.chmod(mode)
        return path

    def command(self, *words, dravo=None):
        return [str(WORKFLOW / "dravo-workflow"), "--dravo", str(dravo or DRAVO),
                *(["--dravo-report", REPORT] if "--dravo-report" not in words else []),
                *(["--cores", "2"] if "--profile" not in words else []), *map(str, words)]

    def workflow(self, *words, status=0, **more):
        """What it says on standard error."""
        done = subprocess.run(self.command(*words, **more), cwd=self.place, env=self.environment, text=True,
                              stdout=subprocess.PIPE, stderr=subprocess.PIPE, timeout=PATIENCE)
        log = self.place / "results" / "logs" / "snakemake.log"
        self.assertEqual(done.returncode, status, done.stderr + (log.read_text() if log.exists() else ""))
        return done.stderr

    def one_run(self, path, *words):
        """A run of the program alone, in a directory of its own; returns its report."""
        place = self.place / "alone" / path.stem
        place.mkdir(parents=True)
        shutil.copy(path, place / path.name)
        report = place / f"{path.stem}.out"
        done = subprocess.run([DRAVO, "-i", path.name, "-o", report.name, *words], cwd=place,
                              capture_output=True, text=True)
        self.assertEqual(done.returncode, 0, done.stderr)
        return report

    def table_of(self, *reports, words=()):
        done = subprocess.run([REPORT, *words, "--csv", "-", *map(str, reports)], capture_output=True)
        self.assertEqual(done.returncode, 0, done.stderr)
        return done.stdout

    def result(self, name):
        return (self.place / "results" / name).read_bytes()

    def counting(self, rest=""):
        """A program that notes the inputs it is called with in `runs`, then is dravo."""
        return self.write("counting", f'#!/bin/sh\necho "$2" >>"{self.place}/runs"\n{rest}\n'
                                      f'exec "{DRAVO}" "$@"\n', 0o755)

    def runs(self):
        path = self.place / "runs"
        found = sorted(path.read_text().split("\n")[:-1]) if path.exists() else []
        path.unlink(missing_ok=True)
        return found


class Sets(Case):
    def test_measured_and_made_up_examples_give_the_table_of_one_run(self):
        names = ("hansen08_15n_cpmg_local", "synthetic_cleanex", "synthetic_denaturation",
                 "synthetic_recovery")
        for name in names:
            self.write(f"{name}.in", without_random_methods((EXAMPLES / f"{name}.in").read_text()))
        self.workflow("--split-sets", *(f"{name}.in" for name in names))
        alone = [self.one_run(self.place / f"{name}.in", "-xmgr") for name in names]
        self.assertEqual(self.result("table.csv"), self.table_of(*alone))
        for name, report in zip(names, alone):
            joined = self.result(f"runs/{name}/{name}.out").decode()
            self.assertEqual(same_head(joined), same_head(report.read_text()))
            self.assertIn(joined, self.result("report.txt").decode())
            plots = sorted(report.parent.glob("*.xmgr"))
            self.assertEqual(len(plots), 2)
            for plot in plots:
                self.assertEqual(self.result(f"runs/{name}/{plot.name}"), plot.read_bytes())
        for page in ("report.html", "table.json"):
            self.assertIn(b"hansen08_15n_cpmg_local", self.result(page))
        # Chi-squares that other software found for these two residues.
        rows = list(csv.DictReader(self.result("table.csv").decode().splitlines()))
        chi = {row["set"]: float(row["reduced_chi_square"]) * int(row["dof"]) for row in rows}
        self.assertAlmostEqual(chi["70"], 53.83821, delta=1e-3)
        self.assertAlmostEqual(chi["71"], 15.65953, delta=1e-3)

    def test_titles_that_are_no_file_names(self):
        titles = ("a/b", "../up", "/root", "it's", 'say"no"', "$HOME", "{x}", "twice", "twice", "TWICE",
                  "twice-2", "-v", ".", "é", "a" * 120, "ab" * 60, "ä" * 130, "%", "*")
        path = self.write("odd.in", decay(*titles))
        said = self.workflow("--split-sets", "--prec", 9, "odd.in")
        self.assertEqual(re.findall(r"the title '(.*)' cannot", said), ["a/b", "../up", "/root", "ä" * 130])
        self.assertEqual(self.result("table.csv"), self.table_of(self.one_run(path, "-prec", "9")))
        parts = sorted(one.name for one in (self.place / "results/parts/odd").iterdir())
        self.assertEqual(len(parts), len(titles))
        self.assertTrue(all(re.fullmatch(r"[A-Za-z0-9_+-][A-Za-z0-9._+-]*", one) for one in parts), parts)
        self.assertEqual(len({one.lower() for one in parts}), len(titles))

    def test_lines_of_the_whole_file_and_their_effect_beyond_their_place(self):
        lost = "DATA 0 1 1 -\nDATA 1 1 1 -\n"
        text = ("# head\nfunction Exp2\nGPAR nobody 1 2\nGFIXED rate -5\n" + "METHOD ONE\njack1\n"
                f"SET kept\n{RANGES}{DECAY}GPAR own 50 200 2 100\n"
                f"#SET out\n{RANGES}{DECAY}PAR\nDATA no point\nGREST own 1 2\nGFIXED later -4.9\n"
                f"SET few\n{RANGES}{lost}"
                f"Set,ruled\r\nPAR a own\npar b rate\n{DECAY}METHOD ONEEX\n"
                f"SET fixed\nPAR a own2\nPAR b later\n{DECAY}").replace("SET fixed", "GREST own2 90 200\nSET fixed")
        path = self.write("whole.in", text)
        said = self.workflow("--split-sets", "whole.in")
        self.assertIn("'few' is omitted", said)
        report = self.one_run(path)
        self.assertEqual(self.result("table.csv"), self.table_of(report))
        self.assertEqual(same_head(self.result("runs/whole/whole.out").decode()), same_head(report.read_text()))
        # `nobody` and the second `own` cost two degrees of freedom: 3 times 6 points, 4 parameters.
        self.assertIn(b"(DoF) = 12\n", self.result("runs/whole/whole.out"))
        summary = self.result("runs/whole/whole.out-jack.sum").decode()
        alone = pathlib.Path(f"{report}-jack.sum").read_text()
        self.assertEqual(summary.splitlines()[:-1], alone.splitlines()[:-1])

    def test_errors_that_are_switched_off_stay_so(self):
        first = DECAY.replace(" 1 -", "", 1).replace("DATA 0.0 101", "DATA 0.0 101 5")
        path = self.write("off.in", f"FUNCTION Exp2\nMETHOD ONEEX\nSET one\n{RANGES}{first}SET two\n"
                                    f"{RANGES}{DECAY.replace(' 1 -', ' 3 -')}")
        said = self.workflow("--split-sets", "off.in")
        self.assertEqual(said, "dravo-workflow: off.in, set one and 1 more: WARNING: Assuming that no "
                               "experimental error is specficed.\ndravo-workflow: off.in, set one and 1 more: "
                               "#WARNING: No plot instructions given\n")
        self.assertEqual(self.result("table.csv"), self.table_of(self.one_run(path)))
        self.workflow("--split-sets", "--noerr", "off.in")
        noerr = self.one_run(self.write("copy/off2.in", path.read_text()), "-noerr")
        rows = self.table_of(noerr, words=["--noerr"]).replace(b"off2", b"off")
        self.assertEqual(self.result("table.csv"), rows)

    def test_what_cannot_be_taken_apart_is_refused_with_the_line(self):
        late = DECAY.replace(" 1 -\nDATA 0.5", "\nDATA 0.5")
        refused = (
            ((EXAMPLES / "sod1_15n_cpmg_global.in").read_text(), r"line \d+: GPAR \w+ is shared \(2 uses"),
            (f"FUNCTION Exp2\nGPAR g 1 2\nSET one\nPAR a g\nPAR b g\n{DECAY}", "line 2: GPAR g is shared"),
            (f"FUNCTION Exp2\nSET one\nPAR a g\nPAR b g\n{DECAY}", "line 3: no GPAR, GREST or GFIXED line"),
            (decay("one") + f"SET two\n{RANGES}{late}", "line 22: a point without error"),
            (f"FUNCTION Exp2\nSET one\n{RANGES}DATA 0 1 1 -\n", "no set has more points"),
            ("FUNCTION Exp2\nPAR a 1\n", "line 2: PAR stands before the first SET"),
            ("FUNCTION Exp2\nPARR a 1\n", "line 2: 'PARR' is no keyword"),
            ("FUNCTION Exp2\nSET\n", "line 2: SET needs more fields"),
            (decay("one") + "#SET is left out\n", r"line \d+: #SET takes one title"),
            # 7 points, 2 parameters of the set, 5 of nobody.
            (decay("one", head="".join(f"GPAR g{i} 1 2\n" for i in range(5))), "more adjustable parameters"),
        )
        for text, message in refused:
            self.write("bad.in", text)
            self.assertRegex(self.workflow("--split-sets", "bad.in", status=1), f"bad.in: (line|no set|more).*\n")
            self.assertRegex(self.workflow("--split-sets", "bad.in", status=1), message)
        self.assertFalse((self.place / "results").exists())


class ManyInputs(Case):
    def test_a_failed_fit_is_named_and_tried_again_while_the_others_stay(self):
        good = self.write("good one.in", decay("x"))
        self.write("a/same.in", decay("y"))
        self.write("b/same.in", decay("z", "z2"))
        bad = self.write("it's bad.in", decay("w") + "SET v\nPAR nothing 1\n")
        words = ("good one.in", "it's bad.in", "a/same.in", "b/same.in")
        dravo = self.counting()
        said = self.workflow(*words, status=1, dravo=dravo)
        self.assertIn("it's bad.in: ERROR", said)
        self.assertIn("nothing", said)
        self.assertIn("1 fit failed", said)
        self.assertIn(b"==== Failed\n\nit's bad.in: ERROR", self.result("report.txt"))
        rows = list(csv.DictReader(self.result("table.csv").decode().splitlines()))
        self.assertEqual([row["run"] for row in rows[::2]], ["good one", "same", "same-2", "same-2"])
        alone = self.table_of(self.one_run(good, "-xmgr")).splitlines()
        self.assertEqual(self.result("table.csv").splitlines()[:3], alone)
        self.assertEqual(self.runs(), sorted(("good_one.in", "it_s_bad.in", "same.in", "same-2.in")))

        bad.write_text(decay("w"))
        self.workflow(*words, dravo=dravo)
        self.assertEqual(self.runs(), ["it_s_bad.in"])
        self.assertEqual(len(self.result("table.csv").splitlines()), 1 + 2 * 5)
        self.workflow(*words, dravo=dravo)
        self.assertEqual(self.runs(), [])
        self.workflow("--noerr", *words, dravo=dravo)  # other options: other fits
        self.assertEqual(len(self.runs()), 4)

    def test_some_sets_that_fail_leave_a_report_of_the_others(self):
        # No finite start and no method that looks for one.
        bad = "SET bad\nPAR a 1e8\nPAR b 1e6\nDATA 1 1 1 -\nDATA 2 1 1 -\nDATA 3 1 1 -\n"
        self.write("some.in", decay("one") + bad + decay("two").split("20\n", 1)[1])
        said = self.workflow("--split-sets", "some.in", status=1)
        self.assertRegex(said, r"some.in, set bad: .*\n?.*(ERROR|Bad initial|Error)")
        path = self.write("pair.in", decay("one") + decay("two").split("20\n", 1)[1])
        rows = self.table_of(self.one_run(path, "-xmgr")).replace(b"pair", b"some")
        self.assertEqual(self.result("table.csv"), rows)

    def test_each_run_has_a_name_of_its_own(self):
        # The second x becomes x-2, which is the name of the third.
        for path in ("a/x.in", "b/x.in", "x-2.in", "b/x-2-2.in"):
            self.write(path, decay(path.replace("/", ".")))
        self.workflow("a/x.in", "b/x.in", "x-2.in", "b/x-2-2.in")
        rows = list(csv.DictReader(self.result("table.csv").decode().splitlines()))
        self.assertEqual([(row["run"], row["set"]) for row in rows[::2]], [
            ("x", "a.x.in"), ("x-2", "b.x.in"), ("x-2-2", "x-2.in"), ("x-2-2-2", "b.x-2-2.in")])
        self.assertEqual(re.findall("^==== (.*)", self.result("report.txt").decode(), re.MULTILINE),
                         ["x", "x-2", "x-2-2", "x-2-2-2"])

    def test_programs_that_end_without_a_word(self):
        self.write("good.in", decay("x"))
        for script, message in (("kill -9 $$", "ended by signal 9"), ("exit 3", "ended with status 3")):
            report = self.write("report", f"#!/bin/sh\n{script}\n", 0o755)
            said = self.workflow("--dravo-report", report, "good.in", status=1)
            self.assertIn(f"good: dravo-report {message}", said)
            self.assertFalse((self.place / "results/report.html").exists())
        dravo = self.write("nothing", "#!/bin/sh\n", 0o755)
        self.assertIn("good.in: it ended well but left no report",
                      self.workflow("-o", "none", "good.in", dravo=dravo, status=1))

    def test_files_that_cannot_be_written(self):
        self.write("good.in", decay("x"))
        done = subprocess.run(["sh", "-c", 'ulimit -f 0; exec "$@"', "sh", *self.command("good.in")],
                              cwd=self.place, env=self.environment, capture_output=True, text=True)
        self.assertEqual((done.returncode, done.stderr), (1, "dravo-workflow: results: File too large\n"))

    def test_nothing_but_failures(self):
        self.write("bad.in", "FUNCTION Exp2\n")
        self.assertIn("More adjustable parameters", self.workflow("bad.in", status=1))
        self.assertFalse((self.place / "results/table.csv").exists())

    def test_wrong_calls(self):
        self.write("good.in", decay("x"))
        self.assertIn("missing.in: No such file", self.workflow("missing.in", status=1))
        self.write("full/of/things", "")
        self.assertIn("full: is not empty", self.workflow("-o", "full", "good.in", status=1))
        self.assertIn("--cores 0 is not possible", self.workflow("--cores", 0, "good.in", status=2))
        self.assertIn("7 simulations cannot be split into 4",
                      self.with_monte("MONTE 7\n", 4, status=1))
        self.environment["PATH"] = str(self.write("bin/python3", "", 0o755).parent)
        done = subprocess.run([sys.executable, *self.command("good.in")], cwd=self.place, text=True,
                              env=self.environment, capture_output=True)
        self.assertEqual((done.returncode, done.stderr), (
            1, "dravo-workflow: the program snakemake is not found; it is in the Debian package snakemake\n"))

    def with_monte(self, line, parts, **more):
        self.write("monte.in", decay("x", head=line))
        return self.workflow("--split-monte", parts, "monte.in", **more)

    def test_help_names_each_option_of_the_man_page(self):
        said = subprocess.run([WORKFLOW / "dravo-workflow", "--help"], text=True, capture_output=True).stdout
        page = (ROOT / "docs" / "dravo-workflow.1").read_text()
        described = {f"-{word}" for line in re.findall(r"^\.It .*", page, re.MULTILINE)
                     for word in re.findall(r"Fl (-[\w-]+)", line)}
        offered = set(re.findall(r"(?<!\w)--\w[\w-]*", said))
        self.assertEqual(offered, described)
        lint = subprocess.run(["mandoc", "-T", "lint", "-W", "warning", ROOT / "docs/dravo-workflow.1"],
                              text=True, capture_output=True)
        self.assertEqual((lint.stdout, lint.returncode), ("", 0))


class MonteCarlo(Case):
    def test_parts_are_one_analysis(self):
        head = "METHOD GRID\nMETHOD ONEEX\nMONTE1 41\nJACK1\n"
        path = self.write("mc.in", decay("one", "two", head=head))
        dravo = self.counting()
        self.workflow("--split-monte", 3, "mc.in", dravo=dravo)
        self.assertEqual(self.runs(), ["mc.fit.in", "mc.monte-1.in", "mc.monte-2.in", "mc.monte-3.in"])
        announced, passes = outputs.read_passes(self.result("runs/mc/mc.out-monte").decode())
        self.assertEqual((announced, [each.number for each in passes]), (41, list(range(1, 42))))
        # All began at the fit, to the last bit: 17 digits tell every double.
        fits = [outputs.read_report(self.result(f"parts/mc/{part}/mc.{part}.out").decode())
                for part in ("fit", "monte-1", "monte-2", "monte-3")]
        for part in fits[1:]:
            self.assertEqual([one.parameters() for one in part.sets],
                             [one.parameters() for one in fits[0].sets])
        report = self.one_run(path)
        alone = list(csv.DictReader(self.table_of(report).decode().splitlines()))
        joined = list(csv.DictReader(self.result("table.csv").decode().splitlines()))
        for a, b in zip(alone, joined, strict=True):
            for name in a:
                if not name.startswith("montecarlo"):
                    self.assertEqual(a[name], b[name], name)
            # Straight enough for the scatter of 41 simulations, 11 % on average, to be near the error.
            self.assertLess(abs(float(b["montecarlo_error"]) / float(b["error"]) - 1), 0.6)
        for suffix in ("-jack", "-jack.sum", "-jack-final.out"):
            self.assertEqual(self.result(f"runs/mc/mc.out{suffix}"), pathlib.Path(f"{report}{suffix}").read_bytes())

    def test_simulations_with_all_methods_and_parts_of_single_sets(self):
        self.write("mc.in", decay("one", "two", head="METHOD ONEEX\nMONTE 12\n"))
        self.workflow("--split-sets", "--split-monte", 2, "mc.in")
        for title in ("one", "two"):
            part = self.result(f"parts/mc/{title}@monte-2/mc.{title}@monte-2.in").decode()
            self.assertIn("METHOD ONEEX\nMONTE 6\n", part)
        announced, passes = outputs.read_passes(self.result("runs/mc/mc.out-monte").decode())
        self.assertEqual((announced, len(passes), len(passes[0].sets)), (12, 12, 2))
        for each in passes:
            own = [outputs.numbers_of(lines)[1] * 5 for lines in each.sets]  # 7 points, 2 parameters
            self.assertAlmostEqual(each.reduced * 10, sum(own), delta=1e-4 * sum(own))

    def statistics_of_a_run(self, name, text):
        """Joins the passes of one run, cut in two, and holds it against what that run wrote."""
        report = self.one_run(self.write(name, text), "-prec", "17")
        passes = pathlib.Path(f"{report}-monte").read_text()
        head, *blocks = re.split(r"(?<=\n\n)|(?<=\)\n)(?=#1: )", passes)
        count = int(re.search(r"\d+", head)[0])
        cut = count // 3
        files = [f"Monte Carlo simulations ({cut})\n" + "".join(blocks[:cut]),
                 f"Monte Carlo simulations ({count - cut})\n" +
                 "".join(re.sub(r"^#(\d+)", lambda m: f"#{int(m[1]) - cut}", block, flags=re.MULTILINE)
                         for block in blocks[cut:])]
        final = pathlib.Path(f"{report}-monte-final.out").read_text()
        fitted = outputs.read_report(report.read_text())
        joined = outputs.join_simulations(fitted, files, final)
        self.assertEqual(joined["-monte"], passes)
        for suffix in ("-monte.sum", "-monte-final.out"):
            own = pathlib.Path(f"{report}{suffix}").read_text()
            number = r"(?<![\w.])-?\d+\.?\d*(?:e[-+]\d+)?"
            # Without the blanks that fill a column: a last digit of 0 is not shown, one of 1 is.
            blank = [re.sub(r"\t +", "\t", re.sub(number, "#", each)) for each in (own, joined[suffix])]
            self.assertEqual(blank[0], blank[1])
            for a, b in zip(re.findall(number, own), re.findall(number, joined[suffix])):
                # From passes of six digits; an error is a difference of such numbers.
                self.assertTrue(math.isclose(float(a), float(b), rel_tol=2e-4), f"{suffix}: {a} {b}")
        return joined

    def test_statistics_are_those_of_the_program(self):
        fixed = f"SET held\nPAR a 50 200 3\nFIXED b -5\n{DECAY}"
        joined = self.statistics_of_a_run("two.in", decay("one", head="METHOD ONEEX\nMONTE 24\n") + fixed)
        self.assertEqual(joined["-monte.sum"].count("Percentile"), 2)
        text = without_random_methods((EXAMPLES / "fyn_d9_15n_sq_cpmg.in").read_text())
        calc = "CALC REX Rex * 298 1 11\nCALC PB pb * 298 1 11\nMONTE1 9\n"
        joined = self.statistics_of_a_run("calc.in", text + calc)
        self.assertNotIn("Percentile", joined["-monte.sum"])

    def test_a_dropped_simulation_counts_among_the_percentiles(self):
        one = outputs.SetResult("s", [], 1.0, 2)
        # 10 announced, 9 there: the largest, for fractions from 0.95 on, is the one that was dropped.
        rows = outputs.percentile_rows(one, [0.1 * k for k in range(1, 10)], 10).splitlines()
        self.assertEqual(rows[1], "\t\t0.05\t    0.1")
        self.assertEqual(rows[-2], "\t\t0.9\t    0.9")
        self.assertEqual(rows[-1], "\t\t0.95\t4.9995e+99\t***")

    def test_parts_whose_fits_disagree_are_left_out_and_named(self):
        # A program that fits other data when it makes the second part.
        dravo = self.write("astray", '#!/bin/sh\ncase $2 in *monte-2.in) sed -i "s/ 101 / 140 /" "$2";; esac\n'
                                     f'exec "{DRAVO}" "$@"\n', 0o755)
        self.write("mc.in", decay("one", head="METHOD ONEEX\nMONTE 20\n"))
        said = self.workflow("--split-monte", 2, "mc.in", dravo=dravo, status=1)
        self.assertIn("mc.in, simulations 11 to 20: its own fit ends at", said)
        announced, passes = outputs.read_passes(self.result("runs/mc/mc.out-monte").decode())
        self.assertEqual((announced, len(passes)), (10, 10))


class Stopped(Case):
    TITLES = ("one", "two", "three", "four", "five")

    def start_and_wait_until_it_hangs(self, ignored=()):
        """A call whose fit of `three` writes half a report and hangs; returns it and its group."""
        hang = (f'case $2 in *.three.in) if [ -e "{self.place}/hang" ]; then echo "# DRAVO VER" >"$4"\n'
                f'cut -d" " -f5 /proc/$$/stat >"{self.place}/group.part"\n'
                f'mv "{self.place}/group.part" "{self.place}/group"; sleep {PATIENCE}; fi;; esac')
        self.dravo = self.counting(hang)
        self.write("hang", "")
        self.path = self.write("five.in", decay(*self.TITLES))
        command = self.command("--cores", "1", "--split-sets", "five.in", dravo=self.dravo)
        call = subprocess.Popen(command, cwd=self.place, env=self.environment, text=True,
                                stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                preexec_fn=lambda: [signal.signal(one, signal.SIG_IGN) for one in ignored])
        group = self.place / "group"
        deadline = time.monotonic() + PATIENCE
        while not group.exists():
            self.assertLess(time.monotonic(), deadline)
            self.assertIsNone(call.poll(), "it ended before it could hang")
            time.sleep(0.02)
        (self.place / "hang").unlink()
        return call, int(group.read_text())

    def resume_and_check(self):
        before = set(self.runs())
        self.assertIn("five.three.in", before)
        finished = {one for one in before
                    if (self.place / "results/parts/five" / one.split(".")[1] / "status.json").exists()}
        self.assertNotIn("five.three.in", finished)
        self.workflow("--split-sets", "five.in", dravo=self.dravo)
        again = self.runs()
        self.assertEqual(sorted(again), sorted({f"five.{title}.in" for title in self.TITLES} - finished))
        self.assertEqual(self.result("table.csv"), self.table_of(self.one_run(self.path, "-xmgr")))
        left = [path for form in ("*.part", "*~*") for path in (self.place / "results").rglob(form)]
        self.assertEqual(left, [])

    def test_killed_in_the_middle_it_goes_on_where_it_was(self):
        call, group = self.start_and_wait_until_it_hangs()
        call.kill()
        os.killpg(group, signal.SIGKILL)
        call.communicate(timeout=PATIENCE)
        self.assertEqual(list((self.place / "results/parts/five/three").iterdir()), [])
        self.resume_and_check()

    def test_asked_to_stop_it_ends_its_fits_and_goes_on_later(self):
        call, group = self.start_and_wait_until_it_hangs()
        second = self.workflow("--split-sets", "five.in", dravo=self.dravo, status=1)
        self.assertEqual(second, "dravo-workflow: results: another call is at work there\n")
        call.terminate()
        self.end_and_resume(call, group)

    def test_what_the_caller_ignores_does_not_stop_it(self):
        # As under nohup, and in the background of a script.
        call, group = self.start_and_wait_until_it_hangs(ignored=(signal.SIGHUP, signal.SIGINT))
        call.send_signal(signal.SIGHUP)
        call.send_signal(signal.SIGINT)
        with self.assertRaises(subprocess.TimeoutExpired):
            call.wait(2)
        call.terminate()
        self.end_and_resume(call, group)

    def end_and_resume(self, call, group):
        _, said = call.communicate(timeout=PATIENCE)
        self.assertEqual((call.returncode, said), (130, "dravo-workflow: stopped; the same command goes on\n"))
        with self.assertRaises(ProcessLookupError):
            os.killpg(group, 0)
        self.resume_and_check()


SBATCH = """#!/bin/sh
# Runs the job here and keeps its state; a job of `lost` dies with its machine.
cluster={cluster}
number=$(ls "$cluster" | grep -c call)
echo "$*" >"$cluster/call.$number"
for script; do :; done
cp "$script" "$cluster/script.$number"
echo RUNNING >"$cluster/state.$number"
(
  if grep -q 'runs/lost' "$script"; then echo NODE_FAIL >"$cluster/state.$number"; exit; fi
  if sh "$cluster/script.$number" >"$cluster/log.$number" 2>&1; then echo COMPLETED; else echo FAILED; fi \\
    >"$cluster/state.$number"
) </dev/null >/dev/null 2>&1 &
echo "$number;here"
"""
SQUEUE = """#!/bin/sh
# Forgets jobs that ended, as after some minutes; sacct knows them.
for number; do :; done
grep -x RUNNING {cluster}/state.${{number%;*}} || echo "slurm_load_jobs error: Invalid job id" >&2
"""
SACCT = """#!/bin/sh
for number; do :; done
cat {cluster}/state.${{number%;*}}
"""


class Slurm(Case):
    def setUp(self):
        super().setUp()
        cluster = self.place / "cluster"
        cluster.mkdir()
        for name, text in (("sbatch", SBATCH), ("squeue", SQUEUE), ("sacct", SACCT)):
            self.write(f"bin/{name}", text.format(cluster=f"'{cluster}'"), 0o755)
        self.write("bin/scancel", "#!/bin/sh\n", 0o755)
        self.environment["PATH"] = f"{self.place / 'bin'}:{os.environ['PATH']}"
        self.environment["CI"] = "true"  # snakemake then asks for states each second, not every ten
        self.cluster = cluster

    def test_the_shipped_profile_runs_every_fit_as_a_job(self):
        good = [self.write(f"{name}.in", decay(name)) for name in ("first", "second")]
        self.write("lost.in", decay("lost"))
        said = self.workflow("--profile", "slurm", "--time", 7, "--memory", 321, "--cores", 3, "first.in",
                             "lost.in", "second.in", "--", "--latency-wait", "1", status=1)
        self.assertIn("lost.in: did not finish", said)
        calls = [path.read_text() for path in self.cluster.glob("call.*")]
        self.assertEqual(len(calls), 3)
        for call in calls:
            for word in ("--parsable", "--time=7", "--mem=321", "--cpus-per-task=1", "--job-name=dravo-fit-",
                         "--output=logs/slurm-%j.log"):
                self.assertIn(word, call)
        alone = [self.one_run(path, "-xmgr") for path in good]
        self.assertEqual(self.result("table.csv"), self.table_of(*alone))
        # Asked again it submits the lost one alone; here it finds its machine.
        self.write("bin/sbatch", (self.place / "bin/sbatch").read_text().replace("runs/lost", "no such"), 0o755)
        self.workflow("--profile", "slurm", "--time", 7, "--memory", 321, "first.in", "lost.in", "second.in")
        self.assertEqual(len(list(self.cluster.glob("call.*"))), 4)
        self.assertEqual(len(self.result("table.csv").splitlines()), 1 + 3 * 2)

    def test_states_of_jobs(self):
        script = WORKFLOW / "slurm" / "status.py"
        for state, expected in (("RUNNING", "running"), ("PENDING", "running"), ("COMPLETED", "success"),
                                ("TIMEOUT", "failed"), ("CANCELLED by 0", "failed"), ("OUT_OF_MEMORY", "failed")):
            (self.cluster / "state.5").write_text(state + "\n")
            done = subprocess.run([script, "5;here"], env=self.environment, text=True, capture_output=True)
            self.assertEqual(done.stdout, expected + "\n")


class Places(Case):
    def test_a_node_clears_away_what_was_stopped_and_no_other_node(self):
        for name in ("x.part-2", "x-2", "x~99", "xy~5"):
            self.write(f"runs/{name}/status.json", "{}")
        jobs.Workplace(self.place / "runs" / "x").finish({})
        left = sorted(path.name for path in (self.place / "runs").iterdir())
        self.assertEqual(left, ["x", "x-2", "x.part-2", "xy~5"])


class Reading(unittest.TestCase):
    def test_values_and_names(self):
        for word in ("1", "-1.5e3", "+.5", "1.", "12abc", "1kex", "0x10"):
            self.assertTrue(inputs.is_numeric(word), word)
        for word in ("kex", "e5", "-", ".", "nan", "inf", "1e", "1e999", "_1"):
            self.assertFalse(inputs.is_numeric(word), word)

    def test_whole_numbers(self):
        for word, value in (("12", 12), ("0x10", 16), ("010", 8), ("12abc", 12), ("-3", -3), ("x", 0), ("08", 0)):
            self.assertEqual(inputs.to_int(word), value)

    def test_starts_keep_range_and_points(self):
        for line, expected in (("PAR a 5", "PAR a 5 5 1 7"), ("PAR a 1 9", "PAR a 1 9 1 7"),
                               ("REST a 1 9 4e", "REST a 1 9 4e 7"), ("GPAR a 1 9 3 2", "GPAR a 1 9 3 7")):
            self.assertEqual(inputs.with_start(line.split(), "7"), expected)


class Page(Case):
    def test_its_commands_give_what_it_shows(self):
        tools = self.place / "tools"
        tools.mkdir()
        for name, target in (("dravo", DRAVO), ("dravo-report", REPORT),
                             ("dravo-workflow", WORKFLOW / "dravo-workflow")):
            (tools / name).symlink_to(target)
        shutil.copytree(EXAMPLES, self.place / "examples")
        self.environment["PATH"] = f"{tools}:{os.environ['PATH']}"
        page = (ROOT / "docs" / "workflow.md").read_text()
        steps = list(tutorial_test.commands(page))
        self.assertGreaterEqual(len(steps), 6)
        for command, shown, tolerance in steps:
            done = subprocess.run(["sh", "-c", command], cwd=self.place, env=self.environment, text=True,
                                  stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
            self.assertTrue(tutorial_test.agree(shown, done.stdout, tolerance),
                            f"$ {command}the page shows\n{shown}\nbut it says\n{done.stdout}")


def main():
    global DRAVO
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--program", required=True)
    known, rest = parser.parse_known_args()
    DRAVO = str(pathlib.Path(known.program).resolve())
    if not REPORT:
        sys.exit("DRAVO_REPORT does not say where dravo-report is")
    if shutil.which("snakemake") is None:
        sys.exit("snakemake is not installed; it comes with the Debian package of that name")
    unittest.main(argv=[sys.argv[0], *rest])


if __name__ == "__main__":
    main()
