#!/usr/bin/env python3
"""What plots do to a run: nothing to the fit, and nothing outside the working directory."""
# SPDX-License-Identifier: GPL-3.0-or-later
import argparse
import pathlib
import re
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parents[2]
DURATION = re.compile(r"^# Fit duration .*$", re.MULTILINE)
CONSTANT = "FUNCTION Constant\nPLOT c\nSET {title}\nFIXED c 1\nDATA 0 3 0.5 -\n"


def run(program, place, text, *options):
    place.mkdir(parents=True)
    (place / "t.in").write_text(text)
    return subprocess.run([program, "-i", "t.in", "-o", "t.out", *options], cwd=place,
                          capture_output=True, text=True, timeout=250)


def reports(place):
    return {str(path.relative_to(place)): DURATION.sub("", path.read_text())
            for path in sorted(place.rglob("t.out*"))}


def fit_input(example, methods, plots=""):
    """An example with methods that always give the same result."""
    text = (ROOT / "examples" / example).read_text()
    text = re.sub(r"^(METHOD|PLOT|@).*\n", "", text, flags=re.MULTILINE)
    return text + methods + plots


def check_fit_is_unchanged(program, top, example, methods, plots):
    """Plots of stages are drawn between two methods: what they leave in a model's cache could
    lead the next method another way. It would be used where the last curve has the x values and
    parameters of the first point."""
    text = fit_input(example, methods, plots)
    runs = {}
    for name, options in (("plain", ("-vv",)), ("plots", ("-vv", "-xmgr"))):
        place = top / example / name
        done = run(program, place, text, *options)
        if done.returncode != 0:
            sys.exit(f"{example}: {done.stderr}")
        runs[name] = {**reports(place), "stderr": done.stderr}
    quiet = top / example / "quiet"
    run(program, quiet, text)
    stages = len([name for name in runs["plain"] if "/" in name])
    drawn = list((top / example / "plots").glob("*/*.xmgr"))
    if stages != methods.count("METHOD") + 1 or len(drawn) < stages:
        sys.exit(f"{example}: {stages} stages, or no plots")
    for name, text in runs["plain"].items():
        if runs["plots"][name] != text:
            sys.exit(f"{example}: {name} differs\nwithout plots:\n{text}\n"
                     f"with:\n{runs['plots'][name]}")
    if reports(quiet)["t.out"] != runs["plain"]["t.out"]:
        sys.exit(f"{example}: the report under -vv differs from that without")


def check_title(program, top, title):
    """A title that is a path: the report, the message, and no other file anywhere near."""
    top.mkdir()
    place = top / "inner"
    title = title.replace("TOP", str(top))
    done = run(program, place, CONSTANT.format(title=title), "-xmgr")
    said = f"WARNING ({title}): All parameters are fixed\nError: Opening file '{title}.xmgr'\n"
    if (done.returncode, done.stdout, done.stderr) != (1, "", said):
        sys.exit(f"title {title}: status {done.returncode}, said {done.stdout}{done.stderr}")
    found = sorted(str(path.relative_to(top)) for path in top.rglob("*"))
    if found != ["inner", "inner/t.in", "inner/t.out"]:
        sys.exit(f"title {title}: found {found}")
    if not (place / "t.out").read_text().endswith("Global X2/DoF\t16 (DoF = 1)\n"):
        sys.exit(f"title {title}: the report is not complete")


def check_refused_abscissa(program, top):
    """A curve that begins below 1/tcp = 10 ends the run, but after the report."""
    text = ("FUNCTION CPMG_Meiboom\nPLOT c 0 0 1 11 0 1000 11\nSET one\nFIXED kex 100\n"
            "FIXED pdw 10\nFIXED R20 11\nDATA 100 0 1 11 10 1\n")
    done = run(program, top, text, "-xmgr")
    if done.returncode != 1 or not done.stderr.endswith(
            "1/tcp is too short. Check the input file\n"):
        sys.exit(f"1/tcp of 0: status {done.returncode}, said {done.stderr}")
    if "Global X2/DoF" not in (top / "t.out").read_text():
        sys.exit("1/tcp of 0: the report is not complete")


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--program", required=True)
    program = pathlib.Path(parser.parse_args().program).resolve()
    with tempfile.TemporaryDirectory() as folder:
        top = pathlib.Path(folder)
        check_fit_is_unchanged(program, top, "fyn_d9_15n_sq_cpmg.in",
                               "METHOD INIT\nMETHOD ONE\nMETHOD ONE\nMETHOD ONEEX\n",
                               "PLOT 800MHz * 298 1.6 13\nPLOT 500MHz * 298 1 11\n")
        check_fit_is_unchanged(program, top, "abp1p_15n_cpmg_global.in",
                               "METHOD ONE\nMETHOD ONE\nMETHOD ONEEX\n",
                               "PLOT 800MHz * 298.15 1.6 12\nPLOT 500MHz * 298.15 1 11\n")
        for number, title in enumerate(("../up", "TOP/absolute", "inner/deeper", "./t", "a/../b")):
            check_title(program, top / f"title{number}", title)
        check_refused_abscissa(program, top / "refused")


if __name__ == "__main__":
    main()
