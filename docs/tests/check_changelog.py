#!/usr/bin/python3
# SPDX-License-Identifier: LGPL-2.1-or-later
"""Checks that the changelog's newest version is the project's, and that the library tells SANE the
same.

usage: check_changelog.py <root of the source> <version>
"""

import re
import sys
from pathlib import Path


def main(root, version):
    changelog = (Path(root) / "CHANGELOG.md").read_text(encoding="utf-8")
    released = re.findall(r"^## \[([\d.]+)\] - \d{4}-\d\d-\d\d$", changelog, re.MULTILINE)
    code = re.search(r"SANE_VERSION_CODE\((\d+), (\d+), (\d+)\)",
                     (Path(root) / "src/SaneInterface.cpp").read_text(encoding="utf-8"))
    problems = []
    if released[:1] != [version]:
        problems.append(f"the project is {version}, the changelog has {released}")
    if code is None or ".".join(code.groups()) != version:
        problems.append(f"the project is {version}, SANE is told {code and code.group()}")
    for problem in problems:
        print(problem)
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
