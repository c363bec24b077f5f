#!/usr/bin/env python3
"""A run that is ended from outside: finished passes are on disk, whole, and every loop ends."""
# SPDX-License-Identifier: GPL-3.0-or-later
import os
import signal
import time

from fixture import Case, decay, finished_passes, is_whole, main, slow_jackknife

HUGE = 10**18
PAGE = os.sysconf("SC_PAGE_SIZE")

# A block of some hundred kilobytes for each pass, far more than a stream buffers, and no fit that
# takes longer than writing it.
MANY_SETS = 2000
MANY_POINTS = 3
WIDE_JACKKNIFE = (
    "FUNCTION Linear\nJACK\nGPAR B 0.5 2 2\n" +
    "".join(f"SET s{s}\nFIXED a 1\nPAR b B\n" +
            "".join(f"DATA {x} {1 + x} 1 -\n" for x in range(MANY_POINTS))
            for s in range(MANY_SETS)))

# Loops that nothing but their count ends.
LONG = {
    "RANDOM": f"METHOD RANDOM {HUGE}\n",
    "MCMIN": f"METHOD ONE\nMETHOD MCMIN {HUGE} 0.1\n",
    "RMCMIN": f"METHOD RMCMIN {HUGE} {HUGE} 0.1\n",
    "MONTE": f"METHOD ONE\nMONTE {HUGE}\n",
    "MONTE1": f"METHOD ONE\nMONTE1 {HUGE}\n",
}
GRID = ("FUNCTION Exp2\nMETHOD GRID\nSET one\nPAR a 50 200 {points}\nPAR b -10 -1 1\n" +
        "".join(f"DATA {x} {100 - 100 * x} 1 -\n" for x in (0.1, 0.2, 0.3, 0.4)))


class Ended(Case):

    def end(self, signal_number, passes, *options):
        """Ends a jackknife after so many passes; returns how many are on disk."""
        (self.place / "t.out-jack").unlink(missing_ok=True)
        running = self.start(*options)
        self.wait_for_pass(running, passes)
        running.send_signal(signal_number)
        self.assertEqual(running.wait(), -signal_number)
        data = (self.place / "t.out-jack").read_bytes()
        done, rest = finished_passes(data)
        # A pass is one write. Only the system may cut it, between two pages.
        if len(data) % PAGE != 0:
            self.assertEqual(rest, b"", f"a torn line after {done} passes: {rest[-80:]}")
        self.assertGreaterEqual(done, passes)
        self.assertTrue(is_whole("t.out", (self.place / "t.out").read_bytes()))
        return done

    def test_a_jackknife_keeps_its_finished_passes(self):
        self.write(slow_jackknife())
        whole = self.reference_passes()
        for number in (signal.SIGTERM, signal.SIGINT, signal.SIGHUP, signal.SIGKILL):
            for passes in (1, 7, 20):
                with self.subTest(number=number, passes=passes):
                    self.assertLess(self.end(number, passes), whole)

    def reference_passes(self):
        return finished_passes(self.reference()["t.out-jack"])[0]

    def test_blocks_larger_than_the_buffer_are_not_torn(self):
        self.write(WIDE_JACKKNIFE)
        for passes in range(1, 13):
            with self.subTest(passes):
                self.end(signal.SIGKILL if passes % 2 else signal.SIGTERM, passes)

    def test_a_monte_carlo_analysis_keeps_its_finished_passes(self):
        self.write(decay(f"METHOD ONE\nMONTE {HUGE}\n"))
        running = self.start()
        self.wait_for_pass(running, 3, "t.out-monte")
        running.send_signal(signal.SIGTERM)
        self.assertEqual(running.wait(), -signal.SIGTERM)
        passes, rest = finished_passes((self.place / "t.out-monte").read_bytes())
        self.assertGreaterEqual(passes, 3)
        self.assertEqual(rest, b"")


class Endless(Case):

    def memory(self, running):
        """Resident memory in kB."""
        with open(f"/proc/{running.pid}/status") as status:
            return next(int(line.split()[1]) for line in status if line.startswith("VmRSS:"))

    def cpu_seconds(self, running):
        with open(f"/proc/{running.pid}/stat") as stat:
            fields = stat.read().rpartition(")")[2].split()
        return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")

    def check(self, text, *options):
        """Runs on, grows no more, and ends at once when it is told to."""
        self.write(text)
        for number in (signal.SIGINT, signal.SIGTERM):
            running = self.start(*options)
            self.wait_for(running, lambda: self.cpu_seconds(running) >= 0.1, "a tenth of a second")
            before = self.memory(running)
            self.wait_for(running, lambda: self.cpu_seconds(running) >= 0.3, "more time")
            if not self.sanitized:  # which keeps freed memory for a while
                self.assertLess(self.memory(running) - before, 1000, "kB in 0.2 s")
            told = time.monotonic()
            running.send_signal(number)
            self.assertEqual(running.wait(), -number)
            self.assertLess(time.monotonic() - told, 5.0)

    def test_counts_that_no_int_holds(self):
        for name, head in LONG.items():
            with self.subTest(name):
                self.check(decay(head))

    def test_a_grid_of_more_points_than_an_int_holds(self):
        self.check(GRID.format(points=HUGE))

    def test_a_grid_beyond_counting_is_an_error(self):
        self.write("FUNCTION Exp3\nMETHOD GRID\nSET one\n" +
                   "".join(f"PAR {name} -1 1 {HUGE}\n" for name in "abc") +
                   "".join(f"DATA {x} 1 1 -\n" for x in range(5)))
        done = self.run_program()
        self.assert_outcome(done, 1, "ERROR: The number of grid points is too large.\n")
        self.assertFalse((self.place / "t.out").exists())


if __name__ == "__main__":
    main(__doc__)
