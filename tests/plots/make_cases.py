#!/usr/bin/env python3
"""Writes the golden cases plot_*: inputs, and expected files by arithmetic done here.

usage: make_cases.py [NAME...]      (all cases without a name)

Fits are regressions in rational numbers, curves the models' formulas typed in anew.
"""
# SPDX-License-Identifier: GPL-3.0-or-later
import math
import pathlib
import shutil
import sys
from fractions import Fraction

import plot_text as pt

GOLDEN = pathlib.Path(__file__).resolve().parents[1] / "golden"
CASES = {}

LINEAR = ("Linear", "f(x) = A + Bx")
CONSTANT = ("Constant", "f(x) = C")
EXP2 = ("Exp2", "f(x) = Aexp(Bx)")
RICHARDS = ("CPMG_Richards", "f(dw, kex, papb, R20)")
TEMP2 = ("CPMG_TEMP2", "f(dw, dHab, dHba, dSab, dSba, R20)")
CPMG_CONST = ("CPMG_const", "f(R20)")
KAY_ON = ("R1RHO_KAY_ON", "f(dw,kex,pB,R20)")
R1RHO_CONST_OFF = ("R1RHO_CONST_OFF", "f(R20,R1)")
CLEANEX = ("CLEANEX", "f(k, R1a, R1b)")
SHORT_RUN = "-xmgr -i t.in -o t.out"


def case(function):
    CASES["plot_" + function.__name__] = function
    return function


def content(why, text, files, args=SHORT_RUN, status=0, stdout="", stderr="", entries=()):
    lines = [f"why: {why}", f"args: {args}", f"exit: {status}", *entries]
    written = {"case": "\n".join(lines) + "\n", input_name(args): text}
    for name, body in {"stdout": stdout, "stderr": stderr, **files}.items():
        if body or name not in ("stdout", "stderr"):
            written["expected/" + name] = body
    return written


def input_name(args):
    words = args.split()
    return words[words.index("-i") + 1] if "-i" in words else "dravo.in"


# ---- regression ----

def frac(number):
    return Fraction(str(number))


def solve(matrix, right):
    """Gauss-Jordan; returns solution and inverse."""
    n = len(matrix)
    rows = [list(matrix[i]) + [right[i]] + [Fraction(int(i == j)) for j in range(n)]
            for i in range(n)]
    for i in range(n):
        pivot = next(r for r in range(i, n) if rows[r][i])
        rows[i], rows[pivot] = rows[pivot], rows[i]
        rows[i] = [value / rows[i][i] for value in rows[i]]
        for r in range(n):
            if r != i:
                rows[r] = [a - rows[r][i] * b for a, b in zip(rows[r], rows[i])]
    return [row[n] for row in rows], [row[n + 1:] for row in rows]


def regress(points):
    """Points: list of (coefficients, y, dy). Returns values, standard errors, chi-square."""
    n = len(points[0][0])
    matrix = [[sum(c[i] * c[j] / dy**2 for c, _, dy in points) for j in range(n)] for i in range(n)]
    right = [sum(c[i] * y / dy**2 for c, y, dy in points) for i in range(n)]
    values, inverse = solve(matrix, right)
    chi = sum(((y - sum(a * b for a, b in zip(c, values))) / dy) ** 2 for c, y, dy in points)
    return values, [math.sqrt(inverse[i][i]) for i in range(n)], chi


def chi_square(points, function):
    return sum(((y - function(*x)) / dy) ** 2 for *x, y, dy in points)


def data_lines(points, tail=" -"):
    return "".join(f"DATA {x} {y} {dy}{tail}\n" for x, y, dy in points)


def fixed_run(model, title, rows, points, chi):
    """The report of a run in which nothing is fitted, and what it says."""
    reduced = chi / points
    report = pt.report(*model, ["INIT"], (points, points), [("INIT", reduced)],
                       [(title, rows, reduced, points)], reduced)
    return report, f"WARNING ({title}): All parameters are fixed\n"


# ---- curves and ranges ----

@case
def exp():
    def function(x, _=0):
        return 2 * math.exp(-0.5 * x)

    points = [(0.1, 1.9, 0.05), (0.6, 1.5, 0.05), (1.1, 1.1, 0.05), (2.1, 0.75, 0.05),
              (1.6, 0.85, 0.05)]
    chi = chi_square(points, function)
    report, said = fixed_run(EXP2, "one", [("a", 2, None), ("b", -0.5, None)], 5, chi)
    before, after = '@ DESCRIPTION "a, b"\n', "@\tXAXIS  TICK MAJOR 1 \n"
    plot = (pt.head(before + pt.header("EXP") + after, "one", EXP2[1])
            + pt.pair(0, 1, "decay", points, pt.sweep(function, 0.1, 2.1))
            + pt.box([("a", 2, None), ("b", -0.5, None)], chi / 5))
    text = (before + "FUNCTION Exp2\n" + after + "PLOT decay\nSET one\nFIXED a 2\n"
            "FIXED b -0.5\n" + data_lines(points))
    return content("A family without axis labels; PLOT without a range: 101 points from the "
                   "smallest to the largest x of the data, 0.1 to 2.1, whatever their order. Grace "
                   "lines of the input stay as they are, in their order around the header.",
                   text, {"t.out": report, "one.xmgr": plot}, stderr=said)


@case
def ranges():
    points = [(0, 1.1, 0.1), (1, 2.9, 0.1), (2, 5.2, 0.2), (4, 9.1, 0.2)]
    values, errors, chi = regress([((1, frac(x)), frac(y), frac(dy)) for x, y, dy in points])
    a, b = (float(v) for v in values)

    def function(x, _=0):
        return a + b * x

    start_chi = chi_square(points, lambda x: 0.0) / 2
    rows = [("a", a, errors[0]), ("b", b, errors[1])]
    report = pt.report(*LINEAR, ["INIT", "ONE"], (4, 2), [("INIT", start_chi), ("ONE", chi / 2)],
                       [("one", rows, chi / 2, 2)], chi / 2)
    curves = [pt.sweep(function, -1, 5, 4), pt.sweep(function, -0.5, 4.5), [(3, a + 3 * b)], [],
              pt.sweep(function, 0, 4), [(2, a + 2 * b)] * 3]
    names = ["four", "zero", "single", "negative", "bare", "place"]
    plot = pt.head(pt.header("EXP"), "one", LINEAR[1])
    for i, (name, points_of_curve) in enumerate(zip(names, curves)):
        plot += pt.pair(2 * i, i + 1, name, points, points_of_curve)
    plot += pt.box(rows, chi / 2)
    text = ("FUNCTION Linear\nMETHOD ONE\nSET one\nPAR a 0 9\nPAR b 0 9\n" + data_lines(points)
            + "PLOT four 0 0 -1 5 4\nPLOT zero * 0 -0.5 4.5 0\nPLOT single 9 9 3 6 1\n"
            "PLOT negative 0 0 0 1 -2\nPLOT bare 7 8\nPLOT place 0 0 2 2 3\n")
    return content("PLOT with a range: as many points as it says, 101 for 0; a single one stands "
                   "at "
                   "the low end, fewer are none; a range of no width repeats its point. The x "
                   "value "
                   "of the line gives way to the range, with or without one.",
                   text, {"t.out": report, "one.xmgr": plot})


@case
def not_finite():
    def function(x, _=0):
        exponent = -0.5 * x
        if exponent < -708.3964185322641:
            return -math.inf
        return math.inf if exponent > 709.782712893384 else 2e-300 * math.exp(exponent)

    points = [(0, 2.5, 0.5), (2, 1, 0.5)]
    chi = chi_square(points, function)
    rows = [("a", 2e-300, None), ("b", -0.5, None)]
    report, said = fixed_run(EXP2, "one", rows, 2, chi)
    shown = pt.sweep(function, -2000, 2000, 9)
    assert [x for x, _ in shown] == [-1000, -500, 0, 500, 1000]
    plot = (pt.head(pt.header("EXP"), "one", EXP2[1]) + pt.pair(0, 1, "wide", points, shown)
            + pt.box(rows, chi / 2))
    text = ("FUNCTION Exp2\nSET one\nFIXED a 2e-300\nFIXED b -0.5\n" + data_lines(points)
            + "PLOT wide 0 0 -2000 2000 9\n")
    return content("Curve points that are not finite, at either end, are left out silently.",
                   text, {"t.out": report, "one.xmgr": plot}, stderr=said)


def richards(dw, kex, papb, r20):
    def function(x0, _x1, x2):
        delta = dw * x2
        zeta = 2 * delta * kex * math.sqrt(1 - 4 * papb)
        psi = kex**2 - delta**2
        return carver_richards(x0, kex, delta, psi, math.hypot(psi, zeta), r20)
    return function


def carver_richards(x0, kex, delta, psi, norm, r20):
    ratio = (delta**2 + kex**2) / norm
    eta_p = math.sqrt((psi + norm) / 2) / x0
    eta_m = math.sqrt((norm - psi) / 2) / x0
    y = (ratio + 1) / 2 * math.cosh(eta_p) - (ratio - 1) / 2 * math.cos(eta_m)
    return r20 + 0.5 * (kex - x0 * math.acosh(y))


@case
def cpmg():
    fields = {"11": (1, 8), "12": (1.6, 10)}
    measured = [(100, "11", 24.5, 0.5), (1000, "12", 17.5, 0.4), (400, "11", 19.5, 0.5),
                (200, "12", 28.5, 0.6), (1000, "11", 11, 0.3)]
    functions = {label: richards(1200, 500, 0.04, r20) for label, (_, r20) in fields.items()}

    def value(label, x0):
        return functions[label](x0, 298, fields[label][0])

    chi = sum(((y - value(label, x0)) / dy) ** 2 for x0, label, y, dy in measured)
    rows = [("dw", 1200, None), ("kex", 500, None), ("papb", 0.04, None), ("R20_1_1", 8, None),
            ("R20_1_2", 10, None)]
    report, said = fixed_run(RICHARDS, "L7", rows, 5, chi)
    shown = {label: [(x0, y, dy) for x0, i, y, dy in measured if i == label] for label in fields}
    plot = (pt.head(pt.header("CT-CPMG"), "L7", RICHARDS[1])
            + pt.pair(0, 2, "500MHz", shown["11"], pt.sweep(lambda x, _: value("11", x), 100, 1000))
            + pt.pair(2, 5, "800MHz", shown["12"],
                      pt.sweep(lambda x, _: value("12", x), 50, 2000, 40))
            + pt.box(rows, chi / 5))
    text = ("FUNCTION CPMG_Richards\nPLOT 600MHz 0 298 1.2 13\nPLOT 500MHz * 298 1 11\n"
            "PLOT reversed 0 298 1 21 50 2000 40\nPLOT bare\nPLOT 800MHz 77 * 1.6 12 50 2000 40\n"
            "SET L7\nFIXED dw 1200\nFIXED kex 500\nFIXED papb 0.04\nFIXED R20_1_1 8\n"
            "FIXED R20_1_2 10\n"
            + "".join(f"DATA {x0} 298 {fields[i][0]} {i} {y} {dy}\n" for x0, i, y, dy in measured))
    return content("Carver-Richards curves of two fields, each with the points of its own labels "
                   "in "
                   "the order of the data, with and without a range. Lines whose labels no point "
                   "has, among them a bare PLOT (the single label 0), leave out a colour, but no "
                   "set number.",
                   text, {"t.out": report, "L7.xmgr": plot}, stderr=said)


def temp2(dw, dhab, dhba, dsab, dsba, r20):
    def function(x0, x1, x2=1):
        gas, attempts = 0.001985878, 2.0836644e10
        kab = attempts * x1 * math.exp((-dhab / x1 + dsab) / gas)
        kba = attempts * x1 * math.exp((-dhba / x1 + dsba) / gas)
        kex, delta = kab + kba, dw * x2
        psi = kex**2 - delta**2
        return carver_richards(x0, kex, delta, psi, math.hypot(psi, 2 * delta * (kab - kba)), r20)
    return function


@case
def factor():
    function = temp2(900, 15, 10, -0.002, -0.0125, 9)
    points = [(100, 298, 26, 1), (500, 298, 15.5, 0.5)]
    chi = chi_square(points, function)
    rows = [("dw", 900, None), ("dHab", 15, None), ("dHba", 10, None), ("dSab", -0.002, None),
            ("dSba", -0.0125, None), ("R20", 9, None)]
    report, said = fixed_run(TEMP2, "one", rows, 2, chi)
    shown = [(x0, y, dy) for x0, _, y, dy in points]
    curves = [("warmer", pt.sweep(function, 100, 1000, 10, 288, 2.5)),
              ("one", pt.sweep(function, 100, 1000, 10, 298, 0)),
              ("none", pt.sweep(function, 100, 1000, 10, 298, 0)),
              ("colder", pt.sweep(function, 1000, 100, 7, 300, -1.5)),
              ("isothermal", pt.sweep(function, 100, 500, 101, 298, 0)),
              ("bounds", pt.sweep(function, 100, 500, 101, 293, 0.1))]
    plot = pt.head(pt.header("CT-CPMG"), "one", TEMP2[1])
    for i, (name, curve) in enumerate(curves):
        plot += pt.pair(2 * i, i + 1, name, shown, curve)
    plot += pt.box(rows, chi / 2)
    text = ("FUNCTION CPMG_TEMP2\nSET one\n"
            + "".join(f"FIXED {name} {value}\n" for name, value, _ in rows)
            + "".join(f"DATA {x0} {x1} 1 11 {y} {dy}\n" for x0, x1, y, dy in points)
            + "PLOT2 warmer * 288 1 11 2.5 100 1000 10\nPLOT2 one * 298 1 11 1 100 1000 10\n"
            "PLOT2 none * 298 1 11 0 100 1000 10\nPLOT2 colder * 300 1 11 -1.5 1000 100 7\n"
            "PLOT isothermal * 298 1 11\n"
            "PLOT2 bounds * 293 1 11 0.1 1.7976931348623157e308 -1.7976931348623157e308 0\n")
    return content("PLOT2: after each curve point its factor is added to x1, here the temperature, "
                   "but for the factor 1, which means none. Its range may fall. The largest double "
                   "and its negative stand for the range of the data.",
                   text, {"t.out": report, "one.xmgr": plot}, stderr=said)


# ---- error column ----

@case
def noerr():
    points = [(0, 1.5, 1), (2, 2, 1), (4, 4, 1)]
    a = 7.5 / 3 - 0.5 * 2
    values, errors, chi = regress([((1,), frac(y) - frac(x) / 2, Fraction(1))
                                   for x, y, _ in points])
    assert float(values[0]) == a
    start = chi_square(points, lambda x: 0.5 * x) / 2
    report = pt.report(*LINEAR, ["INIT", "ONE"], (3, 2), [("INIT", start), ("ONE", chi / 2)],
                       [("one", [("a", a, errors[0]), ("b", 0.5, None)], chi / 2, 2)], chi / 2)
    plot = (pt.head(pt.header("EXP"), "one", LINEAR[1])
            + pt.pair(0, 1, "c", [(x, y, None) for x, y, _ in points],
                      pt.sweep(lambda x, _: a + 0.5 * x, 0, 4, 3))
            + pt.box([("a", a, None), ("b", 0.5, None)], chi / 2))
    text = ("FUNCTION Linear\nMETHOD ONE\nPLOT c 0 0 0 4 3\nSET one\nPAR a 0 9\nFIXED b 0.5\n"
            + "".join(f"DATA {x} {y} -\n" for x, y, _ in points))
    return content("-noerr: 1.0 for the error of every point, error bars hidden, no errors in the "
                   "box; the report has them.",
                   text, {"t.out": report, "one.xmgr": plot}, args="-noerr " + SHORT_RUN)


@case
def error_missing():
    plot = (pt.head(pt.header("EXP"), "one", CONSTANT[1])
            + pt.pair(0, 1, "c", [(0, 1, None), (1, 2, None), (2, 6, None)],
                      [(0, 2), (1, 2), (2, 2)])
            + pt.box([("c", 2, None)], 10))
    report = pt.report(*CONSTANT, ["INIT", "ONE"], (3, 2), [("INIT", 22), ("ONE", 10)],
                       [("one", [("c", 2, 1 / math.sqrt(6))], 10, 2)], 10)
    text = ("FUNCTION Constant\nMETHOD ONE\nPLOT c 0 0 0 2 3\nSET one\nPAR c 0\nDATA 0 1 0.5 -\n"
            "DATA 1 2 0.5\nDATA 2 6 0.5 -\n")
    return content("A data line without error hides the error bars of all points, also of the "
                   "first, "
                   "whose error counts in the fit (see data_error_switched_off).",
                   text, {"t.out": report, "one.xmgr": plot},
                   stderr="WARNING: Assuming that no experimental error is specficed.\n")


# ---- instructions ----

def constant_run(title="one", value=1):
    """Input, report and warning of a fixed constant at two points, chi-square 16 + 4."""
    text = f"SET {title}\nFIXED c {value}\nDATA 0 3 0.5 -\nDATA 1 0 0.5 -\n"
    return text, *fixed_run(CONSTANT, title, [("c", value, None)], 2, 20)


CONSTANT_POINTS = [(0, 3, 0.5), (1, 0, 0.5)]
CONSTANT_CURVE = [(0, 1), (1, 1)]


def constant_plot(title="one", names=("c",)):
    plot = pt.head(pt.header("EXP"), title, CONSTANT[1])
    for i, name in enumerate(names):
        plot += pt.pair(2 * i, i % 15 + 1, name, CONSTANT_POINTS, CONSTANT_CURVE)
    return plot + pt.box([("c", 1, None)], 10)


@case
def sixteen():
    names = [f"curve{i}" for i in range(1, 32)]
    text, report, said = constant_run()
    plots = "".join(f"PLOT {name} 0 0 0 1 2\n" for name in names)
    return content("Thirty-one instructions: colours 1 to 15, then from 1 again, twice; set "
                   "numbers "
                   "go on. -dx: names and plots by one word.",
                   "FUNCTION Constant\n" + plots + text,
                   {"dravo.out": report, "one.xmgr": constant_plot(names=names)}, args="-dx",
                   stderr=said)


@case
def no_instruction():
    rows = [("c", 1, None)]
    report = pt.report(*CONSTANT, ["INIT"], (4, 4), [("INIT", 10)],
                       [("one", rows, 10, 2), ("two", rows, 10, 2)], 10)
    text = "FUNCTION Constant\n@ WORLD 0, 0, 1, 4\n" + constant_run()[0] + constant_run("two")[0]
    return content("Without a plot instruction: a warning for each set, and files that hold the "
                   "parameter box alone.",
                   text, {"t.out": report, "one.xmgr": pt.box(rows, 10),
                          "two.xmgr": pt.box(rows, 10)},
                   stdout="#WARNING: No plot instructions given\n" * 2,
                   stderr="".join(constant_run(title)[2] for title in ("one", "two")))


@case
def no_match():
    rows = [("R20", 11, None)]
    report, said = fixed_run(CPMG_CONST, "one", rows, 2, 10)
    plot = pt.head(pt.header("CT-CPMG"), "one", CPMG_CONST[1]) + pt.box(rows, 5)
    text = ("FUNCTION CPMG_const\nPLOT c 0 0 1 12\nSET one\nFIXED R20 11\nDATA 100 0 1 11 10 1\n"
            "DATA 200 0 1 11 14 1\n")
    return content("Instructions that no point matches: the top of the file and the box.",
                   text, {"t.out": report, "one.xmgr": plot}, stderr=said)


@case
def short_line():
    text, report, said = constant_run()
    curve = pt.sweep(lambda x, _: 1, 0, 1)
    plot = (pt.head(pt.header("EXP"), "one", CONSTANT[1])
            + pt.pair(0, 1, "bare", CONSTANT_POINTS, curve)
            + pt.pair(2, 2, "halfway", CONSTANT_POINTS, curve) + pt.box([("c", 1, None)], 10))
    return content("PLOT lines too short for x values and labels.",
                   "FUNCTION Constant\nPLOT bare\nPLOT halfway 5\n" + text,
                   {"t.out": report, "one.xmgr": plot}, stderr=said)


@case
def two_functions():
    rows = [("R20", 11, None)]
    report, said = fixed_run(CPMG_CONST, "one", rows, 2, 10)
    commands = pt.header("EXP") + "@ YAXIS TICK MAJOR 2\n" + pt.header("CT-CPMG")
    plot = (pt.head(commands, "one", CPMG_CONST[1])
            + pt.pair(0, 1, "c", [(100, 10, 1), (200, 14, 1)], [(100, 11), (200, 11)])
            + pt.box(rows, 5))
    text = ("FUNCTION Constant\n@ YAXIS TICK MAJOR 2\nFUNCTION CPMG_const\nPLOT c 0 0 1 11 100 "
            "200 2\n"
            "SET one\nFIXED R20 11\nDATA 100 0 1 11 10 1\nDATA 200 0 1 11 14 1\n")
    return content("A second FUNCTION line appends its header; none is taken back.",
                   text, {"t.out": report, "one.xmgr": plot}, stderr=said)


# ---- parameter box ----

@case
def box():
    sets = {"A": [(0, 2.1, 0.2), (1, 3.9, 0.2), (2, 6.2, 0.2), (3, 7.7, 0.2)],
            "B": [(1, 4.2, 0.1), (2, 5.9, 0.1), (3, 8.1, 0.1)]}
    rows = [((1, 0, frac(x)) if title == "A" else (0, 1, frac(x)), frac(y), frac(dy))
            for title, points in sets.items() for x, y, dy in points]
    values, errors, chi = regress(rows)
    slope = float(values[2])
    start = chi_square([p for points in sets.values() for p in points], lambda x: 0.0)
    files, blocks = {}, []
    for i, (title, points) in enumerate(sets.items()):
        a = float(values[i])
        dof = len(points) - 2
        reduced = chi_square(points, lambda x, a=a: a + slope * x) / dof
        blocks.append((title, [("a", a, errors[i]), ("b", slope, errors[2])], reduced, dof))
        xs = [x for x, _, _ in points]
        files[title + ".xmgr"] = (
            pt.head(pt.header("EXP"), title, LINEAR[1])
            + pt.pair(0, 1, "c", points,
                      pt.sweep(lambda x, _, a=a: a + slope * x, min(xs), max(xs)))
            + pt.box([("a", a, errors[i]), ("slope_of_both_sets", slope, errors[2])], reduced))
    files["t.out"] = pt.report(*LINEAR, ["INIT", "ONE"], (7, 4),
                               [("INIT", start / 4), ("ONE", chi / 4)], blocks, chi / 4, digits=3)
    text = "FUNCTION Linear\nMETHOD ONE\nPLOT c\nGPAR slope_of_both_sets 0 5\n"
    for title, points in sets.items():
        text += (f"SET {title}\nPAR a 0 9\nPAR b slope_of_both_sets\n" + data_lines(points))
    return content("The box names a shared parameter as it was declared, cuts no name, and has "
                   "five "
                   "digits, whatever -prec says of the report.",
                   text, files, args="-prec 3 " + SHORT_RUN)


@case
def box_wide():
    rows = [("a", -1.23456e-05, None), ("b", 0.000123456, None)]
    end = -1.23456e-05 + 0.000123456
    points = [(0, -1.23456e-05, 1e-05), (1, end, 1e-05)]
    chi = 0
    report, said = fixed_run(LINEAR, "one", rows, 2, chi)
    plot = (pt.head(pt.header("EXP"), "one", LINEAR[1])
            + pt.pair(0, 1, "c", points, [(0, -1.23456e-05), (1, end)]) + pt.box(rows, chi / 2))
    text = ("FUNCTION Linear\nPLOT c 0 0 0 1 2\nSET one\n"
            + "".join(f"FIXED {name} {value}\n" for name, value, _ in rows) + data_lines(points))
    return content("A value wider than its column.",
                   text, {"t.out": report, "one.xmgr": plot}, stderr=said)


# ---- error analyses ----

def pass_block(j, title, values, chi, dof):
    return (f"#{j}: {title}\n" + "".join(f"#{j}:\t{n}\t{pt.num(v)}\n" for n, v in values)
            + f"#{j}:\tX2/DoF\t{pt.num(chi / dof)}\t(DoF = {dof})\n")


def pass_total(j, chi, dof):
    return f"#{j}: GLOBAL X2/DoF\t{pt.num(chi / dof)}\t(DoF = {dof})\n\n"


def summary(title, sets, total):
    text = f"# {title} error analysis results\n"
    for name, rows, chi, chi_error, dof in sets:
        text += f"SET\t{name}\n"
        for parm, value, error in rows:
            text += f"\t{parm}\t{pt.num(value):>7}" + ("\n" if error is None
                                                       else f" ({pt.num(error)})\n")
        text += f"\tX2/DoF\t{pt.num(chi)} ({pt.num(chi_error)}) (DoF = {dof})\n\n"
    return text + f"Global X2/DoF = {pt.num(total[0])}  ({pt.num(total[1])})\n"


@case
def jack():
    points = [(0, 1.1, 0.2), (1, 1.8, 0.2), (2, 3.3, 0.2), (3, 3.9, 0.2), (5, 6.2, 0.2)]
    table = [((1, frac(x)), frac(y), frac(dy)) for x, y, dy in points]
    full, errors, chi = regress(table)
    dof = 3
    order, passes = list(range(5)), []
    for j in range(5):  # the lists lose their first entry and get back the one at position j
        back = order[j]
        order = order[1:]
        values, _, pass_chi = regress([table[i] for i in order])
        passes.append((values, pass_chi))
        order.append(back)
    means = [sum(p[0][k] for p in passes) / 5 for k in range(2)]
    spread = [math.sqrt(sum((p[0][k] - full[k]) ** 2 for p in passes) * 4 / 5) for k in range(2)]
    chi_mean = sum(p[1] for p in passes) / 5
    chi_spread = math.sqrt(sum((p[1] - chi) ** 2 for p in passes) * 4 / 5)
    names = ("a", "b")
    start = chi_square(points, lambda x: 0.0)
    log = [("INIT", start / dof), ("ONE", chi / dof)]
    files = {"t.out": pt.report(*LINEAR, ["INIT", "ONE"], (5, dof), log,
                                [("one", list(zip(names, full, errors)), chi / dof, dof)],
                                chi / dof)}
    files["t.out-jack"] = "Jackknife simulations (5)\n" + "".join(
        pass_block(j, "one", zip(names, v), c, dof - 1) + pass_total(j, c, dof - 1)
        for j, (v, c) in enumerate(passes, 1))
    files["t.out-jack.sum"] = summary(
        "Jackknife",
        [("one", list(zip(names, means, spread)), chi_mean / dof, chi_spread / dof, dof)],
        (chi_mean / (dof - 1), chi_spread / (dof - 1)))
    files["t.out-jack-final.out"] = pt.report(
        *LINEAR, ["INIT", "ONE"], (5, dof), log,
        [("one", list(zip(names, full, spread)), chi / dof, dof)], chi / dof, "JACK")
    a, b = (float(v) for v in full)
    files["one.xmgr"] = (
        pt.head(pt.header("EXP"), "one", LINEAR[1])
        + pt.pair(0, 1, "c", points, pt.sweep(lambda x, _: a + b * x, 0, 5, 6))
        + pt.box(list(zip(names, full, errors)), chi / dof)
        + pt.analysis(1, "Jackknife", [*zip(means, spread), (chi_mean / dof, chi_spread / dof)]))
    text = ("FUNCTION Linear\nMETHOD ONE\nJACK\nPLOT c 0 0 0 5 6\nSET one\nPAR a 0 9\nPAR b 0 9\n"
            + data_lines(points))
    return content("A jackknife puts its column beside the box: means and errors of the passes "
                   "(see "
                   "jack_local), values right-aligned.", text, files)


EXACT = {"one": ((1, 0.5), [(x, 1 + 0.5 * x) for x in range(5)]),
         "two": ((2, 0.25), [(x, 2 + 0.25 * x) for x in range(4)])}
EXACT_ERROR = 1e-30  # lost in the rounding of the values


def exact_errors(title):
    """Set one: both parameters of 5 points. Set two: the offset alone, of 4."""
    if title == "two":
        return [EXACT_ERROR / 2, None]
    return [EXACT_ERROR * math.sqrt(30 / 50), EXACT_ERROR * math.sqrt(5 / 50)]


def exact_input(analyses):
    text = "FUNCTION Linear\nMETHOD ONE\n" + analyses + "PLOT c 0 0 0 4 3\n"
    for title, ((a, b), points) in EXACT.items():
        slope = "PAR b 0 9 2 0.5\n" if title == "one" else "FIXED b 0.25\n"
        text += f"SET {title}\nPAR a 0 5 2 {a}\n" + slope
        text += "".join(f"DATA {x} {y} 1e-30 -\n" for x, y in points)
    return text


def exact_files(jack_methods=None, monte_methods=None):
    def blocks(errors_of):
        return [(t, list(zip("ab", v, errors_of(t))), 0, 3) for t, (v, _) in EXACT.items()]

    def no_errors(title):
        return [0, 0] if title == "one" else [0, None]

    def final(name, methods):
        log = [("INIT", 0), ("ONE", 0)]
        return pt.report(*LINEAR, methods, (9, 6), log, blocks(no_errors), 0, name)

    files = {"t.out": pt.report(*LINEAR, ["INIT", "ONE"], (9, 6), [("INIT", 0), ("ONE", 0)],
                                blocks(exact_errors), 0)}
    sums = [(t, list(zip("ab", v, no_errors(t))), 0, 0, 3) for t, (v, _) in EXACT.items()]
    if jack_methods:
        files["t.out-jack"] = "Jackknife simulations (9)\n" + "".join(
            pass_block(j, t, zip("ab", v), 0, 2) + pass_total(j, 0, 5)
            for t, (v, points) in EXACT.items() for j in range(1, len(points) + 1))
        files["t.out-jack.sum"] = summary("Jackknife", sums, (0, 0))
        files["t.out-jack-final.out"] = final("JACK", jack_methods)
    if monte_methods:
        files["t.out-monte"] = "Monte Carlo simulations (3)\n" + "".join(
            "".join(pass_block(j, t, zip("ab", v), 0, 3) for t, (v, _) in EXACT.items())
            + pass_total(j, 0, 6) for j in range(1, 4))
        files["t.out-monte.sum"] = summary("Monte Carlo", sums, (0, 0))
        files["t.out-monte-final.out"] = final("MONTE 3", monte_methods)
    titles = (["Jackknife"] if jack_methods else []) + (["Monte Carlo"] if monte_methods else [])
    for title, ((a, b), points) in EXACT.items():
        plot = (pt.head(pt.header("EXP"), title, LINEAR[1])
                + pt.pair(0, 1, "c", [(x, y, EXACT_ERROR) for x, y in points],
                          [(x, a + b * x) for x in (0, 2, 4)])
                + pt.box(list(zip("ab", (a, b), exact_errors(title))), 0))
        for index, name in enumerate(titles, 1):
            plot += pt.analysis(index, name, [(a, 0), (b, 0), (0, 0)])
        files[title + ".xmgr"] = plot
    return files


EXACT_WHY = ("The noise is lost in the rounding of the values, so that the simulations, whatever "
             "the "
             "clock draws, are the exact curve. ")


@case
def monte():
    return content(EXACT_WHY + "A Monte Carlo analysis alone has the first column, for fixed "
                   "parameters too.",
                   exact_input("MONTE 3\n"), exact_files(None, ["INIT", "ONE"]))


@case
def jack_monte():
    return content(EXACT_WHY + "JACK1 and MONTE1: the jackknife has the first column, the Monte "
                               "Carlo "
                   "analysis the second.",
                   exact_input("MONTE1 3\nJACK1\n"),
                   exact_files(["INIT", "ONEEX"], ["INIT", "ONEEX"]))


@case
def monte_noinstruction():
    files = exact_files(None, ["INIT", "ONE"])
    for title, ((a, b), _) in EXACT.items():
        files[title + ".xmgr"] = (pt.box(list(zip("ab", (a, b), exact_errors(title))), 0)
                                  + pt.analysis(1, "Monte Carlo", [(a, 0), (b, 0), (0, 0)]))
    text = exact_input("MONTE 3\n").replace("PLOT c 0 0 0 4 3\n", "")
    return content(EXACT_WHY + "Without plot instructions the column stands beside the box all the "
                   "same, and nothing more is said.", text, files,
                   stdout="#WARNING: No plot instructions given\n" * 2)


# ---- stage directories ----

STAGE_TABLE = """\
-------------------------------------------------------------------------
  METHOD (set ,       #/  total)          X2/DoF           | best X2/DoF
-------------------------------------------------------------------------
"""
STAGE_LINES = ["\r0.INIT   (   1,       1/      1)                   61.3333 |    61.3333\n",
               "\r1.ONE    (   1,       1/      1)     61.3333 ->    13.3333 |    13.3333\n"]
STAGE_INPUT = ("FUNCTION Constant\nMETHOD ONE\n{plots}SET {title}\nPAR c 0 10\nDATA 0 1 0.5 -\n"
               "DATA 1 2 0.5 -\nDATA 2 4 0.5 -\nDATA 3 5 0.5 -\n")


def stage_report(c, chi_values):
    labels = ("INIT", "ONE")[:len(chi_values)]
    return pt.report(*CONSTANT, labels, (4, 3), list(zip(labels, chi_values)),
                     [("one", [("c", c, 0.25)], chi_values[-1], 3)], chi_values[-1])


def stage_plot(c, reduced_chi):
    points = [(0, 1, 0.5), (1, 2, 0.5), (2, 4, 0.5), (3, 5, 0.5)]
    return (pt.head(pt.header("EXP"), "one", CONSTANT[1])
            + pt.pair(0, 1, "c", points, [(0, c), (3, c)])
            + pt.box([("c", c, 0.25)], reduced_chi))


@case
def stages():
    init, fit = 184 / 3, 40 / 3
    files = {"01-INIT/t.out": stage_report(0, [init]), "02-ONE/t.out": stage_report(3, [init, fit]),
             "t.out": stage_report(3, [init, fit]), "01-INIT/one.xmgr": stage_plot(0, init),
             "02-ONE/one.xmgr": stage_plot(3, fit), "one.xmgr": stage_plot(3, fit)}
    return content("-vv with plots: each stage has its own, of its own values (see stages_fit).",
                   STAGE_INPUT.format(title="one", plots="PLOT c 0 0 0 3 2\n"), files,
                   args="-vv " + SHORT_RUN, stderr=STAGE_TABLE + "".join(STAGE_LINES))


@case
def stages_no_instruction():
    init, fit = 184 / 3, 40 / 3
    files = {"01-INIT/t.out": stage_report(0, [init]), "02-ONE/t.out": stage_report(3, [init, fit]),
             "t.out": stage_report(3, [init, fit]),
             "01-INIT/one.xmgr": pt.box([("c", 0, 0.25)], init)}
    files["02-ONE/one.xmgr"] = files["one.xmgr"] = pt.box([("c", 3, 0.25)], fit)
    return content("Every stage warns of missing plot instructions.",
                   STAGE_INPUT.format(title="one", plots=""), files, args="-vv " + SHORT_RUN,
                   stdout="#WARNING: No plot instructions given\n" * 3,
                   stderr=STAGE_TABLE + "".join(STAGE_LINES))


@case
def stages_disk_full():
    return content("A plot of a stage that is cut short ends the run. The directory was there "
                   "before, "
                   "and its report goes nowhere.",
                   STAGE_INPUT.format(title="one", plots="PLOT c\n"), {},
                   args="-vv -xmgr -i t.in -o /dev/null", status=1,
                   stderr=STAGE_TABLE + STAGE_LINES[0] + "Error: Writing file 'one.xmgr'\n",
                   entries=["setup: mkdir 01-INIT && ln -s /dev/full 01-INIT/one.xmgr"])


@case
def stages_unwritable():
    return content("A plot of a stage that cannot be opened ends the run.",
                   STAGE_INPUT.format(title="one", plots="PLOT c\n"), {},
                   args="-vv -xmgr -i t.in -o /dev/null", status=1,
                   stderr=STAGE_TABLE + STAGE_LINES[0] + "Error: Opening file 'one.xmgr'\n",
                   entries=["setup: mkdir -p 01-INIT/one.xmgr"])


@case
def stages_title_path():
    return content("A title that is a path ends the run with the plot of the first stage.",
                   STAGE_INPUT.format(title="../one", plots="PLOT c\n"),
                   {"01-INIT/t.out": stage_report(0, [184 / 3]).replace("\tone", "\t../one")},
                   args="-vv " + SHORT_RUN, status=1,
                   stderr=STAGE_TABLE + STAGE_LINES[0] + "Error: Opening file '../one.xmgr'\n")


# ---- files that cannot be written, and titles ----

def failing(why, title, message, entries=(), before=()):
    rows = [("c", 1, None)]
    sets = [*before, title]
    report = pt.report(*CONSTANT, ["INIT"], (2 * len(sets), 2 * len(sets)), [("INIT", 10)],
                       [(name, rows, 10, 2) for name in sets], 10)
    text = "FUNCTION Constant\nPLOT c 0 0 0 1 2\n" + "".join(constant_run(name)[0] for name in sets)
    files = {"t.out": report, **{name + ".xmgr": constant_plot(name) for name in before}}
    return content(why, text, files, status=1, entries=entries,
                   stderr="".join(constant_run(name)[2] for name in sets) + message)


def failing_title(why, title, entries=(), before=()):
    return failing(why, title, f"Error: Opening file '{title}.xmgr'\n", entries, before)


@case
def title_slash():
    return failing_title("A title with a slash names no plot file, even where the directory is "
                         "there.",
                         "a/b", ["setup: mkdir a"])


@case
def title_parent():
    return failing_title("A title that leads out of the directory; the plots of earlier sets stay.",
                         "../up", before=["one"])


@case
def title_absolute():
    return failing_title("A title that is an absolute path.", "/dravo_plot")


@case
def title_long():
    return failing_title("A title longer than a file name may be.", 251 * "n")


@case
def title_dots():
    text, report, said = constant_run("..")
    return content("The title .. with the suffix is a name like any other.",
                   "FUNCTION Constant\nPLOT c 0 0 0 1 2\n" + text,
                   {"t.out": report, "...xmgr": constant_plot("..")}, stderr=said)


@case
def title_twice():
    one, two = constant_run()[0], "SET one\nFIXED c 3\nDATA 0 3 0.5 -\nDATA 1 0 0.5 -\n"
    report = pt.report(*CONSTANT, ["INIT"], (4, 4), [("INIT", 14)],
                       [("one", [("c", 1, None)], 10, 2), ("one", [("c", 3, None)], 18, 2)], 14)
    plot = (pt.head(pt.header("EXP"), "one", CONSTANT[1])
            + pt.pair(0, 1, "c", CONSTANT_POINTS, [(0, 3), (1, 3)]) + pt.box([("c", 3, None)], 18))
    return content("Two sets of one title share their file: the second plot replaces the first.",
                   "FUNCTION Constant\nPLOT c 0 0 0 1 2\n" + one + two,
                   {"t.out": report, "one.xmgr": plot}, stderr=constant_run()[2] * 2)


@case
def replaced():
    text, report, said = constant_run()
    return content("A plot file that was there is replaced, however long it was.",
                   "FUNCTION Constant\nPLOT c 0 0 0 1 2\n" + text,
                   {"t.out": report, "one.xmgr": constant_plot()}, stderr=said,
                   entries=["setup: seq 10000 > one.xmgr"])


@case
def unwritable():
    return failing_title("A plot file that cannot be opened ends the run; the report and the plots "
                         "of earlier sets stay.", "two", ["setup: mkdir two.xmgr"], ["one"])


@case
def disk_full():
    return failing("A plot that is cut short ends the run after the report is on disk.", "one",
                   "Error: Writing file 'one.xmgr'\n", ["setup: ln -s /dev/full one.xmgr"])


# ---- other families ----

@case
def r1rho():
    dw, kex, pb, r20 = 1500, 900, 0.03, 11

    def function(x0, _=0):
        omega1 = 2 * math.pi * x0
        shift = (1 - pb) * dw
        return r20 + pb * dw**2 * kex / (shift**2 + omega1**2 + kex**2)

    points = [(50, 29.5, 0.5), (200, 24, 0.5), (1000, 13, 0.5)]
    chi = chi_square(points, function)
    rows = [("dw", dw, None), ("kex", kex, None), ("pB", pb, None), ("R20", r20, None)]
    report, said = fixed_run(KAY_ON, "one", rows, 3, chi)
    plot = (pt.head(pt.header("R1rho"), "one", KAY_ON[1])
            + pt.pair(0, 1, "600MHz", points, pt.sweep(function, 25, 1000, 40))
            + pt.box(rows, chi / 3))
    text = ("FUNCTION R1RHO_KAY_ON\nPLOT 600MHz * 0 298 1 111 25 1000 40\nSET one\n"
            + "".join(f"FIXED {name} {value}\n" for name, value, _ in rows)
            + "".join(f"DATA {x} 0 298 1 111 {y} {dy}\n" for x, y, dy in points))
    return content("R1rho against the spin-lock field, on resonance.",
                   text, {"t.out": report, "one.xmgr": plot}, stderr=said)


@case
def r1rho_off():
    r20, r1 = 12, 2

    def function(x0, x1):
        sin2 = x1**2 / (x0**2 + x1**2)
        return r20 * sin2 + r1 * (1 - sin2)

    points = [(-400, 100, 3, 0.5), (0, 100, 11.5, 0.5), (100, 100, 7.5, 0.5)]
    chi = chi_square(points, function)
    rows = [("R20", r20, None), ("R1", r1, None)]
    report, said = fixed_run(R1RHO_CONST_OFF, "one", rows, 3, chi)
    shown = [(x0, y, dy) for x0, _, y, dy in points]
    plot = (pt.head(pt.header("R1rho_off"), "one", R1RHO_CONST_OFF[1])
            + pt.pair(0, 1, "100Hz", shown, pt.sweep(function, -400, 100, 101, 100))
            + pt.pair(2, 2, "stronger", shown, pt.sweep(function, -500, 500, 11, 50, 25))
            + pt.box(rows, chi / 3))
    text = ("FUNCTION R1RHO_CONST_OFF\nPLOT 100Hz * 100 298 1 111\n"
            "PLOT2 stronger * 50 298 1 111 25 -500 500 11\nSET one\nFIXED R20 12\nFIXED R1 2\n"
            + "".join(f"DATA {x0} {x1} 298 1 111 {y} {dy}\n" for x0, x1, y, dy in points))
    return content("R1rho against the offset; PLOT2 raises the spin-lock field by 25 Hz from "
                   "point to "
                   "point.", text, {"t.out": report, "one.xmgr": plot}, stderr=said)


@case
def cleanex():
    k, r1a, r1b = 10, 2, 0.5

    def function(x, _=0):
        return k / (r1a + k - r1b) * (math.exp(-r1b * x) - math.exp(-(r1a + k) * x))

    points = [(0.01, 0.1, 0.02), (0.05, 0.4, 0.02), (0.1, 0.6, 0.02)]
    chi = chi_square(points, function)
    rows = [("k", k, None), ("R1a", r1a, None), ("R1b", r1b, None)]
    report, said = fixed_run(CLEANEX, "one", rows, 3, chi)
    curve = pt.sweep(function, 0.01, 0.1)
    plot = (pt.head(pt.header("CLEANEX"), "one", CLEANEX[1])
            + pt.pair(0, 1, "bare", points, curve)
            + pt.pair(2, 2, "full", points, pt.sweep(function, 0, 0.2, 5)) + pt.box(rows, chi / 3))
    text = ("FUNCTION CLEANEX\nPLOT bare\nPLOT full 0 0 0 0 0.2 5\nSET one\n"
            + "".join(f"FIXED {name} {value}\n" for name, value, _ in rows)
            + "".join(f"DATA {x} 0 0 {y} {dy}\n" for x, y, dy in points))
    return content("Build-up by exchange with water. A bare PLOT matches the label 0; its x "
                   "values, "
                   "here two, are all 0.",
                   text, {"t.out": report, "one.xmgr": plot}, stderr=said)


def main():
    for name in sys.argv[1:] or CASES:
        directory = GOLDEN / name
        shutil.rmtree(directory, ignore_errors=True)
        for path, text in CASES[name]().items():
            (directory / path).parent.mkdir(parents=True, exist_ok=True)
            (directory / path).write_text(text)


if __name__ == "__main__":
    main()
