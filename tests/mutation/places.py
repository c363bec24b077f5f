"""Finds the places of C++ sources that a mutation can change: binary and compound operators, signs,
comparisons, logical operators, numeric constants and subscripts.

The sources are laid out by clang-format, which tells binary operators (blanks on both sides) from
pointers, references, signs and template brackets. A misjudged place does no harm: its mutant does
not compile and the next place is taken.
"""
# SPDX-License-Identifier: GPL-3.0-or-later
import re
from typing import List, NamedTuple

ARITHMETIC = {"+": ["-"], "-": ["+"], "*": ["/"], "/": ["*"], "%": ["*"],
              "+=": ["-="], "-=": ["+="], "*=": ["/="], "/=": ["*="]}
COMPARISON = {"<": ["<=", ">="], "<=": ["<", ">"], ">": [">=", "<="], ">=": [">", "<"],
              "==": ["!="], "!=": ["=="]}
LOGICAL = {"&&": ["||"], "||": ["&&"]}

TOKEN = re.compile(r"""
    (?P<blank>\s+)
  | (?P<comment>//[^\n]*|/\*.*?\*/)
  | (?P<text>R"(?P<fence>[^(\s]*)\(.*?\)(?P=fence)"|"(?:[^"\\\n]|\\.)*"|'(?:[^'\\\n]|\\.)+')
  | (?P<number>0[xX][0-9a-fA-F']+[uUlL]*|(?:\d[\d']*\.?\d*|\.\d+)(?:[eE][+-]?\d+)?[uUlLfF]*)
  | (?P<word>[A-Za-z_]\w*)
  | (?P<operator><<=|>>=|<=>|->\*|->|\+\+|--|<<|<=|>=|==|!=|&&|\|\||[-+*/%&|^]=|::|.)
""", re.VERBOSE | re.DOTALL)

# Calls whose arguments only check or only reserve memory: a change there changes no result.
IDLE_CALLS = {"assert", "static_assert", "reserve"}
# Templates whose numbers are lengths of memory.
CONTAINERS = {"array", "span", "vector"}


class Place(NamedTuple):
    file: str
    line: int
    begin: int  # offset in the text of the file
    end: int
    kind: str
    old: str
    choices: List[str]


class Token(NamedTuple):
    kind: str
    text: str
    begin: int


def withoutDirectives(text):
    """The text with preprocessor lines blanked, offsets unchanged."""
    return re.sub(r"^[ \t]*#(?:[^\n]*\\\n)*[^\n]*", lambda m: re.sub(r"[^\n]", " ", m.group()), text,
                  flags=re.MULTILINE)


def tokens(text):
    found = [Token(m.lastgroup if m.lastgroup != "fence" else "text", m.group(), m.start())
             for m in TOKEN.finditer(withoutDirectives(text))]
    return [t for t in found if t.kind not in ("blank", "comment")]


def neighbours(literal):
    """Constants whose last digit counts one up or one down; 0 goes up only, 9 down only."""
    base = 16 if literal[:2].lower() == "0x" else 10
    digits = re.match(r"0[xX][0-9a-fA-F']+" if base == 16 else r"[\d'.]+", literal).group()
    at = max(i for i, c in enumerate(digits) if c not in "'.")
    digit = int(digits[at], base)
    return [literal[:at] + f"{new:x}" + literal[at + 1:]
            for new in (digit - 1, digit + 1) if 0 <= new < base]


def closing(sequence, opening):
    """For each index of an opening bracket the index of its partner."""
    pairs = {"(": ")", "[": "]", "{": "}"}
    stack, partner = [], {}
    for i, token in enumerate(sequence):
        if token.kind != "operator":
            continue
        if token.text in pairs:
            stack.append(i)
        elif token.text in pairs.values() and stack:
            partner[stack.pop()] = i
    return partner


def idleRanges(sequence, partner):
    """Index ranges of tokens that change no result."""
    ranges = []
    for i, token in enumerate(sequence[:-1]):
        following = sequence[i + 1]
        if token.kind != "word":
            continue
        if token.text in IDLE_CALLS and following.text == "(":
            ranges.append((i, partner[i + 1]))
        elif token.text in CONTAINERS and following.text == "<":
            depth, k = 0, i + 1
            while k < len(sequence):
                depth += {"<": 1, ">": -1, ">>": -2}.get(sequence[k].text, 0)
                if depth <= 0:
                    break
                k += 1
            ranges.append((i, k))
        elif token.text == "operator":
            ranges.append((i, i + 1))
    return ranges


def places(name, source):
    """All places of one file, in the order of the text."""
    sequence = tokens(source)
    partner = closing(sequence, None)
    idle = set()
    for first, last in idleRanges(sequence, partner):
        idle.update(range(first, last + 1))
    found, constant_indices = [], set()

    def add(token, kind, choices, begin=None):
        start = token.begin if begin is None else begin
        old = token.text if begin is None else ""
        found.append(Place(name, source.count("\n", 0, start) + 1, start, start + len(old), kind,
                           old, choices))

    def spaced(token):
        end = token.begin + len(token.text)
        return source[token.begin - 1].isspace() and source[end].isspace()

    for i, token in enumerate(sequence):
        if i in idle or i in constant_indices:
            continue
        previous = sequence[i - 1] if i else Token("operator", ";", -1)
        if token.kind == "number":
            add(token, "constant", neighbours(token.text))
        elif token.kind != "operator":
            continue
        elif token.text == "[" and i in partner:
            touches = previous.begin + len(previous.text) == token.begin
            value = previous.kind == "word" or previous.text in (")", "]")
            last = partner[i]
            if touches and value and last > i + 1 and previous.text != "[":
                # One place for x[0], not one for the constant and one for the subscript.
                if last == i + 2 and sequence[i + 1].kind == "number":
                    constant_indices.add(i + 1)
                add(sequence[last], "index", [" + 1", " - 1"], sequence[last].begin)
        elif token.text == "-" and not spaced(token):
            add(token, "arithmetic", ["+"])
        elif not spaced(token):
            continue
        elif token.text in ARITHMETIC:
            add(token, "arithmetic", ARITHMETIC[token.text])
        elif token.text in COMPARISON:
            add(token, "comparison", COMPARISON[token.text])
        elif token.text in LOGICAL:
            add(token, "logical", LOGICAL[token.text])
    return sorted(found, key=lambda place: place.begin)
