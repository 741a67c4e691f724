# SPDX-License-Identifier: LGPL-2.1-or-later
"""Holds the port of the search for network scanners while a command runs."""

import socket
import subprocess
import sys

holder = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
holder.bind(("", 5353))
sys.exit(subprocess.run(sys.argv[1:]).returncode)
