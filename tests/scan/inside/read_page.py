# SPDX-License-Identifier: LGPL-2.1-or-later
"""Reads one page and writes its bytes as they come.

Usage: read_page.py OUTPUT DPI WIDTH-MM HEIGHT-MM
"""

import sys

from sane_api import Sane

output, dpi, width, height = sys.argv[1], *map(int, sys.argv[2:5])
with Sane() as sane, sane.open(sane.devices()[0]) as scanner:
    scanner.set("resolution", dpi)
    scanner.set("br-x", width)
    scanner.set("br-y", height)
    status, data = scanner.read_page()
    assert status == Sane.EOF, status
    with open(output, "wb") as file:
        file.write(data)
