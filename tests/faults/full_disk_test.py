#!/usr/bin/env python3
"""A disk that is full: the run ends with the name of the file that could not be written, and no
run that cut a file short ends with status 0."""
# SPDX-License-Identifier: GPL-3.0-or-later
import os
import resource
import subprocess
import unittest

from fixture import Case, PATIENCE, decay, files_below, is_whole, main

PAGE = os.sysconf("SC_PAGE_SIZE")

# In the order in which they are opened; the plot is opened again, to be appended to, after each
# analysis.
FILES = ("t.out", "one.xmgr", "t.out-jack", "t.out-jack.sum", "t.out-jack-final.out",
         "t.out-monte", "t.out-monte.sum", "t.out-monte-final.out")
SILENT = tuple(name for name in FILES if name.endswith((".sum", "-final.out")))
INPUT = decay("METHOD ONE\nJACK\nMONTE 10\nPLOT fit\n")

# A tmpfs of its own size, seen by this run alone; what it holds is copied out before it goes.
IN_TMPFS = """
mount -t tmpfs -o "$1" none disk && cd disk || exit 200
shift
"$@"
status=$?
cp -a . ../after || exit 201
exit "$status"
"""


def private_mounts():
    """The command that gives a process mounts of its own; null where that is not permitted."""
    for command in (["unshare", "--mount"], ["unshare", "--mount", "--map-root-user"]):
        try:
            tried = subprocess.run([*command, "mount", "-t", "tmpfs", "none", "/mnt"],
                                   capture_output=True, timeout=PATIENCE)
        except OSError:
            return None
        if tried.returncode == 0:
            return command
    return None


class FullDisk(Case):

    def check(self, done, left, silent=()):
        """Files that the run left are whole, but for the one that its message names."""
        failed = [name for name in FILES
                  if done.stderr.endswith(f"Error: Writing file '{name}'\n".encode())]
        refused = [name for name in FILES
                   if done.stderr.endswith(f"Error: Opening file '{name}'\n".encode())]
        self.assertEqual(done.returncode, 1 if failed or refused else 0, done.stderr)
        self.assertEqual(done.stderr.count(b"\n"), len(failed + refused), done.stderr)
        for name, data in left.items():
            if name not in failed:
                self.assertTrue(is_whole(name, data), f"{name} is cut short: {data[-80:]}")
        if done.returncode == 0:
            self.assertEqual(set(FILES) - set(left) - set(silent), set())
        return (failed + refused or ["none"])[0]

    def test_each_file_in_turn_is_on_a_full_disk(self):
        for name in FILES:
            with self.subTest(name):
                place = self.top / name
                place.mkdir()
                (place / "t.in").write_text(INPUT)
                (place / name).symlink_to("/dev/full")
                done = self.run_program("-xmgr", place=place)
                self.assert_outcome(done, 1, f"Error: Writing file '{name}'\n")

    def test_a_limit_of_the_file_size_is_a_full_disk(self):
        # Also where nothing can be mounted: each limit is met first by another file.
        whole = self.write_reference()
        met = set()
        lengths = {len(data) for data in whole.values()}
        ample = 10 * max(lengths)  # simulations differ from run to run
        for limit in sorted({0, ample} | {length - 1 for length in lengths}):
            place = self.top / str(limit)
            place.mkdir()
            (place / "t.in").write_text(INPUT)
            done = self.run_program(
                "-xmgr", place=place,
                preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (limit, limit)))
            left = files_below(place)
            del left["t.in"]
            met.add(self.check(done, left))
        self.assertLessEqual({"t.out", "one.xmgr", "none"}, met)

    def test_a_curve_of_more_points_than_any_disk_holds(self):
        # It stops where the disk is full, not after the last point.
        self.write(decay(f"PLOT fit 0 - 0 1 {10**18}\n"))
        limit = 10**6
        done = self.run_program(
            "-xmgr", preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (limit, limit)))
        self.assert_outcome(done, 1, "Error: Writing file 'one.xmgr'\n")
        self.assertEqual((self.place / "one.xmgr").stat().st_size, limit)

    def write_reference(self):
        self.write(INPUT)
        return {name: data for name, data in self.reference("-xmgr").items() if name in FILES}

    def sweep(self, option, sizes, silent=(), options=("-xmgr",)):
        """Runs on disks of growing size until one is large enough; returns what failed first."""
        mounts = private_mounts()
        if mounts is None:
            self.skipTest("no file system may be mounted here")
        met = []
        for size in sizes:
            place = self.top / f"{option}{size}"
            (place / "disk").mkdir(parents=True)
            (place / "t.in").write_text(INPUT)
            done = subprocess.run(
                [*mounts, "sh", "-c", IN_TMPFS, "sh", f"{option}={size}", self.program,
                 "-i", "../t.in", "-o", "t.out", *options],
                cwd=place, capture_output=True, timeout=PATIENCE)
            left = files_below(place / "after")
            met.append(self.check(done, left, silent))
            if met[-1] == "none" and set(FILES) <= set(left):
                break
        self.assertEqual(met[-1], "none", met)
        return met

    def test_space_runs_out_at_any_file(self):
        met = self.sweep("size", [PAGE * pages for pages in range(1, 40)])
        self.assertEqual(set(met), set(FILES) - {"t.out"} | {"none"})

    def test_files_cannot_be_created(self):
        # Summaries and final reports that cannot be opened are passed over without a word. One
        # inode is the root directory's.
        met = self.sweep("nr_inodes", range(1, 40), silent=SILENT)
        self.assertEqual(met, ["t.out", "one.xmgr", "t.out-jack", "t.out-monte", "t.out-monte",
                               "t.out-monte", "none", "none", "none"])

    def test_space_runs_out_in_a_stage_directory(self):
        mounts = private_mounts()
        if mounts is None:
            self.skipTest("no file system may be mounted here")
        self.write(decay("METHOD ONE\nMETHOD ONEEX\n"))
        (self.place / "disk").mkdir()
        done = subprocess.run(
            [*mounts, "sh", "-c", IN_TMPFS, "sh", f"size={2 * PAGE}", self.program,
             "-i", "../t.in", "-o", "t.out", "-vv"],
            cwd=self.place, capture_output=True, timeout=PATIENCE)
        self.assert_fails(done, "\nError: Writing file 't.out'\n")
        left = files_below(self.place / "after")
        self.assertEqual(list(left), ["01-INIT/t.out", "02-ONE/t.out", "03-ONEEX/t.out"])
        for stage in ("01-INIT", "02-ONE"):
            self.assertTrue(is_whole("t.out", left[f"{stage}/t.out"]))
        self.assertEqual(left["03-ONEEX/t.out"], b"")

    def test_the_console_is_a_full_disk(self):
        # What is lost is progress, not results.
        self.write(INPUT.replace("MONTE 10\n", ""))
        whole = self.reference("-xmgr")
        with open("/dev/full", "wb") as full:
            done = self.run_program("-v", "-xmgr", stdout=full, stderr=full)
        self.assertEqual(done.returncode, 0)
        self.assertEqual(files_below(self.place), whole)


if __name__ == "__main__":
    main(__doc__)
