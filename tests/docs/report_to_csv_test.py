#!/usr/bin/env python3
"""The reader of reports in examples/ turns what the program writes into the table that is documented."""
# SPDX-License-Identifier: GPL-3.0-or-later
import argparse
import csv
import importlib
import io
import pathlib
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parents[2]
READER = ROOT / "examples" / "report_to_csv.py"

# Two points each, error 1: mean of 3 and 5, chi-square 2; mean of 4 and 8, chi-square 8.
LOCAL = """FUNCTION CPMG_const
METHOD ONEEX
CALC REX Rex * 298 1 11
MONTE1 2
SET first
PAR R20 1 20 1 4.5
DATA 100 298 1 11 3 1
DATA 200 298 1 11 5 1
SET second
PAR R20_1_1 1 20 1 6.5
FIXED R20_1_2 7
DATA 100 298 1 11 4 1
DATA 200 298 1 11 8 1
"""
LOCAL_TABLE = [
    ["report", "model", "set", "R20", "R20 error", "Rex", "Rex error", "R20_1_1", "R20_1_1 error",
     "R20_1_2", "R20_1_2 error", "X2/DoF", "DoF", "Global X2/DoF", "Global DoF"],
    ["t.out", "CPMG_const", "first", "4", "0.707107", "0", "", "", "", "", "", "2", "1", "5", "2"],
    ["t.out", "CPMG_const", "second", "", "", "0", "", "6", "0.707107", "7", "", "8", "1", "5", "2"],
]

# One value for four points, error 1: mean 5, error 1/2; chi-squares 4 and 10 over 1, 14 over 3.
SHARED = """FUNCTION CPMG_const
METHOD ONEEX
GPAR common 1 20 1 4.5
SET first
PAR R20 common
DATA 100 298 1 11 3 1
DATA 200 298 1 11 5 1
SET second
PAR R20 common
DATA 100 298 1 11 4 1
DATA 200 298 1 11 8 1
"""
SHARED_TABLE = [
    ["report", "model", "set", "R20", "R20 error", "X2/DoF", "DoF", "Global X2/DoF", "Global DoF"],
    ["t.out", "CPMG_const", "first", "5", "0.5", "4", "1", "4.66667", "3"],
    ["t.out", "CPMG_const", "second", "5", "0.5", "10", "1", "4.66667", "3"],
]


def load_reader():
    sys.dont_write_bytecode = True
    sys.path.insert(0, str(READER.parent))
    return importlib.import_module(READER.stem)


def fit(program, place, text):
    """Runs the program on an input; the report is t.out."""
    (place / "t.in").write_text(text)
    subprocess.run([program, "-i", "t.in", "-o", "t.out"], cwd=place, check=True)


def read(place, *reports):
    return subprocess.run([sys.executable, READER, *reports], cwd=place, capture_output=True, text=True)


def expect(what, found, wanted):
    if found != wanted:
        sys.exit(f"{what}\n  is        {found}\n  should be {wanted}")


def expect_table(place, wanted):
    done = read(place, "t.out")
    expect("messages", (done.returncode, done.stderr), (0, ""))
    expect("table", list(csv.reader(io.StringIO(done.stdout))), wanted)


def test_tables(program, place):
    fit(program, place, SHARED)
    expect_table(place, SHARED_TABLE)
    fit(program, place, LOCAL)
    expect_table(place, LOCAL_TABLE)


def test_final_report(place):
    """The simulations are random, but a fixed value has no error, and Rex is 0 in each of them."""
    done = read(place, "t.out", "t.out-monte-final.out")
    rows = list(csv.DictReader(io.StringIO(done.stdout)))
    expect("rows", [(row["report"], row["set"]) for row in rows],
           [(report, title) for report in ("t.out", "t.out-monte-final.out")
            for title in ("first", "second")])
    final = rows[3]
    expect("fitted value", final["R20_1_1"], "6")
    expect("error of a fixed value", final["R20_1_2 error"], "")
    expect("error of Rex", final["Rex error"], "0")
    expect("error of R20", float(final["R20_1_1 error"]) > 0.0, True)


def test_name_given_twice(program, place):
    """A label may be the name of a parameter: both have their columns."""
    fit(program, place, LOCAL.replace("REX Rex", "REX R20"))
    rows = list(csv.reader(io.StringIO(read(place, "t.out").stdout)))
    expect("columns", rows[0][3:7], ["R20", "R20 error", "R20 2", "R20 2 error"])
    expect("values", rows[1][3:7], ["4", "0.707107", "0", ""])


def test_every_piece_is_unfinished(reader, place):
    report = (place / "t.out").read_text()
    for length in range(len(report)):
        try:
            reader.read_report(report[:length])
        except reader.NotAReport as error:
            start = "not a report" if length < len("# DRAVO VERSION ") else "unfinished"
            if not str(error).startswith(start):
                sys.exit(f"the first {length} bytes of a report are said to be '{error}'")
        else:
            sys.exit(f"the first {length} bytes of a report are taken for all of it")


def test_messages(place):
    (place / "part.out").write_text((place / "t.out").read_text().partition("Global")[0])
    done = read(place, "t.out", "part.out")
    expect("unfinished", (done.returncode, done.stdout, done.stderr),
           (1, "", "part.out: unfinished: it has no line 'Global X2/DoF'\n"))
    done = read(place, "t.in")
    expect("no report", (done.returncode, done.stdout, done.stderr),
           (1, "", "t.in: not a report: it does not begin with '# DRAVO VERSION'\n"))
    done = read(place, "none.out")
    expect("no file", (done.returncode, done.stdout, done.stderr),
           (1, "", "none.out: No such file or directory\n"))
    expect("no argument", read(place).returncode, 1)


def test_reports_of_all_cases(reader):
    """Reports and final reports of the golden cases: what simple counting finds is in the table."""
    reports = 0
    for path in (ROOT / "tests" / "golden").glob("*/expected/**/*"):
        if not path.is_file():
            continue
        text = path.read_bytes().decode(errors="surrogateescape")
        if not text.startswith("# DRAVO VERSION"):
            continue
        reports += 1
        _, sets, total = reader.read_report(text)
        lines = text.split("\n")
        expect(f"sets of {path}", [title for title, _, _ in sets],
               [line[4:] for line in lines if line.startswith("SET\t")])
        expect(f"values of {path}", sum(len(values) for _, values, _ in sets),
               sum(line.startswith("\t") for line in lines) - len(sets))
        expect(f"errors of {path}", sum(error != "" for _, v, _ in sets for _, error in v.values()),
               sum(line.startswith("\t") and line.endswith(")") for line in lines) - len(sets))
        expect(f"end of {path}", f"Global X2/DoF\t{total[0]} (DoF = {total[1]})", lines[-2])
    expect("more than 100 reports", reports > 100, True)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--program", required=True)
    program = pathlib.Path(parser.parse_args().program).resolve()
    reader = load_reader()
    with tempfile.TemporaryDirectory() as folder:
        place = pathlib.Path(folder)
        test_tables(program, place)
        test_final_report(place)
        test_every_piece_is_unfinished(reader, place)
        test_messages(place)
        test_name_given_twice(program, place)
    test_reports_of_all_cases(reader)


if __name__ == "__main__":
    main()
