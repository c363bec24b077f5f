"""What the fault tests share: inputs, runs of the program, and what a whole file is."""
# SPDX-License-Identifier: GPL-3.0-or-later
import argparse
import os
import pathlib
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import unittest

NOBODY = 65534
PATIENCE = 120  # seconds; only a run that hangs takes them

# y = a exp(b x), near a = 100 and b = -5.
DECAY = ((0.0, 101), (0.1, 60), (0.2, 37), (0.3, 22), (0.4, 14), (0.5, 8))
ALL_FIXED = "FUNCTION Constant\nSET one\nFIXED c 1\nDATA 0 3 0.5 -\nDATA 1 2 0.5 -\n"


def decay(head="METHOD ONE\n", titles=("one",), points=DECAY):
    """A fit of one exponential for each title; all methods that `head` names run."""
    data = "".join(f"DATA {x} {y} 1 -\n" for x, y in points)
    sets = "".join(f"SET {title}\nPAR a 50 200 3\nPAR b -10 -1 3\n{data}" for title in titles)
    return f"FUNCTION Exp2\n{head}{sets}"


def slow_jackknife(head=""):
    """A local jackknife that takes about a second: there is time to disturb it."""
    points = [(0.01 * i, 100 * 0.95 ** i + i % 3) for i in range(60)]
    return decay(f"METHOD RANDOM 60\nJACK\n{head}", points=points)


def mask_duration(data):
    return re.sub(rb"^# Fit duration .*$", b"", data, flags=re.MULTILINE)


def files_below(place):
    """Bytes of every file, by its path; durations left out."""
    return {str(path.relative_to(place)): mask_duration(path.read_bytes())
            for path in sorted(place.rglob("*")) if path.is_file()}


# How each file ends when nothing of it is missing.
GLOBAL_END = rb"Global X2/DoF\t\S+ \(DoF = \d+\)\n\Z"
ENDS = ((".sum", rb"Global X2/DoF = \S+  \(\S+\)\n\Z"),
        ("-final.out", GLOBAL_END),
        (".out", GLOBAL_END),
        (".xmgr", rb'@ STRING DEF "[^"]*"\n@ STRING on\n\Z'))
# Of a plot's text column: the heading, two parameters, the reduced chi-square.
COLUMN = 4
PASS_END = re.compile(rb"^#\d+: GLOBAL X2/DoF\t\S+\t\(DoF = \d+\)\n\n", re.MULTILINE)


def is_whole(name, data):
    """True when a report, plot or summary has its last line."""
    for suffix, end in ENDS:
        if name.endswith(suffix):
            columns_whole = data.count(b"@ STRING DEF") % COLUMN == 0
            return re.search(end, data) is not None and columns_whole
    if name.endswith(("-jack", "-monte")):
        promised = re.match(rb"(?:Jackknife|Monte Carlo) simulations \((\d+)\)\n", data)
        passes, rest = finished_passes(data)
        return promised is not None and passes == int(promised.group(1)) and rest == b""
    raise ValueError(name)


def finished_passes(data):
    """Number of finished passes in a running file, and what stands behind the last of them."""
    ends = [found.end() for found in PASS_END.finditer(data)]
    first_line = data.find(b"\n") + 1
    return len(ends), data[ends[-1] if ends else first_line:]


class Case(unittest.TestCase):
    """A fresh directory for each test, and the program."""

    program = None
    sanitized = False  # AddressSanitizer reserves terabytes: no limit of the address space

    def setUp(self):
        self.top = pathlib.Path(tempfile.mkdtemp(prefix="dravo_"))
        self.top.chmod(0o755)
        self.addCleanup(shutil.rmtree, self.top, ignore_errors=True)
        self.place = self.top / "run"
        self.place.mkdir()

    def write(self, text, name="t.in"):
        path = self.place / name
        if isinstance(text, str):
            text = text.encode()
        path.write_bytes(text)
        return path

    def run_program(self, *options, place=None, files=("-i", "t.in", "-o", "t.out"), **how):
        how.setdefault("timeout", PATIENCE)
        for stream in ("stdout", "stderr"):
            how.setdefault(stream, subprocess.PIPE)
        done = subprocess.run([self.program, *files, *options], cwd=place or self.place, **how)
        for stream in (done.stdout, done.stderr):
            self.assertNotIn(b"Sanitizer", stream or b"")
            self.assertNotIn(b"runtime error", stream or b"")
        return done

    def start(self, *options, **how):
        """Starts the program; it is killed when the test ends."""
        for stream in ("stdout", "stderr"):
            how.setdefault(stream, subprocess.DEVNULL)
        running = subprocess.Popen([self.program, "-i", "t.in", "-o", "t.out", *options],
                                   cwd=self.place, preexec_fn=default_signals, **how)
        self.addCleanup(running.wait)
        self.addCleanup(running.kill)
        return running

    def wait_for(self, running, happened, what):
        """Waits until `happened` of a running program; fails when it ends before that."""
        limit = time.monotonic() + PATIENCE
        while not happened():
            self.assertIsNone(running.poll(), f"the run ended before {what}")
            self.assertLess(time.monotonic(), limit, f"waited in vain for {what}")
            time.sleep(0.001)

    def wait_for_pass(self, running, passes=1, name="t.out-jack"):
        path = self.place / name
        self.wait_for(running, lambda: path.exists()
                      and finished_passes(path.read_bytes())[0] >= passes, f"pass {passes}")

    def reference(self, *options, name="reference"):
        """The files of an undisturbed run on the same input."""
        place = self.top / name
        place.mkdir()
        shutil.copy(self.place / "t.in", place)
        done = self.run_program(*options, place=place)
        self.assertEqual(done.returncode, 0, done.stderr)
        return files_below(place)

    def assert_outcome(self, done, status, stderr):
        said = done.stderr.decode(errors="replace")
        self.assertEqual((done.returncode, said), (status, stderr))

    def assert_fails(self, done, *ends):
        """Status 1, and the last words on standard error are one of `ends`."""
        said = done.stderr.decode(errors="replace")
        self.assertEqual(done.returncode, 1, said[-1000:])
        self.assertTrue(said.endswith(ends), said[-1000:])


def default_signals():
    # Shells start background jobs with SIGINT ignored, nohup with SIGHUP: it would be inherited.
    for number in (signal.SIGINT, signal.SIGHUP):
        signal.signal(number, signal.SIG_DFL)


def main(doc):
    parser = argparse.ArgumentParser(description=doc)
    parser.add_argument("--program", required=True)
    options, rest = parser.parse_known_args()
    Case.program = str(pathlib.Path(options.program).resolve())
    Case.sanitized = b"__asan_init" in pathlib.Path(options.program).read_bytes()
    os.environ.pop("LC_ALL", None)
    unittest.main(argv=[sys.argv[0], *rest])
