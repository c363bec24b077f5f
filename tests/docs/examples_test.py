#!/usr/bin/env python3
"""Every example gives the result that is kept for it, and that result is right.

Right means: for measured data the minimum found by least squares with other software (numpy, scipy;
the published formulas typed in anew, several starts), for made-up data the values behind them. Made-up
data are made again, and without noise the fit returns their values.
"""
# SPDX-License-Identifier: GPL-3.0-or-later
import argparse
import importlib
import math
import pathlib
import re
import subprocess
import sys
import tempfile

sys.dont_write_bytecode = True  # leaves nothing in examples/
EXAMPLES = pathlib.Path(__file__).resolve().parents[2] / "examples"
TOTAL = ""  # the name under which chi-square of all sets stands
MODELS = {"Exp2", "SIRE", "Sig_boltz", "CPMG_Richards", "CPMG_Richards_probes", "CPMG_RDC",
          "CPMG_Bind2", "CPMG_TEMP2", "CPMG_matrix3", "CPMG_bind3b", "CPMG_temp3folked",
          "MQCPMG_Richards_p", "MQCPMG_Matrix2_p", "R1RHO_PALMER02", "R1RHO_PALMER02_ON",
          "R1RHO_PALMER02_OFF", "CLEANEX"}  # one of each family at least

# These creep along a valley for half a minute and more: the test holds what the sets share at the
# result kept, and everything else must come out the same.
HELD = {"sod1_15n_cpmg_global", "h2b_methyl_mq_cpmg"}
NO_PICTURE = {"fyn_t14_r1rho_off"}  # that of fyn_t14_r1rho_offset shows the same points

# What other software found: chi-square of sets or of all, then values. How far values may be off is
# how far they move when chi-square rises by 1e-6 of itself.
T14 = {"dw": 1645.889, "kex": 367.9817, "pB": 0.05408765, "R20_1_1": 9.10806, "R20_1_2": 13.79321,
       "R1_1_1": 3.17905, "R1_1_2": 4.45284}
H2B = {"V45CG2-HG2": (55.911, 240.93, 0), "I58CD1-HD1": (73.917, 965.11, 453.3),
       "I66CD1-HD1": (135.846, 1315.66, 450.9), "L77CD2-HD2": (26.538, 994.15, 87.9),
       "L97CD2-HD2": (24.791, 492.09, 304.9), "L98CD1-HD1": (26.251, 259.69, 0),
       "L98CD2-HD2": (141.929, 590.54, 154.7), "L99CD1-HD1": (61.627, 374.10, 298.8)}
ABP1P = (593.361, 595.559, 540.296, 1072.592, 503.304)
MEASURED = {
    "hansen08_15n_cpmg_local": (
        {"70": 53.83821, "71": 15.65953},
        {("70", "dw"): 1786.676, ("70", "kex"): 1752.888, ("70", "papb"): 0.01004037,
         ("70", "R20_1_1"): 6.97255, ("70", "R20_1_2"): 9.40992, ("71", "dw"): 638.848,
         ("71", "kex"): 2481.01, ("71", "papb"): 0.0138729, ("71", "R20_1_1"): 5.00310,
         ("71", "R20_1_2"): 6.90214}, 5e-3),
    "sod1_15n_cpmg_global": (  # kexg, papbg and dw may stand anywhere in their valley
        {TOTAL: 48.790759},
        {("10G", "R20_1_1"): 16.981, ("10G", "R20_1_2"): 18.430, ("11D", "R20_1_1"): 17.309,
         ("11D", "R20_1_2"): 18.193}, 1e-3),
    "abp1p_15n_cpmg_global": (
        {TOTAL: 590.49515},
        {(name, parm): value for name, dw in zip(("15N", "31N", "33N", "34N", "37N"), ABP1P)
         for parm, value in (("dw", dw), ("kex", 466.560), ("papb", 0.0588226))}, 5e-4),
    "abp1p_15n_cpmg_probes": (
        {TOTAL: 590.49515},
        {("Abp1p", "kex"): 466.560, ("Abp1p", "papb"): 0.0588226,
         **{("Abp1p", f"dw_{probe}"): dw for probe, dw in enumerate(ABP1P, 1)}}, 5e-4),
    "fyn_d9_15n_sq_cpmg": (
        {TOTAL: 18.206445},
        {("D9", "dw"): 1355.611, ("D9", "kex"): 466.632, ("D9", "papb"): 0.04437961,
         ("D9", "R20_1_1"): 8.348057, ("D9", "R20_1_2"): 8.772850, ("D9", "R20_1_3"): 10.233888},
        1e-3),
    "fyn_t14_r1rho_on": (
        {TOTAL: 60.891676},
        {("T14on", "dw"): 1470.515, ("T14on", "kex"): 841.029, ("T14on", "pB"): 0.02592788,
         ("T14on", "R20_1_1"): 11.16704, ("T14on", "R20_1_2"): 15.12605}, 1e-3),
    "fyn_t14_r1rho_off": (
        {TOTAL: 472.400508}, {("T14", name): value for name, value in T14.items()}, 5e-4),
    "fyn_t14_r1rho_offset": (
        {TOTAL: 472.400508}, {("T14", name): value for name, value in T14.items()}, 5e-4),
    "h2b_methyl_mq_cpmg": (
        {TOTAL: 546.810262, **{name: line[0] for name, line in H2B.items()}},
        {(name, parm): value for name, line in H2B.items()
         for parm, value in (("dwN", line[1]), ("dwH", line[2]), ("kex", 947.980),
                             ("pb", 0.166579))}, 2e-3),
}
# Their sign is without effect, and the fit may end at either.
SIGN_IS_OPEN = {("h2b_methyl_mq_cpmg", "dwH"), ("fyn_t14_r1rho_on", "dw")}


class Report:
    """What a report says, as {set: {parameter: (value, error or None)}} and {set: (X2/DoF, DoF)}."""

    def __init__(self, text):
        self.model = re.search(r"^MODEL  (\S+)$", text, re.MULTILINE)[1]
        self.stages = re.findall(r"^METHOD .*$", text, re.MULTILINE)
        self.values, self.fits = {}, {}
        name = None
        for line in text.splitlines():
            if match := re.match(r"SET\t(\S+)$", line):
                name = match[1]
                self.values[name] = {}
            elif match := re.match(r"(?:\t|Global )X2/DoF\t *(\S+) \(DoF = (\d+)\)", line):
                where = name if line.startswith("\t") else TOTAL
                self.fits[where] = float(match[1]), int(match[2])
            elif match := re.match(r"\t([^\t ]\S*)\t *(\S+)(?: \((\S+)\))?$", line):
                self.values[name][match[1]] = float(match[2]), match[3] and float(match[3])
        if TOTAL not in self.fits:
            raise ValueError("the report has no end")

    def chi2(self, name):
        reduced, dof = self.fits[name]
        return reduced * dof


def run(program, place, text):
    place.mkdir()
    (place / "example.in").write_text(text)
    done = subprocess.run([program, "-i", "example.in", "-o", "example.out"], cwd=place,
                          capture_output=True, text=True)
    if done.returncode != 0 or "ERROR" in done.stderr:
        raise ValueError(f"status {done.returncode}, said: {done.stderr}")
    return Report((place / "example.out").read_text())


def with_shared_held(text, kept):
    """Without search, and GPAR lines turned to GFIXED with the values of the result kept."""
    first = next(iter(kept.values.values()))
    local = dict(re.findall(r"^PAR (\S+) ([A-Za-z]\S*)$", text, re.MULTILINE))

    def held(match):
        name = next(parm for parm, shared in local.items() if shared == match[1])
        return f"GFIXED {match[1]} {first[name][0]}"

    text = re.sub(r"^GPAR (\S+) .*$", held, text, flags=re.MULTILINE)
    return re.sub(r"^(FUNCTION .*)$", r"\1\nMETHOD ONEEX",
                  re.sub(r"^METHOD .*\n", "", text, flags=re.MULTILINE), flags=re.MULTILINE)


def differences(kept, new, only_values):
    """Where a new report departs from the one kept by what could be seen in a use of it."""
    if (kept.model, *kept.values) != (new.model, *new.values):
        yield "other model or sets"
        return
    if not only_values and kept.stages != new.stages:
        yield f"methods {new.stages}, kept {kept.stages}"
    for name, parms in kept.values.items():
        if list(parms) != list(new.values[name]):
            yield f"{name}: parameters {list(new.values[name])}, kept {list(parms)}"
            continue
        for parm, (value, error) in parms.items():
            value_now, error_now = new.values[name][parm]
            if not abs(value_now - value) <= 1e-5 * abs(value) + 0.01 * (error or 0.0):
                yield f"{name} {parm}: {value_now}, kept {value} ({error})"
            if not only_values and not math.isclose(error_now or 0, error or 0, rel_tol=0.01):
                yield f"{name} {parm}: error {error_now}, kept {error}"
    for name, (reduced, dof) in kept.fits.items():
        if not math.isclose(new.chi2(name), reduced * dof, rel_tol=2e-5):
            yield f"chi-square of '{name}': {new.chi2(name)}, kept {reduced * dof}"


def against_other_software(name, report):
    chi2, values, tolerance = MEASURED[name]
    for where, expected in chi2.items():
        # Chi-squares of h2b's sets are known to three decimals, reports to six digits.
        if not math.isclose(report.chi2(where), expected, rel_tol=1e-5, abs_tol=0.01):
            yield f"chi-square of '{where}': {report.chi2(where)}, expected {expected}"
    for (where, parm), expected in values.items():
        value, error = report.values[where][parm]
        if (name, parm) in SIGN_IS_OPEN:
            value = abs(value)
        # Weakly determined ones move by more: 1e-6 of chi-square is 0.001 sqrt(chi-square) errors.
        slack = 1e-3 * math.sqrt(report.chi2(TOTAL)) * (error or 0.0)
        if not abs(value - expected) <= max(tolerance * expected, slack):
            yield f"{where} {parm}: {value}, expected {expected}"


def against_truth(truth, report):
    """All parameters within 4 standard errors, chi-square within 4 of its deviations."""
    for name, parms in report.values.items():
        if set(parms) != set(truth[name]):
            yield f"{name}: truth for {set(truth[name])}, results for {set(parms)}"
            continue
        for parm, (value, error) in parms.items():
            if not abs(value - truth[name][parm]) <= 4.0 * (error or 0.0):
                yield f"{name} {parm}: {value} ({error}), true {truth[name][parm]}"
    reduced, dof = report.fits[TOTAL]
    if not abs(reduced - 1.0) <= 4.0 * math.sqrt(2.0 / dof):
        yield f"X2/DoF {reduced} with {dof} degrees of freedom"


def check_made_up(program, place, synthetic, text):
    seed = int(re.search(r"^# Made by .* seed (\d+)", text, re.MULTILINE)[1])
    if synthetic.remade(text, synthetic.Noise(seed)) != text:
        yield "make_synthetic.py makes other data"
    # Four decimals remain of the noise: 0.005 of the smallest error, 0.01, and chi-square of that.
    quick = re.sub(r"^(JACK|MONTE).*\n", "", text, flags=re.MULTILINE)
    exact = run(program, place / "exact", synthetic.remade(quick, lambda sigma: 0.0))
    if not exact.fits[TOTAL][0] < 1e-4:
        yield f"without noise X2/DoF is {exact.fits[TOTAL][0]}"


def check(program, place, path, synthetic):
    name, text = path.stem, path.read_text()
    kept = Report((EXAMPLES / "expected" / f"{name}.out").read_text())
    place.mkdir()
    new = run(program, place / "run", with_shared_held(text, kept) if name in HELD else text)
    yield from differences(kept, new, name in HELD)
    if name.startswith("synthetic_"):
        yield from against_truth(synthetic.truth(text), kept)
        yield from check_made_up(program, place, synthetic, text)
    else:
        yield from against_other_software(name, kept)
    picture = EXAMPLES / "pictures" / f"{name}.png"
    if (name not in NO_PICTURE) != picture.is_file():
        yield f"{picture} is missing, or not meant to be there"
    if f"[`{path.name}`]({path.name})" not in (EXAMPLES / "README.md").read_text():
        yield "not in README.md"


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--program", required=True)
    program = pathlib.Path(parser.parse_args().program).resolve()
    sys.path.insert(0, str(EXAMPLES))
    synthetic = importlib.import_module("make_synthetic")
    wrong, models = [], set()
    paths = sorted(EXAMPLES.glob("*.in"))
    with tempfile.TemporaryDirectory() as folder:
        for path in paths:
            models.add(re.search(r"^FUNCTION (\S+)", path.read_text(), re.MULTILINE)[1])
            try:
                found = list(check(program, pathlib.Path(folder) / path.stem, path, synthetic))
            except (ValueError, OSError, KeyError) as error:
                found = [repr(error)]
            wrong += [f"{path.stem}: {text}" for text in found]
    if MODELS - models:
        wrong.append(f"no example of {MODELS - models}")
    print(f"{len(paths)} examples")
    if wrong:
        sys.exit("\n".join(wrong))


if __name__ == "__main__":
    main()
