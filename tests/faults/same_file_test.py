#!/usr/bin/env python3
"""Two files of a run under one name: neither the input nor the report is overwritten."""
# SPDX-License-Identifier: GPL-3.0-or-later
import os

from fixture import Case, decay, files_below, is_whole, main

ANALYSES = "METHOD ONE\nJACK\nMONTE 10\n"
INPUT_LOST = "ERROR: Output file '{}' is the input file.\n"
REPORT_LOST = "ERROR: Output file '{}' is also the plot of a set.\n"


class Input(Case):

    def refuse(self, source, output, named, *options, text=decay()):
        """The run ends before it writes anything."""
        self.write(text, source)
        before = files_below(self.place)
        done = self.run_program(*options, files=("-i", source, "-o", output))
        self.assert_outcome(done, 1, INPUT_LOST.format(named))
        self.assertEqual(files_below(self.place), before)

    def test_is_the_report(self):
        self.refuse("t.in", "t.in", "t.in")
        self.refuse("t.in", "./t.in", "./t.in")
        self.refuse("t.in", str(self.place / "t.in"), f"{self.place}/t.in", "-vv")

    def test_is_the_report_by_a_link(self):
        (self.place / "soft").symlink_to("t.in")
        self.refuse("t.in", "soft", "soft")
        os.link(self.place / "t.in", self.place / "hard")
        self.refuse("t.in", "hard", "hard")
        self.refuse("soft", "hard", "hard")

    def test_is_a_file_of_an_analysis(self):
        for name in ("t-jack", "t-jack.sum", "t-jack-final.out",
                     "t-monte", "t-monte.sum", "t-monte-final.out"):
            with self.subTest(name):
                self.refuse(name, "t", name, text=decay(ANALYSES))

    def test_is_a_plot(self):
        self.refuse("two.xmgr", "t.out", "two.xmgr", "-xmgr", text=decay(titles=("one", "two")))

    def test_has_the_name_of_a_file_that_is_not_written(self):
        for name in ("t.out-jack", "t.out-monte.sum", "one.xmgr"):
            self.write(decay(), name)
            done = self.run_program(files=("-i", name, "-o", "t.out"))
            self.assert_outcome(done, 0, "")
            self.assertEqual((self.place / name).read_text(), decay())

    def test_is_no_file_of_which_anything_could_be_lost(self):
        done = self.run_program(files=("-i", "/dev/null", "-o", "/dev/null"))
        self.assertEqual(done.stderr, b"")


class Report(Case):

    def test_is_a_plot(self):
        self.write(decay(titles=("one", "two")))
        for name in ("two.xmgr", "./two.xmgr", "x/../two.xmgr", f"{self.place}/two.xmgr"):
            with self.subTest(name):
                done = self.run_program("-xmgr", files=("-i", "t.in", "-o", name))
                self.assert_outcome(done, 1, REPORT_LOST.format(name))
                self.assertEqual(list(files_below(self.place)), ["t.in"])

    def test_is_a_plot_of_the_same_name_elsewhere(self):
        self.write(decay("METHOD ONE\nPLOT fit\n"))
        (self.place / "sub").mkdir()
        done = self.run_program("-xmgr", files=("-i", "t.in", "-o", "sub/one.xmgr"))
        self.assert_outcome(done, 0, "")
        self.assertIn("Global X2/DoF", (self.place / "sub/one.xmgr").read_text())
        self.assertTrue(is_whole("one.xmgr", (self.place / "one.xmgr").read_bytes()))

    def test_has_the_name_of_a_plot_that_is_not_drawn(self):
        self.write(decay())
        done = self.run_program(files=("-i", "t.in", "-o", "one.xmgr"))
        self.assert_outcome(done, 0, "")


class Plots(Case):

    def test_of_sets_with_one_title_are_one_file(self):
        # The last set's is left; the others are in the report alone, which is said.
        self.write(decay("METHOD ONE\nPLOT fit\n", titles=("one", "two", "one", "one")))
        done = self.run_program("-xmgr")
        said = "WARNING (one): The plot overwrites that of another set with this title\n"
        self.assert_outcome(done, 0, 2 * said)
        self.assertEqual(sorted(files_below(self.place)),
                         ["one.xmgr", "t.in", "t.out", "two.xmgr"])
        self.assertEqual((self.place / "t.out").read_text().count("\nSET\tone\n"), 3)

    def test_that_are_not_drawn_need_no_warning(self):
        self.write(decay(titles=("one", "one")))
        self.assert_outcome(self.run_program(), 0, "")


class Stages(Case):

    def test_behind_a_link_leave_the_run_in_its_folder(self):
        self.write(decay())
        whole = self.reference("-vv")
        elsewhere = self.top / "elsewhere"
        (elsewhere / "deep").mkdir(parents=True)
        (elsewhere / "t.out").write_text("not of this run")
        (self.place / "01-INIT").symlink_to(elsewhere / "deep")
        done = self.run_program("-vv")
        self.assertEqual(done.returncode, 0)
        self.assertEqual((elsewhere / "t.out").read_text(), "not of this run")
        left = files_below(elsewhere / "deep")
        self.assertEqual(left, {"t.out": whole.pop("01-INIT/t.out")})
        (self.place / "01-INIT").unlink()
        self.assertEqual(files_below(self.place), whole)

    def test_behind_a_link_that_leads_nowhere_end_the_run(self):
        self.write(decay())
        (self.place / "01-INIT").symlink_to("nowhere")
        self.assert_fails(self.run_program("-vv"), "\nno directory found\n")


if __name__ == "__main__":
    main(__doc__)
