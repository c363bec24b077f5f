#!/usr/bin/env python3
"""Changes the sources in small ways, one at a time, and tells which changes the tests do not notice.

Four kinds of change are made in equal numbers: arithmetic (operators and signs), comparison (with
&& and ||), constant (last digit one up or down) and index (one more or less). Within a kind every
place of src/ is as likely as any other, so a file counts by how much it computes; a fixed seed makes
the choice. A mutant that does not compile is replaced by the next place. assert() and code that only
reserves memory are left out, because no result depends on them.

The work is done on a copy below the build directory; the sources themselves stay as they are. Every
finished mutant is kept in results.json there, so that an interrupted run goes on where it was. A
change of src/ starts a new count.
"""
# SPDX-License-Identifier: GPL-3.0-or-later
import argparse
import concurrent.futures
import hashlib
import json
import os
import pathlib
import random
import re
import resource
import shutil
import signal
import subprocess
import sys
import threading
import time

sys.dont_write_bytecode = True  # leaves nothing beside the sources
import places  # noqa: E402  # after the line above

ROOT = pathlib.Path(__file__).resolve().parents[2]
KINDS = {"arithmetic": ("arithmetic",), "comparison": ("comparison", "logical"),
         "constant": ("constant",), "index": ("index",)}
NOT_COPIED = {".git", "build", "__pycache__"}
# -O1 without debugging information builds fastest; assertions as in the dev preset.
OPTIONS = ["-DCMAKE_BUILD_TYPE=Debug", "-DCMAKE_CXX_FLAGS_DEBUG=-O1 -w",
           "-DCMAKE_CXX_FLAGS=-D_GLIBCXX_ASSERTIONS", "-DDRAVO_TEST_SHARDS=2"]
# Tests that hardly notice a wrong number and take long: of how the program is installed, of its
# documents, and of whether it repeats itself. The pages of the report need a browser, which wants
# more memory than a mutant is given.
LEFT_OUT = {"install.copy", "install.run", "script.package_test", "script.architecture_test",
            "script.determinism_test", "script.report_test"}
# A test that needs this many times its usual processor time counts as failed.
PATIENCE = 5.0
SHORTEST_LIMIT = 20.0  # seconds
MEMORY = 4 << 30       # bytes, so that a mutant cannot fill the machine
FILE_SIZE = 1 << 28    # bytes


def sync(tree):
    """Makes `tree` a copy of the sources; files that are the same keep their time."""
    wanted = set()
    for directory, names, files in os.walk(ROOT):
        names[:] = [n for n in names if n not in NOT_COPIED]
        for name in files:
            source = pathlib.Path(directory, name)
            target = tree / source.relative_to(ROOT)
            wanted.add(target)
            if source.is_symlink() or not source.is_file():
                continue
            content = source.read_bytes()
            if not target.exists() or target.read_bytes() != content:
                target.parent.mkdir(parents=True, exist_ok=True)
                target.write_bytes(content)
                shutil.copymode(source, target)
    for path in tree.rglob("*"):
        if path.is_file() and path not in wanted and "__pycache__" not in path.parts:
            path.unlink()


class Job:
    """A command that succeeds as long as nothing is wrong."""

    def __init__(self, name, arguments, environment, directory):
        self.name = name
        self.arguments = arguments
        self.environment = environment
        self.directory = directory
        self.limit = 3600.0  # seconds of processor time of each of its processes


def limits(seconds):
    def apply():
        cpu = int(seconds) + 1
        resource.setrlimit(resource.RLIMIT_CPU, (cpu, cpu))
        resource.setrlimit(resource.RLIMIT_AS, (MEMORY, MEMORY))
        resource.setrlimit(resource.RLIMIT_FSIZE, (FILE_SIZE, FILE_SIZE))
        resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
    return apply


def failedTest(name, output, status):
    """Which test of the output failed, as far as it says."""
    found = re.findall(r"^\[  FAILED  \] ([^\s,]+)", output, re.MULTILINE)
    if found:
        return found[0]
    if name.startswith("unit"):
        started = re.findall(r"^\[ RUN      \] (\S+)", output, re.MULTILINE)
        return f"{started[-1] if started else name} (ended with status {status})"
    return name


class Runner:
    """Runs jobs on several processors until one fails."""

    def __init__(self, count, scratch):
        self.count = count
        self.scratch = scratch
        self.lock = threading.Lock()
        self.running = set()
        self.stopped = False

    def _start(self, job, output):
        with self.lock:
            if self.stopped:
                return None
            process = subprocess.Popen(
                job.arguments, cwd=job.directory, stdin=subprocess.DEVNULL, stdout=output,
                env={**os.environ, **job.environment, "TMPDIR": self.scratch},
                stderr=subprocess.STDOUT, start_new_session=True, preexec_fn=limits(job.limit))
            self.running.add(process)
            return process

    def _run(self, job):
        """Returns None, or what failed."""
        log = pathlib.Path(self.scratch, job.name + ".log")
        with open(log, "wb") as output:
            process = self._start(job, output)
            if process is None:
                return None
            try:
                # Wall time is for processes that wait; a busy machine needs its share too.
                status = process.wait(timeout=20 * job.limit + 60)
            except subprocess.TimeoutExpired:
                status = -signal.SIGKILL
            finally:
                self._kill(process)
        if status == 0 or self.stopped:
            return None
        if status in (-signal.SIGXCPU, -signal.SIGKILL):
            return f"{job.name} (time limit)"
        return failedTest(job.name, log.read_text(errors="replace"), status)

    def _kill(self, process):
        try:
            os.killpg(process.pid, signal.SIGKILL)  # the group that _start made
        except ProcessLookupError:
            pass
        process.wait()
        with self.lock:
            self.running.discard(process)

    def _stop(self):
        with self.lock:
            self.stopped = True
            running = list(self.running)
        for process in running:
            try:
                os.killpg(process.pid, signal.SIGKILL)
            except ProcessLookupError:
                pass

    def firstFailure(self, jobs):
        """Starts the jobs in their order; returns what failed first, or None."""
        shutil.rmtree(self.scratch, ignore_errors=True)
        os.makedirs(self.scratch)
        self.stopped = False
        waiting = iter(jobs)
        with concurrent.futures.ThreadPoolExecutor(self.count) as pool:
            active = {pool.submit(self._run, job) for _, job in zip(range(self.count), waiting)}
            while active:
                done, active = concurrent.futures.wait(
                    active, return_when=concurrent.futures.FIRST_COMPLETED)
                for future in done:
                    if future.result() is not None:
                        self._stop()
                        return future.result()
                    following = next(waiting, None)
                    if following is not None:
                        active.add(pool.submit(self._run, following))
        return None


def testJobs(build):
    """The jobs of all tests: the unit tests first, then golden runs, then scripts."""
    listed = subprocess.run(["ctest", "--test-dir", str(build), "--show-only=json-v1"],
                            capture_output=True, text=True, check=True)
    jobs = []
    for test in json.loads(listed.stdout)["tests"]:
        if test["name"] in LEFT_OUT:
            continue
        properties = {p["name"]: p["value"] for p in test.get("properties", [])}
        environment = dict(e.split("=", 1) for e in properties.get("ENVIRONMENT", []))
        environment.update({"GTEST_FAIL_FAST": "1", "GTEST_BRIEF": "0"})
        arguments = [a for a in test["command"] if not a.startswith("--gtest_brief")]
        jobs.append(Job(test["name"], arguments, environment,
                        properties.get("WORKING_DIRECTORY", str(build))))
    order = ("unit", "golden", "fuzz", "script", "install")
    return sorted(jobs, key=lambda job: order.index(job.name.partition(".")[0]))


def ownFilter(tree, file):
    """A filter of the unit tests in the files named after a source, or None."""
    stem = pathlib.Path(file).stem
    suites = set()
    for path in (tree / "tests" / "unit").glob(f"{stem}*_test.cpp"):
        suites.update(re.findall(r"^TEST(?:_[FP])?\((\w+),", path.read_text(), re.MULTILINE))
    return ":".join(f"{s}.*:*/{s}.*:{s}/*" for s in sorted(suites)) or None


class Campaign:
    def __init__(self, directory, count, seed, jobs):
        self.directory = directory
        self.tree = directory / "tree"
        self.build = directory / "build"
        self.results_file = directory / "results.json"
        self.count = count
        self.jobs = jobs
        self.runner = Runner(jobs, str(directory / "tmp"))
        sync(self.tree)
        self.texts = {p.name: p.read_text() for p in sorted((self.tree / "src").iterdir())}
        self.sequences = self._choose(seed)
        key = hashlib.sha256(json.dumps([seed, sorted(self.texts.items())]).encode()).hexdigest()
        self.results = {"sources": key, "seconds": {}, "mutants": {}}
        if self.results_file.exists():
            kept = json.loads(self.results_file.read_text())
            if kept["sources"] == key:
                self.results = kept
            else:
                self.results_file.rename(self.results_file.with_suffix(".old.json"))

    def _choose(self, seed):
        """For each kind all its places with one change each, in random order."""
        dice = random.Random(seed)
        everything = [p for name, text in self.texts.items() for p in places.places(name, text)]
        sequences = {}
        for kind, members in KINDS.items():
            chosen = [p for p in everything if p.kind in members]
            dice.shuffle(chosen)
            sequences[kind] = [(p, dice.choice(p.choices)) for p in chosen]
        return sequences

    def _save(self):
        partial = self.results_file.with_suffix(".new")
        partial.write_text(json.dumps(self.results, indent=1))
        partial.replace(self.results_file)

    @staticmethod
    def key(place, new):
        return f"{place.file}:{place.begin}:{place.old}:{new}"

    def selected(self):
        """The first places of each kind without those known not to compile."""
        wanted = []
        for sequence in self.sequences.values():
            usable = (m for m in sequence
                      if self.results["mutants"].get(self.key(*m), {}).get("outcome") != "invalid")
            wanted += [m for _, m in zip(range(self.count // len(self.sequences)), usable)]
        return wanted

    def compiled(self, target):
        done = subprocess.run(["cmake", "--build", str(self.build), "--parallel", str(self.jobs),
                               "--target", target], stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT, text=True, check=False)
        (self.directory / "build.log").write_text(done.stdout)
        return done.returncode == 0

    def prepare(self):
        """Builds the unchanged program and learns how long each test takes."""
        configure = ["cmake", "-S", str(self.tree), "-B", str(self.build), *OPTIONS]
        if shutil.which("ccache"):
            configure.append("-DCMAKE_CXX_COMPILER_LAUNCHER=ccache")
        subprocess.run(configure, stdout=subprocess.DEVNULL, check=True)
        if not self.compiled("all"):
            sys.exit(f"the unchanged sources do not build, see {self.directory}/build.log")
        tests = testJobs(self.build)
        seconds = self.results["seconds"]
        short = [job for job in tests if job.name.startswith("golden")]
        for job in tests:
            if job not in short and job.name not in seconds:
                seconds[job.name] = self._timed(job)
                self._save()
            job.limit = max(SHORTEST_LIMIT, PATIENCE * seconds.get(job.name, 0.0))
        failure = self.runner.firstFailure(short)
        if failure:
            sys.exit(f"{failure} fails without any change")
        return tests

    def _timed(self, job):
        before = resource.getrusage(resource.RUSAGE_CHILDREN)
        failure = self.runner.firstFailure([job])
        if failure:
            sys.exit(f"{failure} fails without any change")
        after = resource.getrusage(resource.RUSAGE_CHILDREN)
        return after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime

    def _verdict(self, tests, file):
        """The test that fails, or None. A changed header rebuilds every unit test, so the golden
        runs, which need the program alone, come first then."""
        units = [job for job in tests if job.name.startswith("unit")]
        others = [job for job in tests if not job.name.startswith("unit")]
        own = ownFilter(self.tree, file)
        if own:
            environment = {k: v for k, v in units[0].environment.items() if "SHARD" not in k}
            first = Job("unit.own", [*units[0].arguments, f"--gtest_filter={own}"], environment,
                        units[0].directory)
            first.limit = units[0].limit * len(units)
        if not file.endswith(".h"):
            failure = self.runner.firstFailure([first]) if own else None
            return failure or self.runner.firstFailure(units + others)
        failure = self.runner.firstFailure(others)
        if failure is None and not self.compiled("all"):
            return "invalid"
        return failure or self.runner.firstFailure(units)

    def tryMutant(self, tests, place, new):
        """Returns ("invalid" | "caught" | "survived", test)."""
        text = self.texts[place.file]
        path = self.tree / "src" / place.file
        path.write_text(text[:place.begin] + new + text[place.end:])
        try:
            if not self.compiled("dravo" if place.file.endswith(".h") else "all"):
                return "invalid", ""
            failure = self._verdict(tests, place.file)
        finally:
            path.write_text(text)
        if failure == "invalid":
            return "invalid", ""
        return ("survived", "") if failure is None else ("caught", failure)

    def run(self, limit, again):
        tests = self.prepare()
        mutants = self.results["mutants"]
        made = 0
        while True:
            if again:
                pending = [m for m in self.selected() if "again" not in mutants[self.key(*m)] and
                           mutants[self.key(*m)]["outcome"] == "survived"]
            else:
                pending = [m for m in self.selected() if self.key(*m) not in mutants]
            # Neighbours share a file: it is compiled once for each, not restored in between.
            pending.sort(key=lambda m: (m[0].file, m[0].begin))
            if not pending or (limit and made == limit):
                return
            for place, new in pending[:limit - made if limit else None]:
                start = time.monotonic()
                outcome, test = self.tryMutant(tests, place, new)
                entry = {"outcome": outcome, "by": test, "line": place.line, "kind": place.kind,
                         "change": self.describe(place, new)}
                if again:
                    mutants[self.key(place, new)]["again"] = entry
                else:
                    mutants[self.key(place, new)] = entry
                self._save()
                made += 1
                print(f"{place.file}:{place.line} {entry['change']}: {outcome} {test} "
                      f"[{time.monotonic() - start:.0f} s]", flush=True)

    def describe(self, place, new):
        """The changed line, the change in brackets."""
        text = self.texts[place.file]
        first = text.rfind("\n", 0, place.begin) + 1
        last = text.find("\n", place.end)
        before, after = text[first:place.begin].strip(), text[place.end:last].strip()
        return f"{before[-30:]}⟦{place.old} → {new}⟧{after[:30]}"

    def table(self):
        """The results as Markdown."""
        rows = ["| place | kind | change | caught by | caught after |", "|---|---|---|---|---|"]
        caught = after = 0
        chosen = [(m, self.results["mutants"].get(self.key(*m))) for m in self.selected()]
        for (place, _), entry in sorted((m, e) for m, e in chosen if e):
            again = entry.get("again", {})
            caught += entry["outcome"] == "caught"
            after += "caught" in (entry["outcome"], again.get("outcome"))
            change = entry["change"].replace("|", "\\|")
            rows.append(f"| {place.file}:{place.line} | {entry['kind']} | `{change}` | "
                        f"{entry['by'] or '**none**'} | {again.get('by', '')} |")
        total = sum(1 for _, e in chosen if e)
        return "\n".join([*rows, "", f"{caught} of {total} caught at first, {after} afterwards."])


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--count", type=int, default=80, help="mutants, a multiple of 4")
    parser.add_argument("--seed", type=int, default=20260101)
    parser.add_argument("--directory", type=pathlib.Path, default=ROOT / "build" / "mutants")
    parser.add_argument("--jobs", type=int, default=os.cpu_count() or 1)
    parser.add_argument("--limit", type=int, default=0, help="stop after this many mutants")
    parser.add_argument("--again", action="store_true",
                        help="try the survivors again, with the tests as they are now")
    parser.add_argument("--table", action="store_true", help="print what is known and end")
    options = parser.parse_args()
    campaign = Campaign(options.directory.resolve(), options.count, options.seed, options.jobs)
    if not options.table:
        campaign.run(options.limit, options.again)
    print(campaign.table())


if __name__ == "__main__":
    main()
