#!/usr/bin/python3
# SPDX-License-Identifier: LGPL-2.1-or-later
"""Checks that a module exports the entry points and nothing else, and that no call inside
of it could be bound to an entry point of another backend.

usage: check_exports.py <module>
"""

import re
import subprocess
import sys

NAMES = ["ScanLib", "QuillonLegacy_1_0_0", "Oxle09"]
OPERATIONS = ["init", "exit", "get_devices", "open", "close", "get_option_descriptor",
              "control_option", "get_parameters", "start", "read", "cancel", "set_io_mode",
              "get_select_fd"]


def output(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def main(module):
    expected = {f"sane_{name}_{operation}" for name in NAMES for operation in OPERATIONS}
    assert len(expected) == 39
    symbols = output("nm", "-D", "--defined-only", module).splitlines()
    exported = {line.split()[-1].split("@")[0] for line in symbols}

    problems = [f"not exported: {name}" for name in sorted(expected - exported)]
    problems += [f"exported: {name}" for name in sorted(exported - expected)]
    relocations = output("readelf", "-Wr", module)
    if "Relocation section" not in relocations:
        problems.append("no relocations found")
    problems += [f"relocation: {line}" for line in relocations.splitlines()
                 if re.search(r"\bsane_", line)]
    for problem in problems:
        print(problem)
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1]))
