#!/usr/bin/env python3
"""Folders that may not be written, that vanish, and names that are paths."""
# SPDX-License-Identifier: GPL-3.0-or-later
import os
import shutil
import signal
import threading

from fixture import ALL_FIXED, NOBODY, Case, decay, files_below, is_whole, main, slow_jackknife


def as_nobody():
    """Permissions do not bind root."""
    if os.getuid() != 0:
        return {}
    return {"user": NOBODY, "group": NOBODY, "extra_groups": []}


class Unwritable(Case):

    def setUp(self):
        super().setUp()
        # Where another user can start it: the way to the build directory may be closed to him.
        shutil.copy(self.program, self.top / "dravo")
        self.program = str(self.top / "dravo")
        self.place.chmod(0o555)
        self.addCleanup(self.place.chmod, 0o755)

    def write(self, text, name="t.in"):
        path = super().write(text, name)
        path.chmod(0o444)

    def check(self, stderr, *options):
        done = self.run_program(*options, **as_nobody())
        self.assert_outcome(done, 1, stderr)
        self.assertEqual(list(files_below(self.place)), ["t.in"])

    def test_report(self):
        self.write(decay())
        self.check("Error: Opening file 't.out'\n")

    def test_stage_directory(self):
        self.write(ALL_FIXED)
        done = self.run_program("-vv", **as_nobody())
        self.assert_fails(done, "\nno directory found\n")
        self.assertEqual(os.listdir(self.place), ["t.in"])

    def test_running_file_plot_and_summary(self):
        """The report may be written, since it is there; nothing else may."""
        self.write(decay("METHOD ONE\nJACK\n"))
        report = self.place / "t.out"
        report.touch()
        report.chmod(0o666)
        for options, stderr in (((), "Error: Opening file 't.out-jack'\n"),
                                (("-xmgr",), "Error: Opening file 'one.xmgr'\n")):
            done = self.run_program(*options, **as_nobody())
            self.assert_outcome(done, 1, stderr)
            self.assertTrue(is_whole("t.out", report.read_bytes()))
        # With the running file there, too, only the summaries are missing, which is not said.
        running = self.place / "t.out-jack"
        running.touch()
        running.chmod(0o666)
        done = self.run_program(**as_nobody())
        self.assert_outcome(done, 0, "")
        self.assertTrue(is_whole("t.out-jack", running.read_bytes()))
        self.assertEqual(sorted(files_below(self.place)), ["t.in", "t.out", "t.out-jack"])

    def test_input(self):
        self.write(decay())
        (self.place / "t.in").chmod(0o200)
        self.check("ERROR: Unable to open 't.in'\n")


class Vanishing(Case):

    def vanish_in_jackknife(self, *options):
        """Removes the folder, with all in it, between two passes."""
        with open(self.top / "said", "wb") as said:
            running = self.start(*options, stderr=said)
        self.wait_for_pass(running)
        running.send_signal(signal.SIGSTOP)
        self.assertIsNone(running.poll())
        shutil.rmtree(self.place)
        running.send_signal(signal.SIGCONT)
        return running.wait(), (self.top / "said").read_text()

    def test_in_a_jackknife(self):
        # The running file was open; summaries that cannot be opened are passed over in silence.
        self.write(slow_jackknife())
        self.assertEqual(self.vanish_in_jackknife(), (0, ""))
        self.assertFalse(self.place.exists())

    def test_in_a_jackknife_with_plots(self):
        self.write(slow_jackknife("PLOT fit\n"))
        self.assertEqual(self.vanish_in_jackknife("-xmgr"),
                         (1, "Error: Opening file 'one.xmgr'\n"))

    def test_before_a_monte_carlo_analysis(self):
        self.write(slow_jackknife("MONTE 10\n"))
        self.assertEqual(self.vanish_in_jackknife(), (1, "Error: Opening file 't.out-monte'\n"))

    def test_a_folder_of_the_same_name_is_not_the_same_folder(self):
        self.write(slow_jackknife("MONTE 10\n"))
        running = self.start()
        self.wait_for_pass(running)
        running.send_signal(signal.SIGSTOP)
        self.place.rename(self.top / "moved")
        self.place.mkdir()
        running.send_signal(signal.SIGCONT)
        self.assertEqual(running.wait(), 0)
        self.assertEqual(files_below(self.place), {})
        for name, data in files_below(self.top / "moved").items():
            if name != "t.in":
                self.assertTrue(is_whole(name, data), name)

    def vanish_in_reading(self, *options):
        """Removes the folder while the input, a pipe, is read."""
        pipe = self.top / "pipe"
        os.mkfifo(pipe)

        def feed():
            with open(pipe, "wb") as out:
                shutil.rmtree(self.place)
                out.write(decay().encode())

        feeding = threading.Thread(target=feed)
        feeding.start()
        done = self.run_program(*options, files=("-i", str(pipe), "-o", "t.out"))
        feeding.join()
        self.assertFalse(self.place.exists())
        return done

    def test_before_the_fit(self):
        self.assert_outcome(self.vanish_in_reading(), 1, "Error: Opening file 't.out'\n")

    def test_before_the_stages(self):
        self.assert_fails(self.vanish_in_reading("-vv"), "\nno directory found\n")


class Paths(Case):

    def test_stages_and_a_report_in_a_subfolder(self):
        # Inside a stage directory there is no such subfolder.
        self.write(decay())
        (self.place / "sub").mkdir()
        done = self.run_program("-vv", files=("-i", "t.in", "-o", "sub/t.out"))
        self.assert_fails(done, "\nError: Opening file 'sub/t.out'\n")
        self.assertEqual(list(files_below(self.place)), ["t.in"])
        self.assertEqual(os.listdir(self.place / "01-INIT"), [])

    def test_stages_and_a_report_that_is_an_absolute_path(self):
        # Each stage writes it anew, the last time after the fit.
        self.write(decay())
        whole = self.reference()
        report = self.top / "elsewhere"
        done = self.run_program("-vv", files=("-i", "t.in", "-o", str(report)))
        self.assertEqual(done.returncode, 0)
        self.assertEqual(report.read_bytes().splitlines()[-1], whole["t.out"].splitlines()[-1])
        self.assertTrue(is_whole("t.out", report.read_bytes()))
        self.assertEqual(list(files_below(self.place)), ["t.in"])

    def test_stages_and_a_report_above(self):
        # ".." of a stage is the folder of the run; after the fit it is the folder above.
        self.write(decay())
        whole = self.reference("-vv")
        done = self.run_program("-vv", files=("-i", "t.in", "-o", "../t.out"))
        self.assertEqual(done.returncode, 0)
        left = files_below(self.place)
        self.assertEqual(sorted(left), ["t.in", "t.out"])
        self.assertEqual(left["t.out"], whole["02-ONE/t.out"])
        self.assertTrue(is_whole("t.out", (self.top / "t.out").read_bytes()))

    def test_an_analysis_beside_a_report_in_a_subfolder(self):
        self.write(decay("METHOD ONE\nJACK\n"))
        whole = self.reference()
        (self.place / "sub").mkdir()
        done = self.run_program(files=("-i", "t.in", "-o", "sub/t.out"))
        self.assert_outcome(done, 0, "")
        del whole["t.in"]
        self.assertEqual(files_below(self.place / "sub"), whole)

    def test_a_title_that_is_a_path_leaves_the_stages_in_their_folder(self):
        for number, title in enumerate(("../up", "sub/in", f"{self.top}/absolute", "../01-INIT/x")):
            with self.subTest(title):
                place = self.top / f"titles{number}" / "run"
                (place / "sub").mkdir(parents=True)
                (place / "t.in").write_text(decay(titles=(title,)))
                done = self.run_program("-vv", "-xmgr", place=place)
                self.assert_fails(done, f"\nError: Opening file '{title}.xmgr'\n")
                self.assertEqual(sorted(files_below(place.parent)),
                                 ["run/01-INIT/t.out", "run/t.in"])
        self.assertFalse((self.top / "absolute.xmgr").exists())


if __name__ == "__main__":
    main(__doc__)
