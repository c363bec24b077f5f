#!/usr/bin/env python3
"""The same input gives the same bytes: again, in another directory, in another language."""
# SPDX-License-Identifier: GPL-3.0-or-later
import argparse
import pathlib
import sys
import tempfile

from runs import difference, examples, german_locale


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--program", required=True)
    program = str(pathlib.Path(parser.parse_args().program).resolve())
    failures = []
    with tempfile.TemporaryDirectory() as folder:
        german = german_locale(folder)
        for run in examples():
            first = run.results(program)
            if first["status"] != b"0" or b"Global X2/DoF" not in first["t.out"]:
                failures.append(f"{run.name}: status {first['status']}, {first['stderr']}")
            found = difference(first, run.results(program, **german))
            if found:
                by_itself = difference(first, run.results(program))
                failures.append(f"{run.name} {'again' if by_itself else 'in German'}: {found}")
    sys.exit("\n".join(failures) or 0)


if __name__ == "__main__":
    main()
