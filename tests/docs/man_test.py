#!/usr/bin/env python3
"""The man page is well formed, and names the options and keywords that there are."""
# SPDX-License-Identifier: GPL-3.0-or-later
import argparse
import pathlib
import re
import shutil
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]
PAGE = ROOT / "docs" / "dravo.1"


def run(*command):
    return subprocess.run(command, text=True, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--program", required=True)
    program = parser.parse_args().program
    if shutil.which("mandoc") is None:
        sys.exit("mandoc is not installed; it comes with the Debian package of that name")
    lint = run("mandoc", "-T", "lint", "-W", "warning", PAGE)
    if lint.returncode != 0:
        sys.exit(lint.stdout)
    text = re.sub(".\x08", "", run("mandoc", "-T", "ascii", PAGE).stdout)
    # Options as the program lists them; the page has each at the head of a paragraph.
    offered = set(re.findall(r"^  (-\w+)", run(program, "-h").stdout, re.MULTILINE)) | {"-prec"}
    described = set(re.findall(r"^     (-\w+)(?: \w+)?(?:  .*)?$", text, re.MULTILINE))
    if offered != described:
        sys.exit(f"the program offers {offered}, the page describes {described}")
    # Keywords and methods stand in the first columns of the manual's tables.
    manual = "".join((ROOT / "docs" / page).read_text() for page in ("input.md", "methods.md"))
    words = set(re.findall(r"^\| \[?`([A-Z]{3,}\d?)\b", manual, re.MULTILINE))
    missing = {word for word in words if not re.search(rf"\b{word}\b", text)}
    if len(words) < 20 or missing:
        sys.exit(f"not on the page: {missing or 'the manual lists too few words'}")


if __name__ == "__main__":
    main()
