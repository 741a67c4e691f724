# SPDX-License-Identifier: LGPL-2.1-or-later
"""A second process meets a scanner in use; the first one's page is unharmed."""

import subprocess
import sys

from sane_api import Sane

if len(sys.argv) > 1:
    with Sane() as sane:
        status, scanner = sane.try_open(sys.argv[1])
        if scanner:
            with scanner:
                status = scanner.start() or scanner.read_to_end()[0]
        sys.exit(status)

with Sane() as sane:
    [name] = sane.devices()

    def second_process():
        return subprocess.run([sys.executable, __file__, name], check=False).returncode

    with sane.open(name) as scanner:
        scanner.set("resolution", 75)
        status, page = scanner.read_page()
        assert status == Sane.EOF, status
        assert scanner.start() == Sane.GOOD
        status, first = scanner.read(5000)
        assert status == Sane.GOOD, status
        assert second_process() == Sane.IO_ERROR
        assert scanner.read_to_end() == (Sane.EOF, page[len(first):])
    assert second_process() == Sane.EOF
