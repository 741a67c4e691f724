# SPDX-License-Identifier: LGPL-2.1-or-later
"""The control socket of the simulation."""

import os
import socket


def tell_simulation(line):
    """Returns the answer."""
    with socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) as control:
        control.connect(os.environ["SCANNER_SIM_CONTROL"])
        control.sendall(line.encode() + b"\n")
        answer = control.recv(4096).decode().strip()
    assert not answer.startswith("error"), (line, answer)
    return answer
