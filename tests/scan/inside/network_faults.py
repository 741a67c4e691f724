"""Faults of a network scanner in turn, on one library: the statuses that they lead to, and after
each of them a whole page.

Arguments: triples of what the simulation is told (lines about the device, with ";" between them),
START/READ (the statuses; - if there is no read), and what it is told after that, or nothing.
"""

import sys
import time

from control import tell_simulation
from sane_api import Sane


def attempt(scanner):
    scanner.set("resolution", 75)
    scanner.set("br-y", 60)
    status = scanner.start()
    if status != Sane.GOOD:
        return str(status), "-", b""
    read, page = scanner.read_to_end()
    return str(status), str(read), page


with Sane() as sane:
    name = sane.devices()[0]
    with sane.open(name) as scanner:
        start, read, whole = attempt(scanner)
        scanner.cancel()
        assert (start, read) == ("0", "5"), (start, read)
    failures = []
    for fault, expected, recovery in zip(*[iter(sys.argv[1:])] * 3):
        for line in fault.split("; "):
            tell_simulation(f"device 1: {line}")
        began = time.monotonic()
        status, scanner = sane.try_open(name)
        if scanner is None:
            got = f"open {status}"
        else:
            with scanner:
                start, read, _ = attempt(scanner)
                scanner.cancel()
            got = f"{start}/{read}"
        print(f"{fault}: {got} after {time.monotonic() - began:.2f} s", flush=True)
        if got != expected:
            failures.append((fault, got, expected))
        if recovery:
            tell_simulation(f"device 1: {recovery}")
        with sane.open(name) as scanner:
            start, read, page = attempt(scanner)
            scanner.cancel()
            if (start, read) != ("0", "5") or page != whole:
                failures.append((fault, "afterwards", start, read, len(page)))
                break
    assert not failures, failures
