#!/usr/bin/env python3
"""Proves that run_golden.py sees what it is there to see. The program in these cases is the shell:
its arguments write whatever a test needs. --program is accepted and not used."""
# SPDX-License-Identifier: GPL-3.0-or-later
import os
import subprocess
import sys
import tempfile
import textwrap
import unittest

RUNNER = os.path.join(os.path.dirname(os.path.abspath(__file__)), "run_golden.py")


class GoldenRunner(unittest.TestCase):
    def setUp(self):
        scratch = tempfile.TemporaryDirectory()
        self.addCleanup(scratch.cleanup)
        self.directory = os.path.join(scratch.name, "a_case")
        os.mkdir(self.directory)

    def write(self, name, content):
        path = os.path.join(self.directory, name)
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, "w", encoding="utf-8", newline="") as file:
            file.write(content)

    def case(self, script, status=0, more="", expected=None):
        self.write("script", textwrap.dedent(script))
        self.write("case", f"why: test\nargs: script\nexit: {status}\n{more}")
        for name, content in (expected or {}).items():
            self.write("expected/" + name, content)

    def run_case(self, *options):
        return subprocess.run([sys.executable, RUNNER, "--program", "/bin/sh", *options,
                               self.directory], capture_output=True, text=True, check=False)

    def assert_passes(self):
        done = self.run_case()
        self.assertEqual((done.returncode, done.stdout, done.stderr), (0, "", ""))

    def assert_fails(self, *texts):
        done = self.run_case()
        self.assertEqual(done.returncode, 1, done.stdout + done.stderr)
        for text in texts:
            self.assertIn(text, done.stdout)

    def assert_faulty(self, text):
        done = self.run_case()
        self.assertEqual(done.returncode, 2, done.stdout + done.stderr)
        self.assertIn(text, done.stdout)

    # What passes.

    def test_same_streams_files_and_status_pass(self):
        self.case("""\
            echo out; echo err >&2; mkdir sub; echo 1 > sub/file; exit 3
            """, status=3, expected={"stdout": "out\n", "stderr": "err\n", "sub/file": "1\n"})
        self.assert_passes()

    def test_absent_streams_are_empty(self):
        self.case(":")
        self.assert_passes()

    def test_inputs_stand_beside_the_program_and_are_not_outputs(self):
        self.write("data/in", "text\n")
        self.case("cat data/in; ls", expected={"stdout": "text\ndata\nscript\n"})
        self.assert_passes()

    def test_program_is_called_dravo(self):
        self.write("case", "why: test\nargs: -c 'echo $0'\nexit: 0\n")
        self.write("expected/stdout", "dravo\n")
        self.assert_passes()

    def test_standard_input_is_empty(self):
        self.case("cat; echo end", expected={"stdout": "end\n"})
        self.assert_passes()

    def test_setup_and_environment_come_before_the_run(self):
        self.case("cat made; echo $A; echo $B", more="setup: echo x > made\nenv: A=1=2\nenv: B=c d\n",
                  expected={"stdout": "x\n1=2\nc d\n"})
        self.assert_passes()

    def test_empty_directory_can_be_expected(self):
        self.case("mkdir made", more="dir: made\n")
        self.assert_passes()

    # What fails.

    def test_wrong_byte_in_a_stream_fails(self):
        for stream in ("stdout", "stderr"):
            with self.subTest(stream):
                self.case("echo abc; echo abc >&2",
                          expected={"stdout": "abc\n", "stderr": "abc\n", stream: "abd\n"})
                self.assert_fails("expected/" + stream, "-'abd\\n'", "+'abc\\n'")

    def test_wrong_byte_in_a_file_fails(self):
        self.case("echo 'a  b' > file", expected={"file": "a b\n"})
        self.assert_fails("expected/file", "-'a b\\n'", "+'a  b\\n'")

    def test_missing_last_line_end_fails(self):
        self.case("printf abc", expected={"stdout": "abc\n"})
        self.assert_fails("-'abc\\n'", "+'abc'")

    def test_carriage_return_fails(self):
        self.case("printf 'abc\\r\\n'", expected={"stdout": "abc\n"})
        self.assert_fails("+'abc\\r\\n'")

    def test_bytes_that_are_not_utf8_are_compared(self):
        self.case("printf '\\351'", expected={"stdout": "\ufffd"})
        self.assert_fails("expected/stdout")

    def test_missing_file_fails(self):
        self.case(":", expected={"file": ""})
        self.assert_fails("not written: file (file)")

    def test_extra_file_fails_even_when_empty(self):
        self.case(": > file")
        self.assert_fails("written, but not expected: file (file)")

    def test_extra_file_below_a_directory_fails(self):
        self.case("mkdir sub; : > sub/one; : > sub/two", expected={"sub/one": ""})
        self.assert_fails("written, but not expected: sub/two (file)")

    def test_extra_directory_fails(self):
        self.case("mkdir made")
        self.assert_fails("written, but not expected: made (directory)")

    def test_changed_input_fails_unless_expected(self):
        self.write("in", "old\n")
        self.case("echo new > in")
        self.assert_fails("written, but not expected: in (file)")
        self.write("expected/in", "new\n")
        self.assert_passes()

    def test_removed_input_fails(self):
        self.write("in", "text\n")
        self.case("rm in")
        self.assert_fails("removed by the program: in")

    def test_link_in_place_of_a_file_fails(self):
        self.case("ln -s /dev/null file", expected={"file": ""})
        self.assert_fails("file: expected a file, got a link")

    def test_wrong_exit_status_fails(self):
        self.case("exit 1")
        self.assert_fails("exit status: expected 0, got 1")

    def test_death_by_signal_fails(self):
        self.case("kill -9 $$", status=1)
        self.assert_fails("exit status: expected 1, got -9")

    def test_run_without_end_fails(self):
        self.case("sleep 5")
        done = self.run_case("--timeout", "0.2")
        self.assertEqual(done.returncode, 1)
        self.assertIn("still running after 0.2 s", done.stdout)

    # Numbers with a tolerance.

    def compare_numbers(self, expected, actual, tolerance="1e-6"):
        self.write("data", actual)
        self.case("cat data > out", more=f"rel: {tolerance} out\n", expected={"out": expected})

    def test_number_within_the_tolerance_passes(self):
        self.compare_numbers("dw = 1355.611 (-1e-5)\n", "dw = 1355.612 (-1.0000001e-05)\n")
        self.assert_passes()

    def test_number_out_of_tolerance_fails(self):
        self.compare_numbers("dw = 1355.611\n", "dw = 1355.613\n")
        self.assert_fails("-'dw = 1355.611\\n'", "+'dw = 1355.613\\n'", "1e-06 relative")

    def test_small_number_is_compared_relative_to_itself(self):
        self.compare_numbers("1e-20\n", "1.1e-20\n")
        self.assert_fails()

    def test_sign_belongs_to_the_number(self):
        self.compare_numbers("x -5\n", "x +5\n")
        self.assert_fails()

    def test_tolerance_holds_for_the_named_file_only(self):
        self.compare_numbers("1.0000001\n", "1\n")
        self.assert_passes()
        self.write("script", "cat data > out; echo 1")
        self.write("expected/stdout", "1.0000001\n")
        self.assert_fails("expected/stdout")

    def test_tolerance_holds_for_streams(self):
        self.case("echo 1; echo 2 >&2", more="rel: 1e-6 stdout stderr\n",
                  expected={"stdout": "1.0000001\n", "stderr": "2.0000001\n"})
        self.assert_passes()

    def test_text_between_numbers_must_be_the_same(self):
        for actual in ("kex = 1 2\n", "dw= 1 2\n", "dw = 1  2\n", "dw = 1 2 \n", "dw = 1\t2\n",
                       "dw = 1 2 3\n", "dw = 1\n", "dw = 1 2", "dw = 1 2\n\n", "dw = 12\n"):
            with self.subTest(actual):
                self.compare_numbers("dw = 1 2\n", actual)
                self.assert_fails("expected/out")

    def test_digits_of_a_word_are_text(self):
        self.compare_numbers("R20_1000001 1\n", "R20_1000002 1\n", tolerance="1e-3")
        self.assert_fails()

    def test_nan_and_infinity_are_text(self):
        self.compare_numbers("nan inf\n", "nan inf\n")
        self.assert_passes()
        self.compare_numbers("inf\n", "1e300\n")
        self.assert_fails()

    def test_right_aligned_number_may_have_other_digits(self):
        self.compare_numbers("a   0.12345678 b\n", "a    0.1234568 b\n")
        self.assert_passes()
        self.compare_numbers("a   0.12345678 b\n", "a     0.1234568 b\n")
        self.assert_fails()

    def test_missing_file_fails_also_with_a_tolerance(self):
        self.case(":", more="rel: 1e-6 out\n", expected={"out": "1\n"})
        self.assert_fails("not written: out")

    # Masks.

    def test_masked_line_may_differ_but_not_be_absent(self):
        self.case("echo time 3; echo x", more="mask: ^time\n", expected={"stdout": "time 4\nx\n"})
        self.assert_passes()
        self.case("echo x", more="mask: ^time\n", expected={"stdout": "time 4\nx\n"})
        self.assert_fails("<masked>")

    def test_line_that_no_mask_matches_is_compared(self):
        self.case("echo at time 3", more="mask: ^time\n", expected={"stdout": "at time 4\n"})
        self.assert_fails()

    def test_duration_of_the_fit_is_masked_by_default(self):
        self.case("echo '# Fit duration 1 s'", expected={"stdout": "# Fit duration 2 s\n"})
        self.assert_passes()

    # Faulty cases and updates.

    def test_faulty_case_is_told_apart_from_a_difference(self):
        for text, message in (("args: x\nexit: 0\n", "no line 'why:'"),
                              ("why: x\nexit: 0\n", "no line 'args:'"),
                              ("why: x\nargs: x\n", "no line 'exit:'"),
                              ("why: x\nargs: x\nexit: 0\nexit: 1\n", "stands twice"),
                              ("why: x\nargs: x\nexit: 0\nmaks: x\n", "not understood"),
                              ("why: x\nargs: -c :\nexit: 0\nrel: 1e-6 out\n", "'rel:' names out"),
                              ("why: x\nargs: x\nexit: 0\nrel: 1.5 out\n", "between 0 and 1"),
                              ("why: x\nargs: x\nexit: 0\nsetup: false\n", "setup failed")):
            with self.subTest(message):
                self.write("case", text)
                self.assert_faulty(message)

    def test_expected_files_change_on_request_only(self):
        self.case("echo new; mkdir sub; echo 1 > sub/file", expected={"stdout": "old\n", "gone": ""})
        self.assert_fails()
        self.assert_fails()
        self.assertEqual(self.run_case("--update").returncode, 0)
        self.assert_passes()
        self.assertFalse(os.path.exists(os.path.join(self.directory, "expected", "gone")))

    def test_update_does_not_hide_a_wrong_exit_status(self):
        self.case("exit 4")
        self.assertEqual(self.run_case("--update").returncode, 1)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
