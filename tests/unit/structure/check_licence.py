#!/usr/bin/python3
# SPDX-License-Identifier: LGPL-2.1-or-later
"""Every file of ours says under which licence it comes, in one of its first two lines. Those that
cannot (recorded bytes, JSON) are named in debian/copyright."""

import subprocess
import sys
from pathlib import Path

LINE = "SPDX-License-Identifier: LGPL-2.1-or-later"
WITHOUT = ("COPYING", "CMakePresets.json", "debian/changelog", "debian/source/format", "*.bin",
           "tests/fuzz/*/corpus/*", "tests/fuzz/*/regressions/*", "tests/tools/trace/samples/*")


def says_its_licence(path):
    with open(path, "rb") as file:
        return any(LINE.encode() in file.readline() for _ in range(2))


def main():
    root = Path(sys.argv[1])
    # Only git knows which files are ours. Where there is a checkout, git has to answer.
    if not (root / ".git").exists():
        print("Not a git checkout, nothing to look at")
        return 77
    listed = subprocess.run(["git", "-c", "safe.directory=*", "-C", root, "ls-files", "--cached",
                             "--others", "--exclude-standard"],
                            check=True, stdout=subprocess.PIPE, text=True)
    files = [name for name in listed.stdout.splitlines() if (root / name).is_file()
             and not any(Path(name).match(pattern) for pattern in WITHOUT)]
    silent = [name for name in files if not says_its_licence(root / name)]
    for name in silent:
        print(f"{name}: no line \"{LINE}\"")
    print(f"{len(files)} files")
    return 1 if silent or not files else 0


sys.exit(main())
