# SPDX-License-Identifier: LGPL-2.1-or-later
"""SIGINT to scanimage in the middle of a page, then a whole page."""

import signal
import subprocess
import sys
import time

command = ["scanimage", "--format=pnm", "--resolution", "75", *sys.argv[1:]]

for progress in (0, 20, 60):
    scan = subprocess.Popen(command + ["-p", "-o", "interrupted.pnm"], stderr=subprocess.PIPE,
                            text=True)
    reached, seen = -1.0, ""
    while reached < progress:
        character = scan.stderr.read(1)
        assert character, seen
        seen += character
        if character == "%":
            reached = float(seen[:-1].rpartition(" ")[2])
    began = time.monotonic()
    scan.send_signal(signal.SIGINT)
    rest = scan.stderr.read()
    status = scan.wait(20)
    took = time.monotonic() - began
    assert "trying to stop scanner" in rest, rest
    # Not ended by a signal: scanimage reports the status of its last read.
    assert status == 2, status
    assert took < 1.0, took
    print(f"interrupted at {reached} %: {took:.2f} s, status {status}")

subprocess.run(command + ["-o", "page.pnm"], check=True)
