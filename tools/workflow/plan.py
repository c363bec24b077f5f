"""The plan of a call: which fits are made, of which inputs, and what is joined from them.

A node, as runs/d9 or parts/d9/L48, is a fit, or is joined from others; jobs.py makes it from its recipe
and its input. Both are written only where they change, so that what is there already is not made again.
"""
# SPDX-License-Identifier: GPL-3.0-or-later
import dataclasses
import json
import pathlib
import re

from inputs import Input, InputError, counts_of
from jobs import read_text, write_text
from outputs import EXACT_DIGITS, USUAL_DIGITS

LONGEST_NAME = 100  # of a directory that is made of a title or file name
LONGEST_TITLE = 250  # of a plot file, without its extension: file systems allow 255 bytes


class Names:
    """File names made of titles: safe in every shell and file system, and each different."""

    def __init__(self):
        self.taken = set()

    def __call__(self, text):
        safe = re.sub(r"[^A-Za-z0-9._+-]", "_", text)[:LONGEST_NAME]
        safe = re.sub(r"(.+?)\1{9,}", r"\1", safe)  # 20 times the same is refused by snakemake
        safe = re.sub(r"^[.-]", "_", safe) or "_"
        name, number = safe, 2
        while name.lower() in self.taken:  # some file systems do not tell A from a
            name, number = f"{safe}-{number}", number + 1
        self.taken.add(name.lower())
        return name


@dataclasses.dataclass
class Node:
    recipe: dict  # what jobs.py reads
    text: str     # of its input
    after: list   # names of the nodes it is made from


class Plan:
    """All nodes of a call, by name; children before what they are joined to."""

    def __init__(self, chosen):
        self.chosen = chosen
        self.nodes, self.runs, self.warnings = {}, [], []
        safe = Names()
        stems = [pathlib.Path(path).stem for path in chosen.inputs]
        names = [safe(stem) for stem in stems]
        for path, stem, name in zip(chosen.inputs, stems, names):
            text = read_text(pathlib.Path(path))
            # In the tables a run has the name of its input, unless this is also that of another.
            own = stems.count(stem) == 1 and stem not in set(names) - {name}
            self.runs.append({"node": f"runs/{name}", "name": stem if own else name})
            self.add_run(name, path, text)

    def words(self, exact, plots):
        digits = EXACT_DIGITS if exact else self.chosen.prec
        return ([] if digits is None else ["-prec", str(digits)]) + \
            (["-noerr"] if self.chosen.noerr else []) + (["-xmgr"] if plots else [])

    def add(self, node, kind, label, text, after, **more):
        recipe = {"kind": kind, "label": label, "name": node.split("/", 1)[1].replace("/", "."), **more}
        self.nodes[node] = Node(recipe, text, after)

    def plots(self, text, label):
        """Plot files bear the titles: one that cannot be a file name would end the run."""
        if self.chosen.no_plots:
            return False
        try:
            titles = Input(text, label).titles()
        except InputError:
            return True  # the program will say what is wrong
        for title in titles:
            if "/" in title or "\0" in title or len(title.encode(errors="surrogateescape")) > LONGEST_TITLE:
                self.warnings.append([label, f"no plots: the title '{title}' cannot be a file name"])
                return False
        return True

    def add_run(self, name, path, text):
        node = f"runs/{name}"
        if not self.chosen.split_sets:
            self.add_fit(node, path, text, False, f"parts/{name}/")
            return
        whole = Input(text, path)
        whole.check_local()
        for one in whole.sets:
            if not one.keeps():
                self.warnings.append([path, f"WARNING: Too few data points. '{one.title}' is omitted."])
        names, children = Names(), []
        for one in whole.kept_sets():
            child = f"parts/{name}/{names(one.title)}"
            children.append(child)
            self.add_fit(child, f"{path}, set {one.title}", whole.subset([one], self.chosen.noerr), True,
                         child + "@")
        self.add(node, "sets", path, text, children, children=children, unused=whole.unused(),
                 digits=self.digits(False), noerr=self.chosen.noerr)

    def digits(self, exact):
        if exact:
            return EXACT_DIGITS
        return USUAL_DIGITS if self.chosen.prec is None else self.chosen.prec

    def add_fit(self, node, label, text, exact, prefix):
        """One fit, or a fit and the parts of its simulations, whose nodes begin with `prefix`."""
        plots = self.plots(text, label)
        counts = self.counts(text, label)
        if len(counts) < 2:
            self.add(node, "fit", label, text, [], words=self.words(exact, plots), start=None)
            return
        whole = Input(text, label)
        fitted = prefix + "fit"
        self.add(fitted, "fit", label, whole.without_simulations(), [], words=self.words(True, plots),
                 start=None)
        # Simulations of MONTE1 need the values of the fit alone; others repeat its search.
        start = fitted if whole.simulations()[0] == "MONTE1" else None
        parts, first = [], 1
        for i, count in enumerate(counts, 1):
            parts.append(f"{prefix}monte-{i:0{len(str(len(counts)))}}")
            self.add(parts[-1], "fit", f"{label}, simulations {first} to {first + count - 1}",
                     whole.with_simulations(count), [start] if start else [],
                     words=self.words(True, False), start=start)
            first += count
        self.add(node, "monte", label, text, [fitted, *parts], fit=fitted, parts=parts,
                 digits=self.digits(exact))

    def counts(self, text, label):
        if self.chosen.split_monte == 1:
            return [1]
        found = Input(text, label).simulations()
        if found is None:
            self.warnings.append([label, "has no MONTE or MONTE1 line: it is one part"])
            return [1]
        return counts_of(found[1], self.chosen.split_monte, label)

    def write(self, programs):
        """Into the working directory. A file that is there with this content stays as it is, since a
        newer one would have everything made again that depends on it."""
        for name, node in self.nodes.items():
            write_if_new(pathlib.Path("recipes", name + ".json"), json.dumps(node.recipe, indent=1) + "\n")
            write_if_new(pathlib.Path("inputs", name + ".in"), node.text)
        nodes = {name: {"step": "fit" if node.recipe["kind"] == "fit" else "join", "after": node.after}
                 for name, node in self.nodes.items()}
        plan = {"format": 1, "runs": self.runs, "nodes": nodes, "warnings": self.warnings,
                "noerr": self.chosen.noerr, "minutes": self.chosen.time,
                "memory_mb": self.chosen.memory, **programs}
        write_if_new(pathlib.Path("plan.json"), json.dumps(plan, indent=1) + "\n")


def write_if_new(path, text):
    try:
        if read_text(path) == text:
            return
    except FileNotFoundError:
        pass
    write_text(path.with_name(path.name + ".part"), text)
    path.with_name(path.name + ".part").replace(path)
