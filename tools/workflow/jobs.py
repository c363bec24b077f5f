"""One step of a workflow, for Snakefile: a fit, the joining of parts, or the collection of all runs.

    jobs.py fit NODE | join NODE | collect

The working directory is that of the results. plan.json there names the programs and all nodes; a node
NODE, as runs/d9 or parts/d9/L48, has recipes/NODE.json and inputs/NODE.in, and becomes the directory
NODE. This is made under another name, and NODE/status.json, which says that it is whole, comes with it.
"""
# SPDX-License-Identifier: GPL-3.0-or-later
import json
import os
import pathlib
import re
import shutil
import signal
import subprocess
import sys

sys.dont_write_bytecode = True
from inputs import Input  # noqa: E402
from outputs import (join_jackknives, join_reports, join_simulations,  # noqa: E402
                     join_simulations_of_sets, read_report, write_report)

PLAN = pathlib.Path("plan.json")
NOT_FINISHED = "did not finish: ended from outside (a limit of time or memory?); see the logs"
SAME_FIT = 1e-4  # of X2/DoF: beyond it parts of a Monte Carlo analysis began from different minima
SIMULATIONS = ("-monte", "-monte.sum", "-monte-final.out")
JACKKNIFE = ("-jack", "-jack.sum", "-jack-final.out")


def read_text(path):
    """Every byte comes back when the text is written: titles may be in any encoding."""
    return path.read_bytes().decode("utf-8", "surrogateescape")


def write_text(path, text):
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_bytes(text.encode("utf-8", "surrogateescape"))


def recipe_of(node):
    return json.loads(pathlib.Path("recipes", node + ".json").read_text())


def status_of(node):
    """What its status file says, or that it did not finish."""
    try:
        return json.loads(pathlib.Path(node, "status.json").read_text())
    except (FileNotFoundError, json.JSONDecodeError):
        return failure(recipe_of(node), NOT_FINISHED)


def failure(recipe, message):
    return {"state": "failed", "failures": [[recipe["label"], message]], "warnings": []}


class Workplace:
    """The directory in which a node is made; `finish` gives it its name."""

    def __init__(self, node):
        self.node = pathlib.Path(node)
        self.node.parent.mkdir(parents=True, exist_ok=True)
        # No node is named so: names made of titles have no ~.
        for old in self.node.parent.glob(self.node.name + "~*"):  # of a step that was stopped
            shutil.rmtree(old, ignore_errors=True)
        self.place = self.node.with_name(f"{self.node.name}~{os.getpid()}")
        self.place.mkdir()

    def finish(self, status):
        (self.place / "status.json").write_text(json.dumps(status, indent=1) + "\n")
        if self.node.exists():
            shutil.rmtree(self.node)
        self.place.rename(self.node)


# ---- a fit ----

def message_of(said, code):
    """What the program said when it failed: from its first error on, else its last words."""
    lines = [line for line in said.splitlines() if line.strip()]
    errors = [i for i, line in enumerate(lines) if re.search(r"error", line, re.IGNORECASE)]
    text = "\n".join(lines[errors[0]:][:4] if errors else lines[-3:])
    if code < 0:
        return (text + "\n" if text else "") + f"ended by signal {-code} ({signal.strsignal(-code)})"
    return text or f"ended with status {code} and no message"


def warnings_of(said):
    """The lines of a console, equal ones once."""
    lines = [line for line in said.splitlines() if line.strip()]
    return [line + (f" ({lines.count(line)} times)" if lines.count(line) > 1 else "")
            for line in dict.fromkeys(lines)]


def run_program(command, place, log):
    """Status of the program, which ends with this process."""
    with open(log, "wb") as console:
        child = subprocess.Popen(command, cwd=place, stdin=subprocess.DEVNULL, stdout=console,
                                 stderr=subprocess.STDOUT)
        signal.signal(signal.SIGTERM, lambda *_: sys.exit(143))
        try:
            return child.wait()
        finally:
            if child.poll() is None:
                child.kill()
                child.wait()


def starting_text(node, recipe):
    text = read_text(pathlib.Path("inputs", node + ".in"))
    if not recipe["start"]:
        return text
    fit = pathlib.Path(recipe["start"], recipe_of(recipe["start"])["name"] + ".out")
    values = [one.parameters() for one in read_report(read_text(fit), str(fit)).sets]
    return Input(text, recipe["label"]).started_at(values)


def fit(node):
    recipe, work = recipe_of(node), Workplace(node)
    if recipe["start"] and status_of(recipe["start"])["state"] != "good":
        work.finish({"state": "failed", "failures": [], "warnings": []})  # the fit is named, not this
        return
    name = recipe["name"]
    write_text(work.place / f"{name}.in", starting_text(node, recipe))
    log = work.place / f"{name}.log"
    program = json.loads(PLAN.read_text())["program"]
    code = run_program([program, "-i", f"{name}.in", "-o", f"{name}.out", *recipe["words"]],
                       work.place, log)
    said = log.read_text(errors="backslashreplace")
    if not said:
        log.unlink()
    if code == 0 and not (work.place / f"{name}.out").exists():
        status = failure(recipe, "it ended well but left no report: is it dravo?")
    elif code == 0:
        warnings = [] if recipe["start"] else [[recipe["label"], line] for line in warnings_of(said)]
        status = {"state": "good", "failures": [], "warnings": warnings}
    else:
        status = failure(recipe, message_of(said, code))
    work.finish(status)


# ---- joining ----

class Part:
    """A finished node that is joined to another one."""

    def __init__(self, node):
        self.stem = str(pathlib.Path(node, recipe_of(node)["name"] + ".out"))
        self.report = read_report(self.text(""), self.stem)

    def text(self, suffix):
        return read_text(pathlib.Path(self.stem + suffix))

    def has(self, suffixes):
        return all(os.path.exists(self.stem + suffix) for suffix in suffixes)

    def files(self, suffixes):
        return {suffix: self.text(suffix) for suffix in suffixes}


def merged(statuses, good):
    failures = [entry for status in statuses for entry in status["failures"]]
    warnings = [entry for status in statuses for entry in status["warnings"]]
    state = "failed" if not good else "partial" if failures else "good"
    return {"state": state, "failures": failures, "warnings": warnings}


def join(node):
    recipe, work = recipe_of(node), Workplace(node)
    joiner = {"sets": join_sets, "monte": join_monte}[recipe["kind"]]
    status, files, text, plots = joiner(node, recipe)
    name = recipe["name"]
    if files:
        write_text(work.place / f"{name}.in", text)
        for suffix, content in files.items():
            write_text(work.place / f"{name}.out{suffix}", content)
        for plot in plots:
            shutil.copyfile(plot, work.place / plot.name)
    work.finish(status)


def plots_of(node):
    return sorted(pathlib.Path(node).glob("*.xmgr"))


def join_sets(node, recipe):
    """(status, files, input, plots) of an input that was taken apart by its sets."""
    statuses = [status_of(child) for child in recipe["children"]]
    usable = [i for i, status in enumerate(statuses) if status["state"] != "failed"]
    text = read_text(pathlib.Path("inputs", node + ".in"))
    if not usable:
        return merged(statuses, False), {}, text, []
    parts = [Part(recipe["children"][i]) for i in usable]
    report = join_reports([part.report for part in parts], recipe["unused"])
    files = {"": write_report(report, recipe["digits"])}
    for suffixes, joined in ((JACKKNIFE, join_jackknives), (SIMULATIONS, join_simulations_of_sets)):
        if all(part.has(suffixes) for part in parts):
            files |= joined(report, [part.files(suffixes) for part in parts])
    if len(usable) < len(statuses):
        whole = Input(text, recipe["label"])
        text = whole.subset([whole.kept_sets()[i] for i in usable], recipe["noerr"])
    plots = [plot for i in usable for plot in plots_of(recipe["children"][i])]
    return merged(statuses, True), files, text, plots


def join_monte(node, recipe):
    """The same of a fit and its Monte Carlo analysis in parts."""
    text = read_text(pathlib.Path("inputs", node + ".in"))
    statuses = [status_of(child) for child in [recipe["fit"], *recipe["parts"]]]
    if statuses[0]["state"] != "good":
        return merged(statuses[:1], False), {}, text, []
    fitted = Part(recipe["fit"])
    report, parts = fitted.report, []
    for child, status in zip(recipe["parts"], statuses[1:]):
        if status["state"] != "good":
            continue
        part = Part(child)
        if abs(part.report.reduced - report.reduced) <= SAME_FIT * report.reduced:
            parts.append(part)
        else:
            status |= failure(recipe_of(child),
                              f"its own fit ends at X2/DoF = {part.report.reduced:g}, that of "
                              f"the others at {report.reduced:g}: the methods do not find one minimum")
    files = {"": write_report(report, recipe["digits"])}
    if fitted.has(JACKKNIFE):
        files |= fitted.files(JACKKNIFE)
    if parts:
        files |= join_simulations(report, [part.text("-monte") for part in parts],
                                  parts[0].text("-monte-final.out"))
    return merged(statuses, True), files, text, plots_of(recipe["fit"])


# ---- collection ----

def usable_runs(plan):
    return [run for run in plan["runs"]
            if pathlib.Path(run["node"], recipe_of(run["node"])["name"] + ".out").exists()
            and status_of(run["node"])["state"] != "failed"]


def report_command(plan, runs, *outputs):
    command = [plan["report_program"], *outputs]
    for run in runs:
        stem = f"{run['node']}/{recipe_of(run['node'])['name']}"
        command += [f"--input={stem}.in", f"--name={run['name']}", f"{stem}.out"]
    return command + (["--noerr"] if plan["noerr"] else [])


def call_report(plan, runs, *outputs):
    """What dravo-report complains of, or ""."""
    done = subprocess.run(report_command(plan, runs, *outputs), stdin=subprocess.DEVNULL,
                          capture_output=True)
    if done.returncode == 0:
        return ""
    # One that is killed says nothing.
    return done.stderr.decode(errors="backslashreplace").strip() or \
        f"dravo-report {message_of('', done.returncode)}"


def write_pages(plan, runs):
    """The page and the tables; returns [label, message] of runs that dravo-report refuses."""
    outputs = ("-o", "report.html", "--csv", "table.csv", "--json", "table.json")
    for name in outputs[1::2]:
        pathlib.Path(name).unlink(missing_ok=True)
    if not runs:
        return []
    complaint = call_report(plan, runs, *outputs)
    if not complaint:
        return []
    refused = []
    for run in runs:
        alone = call_report(plan, [run], "--csv", os.devnull)
        if alone:
            refused.append([run["name"], alone, run])
    if not refused:
        return [["all runs", complaint]]
    names = [entry[0] for entry in refused]
    return [entry[:2] for entry in refused] + \
        write_pages(plan, [run for run in runs if run["name"] not in names])


def named(entries):
    """A line for each [label, message]."""
    return [f"{label}: " + said.replace("\n", "\n    ") for label, said in entries]


def told(entries):
    """The same, but a message of several once."""
    labels = {}
    for label, said in entries:
        labels.setdefault(said, []).append(label)
    return named([own[0] + (f" and {len(own) - 1} more" if len(own) > 1 else ""), said]
                 for said, own in labels.items())


def text_report(plan, runs, failures, warnings):
    text = ""
    for run in runs:
        name = recipe_of(run["node"])["name"]
        text += f"==== {run['name']}\n\n{read_text(pathlib.Path(run['node'], name + '.out'))}\n"
    for heading, lines in (("Messages", told(warnings)), ("Failed", named(failures))):
        if lines:
            text += f"==== {heading}\n\n" + "\n".join(lines) + "\n\n"
    return text


def collect():
    """Writes the page, the tables and the text of all runs that are there, collected.json last."""
    plan = json.loads(PLAN.read_text())
    statuses = [status_of(run["node"]) for run in plan["runs"]]
    runs = usable_runs(plan)
    failures = [entry for status in statuses for entry in status["failures"]]
    warnings = plan["warnings"] + [entry for status in statuses for entry in status["warnings"]]
    failures += write_pages(plan, runs)
    write_text(pathlib.Path("report.txt"), text_report(plan, runs, failures, warnings))
    part = pathlib.Path("collected.json.part")
    part.write_text(json.dumps({"failures": failures, "warnings": warnings, "good": len(runs)}) + "\n")
    part.rename("collected.json")


def main():
    step, *nodes = sys.argv[1:]
    {"fit": fit, "join": join, "collect": collect}[step](*nodes)


if __name__ == "__main__":
    main()
