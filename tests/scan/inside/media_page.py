# SPDX-License-Identifier: LGPL-2.1-or-later
"""Two sheets of a media size from the feeder; the parameters after the start fit the data."""

import sys

from sane_api import Sane

with Sane() as sane, sane.open(sane.devices()[0]) as scanner:
    scanner.set("resolution", 150)
    scanner.set("source", "Automatic Document Feeder")
    scanner.set("media", sys.argv[1])
    for sheet in range(2):
        before = scanner.parameters()
        assert scanner.start() == Sane.GOOD
        after = scanner.parameters()
        assert before.bytes_per_line == after.bytes_per_line, (before.bytes_per_line,
                                                               after.bytes_per_line)
        status, page = scanner.read_to_end()
        assert status == Sane.EOF
        assert len(page) == after.bytes_per_line * after.lines, (len(page), after.lines)
