#!/usr/bin/env python3
"""The Debian package installs, and what it installs works.

CPack builds the package of the build directory that the program is in; dpkg installs it into an empty
folder with a database of its own, which starts as a copy of this machine's, so that the dependencies
are really checked.
"""
# SPDX-License-Identifier: GPL-3.0-or-later
import argparse
import math
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parents[2]
EXAMPLE = "fyn_d9_15n_sq_cpmg"
CHI2, DOF = 18.206445, 35  # of the example, by other software
# dpkg looks for its helpers where administrators have them.
ENVIRONMENT = dict(os.environ, PATH=os.environ["PATH"] + ":/usr/sbin:/sbin", LC_ALL="C")


def run(command, **options):
    done = subprocess.run([str(word) for word in command], env=ENVIRONMENT, text=True,
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT, **options)
    if done.returncode != 0:
        sys.exit(f"{command[0]} ended with status {done.returncode}:\n{done.stdout}")
    return done.stdout


def build_package(build, place):
    run(["cpack", "--config", build / "CPackConfig.cmake", "-B", place], cwd=build)
    packages = list(place.glob("*.deb"))
    if len(packages) != 1:
        sys.exit(f"packages: {packages}")
    return packages[0]


def check_control(package):
    control = run(["dpkg-deb", "--field", package])
    fields = dict(re.findall(r"^(\S+): (.*)$", control, re.MULTILINE))
    version = re.search(r"^project\(dravo VERSION (\S+)", (ROOT / "CMakeLists.txt").read_text(),
                        re.MULTILINE)[1]
    expected = {"Package": "dravo", "Version": version, "Section": "science",
                "Maintainer": "dravo developers", "Suggests": "grace, snakemake"}
    wrong = {name: fields.get(name) for name in expected if fields.get(name) != expected[name]}
    depends = {alternative.split()[0] for word in fields.get("Depends", "").split(",")
               for alternative in word.split("|")}
    if wrong or not {"libc6", "libstdc++6", "libblas3", "liblapack3"} <= depends:
        sys.exit(f"control has {wrong}, depends on {depends}")


def install(package, target):
    database = target / "var" / "lib" / "dpkg"
    for name in ("info", "updates", "triggers"):
        (database / name).mkdir(parents=True)
    shutil.copy("/var/lib/dpkg/status", database / "status")
    for architecture in ("arch", "arch-native"):
        if pathlib.Path("/var/lib/dpkg", architecture).exists():
            shutil.copy(pathlib.Path("/var/lib/dpkg", architecture), database / architecture)
    # Containers leave out documentation: path-include takes that back.
    run(["dpkg", f"--root={target}", "--force-not-root", "--log=/dev/null", "--path-include=*",
         "--install", package])
    state = run(["dpkg-query", f"--admindir={database}", "--show", "--showformat=${Status}",
                 "dravo"])
    if state != "install ok installed":
        sys.exit(f"state of the package: {state}")


def check_files(target, build):
    """All of examples/ and the user's documentation, and nothing outside the package's own places."""
    doc = target / "usr/share/doc/dravo"
    wanted = {doc / "README.md", doc / "CHANGELOG.md", doc / "copyright"}
    # A man page for each program; dravo alone where the companions are not built.
    companions = "DRAVO_BUILD_TOOLS:BOOL=ON" in (build / "CMakeCache.txt").read_text()
    for page in (ROOT / "docs").glob("*.1" if companions else "dravo.1"):
        wanted |= {target / "usr/bin" / page.stem, target / "usr/share/man/man1" / page.name}
    if companions:
        wanted |= {doc / path.relative_to(ROOT) for path in (ROOT / "tools").rglob("README.md")}
        library = target / "usr/share/dravo/workflow"
        wanted |= {library / name for name in ("Snakefile", "inputs.py", "jobs.py", "outputs.py", "plan.py",
                                               "slurm/config.yaml", "slurm/status.py")}
    for folder, kinds in (("examples", ("*",)), ("docs", ("*.md", "*.png"))):
        for kind in kinds:
            wanted |= {doc / path.relative_to(ROOT) for path in (ROOT / folder).rglob(kind)
                       if "__pycache__" not in path.parts and path.is_file()}
    found = {path for path in (target / "usr").rglob("*") if path.is_file()}
    if found != wanted:
        sys.exit(f"missing: {wanted - found}\nnot expected: {found - wanted}")


def check_links(target):
    """The pages refer to each other by relative paths, which must hold where they are installed."""
    doc = target / "usr/share/doc/dravo"
    for page in doc.rglob("*.md"):
        for link in re.findall(r"\]\(([^)#]+)\)", page.read_text()):
            if re.match(r"\w+:", link):
                continue
            source = (ROOT / page.relative_to(doc).parent / link).resolve()
            if not source.exists():
                sys.exit(f"{page.name} refers to {link}, which does not exist")
            for_users = source.relative_to(ROOT).parts[0] in ("docs", "examples", "README.md")
            if for_users and not (page.parent / link).exists():
                sys.exit(f"{page.name} refers to {link}, which is not installed")


def check_demo(target, place):
    place.mkdir()
    shutil.copy(target / f"usr/share/doc/dravo/examples/{EXAMPLE}.in", place)
    run([target / "usr/bin/dravo", "-i", f"{EXAMPLE}.in", "-o", "d9.out", "-xmgr"], cwd=place)
    total = re.search(r"^Global X2/DoF\t(\S+) \(DoF = (\d+)\)$", (place / "d9.out").read_text(),
                      re.MULTILINE)
    if int(total[2]) != DOF or not math.isclose(float(total[1]) * DOF, CHI2, rel_tol=1e-5):
        sys.exit(f"the installed program says {total[0]}")
    if not (place / "D9.xmgr").is_file():
        sys.exit("the installed program made no plot")


def check_workflow(target, place):
    """The installed companions find each other and what is installed with them."""
    if not (target / "usr/bin/dravo-workflow").exists():
        return
    run([target / "usr/bin/dravo-workflow", "--cores", "1", f"{EXAMPLE}.in"], cwd=place)
    table = (place / "results/table.csv").read_text()
    if table.count(f"\n{EXAMPLE},") != 6:
        sys.exit(f"the installed workflow makes this table:\n{table}")


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--program", required=True)
    build = pathlib.Path(parser.parse_args().program).resolve().parent
    with tempfile.TemporaryDirectory() as folder:
        top = pathlib.Path(folder)
        package = build_package(build, top / "package")
        check_control(package)
        target = top / "root"
        install(package, target)
        check_files(target, build)
        check_links(target)
        check_demo(target, top / "demo")
        check_workflow(target, top / "demo")
    print(f"{package.name} works")


if __name__ == "__main__":
    main()
