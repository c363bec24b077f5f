"""What a plot file of the program looks like, written anew: the measure for its golden cases."""
# SPDX-License-Identifier: GPL-3.0-or-later
import math

PAGE_SETUP = """\
@ VERSION 40102
@ CLEAR STRING
@ PAGE SIZE 595, 842
@ VIEW XMIN 0.10
@ VIEW XMAX 0.95
@ VIEW YMIN 0.55
@ VIEW YMAX 0.92
@ legend on
@ legend box off
@ legend box fill off
@ legend box color 1
@ legend box linewidth 1
@ legend box linestyle 1
@ legend x1 0.60
@ legend y1 0.90
@ legend char size 0.6
@ g0 on
@ g0 hidden false
@ with g0
"""

R1RHO_LABEL = r"\qR\Q\s1\xr\f{}\N\Seff\N (s\S-1\N)"
AXES = {  # family -> labels and decimals of x and y
    "CT-CPMG": (r"1/\xt\f{}\sCP\N (s\S-1\N)", r"\qR\Q\s2\N\Seff\N (s\S-1\N)", 0, 0),
    "R1rho": (r"\xw\f{}\s1\N/(2\xp\f{}) (s\S-1\N)", R1RHO_LABEL, 0, 0),
    "R1rho_off": (r"\xW\f{}/(2\xp\f{}) (Hz)", R1RHO_LABEL, 0, 0),
    "CLEANEX": ("Delay (s)", r"I(t) / I\s0", 2, 1),
}


def num(value, digits=6):
    """A number as a C++ stream shows it by default."""
    return "nan" if math.isnan(value) else f"{float(value):.{digits}g}"


def header(family):
    if family not in AXES:
        return PAGE_SETUP
    x_label, y_label, x_decimals, y_decimals = AXES[family]
    return (PAGE_SETUP + f'@ XAXIS LABEL "{x_label}"\n@ YAXIS LABEL "{y_label}"\n'
            "@ XAXIS TICKLABEL FORMAT DECIMAL\n@ YAXIS TICKLABEL FORMAT DECIMAL\n"
            "@ XAXIS TICKLABEL CHAR SIZE 0.8\n@ YAXIS TICKLABEL CHAR SIZE 0.8\n"
            f"@ XAXIS TICKLABEL PREC {x_decimals}\n@ YAXIS TICKLABEL PREC {y_decimals}\n")


def head(commands, title, equation):
    """The top of a file; `commands` are whole lines."""
    return f'{commands}\n@ TITLE "{title}"\n@ SUBTITLE "{equation}"\n'


def data(n, color, name, points):
    """Grace set `n`: triples x, y, error; an error of None stands for none."""
    hidden = points[0][2] is None
    text = (f"@ S{n} LINESTYLE 0\n@ S{n} COLOR {color}\n@ S{n} SYMBOL 2\n@ S{n} SYMBOL SIZE 0.5\n"
            f"@ S{n} SYMBOL FILL 1\n@ S{n} SYMBOL COLOR {color}\n@ S{n} ERRORBAR LENGTH 0.5\n")
    if hidden:
        text += f"@ S{n} ERRORBAR LINESTYLE 0\n@ S{n} ERRORBAR RISER LINESTYLE 0\n"
    text += f'@ legend string {n} "Data {name}"\n@ TARGET S{n}\n@ TYPE xydy\n'
    for x, y, error in points:
        text += f"\t{num(x)}\t{num(y)}\t{'1.0' if hidden else num(error)}\n"
    return text + "&\n"


def curve(n, color, name, points):
    text = (f"@ S{n} LINESTYLE 1\n@ S{n} COLOR {color}\n@ S{n} SYMBOL 0\n"
            f'@ legend string {n} "Fit {name}"\n@ TARGET S{n}\n@ TYPE xy\n')
    return text + "".join(f"\t{num(x)}\t{num(y)}\n" for x, y in points) + "&\n"


def sweep(function, start, end, points=101, x1=0.0, factor=0.0):
    """The finite points of function(x0, x1): x0 by repeated addition, x1 grows by `factor`."""
    step = (end - start) / (points - 1) if points != 1 else math.inf
    found = []
    for _ in range(points):
        y = function(start, x1)
        if math.isfinite(y):
            found.append((start, y))
        start += step
        x1 += factor
    return found


def pair(n, color, name, points, curve_points):
    return data(n, color, name, points) + curve(n + 1, color, name, curve_points)


def item(x, y, text, bold=False):
    return ('@ WITH STRING\n@ STRING FONT "Courier"\n@ STRING LOCTYPE VIEW\n'
            "@ STRING CHAR SIZE 0.6\n"
            + ('@ STRING FONT "Courier-Bold"\n' if bold else "")
            + f'@ STRING {num(x)}, {num(y)}\n@ STRING DEF "{text}"\n@ STRING on\n')


def column(x, heading, rows):
    """A bold heading and one line of text for each row, the first row 0.026 below it."""
    text = item(x, 0.45, heading, bold=True)
    for i, row in enumerate(rows):
        text += item(x, (424 - 20 * i) / 1000, row)
    return text


def box(rows, reduced_chi):
    """Rows: name, value, error (None: not shown)."""
    lines = [f"{name:<12}{num(value, 5):<10}" + ("" if error is None else f"({num(error, 5)})")
             for name, value, error in rows]
    return column(0.03, "Parameter   Fit       (Error)",
                  lines + [f"{'X2/DoF':<12}{num(reduced_chi, 5):<10}"])


def analysis(index, title, rows):
    """Column of an error analysis; rows: value and error, that of chi-square last."""
    return column(0.45 + 0.28 * (index - 1), f"{title} (Error)",
                  [f"{num(value, 5):>10}({num(error, 5)})" for value, error in rows])


def report(model, equation, methods, counts, chi_lines, sets, total, analysis_title=None, digits=6):
    """A report. counts: points, degrees of freedom. sets: title, rows, reduced chi-square, DoF."""
    text = f"# DRAVO VERSION 2.4.4\nMODEL  {model}\nEQN    {equation}\n"
    text += "".join(f"METHOD {method}\n" for method in methods)
    text += (f"\n# Fitting results\n# Total data points = {counts[0]}\n"
             f"# Total degrees of freedom (DoF) = {counts[1]}\n")
    for label, value in chi_lines:
        text += f"# {label:<12} X2/DoF = {num(value)}\n"
    if analysis_title is None:
        text += "# Fit duration        0h0m0s\n\n"
    else:
        text += f"# Error Analysis: {analysis_title}\n\n"
    for title, rows, reduced_chi, dof in sets:
        text += f"SET\t{title}\n"
        for name, value, error in rows:
            shown = "" if error is None else f" ({num(error, digits)})"
            text += f"\t{name}\t{num(value, digits):>7}{shown}\n"
        text += f"\tX2/DoF\t{num(reduced_chi, digits)} (DoF = {dof})\n\n"
    return text + f"Global X2/DoF\t{num(total, digits)} (DoF = {counts[1]})\n"
