# SPDX-License-Identifier: MIT
"""The table that bench/run prints, and the limits."""

import json
import os
import statistics
from dataclasses import dataclass

RECORD = os.path.join(os.path.dirname(os.path.abspath(__file__)), "record.json")
ROOM = 1.03  # of a limit over what is recorded


def recorded_figures():
    with open(RECORD, encoding="utf-8") as file:
        return json.load(file)


@dataclass
class Row:
    """One figure, measured in pairs of the library's value and the floor's.

    What is judged is their ratio, the library's value itself, or its excess over the floor's. Its limit is `most`. That of
    what is the same each time stands above what is recorded, by ROOM or by `slack`, whichever is more. A row without either
    is told only."""

    name: str
    unit: str = ""
    judged: str = "ratio"
    most: float = None
    steady: bool = False
    slack: float = 0.0

    def judged_values(self, pairs):
        """Of each pair."""
        judge = {"ratio": lambda library, floor: library / floor, "value": lambda library, _: library,
                 "excess": lambda library, floor: library - floor}[self.judged]
        return [judge(*pair) for pair in pairs]


def text_of(value):
    if value is None:
        return "-"
    digits = 0 if abs(value) >= 1000 else 1 if abs(value) >= 100 else 2
    return f"{value:,.{digits}f}"


class Report:
    """Prints a line for each row as it comes, and remembers what misses its limit."""

    def __init__(self, recording):
        self.recording = recording
        self.recorded = {} if recording else recorded_figures()
        self.figures = {}
        self.misses = []
        print(f"{'':52}{'library':>12}{'floor':>12}{'ratio':>8}  {'spread':<17}limit")

    def line(self, row, pairs):
        """The spread is that of what is judged."""
        library, floor = map(statistics.median, zip(*pairs))
        judged = row.judged_values(pairs)
        middle = statistics.median(judged)
        limit = self.limit_of(row, middle)
        # Neighbours are compared: the ratio is not the quotient of the two medians beside it.
        ratio = statistics.median(pair[0] / pair[1] for pair in pairs) if all(pair[1] for pair in pairs) else None
        spread = f"{text_of(min(judged))}..{text_of(max(judged))}"
        label = f"{row.name} ({row.unit})" if row.unit else row.name
        shown = "" if limit is None else f"{row.judged} {text_of(limit)}"
        print(f"{label:52}{text_of(library):>12}{text_of(floor):>12}{text_of(ratio):>8}  {spread:<17}{shown}", flush=True)
        if limit is not None and middle > limit:
            self.misses.append(f"{label}: {row.judged} {middle:.3f} is more than {limit:.3f}")

    def limit_of(self, row, middle):
        if not row.steady:
            return row.most
        self.figures[row.name] = round(middle, 3)
        if self.recording:
            return row.most
        if row.name not in self.recorded:
            self.misses.append(f"{row.name}: nothing to be compared with: bench/run --record")
            return row.most
        recorded = self.recorded[row.name]
        return max(recorded * ROOM, recorded + row.slack)

    def write_record(self):
        with open(RECORD, "w", encoding="utf-8") as file:
            json.dump(self.figures, file, indent=2)
            file.write("\n")
