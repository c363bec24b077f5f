#!/usr/bin/env python3
"""Grace reads the plot files, and its pictures hold what the files say.

Renders every plot file of the golden cases and those that the program makes of the examples, to PNG
and SVG. In the SVG each symbol, error bar and curve point must stand at its place, in the colour of
its set, and each text must be there.
"""
# SPDX-License-Identifier: GPL-3.0-or-later
import argparse
import concurrent.futures
import pathlib
import re
import shutil
import struct
import subprocess
import sys
import tempfile
import xml.etree.ElementTree as ET
import zlib

ROOT = pathlib.Path(__file__).resolve().parents[2]
PAGE = (595, 842)             # points, as the files say
GRACE_PAGE = (792, 612)       # of files that say nothing, those without data
VIEW = (0.10, 0.95, 0.55, 0.92)  # xmin, xmax, ymin, ymax as the files say, parts of the page
NEAR = 0.02                   # points; Grace writes four decimals
VISIBLE = 0.5                 # points: a shorter error bar may be left out
PALETTE = ("#FFFFFF", "#000000", "#FF0000", "#00FF00", "#0000FF", "#FFFF00", "#BC8F8F", "#DCDCDC",
           "#9400D3", "#00FFFF", "#FF00FF", "#FFA500", "#7221BC", "#670748", "#40E0D0", "#008B00")
EXAMPLE_METHODS = "METHOD INIT\n"  # instead of those of the file: quick, and always the same


class Plot:
    """What a plot file asks for."""

    def __init__(self, text):
        self.sets = []     # dictionaries: kind, color, points, hidden
        self.texts = []    # must be somewhere
        self.strings = []  # x, y, text
        self.world = None
        self.palette = list(PALETTE)
        self.has_page = "@ PAGE SIZE 595, 842\n" in text
        colors, hidden, legends = {}, set(), {}
        place = None
        for line in text.splitlines():
            if line.startswith("\t"):
                self.sets[-1]["points"].append([float(word) for word in line.split()])
            elif match := re.match(r"@ S(\d+) COLOR (\d+)", line):
                colors[match[1]] = int(match[2])
            elif match := re.match(r"@ S(\d+) ERRORBAR LINESTYLE 0", line):
                hidden.add(match[1])
            elif match := re.match(r"@ TARGET S(\d+)", line):
                self.sets.append({"color": colors[match[1]], "points": [], "n": match[1],
                                  "hidden": match[1] in hidden})
            elif match := re.match(r"@ TYPE (\w+)", line):
                self.sets[-1]["kind"] = match[1]
            elif match := re.match(r"@ STRING ([-.\d]+), ([-.\d]+)$", line):
                place = float(match[1]), float(match[2])
            elif match := re.match(r'@ STRING DEF "(.*)"$', line):
                self.strings.append((*place, match[1]))
            elif match := re.match(r'@ legend string (\d+) "(.*)"$', line):
                legends[match[1]] = match[2]
            elif match := re.match(r'@ (?:TITLE|SUBTITLE) "(.*)"$', line):
                self.texts.append(match[1])
            elif match := re.match(r'@ [XY]AXIS LABEL "(.*)"$', line):
                self.texts += label_pieces(match[1])
            elif match := re.match(r"@ WORLD (.*)$", line):
                self.world = [float(number) for number in match[1].split(",")]
            elif match := re.match(r"@ MAP COLOR (\d+) TO \((\d+), (\d+), (\d+)\)", line):
                self.palette[int(match[1])] = "#%02X%02X%02X" % tuple(map(int, match.groups()[1:]))
        # Grace has no legend entry for a set without points.
        self.texts += [legends[one["n"]] for one in self.sets if one["points"]]

    def extent(self):
        """The smallest world that holds all data, error bars and curves, and some room."""
        xs, ys = [], []
        for one in self.sets:
            for x, y, *error in one["points"]:
                xs.append(x)
                ys += [y - sum(error), y + sum(error)]
        room = [0.1 * (max(v) - min(v)) or 1.0 for v in (xs, ys)]
        return [min(xs) - room[0], min(ys) - room[1], max(xs) + room[0], max(ys) + room[1]]


def label_pieces(label):
    """The pieces of a label between Grace's escapes."""
    pieces, greek = [], False
    escapes = r"\\(?:f\{\}|[xqQNSs])"
    for escape, text in re.findall(f"({escapes})?((?:(?!{escapes}).)*)", label):
        greek = escape == r"\x" or greek and escape != r"\f{}"
        if text:
            pieces.append(symbol_text(text) if greek else text)
    return pieces


def symbol_text(text):
    """A text in Grace's font of Greek letters, told from the same text in another font."""
    return "Symbol " + text


class Picture:
    """Symbols, lines and texts of a Grace SVG, in page points from the lower left corner."""

    def __init__(self, path):
        self.symbols = {}  # colour -> centres
        self.lines = {}    # colour -> lists of vertices
        self.texts = []    # x, y, text
        for group in ET.parse(path).iter("g"):
            parts = [part for part in group.get("style", "").split(";") if part]
            style = dict(part.strip().split(":") for part in parts)
            stroke = style.get("stroke", "none")
            for shape in group:
                if shape.tag == "text":
                    x, y = map(float, shape.get("transform").rstrip(")").split(",")[-2:])
                    text = "".join(shape.itertext())
                    symbols = "font-family:'Symbol'" in shape.get("style")
                    self.texts.append((x, y, symbol_text(text) if symbols else text))
                elif shape.tag == "ellipse" and style["fill"] != "none":
                    self.symbols.setdefault(style["fill"], []).append(
                        (float(shape.get("cx")), float(shape.get("cy"))))
                elif shape.tag in ("path", "polyline") and stroke != "none":
                    numbers = [float(n) for n in re.findall(r"-?\d+\.\d+", shape.get("d"))]
                    self.lines.setdefault(stroke, []).append(
                        list(zip(numbers[::2], numbers[1::2])))

    def has_symbol(self, color, where):
        return any(near(where, centre) for centre in self.symbols.get(color, ()))

    def has_line(self, color, start, end):
        return any(len(line) == 2 and near(line[0], start) and near(line[1], end)
                   for line in self.lines.get(color, ()))

    def has_curve(self, color, points):
        """All points are vertices, in this order, of lines that follow each other."""
        vertices = iter([v for line in self.lines.get(color, ()) for v in line])
        return all(any(near(v, point) for v in vertices) for point in points)


def near(a, b):
    return abs(a[0] - b[0]) <= NEAR and abs(a[1] - b[1]) <= NEAR


def on_page(world, x, y):
    xmin, ymin, xmax, ymax = world
    return (PAGE[0] * (VIEW[0] + (VIEW[1] - VIEW[0]) * (x - xmin) / (xmax - xmin)),
            PAGE[1] * (VIEW[2] + (VIEW[3] - VIEW[2]) * (y - ymin) / (ymax - ymin)))


def render(gracebat, source, device, target, world):
    """Returns what is wrong."""
    command = [gracebat, source, "-hdevice", device, "-printfile", target]
    if world:
        command += ["-pexec", "WORLD " + ", ".join(map(repr, world)), "-pexec", "AUTOTICKS"]
    done = subprocess.run(command, capture_output=True, text=True, stdin=subprocess.DEVNULL,
                          timeout=60)
    said = (done.stdout + done.stderr).strip()
    if done.returncode != 0 or said:
        return [f"gracebat ended with {done.returncode}: {said}"]
    return [] if target.exists() else [f"gracebat made no {device}"]


def check_png(path, page):
    """Size of the page, and something on it."""
    content = path.read_bytes()
    if content[:8] != b"\x89PNG\r\n\x1a\n":
        return ["no PNG"]
    size = struct.unpack(">II", content[16:24])
    pixels, place = b"", 8
    while place < len(content):
        length, kind = struct.unpack(">I4s", content[place:place + 8])
        if kind == b"IDAT":
            pixels += content[place + 8:place + 8 + length]
        place += length + 12
    rows = zlib.decompress(pixels)
    problems = [] if size == page else [f"PNG of {size}"]
    return problems + ([] if len(set(rows)) > 2 else ["empty PNG"])


def check_set(picture, world, palette, one):
    color = palette[one["color"]]
    wrong = []
    if one["kind"] == "xy":
        points = [on_page(world, x, y) for x, y in one["points"] if inside(world, x, y)]
        if len(points) > 1 and not picture.has_curve(color, points):
            wrong.append(f"no curve through {points} in {color}")
        return wrong
    for x, y, error in one["points"]:
        where = on_page(world, x, y)
        if not picture.has_symbol(color, where):
            wrong.append(f"no symbol in {color} at {where} for {x}, {y}")
        for end in (on_page(world, x, y + error), on_page(world, x, y - error)):
            if abs(end[1] - where[1]) < VISIBLE:
                continue
            if picture.has_line(color, where, end) == one["hidden"]:
                wrong.append(f"error bar from {where} to {end} in {color}: hidden: {one['hidden']}")
    return wrong


def inside(world, x, y):
    return world[0] <= x <= world[2] and world[1] <= y <= world[3]


def check_texts(picture, plot, page):
    found = [text for _, _, text in picture.texts]
    wrong = [f"text {text!r} is missing" for text in plot.texts if text not in found]
    for x, y, text in plot.strings:
        # Old files mean parts of width and height, those without a version parts of the shorter.
        place = (page[0] * x, page[1] * y) if plot.has_page else (min(page) * x, min(page) * y)
        if not any(t == text and near(place, (tx, ty)) for tx, ty, t in picture.texts):
            wrong.append(f"text {text!r} is not at {place}")
    return wrong


def check(gracebat, source, scratch, must_open_well):
    """Renders one file and returns what is wrong with the pictures."""
    plot = Plot(source.read_text())
    wrong = []
    if must_open_well and plot.world is None:
        wrong.append("no line '@ WORLD'")
    world = plot.world or (plot.extent() if plot.sets else None)
    if must_open_well and world:
        wrong += [f"{x}, {y} +- {e} lies outside the world" for one in plot.sets
                  if one["kind"] == "xydy" for x, y, e in one["points"]
                  if not (inside(world, x, y - e) and inside(world, x, y + e))]
    svg, png = scratch / "plot.svg", scratch / "plot.png"
    shown = None if plot.world else world
    for device, target in (("SVG", svg), ("PNG", png)):
        wrong += render(gracebat, source, device, target, shown)
    if wrong:
        return wrong
    picture = Picture(svg)
    for one in plot.sets:
        wrong += check_set(picture, world, plot.palette, one)
    page = PAGE if plot.has_page else GRACE_PAGE
    return wrong + check_texts(picture, plot, page) + check_png(png, page)


def make_example_plots(program, source, directory):
    """Runs the program on an example with plot lines; returns the plot files."""
    text = source.read_text()
    quick = re.sub(r"^(FUNCTION .*\n)", r"\1" + EXAMPLE_METHODS,
                   re.sub(r"^(METHOD|MONTE1?) .*\n", "", text, flags=re.M), flags=re.M)
    directory.mkdir()
    (directory / "example.in").write_text(quick)
    done = subprocess.run([program, "-i", "example.in", "-o", "example.out", "-xmgr"],
                          cwd=directory, capture_output=True, text=True, timeout=100)
    if done.returncode != 0:
        sys.exit(f"{source.name}: {done.stderr}")
    return sorted(directory.glob("*.xmgr"))


def check_that_errors_show(gracebat, scratch):
    """What Grace does not understand must come up, or the other checks would be worth little."""
    source = scratch / "wrong.xmgr"
    source.write_text("@ with g0\n@ S0 NONSENSE 1\n")
    if not render(gracebat, source, "SVG", scratch / "wrong.svg", None):
        sys.exit("gracebat says nothing about a command that it does not know")


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--program", required=True)
    program = pathlib.Path(parser.parse_args().program).resolve()
    gracebat = shutil.which("gracebat")
    if gracebat is None:
        sys.exit("gracebat is not installed; it comes with the Debian package grace")
    golden = sorted((ROOT / "tests" / "golden").glob("*/expected/**/*.xmgr"))
    examples = [path for path in sorted((ROOT / "examples").glob("*.in"))
                if "\nPLOT" in path.read_text()]
    if not golden or not examples:
        sys.exit("no plot files to look at")
    with tempfile.TemporaryDirectory() as folder:
        top = pathlib.Path(folder)
        check_that_errors_show(gracebat, top)
        jobs = [(path, False) for path in golden]
        for example in examples:
            jobs += [(path, True) for path in make_example_plots(program, example,
                                                                 top / example.stem)]

        def work(job):
            number, (path, must_open_well) = job
            scratch = top / str(number)
            scratch.mkdir()
            return [f"{path}: {text}" for text in check(gracebat, path, scratch, must_open_well)]

        with concurrent.futures.ThreadPoolExecutor(max_workers=2) as pool:
            wrong = [text for result in pool.map(work, enumerate(jobs)) for text in result]
    print(f"{len(jobs)} plot files")
    if wrong:
        sys.exit("\n".join(wrong))


if __name__ == "__main__":
    main()
