#!/usr/bin/python3
# SPDX-License-Identifier: LGPL-2.1-or-later
"""Checks that the manual page of the simulation has its options, and no others.

usage: check_simulator_page.py <scanner-sim> <page>
"""

import re
import subprocess
import sys
from pathlib import Path

import roff


def main(program, page):
    text = Path(page).read_text(encoding="utf-8")
    help_text = subprocess.run([program, "--help"], check=True, capture_output=True,
                               text=True).stdout
    offered = set(re.findall(r"^  (--[\w-]+)", help_text, re.MULTILINE))
    explained = {tag for _, lines in roff.subsections(text) for tag in roff.tags(lines)
                 if tag.startswith("--")}
    problems = [f"{option}: not in both" for option in sorted(offered ^ explained)]
    faults = help_text[help_text.index("A fault is "):].strip()
    shown = "\n".join(roff.plain(line) for line in text.splitlines())
    if faults not in shown:
        problems.append("the faults of the help are not those of the page")
    for problem in problems:
        print(problem)
    return 1 if problems or not offered else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
