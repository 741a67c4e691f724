#!/usr/bin/python3
# SPDX-License-Identifier: LGPL-2.1-or-later
"""Checks that the manual page of scanlib-check lists the codes that its source gives, and no others.

usage: check_codes.py <source folder> <page>
"""

import re
import sys
from pathlib import Path

import roff

CODE = r"[a-z]+(?:-[a-z]+)+|crlf"


def main(folder, page):
    sections = dict(roff.subsections(Path(page).read_text(encoding="utf-8")))
    # What a list is about stands in front of it.
    lists = "\n".join(roff.plain(line) for before, line in zip(sections["CODES"], sections["CODES"][1:])
                      if before != ".TP" and not line.startswith("."))
    listed = set(re.findall(rf"(?:{CODE})(?=[,\n]|$)", lists))
    given = set()
    for source in Path(folder, "tools", "check").glob("*.cpp"):
        given.update(re.findall(rf'"({CODE})"', source.read_text(encoding="utf-8")))
    given.discard("scanlib-check")
    problems = [f"{code}: not in both" for code in sorted(given ^ listed)]
    for problem in problems:
        print(problem)
    return 1 if problems or not given else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
