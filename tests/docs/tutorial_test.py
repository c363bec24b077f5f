#!/usr/bin/env python3
"""Every command of docs/tutorial.md gives the output and the pictures that the page shows."""
# SPDX-License-Identifier: GPL-3.0-or-later
import argparse
import math
import os
import pathlib
import re
import subprocess
import sys
import tempfile
import zlib

ROOT = pathlib.Path(__file__).resolve().parents[2]
PAGE = ROOT / "docs" / "tutorial.md"
INTENSITIES = ROOT / "examples" / "abp1p_intensities.txt"
ORIGIN = ROOT / "examples" / "abp1p_15n_cpmg_global.in"
DELAY = 0.03  # s
NUMBER = re.compile(r"(\(?)([-+]?\d+\.?\d*(?:[eE][-+]?\d+)?)")
LAST_DIGIT = 2e-5  # may differ between mathematical libraries
# A standard deviation of 100 draws is off by 7 %, five times that is not seen in practice.
RANDOM = 0.4
RANDOM_MARK = "The errors are random"


def commands(page):
    """(command, output shown, relative tolerance of numbers in parentheses), in order."""
    for block in re.finditer(r"^```console\n(.*?)^```$", page, re.MULTILINE | re.DOTALL):
        before = page[:block.start()].rstrip().rsplit("\n\n", 1)[-1]
        tolerance = RANDOM if RANDOM_MARK in before else LAST_DIGIT
        for one in re.split(r"^\$ ", block[1], flags=re.MULTILINE)[1:]:
            lines = one.splitlines(keepends=True)
            size = 1
            while size < len(lines) and lines[size].startswith(">"):
                size += 1
            command = lines[0] + "".join(re.sub(r"^> ?", "", line) for line in lines[1:size])
            yield command, "".join(lines[size:]), tolerance


def agree(shown, written, in_parentheses):
    volatile = re.compile(r"^# Fit duration .*$", re.MULTILINE)
    shown, written = volatile.sub("", shown), volatile.sub("", written)
    # A number in a column of fixed width may have fewer digits elsewhere.
    texts = [re.sub(r" +", " ", NUMBER.sub(r"\1#", text)) for text in (shown, written)]
    if texts[0] != texts[1]:
        return False
    for (bracket, a), (_, b) in zip(NUMBER.findall(shown), NUMBER.findall(written)):
        tolerance = in_parentheses if bracket else LAST_DIGIT
        if not math.isclose(float(a), float(b), rel_tol=tolerance):
            return False
    return True


def pixels(path):
    """The rows of a picture as PNG stores them: the same for the same picture."""
    content = path.read_bytes()
    if content[:8] != b"\x89PNG\r\n\x1a\n":
        sys.exit(f"{path} is no picture")
    data, place = b"", 8
    while place < len(content):
        size = int.from_bytes(content[place:place + 4], "big")
        if content[place + 4:place + 8] == b"IDAT":
            data += content[place + 8:place + 8 + size]
        place += size + 12
    return zlib.decompress(data)


def check_picture(shown, drawn):
    """The page shows what was drawn; single pixels may fall elsewhere."""
    a, b = pixels(shown), pixels(drawn)
    differing = sum(x != y for x, y in zip(a, b))
    if len(a) != len(b) or differing > 0.002 * len(a):
        sys.exit(f"{shown.name} differs from the picture drawn now in {differing} of {len(a)} bytes")


def check_intensities():
    """The table is what the R2eff of the example say, all of them, to its last digit."""
    rows = [line.split() for line in INTENSITIES.read_text().splitlines() if line[0] != "#"]
    points, residue = [], None
    for line in ORIGIN.read_text().splitlines():
        words = line.split()
        if words[:1] == ["SET"]:
            residue = words[1]
        elif words[:1] == ["DATA"]:
            points.append((residue, *map(float, words[1:4]), *map(float, words[5:])))
    if len(rows) != len(points):
        sys.exit(f"{len(rows)} intensities for {len(points)} rates")
    for row, (residue, rate, _, field, r2, error) in zip(rows, points):
        intensity = math.exp(-r2 * DELAY)
        expected = (500 * field, rate / 2, intensity, error * intensity * DELAY)
        near = all(math.isclose(float(a), b, rel_tol=1e-5, abs_tol=6e-7)
                   for a, b in zip(row[1:], expected))
        if row[0] != residue or not near:
            sys.exit(f"intensity {row}, expected {residue} {expected}")


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--program", required=True)
    program = pathlib.Path(parser.parse_args().program).resolve()
    environment = dict(os.environ, PATH=f"{program.parent}:{os.environ['PATH']}", LC_ALL="C")
    page = PAGE.read_text()
    check_intensities()
    with tempfile.TemporaryDirectory() as folder:
        place = pathlib.Path(folder)
        (place / INTENSITIES.name).write_text(INTENSITIES.read_text())
        steps = list(commands(page))
        for command, shown, tolerance in steps:
            done = subprocess.run(["sh", "-c", command], cwd=place, env=environment, text=True,
                                  stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
            if not agree(shown, done.stdout, tolerance):
                sys.exit(f"$ {command}the page shows\n{shown}\nbut it says\n{done.stdout}")
        pictures = re.findall(r"\]\((pictures/tutorial_(\w+)\.png)\)", page)
        for picture, residue in pictures:
            check_picture(PAGE.parent / picture, place / f"{residue}.png")
    print(f"{len(steps)} commands, {len(pictures)} pictures")
    if len(steps) < 20 or len(pictures) != 2:
        sys.exit("the page has lost commands or pictures")


if __name__ == "__main__":
    main()
