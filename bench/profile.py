#!/usr/bin/env python3
"""Counts the instructions of two fits by callgrind and prints a table of where they go.

The counts are the same in every run on one machine, whatever else it does.
"""
# SPDX-License-Identifier: GPL-3.0-or-later
import argparse
import pathlib
import re
import subprocess
import sys

import inputs

# The first that matches what callgrind calls a function, "file:function [object]", takes it.
PARTS = (
    ("LAPACK and BLAS", r"lib(lapack|blas)"),
    ("mathematical functions of the models", r"libm\.so|ieee754|/math/"),
    ("models", r"fcpmg|evaluate|slopesOf|rowOf|refresh|exchangeOf|Exchange|forwardDifferences|"
               r"SlotCache|keyOf|dispersion|largestEigenvalue|symmetrize|zmat|zdmat|Scheme|equilibrium|"
               r"halfEcho|cycleRate|checkRate|richards|asymptotic|value<|withDerivatives|complex|"
               r"__mul[dx]c3|__divdc3"),
    ("normal equations and chi-square", r"lMarq|gMarq|addPoint|addMultiple|calc_y_dy|calc_chi|"
                                        r"addSharedRows|LevMar::resize"),
    ("minimiser: steps, solving, trial values", r"LevMarq|LM_solv|solveStep|applyStep|moveTo|"
                                                r"ParSet|minimize|startLambda|isLegal"),
    ("memory and copies", r"malloc|free|operator new|operator delete|mem(cpy|move|set)|cfree"),
    ("search, covariance, error analysis", r"Fit::|LM_inv|PassSums"),
    ("start, reading, reports", r"."),
)


def jackknife():
    return inputs.SharedExchange(20, 5, seed=5).text(["ONEEX"], further=["JACK1"])


JOBS = (("jackknife of 20 residues with shared kex and papb (200 points, 200 passes)", jackknife),
        ("three-site global fit of 5 residues", inputs.three_site_global))


def counts(program, work, text):
    (work / "profile.in").write_text(text)
    subprocess.run(["valgrind", "--quiet", "--tool=callgrind", "--callgrind-out-file=profile.cg",
                    program, "-i", "profile.in", "-o", "profile.out"], cwd=work, check=True)
    listing = subprocess.run(["callgrind_annotate", "--auto=no", "--threshold=100", "profile.cg"],
                             cwd=work, check=True, stdout=subprocess.PIPE, text=True).stdout
    found = []
    for line in listing.splitlines():
        match = re.match(r"\s*([\d,]+) \(\s*[\d.]+%\)\s+(\S.*)$", line)
        if match and "PROGRAM TOTALS" not in line:
            found.append((int(match[1].replace(",", "")), match[2]))
    if not found:
        sys.exit("callgrind counted nothing")
    return found


def table(program, work):
    columns = []
    for what, text in JOBS:
        total, parts = 0, dict.fromkeys((name for name, _ in PARTS), 0)
        for count, function in counts(program, work, text()):
            part = next(name for name, pattern in PARTS if re.search(pattern, function))
            parts[part] += count
            total += count
        columns.append((what, total, parts))
    lines = ["| part | " + " | ".join(what for what, _, _ in columns) + " |",
             "|---" * (len(columns) + 1) + "|"]
    for name, _ in PARTS:
        lines.append(f"| {name} | " + " | ".join(f"{100 * parts[name] / total:.1f} %"
                                                 for _, total, parts in columns) + " |")
    lines.append("| instructions | " + " | ".join(f"{total / 1e9:.2f} billion"
                                                   for _, total, _ in columns) + " |")
    return "\n".join(lines) + "\n"


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("build", type=pathlib.Path, help="build directory of the preset bench")
    build = parser.parse_args().build.resolve()
    work = build / "jobs"
    work.mkdir(parents=True, exist_ok=True)
    text = table(build / "dravo", work)
    (build / "profile.md").write_text(text)
    print(f"{text}\nThis table is {build / 'profile.md'}")


if __name__ == "__main__":
    main()
