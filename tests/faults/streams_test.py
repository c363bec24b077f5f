#!/usr/bin/env python3
"""Standard streams that are closed or that nobody reads: the fit goes on with the same files."""
# SPDX-License-Identifier: GPL-3.0-or-later
import os
import subprocess
import threading

from fixture import Case, decay, files_below, is_whole, main

# b is known from the last point alone: a pass without it has no standard errors and says so.
SINGULAR_PASS = ("FUNCTION Linear\nMETHOD ONE\nJACK\nSET one\nPAR a 0 10\nPAR b 0 10\n"
                 "DATA 0 1 1 -\nDATA 0 1.1 1 -\nDATA 0 0.9 1 -\nDATA 1 2 1 -\n")
SAID = b"ERROR: Standard deviations cannot be computed for SET 'one'\n"
SILENT = {name: subprocess.DEVNULL for name in ("stdin", "stdout", "stderr")}
NO_INSTRUCTION = b"#WARNING: No plot instructions given\n"


class Streams(Case):

    def test_messages_of_a_closed_stream_reach_no_file(self):
        self.write(SINGULAR_PASS)
        whole = self.reference("-xmgr")
        told = self.run_program("-xmgr")
        self.assertIn(SAID, told.stderr)  # while the running file is open
        self.assertEqual(told.stdout, NO_INSTRUCTION)  # while the plot is open
        for closed in ((0,), (1,), (2,), (1, 2), (0, 1, 2)):
            for options in ((), ("-v",)):
                with self.subTest(closed=closed, options=options):
                    done = self.run_program("-xmgr", *options, **SILENT,
                                            preexec_fn=lambda: [os.close(fd) for fd in closed])
                    self.assertEqual(done.returncode, 0)
                    self.assertEqual(files_below(self.place), whole)

    def test_stages_with_all_streams_closed(self):
        self.write(decay("METHOD GRID\nMETHOD ONEEX\n"))
        whole = self.reference("-vv", "-xmgr")
        done = self.run_program("-vv", "-xmgr", **SILENT,
                                preexec_fn=lambda: os.closerange(0, 3))
        self.assertEqual(done.returncode, 0)
        self.assertEqual(files_below(self.place), whole)

    def test_an_error_with_a_closed_standard_error_has_its_status(self):
        self.write("NONSENSE\n")
        done = self.run_program(stderr=subprocess.DEVNULL, preexec_fn=lambda: os.close(2))
        self.assertEqual((done.returncode, done.stdout), (1, b""))
        self.assertEqual(list(files_below(self.place)), ["t.in"])

    def test_nobody_reads_the_console(self):
        self.write(SINGULAR_PASS)
        whole = self.reference("-xmgr")
        for streams in (("stderr",), ("stdout",), ("stdout", "stderr")):
            with self.subTest(streams):
                reader, writer = os.pipe()
                os.close(reader)
                done = self.run_program("-v", "-xmgr", **{name: writer for name in streams})
                os.close(writer)
                self.assertEqual(done.returncode, 0)
                self.assertEqual(files_below(self.place), whole)

    def test_the_reader_of_the_console_leaves_midway(self):
        self.write(decay("METHOD GRID\nJACK\n", titles=[f"s{i}" for i in range(50)]))
        whole = self.reference()
        reader, writer = os.pipe()

        def read_some():
            os.read(reader, 100)
            os.close(reader)

        leaving = threading.Thread(target=read_some)
        leaving.start()
        done = self.run_program("-v", stderr=writer)
        os.close(writer)
        leaving.join()
        self.assertEqual(done.returncode, 0)
        self.assertEqual(files_below(self.place), whole)

    def test_a_report_that_nobody_reads_is_an_error(self):
        titles = [f"s{i}" for i in range(3000)]  # more than a pipe holds
        self.write(decay("", titles=titles))
        os.mkfifo(self.place / "t.out")

        def read_some():
            with open(self.place / "t.out", "rb") as report:
                report.read(10)

        leaving = threading.Thread(target=read_some)
        leaving.start()
        done = self.run_program()
        leaving.join()
        self.assert_outcome(done, 1, "Error: Writing file 't.out'\n")

    def test_a_report_through_a_pipe_is_whole(self):
        self.write(decay("", titles=[f"s{i}" for i in range(3000)]))
        whole = self.reference()
        done = self.run_program(files=("-i", "t.in", "-o", "/dev/stdout"))
        self.assert_outcome(done, 0, "")
        self.assertTrue(is_whole("t.out", done.stdout))
        self.assertEqual(len(done.stdout.splitlines()), len(whole["t.out"].splitlines()))


if __name__ == "__main__":
    main(__doc__)
