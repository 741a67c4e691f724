"""The control socket of the simulation."""

import os
import socket


def tell_simulation(line):
    with socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) as control:
        control.connect(os.environ["SCANNER_SIM_CONTROL"])
        control.sendall(line.encode() + b"\n")
        answer = control.recv(4096).decode()
    print(line, "->", answer.strip())
