#!/usr/bin/env python3
"""The example of the README gives the report that the README shows."""
# SPDX-License-Identifier: GPL-3.0-or-later
import argparse
import math
import pathlib
import re
import subprocess
import sys
import tempfile

README = pathlib.Path(__file__).resolve().parents[2] / "README.md"
NUMBER = re.compile(r"[-+]?\d+\.?\d*(?:[eE][-+]?\d+)?")
TOLERANCE = 2e-5  # the last printed digit may differ between mathematical libraries


def texts_agree(shown, written):
    """Same text between the numbers, numbers within the tolerance; the duration is volatile."""
    volatile = re.compile(r"^# Fit duration .*$", re.MULTILINE)
    shown, written = volatile.sub("", shown), volatile.sub("", written)
    if NUMBER.sub("#", shown) != NUMBER.sub("#", written):
        return False
    pairs = zip(NUMBER.findall(shown), NUMBER.findall(written))
    return all(math.isclose(float(a), float(b), rel_tol=TOLERANCE) for a, b in pairs)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--program", required=True)
    program = pathlib.Path(parser.parse_args().program).resolve()
    blocks = re.findall(r"^```text\n(.*?)^```$", README.read_text(), re.MULTILINE | re.DOTALL)
    input_text, report = blocks[:2]
    command = re.search(r"^    dravo (.*)$", README.read_text(), re.MULTILINE).group(1).split()
    with tempfile.TemporaryDirectory() as folder:
        place = pathlib.Path(folder)
        (place / command[command.index("-i") + 1]).write_text(input_text)
        done = subprocess.run([program, *command], cwd=place, capture_output=True, text=True)
        written = (place / command[command.index("-o") + 1]).read_text()
    if done.returncode != 0 or done.stdout or done.stderr:
        sys.exit(f"status {done.returncode}, said: {done.stdout}{done.stderr}")
    if not texts_agree(report, written):
        sys.exit(f"the README shows\n{report}\nbut the program wrote\n{written}")


if __name__ == "__main__":
    main()
