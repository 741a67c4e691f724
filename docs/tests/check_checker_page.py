#!/usr/bin/python3
# SPDX-License-Identifier: LGPL-2.1-or-later
"""Checks that the manual page of scanlib-check lists the codes that its source gives, and that page
and source have the keys that the backend reads; no others.

usage: check_checker_page.py <root of the source> <page>
"""

import re
import sys
from pathlib import Path

import roff
import sources

CODE = r"[a-z]+(?:-[a-z]+)+|crlf"


def listed_codes(lines):
    # What a list is about stands in front of it.
    lists = "\n".join(roff.plain(line) for before, line in zip(lines, lines[1:])
                      if before != ".TP" and not line.startswith("."))
    return set(re.findall(rf"(?:{CODE})(?=[,\n]|$)", lists))


def given_codes(text):
    return set(re.findall(rf'"({CODE})"', text)) - {"scanlib-check"}


def listed_keys(lines):
    text = "\n".join(roff.plain(line) for line in lines if not line.startswith(".BR"))
    return {re.sub(r"_1$", "_", key) for key in sources.KEY.findall(text) if key != "NPA"}


def check(root, page):
    """The problems, each as a line of text."""
    library = sources.read([*root.glob("src/*.cpp"), *root.glob("src/*.h")])
    read = sources.keys(library) - sources.computed_keys(library)
    sections = dict(roff.subsections(page))
    codes = given_codes(sources.read(root.glob("tools/check/*.cpp")))
    table = (root / "tools/check/Keys.cpp").read_text(encoding="utf-8")
    known = sources.keys(table) - sources.computed_keys(table)
    if not read or not codes:
        return ["nothing found in the source"]
    return [f"code {code} is not in both" for code in sorted(codes ^ listed_codes(sections["CODES"]))] + \
        [f"key {key} is not in library and table" for key in sorted(read ^ known)] + \
        [f"key {key} is not in library and page"
         for key in sorted(read ^ listed_keys(sections["KEYS OF FEATURE FILES"]))]


def main(root, page):
    problems = check(Path(root), Path(page).read_text(encoding="utf-8"))
    for problem in problems:
        print(problem)
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
