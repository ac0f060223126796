# SPDX-License-Identifier: MIT
"""What those who plant mistakes have in common: tests/planted/run and tests/simulation/defects/run."""

import os
import subprocess

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
LONGEST = 600  # seconds of a step; one that hangs has seen something


def text_of(path):
    with open(path, encoding="utf-8") as file:
        return file.read()


def write(path, text):
    with open(path, "w", encoding="utf-8") as file:
        file.write(text)


def fails(log_path, *words, cwd=ROOT, mode="w"):
    """Whether the command does, or hangs; what it says is in that log."""
    with open(log_path, mode, encoding="utf-8") as log:
        try:
            return subprocess.run(words, cwd=cwd, stdin=subprocess.DEVNULL, stdout=log, stderr=log, timeout=LONGEST,
                                  check=False).returncode != 0
        except subprocess.TimeoutExpired:
            return True


def chosen(names, all_names, usage):
    """The named ones, or all; ends the program when one is unknown."""
    unknown = set(names) - set(all_names)
    if unknown:
        raise SystemExit(f"unknown: {', '.join(sorted(unknown))}\n{usage}")
    return [name for name in all_names if not names or name in names]
