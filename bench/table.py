#!/usr/bin/env python3
"""Runs every benchmark once and prints a table of ratios, which mean the same on every machine.

Kernels come from the benchmark programs, whole runs from the program itself on the inputs of
inputs.py. Every result is checked before its time counts.
"""
# SPDX-License-Identifier: GPL-3.0-or-later
import argparse
import concurrent.futures
import json
import os
import pathlib
import re
import subprocess
import sys
import time

import inputs

REPEATS = 9  # of each kernel; the shortest counts, as on a shared machine it is the truest


class Run:
    """CPU seconds, wall seconds and peak megabytes of one run of a command."""

    def __init__(self, command, cwd):
        os.chdir(cwd)
        words = [str(word) for word in command]
        # Spawned, not forked: the memory of this process would count as the child's.
        start = time.perf_counter()
        pid = os.posix_spawn(words[0], words, os.environ, file_actions=[
            (os.POSIX_SPAWN_OPEN, 1, "said", os.O_WRONLY | os.O_CREAT | os.O_TRUNC, 0o666),
            (os.POSIX_SPAWN_DUP2, 1, 2)])
        _, status, usage = os.wait4(pid, 0)
        self.wall = time.perf_counter() - start
        said = pathlib.Path("said").read_text(errors="replace")
        if status != 0 or said:
            sys.exit(f"{' '.join(words)}: status {status}, said {said}")
        self.cpu = usage.ru_utime + usage.ru_stime
        self.megabytes = usage.ru_maxrss / 1024


class Bench:
    def __init__(self, build, work):
        self.build = build
        self.work = work
        self.program = build / "dravo"

    def run(self, job, *options):
        return Run([self.program, "-i", f"{job}.in", "-o", f"{job}.out", *options], self.work)

    def best(self, job, repeats):
        return min((self.run(job) for _ in range(repeats)), key=lambda run: run.cpu)

    def report(self, job):
        return (self.work / f"{job}.out").read_text()

    def kernels(self, program, *arguments, only="."):
        """The shortest time of each kernel in ns, and its counters."""
        done = subprocess.run(
            [self.build / "bench" / program, f"--benchmark_repetitions={REPEATS}",
             "--benchmark_min_time=0.05", "--benchmark_format=json",
             f"--benchmark_filter={only}", *arguments],
            cwd=self.work, stdout=subprocess.PIPE, check=True)
        unit = {"ns": 1.0, "us": 1e3, "ms": 1e6}
        found = {}
        for entry in json.loads(done.stdout)["benchmarks"]:
            if entry["run_type"] != "iteration":
                continue
            entry["ns"] = entry["cpu_time"] * unit[entry["time_unit"]]
            name = entry["run_name"]
            if name not in found or entry["ns"] < found[name]["ns"]:
                found[name] = entry
        return found


def sets_of(report):
    """{set: {parameter: value}} of a report, and the lines of each set."""
    values, texts = {}, {}
    for block in report.split("\nSET\t")[1:]:
        title, *lines = block.split("\n")
        texts[title] = [line for line in lines if line.startswith("\t")]
        values[title] = {m[1]: float(m[2])
                         for m in re.finditer(r"^\t(\S+)\t *(\S+) \(", block, re.MULTILINE)}
    return values, texts


class Table:
    def __init__(self):
        self.rows = []

    def add(self, what, figure, target="", note=""):
        self.rows.append((what, figure, target, note))
        print(f"{what}: {figure} {f'({target})' if target else ''} {note}".rstrip(), flush=True)

    def markdown(self):
        lines = ["| what | measured | to reach | from |", "|---|---|---|---|"]
        lines += ["| " + " | ".join(row) + " |" for row in self.rows]
        return "\n".join(lines) + "\n"


def kernel_rows(bench, table):
    floors = bench.kernels("Floors_bench", "global20.in", "global20_counting.in", "million.in")
    models = bench.kernels("FuncLib_bench",
                           only="^(CPMG_matrix3|CPMG_temp3|MQCPMG_Matrix[23]_p)/")

    def ns(name):
        return (floors.get(name) or models[name])["ns"]

    def ratio(what, above, below, target):
        table.add(what, f"{ns(above) / ns(below):.2f}", target,
                  f"{ns(above):.0f} ns over {ns(below):.0f} ns")

    ratio("CPMG_Richards, value, over its transcendental calls",
          "two_sites/model/value", "two_sites/floor/value", "")
    ratio("CPMG_Richards, value and 4 derivatives, over theirs",
          "two_sites/model/derivatives", "two_sites/floor/derivatives", "at most 1.6")
    fit = floors["two_sites/fit"]
    per_call = fit["ns"] / fit["calls"]
    floor = ns("two_sites/floor/derivatives")
    table.add("the same, each call of a whole global fit, all included", f"{per_call / floor:.2f}",
              "at most 2.2", f"{per_call:.0f} ns over {floor:.0f} ns, {fit['calls']:.0f} calls")
    for model, target in (("CPMG_matrix3", "at least 7"), ("CPMG_temp3", "at least 7"),
                          ("MQCPMG_Matrix2_p", ""), ("MQCPMG_Matrix3_p", "")):
        ratio(f"{model} with derivatives: gain of kept decompositions",
              f"{model}/derivatives/new", f"{model}/derivatives/same", target)
    ratio("a random draw: gain over a fresh engine", "draw/floor", "draw/dravo", "at least 5")
    ratio("reading 1,000,000 DATA lines, over getline and strtod",
          "reading/dravo", "reading/floor", "at most 3")


def size_rows(bench, table):
    million = bench.run("million")
    table.add("memory of a run with 1,000,000 DATA lines", f"{million.megabytes:.0f} MB",
              "at most 250 MB")
    bench.run("sets10")
    expected = sets_of(bench.report("sets10"))[1]
    per_set = {}
    for sets in (10, 100, 1000, 10000, 30000):
        job = f"sets{sets}"
        run = bench.best(job, 9 if sets <= 1000 else 3)
        found = sets_of(bench.report(job))[1]
        if any(found[f"s{k}"] != expected[f"s{k % 10}"] for k in range(sets)):
            sys.exit(f"{job}: equal sets have different results")
        per_set[sets] = run.cpu / sets
        table.add(f"{sets} local sets of four parameters", f"{1e6 * per_set[sets]:.0f} us a set",
                  "at most 1 GB", f"{run.cpu:.2f} s, {run.megabytes:.0f} MB")
    table.add("time of a set, 30,000 sets over 100 sets",
              f"{per_set[30000] / per_set[100]:.2f}", "at most 1.5")
    runs = {sets: bench.best(f"shared{sets}", 3) for sets in (100, 1000)}
    table.add("the same with shared kex and papb, 1,000 sets over 100",
              f"{runs[1000].cpu / runs[100].cpu / 10:.2f}", "at most 1.5",
              f"{runs[1000].cpu:.2f} s, {runs[1000].megabytes:.0f} MB")


def fit_rows(bench, table, known):
    for job, what in (("global64", "global fit of 64 residues, 2,048 points, ONEEX"),
                      ("grid20", "global fit of 20 residues, 600 points, GRID and ONEEX")):
        run = Run([bench.program, "-i", f"{job}.in", "-o", f"{job}.out", "-prec", "16"],
                  bench.work)
        excess = known[job].chi2(sets_of(bench.report(job))[0]) - known[job].minimum
        if not abs(excess) < 1e-6:
            sys.exit(f"{job}: chi-square is {excess:g} from the known minimum")
        table.add(what, f"{run.cpu:.2f} s", "within 1e-6",
                  f"chi-square {excess:+.1e} from the known minimum")
    run = bench.best("local64", 5)
    table.add("local fits of the same 64 residues", f"{run.cpu:.3f} s")
    run = bench.run("three_sites")
    table.add("three-site global fit, 5 residues, ONE", f"{run.cpu:.2f} s")


def jackknife_row(bench, table):
    run = bench.run("jack20")
    passes = bench.work / "jack20.out-jack.sum"
    if not passes.exists():
        sys.exit("jack20: there is no summary")
    table.add("jackknife of the 20 residues, 600 passes", f"{run.cpu:.0f} s")


def start_row(bench, table):
    commands = {"empty": [bench.build / "bench" / "empty"],
                "dravo": [bench.program, "-i", "three_points.in", "-o", "three_points.out"]}
    shortest = dict.fromkeys(commands, float("inf"))
    for _ in range(500):  # in turn: whatever slows the machine slows both
        for name, command in commands.items():
            shortest[name] = min(shortest[name], Run(command, bench.work).wall)
    table.add("start to exit with three points, over an empty program",
              f"{shortest['dravo'] / shortest['empty']:.2f}", "at most 3",
              f"{1e3 * shortest['dravo']:.2f} ms over {1e3 * shortest['empty']:.2f} ms")


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("build", type=pathlib.Path, help="build directory of the preset bench")
    parser.add_argument("--quick", action="store_true", help="without the jackknife")
    arguments = parser.parse_args()
    build = arguments.build.resolve()
    work = build / "jobs"
    # In a process of its own: a child's peak memory is at least its parent's.
    with concurrent.futures.ProcessPoolExecutor(1) as other:
        known = other.submit(inputs.write_all, work).result()
    for stale in work.glob("*.out*"):
        stale.unlink()
    bench, table = Bench(build, work), Table()
    kernel_rows(bench, table)
    start_row(bench, table)
    size_rows(bench, table)
    fit_rows(bench, table, known)
    if not arguments.quick:
        jackknife_row(bench, table)
    (build / "table.md").write_text(table.markdown())
    print(f"\n{table.markdown()}\nThis table is {build / 'table.md'}")


if __name__ == "__main__":
    main()
