"""Files that dravo wrote: reports, summaries and passes of error analyses; and how parts are joined.

Their grammar is in docs/formats.md. Parts write their reports with 17 digits, which give every double
back exactly, so that what is computed from them and rounded is what one run would have shown.
"""
# SPDX-License-Identifier: GPL-3.0-or-later
import dataclasses
import math
import re

EXACT_DIGITS = 17
USUAL_DIGITS = 6  # of analyses and heads
WIDTH = 7
DROPPED_CHI = 9.999e99  # stands for a simulation without a finite fit, above all others
FEWEST_FOR_PERCENTILES = 10
PERCENTILES, PERCENTILE_STEP = 19, 0.05


class OutputError(Exception):
    """Why a file is not what it should be."""


def shown(value, digits=USUAL_DIGITS):
    """The number as a C++ stream shows it."""
    return "nan" if math.isnan(value) else f"%.{digits}g" % value


def again(text, digits):
    """A number of 17 digits with fewer."""
    return shown(float(text), digits)


@dataclasses.dataclass
class Head:
    first: list     # version, model, equation
    methods: list   # lines
    points: int
    dof: int
    chi_lines: list  # (label, number as text)

    def text(self):
        lines = [*self.first, *self.methods, "", "# Fitting results",
                 f"# Total data points = {self.points}",
                 f"# Total degrees of freedom (DoF) = {self.dof}"]
        return "".join(line + "\n" for line in lines + [label + value for label, value in self.chi_lines])


@dataclasses.dataclass
class SetResult:
    title: str
    values: list  # (name, value, error or None, is a quantity), numbers as text
    reduced: float
    dof: int

    @property
    def chi(self):
        return self.reduced * self.dof

    def parameters(self):
        return [value for _, value, _, quantity in self.values if not quantity]


@dataclasses.dataclass
class Report:
    head: Head
    seconds: int
    sets: list
    reduced: float  # of the whole
    dof: int


VALUE = re.compile(r"\t(    )?([^\t]+)\t *([^\t (]+)(?:\t| )?(?:\(([^)]*)\))?$")
CHI = re.compile(r"(?:\tX2/DoF|Global X2/DoF)\t(\S+) \(DoF = (-?\d+)\)$")


def read_report(text, name="report"):
    """A report, or the final report of an analysis."""
    head, seconds, sets, whole = Head([], [], 0, 0, []), 0, [], None
    for line in text.split("\n"):
        duration = re.match(r"# Fit duration +(\d+)h(\d+)m(\d+)s$", line)
        chi, value = CHI.match(line), VALUE.match(line)
        if line.startswith("# Total "):
            count = int(line.rsplit(" ", 1)[1])
            if "points" in line:
                head.points = count
            else:
                head.dof = count
        elif duration:
            seconds = sum(int(n) * unit for n, unit in zip(duration.groups(), (3600, 60, 1)))
        elif line.startswith("METHOD "):
            head.methods.append(line)
        elif line.startswith(("# DRAVO ", "MODEL ", "EQN ")):
            head.first.append(line)
        elif line.startswith("# ") and "X2/DoF = " in line:
            label, number = line.rsplit(" ", 1)
            head.chi_lines.append((label + " ", number))
        elif line.startswith("SET\t"):
            sets.append(SetResult(line[4:], [], math.nan, 0))
        elif chi and line[0] == "G":
            whole = (float(chi[1]), int(chi[2]))
        elif chi and sets:
            sets[-1].reduced, sets[-1].dof = float(chi[1]), int(chi[2])
        elif value and sets:
            sets[-1].values.append((value[2], value[3], value[4], value[1] is not None))
        elif line and not line.startswith("#"):
            raise OutputError(f"{name}: '{line}' does not belong to a report")
    if whole is None or not text.endswith("\n"):
        raise OutputError(f"{name}: unfinished")
    return Report(head, seconds, sets, *whole)


def write_report(report, digits):
    """The report as one run with these digits writes it."""
    text = report.head.text()
    text += f"# Fit duration        {report.seconds // 3600}h{report.seconds % 3600 // 60}m"
    text += f"{report.seconds % 60}s\n\n"
    for one in report.sets:
        text += f"SET\t{one.title}\n"
        for name, value, error, quantity in one.values:
            if quantity:
                text += f"\t    {name}\t{again(value, digits)}\n"
            else:
                text += f"\t{name}\t{again(value, digits):>{WIDTH}}"
                text += "\n" if error is None else f" ({again(error, digits)})\n"
        text += f"\tX2/DoF\t{shown(one.reduced, digits)} (DoF = {one.dof})\n\n"
    return text + f"Global X2/DoF\t{shown(report.reduced, digits)} (DoF = {report.dof})\n"


def body_of(text):
    """What stands in a summary or final report from the first set to the last."""
    return re.search(r"^SET\t.*?(?=^Global X2/DoF)", text, re.MULTILINE | re.DOTALL)[0]


# ---- passes ----

@dataclasses.dataclass
class Pass:
    number: int
    sets: list      # lines of each set
    reduced: float  # of the whole
    dof: int

    def text(self, chi, dof):
        lines = [line for lines in self.sets for line in lines]
        return "".join(line + "\n" for line in lines) + \
            f"#{self.number}: GLOBAL X2/DoF\t{shown(ratio(chi, dof))}\t(DoF = {dof})\n\n"


def read_passes(text):
    """(number announced, passes) of a -jack or -monte file."""
    announced = re.match(r"(?:Jackknife|Monte Carlo) simulations \((\d+)\)\n", text)
    if not announced:
        raise OutputError("not a file of passes")
    passes = []
    for block in text[announced.end():].split("\n\n")[:-1]:
        sets = []
        for line in block.split("\n"):
            mark, _, rest = line.partition(":")
            whole = re.match(r" GLOBAL X2/DoF\t(\S+)\t\(DoF = (-?\d+)\)$", rest)
            if whole:
                passes.append(Pass(int(mark[1:]), sets, float(whole[1]), int(whole[2])))
            elif rest.startswith(" "):
                sets.append([line])
            else:
                sets[-1].append(line)
    return int(announced[1]), passes


def numbers_of(lines):
    """(values of parameters and quantities, X2/DoF) of a set in a pass."""
    rows = [line.split("\t") for line in lines[1:]]
    return [float(row[-1]) for row in rows[:-1]], float(rows[-1][2])


# ---- statistics, as the program has them ----

def ratio(a, b):
    """Of doubles, without complaint."""
    if b:
        return a / b
    return math.nan if not a or math.isnan(a) else math.copysign(math.inf, a)


def mean(values):
    return math.fsum(values) / len(values) if values else math.nan


def deviation(values):
    """The sample standard deviation; 0 for fewer than two."""
    if len(values) < 2:
        return 0.0
    centre = mean(values)
    return math.sqrt(math.fsum((v - centre) ** 2 for v in values) / (len(values) - 1))


def percentile(ordered, fraction):
    place = math.floor(fraction * len(ordered) + 0.5)
    return ordered[0] if place < 2 else ordered[place - 1]


# ---- joined: sets ----

def join_reports(reports, unused):
    """One report of fits of single sets; `unused` shared parameters cost degrees of freedom too."""
    first = reports[0]
    sets = [one for report in reports for one in report.sets]
    dof = sum(one.dof for one in sets) - unused
    reduced = ratio(sum(one.chi for one in sets), dof)
    chi_lines = []
    for i, (label, _) in enumerate(first.head.chi_lines):
        total = sum(float(report.head.chi_lines[i][1]) * report.dof for report in reports)
        chi_lines.append((label, shown(ratio(total, dof))))
    if chi_lines:
        chi_lines[-1] = (chi_lines[-1][0], shown(reduced))
    head = Head(first.head.first, first.head.methods, sum(r.head.points for r in reports), dof, chi_lines)
    return Report(head, sum(r.seconds for r in reports), sets, reduced, dof)


def final_head(whole, finals, dofs, rest, dof):
    """The head of a final report. Its chi-square lines are the first ones of the run: those of the fit,
    and if that had fewer methods, those of the first pass: `finals` with their degrees of freedom, and
    `rest` for the sets that are not in this pass."""
    own = finals[0].head
    lines = []
    for i, (label, _) in enumerate(own.chi_lines):
        if i < len(whole.head.chi_lines):
            lines.append(whole.head.chi_lines[i])
        else:
            total = sum(float(final.head.chi_lines[i][1]) * n for final, n in zip(finals, dofs)) + rest
            lines.append((label, shown(ratio(total, dof))))
    return Head(own.first, own.methods, whole.head.points, whole.dof, lines).text()


def join_jackknives(whole, files):
    """{suffix: text} of the jackknife of all sets. `files`: {suffix: text} of each set."""
    best = whole.reduced * whole.dof
    dof = whole.dof - 1
    read = [read_passes(each["-jack"])[1] for each in files]
    blocks, totals = "", []
    for one, passes in zip(whole.sets, read, strict=True):
        for each in passes:
            totals.append(best - one.chi + each.reduced * each.dof)
            blocks += each.text(totals[-1], dof)
    spread = math.sqrt((len(totals) - 1) / len(totals) * math.fsum((t - best) ** 2 for t in totals))
    finals = [read_report(each["-jack-final.out"]) for each in files]
    return {
        "-jack": f"Jackknife simulations ({len(totals)})\n{blocks}",
        "-jack.sum": "# Jackknife error analysis results\n" +
                     "".join(body_of(each["-jack.sum"]) for each in files) +
                     f"Global X2/DoF = {shown(ratio(mean(totals), dof))}  ({shown(ratio(spread, dof))})\n",
        "-jack-final.out": final_head(whole, finals[:1], [whole.sets[0].dof - 1],
                                      best - whole.sets[0].chi, dof) +
                           "# Error Analysis: JACK\n\n" +
                           "".join(body_of(each["-jack-final.out"]) for each in files) +
                           f"Global X2/DoF\t{shown(whole.reduced)} (DoF = {whole.dof})\n",
    }


def join_simulations_of_sets(whole, files):
    """The same of Monte Carlo analyses: simulation k of all sets makes simulation k of the whole. One
    that ended without a finite fit in a set is missing there."""
    announced, read = zip(*(read_passes(each["-monte"]) for each in files))
    by_number = [{each.number: each for each in passes} for passes in read]
    whole_numbers = [n for n in sorted(by_number[0]) if all(n in passes for passes in by_number)]
    blocks, totals = "", []
    for number in whole_numbers:
        parts = [passes[number] for passes in by_number]
        totals.append(sum(part.reduced * part.dof for part in parts))
        merged = Pass(number, [lines for part in parts for lines in part.sets], 0.0, 0)
        blocks += merged.text(totals[-1], whole.dof)
    finals = [read_report(each["-monte-final.out"]) for each in files]
    line = re.search(r"^# Error Analysis: MONTE .*\n\n", files[0]["-monte-final.out"], re.MULTILINE)[0]
    return {
        "-monte": f"Monte Carlo simulations ({max(announced)})\n{blocks}",
        "-monte.sum": "# Monte Carlo error analysis results\n" +
                      "".join(body_of(each["-monte.sum"]) for each in files) +
                      global_summary(totals, whole.dof),
        "-monte-final.out": final_head(whole, finals, [one.dof for one in whole.sets], 0.0, whole.dof) +
                            line +
                            "".join(body_of(each["-monte-final.out"]) for each in files) +
                            f"Global X2/DoF\t{shown(whole.reduced)} (DoF = {whole.dof})\n",
    }


def global_summary(totals, dof):
    return (f"Global X2/DoF = {shown(ratio(mean(totals), dof))}  "
            f"({shown(ratio(deviation(totals), dof))})\n")


# ---- joined: parts of one Monte Carlo analysis ----

def join_simulations(fit, parts, part_final):
    """{suffix: text} of one analysis of the Report `fit` from the -monte files of its parts;
    `part_final` is the final report of one of them."""
    read = [read_passes(part) for part in parts]
    announced = sum(count for count, _ in read)
    passes, before = [], 0
    for count, own in read:
        for each in own:
            number = before + each.number
            mark = len(f"#{each.number}")
            sets = [[f"#{number}" + line[mark:] for line in lines] for lines in each.sets]
            passes.append(Pass(number, sets, each.reduced, each.dof))
        before += count
    summary, body = "# Monte Carlo error analysis results\n", ""
    for s, one in enumerate(fit.sets):
        rows = [numbers_of(each.sets[s]) for each in passes]
        columns = [[row[i] for row, _ in rows] for i in range(len(one.values))]
        summary += f"SET\t{one.title}\n" + summary_rows(one, columns)
        reduced = [chi for _, chi in rows]
        summary += f"\tX2/DoF\t{shown(mean(reduced))} ({shown(deviation(reduced))}) (DoF = {one.dof})\n\n"
        summary += percentile_rows(one, reduced, announced)
        body += f"SET\t{one.title}\n" + final_rows(one, columns)
        body += f"\tX2/DoF\t{shown(one.reduced)} (DoF = {one.dof})\n\n"
    final = read_report(part_final)
    totals = [each.reduced * each.dof for each in passes]
    return {
        "-monte": f"Monte Carlo simulations ({announced})\n" +
                  "".join(each.text(total, each.dof) for each, total in zip(passes, totals)),
        "-monte.sum": summary + global_summary(totals, fit.dof),
        "-monte-final.out": final_head(fit, [final], [fit.dof], 0.0, fit.dof) +
                            f"# Error Analysis: MONTE {announced}\n\n" + body +
                            f"Global X2/DoF\t{shown(fit.reduced)} (DoF = {fit.dof})\n",
    }


def summary_rows(one, columns):
    return value_rows(one, columns, "\t", lambda value, values: shown(mean(values)))


def final_rows(one, columns):
    return value_rows(one, columns, "    ", lambda value, values: again(value, USUAL_DIGITS))


def value_rows(one, columns, indent, number):
    """A line for each parameter and, indented further, each derived quantity, with its deviation."""
    text = ""
    for (name, value, error, quantity), values in zip(one.values, columns):
        if quantity:
            text += f"\t{indent}{name}\t{number(value, values)}\t({shown(deviation(values))})\n"
        else:
            text += f"\t{name}\t{number(value, values):>{WIDTH}}"
            text += "\n" if error is None else f" ({shown(deviation(values))})\n"
    return text


def percentile_rows(one, reduced, announced):
    if announced < FEWEST_FOR_PERCENTILES:
        return ""
    dropped = [ratio(DROPPED_CHI, one.dof)] * (announced - len(reduced))
    ordered = sorted(reduced) + dropped
    text, fraction = "\t\tPercentile\tX2/DoF\n", PERCENTILE_STEP
    for _ in range(PERCENTILES):
        chi = percentile(ordered, fraction)
        text += f"\t\t{shown(fraction)}\t{shown(chi):>{WIDTH}}"
        text += "\t***\n" if chi > one.reduced else "\n"
        fraction += PERCENTILE_STEP
    return text
