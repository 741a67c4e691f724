#!/usr/bin/python3
# SPDX-License-Identifier: LGPL-2.1-or-later
"""Checks that every unit includes only headers of its own layer or of lower ones.

The layers are the rows of the table "| Layer | Units |", lowest first; the units of a row
are paths below the source folder without suffix, in backticks or separated by commas.

usage: check_layers.py <source folder> <file with the table>
"""

import re
import sys
from pathlib import Path

INCLUDE = re.compile(r'^[ \t]*#[ \t]*include[ \t]+"([^"]+)"', re.MULTILINE)


def read_table(text):
    """The layers as (name, units)."""
    layers = []
    in_table = False
    for line in text.splitlines():
        cells = [cell.strip() for cell in line.strip().strip("|").split("|")]
        if not line.strip().startswith("|"):
            in_table = False
        elif cells[:2] == ["Layer", "Units"]:
            in_table = True
        elif in_table and not set(line) <= set("|-: "):
            units = re.findall(r"`([^`]+)`", cells[1]) or cells[1].split(",")
            layers.append((cells[0], [unit.strip() for unit in units if unit.strip()]))
    return layers


def check(source, table):
    """The problems, each as a line of text."""
    files = sorted(path for path in source.rglob("*") if path.suffix in (".h", ".cpp", ".c"))

    def unit_of(path):
        return str(path.relative_to(source).with_suffix(""))

    problems = []
    level = {}
    layers = read_table(table)
    for number, (_, units) in enumerate(layers):
        for unit in units:
            if unit in level:
                problems.append(f"{unit}: twice in the table")
            level[unit] = number
    units_there = {unit_of(path) for path in files}
    problems += [f"{unit}: not in the table" for unit in sorted(units_there - set(level))]
    problems += [f"{unit}: in the table, but there is no such unit"
                 for unit in sorted(set(level) - units_there)]
    if not files:
        problems.append("no source files found")

    for path in files:
        for name in INCLUDE.findall(path.read_text(encoding="utf-8")):
            target = next((candidate for candidate in (path.parent / name, source / name)
                           if candidate.is_file()), None)
            if target is None:
                problems.append(f"{path.relative_to(source)}: {name} not found")
                continue
            own, other = unit_of(path), unit_of(target.resolve())
            if own in level and other in level and level[other] > level[own]:
                problems.append(f"{path.relative_to(source)} ({layers[level[own]][0]}) includes "
                                f"{name} ({layers[level[other]][0]})")
    return problems


def main(source, table):
    problems = check(Path(source).resolve(), Path(table).read_text(encoding="utf-8"))
    for problem in problems:
        print(problem)
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
