#!/usr/bin/env python3
"""The tables of fits in docs/accuracy.md are those that the program gives today.

The tables of models and of their limits are compared by the unit tests that print them. The example of
eight methyls is left to the unit tests as well: it takes longer than all others together.
"""
# SPDX-License-Identifier: GPL-3.0-or-later
import argparse
import math
import pathlib
import re
import sys

TESTS = pathlib.Path(__file__).resolve().parents[1]
sys.dont_write_bytecode = True  # the source tree stays as it is
sys.path.insert(0, str(TESTS / "accuracy"))
import examples  # noqa: E402  found in the directory above
import strd  # noqa: E402

PAGE = TESTS.parent / "docs" / "accuracy.md"
NUMBER = re.compile(r"\d+\.?\d*(?:[eE][-+]?\d+)?")
SLOW = "h2b_methyl_mq_cpmg"


def documented(name):
    """Rows of the table behind the line `<!-- name -->`, without its header."""
    text = PAGE.read_text().split(f"<!-- {name} -->\n", 1)[1]
    return rows(re.match(r"(\|.*\n)+", text.lstrip("\n")).group(0).splitlines())


def rows(lines):
    return [[cell.strip() for cell in line.strip("|").split("|")] for line in lines[2:]]


def compare(name, shown, found, agree):
    """`agree(column, a, b)` tells whether two numbers of a column are the same."""
    if len(shown) != len(found):
        sys.exit(f"{name}: {len(shown)} rows documented, {len(found)} found")
    for old, new in zip(shown, found):
        for column, (a, b) in enumerate(zip(old, new, strict=True)):
            same_text = NUMBER.sub("#", a) == NUMBER.sub("#", b)
            pairs = zip(NUMBER.findall(a), NUMBER.findall(b))
            if not same_text or not all(agree(column, float(x), float(y)) for x, y in pairs):
                sys.exit(f"{name}: documented is\n{' | '.join(old)}\nbut the program gives\n"
                         f"{' | '.join(new)}")


def same_digits(column, a, b):
    """Counts of digits move by rounding, the rest of the table does not."""
    return abs(a - b) <= 1.0 if column >= 4 else a == b


def same_fit(column, a, b):
    return math.isclose(a, b, rel_tol=5e-4) if column >= 2 else a == b


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--program", required=True)
    program = pathlib.Path(parser.parse_args().program).resolve()

    compare("nist", documented("nist"), rows(strd.table(program)), same_digits)
    said = float(re.search(r"is (\S+) of the standard error", PAGE.read_text()).group(1))
    if strd.largest_deviation(program) > 2 * said:
        sys.exit(f"a parameter is more than {said} standard errors off")

    examples.REPEATED = [fit for fit in examples.REPEATED if fit[0] != SLOW]
    shown = [row for row in documented("examples") if row[0] != SLOW]
    compare("examples", shown, rows(examples.repeated_table(program)), same_fit)
    compare("exact", documented("exact"), rows(examples.exact_table(program)), same_fit)


if __name__ == "__main__":
    main()
