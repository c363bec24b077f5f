#!/usr/bin/env python3
"""Compares what programs that ought to be the same make of the examples and golden cases.

Builds of other optimisation must give the same bytes. With other libraries of linear algebra the
numbers of examples may differ, but by no more than a unit of the sixth digit: where a number lies
between two of six digits, the smallest difference shows there. Noisy fits are held to their errors.
"""
# SPDX-License-Identifier: GPL-3.0-or-later
import argparse
import math
import os
import pathlib
import re
import subprocess
import sys
import tempfile

from runs import difference, examples, german_locale, golden_cases

SIX_DIGITS = 5
# Of another library the forward differences and the decompositions of these fits make digits that
# nobody promises. They are held to what they mean: values to a fraction of their standard errors, these
# to a part of themselves, and chi-square of a set, where it is named, to a part of itself. All other
# numbers, chi-square of the whole among them, keep six digits.
ERRORS_AGREE = 0.01
FORWARD_DIFFERENCES = {"values": 1e-3}  # with a noise of 1e-3 in the derivatives
NOISY = {
    # Its start, beyond which the fit is not taken here. dwH and the R20 of a set act nearly alike
    # there: the inverse of the curvature magnifies the noise of the derivatives.
    "h2b_methyl_mq_cpmg.in": {"values": 0.0},
    # The fit creeps along a valley in which dw and papb, with errors as large as their values, hardly
    # change chi-square, and where it stops is decided by the last digits.
    "sod1_15n_cpmg_global.in": {"values": 1e-3, "set_chi": 1e-5},
    "synthetic_cpmg_bind3.in": FORWARD_DIFFERENCES,
    "synthetic_cpmg_matrix3.in": FORWARD_DIFFERENCES,
    "synthetic_cpmg_temp3.in": FORWARD_DIFFERENCES,
}
VALUE_AND_ERROR = re.compile(rb"^\t(?!X2/DoF)(\S+)\t *(\S+) \(([^()=]+)\)$", re.MULTILINE)
SET_CHI = re.compile(rb"^\tX2/DoF\t(\S+) \(DoF = \d+\)$", re.MULTILINE)
NUMBER = re.compile(rb"(?<![\w.])[-+]?(?:\d+\.?\d*(?:[eE][-+]?\d+)?|nan|inf)(?![\w.])")


def units_of_sixth_digit(x, y):
    larger = max(abs(x), abs(y))
    return abs(x - y) / 10.0 ** (math.floor(math.log10(larger)) - SIX_DIGITS)


def excess_of_noise(noise, data, other):
    """The first row of `data` that differs from that of `other` by more than the noise; or nothing."""
    rows, other_rows = VALUE_AND_ERROR.findall(data), VALUE_AND_ERROR.findall(other)
    if not rows or len(rows) != len(other_rows):
        return "other rows"
    for (name, *numbers), (_, *other_numbers) in zip(rows, other_rows):
        value, error = map(float, numbers)
        other_value, other_error = map(float, other_numbers)
        if not (abs(value - other_value) <= noise["values"] * error
                and abs(error - other_error) <= ERRORS_AGREE * error):
            return f"{name.decode()} {numbers} and {other_numbers}"
    if "set_chi" in noise:
        chis, other_chis = SET_CHI.findall(data), SET_CHI.findall(other)
        for chi, other_chi in zip(chis, other_chis):
            if not abs(float(chi) - float(other_chi)) <= noise["set_chi"] * float(chi):
                return f"X2/DoF {chi.decode()} and {other_chi.decode()}"
    return None


def without_noise(noise, data):
    data = VALUE_AND_ERROR.sub(rb"\t\1", data)
    return SET_CHI.sub(b"", data) if "set_chi" in noise else data


def largest_difference(name, first, second):
    """Of the numbers of two results: in units of the sixth digit, relative, and where. The text
    between must be the same."""
    if list(first) != list(second):
        return float("inf"), float("inf"), "other files"
    largest, relative, where = 0.0, 0.0, ""
    for path, data in first.items():
        if not path.endswith(("t.out", ".sum", "-final.out")):
            continue
        other = second[path]
        if name in NOISY:
            excess = excess_of_noise(NOISY[name], data, other)
            if excess:
                return float("inf"), float("inf"), f"{path}: {excess}"
            data, other = (without_noise(NOISY[name], text) for text in (data, other))
        if NUMBER.sub(b"#", data) != NUMBER.sub(b"#", other):
            return float("inf"), float("inf"), f"{path}: other text"
        for a, b in zip(NUMBER.findall(data), NUMBER.findall(other)):
            if a == b:
                continue
            x, y = float(a), float(b)
            relative = max(relative, abs(x - y) / max(abs(x), abs(y)))
            units = units_of_sixth_digit(x, y)
            if not units <= largest:
                largest, where = units, f"{path}: {a.decode()} and {b.decode()}"
    return largest, relative, where


def uses(program, folder):
    """Whether the program takes BLAS and LAPACK from the folder."""
    said = subprocess.run(["ldd", program], capture_output=True, text=True, check=True,
                          env={**os.environ, "LD_LIBRARY_PATH": folder}).stdout
    return all(f"{name} => {folder}/" in said for name in ("libblas.so.3", "liblapack.so.3"))


def compare_bytes(runs, references, what, results):
    """Number of runs that differ, each of which is told."""
    differing = 0
    for run in runs:
        found = difference(references[run.name], results(run))
        if found:
            differing += 1
            print(f"{what}: {run.name}: {found}")
    print(f"{what}: {len(runs) - differing} of {len(runs)} inputs give the same bytes")
    return differing


def compare_digits(runs, references, what, results):
    """Number of runs that differ within six digits."""
    differing = 0
    overall = 0.0
    for run in runs:
        units, relative, where = largest_difference(run.name, references[run.name], results(run))
        overall = max(overall, relative)
        if not units <= 1.001:
            differing += 1
            print(f"{what}: {run.name}: {units:.3g} units of the sixth digit at {where}")
    print(f"{what}: {len(runs)} examples, largest relative difference {overall:.2g}")
    return differing


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--program", required=True)
    parser.add_argument("--against", action="append", default=[], metavar="PROGRAM")
    parser.add_argument("--libraries", action="append", default=[], metavar="DIRECTORY",
                        help="with libblas.so.3 and liblapack.so.3")
    options = parser.parse_args()
    program = str(pathlib.Path(options.program).resolve())
    fits = list(examples(slow=True))
    runs = fits + list(golden_cases())
    references = {run.name: run.results(program) for run in runs}
    failed = compare_bytes(runs, references, "again", lambda run: run.results(program))
    with tempfile.TemporaryDirectory() as folder:
        german = german_locale(folder)
        failed += compare_bytes(runs, references, "de_DE.UTF-8",
                                lambda run: run.results(program, **german))
    for other in options.against:
        path = str(pathlib.Path(other).resolve())
        failed += compare_bytes(runs, references, other, lambda run: run.results(path))
    for libraries in options.libraries:
        path = str(pathlib.Path(libraries).resolve())
        if not uses(program, path):
            sys.exit(f"the program does not take its libraries from {libraries}")
        failed += compare_digits(fits, references, pathlib.Path(libraries).name,
                                 lambda run: run.results(program, LD_LIBRARY_PATH=path))
    sys.exit(failed > 0)


if __name__ == "__main__":
    main()
