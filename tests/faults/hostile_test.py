#!/usr/bin/env python3
"""Titles, names, numbers and counts that nobody would write on purpose: a message or a whole
report, and nothing outside the folder of the run."""
# SPDX-License-Identifier: GPL-3.0-or-later
import re
import resource
import sys

from fixture import ALL_FIXED, Case, decay, files_below, is_whole, main

HUGE = 10**18
NAME_MAX = 255

# Titles that are file names, however odd. Blanks, tabs and commas end a title in the input.
ODD_NAMES = (b"..", b".", b"...", b"~", b"-rf", b"*", b"a;b", b"$(touch_x)", b"`touch_x`", b"%s%n",
             b"a\\b", b"'", b"\x01\x1b[2J\x07\x7f", b"a\rb", b"a\x0b\x0cb", b"\xff\xfe",
             b"\xc3\xa9t\xc3\xa9", b"#", b"@ TITLE", b"#SET", b"SET", b"C:\\x",
             b"x" * (NAME_MAX - len(".xmgr")))
QUOTED = (b'"', b'a"b', b'"@hardcopy"')
# Those that are not.
PATHS = (b"/", b"a/b", b"../x", b"/etc/x", b"run/../../x", b"x/", b"\x00", b"a\x00/b",
         b"x" * NAME_MAX)

# Every model by the number of its columns and labels, with those labels.
MODELS = {
    (1, ""): "Constant Linear Exp2 Exp3 Gauss Gauss2 2Exp3 SIRE Sig Sig_boltz",
    (2, "1"): "CLEANEX",
    (3, "11"): "CPMG_const CPMG_Meiboom CPMG_Torchia CPMG_Richards CPMG_Richards_p "
               "CPMG_Richards_k CPMG_TEMP2",
    (4, "11"): "CPMG_temp3 CPMG_temp3linear CPMG_temp3folked CPMG_matrix3",
    (4, "111"): "CPMG_Richards_probes CPMG_RDC CPMG_Bind2 CPMG_Bind2c R1RHO_CONST R1RHO_CONST_ON "
                "R1RHO_CONST_OFF R1RHO_LONDON R1RHO_LONDON_ON R1RHO_LONDON_OFF R1RHO_KAY "
                "R1RHO_KAY_ON R1RHO_KAY_OFF R1RHO_PALMER02 R1RHO_PALMER02_ON R1RHO_PALMER02_OFF "
                "R1RHO_PALMER05 R1RHO_PALMER05_ON R1RHO_PALMER05_OFF",
    (5, "111"): "CPMG_bind3a CPMG_bind3b CPMG_bind3c_1F2B CPMG_bind3c_2F1B MQCPMG_Richards "
                "MQCPMG_Richards_p MQCPMG_Richards_k MQCPMG_Matrix2_p MQCPMG_Matrix2_k "
                "MQCPMG_Matrix3_p MQCPMG_Matrix3_k",
}
NUMBERS = ("nan", "-nan", "inf", "-inf", "1e400", "-1e400", "1e308", "-1e308", "4.9e-324", "1e-400",
           "-0", "0x1p3", "1d5", "1e18", "0x", "--1", "9" * 400, "1e99999999999999999999")


class Titles(Case):

    def run_title(self, title, *options):
        place = self.top / str(len(list(self.top.iterdir())))
        (place / "a").mkdir(parents=True)
        (place / "t.in").write_bytes(b"PLOT one\nSET " + title + b"\nFIXED c 1\nDATA 0 3 0.5 -\n")
        text = (place / "t.in").read_bytes()
        (place / "t.in").write_bytes(b"FUNCTION Constant\n" + text)
        done = self.run_program(*options, place=place)
        return done, {name.encode(errors="surrogateescape"): data
                      for name, data in files_below(place).items()}

    def test_odd_names_are_names(self):
        for title in ODD_NAMES + QUOTED:
            with self.subTest(title):
                if b" " in title:
                    title = title.replace(b" ", b"_")
                done, left = self.run_title(title, "-vv", "-xmgr")
                self.assertEqual(done.returncode, 0, done.stderr)
                plot = title + b".xmgr"
                self.assertEqual(sorted(left), sorted([b"t.in", b"t.out", plot, b"01-INIT/t.out",
                                                       b"01-INIT/" + plot]))
                self.assertTrue(is_whole("t.out", left[b"t.out"]))
                # Into the report and the plot as it is, between double quotes there.
                self.assertIn(b"\nSET\t" + title + b"\n", left[b"t.out"])
                self.assertIn(b'\n@ TITLE "' + title + b'"\n', left[plot])

    def test_paths_are_no_names(self):
        for title in PATHS:
            with self.subTest(title):
                for options, files in ((("-xmgr",), [b"t.in", b"t.out"]),
                                       (("-vv", "-xmgr"), [b"01-INIT/t.out", b"t.in"])):
                    done, left = self.run_title(title, *options)
                    self.assertEqual(done.returncode, 1)
                    self.assertTrue(done.stderr.endswith(
                        b"Error: Opening file '" + title + b".xmgr'\n"), done.stderr)
                    self.assertEqual(sorted(left), files)
                done, left = self.run_title(title)
                self.assertEqual(done.returncode, 0)
                self.assertIn(b"\nSET\t" + title + b"\n", left[b"t.out"])
        self.assertTrue(all(path.is_dir() for path in self.top.iterdir()))


class Names(Case):
    MEGABYTE = 10**6

    def test_names_of_a_megabyte(self):
        long = "n" * self.MEGABYTE
        text = decay(f"GPAR {long} 50 200 3\nPLOT {long}\nMETHOD ONE\n", titles=(long,))
        self.write(text.replace("PAR a 50 200 3", f"PAR a {long}"))
        done = self.run_program("-vv")
        self.assertEqual(done.returncode, 0, done.stderr[-200:])
        report = (self.place / "t.out").read_bytes()
        self.assertTrue(is_whole("t.out", report))
        self.assertIn(b"\nSET\t" + long.encode() + b"\n", report)

    def test_long_indices_are_numbers(self):
        zeros = "0" * self.MEGABYTE
        self.write("FUNCTION CPMG_const\nSET one\n" + f"FIXED R20_{zeros}1_1 7\n" +
                   "DATA 50 298 1 11 9 1\n")
        done = self.run_program()
        self.assertEqual(done.returncode, 0, done.stderr[-200:])
        self.assertIn(f"\n\tR20_{zeros}1_1\t", (self.place / "t.out").read_text())

    def test_unknown_names_are_shown_in_full(self):
        long = "n" * self.MEGABYTE
        for line, said in ((f"FUNCTION {long}", f"ERROR: Function name '{long}' "),
                           (f"METHOD {long}", f"ERROR: Optimization type '{long}' "),
                           (f"{long} 1", f"ERROR: Keyword '{long}' "),
                           (f"SET s\nPAR {long} 1", f"ERROR: Parameter name '{long}' "),
                           (f"SET s\nPAR a {long}", "ERROR: Set 's' par 'a' references unknown "
                                                    f"variable '{long}'\n"),
                           ("SET s\nPAR a" + "_1" * 500000 + " 1", "ERROR: Parameter name 'a_1_1"),
                           (f"SET s\nPAR {'_' * self.MEGABYTE} 1", "ERROR: Parameter name '__")):
            with self.subTest(line[:20]):
                self.write(f"FUNCTION Linear\n{line}\n")
                done = self.run_program()
                self.assertEqual(done.returncode, 1)
                self.assertTrue(done.stderr.decode().startswith(said), done.stderr[:80])
                self.assertFalse((self.place / "t.out").exists())

    def test_arguments_of_100_kilobytes(self):
        long = "n" * 100000
        done = self.run_program(files=(long,))
        self.assertEqual(done.returncode, 1)
        said = f"ERROR: Parameter '{long}' not understood.\n"
        self.assertTrue(done.stderr.decode().startswith(said))
        self.write(ALL_FIXED)
        done = self.run_program(files=("-i", "t.in", "-o", long))
        self.assert_fails(done, f"\nError: Opening file '{long}'\n")

    def test_a_million_sets(self):
        sets = 100000 if self.sanitized else 1000000
        with open(self.place / "t.in", "w") as out:
            out.write("FUNCTION Constant\nMETHOD ONEEX\n")
            for i in range(sets):
                out.write(f"SET s{i}\nPAR c 0 9\nDATA 0 1 1 -\nDATA 0 2 1 -\n")
        def limit():
            if not self.sanitized:
                resource.setrlimit(resource.RLIMIT_AS, (2 * 10**9, 2 * 10**9))
        done = self.run_program(preexec_fn=limit)
        self.assert_outcome(done, 0, "")
        report = (self.place / "t.out").read_text()
        self.assertEqual(report.count("\n\tc\t    1.5 (0.707107)\n\tX2/DoF\t0.5 (DoF = 1)\n"), sets)
        self.assertTrue(report.endswith(f"\nGlobal X2/DoF\t0.5 (DoF = {sets})\n"))
        # Without the memory for them the run ends with a word.
        if not self.sanitized:
            (self.place / "t.out").unlink()
            half = 4 * 10**8
            done = self.run_program(
                preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_AS, (half, half)))
            self.assert_outcome(done, 1, "ERROR: Unable to allocate memory\n")
            self.assertFalse((self.place / "t.out").exists())


class Numbers(Case):
    thorough = "--thorough" in sys.argv  # twelve thousand runs instead of some hundred

    def test_as_the_c_library_reads_them(self):
        """y = a + b x through (0, 1), (1, 2), all fixed: chi-square tells what was read."""
        for token, value in (("0x1p3", 8.0), ("1d5", 1.0), ("1e400", float("inf")), ("-0", 0.0),
                             ("4.9e-324", 0.0), ("+.5e1", 5.0), ("5,", 5.0), ("", None),
                             ("0x", 0.0), ("1e", 1.0), ("five", 0.0), ("INFINITY", float("inf"))):
            if value is None:
                continue
            with self.subTest(token):
                self.write("FUNCTION Constant\nSET one\nFIXED c 1\n" + f"DATA 0 {token} 1 -\n")
                done = self.run_program()
                if value == float("inf"):
                    self.assertEqual(done.returncode, 1)
                    continue
                self.assertEqual(done.returncode, 0)
                chi = f"Global X2/DoF\t{(value - 1) ** 2:g} (DoF = 1)\n"
                self.assertTrue((self.place / "t.out").read_text().endswith(chi), chi)

    def model_names(self):
        self.write("FUNCTION ?\n")
        said = self.run_program().stderr.decode()
        return re.findall(r"'([^']+)'", said.partition("Valid function names:")[2])

    def parameters(self, model):
        self.write(f"FUNCTION {model}\nSET s\nPAR ? 1\n")
        said = self.run_program().stderr.decode()
        return re.findall(r"\t'([^']+)'", said)

    def inputs(self, model, columns, labels):
        """Each number in every field: a column, y, the error, a bound, a fixed value, a range."""
        parameters = self.parameters(model)
        usual = ["100", "0.1", "1", "1", "1"][:columns]
        head = f"FUNCTION {model}\nMETHOD ONEEX\nPLOT p\n"
        # Label 1 1 4: a coherence code for those models, any index for the others.
        tail = f"{labels[:2] + '4' if len(labels) == 3 else labels} " if labels else ""
        for number in NUMBERS:
            for field in range(columns + 2):
                row = usual + ["10", "1"]
                row[field] = number
                data = "".join(f"DATA {' '.join(row[:columns])} {tail}{row[columns]} "
                               f"{row[columns + 1]}{'' if labels else ' -'}\n" for _ in range(9))
                yield (number, field), head + "SET s\n" + "".join(
                    f"PAR {name} 0.1 0.2 2\n" for name in parameters) + data
            row = usual + ["10", "1"]
            data = "".join(f"DATA {' '.join(row[:columns])} {tail}{row[columns]} "
                           f"{row[columns + 1]}{'' if labels else ' -'}\n" for _ in range(9))
            for line in (f"PAR {{}} 0 1 2 {number}", f"PAR {{}} {number} {number}",
                         f"PAR {{}} -1e300 {number} 3e", f"REST {{}} {number} 1e300 3T 1",
                         f"FIXED {{}} {number}", f"PAR {{}} {number}"):
                yield (number, line), head + "SET s\n" + "".join(
                    line.format(name) + "\n" for name in parameters) + data

    def check(self, text):
        self.write(text)
        report = self.place / "t.out"
        report.unlink(missing_ok=True)
        done = self.run_program("-xmgr", timeout=60)
        self.assertIn(done.returncode, (0, 1), text)
        if done.returncode == 0:
            self.assertTrue(is_whole("t.out", report.read_bytes()), text)
        elif report.exists():  # refused at a point of a curve
            self.assertTrue(is_whole("t.out", report.read_bytes()), text)

    def test_in_every_field_of_every_model(self):
        known = [name for names in MODELS.values() for name in names.split()]
        self.assertEqual(sorted(map(str.lower, known)), sorted(map(str.lower, self.model_names())))
        cases = [(model, *case) for (columns, labels), names in MODELS.items()
                 for model in names.split() for case in self.inputs(model, columns, labels)]
        # No divisor of the counts above: each number meets each field in some models.
        for model, where, text in cases if self.thorough else cases[::17]:
            with self.subTest(model=model, where=where):
                self.check(text)


class Counts(Case):

    def test_beyond_an_int(self):
        """Lowered to the nearest int, and shown so."""
        nearest = 2**31 - 1
        for count in (nearest, nearest + 1, 2**32 + 5, 2**63, HUGE, 10**40):
            with self.subTest(count):
                self.write(decay(f"METHOD MCMIN -{count} 0.1\nMETHOD ONE\n"))
                done = self.run_program()
                self.assert_outcome(done, 0, "")
                lowest = max(-count, -2**31)
                self.assertIn(f"\nMETHOD MCMIN {lowest} 0.1\n", (self.place / "t.out").read_text())
                for option in (count, -count):
                    self.assert_outcome(self.run_program("-prec", str(option)), 0, "")

    def test_simulations_beyond_an_int(self):
        for count in (-HUGE, -2**32 + 5, 0, 1):
            with self.subTest(count):
                self.write(decay(f"MONTE {count}\n"))
                self.assert_outcome(
                    self.run_program(), 1,
                    "ERROR: Monte Carlo simulations require more than 2 iterations.\n")

    def test_grids_without_points(self):
        for count in (-HUGE, -1, 0):
            with self.subTest(count):
                text = decay("METHOD GRID\n")
                self.write(text.replace("PAR a 50 200 3", f"PAR a 50 200 {count}"))
                self.assert_outcome(self.run_program(), 0, "")

    def test_labels_beyond_their_digits(self):
        for label in ("1", "111", "1" * 10**6):
            with self.subTest(label[:5]):
                self.write(f"FUNCTION CPMG_const\nSET s\nFIXED R20 1\nDATA 50 298 1 {label} 9 1\n")
                done = self.run_program()
                self.assertEqual(done.returncode, 1)
                self.assertTrue(done.stderr.startswith(b"ERROR: Index is not defined correctly.\n"))


if __name__ == "__main__":
    if Numbers.thorough:
        sys.argv.remove("--thorough")
    main(__doc__)
