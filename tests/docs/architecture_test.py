#!/usr/bin/env python3
"""What docs/architecture.md says agrees with the sources, and its steps add a model.

Blocks of the page are tied to files by a comment in front of them, invisible where the page is shown:

    <!-- new: FILE -->                      the block is the file
    <!-- FILE, after: LINE -->              the block stands behind the line of this content
    <!-- FILE, before: LINE -->             ... in front of it
    <!-- FILE, in place of: LINE -->
    <!-- run -->                            a command, run when the model is built
    <!-- input -->                          what the program is given then
    <!-- part of the report -->             and what it must answer

They are applied to a copy of the sources in the build directory. Only what they change is compiled there,
with the commands of the build, and linked with the objects of the build: the one declaration that a model
adds to a class leaves the layout of its objects as it is.
"""
# SPDX-License-Identifier: GPL-3.0-or-later
import argparse
import concurrent.futures
import json
import pathlib
import re
import shlex
import shutil
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]
PAGE = ROOT / "docs" / "architecture.md"
BLOCK = re.compile(r"^<!-- (?P<mark>[^\n]*?) -->\n```\w+\n(?P<body>.*?)^```$", re.MULTILINE | re.DOTALL)
EDIT = re.compile(r"(?P<file>[\w/.]+), (?P<place>after|before|in place of): (?P<line>.*)")
OTHER_MARKS = ("run", "input", "part of the report")
UNIT_TEST = re.compile(r"^TEST(?:_[FP])?\((\w+), (\w+)\)", re.MULTILINE)

faults = []


def expect(holds, what):
    if not holds:
        faults.append(what)


def section(page, title):
    return re.search(rf"^## {title}\n(.*?)(?=^## |\Z)", page, re.MULTILINE | re.DOTALL)[1]


def rows(text):
    """Cells of all table rows but headers and rules."""
    cells = [[cell.strip() for cell in line.split("|")[1:-1]]
             for line in text.split("\n") if line.startswith("|")]
    return [row for row in cells if "`" in row[-1] or row[0].startswith("`")]


def test_files(page):
    listed = [row[0].strip("`") for row in rows(section(page, "Which file owns what"))
              if row[0].startswith("`")]
    present = {path.stem for path in (ROOT / "src").iterdir()}
    expect(sorted(listed) == sorted(present), f"files of the table and of src/: {set(listed) ^ present}")


def test_quirks(page):
    known = {f"golden.{case.parent.name}" for case in (ROOT / "tests" / "golden").glob("*/case")}
    for source in (ROOT / "tests" / "unit").glob("*_test.cpp"):
        known |= {".".join(name) for name in UNIT_TEST.findall(source.read_text())}
    table = [row for row in rows(section(page, "Quirks")) if not row[1].startswith("File")]
    expect(len(table) > 50, f"only {len(table)} quirks are read")
    for what, file, test in table:
        expect((ROOT / "src" / file.strip("`")).is_file(), f"{what}: there is no file {file}")
        expect(test.strip("`") in known, f"{what}: there is no test {test}")


# ---- the model ----

def same_line(line, wanted):
    return line.strip() == wanted.strip()


def edit(path, place, wanted, body):
    lines = path.read_text().splitlines(keepends=True)
    found = [i for i, line in enumerate(lines) if same_line(line, wanted)]
    if len(found) != 1:
        sys.exit(f"{path} has {len(found)} lines '{wanted}'")
    begin = found[0] + (place == "after")
    end = found[0] + (place != "before")
    path.write_text("".join(lines[:begin]) + body + "".join(lines[end:]))


class Copy:
    """The sources with the blocks of the page applied, and what is built from them."""

    def __init__(self, place, build):
        self.place, self.build = place, build
        self.changed = []
        shutil.rmtree(place, ignore_errors=True)
        shutil.copytree(ROOT / "src", place / "src")
        shutil.copytree(ROOT / "tests" / "unit", place / "tests" / "unit")
        golden = pathlib.Path("tests", "golden")
        shutil.copytree(ROOT / golden / "function_unknown", place / golden / "function_unknown")
        shutil.copy(ROOT / golden / "run_golden.py", place / golden)
        commands = json.loads((build / "compile_commands.json").read_text())
        # The list of commands leaves the compiler cache out.
        launcher = re.search(r"^CMAKE_CXX_COMPILER_LAUNCHER:\w+=(.*)$",
                             (build / "CMakeCache.txt").read_text(), re.MULTILINE)
        self.launcher = [launcher[1]] if launcher else []
        self.commands = {str(pathlib.Path(entry["file"]).relative_to(ROOT)): entry
                         for entry in commands if pathlib.Path(entry["file"]).is_relative_to(ROOT)}

    def apply(self, blocks):
        for mark, body in blocks:
            if mark.startswith("new: "):
                file = mark[len("new: "):]
                (self.place / file).write_text(body)
            elif match := EDIT.fullmatch(mark):
                file = match["file"]
                edit(self.place / file, match["place"], match["line"], body)
            elif mark in OTHER_MARKS:
                continue
            else:
                sys.exit(f"the page has a block marked '{mark}'")
            if file.endswith(".cpp") and file not in self.changed:
                self.changed.append(file)

    def object_of(self, file):
        return self.place / (pathlib.Path(file).stem + ".o")

    def compile(self, file):
        """With the command of the build for the file, or, for a new one, for one beside it."""
        folder = str(pathlib.Path(file).parent)
        entry = self.commands.get(file) or next(
            entry for name, entry in self.commands.items() if str(pathlib.Path(name).parent) == folder)
        command = entry.get("command") and shlex.split(entry["command"]) or entry["arguments"]
        command = command[:command.index("-o")]
        for part in ("src", "tests"):
            command = [word.replace(str(ROOT / part), str(self.place / part)) for word in command]
        command += ["-o", str(self.object_of(file)), "-c", str(self.place / file)]
        return subprocess.run(self.launcher + command, cwd=entry["directory"], capture_output=True, text=True)

    def compile_changed(self):
        with concurrent.futures.ThreadPoolExecutor(2) as pool:
            for file, done in zip(self.changed, pool.map(self.compile, self.changed)):
                if done.returncode != 0:
                    sys.exit(f"{file} is not compiled:\n{done.stdout}{done.stderr}")

    def link(self, target, folder):
        """The objects here stand first: of an archive only what is still missing is taken."""
        link = self.build / folder / "CMakeFiles" / f"{target}.dir" / "link.txt"
        here = [file for file in self.changed if file.startswith("src/") or folder == "tests"]
        replaced = {f"{pathlib.Path(file).name}.o" for file in here}
        words = [word for word in shlex.split(link.read_text())
                 if pathlib.Path(word).name not in replaced]
        output = words.index("-o")
        words[output:output + 2] = [*(str(self.object_of(file)) for file in here),
                                    "-o", str(self.place / target)]
        done = subprocess.run(words, cwd=self.build / folder, capture_output=True, text=True)
        if done.returncode != 0:
            sys.exit(f"{target} is not linked:\n{done.stdout}{done.stderr}")
        return self.place / target


def test_fit(program, place, input_text, report_part):
    (place / "toy.in").write_text(input_text)
    done = subprocess.run([program, "-i", "toy.in", "-o", "toy.out"], cwd=place,
                          capture_output=True, text=True)
    expect(done.returncode == 0 and not done.stderr, f"the fit: {done.returncode}, {done.stderr}")
    report = (place / "toy.out").read_text() if (place / "toy.out").exists() else ""
    expect(report_part in report, f"the page shows\n{report_part}\nbut the report is\n{report}")


def test_unit(tests, model):
    """The tests of the model, and those that go through all models."""
    wanted = [f"*{model}*", "*Registration*", "FuncLib*"]
    done = subprocess.run([tests, "--gtest_brief=1", f"--gtest_filter={':'.join(wanted)}"],
                          capture_output=True, text=True)
    expect(done.returncode == 0, f"the unit tests:\n{done.stdout}{done.stderr}")
    listed = subprocess.run([tests, "--gtest_list_tests", f"--gtest_filter=*{model}*"],
                            capture_output=True, text=True).stdout
    for suite in (model, f"Registration{model}", "Derivatives", "RecoveryOf"):
        expect(re.search(rf"^(?:\w+/)?{suite}\.", listed, re.MULTILINE),
               f"the model is in no test of {suite}:\n{listed}")


def test_golden(copy, program, command, model):
    expected = pathlib.Path("tests", "golden", "function_unknown", "expected", "stderr")
    words = [str(program) if word == "build/dev/dravo" else word for word in shlex.split(command)]
    done = subprocess.run([sys.executable, *words], cwd=copy.place, capture_output=True, text=True)
    expect(done.returncode == 0, f"{command}: {done.stdout}{done.stderr}")
    before, after = (ROOT / expected).read_text(), (copy.place / expected).read_text()
    expect(after == before.rstrip("\n") + f"'{model}' \n", f"the list of models is now {after}")


def main():
    model = "Isotherm"
    parser = argparse.ArgumentParser()
    parser.add_argument("--program", required=True)
    build = pathlib.Path(parser.parse_args().program).resolve().parent
    page = PAGE.read_text()
    test_files(page)
    test_quirks(page)

    blocks = BLOCK.findall(page)
    named = dict(blocks)
    copy = Copy(build / "architecture_test", build)
    copy.apply(blocks)
    copy.compile_changed()
    program = copy.link("dravo", ".")
    test_fit(program, copy.place, named["input"], named["part of the report"])
    test_golden(copy, program, named["run"], model)
    test_unit(copy.link("dravo_tests", "tests"), model)
    if faults:
        sys.exit("\n".join(faults))


if __name__ == "__main__":
    main()
