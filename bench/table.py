# SPDX-License-Identifier: LGPL-2.1-or-later
"""Reads lines "NAME VALUE" and prints them as a table, each figure beside what it has to reach. Ends
with 1 where one is missing or misses."""

import sys

AT_LEAST, AT_MOST = "at least", "at most"
# Title, name of the figure, what it has to reach.
ROWS = [
    ("Decoder beside libjpeg-turbo with its vector code, colour q75", "decoder-colour-q75",
     AT_LEAST, 1.5),
    ("    colour q90", "decoder-colour-q90", AT_LEAST, 1.5),
    ("    grey q90", "decoder-grey-q90", AT_LEAST, 1.4),
    ("Raw page, 600 dpi colour, beside a copy in and a copy out", "raw-to-memcpy", AT_MOST, 3.0),
    ("    bytes copied for each that is delivered", "raw-copies", AT_MOST, 4.0),
    ("    allocations of a page", "raw-allocations", AT_MOST, 50),
    ("    more of them for twice the lines", "raw-allocations-more-for-twice-the-lines", AT_MOST,
     0),
    ("    calls of getpid while nothing is logged", "raw-getpids", AT_MOST, 0),
    ("Network page, 600 dpi colour, beside the recv, a copy in and out", "network-to-memcpy",
     None, None),
    ("    bytes copied for each that is delivered, beside the recv", "network-copies", AT_MOST, 4.0),
    ("    allocations of a page", "network-allocations", AT_MOST, 50),
    ("Compressed page, q90, beside libjpeg-turbo alone", "compressed-to-libjpeg", AT_LEAST, 0.8),
    ("    bytes copied for each that is delivered", "compressed-copies", AT_MOST, 3.5),
    ("Colours swapped, beside memcpy", "swap-to-memcpy", AT_MOST, 1.5),
    ("Lines mirrored, beside memcpy", "flip-to-memcpy", AT_MOST, 2.0),
    ("Half-lines merged, beside memcpy", "interleave-to-memcpy", AT_MOST, 2.0),
    ("A log call that is off, beside getenv", "log-to-getenv", AT_MOST, 1.5),
    ("scanimage, raw 600 dpi colour, beside it on SANE's test backend",
     "scanimage-to-test-backend", AT_LEAST, 2.0),
    ("Memory of scanimage for a 600 dpi colour page, KB", "memory-KB-page", AT_MOST, 4096),
    ("    for twice the page", "memory-KB-twice-the-page", AT_MOST, 4096),
    ("A pixel beside its copies, largest by smallest of 300 to 1200 dpi", "pixel-spread", AT_MOST, 1.15),
    ("From open to the first byte, simulated scanner, ms", "open-to-first-byte-ms", None, None),
    ("From cancel to its return, ms", "cancel-to-return-ms", None, None),
]


def read_figures(lines):
    figures = {}
    for line in lines:
        name, value = line.split()
        figures[name] = float(value)
    # The kernel that the processor gets.
    for name in [name for name in figures if name.startswith("decoder-")]:
        plain = name.rpartition("-")[0]
        figures[plain] = max(figures[name], figures.get(plain, 0))
    costs = [figures[f"pixel-{dpi}-to-memcpy"] for dpi in (300, 600, 1200)]
    figures["pixel-spread"] = max(costs) / min(costs)
    return figures


def reaches(value, how, target):
    return how is None or (value >= target if how == AT_LEAST else value <= target)


def main():
    figures = read_figures(sys.stdin)
    missed = []
    for title, name, how, target in ROWS:
        value = figures[name]
        goal = "" if how is None else f"{how} {target:g}"
        verdict = "" if reaches(value, how, target) else "  MISSED"
        if verdict:
            missed.append(name)
        print(f"{title:66} {value:9.4g}   {goal:14}{verdict}")
    print()
    for name in sorted(figures):
        if name not in [row[1] for row in ROWS]:
            print(f"{name:66} {figures[name]:9.4g}")
    return 1 if missed else 0


sys.exit(main())
