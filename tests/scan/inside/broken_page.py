# SPDX-License-Identifier: LGPL-2.1-or-later
"""Reads a page that is broken, then a good one on the same handle, and writes their bytes.

Usage: broken_page.py STATUS BROKEN-OUTPUT GOOD-OUTPUT
"""

import sys

from sane_api import Sane


def write(path, data):
    with open(path, "wb") as file:
        file.write(data)


expected, broken, good = int(sys.argv[1]), sys.argv[2], sys.argv[3]
with Sane() as sane, sane.open(sane.devices()[0]) as scanner:
    scanner.set("resolution", 75)
    scanner.set("br-y", 60)
    status, data = scanner.read_page(8188)
    assert status == expected, status
    write(broken, data)
    # The page stays over.
    assert scanner.read(8188) == (expected, b"")
    status, data = scanner.read_page(8188)
    assert status == Sane.EOF, status
    write(good, data)
