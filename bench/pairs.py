# SPDX-License-Identifier: MIT
"""Both sides of the comparison, measured one after the other."""

from dataclasses import dataclass

KINDS = ("library", "floor")


@dataclass
class Bench:
    """What measuring needs."""

    programs: object
    nginx: object
    sink: object
    report: object
    timed: bool  # processor time as well, not only what is the same each time


def pairs_of(count, measure):
    """`count` pairs of what `measure` says of each kind. The order is turned round each time: nobody always goes first."""
    pairs = []
    for number in range(count):
        kinds = KINDS if number % 2 == 0 else KINDS[::-1]
        values = {kind: measure(kind) for kind in kinds}
        pairs.append(tuple(values[kind] for kind in KINDS))
    return pairs


def column(pairs, name):
    """Of pairs of several figures, those with this name."""
    return [tuple(figures[name] for figures in pair) for pair in pairs]
