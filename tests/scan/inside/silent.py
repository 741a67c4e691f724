# SPDX-License-Identifier: LGPL-2.1-or-later
"""SIGINT to scanimage while the scanner says nothing more; then, from a new process, a page."""

import signal
import subprocess
import sys
import time

command = ["scanimage", "-d", sys.argv[1], "--format=pnm", "--resolution", "75"]
scan = subprocess.Popen(command + ["-p", "-o", "silent.pnm"], stderr=subprocess.PIPE, text=True)
seen = ""
while "%" not in seen:
    character = scan.stderr.read(1)
    assert character, seen
    seen += character
time.sleep(2)  # the silence has begun
assert scan.poll() is None, scan.stderr.read()
began = time.monotonic()
scan.send_signal(signal.SIGINT)
rest = scan.stderr.read()
status = scan.wait(30)
took = time.monotonic() - began
print(f"ended after {took:.2f} s with {status}: {rest}")
assert took < float(sys.argv[2]), took
subprocess.run(command + ["-o", "page.pnm"], check=True)
