#!/usr/bin/env python3
"""Input files that are none, that are enormous, and that change while they are read."""
# SPDX-License-Identifier: GPL-3.0-or-later
import os
import re
import resource
import signal
import subprocess
import threading

from fixture import Case, decay, files_below, is_whole, main

NO_PARAMETERS = b"#ERROR: More adjustable parameters than data points.\n"
NO_MEMORY = "ERROR: Unable to allocate memory\n"
LONG = 100 * 1000 * 1000


def titles(report):
    return re.findall(rb"^SET\t(.*)$", report, re.MULTILINE)


class Unreadable(Case):

    def refuse(self, name, stderr):
        done = self.run_program(files=("-i", name, "-o", "t.out"))
        self.assert_outcome(done, 1, stderr)
        self.assertEqual(done.stdout, b"")
        self.assertFalse((self.place / "t.out").exists())

    def test_what_is_no_file(self):
        (self.place / "folder").mkdir()
        (self.place / "link").symlink_to("folder")
        (self.place / "nowhere").symlink_to("missing")
        (self.place / "loop").symlink_to("loop")
        for name in ("folder", "folder/", "link", "nowhere", "loop", "missing", "", "/", "..",
                     "folder/t.in", "x" * 300, "x" * 5000):
            with self.subTest(name[:10]):
                self.refuse(name, f"ERROR: Unable to open '{name}'\n")
        self.refuse("/proc/self/mem", "ERROR: Unable to read '/proc/self/mem'\n")

    def test_nothing_in_it(self):
        for text in ("", "\n", "\r\n", " \t,\n", "# only this", "\n" * 100000):
            with self.subTest(text[:10]):
                self.write(text)
                done = self.run_program()
                self.assertEqual((done.returncode, done.stdout, done.stderr),
                                 (1, NO_PARAMETERS, b""))
        done = self.run_program(files=("-i", "/dev/null", "-o", "t.out"))
        self.assertEqual((done.returncode, done.stdout), (1, NO_PARAMETERS))

    def test_binary(self):
        # Its first line is no keyword, and is shown as it is.
        program = b"\x7fELF\x02\x01\x01\x00\x00\xff\xfe\x1b[31m"
        for data in (program, bytes(range(256)), b"\0" * 4096, b"\xef\xbb\xbfFUNCTION Linear"):
            with self.subTest(data[:10]):
                self.write(data)
                done = self.run_program()
                first = data.split(b"\n")[0]
                self.assertEqual(done.returncode, 1)
                self.assertTrue(done.stderr.startswith(b"ERROR: Keyword '"), done.stderr)
                self.assertTrue(done.stderr.endswith(b"Line 1: " + first + b"\n"), done.stderr)
        own = self.run_program(files=("-i", self.program, "-o", "t.out"))
        self.assertEqual(own.returncode, 1)
        self.assertTrue(own.stderr.startswith(b"ERROR: Keyword '\x7fELF"), own.stderr[:80])

    def test_bytes_behind_a_text_that_is_complete(self):
        self.write(decay().encode() + b"# \x00\xff\x80\n\x00")
        done = self.run_program()
        self.assertEqual((done.returncode, done.stderr),
                         (1, b"ERROR: Keyword '\x00' not recognized.\nLine 13: \x00\n"))


class Enormous(Case):

    def limited(self, megabytes):
        if self.sanitized:
            return None
        size = megabytes * 10**6
        return lambda: resource.setrlimit(resource.RLIMIT_AS, (size, size))

    def check_line(self, head, tail, status, megabytes, end):
        """A file of 100 MB whose last line has no end; the memory stays in proportion."""
        with open(self.place / "t.in", "wb") as out:
            out.write(head)
            for _ in range(100):
                out.write(tail * (LONG // 100 // len(tail)))
        with open(self.top / "said", "wb") as said:
            done = self.run_program(stderr=said, preexec_fn=self.limited(megabytes))
        with open(self.top / "said", "rb") as said:
            said.seek(-min(len(end), said.seek(0, os.SEEK_END)), os.SEEK_END)
            self.assertEqual((done.returncode, said.read()), (status, end))

    def test_one_line(self):
        complete = decay().encode()
        self.check_line(b"", b"x", 1, 1000, b"x" * 1000 + b"\n")
        self.check_line(complete + b"#", b"x", 0, 400, b"")
        self.check_line(complete + b"@", b"x", 0, 500, b"")
        self.check_line(complete, b"SET ", 1, 2600, b"SET SET \n")

    def test_a_line_without_end(self):
        if self.sanitized:
            self.skipTest("sanitizers reserve more memory than the limit")
        done = self.run_program(files=("-i", "/dev/zero", "-o", "t.out"),
                                preexec_fn=self.limited(200))
        self.assert_outcome(done, 1, "ERROR: Unable to read '/dev/zero'\n")

    def test_lines_without_end(self):
        if self.sanitized:
            self.skipTest("sanitizers reserve more memory than the limit")
        reader, writer = os.pipe()
        running = subprocess.Popen(
            [self.program, "-i", f"/dev/fd/{reader}", "-o", "t.out"], cwd=self.place,
            pass_fds=(reader,), stderr=subprocess.PIPE, preexec_fn=self.limited(100))
        os.close(reader)
        # Without a buffer: what it held would meet the closed pipe only when it is emptied.
        with open(writer, "wb", buffering=0) as out:
            try:
                out.write(b"FUNCTION Linear\nSET one\nFIXED a 1\nFIXED b 1\n")
                while True:
                    out.write(b"DATA 0 1 1 -\n" * 1000)
            except BrokenPipeError:
                pass
            said = running.communicate()[1].decode()
        self.assertEqual((running.returncode, said), (1, NO_MEMORY))


class Changing(Case):
    """The input is a pipe or a file that another program still writes."""

    def feed(self, pieces):
        os.mkfifo(self.place / "pipe")

        def write():
            with open(self.place / "pipe", "wb", buffering=0) as out:
                for piece in pieces:
                    out.write(piece)

        feeding = threading.Thread(target=write)
        feeding.start()
        done = self.run_program(files=("-i", "pipe", "-o", "t.out"))
        feeding.join()
        return done

    def test_a_pipe_gives_it_byte_by_byte(self):
        text = decay("METHOD GRID\n", titles=("one", "two"))
        self.write(text)
        whole = self.reference()
        done = self.feed([bytes([byte]) for byte in text.encode()])
        self.assert_outcome(done, 0, "")
        self.assertEqual(files_below(self.place)["t.out"], whole["t.out"])

    def test_a_pipe_that_ends_early(self):
        # The last line counts as it stands.
        done = self.feed([b"FUNCTION Constant\nSET one\nFIXED c 12\nDATA 0 12 1 -\nDATA 0 1"])
        self.assertEqual((done.returncode, done.stderr),
                         (1, b"ERROR: The number of parameters for 'DATA' is wrong.\n"
                             b"Line 5: DATA 0 1\n"))

    def change_while_read(self, change):
        """Stops the program in the middle of an input that is mostly comments, changes it."""
        first = decay(titles=("first",)).encode()
        last = decay(titles=("last",)).encode().partition(b"\n")[2]
        filler = b"# a comment that takes its time to be read\n" * 400000
        path = self.write(first + filler + last)
        length = path.stat().st_size
        running = self.start(stderr=subprocess.PIPE)
        position = 0

        def is_reading():
            nonlocal position
            try:
                for fd in os.listdir(f"/proc/{running.pid}/fd"):
                    if os.readlink(f"/proc/{running.pid}/fd/{fd}") == str(path.resolve()):
                        with open(f"/proc/{running.pid}/fdinfo/{fd}") as info:
                            position = int(info.readline().split()[1])
            except FileNotFoundError:
                return False
            return position > len(first) + 10**5

        self.wait_for(running, is_reading, "the comments")
        running.send_signal(signal.SIGSTOP)
        is_reading()
        self.assertLess(position, length - len(last), "too fast to be stopped")
        change(path, position)
        running.send_signal(signal.SIGCONT)
        said = running.communicate()[1]
        return running.returncode, said

    def assert_report_of(self, *names):
        report = (self.place / "t.out").read_bytes()
        self.assertEqual(titles(report), list(names))
        self.assertTrue(is_whole("t.out", report))

    def test_truncated_behind_what_was_read(self):
        def change(path, position):
            os.truncate(path, position + 129)
        # The cut goes through a comment, of which any beginning is a comment.
        self.assertEqual(self.change_while_read(change), (0, b""))
        self.assert_report_of(b"first")

    def test_truncated_to_nothing(self):
        self.assertEqual(self.change_while_read(lambda path, position: os.truncate(path, 0)),
                         (0, b""))
        self.assert_report_of(b"first")

    def test_appended_to(self):
        def change(path, position):
            with open(path, "ab") as out:
                out.write(decay(titles=("appended",)).encode().partition(b"\n")[2])
        self.assertEqual(self.change_while_read(change), (0, b""))
        self.assert_report_of(b"first", b"last", b"appended")

    def test_replaced(self):
        # What is read is the file that was opened.
        def change(path, position):
            (self.place / "new").write_text(decay(titles=("new",)))
            (self.place / "new").rename(path)
        self.assertEqual(self.change_while_read(change), (0, b""))
        self.assert_report_of(b"first", b"last")

    def test_removed(self):
        self.assertEqual(self.change_while_read(lambda path, position: path.unlink()), (0, b""))
        self.assert_report_of(b"first", b"last")


if __name__ == "__main__":
    main(__doc__)
