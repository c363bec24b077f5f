#!/usr/bin/env python3
"""Fits the certified problems of tests/data/strd_*.in and prints how many digits come out right.

    python3 tests/accuracy/strd.py --program build/release/dravo

Before a fit counts, its input file is checked in 50-digit arithmetic: the data give the certified sum
of squares and standard deviations at the certified parameters, the DATA lines are the images of the
data, and the start values those of the published starts.

A nonlinear set that is fitted through other parameters than its own, such as k and R1a for b1 and b2,
is compared in both: the values in its own, values and standard errors in the model's. Errors need the
covariance of b1 and b2 to be carried over; it is computed from the certified parameters.
"""
# SPDX-License-Identifier: GPL-3.0-or-later
import argparse
import math
import pathlib
import re
import subprocess
import tempfile
from decimal import Decimal, getcontext

getcontext().prec = 50
DATA = pathlib.Path(__file__).resolve().parents[1] / "data"
REQUIRED = 6.5
SHOWN_AT_MOST = 10.0  # certified values of the nonlinear sets have eleven digits
PI = Decimal("3.14159265358979323846264338327950288419716939937510582")
NUMBER = r"[-+]?\d[\d.]*(?:[Ee][-+]?\d+)?"


def digits(value, expected):
    """Log relative error: the number of decimal digits that agree."""
    error = abs(Decimal(value) - expected)
    if error == 0:
        return SHOWN_AT_MOST
    return min(SHOWN_AT_MOST, -math.log10(error / abs(expected)))


class Own:
    """Fitted in its own parameters: `names` of the file's header are `fitted` of the model."""

    def __init__(self, function, starts, fitted, row):
        self.function, self.starts, self.fitted, self.row = function, starts, fitted, row

    def model(self, b):
        return list(b)

    def own(self, theta):
        return list(theta)


class Exponential(Own):
    """b1 (1 - exp(-b2 x)) as CLEANEX, whose water rate is `water` and whose time is x/unit."""

    def __init__(self, starts, unit, water, sigma):
        self.unit, self.water, self.sigma = Decimal(unit), Decimal(water), Decimal(sigma)
        super().__init__(lambda x, b: b[0] * (1 - (-b[1] * x).exp()), starts, ["k", "R1a"], self.image)

    def image(self, x, y):
        weight = (-self.water * x / self.unit).exp() / 1000000
        return [x / self.unit], y * weight, self.sigma * weight

    def model(self, b):
        rate = b[1] * self.unit
        k = b[0] * rate / 1000000
        return [k, rate + self.water - k]

    def own(self, theta):
        rate = theta[1] - self.water + theta[0]
        return [theta[0] * 1000000 / rate, rate / self.unit]


class Hyperbola(Own):
    """b1 b2 x/(1 + b2 x), divided by x, as R1RHO_LONDON_ON with R20 = 1."""

    def __init__(self, starts, sigma):
        self.sigma = Decimal(sigma)
        super().__init__(
            lambda x, b: b[0] * b[1] * x / (1 + b[1] * x), starts, ["phi", "kex"], self.image)

    def image(self, x, y):
        return [(10000 * x).sqrt() / (2 * PI)], y / x + 1, self.sigma / x

    def model(self, b):
        kex = (10000 / b[1]).sqrt()
        return [10000 * b[0] / kex, kex]

    def own(self, theta):
        return [theta[0] * theta[1] / 10000, 10000 / theta[1] ** 2]


class Logistic(Own):
    """b1/(1 + exp(b2 - b3 x)) as Sig_boltz with a2 = 0, x running backwards from 200."""

    def __init__(self, starts, sigma):
        self.sigma = Decimal(sigma)
        super().__init__(lambda x, b: b[0] / (1 + (b[1] - b[2] * x).exp()), starts,
                         ["a1", "tm", "m"], self.image)

    def image(self, x, y):
        return [200 - x], y / 1000, self.sigma / 1000

    def model(self, b):
        return [b[0] / 1000, 200 - b[1] / b[2], 1 / b[2]]

    def own(self, theta):
        return [1000 * theta[0], (200 - theta[1]) / theta[2], 1 / theta[2]]


NONLINEAR = {
    "Misra1a": Exponential([("500", "0.0001"), ("250", "0.0005")], 1000, 5, "0.10187876330"),
    "Misra1d": Hyperbola([("500", "0.0001"), ("450", "0.0003")], "0.068568272111"),
    "DanWood": Own(lambda x, b: b[0] * (b[1] * x.ln()).exp(), [("1", "5"), ("0.7", "4")], ["a", "b"],
                   lambda x, y: ([x.ln()], y, Decimal("0.032853114039"))),
    "BoxBOD": Exponential([("1", "1"), ("100", "0.75")], 1, 2, "17.088072423"),
    "Rat42": Logistic([("100", "1", "0.1"), ("75", "2.5", "0.07")], "1.1587725499"),
}
LINEAR = {"Norris": ["a", "b"], "NoInt1": ["b"], "NoInt2": ["b"]}
UNIVARIATE = ["Lew", "Lottery", "Mavro", "Michelso", "NumAcc1", "NumAcc2", "NumAcc3", "NumAcc4"]


class InputFile:
    def __init__(self, name):
        self.path = DATA / f"strd_{name.lower()}.in"
        lines = self.path.read_text().splitlines()
        self.header = " ".join(line[1:].strip() for line in lines if line.startswith("#"))
        self.model = self.words(lines, "FUNCTION")[0][0]
        self.sets = [[]]
        for line in lines:
            if line.startswith("SET "):
                self.sets.append([])
            self.sets[-1].append(line)
        self.sets = self.sets[1:]

    @staticmethod
    def words(lines, keyword):
        return [line.split()[1:] for line in lines if line.startswith(keyword + " ")]

    def listed(self, letter):
        text = re.search(rf"\b{letter} = ((?:{NUMBER} )+)", self.header).group(1)
        return [Decimal(number) for number in text.split()]

    def certified(self):
        """[(name, value, standard deviation)]"""
        text = self.header[self.header.index("Certified:"):]
        found = re.findall(rf"(\w+) ({NUMBER}) \(({NUMBER})\)", text)
        return [(name, Decimal(value), Decimal(deviation)) for name, value, deviation in found]

    def certified_number(self, what):
        text = self.header[self.header.index("Certified:"):]
        return Decimal(re.search(rf"{what} ({NUMBER})", text).group(1).rstrip("."))


def require(agreed, wanted, what):
    if agreed < wanted:
        raise SystemExit(f"{what}: {agreed:.2f} digits, fewer than {wanted}")


def jacobian(function, at):
    """Rows: derivatives of function(at), a list, for each element of `at` (central differences)."""
    rows = []
    for k, value in enumerate(at):
        step = abs(value) * Decimal("1e-15")
        up, down = list(at), list(at)
        up[k] += step
        down[k] -= step
        rows.append([(a - b) / (2 * step) for a, b in zip(function(up), function(down))])
    return rows


def inverse(matrix):
    n = len(matrix)
    rows = [list(row) + [Decimal(i == j) for j in range(n)] for i, row in enumerate(matrix)]
    for i in range(n):
        pivot = max(range(i, n), key=lambda r: abs(rows[r][i]))
        rows[i], rows[pivot] = rows[pivot], rows[i]
        rows[i] = [e / rows[i][i] for e in rows[i]]
        for r in range(n):
            if r != i:
                rows[r] = [a - rows[r][i] * b for a, b in zip(rows[r], rows[i])]
    return [row[n:] for row in rows]


def product(a, b):
    return [[sum(x * y for x, y in zip(row, column)) for column in zip(*b)] for row in a]


def transposed(a):
    return [list(row) for row in zip(*a)]


def checked_images(name, problem, file):
    """The certified values and deviations in the parameters of the model, after all checks."""
    x, y = file.listed("x"), file.listed("y")
    certified = file.certified()
    b = [value for _, value, _ in certified]
    squares = sum((yi - problem.function(xi, b)) ** 2 for xi, yi in zip(x, y))
    require(digits(squares, file.certified_number("sum of squares")), 9.0, f"{name}, sum of squares")
    slopes = jacobian(lambda at: [problem.function(xi, at) for xi in x], b)
    variance = squares / (len(x) - len(b))
    covariance = [[variance * e for e in row] for row in inverse(product(slopes, transposed(slopes)))]
    for k, (parameter, _, deviation) in enumerate(certified):
        require(digits(covariance[k][k].sqrt(), deviation), 9.0, f"{name}, deviation of {parameter}")
    for lines, start in zip(file.sets, problem.starts, strict=True):
        given = dict(file.words(lines, "PAR"))
        for parameter, value in zip(problem.fitted, problem.model([Decimal(s) for s in start])):
            require(digits(given[parameter], value), 9.9, f"{name}, start of {parameter}")
        for xi, yi, row in zip(x, y, file.words(lines, "DATA"), strict=True):
            abscissae, value, error = problem.row(xi, yi)
            found = [Decimal(word) for word in row if re.fullmatch(NUMBER, word)]
            for expected, number in [(abscissae[0], found[0]), (value, found[-2]), (error, found[-1])]:
                require(digits(number, expected), 9.9, f"{name}, DATA line of x = {xi}")
    theta = problem.model(b)
    to_model = jacobian(problem.model, b)
    carried = product(product(transposed(to_model), covariance), to_model)
    return [(p, theta[k], carried[k][k].sqrt()) for k, p in enumerate(problem.fitted)]


def run(program, file):
    """For each set {parameter: (value, error)} and the reduced chi-square under the key X2/DoF."""
    with tempfile.TemporaryDirectory() as folder:
        report = pathlib.Path(folder) / "report"
        command = [str(program), "-i", str(file.path), "-o", str(report), "-prec", "15"]
        subprocess.run(command, check=True, capture_output=True)
        blocks = report.read_text().split("\nSET\t")[1:]
    results = []
    for block in blocks:
        found = re.findall(rf"^\t(\S+)\s+({NUMBER})(?: \(({NUMBER})\))?", block, re.MULTILINE)
        results.append({p: (Decimal(v), Decimal(e) if e else None) for p, v, e in found})
    return results


def problem_rows(program, name, deviations=None):
    """Rows of the table: set, model, parameter, certified value, digits of values and errors.

    Deviations from the certified values in units of the printed errors are added to `deviations`.
    """
    file = InputFile(name)
    fits = run(program, file)
    # Errors are not scaled by chi-square, the certified deviations are.
    scales = [fit["X2/DoF"][0].sqrt() for fit in fits]
    rows = []

    def add(parameter, expected, values, errors):
        rows.append((name, file.model, parameter, expected, values, errors))
        if deviations is not None and errors:
            deviations.extend(
                float(abs(fit[parameter][0] - expected) / fit[parameter][1]) for fit in fits)

    if name in UNIVARIATE:
        mean, deviation = (file.certified_number(w) for w in ("mean", "standard deviation"))
        count = Decimal(len(file.words(file.sets[0], "DATA")))
        add("c", mean, [digits(fit["c"][0], mean) for fit in fits],
            [digits(fit["c"][1] * s, deviation / count.sqrt()) for fit, s in zip(fits, scales)])
        return rows
    certified = file.certified()
    images = certified
    if name in NONLINEAR:
        problem = NONLINEAR[name]
        images = checked_images(name, problem, file)
        own = [problem.own([fit[p][0] for p in problem.fitted]) for fit in fits]
        for k, (parameter, value, _) in enumerate(certified):
            if type(problem) is not Own:
                add(parameter, value, [digits(o[k], value) for o in own], [])
    for parameter, value, deviation in images:
        add(parameter, value, [digits(fit[parameter][0], value) for fit in fits],
            [digits(fit[parameter][1] * s, deviation) for fit, s in zip(fits, scales)])
    return rows


def largest_deviation(program):
    """From a certified value, in units of the standard error that the report prints."""
    deviations = []
    for name in [*NONLINEAR, *LINEAR, *UNIVARIATE]:
        problem_rows(program, name, deviations)
    return max(deviations)


def table(program):
    """Lines of the Markdown table; ends the run where a figure falls below REQUIRED."""
    lines = ["| Set | Model | Parameter | Certified | Digits from start 1, 2 | of its error |",
             "|---|---|---|---|---|---|"]
    for name in [*NONLINEAR, *LINEAR, *UNIVARIATE]:
        for set_name, model, parameter, expected, values, errors in problem_rows(program, name):
            for figure in values + errors:
                require(figure, REQUIRED, f"{name}, {parameter}")
            shown = [", ".join(f"{figure:.1f}" for figure in figures) for figures in (values, errors)]
            lines.append(f"| {set_name} | {model} | {parameter} | {expected:.11g} | {shown[0]} | "
                         f"{shown[1] or '-'} |")
    return lines


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--program", required=True)
    program = pathlib.Path(parser.parse_args().program).resolve()
    print("\n".join(table(program)))
    print(f"\nLargest deviation from a certified value: {largest_deviation(program):.0e} of the "
          "standard error that the report prints.")


if __name__ == "__main__":
    main()
