"""The dictionary of the fuzz targets holds the words of the program's tables, no more and no less."""
# SPDX-License-Identifier: GPL-3.0-or-later
import pathlib
import re
import sys
import unittest

HERE = pathlib.Path(__file__).resolve().parent
SOURCES = HERE.parent.parent / "src"


def sections():
    """The words of the dictionary under each heading."""
    found, heading = {}, None
    for line in (HERE / "dravo.dict").read_text().splitlines():
        if re.fullmatch(r"# [a-z]+", line):
            heading = found.setdefault(line[2:], [])
        elif line.startswith('"') and heading is not None:
            heading.append(line[1:-1])
    return found


def table(file, name):
    """The first field of each row of a table."""
    text = (SOURCES / file).read_text()
    body = re.search(name + r"\[\] = \{\n(.*?)\n\};", text, re.S).group(1)
    return re.findall(r'^\s*\{"([^"]+)"', body, re.M)


class Dictionary(unittest.TestCase):
    def check(self, heading, words):
        self.assertGreater(len(words), 2)
        self.assertCountEqual(sections()[heading], words)

    def test_keywords(self):
        self.check("keywords", table("Setup.cpp", "kKeywords"))

    def test_methods(self):
        self.check("methods", table("Method.cpp", "kMethods"))

    def test_quantities(self):
        self.check("quantities", table("Calc.cpp", "kCalcs"))

    def test_options(self):
        compared = re.findall(r'option == "(-[a-z]+)"', (SOURCES / "Setup.cpp").read_text())
        self.check("options", table("Setup.cpp", "kFlags") + compared)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
