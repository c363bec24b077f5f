"""Input files of dravo: which line belongs to what, one input for each set, simulations in parts.

Lines are read as the program reads them (docs/input.md), as far as it matters for taking a file apart;
what else may be wrong with a line is left to the program to say.
"""
# SPDX-License-Identifier: GPL-3.0-or-later
import dataclasses
import re

SET_KEYWORDS = {"PAR", "REST", "FIXED", "DATA"}  # of the open set; skipped after #SET
GLOBAL_KEYWORDS = {"GPAR", "GREST", "GFIXED"}
OTHER_KEYWORDS = {"FUNCTION", "METHOD", "JACK", "JACK1", "MONTE", "MONTE1", "CALC", "PLOT", "PLOT2"}
LEAST_WORDS = {"SET": 2, "#SET": 2, "PAR": 3, "REST": 4, "FIXED": 3, "DATA": 3, "GPAR": 4, "GREST": 4,
               "GFIXED": 3, "MONTE": 2, "MONTE1": 2}
LEAST_SIMULATIONS = 2  # of a MONTE line


class InputError(Exception):
    """Why a file cannot be read or taken apart."""


@dataclasses.dataclass
class Line:
    text: str
    words: list
    keyword: str          # in capitals; "" for comments and empty lines
    owner: object = None  # the Set it belongs to; None for lines of the whole file
    skipped: bool = False  # of a set that #SET leaves out


@dataclasses.dataclass
class Declaration:
    line: Line
    adjustable: bool
    shared: object  # the line of the GPAR, GREST or GFIXED that serves it, or None


@dataclasses.dataclass
class Set:
    title: str
    declarations: list
    points: list  # lines

    def dof(self):
        return len(self.points) - sum(d.adjustable for d in self.declarations)

    def keeps(self):
        """The program leaves out a set without more points than adjustable parameters."""
        return self.dof() > 0


def is_numeric(word):
    """What the program takes for a value and not for the name of a shared parameter."""
    found = re.match(r"[+-]?(?:[0-9]+\.?[0-9]*|\.[0-9]+)(?:[eE][+-]?([0-9]*))?", word)
    return bool(found) and found[1] != "" and abs(float(found[0])) != float("inf")


def to_int(word):
    """A whole number with an optional base, read as far as it goes; 0 for none."""
    found = re.match(r"([+-]?)(0[xX][0-9a-fA-F]+|0[0-7]*|[1-9][0-9]*)", word)
    if not found:
        return 0
    digits = found[2]
    base = 16 if digits[:2] in ("0x", "0X") else 8 if digits[0] == "0" else 10
    return int(found[1] + "1") * int(digits, base)


def keyword_of(words):
    if not words or words[0][0] == "@":
        return "@" if words else ""
    word = words[0].upper() if words[0].isascii() else words[0]
    if word in SET_KEYWORDS | GLOBAL_KEYWORDS | OTHER_KEYWORDS | {"SET", "#SET"}:
        return word
    return "" if word[0] == "#" else None


class Input:
    """One file; `name` is for messages."""

    def __init__(self, text, name):
        self.name = name
        self.lines, self.sets, self.globals = [], [], {}
        skipping = False
        for number, raw in enumerate(text.split("\n"), 1):
            line = self.read_line(raw.removesuffix("\r"), number)
            self.lines.append(line)
            line.skipped = skipping and line.keyword in SET_KEYWORDS | {""}
            if not line.skipped:
                self.check_fields(line, number)
            if line.keyword in ("SET", "#SET"):
                skipping = line.keyword == "#SET"
            if line.keyword == "SET":
                self.sets.append(Set(line.words[1], [], []))
            # Comments stand with the set above them.
            if self.sets and line.keyword in SET_KEYWORDS | {"", "SET"}:
                line.owner = self.sets[-1]
            if not line.skipped:
                self.take(line, number)

    def fail(self, number, text):
        raise InputError(f"{self.name}: line {number}: {text}")

    def read_line(self, text, number):
        words = re.split(r"[\t, ]+", text.strip("\t, ")) if text.strip("\t, ") else []
        keyword = keyword_of(words)
        if keyword is None:
            self.fail(number, f"'{words[0]}' is no keyword")
        return Line(text, words, keyword)

    def check_fields(self, line, number):
        if line.keyword and len(line.words) < LEAST_WORDS.get(line.keyword, 1):
            self.fail(number, f"{line.keyword} needs more fields")
        # No part has the #SET lines: the program would not see this one.
        if line.keyword == "#SET" and len(line.words) > 2:
            self.fail(number, "#SET takes one title; '# SET' begins a comment")

    def take(self, line, number):
        if line.keyword in GLOBAL_KEYWORDS:
            self.globals.setdefault(line.words[1], line)  # of two with one name the first is meant
        if line.keyword not in SET_KEYWORDS:
            return
        if not self.sets:
            self.fail(number, f"{line.keyword} stands before the first SET")
        if line.keyword == "DATA":
            self.sets[-1].points.append(line)
            return
        shared = None
        if line.keyword == "PAR" and len(line.words) == 3 and not is_numeric(line.words[2]):
            shared = self.globals.get(line.words[2])
            if shared is None:
                self.fail(number, f"no GPAR, GREST or GFIXED line before it declares '{line.words[2]}'")
        adjustable = (shared or line).keyword not in ("FIXED", "GFIXED")
        self.sets[-1].declarations.append(Declaration(line, adjustable, shared))

    def kept_sets(self):
        return [one for one in self.sets if one.keeps()]

    def titles(self):
        return [one.title for one in self.kept_sets()]

    # ---- one input for each set ----

    def unused(self):
        """Adjustable shared parameters that no set uses; each costs a degree of freedom of the whole."""
        used = {id(d.shared) for one in self.kept_sets() for d in one.declarations}
        return sum(line.keyword in ("GPAR", "GREST") and id(line) not in used for line in self.lines)

    def check_local(self):
        """Sets are fitted by themselves unless a parameter is adjusted for two of them, or is taken up
        twice by one."""
        users = {}
        for one in self.kept_sets():
            for d in one.declarations:
                if d.shared is not None and d.adjustable:
                    users.setdefault(id(d.shared), (d.shared, []))[1].append(one.title)
        for line, titles in users.values():
            if len(titles) < 2:
                continue
            number = next(n for n, other in enumerate(self.lines, 1) if other is line)
            named = ", ".join(titles[:5]) + (", ..." if len(titles) > 5 else "")
            self.fail(number, f"{line.keyword} {line.words[1]} is shared ({len(titles)} uses: {named}): "
                              "the sets cannot be fitted by themselves")
        if not self.kept_sets():
            raise InputError(f"{self.name}: no set has more points than adjustable parameters")
        if sum(one.dof() for one in self.kept_sets()) <= self.unused():
            raise InputError(f"{self.name}: more adjustable parameters than data points, with those of "
                             "GPAR and GREST lines that no set uses")

    def errors_off(self):
        """True when the first point has no error, which holds for all that follow. Points with and
        without cannot be taken apart: where errors end would be lost."""
        sizes = [len(p.words) for one in self.sets for p in one.points]
        if min(sizes) == max(sizes):
            return False  # all alike: each set says by itself what all say together
        first_short = next(i for i, size in enumerate(sizes) if size == min(sizes))
        if first_short > 0:
            point = [p for one in self.sets for p in one.points][first_short]
            number = next(n for n, line in enumerate(self.lines, 1) if line is point)
            self.fail(number, "a point without error after points with errors: it switches the errors "
                              "of all later sets off, so that sets cannot be fitted by themselves")
        return True

    def subset(self, wanted, noerr=False):
        """The text of an input with these sets alone."""
        off = not noerr and self.errors_off()
        names = {id(d.shared) for one in wanted for d in one.declarations}
        text, first_point = [], True
        for line in self.lines:
            foreign = line.owner is not None and not any(line.owner is one for one in wanted)
            unused = line.keyword in ("GPAR", "GREST") and id(line) not in names
            if foreign or unused or line.skipped or line.keyword == "#SET":
                continue
            if off and first_point and line.keyword == "DATA":
                # One word less says that there are no errors, from here on.
                first_point = False
                shortest = min(len(p.words) for one in self.sets for p in one.points)
                text.append(" ".join(line.words[:shortest]))
                continue
            text.append(line.text)
        return "\n".join(text).rstrip("\n") + "\n"

    # ---- simulations in parts ----

    def monte_lines(self):
        """Those of Monte Carlo analyses; the last one counts."""
        return [line for line in self.lines if line.keyword in ("MONTE", "MONTE1")]

    def simulations(self):
        """(keyword, number) of the analysis that will run, or None."""
        lines = self.monte_lines()
        return (lines[-1].keyword, to_int(lines[-1].words[1])) if lines else None

    def without_simulations(self):
        return "\n".join(line.text for line in self.lines if line.keyword not in ("MONTE", "MONTE1"))

    def with_simulations(self, count):
        """An input that makes this many of the simulations, and no jackknife. Those of MONTE1 do not
        use the methods: without them the values of the fit stay as they are."""
        last = self.monte_lines()[-1]
        dropped = {"MONTE", "MONTE1", "JACK", "JACK1"} | ({"METHOD"} if last.keyword == "MONTE1" else set())
        return "\n".join(f"{last.keyword} {count}" if line is last else line.text
                         for line in self.lines if line is last or line.keyword not in dropped)

    def started_at(self, values):
        """The text with these values, one list for each set that the program keeps, as starts."""
        starts = {}
        for one, row in zip(self.kept_sets(), values, strict=True):
            for declaration, value in zip(one.declarations, row, strict=True):
                if declaration.adjustable:
                    starts[id(declaration.shared or declaration.line)] = value
        return "\n".join(with_start(line.words, starts[id(line)]) if id(line) in starts else line.text
                         for line in self.lines)


def with_start(words, value):
    """A line of an adjustable parameter that begins the fit at this value."""
    if len(words) == 3:  # a start without a range
        return " ".join([*words, words[2], "1", value])
    points = words[4] if len(words) > 4 else "1"
    return " ".join([*words[:4], points, value])


def counts_of(total, parts, name):
    """The numbers of simulations of the parts: as equal as can be."""
    if total < LEAST_SIMULATIONS * parts:
        raise InputError(f"{name}: {total} simulations cannot be split into {parts} parts: "
                         f"each needs {LEAST_SIMULATIONS}")
    return [total // parts + (part < total % parts) for part in range(parts)]
