#!/usr/bin/env python3
"""Turns reports of dravo into one CSV table: python3 report_to_csv.py REPORT... > table.csv

One row for each set. Columns: report, model, set; for each parameter and derived quantity its value
and its error (empty: fixed, or without error); X2/DoF and DoF of the set; the same of the whole fit.
Reads reports and the final reports of error analyses; docs/formats.md has their grammar. Numbers are
copied as they stand.
"""
# SPDX-License-Identifier: GPL-3.0-or-later
import csv
import re
import sys

WORD = r"([^\t ,]+)"  # of titles, names and labels
NUMBER = r"([^\t ()]+)"
MODEL = re.compile(f"MODEL  {WORD}")
SET = re.compile(f"SET\t{WORD}")
CHI = re.compile(rf"\tX2/DoF\t{NUMBER} \(DoF = (\d+)\)")
GLOBAL = re.compile(rf"Global X2/DoF\t{NUMBER} \(DoF = (\d+)\)")
# A parameter has its error behind a blank; a quantity has blanks before its label and its error, if
# any, behind a tab.
PARAMETER = re.compile(rf"\t{WORD}\t *{NUMBER}(?: \({NUMBER}\))?")
QUANTITY = re.compile(rf"\t {{4}}{WORD}\t{NUMBER}(?:\t\({NUMBER}\))?")
HEADER = re.compile(r"(# |METHOD |EQN    ).*|")


class NotAReport(Exception):
    """What is wrong with a file."""


def read_set(lines, title):
    """The lines of a set up to its chi-square: (title, values, (X2/DoF, DoF)). The values are keyed by
    (name, 1), a second one of the same name by (name, 2)."""
    values = {}
    for number, line in lines:
        if chi := CHI.fullmatch(line):
            return title, values, chi.groups()
        found = PARAMETER.fullmatch(line) or QUANTITY.fullmatch(line)
        if not found:
            break
        nth = 1 + sum(name == found[1] for name, _ in values)
        values[found[1], nth] = (found[2], found[3] or "")
    if not line:
        raise NotAReport(f"unfinished: it ends within set {title}")
    raise NotAReport(f"line {number} is no value of set {title}: {line!r}")


def read_report(text):
    """(model, list of what read_set returns, (X2/DoF, DoF) of the whole fit)."""
    if not text.startswith("# DRAVO VERSION "):
        raise NotAReport("not a report: it does not begin with '# DRAVO VERSION'")
    if not text.endswith("\n"):
        raise NotAReport("unfinished: its last line has no end")
    model, sets, total = "", [], None
    lines = iter(enumerate(text.split("\n"), start=1))
    for number, line in lines:
        if found := MODEL.fullmatch(line):
            model = found[1]
        elif found := SET.fullmatch(line):
            sets.append(read_set(lines, found[1]))
        elif found := GLOBAL.fullmatch(line):
            total = found.groups()
        elif not HEADER.fullmatch(line):
            raise NotAReport(f"line {number} does not belong to a report: {line!r}")
    if total is None:
        raise NotAReport("unfinished: it has no line 'Global X2/DoF'")
    return model, sets, total


def read_file(path):
    """Ends the program with a message for a file that is no finished report."""
    try:
        with open(path, encoding="utf-8", errors="surrogateescape", newline="\n") as file:
            return read_report(file.read())
    except OSError as error:
        sys.exit(f"{path}: {error.strerror}")
    except NotAReport as error:
        sys.exit(f"{path}: {error}")


def main(paths):
    reports = [(path, *read_file(path)) for path in paths]
    columns = {}  # of values, in order of appearance
    for _, _, sets, _ in reports:
        for _, values, _ in sets:
            columns.update(dict.fromkeys(values))
    sys.stdout.reconfigure(encoding="utf-8", errors="surrogateescape", newline="\n")
    table = csv.writer(sys.stdout, lineterminator="\n")
    names = [name if nth == 1 else f"{name} {nth}" for name, nth in columns]
    pairs = [text for name in names for text in (name, f"{name} error")]
    table.writerow(["report", "model", "set", *pairs, "X2/DoF", "DoF", "Global X2/DoF", "Global DoF"])
    for path, model, sets, total in reports:
        for title, values, chi in sets:
            cells = [text for key in columns for text in values.get(key, ("", ""))]
            table.writerow([path, model, title, *cells, *chi, *total])


if __name__ == "__main__":
    if len(sys.argv) < 2 or sys.argv[1] in ("-h", "--help"):
        sys.exit(__doc__)
    main(sys.argv[1:])
