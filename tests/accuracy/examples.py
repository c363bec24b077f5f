#!/usr/bin/env python3
"""Fits the measured data of examples/ and prints them beside the results of independent fits.

    python3 tests/accuracy/examples.py --program build/release/dravo

The first table repeats fits that were made elsewhere, by least squares with the published formulas
typed in anew and from several starts (tests/unit/RealData*_test.cpp hold the same figures with their
tolerances). The second fits the single-quantum CPMG data with the closed form and with the two-site
matrix, which follows the signal through the train of constant time.

Random searches are left out: the start values or grids of the examples already lead to the minimum.
Two examples with shared parameters start near it, since from elsewhere they take minutes.
"""
# SPDX-License-Identifier: GPL-3.0-or-later
import argparse
import pathlib
import re
import subprocess
import tempfile

EXAMPLES = pathlib.Path(__file__).resolve().parents[2] / "examples"
NUMBER = r"[-+]?\d[\d.]*(?:[Ee][-+]?\d+)?"
BIGGEST_DIFFERENCE = 2e-3  # of parameters, where chi-square rises by 1e-6 of itself

# Example, model if not that of the file, {quantity: value of the independent fit}. X2 is the
# chi-square of a set or, without a set, of the fit.
REPEATED = [
    ("hansen08_15n_cpmg_local", None,
     {"70 X2": 53.83821, "70 dw": 1786.676, "70 kex": 1752.888, "70 papb": 0.01004037,
      "71 X2": 15.65953, "71 kex": 2481.01}),
    ("fyn_d9_15n_sq_cpmg", None,
     {"X2": 18.206445, "D9 dw": 1355.611, "D9 kex": 466.632, "D9 papb": 0.04437961}),
    ("abp1p_15n_cpmg_global", None,
     {"X2": 590.49515, "kex": 466.560, "papb": 0.0588226, "34N dw": 1072.592}),
    ("sod1_15n_cpmg_global", None,
     {"X2": 48.790759, "10G R20_1_1": 16.981, "11D R20_1_1": 17.309}),
    ("fyn_t14_r1rho_on", None,
     {"X2": 60.891676, "T14on dw": 1470.515, "T14on kex": 841.029, "T14on pB": 0.02592788}),
    ("fyn_t14_r1rho_on", "R1RHO_PALMER05_ON",
     {"X2": 63.315908, "T14on dw": 1500.900, "T14on kex": 875.060, "T14on pB": 0.02428253}),
    ("fyn_t14_r1rho_off", None,
     {"X2": 472.400508, "T14 dw": 1645.889, "T14 kex": 367.9817, "T14 pB": 0.05408765}),
    ("fyn_t14_r1rho_off", "R1RHO_PALMER05",
     {"X2": 503.804176, "T14 dw": 1648.666, "T14 kex": 373.535, "T14 pB": 0.0503742}),
    ("h2b_methyl_mq_cpmg", None,
     {"X2": 546.810262, "kex": 947.980, "pb": 0.166579, "I66CD1-HD1 dwN": 1315.66}),
]

# Example, constant time in s, {quantity of the matrix model: value of the independent exact fit}.
EXACT = [
    ("hansen08_15n_cpmg_local", 0.03,
     {"70 X2": 52.510, "70 kex": 1713.5, "70 pb": 0.010, "71 X2": 15.164, "71 kex": 2438.4,
      "71 pb": 0.013}),
    ("fyn_d9_15n_sq_cpmg", 0.04, {"X2": 17.393332, "D9 kex": 429.91, "D9 pb": 0.0499965}),
    ("abp1p_15n_cpmg_global", 0.03, {"X2": 524.807, "kex": 427.38, "pb": 0.06726}),
]

# Near the minimum: the value of the shared parameters, the shift differences of each set.
H2B = {"V45CG2-HG2": (240.93, 0), "I58CD1-HD1": (965.11, 453.3), "I66CD1-HD1": (1315.66, 450.9),
       "L77CD2-HD2": (994.15, 87.9), "L97CD2-HD2": (492.09, 304.9), "L98CD1-HD1": (259.69, 0),
       "L98CD2-HD2": (590.54, 154.7), "L99CD1-HD1": (374.10, 298.8)}


def input_text(name, model=None):
    text = (EXAMPLES / f"{name}.in").read_text()
    text = re.sub(r"^(@|PLOT|METHOD MCMIN|METHOD INIT).*\n", "", text, flags=re.MULTILINE)
    if model:
        text = re.sub(r"^FUNCTION .*", f"FUNCTION {model}", text, flags=re.MULTILINE)
    if name == "fyn_t14_r1rho_off":  # its grid takes seconds, and its start will do
        text = text.replace("METHOD GRID\n", "")
    if name.startswith("sod1"):
        text = text.replace("METHOD GRID\nMETHOD ONEEX", "METHOD ONE")
        text = text.replace("8000 5 1500\nGPAR papbg 0.002 0.2 5 0.02",
                            "8000 5 3832\nGPAR papbg 0.002 0.2 5 0.0277")
    if name.startswith("h2b"):
        text = text.replace("METHOD ONEEX", "METHOD ONE")
        text = text.replace("10000 1 1000\nGPAR pb 0.006 0.3 1 0.1",
                            "10000 1 948\nGPAR pb 0.006 0.3 1 0.1666")
        for title, (dwN, dwH) in H2B.items():
            head, tail = text.split(f"SET {title}\n")
            tail = re.sub("PAR dwN .*", f"PAR dwN {dwN}", tail, count=1)
            # 0 is a stationary point, where a derivative by differences does not exist
            tail = re.sub("PAR dwH .*", f"{'PAR' if dwH else 'FIXED'} dwH {dwH}", tail, count=1)
            text = f"{head}SET {title}\n{tail}"
    return text


def matrix_text(name, constant_time):
    """The same data for MQCPMG_Matrix2_p and single-quantum coherence of the first nucleus."""
    lines = []
    for line in input_text(name).splitlines():
        words = line.split()
        if not words or words[0] == "METHOD":
            continue
        if words[0] == "FUNCTION":
            lines += ["FUNCTION MQCPMG_Matrix2_p", "METHOD ONEEX"]
        elif words[0] == "DATA":
            x0, temperature, field, labels, *rest = words[1:]
            # rounded up, since T x0 must reach the even number of pulses
            pulses = 2 * round(float(x0) * constant_time / 2)
            lines.append(f"DATA {(pulses + 1e-6) / constant_time:.6f} {constant_time} {temperature} "
                         f"{field} 0 {labels}1 {' '.join(rest)}")
        elif words[0] == "SET":
            lines += [line, "FIXED dwH 0"]
        elif words[1] == "papb":
            lines.append(line.replace("papb", "pb") if len(words) == 3
                         else f"{words[0]} pb 0.005 0.4 1 0.05")
        elif words[0] == "PAR" and words[1] == "dw":
            lines.append(f"PAR dwN -12000 12000 1 {words[-1]}")
        elif words[0] == "PAR" and words[1].startswith("R20"):
            lines.append(f"PAR {words[1]}_1 0.1 100 1 {words[-1]}")
        else:
            lines.append(line)
    return "\n".join(lines) + "\n"


def run(program, text):
    """{quantity: value}: "set name" or, shared, "name"; X2 from the reduced values."""
    with tempfile.TemporaryDirectory() as folder:
        place = pathlib.Path(folder)
        (place / "in").write_text(text)
        subprocess.run([str(program), "-i", "in", "-o", "out", "-prec", "10"], cwd=place, check=True,
                       capture_output=True)
        report = (place / "out").read_text()
    found = {}
    scope = ""
    for line in report.splitlines():
        if line.startswith("SET\t"):
            scope = line.split("\t")[1] + " "
        reduced = re.match(rf"(Global)?\s*X2/DoF\s+({NUMBER}) \(DoF = (\d+)\)", line)
        value = re.match(rf"\t(\S+)\s+({NUMBER})", line)
        if reduced:
            found["X2" if reduced[1] else scope + "X2"] = float(reduced[2]) * int(reduced[3])
        elif value:
            found[scope + value[1]] = float(value[2])
            found.setdefault(value[1], float(value[2]))  # the shared ones are those of every set
    return found


def repeated_table(program):
    lines = ["| Data | Model | Quantity | Independent fit | dravo |", "|---|---|---|---|---|"]
    for name, model, expected in REPEATED:
        text = input_text(name, model)
        found = run(program, text)
        model = re.search(r"^FUNCTION (\S+)", text, re.MULTILINE)[1]
        for quantity, value in expected.items():
            # on resonance the sign of dw is without effect
            result = abs(found[quantity])
            tolerance = 2e-6 if quantity.endswith("X2") else BIGGEST_DIFFERENCE
            if abs(result / value - 1) > tolerance:
                raise SystemExit(f"{name}, {quantity}: {result}, not {value}")
            lines.append(f"| {name} | {model} | {quantity} | {value:.6g} | {result:.6g} |")
    return lines


def exact_table(program):
    lines = ["| Data | Quantity | Closed form | Exact train | Independent exact solution |",
             "|---|---|---|---|---|"]
    for name, constant_time, expected in EXACT:
        closed = run(program, input_text(name))
        exact = run(program, matrix_text(name, constant_time))
        for quantity, value in expected.items():
            if quantity.endswith("pb"):
                papb = closed[quantity.replace("pb", "papb")]
                of_closed = (1 - (1 - 4 * papb) ** 0.5) / 2
            else:
                of_closed = closed[quantity]
            lines.append(f"| {name} | {quantity} | {of_closed:.4g} | {exact[quantity]:.4g} | {value:.4g} |")
    return lines


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--program", required=True)
    program = pathlib.Path(parser.parse_args().program).resolve()
    print("\n".join(repeated_table(program)))
    print()
    print("\n".join(exact_table(program)))


if __name__ == "__main__":
    main()
