"""Runs of the program that must give the same results: inputs, and what a run leaves."""
# SPDX-License-Identifier: GPL-3.0-or-later
import os
import pathlib
import re
import shlex
import shutil
import subprocess
import tempfile

ROOT = pathlib.Path(__file__).resolve().parents[2]
PATIENCE = 3600  # seconds
RANDOM = re.compile(r"^\s*(?:METHOD[\t, ]+(?:RANDOM|MCMIN|RMCMIN)|MONTE1?)\b.*$",
                    re.MULTILINE | re.IGNORECASE)
SEARCHES = re.compile(r"^METHOD (?:GRID|ONEEX)\b.*$", re.MULTILINE)
GRID = re.compile(r"^METHOD GRID\b.*$", re.MULTILINE)
DURATION = re.compile(rb"^# Fit duration .*$", re.MULTILINE)
# What takes minutes is left out: methods of two fits, the jackknife of these and another one.
LEFT_OUT = {"h2b_methyl_mq_cpmg.in": SEARCHES, "sod1_15n_cpmg_global.in": GRID}
NO_JACKKNIFE = (*LEFT_OUT, "abp1p_15n_cpmg_global.in")
# Besides its report a fit leaves one of each method, plots and a jackknife.
OPTIONS = ("-vv", "-xmgr", "-prec", "17")


class Run:
    """One command line in a directory of its own with some files."""

    def __init__(self, name, files, arguments):
        self.name = name
        self.files = files
        self.arguments = arguments

    def results(self, program, **environment):
        """Exit status, streams and all files, without durations."""
        with tempfile.TemporaryDirectory(prefix="dravo_") as folder:
            place = pathlib.Path(folder)
            for name, text in self.files.items():
                (place / name).write_bytes(text)
            # By one name, which the usage text shows.
            done = subprocess.run(["dravo", *self.arguments], executable=program, cwd=place,
                                  capture_output=True, timeout=PATIENCE,
                                  env={**os.environ, **environment})
            left = {"status": str(done.returncode).encode(), "stdout": done.stdout,
                    "stderr": done.stderr}
            for path in sorted(place.rglob("*")):
                if path.is_file() and path.name not in self.files:
                    left[str(path.relative_to(place))] = DURATION.sub(b"", path.read_bytes())
            return left


def examples(slow=False):
    """The fits of examples/ by the methods that draw no random numbers, with a jackknife."""
    for path in sorted((ROOT / "examples").glob("*.in")):
        if path.name in LEFT_OUT and not slow:
            continue
        text = RANDOM.sub("", path.read_text())
        if path.name in LEFT_OUT:
            text = LEFT_OUT[path.name].sub("", text)
        if path.name not in NO_JACKKNIFE:
            text += "\nJACK1\n"
        yield Run(path.name, {"t.in": text.encode()}, ["-i", "t.in", "-o", "t.out", *OPTIONS])


def golden_cases():
    """The golden cases that draw no random numbers and need no preparation."""
    for case in sorted((ROOT / "tests" / "golden").glob("*/case")):
        entries = case.read_text()
        files = {path.name: path.read_bytes() for path in case.parent.iterdir()
                 if path.is_file() and path.name != "case"}
        if re.search(r"^(?:setup|env):", entries, re.MULTILINE):
            continue
        if any(RANDOM.search(data.decode(errors="replace")) for data in files.values()):
            continue
        arguments = shlex.split(re.search(r"^args:(.*)$", entries, re.MULTILINE).group(1))
        yield Run(case.parent.name, files, arguments)


def difference(first, second):
    """Which result differs, and its first line that does; empty when none does."""
    if list(first) != list(second):
        return f"files {set(first) ^ set(second)}"
    for name, data in first.items():
        if data == second[name]:
            continue
        pairs = zip(data.splitlines(), second[name].splitlines())
        lines = next((pair for pair in pairs if pair[0] != pair[1]), ("end of file", ""))
        return f"{name}: {lines[0]!r} and {lines[1]!r}"
    return ""


def german_locale(folder):
    """Environment of a run in Germany, where 1.5 is written 1,5; the system's own locales stay as
    they are."""
    subprocess.run(["localedef", "-i", "de_DE", "-f", "UTF-8", f"{folder}/de_DE.UTF-8"],
                   check=True, capture_output=True)
    environment = {"LOCPATH": str(folder), "LC_ALL": "de_DE.UTF-8", "LANG": "de_DE.UTF-8"}
    said = subprocess.run([shutil.which("printf"), "%.1f", "1,5"], capture_output=True, text=True,
                          env={**os.environ, **environment}, check=True)
    if said.stdout != "1,5":
        raise RuntimeError(f"the German locale has no effect: 1,5 is printed as {said.stdout}")
    return environment
