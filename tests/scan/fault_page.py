# SPDX-License-Identifier: LGPL-2.1-or-later
"""docs/faults.md, made from the table of faults. Run by itself, writes it anew."""

import re
from itertools import groupby
from pathlib import Path

from fault_table import BLOCK, GROUPS

PATH = Path(__file__).resolve().parents[2] / "docs" / "faults.md"
STATUSES = {0: "GOOD", 1: "UNSUPPORTED", 2: "CANCELLED", 3: "DEVICE_BUSY", 4: "INVAL", 5: "EOF",
            6: "JAMMED", 7: "NO_DOCS", 9: "IO_ERROR", 10: "NO_MEM"}
DELIVERED = {"page": "the page", "sent": "all that is sent", "lines": "all lines that are sent",
             "beginning": "its beginning", "nothing": "nothing", "other": "**other pixels**"}
INTRODUCTION = """\
<!-- SPDX-License-Identifier: LGPL-2.1-or-later -->
# Faults

What devices can do wrong, and what a front end sees of it. Each row is a test on a simulated
scanner, with genuine libusb, sockets and SANE. To run them ({rounds} faults in {rows} rows):

    ctest --test-dir build/release -R scan.faults --verbose

This page is made from the table that the test carries out, `tests/scan/fault_table.py`, and the
test fails where the two differ. Faults are written as `scanner-sim --fault` takes them, see
`scanner-sim --help`; `{{}}` stands for each of the values behind it.

Columns: the calls with their SANE statuses, up to the first that fails; the longest that any of
them, or the cancel and close that follow, may take; and what is delivered of the page. One second
more is allowed for a slow machine. Where a section says that its clock is a fast one, waits are
that much shorter, 0.3 s of the machine's time are allowed on top (30 s of a clock 100 times as
fast), and what exceeds a limit or fails is tried once more, because there a machine that pauses looks
like a device that hangs.

What is delivered:

- *the page*: all of it, right; *N blocks*, *N bytes*: so many of it from its beginning, and no more;
  *its beginning*: however much of it; *all that is sent*: every byte that the device has sent for it;
  *all lines that are sent*: its whole lines, and what there is of another one;
- ***other pixels***: not those of the paper, although the status may be good. The protocol has no
  means to notice; the last column says why.

After every fault the handle can be cancelled and closed, no descriptor is left open, and the next
open, start, read and close give a page that is compared with the one that was played. No row leaves
memory in use that grows when it is repeated, and the sanitizers find no leak behind a section.
"""


def values_text(values):
    """Numbers as ranges, words as they are."""
    if not isinstance(values[0], int):
        return ", ".join(f"`{value}`" for value in values)
    parts = []
    for _, run in groupby(enumerate(values), lambda pair: pair[1] - pair[0]):
        numbers = [number for _, number in run]
        parts.append(f"{numbers[0]}" if len(numbers) == 1 else f"{numbers[0]}–{numbers[-1]}")
    return ", ".join(parts)


def fault_text(row):
    parts = [f"`{part[1:]}` (control)" if part.startswith("!") else f"`{part}`"
             for part in row.fault.split("; ")]
    values = f": {values_text(row.values)}" if len(row.values) > 1 else ""
    return "; ".join(parts) + values


def call_text(call):
    control = re.fullmatch(r"\[(.*)\]", call)
    if control:
        return f"`{control[1]}`"
    name, relation, status = re.fullmatch(r"([a-z]+)([=!]?)(\d*)", call).groups()
    if name == "list":
        return f"list {status}"
    if not status:
        return name
    return f"{name} {STATUSES[int(status)]}" + (" (cancelled)" if relation == "!" else "")


def calls_text(calls):
    return ", ".join(call_text(call) for call in re.findall(r"\[[^]]*\]|\S+", calls))


def delivered_text(delivered):
    kind, _, number = delivered.partition(" ")
    return DELIVERED.get(kind) or f"{number} {kind}"


def seconds_text(limit):
    return f"{limit} s" if limit < 120 else f"{limit // 60} min {limit % 60} s"


def section(groups):
    first = groups[0]
    clock = f" The clock is {first.speed} times as fast." if first.speed > 1 else ""
    lines = [f"## {first.name}", "", f"{first.intro} Blocks have {BLOCK} bytes.{clock}", "",
             "| Fault | Calls | Within | Delivered | |", "|---|---|---|---|---|"]
    lines += [f"| {fault_text(row)} | {calls_text(row.calls)} | {seconds_text(row.limit)} "
              f"| {delivered_text(row.delivered)} | {row.note} |"
              for group in groups for row in group.rows]
    return "\n".join(lines) + "\n"


def row_count():
    return sum(len(group.rows) for group in GROUPS)


def fault_count():
    return sum(len(row.values) for group in GROUPS for row in group.rows)


def text():
    introduction = INTRODUCTION.format(rows=row_count(), rounds=fault_count())
    sections = [section(list(groups)) for _, groups in groupby(GROUPS, lambda group: group.name)]
    return "\n".join([introduction, *sections])


if __name__ == "__main__":
    PATH.write_text(text())
