"""One attempt that meets a fault, then, after recovery, a whole page on the same library.

Arguments: NAME (or "first"), then STEP=STATUS for each step that is to be reached (open, start,
read), then control lines for the simulation that let the device recover.
"""

import os
import sys
import time

from control import tell_simulation
from sane_api import Sane

name = sys.argv[1]
expected = dict(step.split("=") for step in sys.argv[2:] if step[:4] in ("open", "star", "read"))
recovery = [line for line in sys.argv[2:] if line.startswith("device ")]


def descriptors():
    """What is open, but for the dump file, which stays open until the library's exit."""
    opened = []
    for fd in os.listdir("/proc/self/fd"):
        try:
            opened.append(os.readlink(f"/proc/self/fd/{fd}"))
        except FileNotFoundError:
            pass  # the one that listed the folder
    return sorted(path for path in opened if path != "/tmp/scan.dump")


def attempt(sane):
    status, scanner = sane.try_open(name if name != "first" else sane.devices()[0])
    yield "open", status
    if scanner is None:
        return
    with scanner:
        scanner.set("resolution", 75)
        scanner.set("br-y", 60)
        status = scanner.start()
        yield "start", status
        if status == Sane.GOOD:
            yield "read", scanner.read_to_end()[0]
        scanner.cancel()


with Sane() as sane:
    sane.devices()
    before = descriptors()
    began = time.monotonic()
    reached = {step: str(status) for step, status in attempt(sane)}
    print(f"{reached} after {time.monotonic() - began:.2f} s")
    assert reached == expected, (reached, expected)
    assert descriptors() == before, (descriptors(), before)

    for line in recovery:
        tell_simulation(line)
    with sane.open(sane.devices()[0]) as scanner:
        scanner.set("resolution", 75)
        scanner.set("br-y", 60)
        status, page = scanner.read_page()
        assert status == Sane.EOF, status
    with open("page.bin", "wb") as file:
        file.write(page)
