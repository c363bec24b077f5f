#!/usr/bin/env python3
"""Runs one golden case: starts the program in a fresh directory and compares all that it leaves.

usage: run_golden.py --program PATH [--update] CASE_DIRECTORY

README.md beside this file describes a case directory. Exit status: 0 as expected, 1 different,
2 the case itself is faulty.
"""
# SPDX-License-Identifier: GPL-3.0-or-later
import argparse
import difflib
import os
import re
import shlex
import shutil
import stat
import subprocess
import sys
import tempfile

DEFAULT_MASK = r"^# Fit duration .*"
MASKED = "<masked>"
STREAMS = ("stdout", "stderr")

# A number that stands alone: digits inside a word (R20, out.1) belong to the word.
NUMBER = r"(?<![A-Za-z0-9_.])[+-]?(?:\d+\.?\d*|\.\d+)(?:[eE][+-]?\d+)?(?![A-Za-z0-9_])"
FIELD = re.compile(r"( *)(" + NUMBER + ")")


class CaseError(Exception):
    """The case directory cannot be used as it is."""


class Case:
    """What the file `case` says."""

    def __init__(self, directory):
        self.directory = os.path.abspath(directory)
        self.why = None
        self.args = None
        self.exit = None
        self.setup = []
        self.env = {}
        self.dirs = []
        self.masks = [re.compile(DEFAULT_MASK)]
        self.tolerance = {}
        path = os.path.join(self.directory, "case")
        try:
            with open(path, encoding="utf-8") as lines:
                for number, line in enumerate(lines, 1):
                    self._read(line.rstrip("\n"), f"{path}:{number}")
        except OSError as error:
            raise CaseError(str(error)) from error
        for key in ("why", "args", "exit"):
            if getattr(self, key) is None:
                raise CaseError(f"{path}: no line '{key}:'")

    def _read(self, line, where):
        if not line.strip() or line.startswith("#"):
            return
        key, colon, value = line.partition(":")
        value = value.strip()
        reader = getattr(self, "_read_" + key, None) if colon else None
        if reader is None:
            raise CaseError(f"{where}: not understood: {line!r}")
        try:
            reader(value)
        except (ValueError, re.error) as error:
            raise CaseError(f"{where}: {error}") from error

    def _once(self, key, value):
        if getattr(self, key) is not None:
            raise ValueError(f"'{key}:' stands twice")
        setattr(self, key, value)

    def _read_why(self, value):
        self.why = value if self.why is None else self.why + "\n" + value

    def _read_args(self, value):
        self._once("args", shlex.split(value))

    def _read_exit(self, value):
        self._once("exit", int(value))

    def _read_setup(self, value):
        self.setup.append(value)

    def _read_env(self, value):
        name, equals, content = value.partition("=")
        if not equals:
            raise ValueError("expected NAME=VALUE")
        self.env[name] = content

    def _read_dir(self, value):
        self.dirs.append(value)

    def _read_mask(self, value):
        self.masks.append(re.compile(value))

    def _read_rel(self, value):
        tolerance, *names = value.split()
        if not names:
            raise ValueError("expected a tolerance and file names")
        if not 0 < float(tolerance) < 1:
            raise ValueError("the tolerance must lie between 0 and 1")
        for name in names:
            self.tolerance[name] = float(tolerance)


def describe(path):
    """Type and content of one path; links are not followed, special files are not opened."""
    mode = os.lstat(path).st_mode
    if stat.S_ISLNK(mode):
        return ("link", os.fsencode(os.readlink(path)))
    if stat.S_ISDIR(mode):
        return ("directory", b"")
    if not stat.S_ISREG(mode):
        return ("special file", b"")
    try:
        with open(path, "rb") as file:
            return ("file", file.read())
    except PermissionError:
        return ("unreadable file", b"")


def snapshot(top):
    """Path relative to top -> describe(), of everything below top."""
    found = {}
    for directory, subdirs, files in os.walk(top):
        for name in subdirs + files:
            path = os.path.join(directory, name)
            found[os.path.relpath(path, top)] = describe(path)
    return found


def copy_inputs(case, scratch):
    for name in os.listdir(case.directory):
        if name in ("case", "expected"):
            continue
        source = os.path.join(case.directory, name)
        target = os.path.join(scratch, name)
        if os.path.isdir(source):
            shutil.copytree(source, target, symlinks=True)
        else:
            shutil.copy2(source, target, follow_symlinks=False)


def remove_tree(top):
    """Removes a tree in which a case may have taken permissions away."""
    for directory, subdirs, _ in os.walk(top):
        for name in subdirs:
            path = os.path.join(directory, name)
            if not os.path.islink(path):
                os.chmod(path, 0o700)
    shutil.rmtree(top)


def run(case, program, timeout):
    """Returns exit status, the two streams, what was written or changed, what was removed."""
    scratch = tempfile.mkdtemp(prefix="golden-")
    try:
        copy_inputs(case, scratch)
        env = {**os.environ, "LC_ALL": "C", **case.env}
        for command in case.setup:
            subprocess.run(command, shell=True, cwd=scratch, env=env, check=True,
                           stdin=subprocess.DEVNULL)
        before = snapshot(scratch)
        # Messages show the name of the program as it was called.
        done = subprocess.run(["dravo", *case.args], executable=program, cwd=scratch, env=env,
                              stdin=subprocess.DEVNULL, capture_output=True, timeout=timeout,
                              check=False)
        after = snapshot(scratch)
    except subprocess.CalledProcessError as error:
        raise CaseError(f"setup failed: {error}") from error
    finally:
        remove_tree(scratch)
    written = {path: entry for path, entry in after.items() if before.get(path) != entry}
    removed = sorted(set(before) - set(after))
    return done.returncode, {"stdout": done.stdout, "stderr": done.stderr}, written, removed


def read_expected(case):
    """Returns the two expected streams and the expected paths."""
    top = os.path.join(case.directory, "expected")
    paths = snapshot(top)
    streams = {name: paths.pop(name, ("file", b""))[1] for name in STREAMS}
    for name in case.dirs:
        paths[os.path.normpath(name)] = ("directory", b"")
    return streams, paths


def masked_lines(case, content):
    """Lines of a file, each with its line end; what volatile lines say is taken out."""
    lines = []
    for line in content.decode("utf-8", "surrogateescape").split("\n"):
        volatile = any(mask.search(line) for mask in case.masks)
        lines.append((MASKED if volatile else line) + "\n")
    lines[-1] = lines[-1][:-1]  # the text after the last line end, usually empty
    return lines if lines[-1] else lines[:-1]


def same_field(expected, actual, tolerance):
    """Two numbers, each with the blanks before it.

    The blanks must be the same, or the number must end in the same column: a right-aligned number
    with fewer digits has more blanks before it.
    """
    aligned = expected[0] == actual[0] or len("".join(expected)) == len("".join(actual))
    a, b = float(expected[1]), float(actual[1])
    return aligned and (a == b or abs(a - b) <= tolerance * max(abs(a), abs(b)))


def same_but_for_digits(expected, actual, tolerance):
    """True when two lines have the same text between numbers that agree within the tolerance."""
    if FIELD.sub("\0", expected) != FIELD.sub("\0", actual):
        return False
    fields = zip(FIELD.findall(expected), FIELD.findall(actual))
    return all(same_field(a, b, tolerance) for a, b in fields)


def compare_content(case, name, expected, actual):
    """Returns the lines of a readable difference, none when the contents agree."""
    want, have = masked_lines(case, expected), masked_lines(case, actual)
    tolerance = case.tolerance.get(name)
    if tolerance is not None and len(want) == len(have):
        have = [a if same_but_for_digits(a, b, tolerance) else b for a, b in zip(want, have)]
    if want == have:
        return []
    diff = difflib.unified_diff([repr(line) for line in want], [repr(line) for line in have],
                                "expected/" + name, "actual " + name, lineterm="")
    note = [] if tolerance is None else [f"(numbers compared to {tolerance:g} relative)"]
    return note + list(diff)


def compare_paths(case, expected, actual):
    problems = []
    for path in sorted(set(expected) | set(actual)):
        if path not in actual:
            problems.append(f"not written: {path} ({expected[path][0]})")
        elif path not in expected:
            problems.append(f"written, but not expected: {path} ({actual[path][0]})")
            kind, content = actual[path]
            if kind == "file":
                problems += compare_content(case, path, b"", content)
        elif expected[path][0] != actual[path][0]:
            problems.append(f"{path}: expected a {expected[path][0]}, got a {actual[path][0]}")
        elif expected[path][0] == "file":
            problems += compare_content(case, path, expected[path][1], actual[path][1])
        elif expected[path] != actual[path]:
            problems.append(f"{path}: expected {expected[path]}, got {actual[path]}")
    return problems


def check_rel_names(case, expected):
    for name in case.tolerance:
        if name not in STREAMS and name not in expected:
            raise CaseError(f"'rel:' names {name}, which is not in expected/")


def compare(case, result):
    status, streams, written, removed = result
    expected_streams, expected_paths = read_expected(case)
    check_rel_names(case, expected_paths)
    problems = []
    if status != case.exit:
        problems.append(f"exit status: expected {case.exit}, got {status}")
    for name in STREAMS:
        problems += compare_content(case, name, expected_streams[name], streams[name])
    problems += compare_paths(case, expected_paths, written)
    problems += [f"removed by the program: {path}" for path in removed]
    return problems


def update(case, result):
    """Makes expected/ what the program left; the file `case` is never touched."""
    _, streams, written, _ = result
    top = os.path.join(case.directory, "expected")
    shutil.rmtree(top, ignore_errors=True)
    os.mkdir(top)
    contents = {name: ("file", content) for name, content in streams.items() if content}
    for path, (kind, content) in {**written, **contents}.items():
        target = os.path.join(top, path)
        os.makedirs(target if kind == "directory" else os.path.dirname(target), exist_ok=True)
        if kind == "link":
            os.symlink(os.fsdecode(content), target)
        elif kind == "file":
            with open(target, "wb") as file:
                file.write(content)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--program", required=True, help="the program to start")
    parser.add_argument("--update", action="store_true",
                        help="rewrite expected/ from this run; read every line of the result")
    parser.add_argument("--timeout", type=float, default=240.0, help="seconds for the program")
    parser.add_argument("case", help="directory of the case")
    options = parser.parse_args()
    try:
        case = Case(options.case)
        result = run(case, os.path.abspath(options.program), options.timeout)
        if options.update:
            update(case, result)
        problems = compare(case, result)
    except CaseError as error:
        print(f"faulty case: {error}")
        return 2
    except subprocess.TimeoutExpired as error:
        problems = [f"still running after {error.timeout:g} s"]
    if not problems:
        return 0
    print(f"{options.case}: {case.why}")
    print("command: dravo " + shlex.join(case.args))
    print("\n".join(problems))
    return 1


if __name__ == "__main__":
    sys.exit(main())
