#!/usr/bin/env python3
"""Makes the data of the example inputs that hold made-up numbers, synthetic_*.in.

usage: make_synthetic.py FILE...

Replaces y of each DATA line by the value that the file's `# Truth` lines give at its x values, plus
normal noise of the line's error; the file names the seed. The values do not come from the formulas
of the program: dispersion is the decay of the magnetisation of all sites, propagated through the
exchange matrix (McConnell, J. Chem. Phys. 28, 430 (1958)) from pulse to pulse, CLEANEX is integrated
in small steps.
Rates in 1/s, shift differences in rad/s at field factor 1, enthalpies in kcal/mol, entropies in
kcal/(mol K).
"""
# SPDX-License-Identifier: GPL-3.0-or-later
import math
import pathlib
import random
import re
import sys

SETTLED = 0.5  # after this time (s) a train decays with the rate of its slowest mode alone
BOLTZMANN_OVER_PLANCK = 2.0836644e10  # 1/(s K)
GAS_CONSTANT = 0.001985878            # kcal/(mol K)


class Noise:
    """Normal deviates. random() keeps its sequence from one version of Python to the next."""

    def __init__(self, seed):
        self.uniform = random.Random(seed).random

    def __call__(self, sigma):
        radius = math.sqrt(-2.0 * math.log(1.0 - self.uniform()))
        return sigma * radius * math.cos(2.0 * math.pi * self.uniform())


def product(a, b):
    return [[sum(x * y for x, y in zip(row, column)) for column in zip(*b)] for row in a]


def exponential(matrix):
    """exp(matrix): Taylor series of a matrix made small by halving, squared back."""
    size = len(matrix)
    norm = max(sum(abs(x) for x in row) for row in matrix)
    halvings = math.ceil(math.log2(norm / 0.25)) if norm > 0.25 else 0
    small = [[x / 2.0 ** halvings for x in row] for row in matrix]
    term = [[1.0 + 0j if i == j else 0j for j in range(size)] for i in range(size)]
    total = term
    for order in range(1, 16):
        term = [[x / order for x in row] for row in product(term, small)]
        total = [[x + y for x, y in zip(*rows)] for rows in zip(total, term)]
    for _ in range(halvings):
        total = product(total, total)
    return total


class Exchange:
    """Sites 0, 1, ... with rates {(from, to): 1/s}; site 0 is the one observed."""

    def __init__(self, rates):
        self.rates = rates
        self.size = 1 + max(max(pair) for pair in rates)
        weight = {0: 1.0}  # detailed balance, along the pairs that exchange
        while len(weight) < self.size:
            for (i, j), rate in rates.items():
                if i in weight and j not in weight:
                    weight[j] = weight[i] * rate / rates[j, i]
        self.populations = [weight[i] / sum(weight.values()) for i in range(self.size)]

    def propagator(self, shifts, time):
        matrix = [[0j] * self.size for _ in range(self.size)]
        for site, shift in enumerate(shifts):
            matrix[site][site] += 1j * shift * time
        for (i, j), rate in self.rates.items():
            matrix[i][i] -= rate * time
            matrix[j][i] += rate * time
        return exponential(matrix)

    def decay(self, pulse_rate, shifts, passive=None):
        """Rate at which site 0 decays under a long train of pulses on the spin with these shifts.

        `passive`: shifts of a second spin with which the first is in multiple-quantum coherence.
        """
        passive = passive or [0.0] * self.size
        half_echo = {}
        for sense in (1, -1):  # a pulse reverses the precession of the spin that it acts on
            shift = [sense * a + b for a, b in zip(shifts, passive)]
            half_echo[sense] = self.propagator(shift, 0.5 / pulse_rate)
        train = product(product(half_echo[1], half_echo[-1]), product(half_echo[-1], half_echo[1]))
        duration = 2.0 / pulse_rate
        while duration < SETTLED:
            train = product(train, train)
            duration *= 2.0
        once = product(train, [[complex(p)] for p in self.populations])
        twice = product(train, once)
        return -math.log(abs(twice[0][0]) / abs(once[0][0])) / duration


def intrinsic(true, labels):
    return true["R20_" + "_".join(labels)]


def temperature(true, x, labels):
    return intrinsic(true, labels) + Exchange(eyring(true, x[1], "ab")).decay(
        x[0], [0, true["dw"] * x[2]])


def eyring(true, kelvin, *pairs):
    """Rates of the pairs of sites, "ab" for a and b, both ways."""
    rates = {}
    for pair in pairs:
        for i, j in (pair, pair[::-1]):
            energy = true[f"dS{i}{j}"] - true[f"dH{i}{j}"] / kelvin
            rates["abc".index(i), "abc".index(j)] = (
                BOLTZMANN_OVER_PLANCK * kelvin * math.exp(energy / GAS_CONSTANT))
    return rates


def two_sites(kex, pb):
    return Exchange({(0, 1): kex * pb, (1, 0): kex * (1 - pb)})


def dipolar(true, x, labels):
    pb = 0.5 * (1 - math.sqrt(1 - 4 * true["papb"]))
    shift = true["dw"] * x[2] + (0, -math.pi, math.pi)[int(x[3])] * true["dJ"]
    return intrinsic(true, labels) + two_sites(true["kex"], pb).decay(x[0], [0, shift])


def titration(true, x, labels):
    exchange = Exchange({(0, 1): true[f"Bkon_{labels[0]}_{labels[2]}"], (1, 0): true["koff"]})
    return intrinsic(true, labels) + exchange.decay(x[0], [0, true["dw"] * x[2]])


def three_sites(true, x, labels):
    """B - A - C."""
    exchange = Exchange({(0, 1): true["kab"], (1, 0): true["kba"],
                         (0, 2): true["kac"], (2, 0): true["kca"]})
    return intrinsic(true, labels) + exchange.decay(
        x[0], [0, true["dwab"] * x[3], true["dwac"] * x[3]])


def three_site_ligand(true, x, labels):
    """Free - intermediate - bound."""
    binding = true[f"Bkon_{labels[0]}_{labels[2]}"]
    exchange = Exchange({(0, 1): true["kfi"], (1, 0): true["kif"],
                         (1, 2): binding, (2, 1): true["koff"]})
    return intrinsic(true, labels) + exchange.decay(
        x[0], [0, true["dwfi"] * x[3], true["dwfb"] * x[3]])


def three_site_temperature(true, x, labels):
    """B - A - C."""
    return intrinsic(true, labels) + Exchange(eyring(true, x[1], "ab", "ac")).decay(
        x[0], [0, true["dwab"] * x[3], true["dwac"] * x[3]])


def multiple_quantum(true, x, labels):
    nitrogen, proton = [0, true["dwN"] * x[3]], [0, true["dwH"] * x[3]]
    shifts = {0: (nitrogen,), 1: (proton,), 4: (nitrogen, proton), 5: (proton, nitrogen)}[int(x[4])]
    return intrinsic(true, labels) + two_sites(true["kex"], true["pb"]).decay(x[0], *shifts)


def build_up(true, x, _):
    """Intensity fed with rate k by a pool that decays with R1b; Runge-Kutta."""
    def slope(time, intensity):
        return (true["k"] * math.exp(-true["R1b"] * time)
                - (true["R1a"] + true["k"]) * intensity)

    step, intensity = x[0] / 1000, 0.0
    for n in range(1000):
        time = n * step
        a = slope(time, intensity)
        b = slope(time + step / 2, intensity + step / 2 * a)
        c = slope(time + step / 2, intensity + step / 2 * b)
        d = slope(time + step, intensity + step * c)
        intensity += step / 6 * (a + 2 * b + 2 * c + d)
    return intensity


def exponential_decay(true, x, _):
    return true["a"] * math.exp(true["b"] * x[0])


def inversion_recovery(true, x, _):
    return true["a"] * (1 - 2 * math.exp(true["b"] * x[0]))


def denaturation(true, x, _):
    native = 1 / (1 + math.exp((x[0] - true["tm"]) / true["m"]))
    return native * true["a1"] + (1 - native) * true["a2"]


# model: function of the true values, x and labels; columns of x, whether there are labels
MODELS = {
    "Exp2": (exponential_decay, 1, False),
    "SIRE": (inversion_recovery, 1, False),
    "Sig_boltz": (denaturation, 1, False),
    "CLEANEX": (build_up, 2, True),
    "CPMG_TEMP2": (temperature, 3, True),
    "CPMG_RDC": (dipolar, 4, True),
    "CPMG_Bind2": (titration, 4, True),
    "CPMG_matrix3": (three_sites, 4, True),
    "CPMG_bind3b": (three_site_ligand, 5, True),
    "CPMG_temp3folked": (three_site_temperature, 4, True),
    "MQCPMG_Richards_p": (multiple_quantum, 5, True),
}


def truth(text):
    """{set: {name: value}} of the lines '# Truth SET: name value, name value'."""
    sets = {}
    for title, values in re.findall(r"^# Truth (\S+): (.*)$", text, re.MULTILINE):
        pairs = (pair.split() for pair in values.split(", "))
        sets.setdefault(title, {}).update((name, float(value)) for name, value in pairs)
    return sets


def remade(text, noise):
    """The input with new y; noise(sigma) is added to the true value."""
    function, columns, has_labels = MODELS[re.search(r"^FUNCTION (\S+)", text, re.MULTILINE)[1]]
    lines, true = [], None
    for line in text.splitlines():
        words = line.split()
        if line.startswith("SET "):
            true = truth(text)[words[1]]
        elif line.startswith("DATA "):
            x = [float(word) for word in words[1:1 + columns]]
            y = 1 + columns + has_labels
            value = function(true, x, list(words[y - 1]) if has_labels else None)
            words[y] = f"{value + noise(float(words[y + 1])):.4f}"
            line = " ".join(words)
        lines.append(line + "\n")
    return "".join(lines)


def main():
    for name in sys.argv[1:]:
        path = pathlib.Path(name)
        text = path.read_text()
        seed = int(re.search(r"^# Made by .* seed (\d+)", text, re.MULTILINE)[1])
        path.write_text(remade(text, Noise(seed)))


if __name__ == "__main__":
    main()
