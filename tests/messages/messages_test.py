#!/usr/bin/env python3
"""Every text of the program is expected by some test: each literal of the sources that has words in
it (messages, prompts, headings, help, names) stands in the expected files of a golden case, in a
unit test or in a script.
"""
# SPDX-License-Identifier: GPL-3.0-or-later
import argparse
import pathlib
import re
import resource
import subprocess
import sys
import tempfile
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
LITERAL = re.compile(r'R"\((?P<raw>.*?)\)"|"(?P<plain>(?:[^"\\\n]|\\.)*)"')
WORDS = re.compile(r"[A-Za-z].* |[A-Za-z ]{4}")

# Texts that no test can bring about, each with the reason.
UNREACHABLE = {
    "egtEGT": "a set of characters, never printed",
    "ERROR: Relaxation matrix is singular.":
        "eigenvectors that LAPACK found can be inverted, and what is not finite is refused before",
}
NO_MEMORY = "ERROR: Unable to allocate memory\n"  # expected below


def joined(text):
    """Source text without comments and directives, neighbouring literals made one."""
    text = re.sub(r"^\s*(//|#).*$", "", text, flags=re.MULTILINE)
    return re.sub(r'(?<!\\)"\s*\n\s*"', "", text)


def meaning(literal):
    """The characters that a literal stands for."""
    if literal["raw"] is not None:
        return literal["raw"]
    return re.sub(r"\\(.)", lambda m: {"n": "\n", "t": "\t"}.get(m.group(1), m.group(1)),
                  literal["plain"])


def literals(path):
    return [meaning(x) for x in LITERAL.finditer(joined(path.read_text(encoding="utf-8")))]


def messages():
    """Each text of src/ with the file it is in."""
    return {text: path.name for path in sorted((ROOT / "src").iterdir())
            for text in literals(path) if WORDS.search(text)}


def expectations():
    """All that tests expect; regular expressions with and without their backslashes."""
    texts = [path.read_bytes().decode("utf-8", "replace")
             for path in (ROOT / "tests" / "golden").glob("*/expected/**/*") if path.is_file()]
    for path in (ROOT / "tests" / "unit").glob("*.*"):
        text = "\n".join(literals(path))
        texts += [text, re.sub(r"\\(\W)", r"\1", text)]
    texts += [text for path in (ROOT / "tests").glob("*/*.py") for text in literals(path)
              if path != pathlib.Path(__file__).resolve()]
    texts.append(NO_MEMORY)
    return "\0".join(texts)


class Messages(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.messages = messages()
        cls.expected = expectations()

    def testEachIsExpectedSomewhere(self):
        for text, file in self.messages.items():
            if text not in UNREACHABLE:
                with self.subTest(file=file, text=text):
                    self.assertTrue(text in self.expected, "no test expects it")

    def testUnreachableOnesExistAndAreNotExpected(self):
        for text in UNREACHABLE:
            with self.subTest(text=text):
                self.assertIn(text, self.messages)
                self.assertTrue(text not in self.expected, "a test does reach it")

    def testSearchSeesAMessageThatNoTestExpects(self):
        self.assertTrue("ERROR: The moon is full.\n" not in self.expected)
        self.assertRegex("ERROR: The moon is full.\n", WORDS)

    def testMessagesOfEachKindAreFound(self):
        """A pattern that finds nothing would pass the others."""
        for text in ("ERROR: No parameter is specified.\n", "#WARNING: No plot instructions given\n",
                     "no directory found\n", "' not understood.\n", "): All parameters are fixed\n",
                     "Error: Opening file '", "1/tcp is too short. Check the input file\n",
                     r"\xW\f{}/(2\xp\f{}) (Hz)"):
            self.assertIn(text, self.messages)


class Memory(unittest.TestCase):
    program = None

    def testWhatDoesNotFitIsReported(self):
        """One line of ten million words, with memory for the line but not for the words."""
        if b"__asan_init" in self.program.read_bytes():
            return  # the sanitizer needs more address space than any limit leaves
        with tempfile.TemporaryDirectory() as directory:
            path = pathlib.Path(directory, "long.in")
            path.write_bytes(b"# " * 10000000)
            limit = 200 << 20
            done = subprocess.run(
                [self.program, "-i", path, "-o", path.with_suffix(".out")], capture_output=True,
                check=False, stdin=subprocess.DEVNULL,
                preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_AS, (limit, limit)))
            self.assertFalse(path.with_suffix(".out").exists())
        self.assertEqual((done.returncode, done.stdout, done.stderr.decode()), (1, b"", NO_MEMORY))


if __name__ == "__main__":
    parser = argparse.ArgumentParser()
    parser.add_argument("--program", type=pathlib.Path, required=True, help="the program to start")
    options, rest = parser.parse_known_args()
    Memory.program = options.program.resolve()
    unittest.main(argv=[sys.argv[0], *rest])
