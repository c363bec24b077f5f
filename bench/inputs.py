"""The inputs of the whole-run benchmarks, made from fixed seeds, and what their fits must give."""
# SPDX-License-Identifier: GPL-3.0-or-later
import cmath
import math
import pathlib
import random

TWO_SITE_NAMES = ("dw", "kex", "papb", "R20_0_1", "R20_0_2")


def two_sites(dw, kex, papb, r20, rate, field):
    """R2eff by Carver & Richards (1972) at 1/tcp = rate; complex numbers give derivatives."""
    delta = dw * field
    psi = kex * kex - delta * delta
    zeta = 2 * delta * kex * cmath.sqrt(1 - 4 * papb)
    norm = cmath.sqrt(psi * psi + zeta * zeta)
    ratio = (delta * delta + kex * kex) / norm
    eta_plus = cmath.sqrt((psi + norm) / 2) / rate
    eta_minus = cmath.sqrt((norm - psi) / 2) / rate
    y = (ratio + 1) / 2 * cmath.cosh(eta_plus) - (ratio - 1) / 2 * cmath.cos(eta_minus)
    return r20 + (kex - rate * cmath.acosh(y)) / 2


class Residue:
    """The points of one residue at two fields: (1/tcp, field factor, label) and its parameters."""

    FIELDS = ((1.0, 1), (1.6, 2))

    def __init__(self, rng, points):
        r20 = rng.uniform(8, 12)
        self.own = [rng.uniform(400, 1800), r20, r20 + rng.uniform(1, 4)]  # dw, R20 of both fields
        self.points = [(50.0 + 1950.0 * k / (points - 1), field, label)
                       for field, label in self.FIELDS for k in range(points)]

    def value(self, point, own, shared):
        rate, field, label = point
        return two_sites(own[0], *shared, own[label], rate, field)

    def slopes(self, point, shared):
        """Derivatives by the complex step: of dw and both R20, then of kex and papb."""
        values = self.own + list(shared)
        result = []
        for k in range(len(values)):
            step = 1e-20 * abs(values[k])
            moved = [v + (1j * step if i == k else 0) for i, v in enumerate(values)]
            result.append(self.value(point, moved[:3], moved[3:]).imag / step)
        return result


def solve(matrix, right):
    """Gaussian elimination of a positive definite system."""
    n = len(right)
    rows = [row[:] + [b] for row, b in zip(matrix, right)]
    for i in range(n):
        for j in range(i + 1, n):
            factor = rows[j][i] / rows[i][i]
            if factor == 0.0:
                continue
            rows[j] = [a - factor * b for a, b in zip(rows[j], rows[i])]
    x = [0.0] * n
    for i in reversed(range(n)):
        x[i] = (rows[i][n] - sum(rows[i][j] * x[j] for j in range(i + 1, n))) / rows[i][i]
    return x


class SharedExchange:
    """Residues that share kex and papb, with noise that leaves the minimum where the truth is.

    The noise is normal with its part along the derivatives taken out: the gradient of chi-square
    then vanishes at the true parameters, and the minimum there is the sum of the squared noise.
    """

    SHARED = (900.0, 0.0475)
    SIGMA = 0.2

    def __init__(self, residues, points, seed):
        rng = random.Random(seed)
        self.residues = [Residue(rng, points) for _ in range(residues)]
        noise = [[rng.gauss(0, 1) for _ in residue.points] for residue in self.residues]
        self.noise = self._without_slopes(noise)
        self.minimum = math.fsum(n * n for of_one in self.noise for n in of_one)
        self.values = [
            [residue.value(point, residue.own, self.SHARED).real + self.SIGMA * n
             for point, n in zip(residue.points, of_one)]
            for residue, of_one in zip(self.residues, self.noise)]

    def _without_slopes(self, noise):
        size = 3 * len(self.residues) + 2
        rows = []  # for each point the positions and values of its slopes
        for r, residue in enumerate(self.residues):
            places = [3 * r, 3 * r + 1, 3 * r + 2, size - 2, size - 1]
            rows.append([(places, [s / self.SIGMA for s in residue.slopes(point, self.SHARED)])
                         for point in residue.points])
        matrix = [[0.0] * size for _ in range(size)]
        right = [0.0] * size
        for of_one, noise_of_one in zip(rows, noise):
            for (places, slopes), n in zip(of_one, noise_of_one):
                for j, slope in zip(places, slopes):
                    right[j] += slope * n
                    for k, other in zip(places, slopes):
                        matrix[j][k] += slope * other
        step = solve(matrix, right)
        return [[n - sum(slope * step[j] for j, slope in zip(places, slopes))
                 for (places, slopes), n in zip(of_one, noise_of_one)]
                for of_one, noise_of_one in zip(rows, noise)]

    def chi2(self, fitted):
        """Chi-square of a report's parameters, {set: {name: value}}."""
        terms = []
        for r, residue in enumerate(self.residues):
            p = fitted[f"r{r}"]
            own = [p["dw"], p["R20_0_1"], p["R20_0_2"]]
            for point, y in zip(residue.points, self.values[r]):
                terms.append((y - residue.value(point, own, (p["kex"], p["papb"])).real)
                             / self.SIGMA)
        return math.fsum(t * t for t in terms)

    def text(self, methods, shared=True, model="CPMG_Richards", further=()):
        lines = [f"FUNCTION {model}", *(f"METHOD {m}" for m in methods), *further]
        if shared:
            lines += ["GPAR kex 300 3000 5 600", "GPAR papb 0.01 0.1 5 0.03"]
        for r, residue in enumerate(self.residues):
            lines += [f"SET r{r}", "PAR dw 100 3000 2 1000"]
            lines += ["PAR kex kex", "PAR papb papb"] if shared else [
                "PAR kex 300 3000 5 600", "PAR papb 0.01 0.1 5 0.03"]
            lines += ["PAR R20_0_1 5 20 2 8", "PAR R20_0_2 5 20 2 8"]
            for (rate, field, label), y in zip(residue.points, self.values[r]):
                lines.append(f"DATA {rate!r} 298 {field} 0{label} {y!r} {self.SIGMA}")
        return "\n".join(lines) + "\n"


def single_curves(sets):
    """Local sets of "CPMG_Richards" with four parameters each; every tenth is the same."""
    rng = random.Random(11)
    bodies = []
    for _ in range(10):
        dw, kex, papb = rng.uniform(700, 1500), rng.uniform(500, 1200), rng.uniform(0.03, 0.08)
        lines = ["PAR dw 100 4000 5 1000", "PAR kex 100 4000 5 700", "PAR papb 0.005 0.2 5 0.05",
                 "PAR R20 4 40 2 8"]
        for k in range(16):
            rate = 50.0 + 130.0 * k
            y = two_sites(dw, kex, papb, 9.0, rate, 1.0).real + rng.gauss(0, 0.1)
            lines.append(f"DATA {rate:g} 298 1 11 {y:.5f} 0.1")
        bodies.append("\n".join(lines))
    text = ["FUNCTION CPMG_Richards", "METHOD ONEEX"]
    for k in range(sets):
        text += [f"SET s{k}", bodies[k % 10]]
    return "\n".join(text) + "\n"


def million_lines():
    rng = random.Random(1)
    text = ["FUNCTION CPMG_Richards", "METHOD INIT"]
    for s in range(1000):
        text += [f"SET r{s}", "FIXED dw 1000", "FIXED kex 900", "FIXED papb 0.04", "PAR R20 5 20 2"]
        for k in range(1000):
            text.append(f"DATA {rng.uniform(50, 2000):.2f} 298 {1.6 if k % 2 else 1} 1{1 + k % 2} "
                        f"{rng.uniform(5, 30):.5f} {rng.uniform(0.1, 1):.4f}")
    return "\n".join(text) + "\n"


# ---- three sites ----

def _product(a, b):
    return [[sum(a[i][k] * b[k][j] for k in range(3)) for j in range(3)] for i in range(3)]


def _exponential(matrix):
    """exp of a 3x3 matrix: Taylor series of matrix/2^20, squared 20 times."""
    scaled = [[x / 2 ** 20 for x in row] for row in matrix]
    result = [[complex(i == j) for j in range(3)] for i in range(3)]
    term = result
    for k in range(1, 8):
        term = [[x / k for x in row] for row in _product(term, scaled)]
        result = [[x + y for x, y in zip(r, t)] for r, t in zip(result, term)]
    for _ in range(20):
        result = _product(result, result)
    return result


def three_sites(dwab, dwac, kab, kba, kbc, kca, kac, r20, rate, field):
    """R2eff of a long train of echoes from the slowest mode of the Bloch-McConnell matrix."""
    kcb = kab * kbc * kca / (kba * kac)
    exchange = [[kab + kac, -kba, -kca],
                [-kab, kba + kbc - 1j * dwab * field, -kcb],
                [-kac, -kbc, kca + kcb - 1j * dwac * field]]
    half = _exponential([[-x / (2 * rate) for x in row] for row in exchange])
    echo = _product(half, [[x.conjugate() for x in row] for row in half])
    two_echoes = _product(echo, [[x.conjugate() for x in row] for row in echo])
    for _ in range(6):  # powers: the slowest mode stays
        two_echoes = _product(two_echoes, two_echoes)
        size = max(abs(x) for row in two_echoes for x in row)
        two_echoes = [[x / size for x in row] for row in two_echoes]
    vector = [two_echoes[i][0] for i in range(3)]
    once = _product(echo, [[x.conjugate() for x in row] for row in echo])
    image = [sum(once[i][k] * vector[k] for k in range(3)) for i in range(3)]
    largest = max(range(3), key=lambda i: abs(vector[i]))
    return r20 - rate / 2 * math.log((image[largest] / vector[largest]).real)


def three_site_global():
    """Five residues that share five rates of the cycle; starts near the truth."""
    rng = random.Random(3)
    rates = {"kab": 20.0, "kba": 480.0, "kbc": 100.0, "kca": 300.0, "kac": 15.0}
    lines = ["FUNCTION CPMG_matrix3", "METHOD ONE"]
    lines += [f"GPAR {k} {v * 0.5:g} {v * 2:g} 1 {v * 1.1:g}" for k, v in rates.items()]
    for r in range(5):
        dwab, dwac = rng.uniform(900, 1600), rng.uniform(-1200, -500)
        lines += [f"SET t{r}", f"PAR dwab 100 3000 1 {dwab * 1.05:g}",
                  f"PAR dwac -3000 -100 1 {dwac * 0.95:g}", *(f"PAR {k} {k}" for k in rates),
                  "PAR R20_0_1 5 20 1 9", "PAR R20_0_2 5 20 1 10"]
        for field, label in Residue.FIELDS:
            for k in range(16):
                rate = 50.0 + 130.0 * k
                y = three_sites(dwab, dwac, *rates.values(), 9.0 + label, rate, field)
                lines.append(
                    f"DATA {rate:g} 0.04 0 {field} 0{label} {y + rng.gauss(0, 0.1):.5f} 0.1")
    return "\n".join(lines) + "\n"


THREE_POINTS = """FUNCTION Constant
METHOD ONE
SET a
PAR a 0 10 2
DATA 1 1 0.1 .
DATA 2 2 0.1 .
DATA 3 3 0.1 .
"""


def write_all(folder):
    """Writes every input into `folder`; returns those whose minimum is known."""
    folder = pathlib.Path(folder)
    folder.mkdir(parents=True, exist_ok=True)

    def write(name, text):
        (folder / f"{name}.in").write_text(text)

    twenty = SharedExchange(20, 15, seed=5)
    write("global20", twenty.text(["ONE"]))
    write("global20_counting", twenty.text(["ONE"], model="Counting"))
    write("grid20", twenty.text(["GRID", "ONEEX"]))
    write("jack20", twenty.text(["GRID", "ONEEX"], further=["JACK1"]))
    large = SharedExchange(64, 16, seed=64)
    write("global64", large.text(["ONEEX"]))
    write("local64", large.text(["ONEEX"], shared=False))
    for sets in (100, 1000):
        write(f"shared{sets}", SharedExchange.text(_repeated(sets), ["ONE"]))
    for sets in (10, 100, 1000, 10000, 30000):
        write(f"sets{sets}", single_curves(sets))
    write("three_sites", three_site_global())
    write("million", million_lines())
    write("three_points", THREE_POINTS)
    return {"global64": large, "grid20": twenty}


def _repeated(sets):
    """The residues of one small problem, again and again: `sets` sets that share kex and papb."""
    problem = SharedExchange(10, 15, seed=10)
    problem.residues = [problem.residues[k % 10] for k in range(sets)]
    problem.values = [problem.values[k % 10] for k in range(sets)]
    return problem
