# SPDX-License-Identifier: LGPL-2.1-or-later
"""Faults of one simulated device in turn, on one library: what each call gives and how long it
takes, what is delivered, what is left behind; and after each of them a whole page.

Argument: a file with a group of rows (see fault_table.py) as JSON.
"""

import ctypes
import gc
import json
import os
import re
import select
import subprocess
import sys
import threading
import time

from control import tell_simulation
from sane_api import Sane

CALL = re.compile(
    r"\[(?P<control>[^]]*)\]|(?P<call>[a-z]+)(?:(?P<relation>[=!])(?P<status>\d+))?")
PART = 1000
REPEATS = 4  # of a row that is over at once: what leaks does so every time
IS_SANITIZED = "libasan" in os.environ.get("LD_PRELOAD", "")
PATIENCE = 0.5  # of the machine's seconds, before a cancel


class Mallinfo(ctypes.Structure):
    _fields_ = [(name, ctypes.c_size_t) for name in
                ("arena ordblks smblks hblks hblkhd usmblks fsmblks uordblks fordblks "
                 "keepcost").split()]


LIBC = ctypes.CDLL(None)
LIBC.mallinfo2.restype = Mallinfo


def memory_in_use():
    gc.collect()
    info = LIBC.mallinfo2()
    return info.uordblks + info.hblkhd


def descriptors():
    """What is open, but for the dump file, which stays open until the library's exit."""
    opened = []
    for fd in os.listdir("/proc/self/fd"):
        try:
            opened.append(os.readlink(f"/proc/self/fd/{fd}"))
        except FileNotFoundError:
            pass  # the one that listed the folder
    return sorted(path for path in opened if path != "/tmp/scan.dump")


def tell(line):
    return tell_simulation(f"device 1: {line}")


class Device:
    def __init__(self, sane, group):
        self.sane = sane
        self.options = group["options"]
        self.block = group["block"]
        self.is_fast = group["isFast"]
        self.sheets = group["sheets"]  # of which each is another page; 0: always the same page
        self.name = sane.devices()[0]
        self.page = None

    def current_name(self):
        """A device that was plugged in anew has another file."""
        file = re.search(r"file=(\d+)", tell("state?"))
        if not file:
            return self.name
        return f"{self.name.rpartition('/')[0]}/{int(file[1]):03}"

    def recover(self, lines):
        tell("forget-faults")
        for line in lines:
            tell(line)
        if tell("state?").startswith("unplugged"):
            tell("plug")
        self.load_sheets()

    def load_sheets(self):
        if self.sheets:
            tell(f"load-sheets {self.sheets}")

    def set_up(self, scanner):
        """Says which options were refused."""
        return [option for option, value in self.options.items()
                if scanner.try_set(option, value)[0] != Sane.GOOD]

    def recorded(self):
        """What the device has handed out of its last page, as the front end should see it."""
        number = int(re.search(r"pages=(\d+)", tell("state?"))[1])
        [path] = [f"recorded/{name}" for name in os.listdir("recorded")
                  if name.endswith(f"-{number:03}.pnm")]
        with open(path, "rb") as file:
            magic, size, _, samples = file.read().split(b"\n", 3)
        channels = 3 if magic == b"P6" else 1
        self.line_size = int(size.split()[0]) * channels
        chunks = path.replace(".pnm", ".wck")
        if os.path.exists(chunks):
            subprocess.run([os.environ["WICKET_DECODE"], chunks, size.split()[0],
                            str(channels), "decoded"], check=True)
            with open("decoded", "rb") as file:
                samples = file.read()
        return samples

    def scan_page(self):
        with self.sane.open(self.current_name()) as scanner:
            assert not self.set_up(scanner), "afterwards: an option is refused"
            status, page = scanner.read_page()
            scanner.cancel()
        assert status == Sane.EOF, f"afterwards: read gives {status}"
        recorded = self.recorded()
        assert len(page) > 10 * PART and page == recorded, "afterwards: wrong page"
        assert self.sheets or self.page in (None, page), "afterwards: another page"
        self.page = page
        self.load_sheets()


class Attempt:
    """The calls of a row, until one of them gives another status than is expected."""

    def __init__(self, device):
        self.device = device
        self.scanner = None
        self.data = b""
        self.longest = 0.0
        self.patience = 0.0

    def timed(self, call, *arguments):
        began = time.monotonic()
        result = call(*arguments)
        took = time.monotonic() - began
        # What is interrupted takes as long as it is left alone.
        self.longest = max(self.longest, took - self.patience)
        return result

    def list(self):
        return len(self.timed(self.device.sane.devices))

    def open(self):
        status, self.scanner = self.timed(self.device.sane.try_open, self.device.current_name())
        if self.scanner:
            self.device.set_up(self.scanner)
        return status

    def start(self):
        self.data = b""
        return self.timed(self.scanner.start)

    def part(self):
        status, data = self.timed(self.scanner.read, PART)
        self.data += data
        return status

    def read(self):
        status = Sane.GOOD
        while status == Sane.GOOD:
            status, data = self.timed(self.scanner.read, 32768)
            self.data += data
        return status

    def cancel(self):
        return self.timed(self.scanner.cancel)

    def interrupted(self, call):
        """A cancel comes from another thread while the call runs."""
        began = time.monotonic()

        def interrupt():
            # Not sleep(), whose deadline would be one of the clock that may be a fast one.
            select.select([], [], [], PATIENCE)
            self.patience = time.monotonic() - began
            self.scanner.cancel()

        canceller = threading.Thread(target=interrupt)
        canceller.start()
        status = call()
        assert self.patience, "ended before the cancel"
        canceller.join()
        self.patience = 0.0
        return status

    def run(self, calls):
        for step in CALL.finditer(calls):
            if step["control"]:
                tell(step["control"])
                continue
            call = getattr(self, step["call"])
            status = self.interrupted(call) if step["relation"] == "!" else call()
            wanted = step["status"]
            assert wanted is None or status == int(wanted), f"{step['call']} gives {status}"

    def finish(self):
        """Every handle can be cancelled and closed."""
        if self.scanner:
            self.cancel()
            self.timed(self.scanner.close)


def check_delivered(device, data, delivered):
    page = device.page
    kind, _, number = delivered.partition(" ")
    if kind == "other":
        assert data and data != page, "no other pixels"
        return
    if kind in ("sent", "lines"):
        # What is recorded are whole lines; a part of one may come behind them.
        wanted = device.recorded()
        rest = data[len(wanted):]
        assert len(rest) <= device.line_size, f"{len(data)} bytes of {len(wanted)}"
        is_known = kind == "sent" and not device.sheets and len(data) <= len(page)
        assert not is_known or page.startswith(data), "other pixels in a part of a line"
        data = data[:len(wanted)]
    else:
        sizes = {"page": len(page), "nothing": 0, "beginning": min(len(data), len(page)),
                 "blocks": int(number or 0) * device.block, "bytes": int(number or 0)}
        wanted = page[:sizes[kind]]
    assert data == wanted, f"{len(data)} bytes, not the right ones of {len(wanted)}"


class TooSlow(AssertionError):
    pass


def run_round(device, row, value):
    before = descriptors()
    for line in row["faults"]:
        tell(line.replace("{}", str(value)))
    attempt = Attempt(device)
    try:
        attempt.run(row["calls"])
    finally:
        attempt.finish()
    check_delivered(device, attempt.data, row["delivered"].replace("{}", str(value)))
    if attempt.longest > row["limit"]:
        raise TooSlow(f"a call takes {attempt.longest:.1f} s")
    after = descriptors()
    assert after == before, f"left open: {set(after) - set(before)}"
    return attempt.longest


def run_and_recover(device, row, value):
    try:
        longest = run_round(device, row, value)
    finally:
        device.recover(row["recovery"])
    device.scan_page()
    return longest


def run_patiently(device, row, value):
    """A machine that pauses is slow by chance, and on a fast clock a device seems to hang for so
    long: never twice."""
    try:
        return run_and_recover(device, row, value)
    except AssertionError as error:
        if not device.is_fast and not isinstance(error, TooSlow):
            raise
        print(f"once more, after: {error}", flush=True)
        device.scan_page()
        return run_and_recover(device, row, value)


def run_row(device, row):
    """Returns what went wrong."""
    failures, longest, growth = [], 0.0, []
    values = row["values"]
    if len(values) == 1 and row["isQuick"] and not IS_SANITIZED:
        values = values * REPEATS
    for value in values:
        before = memory_in_use()
        try:
            longest = max(longest, run_patiently(device, row, value))
        except AssertionError as error:
            failures.append(f"{row['name'].replace('{}', str(value))}: {error}")
            device.scan_page()
        growth.append(memory_in_use() - before)
    if len(growth) >= REPEATS and min(growth[1:]) > 0 and not IS_SANITIZED:
        failures.append(f"{row['name']}: memory grows by {growth}")
    print(f"{row['name']}: {len(values)} rounds, longest call {longest:.2f} s", flush=True)
    return failures


def check_leaks():
    if IS_SANITIZED:
        assert LIBC.__lsan_do_recoverable_leak_check() == 0, "leaks"


def main():
    with open(sys.argv[1]) as file:
        group = json.load(file)
    with Sane() as sane:
        device = Device(sane, group)
        device.scan_page()
        gc.freeze()  # so that each look at the memory is a short one
        failures = [failure for row in group["rows"] for failure in run_row(device, row)]
        for failure in failures:
            print(f"FAILED {failure}", flush=True)
        check_leaks()
    sys.exit(1 if failures else 0)


if __name__ == "__main__":
    main()
