#!/usr/bin/env python3
"""dravo-convert: what it writes is what the tables say, and dravo runs it.

Expected numbers are hand arithmetic, the formulas typed in anew, or the measured sets of examples/:
tables made from their rates must give back those rates and errors to the last digit that stands there,
and the same chi-square as other software found for them.
"""
# SPDX-License-Identifier: GPL-3.0-or-later
import argparse
import decimal
import math
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
EXAMPLES = ROOT / "examples"
sys.dont_write_bytecode = True
sys.path.insert(0, str(ROOT / "tests" / "docs"))
import tutorial_test  # noqa: E402  how the commands of a page are run and compared

DRAVO = CONVERT = None


def data_lines(text):
    """(set, words behind DATA) of an input file."""
    title, points = None, []
    for words in map(str.split, text.splitlines()):
        if words[:1] == ["SET"]:
            title = words[1]
        elif words[:1] == ["DATA"]:
            points.append((title, words[1:]))
    return points


def example(name):
    return data_lines((EXAMPLES / f"{name}.in").read_text())


def as_written(value, shown):
    """The number with as many decimals as `shown` has."""
    return str(decimal.Decimal(value).quantize(decimal.Decimal(shown)))



class Case(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.place = pathlib.Path(folder.name)

    def write(self, name, text):
        path = self.place / name
        path.parent.mkdir(exist_ok=True)
        path.write_text(text)
        return name

    def run_convert(self, *words):
        return subprocess.run([CONVERT, *map(str, words)], cwd=self.place, text=True,
                              stdout=subprocess.PIPE, stderr=subprocess.PIPE)

    def convert(self, *words, said=""):
        """The text written; all of standard error must be `said`."""
        done = self.run_convert(*words)
        self.assertEqual((done.stderr, done.returncode), (said, 0))
        return done.stdout

    def refuse(self, *words, said):
        """Ends with status 1, this last line on standard error, and nothing written."""
        done = self.run_convert(*words)
        self.assertEqual((done.returncode, done.stdout), (1, ""))
        self.assertEqual(done.stderr.splitlines()[-1], f"dravo-convert: {said}")
        return done.stderr

    def fit(self, text, shown=""):
        """The report of dravo, which says nothing else on the console."""
        (self.place / "fit.in").write_text(text)
        done = subprocess.run([DRAVO, "-i", "fit.in", "-o", "fit.out", "-xmgr"], cwd=self.place,
                              text=True, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        self.assertEqual((done.returncode, done.stdout, done.stderr), (0, shown, ""))
        return (self.place / "fit.out").read_text()

    def chi_square(self, text):
        total = re.search(r"^Global X2/DoF\t(\S+) \(DoF = (\d+)\)$", self.fit(text), re.MULTILINE)
        return float(total[1]) * int(total[2])

    def same_points(self, text, name, off=0):
        """Rates are those of the example, to the last digit there; errors to `off` units of that
        digit; x0 to 4e-6 of it, further columns but the temperature by their labels."""
        expected = example(name)
        rest = {}
        for title, words in data_lines(text):
            rest.setdefault((title, words[-3][1]), []).append(words)
        self.assertEqual(sum(map(len, rest.values())), len(expected))
        for title, words in expected:
            of_curve = rest[title, words[-3][1]]
            same = [w for w in of_curve if as_written(w[-2], words[-2]) == words[-2]
                    and all(math.isclose(float(w[i]), float(words[i]), rel_tol=4e-6, abs_tol=0.2 * i)
                            for i in (0, 1))]
            self.assertTrue(same, f"{title} {words}")
            last_digit = 10.0 ** decimal.Decimal(words[-1]).as_tuple().exponent
            written = float(as_written(same[0][-1], words[-1]))
            self.assertLessEqual(abs(written - float(words[-1])), (off + 0.01) * last_digit)
            of_curve.remove(same[0])


# Tables made from the measured sets.

def residue_noise(points, time, two_point):
    """Errors of a residue are s/I, or with I0 sqrt((s/I)^2 + (s/I0)^2), over T: 1/s in units of I0."""
    total = 0.0
    for rate, error in points:
        grown = math.exp(2 * rate * time) + (1 if two_point else 0)
        total += error * time / math.sqrt(grown)
    return total / len(points)


class RoundTrips(Case):
    def test_csv_tables_with_errors_return_the_five_residues_of_abp1p(self):
        fields = {"1": "500", "2": "800"}
        lines = {field: ["Residue,Frequency,Height,Error"] for field in fields.values()}
        for title, words in example("abp1p_15n_cpmg_global"):
            rate, error = map(float, words[-2:])
            ratio = math.exp(-0.03 * rate)
            lines[fields[words[3][1]]].append(
                f'"{title}",{float(words[0]) / 2},{4e6 * ratio!r},{4e6 * 0.03 * error * ratio!r}')
        for field, rows in lines.items():
            # A header, references first, last and repeated; line ends of another system.
            references = [f"{name},0,4e6," for name in ("15N", "31N", "33N", "34N", "37N")]
            self.write(f"{field}.csv", "\r\n".join(rows[:1] + references + rows[1:] + references))
        text = self.convert("-T", 0.03, "--temperature", "25C", "--share", "all",
                            "--range", "kex=50,10000,1,400", "--range", "papb=0.001,0.2,1,0.0651",
                            "--range", "dw=1,12000,1,636.67", "--method", "ONEEX",
                            "500.csv:field=500", "800.csv:field=800")
        self.same_points(text, "abp1p_15n_cpmg_global")
        self.assertIn("\nPAR R20_1_2 ", text)
        self.assertEqual(text.count("\nGPAR "), 2)
        self.assertEqual(text.count("\nPAR kex kex\n"), 5)
        self.assertIn("# I0 at 500 MHz, 298.15 K: 4000000, from 2\n", text)
        self.assertAlmostEqual(self.chi_square(text), 590.49515, delta=1e-4 * 590)

    def series_tables(self, name, time, fields):
        """NMRPipe tables in units of the noise; {field: frequencies of the planes}."""
        frequencies = {}
        for digit, field in fields.items():
            rates = {}
            for title, words in example(name):
                if words[3][1] == digit:
                    rates.setdefault(title, []).append([float(w) for w in (words[0], *words[-2:])])
            planes = [0.0] + [point[0] / 2 for point in next(iter(rates.values()))]
            ratios = " ".join(f"Z_A{i}" for i in range(len(planes)))
            text = ("REMARK A series of planes\n\nDATA  X_AXIS HN 1 2\n"
                    f"VARS   INDEX X_PPM HEIGHT VOL ASS {ratios}\n"
                    f"FORMAT %5d %9.3f %+e %+e %s {'%7.4f ' * len(planes)}\n"
                    "NULLVALUE -666\nNULLSTRING *\n\n")
            for index, (title, points) in enumerate(rates.items(), 1):
                i0 = -1 / residue_noise([p[1:] for p in points], time, True)  # a folded peak
                values = " ".join(repr(math.exp(-time * p[1])) for p in points)
                text += f"{index:5d} 8.123 {i0!r} 0 {title} 1.0 {values}\n"
            self.write(f"{field}.tab", text)
            frequencies[field] = ",".join(map(str, planes))
        return frequencies

    def test_series_tables_with_the_noise_return_two_residues_of_hansen(self):
        nu = self.series_tables("hansen08_15n_cpmg_local", 0.03, {"1": "500", "2": "800"})
        self.write("800.list", nu["800"].replace(",", "\n"))
        text = self.convert("-T", 0.03, "--temperature", 298, "--noise", 1, "--I0-error",
                            f"500.tab:field=500:nu={nu['500']}", "800.tab:field=800:nu=@800.list")
        # The noise is recovered from rounded rates: errors may be off by one in the tenth digit.
        self.same_points(text, "hansen08_15n_cpmg_local", off=1)
        self.assertIn("errors are the stated noise, 1.\n", text)
        report = self.fit(text)  # a grid, from ranges that know nothing of the result
        for title, chi in (("70", 53.83821), ("71", 15.65953)):
            found = re.search(rf"^SET\t{title}$.*?^\tX2/DoF\t(\S+) \(DoF = 25\)$", report,
                              re.MULTILINE | re.DOTALL)
            self.assertAlmostEqual(float(found[1]) * 25, chi, delta=1e-5 * chi)

    def test_peak_lists_with_the_noise_return_two_residues_of_sod1(self):
        sources = []
        for digit, field, time in (("1", "499.862", 0.04), ("2", "599.891", 0.06)):
            rates = {}
            for title, words in example("sod1_15n_cpmg_global"):
                if words[3][1] == digit:
                    rates.setdefault(title, []).append([float(w) for w in (words[0], *words[-2:])])
            nu = [0.0] + [point[0] / 2 for point in next(iter(rates.values()))]
            noise = {title: residue_noise([p[1:] for p in points], time, True)
                     for title, points in rates.items()}
            for plane, _ in enumerate(nu):
                text = "      Assignment         w1         w2   lw1 (hz)  Data Height\n\n"
                for title, points in rates.items():
                    ratio = 1.0 if plane == 0 else math.exp(-time * points[plane - 1][1])
                    text += f"     {title}   120.1   8.2   20.1 {ratio / noise[title]!r}\n"
                text += "            ?-?   110.1   7.2   20.1 5000\n"
                self.write(f"{field}/{plane:02d}.list", text)
            sources.append(f"{field}:field={field}:time={time}:nu={','.join(map(str, nu))}")
        done = self.run_convert("--temperature", 298, "--noise", 1, "--I0-error", "--method", "INIT",
                                "--share", "kex,papb", *sources)
        self.assertEqual(done.returncode, 0)
        self.same_points(done.stdout, "sod1_15n_cpmg_global", off=1)  # as above
        complaints = done.stderr.splitlines()
        self.assertEqual(len(complaints), len(list(self.place.glob("*/*.list"))))
        self.assertEqual(complaints[0], "499.862/00.list:5: the peak ?-? is not assigned")
        self.fit(done.stdout)

    def test_a_file_for_each_field_and_a_floor_return_fyn_d9(self):
        """The errors there are those of the intensities, but at least 2 % of the rate."""
        fields = {"1": "500", "2": "600", "3": "800"}
        for digit, field in fields.items():
            text = "# cycles intensity error\n 0 1.0\n"
            for _, words in example("fyn_d9_15n_sq_cpmg"):
                if words[3][1] != digit:
                    continue
                rate, error = map(float, words[-2:])
                if abs(error / rate - 0.02) < 1e-6:
                    error /= 2  # below the floor
                ratio = math.exp(-0.04 * rate)
                text += f"{float(words[0]) * 0.02:.6g} {ratio!r} {error * 0.04 * ratio!r}\n"
            self.write(f"{field}/D9.out", text)
        text = self.convert("-T", 0.04, "--errors", "file", "--floor", "2%",
                            *(f"{field}:field={field}" for field in fields.values()))
        # 2 % of a rounded rate may fall on the other side of a half.
        self.same_points(text, "fyn_d9_15n_sq_cpmg", off=1)
        self.assertAlmostEqual(self.chi_square(text), 18.206445, delta=1e-5 * 18)

    def test_tabs_and_counted_pulses_return_h2b(self):
        """x0 too: that of the example is rounded up in the fourth decimal."""
        rows = ["peak\tfield\tncyc\tintensity\terror"]
        for title, words in example("h2b_methyl_mq_cpmg"):
            rate, error = map(float, words[-2:])
            ratio = math.exp(-0.018 * rate)
            field = 600.25 * float(words[3])
            cycles = float(words[0]) * 0.018 / 2
            rows.append(f"{title}\t{field}\t{cycles:.0f}\t{ratio!r}\t{error * 0.018 * ratio!r}")
        self.write("h2b.tsv", "\n".join(rows) + "\n")
        text = self.convert("--model", "mqcpmg_matrix2_p", "-T", 0.018, "--temperature", 318.15,
                            "--code", 4, "--I0", 1, "--share", "KEX,pb", "--fix", "dwh=0",
                            "--range", "kex=50,10000,1,948", "--range", "pb=0.006,0.3,1,0.1666",
                            "--method", "INIT", "h2b.tsv")
        self.same_points(text, "h2b_methyl_mq_cpmg")
        shown = [words[:5] for _, words in data_lines(text)]
        self.assertEqual(shown, [words[:5] for _, words in example("h2b_methyl_mq_cpmg")])
        self.assertEqual(text.count("\nFIXED dwH 0\n"), 8)
        self.assertIn(" 4 114 111.1112 4000.0032 36\n", text)  # curves in steps of two pulses
        self.fit(text)

    def test_rates_of_a_spin_lock_return_fyn_t14(self):
        for name, model, chi in (
                ("fyn_t14_r1rho_on", "R1RHO_PALMER02_ON", 60.891676),
                ("fyn_t14_r1rho_offset", "R1RHO_PALMER02_OFF", 472.400508)):
            rows = ["power offset field rate error"]
            for _, words in example(name):
                power, offset = words[:2] if model.endswith("_ON") else words[1::-1]
                field = 600 if words[4][1] == "1" else 800
                rows.append(f"{power} {offset} {field} {words[-2]} {words[-1]}")
            table = self.write(f"{example(name)[0][0]}.txt", "\n".join(rows))
            text = self.convert("--model", model, "--temperature", 298, table)
            self.same_points(text, name)
            if model.endswith("_ON"):
                self.assertAlmostEqual(self.chi_square(text), chi, delta=1e-5 * chi)
                continue
            # One curve for each power, as in the example; the grid there takes seconds.
            plots = lambda t: re.findall(r"^PLOT \S+ (.*)$", t, re.MULTILINE)  # noqa: E731
            self.assertEqual(plots(text), plots((EXAMPLES / f"{name}.in").read_text()))
            near = self.convert("--model", model, "--temperature", 298, "--method", "ONEEX",
                                "--range", "dw=800,3000,1,1500", "--range", "kex=100,2000,1,400",
                                "--range", "pB=0.01,0.2,1,0.05", table)
            self.assertAlmostEqual(self.chi_square(near), chi, delta=1e-5 * chi)


class Rates(Case):
    def points(self, table, *words, said=""):
        self.write("t.txt", table)
        text = self.convert("--field", 600, *words, "t.txt", said=said)
        return [(float(w[0]), float(w[-2]), float(w[-1])) for _, w in data_lines(text)]

    HEAD = "name ncyc intensity\n"
    FOUR = "A 4 60\nA 5 61\nA 6 62\nA 8 63\n"  # enough for the parameters

    def test_rate_and_error_by_hand(self):
        # I0 = (100 + 104)/2 = 102; 51 is half of it: ln 2 / 0.02 = 34.657359; error 2/(0.02 51).
        points = self.points(self.HEAD + "A 0 100\nA 2 51\nA 0 104\n" + self.FOUR,
                             "-T", 0.02, "--noise", 2)
        self.assertEqual(points[0][0], 200)  # 2 cycles in 0.02 s are 100 Hz
        self.assertAlmostEqual(points[0][1], 34.657359, delta=1e-6)
        self.assertAlmostEqual(points[0][2], 1.9607843, delta=1e-7)

    def test_error_of_the_reference_by_hand(self):
        # Two references halve its variance: sqrt((2/51)^2 + (2/102)^2/2)/0.02 = (2/51)/0.02 sqrt(9/8)
        points = self.points(self.HEAD + "A 0 100\nA 2 51\nA 0 104\n" + self.FOUR,
                             "-T", 0.02, "--noise", 2, "--I0-error")
        self.assertAlmostEqual(points[0][2], 1.9607843 * math.sqrt(1.125), delta=1e-7)

    def test_repeats_are_pooled_over_residues_and_references(self):
        # 10, 12 about 11: 2; 20, 23, 26 about 23: 18. s^2 = 20 / (1 + 2). The quantiles of
        # chi-square with 3 degrees of freedom are 0.215795 and 9.348404.
        table = (self.HEAD + "A 0 20\nA 0 23\nA 2 10\nA 2 12\nA 0 26\nA 3 12.5\nA 4 13\nA 6 14\n"
                 "B 0 20\nB 2 15\nB 3 15\nB 4 16\nB 6 17\nB 8 17\n")
        self.write("t.txt", table)
        text = self.convert("--field", 600, "-T", 0.02, "t.txt")
        note = re.search(r"errors are (\S+), pooled from repeats of 2 points, 3 degrees of freedom "
                         r"\(95 %: (\S+) to (\S+)\)\.", text)
        self.assertAlmostEqual(float(note[1]), math.sqrt(20 / 3), delta=1e-8)
        self.assertAlmostEqual(float(note[2]), math.sqrt(20 / 9.348404), delta=1e-3)
        self.assertAlmostEqual(float(note[3]), math.sqrt(20 / 0.215795), delta=1e-3)
        for title, words in data_lines(text):
            if title == "B" and words[0] == "200":
                self.assertAlmostEqual(float(words[-1]), math.sqrt(20 / 3) / (0.02 * 15), delta=1e-7)
        self.assertEqual(len(data_lines(text)), 10)  # repeats stay points of their own

    def test_fields_have_their_own_repeats_and_noise(self):
        rows = "name field ncyc intensity\n"
        for field, spread in (("600", 1), ("800", 3)):
            rows += "".join(f"A {field} {n} {v}\n" for n, v in
                            ((0, 100), (2, 50 - spread), (2, 50 + spread), (4, 60), (8, 70)))
        self.write("t.txt", rows)
        text = self.convert("-T", 0.02, "t.txt")
        # Two values v - d and v + d: s^2 = 2 d^2.
        self.assertIn(f"600 MHz, 298.15 K, T = 0.02 s: errors are {math.sqrt(2):.10g}, pooled", text)
        self.assertIn(f"800 MHz, 298.15 K, T = 0.02 s: errors are {math.sqrt(18):.10g}, pooled", text)

    def test_points_without_the_error_that_others_have_are_named(self):
        self.write("t.txt", "name ncyc intensity error\nA 0 100\nA 1 50 1\nA 2 51\nA 3 52 1\n"
                            "A 4 60\nA 5 61 1\nA 6 62 1\nA 8 63 1\n")
        words = ("--field", 600, "-T", 0.02, "t.txt")
        self.refuse(*words, said="2 points at 600 MHz, 298.15 K have no error, first t.txt:4, and none is "
                                 "repeated; state --noise, or --errors file to leave them out")
        text = self.convert(*words, "--errors", "file",
                            said="t.txt:4: no error\nt.txt:6: no error\n")
        self.assertEqual(len(data_lines(text)), 5)

    def test_a_stated_reference_has_no_error(self):
        self.write("t.txt", self.HEAD + self.FOUR)
        self.refuse("--field", 600, "-T", 0.02, "--noise", 1, "--I0", 100, "--I0-error", "t.txt",
                    said="--I0-error: an intensity that --I0 states has no error")

    def test_folded_peaks_count_like_others(self):
        table = self.HEAD + "A 0 100\nA 2 50\n" + self.FOUR
        folded = re.sub(r"(\d+)$", r"-\1", table, flags=re.MULTILINE)
        self.assertEqual(self.points(table, "-T", 0.02, "--noise", 1),
                         self.points(folded, "-T", 0.02, "--noise", 1))

    def test_floors(self):
        table = self.HEAD + "A 0 100\nA 2 50\n" + self.FOUR
        for floor, least in (("0.7", lambda rate: 0.7), ("3%", lambda rate: 0.03 * rate)):
            for _, rate, error in self.points(table, "-T", 0.02, "--noise", 0.001, "--floor", floor):
                self.assertAlmostEqual(error, least(rate), delta=1e-8)

    def test_counted_pulses_are_reached_in_the_arithmetic_of_dravo(self):
        """T x0 is truncated; floats here are the doubles there."""
        for time in (0.018, 0.02, 0.0213, 0.03, 0.0400006, 0.1, 1 / 3):
            rows = "".join(f"A {n} {0.5 + n / 200}\n" for n in range(1, 61))
            self.write("t.txt", "name ncyc intensity\n" + rows)
            done = self.run_convert("--field", 600, "-T", repr(time), "--noise", 0.01, "--I0", 1,
                                    "--model", "MQCPMG_Matrix2_k", "--code", 4, "t.txt")
            lines = data_lines(done.stdout)
            self.assertEqual(len(lines), 60 - math.floor(5 * time - 1e-9))  # 1/tcp from 10 on
            first = 61 - len(lines)
            for cycles, (_, words) in enumerate(lines, first):
                train = float(words[1]) * float(words[0])
                self.assertEqual(math.trunc(train), 2 * cycles)
                self.assertLess(train - 2 * cycles, 1e-4)

    def test_an_error_that_is_no_number_above_0_rejects_the_point(self):
        # 1e-300/1e300 is 0 among doubles, and would be an infinite weight.
        self.write("t.txt", "name ncyc intensity error\nA 0 1e300 1e298\nA 1 9e299 1e-300\n" +
                   "".join(f"A {n} {n + 1}e299 1e298\n" for n in range(2, 8)))
        text = self.convert("--field", 600, "-T", 0.02, "t.txt", said="t.txt:3: the error of the rate is 0\n")
        self.assertEqual(len(data_lines(text)), 6)

    def test_odd_trains_are_rejected_where_pulses_are_counted(self):
        self.write("t.txt", "name nu intensity\nA 125 50\nA 50 51\nA 100 52\nA 150 53\nA 200 54\n"
                            "A 250 55\nA 300 56\n")
        text = self.convert("--field", 600, "-T", 0.02, "--noise", 1, "--I0", 90, "--code", 4,
                            "--model", "MQCPMG_Matrix2_p", "t.txt",
                            said="t.txt:2: T/tcp = 5 is not an even number of pulses\n")
        self.assertEqual([w[0] for _, w in data_lines(text)],
                         ["100", "200", "300", "400", "500", "600"])


class Tables(Case):
    POINTS = [("0", "100"), ("2", "50"), ("4", "60"), ("6", "65"), ("8", "66"), ("10", "67")]

    def converted(self, name, *words):
        text = self.convert("--field", 600, "-T", 0.02, "--noise", 1, *words, name)
        return re.sub(r"^# .*\n", "", text, flags=re.MULTILINE)

    def test_all_forms_of_a_plain_table_say_the_same(self):
        plain = "".join(f"G8 {n} {v}\n" for n, v in self.POINTS)
        forms = {
            "header.txt": "name ncyc intensity\n" + plain,
            "upper.txt": "RESIDUE Cycles HEIGHT\n" + plain,
            "mark.txt": "\ufeffname ncyc intensity\n\n" + plain + "\n",
            "comment.txt": "# Made today\n# name ncyc intensity\n" + plain + "# the end\n",
            "behind.txt": "name ncyc intensity # names\n" + plain.replace("50\n", "50 # weak\n"),
            "comma.csv": "name, ncyc, intensity\n" + plain.replace(" ", ","),
            "quoted.csv": '"name","ncyc","intensity"\n' + plain.replace("G8 ", '"G8",').replace(" ", ","),
            "tab.tsv": "name\tncyc\tintensity\n" + plain.replace(" ", "\t"),
            "dos.txt": "name ncyc intensity\r\n" + plain.replace("\n", "\r\n"),
            "more.txt": "- intensity name ncyc\n" + "".join(f"7 {v} G8 {n}\n" for n, v in self.POINTS),
            "frequency.txt": "name nu intensity\n" +
                             "".join(f"G8 {float(n) / 0.02} {v}\n" for n, v in self.POINTS),
            "G8.out": "".join(f"{n} {v}\n" for n, v in self.POINTS),
            "full.txt": "name field time ncyc intensity\n" +
                        "".join(f"G8 600 0.02 {n} {v}\n" for n, v in self.POINTS),
            "reference.txt": "name ncyc intensity\n" + plain.replace("G8 0", "G8 ref"),
        }
        for name, text in forms.items():
            self.write(name, text)
        results = {name: self.converted(name) for name in forms}
        self.write("bare.txt", plain)
        results["bare.txt"] = self.converted("bare.txt", "--columns", "name,ncyc,intensity")
        results["pattern"] = self.converted("full.t?t")
        # ln 2 / 0.02 = 34.65735903, 1/(0.02 50) = 1.
        self.assertIn("\nSET G8\n", results["header.txt"])
        self.assertIn("\nDATA 200 298.15 1 11 34.65735903 1\n", results["header.txt"])
        self.assertEqual({results["header.txt"]}, set(results.values()))

    def test_rejected_lines_are_named(self):
        table = ["name,ncyc,intensity,error", "G8,0,100,1", "G8,2,fifty,1", "G8,2", "G8,2,50,1,7",
                 "G8,,50,1", "G 8,2,50,1", ",2,50,1", "G8,2,50,0", "G8,-2,50,1", "G8,2,nan,1",
                 "G8,2,-50,1", "G8,0.05,50,1", "H9,2,50,1", "G8,2,50,", "G8,2,50,1"]
        table += [f"G8,{n},60,1" for n in (4, 6, 8, 10)]
        self.write("t.csv", "\n".join(table))
        text = self.convert("--field", 600, "-T", 0.02, "--errors", "file", "t.csv", said="".join(
            f"{line}\n" for line in (
                "t.csv:3: intensity 'fifty' is no number",
                "t.csv:4: 2 fields for 4 columns",
                "t.csv:5: 5 fields for 4 columns",
                "t.csv:6: ncyc '' is no number",
                "t.csv:7: the name 'G 8' has a blank, a comma or a slash",
                "t.csv:8: no name",
                "t.csv:9: the error is not above 0",
                "t.csv:10: negative ncyc, nu or power",
                "t.csv:11: intensity 'nan' is no number",
                "t.csv:15: no error",
                "t.csv:12: no logarithm of I/I0 = -50/100",
                "t.csv:13: 1/tcp = 5 is below 10, which dravo refuses",
                "t.csv:14: H9 has no reference at 600 MHz, 298.15 K; if intensities are relative to "
                "it, state --I0 1",
                "H9: left out: it has no point")))
        self.assertEqual(len(data_lines(text)), 5)

    def test_rejected_lines_of_a_series_table_are_named(self):
        self.write("s.tab", "VARS INDEX ASS HEIGHT Z_A0 Z_A1 Z_A2 Z_A3 Z_A4 Z_A5\n"
                            "FORMAT %d %s %e %f %f %f %f %f %f\nNULLVALUE -666\nNULLSTRING *\n"
                            "1 G8 1e5 1.0 0.5 0.6 -666 0.7 0.75\n"
                            "2 * -2e5 1.0 0.5 0.6 0.65 0.7 0.75\n"
                            "3 None 1e5 1.0 0.5\n"
                            "4 K5 high 1.0 0.5 0.6 0.65 0.7 0.75\n")
        text = self.convert("--field", 600, "-T", 0.02, "--noise", 1000,
                            "s.tab:ncyc=0,2,4,6,8,10", "--model", "CPMG_const", said=(
                                "s.tab:5: Z_A3 '-666' is no value\n"
                                "s.tab:7: 5 fields for 9 variables\n"
                                "s.tab:8: HEIGHT 'high' is no number\n"))
        points = data_lines(text)
        self.assertEqual([title for title, _ in points], 4 * ["G8"] + 5 * ["peak2"])
        # The noise is that of an intensity of the spectrum: 1000/(0.02 0.5 1e5) and half of it.
        self.assertEqual((points[0][1][-1], points[4][1][-1]), ("1", "0.5"))

    def test_missing_planes_however_they_are_written(self):
        head = "VARS INDEX ASS HEIGHT " + " ".join(f"Z_A{i}" for i in range(7)) + "\n"
        head += "FORMAT %5d %s %f" + " %f" * 7 + "\nNULLVALUE -666\n"
        for null in ("-666", "-666.0000", "-6.66e+02"):
            self.write("s.tab", head + f"1 G8 1000 1.0 {null} 0.5 0.6 0.65 0.7 0.72\n")
            self.convert("-T", 0.02, "--field", 600, "--noise", 1, "s.tab:ncyc=0,1,2,3,4,6,8",
                         said=f"s.tab:4: Z_A1 '{null}' is no value\n")

    def test_volumes(self):
        self.write("s.tab", "VARS ASS HEIGHT VOL Z_A0 Z_A1 Z_A2\nFORMAT %s %e %e %f %f %f\n"
                            "G8 1e5 3e5 1.0 0.5 0.6\n")
        self.write("p/1.list", "Assignment w1 w2 Data Height Volume\nG8 1 2 1e5 3e5\n")
        self.write("p/2.list", "Assignment w1 w2 Data Height Volume\nG8 1 2 9e4 1.5e5\n")
        self.write("p/3.list", "Assignment w1 w2 Data Height Volume\nG8 1 2 9e4 1.8e5\n")
        for source in ("s.tab", "p"):
            text = self.convert("--field", 600, "-T", 0.02, "--noise", 1500, "--amplitude", "volume",
                                "--model", "CPMG_const", "--ncyc", "0,2,4", source)
            self.assertEqual([w[-2:] for _, w in data_lines(text)],
                             [["34.65735903", "0.5"],  # ln 2/T; 1500/(0.02 1.5e5)
                              [f"{-math.log(0.6) / 0.02:.10g}", f"{1500 / (0.02 * 1.8e5):.10g}"]])

    def test_what_cannot_be_understood_ends_the_run(self):
        self.write("bare.txt", "G8 0 100 1\nG8 2 50 1\n")
        self.write("t.txt", "name ncyc intensity\nG8 2 50\n")
        self.write("s.tab", "VARS ASS Z_A0 Z_A1\nFORMAT %s %f\nG8 1.0 0.5\n")
        self.write("v.tab", "VARS ASS Z_A0 Z_A1\nFORMAT %s %f %f\nG8 1.0 0.5\n")
        self.write("p.list", "Assignment w1 w2 Volume\nG8 1 2 50\n")
        self.write("empty.txt", "# nothing\n")
        (self.place / "nothing").mkdir()
        common = ("--field", 600, "-T", 0.02, "--noise", 1)
        for words, said in (
                (["bare.txt"], "bare.txt: what are its columns? Give them by a header or by --columns"),
                (["missing.txt"], "cannot open 'missing.txt'"),
                (["nothing"], "no file in 'nothing'"),
                (["empty.txt"], "there is no point in the files"),
                (["t.txt"], "no residue is left"),
                (["t.txt:ncyc=3"], "t.txt: ncyc is a column, and given for the whole file"),
                (["t.txt:colour=3"], "there is no key 'colour' of a file"),
                (["t.txt:field=high"], "field=high: this is no number"),
                (["t.txt:field=1:field=2"], "t.txt:field=1:field=2: 'field' is given twice"),
                (["t.txt:format=excel"],
                 "there is no format 'excel': it is auto, table, nmrpipe or sparky"),
                (["--columns", "name,ncyc,ncyc", "t.txt"], "column 'ncyc' is given twice"),
                (["--columns", "name,colour", "t.txt"], "there is no column 'colour'"),
                (["s.tab:ncyc=0,2"], "s.tab:2: 2 formats for 3 variables"),
                (["v.tab:ncyc=0,2,4"], "v.tab: 2 planes, but 3 values of ncyc or nu"),
                (["v.tab:ncyc=0,2x"], "ncyc=0,2x: '2x' is no number"),
                (["--nu", "ref,", "v.tab"], "nu=ref,: '' is no number"),
                (["p.list:ncyc=2"], "p.list: no column 'Data Height'"),
                (["p.list"], "p.list: a Sparky list is one plane, but there are 0 values of ncyc or nu"),
                ([], "no file is given; see --help"),
                (["--model", "Exp2", "t.txt"],
                 "the model 'Exp2' is not one that can be written; see --list-models"),
                (["--share", "kab", "t.txt"], "the model has no parameter 'kab'"),
                (["--fix", "kex", "t.txt"], "--fix kex: NAME=... is wanted"),
                (["--fix", "kex=fast", "t.txt"], "--fix: 'fast' is no number"),
                (["--range", "kex=5", "t.txt"], "--range: '5' is not 2 to 4 numbers"),
                (["--range", "kex=5,1", "t.txt"], "--range: 5 is above 1"),
                (["--range", "kex=1,5,0", "t.txt"], "--range: 0 is no number of grid points"),
                (["--method", "GUESS", "t.txt"], "there is no method 'GUESS'"),
                (["--method", "MCMIN 20", "t.txt"], "method MCMIN takes 2 numbers, not 1"),
                (["--errors", "guess", "t.txt"],
                 "--errors is file, noise, repeats or auto, not 'guess'"),
                (["--errors", "repeats", "t.txt"],
                 "no repeated points at 600 MHz, 298.15 K to take errors from; state --noise or noise="),
                (["--I0", "0", "t.txt"], "--I0: an intensity of 0 has no logarithm"),
                (["--I0", "inf", "t.txt"], "--I0: 'inf' is no number"),
                (["--floor", "-1", "t.txt"], "--floor: an error is not negative"),
                (["--residues", "G9", "t.txt"], "there is no residue 'G9' in the files"),
                (["--shifts", "t.txt", "t.txt"], "--shifts and --nucleus go together"),
                (["--model", "CPMG_Bind2c", "t.txt"],
                 "state the concentration A0, in mol/l: --fix A0=VALUE")):
            with self.subTest(words):
                self.refuse(*common, *words, said=said)

    def test_a_file_without_points_is_named(self):
        self.write("good.txt", "name ncyc intensity\n" + "".join(f"A {n} {v}\n" for n, v in self.POINTS))
        for name, text in (("empty.txt", ""), ("head.txt", "name ncyc intensity\n"),
                           ("rest.txt", "# nothing\n"), ("series.tab", "VARS ASS Z_A0\nFORMAT %s %f\n")):
            self.write(name, text)
            words = ("--field", 600, "-T", 0.02, "--noise", 1, "good.txt", name)
            self.convert(*words, said=f"{name}: there is no point in it\n")
            self.refuse(*words, "--strict", said="1 rejected; nothing is written")

    def test_a_file_given_twice_would_count_twice(self):
        self.write("t.txt", "name ncyc intensity -\n" +
                   "".join(f"A {n} {v} {v}\n" for n, v in self.POINTS))
        common = ("-T", 0.02, "--noise", 1)
        self.refuse(*common, "--field", 600, "t.txt", "t*.txt", said="t.txt is given twice")
        both = self.convert(*common, "t.txt:field=600:columns=name,ncyc,intensity,-",
                            "t.txt:field=800:columns=name,ncyc,-,intensity")
        one = self.convert(*common, "t.txt:field=600")
        self.assertEqual(len(data_lines(both)), 2 * len(data_lines(one)))

    def test_unprintable_characters(self):
        self.write("t.txt", "name ncyc intensity\nA 0 90\nG\x018 2 50\nA \x1b[31m 50\n")
        stderr = self.refuse("--field", 600, "-T", 0.02, "--noise", 1, "t.txt", said="no residue is left")
        self.assertEqual(stderr.splitlines()[:2], ["t.txt:3: the name has an unprintable character",
                                                   "t.txt:4: ncyc '?[31m' is no number"])

    def test_degrees_and_kelvin_are_the_same_temperature(self):
        # 273.15 - 10.1 is not the double nearest to 263.05.
        self.assertNotEqual(273.15 - 10.1, 263.05)
        rows = "".join(f"A {n} {v} {t}\n" for n, v in self.POINTS for t in ("-10.1C", "263.05"))
        self.write("t.txt", "name ncyc intensity temperature\n" + rows)
        text = self.convert("--field", 600, "-T", 0.02, "--noise", 1, "t.txt")
        self.assertIn("Index digits: temperature, 1 is 263.05 K; field", text)

    def test_quantities_that_are_not_known_reject_the_line(self):
        self.write("t.txt", "name ncyc intensity\nG8 2 50\n")
        for words, said in (
                (["-T", 0.02], "the field is not known: --field MHZ or field=MHZ"),
                (["--field", 600], "ncyc needs the constant time: --time S or time=S"),
                (["--field", 600, "-T", 0.02, "--temperature", 25],
                 "temperature 25 is not one in K; write 25C for degrees"),
                (["--field", 600, "-T", 0.02, "--code", 10], "the code is not one of 0 to 9")):
            stderr = self.refuse(*words, "t.txt", said="there is no point in the files")
            self.assertEqual(stderr.splitlines()[0], f"t.txt:2: {said}")
        stderr = self.refuse("--field", 600, "-T", 0.02, "--noise", 1, "--I0", 90, "--model",
                             "CPMG_TEMP2", "t.txt", said="no residue is left")
        self.assertEqual(stderr.splitlines()[0],
                         "t.txt:2: the model needs the temperature: --temperature K or temperature=K")


class Inputs(Case):
    """The input file: labels, factors, parameters, plots."""

    def grid(self, fields=("600",), temperatures=("298",), ligands=("0",), codes=("0",)):
        """Rates of two residues over all conditions, made by fast exchange."""
        rows = ["name,field,temperature,concentration,code,time,nu,rate,error"]
        for name, dw in (("A", 900.0), ("B", 1200.0)):
            for field in fields:
                for temperature in temperatures:
                    for ligand in ligands:
                        for code in codes:
                            for n in range(1, 11):
                                k, nu = 900.0, 25.0 * n
                                amplitude = 0.03 * (dw * float(field) / 600) ** 2
                                rate = 9 + amplitude / k * (1 - 4 * nu / k * math.tanh(k / (4 * nu)))
                                rows.append(f"{name},{field},{temperature},{ligand},{code},0.04,"
                                            f"{nu},{rate:.5f},0.1")
        return self.write("grid.csv", "\n".join(rows))

    def test_conditions_become_factors_and_digits(self):
        text = self.convert("--model", "CPMG_Bind2", "--share", "all",
                            self.grid(("800", "600"), ("298", "283"), ("1.5", "0.5")))
        lines = {tuple(words[1:5]) for _, words in data_lines(text)}
        self.assertEqual(lines, {
            (t, f, l, td + fd + ld) for t, td in (("283", "1"), ("298", "2"))
            for f, fd in (("1", "1"), ("1.333333333", "2")) for l, ld in (("1", "1"), ("3", "2"))})
        # Bkon depends on temperature and ligand, koff on temperature, R20 on all, dw on nothing.
        for line in ("GPAR Bkon_1_1", "GPAR Bkon_2_2", "GPAR koff_1", "GPAR koff_2", "PAR dw 100",
                     "PAR koff_2 koff_2\n", "PAR R20_2_1_2"):
            self.assertIn(f"\n{line}", text)
        self.assertNotIn("GPAR dw", text)
        self.assertEqual(text.count("\nGPAR "), 6)
        self.assertEqual(len(re.findall(r"^PLOT ", text, re.MULTILINE)), 8)
        self.assertIn("\nPLOT c1.5_283K_800MHz * 283 1.333333333 3 122\n", text)
        report = self.fit(text.replace("METHOD GRID\n", "").replace("METHOD ONEEX", "METHOD INIT"))
        self.assertIn("# Total data points = 160\n", report)

    def test_one_curve_needs_no_indices(self):
        text = self.convert(self.grid(), "--residues", "A")
        self.assertIn("\nPAR R20 ", text)
        self.assertIn("\nPAR kex 100 4000 4 800\n", text)
        self.assertNotIn("GPAR", text)

    def test_reference_field(self):
        text = self.convert("--reference-field", 500, self.grid(("600", "800")))
        self.assertEqual({words[2] for _, words in data_lines(text)}, {"1.2", "1.6"})
        # 2 pi 500 x 1, 0.251449530, 0.101329118.
        self.assertIn("rad/s at 500 MHz, where 1 ppm is 3141.593 of 1H, 789.952 of 13C, "
                      "318.3348 of 15N.", text)

    def test_shift_differences_in_ppm(self):
        self.write("shifts.txt", "# residue ppm\nA 2\nB -1.5\nA 7\nC\n")
        text = self.convert("--shifts", "shifts.txt", "--nucleus", "15n", self.grid(("500",)), said=(
            "shifts.txt:4: A has a shift difference already\n"
            "shifts.txt:5: not a residue and a shift difference other than 0\n"))
        # 2 ppm x 318.3348 = 636.6696; 1.5 ppm 477.5022; from 0.7 to 1.3 of it.
        self.assertIn("\n# Shift difference 2 ppm of 15N, 636.6696 rad/s\nPAR dw 445.7 827.7 3 636.7\n",
                      text)
        self.assertIn("\n# Shift difference -1.5 ppm of 15N, 477.5022 rad/s\n"
                      "PAR dw 334.3 620.8 3 477.5\n", text)

    def test_shift_differences_of_other_names_end_the_run(self):
        self.write("shifts.txt", "A10N-H 2\n")
        self.refuse("--shifts", "shifts.txt", "--nucleus", "15N", self.grid(),
                    said="shifts.txt has none of the residues")

    def test_the_sign_of_15n_off_resonance_is_that_of_the_angular_frequency(self):
        rows = "".join(f"A {p} {o} 9 0.1\n" for p in (100, 200) for o in (-100, 0, 100, 200))
        self.write("t.txt", "name power offset rate error\n" + rows)
        self.write("shifts.txt", "A 2\n")
        for nucleus, value in (("15N", -764.0), ("1H", 7539.8)):
            text = self.convert("--model", "R1RHO_KAY_OFF", "--field", 600, "--shifts", "shifts.txt",
                                "--nucleus", nucleus, "t.txt")
            start = re.search(r"^PAR dw (\S+) (\S+) 3 (\S+)$", text, re.MULTILINE)
            self.assertAlmostEqual(float(start[3]), value, delta=0.5)
            self.assertLess(float(start[1]), float(start[2]))

    def test_selection_of_residues(self):
        table = self.grid()
        titles = lambda *words: re.findall(r"^SET (\S+)$", self.convert(*words, table),  # noqa: E731
                                           re.MULTILINE)
        self.assertEqual(titles(), ["A", "B"])
        self.assertEqual(titles("--residues", "B"), ["B"])
        self.assertEqual(titles("--without", "B"), ["A"])
        self.refuse("--residues", "A", "--without", "A", table, said="there is no point in the files")

    def test_methods_ranges_and_fixed_parameters(self):
        text = self.convert(self.grid(), "--method", "RANDOM 5", "--method", "mcmin 20 0.1",
                            "--range", "kex=10,20", "--range", "PAPB=0.01,0.02,3,0.015",
                            "--fix", "dw=5e2", "--share", "papb,dw")
        for line in ("METHOD RANDOM 5\nMETHOD mcmin 20 0.1\n", "GPAR papb 0.01 0.02 3 0.015\n",
                     "GFIXED dw 500\n", "PAR dw dw\n", "PAR kex 10 20 1 10\n"):
            self.assertIn(f"\n{line}", text)
        self.assertNotIn("GRID", text)

    def test_chosen_ranges_are_not_rounded(self):
        text = self.convert(self.grid(), "--range", "kex=1234.567,2345.678,3,1500.25")
        self.assertIn("\nPAR kex 1234.567 2345.678 3 1500.25\n", text)

    def test_shared_rates_are_searched_where_the_points_of_all_residues_are(self):
        # At 800 MHz there are only points of B, from 12 to 20; at 600 MHz of A from 4 on, of C from 6 to 30.
        rates = {("A", 600): (10, 8, 7, 6, 5, 4), ("B", 800): (20, 18, 16, 14, 13, 12),
                 ("C", 600): (30, 20, 15, 10, 8, 6)}
        rows = "".join(f"{name} {field} {50 * i} {rate} 0.1\n" for (name, field), values in rates.items()
                       for i, rate in enumerate(values, 1))
        self.write("t.txt", "name field nu rate error\n" + rows)
        text = self.convert("--share", "R20", "t.txt")
        # From 0.8 of the lowest to the highest.
        self.assertIn("\nGPAR R20_1_1 3.2 30 1 4\nGPAR R20_1_2 9.6 20 1 12\n", text)
        self.fit(text)

    def test_ranges_stay_within_the_bounds_of_the_model(self):
        text = self.convert("--model", "CPMG_Torchia", self.grid())
        self.assertIn("\nPAR papb 0.005 0.113 4 0.03\n", text)  # papb there is at most 0.113

    def test_ten_fields_are_too_many(self):
        fields = [str(500 + 10 * i) for i in range(10)]
        self.assertIn(" 19 ", self.convert(self.grid(fields[:9])))
        self.refuse(self.grid(fields), said="10 fields: labels of one digit tell 9 apart")

    def test_too_many_powers_share_a_digit_and_have_no_curve(self):
        rows = "".join(f"A {p} {o} 9 0.1\n" for p in range(100, 1100, 100) for o in (0, 100))
        self.write("t.txt", "name power offset rate error\n" + rows)
        text = self.convert("--model", "R1RHO_CONST_OFF", "--field", 600, "t.txt")
        self.assertNotIn("PLOT ", text.replace("No PLOT", ""))
        self.assertIn("# No PLOT for labels whose points differ in more than x0.\n", text)
        self.fit(text, shown="#WARNING: No plot instructions given\n")

    def test_residues_with_too_few_points_are_left_out(self):
        table = self.grid()
        kept = [line for line in (self.place / table).read_text().splitlines()
                if line[0] != "B" or re.search(r",(25|50|75|100)\.0,", line)]
        self.write(table, "\n".join(kept))
        text = self.convert(table, said="B: left out: too few points, 4 for 4 parameters\n")
        self.assertNotIn("SET B", text)
        self.assertNotIn("SET B", self.fit(text))

    def test_a_point_of_the_other_experiment_is_rejected(self):
        self.write("t.txt", "name power rate error\nA 100 9 1\n")
        stderr = self.refuse("--field", 600, "t.txt", said="no residue is left")
        self.assertIn("t.txt:2: the model is one of CPMG, the point one of a spin lock\n", stderr)

    def test_points_off_resonance_do_not_pass_as_others(self):
        rows = "".join(f"A {p} {o} {9 - p / 200} 0.1\n" for p in (100, 200, 300, 400, 500) for o in (0, 300))
        self.write("t.txt", "name power offset rate error\n" + rows)
        said = "".join(f"t.txt:{line}: the model is one on resonance, the offset 300 Hz\n"
                       for line in range(3, 13, 2))
        text = self.convert("--model", "R1RHO_KAY_ON", "--field", 600, "t.txt", said=said)
        self.assertEqual(len(data_lines(text)), 5)
        self.assertEqual(len(data_lines(self.convert("--model", "R1RHO_KAY", "--field", 600, "t.txt"))), 10)

    def test_each_reference_is_named_with_its_conditions(self):
        rows = "".join(f"A {n} {v} {ligand}\n" for n, v in Tables.POINTS for ligand in (0.1, 0.2))
        self.write("t.txt", "name ncyc intensity concentration\n" + rows)
        text = self.convert("--field", 600, "-T", 0.02, "--noise", 1, "--model", "CPMG_Bind2", "t.txt")
        for ligand in ("0.1", "0.2"):
            self.assertIn(f"\n# I0 at 600 MHz, 298.15 K, ligand {ligand}: 100, from 1\n", text)

    def test_dravo_reads_and_plots_every_model(self):
        """Each model has its columns and labels, every parameter, and a curve for all its points."""
        self.grid(("600", "800"), ("283", "298"), ("1", "2"), ("0", "1"))
        for name, powers, offsets in (("lock.csv", (100, 200, 300, 400), (-100, 100, 300)),
                                      ("resonance.csv", range(100, 1300, 100), (0,))):
            rows = ["name,field,temperature,power,offset,rate,error"]
            rows += [f"A,{field},{temperature},{power},{offset},{9 + power / 100},0.1"
                     for temperature in (283, 298) for power in powers
                     for field in (600, 800) for offset in offsets]
            self.write(name, "\n".join(rows))
        models = self.convert("--list-models").split()
        self.assertEqual(len(models), 40)
        for model in models:
            with self.subTest(model):
                table = "lock.csv" if model.startswith("R1RHO") else "grid.csv"
                table = "resonance.csv" if model.endswith("_ON") else table
                fixed = ["--fix", "A0=0.001", "--fix", "B0=0.0005"] if "ind2c" in model or \
                    "bind3c" in model else []
                text = self.convert("--model", model, "--method", "INIT", "--share", "all",
                                    *fixed, table)
                report = self.fit(text)
                points = data_lines(text)
                self.assertIn(f"# Total data points = {len(points)}\n", report)
                self.assertNotRegex(report, r"X2/DoF\s+(=\s+)?-?(nan|inf)")
                title = points[0][0]
                plot = (self.place / f"{title}.xmgr").read_text()
                # Each data block is followed by the block of its curve, which has points too.
                blocks = re.findall(r"@ TYPE (xydy|xy)\n((?:\t.*\n)*)&", plot)
                drawn = sum(block.count("\n") for kind, block in blocks if kind == "xydy")
                self.assertEqual(drawn, sum(name == title for name, _ in points))
                for kind, block in blocks:
                    self.assertTrue(block, f"an empty block {kind}")

    def test_eyring_rates_are_found_from_the_usual_start(self):
        """Rates and errors of the made-up series of temperatures; the truth stands in its head."""
        rows = ["name field temperature nu rate error"]
        for title, words in example("synthetic_cpmg_temperature"):
            field = 600 if words[2] == "1" else 800
            rows.append(f"{title} {field} {words[1]} {float(words[0]) / 2} {words[-2]} {words[-1]}")
        self.write("t.txt", "\n".join(rows))
        report = self.fit(self.convert("--model", "CPMG_TEMP2", "t.txt"))
        for name, truth in (("dw", 1500), ("dHab", 16), ("dHba", 12)):
            value, error = re.search(rf"^\t{name}\t *(\S+) \((\S+)\)$", report, re.MULTILINE).groups()
            self.assertLess(abs(float(value) - truth), 4 * float(error))

    def test_the_random_search_of_three_sites_runs(self):
        rows = ["name field time nu rate error"]
        for title, words in example("synthetic_cpmg_matrix3"):
            rows.append(f"{title} {500 * float(words[3])} 0.04 {float(words[0]) / 2} {words[-2]} 0.05")
        self.write("t.txt", "\n".join(rows))
        text = self.convert("--model", "CPMG_matrix3", "t.txt")
        for long, short in (("RANDOM 30", "RANDOM 2"), ("MCMIN 20 0.1", "MCMIN 1 0.1")):
            self.assertIn(f"\nMETHOD {long}\n", text)
            text = text.replace(long, short)
        (self.place / "fit.in").write_text(text)
        # Where two draws end is chance, and so is whether errors can be computed there.
        subprocess.run([DRAVO, "-i", "fit.in", "-o", "fit.out"], cwd=self.place, check=True,
                       stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        self.assertIn("\n# MCMIN ", (self.place / "fit.out").read_text())


class Files(Case):
    def setUp(self):
        super().setUp()
        rows = "".join(f"A {n} {v}\n" for n, v in Tables.POINTS)
        self.write("t.txt", "name ncyc intensity\n" + rows)
        self.words = ("--field", 600, "-T", 0.02, "--noise", 1, "t.txt")

    def listed(self):
        return sorted(path.name for path in self.place.iterdir())

    def test_the_output_file_is_what_would_be_shown(self):
        self.assertEqual(self.convert(*self.words, "-o", "a.in"), "")
        self.assertEqual((self.place / "a.in").read_text(), self.convert(*self.words))
        self.assertEqual(self.listed(), ["a.in", "t.txt"])

    def test_strict_leaves_the_old_file_alone(self):
        self.write("a.in", "old\n")
        with open(self.place / "t.txt", "a", encoding="ascii") as table:
            table.write("A 12 x\n")
        self.refuse(*self.words, "--strict", "-o", "a.in", said="1 rejected; nothing is written")
        self.assertEqual((self.place / "a.in").read_text(), "old\n")
        self.assertEqual(self.listed(), ["a.in", "t.txt"])

    def test_output_that_cannot_be_written(self):
        self.refuse(*self.words, "-o", "no/a.in", said="cannot write 'no/a.in': No such file or directory")
        self.refuse(*self.words, "-o", "/dev/full", said="cannot write '/dev/full': "
                                                         "No space left on device")
        (self.place / "folder").mkdir()
        self.refuse(*self.words, "-o", "folder", said="cannot write 'folder': Is a directory")
        self.assertEqual(self.listed(), ["folder", "t.txt"])
        with open("/dev/full", "w", encoding="ascii") as full:
            done = subprocess.run([CONVERT, *map(str, self.words)], cwd=self.place, text=True,
                                  stdout=full, stderr=subprocess.PIPE)
        self.assertEqual((done.returncode, done.stderr),
                         (1, "dravo-convert: cannot write to standard output\n"))

    def test_output_that_ends_early_is_no_success(self):
        for words in (["--list-models"], ["--help"]):
            with self.subTest(words), open("/dev/full", "w", encoding="ascii") as full:
                done = subprocess.run([CONVERT, *words], text=True, stdout=full, stderr=subprocess.PIPE)
                self.assertEqual((done.returncode, done.stderr),
                                 (1, "dravo-convert: cannot write to standard output\n"))

    def test_a_table_is_not_overwritten(self):
        before = (self.place / "t.txt").read_text()
        self.refuse(*self.words, "-o", "./t.txt", said="-o ./t.txt is one of the tables")
        self.assertEqual((self.place / "t.txt").read_text(), before)

    def test_unknown_options(self):
        self.refuse("--colour", said="The following argument was not expected: --colour")


class Documents(Case):
    def test_the_man_page_names_the_options_that_there_are(self):
        page = ROOT / "docs" / "dravo-convert.1"
        self.assertIsNotNone(shutil.which("mandoc"), "mandoc comes with the Debian package")
        lint = subprocess.run(["mandoc", "-T", "lint", "-W", "warning", page], text=True,
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        self.assertEqual(lint.stdout, "")
        text = re.sub(".\x08", "", subprocess.run(["mandoc", "-T", "ascii", page], text=True,
                                                  stdout=subprocess.PIPE).stdout)
        offered = set(re.findall(r"^  (?:-\w,)?(--[\w-]+)", self.convert("--help"), re.MULTILINE))
        described = set(re.findall(r"^     (?:-\w, )?(--[\w-]+)", text, re.MULTILINE))
        self.assertGreater(len(offered), 25)
        self.assertEqual(offered, described)

    def test_the_commands_of_the_page_give_what_it_shows(self):
        environment = dict(os.environ, LC_ALL="C", PATH=":".join(
            [str(DRAVO.parent), str(CONVERT.parent), os.environ["PATH"]]))
        table = EXAMPLES / "abp1p_intensities.txt"
        self.write(table.name, table.read_text())
        steps = list(tutorial_test.commands((ROOT / "docs" / "convert.md").read_text()))
        self.assertGreater(len(steps), 6)
        for command, shown, tolerance in steps:
            done = subprocess.run(["sh", "-c", command], cwd=self.place, env=environment, text=True,
                                  stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
            self.assertTrue(tutorial_test.agree(shown, done.stdout, tolerance),
                            f"$ {command}the page shows\n{shown}\nbut it says\n{done.stdout}")


def main():
    global DRAVO, CONVERT
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--program", required=True)
    arguments, rest = parser.parse_known_args()
    DRAVO = pathlib.Path(arguments.program).resolve()
    CONVERT = pathlib.Path(os.environ["DRAVO_CONVERT"]).resolve()
    unittest.main(argv=[sys.argv[0], *rest])


if __name__ == "__main__":
    main()
